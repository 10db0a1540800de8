#include "listener_test_support.h"

#include <loc_utils/loc_utils.h>
#include <varn_sim/simulator.h>

namespace listener_test {

VARNScanMeasurement* newPeer(uint8_t last_byte, std::initializer_list<Frame> frames,
                             eVARNRttType type) {
    auto* peer = new VARNScanMeasurement();
    peer->bssid[0] = 0x02;
    peer->bssid[5] = last_byte;
    peer->rtt_type = type;
    peer->frequency = 5180;
    for (const Frame& frame : frames) {
        auto* info = new VARNMeasurementInfo();
        info->rtt_ps = frame.rtt_ps;
        info->rssi = frame.rssi;
        info->rx_chain_index = frame.rx_chain;
        info->tx_rate.bandwidth = info->rx_rate.bandwidth = frame.bw;
        peer->measurements.push_back(info);
    }
    return peer;
}

VARNScanMeasurement* newAp(uint8_t last_byte, std::vector<int16_t> rssi, std::vector<uint8_t> ie) {
    auto* meas = new VARNScanMeasurement();
    meas->bssid[0] = 0xa0;
    meas->bssid[5] = last_byte;
    meas->frequency = 2412 + last_byte;
    const std::string ssid = "net" + std::to_string(last_byte);
    meas->ssid.setSSID(ssid.c_str(), static_cast<uint32_t>(ssid.size()));
    for (int16_t value : rssi) {
        auto* info = new VARNMeasurementInfo();
        info->rssi = value;
        info->rssi_timestamp = 1000u + last_byte;
        meas->measurements.push_back(info);
    }
    for (uint8_t byte : ie) meas->ie_data.push_back(byte);
    return meas;
}

wifi_rtt_config rttConfig(uint8_t last, wifi_rtt_type type, int freq, int center0,
                          wifi_channel_width width, wifi_rtt_bw bw, uint8_t frames) {
    wifi_rtt_config c{};
    const uint8_t addr[6] = {0x02, 0x5a, 0, 0, 0, last};
    for (int i = 0; i < 6; ++i) c.addr[i] = addr[i];
    c.type = type;
    c.peer = RTT_PEER_AP;
    c.channel = {width, freq, center0, 0};
    c.num_frames_per_burst = frames;
    c.burst_duration = type == RTT_TYPE_2_SIDED ? 15 : 11;
    c.preamble = bw == WIFI_RTT_BW_20 ? WIFI_RTT_PREAMBLE_LEGACY : WIFI_RTT_PREAMBLE_VHT;
    c.bw = bw;
    return c;
}

void startHal(const char* scenario) {
    varn_wifihal_destroy();
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.reset();
    if (scenario != nullptr) {
        varn_sim::Scenario parsed;
        std::string error;
        ASSERT_EQ(0, varn_sim::Scenario::parse(scenario, &parsed, &error)) << error;
        sim.setScenario(parsed);
    }
    loc_utils_set_varn_conf_path("/nonexistent/varn-listener-test.conf");
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
}

void stopHal() {
    varn_wifihal_destroy();
    loc_utils_set_varn_conf_path(nullptr);
}

void ListenerTest::reset(vel_loc_fw::ERROR_LEVEL level) {
    vel_loc_fw::log_set_global_level(level);
    varn_debug_level = 3;
    g_weighted_mean = 0;
    g_discard_bw_mis_match = 0;
    releaseBookkeeping();
    clearReqCache();
}

}  // namespace listener_test
