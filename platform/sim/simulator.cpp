// The simulated location service: the client (`VARNClient` host build), its
// response thread, request handling, scan cycles and the control API.
#include <varn_sim/simulator.h>

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <new>

#include <varn_sim/trace.h>
#include <vel_loc_fw/log_util.h>

#include "world.h"

namespace varn_sim {

namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kTag = "VARNClientSim";
constexpr uint32_t kMaxCachedScans = 16;
constexpr uint32_t kMonitorPeriodMs = 1000;
constexpr uint32_t kMaxRangingDelayMs = 4000;

class SimClient;

struct Script {
    enum Kind { kRefuse, kNull, kRespond } kind;
    ResponseFactory factory;
};

struct Observation {
    size_t ap_index;
    int16_t rssi_dbm;
    uint64_t timestamp_us;
};

struct CachedScan {
    int32_t scan_id;
    std::vector<Observation> observations;
};

struct HotlistState {
    bool found = false;
    uint32_t missed = 0;
    Observation last{};
};

struct SignificantState {
    std::deque<int16_t> samples;
    int side = 0;  // -1 below low, 0 inside, +1 above high
};

VARNCapabilities defaultCapabilities() {
    VARNCapabilities c;
    c.discovery_scan_supported = 1;
    c.ranging_scan_supported = 1;
    c.active_scan_supported = 1;
    c.one_sided_ranging_supported = 1;
    c.dual_sided_ranging_supported_11mc = 1;
    c.bgscan_supported = 1;
    c.bwSupport = VARN_BW_80MHZ;
    c.preambleSupport = 0x7;  // legacy, HT, VHT
    c.mcVersion = 43;
    c.scans_supported = 0x3F;  // includes the responder bit
    return c;
}

VARNDynamicCapabilities defaultDynamicCapabilities() {
    VARNDynamicCapabilities c;
    c.lpBatchingSupported = 1;
    c.lpMaxNumAPBatched = 32;
    c.lpBgscanBatchingSupported = 1;
    c.lpBgscanMaxScanCacheSize = kMaxCachedScans;
    c.lpBgscanMaxApCachePerScan = 32;
    c.lpBgscanMaxScanReportThresh = 90;
    return c;
}

VARNGscanCapabilities defaultGscanCapabilities() {
    VARNGscanCapabilities c;
    c.max_scan_cache_size = kMaxCachedScans * 32 * 88;
    c.max_scan_buckets = 16;
    c.max_ap_cache_per_scan = 32;
    c.max_rssi_sample_size = 8;
    c.max_scan_reporting_threshold = 90;
    c.max_hotlist_bssids = 128;
    c.max_hotlist_ssids = 8;
    c.max_significant_wifi_change_aps = 64;
    c.max_bssid_history_entries = 16;
    c.max_number_epno_networks = 64;
    c.max_number_epno_networks_by_ssid = 16;
    c.max_number_of_white_listed_ssid = 16;
    return c;
}

std::vector<uint32_t> range(uint32_t first, uint32_t last, uint32_t step) {
    std::vector<uint32_t> out;
    for (uint32_t f = first; f <= last; f += step) out.push_back(f);
    return out;
}

std::map<int32_t, std::vector<uint32_t>> defaultChannels() {
    std::vector<uint32_t> bg = range(2412, 2472, 5);
    std::vector<uint32_t> a = range(5180, 5240, 20);
    for (uint32_t f : range(5745, 5825, 20)) a.push_back(f);
    std::vector<uint32_t> dfs = range(5260, 5320, 20);
    for (uint32_t f : range(5500, 5720, 20)) dfs.push_back(f);
    auto join = [](std::vector<uint32_t> x, const std::vector<uint32_t>& y) {
        x.insert(x.end(), y.begin(), y.end());
        std::sort(x.begin(), x.end());
        return x;
    };
    std::map<int32_t, std::vector<uint32_t>> m;
    m[VARN_BAND_BG] = bg;
    m[VARN_BAND_A] = a;
    m[VARN_BAND_A_DFS] = dfs;
    m[VARN_BAND_A_WITH_DFS] = join(a, dfs);
    m[VARN_BAND_ABG] = join(bg, a);
    m[VARN_BAND_ABG_WITH_DFS] = join(join(bg, a), dfs);
    m[VARN_BAND_UNSPECIFIED] = m[VARN_BAND_ABG_WITH_DFS];
    return m;
}

VARNResponderChannelInfo defaultResponderChannel() {
    VARNResponderChannelInfo info;
    info.width = 2;  // 80 MHz
    info.center_freq = 5180;
    info.center_freq0 = 5210;
    info.center_freq1 = 0;
    info.preamble = VARN_RTT_PREAMBLE_VHT;
    return info;
}

bool bandContains(int32_t band, uint32_t freq) {
    bool g24 = freq < 3000;
    bool dfs = (freq >= 5260 && freq <= 5320) || (freq >= 5500 && freq <= 5720);
    switch (band) {
        case VARN_BAND_BG: return g24;
        case VARN_BAND_A: return !g24 && !dfs;
        case VARN_BAND_A_DFS: return dfs;
        case VARN_BAND_A_WITH_DFS: return !g24;
        case VARN_BAND_ABG: return !dfs;
        default: return true;
    }
}

}  // namespace

