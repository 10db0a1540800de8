// Ranging and background-scan demo.
//
// Plays the part of an Android vendor Wi-Fi HAL: opens the library with
// dlopen() and takes the entry points from varn_wifihal_get_cb_table(),
// initialises the interface, sends one ranging request to every access point
// of the simulated service's scenario with the parameters the Android
// framework uses, waits for the results callback and prints what came back
// next to the scenario's true distances. Then it asks for the RTT
// capabilities and the valid 5 GHz channels, and runs a background scan with
// a BSSID hotlist over a few scan cycles of the simulated world, printing the
// hotlist events and the cached scan results.
//
//   varn_demo [--scenario FILE] [--config FILE] [--seed N] [--rounds N] [--json]
//             [--log-level N]
#include <dlfcn.h>
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

#include "demo_support.h"

namespace {

constexpr int kResultTimeoutMs = 5000;
// Scan cycles of the background scan; the built-in scenario's fading access
// point is gone from the eighth on, so the hotlist reports it lost.
constexpr int kScanCycles = 9;
// Cached scans fetched and printed.
constexpr int kMaxCachedScans = 3;
constexpr wifi_request_id kScanRequestId = 100;
constexpr wifi_request_id kHotlistRequestId = 101;

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

// One hotlist event, copied out inside the callback.
struct HotlistEvent {
    bool found = false;
    std::string bssid;
    std::string ssid;
    int channel = 0;
    int rssi = 0;
};

struct HotlistEvents {
    std::mutex mutex;
    std::vector<HotlistEvent> events;
} g_hotlist;

void record_hotlist(bool found, unsigned num_results, const wifi_scan_result* results) {
    std::lock_guard<std::mutex> lock(g_hotlist.mutex);
    for (unsigned i = 0; i < num_results; ++i) {
        HotlistEvent e;
        e.found = found;
        e.bssid = format_mac(results[i].bssid);
        e.ssid = results[i].ssid;
        e.channel = results[i].channel;
        e.rssi = results[i].rssi;
        g_hotlist.events.push_back(e);
    }
}

// wifi_hotlist_ap_found_handler, on the client library's thread; `results`
// is a contiguous array of records.
void on_hotlist_ap_found(wifi_request_id, unsigned num_results, wifi_scan_result* results) {
    record_hotlist(true, num_results, results);
}
void on_hotlist_ap_lost(wifi_request_id, unsigned num_results, wifi_scan_result* results) {
    record_hotlist(false, num_results, results);
}
// The scan's own events are not printed: the cached results show what it found.
void on_full_scan_result(wifi_request_id, wifi_scan_result*, unsigned) {}
void on_scan_event(wifi_request_id, wifi_scan_event) {}

const char* status_name(int status) {
    return status >= 0 && status < 18 ? WIFIHAL_STATUS[status] : "?";
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
               status_name(m.status), varn_demo::bandwidthMhz(m.packet_bw), m.success, m.attempted, m.distance_m,
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

// The entry points as a vendor HAL gets them: dlopen() the library, then
// varn_wifihal_get_cb_table(). Also checks that every filled slot is the
// exported entry point of its name and that slots 13 to 18 are empty.
const varn_wifihal_cb_table_t* open_library(std::string* problem) {
    void* library = dlopen("libvarn_wifihal.so.2", RTLD_NOW);
    if (library == nullptr) {
        *problem = dlerror();
        return nullptr;
    }
    using GetTable = const varn_wifihal_cb_table_t* (*)();
    auto get_table = reinterpret_cast<GetTable>(dlsym(library, "varn_wifihal_get_cb_table"));
    if (get_table == nullptr) {
        *problem = "varn_wifihal_get_cb_table is not exported";
        return nullptr;
    }
    const varn_wifihal_cb_table_t* table = get_table();
    static const char* const kSlots[23] = {"init",
                                           "destroy",
                                           "get_rtt_capabilities",
                                           "rtt_range_request",
                                           "rtt_range_cancel",
                                           "get_varn_version",
                                           "get_varn_capabilities",
                                           "get_valid_channels",
                                           "get_gscan_capabilities",
                                           "start_gscan",
                                           "stop_gscan",
                                           "get_cached_gscan_results",
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           "set_lci",
                                           "set_lcr",
                                           "get_responder_info",
                                           "enable_responder",
                                           "disable_responder"};
    void* slots[23];
    memcpy(slots, table, sizeof(slots));
    for (int i = 0; i < 23; ++i) {
        void* expected =
                kSlots[i] != nullptr
                        ? dlsym(library, ("varn_wifihal_" + std::string(kSlots[i])).c_str())
                        : nullptr;
        if (slots[i] != expected || (kSlots[i] != nullptr && expected == nullptr)) {
            *problem = "callback table slot " + std::to_string(i + 1) + " is not " +
                       (kSlots[i] != nullptr ? "varn_wifihal_" + std::string(kSlots[i]) : "empty");
            return nullptr;
        }
    }
    return table;
}

std::string bits_text(unsigned mask, const char* const* names, int count) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        if ((mask & (1u << i)) != 0 && names[i][0] != '\0')
            out += (out.empty() ? "" : ", ") + std::string(names[i]);
    }
    return out.empty() ? "none" : out;
}

