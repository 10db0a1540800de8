// Ranging demo.
//
// Plays the part of an Android vendor Wi-Fi HAL: loads the entry points
// through varn_wifihal_get_cb_table(), initialises the interface, sends one
// ranging request to every access point of the simulated service's scenario
// with the parameters the Android framework uses, waits for the results
// callback and prints what came back next to the scenario's true distances.
//
//   varn_demo [--scenario FILE] [--config FILE] [--seed N] [--rounds N] [--json]
//             [--log-level N]
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <loc_utils/loc_utils.h>
#include <varn_sim/simulator.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>

namespace {

constexpr int kResultTimeoutMs = 5000;

// The library's own log goes to the Android log (stderr on a host). Without a
// --config file the demo writes one with this level (--log-level N): 0 keeps
// the table alone on the terminal.
constexpr int kDefaultLogLevel = 0;

struct Options {
    std::string scenario_path;
    std::string config_path;
    bool has_seed = false;
    uint64_t seed = 0;
    int rounds = 1;
    int log_level = kDefaultLogLevel;
    bool json = false;
};

// One target's answer, copied out of the HAL records inside the callback.
struct Measurement {
    std::string bssid;
    int status = -1;
    int packet_bw = 0;
    unsigned success = 0;
    unsigned attempted = 0;
    double distance_m = 0;
    double sd_m = 0;
    double spread_m = 0;
    double rssi_dbm = 0;
};

// Results of the request in flight, filled on the service's thread.
struct Pending {
    std::mutex mutex;
    std::condition_variable done;
    wifi_request_id id = 0;
    bool answered = false;
    std::vector<Measurement> results;
} g_pending;

std::string format_mac(const unsigned char* mac) {
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

// wifi_rtt_event_handler.on_rtt_results_v2, on the client library's thread.
void on_rtt_results_v2(wifi_request_id id, unsigned num_results, wifi_rtt_result_v2* results[]) {
    std::vector<Measurement> copied;
    for (unsigned i = 0; i < num_results; ++i) {
        const wifi_rtt_result& r = results[i]->rtt_result;
        Measurement m;
        m.bssid = format_mac(r.addr);
        m.status = r.status;
        m.packet_bw = results[i]->packet_bw;
        m.success = r.success_number;
        m.attempted = r.measurement_number;
        m.distance_m = r.distance_mm / 1000.0;
        m.sd_m = r.distance_sd_mm / 1000.0;
        m.spread_m = r.distance_spread_mm / 1000.0;
        m.rssi_dbm = r.rssi == 0 ? 0.0 : r.rssi / -2.0;  // half-dB steps, positive
        copied.push_back(m);
        // The library releases the array and the first element's LCI/LCR
        // after this callback; the others' blocks are left to the HAL.
        if (i > 0) {
            free(r.LCI);
            free(r.LCR);
            results[i]->rtt_result.LCI = nullptr;
            results[i]->rtt_result.LCR = nullptr;
        }
    }
    std::lock_guard<std::mutex> lock(g_pending.mutex);
    if (id != g_pending.id) return;
    g_pending.results = std::move(copied);
    g_pending.answered = true;
    g_pending.done.notify_all();
}

// Framework defaults for one access point: 8 frames in a single burst of
// duration code 9, 3 retries, LCI and LCR requested, bandwidth and preamble
// from the channel width.
wifi_rtt_config make_config(const varn_sim::AccessPoint& ap) {
    wifi_rtt_config c;
    memset(&c, 0, sizeof(c));
    for (int i = 0; i < 6; ++i) c.addr[i] = ap.bssid[i];
    c.type = ap.two_sided ? RTT_TYPE_2_SIDED : RTT_TYPE_1_SIDED;
    c.peer = RTT_PEER_AP;
    c.channel.center_freq = static_cast<wifi_channel>(ap.frequency);
    c.channel.center_freq0 = static_cast<wifi_channel>(ap.center_freq0);
    c.channel.center_freq1 = 0;
    c.burst_period = 0;
    c.num_burst = 0;
    c.num_frames_per_burst = 8;
    c.num_retries_per_rtt_frame = 3;
    c.num_retries_per_ftmr = 3;
    c.LCI_request = 1;
    c.LCR_request = 1;
    c.burst_duration = 9;
    switch (ap.widthMhz()) {
        case 20:
            c.channel.width = WIFI_CHAN_WIDTH_20;
            c.preamble = WIFI_RTT_PREAMBLE_LEGACY;
            c.bw = WIFI_RTT_BW_20;
            break;
        case 40:
            c.channel.width = WIFI_CHAN_WIDTH_40;
            c.preamble = WIFI_RTT_PREAMBLE_HT;
            c.bw = WIFI_RTT_BW_40;
            break;
        default:  // 80 MHz and wider: ranging is requested at 80 MHz
            c.channel.width = ap.widthMhz() == 80 ? WIFI_CHAN_WIDTH_80 : WIFI_CHAN_WIDTH_160;
            c.preamble = WIFI_RTT_PREAMBLE_VHT;
            c.bw = WIFI_RTT_BW_80;
            break;
    }
    return c;
}

const char* status_name(int status) {
    return status >= 0 && status < 18 ? WIFIHAL_STATUS[status] : "?";
}

int bw_mhz(int packet_bw) {
    switch (packet_bw) {
        case WIFI_RTT_BW_5: return 5;
        case WIFI_RTT_BW_10: return 10;
        case WIFI_RTT_BW_20: return 20;
        case WIFI_RTT_BW_40: return 40;
        case WIFI_RTT_BW_80: return 80;
        case WIFI_RTT_BW_160: return 160;
        case WIFI_RTT_BW_320: return 320;
        default: return 0;
    }
}

void usage(FILE* out) {
    fprintf(out,
            "usage: varn_demo [--scenario FILE] [--config FILE] [--seed N] [--rounds N] [--json]\n"
            "                 [--log-level N]\n"
            "  --scenario FILE  access points of the simulated world (default: built-in)\n"
            "  --config FILE    library configuration file (default: one with --log-level)\n"
            "  --log-level N    library log level 0..5 without --config (default 0: off)\n"
            "  --seed N         seed of the simulation\n"
            "  --rounds N       ranging rounds (default 1); more than one adds a summary\n"
            "  --json           machine-readable output on standard output\n");
}

bool parse_options(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            exit(0);
        } else if (arg == "--json") {
            options->json = true;
        } else if (arg == "--scenario" && has_value) {
            options->scenario_path = argv[++i];
        } else if (arg == "--config" && has_value) {
            options->config_path = argv[++i];
        } else if ((arg == "--seed" || arg == "--rounds" || arg == "--log-level") && has_value) {
            char* end = nullptr;
            errno = 0;
            const unsigned long long value = strtoull(argv[++i], &end, 0);
            if (errno != 0 || *end != '\0' || (arg == "--rounds" && (value < 1 || value > 1000)) ||
                (arg == "--log-level" && value > 5)) {
                fprintf(stderr, "varn_demo: bad value for %s: %s\n", arg.c_str(), argv[i]);
                return false;
            }
            if (arg == "--seed") {
                options->has_seed = true;
                options->seed = value;
            } else if (arg == "--log-level") {
                options->log_level = static_cast<int>(value);
            } else {
                options->rounds = static_cast<int>(value);
            }
        } else {
            fprintf(stderr, "varn_demo: unknown or incomplete option: %s\n", arg.c_str());
            usage(stderr);
            return false;
        }
    }
    return true;
}

