// HAL threads issuing and cancelling ranging requests while responses and
// look-ups run on other threads. Meant for ThreadSanitizer.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "wifihal/request_bookkeeping.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

std::atomic<uint64_t> g_results_delivered{0};

void onRttV2(wifi_request_id, unsigned, wifi_rtt_result_v2**) {
    g_results_delivered.fetch_add(1, std::memory_order_relaxed);
}

using RequestBookkeepingStressTest = WifiHalTest;

TEST_F(RequestBookkeepingStressTest, ConcurrentRequestsCancelsAndLookups) {
    constexpr int kHalThreads = 3;
    constexpr int kRoundsPerThread = 150;
    g_discard_bw_mis_match = 1;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    g_discard_bw_mis_match = 1;  // the configuration (none here) may not override it
    // Answers come back while later requests are still being issued.
    sim().setAirTimeMs(1);
    g_results_delivered.store(0);
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);

    std::atomic<bool> stop{false};
    std::atomic<int> accepted{0};
    // Stands in for the response thread's look-ups besides the listener's own.
    std::thread reader([&] {
        const wifi_rtt_config probe = validConfig(0);
        while (!stop.load()) {
            const uint32_t id = nextReqId();
            wifi_rtt_event_handler handler{};
            getRttHandler(id, &handler);
            getWiFiHalReqId(id);
            WiFiHalReqCacheEntry entry{};
            findRequestedBandwidth(VARNMacAddress(probe.addr), &entry);
            int hal_id = -1;
            wifi_scan_result_handler scan{};
            getGscanEventHandler(hal_id, id, &scan);
            RspHandlerRecord record{};
            addRspHandler(static_cast<int32_t>(id), id, VARN_REQ_BGSCAN_START, record);
            cleanupHandlers(VARN_REQ_BGSCAN_START);
        }
    });

    std::vector<std::thread> hal;
    for (int t = 0; t < kHalThreads; ++t) {
        hal.emplace_back([&, t] {
            for (int round = 0; round < kRoundsPerThread; ++round) {
                const wifi_request_id id = t * 1000 + round;
                std::vector<wifi_rtt_config> configs{
                        validConfig(static_cast<unsigned char>(t)),
                        validConfig(static_cast<unsigned char>(round))};
                if (varn_wifihal_rtt_range_request(id, nullptr, 2, configs.data(),
                                                   {nullptr, onRttV2}) == WIFI_SUCCESS) {
                    accepted.fetch_add(1);
                }
                if (round % 3 == 0) {
                    mac_addr addr[1] = {{0, 0x11, 0x22, 0x33, 0x44, 0x55}};
                    varn_wifihal_rtt_range_cancel(id, nullptr, 1, addr);
                }
            }
        });
    }
    for (std::thread& th : hal) th.join();
    stop.store(true);
    reader.join();
    ASSERT_TRUE(sim().waitUntilDelivered(60000));

    // The service thread looked handlers up and called back for some requests.
    EXPECT_GT(g_results_delivered.load(), 0u);

    EXPECT_EQ(kHalThreads * kRoundsPerThread, accepted.load());
    // Every request the service saw carried a distinct id.
    std::set<uint32_t> ids;
    size_t sent = 0;
    for (const varn_sim::RecordedRequest& r : sim().requests()) {
        ids.insert(r.request_id);
        ++sent;
    }
    EXPECT_EQ(sent, ids.size());
    EXPECT_LE(static_cast<uint32_t>(sent), req_id);
    EXPECT_TRUE(rspHandlers.empty());
}

}  // namespace
}  // namespace wifihal_test
