// Ranging traces through the library, and the tuning tool's figures.
#include <string.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <loc_utils/loc_utils.h>
#include <varn_sim/simulator.h>
#include <varn_wifihal.h>

#include "demo_support.h"
#include "log_capture.h"
#include "tune_report.h"
#include "tune_runner.h"

namespace {

using varn_sim::Simulator;
using varn_sim::Trace;

// One result as the HAL got it: the record's bytes with its conversion time
// stamp and block pointers cleared, and the blocks' bytes.
struct Got {
    wifi_rtt_result_v2 record;
    std::vector<unsigned char> blocks;
};
std::vector<Got> g_got;

std::vector<unsigned char> blockBytes(const wifi_information_element* e) {
    if (e == nullptr) return {0xff};  // distinct from an empty element
    const auto* bytes = reinterpret_cast<const unsigned char*>(e);
    return std::vector<unsigned char>(bytes, bytes + 2 + e->len);
}

void onResults(wifi_request_id, unsigned n, wifi_rtt_result_v2* results[]) {
    for (unsigned i = 0; i < n; ++i) {
        Got got;
        memcpy(&got.record, results[i], sizeof(got.record));
        wifi_rtt_result& r = got.record.rtt_result;
        got.blocks = blockBytes(r.LCI);
        for (unsigned char b : blockBytes(r.LCR)) got.blocks.push_back(b);
        if (i > 0) free(r.LCI), free(r.LCR);
        r.LCI = r.LCR = nullptr;
        r.ts = 0;
        g_got.push_back(got);
    }
}

class TraceReplayTest : public testing::Test {
  protected:
    void SetUp() override {
        sim_.reset();
        sim_.setAutoScan(false);
        g_got.clear();
    }
    void TearDown() override {
        varn_wifihal_destroy();
        loc_utils_set_varn_conf_path(nullptr);
        sim_.reset();
    }
    void up(const varn_tune::Setting& setting) {
        varn_wifihal_destroy();
        config_ = varn_test::write_temp_file(setting.configLines());
        loc_utils_set_varn_conf_path(config_.c_str());
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        sim_.setAirTimeMs(0);
    }
    // One request per element of `requests`; returns every result in order.
    std::vector<Got> range(const std::vector<std::vector<wifi_rtt_config>>& requests) {
        g_got.clear();
        for (size_t i = 0; i < requests.size(); ++i) {
            std::vector<wifi_rtt_config> configs = requests[i];
            sim_.setDeliveryHeld(true);
            EXPECT_EQ(WIFI_SUCCESS,
                      varn_wifihal_rtt_range_request(static_cast<wifi_request_id>(i + 1), nullptr,
                                                     static_cast<unsigned>(configs.size()),
                                                     configs.data(), {nullptr, onResults}));
            sim_.setDeliveryHeld(false);
            EXPECT_TRUE(sim_.waitUntilDelivered());
        }
        return g_got;
    }
    static std::vector<std::vector<wifi_rtt_config>> requestsOf(const Trace& trace) {
        std::vector<std::vector<wifi_rtt_config>> requests;
        for (const auto& response : trace.responses) {
            requests.emplace_back();
            for (const auto& peer : response.peers) {
                requests.back().push_back(varn_tune::configOf(peer.request));
            }
        }
        return requests;
    }

    Simulator& sim_ = Simulator::instance();
    std::string config_;
};

bool sameBytes(const std::vector<Got>& a, const std::vector<Got>& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](const Got& x, const Got& y) {
               return memcmp(&x.record, &y.record, sizeof(x.record)) == 0 && x.blocks == y.blocks;
           });
}

TEST_F(TraceReplayTest, ReplayingARecordingGivesBitIdenticalResultsAndTheSameTrace) {
    varn_sim::Scenario scenario;
    std::string error;
    ASSERT_EQ(0, varn_sim::Scenario::parseFile(
                         VARN_SOURCE_DIR "/demo/scenarios/heavy_multipath.scn", &scenario, &error))
            << error;
    // The built-in scenario adds LCI/LCR and an access point out of reach.
    for (const auto& ap : varn_sim::Scenario::defaultScenario().access_points) {
        scenario.access_points.push_back(ap);
    }
    sim_.setScenario(scenario);
    up({30, 1, 1});
    std::vector<wifi_rtt_config> all;
    for (const auto& ap : scenario.access_points) all.push_back(varn_demo::rangingConfigFor(ap));
    sim_.setRecording(true);
    const std::vector<Got> recorded = range(std::vector<std::vector<wifi_rtt_config>>(6, all));
    const std::string text = sim_.recordedTrace().format();

    Trace trace;
    std::vector<std::string> problems;
    ASSERT_TRUE(Trace::parse(text, &trace, &problems));
    EXPECT_TRUE(problems.empty());
    ASSERT_EQ(trace.responses.size(), 6u);
    EXPECT_TRUE(trace.responses[0].peers[0].has_true_distance);
    sim_.setScenario(varn_sim::Scenario());  // nothing left of the world to answer
    sim_.replay(trace);
    up({30, 1, 1});
    sim_.setRecording(true);
    EXPECT_TRUE(sameBytes(recorded, range(requestsOf(trace))));
    EXPECT_EQ(sim_.recordedTrace().format(), text);
}