// Per-AP error statistics over the rounds.
struct Summary {
    int answered = 0;
    int succeeded = 0;
    double sum_error = 0;
    double sum_sq_error = 0;
    double max_abs_error = 0;
};

void print_round_text(int round, const std::vector<varn_sim::AccessPoint>& aps,
                      const std::vector<Measurement>& results) {
    printf("\nRound %d: %zu access points, %zu results\n", round, aps.size(), results.size());
    printf("%-17s  %-34s %4s %7s %9s %8s %8s %6s %9s %8s\n", "BSSID", "status", "BW", "frames",
           "dist(m)", "sd(m)", "spread", "RSSI", "true(m)", "error(m)");
    for (const Measurement& m : results) {
        double truth = NAN;
        for (const auto& ap : aps) {
            if (varn_sim::formatMac(ap.bssid) == m.bssid) truth = ap.distance_m;
        }
        printf("%-17s  %-34s %4d %3u/%-3u %9.2f %8.2f %8.2f %6.1f %9.2f", m.bssid.c_str(),
               status_name(m.status), bw_mhz(m.packet_bw), m.success, m.attempted, m.distance_m,
               m.sd_m, m.spread_m, m.rssi_dbm, truth);
        if (m.status == RTT_STATUS_SUCCESS && !std::isnan(truth)) {
            printf(" %+8.2f\n", m.distance_m - truth);
        } else {
            printf(" %8s\n", "-");
        }
    }
}