const char* yes_no(unsigned value) { return value != 0 ? "yes" : "no"; }

// Channel number of a 2.4 or 5 GHz frequency.
int channel_number(int mhz) {
    if (mhz == 2484) return 14;
    if (mhz >= 2412 && mhz < 2484) return (mhz - 2407) / 5;
    return mhz >= 5000 ? (mhz - 5000) / 5 : 0;
}

struct CachedAp {
    std::string bssid;
    std::string ssid;
    int channel = 0;
    int rssi = 0;
};

struct CachedScan {
    int scan_id = 0;
    int num_results = 0;
    std::vector<CachedAp> aps;
};

// Everything the scan part of the demo found, for both output formats.
struct ScanReport {
    wifi_rtt_capabilities caps{};
    std::vector<int> channels;
    std::vector<CachedScan> scans;
    std::vector<HotlistEvent> hotlist;
};

// RTT capabilities, the valid 5 GHz channels, then a background scan and a
// hotlist of the scenario's first two access points over kScanCycles cycles.
bool run_scan_part(const varn_wifihal_cb_table_t* hal,
                   const std::vector<varn_sim::AccessPoint>& aps, ScanReport* report) {
    wifi_error rc = hal->get_rtt_capabilities(nullptr, &report->caps);
    if (rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: get_rtt_capabilities failed (%d)\n", rc);
        return false;
    }
    wifi_channel channels[64];
    int count = 0;
    rc = hal->get_valid_channels(nullptr, WIFI_BAND_A_WITH_DFS, 64, channels, &count);
    if (rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: get_valid_channels failed (%d)\n", rc);
        return false;
    }
    report->channels.assign(channels, channels + std::min(count, 64));

    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.setAutoScan(false);  // the demo runs the scan cycles itself
    wifi_scan_cmd_params params;
    memset(&params, 0, sizeof(params));
    params.base_period = 10000;
    params.max_ap_per_scan = 32;
    params.num_buckets = 1;
    params.buckets[0].band = WIFI_BAND_ABG_WITH_DFS;
    params.buckets[0].period = 10000;
    params.buckets[0].report_events = REPORT_EVENTS_EACH_SCAN;
    rc = hal->start_gscan(kScanRequestId, nullptr, params, {on_full_scan_result, on_scan_event});
    if (rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: start_gscan failed (%d)\n", rc);
        return false;
    }
    wifi_bssid_hotlist_params hotlist;
    memset(&hotlist, 0, sizeof(hotlist));
    hotlist.lost_ap_sample_size = 1;
    // Watched: an access point that leaves during the scan cycles (so that
    // one is reported lost), then the first ones of the scenario.
    std::vector<const varn_sim::AccessPoint*> watched;
    for (const varn_sim::AccessPoint& ap : aps) {
        if (ap.disappear_cycle < kScanCycles) watched.push_back(&ap);
    }
    for (const varn_sim::AccessPoint& ap : aps) {
        if (ap.disappear_cycle >= kScanCycles) watched.push_back(&ap);
    }
    for (const varn_sim::AccessPoint* ap : watched) {
        if (hotlist.num_bssid == 2) break;
        for (int i = 0; i < 6; ++i) hotlist.ap[hotlist.num_bssid].bssid[i] = ap->bssid[i];
        hotlist.ap[hotlist.num_bssid].low = -90;
        hotlist.ap[hotlist.num_bssid].high = -20;
        ++hotlist.num_bssid;
    }
    // Hotlist and significant-change monitoring are reachable by name only.
    rc = varn_wifihal_set_bssid_hotlist(kHotlistRequestId, nullptr, hotlist,
                                        {on_hotlist_ap_found, on_hotlist_ap_lost});
    if (rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: set_bssid_hotlist failed (%d)\n", rc);
        return false;
    }
    for (int cycle = 0; cycle < kScanCycles; ++cycle) sim.runScanCycle();
    if (!sim.waitUntilDelivered()) {
        fprintf(stderr, "varn_demo: scan events not delivered within 5 s\n");
        return false;
    }

    static wifi_cached_scan_results cached[kMaxCachedScans];
    int num = 0;
    rc = hal->get_cached_gscan_results(nullptr, 1, kMaxCachedScans, cached, &num);
    if (rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: get_cached_gscan_results failed (%d)\n", rc);
        return false;
    }
    for (int k = 0; k < num; ++k) {
        CachedScan scan;
        scan.scan_id = cached[k].scan_id;
        scan.num_results = cached[k].num_results;
        // A record holds at most 32 results; num_results may count more.
        for (int i = 0; i < std::min(cached[k].num_results, MAX_AP_CACHE_PER_SCAN); ++i) {
            const wifi_scan_result& r = cached[k].results[i];
            scan.aps.push_back({format_mac(r.bssid), r.ssid, r.channel, r.rssi});
        }
        report->scans.push_back(scan);
    }
    varn_wifihal_reset_bssid_hotlist(kHotlistRequestId);
    hal->stop_gscan(kScanRequestId, nullptr);
    std::lock_guard<std::mutex> lock(g_hotlist.mutex);
    report->hotlist = g_hotlist.events;
    return true;
}

