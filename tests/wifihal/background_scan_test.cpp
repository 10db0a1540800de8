// Background scan, hotlist and significant change: what reaches the simulated
// service, the handler bookkeeping, the fatal bounds, and one scan whose
// events travel back to the HAL's handlers.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <loc_utils/loc_utils.h>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

// What reached the HAL's handlers, on the service thread.
struct Seen {
    std::mutex mutex;
    std::vector<std::string> full;          // SSIDs of full results
    std::vector<int> events;                // scan events
    std::vector<std::string> found, lost;   // SSIDs
    std::vector<std::vector<int>> changes;  // per changed AP: channel, then RSSI samples
    std::vector<int> ids;                   // HAL request ids, in call order
    std::thread::id hotlist_thread;
} g_seen;

void onFull(wifi_request_id id, wifi_scan_result* r, unsigned) {
    std::lock_guard<std::mutex> lock(g_seen.mutex);
    g_seen.full.push_back(r->ssid);
    g_seen.ids.push_back(id);
}
void onEvent(wifi_request_id id, wifi_scan_event e) {
    std::lock_guard<std::mutex> lock(g_seen.mutex);
    g_seen.events.push_back(e);
    g_seen.ids.push_back(id);
}
void hotlist(std::vector<std::string>& to, wifi_request_id id, unsigned n, wifi_scan_result* r) {
    std::lock_guard<std::mutex> lock(g_seen.mutex);
    for (unsigned i = 0; i < n; ++i) to.push_back(r[i].ssid);
    g_seen.ids.push_back(id);
    g_seen.hotlist_thread = std::this_thread::get_id();
}
void onFound(wifi_request_id id, unsigned n, wifi_scan_result* r) {
    hotlist(g_seen.found, id, n, r);
}
void onLost(wifi_request_id id, unsigned n, wifi_scan_result* r) { hotlist(g_seen.lost, id, n, r); }
void onChange(wifi_request_id id, unsigned n, wifi_significant_change_result** r) {
    std::lock_guard<std::mutex> lock(g_seen.mutex);
    for (unsigned i = 0; i < n; ++i) {
        std::vector<int> change{r[i]->channel};
        change.insert(change.end(), r[i]->rssi, r[i]->rssi + r[i]->num_rssi);
        g_seen.changes.push_back(change);
    }
    g_seen.ids.push_back(id);
}

const wifi_scan_result_handler kScan{onFull, onEvent};
const wifi_hotlist_ap_found_handler kHotlist{onFound, onLost};
const wifi_significant_change_handler kChange{onChange};

void setBssid(mac_addr out, uint8_t last) {
    const uint8_t bssid[6] = {0x00, 0x11, 0x22, 0x33, 0x44, last};
    memcpy(out, bssid, 6);
}

class BackgroundScanTest : public WifiHalTest {
  protected:
    void SetUp() override {
        WifiHalTest::SetUp();
        sim().setAutoScan(false);
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
        capture_.clear();
        std::lock_guard<std::mutex> lock(g_seen.mutex);
        g_seen.full.clear();
        g_seen.events.clear();
        g_seen.found.clear();
        g_seen.lost.clear();
        g_seen.changes.clear();
        g_seen.ids.clear();
    }
};

TEST_F(BackgroundScanTest, ScanParametersReachTheServiceWithClientBands) {
    // Every HAL band code 0..9 once, all 16 buckets of 16 channels.
    const int kClientBand[10] = {0, 1, 2, 3, 4, 1, 6, 7, 1, 1};
    wifi_scan_cmd_params params{};
    params.base_period = 5000;
    params.max_ap_per_scan = 24;
    params.report_threshold_percent = 80;
    params.report_threshold_num_scans = 6;
    params.num_buckets = 16;
    for (int b = 0; b < 16; ++b) {
        wifi_scan_bucket_spec& bucket = params.buckets[b];
        bucket.bucket = b;
        setHalInt(bucket.band, b % 10);
        bucket.period = 1000 * (b + 1);
        bucket.report_events = REPORT_EVENTS_FULL_RESULTS;
        bucket.max_period = 300;
        bucket.base = 2;
        bucket.step_count = 3;
        bucket.num_channels = 16;
        for (int c = 0; c < 16; ++c) bucket.channels[c] = {5180 + 20 * c, 40 + c, c & 1};
    }
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_start_gscan(7, nullptr, params, kScan));

    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_BGSCAN_START);
    ASSERT_NE(nullptr, sent.scan_params);
    const VARNScanParams& p = *sent.scan_params;
    EXPECT_EQ((std::vector<uint32_t>{5000, 24, 80, 6, 16}),
              (std::vector<uint32_t>{p.base_period, p.max_ap_per_scan, p.report_threshold_percent,
                                     p.report_threshold_num_scans, p.num_buckets}));
    for (int b = 0; b < 16; ++b) {
        const VARNScanBucketSpec& s = p.buckets[b];
        EXPECT_EQ(kClientBand[b % 10], s.band) << "bucket " << b;
        EXPECT_EQ((std::vector<uint32_t>{uint32_t(b), 1000u * (b + 1), 2, 300, 2, 3, 16}),
                  (std::vector<uint32_t>{s.bucket, s.period, s.report_events, s.max_period, s.base,
                                         s.step_count, s.num_channels}));
        EXPECT_EQ(5480u, s.channels[15].channel);
        EXPECT_EQ(55u, s.channels[15].dwell_time_ms);
        EXPECT_EQ(1, s.channels[15].passive);
    }
    EXPECT_TRUE(capture_.contains("  channel(5480), dwellTimeMs(55), passive(1)"));
    EXPECT_TRUE(capture_.contains("varn_wifihal_start_gscan: clReqId(7), varnReqId(1)"));
}

