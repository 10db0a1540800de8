// Statistics of the simulated physical world against its model.
#include "platform/sim/world.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

namespace varn_sim {
namespace {

struct Stats {
    double mean = 0, sd = 0;
    size_t n = 0;
};

Stats stats(const std::vector<double>& x) {
    Stats s;
    s.n = x.size();
    for (double v : x) s.mean += v;
    s.mean /= s.n;
    for (double v : x) s.sd += (v - s.mean) * (v - s.mean);
    s.sd = std::sqrt(s.sd / s.n);
    return s;
}

AccessPoint ap(double distance_m, eVARNBandwidth width, uint32_t freq = 5180) {
    AccessPoint a;
    parseMac("02:00:00:00:00:01", &a.bssid);
    a.ssid = "Model";
    a.frequency = freq;
    a.width = width;
    a.distance_m = distance_m;
    return a;
}

VARNPeriodicNodeInfo node(const AccessPoint& a, eVARNBandwidth bw, uint8_t frames = 31) {
    VARNPeriodicNodeInfo n;
    n.bssid = a.bssid;
    n.frequency = a.frequency;
    n.rtt_type = VARN_RTT_TYPE_2_SIDED;
    n.bandwidth = bw;
    n.preamble = VARN_RTT_PREAMBLE_VHT;
    n.packets_per_measurement = frames;
    return n;
}

Scenario quietWorld(const AccessPoint& a) {
    Scenario s;
    s.seed = 7;
    s.frame_loss = 0;
    s.multipath = 0;
    s.access_points.push_back(a);
    return s;
}

// Draws `bursts` bursts and returns the RTTs of chain `chain`.
std::vector<double> rtts(const Scenario& s, const VARNPeriodicNodeInfo& n, int bursts, int chain,
                         Rng& rng) {
    std::vector<double> out;
    for (int b = 0; b < bursts; ++b) {
        VARNScanMeasurement* m = rangeNode(s, n, 0, rng);
        for (VARNMeasurementInfo* f : m->measurements) {
            if (f->rx_chain_index == chain) out.push_back(f->rtt_ps);
        }
        delete m;
    }
    return out;
}

TEST(WorldModel, RttMeanAndSpreadFollowDistanceAndBandwidth) {
    const struct {
        eVARNBandwidth bw;
        double distance_m;
    } cases[] = {{VARN_BW_20MHZ, 25.0}, {VARN_BW_40MHZ, 10.0}, {VARN_BW_80MHZ, 3.0},
                 {VARN_BW_160MHZ, 42.0}};
    for (const auto& c : cases) {
        AccessPoint a = ap(c.distance_m, c.bw);
        Scenario s = quietWorld(a);
        Rng rng(s.seed);
        std::vector<double> chain0 = rtts(s, node(a, c.bw), 400, 0, rng);
        Stats st = stats(chain0);
        double sigma = Simulator::rttStdevPs(c.bw);
        double expected = Simulator::expectedRttPs(c.distance_m);
        ASSERT_GT(st.n, 5000u);
        // Mean within 4 standard errors, deviation within 5 %.
        EXPECT_NEAR(st.mean, expected, 4 * sigma / std::sqrt(st.n)) << "bw " << c.bw;
        EXPECT_NEAR(st.sd, sigma, 0.05 * sigma) << "bw " << c.bw;
    }
    EXPECT_EQ(Simulator::expectedRttPs(1.0), 6671);
}

TEST(WorldModel, SecondReceiveChainArrivesLater) {
    AccessPoint a = ap(8.0, VARN_BW_80MHZ);
    Scenario s = quietWorld(a);
    s.chain_offset_ps = 2000;
    Rng rng0(3), rng1(3);
    Stats c0 = stats(rtts(s, node(a, VARN_BW_80MHZ), 600, 0, rng0));
    Stats c1 = stats(rtts(s, node(a, VARN_BW_80MHZ), 600, 1, rng1));
    double se = 7000 * std::sqrt(2.0 / c0.n);
    EXPECT_NEAR(c1.mean - c0.mean, 2000, 4 * se);
}

TEST(WorldModel, MultipathAddsLateOutliersOnly) {
    AccessPoint a = ap(5.0, VARN_BW_80MHZ);
    Scenario s = quietWorld(a);
    s.multipath = 0.2;
    Rng rng(11);
    std::vector<double> x = rtts(s, node(a, VARN_BW_80MHZ), 300, 0, rng);
    double expected = Simulator::expectedRttPs(5.0);
    size_t late = 0, early = 0;
    for (double v : x) {
        if (v > expected + 5 * 7000.0) ++late;
        if (v < expected - 5 * 7000.0) ++early;
    }
    // Outliers land 10..60 ns late; about half of them beyond 5 sigma (35 ns).
    double share = static_cast<double>(late) / x.size();
    EXPECT_GT(share, 0.2 * 0.4);
    EXPECT_LT(share, 0.2 * 0.7);
    EXPECT_EQ(early, 0u);
}

TEST(WorldModel, FramesAreLostAtTheConfiguredRate) {
    AccessPoint a = ap(5.0, VARN_BW_40MHZ);
    Scenario s = quietWorld(a);
    s.frame_loss = 0.3;
    Rng rng(5);
    size_t received = 0;
    const int bursts = 500;
    for (int b = 0; b < bursts; ++b) {
        VARNScanMeasurement* m = rangeNode(s, node(a, VARN_BW_40MHZ, 20), 0, rng);
        EXPECT_EQ(m->frames_per_burst_peer, 20);
        EXPECT_EQ(m->measurements_attempted, 20u);
        received += m->measurements.size();
        delete m;
    }
    EXPECT_NEAR(static_cast<double>(received) / (bursts * 20), 0.7, 0.02);
}

TEST(WorldModel, FrameRssiIsHalfDbAndAveragesToThePathLossPower) {
    AccessPoint a = ap(10.0, VARN_BW_80MHZ);
    Scenario s = quietWorld(a);
    Rng rng(9);
    std::vector<double> power;  // the listener's per-frame term 10^(rssi/20)
    for (int b = 0; b < 300; ++b) {
        VARNScanMeasurement* m = rangeNode(s, node(a, VARN_BW_80MHZ), 0, rng);
        for (VARNMeasurementInfo* f : m->measurements) power.push_back(std::pow(10.0, f->rssi / 20.0));
        delete m;
    }
    double mean_dbm = 10.0 * std::log10(stats(power).mean);
    // Log-normal shadowing of 2 dB lifts the power average by 2^2 ln10 / 20 = 0.46 dB.
    EXPECT_NEAR(mean_dbm, meanRssiDbm(s, a, 0) + 0.46, 0.15);
    // 5180 MHz at 10 m, n = 3: 20 - 46.74 - 30 = -56.74 dBm.
    EXPECT_NEAR(meanRssiDbm(s, a, 0), -56.74, 0.01);
}

TEST(WorldModel, RatesMatchTheRequestOrTheNarrowerAp) {
    AccessPoint a = ap(5.0, VARN_BW_40MHZ);
    Scenario s = quietWorld(a);
    Rng rng(1);
    const struct {
        eVARNBandwidth requested;
        eVARNRttPreamble preamble;
        uint8_t bw, frame_preamble;
    } cases[] = {{VARN_BW_20MHZ, VARN_RTT_PREAMBLE_HT, 0, VARN_PREAMBLE_HT},
                 {VARN_BW_40MHZ, VARN_RTT_PREAMBLE_VHT, 1, VARN_PREAMBLE_VHT},
                 {VARN_BW_80MHZ, VARN_RTT_PREAMBLE_VHT, 1, VARN_PREAMBLE_VHT},
                 {VARN_BW_20MHZ, VARN_RTT_PREAMBLE_LEGACY, 0, VARN_PREAMBLE_LEGACY}};
    for (const auto& c : cases) {
        VARNPeriodicNodeInfo n = node(a, c.requested, 4);
        n.preamble = c.preamble;
        VARNScanMeasurement* m = rangeNode(s, n, 0, rng);
        ASSERT_EQ(m->measurements.size(), 4u);
        for (VARNMeasurementInfo* f : m->measurements) {
            EXPECT_EQ(f->tx_rate.bandwidth, c.bw);
            EXPECT_EQ(f->rx_rate.bandwidth, c.bw);
            EXPECT_EQ(f->tx_rate.preamble, c.frame_preamble);
            EXPECT_EQ(f->rx_rate.preamble, c.frame_preamble);
            EXPECT_GT(f->tx_rate.bit_rate, 0u);
        }
        delete m;
    }
}

TEST(WorldModel, TargetStatusForPeersThatCannotBeMeasured) {
    AccessPoint near = ap(5.0, VARN_BW_80MHZ);
    AccessPoint far = ap(400.0, VARN_BW_20MHZ, 5500);
    parseMac("02:00:00:00:00:02", &far.bssid);
    AccessPoint one_sided = ap(5.0, VARN_BW_20MHZ, 2437);
    parseMac("02:00:00:00:00:03", &one_sided.bssid);
    one_sided.two_sided = false;
    Scenario s = quietWorld(near);
    s.access_points.push_back(far);
    s.access_points.push_back(one_sided);
    VARNPeriodicNodeInfo wrong_channel = node(near, VARN_BW_80MHZ);
    wrong_channel.frequency = 5200;
    VARNPeriodicNodeInfo unknown = node(near, VARN_BW_80MHZ);
    unknown.bssid[5] = 0x77;
    VARNPeriodicNodeInfo one_sided_node = node(one_sided, VARN_BW_20MHZ);
    one_sided_node.rtt_type = VARN_RTT_TYPE_1_SIDED;
    const struct {
        VARNPeriodicNodeInfo n;
        eVARNTargetStatus status;
    } cases[] = {{node(far, VARN_BW_20MHZ), VARN_TARGET_STATUS_RTT_FAIL_NO_RSP},
                 {wrong_channel, VARN_TARGET_STATUS_RTT_FAIL_NO_RSP},
                 {unknown, VARN_TARGET_STATUS_RTT_FAIL_NO_RSP},
                 {node(one_sided, VARN_BW_20MHZ), VARN_TARGET_STATUS_RTT_FAIL_TARGET_NOT_CAPABLE},
                 {one_sided_node, VARN_TARGET_STATUS_SUCCESS}};
    Rng rng(2);
    for (const auto& c : cases) {
        VARNScanMeasurement* m = rangeNode(s, c.n, 0, rng);
        EXPECT_EQ(m->target_status, c.status) << formatMac(c.n.bssid);
        EXPECT_EQ(m->measurements.empty(), c.status != VARN_TARGET_STATUS_SUCCESS);
        EXPECT_EQ(m->frames_per_burst_peer, c.n.packets_per_measurement);
        delete m;
    }
}

TEST(WorldModel, LocationElementsOnlyWhenRequested) {
    AccessPoint a = ap(5.0, VARN_BW_80MHZ);
    a.lci = {1, 2, 3};
    a.lcr = {'U', 'S'};
    Scenario s = quietWorld(a);
    Rng rng(4);
    VARNPeriodicNodeInfo n = node(a, VARN_BW_80MHZ, 2);
    VARNScanMeasurement* plain = rangeNode(s, n, 0, rng);
    EXPECT_EQ(plain->lci.data, nullptr);
    EXPECT_EQ(plain->lcr.data, nullptr);
    delete plain;
    n.ftm_params = VARNPeriodicNodeInfo::kFtmLciRequest | VARNPeriodicNodeInfo::kFtmLcrRequest;
    VARNScanMeasurement* located = rangeNode(s, n, 0, rng);
    ASSERT_NE(located->lci.data, nullptr);
    EXPECT_EQ(located->lci.length, 3);
    EXPECT_EQ(located->lci.data[2], 3);
    ASSERT_NE(located->lcr.data, nullptr);
    EXPECT_EQ(located->lcr.length, 2);
    delete located;
}

TEST(WorldModel, SameSeedSameFrames) {
    AccessPoint a = ap(6.0, VARN_BW_20MHZ);
    Scenario s = Scenario::defaultScenario();
    s.access_points = {a};
    Rng first(42), second(42);
    EXPECT_EQ(rtts(s, node(a, VARN_BW_20MHZ), 20, 0, first),
              rtts(s, node(a, VARN_BW_20MHZ), 20, 0, second));
}

}  // namespace
}  // namespace varn_sim
