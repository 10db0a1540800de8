// Which configuration gives the best distances: replays the same ranging
// responses through the library for a grid of settings of its three ranging
// keys and prints, per setting, how far the distances are from the truth.
//
//   varn_tune [--scenario FILE [--rounds N] [--seed N] [--record FILE] | --trace FILE]
//             [--mult LIST] [--weighted-mean LIST] [--bw-mismatch LIST] [--svg FILE]
//
// With a scenario (the built-in one by default) the simulated service ranges
// every access point N times first; that recording is what every setting
// sees, so settings differ by the library's arithmetic alone.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <varn_sim/simulator.h>
#include <varn_sim/trace.h>

#include "demo_support.h"
#include "tune_report.h"
#include "tune_runner.h"

namespace {

struct Options {
    std::string scenario_path, trace_path, record_path, svg_path = "varn_tune.svg";
    int rounds = 50;
    bool has_seed = false;
    uint64_t seed = 0;
    std::vector<int> mults = {10, 15, 20, 30, 50, 100};
    std::vector<int> weighted_means = {0, 1};
    std::vector<int> bw_mismatches = {0, 1};
};

void usage(FILE* out) {
    fprintf(out,
            "usage: varn_tune [--scenario FILE [--rounds N] [--seed N] [--record FILE] | --trace "
            "FILE]\n"
            "                 [--mult LIST] [--weighted-mean LIST] [--bw-mismatch LIST] [--svg "
            "FILE]\n"
            "  --scenario FILE      simulated world to range in (default: built-in)\n"
            "  --rounds N           ranging rounds of the scenario (default 50)\n"
            "  --seed N             seed of the simulation\n"
            "  --record FILE        also write the scenario's ranging responses as a trace\n"
            "  --trace FILE         replay a recorded trace instead of a scenario\n"
            "  --mult LIST          VARN_WIFIHAL_STDEV_MULT values, tenths (default "
            "10,15,20,30,50,100)\n"
            "  --weighted-mean LIST VARN_RTT_WEIGHTED_MEAN values (default 0,1)\n"
            "  --bw-mismatch LIST   VARN_WIFIHAL_BW_MISMATCH values (default 0,1)\n"
            "  --svg FILE           the plot (default varn_tune.svg)\n");
}

bool parseInt(const char* text, long lo, long hi, long* out) {
    char* end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < lo || value > hi) return false;
    *out = value;
    return true;
}

bool parseList(const std::string& text, long lo, long hi, std::vector<int>* out) {
    out->clear();
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) {
        long value = 0;
        if (!parseInt(item.c_str(), lo, hi, &value)) return false;
        out->push_back(static_cast<int>(value));
    }
    return !out->empty();
}

bool parseOptions(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            exit(0);
        }
        if (i + 1 >= argc) {
            fprintf(stderr, "varn_tune: unknown or incomplete option: %s\n", arg.c_str());
            usage(stderr);
            return false;
        }
        const char* value = argv[++i];
        long number = 0;
        bool ok = true;
        if (arg == "--scenario") {
            o->scenario_path = value;
        } else if (arg == "--trace") {
            o->trace_path = value;
        } else if (arg == "--record") {
            o->record_path = value;
        } else if (arg == "--svg") {
            o->svg_path = value;
        } else if (arg == "--rounds") {
            ok = parseInt(value, 1, 100000, &number);
            o->rounds = static_cast<int>(number);
        } else if (arg == "--seed") {
            ok = parseInt(value, 0, LONG_MAX, &number);
            o->has_seed = true;
            o->seed = static_cast<uint64_t>(number);
        } else if (arg == "--mult") {
            ok = parseList(value, INT32_MIN, INT32_MAX, &o->mults);
        } else if (arg == "--weighted-mean") {
            ok = parseList(value, 0, 1, &o->weighted_means);
        } else if (arg == "--bw-mismatch") {
            ok = parseList(value, 0, 1, &o->bw_mismatches);
        } else {
            fprintf(stderr, "varn_tune: unknown option: %s\n", arg.c_str());
            usage(stderr);
            return false;
        }
        if (!ok) {
            fprintf(stderr, "varn_tune: bad value for %s: %s\n", arg.c_str(), value);
            return false;
        }
    }
    if (!o->trace_path.empty() && (!o->scenario_path.empty() || !o->record_path.empty())) {
        fprintf(stderr, "varn_tune: --trace replays a recording: no --scenario or --record\n");
        return false;
    }
    return true;
}

