// A ranging node for the simulated client library's tests.
#pragma once

#include <varn_client/VARNClient.h>
#include <varn_sim/simulator.h>

namespace varn_sim_test {

inline VARNPeriodicNodeInfo nodeFor(const varn_sim::AccessPoint& ap, uint8_t frames = 8) {
    VARNPeriodicNodeInfo node;
    node.bssid = ap.bssid;
    node.frequency = ap.frequency;
    node.center_freq0 = ap.center_freq0;
    node.rtt_type = ap.two_sided ? VARN_RTT_TYPE_2_SIDED : VARN_RTT_TYPE_1_SIDED;
    node.bandwidth = ap.width;
    node.preamble = VARN_RTT_PREAMBLE_VHT;
    node.packets_per_measurement = frames;
    return node;
}

}  // namespace varn_sim_test
