// Ranging end to end: the HAL's request goes through the entry layer to the
// simulated service, whose answer comes back through the listener.
#include <gtest/gtest.h>
#include <hardware_legacy/rtt.h>
#include <varn_sim/simulator.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>

#include <cmath>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "listener_test_support.h"
#include "stress_support.h"

namespace {

std::mutex g_mutex;
int g_calls = 0;
int g_id = 0;
std::vector<wifi_rtt_result_v2> g_results;  // LCI/LCR pointers cleared
std::vector<uint8_t> g_lci;                 // result 0's

void onResults(wifi_request_id id, unsigned n, wifi_rtt_result_v2* results[]) {
    std::lock_guard<std::mutex> lock(g_mutex);
    ++g_calls;
    g_id = id;
    for (unsigned i = 0; i < n; ++i) {
        wifi_rtt_result& r = results[i]->rtt_result;
        if (i == 0 && r.LCI != nullptr) g_lci.assign(r.LCI->data, r.LCI->data + r.LCI->len);
        g_results.push_back(*results[i]);
        g_results.back().rtt_result.LCI = g_results.back().rtt_result.LCR = nullptr;
        // The listener releases element 0's elements only.
        if (i > 0) {
            free(r.LCI);
            free(r.LCR);
            r.LCI = r.LCR = nullptr;
        }
    }
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

TEST(EndToEndTest, RangingReturnsDistancesWithinTheModelError) {
    listener_test::startHal(kScenario);
    g_calls = 0;
    g_results.clear();
    g_lci.clear();
    using listener_test::rttConfig;
    wifi_rtt_config configs[] = {
            rttConfig(1, RTT_TYPE_2_SIDED, 5180, 5210, WIFI_CHAN_WIDTH_80, WIFI_RTT_BW_80, 31),
            rttConfig(2, RTT_TYPE_2_SIDED, 5200, 5190, WIFI_CHAN_WIDTH_40, WIFI_RTT_BW_40, 31),
            rttConfig(3, RTT_TYPE_1_SIDED, 2437, 2437, WIFI_CHAN_WIDTH_20, WIFI_RTT_BW_20, 31),
            rttConfig(6, RTT_TYPE_2_SIDED, 5500, 5500, WIFI_CHAN_WIDTH_20, WIFI_RTT_BW_20, 31),
    };
    configs[0].LCI_request = 1;
    ASSERT_EQ(WIFI_SUCCESS,
              varn_wifihal_rtt_range_request(77, nullptr, 4, configs, {nullptr, onResults}));
    const uint32_t varn_id = req_id;
    ASSERT_TRUE(varn_test::waitFor([] {
        std::lock_guard<std::mutex> lock(g_mutex);
        return g_calls > 0;
    }));
    ASSERT_TRUE(varn_sim::Simulator::instance().waitUntilDelivered());

    std::lock_guard<std::mutex> lock(g_mutex);
    EXPECT_EQ(1, g_calls);
    EXPECT_EQ(77, g_id);
    ASSERT_EQ(4u, g_results.size());
    const struct {
        double distance_m, stdev_ps;
        int frequency;
        wifi_rtt_bw packet_bw;
        wifi_rtt_type type;
    } expected[] = {{3.0, 7000, 5180, WIFI_RTT_BW_80, RTT_TYPE_2_SIDED},
                    {7.5, 9270, 5200, WIFI_RTT_BW_40, RTT_TYPE_2_SIDED},
                    {12.0, 21000, 2437, WIFI_RTT_BW_20, RTT_TYPE_1_SIDED}};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const wifi_rtt_result& r = g_results[i].rtt_result;
        EXPECT_EQ(i + 1, r.addr[5]);
        EXPECT_EQ(RTT_STATUS_SUCCESS, r.status);
        EXPECT_EQ(expected[i].type, r.type);
        EXPECT_EQ(31u, r.success_number);
        EXPECT_EQ(expected[i].frequency, g_results[i].frequency);
        EXPECT_EQ(expected[i].packet_bw, g_results[i].packet_bw);
        // The chosen chain's mean over about 15 frames: four standard errors
        // of the mean plus the second chain's offset, at 0.15 mm per ps.
        const double tolerance_mm = 0.15 * (4.0 * expected[i].stdev_ps / std::sqrt(15.0) + 300);
        EXPECT_NEAR(expected[i].distance_m * 1000.0, r.distance_mm, tolerance_mm);
        EXPECT_EQ(static_cast<int>(static_cast<float>(r.rtt) * 0.15f), r.distance_mm);
        EXPECT_GT(r.rssi, 0);  // half-dB steps of a negative dBm value
    }
    EXPECT_EQ((std::vector<uint8_t>{0x00, 0x10, 0x52, 0x83, 0x43}), g_lci);
    EXPECT_EQ(RTT_STATUS_FAIL_NO_RSP, g_results[3].rtt_result.status);
    EXPECT_EQ(0u, g_results[3].rtt_result.success_number);
    EXPECT_EQ(-1, getWiFiHalReqId(varn_id));  // answered once, then retired
    listener_test::stopHal();
}

}  // namespace