TEST_F(BackgroundScanTest, CountsBeyondTheRecordsEndTheProcess) {
    wifi_scan_cmd_params scan{};
    wifi_bssid_hotlist_params hot{};
    wifi_significant_change_params change{};
    const struct {
        const char* name;
        std::function<void()> mutate;
    } kCases[] = {
            {"17 buckets", [&] { scan.num_buckets = 17; }},
            {"negative buckets", [&] { scan.num_buckets = -1; }},
            {"17 channels",
             [&] {
                 scan.num_buckets = 2;
                 scan.buckets[1].num_channels = 17;
             }},
            {"129 hotlist APs", [&] { hot.num_bssid = 129; }},
            {"65 significant-change APs", [&] { change.num_bssid = 65; }},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        scan = {};
        hot = {};
        change = {};
        c.mutate();
        EXPECT_DEATH(
                {
                    varn_wifihal_start_gscan(1, nullptr, scan, kScan);
                    varn_wifihal_set_bssid_hotlist(1, nullptr, hot, kHotlist);
                    varn_wifihal_set_significant_change_handler(1, nullptr, change, kChange);
                },
                "");
    }
}

TEST_F(BackgroundScanTest, ApListsAreConvertedAndDumpedMasked) {
    wifi_bssid_hotlist_params hot{};
    hot.lost_ap_sample_size = 3;
    hot.num_bssid = 128;
    wifi_significant_change_params change{4, 5, 6, 64, {}};
    for (int i = 0; i < 128; ++i) {
        setBssid(hot.ap[i].bssid, static_cast<uint8_t>(i));
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
    EXPECT_EQ(3, h->lost_ap_sample_size);
    EXPECT_EQ(128, h->num_bssid);
    EXPECT_EQ(VARNMacAddress(hot.ap[127].bssid), h->ap[127].bssid);
    EXPECT_EQ(-25536, h->ap[7].low);
    EXPECT_EQ(-40, h->ap[7].high);
    EXPECT_EQ((std::vector<int>{4, 5, 6, 64}),
              (std::vector<int>{s->rssi_sample_size, s->lost_ap_sample_size, s->min_breaching,
                                s->num_bssid}));
    EXPECT_EQ(VARNMacAddress(hot.ap[63].bssid), s->ap[63].bssid);
    EXPECT_EQ(-80, s->ap[63].low);
    // The HAL's list and the converted one; full addresses only at platform debug level 5.
    EXPECT_EQ(2u, capture_.count(" bssid(00:11:22:**:**:09) low(-80) high(-40)"));
    EXPECT_TRUE(capture_.contains(" bssid(00:11:22:**:**:09), low(-80), high(-40)"));
    EXPECT_TRUE(capture_.contains("reqId(1) lost_ap_sample_size(3) num_bssid(128)"));
    varn_debug_level = 5;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_bssid_hotlist(3, nullptr, hot, kHotlist));
    EXPECT_TRUE(capture_.contains(" bssid(00:11:22:33:44:09) low(-80) high(-40)"));

    // The significant-change handler is one pointer; the rest of its slot is zero.
    const RspHandlerNode* node = rspHandlers.head()->next;
    ASSERT_EQ(VARN_REQ_SIGNIFICANT_CHANGE_SET, node->reqType);
    EXPECT_EQ(&onChange, node->handler.significant_change.on_significant_change);
    EXPECT_EQ(std::vector<unsigned char>(8, 0),
              std::vector<unsigned char>(node->handler.raw + 8, node->handler.raw + 16));
}

