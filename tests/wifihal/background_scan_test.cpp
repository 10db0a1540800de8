// Background scan, hotlist and significant change: what reaches the service,
// the handlers kept, the fatal bounds, and events travelling back.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

// What reached the HAL's handlers: "<HAL id> <kind> <what>" per call and result.
std::mutex g_mutex;
std::vector<std::string> g_calls;
std::thread::id g_hotlist_thread;

void record(wifi_request_id id, const char* kind, const std::string& what) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_calls.push_back(std::to_string(id) + " " + kind + " " + what);
}
void onFull(wifi_request_id id, wifi_scan_result* r, unsigned) { record(id, "full", r->ssid); }
void onEvent(wifi_request_id id, wifi_scan_event e) { record(id, "event", std::to_string(e)); }
void onFound(wifi_request_id id, unsigned n, wifi_scan_result* r) {
    for (unsigned i = 0; i < n; ++i) record(id, "found", r[i].ssid);
    g_hotlist_thread = std::this_thread::get_id();
}
void onLost(wifi_request_id id, unsigned n, wifi_scan_result* r) {
    for (unsigned i = 0; i < n; ++i) record(id, "lost", r[i].ssid);
}
void onChange(wifi_request_id, unsigned, wifi_significant_change_result**) {}

const wifi_scan_result_handler kScan{onFull, onEvent};
const wifi_hotlist_ap_found_handler kHotlist{onFound, onLost};
const wifi_significant_change_handler kChange{onChange};

class BackgroundScanTest : public WifiHalUpTest {
  protected:
    void SetUp() override {
        WifiHalUpTest::SetUp();
        sim().setAutoScan(false);
        std::lock_guard<std::mutex> lock(g_mutex);
        g_calls.clear();
    }
};

TEST_F(BackgroundScanTest, ScanParametersReachTheServiceWithClientBands) {
    // Every HAL band code 0..9; 15 buckets of 2..16 channels, and one beyond
    // the count that must not be read (nor the channels beyond each count).
    const int kClientBand[10] = {0, 1, 2, 3, 4, 1, 6, 7, 1, 1};
    wifi_scan_cmd_params params{5000, 24, 80, 6, 15, {}};
    params.buckets[15].num_channels = 99;
    for (int b = 0; b < 15; ++b) {
        wifi_scan_bucket_spec& bucket = params.buckets[b];
        bucket = {b, {}, 1000 * (b + 1), REPORT_EVENTS_FULL_RESULTS, 300, 2, 3, b + 2, {}};
        setHalInt(bucket.band, b % 10);
        for (int c = 0; c < 16; ++c) bucket.channels[c] = {5180 + 20 * c, 40 + c, c & 1};
    }
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_start_gscan(7, nullptr, params, kScan));

    const auto p = sim().lastRequest(VARN_REQ_BGSCAN_START).scan_params;
    ASSERT_NE(nullptr, p);
    EXPECT_EQ((std::vector<uint32_t>{5000, 24, 80, 6, 15, 0}),
              (std::vector<uint32_t>{p->base_period, p->max_ap_per_scan,
                                     p->report_threshold_percent, p->report_threshold_num_scans,
                                     p->num_buckets, p->buckets[15].num_channels}));
    for (int b = 0; b < 15; ++b) {
        const VARNScanBucketSpec& s = p->buckets[b];
        const VARNScanChannelSpec& last = s.channels[b + 1];
        EXPECT_EQ((std::vector<uint32_t>{uint32_t(kClientBand[b % 10]), uint32_t(b),
                                         1000u * (b + 1), 2, 300, 2, 3, b + 2u, 5200u + 20 * b,
                                         41u + b, (b + 1) & 1u, 0}),
                  (std::vector<uint32_t>{uint32_t(s.band), s.bucket, s.period, s.report_events,
                                         s.max_period, s.base, s.step_count, s.num_channels,
                                         last.channel,
                                         last.dwell_time_ms, last.passive,
                                         b < 14 ? s.channels[b + 2].channel : 0}))
                << "bucket " << b;
    }
    EXPECT_EQ(15u, capture_.count(" bucket("));
    EXPECT_EQ(135u, capture_.count("  channel("));
    EXPECT_TRUE(capture_.contains("  channel(5480), dwellTimeMs(55), passive(1)"));
}

