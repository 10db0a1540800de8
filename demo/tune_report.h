// Figures and pictures of a tuning run: what each setting of the library's
// three ranging keys made of the same ranging responses.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace varn_tune {

// The configuration-file values one run uses.
struct Setting {
    int stdev_mult = 50;    // VARN_WIFIHAL_STDEV_MULT, tenths of a deviation
    int weighted_mean = 0;  // VARN_RTT_WEIGHTED_MEAN
    int bw_mismatch = 0;    // VARN_WIFIHAL_BW_MISMATCH

    bool operator==(const Setting& other) const {
        return stdev_mult == other.stdev_mult && weighted_mean == other.weighted_mean &&
               bw_mismatch == other.bw_mismatch;
    }
    // "mult 5.0 wmean 0 bwmm 0"
    std::string label() const;
    // The three configuration-file lines, each ending in '\n'.
    std::string configLines() const;
};

// One ranging result handed to the HAL, with the peer's true distance.
struct Sample {
    int bw_mhz = 0;          // from packet_bw; 0 when unspecified
    bool succeeded = false;  // status RTT_STATUS_SUCCESS
    double true_m = 0;       // NaN when the trace does not know it
    double measured_m = 0;   // distance_mm / 1000
};

// Error figures over the samples that succeeded and whose truth is known;
// the error is measured - true. Mean, RMS and p95 are NaN when there is none.
struct Figures {
    size_t results = 0;    // samples considered (succeeded or not)
    size_t succeeded = 0;  // of which succeeded
    size_t scored = 0;     // of which succeeded with a known truth
    double mean_m = 0;
    double rms_m = 0;
    double p95_abs_m = 0;  // 95th percentile of |error|
};

// Percentile `p` (0..100) of `values` by linear interpolation between the
// closest ranks (position (n - 1) p / 100 of the sorted values); NaN values
// are left out; NaN when none is left.
double percentile(std::vector<double> values, double p);

// Figures over the samples of one bandwidth, or of all with `bw_mhz` 0.
Figures figuresOf(const std::vector<Sample>& samples, int bw_mhz = 0);

struct SettingRun {
    Setting setting;
    std::vector<Sample> samples;
};

// The best run: the lowest RMS error among the runs that kept at least 95 %
// of the largest number of successful results of a run that scored (an
// aggressive filter must not win by dropping the hard peers); ties go to more
// successes, then to the earlier run. runs.size() when no run scored anything.
size_t bestRun(const std::vector<SettingRun>& runs);

// The table: per run one "all" row, then one row per bandwidth seen in any
// run, with ok/total, mean, RMS and p95 |error|. The best run is marked '*'
// and the library's defaults "(default)"; `default_index` may be runs.size().
void printTable(FILE* out, const std::vector<SettingRun>& runs, size_t best, size_t default_index);

// A self-contained SVG: a box plot of the error per run (box: quartiles and
// median; whiskers: 5th and 95th percentiles; values beyond drawn as dots),
// and the error against true distance for the best and the default runs.
std::string renderSvg(const std::vector<SettingRun>& runs, size_t best, size_t default_index,
                      const std::string& title);

}  // namespace varn_tune
