// RTT statistics of one peer: frame weights, mean, median, spread, standard
// deviation, outlier removal and the choice between the two receive chains.
//
// The arithmetic is fixed to the bit: integer sums, a truncated integer mean
// and a single-precision variance, so that results match the figures the
// platform has always reported. Each step is a separate statement so that no
// compiler contracts it into a fused multiply-add.
#include <varn_wifihal.h>
#include <vel_loc_fw/log_util.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "listener/listener_internal.h"
#include "listener/varn_client_listener_impl.h"

namespace fw = vel_loc_fw;

namespace {

// Appends " %d" per value to `prefix` and logs the line at verbose level.
void logRttArray(const char* title, const int32_t* values, uint32_t count) {
    char line[480];
    int used = snprintf(line, sizeof(line), "%s: %s", "computeMedian", title);
    for (uint32_t i = 0; i < count && used > 0 && static_cast<size_t>(used) < sizeof(line); ++i) {
        used += snprintf(line + used, sizeof(line) - static_cast<size_t>(used), " %d", values[i]);
    }
    VARN_LOG_VERBOSE(kListenerTag, "%s", line);
}

}  // namespace

float VARNClientListenerImpl::getRTTWeightedFactor(uint8_t tx_preamble, uint8_t rx_preamble,
                                                   uint8_t tx_bw, uint8_t rx_bw) {
    if (tx_preamble != 0) {
        static const float kMatched[4] = {0.015625f, 0.0625f, 0.25f, 1.0f};
        if (rx_bw != tx_bw || rx_preamble != tx_preamble || tx_bw > 3) return 0.0f;
        return kMatched[tx_bw];
    }
    // Legacy transmit preamble.
    if (rx_preamble == 0) return 0.015625f;
    static const float kLegacy[4] = {0.015625f, 0.025f, 1.0f / 34.0f, 1.0f / 32.5f};
    if (rx_bw >= 4) return 0.0f;
    return kLegacy[rx_bw];
}

void VARNClientListenerImpl::computeMean(const VARNFrameList& frames, float& mean) {
    fw::log_info(kListenerTag, "%s: Weighted mean %s", "computeMean",
                 g_weighted_mean != 0 ? "Enabled" : "Disabled");
    const bool debug = fw::is_log_level_enabled(kListenerTag, fw::EL_DEBUG);
    float sum = 0.0f;
    float count = 0.0f;
    for (uint32_t i = 0; i < frames.size(); ++i) {
        const VARNMeasurementInfo* frame = frames[i];
        const float factor =
                g_weighted_mean != 0
                        ? getRTTWeightedFactor(frame->tx_rate.preamble, frame->rx_rate.preamble,
                                               frame->tx_rate.bandwidth, frame->rx_rate.bandwidth)
                        : 1.0f;
        if (debug) {
            fw::log_debug(kListenerTag, "%s: TX chain: %d RX: chain: %d rtt_ps: %d, factor: %.4f",
                          "computeMean", frame->tx_chain_index, frame->rx_chain_index,
                          frame->rtt_ps, static_cast<double>(factor));
        }
        const float weighted = factor * static_cast<float>(frame->rtt_ps);
        sum += weighted;
        count += factor;
    }
    if (count != 0.0f) mean = sum / count;
    VARN_LOG_VERBOSE(kListenerTag, "sum:%.4f count:%.4f mean:%.4f", static_cast<double>(sum),
                     static_cast<double>(count), static_cast<double>(mean));
}

int32_t VARNClientListenerImpl::computeMedian(int32_t* values, uint32_t count) {
    const bool verbose = fw::is_log_verbose_enabled(kListenerTag);
    if (verbose) logRttArray("Befor sort rtt ps array ", values, count);
    std::sort(values, values + count);
    if (verbose) logRttArray("After sort rtt ps array ", values, count);
    if (count == 0) return 0;
    if (count % 2 != 0) return values[count / 2];
    // Signed 32-bit sum as the platform computes it (wrapping rather than
    // undefined for out-of-range sums), then truncating division.
    const int32_t sum = static_cast<int32_t>(static_cast<uint32_t>(values[count / 2 - 1]) +
                                             static_cast<uint32_t>(values[count / 2]));
    return sum / 2;
}

