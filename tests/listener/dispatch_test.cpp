// Response dispatch, driven by calling responseReceived with built responses.
#include <varn_sim/simulator.h>

#include <cmath>
#include <cstdlib>
#include <numeric>

#include "listener_test_support.h"

namespace {

using listener_test::newAp;
using listener_test::newPeer;

// What the HAL callbacks saw.
struct Seen {
    int calls = 0, id = 0;
    unsigned count = 0;
    std::vector<int64_t> rtts;
    std::vector<wifi_rtt_result_v2> v2;  // LCI/LCR not to be read
    std::vector<int> events;
    std::vector<std::string> ssids;
    std::vector<std::vector<int>> rssi_samples;
    std::vector<uint8_t> ie;  // the last element bytes seen
    std::vector<int> head() const { return {calls, id, static_cast<int>(count)}; }
};
Seen g_seen;

void seen(wifi_request_id id, unsigned count) {
    ++g_seen.calls;
    g_seen.id = id;
    g_seen.count = count;
}

// Reads a ranging result's LCI and releases the elements the listener leaves
// to the HAL (those of every result but the first).
void takeRtt(wifi_rtt_result& r, unsigned index) {
    g_seen.rtts.push_back(r.rtt);
    if (r.LCI != nullptr) g_seen.ie.assign(r.LCI->data, r.LCI->data + r.LCI->len);
    if (index == 0) return;
    free(r.LCI);
    free(r.LCR);
}
void onV2(wifi_request_id id, unsigned n, wifi_rtt_result_v2* results[]) {
    seen(id, n);
    for (unsigned i = 0; i < n; ++i) {
        takeRtt(results[i]->rtt_result, i);
        g_seen.v2.push_back(*results[i]);
    }
}
void onV1(wifi_request_id id, unsigned n, wifi_rtt_result* results[]) {
    seen(id, n);
    for (unsigned i = 0; i < n; ++i) takeRtt(*results[i], i);
}

void onScanEvent(wifi_request_id id, wifi_scan_event event) {
    seen(id, 0);
    g_seen.events.push_back(event);
}
void takeScan(const wifi_scan_result& result) {
    g_seen.ssids.push_back(result.ssid);
    const auto* ie = reinterpret_cast<const uint8_t*>(result.ie_data);
    g_seen.ie.assign(ie, ie + result.ie_length);
}
void onFullScanResult(wifi_request_id id, wifi_scan_result* result, unsigned buckets) {
    seen(id, buckets);
    takeScan(*result);
}
void recordHotlist(int event, wifi_request_id id, unsigned n, wifi_scan_result* results) {
    seen(id, n);
    g_seen.events.push_back(event);
    // Every record's element bytes lie inside the block (later records overwrite them).
    for (unsigned i = 0; i < n; ++i) takeScan(results[i]);
}
void onApFound(wifi_request_id id, unsigned n, wifi_scan_result* r) { recordHotlist(4, id, n, r); }
void onApLost(wifi_request_id id, unsigned n, wifi_scan_result* r) { recordHotlist(5, id, n, r); }

void onSignificantChange(wifi_request_id id, unsigned n, wifi_significant_change_result** r) {
    seen(id, n);
    for (unsigned i = 0; i < n; ++i) {
        g_seen.rssi_samples.emplace_back(r[i]->rssi, r[i]->rssi + r[i]->num_rssi);
    }
}

class DispatchTest : public listener_test::ListenerTest {
  protected:
    DispatchTest() { g_seen = Seen(); }
    void TearDown() override {
        listener_test::stopHal();
        ListenerTest::TearDown();
    }

    // `peers` peers with RTTs 20000, 21000, ..., each with LCI and LCR elements.
    static VARNRangingScanResponse* ranging(uint32_t varn_id, int peers) {
        auto* rsp = new VARNRangingScanResponse(varn_id, VARN_SCAN_STATUS_SUCCESS);
        const uint8_t data[] = {0x11, 0x22};
        for (int i = 0; i < peers; ++i) {
            const int32_t rtt = 20000 + 1000 * i;
            VARNScanMeasurement* peer = newPeer(static_cast<uint8_t>(i), {{rtt}, {rtt}, {rtt}});
            EXPECT_EQ(0, peer->setLci(8, data, 2));
            EXPECT_EQ(0, peer->setLcr(11, data, 2));
            rsp->getMeasurements().push_back(peer);
        }
        return rsp;
    }

