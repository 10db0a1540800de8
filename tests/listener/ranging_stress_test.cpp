// Concurrency: HAL threads send ranging requests while the service thread
// answers them through the listener. Meant for the ThreadSanitizer build.
#include <gtest/gtest.h>
#include <hardware_legacy/rtt.h>
#include <loc_utils/loc_utils.h>
#include <varn_sim/simulator.h>
#include <varn_wifihal.h>
#include <vel_loc_fw/log_util.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "log_capture.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRequestsPerThread = 500;
constexpr int kTotal = kThreads * kRequestsPerThread;

std::atomic<int> g_answers[kTotal];
std::atomic<int> g_total{0};
std::atomic<int> g_results{0};

void onResults(wifi_request_id id, unsigned n, wifi_rtt_result_v2* results[]) {
    if (id >= 0 && id < kTotal) g_answers[id].fetch_add(1);
    for (unsigned i = 0; i < n; ++i) {
        if (results[i]->rtt_result.status == RTT_STATUS_SUCCESS) g_results.fetch_add(1);
    }
    g_total.fetch_add(1);
}

wifi_rtt_config officeConfig() {
    wifi_rtt_config c{};
    const uint8_t addr[6] = {0x02, 0x5a, 0, 0, 0, 1};  // default scenario, 3 m, 80 MHz
    for (int i = 0; i < 6; ++i) c.addr[i] = addr[i];
    c.type = RTT_TYPE_2_SIDED;
    c.peer = RTT_PEER_AP;
    c.channel.width = WIFI_CHAN_WIDTH_80;
    c.channel.center_freq = 5180;
    c.channel.center_freq0 = 5210;
    c.num_frames_per_burst = 8;
    c.burst_duration = 15;
    c.preamble = WIFI_RTT_PREAMBLE_VHT;
    c.bw = WIFI_RTT_BW_80;
    return c;
}

TEST(ListenerStressTest, EveryConcurrentRangingRequestIsAnsweredOnce) {
    varn_wifihal_destroy();
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.reset();
    // Answers at once, often before sendRequest has returned to the HAL thread.
    sim.setAirTimeMs(0);
    loc_utils_set_varn_conf_path("/nonexistent/varn-listener-stress.conf");
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    for (auto& answers : g_answers) answers.store(0);
    g_total = 0;
    g_results = 0;
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_ERROR);
    varn_test::LogCapture log;

    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &refused] {
            wifi_rtt_event_handler handler = {nullptr, onResults};
            for (int k = 0; k < kRequestsPerThread; ++k) {
                wifi_rtt_config config = officeConfig();
                const int id = t * kRequestsPerThread + k;
                if (varn_wifihal_rtt_range_request(id, nullptr, 1, &config, handler) !=
                    WIFI_SUCCESS) {
                    refused.fetch_add(1);
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(0, refused.load());

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (g_total.load() < kTotal && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(sim.waitUntilDelivered(10000));
    EXPECT_EQ(kTotal, g_total.load());
    EXPECT_EQ(0u, log.count("drop the rsp")) << log.dump();
    for (int id = 0; id < kTotal; ++id) EXPECT_EQ(1, g_answers[id].load()) << "request " << id;
    EXPECT_EQ(kTotal, g_results.load());
    // Every request was retired by its answer.
    EXPECT_EQ(0u, rttRequestHandlers.size());
    for (uint32_t varn_id = 1; varn_id <= static_cast<uint32_t>(kTotal); ++varn_id) {
        EXPECT_EQ(-1, getWiFiHalReqId(varn_id));
    }
    varn_wifihal_destroy();
    loc_utils_set_varn_conf_path(nullptr);
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
}

}  // namespace
