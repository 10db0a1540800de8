// RTT statistics: expected figures are worked out by hand from the platform's
// integer / single-precision arithmetic (see the comments per case).
#include <gtest/gtest.h>
#include <varn_wifihal.h>

#include <cstdlib>
#include <vector>

#include "listener/varn_client_listener_impl.h"
#include "listener_test_support.h"
#include "log_capture.h"

namespace {

using listener_test::fillFrames;
using listener_test::Frame;
using listener_test::newPeer;

class RttStatisticsTest : public listener_test::ListenerTest {};

TEST_F(RttStatisticsTest, MedianOfEvenAndOddCounts) {
    struct Case {
        std::vector<int32_t> values;
        int32_t median;
    };
    const Case cases[] = {
            {{10, 20, 30, 41}, 25},  // (20 + 30) / 2
            {{3, 1, 2}, 2},          // sorted first
            {{7}, 7},
            {{-3, -2}, -2},  // -5 / 2 truncates toward zero
            {{41, 10, 30, 20}, 25},
    };
    for (const Case& c : cases) {
        std::vector<int32_t> values = c.values;
        EXPECT_EQ(c.median, VARNClientListenerImpl::computeMedian(
                                    values.data(), static_cast<uint32_t>(values.size())));
        EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    }
}

TEST_F(RttStatisticsTest, StatsUseTruncatedMeanAndSinglePrecisionVariance) {
    struct Case {
        std::initializer_list<int32_t> rtts;
        float mean;
        int32_t max, min, spread, stdev, median;
    };
    const Case cases[] = {
            // S=700, m=233, Q=210000, V=210000-3*233*233=47133, var=15711, sqrt=125.3
            {{100, 200, 400}, 233.0f, 400, 100, 300, 125, 200},
            // m=1000166; in single precision Q=3000934191104 (rounded),
            // n*m*m=3000930258944, V=3932160, var=1310720, sqrt=1144.8 (exact
            // integer arithmetic would give 1167).
            {{1000000, 1000100, 1000400}, 1000166.0f, 1000400, 1000000, 400, 1144, 1000100},
            // Rounding can make V slightly negative for equal samples: stdev 0.
            {{5000, 5000}, 5000.0f, 5000, 5000, 0, 0, 5000},
    };
    for (const Case& c : cases) {
        std::vector<VARNMeasurementInfo> storage;
        VARNFrameList frames;
        fillFrames(frames, storage, c.rtts);
        float mean = -1;
        int32_t max = -1, min = -1, spread = -1, stdev = -1, median = -1;
        VARNClientListenerImpl::computeStats(frames, mean, max, min, spread, stdev, median, true);
        EXPECT_EQ(c.mean, mean);
        EXPECT_EQ(c.max, max);
        EXPECT_EQ(c.min, min);
        EXPECT_EQ(c.spread, spread);
        EXPECT_EQ(c.stdev, stdev);
        EXPECT_EQ(c.median, median);
    }
}

TEST_F(RttStatisticsTest, StatsWithoutMedianOrFramesLeaveOutputs) {
    std::vector<VARNMeasurementInfo> storage;
    VARNFrameList frames;
    float mean = 9;
    int32_t max = 9, min = 9, spread = 9, stdev = 9, median = 9;
    varn_test::LogCapture log;
    VARNClientListenerImpl::computeStats(frames, mean, max, min, spread, stdev, median, true);
    EXPECT_EQ(9.0f, mean);
    for (int32_t value : {max, min, spread, stdev, median}) EXPECT_EQ(9, value);
    EXPECT_TRUE(log.contains("computeStats: Emtpy vector for stats computation")) << log.dump();

    fillFrames(frames, storage, {10, 30});
    VARNClientListenerImpl::computeStats(frames, mean, max, min, spread, stdev, median, false);
    EXPECT_EQ(20.0f, mean);
    EXPECT_EQ(9, median);
}

TEST_F(RttStatisticsTest, FrameWeights) {
    struct Case {
        uint8_t tx_pre, rx_pre, tx_bw, rx_bw;
        float weight;
    };
    const Case cases[] = {
            {2, 2, 0, 0, 0.015625f}, {2, 2, 1, 1, 0.0625f},      {3, 3, 2, 2, 0.25f},
            {3, 3, 3, 3, 1.0f},      {2, 2, 1, 2, 0.0f},         {2, 3, 1, 1, 0.0f},
            {2, 2, 4, 4, 0.0f},      {0, 0, 3, 3, 0.015625f},    {0, 2, 0, 0, 0.015625f},
            {0, 2, 0, 1, 0.025f},    {0, 2, 0, 2, 1.0f / 34.0f}, {0, 2, 0, 3, 1.0f / 32.5f},
            {0, 2, 0, 4, 0.0f},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.weight, VARNClientListenerImpl::getRTTWeightedFactor(c.tx_pre, c.rx_pre,
                                                                         c.tx_bw, c.rx_bw))
                << int(c.tx_pre) << "/" << int(c.rx_pre) << " bw " << int(c.tx_bw) << "/"
                << int(c.rx_bw);
    }
}

