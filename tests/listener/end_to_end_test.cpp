// Ranging end to end: the HAL's request goes through the entry layer to the
// simulated service, whose answer comes back through the listener.
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hardware_legacy/rtt.h>
#include <loc_utils/loc_utils.h>
#include <varn_sim/simulator.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>

#include "log_capture.h"

namespace {

struct Delivered {
    std::mutex mutex;
    std::condition_variable changed;
    int calls = 0;
    int id = 0;
    std::vector<wifi_rtt_result_v2> results;  // LCI/LCR pointers cleared
    std::vector<std::vector<uint8_t>> lci;
};
Delivered* g_delivered = nullptr;

void onResults(wifi_request_id id, unsigned n, wifi_rtt_result_v2* results[]) {
    std::lock_guard<std::mutex> lock(g_delivered->mutex);
    ++g_delivered->calls;
    g_delivered->id = id;
    for (unsigned i = 0; i < n; ++i) {
        wifi_rtt_result_v2 copy = *results[i];
        std::vector<uint8_t> lci;
        if (copy.rtt_result.LCI != nullptr) {
            lci.assign(copy.rtt_result.LCI->data,
                       copy.rtt_result.LCI->data + copy.rtt_result.LCI->len);
        }
        copy.rtt_result.LCI = copy.rtt_result.LCR = nullptr;
        g_delivered->results.push_back(copy);
        g_delivered->lci.push_back(lci);
        // The listener releases element 0's elements only.
        if (i > 0) {
            free(results[i]->rtt_result.LCI);
            free(results[i]->rtt_result.LCR);
            results[i]->rtt_result.LCI = results[i]->rtt_result.LCR = nullptr;
        }
    }
    g_delivered->changed.notify_all();
}

// A scenario without multipath or frame loss, so that the only error is the
// Gaussian noise of the bandwidth's expected deviation and the chain offset.
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

wifi_rtt_config config(uint8_t last, wifi_rtt_type type, int freq, int center0,
                       wifi_channel_width width, wifi_rtt_bw bw) {
    wifi_rtt_config c{};
    const uint8_t addr[6] = {0x02, 0x5a, 0, 0, 0, last};
    for (int i = 0; i < 6; ++i) c.addr[i] = addr[i];
    c.type = type;
    c.peer = RTT_PEER_AP;
    c.channel.width = width;
    c.channel.center_freq = freq;
    c.channel.center_freq0 = center0;
    c.num_frames_per_burst = 31;
    c.burst_duration = type == RTT_TYPE_2_SIDED ? 15 : 11;
    c.preamble = bw == WIFI_RTT_BW_20 ? WIFI_RTT_PREAMBLE_LEGACY : WIFI_RTT_PREAMBLE_VHT;
    c.bw = bw;
    return c;
}

class EndToEndTest : public testing::Test {
  protected:
    void SetUp() override {
        varn_wifihal_destroy();
        varn_sim::Simulator::instance().reset();
        varn_sim::Scenario scenario;
        std::string error;
        ASSERT_EQ(0, varn_sim::Scenario::parse(kScenario, &scenario, &error)) << error;
        varn_sim::Simulator::instance().setScenario(scenario);
        loc_utils_set_varn_conf_path("/nonexistent/varn-listener-e2e.conf");
        g_delivered = &delivered_;
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    }
    void TearDown() override {
        varn_wifihal_destroy();
        loc_utils_set_varn_conf_path(nullptr);
        g_delivered = nullptr;
    }

    bool waitForCalls(int calls) {
        std::unique_lock<std::mutex> lock(delivered_.mutex);
        return delivered_.changed.wait_for(lock, std::chrono::seconds(10),
                                           [&] { return delivered_.calls >= calls; });
    }

    Delivered delivered_;
};

TEST_F(EndToEndTest, RangingReturnsDistancesWithinTheModelError) {
    wifi_rtt_config configs[] = {
            config(1, RTT_TYPE_2_SIDED, 5180, 5210, WIFI_CHAN_WIDTH_80, WIFI_RTT_BW_80),
            config(2, RTT_TYPE_2_SIDED, 5200, 5190, WIFI_CHAN_WIDTH_40, WIFI_RTT_BW_40),
            config(3, RTT_TYPE_1_SIDED, 2437, 2437, WIFI_CHAN_WIDTH_20, WIFI_RTT_BW_20),
            config(6, RTT_TYPE_2_SIDED, 5500, 5500, WIFI_CHAN_WIDTH_20, WIFI_RTT_BW_20),
    };
    configs[0].LCI_request = 1;
    wifi_rtt_event_handler handler = {nullptr, onResults};
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_rtt_range_request(77, nullptr, 4, configs, handler));
    const uint32_t varn_id = req_id;
    ASSERT_TRUE(waitForCalls(1));
    ASSERT_TRUE(varn_sim::Simulator::instance().waitUntilDelivered());

    std::lock_guard<std::mutex> lock(delivered_.mutex);
    EXPECT_EQ(1, delivered_.calls);
    EXPECT_EQ(77, delivered_.id);
    ASSERT_EQ(4u, delivered_.results.size());
    struct Expect {
        double distance_m;
        double stdev_ps;
        int frequency;
        wifi_rtt_bw packet_bw;
    };
    const Expect expected[] = {{3.0, 7000, 5180, WIFI_RTT_BW_80},
                               {7.5, 9270, 5200, WIFI_RTT_BW_40},
                               {12.0, 21000, 2437, WIFI_RTT_BW_20}};
    for (int i = 0; i < 3; ++i) {
        const wifi_rtt_result_v2& v2 = delivered_.results[i];
        const wifi_rtt_result& r = v2.rtt_result;
        SCOPED_TRACE(i);
        EXPECT_EQ(i + 1, r.addr[5]);
        EXPECT_EQ(RTT_STATUS_SUCCESS, r.status);
        EXPECT_EQ(31u, r.success_number);
        EXPECT_EQ(expected[i].frequency, v2.frequency);
        EXPECT_EQ(expected[i].packet_bw, v2.packet_bw);
        // The chosen chain's mean over about 15 frames: four standard errors
        // of the mean plus the second chain's offset, at 0.15 mm per ps.
        const double tolerance_mm = 0.15 * (4.0 * expected[i].stdev_ps / std::sqrt(15.0) + 300);
        EXPECT_NEAR(expected[i].distance_m * 1000.0, r.distance_mm, tolerance_mm);
        EXPECT_EQ(static_cast<int>(static_cast<float>(r.rtt) * 0.15f), r.distance_mm);
        EXPECT_GT(r.rssi, 0);  // half-dB steps of a negative dBm value
    }
    EXPECT_EQ(RTT_TYPE_2_SIDED, delivered_.results[0].rtt_result.type);
    EXPECT_EQ(RTT_TYPE_1_SIDED, delivered_.results[2].rtt_result.type);
    EXPECT_EQ((std::vector<uint8_t>{0x00, 0x10, 0x52, 0x83, 0x43}), delivered_.lci[0]);
    EXPECT_EQ(RTT_STATUS_FAIL_NO_RSP, delivered_.results[3].rtt_result.status);
    EXPECT_EQ(0u, delivered_.results[3].rtt_result.success_number);
    // Answered once, then retired.
    EXPECT_EQ(-1, getWiFiHalReqId(varn_id));
}

}  // namespace