struct Simulator::State {
    mutable std::mutex mu;
    std::condition_variable cv;

    Scenario scenario;
    Rng rng;
    VARNCapabilities caps;
    VARNDynamicCapabilities dynamic_caps;
    VARNGscanCapabilities gscan_caps;
    std::map<int32_t, std::vector<uint32_t>> channels;
    VARNResponderChannelInfo responder;
    std::map<int32_t, eVARNResponseStatus> statuses;
    eScanStatus ranging_scan_status = VARN_SCAN_STATUS_SUCCESS;
    bool recording = false;
    Trace recorded;
    Trace replayed;
    size_t replay_next = 0;
    std::map<int32_t, std::deque<Script>> scripts;
    bool fail_next_create = false;
    std::vector<RecordedRequest> requests;
    std::vector<SimClient*> clients;
    uint64_t delivered = 0;
    uint64_t sequence = 0;
    bool held = false;

    bool auto_scan = true;
    double scan_scale = 1.0;
    uint32_t cycle = 0;
    Clock::time_point next_scan;

    bool bgscan_active = false;
    uint32_t bgscan_request = 0;
    VARNScanParams bgscan_params;
    uint32_t scans_since_report = 0;
    std::deque<CachedScan> cache;

    bool hotlist_active = false;
    uint32_t hotlist_request = 0;
    VARNHotlistParams hotlist;
    std::map<std::string, HotlistState> hotlist_state;

    bool significant_active = false;
    uint32_t significant_request = 0;
    VARNSignificantChangeParams significant;
    std::map<std::string, SignificantState> significant_state;

    void resetLocked();
    eVARNResponseStatus statusOf(eVARNRequestType type) const {
        auto it = statuses.find(type);
        return it == statuses.end() ? VARN_RSP_STATUS_SUCCESS : it->second;
    }
    bool monitoring() const { return bgscan_active || hotlist_active || significant_active; }
    uint32_t scanPeriodMs() const {
        double base = bgscan_active && bgscan_params.base_period > 0 ? bgscan_params.base_period
                                                                    : kMonitorPeriodMs;
        return static_cast<uint32_t>(std::max(10.0, base * scan_scale));
    }
    void enqueueLocked(VARNResponse* response, uint32_t delay_ms, bool ranging = false);
    bool popScriptLocked(eVARNRequestType type, Script* out);
    RecordedRequest recordOf(const VARNRequest& request, Call call) const;
    VARNResponse* answerLocked(const VARNRequest& request);
    VARNRangingScanResponse* rangeLocked(const VARNPeriodicRangingScanRequest& request);
    TracePeer tracePeerOf(const VARNPeriodicNodeInfo& node, const VARNScanMeasurement& m,
                       const TracePeer* replayed_peer, bool from_world) const;
    void cancelLocked(const VARNCancelRangingScanRequest& request);
    void scanCycleLocked();
    VARNScanMeasurement* measurementOf(const Observation& o) const {
        return observeAp(scenario.access_points[o.ap_index], o.rssi_dbm, o.timestamp_us);
    }
};

namespace {

// The host client: one response thread delivering a time-ordered queue.
class SimClient : public VARNClient {
  public:
    struct Pending {
        Clock::time_point due;
        uint64_t sequence;
        VARNResponse* response;
        bool ranging;  // generated ranging answer, subject to cancellation
    };

    SimClient(Simulator::State* state, VARNClientListener* listener)
        : state_(state), listener_(listener) {}

    ~SimClient() override {
        {
            std::lock_guard<std::mutex> lock(state_->mu);
            stop_ = true;
            state_->cv.notify_all();
        }
        if (thread_.joinable()) thread_.join();
        std::lock_guard<std::mutex> lock(state_->mu);
        for (Pending& p : queue_) delete p.response;
        queue_.clear();
        auto& clients = state_->clients;
        clients.erase(std::remove(clients.begin(), clients.end(), this), clients.end());
        state_->cv.notify_all();
    }

    bool start() {
        try {
            thread_ = std::thread(&SimClient::run, this);
        } catch (...) {
            return false;
        }
        return true;
    }

    int sendRequest(VARNRequest* request) override;
    VARNResponse* processRequest(VARNRequest* request) override;
    VARNCapabilityResponse* getCapabilities(VARNRequest* request) override;

    // Guarded by state_->mu.
    std::vector<Pending> queue_;
    bool delivering_ = false;
    bool stop_ = false;
    std::thread::id thread_id_;

  private:
    void run();
    VARNResponse* syncCall(VARNRequest* request, Call call);

