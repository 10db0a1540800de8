#include "tune_runner.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>

#include <loc_utils/loc_utils.h>
#include <varn_wifihal.h>

#include "demo_support.h"

namespace varn_tune {

namespace {

constexpr int kAnswerTimeoutMs = 5000;

// What the tool keeps of one result.
struct Answer {
    mac_addr addr;
    wifi_rtt_status status;
    int distance_mm;
    wifi_rtt_bw packet_bw;
};

// Results of the request in flight, copied on the service's thread.
struct Pending {
    std::mutex mutex;
    std::condition_variable done;
    wifi_request_id id = 0;
    bool answered = false;
    std::vector<Answer> results;
};
Pending g_pending;

void onResults(wifi_request_id id, unsigned num_results, wifi_rtt_result_v2* results[]) {
    std::lock_guard<std::mutex> lock(g_pending.mutex);
    for (unsigned i = 0; i < num_results; ++i) {
        const wifi_rtt_result& r = results[i]->rtt_result;
        Answer a;
        memcpy(a.addr, r.addr, sizeof(a.addr));
        a.status = r.status;
        a.distance_mm = r.distance_mm;
        a.packet_bw = results[i]->packet_bw;
        if (id == g_pending.id) g_pending.results.push_back(a);
        // The library releases the first result's blocks only.
        if (i > 0) {
            free(r.LCI);
            free(r.LCR);
        }
    }
    if (id != g_pending.id) return;
    g_pending.answered = true;
    g_pending.done.notify_all();
}

bool sameBssid(const VARNMacAddress& bssid, const mac_addr addr) {
    for (int i = 0; i < 6; ++i) {
        if (bssid[i] != addr[i]) return false;
    }
    return true;
}

// The library, up with `setting` for as long as it lives.
class Session {
  public:
    Session(const Setting& setting, std::string* error) {
        char path[] = "/tmp/varn_tune_XXXXXX";
        const std::string text = "VARN_WIFIHAL_LOG_LEVEL = 0\n" + setting.configLines();
        const int fd = mkstemp(path);
        if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            *error = "cannot write a configuration file in /tmp";
            if (fd >= 0) close(fd), unlink(path);
            return;
        }
        close(fd);
        loc_utils_set_varn_conf_path(path);
        const wifi_error rc = varn_wifihal_init();
        // init reads the file once.
        unlink(path);
        loc_utils_set_varn_conf_path(nullptr);
        if (rc != WIFI_SUCCESS) {
            *error = "varn_wifihal_init failed (" + std::to_string(rc) + ")";
            return;
        }
        up_ = true;
        varn_sim::Simulator::instance().setAirTimeMs(0);
    }
    ~Session() {
        if (up_) varn_wifihal_destroy();
    }
    bool up() const { return up_; }

    // One request; false (with `error`) when it is refused or not answered.
    bool range(std::vector<wifi_rtt_config>& configs, std::vector<Answer>* results,
               std::string* error) {
        {
            std::lock_guard<std::mutex> lock(g_pending.mutex);
            g_pending.id = ++id_;
            g_pending.answered = false;
            g_pending.results.clear();
        }
        varn_sim::Simulator& sim = varn_sim::Simulator::instance();
        // Instant answers wait until the library has noted its request.
        sim.setDeliveryHeld(true);
        const wifi_error rc =
                varn_wifihal_rtt_range_request(id_, nullptr, static_cast<unsigned>(configs.size()),
                                               configs.data(), {nullptr, onResults});
        sim.setDeliveryHeld(false);
        if (rc != WIFI_SUCCESS) {
            *error = "ranging request " + std::to_string(id_) + " refused (" + std::to_string(rc) +
                     ")";
            return false;
        }
        std::unique_lock<std::mutex> lock(g_pending.mutex);
        if (!g_pending.done.wait_for(lock, std::chrono::milliseconds(kAnswerTimeoutMs),
                                     [] { return g_pending.answered; })) {
            *error = "no answer to ranging request " + std::to_string(id_);
            return false;
        }
        *results = std::move(g_pending.results);
        return true;
    }

  private:
    bool up_ = false;
    wifi_request_id id_ = 0;
};

}  // namespace