TEST_F(TraceReplayTest, ANodeTakesItsBssidsNextPeerAndTheTraceStartsOverAfterItsEnd) {
    Trace trace;
    ASSERT_TRUE(
            Trace::parseFile(VARN_SOURCE_DIR "/demo/traces/line_of_sight.jsonl", &trace, nullptr));
    trace.responses.resize(1);
    const varn_sim::TracePeer first = trace.responses[0].peers[0];
    up({});
    sim_.replay(trace);
    wifi_rtt_config unknown = varn_tune::configOf(first.request);
    unknown.addr[5] ^= 0xff;
    const std::vector<Got> got = range(
            {{unknown, varn_tune::configOf(first.request)}, {varn_tune::configOf(first.request)}});
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].record.rtt_result.status, RTT_STATUS_FAIL_NO_RSP);
    EXPECT_EQ(got[1].record.rtt_result.status, RTT_STATUS_SUCCESS);
    EXPECT_NEAR(got[1].record.rtt_result.distance_mm / 1000.0, first.true_distance_m, 2.0);
    EXPECT_TRUE(sameBytes({got[1]}, {got[2]}));
}

// The tool's figures against a replay and arithmetic of the test's own.
TEST_F(TraceReplayTest, TheToolsFiguresMatchAnIndependentReplay) {
    for (const char* name : {"line_of_sight", "heavy_multipath"}) {
        Trace trace;
        ASSERT_TRUE(Trace::parseFile(std::string(VARN_SOURCE_DIR "/demo/traces/") + name + ".jsonl",
                                     &trace, nullptr));
        ASSERT_EQ(trace.responses.size(), 25u);
        for (const varn_tune::Setting setting :
             {varn_tune::Setting{}, varn_tune::Setting{10, 1, 1}}) {
            SCOPED_TRACE(std::string(name) + " " + setting.label());
            sim_.replay(trace);
            up(setting);
            const std::vector<Got> got = range(requestsOf(trace));
            varn_wifihal_destroy();
            std::vector<varn_tune::Sample> samples;
            std::string error;
            ASSERT_TRUE(varn_tune::runSetting(trace, setting, &samples, &error)) << error;

            // Per bandwidth (0: all): results, successes, and the errors.
            std::map<int, std::vector<double>> errors;
            std::map<int, size_t> results, succeeded;
            for (size_t i = 0, k = 0; i < trace.responses.size(); ++i) {
                for (const auto& peer : trace.responses[i].peers) {
                    const wifi_rtt_result_v2& r = got.at(k++).record;
                    const int mhz = r.packet_bw == 0 ? 0 : 5 << __builtin_ctz(r.packet_bw);
                    for (int bw : {0, mhz}) {
                        ++results[bw];
                        if (r.rtt_result.status != RTT_STATUS_SUCCESS) continue;
                        ++succeeded[bw];
                        errors[bw].push_back(r.rtt_result.distance_mm / 1000.0 -
                                             peer.true_distance_m);
                    }
                }
            }
            for (auto& [bw, e] : errors) {
                const varn_tune::Figures f = varn_tune::figuresOf(samples, bw);
                double sum = 0, squares = 0;
                for (double x : e) sum += x, squares += x * x;
                std::vector<double> magnitudes;
                for (double x : e) magnitudes.push_back(std::fabs(x));
                std::sort(magnitudes.begin(), magnitudes.end());
                const double rank = 0.95 * (magnitudes.size() - 1);
                const size_t low = static_cast<size_t>(rank);
                const double p95 =
                        magnitudes[low] +
                        (rank - low) * (magnitudes[std::min(low + 1, magnitudes.size() - 1)] -
                                        magnitudes[low]);
                EXPECT_EQ(f.results, results[bw]) << bw;
                EXPECT_EQ(f.succeeded, succeeded[bw]) << bw;
                EXPECT_NEAR(f.mean_m, sum / e.size(), 1e-9) << bw;
                EXPECT_NEAR(f.rms_m, std::sqrt(squares / e.size()), 1e-9) << bw;
                EXPECT_NEAR(f.p95_abs_m, p95, 1e-9) << bw;
            }
            EXPECT_EQ(errors.size(), 4u);  // all, 20, 40 and 80 MHz
        }
    }
}

// A run whose successes have the given errors (measured - true), plus
// `failures` failed results and `unknown` successes without a true distance.
varn_tune::SettingRun runOf(std::vector<double> errors, int failures = 0, int unknown = 0) {
    varn_tune::SettingRun run;
    for (double e : errors) run.samples.push_back({20, true, 10.0, 10.0 + e});
    for (int i = 0; i < failures; ++i) run.samples.push_back({20, false, 10.0, 0.0});
    for (int i = 0; i < unknown; ++i) run.samples.push_back({20, true, NAN, 10.0});
    return run;
}

TEST(BestRunTest, LowestRmsAmongTheRunsThatKeptTheirResults) {
    const std::vector<double> twenty(20, 1.0);
    const std::vector<double> nineteen(19, 1.0);
    const struct {
        const char* what;
        std::vector<varn_tune::SettingRun> runs;
        size_t best;
    } cases[] = {
            {"lower rms wins", {runOf({1.0, -1.0}), runOf({0.5, -0.5})}, 1},
            {"dropping results does not win",
             {runOf(twenty), runOf(std::vector<double>(18, 0.1), 2)},
             0},
            {"95% of the most is enough",
             {runOf(twenty), runOf(std::vector<double>(19, 0.1), 1)},
             1},
            {"same rms: more successes", {runOf(nineteen, 1), runOf(twenty)}, 1},
            {"same rms and successes: the earlier", {runOf(twenty), runOf(twenty)}, 0},
            {"a run without truth does not set the bar", {runOf({}, 0, 40), runOf({2.0})}, 1},
            {"a run that scored sets it with all its successes",
             {runOf({5.0}, 0, 9), runOf({0.1, 0.1})},
             0},
            {"nothing scored", {runOf({}, 3, 5), runOf({}, 2)}, 2},
            {"no runs", {}, 0},
    };
    for (const auto& c : cases) EXPECT_EQ(varn_tune::bestRun(c.runs), c.best) << c.what;
}

}  // namespace