TEST_F(BackgroundScanTest, CountsBeyondTheRecordsEndTheProcess) {
    for (int c = 0; c < 5; ++c) {
        wifi_scan_cmd_params scan{};
        wifi_bssid_hotlist_params hot{};
        wifi_significant_change_params change{};
        scan.num_buckets = c == 0 ? 17 : c == 1 ? -1 : c == 2 ? 1 : 0;
        scan.buckets[0].num_channels = 17;  // read only in the third case
        hot.num_bssid = c == 3 ? 129 : 0;
        change.num_bssid = c == 4 ? 65 : 0;
        EXPECT_DEATH(
                {
                    varn_wifihal_start_gscan(1, nullptr, scan, kScan);
                    varn_wifihal_set_bssid_hotlist(1, nullptr, hot, kHotlist);
                    varn_wifihal_set_significant_change_handler(1, nullptr, change, kChange);
                },
                "")
                << "case " << c;
    }
}

TEST_F(BackgroundScanTest, ApListsAreConvertedAndDumpedMasked) {
    wifi_bssid_hotlist_params hot{3, 127, {}};
    wifi_significant_change_params change{4, 5, 6, 63, {}};
    for (int i = 0; i < 128; ++i) {
        const uint8_t bssid[6] = {0x00, 0x11, 0x22, 0x33, 0x44, static_cast<uint8_t>(i)};
        memcpy(hot.ap[i].bssid, bssid, 6);
        hot.ap[i].low = i == 7 ? 40000 : -80;  // narrowed to 16 bits
        hot.ap[i].high = -40;
        if (i < 64) change.ap[i] = hot.ap[i];
    }
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_bssid_hotlist(3, nullptr, hot, kHotlist));
    ASSERT_EQ(WIFI_SUCCESS,
              varn_wifihal_set_significant_change_handler(4, nullptr, change, kChange));

    const auto h = sim().lastRequest(VARN_REQ_HOTLIST_SET).hotlist_params;
    const auto s = sim().lastRequest(VARN_REQ_SIGNIFICANT_CHANGE_SET).significant_change_params;
    ASSERT_TRUE(h && s);
    EXPECT_EQ((std::vector<int>{3, 127, -25536, -40, 4, 5, 6, 63, -80}),
              (std::vector<int>{h->lost_ap_sample_size, h->num_bssid, h->ap[7].low, h->ap[7].high,
                                s->rssi_sample_size, s->lost_ap_sample_size, s->min_breaching,
                                s->num_bssid, s->ap[62].low}));
    // Only the given number of APs is sent and dumped.
    EXPECT_EQ((std::vector<VARNMacAddress>{VARNMacAddress(hot.ap[126].bssid), VARNMacAddress(),
                                           VARNMacAddress(hot.ap[62].bssid), VARNMacAddress()}),
              (std::vector<VARNMacAddress>{h->ap[126].bssid, h->ap[127].bssid, s->ap[62].bssid,
                                           s->ap[63].bssid}));
    // The hotlist dumps the HAL's list and the converted one, masked.
    EXPECT_EQ(2 * 127u, capture_.count(") low("));
    EXPECT_EQ(63u, capture_.count("), low("));
    EXPECT_EQ(2u, capture_.count(" bssid(00:11:22:**:**:00) low(-80) high(-40)"));

    // The significant-change handler is one pointer; the rest of its slot is zero.
    const RspHandlerNode* node = rspHandlers.head();
    ASSERT_EQ(VARN_REQ_SIGNIFICANT_CHANGE_SET, node->reqType);
    EXPECT_EQ(&onChange, node->handler.significant_change.on_significant_change);
    EXPECT_EQ(std::vector<unsigned char>(8, 0),
              std::vector<unsigned char>(node->handler.raw + 8, node->handler.raw + 16));
}