    Simulator::State* state_;
    VARNClientListener* listener_;
    std::thread thread_;
};

void SimClient::run() {
    pthread_setname_np(pthread_self(), "varn_client");
    std::unique_lock<std::mutex> lock(state_->mu);
    thread_id_ = std::this_thread::get_id();
    state_->cv.notify_all();
    while (!stop_) {
        Clock::time_point now = Clock::now();
        Clock::time_point wake = Clock::time_point::max();
        bool scanner = !state_->clients.empty() && state_->clients.back() == this;
        if (scanner && state_->auto_scan && state_->monitoring()) {
            if (now >= state_->next_scan) {
                state_->scanCycleLocked();
                state_->next_scan = now + std::chrono::milliseconds(state_->scanPeriodMs());
                continue;
            }
            wake = state_->next_scan;
        }
        auto next = std::min_element(queue_.begin(), queue_.end(),
                                     [](const Pending& a, const Pending& b) {
                                         return a.due != b.due ? a.due < b.due
                                                               : a.sequence < b.sequence;
                                     });
        if (next != queue_.end() && !state_->held) {
            if (next->due <= now) {
                VARNResponse* response = next->response;
                queue_.erase(next);
                delivering_ = true;
                lock.unlock();
                listener_->responseReceived(response);
                delete response;
                lock.lock();
                delivering_ = false;
                ++state_->delivered;
                state_->cv.notify_all();
                continue;
            }
            wake = std::min(wake, next->due);
        }
        if (wake == Clock::time_point::max()) {
            state_->cv.wait(lock);
        } else {
            state_->cv.wait_until(lock, wake);
        }
    }
}

int SimClient::sendRequest(VARNRequest* request) {
    if (request == nullptr) return -1;
    std::unique_lock<std::mutex> lock(state_->mu);
    RecordedRequest record = state_->recordOf(*request, Call::kSend);
    Script script;
    uint32_t delay_ms = 0;
    auto* ranging = dynamic_cast<VARNPeriodicRangingScanRequest*>(request);
    if (ranging != nullptr) {
        uint64_t nodes = std::max<uint32_t>(1, ranging->getNodes().size());
        delay_ms = static_cast<uint32_t>(
                std::min<uint64_t>(kMaxRangingDelayMs, state_->scenario.air_time_ms * nodes));
    }
    if (state_->popScriptLocked(request->getRequestType(), &script)) {
        record.accepted = script.kind != Script::kRefuse;
        state_->requests.push_back(record);
        if (script.kind == Script::kRefuse) return -1;
        if (script.kind == Script::kRespond) {
            lock.unlock();
            VARNResponse* response = script.factory(*request);
            lock.lock();
            if (response != nullptr) state_->enqueueLocked(response, delay_ms);
        }
        return 0;
    }
    state_->requests.push_back(record);
    if (ranging != nullptr) {
        VARNRangingScanResponse* response = state_->rangeLocked(*ranging);
        if (response != nullptr) state_->enqueueLocked(response, delay_ms, true);
    } else if (auto* cancel = dynamic_cast<VARNCancelRangingScanRequest*>(request)) {
        state_->cancelLocked(*cancel);
    }
    vel_loc_fw::log_debug(kTag, "%s: %s id(%u) accepted", __func__,
                          VARNRequest::toString(request->getRequestType()),
                          request->getRequestId());
    return 0;
}

VARNResponse* SimClient::syncCall(VARNRequest* request, Call call) {
    if (request == nullptr) return nullptr;
    std::unique_lock<std::mutex> lock(state_->mu);
    RecordedRequest record = state_->recordOf(*request, call);
    Script script;
    VARNResponse* response = nullptr;
    if (state_->popScriptLocked(request->getRequestType(), &script)) {
        if (script.kind == Script::kRespond) {
            lock.unlock();
            response = script.factory(*request);
            lock.lock();
        }
    } else if (call == Call::kGetCapabilities &&
               request->getRequestType() != VARN_REQ_CAPABILITY) {
        vel_loc_fw::log_error(kTag, "%s: not a capability request: %s", __func__,
                              VARNRequest::toString(request->getRequestType()));
    } else {
        response = state_->answerLocked(*request);
    }
    record.accepted = response != nullptr;
    state_->requests.push_back(record);
    return response;
}

VARNResponse* SimClient::processRequest(VARNRequest* request) {
    return syncCall(request, Call::kProcess);
}

VARNCapabilityResponse* SimClient::getCapabilities(VARNRequest* request) {
    VARNResponse* response = syncCall(request, Call::kGetCapabilities);
    if (response == nullptr) return nullptr;
    auto* caps = dynamic_cast<VARNCapabilityResponse*>(response);
    if (caps == nullptr) delete response;
    return caps;
}

}  // namespace

// ---- state ------------------------------------------------------------------

void Simulator::State::resetLocked() {
    scenario = Scenario::defaultScenario();
    rng.seed(scenario.seed);
    caps = defaultCapabilities();
    dynamic_caps = defaultDynamicCapabilities();
    gscan_caps = defaultGscanCapabilities();
    channels = defaultChannels();
    responder = defaultResponderChannel();
    statuses.clear();
    ranging_scan_status = VARN_SCAN_STATUS_SUCCESS;
    recording = false;
    recorded.responses.clear();
    replayed.responses.clear();
    replay_next = 0;
    scripts.clear();
    fail_next_create = false;
    requests.clear();
    delivered = 0;
    held = false;
    auto_scan = true;
    scan_scale = 1.0;
    cycle = 0;
    bgscan_active = hotlist_active = significant_active = false;
    scans_since_report = 0;
    cache.clear();
    hotlist_state.clear();
    significant_state.clear();
    for (SimClient* client : clients) {
        for (SimClient::Pending& p : client->queue_) delete p.response;
        client->queue_.clear();
    }
    cv.notify_all();
}

