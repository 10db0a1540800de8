// RTT statistics: expected figures worked out by hand from the platform's
// integer / single-precision arithmetic.
#include <deque>

#include "listener_test_support.h"

namespace {

using listener_test::Frame;

struct Stats {
    float mean = -1;
    int32_t max = -1, min = -1, spread = -1, stdev = -1, median = -1;
    std::vector<double> all() const {
        return {mean, 1.0 * max, 1.0 * min, 1.0 * spread, 1.0 * stdev, 1.0 * median};
    }
};

class RttStatisticsTest : public listener_test::ListenerTest {
  protected:
    // Frames with the given RTTs and tx/rx bandwidth codes (default 20 MHz).
    VARNFrameList& frames(std::initializer_list<int32_t> rtts, std::vector<uint8_t> tx = {},
                          std::vector<uint8_t> rx = {}) {
        VARNFrameList& list = lists_.emplace_back();
        for (int32_t rtt : rtts) {
            VARNMeasurementInfo& info = storage_.emplace_back();
            info.rtt_ps = rtt;
            if (list.size() < tx.size()) info.tx_rate.bandwidth = tx[list.size()];
            if (list.size() < rx.size()) info.rx_rate.bandwidth = rx[list.size()];
            list.push_back(&info);
        }
        return list;
    }
    static void stats(VARNFrameList& list, Stats& s, bool with_median = true) {
        VARNClientListenerImpl::computeStats(list, s.mean, s.max, s.min, s.spread, s.stdev,
                                             s.median, with_median);
    }
    static void filter(VARNClientListenerImpl& listener, VARNFrameList& list, Stats& s,
                       int32_t bw) {
        listener.filterOutliers(list, s.mean, s.max, s.min, s.spread, s.stdev, s.median, bw);
    }
    std::deque<VARNMeasurementInfo> storage_;
    std::deque<VARNFrameList> lists_;
};

// Truncated integer mean, single-precision variance; at the ends of the 32-bit
// range sums that overflow 64 bits are kept exact, results beyond their type saturate.
TEST_F(RttStatisticsTest, Stats) {
    constexpr double kMax = INT32_MAX;
    constexpr double kMin = INT32_MIN;
    const struct {
        std::initializer_list<int32_t> rtts;
        std::vector<double> want;  // mean, max, min, spread, stdev, median
    } cases[] = {
            // S=700, m=233, Q=210000, V=210000-3*233*233=47133, var=15711, sqrt=125.3
            {{100, 200, 400}, {233, 400, 100, 300, 125, 200}},
            // m=1000166; in single precision Q=3000934191104 (rounded),
            // n*m*m=3000930258944, V=3932160, var=1310720, sqrt=1144.8 (exact
            // integer arithmetic would give 1167).
            {{1000000, 1000100, 1000400}, {1000166, 1000400, 1000000, 400, 1144, 1000100}},
            // The median sorts first and truncates toward zero (-5 / 2).
            {{3, 1, 2}, {2, 3, 1, 2, 0, 2}},
            {{41, 10, 30, 20}, {25, 41, 10, 31, 12, 25}},
            {{50, 10, 40, 20, 30}, {30, 50, 10, 40, 14, 30}},
            {{-3, -2}, {-2, -2, -3, 1, 1, -2}},
            // Rounding can make V slightly negative for equal samples: stdev 0.
            {{5000, 5000}, {5000, 5000, 5000, 0, 0, 5000}},
            {{7}, {7, 7, 7, 0, 0, 7}},
            // Q = 3 (2^31-1)^2 > 2^63; as floats Q and n m m are both 3 * 2^62: stdev 0.
            {{INT32_MAX, INT32_MAX, INT32_MAX}, {2147483648.0, kMax, kMax, 0, 0, kMax}},
            // Q = 2^63 exactly; n m m too. The median's 32-bit sum wraps.
            {{INT32_MIN, INT32_MIN}, {kMin, kMin, kMin, 0, 0, 0}},
            // m = 0 and Q rounds to 2^63 as a float: the deviation saturates at
            // INT64_MAX, its root (2^31) at INT32_MAX, and so does the spread.
            {{INT32_MIN, INT32_MAX}, {0, kMax, kMin, kMax, kMax, 0}},
    };
    varn_test::LogCapture sorted;
    for (const auto& c : cases) {
        Stats s;
        stats(frames(c.rtts), s);
        EXPECT_EQ(c.want, s.all());
    }
    EXPECT_TRUE(sorted.contains("computeMedian: After sort rtt ps array  10 20 30 40 50"));
    // Without frames nothing is written; without the median it stays.
    Stats s;
    stats(frames({}), s);
    EXPECT_EQ(Stats().all(), s.all());
    stats(frames({10, 30}), s, false);
    EXPECT_EQ((std::vector<double>{20, 30, 10, 20, 10, -1}), s.all());
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
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(c.weight, VARNClientListenerImpl::getRTTWeightedFactor(c.tx_pre, c.rx_pre,
                                                                         c.tx_bw, c.rx_bw));
    }
}