TEST_F(BackgroundScanTest, HandlersStayUntilTheirStopOrReset) {
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_start_gscan(6, nullptr, {}, {onFull, nullptr}));
    // A refused start keeps its handler until the next stop; each stop or
    // reset drops every node of its own kind only, also while down.
    sim().refuseNext(VARN_REQ_BGSCAN_START);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_start_gscan(5, nullptr, {}, kScan));
    ASSERT_EQ(1u, rspHandlers.size());
    EXPECT_EQ(5, rspHandlers.head()->clReqId);
    const std::function<wifi_error()> kStops[] = {
            [] { return varn_wifihal_stop_gscan(1, nullptr); },
            [] { return varn_wifihal_reset_bssid_hotlist(1); },
            [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }};
    const eVARNRequestType kTypes[] = {VARN_REQ_BGSCAN_START, VARN_REQ_HOTLIST_SET,
                                       VARN_REQ_SIGNIFICANT_CHANGE_SET};
    for (bool up : {true, false}) {
        if (!up) varn_wifihal_destroy();
        for (auto type : kTypes) addRspHandler(1, 1, type, RspHandlerRecord{});
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE(testing::Message() << "stop " << k << " up " << up);
            EXPECT_EQ(up ? WIFI_SUCCESS : WIFI_ERROR_UNINITIALIZED, kStops[k]());
            EXPECT_EQ(size_t(2 - k), rspHandlers.size());
            EXPECT_EQ(nullptr, rspHandlers.find([&](const RspHandlerNode& n) {
                return n.reqType == kTypes[k];
            }));
        }
    }
}

// One access point that stays, one that fades by 6 dB per scan and is gone
// at the fifth, one on a channel the scan does not cover; no noise.
const char* const kScenario = R"(
seed 3
rssi_noise_db 0
ap 02:5a:00:00:00:01 Office 5180 80 3.0
ap 02:5a:00:00:00:05 Cafe 2462 20 4.5 rssi_step=-6 disappear=4
ap 02:5a:00:00:00:07 Far 5500 20 30.0
)";

TEST_F(BackgroundScanTest, EventsOfAScanReachTheHalHandlers) {
    varn_sim::Scenario scenario;
    ASSERT_EQ(0, varn_sim::Scenario::parse(kScenario, &scenario, nullptr));
    sim().setScenario(scenario);

    wifi_scan_cmd_params params{};
    params.base_period = 100;
    params.num_buckets = 1;
    params.buckets[0].report_events = REPORT_EVENTS_EACH_SCAN | REPORT_EVENTS_FULL_RESULTS;
    params.buckets[0].num_channels = 2;
    params.buckets[0].channels[0].channel = 5180;
    params.buckets[0].channels[1].channel = 2462;
    wifi_bssid_hotlist_params hot{1, 2, {}};
    for (int i = 0; i < 2; ++i) {
        memcpy(hot.ap[i].bssid, scenario.access_points[i].bssid.bytes(), 6);
        hot.ap[i].low = -100;
    }
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_start_gscan(21, nullptr, params, kScan));
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_bssid_hotlist(22, nullptr, hot, kHotlist));
    for (int cycle = 0; cycle < 5; ++cycle) sim().runScanCycle();
    ASSERT_TRUE(sim().waitUntilDelivered());
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        auto calls = [](const char* e) { return std::count(g_calls.begin(), g_calls.end(), e); };
        // Office in every scan, Cafe in the first four; a completed scan each
        // time; both found at once, Cafe lost when it vanished.
        EXPECT_EQ((std::vector<long>{5, 4, 5, 1, 1, 1}),
                  (std::vector<long>{calls("21 full Office"), calls("21 full Cafe"),
                                     calls("21 event 0"), calls("22 found Office"),
                                     calls("22 found Cafe"), calls("22 lost Cafe")}));
        EXPECT_EQ(17u, g_calls.size());
        EXPECT_EQ(sim().serviceThreadId(), g_hotlist_thread);
    }

    // Five scans cached; the count is the smaller of those and the maximum.
    static wifi_cached_scan_results cached[8];
    int num = -1;
    for (int max : {0, 3, 8}) {
        ASSERT_EQ(WIFI_SUCCESS,
                  varn_wifihal_get_cached_gscan_results(nullptr, max == 8, max, cached, &num));
        EXPECT_EQ(std::min(max, 5), num);
    }
    EXPECT_EQ(1, sim().lastRequest(VARN_REQ_GET_CACHED_BGSCAN_RESULTS).flush);
    EXPECT_EQ((std::vector<int>{0, 2, 4, 1}),
              (std::vector<int>{cached[0].scan_id, cached[0].num_results, cached[4].scan_id,
                                cached[4].num_results}));
    EXPECT_STREQ("Cafe", cached[3].results[1].ssid);
    for (int* out : {&num, static_cast<int*>(nullptr)}) {
        EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_cached_gscan_results(
                                                   nullptr, 0, out ? -1 : 8, cached, out));
    }
}

}  // namespace
}  // namespace wifihal_test