    static VARNScanEventResponse* event(uint32_t varn_id, eVARNResponseType type,
                                        eVARNEventCode code,
                                        eVARNBgScanEvent bg = VARN_BGSCAN_SCAN_COMPLETE) {
        return new VARNScanEventResponse(varn_id, type, VARN_RSP_STATUS_SUCCESS, code, bg);
    }

    void deliver(VARNResponse* rsp) {
        listener_.responseReceived(std::unique_ptr<VARNResponse>(rsp).get());
    }
};

// Ignored: no callback runs and the request stays open.
TEST_F(DispatchTest, NullAndUnhandledResponses) {
    listener_.responseReceived(nullptr);
    ASSERT_EQ(0, addRttRequestHandler(5, 40, {onV1, onV2}));
    for (eVARNResponseType type : {VARN_RSP_CAPABILITY, VARN_RSP_CACHED_BGSCAN_RESULTS,
                                   VARN_RSP_BGSCAN_STOP, static_cast<eVARNResponseType>(99)}) {
        deliver(new VARNResponse(40, type, VARN_RSP_STATUS_SUCCESS));
    }
    EXPECT_EQ(0, g_seen.calls);
    EXPECT_EQ(5, getWiFiHalReqId(40));
}

// Ranging results go to the v2 callback, else to v1, and retire the request;
// no callback sees dropped results' elements, so all are released (the leak
// checker watches).
TEST_F(DispatchTest, RangingResults) {
    struct Case {
        int32_t hal_id;  // any but -1 is valid
        wifi_rtt_event_handler handler;
        bool registered;
        int peers, calls;
        const char* message;
        bool retired;
        std::initializer_list<int64_t> rtts;
    };
    const char* const kCalled = "@responseReceived(): calling wifihal rtt results callback(";
    const char* const kNoId = "@responseReceived(): no wifihal reqid for this rsp...drop the rsp";
    const Case cases[] = {
            {-7, {onV1, onV2}, true, 3, 1, kCalled, true, {20000, 21000, 22000}},
            {9, {onV1, nullptr}, true, 2, 1, kCalled, true, {20000, 21000}},
            {10, {nullptr, onV2}, true, 0, 1, kCalled, true, {}},
            {11, {onV1, onV2}, false, 3, 0, "got a rsp but NULL handler...drop the rsp", true, {}},
            {-1, {onV1, onV2}, true, 3, 0, kNoId, false, {}},
            {12, {nullptr, nullptr}, true, 3, 0, "Rtt result callbacks are NULL", true, {}},
    };
    ASSERT_EQ(0, addRttRequestHandler(8, 42, {onV1, onV2}));  // untouched throughout
    uint32_t varn_id = 50;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        g_seen = Seen();
        ++varn_id;
        ASSERT_EQ(0, c.registered ? addRttRequestHandler(c.hal_id, varn_id, c.handler) : 0);
        varn_test::LogCapture log;
        deliver(ranging(varn_id, c.peers));
        EXPECT_EQ(c.calls, g_seen.calls);
        EXPECT_TRUE(log.contains(c.message)) << log.dump();
        wifi_rtt_event_handler out{};
        EXPECT_EQ(c.retired ? -1 : 0, getRttHandler(varn_id, &out));
        if (c.calls == 0) continue;
        EXPECT_EQ((std::vector<int>{1, c.hal_id, c.peers}), g_seen.head());
        EXPECT_EQ(std::vector<int64_t>(c.rtts), g_seen.rtts);
        EXPECT_EQ(c.peers > 0, g_seen.ie == std::vector<uint8_t>({0x11, 0x22}));
    }
    EXPECT_EQ(8, getWiFiHalReqId(42));
}

