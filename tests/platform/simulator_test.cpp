// Scripting and answers of the simulated client library.
#include <varn_sim/simulator.h>

#include <chrono>
#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "platform_test_support.h"

namespace {

using varn_sim::Simulator;
using varn_sim_test::RecordingListener;

// Request classes that live outside the client library derive from VARNRequest.
class RMChannelRequest : public VARNRequest {
  public:
    explicit RMChannelRequest(uint32_t id) : VARNRequest(id) {}
    eVARNRequestType getRequestType() const override { return VARN_REQ_RM_CHANNEL; }
};

class DisableResponderRequest : public VARNRequest {
  public:
    explicit DisableResponderRequest(uint32_t id) : VARNRequest(id) {}
    eVARNRequestType getRequestType() const override { return VARN_REQ_DISABLE_RESPONDER; }
};

class SimulatorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        client_.reset(varn_sim_test::startClient(&listener_));
        ASSERT_NE(client_, nullptr);
    }
    void TearDown() override {
        client_.reset();
        sim().reset();
    }
    Simulator& sim() { return Simulator::instance(); }
    template <typename T>
    std::unique_ptr<T> process(VARNRequest&& request) {
        VARNResponse* rsp = client_->processRequest(&request);
        T* typed = dynamic_cast<T*>(rsp);
        if (typed == nullptr) delete rsp;
        return std::unique_ptr<T>(typed);
    }
    int range(uint32_t id, const std::vector<varn_sim::AccessPoint>& aps) {
        vel_loc_fw::vector<VARNPeriodicNodeInfo> nodes;
        for (const auto& ap : aps) nodes.push_back(varn_sim_test::nodeFor(ap));
        VARNPeriodicRangingScanRequest request(id, nodes, 0);
        return client_->sendRequest(&request);
    }

    RecordingListener listener_;
    std::unique_ptr<VARNClient> client_;
};

TEST_F(SimulatorTest, RangingAnswersEveryNodeOnTheServiceThread) {
    std::vector<varn_sim::AccessPoint> aps = sim().accessPoints();
    ASSERT_EQ(range(7, aps), 0);
    ASSERT_TRUE(sim().waitUntilDelivered());
    auto got = listener_.received();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].type, VARN_RSP_RANGING_SCAN);
    EXPECT_EQ(got[0].request_id, 7u);
    EXPECT_EQ(got[0].thread, sim().serviceThreadId());
    EXPECT_NE(got[0].thread, std::this_thread::get_id());
    ASSERT_EQ(got[0].bssids.size(), aps.size());
    for (size_t i = 0; i < aps.size(); ++i) {
        EXPECT_EQ(got[0].bssids[i], varn_sim::formatMac(aps[i].bssid));
        bool reachable = sim().expectedRssiDbm(aps[i]) >= sim().scenario().sensitivity_dbm &&
                         aps[i].appear_cycle == 0;
        EXPECT_EQ(got[0].target_status[i] == VARN_TARGET_STATUS_SUCCESS, reachable)
                << aps[i].ssid;
        if (!reachable) {
            EXPECT_EQ(got[0].target_status[i], VARN_TARGET_STATUS_RTT_FAIL_NO_RSP);
        }
    }
    auto recorded = sim().lastRequest(VARN_REQ_PERIODIC_RANGING_SCAN);
    EXPECT_EQ(recorded.request_id, 7u);
    EXPECT_EQ(recorded.call, varn_sim::Call::kSend);
    ASSERT_EQ(recorded.nodes.size(), aps.size());
    EXPECT_EQ(recorded.nodes[1].bssid, aps[1].bssid);
}

TEST_F(SimulatorTest, RangingWaitsForItsAirTime) {
    sim().setAirTimeMs(40);
    auto aps = sim().accessPoints();
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(range(1, {aps[0], aps[1]}), 0);
    EXPECT_EQ(listener_.count(), 0u);
    ASSERT_TRUE(sim().waitUntilDelivered());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(80));
    EXPECT_EQ(listener_.count(), 1u);
}

