#include "wifihal_test_support.h"

#include <string.h>

#include <loc_utils/loc_utils.h>
#include <varn_wifihal.h>
#include <vel_loc_fw/log_util.h>

namespace wifihal_test {

void WifiHalTest::SetUp() {
    varn_wifihal_destroy();
    sim().reset();
    loc_utils_set_varn_conf_path("/nonexistent/varn-wifihal-test.conf");
    g_weighted_mean = 0;
    g_discard_bw_mis_match = 0;
    varn_debug_level = 3;
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
    capture_.clear();
}

void WifiHalTest::TearDown() {
    varn_wifihal_destroy();  // the next SetUp resets the settings
    loc_utils_set_varn_conf_path(nullptr);
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
}

void WifiHalTest::useConfig(const std::string& content) {
    config_path_ = varn_test::write_temp_file(content);
    loc_utils_set_varn_conf_path(config_path_.c_str());
}

void WifiHalUpTest::SetUp() {
    WifiHalTest::SetUp();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
    capture_.clear();
}

wifi_rtt_config validConfig(unsigned char last_octet) {
    wifi_rtt_config c{};
    const unsigned char addr[6] = {0x00, 0x11, 0x22, 0x33, 0x44, last_octet};
    memcpy(c.addr, addr, sizeof(addr));
    c.type = RTT_TYPE_2_SIDED, c.peer = RTT_PEER_AP,
    c.channel = {WIFI_CHAN_WIDTH_20, 5180, 5180, 0};
    c.num_frames_per_burst = 8, c.burst_duration = 15;
    c.preamble = WIFI_RTT_PREAMBLE_LEGACY, c.bw = WIFI_RTT_BW_20;
    return c;
}

int effectiveGlobalLogLevel(const varn_test::LogCapture& capture) {
    const size_t before = capture.count("[WifiHalLevelProbe] probe");
    for (auto log : {vel_loc_fw::log_error, vel_loc_fw::log_warning, vel_loc_fw::log_info,
                     vel_loc_fw::log_debug, vel_loc_fw::log_verbose}) {
        log("WifiHalLevelProbe", "probe");
    }
    return static_cast<int>(capture.count("[WifiHalLevelProbe] probe") - before);
}

}  // namespace wifihal_test
