// Ratio benchmarks: every row of the benchmark table compares one path of the
// library with a baseline measured in the same run.
//
// A row is one Google Benchmark benchmark. It times rounds of the candidate
// and of the baseline in alternating order, each round about kRoundSeconds
// long, so that a burst of load from other processes spoils one pair rather
// than the result. Every pair yields one ratio; pairs are added until the
// middle half of the ratios lies within kSpread of their median (at least
// kMinPairs, at most kMaxPairs pairs), and the row reports the median ratio:
//
//   void BM_Decode(benchmark::State& state) {
//       varn_bench::ratio_row(state, "postcard decode / msgpack-c", {1.0, true},
//                             varn_bench::Clock::kThreadCpu,
//                             [&](int64_t ops) { for (...) decode(); },
//                             [&](int64_t ops) { for (...) msgpack(); });
//   }
//   BENCHMARK(BM_Decode)->Iterations(1);
//   int main(int argc, char** argv) { return varn_bench::main(argc, argv); }
//
// After the usual Google Benchmark table, main() prints one line per row,
//   row|<path>|<measured>|<baseline>|<ratio>|<goal>|<met>|<spread>
// which scripts/run_bench.sh gathers from every benchmark into one table.
//
// For instruction counts, VARN_BENCH_PROFILE_OPS=N makes every row run its
// candidate and then its baseline N operations each, once and untimed, in the
// functions profile_candidate() and profile_baseline(); their inclusive cost
// divided by N is the cost per operation:
//
//   VARN_BENCH_PROFILE_OPS=2000 valgrind --tool=callgrind --callgrind-out-file=cg.out
//       out/bench/bench/postcard_bench --benchmark_filter=Decode
//   callgrind_annotate --inclusive=yes cg.out | grep profile_
#pragma once

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace varn_bench {

constexpr double kRoundSeconds = 0.004;
constexpr int kMinPairs = 9;
constexpr int kMaxPairs = 150;
constexpr double kSpread = 0.03;

// What a row must show. A time ratio is candidate time / baseline time; a
// throughput ratio is the inverse (candidate items/s / baseline items/s).
struct Goal {
    double limit = 0.0;   // 0: no goal, the row is informative only
    bool at_most = true;  // ratio <= limit, else ratio >= limit
    bool throughput = false;
};

// An error-checking pthread mutex, the type of every mutex of the library:
// the baselines that lock use it too.
struct ErrorCheckMutex {
    ErrorCheckMutex() {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_init(&mutex, &attr);
        pthread_mutexattr_destroy(&attr);
    }
    ~ErrorCheckMutex() { pthread_mutex_destroy(&mutex); }
    ErrorCheckMutex(const ErrorCheckMutex&) = delete;
    ErrorCheckMutex& operator=(const ErrorCheckMutex&) = delete;
    pthread_mutex_t mutex;
};

enum class Clock {
    kThreadCpu,  // this thread's CPU time: other processes' time slices are not charged
    kWall,       // for work spread over several threads
};

inline double now_ns(Clock clock) {
    timespec t = {};
    clock_gettime(clock == Clock::kThreadCpu ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

struct Row {
    std::string path;
    double measured_ns = 0.0;  // median time per operation of the candidate
    double baseline_ns = 0.0;  // median time per operation of the baseline
    double ratio = 0.0;        // median of the per-pair ratios
    double spread = 0.0;       // interquartile range of the ratios / their median
    int pairs = 0;
    Goal goal;
    std::string note;  // shown after the measured time, e.g. a cost per frame
};

inline std::vector<Row>& rows() {
    static std::vector<Row> all;
    return all;
}

// Out of line: inlined copies of the vector make GCC 12 warn falsely.
__attribute__((noinline)) inline double quantile(const std::vector<double>& samples, double q) {
    if (samples.empty()) return 0.0;
    std::vector<double> values(samples);
    std::sort(values.begin(), values.end());
    const double at = q * static_cast<double>(values.size() - 1);
    const size_t low = static_cast<size_t>(at);
    const size_t high = std::min(low + 1, values.size() - 1);
    return values[low] + (values[high] - values[low]) * (at - static_cast<double>(low));
}

// Time of `ops` operations of `run`, in ns per operation.
template <typename Run>
double time_round(Clock clock, Run& run, int64_t ops) {
    const double start = now_ns(clock);
    run(ops);
    return (now_ns(clock) - start) / static_cast<double>(ops);
}

// Operations per round so that a round lasts about kRoundSeconds, and at
// least `min_ops`; the calibration doubles as a warm-up.
template <typename Run>
int64_t calibrate(Clock clock, Run& run, double round_seconds, int64_t min_ops) {
    int64_t ops = min_ops;
    for (;;) {
        const double ns = time_round(clock, run, ops) * static_cast<double>(ops);
        if (ns >= round_seconds * 1e9 / 8 || ops >= (int64_t{1} << 30)) {
            const double per_op = std::max(ns / static_cast<double>(ops), 1e-3);
            return std::max<int64_t>(min_ops, static_cast<int64_t>(round_seconds * 1e9 / per_op));
        }
        ops *= 2;
    }
}

// Operations per side in the profiling mode (see the top of this file); 0
// when it is off.
inline int64_t profile_ops() {
    const char* text = getenv("VARN_BENCH_PROFILE_OPS");
    return text != nullptr ? std::max(0LL, atoll(text)) : 0;
}

template <typename Run>
__attribute__((noinline)) void profile_candidate(Run& run, int64_t ops) {
    run(ops);
}

template <typename Run>
__attribute__((noinline)) void profile_baseline(Run& run, int64_t ops) {
    run(ops);
}

// Measures one row; see the top of this file. `candidate(ops)` and
// `baseline(ops)` each perform their operation `ops` times (never fewer than
// `min_ops` in a round); a round lasts about `round_seconds`.
template <typename Candidate, typename Baseline>
Row& ratio_row(benchmark::State& state, const std::string& path, Goal goal, Clock clock,
               Candidate candidate, Baseline baseline, double round_seconds = kRoundSeconds,
               int64_t min_ops = 1) {
    Row row;
    row.path = path;
    row.goal = goal;
    std::vector<double> ratios, measured, base;
    if (const int64_t ops = profile_ops()) {
        for (auto _ : state) {
            profile_candidate(candidate, ops);
            profile_baseline(baseline, ops);
        }
        rows().push_back(row);
        return rows().back();
    }
    for (auto _ : state) {
        const int64_t candidate_ops = calibrate(clock, candidate, round_seconds, min_ops);
        const int64_t baseline_ops = calibrate(clock, baseline, round_seconds, min_ops);
        for (int pair = 0; pair < kMaxPairs; ++pair) {
            double c = 0.0;
            double b = 0.0;
            if (pair % 2 == 0) {
                c = time_round(clock, candidate, candidate_ops);
                b = time_round(clock, baseline, baseline_ops);
            } else {
                b = time_round(clock, baseline, baseline_ops);
                c = time_round(clock, candidate, candidate_ops);
            }
            measured.push_back(c);
            base.push_back(b);
            ratios.push_back(goal.throughput ? b / c : c / b);
            if (pair + 1 < kMinPairs) continue;
            const double median = quantile(ratios, 0.5);
            const double iqr = quantile(ratios, 0.75) - quantile(ratios, 0.25);
            if (iqr <= kSpread * median) break;
        }
    }
    row.ratio = quantile(ratios, 0.5);
    row.spread = row.ratio > 0 ? (quantile(ratios, 0.75) - quantile(ratios, 0.25)) / row.ratio : 0;
    row.measured_ns = quantile(measured, 0.5);
    row.baseline_ns = quantile(base, 0.5);
    row.pairs = static_cast<int>(ratios.size());
    state.counters["ratio"] = row.ratio;
    state.counters["measured_ns"] = row.measured_ns;
    state.counters["baseline_ns"] = row.baseline_ns;
    state.counters["pairs"] = row.pairs;
    rows().push_back(row);
    return rows().back();
}

inline std::string format_ns(double ns) {
    char text[32];
    if (ns >= 1e6) {
        snprintf(text, sizeof(text), "%.2f ms", ns / 1e6);
    } else if (ns >= 1e4) {
        snprintf(text, sizeof(text), "%.1f us", ns / 1e3);
    } else {
        snprintf(text, sizeof(text), "%.1f ns", ns);
    }
    return text;
}

inline void print_rows() {
    for (const Row& row : rows()) {
        std::string goal = "-";
        std::string met = "-";
        if (row.goal.limit > 0) {
            char text[32];
            snprintf(text, sizeof(text), "%s %.2f", row.goal.at_most ? "<=" : ">=", row.goal.limit);
            goal = text;
            const bool ok =
                    row.goal.at_most ? row.ratio <= row.goal.limit : row.ratio >= row.goal.limit;
            met = ok ? "yes" : "NO";
        }
        std::string measured = format_ns(row.measured_ns);
        if (!row.note.empty()) measured += " (" + row.note + ")";
        printf("row|%s|%s|%s|%.2f|%s|%s|%.1f%% of %d pairs\n", row.path.c_str(), measured.c_str(),
               format_ns(row.baseline_ns).c_str(), row.ratio, goal.c_str(), met.c_str(),
               100.0 * row.spread, row.pairs);
    }
}

// Runs the registered benchmarks, then prints the rows.
inline int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    print_rows();
    return 0;
}

}  // namespace varn_bench