TEST_F(SimulatorTest, CancelDropsPendingMeasurementsOfThoseBssids) {
    auto aps = sim().accessPoints();
    sim().setDeliveryHeld(true);
    ASSERT_EQ(range(1, {aps[0], aps[1]}), 0);
    ASSERT_EQ(range(2, {aps[1]}), 0);
    vel_loc_fw::vector<VARNMacAddress> cancel;
    cancel.push_back(aps[1].bssid);
    VARNCancelRangingScanRequest request(3, cancel);
    EXPECT_EQ(client_->sendRequest(&request), 0);
    sim().setDeliveryHeld(false);
    ASSERT_TRUE(sim().waitUntilDelivered());
    auto got = listener_.received();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].request_id, 1u);
    EXPECT_EQ(got[0].bssids, std::vector<std::string>{varn_sim::formatMac(aps[0].bssid)});
    ASSERT_EQ(sim().lastRequest(VARN_REQ_CANCEL_RANGING_SCAN).bssids.size(), 1u);
}

TEST_F(SimulatorTest, ScriptsApplyToTheNextRequestOfTheirKindInOrder) {
    auto aps = sim().accessPoints();
    sim().refuseNext(VARN_REQ_PERIODIC_RANGING_SCAN);
    sim().answerNextWithNull(VARN_REQ_PERIODIC_RANGING_SCAN);
    sim().answerNextWith(VARN_REQ_PERIODIC_RANGING_SCAN, [](const VARNRequest& r) {
        return new VARNRangingScanResponse(r.getRequestId(), VARN_SCAN_STATUS_NO_WIFI);
    });
    EXPECT_EQ(range(1, aps), -1);
    EXPECT_EQ(range(2, aps), 0);
    EXPECT_EQ(range(3, aps), 0);
    EXPECT_EQ(range(4, {aps[0]}), 0);
    ASSERT_TRUE(sim().waitUntilDelivered());
    auto got = listener_.received();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].request_id, 3u);
    EXPECT_TRUE(got[0].bssids.empty());
    EXPECT_EQ(got[1].request_id, 4u);
    auto recorded = sim().requests();
    ASSERT_EQ(recorded.size(), 4u);
    EXPECT_FALSE(recorded[0].accepted);
    EXPECT_TRUE(recorded[1].accepted);

    sim().refuseNext(VARN_REQ_CAPABILITY);
    VARNCapabilityRequest caps(5);
    EXPECT_EQ(client_->getCapabilities(&caps), nullptr);
    std::unique_ptr<VARNCapabilityResponse> second(client_->getCapabilities(&caps));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->getCapabilities().mcVersion, sim().capabilities().mcVersion);
}

TEST_F(SimulatorTest, SynchronousAnswersCarryTheScriptedState) {
    VARNCapabilities caps;
    caps.ranging_scan_supported = 1;
    caps.bwSupport = 3;
    caps.scans_supported = VARNCapabilities::kScansResponder;
    sim().setCapabilities(caps);
    sim().setResponseStatus(VARN_REQ_CAPABILITY, VARN_RSP_STATUS_TIMED_OUT);
    VARNCapabilityRequest caps_request(1);
    std::unique_ptr<VARNCapabilityResponse> c(client_->getCapabilities(&caps_request));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->getResponseType(), VARN_RSP_CAPABILITY);
    EXPECT_EQ(c->getResponseStatus(), VARN_RSP_STATUS_TIMED_OUT);
    EXPECT_EQ(c->getCapabilities().bwSupport, 3);
    EXPECT_EQ(sim().lastRequest(VARN_REQ_CAPABILITY).call, varn_sim::Call::kGetCapabilities);

    sim().setChannels(VARN_BAND_BG, {2412, 2437, 2462});
    for (int max : {0, 2, 3, 50, -1}) {
        auto ch = process<VARNChannelsSupportedResponse>(
                VARNChannelsSupportedRequest(2, VARN_BAND_BG, max));
        ASSERT_NE(ch, nullptr);
        EXPECT_EQ(ch->getChannels().size(), static_cast<uint32_t>(std::max(0, std::min(max, 3))));
    }
    EXPECT_EQ(sim().lastRequest(VARN_REQ_CHANNELS_SUPPORTED).max_channels, -1);

    VARNDynamicCapabilities dyn;
    dyn.lpBgscanMaxScanReportThresh = 77;
    sim().setDynamicCapabilities(dyn);
    auto d = process<VARNDynamicCapabilitiesResponse>(VARNCapabilitySubscriptionRequest(3, 60));
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->getDynamicCapabilities().lpBgscanMaxScanReportThresh, 77u);
    EXPECT_EQ(sim().lastRequest(VARN_REQ_CAPABILITY_SUBSCRIPTION).period_s, 60u);

    VARNResponderChannelInfo responder;
    responder.center_freq = 5745;
    responder.preamble = 7;
    sim().setResponderChannel(responder);
    sim().setResponseStatus(VARN_REQ_ENABLE_RESPONDER, VARN_RSP_STATUS_INVALID_ARGS);
    auto rm = process<VARNRMChannelResponse>(RMChannelRequest(4));
    ASSERT_NE(rm, nullptr);
    EXPECT_EQ(rm->getResponseType(), VARN_RSP_RM_CHANNEL);
    EXPECT_EQ(rm->getChannelInfo().center_freq, 5745);
    EXPECT_EQ(rm->getChannelInfo().preamble, 7u);
    auto on = process<VARNRMChannelResponse>(VARNEnableResponderRequest(5, 30, 1, 5200, 5190, 0));
    ASSERT_NE(on, nullptr);
    EXPECT_EQ(on->getResponseType(), VARN_RSP_ENABLE_RESPONDER);
    EXPECT_EQ(on->getResponseStatus(), VARN_RSP_STATUS_INVALID_ARGS);
    EXPECT_EQ(on->getChannelInfo().center_freq0, 5190);
    EXPECT_EQ(sim().lastRequest(VARN_REQ_ENABLE_RESPONDER).max_duration_s, 30u);

    // A request type without a dedicated answer gets a status-only response.
    sim().answerNextWithNull(VARN_REQ_DISABLE_RESPONDER);
    EXPECT_EQ(process<VARNResponse>(DisableResponderRequest(6)), nullptr);
    auto plain = process<VARNResponse>(DisableResponderRequest(7));
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->getRequestId(), 7u);
    EXPECT_EQ(plain->getResponseType(), static_cast<eVARNResponseType>(27));
}

