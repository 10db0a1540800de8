// HAL threads ranging and scanning while the service answers and streams
// events. Meant for ThreadSanitizer.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <vector>

#include "stress_support.h"
#include "wifihal/request_bookkeeping.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

std::atomic<int> g_calls{0};
void onRttV2(wifi_request_id, unsigned, wifi_rtt_result_v2**) { g_calls.fetch_add(1); }
void onFull(wifi_request_id, wifi_scan_result*, unsigned) { g_calls.fetch_add(1); }
void onEvent(wifi_request_id, wifi_scan_event) { g_calls.fetch_add(1); }

using WifiHalStressTest = WifiHalTest;

TEST_F(WifiHalStressTest, RangingAndScansWhileAnswersAndEventsStream) {
    g_discard_bw_mis_match = 1;  // no configuration file overrides it
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
    sim().setAirTimeMs(1);  // answers come back while later requests are still being issued
    sim().setAutoScan(false);
    wifi_scan_cmd_params params{};
    params.num_buckets = 1;
    params.buckets[0].band = WIFI_BAND_ABG;
    params.buckets[0].report_events = REPORT_EVENTS_EACH_SCAN | REPORT_EVENTS_FULL_RESULTS;
    std::atomic<int> failures{0};  // the sum of error codes, each zero or negative
    {
        varn_test::BackgroundLoop scanner([this] { sim().runScanCycle(); }, 1);
        varn_test::runOnThreads(3, [&](int t) {
            for (int i = 0; i < 150; ++i) {
                const wifi_request_id id = t * 1000 + i;
                std::vector<wifi_rtt_config> configs{validConfig(static_cast<unsigned char>(t)),
                                                     validConfig(static_cast<unsigned char>(i))};
                if (t == 2) {  // scans, and their cached results meanwhile
                    wifi_cached_scan_results cached[2];
                    int num = 0;
                    failures += varn_wifihal_start_gscan(id, nullptr, params, {onFull, onEvent}) +
                                varn_wifihal_get_cached_gscan_results(nullptr, 0, 2, cached, &num);
                    if (i % 3 == 0) varn_wifihal_stop_gscan(id, nullptr);
                    continue;
                }
                failures += varn_wifihal_rtt_range_request(id, nullptr, 2, configs.data(),
                                                           {nullptr, onRttV2});
                if (i % 3 == 0) varn_wifihal_rtt_range_cancel(id, nullptr, 1, &configs[1].addr);
            }
        });
    }
    ASSERT_TRUE(sim().waitUntilDelivered(60000));
    EXPECT_EQ(0, failures.load());
    EXPECT_GT(g_calls.load(), 0);  // the service thread found handlers and called back
    // Every request the service saw carried a distinct id.
    std::set<uint32_t> ids;
    for (const varn_sim::RecordedRequest& r : sim().requests()) ids.insert(r.request_id);
    EXPECT_EQ(sim().requests().size(), ids.size());
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_stop_gscan(0, nullptr));
    EXPECT_TRUE(rspHandlers.empty());
}

}  // namespace
}  // namespace wifihal_test