TEST_F(DispatchTest, BackgroundScanEvents) {
    RspHandlerRecord record{};
    record.scan = {onFullScanResult, onScanEvent};
    ASSERT_EQ(0, addRspHandler(21, 60, VARN_REQ_BGSCAN_START, record));
    deliver(event(60, VARN_RSP_BGSCAN, VARN_ON_SCAN_EVT, VARN_BGSCAN_BUFFER_THRESHOLD));
    deliver(event(60, VARN_RSP_BGSCAN, VARN_ON_SCAN_EVT, VARN_BGSCAN_SCAN_COMPLETE));
    deliver(event(60, VARN_RSP_BGSCAN, VARN_ON_SCAN_EVT, static_cast<eVARNBgScanEvent>(7)));
    EXPECT_EQ((std::vector<int>{WIFI_SCAN_THRESHOLD_PERCENT, WIFI_SCAN_RESULTS_AVAILABLE,
                                WIFI_SCAN_RESULTS_AVAILABLE}),
              g_seen.events);
    EXPECT_EQ(21, g_seen.id);

    // A full result with 20 element bytes, more than fit the record's tail.
    std::vector<uint8_t> ie(20);
    std::iota(ie.begin(), ie.end(), 0xc0);
    VARNScanEventResponse* full = event(60, VARN_RSP_BGSCAN, VARN_ON_FULL_SCAN_RESULT_EVT);
    full->getMeasurements().push_back(newAp(3, {-60}, ie));
    deliver(full);
    EXPECT_EQ((std::vector<int>{4, 21, 0}), g_seen.head());
    EXPECT_EQ(std::vector<std::string>{"net3"}, g_seen.ssids);
    EXPECT_EQ(ie, g_seen.ie);

    varn_test::LogCapture log;
    deliver(event(60, VARN_RSP_BGSCAN, VARN_NO_EVT));
    // An empty full-result event reads element 0 of an empty vector: logged, dropped.
    deliver(event(60, VARN_RSP_BGSCAN, VARN_ON_FULL_SCAN_RESULT_EVT));
    EXPECT_EQ(4, g_seen.calls);
    EXPECT_TRUE(log.contains("index out of range"));
    deliver(event(99, VARN_RSP_BGSCAN, VARN_ON_SCAN_EVT));  // no handler under id 99
    EXPECT_TRUE(log.contains("@responseReceived(): clReqId(-1), numResults(0)")) << log.dump();
    EXPECT_EQ(4, g_seen.calls);
}

TEST_F(DispatchTest, HotlistEvents) {
    RspHandlerRecord record{};
    record.hotlist = {onApFound, onApLost};
    ASSERT_EQ(0, addRspHandler(22, 61, VARN_REQ_HOTLIST_SET, record));
    for (eVARNEventCode code : {VARN_AP_FOUND_EVT, VARN_AP_LOST_EVT, VARN_SIGNIFICANT_CHANGE_EVT}) {
        VARNScanEventResponse* rsp = event(61, VARN_RSP_HOTLIST_EVENT, code);
        // Element bytes running past the records: 300 from record 0, then 0,
        // then 250 from record 2, which end farthest.
        rsp->getMeasurements().push_back(newAp(1, {-70}, std::vector<uint8_t>(300, 0xcd)));
        rsp->getMeasurements().push_back(newAp(2, {-71}));
        rsp->getMeasurements().push_back(newAp(3, {-72}, std::vector<uint8_t>(250, 0xab)));
        deliver(rsp);
    }
    EXPECT_EQ((std::vector<int>{2, 22, 3}), g_seen.head());
    EXPECT_EQ((std::vector<int>{4, 5}), g_seen.events);
    EXPECT_EQ((std::vector<std::string>{"net1", "net2", "net3", "net1", "net2", "net3"}),
              g_seen.ssids);
    EXPECT_EQ(std::vector<uint8_t>(250, 0xab), g_seen.ie);
}

TEST_F(DispatchTest, SignificantChangeEvents) {
    RspHandlerRecord record{};
    record.significant_change = {onSignificantChange};
    ASSERT_EQ(0, addRspHandler(23, 62, VARN_REQ_SIGNIFICANT_CHANGE_SET, record));
    VARNScanEventResponse* rsp =
            event(62, VARN_RSP_SIGNIFICANT_CHANGE_EVENT, VARN_SIGNIFICANT_CHANGE_EVT);
    rsp->getMeasurements().push_back(newAp(1, {-60, -61, -65}));
    rsp->getMeasurements().push_back(newAp(2, {}));
    deliver(rsp);
    EXPECT_EQ((std::vector<int>{1, 23, 2}), g_seen.head());
    EXPECT_EQ((std::vector<std::vector<int>>{{-60, -61, -65}, {}}), g_seen.rssi_samples);
}

