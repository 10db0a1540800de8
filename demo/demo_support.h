// What the demo programs share: the framework's ranging request, bandwidth
// codes and scenario files.
#pragma once

#include <stdio.h>
#include <string.h>

#include <string>

#include <hardware_legacy/rtt.h>
#include <varn_sim/simulator.h>

namespace varn_demo {

// Framework defaults for one access point: 8 frames in a single burst of
// duration code 9, 3 retries, LCI and LCR requested, bandwidth and preamble
// from the channel width.
inline wifi_rtt_config rangingConfigFor(const varn_sim::AccessPoint& ap) {
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

// MHz of a `packet_bw` value; 0 when unspecified or unknown.
inline int bandwidthMhz(int packet_bw) {
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

// Reads the scenario file at `path` (the built-in scenario when empty) into
// `scenario`; says why on standard error, as `program`, when it cannot.
inline bool loadScenario(const char* program, const std::string& path,
                         varn_sim::Scenario* scenario) {
    *scenario = varn_sim::Scenario::defaultScenario();
    if (path.empty()) return true;
    std::string error;
    const int line = varn_sim::Scenario::parseFile(path, scenario, &error);
    if (line == 0) return true;
    fprintf(stderr, "%s: cannot use scenario %s (%s%s): %s\n", program, path.c_str(),
            line > 0 ? "line " : "", line > 0 ? std::to_string(line).c_str() : "unreadable",
            error.c_str());
    return false;
}

}  // namespace varn_demo