void Simulator::State::enqueueLocked(VARNResponse* response, uint32_t delay_ms, bool ranging) {
    if (clients.empty()) {
        delete response;
        return;
    }
    clients.back()->queue_.push_back(
            {Clock::now() + std::chrono::milliseconds(delay_ms), sequence++, response, ranging});
    cv.notify_all();
}

bool Simulator::State::popScriptLocked(eVARNRequestType type, Script* out) {
    auto it = scripts.find(type);
    if (it == scripts.end() || it->second.empty()) return false;
    *out = it->second.front();
    it->second.pop_front();
    return true;
}

RecordedRequest Simulator::State::recordOf(const VARNRequest& request, Call call) const {
    RecordedRequest r;
    r.type = request.getRequestType();
    r.request_id = request.getRequestId();
    r.call = call;
    if (auto* q = dynamic_cast<const VARNPeriodicRangingScanRequest*>(&request)) {
        r.nodes.assign(q->getNodes().begin(), q->getNodes().end());
    } else if (auto* q = dynamic_cast<const VARNCancelRangingScanRequest*>(&request)) {
        r.bssids.assign(q->getBssids().begin(), q->getBssids().end());
    } else if (auto* q = dynamic_cast<const VARNChannelsSupportedRequest*>(&request)) {
        r.band = q->getBand();
        r.max_channels = q->getMaxChannels();
    } else if (auto* q = dynamic_cast<const VARNCapabilitySubscriptionRequest*>(&request)) {
        r.period_s = q->getPeriod();
    } else if (auto* q = dynamic_cast<const VARNGetCachedBgscanResultsRequest*>(&request)) {
        r.flush = q->getFlush();
        r.max_results = q->getMax();
    } else if (auto* q = dynamic_cast<const VARNEnableResponderRequest*>(&request)) {
        r.max_duration_s = q->getMaxDuration();
        r.responder_channel.width = q->getWidth();
        r.responder_channel.center_freq = q->getCenterFreq();
        r.responder_channel.center_freq0 = q->getCenterFreq0();
        r.responder_channel.center_freq1 = q->getCenterFreq1();
    } else if (auto* q = dynamic_cast<const VARNSetLCILocationInformation*>(&request)) {
        r.lci = q->getLci();
        r.usage_rules = q->getUsageRules();
    } else if (auto* q = dynamic_cast<const VARNSetLCRLocationInformation*>(&request)) {
        r.lcr = q->getLcr();
    } else if (auto* q = dynamic_cast<const VARNBgscanStartRequest*>(&request)) {
        r.scan_params = std::make_shared<VARNScanParams>(q->getParams());
    } else if (auto* q = dynamic_cast<const VARNHotlistSetRequest*>(&request)) {
        r.hotlist_params = std::make_shared<VARNHotlistParams>(q->getParams());
    } else if (auto* q = dynamic_cast<const VARNSignificantChangeListSetRequest*>(&request)) {
        r.significant_change_params =
                std::make_shared<VARNSignificantChangeParams>(q->getParams());
    }
    return r;
}

VARNRangingScanResponse* Simulator::State::rangeLocked(
        const VARNPeriodicRangingScanRequest& request) {
    const TraceResponse* replay = nullptr;
    eScanStatus status = ranging_scan_status;
    if (!replayed.responses.empty()) {
        replay = &replayed.responses[replay_next++ % replayed.responses.size()];
        status = replay->scan_status;
    }
    auto* response = new (std::nothrow) VARNRangingScanResponse(request.getRequestId(), status);
    if (response == nullptr) return nullptr;
    TraceResponse record;
    record.scan_status = status;
    // Replaying, a node the trace did not range answers like an unknown peer.
    Scenario nobody;
    nobody.air_time_ms = scenario.air_time_ms;
    std::vector<bool> taken(replay != nullptr ? replay->peers.size() : 0);
    const auto& nodes = request.getNodes();
    for (uint32_t i = 0; status == VARN_SCAN_STATUS_SUCCESS && i < nodes.size(); ++i) {
        const TracePeer* peer = nullptr;
        for (size_t k = 0; k < taken.size() && peer == nullptr; ++k) {
            if (!taken[k] && replay->peers[k].request.bssid == nodes[i].bssid) {
                taken[k] = true;
                peer = &replay->peers[k];
            }
        }
        VARNScanMeasurement* m = peer != nullptr ? peer->toMeasurement()
                                                 : rangeNode(replay != nullptr ? nobody : scenario,
                                                             nodes[i], cycle, rng);
        if (m == nullptr) continue;
        if (recording) record.peers.push_back(tracePeerOf(nodes[i], *m, peer, replay == nullptr));
        if (response->getMeasurements().push_back(m) != 0) delete m;
    }
    if (recording) recorded.responses.push_back(std::move(record));
    return response;
}

// The trace entry of one answer, with the true distance where it is known:
// from the replayed peer, or from the world that produced it.
TracePeer Simulator::State::tracePeerOf(const VARNPeriodicNodeInfo& node,
                                     const VARNScanMeasurement& m, const TracePeer* replayed_peer,
                                     bool from_world) const {
    TracePeer p = TracePeer::of(node, m);
    const AccessPoint* ap = from_world ? findAp(scenario, m.bssid) : nullptr;
    if (replayed_peer != nullptr) {
        p.has_true_distance = replayed_peer->has_true_distance;
        p.true_distance_m = replayed_peer->true_distance_m;
    } else if (ap != nullptr) {
        p.has_true_distance = true;
        p.true_distance_m = ap->distance_m;
    }
    return p;
}

