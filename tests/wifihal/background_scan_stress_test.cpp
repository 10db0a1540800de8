// HAL threads starting and stopping background scans and hotlists while the
// service streams their events. Meant for ThreadSanitizer.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "wifihal/request_bookkeeping.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

std::atomic<int> g_events{0};

void onFull(wifi_request_id, wifi_scan_result*, unsigned) { g_events.fetch_add(1); }
void onEvent(wifi_request_id, wifi_scan_event) { g_events.fetch_add(1); }
void onAp(wifi_request_id, unsigned, wifi_scan_result*) { g_events.fetch_add(1); }

using BackgroundScanStressTest = WifiHalTest;

TEST_F(BackgroundScanStressTest, StartsAndStopsWhileEventsStream) {
    constexpr int kRounds = 60;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
    sim().setAutoScan(false);
    g_events.store(0);

    wifi_scan_cmd_params params{};
    params.base_period = 1000;
    params.num_buckets = 1;
    params.buckets[0].band = WIFI_BAND_ABG;
    params.buckets[0].report_events = REPORT_EVENTS_EACH_SCAN | REPORT_EVENTS_FULL_RESULTS;
    wifi_bssid_hotlist_params hot{};
    hot.lost_ap_sample_size = 1;
    hot.num_bssid = 1;
    const varn_sim::AccessPoint cafe = sim().accessPoints()[4];  // fades, then vanishes
    for (int i = 0; i < 6; ++i) hot.ap[0].bssid[i] = cafe.bssid[i];
    hot.ap[0].low = -100;

    // A scan cycle every millisecond; the service thread delivers its events.
    std::atomic<bool> done{false};
    std::thread scanner([&] {
        while (!done.load()) {
            sim().runScanCycle();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::atomic<int> failures{0};
    std::vector<std::thread> hal;
    for (int t = 0; t < 2; ++t) {
        hal.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const wifi_request_id id = t * 1000 + i;
                if (varn_wifihal_start_gscan(id, nullptr, params, {onFull, onEvent}) != 0) {
                    failures.fetch_add(1);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
                if (i % 3 == 0) varn_wifihal_stop_gscan(id, nullptr);
            }
        });
    }
    hal.emplace_back([&] {
        for (int i = 0; i < kRounds; ++i) {
            if (varn_wifihal_set_bssid_hotlist(i, nullptr, hot, {onAp, onAp}) != 0) {
                failures.fetch_add(1);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            varn_wifihal_reset_bssid_hotlist(i);
            static wifi_cached_scan_results cached[2];
            int num = 0;
            varn_wifihal_get_cached_gscan_results(nullptr, 0, 2, cached, &num);
        }
    });
    for (std::thread& t : hal) t.join();
    done.store(true);
    scanner.join();

    EXPECT_EQ(0, failures.load());
    EXPECT_GT(g_events.load(), 0);
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_stop_gscan(0, nullptr));
    EXPECT_TRUE(rspHandlers.empty());
    EXPECT_TRUE(sim().waitUntilDelivered());
}

}  // namespace
}  // namespace wifihal_test
