// Builders and fixtures shared by the listener tests.
#pragma once

#include <gtest/gtest.h>
#include <hardware_legacy/rtt.h>
#include <varn_client/VARNClient.h>
#include <vel_loc_fw/log_util.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "listener/varn_client_listener_impl.h"

namespace listener_test {

// One ranging frame.
struct Frame {
    int32_t rtt_ps = 0;
    int16_t rssi = -120;
    uint8_t rx_chain = 0;
    uint8_t bw = VARN_BW_20MHZ;  // both directions; legacy preamble
};

// A measurement of peer `last_byte` (BSSID 02:00:00:00:00:<last_byte>) with
// the given frames; the caller owns it.
VARNScanMeasurement* newPeer(uint8_t last_byte, std::initializer_list<Frame> frames,
                             eVARNRttType type = VARN_RTT_TYPE_2_SIDED);

// A scanned AP a0:00:00:00:00:<last_byte> on 2412 + last_byte MHz named
// "net<last_byte>", one observation per RSSI value (time stamp 1000 +
// last_byte) and the `ie` bytes; the caller owns it.
VARNScanMeasurement* newAp(uint8_t last_byte, std::vector<int16_t> rssi,
                           std::vector<uint8_t> ie = {});

// A HAL ranging request for AP 02:5a:00:00:00:<last> of the simulated service.
wifi_rtt_config rttConfig(uint8_t last, wifi_rtt_type type, int freq, int center0,
                          wifi_channel_width width, wifi_rtt_bw bw, uint8_t frames);

// Starts the HAL on a fresh simulated service (with `scenario` unless null)
// and no configuration file; stopHal() undoes it.
void startHal(const char* scenario);
void stopHal();

// Clears the listener statistics globals, the debug level and the bookkeeping
// before and after each test, which logs at verbose level.
class ListenerTest : public ::testing::Test {
  protected:
    void SetUp() override { reset(vel_loc_fw::EL_VERBOSE); }
    void TearDown() override { reset(vel_loc_fw::EL_LOG_OFF); }
    static void reset(vel_loc_fw::ERROR_LEVEL level);

    VARNClientListenerImpl listener_{50};
};

}  // namespace listener_test