void Simulator::State::cancelLocked(const VARNCancelRangingScanRequest& request) {
    const auto& bssids = request.getBssids();
    for (SimClient* client : clients) {
        auto& queue = client->queue_;
        for (auto it = queue.begin(); it != queue.end();) {
            if (!it->ranging) {
                ++it;
                continue;
            }
            auto& meas = static_cast<VARNRangingScanResponse*>(it->response)->getMeasurements();
            for (uint32_t i = meas.size(); i-- > 0;) {
                for (const VARNMacAddress& bssid : bssids) {
                    if (meas[i]->bssid == bssid) {
                        delete meas[i];
                        meas.erase(i);
                        break;
                    }
                }
            }
            if (meas.empty()) {
                delete it->response;
                it = queue.erase(it);
            } else {
                ++it;
            }
        }
    }
}

VARNResponse* Simulator::State::answerLocked(const VARNRequest& request) {
    uint32_t id = request.getRequestId();
    eVARNRequestType type = request.getRequestType();
    eVARNResponseStatus status = statusOf(type);
    bool ok = status == VARN_RSP_STATUS_SUCCESS;
    switch (type) {
        case VARN_REQ_CAPABILITY:
            return new (std::nothrow) VARNCapabilityResponse(id, status, caps);
        case VARN_REQ_CAPABILITY_SUBSCRIPTION:
            return new (std::nothrow) VARNDynamicCapabilitiesResponse(id, status, dynamic_caps);
        case VARN_REQ_GSCAN_CAPABILITIES:
            return new (std::nothrow) VARNGscanCapabilitiesResponse(id, status, gscan_caps);
        case VARN_REQ_CHANNELS_SUPPORTED: {
            auto* q = static_cast<const VARNChannelsSupportedRequest*>(&request);
            auto* rsp = new (std::nothrow) VARNChannelsSupportedResponse(id, status);
            if (rsp == nullptr) return nullptr;
            auto it = channels.find(q->getBand());
            if (it == channels.end()) it = channels.find(VARN_BAND_BG);  // unknown bands
            int32_t limit = std::max(0, q->getMaxChannels());
            for (uint32_t f : it->second) {
                if (static_cast<int32_t>(rsp->getChannels().size()) >= limit) break;
                VARNChannel channel;
                channel.frequency = f;
                rsp->getChannels().push_back(channel);
            }
            return rsp;
        }
        case VARN_REQ_GET_CACHED_BGSCAN_RESULTS: {
            auto* q = static_cast<const VARNGetCachedBgscanResultsRequest*>(&request);
            auto* rsp = new (std::nothrow) VARNCachedBgscanResultsResponse(id, status);
            if (rsp == nullptr || !ok) return rsp;
            size_t n = std::min<size_t>(cache.size(), std::max(0, q->getMax()));
            for (size_t k = 0; k < n; ++k) {
                auto* result = new (std::nothrow) VARNBgscanCachedResult();
                if (result == nullptr) break;
                result->scan_id = cache[k].scan_id;
                for (const Observation& o : cache[k].observations) {
                    VARNScanMeasurement* m = measurementOf(o);
                    if (m != nullptr && result->measurements.push_back(m) != 0) delete m;
                }
                if (rsp->getCachedResults().push_back(result) != 0) delete result;
            }
            if (q->getFlush() != 0) cache.erase(cache.begin(), cache.begin() + n);
            return rsp;
        }
        case VARN_REQ_BGSCAN_START: {
            if (ok) {
                bgscan_active = true;
                bgscan_request = id;
                bgscan_params = static_cast<const VARNBgscanStartRequest*>(&request)->getParams();
                scans_since_report = 0;
                next_scan = Clock::now() + std::chrono::milliseconds(scanPeriodMs());
                cv.notify_all();
            }
            return new (std::nothrow) VARNScanEventResponse(id, VARN_RSP_BGSCAN, status);
        }
        case VARN_REQ_BGSCAN_STOP:
            if (ok) bgscan_active = false;
            return new (std::nothrow) VARNScanEventResponse(id, VARN_RSP_BGSCAN_STOP, status);
        case VARN_REQ_HOTLIST_SET:
            if (ok) {
                hotlist_active = true;
                hotlist_request = id;
                hotlist = static_cast<const VARNHotlistSetRequest*>(&request)->getParams();
                hotlist_state.clear();
                next_scan = Clock::now() + std::chrono::milliseconds(scanPeriodMs());
                cv.notify_all();
            }
            return new (std::nothrow) VARNScanEventResponse(id, VARN_RSP_HOTLIST_SET, status);
        case VARN_REQ_HOTLIST_CLEAR:
            if (ok) hotlist_active = false;
            return new (std::nothrow) VARNScanEventResponse(id, VARN_RSP_HOTLIST_CLEAR, status);
        case VARN_REQ_SIGNIFICANT_CHANGE_SET:
            if (ok) {
                significant_active = true;
                significant_request = id;
                significant =
                        static_cast<const VARNSignificantChangeListSetRequest*>(&request)->getParams();
                significant_state.clear();
                next_scan = Clock::now() + std::chrono::milliseconds(scanPeriodMs());
                cv.notify_all();
            }
            return new (std::nothrow)
                    VARNScanEventResponse(id, VARN_RSP_SIGNIFICANT_CHANGE_SET, status);
        case VARN_REQ_SIGNIFICANT_CHANGE_CLEAR:
            if (ok) significant_active = false;
            return new (std::nothrow)
                    VARNScanEventResponse(id, VARN_RSP_SIGNIFICANT_CHANGE_CLEAR, status);
        case VARN_REQ_RM_CHANNEL:
            return new (std::nothrow) VARNRMChannelResponse(id, VARN_RSP_RM_CHANNEL, status,
                                                            responder);
        case VARN_REQ_ENABLE_RESPONDER: {
            auto* q = static_cast<const VARNEnableResponderRequest*>(&request);
            VARNResponderChannelInfo info = responder;
            if (q->getCenterFreq() != 0) {  // follow the caller's channel hint
                info.width = q->getWidth();
                info.center_freq = q->getCenterFreq();
                info.center_freq0 = q->getCenterFreq0();
                info.center_freq1 = q->getCenterFreq1();
            }
            return new (std::nothrow)
                    VARNRMChannelResponse(id, VARN_RSP_ENABLE_RESPONDER, status, info);
        }
        default:
            return new (std::nothrow)
                    VARNResponse(id, static_cast<eVARNResponseType>(type), status);
    }
}

