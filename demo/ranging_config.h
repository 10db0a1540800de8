// The ranging request the Android framework makes of one access point.
#pragma once

#include <string.h>

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

}  // namespace varn_demo