TEST_F(BackgroundScanTest, HandlersStayUntilTheirStopOrReset) {
    // A refused start keeps its handler until the next stop.
    sim().refuseNext(VARN_REQ_BGSCAN_START);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_start_gscan(5, nullptr, {}, kScan));
    ASSERT_EQ(1u, rspHandlers.size());
    EXPECT_EQ(5, rspHandlers.head()->clReqId);
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_stop_gscan(5, nullptr));
    EXPECT_TRUE(rspHandlers.empty());
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_start_gscan(6, nullptr, {}, {onFull, nullptr}));
    EXPECT_TRUE(capture_.contains("start_gscan: Null callbacks as input parameters"));

    // Each stop/reset drops its own kind only, also while down.
    const struct {
        eVARNRequestType type;
        std::function<wifi_error()> stop;
    } kStops[] = {
            {VARN_REQ_BGSCAN_START, [] { return varn_wifihal_stop_gscan(1, nullptr); }},
            {VARN_REQ_HOTLIST_SET, [] { return varn_wifihal_reset_bssid_hotlist(1); }},
            {VARN_REQ_SIGNIFICANT_CHANGE_SET,
             [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }},
    };
    for (bool up : {true, false}) {
        if (!up) varn_wifihal_destroy();
        for (const auto& k : kStops) addRspHandler(1, 1, k.type, RspHandlerRecord{});
        for (const auto& s : kStops) {
            SCOPED_TRACE(testing::Message() << VARNRequest::toString(s.type) << " up " << up);
            const size_t before = rspHandlers.size();
            EXPECT_EQ(up ? WIFI_SUCCESS : WIFI_ERROR_UNINITIALIZED, s.stop());
            EXPECT_EQ(before - 1, rspHandlers.size());
            EXPECT_EQ(nullptr, rspHandlers.find([&](const RspHandlerNode& n) {
                return n.reqType == s.type;
            }));
        }
    }
}

TEST_F(BackgroundScanTest, MissingOrForeignAnswersGiveUnknown) {
    const char* const kNoStatus = "failed to get status from wifi driver";
    const char* const kNullRsp = "NULL rsp from wifi driver";
    const struct {
        const char* name;
        eVARNRequestType type;
        const char* null_message;
        std::function<wifi_error()> call;
    } kCases[] = {
            {"start_gscan", VARN_REQ_BGSCAN_START, kNoStatus,
             [] { return varn_wifihal_start_gscan(1, nullptr, {}, kScan); }},
            {"stop_gscan", VARN_REQ_BGSCAN_STOP, kNoStatus,
             [] { return varn_wifihal_stop_gscan(1, nullptr); }},
            {"set_bssid_hotlist", VARN_REQ_HOTLIST_SET, kNoStatus,
             [] { return varn_wifihal_set_bssid_hotlist(1, nullptr, {}, kHotlist); }},
            {"reset_bssid_hotlist", VARN_REQ_HOTLIST_CLEAR, kNullRsp,
             [] { return varn_wifihal_reset_bssid_hotlist(1); }},
            {"set_significant_change_handler", VARN_REQ_SIGNIFICANT_CHANGE_SET, kNullRsp,
             [] { return varn_wifihal_set_significant_change_handler(1, nullptr, {}, kChange); }},
            {"reset_significant_change_handler", VARN_REQ_SIGNIFICANT_CHANGE_CLEAR, kNoStatus,
             [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string prefix = std::string("varn_wifihal_") + c.name + ": ";
        capture_.clear();
        sim().answerNextWithNull(c.type);
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, c.call());
        EXPECT_TRUE(capture_.contains(prefix + c.null_message)) << capture_.dump();
        // A successful answer of another kind is no answer either.
        capture_.clear();
        sim().answerNextWith(c.type, [](const VARNRequest& r) {
            return new VARNResponse(r.getRequestId(), VARN_RSP_INVALID, VARN_RSP_STATUS_SUCCESS);
        });
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, c.call());
        EXPECT_TRUE(capture_.contains(prefix + kNoStatus)) << capture_.dump();
    }
}