void Simulator::State::scanCycleLocked() {
    uint64_t now_us = nowBoottimeUs();
    std::vector<Observation> visible;
    for (size_t i = 0; i < scenario.access_points.size(); ++i) {
        const AccessPoint& ap = scenario.access_points[i];
        if (!isVisible(scenario, ap, cycle)) continue;
        double rssi = meanRssiDbm(scenario, ap, cycle) + rng.gaussian() * scenario.rssi_noise_db;
        visible.push_back({i, static_cast<int16_t>(std::lround(rssi)), now_us});
    }
    std::sort(visible.begin(), visible.end(),
              [](const Observation& a, const Observation& b) { return a.rssi_dbm > b.rssi_dbm; });
    auto find = [&](const VARNMacAddress& bssid) -> const Observation* {
        for (const Observation& o : visible) {
            if (scenario.access_points[o.ap_index].bssid == bssid) return &o;
        }
        return nullptr;
    };

    if (bgscan_active) {
        uint8_t report = 0;
        CachedScan scan{static_cast<int32_t>(cycle), {}};
        for (const Observation& o : visible) {
            uint32_t freq = scenario.access_points[o.ap_index].frequency;
            bool wanted = bgscan_params.num_buckets == 0;
            for (int b = 0; b < std::min<int>(bgscan_params.num_buckets, 16) && !wanted; ++b) {
                const VARNScanBucketSpec& bucket = bgscan_params.buckets[b];
                if (bucket.band != VARN_BAND_UNSPECIFIED) {
                    wanted = bandContains(bucket.band, freq);
                } else {
                    for (int c = 0; c < std::min<int>(bucket.num_channels, 16); ++c) {
                        wanted = wanted || bucket.channels[c].channel == freq;
                    }
                }
            }
            uint32_t cap = bgscan_params.max_ap_per_scan;
            if (wanted && (cap == 0 || scan.observations.size() < cap)) {
                scan.observations.push_back(o);
            }
        }
        for (int b = 0; b < std::min<int>(bgscan_params.num_buckets, 16); ++b) {
            report |= bgscan_params.buckets[b].report_events;
        }
        if ((report & 2) != 0) {  // full results
            for (const Observation& o : scan.observations) {
                auto* rsp = new (std::nothrow) VARNScanEventResponse(
                        bgscan_request, VARN_RSP_BGSCAN, VARN_RSP_STATUS_SUCCESS,
                        VARN_ON_FULL_SCAN_RESULT_EVT);
                if (rsp == nullptr) continue;
                VARNScanMeasurement* m = measurementOf(o);
                if (m != nullptr && rsp->getMeasurements().push_back(m) != 0) delete m;
                enqueueLocked(rsp, 0);
            }
        }
        cache.push_back(scan);
        if (cache.size() > kMaxCachedScans) cache.pop_front();
        ++scans_since_report;
        bool each_scan = (report & 1) != 0;
        bool threshold =
                (bgscan_params.report_threshold_num_scans > 0 &&
                 scans_since_report >= bgscan_params.report_threshold_num_scans) ||
                (bgscan_params.report_threshold_percent > 0 &&
                 cache.size() * 100 >= bgscan_params.report_threshold_percent * kMaxCachedScans);
        if (each_scan || threshold) {
            scans_since_report = 0;
            enqueueLocked(new (std::nothrow) VARNScanEventResponse(
                                  bgscan_request, VARN_RSP_BGSCAN, VARN_RSP_STATUS_SUCCESS,
                                  VARN_ON_SCAN_EVT,
                                  each_scan ? VARN_BGSCAN_SCAN_COMPLETE
                                            : VARN_BGSCAN_BUFFER_THRESHOLD),
                          0);
        }
    }

    if (hotlist_active) {
        auto* found = new (std::nothrow) VARNScanEventResponse(
                hotlist_request, VARN_RSP_HOTLIST_EVENT, VARN_RSP_STATUS_SUCCESS, VARN_AP_FOUND_EVT);
        auto* lost = new (std::nothrow) VARNScanEventResponse(
                hotlist_request, VARN_RSP_HOTLIST_EVENT, VARN_RSP_STATUS_SUCCESS, VARN_AP_LOST_EVT);
        int n = std::min<int>(std::max(0, hotlist.num_bssid), VARNHotlistParams::kMaxAps);
        for (int i = 0; i < n && found != nullptr && lost != nullptr; ++i) {
            HotlistState& st = hotlist_state[formatMac(hotlist.ap[i].bssid)];
            const Observation* o = find(hotlist.ap[i].bssid);
            bool seen = o != nullptr && o->rssi_dbm >= hotlist.ap[i].low;
            if (seen) {
                st.missed = 0;
                st.last = *o;
                if (!st.found) {
                    st.found = true;
                    found->getMeasurements().push_back(measurementOf(*o));
                }
            } else if (st.found &&
                       ++st.missed >= static_cast<uint32_t>(std::max(1, hotlist.lost_ap_sample_size))) {
                st.found = false;
                lost->getMeasurements().push_back(measurementOf(st.last));
            }
        }
        for (VARNScanEventResponse* rsp : {found, lost}) {
            if (rsp != nullptr && !rsp->getMeasurements().empty()) {
                enqueueLocked(rsp, 0);
            } else {
                delete rsp;
            }
        }
    }

    if (significant_active) {
        auto* rsp = new (std::nothrow) VARNScanEventResponse(
                significant_request, VARN_RSP_SIGNIFICANT_CHANGE_EVENT, VARN_RSP_STATUS_SUCCESS,
                VARN_SIGNIFICANT_CHANGE_EVT);
        int n = std::min<int>(std::max(0, significant.num_bssid),
                              VARNSignificantChangeParams::kMaxAps);
        size_t window = static_cast<size_t>(std::max(1, significant.rssi_sample_size));
        for (int i = 0; i < n && rsp != nullptr; ++i) {
            const Observation* o = find(significant.ap[i].bssid);
            if (o == nullptr) continue;
            SignificantState& st = significant_state[formatMac(significant.ap[i].bssid)];
            st.samples.push_back(o->rssi_dbm);
            while (st.samples.size() > window) st.samples.pop_front();
            double mean = 0;
            for (int16_t s : st.samples) mean += s;
            mean /= st.samples.size();
            int side = mean < significant.ap[i].low ? -1 : mean > significant.ap[i].high ? 1 : 0;
            if (side != 0 && side != st.side) {
                VARNScanMeasurement* m = measurementOf(*o);
                if (m == nullptr) continue;
                delete m->measurements[0];
                m->measurements.clear();
                for (int16_t s : st.samples) {
                    auto* info = new (std::nothrow) VARNMeasurementInfo();
                    if (info == nullptr) continue;
                    info->rssi = s;
                    info->rssi_timestamp = now_us;
                    if (m->measurements.push_back(info) != 0) delete info;
                }
                rsp->getMeasurements().push_back(m);
            }
            st.side = side;
        }
        if (rsp != nullptr &&
            static_cast<int>(rsp->getMeasurements().size()) >= std::max(1, significant.min_breaching)) {
            enqueueLocked(rsp, 0);
        } else {
            delete rsp;
        }
    }
    ++cycle;
}