const char* const kPreambleNames[] = {"legacy", "HT", "VHT", "HE", "EHT"};
const char* const kBandwidthNames[] = {"5", "10", "20", "40", "80", "160", "320"};

void print_scan_report_text(const ScanReport& r) {
    const wifi_rtt_capabilities& c = r.caps;
    printf("\nRTT capabilities\n");
    printf("  %-22s %-5s   %-22s %s\n", "one-sided ranging", yes_no(c.rtt_one_sided_supported),
           "two-sided (FTM)", yes_no(c.rtt_ftm_supported));
    printf("  %-22s %-5s   %-22s %s\n", "LCI request", yes_no(c.lci_support), "LCR request",
           yes_no(c.lcr_support));
    printf("  %-22s %-5s   %-22s %d.%d\n", "responder", yes_no(c.responder_supported),
           "802.11mc version", c.mc_version / 10, c.mc_version % 10);
    printf("  %-22s %s\n", "preambles", bits_text(c.preamble_support, kPreambleNames, 5).c_str());
    printf("  %-22s %s MHz\n", "bandwidths", bits_text(c.bw_support, kBandwidthNames, 7).c_str());

    printf("\nValid 5 GHz channels (with DFS): %zu\n", r.channels.size());
    for (size_t i = 0; i < r.channels.size(); ++i) {
        printf("%s%3d %4d MHz", i % 6 == 0 ? "  " : "   ", channel_number(r.channels[i]),
               r.channels[i]);
        if (i % 6 == 5 || i + 1 == r.channels.size()) printf("\n");
    }

    printf("\nHotlist events over %d scan cycles\n", kScanCycles);
    printf("  %-6s %-17s  %-16s %7s %6s\n", "event", "BSSID", "SSID", "channel", "RSSI");
    for (const HotlistEvent& e : r.hotlist) {
        printf("  %-6s %-17s  %-16s %7d %6d\n", e.found ? "found" : "lost", e.bssid.c_str(),
               e.ssid.c_str(), channel_number(e.channel), e.rssi);
    }

    printf("\nCached background scans (first %d)\n", kMaxCachedScans);
    printf("  %-4s %-17s  %-16s %7s %6s\n", "scan", "BSSID", "SSID", "channel", "RSSI");
    for (const CachedScan& scan : r.scans) {
        for (const CachedAp& ap : scan.aps) {
            printf("  %-4d %-17s  %-16s %7d %6d\n", scan.scan_id, ap.bssid.c_str(), ap.ssid.c_str(),
                   channel_number(ap.channel), ap.rssi);
        }
    }
}

