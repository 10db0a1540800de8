// Cost of handling one ranging response from `responseReceived` to the HAL
// callback, against a floor measured in the same run: a minimal conversion of
// the same arithmetic written for speed (split by chain, sort for the median,
// integer sums, one RSSI pass), without logging and without allocation.
//
// The listener runs at the default log level (3, info): its info lines pass
// the filter and are formatted, and the Android log call that would write
// them is dropped by this executable, so the figure is the library's own
// work. The scaling rows repeat the comparison over 1, 10 and 64 peers of 1,
// 8 and 31 frames; their cost per peer-frame shows how it grows.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <varn_client/VARNClient.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>
#include <vel_loc_fw/log_util.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "bench_ratio.h"
#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"

// Drops every Android log line of this executable (it takes precedence over
// liblog's for the library's calls).
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 1; }

namespace {

constexpr int kMaxPeers = 64;
constexpr int kMaxFrames = 31;
constexpr int kBandwidth = VARN_BW_80MHZ;
constexpr int32_t kStdevMultiplier = 50;
constexpr int32_t kRttStdev80 = 7000;

// Deterministic noise (a 64-bit LCG), so both contenders see the same frames.
struct Noise {
    uint64_t state = 0x9e3779b97f4a7c15ull;
    int32_t next(int32_t spread) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<int32_t>((state >> 33) % (2u * spread + 1)) - spread;
    }
};

VARNRangingScanResponse* makeResponse(uint32_t varn_id, int peers, int frames) {
    auto* rsp = new VARNRangingScanResponse(varn_id, VARN_SCAN_STATUS_SUCCESS);
    Noise noise;
    for (int p = 0; p < peers; ++p) {
        auto* peer = new VARNScanMeasurement();
        peer->bssid[0] = 0x02;
        peer->bssid[5] = static_cast<uint8_t>(p);
        peer->frequency = 5180;
        peer->rtt_type = VARN_RTT_TYPE_2_SIDED;
        peer->measurements_attempted = frames;
        const int32_t true_rtt = 20000 + 6000 * p;
        for (int k = 0; k < frames; ++k) {
            auto* info = new VARNMeasurementInfo();
            info->rx_chain_index = static_cast<uint8_t>(k % 2);
            info->rtt_ps = true_rtt + noise.next(9000) + (k % 2) * 300 + (k == 7 ? 40000 : 0);
            info->rssi = static_cast<int16_t>(-120 - 2 * p + noise.next(6));
            info->tx_rate = {4333, VARN_PREAMBLE_VHT, 1, kBandwidth, 9, 1};
            info->rx_rate = {4333, VARN_PREAMBLE_VHT, 1, kBandwidth, 9, 2};
            peer->measurements.push_back(info);
        }
        rsp->getMeasurements().push_back(peer);
    }
    return rsp;
}

int64_t g_sink = 0;

void onResults(wifi_request_id, unsigned n, wifi_rtt_result_v2* results[]) {
    for (unsigned i = 0; i < n; ++i) g_sink += results[i]->rtt_result.rtt;
}

// ---- The floor ----

struct ChainFigures {
    int64_t mean = 0;
    int32_t spread = 0;
    int32_t stdev = 0;
};

ChainFigures floorChain(int32_t* rtt, uint32_t n) {
    ChainFigures out;
    if (n == 0) return out;
    int32_t sorted[kMaxFrames];
    std::copy(rtt, rtt + n, sorted);
    std::sort(sorted, sorted + n);
    const int32_t median = n % 2 != 0 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
    const int32_t tolerance = kStdevMultiplier * kRttStdev80 / 10;
    int64_t sum = 0, squares = 0;
    int32_t high = INT32_MIN, low = INT32_MAX;
    uint32_t kept = 0;
    for (uint32_t i = 0; i < n; ++i) {
        const int32_t v = rtt[i];
        if (n > 2 && (v > median + tolerance || v < median - tolerance)) continue;
        sum += v;
        squares += static_cast<int64_t>(v) * v;
        high = std::max(high, v);
        low = std::min(low, v);
        ++kept;
    }
    if (kept == 0) return out;
    const int64_t m = sum / kept;
    const int64_t variance = (squares - static_cast<int64_t>(kept) * m * m) / kept;
    out.mean = m;
    out.spread = high - low;
    out.stdev = static_cast<int32_t>(std::sqrt(static_cast<double>(variance)));
    return out;
}

