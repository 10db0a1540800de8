// Runs ranging responses through the library as a vendor HAL would: one
// range request at a time, results taken from the HAL callback.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <hardware_legacy/rtt.h>
#include <varn_sim/simulator.h>
#include <varn_sim/trace.h>

#include "tune_report.h"

namespace varn_tune {

// Called after each request with the number done and the number to do.
using Progress = std::function<void(size_t done, size_t total)>;

// The HAL request that makes the library send `node` (the inverse of its
// request conversion for every field it sends).
wifi_rtt_config configOf(const VARNPeriodicNodeInfo& node);

// Records `rounds` rounds of ranging to every access point of `scenario`
// (the framework's request for each), produced by the simulated service's
// physical model, into `trace`. Runs the library with its defaults.
bool recordScenario(const varn_sim::Scenario& scenario, int rounds, varn_sim::Trace* trace,
                    std::string* error, const Progress& progress = {});

// Replays every response of `trace` that has peers through the library
// configured with `setting`: one sample per result of each request, with the
// true distance of its peer (NaN when the trace does not know it).
bool runSetting(const varn_sim::Trace& trace, const Setting& setting, std::vector<Sample>* samples,
                std::string* error, const Progress& progress = {});

}  // namespace varn_tune