std::string scan_report_json(const ScanReport& r) {
    const wifi_rtt_capabilities& c = r.caps;
    char head[512];
    snprintf(head, sizeof(head),
             "\"rtt_capabilities\":{\"one_sided\":%s,\"ftm\":%s,\"lci\":%s,\"lcr\":%s,"
             "\"responder\":%s,\"preamble_mask\":%u,\"bw_mask\":%u,\"mc_version\":%u},"
             "\"channels_5ghz_mhz\":[",
             c.rtt_one_sided_supported ? "true" : "false", c.rtt_ftm_supported ? "true" : "false",
             c.lci_support ? "true" : "false", c.lcr_support ? "true" : "false",
             c.responder_supported ? "true" : "false", c.preamble_support, c.bw_support,
             c.mc_version);
    std::string json = head;
    for (size_t i = 0; i < r.channels.size(); ++i) {
        json += (i > 0 ? "," : "") + std::to_string(r.channels[i]);
    }
    json += "],\"hotlist_events\":[";
    for (size_t i = 0; i < r.hotlist.size(); ++i) {
        const HotlistEvent& e = r.hotlist[i];
        json += std::string(i > 0 ? "," : "") + "{\"event\":\"" + (e.found ? "found" : "lost") +
                "\",\"bssid\":\"" + e.bssid + "\",\"ssid\":\"" + json_escape(e.ssid) +
                "\",\"channel_mhz\":" + std::to_string(e.channel) +
                ",\"rssi_dbm\":" + std::to_string(e.rssi) + "}";
    }
    json += "],\"cached_scans\":[";
    for (size_t k = 0; k < r.scans.size(); ++k) {
        const CachedScan& scan = r.scans[k];
        json += std::string(k > 0 ? "," : "") + "{\"scan_id\":" + std::to_string(scan.scan_id) +
                ",\"num_results\":" + std::to_string(scan.num_results) + ",\"aps\":[";
        for (size_t i = 0; i < scan.aps.size(); ++i) {
            const CachedAp& ap = scan.aps[i];
            json += std::string(i > 0 ? "," : "") + "{\"bssid\":\"" + ap.bssid + "\",\"ssid\":\"" +
                    json_escape(ap.ssid) + "\",\"channel_mhz\":" + std::to_string(ap.channel) +
                    ",\"rssi_dbm\":" + std::to_string(ap.rssi) + "}";
        }
        json += "]}";
    }
    return json + "]";
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse_options(argc, argv, &options)) return 2;

    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.reset();
    varn_sim::Scenario scenario;
    if (!varn_demo::loadScenario("varn_demo", options.scenario_path, &scenario)) return 1;
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

    std::string problem;
    const varn_wifihal_cb_table_t* hal = open_library(&problem);
    if (hal == nullptr) {
        fprintf(stderr, "varn_demo: cannot use libvarn_wifihal: %s\n", problem.c_str());
        return 1;
    }
    const wifi_error init_rc = hal->init();
    if (options.config_path.empty()) unlink(default_config);
    if (init_rc != WIFI_SUCCESS) {
        fprintf(stderr, "varn_demo: varn_wifihal_init failed (%d)\n", init_rc);
        return 1;
    }

    std::vector<wifi_rtt_config> configs;
    for (const auto& ap : aps) configs.push_back(varn_demo::rangingConfigFor(ap));

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
        const wifi_error rc = hal->rtt_range_request(
                round, nullptr, static_cast<unsigned>(configs.size()), configs.data(), handler);
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
                     varn_demo::bandwidthMhz(m.packet_bw), m.success, m.attempted, m.distance_m, m.sd_m, m.spread_m,
                     m.rssi_dbm, std::isnan(truth) ? "null" : std::to_string(truth).c_str(),
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
    json += "]";

    ScanReport scan_report;
    if (exit_code == 0 && !run_scan_part(hal, aps, &scan_report)) exit_code = 1;
    if (exit_code == 0) {
        if (options.json) {
            json += "," + scan_report_json(scan_report) + "}";
            puts(json.c_str());
        } else {
            print_scan_report_text(scan_report);
        }
    }

    hal->destroy();
    return exit_code;
}