TEST_F(RttStatisticsTest, WeightedMean) {
    // Legacy preamble at 20 MHz weighs 1/64, VHT at 160 MHz weighs 1.
    VARNMeasurementInfo a{}, b{};
    a.rtt_ps = 1000;
    b.rtt_ps = 2000;
    b.tx_rate.preamble = b.rx_rate.preamble = 3;
    b.tx_rate.bandwidth = b.rx_rate.bandwidth = 3;
    VARNFrameList frames;
    frames.push_back(&a);
    frames.push_back(&b);

    float mean = 0;
    VARNClientListenerImpl::computeMean(frames, mean);
    EXPECT_EQ(1500.0f, mean);

    g_weighted_mean = 1;
    varn_test::LogCapture log;
    VARNClientListenerImpl::computeMean(frames, mean);
    // (1000/64 + 2000) / (1 + 1/64) = 129000 / 65
    EXPECT_FLOAT_EQ(129000.0f / 65.0f, mean);
    EXPECT_TRUE(log.contains("computeMean: Weighted mean Enabled"));
    EXPECT_TRUE(log.contains("TX chain: 0 RX: chain: 0 rtt_ps: 2000, factor: 1.0000"));

    // Every weight zero (bandwidth mismatch on an HT frame): the mean stays.
    b.rx_rate.bandwidth = 1;
    VARNFrameList zero;
    zero.push_back(&b);
    mean = 4321.0f;
    VARNClientListenerImpl::computeMean(zero, mean);
    EXPECT_EQ(4321.0f, mean);
    EXPECT_TRUE(log.contains("sum:0.0000 count:0.0000 mean:4321.0000")) << log.dump();
}

TEST_F(RttStatisticsTest, TwoFramesAreNotFiltered) {
    std::vector<VARNMeasurementInfo> storage;
    VARNFrameList frames;
    fillFrames(frames, storage, {1000, 900000});
    float mean = 7;
    int32_t max = 1, min = 2, spread = 3, stdev = 4, median = 5;
    varn_test::LogCapture log;
    listener_.filterOutliers(frames, mean, max, min, spread, stdev, median, 0);
    EXPECT_EQ(2u, frames.size());
    EXPECT_EQ(7.0f, mean);
    EXPECT_EQ(1, max);
    EXPECT_TRUE(log.contains("filterOutliers: Too few elements 2")) << log.dump();
}

TEST_F(RttStatisticsTest, OutlierToleranceIsInclusiveAtBothEdges) {
    // Multiplier 10 (one standard deviation): 20 MHz tolerance 21000 ps, 40 MHz 9270 ps.
    VARNClientListenerImpl one_sigma(10);
    std::vector<VARNMeasurementInfo> storage;
    VARNFrameList frames;
    const int32_t m = 100000;
    fillFrames(frames, storage, {m - 21001, m - 21000, m, m + 21000, m + 21001});
    float mean = 0;
    int32_t max = 0, min = 0, spread = 0, stdev = 0, median = m;
    varn_test::LogCapture log;
    one_sigma.filterOutliers(frames, mean, max, min, spread, stdev, median, 0);
    ASSERT_EQ(3u, frames.size());
    EXPECT_EQ(m - 21000, frames[0]->rtt_ps);
    EXPECT_EQ(m + 21000, frames[2]->rtt_ps);
    EXPECT_EQ(m + 21000, max);
    EXPECT_EQ(m - 21000, min);
    EXPECT_EQ(42000, spread);
    EXPECT_EQ(static_cast<float>(m), mean);
    EXPECT_TRUE(log.contains("filterOutliers: Removed outlier at 0, val 78999")) << log.dump();
    EXPECT_TRUE(log.contains("Removed outlier at 3, val 121001")) << log.dump();

    // The tolerance follows the smaller of the two bandwidths (here 40 MHz).
    storage.assign(3, VARNMeasurementInfo{});
    const int32_t rtts[] = {m, m + 9270, m + 9271};
    VARNFrameList mixed;
    for (int i = 0; i < 3; ++i) {
        storage[i].rtt_ps = rtts[i];
        storage[i].tx_rate.bandwidth = 1;
        storage[i].rx_rate.bandwidth = 2;
        mixed.push_back(&storage[i]);
    }
    median = m;
    one_sigma.filterOutliers(mixed, mean, max, min, spread, stdev, median, 0);
    EXPECT_EQ(2u, mixed.size());
    EXPECT_EQ(m + 9270, max);
}