wifi_rtt_config configOf(const VARNPeriodicNodeInfo& node) {
    wifi_rtt_config c;
    memset(&c, 0, sizeof(c));
    for (int i = 0; i < 6; ++i) c.addr[i] = node.bssid[i];
    c.type = node.rtt_type == VARN_RTT_TYPE_2_SIDED ? RTT_TYPE_2_SIDED : RTT_TYPE_1_SIDED;
    switch (node.peer_type) {
        case VARN_NODE_PEER_DEVICE: c.peer = RTT_PEER_P2P_GO; break;
        case VARN_NODE_NAN_DEVICE: c.peer = RTT_PEER_NAN; break;
        case VARN_NODE_STATION: c.peer = RTT_PEER_STA; break;
        default: c.peer = RTT_PEER_AP; break;
    }
    c.channel.center_freq = static_cast<wifi_channel>(node.frequency);
    c.channel.center_freq0 = static_cast<wifi_channel>(node.center_freq0);
    c.channel.center_freq1 = static_cast<wifi_channel>(node.center_freq1);
    const int bw = node.bandwidth >= 0 && node.bandwidth < 4 ? node.bandwidth : 0;
    c.channel.width = static_cast<wifi_channel_width>(bw);
    c.bw = static_cast<wifi_rtt_bw>(WIFI_RTT_BW_20 << bw);
    const int preamble = node.preamble >= 0 && node.preamble < 4 ? node.preamble : 0;
    c.preamble = static_cast<wifi_rtt_preamble>(WIFI_RTT_PREAMBLE_LEGACY << preamble);
    c.num_frames_per_burst = node.packets_per_measurement;
    c.num_retries_per_rtt_frame = node.num_retries;
    c.num_retries_per_ftmr = node.num_retries;
    c.LCI_request = (node.ftm_params & VARNPeriodicNodeInfo::kFtmLciRequest) != 0;
    c.LCR_request = (node.ftm_params & VARNPeriodicNodeInfo::kFtmLcrRequest) != 0;
    c.num_burst = (node.ftm_params >> 8) & 0xfu;
    c.burst_duration = (node.ftm_params >> 12) & 0xfu;
    c.burst_period = node.ftm_params >> 16;
    return c;
}

bool recordScenario(const varn_sim::Scenario& scenario, int rounds, varn_sim::Trace* trace,
                    std::string* error, const Progress& progress) {
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.replay({});
    sim.setScenario(scenario);
    std::vector<wifi_rtt_config> configs;
    for (const varn_sim::AccessPoint& ap : scenario.access_points) {
        configs.push_back(varn_demo::rangingConfigFor(ap));
    }
    if (configs.empty()) {
        *error = "the scenario has no access point to range to";
        return false;
    }
    Session session(Setting{}, error);
    if (!session.up()) return false;
    sim.setRecording(true);
    std::vector<Answer> results;
    bool ok = true;
    for (int round = 0; ok && round < rounds; ++round) {
        ok = session.range(configs, &results, error);
        if (progress) progress(static_cast<size_t>(round) + 1, static_cast<size_t>(rounds));
    }
    sim.setRecording(false);
    *trace = sim.recordedTrace();
    return ok;
}

bool runSetting(const varn_sim::Trace& trace, const Setting& setting, std::vector<Sample>* samples,
                std::string* error, const Progress& progress) {
    // A response without peers (a failed scan) cannot be asked for again.
    varn_sim::Trace replayed;
    for (const varn_sim::TraceResponse& r : trace.responses) {
        if (!r.peers.empty()) replayed.responses.push_back(r);
    }
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.replay(replayed);
    Session session(setting, error);
    bool ok = session.up();
    std::vector<Answer> results;
    for (size_t i = 0; ok && i < replayed.responses.size(); ++i) {
        const std::vector<varn_sim::TracePeer>& peers = replayed.responses[i].peers;
        std::vector<wifi_rtt_config> configs;
        for (const varn_sim::TracePeer& peer : peers) configs.push_back(configOf(peer.request));
        ok = session.range(configs, &results, error);
        std::vector<bool> taken(peers.size());
        for (const Answer& r : results) {
            Sample s;
            s.bw_mhz = varn_demo::bandwidthMhz(r.packet_bw);
            s.succeeded = r.status == RTT_STATUS_SUCCESS;
            s.measured_m = r.distance_mm / 1000.0;
            s.true_m = NAN;
            for (size_t k = 0; k < peers.size(); ++k) {
                if (!taken[k] && sameBssid(peers[k].request.bssid, r.addr)) {
                    taken[k] = true;
                    if (peers[k].has_true_distance) s.true_m = peers[k].true_distance_m;
                    break;
                }
            }
            samples->push_back(s);
        }
        if (progress) progress(i + 1, replayed.responses.size());
    }
    sim.replay({});
    return ok;
}

}  // namespace varn_tune
