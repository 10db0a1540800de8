// Runs the registered benchmarks and prints, after the usual table, the time
// per iteration of each named benchmark relative to a baseline measured in
// the same run:
//
//   int main(int argc, char** argv) {
//       return varn_bench::run_with_ratios(argc, argv, "BM_Floor",
//                                          {"BM_Candidate"});
//   }
//
// Each ratio line reads "ratio BM_Candidate / BM_Floor = 1.12".
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace varn_bench {

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
            // The fastest repetition, in CPU time: other load on a shared
            // machine only ever adds time.
            const double t = run.GetAdjustedCPUTime();
            auto it = ns_per_iteration_.find(run.run_name.function_name);
            if (it == ns_per_iteration_.end() || t < it->second) {
                ns_per_iteration_[run.run_name.function_name] = t;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double time_of(const std::string& name) const {
        auto it = ns_per_iteration_.find(name);
        return it == ns_per_iteration_.end() ? 0.0 : it->second;
    }

  private:
    std::map<std::string, double> ns_per_iteration_;
};

inline int run_with_ratios(int argc, char** argv, const std::string& baseline,
                           const std::vector<std::string>& candidates) {
    // Five repetitions unless the command line says otherwise.
    std::vector<char*> args(argv, argv + argc);
    std::string repetitions = "--benchmark_repetitions=5";
    bool has_repetitions = false;
    for (char* arg : args) has_repetitions |= std::string(arg).rfind("--benchmark_repetitions", 0) == 0;
    if (!has_repetitions) args.push_back(&repetitions[0]);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double base = reporter.time_of(baseline);
    for (const std::string& name : candidates) {
        const double t = reporter.time_of(name);
        if (base > 0 && t > 0) printf("ratio %s / %s = %.2f\n", name.c_str(), baseline.c_str(), t / base);
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace varn_bench