TEST_F(RttStatisticsTest, InvalidBandwidthKeepsTheFrame) {
    std::vector<VARNMeasurementInfo> storage(3);
    VARNFrameList frames;
    for (auto& info : storage) {
        info.rtt_ps = 5000000;  // far from the median
        info.tx_rate.bandwidth = info.rx_rate.bandwidth = 4;
        frames.push_back(&info);
    }
    float mean = 0;
    int32_t max = 0, min = 0, spread = 0, stdev = 0, median = 0;
    varn_test::LogCapture log;
    listener_.filterOutliers(frames, mean, max, min, spread, stdev, median, 0);
    EXPECT_EQ(3u, frames.size());
    EXPECT_EQ(3u, log.count("filterOutliers: Invalid bandwidth 4"));
}

TEST_F(RttStatisticsTest, BandwidthMismatchFiltering) {
    g_discard_bw_mis_match = 1;
    std::vector<VARNMeasurementInfo> storage(4);
    VARNFrameList frames;
    const uint8_t tx[] = {2, 2, 1, 2};
    const uint8_t rx[] = {2, 1, 2, 2};
    for (int i = 0; i < 4; ++i) {
        storage[i].rtt_ps = 1000 * (i + 1);
        storage[i].tx_rate.bandwidth = tx[i];
        storage[i].rx_rate.bandwidth = rx[i];
        frames.push_back(&storage[i]);
    }
    float mean = 0;
    int32_t max = 0, min = 0, spread = 0, stdev = 0, median = 0;
    varn_test::LogCapture log;
    listener_.filterOutliers(frames, mean, max, min, spread, stdev, median, 2);
    ASSERT_EQ(2u, frames.size());
    EXPECT_EQ(2500.0f, mean);  // frames 1000 and 4000
    EXPECT_EQ(2u, log.count("Dropping due to Tx/Rx BW is not equals of req BW"));

    // Nothing left: mean, max, min and spread are cleared, the deviation stays.
    VARNFrameList none;
    for (int i = 0; i < 3; ++i) none.push_back(&storage[i]);
    stdev = 77;
    listener_.filterOutliers(none, mean, max, min, spread, stdev, median, 3);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(0.0f, mean);
    EXPECT_EQ(0, max + min + spread);
    EXPECT_EQ(77, stdev);
    EXPECT_TRUE(log.contains("filterOutliers: No measurements meet criteria")) << log.dump();
}

// The chain with the smaller non-zero mean wins; a tie goes to chain 0.
TEST_F(RttStatisticsTest, ChainChoice) {
    struct Case {
        std::initializer_list<Frame> frames;
        int64_t rtt;
        const char* chain;
    };
    const Case cases[] = {
            {{{30000, -120, 0}, {30000, -120, 0}, {20000, -120, 1}}, 20000, "Chain_1"},
            {{{20000, -120, 0}, {30000, -120, 1}}, 20000, "Chain_0"},
            {{{25000, -120, 0}, {25000, -120, 1}}, 25000, "Chain_0"},
            {{{0, -120, 0}, {26000, -120, 1}}, 26000, "Chain_1"},
            {{{27000, -120, 2}}, 27000, "Chain_0"},  // any index but 1 is chain 0
            {{{0, -120, 1}, {28000, -120, 0}}, 28000, "Chain_0"},
    };
    for (const Case& c : cases) {
        VARNScanMeasurement* peer = newPeer(1, c.frames);
        wifi_rtt_result_v2 result{};
        varn_test::LogCapture log;
        listener_.computeRttMetrics(&result, peer, 0);
        EXPECT_EQ(c.rtt, result.rtt_result.rtt);
        EXPECT_TRUE(log.contains(std::string("02:00:00:00:00:01 RTT ") + c.chain + " Final Mean"))
                << log.dump();
        delete peer;
    }
}

