// Builders, fixtures and the headers every listener test uses.
#pragma once

#include <gtest/gtest.h>
#include <hardware_legacy/rtt.h>
#include <varn_client/VARNClient.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>
#include <vel_loc_fw/log_util.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "listener/varn_client_listener_impl.h"
#include "log_capture.h"
#include "wifihal/request_bookkeeping.h"

namespace listener_test {

// One ranging frame.
struct Frame {
    int32_t rtt_ps = 0;
    int16_t rssi = -120;
    uint8_t rx_chain = 0;
    uint8_t bw = VARN_BW_20MHZ;  // both directions; legacy preamble
};

// Peer 02:00:00:00:00:<last_byte> on 5180 MHz with the given frames; the caller owns it.
VARNScanMeasurement* newPeer(uint8_t last_byte, std::initializer_list<Frame> frames,
                             eVARNRttType type = VARN_RTT_TYPE_2_SIDED);

// AP a0:00:00:00:00:<last_byte> "net<last_byte>" on 2412 + last_byte MHz, one
// observation per RSSI value (time stamp 1000 + last_byte); the caller owns it.
VARNScanMeasurement* newAp(uint8_t last_byte, std::vector<int16_t> rssi,
                           std::vector<uint8_t> ie = {});

// A HAL ranging request for AP 02:5a:00:00:00:<last> of the simulated service.
wifi_rtt_config rttConfig(uint8_t last, wifi_rtt_type type, int freq, int center0,
                          wifi_channel_width width, wifi_rtt_bw bw, uint8_t frames);

// Starts the HAL on a fresh simulated service (with `scenario` unless null)
// and no configuration file; stopHal() undoes it.
void startHal(const char* scenario);
void stopHal();

// Resets the listener globals and the bookkeeping around each test (logging verbose).
class ListenerTest : public ::testing::Test {
  protected:
    void SetUp() override { reset(vel_loc_fw::EL_VERBOSE); }
    void TearDown() override { reset(vel_loc_fw::EL_LOG_OFF); }
    static void reset(vel_loc_fw::ERROR_LEVEL level);

    VARNClientListenerImpl listener_{50};
};

}  // namespace listener_test