TEST_F(BackgroundScanTest, ScanLookupsOnlyFindTheirOwnKindOfHandler) {
    // Response code 12 is shared by the hotlist answer and the significant-change event.
    RspHandlerRecord hot{};
    hot.hotlist = kHotlist;
    RspHandlerRecord change{};
    change.significant_change = kChange;
    addRspHandler(31, 50, VARN_REQ_HOTLIST_SET, hot);
    addRspHandler(32, 51, VARN_REQ_SIGNIFICANT_CHANGE_SET, change);
    addRspHandler(33, 52, VARN_REQ_BGSCAN_START, hot);
    for (uint32_t id : {50u, 51u, 52u}) {
        int gscan_id = -1, hotlist_id = -1, change_id = -1;
        wifi_scan_result_handler s{};
        wifi_hotlist_ap_found_handler h{};
        wifi_significant_change_handler c{};
        getGscanEventHandler(gscan_id, id, &s);
        getHotlistApEvtHandler(hotlist_id, id, &h);
        getSigChangeEvtHandler(change_id, id, &c);
        EXPECT_EQ((std::vector<int>{id == 52 ? 33 : -1, id == 50 ? 31 : -1, id == 51 ? 32 : -1}),
                  (std::vector<int>{gscan_id, hotlist_id, change_id}))
                << id;
        EXPECT_EQ(id == 50, h.on_hotlist_ap_found == &onFound);
        EXPECT_EQ(id == 51, c.on_significant_change == &onChange);
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
    const varn_sim::AccessPoint& cafe = scenario.access_points[1];

    wifi_scan_cmd_params params{};
    params.base_period = 100;
    params.num_buckets = 1;
    params.buckets[0].report_events = REPORT_EVENTS_EACH_SCAN | REPORT_EVENTS_FULL_RESULTS;
    params.buckets[0].num_channels = 2;
    params.buckets[0].channels[0].channel = 5180;
    params.buckets[0].channels[1].channel = 2462;
    wifi_bssid_hotlist_params hot{};
    hot.lost_ap_sample_size = 1;
    hot.num_bssid = 2;
    for (int i = 0; i < 2; ++i) {
        memcpy(hot.ap[i].bssid, scenario.access_points[i].bssid.bytes(), 6);
        hot.ap[i].low = -100;
    }
    wifi_significant_change_params change{1, 1, 1, 1, {}};
    change.ap[0] = hot.ap[1];
    change.ap[0].low = static_cast<int>(std::lround(sim().expectedRssiDbm(cafe, 0))) - 3;

    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_start_gscan(21, nullptr, params, kScan));
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_bssid_hotlist(22, nullptr, hot, kHotlist));
    ASSERT_EQ(WIFI_SUCCESS,
              varn_wifihal_set_significant_change_handler(23, nullptr, change, kChange));
    for (int cycle = 0; cycle < 5; ++cycle) sim().runScanCycle();
    ASSERT_TRUE(sim().waitUntilDelivered());

    {
        std::lock_guard<std::mutex> lock(g_seen.mutex);
        EXPECT_EQ(9u, g_seen.full.size());
        EXPECT_EQ(5, std::count(g_seen.full.begin(), g_seen.full.end(), "Office"));
        EXPECT_EQ(std::vector<int>(5, WIFI_SCAN_RESULTS_AVAILABLE), g_seen.events);
        EXPECT_EQ((std::vector<std::string>{"Office", "Cafe"}), g_seen.found);
        EXPECT_EQ(std::vector<std::string>{"Cafe"}, g_seen.lost);
        const int faded = static_cast<int>(std::lround(sim().expectedRssiDbm(cafe, 1)));
        EXPECT_EQ((std::vector<std::vector<int>>{{2462, faded}}), g_seen.changes);
        EXPECT_EQ((std::set<int>{21, 22, 23}), std::set<int>(g_seen.ids.begin(), g_seen.ids.end()));
        EXPECT_EQ(sim().serviceThreadId(), g_seen.hotlist_thread);
    }

    // Five scans cached; the count is the smaller of those and the maximum.
    static wifi_cached_scan_results cached[8];
    int num = -1;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_cached_gscan_results(nullptr, 0, 3, cached, &num));
    EXPECT_EQ(3, num);
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_cached_gscan_results(nullptr, 1, 8, cached, &num));
    EXPECT_EQ(5, num);
    EXPECT_EQ(1, sim().lastRequest(VARN_REQ_GET_CACHED_BGSCAN_RESULTS).flush);
    EXPECT_EQ((std::vector<int>{0, 2, 4, 1}),
              (std::vector<int>{cached[0].scan_id, cached[0].num_results, cached[4].scan_id,
                                cached[4].num_results}));
    EXPECT_STREQ("Cafe", cached[3].results[1].ssid);
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS,
              varn_wifihal_get_cached_gscan_results(nullptr, 0, -1, cached, &num));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS,
              varn_wifihal_get_cached_gscan_results(nullptr, 0, 8, cached, nullptr));
    sim().answerNextWithNull(VARN_REQ_GET_CACHED_BGSCAN_RESULTS);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN,
              varn_wifihal_get_cached_gscan_results(nullptr, 0, 8, cached, &num));

    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_stop_gscan(21, nullptr));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_reset_bssid_hotlist(22));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_reset_significant_change_handler(23, nullptr));
    EXPECT_TRUE(rspHandlers.empty());
}

}  // namespace
}  // namespace wifihal_test