void VARNClientListenerImpl::computeStats(const VARNFrameList& frames, float& mean, int32_t& max,
                                          int32_t& min, int32_t& spread, int32_t& stdev,
                                          int32_t& median, bool with_median) {
    if (frames.empty()) {
        fw::log_debug(kListenerTag, "%s: Emtpy vector for stats computation", "computeStats");
        return;
    }
    const uint32_t n = frames.size();
    int64_t sum = 0;
    // 128 bits: each square reaches 2^62, so 64 bits overflow from the second
    // frame on; the wide sum is exact and equals the 64-bit one wherever that
    // one did not overflow (and converts to the same float).
    __int128 sum_of_squares = 0;
    int32_t high = frames[0]->rtt_ps;
    int32_t low = frames[0]->rtt_ps;
    for (uint32_t i = 0; i < n; ++i) {
        const int32_t rtt = frames[i]->rtt_ps;
        sum += rtt;
        sum_of_squares += static_cast<int64_t>(rtt) * rtt;
        if (rtt > high) high = rtt;
        if (rtt < low) low = rtt;
    }
    const int64_t int_mean = sum / static_cast<int64_t>(n);
    mean = static_cast<float>(int_mean);

    const float n_f = static_cast<float>(n);
    const float m_f = static_cast<float>(int_mean);
    const float n_m = n_f * m_f;
    const float n_m_m = n_m * m_f;
    const float q_f = static_cast<float>(sum_of_squares);
    const float deviation = q_f - n_m_m;
    // Frames far apart (or rounding at 2^63) can put the deviation outside
    // the 64-bit range: it saturates at the nearer limit.
    const int64_t deviation_int = deviation >= 0x1p63f   ? INT64_MAX
                                  : deviation < -0x1p63f ? INT64_MIN
                                                         : static_cast<int64_t>(deviation);
    const int64_t variance = deviation_int / static_cast<int64_t>(n);
    // Rounding can leave a tiny negative variance for equal samples; its
    // square root is NaN, which the target converts to 0. A root beyond the
    // 32-bit range (frames at both ends of it) saturates at INT32_MAX.
    stdev = variance > 0 ? static_cast<int32_t>(std::min(std::sqrt(static_cast<double>(variance)),
                                                         static_cast<double>(INT32_MAX)))
                         : 0;
    max = high;
    min = low;
    // Frames at both ends of the 32-bit range give a spread beyond it: it
    // saturates at INT32_MAX.
    const int64_t wide_spread = static_cast<int64_t>(high) - low;
    spread = wide_spread > INT32_MAX ? INT32_MAX : static_cast<int32_t>(wide_spread);

    if (with_median) {
        varn_listener::InlineArray<int32_t, 64> copy;
        for (uint32_t i = 0; i < n; ++i) {
            if (copy.push_back(frames[i]->rtt_ps) != 0) {
                fw::log_error(kListenerTag, "%s: memory allocation error", "computeStats");
                return;
            }
        }
        median = computeMedian(copy.data(), copy.size());
    }
}