// No multipath or frame loss, so that the only error is the Gaussian noise of
// the bandwidth's expected deviation and the chain offset.
const char* const kScenario = R"(
seed 7
multipath 0
frame_loss 0
chain_offset_ps 300
air_time_ms 0
ap 02:5a:00:00:00:01 Office 5180 80 3.0 center=5210 lci=0010528343
ap 02:5a:00:00:00:02 Hall 5200 40 7.5 center=5190
ap 02:5a:00:00:00:03 Legacy 2437 20 12.0 two_sided=0
ap 02:5a:00:00:00:06 Annex 5500 20 400.0
)";

// End to end: the HAL's request goes through the entry layer to the simulated
// service, whose answer comes back through the listener.
TEST_F(DispatchTest, RangingThroughTheSimulatedService) {
    listener_test::startHal(kScenario);
    using listener_test::rttConfig;
    wifi_rtt_config configs[] = {
            rttConfig(1, RTT_TYPE_2_SIDED, 5180, 5210, WIFI_CHAN_WIDTH_80, WIFI_RTT_BW_80, 31),
            rttConfig(2, RTT_TYPE_2_SIDED, 5200, 5190, WIFI_CHAN_WIDTH_40, WIFI_RTT_BW_40, 31),
            rttConfig(3, RTT_TYPE_1_SIDED, 2437, 2437, WIFI_CHAN_WIDTH_20, WIFI_RTT_BW_20, 31),
            rttConfig(6, RTT_TYPE_2_SIDED, 5500, 5500, WIFI_CHAN_WIDTH_20, WIFI_RTT_BW_20, 31),
    };
    configs[0].LCI_request = 1;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_rtt_range_request(77, nullptr, 4, configs, {onV1, onV2}));
    const uint32_t varn_id = req_id;
    ASSERT_TRUE(varn_sim::Simulator::instance().waitUntilDelivered());
    EXPECT_EQ((std::vector<int>{1, 77, 4}), g_seen.head());
    EXPECT_EQ((std::vector<uint8_t>{0x00, 0x10, 0x52, 0x83, 0x43}), g_seen.ie);  // result 0's LCI
    ASSERT_EQ(4u, g_seen.v2.size());
    const struct {
        double distance_m, stdev_ps;
        wifi_rtt_type type;
        wifi_rtt_bw packet_bw;
    } expected[] = {{3.0, 7000, RTT_TYPE_2_SIDED, WIFI_RTT_BW_80},
                    {7.5, 9270, RTT_TYPE_2_SIDED, WIFI_RTT_BW_40},
                    {12.0, 21000, RTT_TYPE_1_SIDED, WIFI_RTT_BW_20}};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const wifi_rtt_result& r = g_seen.v2[i].rtt_result;
        EXPECT_EQ((std::vector<int64_t>{i + 1, RTT_STATUS_SUCCESS, expected[i].type, 31,
                                        configs[i].channel.center_freq, expected[i].packet_bw}),
                  (std::vector<int64_t>{r.addr[5], r.status, r.type, r.success_number,
                                        g_seen.v2[i].frequency, g_seen.v2[i].packet_bw}));
        // The chosen chain's mean over about 15 frames: four standard errors
        // of the mean plus the second chain's offset, at 0.15 mm per ps.
        const double tolerance_mm = 0.15 * (4.0 * expected[i].stdev_ps / std::sqrt(15.0) + 300);
        EXPECT_NEAR(expected[i].distance_m * 1000.0, r.distance_mm, tolerance_mm);
        EXPECT_GT(r.rssi, 0);  // half-dB steps of a negative dBm value
    }
    EXPECT_EQ(RTT_STATUS_FAIL_NO_RSP, g_seen.v2[3].rtt_result.status);
    EXPECT_EQ(-1, getWiFiHalReqId(varn_id));  // answered once, then retired
}

}  // namespace