// ---- control API --------------------------------------------------------------

Simulator& Simulator::instance() {
    // Never destroyed: clients may outlive static destruction order.
    static Simulator* simulator = new Simulator();
    return *simulator;
}

Simulator::Simulator() : state_(new State()) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->resetLocked();
}

void Simulator::reset() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->resetLocked();
}

void Simulator::setScenario(const Scenario& scenario) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->scenario = scenario;
    state_->rng.seed(scenario.seed);
    state_->cycle = 0;
}

Scenario Simulator::scenario() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->scenario;
}

std::vector<AccessPoint> Simulator::accessPoints() const { return scenario().access_points; }

void Simulator::setAirTimeMs(uint32_t ms_per_node) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->scenario.air_time_ms = ms_per_node;
}

double Simulator::expectedRssiDbm(const AccessPoint& ap, uint32_t cycle) const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return meanRssiDbm(state_->scenario, ap, cycle);
}

int32_t Simulator::expectedRttPs(double distance_m) {
    return static_cast<int32_t>(std::lround(2.0 * distance_m / kSpeedOfLight * 1e12));
}

int32_t Simulator::rttStdevPs(eVARNBandwidth bw) {
    static const int32_t kStdev[4] = {21000, 9270, 7000, 5600};
    return bw >= 0 && bw < 4 ? kStdev[bw] : kStdev[0];
}

#define VARN_SIM_SETTER(method, Type, member)          \
    void Simulator::method(const Type& value) {        \
        std::lock_guard<std::mutex> lock(state_->mu);  \
        state_->member = value;                        \
    }