void VARNClientListenerImpl::filterOutliers(VARNFrameList& frames, float& mean, int32_t& max,
                                            int32_t& min, int32_t& spread, int32_t& stdev,
                                            int32_t& median, int32_t requested_bw) {
    if (frames.size() <= 2) {
        fw::log_debug(kListenerTag, "%s: Too few elements %d", "filterOutliers",
                      static_cast<int>(frames.size()));
        return;
    }
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: RTT before Filter Mean:%.4f Max:%d Min:%d Spread:%d Stdev:%d "
                     "medianVal: %d",
                     "filterOutliers", static_cast<double>(mean), max, min, spread, stdev, median);

    uint32_t i = 0;
    while (i < frames.size()) {
        const VARNMeasurementInfo* frame = frames[i];
        const int32_t rx_bw = frame->rx_rate.bandwidth;
        const int32_t tx_bw = frame->tx_rate.bandwidth;
        if (g_discard_bw_mis_match == 0) {
            const int32_t index = std::min(rx_bw, tx_bw);
            if (index >= 4) {
                fw::log_warning(kListenerTag, "%s: Invalid bandwidth %d", "filterOutliers", index);
                ++i;
                continue;
            }
            // 64-bit so that a large configured multiplier cannot overflow.
            const int64_t tolerance =
                    static_cast<int64_t>(stdev_multiplier_) * RTT_STDEV[index] / 10;
            const int64_t rtt = frame->rtt_ps;
            if (rtt > median + tolerance || rtt < median - tolerance) {
                fw::log_debug(kListenerTag, "%s: Removed outlier at %d, val %d", "filterOutliers",
                              static_cast<int>(i), frame->rtt_ps);
                frames.erase(i);
                continue;
            }
        } else if (rx_bw != requested_bw || tx_bw != requested_bw) {
            fw::log_debug(kListenerTag, "Dropping due to Tx/Rx BW is not equals of req BW");
            frames.erase(i);
            continue;
        }
        ++i;
    }

    if (frames.empty()) {
        fw::log_warning(kListenerTag, "%s: No measurements meet criteria\n", "filterOutliers");
        mean = 0.0f;
        max = 0;
        min = 0;
        spread = 0;
        return;
    }
    computeStats(frames, mean, max, min, spread, stdev, median, false);
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: RTT after Filter Mean:%.4f Max:%d Min:%d Spread:%d Stdev:%d "
                     "medianVal: %d",
                     "filterOutliers", static_cast<double>(mean), max, min, spread, stdev, median);
    computeMean(frames, mean);
}

void VARNClientListenerImpl::computeRttMetrics(wifi_rtt_result_v2* result,
                                               const VARNScanMeasurement* measurement,
                                               int32_t requested_bw) {
    VARN_LOG_VERBOSE(kListenerTag, "@computeRttMetrics()");

    struct ChainStats {
        VARNFrameList frames;
        float mean = 0.0f;
        int32_t max = 0;
        int32_t min = 0;
        int32_t spread = 0;
        int32_t stdev = 0;
        int32_t median = 0;
    };
    ChainStats chains[2];

    const vel_loc_fw::vector<VARNMeasurementInfo*>& frames = measurement->measurements;
    for (uint32_t i = 0; i < frames.size(); ++i) {
        VARNMeasurementInfo* frame = frames[i];
        if (frame == nullptr) continue;
        if (chains[frame->rx_chain_index == 1 ? 1 : 0].frames.push_back(frame) != 0) {
            fw::log_error(kListenerTag, "%s: memory allocation error", "computeRttMetrics");
            return;
        }
    }

    for (ChainStats& chain : chains) {
        if (chain.frames.empty()) continue;
        computeStats(chain.frames, chain.mean, chain.max, chain.min, chain.spread, chain.stdev,
                     chain.median, true);
        if (measurement->rtt_type == VARN_RTT_TYPE_2_SIDED) {
            filterOutliers(chain.frames, chain.mean, chain.max, chain.min, chain.spread,
                           chain.stdev, chain.median, requested_bw);
        }
    }

    // The smaller non-zero mean wins; a tie goes to chain 0.
    const bool use_chain_1 = !chains[1].frames.empty() && chains[1].mean != 0.0f &&
                             (chains[0].mean == 0.0f || chains[1].mean < chains[0].mean);
    const ChainStats& chosen = chains[use_chain_1 ? 1 : 0];

    const BssidDigits bssid = bssidDigits(measurement->bssid, false);
    fw::log_debug(kListenerTag,
                  "%s: " VARN_BSSID_FMT
                  " RTT %s Final Mean:%.4f Max:%d Min:%d Spread:%d Stdev:%d median: %d",
                  "computeRttMetrics", VARN_BSSID_ARGS(bssid), use_chain_1 ? "Chain_1" : "Chain_0",
                  static_cast<double>(chosen.mean), chosen.max, chosen.min, chosen.spread,
                  chosen.stdev, chosen.median);

    result->rtt_result.rtt = static_cast<wifi_timespan>(chosen.mean);
    result->rtt_result.rtt_sd = chosen.stdev;
    // In 64 bits: exact also when the frames span more than the 32-bit range.
    result->rtt_result.rtt_spread = static_cast<int64_t>(chosen.max) - chosen.min;
}
