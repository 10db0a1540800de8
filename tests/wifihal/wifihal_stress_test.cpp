// HAL threads issuing and cancelling ranging requests, and starting and
// stopping background scans and hotlists, while the service answers and
// streams events on its own thread. Meant for ThreadSanitizer.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "stress_support.h"
#include "wifihal/request_bookkeeping.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

using varn_test::BackgroundLoop;
using varn_test::runOnThreads;

std::atomic<int> g_calls{0};

void onRttV2(wifi_request_id, unsigned, wifi_rtt_result_v2**) { g_calls.fetch_add(1); }
void onFull(wifi_request_id, wifi_scan_result*, unsigned) { g_calls.fetch_add(1); }
void onEvent(wifi_request_id, wifi_scan_event) { g_calls.fetch_add(1); }
void onAp(wifi_request_id, unsigned, wifi_scan_result*) { g_calls.fetch_add(1); }

class WifiHalStressTest : public WifiHalTest {
  protected:
    void SetUp() override {
        WifiHalTest::SetUp();
        g_discard_bw_mis_match = 1;  // no configuration file overrides it
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
        g_calls.store(0);
    }
    void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }
};

TEST_F(WifiHalStressTest, ConcurrentRangingRequestsCancelsAndLookups) {
    constexpr int kHalThreads = 3, kRounds = 150;
    sim().setAirTimeMs(1);  // answers come back while later requests are still being issued
    std::atomic<int> accepted{0};
    {
        // Stands in for the response thread's look-ups besides the listener's own.
        BackgroundLoop reader([] {
            const wifi_rtt_config probe = validConfig(0);
            const uint32_t id = nextReqId();
            wifi_rtt_event_handler handler{};
            getRttHandler(id, &handler);
            getWiFiHalReqId(id);
            WiFiHalReqCacheEntry entry{};
            findRequestedBandwidth(VARNMacAddress(probe.addr), &entry);
            int hal_id = -1;
            wifi_scan_result_handler scan{};
            getGscanEventHandler(hal_id, id, &scan);
            addRspHandler(static_cast<int32_t>(id), id, VARN_REQ_BGSCAN_START, RspHandlerRecord{});
            cleanupHandlers(VARN_REQ_BGSCAN_START);
        });
        runOnThreads(kHalThreads, [&](int t) {
            for (int round = 0; round < kRounds; ++round) {
                const wifi_request_id id = t * 1000 + round;
                std::vector<wifi_rtt_config> configs{validConfig(static_cast<unsigned char>(t)),
                                                     validConfig(static_cast<unsigned char>(round))};
                if (varn_wifihal_rtt_range_request(id, nullptr, 2, configs.data(),
                                                   {nullptr, onRttV2}) == WIFI_SUCCESS) {
                    accepted.fetch_add(1);
                }
                if (round % 3 == 0) varn_wifihal_rtt_range_cancel(id, nullptr, 1, &configs[1].addr);
            }
        });
    }
    ASSERT_TRUE(sim().waitUntilDelivered(60000));
    EXPECT_GT(g_calls.load(), 0);  // the service thread found handlers and called back
    EXPECT_EQ(kHalThreads * kRounds, accepted.load());
    // Every request the service saw carried a distinct id.
    std::set<uint32_t> ids;
    for (const varn_sim::RecordedRequest& r : sim().requests()) ids.insert(r.request_id);
    EXPECT_EQ(sim().requests().size(), ids.size());
    EXPECT_LE(static_cast<uint32_t>(ids.size()), req_id);
    EXPECT_TRUE(rspHandlers.empty());
}

TEST_F(WifiHalStressTest, BackgroundScansStartAndStopWhileEventsStream) {
    constexpr int kRounds = 60;
    sim().setAutoScan(false);
    wifi_scan_cmd_params params{};
    params.base_period = 1000;
    params.num_buckets = 1;
    params.buckets[0].band = WIFI_BAND_ABG;
    params.buckets[0].report_events = REPORT_EVENTS_EACH_SCAN | REPORT_EVENTS_FULL_RESULTS;
    wifi_bssid_hotlist_params hot{1, 1, {}};
    const varn_sim::AccessPoint cafe = sim().accessPoints()[4];  // fades, then vanishes
    for (int i = 0; i < 6; ++i) hot.ap[0].bssid[i] = cafe.bssid[i];
    hot.ap[0].low = -100;
    std::atomic<int> failures{0};
    {
        BackgroundLoop scanner([this] { sim().runScanCycle(); }, 1);
        runOnThreads(3, [&](int t) {
            for (int i = 0; i < kRounds; ++i) {
                const wifi_request_id id = t * 1000 + i;
                if (t == 2) {  // hotlists and cached results
                    if (varn_wifihal_set_bssid_hotlist(i, nullptr, hot, {onAp, onAp}) != 0) {
                        failures.fetch_add(1);
                    }
                    sleepMs(3);
                    varn_wifihal_reset_bssid_hotlist(i);
                    wifi_cached_scan_results cached[2];
                    int num = 0;
                    varn_wifihal_get_cached_gscan_results(nullptr, 0, 2, cached, &num);
                    continue;
                }
                if (varn_wifihal_start_gscan(id, nullptr, params, {onFull, onEvent}) != 0) {
                    failures.fetch_add(1);
                }
                sleepMs(2);
                if (i % 3 == 0) varn_wifihal_stop_gscan(id, nullptr);
            }
        });
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_GT(g_calls.load(), 0);
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_stop_gscan(0, nullptr));
    EXPECT_TRUE(rspHandlers.empty());
    EXPECT_TRUE(sim().waitUntilDelivered());
}

}  // namespace
}  // namespace wifihal_test