TEST_F(RttStatisticsTest, WeightedMean) {
    // Legacy preamble at 20 MHz weighs 1/64, VHT at 160 MHz weighs 1.
    VARNFrameList& list = frames({1000, 2000}, {0, 3}, {0, 3});
    storage_[1].tx_rate.preamble = storage_[1].rx_rate.preamble = 3;
    float mean = 0;
    VARNClientListenerImpl::computeMean(list, mean);
    EXPECT_EQ(1500.0f, mean);
    g_weighted_mean = 1;
    VARNClientListenerImpl::computeMean(list, mean);
    EXPECT_FLOAT_EQ(129000.0f / 65.0f, mean);  // (1000/64 + 2000) / (1 + 1/64)

    // Every weight zero (bandwidth mismatch on an HT frame): the mean stays.
    storage_[1].rx_rate.bandwidth = 1;
    VARNFrameList zero;
    zero.push_back(&storage_[1]);
    VARNClientListenerImpl::computeMean(zero, mean);
    EXPECT_FLOAT_EQ(129000.0f / 65.0f, mean);
}

TEST_F(RttStatisticsTest, OutlierFilter) {
    // Two frames are never filtered.
    Stats s;
    filter(listener_, frames({1000, 900000}), s, 0);
    EXPECT_EQ(Stats().all(), s.all());

    // Multiplier 10 (one standard deviation): 20 MHz tolerance 21000 ps,
    // inclusive at both edges.
    VARNClientListenerImpl one_sigma(10);
    const int32_t m = 100000;
    VARNFrameList& edges = frames({m - 21001, m - 21000, m, m + 21000, m + 21001});
    s.median = m;
    filter(one_sigma, edges, s, 0);
    EXPECT_EQ(3u, edges.size());
    s.stdev = -1;  // not pinned here
    EXPECT_EQ((std::vector<double>{m, m + 21000, m - 21000, 42000, -1, m}), s.all());

    // The tolerance follows the smaller of the two bandwidths (here 40 MHz: 9270 ps).
    VARNFrameList& mixed = frames({m, m + 9270, m + 9271}, {1, 1, 1}, {2, 2, 2});
    filter(one_sigma, mixed, s, 0);
    EXPECT_EQ(2u, mixed.size());
    EXPECT_EQ(m + 9270, s.max);

    // The default five deviations at 160 MHz: 28000 ps.
    VARNFrameList& wide = frames({m, m + 28000, m + 28001}, {3, 3, 3}, {3, 3, 3});
    s.median = m;
    filter(listener_, wide, s, 0);
    EXPECT_EQ(2u, wide.size());

    // An invalid bandwidth keeps the frame, however far from the median.
    VARNFrameList& invalid = frames({5000000, 5000000, 5000000}, {4, 4, 4}, {4, 4, 4});
    filter(listener_, invalid, s, 0);
    EXPECT_EQ(3u, invalid.size());
}