TEST_F(SimulatorTest, CreateInstanceCanBeMadeToFail) {
    RecordingListener other;
    sim().failNextCreateInstance();
    EXPECT_EQ(VARNClient::createInstance(&other, true, VARN_LOG_DEBUG), nullptr);
    std::unique_ptr<VARNClient> second(VARNClient::createInstance(&other, true, VARN_LOG_DEBUG));
    EXPECT_NE(second, nullptr);
    EXPECT_EQ(sim().liveClients(), 2u);
    second.reset();
    EXPECT_EQ(sim().liveClients(), 1u);
}

TEST_F(SimulatorTest, InjectedResponsesReachTheListener) {
    auto* rsp = new VARNScanEventResponse(9, VARN_RSP_HOTLIST_EVENT, VARN_RSP_STATUS_SUCCESS,
                                          VARN_AP_LOST_EVT);
    rsp->getMeasurements().push_back(new VARNScanMeasurement());
    ASSERT_EQ(sim().deliver(rsp), 0);
    ASSERT_TRUE(sim().waitUntilDelivered());
    auto got = listener_.received();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].event_code, VARN_AP_LOST_EVT);
    EXPECT_EQ(got[0].bssids.size(), 1u);
    EXPECT_EQ(sim().deliveredCount(), 1u);
}

TEST_F(SimulatorTest, BackgroundScanCachesAndReportsScans) {
    VARNScanParams params;
    params.base_period = 1000;
    params.max_ap_per_scan = 3;
    params.num_buckets = 1;
    params.buckets[0].band = VARN_BAND_ABG_WITH_DFS;
    params.buckets[0].report_events = 1 | 2;  // each scan, full results
    auto start = process<VARNScanEventResponse>(VARNBgscanStartRequest(20, params));
    ASSERT_NE(start, nullptr);
    EXPECT_EQ(start->getResponseType(), VARN_RSP_BGSCAN);
    EXPECT_EQ(start->getEventCode(), VARN_NO_EVT);
    EXPECT_TRUE(sim().bgscanActive());
    for (int i = 0; i < 5; ++i) sim().runScanCycle();
    ASSERT_TRUE(sim().waitUntilDelivered());
    size_t full = 0, events = 0;
    for (const auto& r : listener_.received()) {
        EXPECT_EQ(r.request_id, 20u);
        if (r.event_code == VARN_ON_FULL_SCAN_RESULT_EVT) ++full;
        if (r.event_code == VARN_ON_SCAN_EVT) ++events;
    }
    EXPECT_EQ(events, 5u);
    EXPECT_EQ(full, 5u * 3u);

    auto cached = process<VARNCachedBgscanResultsResponse>(
            VARNGetCachedBgscanResultsRequest(21, 1, 4));
    ASSERT_NE(cached, nullptr);
    ASSERT_EQ(cached->getCachedResults().size(), 4u);
    EXPECT_EQ(cached->getCachedResults()[0]->scan_id, 0);
    EXPECT_EQ(cached->getCachedResults()[0]->measurements.size(), 3u);
    auto rest = process<VARNCachedBgscanResultsResponse>(
            VARNGetCachedBgscanResultsRequest(22, 0, 10));
    ASSERT_NE(rest, nullptr);
    ASSERT_EQ(rest->getCachedResults().size(), 1u);  // the flush removed the first four
    EXPECT_EQ(rest->getCachedResults()[0]->scan_id, 4);
    VARNScanMeasurement* m = rest->getCachedResults()[0]->measurements[0];
    ASSERT_EQ(m->measurements.size(), 1u);
    EXPECT_LT(m->measurements[0]->rssi, 0);  // dBm
    EXPECT_LE(m->ie_data.size(), 8u);

    auto stop = process<VARNScanEventResponse>(VARNBgscanStopRequest(23));
    ASSERT_NE(stop, nullptr);
    EXPECT_EQ(stop->getResponseType(), VARN_RSP_BGSCAN_STOP);
    EXPECT_FALSE(sim().bgscanActive());
}