// "\r  <what> k/n" on a terminal, for runs long enough to wonder about.
class ProgressLine {
  public:
    ProgressLine() : shown_(isatty(STDERR_FILENO) != 0) {}
    varn_tune::Progress about(std::string what) {
        if (!shown_) return {};
        return [what](size_t done, size_t total) {
            fprintf(stderr, "\r  %s %zu/%zu%s", what.c_str(), done, total,
                    done == total ? "\r\033[K" : "");
            fflush(stderr);
        };
    }

  private:
    bool shown_;
};

bool loadTrace(const Options& o, varn_sim::Trace* trace, std::string* source) {
    ProgressLine progress;
    if (!o.trace_path.empty()) {
        std::vector<std::string> problems;
        const bool ok = varn_sim::Trace::parseFile(o.trace_path, trace, &problems);
        for (const std::string& p : problems) {
            fprintf(stderr, "varn_tune: %s: %s\n", o.trace_path.c_str(), p.c_str());
        }
        if (ok && !problems.empty()) {
            fprintf(stderr, "varn_tune: %zu bad line(s) skipped\n", problems.size());
        }
        *source = "trace " + o.trace_path;
        return ok;
    }
    varn_sim::Scenario scenario;
    if (!varn_demo::loadScenario("varn_tune", o.scenario_path, &scenario)) return false;
    if (o.has_seed) scenario.seed = o.seed;
    std::string error;
    if (!varn_tune::recordScenario(scenario, o.rounds, trace, &error,
                                   progress.about("recording round"))) {
        fprintf(stderr, "varn_tune: %s\n", error.c_str());
        return false;
    }
    if (!o.record_path.empty() && !trace->writeFile(o.record_path, &error)) {
        fprintf(stderr, "varn_tune: %s\n", error.c_str());
        return false;
    }
    *source = std::to_string(o.rounds) + " rounds of the " +
              (o.scenario_path.empty() ? "built-in scenario" : "scenario " + o.scenario_path) +
              " (seed " + std::to_string(scenario.seed) + ")";
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parseOptions(argc, argv, &o)) return 2;
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.reset();
    sim.setAutoScan(false);

    varn_sim::Trace trace;
    std::string source;
    if (!loadTrace(o, &trace, &source)) return 1;

    std::vector<varn_tune::SettingRun> runs;
    for (int mult : o.mults) {
        for (int wmean : o.weighted_means) {
            for (int bwmm : o.bw_mismatches) runs.push_back({{mult, wmean, bwmm}, {}});
        }
    }
    // The defaults are always shown, for comparison.
    const varn_tune::Setting defaults;
    size_t default_index = 0;
    while (default_index < runs.size() && !(runs[default_index].setting == defaults))
        ++default_index;
    if (default_index == runs.size()) runs.push_back({defaults, {}});

    ProgressLine progress;
    for (size_t i = 0; i < runs.size(); ++i) {
        std::string error;
        if (!varn_tune::runSetting(trace, runs[i].setting, &runs[i].samples, &error,
                                   progress.about("setting " + std::to_string(i + 1) + "/" +
                                                  std::to_string(runs.size()) + ", request"))) {
            fprintf(stderr, "varn_tune: %s: %s\n", runs[i].setting.label().c_str(), error.c_str());
            return 1;
        }
    }

    const size_t best = varn_tune::bestRun(runs);
    printf("Ranging errors (measured - true distance) over %s, %zu settings\n\n", source.c_str(),
           runs.size());
    varn_tune::printTable(stdout, runs, best, default_index);
    if (best < runs.size()) {
        printf("\nBest setting (*): %s. Configuration-file lines:\n\n%s",
               runs[best].setting.label().c_str(), runs[best].setting.configLines().c_str());
    } else {
        printf("\nNo setting produced a successful result with a known true distance.\n");
    }
    std::ofstream svg(o.svg_path, std::ios::trunc);
    svg << varn_tune::renderSvg(runs, best, default_index, "Ranging error per setting: " + source);
    svg.close();
    if (!svg) {
        fprintf(stderr, "varn_tune: cannot write %s\n", o.svg_path.c_str());
        return 1;
    }
    printf("\nPlot written to %s\n", o.svg_path.c_str());
    return 0;
}