std::string json_escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse_options(argc, argv, &options)) return 2;

    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.reset();
    varn_sim::Scenario scenario = varn_sim::Scenario::defaultScenario();
    if (!options.scenario_path.empty()) {
        std::string error;
        const int line = varn_sim::Scenario::parseFile(options.scenario_path, &scenario, &error);
        if (line != 0) {
            fprintf(stderr, "varn_demo: cannot use scenario %s (%s%s): %s\n",
                    options.scenario_path.c_str(), line > 0 ? "line " : "",
                    line > 0 ? std::to_string(line).c_str() : "unreadable", error.c_str());
            return 1;
        }
    }
    if (options.has_seed) scenario.seed = options.seed;
    sim.setScenario(scenario);
    const std::vector<varn_sim::AccessPoint> aps = sim.accessPoints();
    if (aps.empty()) {
        fprintf(stderr, "varn_demo: the scenario has no access point to range to\n");
        return 1;
    }

    char default_config[] = "/tmp/varn_demo_XXXXXX";
    std::string config_path = options.config_path;
    if (config_path.empty()) {
        const std::string content =
                "VARN_WIFIHAL_LOG_LEVEL = " + std::to_string(options.log_level) + "\n";
        const int fd = mkstemp(default_config);
        if (fd < 0 || write(fd, content.data(), content.size()) < 0) {
            fprintf(stderr, "varn_demo: cannot write a configuration file: %s\n", strerror(errno));
            return 1;
        }
        close(fd);
        config_path = default_config;
    }
    loc_utils_set_varn_conf_path(config_path.c_str());

    const varn_wifihal_cb_table_t* hal = varn_wifihal_get_cb_table();
    const wifi_error init_rc = hal->init();
    if (options.config_path.empty()) unlink(default_config);
    if (init_rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: varn_wifihal_init failed (%d)\n", init_rc);
        return 1;
    }

    std::vector<wifi_rtt_config> configs;
    for (const auto& ap : aps) configs.push_back(make_config(ap));

    int exit_code = 0;
    std::map<std::string, Summary> summary;
    std::string json = "{\"rounds\":[";
    if (!options.json) {
        printf("Ranging to %zu access points of the %s scenario (seed %llu)\n", aps.size(),
               options.scenario_path.empty() ? "built-in" : options.scenario_path.c_str(),
               static_cast<unsigned long long>(scenario.seed));
    }
    for (int round = 1; round <= options.rounds && exit_code == 0; ++round) {
        {
            std::lock_guard<std::mutex> lock(g_pending.mutex);
            g_pending.id = round;
            g_pending.answered = false;
            g_pending.results.clear();
        }
        wifi_rtt_event_handler handler = {nullptr, on_rtt_results_v2};
        const wifi_error rc = hal->rtt_range_request(round, nullptr,
                                                     static_cast<unsigned>(configs.size()),
                                                     configs.data(), handler);
        if (rc != WIFI_SUCCESS) {
            fprintf(stderr, "varn_demo: ranging request %d refused (%d)\n", round, rc);
            exit_code = 1;
            break;
        }
        std::vector<Measurement> results;
        {
            std::unique_lock<std::mutex> lock(g_pending.mutex);
            if (!g_pending.done.wait_for(lock, std::chrono::milliseconds(kResultTimeoutMs),
                                         [] { return g_pending.answered; })) {
                fprintf(stderr, "varn_demo: no ranging results within %d ms (round %d)\n",
                        kResultTimeoutMs, round);
                exit_code = 1;
                break;
            }
            results = g_pending.results;
        }

        if (!options.json) print_round_text(round, aps, results);
        json += round > 1 ? ",[" : "[";
        for (size_t i = 0; i < results.size(); ++i) {
            const Measurement& m = results[i];
            double truth = NAN;
            for (const auto& ap : aps) {
                if (varn_sim::formatMac(ap.bssid) == m.bssid) truth = ap.distance_m;
            }
            Summary& s = summary[m.bssid];
            ++s.answered;
            const bool ok = m.status == RTT_STATUS_SUCCESS && !std::isnan(truth);
            if (ok) {
                const double error = m.distance_m - truth;
                ++s.succeeded;
                s.sum_error += error;
                s.sum_sq_error += error * error;
                s.max_abs_error = std::max(s.max_abs_error, std::fabs(error));
            }
            char entry[512];
            snprintf(entry, sizeof(entry),
                     "%s{\"bssid\":\"%s\",\"status\":\"%s\",\"bw_mhz\":%d,\"frames_succeeded\":%u,"
                     "\"frames_attempted\":%u,\"distance_m\":%.3f,\"distance_sd_m\":%.3f,"
                     "\"distance_spread_m\":%.3f,\"rssi_dbm\":%.1f,\"true_distance_m\":%s,"
                     "\"error_m\":%s}",
                     i > 0 ? "," : "", m.bssid.c_str(), json_escape(status_name(m.status)).c_str(),
                     bw_mhz(m.packet_bw), m.success, m.attempted, m.distance_m, m.sd_m, m.spread_m,
                     m.rssi_dbm,
                     std::isnan(truth) ? "null" : std::to_string(truth).c_str(),
                     ok ? std::to_string(m.distance_m - truth).c_str() : "null");
            json += entry;
        }
        json += "]";
    }
    json += "],\"summary\":[";

    if (!options.json && options.rounds > 1 && exit_code == 0) {
        printf("\nSummary over %d rounds\n%-17s %9s %11s %11s %11s\n", options.rounds, "BSSID",
               "ok/total", "mean err(m)", "rms err(m)", "max |err|");
    }
    bool first = true;
    for (const auto& [bssid, s] : summary) {
        const double mean = s.succeeded > 0 ? s.sum_error / s.succeeded : NAN;
        const double rms = s.succeeded > 0 ? std::sqrt(s.sum_sq_error / s.succeeded) : NAN;
        if (!options.json && options.rounds > 1 && exit_code == 0) {
            printf("%-17s %4d/%-4d %11.2f %11.2f %11.2f\n", bssid.c_str(), s.succeeded, s.answered,
                   mean, rms, s.succeeded > 0 ? s.max_abs_error : NAN);
        }
        char entry[256];
        snprintf(entry, sizeof(entry),
                 "%s{\"bssid\":\"%s\",\"succeeded\":%d,\"answered\":%d,\"mean_error_m\":%s,"
                 "\"rms_error_m\":%s}",
                 first ? "" : ",", bssid.c_str(), s.succeeded, s.answered,
                 s.succeeded > 0 ? std::to_string(mean).c_str() : "null",
                 s.succeeded > 0 ? std::to_string(rms).c_str() : "null");
        json += entry;
        first = false;
    }
    json += "]}";
    if (options.json && exit_code == 0) puts(json.c_str());

    hal->destroy();
    return exit_code;
}