TEST_F(SimulatorTest, HotlistReportsApsThatAppearAndDisappear) {
    auto aps = sim().accessPoints();
    VARNHotlistParams params;
    params.lost_ap_sample_size = 2;
    for (const auto& ap : aps) {
        params.ap[params.num_bssid].bssid = ap.bssid;
        params.ap[params.num_bssid].low = -100;
        params.ap[params.num_bssid].high = 0;
        ++params.num_bssid;
    }
    auto set = process<VARNScanEventResponse>(VARNHotlistSetRequest(30, params));
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->getResponseType(), VARN_RSP_HOTLIST_SET);
    ASSERT_EQ(sim().lastRequest(VARN_REQ_HOTLIST_SET).hotlist_params->num_bssid,
              static_cast<int32_t>(aps.size()));
    for (int i = 0; i < 12; ++i) sim().runScanCycle();
    ASSERT_TRUE(sim().waitUntilDelivered());
    std::map<std::string, int> found, lost;
    for (const auto& r : listener_.received()) {
        EXPECT_EQ(r.type, VARN_RSP_HOTLIST_EVENT);
        for (const auto& bssid : r.bssids) (r.event_code == VARN_AP_FOUND_EVT ? found : lost)[bssid]++;
    }
    for (const auto& ap : aps) {
        std::string mac = varn_sim::formatMac(ap.bssid);
        bool reachable = sim().expectedRssiDbm(ap) >= sim().scenario().sensitivity_dbm;
        EXPECT_EQ(found[mac], reachable ? 1 : 0) << ap.ssid;
        EXPECT_EQ(lost[mac], ap.disappear_cycle < 10 ? 1 : 0) << ap.ssid;
    }
    auto clear = process<VARNScanEventResponse>(VARNHotlistClearRequest(31));
    ASSERT_NE(clear, nullptr);
    EXPECT_EQ(clear->getResponseType(), VARN_RSP_HOTLIST_CLEAR);
}

TEST_F(SimulatorTest, SignificantChangeReportsAnApLeavingItsBand) {
    auto aps = sim().accessPoints();
    const varn_sim::AccessPoint* fading = nullptr;
    for (const auto& ap : aps) {
        if (ap.rssi_step_db < 0) fading = &ap;
    }
    ASSERT_NE(fading, nullptr);
    double start = sim().expectedRssiDbm(*fading, 0);
    VARNSignificantChangeParams params;
    params.rssi_sample_size = 2;
    params.min_breaching = 1;
    params.num_bssid = 1;
    params.ap[0].bssid = fading->bssid;
    params.ap[0].low = static_cast<int16_t>(start - 12);
    params.ap[0].high = static_cast<int16_t>(start + 12);
    auto set = process<VARNScanEventResponse>(VARNSignificantChangeListSetRequest(40, params));
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->getResponseType(), VARN_RSP_SIGNIFICANT_CHANGE_SET);
    for (int i = 0; i < 8; ++i) sim().runScanCycle();
    ASSERT_TRUE(sim().waitUntilDelivered());
    auto got = listener_.received();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].type, VARN_RSP_SIGNIFICANT_CHANGE_EVENT);
    EXPECT_EQ(got[0].event_code, VARN_SIGNIFICANT_CHANGE_EVT);
    EXPECT_EQ(got[0].bssids, std::vector<std::string>{varn_sim::formatMac(fading->bssid)});
    EXPECT_EQ(got[0].frames, std::vector<uint32_t>{2});  // one RSSI sample per window slot
}

}  // namespace