void floorHandle(const VARNRangingScanResponse& rsp, wifi_rtt_event_handler handler) {
    const vel_loc_fw::vector<VARNScanMeasurement*>& peers = rsp.getMeasurements();
    wifi_rtt_result_v2 results[kMaxPeers];
    wifi_rtt_result_v2* pointers[kMaxPeers];
    const uint32_t count = std::min<uint32_t>(peers.size(), kMaxPeers);
    struct timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    const int64_t ts = (now.tv_sec * 1000LL + (now.tv_nsec + 500000) / 1000000) * 1000;
    for (uint32_t p = 0; p < count; ++p) {
        const VARNScanMeasurement* peer = peers.data()[p];
        wifi_rtt_result_v2& out = results[p];
        memset(&out, 0, sizeof(out));
        memcpy(out.rtt_result.addr, peer->bssid.bytes(), 6);
        int32_t chain_rtt[2][kMaxFrames];
        uint32_t chain_n[2] = {0, 0};
        double amplitude = 0;
        int32_t rssi_max = INT32_MIN, rssi_min = INT32_MAX;
        const uint32_t frames = std::min<uint32_t>(peer->measurements.size(), kMaxFrames);
        for (uint32_t k = 0; k < frames; ++k) {
            const VARNMeasurementInfo* f = peer->measurements.data()[k];
            const int c = f->rx_chain_index == 1 ? 1 : 0;
            chain_rtt[c][chain_n[c]++] = f->rtt_ps;
            amplitude += std::pow(10.0, f->rssi / 20.0);
            rssi_max = std::max<int32_t>(rssi_max, f->rssi);
            rssi_min = std::min<int32_t>(rssi_min, f->rssi);
        }
        const ChainFigures c0 = floorChain(chain_rtt[0], chain_n[0]);
        const ChainFigures c1 = floorChain(chain_rtt[1], chain_n[1]);
        const ChainFigures& best = (c1.mean != 0 && (c0.mean == 0 || c1.mean < c0.mean)) ? c1 : c0;
        wifi_rtt_result& r = out.rtt_result;
        r.status = RTT_STATUS_SUCCESS;
        r.type = RTT_TYPE_2_SIDED;
        r.rssi = static_cast<int32_t>(10.0 * std::log10(amplitude / frames)) * -2;
        r.rssi_spread = rssi_max - rssi_min;
        r.rtt = best.mean;
        r.rtt_sd = best.stdev;
        r.rtt_spread = best.spread;
        r.distance_mm = static_cast<int>(static_cast<float>(r.rtt) * 0.15f);
        r.distance_sd_mm = static_cast<int>(static_cast<float>(r.rtt_sd) * 0.15f);
        r.distance_spread_mm = static_cast<int>(static_cast<float>(r.rtt_spread) * 0.15f);
        r.ts = ts;
        r.success_number = frames;
        out.frequency = static_cast<wifi_channel>(peer->frequency);
        out.packet_bw = WIFI_RTT_BW_80;
        pointers[p] = &out;
    }
    handler.on_rtt_results_v2(1, count, pointers);
}

// ---- Rows ----

// One row: the listener on a response of `peers` x `frames` at `level`,
// against the floor on the same response.
varn_bench::Row& listener_row(benchmark::State& state, const std::string& path,
                              varn_bench::Goal goal, vel_loc_fw::ERROR_LEVEL level, int peers,
                              int frames) {
    vel_loc_fw::log_set_global_level(level);
    VARNClientListenerImpl listener(kStdevMultiplier);
    VARNRangingScanResponse* rsp = makeResponse(1, peers, frames);
    const wifi_rtt_event_handler handler = {nullptr, onResults};
    varn_bench::Row& row = varn_bench::ratio_row(
            state, path, goal, varn_bench::Clock::kThreadCpu,
            [&](int64_t ops) {
                for (int64_t i = 0; i < ops; ++i) {
                    // Each delivered response retires its request, so every
                    // response registers it again (a list push under the
                    // bookkeeping lock).
                    addRttRequestHandler(1, 1, handler);
                    listener.responseReceived(rsp);
                }
            },
            [&](int64_t ops) {
                for (int64_t i = 0; i < ops; ++i) floorHandle(*rsp, handler);
            });
    benchmark::DoNotOptimize(g_sink);
    releaseBookkeeping();
    delete rsp;
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
    return row;
}

void BM_Ranging(benchmark::State& state) {
    listener_row(state,
                 "ranging response, 10 peers x 31 frames, level 3, log sink dropped / minimal "
                 "implementation",
                 {1.5}, vel_loc_fw::EL_INFO, 10, 31);
}
BENCHMARK(BM_Ranging)->Iterations(1);

void BM_RangingQuiet(benchmark::State& state) {
    listener_row(state,
                 "ranging response, 10 peers x 31 frames, logging off / minimal implementation", {},
                 vel_loc_fw::EL_LOG_OFF, 10, 31);
}
BENCHMARK(BM_RangingQuiet)->Iterations(1);

// Arguments: peers, frames per peer.
void BM_RangingScaling(benchmark::State& state) {
    const int peers = static_cast<int>(state.range(0));
    const int frames = static_cast<int>(state.range(1));
    varn_bench::Row& row = listener_row(state,
                                        "ranging scaling, " + std::to_string(peers) + " peers x " +
                                                std::to_string(frames) +
                                                " frames, level 3 / minimal implementation",
                                        {}, vel_loc_fw::EL_INFO, peers, frames);
    char note[48];
    snprintf(note, sizeof(note), "%.1f ns per peer-frame", row.measured_ns / (peers * frames));
    row.note = note;
}
BENCHMARK(BM_RangingScaling)->ArgsProduct({{1, 10, 64}, {1, 8, 31}})->Iterations(1);

}  // namespace

int main(int argc, char** argv) { return varn_bench::main(argc, argv); }
