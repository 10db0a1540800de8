// Statistics of the simulated physical world against its model.
#include "platform/sim/world.h"

#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform_test_support.h"

namespace varn_sim {
namespace {

struct Sample {
    std::vector<double> chain[2];
    std::vector<double> rssi_power;  // 10^(rssi/20), the listener's per-frame term
};

Sample draw(const Scenario& s, const VARNPeriodicNodeInfo& n, int bursts) {
    Sample out;
    Rng rng(s.seed);
    for (int b = 0; b < bursts; ++b) {
        VARNScanMeasurement* m = rangeNode(s, n, 0, rng);
        for (VARNMeasurementInfo* f : m->measurements) {
            out.chain[f->rx_chain_index & 1].push_back(f->rtt_ps);
            out.rssi_power.push_back(std::pow(10.0, f->rssi / 20.0));
        }
        delete m;
    }
    return out;
}

double mean(const std::vector<double>& x) {
    return std::accumulate(x.begin(), x.end(), 0.0) / x.size();
}

double stdev(const std::vector<double>& x) {
    double m = mean(x), sum = 0;
    for (double v : x) sum += (v - m) * (v - m);
    return std::sqrt(sum / x.size());
}

Scenario quietWorld(double distance_m, eVARNBandwidth width) {
    Scenario s;
    s.seed = 7;
    s.frame_loss = 0;
    s.multipath = 0;
    AccessPoint a;
    a.frequency = 5180;
    a.width = width;
    a.distance_m = distance_m;
    s.access_points.push_back(a);
    return s;
}

TEST(WorldModel, RttRssiAndLossFollowTheModel) {
    const std::pair<eVARNBandwidth, double> cases[] = {{VARN_BW_20MHZ, 25.0},
                                                       {VARN_BW_40MHZ, 10.0},
                                                       {VARN_BW_80MHZ, 3.0},
                                                       {VARN_BW_160MHZ, 42.0}};
    for (const auto& [bw, distance_m] : cases) {
        SCOPED_TRACE(bw);
        Scenario s = quietWorld(distance_m, bw);
        s.chain_offset_ps = 2000;
        Sample x = draw(s, varn_sim_test::nodeFor(s.access_points[0], 31), 400);
        double sigma = Simulator::rttStdevPs(bw);
        double expected = Simulator::expectedRttPs(distance_m);
        ASSERT_GT(x.chain[0].size(), 5000u);
        // Means within 4 standard errors, deviation within 5 %.
        EXPECT_NEAR(mean(x.chain[0]), expected, 4 * sigma / std::sqrt(x.chain[0].size()));
        EXPECT_NEAR(mean(x.chain[1]), expected + 2000, 4 * sigma / std::sqrt(x.chain[1].size()));
        EXPECT_NEAR(stdev(x.chain[0]), sigma, 0.05 * sigma);
    }
    EXPECT_EQ(Simulator::expectedRttPs(1.0), 6671);

    // RSSI follows the path loss; frames are lost at the configured rate.
    Scenario s = quietWorld(10.0, VARN_BW_80MHZ);
    s.frame_loss = 0.3;
    Sample x = draw(s, varn_sim_test::nodeFor(s.access_points[0], 20), 500);
    EXPECT_NEAR(static_cast<double>(x.rssi_power.size()) / (500 * 20), 0.7, 0.02);
    // 5180 MHz at 10 m, n = 3: 20 - 46.74 - 30 = -56.74 dBm; log-normal
    // shadowing of 2 dB lifts the power average by 2^2 ln10 / 20 = 0.46 dB.
    EXPECT_NEAR(meanRssiDbm(s, s.access_points[0], 0), -56.74, 0.01);
    EXPECT_NEAR(10.0 * std::log10(mean(x.rssi_power)), -56.74 + 0.46, 0.15);
}

}  // namespace
}  // namespace varn_sim