TEST_F(RttStatisticsTest, BandwidthMismatchFiltering) {
    g_discard_bw_mis_match = 1;
    Stats s;
    filter(listener_, frames({1000, 2000, 3000, 4000}, {2, 2, 1, 2}, {2, 1, 2, 2}), s, 2);
    EXPECT_EQ(2500.0f, s.mean);  // frames 1000 and 4000

    // Nothing left: mean, max, min and spread are cleared, the rest stays.
    VARNFrameList& none = frames({1000, 2000, 3000}, {2, 2, 1}, {2, 1, 2});
    s.stdev = 77;
    s.median = 55;
    filter(listener_, none, s, 3);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ((std::vector<double>{0, 0, 0, 0, 77, 55}), s.all());
}

// The chain with the smaller non-zero mean wins (a tie goes to chain 0); only
// two-sided measurements are filtered.
TEST_F(RttStatisticsTest, RttMetrics) {
    struct Case {
        std::initializer_list<Frame> frames;
        eVARNRttType type;
        int64_t rtt, sd, spread;
        const char* line;
    };
    constexpr auto k1 = VARN_RTT_TYPE_1_SIDED, k2 = VARN_RTT_TYPE_2_SIDED;
    const char* const kEmpty = "Chain_0 Final Mean:0.0000 Max:0 Min:0 Spread:0 Stdev:0 median: 0";
    const Case cases[] = {
            {{{30000}, {30000}, {20000, -120, 1}}, k2, 20000, 0, 0, "Chain_1"},
            {{{20000}, {30000, -120, 1}}, k2, 20000, 0, 0, "Chain_0"},
            {{{25000}, {25000, -120, 1}}, k2, 25000, 0, 0, "Chain_0"},
            {{{0}, {26000, -120, 1}}, k2, 26000, 0, 0, "Chain_1"},
            {{{27000, -120, 2}}, k2, 27000, 0, 0, "Chain_0"},  // any index but 1 is chain 0
            {{{0, -120, 1}, {28000}}, k2, 28000, 0, 0, "Chain_0"},
            {{{29000, -120, 1}, {29000, -120, 1}}, k2, 29000, 0, 0, "Chain_1"},
            // Chain 1 alone with a zero mean: the empty chain 0 is reported.
            {{{0, -120, 1}}, k2, 0, 0, 0, kEmpty},
            // Median 30000; 200000 lies beyond 5 sigma (105000 ps) at 20 MHz.
            {{{30000}, {30000}, {30000}, {200000}, {30000}}, k2, 30000, 0, 0, "Chain_0"},
            // Not filtered: mean 320000 / 5; Q=43600000000 is 43599998976 in single
            // precision, so V=23119998976, var=4623999795, sqrt=67999.99 (exact: 68000).
            {{{30000}, {30000}, {30000}, {200000}, {30000}}, k1, 64000, 67999, 170000, "Chain_0"},
            // Frames at both ends of the 32-bit range: the spread is 64-bit and exact.
            {{{INT32_MIN}, {INT32_MAX}}, k1, 0, INT32_MAX, 4294967295, "Chain_0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rtt);
        std::unique_ptr<VARNScanMeasurement> peer(listener_test::newPeer(1, c.frames, c.type));
        wifi_rtt_result_v2 result{};
        varn_test::LogCapture log;
        listener_.computeRttMetrics(&result, peer.get(), 0);
        const wifi_rtt_result& r = result.rtt_result;
        EXPECT_EQ((std::vector<int64_t>{c.rtt, c.sd, c.spread}),
                  (std::vector<int64_t>{r.rtt, r.rtt_sd, r.rtt_spread}));
        EXPECT_TRUE(log.contains(std::string("02:00:00:00:00:01 RTT ") + c.line)) << log.dump();
    }
}

}  // namespace