VARN_SIM_SETTER(setCapabilities, VARNCapabilities, caps)
VARN_SIM_SETTER(setDynamicCapabilities, VARNDynamicCapabilities, dynamic_caps)
VARN_SIM_SETTER(setGscanCapabilities, VARNGscanCapabilities, gscan_caps)
VARN_SIM_SETTER(setResponderChannel, VARNResponderChannelInfo, responder)
#undef VARN_SIM_SETTER

VARNCapabilities Simulator::capabilities() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->caps;
}

void Simulator::setChannels(int32_t band, const std::vector<uint32_t>& frequencies) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->channels[band] = frequencies;
}

void Simulator::setResponseStatus(eVARNRequestType type, eVARNResponseStatus status) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->statuses[type] = status;
}

void Simulator::setRecording(bool on) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->recording = on;
    if (on) state_->recorded.responses.clear();
}

Trace Simulator::recordedTrace() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->recorded;
}

void Simulator::replay(const Trace& trace) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->replayed = trace;
    state_->replay_next = 0;
}

void Simulator::setRangingScanStatus(eScanStatus status) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->ranging_scan_status = status;
}

void Simulator::refuseNext(eVARNRequestType type) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->scripts[type].push_back({Script::kRefuse, nullptr});
}

void Simulator::answerNextWithNull(eVARNRequestType type) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->scripts[type].push_back({Script::kNull, nullptr});
}

void Simulator::answerNextWith(eVARNRequestType type, ResponseFactory factory) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->scripts[type].push_back({Script::kRespond, std::move(factory)});
}

void Simulator::failNextCreateInstance() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->fail_next_create = true;
}

std::vector<RecordedRequest> Simulator::requests() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->requests;
}

size_t Simulator::requestCount() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->requests.size();
}

RecordedRequest Simulator::lastRequest(eVARNRequestType type) const {
    std::lock_guard<std::mutex> lock(state_->mu);
    for (auto it = state_->requests.rbegin(); it != state_->requests.rend(); ++it) {
        if (it->type == type) return *it;
    }
    return RecordedRequest();
}

void Simulator::clearRequests() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->requests.clear();
}

int Simulator::deliver(VARNResponse* response, uint32_t delay_ms) {
    std::lock_guard<std::mutex> lock(state_->mu);
    if (state_->clients.empty()) {
        delete response;
        return -1;
    }
    if (response != nullptr) state_->enqueueLocked(response, delay_ms);
    return 0;
}

bool Simulator::waitUntilDelivered(uint32_t timeout_ms) {
    std::unique_lock<std::mutex> lock(state_->mu);
    return state_->cv.wait_for(lock, std::chrono::milliseconds(timeout_ms), [this] {
        for (SimClient* client : state_->clients) {
            if (!client->queue_.empty() || client->delivering_) return false;
        }
        return true;
    });
}

void Simulator::setDeliveryHeld(bool held) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->held = held;
    state_->cv.notify_all();
}

uint64_t Simulator::deliveredCount() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->delivered;
}

std::thread::id Simulator::serviceThreadId() const {
    std::unique_lock<std::mutex> lock(state_->mu);
    if (state_->clients.empty()) return std::thread::id();
    SimClient* client = state_->clients.back();
    state_->cv.wait(lock, [client] { return client->thread_id_ != std::thread::id(); });
    return client->thread_id_;
}

size_t Simulator::liveClients() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->clients.size();
}

void Simulator::runScanCycle() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->scanCycleLocked();
}

void Simulator::setAutoScan(bool enabled, double period_scale) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->auto_scan = enabled;
    state_->scan_scale = period_scale > 0 ? period_scale : 1.0;
    state_->next_scan = Clock::now() + std::chrono::milliseconds(state_->scanPeriodMs());
    state_->cv.notify_all();
}

uint32_t Simulator::scanCycle() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->cycle;
}

bool Simulator::bgscanActive() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->bgscan_active;
}

}  // namespace varn_sim

// ---- client library entry -----------------------------------------------------

VARNClient* VARNClient::createInstance(VARNClientListener* listener, bool async_responses,
                                       eVARNLogLevel log_level) {
    (void)async_responses;
    // The client library logs through its own private copy of the framework:
    // its level is the one asked for here, not the host process's.
    const int32_t level = std::min<int32_t>(std::max<int32_t>(log_level, VARN_LOG_OFF),
                                            VARN_LOG_VERBOSE);
    vel_loc_fw::log_set_global_level(static_cast<vel_loc_fw::ERROR_LEVEL>(level));
    varn_sim::Simulator::State& state = varn_sim::Simulator::instance().state();
    {
        std::lock_guard<std::mutex> lock(state.mu);
        if (state.fail_next_create || listener == nullptr) {
            state.fail_next_create = false;
            vel_loc_fw::log_warning(varn_sim::kTag, "%s: service unavailable", __func__);
            return nullptr;
        }
    }
    auto* client = new (std::nothrow) varn_sim::SimClient(&state, listener);
    if (client == nullptr) return nullptr;
    {
        std::lock_guard<std::mutex> lock(state.mu);
        state.clients.push_back(client);
    }
    if (!client->start()) {
        delete client;
        return nullptr;
    }
    vel_loc_fw::log_debug(varn_sim::kTag, "%s: client up, log level %d", __func__, log_level);
    return client;
}
