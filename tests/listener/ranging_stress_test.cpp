// Concurrency: HAL threads send ranging requests while the service thread
// answers them through the listener. Meant for the ThreadSanitizer build.
#include <varn_sim/simulator.h>

#include <atomic>

#include "listener_test_support.h"
#include "stress_support.h"

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

TEST(ListenerStressTest, EveryConcurrentRangingRequestIsAnsweredOnce) {
    listener_test::startHal(nullptr);  // the default scenario's AP 1: 3 m, 80 MHz
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    // Answers at once, often before sendRequest has returned to the HAL thread.
    sim.setAirTimeMs(0);
    for (auto& answers : g_answers) answers.store(0);
    g_total = 0;
    g_results = 0;
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_ERROR);
    varn_test::LogCapture log;

    std::atomic<int> refused{0};
    varn_test::runOnThreads(kThreads, [&refused](int t) {
        for (int k = 0; k < kRequestsPerThread; ++k) {
            wifi_rtt_config config = listener_test::rttConfig(
                    1, RTT_TYPE_2_SIDED, 5180, 5210, WIFI_CHAN_WIDTH_80, WIFI_RTT_BW_80, 8);
            if (varn_wifihal_rtt_range_request(t * kRequestsPerThread + k, nullptr, 1, &config,
                                               {nullptr, onResults}) != WIFI_SUCCESS) {
                refused.fetch_add(1);
            }
        }
    });
    ASSERT_EQ(0, refused.load());
    varn_test::waitFor([] { return g_total.load() >= kTotal; }, 60000);
    ASSERT_TRUE(sim.waitUntilDelivered(10000));
    EXPECT_EQ(kTotal, g_total.load());
    EXPECT_EQ(0u, log.count("drop the rsp")) << log.dump();
    for (int id = 0; id < kTotal; ++id) EXPECT_EQ(1, g_answers[id].load()) << "request " << id;
    EXPECT_EQ(kTotal, g_results.load());
    // Every request was retired by its answer.
    EXPECT_EQ(0u, rttRequestHandlers.size());
    for (uint32_t id = 1; id <= static_cast<uint32_t>(kTotal); ++id) {
        EXPECT_EQ(-1, getWiFiHalReqId(id));
    }
    listener_test::stopHal();
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
}

}  // namespace