TEST_F(RttStatisticsTest, OnlyTwoSidedMeasurementsAreFiltered) {
    // Median 30000; 200000 lies beyond 5 sigma (105000 ps) at 20 MHz.
    for (eVARNRttType type : {VARN_RTT_TYPE_1_SIDED, VARN_RTT_TYPE_2_SIDED}) {
        VARNScanMeasurement* peer =
                newPeer(2, {{30000}, {30000}, {30000}, {200000}, {30000}}, type);
        wifi_rtt_result_v2 result{};
        listener_.computeRttMetrics(&result, peer, 0);
        if (type == VARN_RTT_TYPE_2_SIDED) {
            EXPECT_EQ(30000, result.rtt_result.rtt);
            EXPECT_EQ(0, result.rtt_result.rtt_spread);
        } else {
            EXPECT_EQ(64000, result.rtt_result.rtt);  // 320000 / 5
            EXPECT_EQ(170000, result.rtt_result.rtt_spread);
            // m=64000; Q=43600000000 is 43599998976 in single precision, so
            // V=23119998976, var=4623999795 and sqrt=67999.99 (exact: 68000).
            EXPECT_EQ(67999, result.rtt_result.rtt_sd);
        }
        delete peer;
    }
}

// Frames at the ends of the 32-bit range: sums that overflow 64 bits are kept
// exact, results beyond their type saturate.
TEST_F(RttStatisticsTest, ExtremeFramesGiveDefinedStatistics) {
    constexpr int32_t kMax = INT32_MAX;
    constexpr int32_t kMin = INT32_MIN;
    struct Case {
        std::initializer_list<int32_t> rtts;
        float mean;
        int32_t spread, stdev, median;
    };
    const Case cases[] = {
            // Q = 3 (2^31-1)^2 > 2^63; as floats Q and n m m are both 3 * 2^62: stdev 0.
            {{kMax, kMax, kMax}, 2147483648.0f, 0, 0, kMax},
            // Q = 2^63 exactly; n m m too.
            {{kMin, kMin}, -2147483648.0f, 0, 0, 0},  // the median's 32-bit sum wraps
            // m = 0 and Q rounds to 2^63 as a float: the deviation saturates at
            // INT64_MAX, its root (2^31) at INT32_MAX, and so does the spread.
            {{kMin, kMax}, 0.0f, kMax, kMax, 0},
    };
    for (const Case& c : cases) {
        std::vector<VARNMeasurementInfo> storage;
        VARNFrameList frames;
        fillFrames(frames, storage, c.rtts);
        float mean = -1;
        int32_t max = -1, min = -1, spread = -1, stdev = -1, median = -1;
        VARNClientListenerImpl::computeStats(frames, mean, max, min, spread, stdev, median, true);
        EXPECT_EQ(c.mean, mean);
        EXPECT_EQ(c.spread, spread);
        EXPECT_EQ(c.stdev, stdev);
        EXPECT_EQ(c.median, median);
    }

    // The reported spread is 64-bit and exact.
    VARNScanMeasurement* peer = newPeer(3, {{kMin}, {kMax}}, VARN_RTT_TYPE_1_SIDED);
    wifi_rtt_result_v2 result{};
    listener_.computeRttMetrics(&result, peer, 0);
    EXPECT_EQ(0, result.rtt_result.rtt);
    EXPECT_EQ(kMax, result.rtt_result.rtt_sd);
    EXPECT_EQ(4294967295, result.rtt_result.rtt_spread);
    delete peer;

    // An RSSI level whose amplitudes leave the double range is taken relative
    // to the strongest frame: max / 2 + 10 log10(sum of 10^((rssi - max) / 20) / n).
    const struct {
        std::initializer_list<Frame> frames;
        int avg;
    } kRssi[] = {
            {{{0, 32767}, {0, -32768}}, 16380},  // 16383.5 + 10 log10(1 / 2)
            {{{0, 32767}, {0, 32765}}, 16383},   // 16383.5 + 10 log10((1 + 0.794) / 2)
            {{{0, -32768}, {0, -32768}}, -16384},
    };
    for (const auto& c : kRssi) {
        peer = newPeer(4, c.frames);
        VARNClientListenerImpl::computeRssiMetrics(&result, peer);
        EXPECT_EQ(-2 * c.avg, result.rtt_result.rssi);
        EXPECT_EQ(peer->measurements[0]->rssi - peer->measurements[1]->rssi,
                  result.rtt_result.rssi_spread);
        delete peer;
    }
}

}  // namespace
