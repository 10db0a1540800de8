#include <varn_wifihal.h>

#include "listener_test_support.h"
#include "wifihal/request_bookkeeping.h"

namespace listener_test {

VARNMeasurementInfo* newFrame(const Frame& frame) {
    auto* info = new VARNMeasurementInfo();
    info->rtt_ps = frame.rtt_ps;
    info->rssi = frame.rssi;
    info->rx_chain_index = frame.rx_chain;
    info->tx_rate.bandwidth = frame.bw;
    info->rx_rate.bandwidth = frame.rx_bw < 0 ? frame.bw : static_cast<uint8_t>(frame.rx_bw);
    info->tx_rate.preamble = frame.preamble;
    info->rx_rate.preamble = frame.preamble;
    return info;
}

VARNScanMeasurement* newPeer(uint8_t last_byte, std::initializer_list<Frame> frames,
                             eVARNRttType type) {
    auto* peer = new VARNScanMeasurement();
    peer->bssid[0] = 0x02;
    peer->bssid[5] = last_byte;
    peer->rtt_type = type;
    peer->frequency = 5180;
    for (const Frame& frame : frames) peer->measurements.push_back(newFrame(frame));
    return peer;
}

void fillFrames(VARNFrameList& list, std::vector<VARNMeasurementInfo>& storage,
                std::initializer_list<int32_t> rtts) {
    storage.clear();
    storage.reserve(rtts.size());
    for (int32_t rtt : rtts) {
        VARNMeasurementInfo info;
        info.rtt_ps = rtt;
        storage.push_back(info);
    }
    for (VARNMeasurementInfo& info : storage) list.push_back(&info);
}

void ListenerTest::SetUp() {
    g_weighted_mean = 0;
    g_discard_bw_mis_match = 0;
    releaseBookkeeping();
    clearReqCache();
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
}

void ListenerTest::TearDown() {
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
    g_weighted_mean = 0;
    g_discard_bw_mis_match = 0;
    releaseBookkeeping();
    clearReqCache();
}

}  // namespace listener_test
