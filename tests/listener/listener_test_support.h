// Builders and fixtures shared by the listener tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include <gtest/gtest.h>
#include <varn_client/VARNClient.h>
#include <vel_loc_fw/log_util.h>

#include "listener/varn_client_listener_impl.h"

namespace listener_test {

// One ranging frame.
struct Frame {
    int32_t rtt_ps = 0;
    int16_t rssi = -120;
    uint8_t rx_chain = 0;
    uint8_t bw = VARN_BW_20MHZ;     // both directions unless rx_bw is set
    int rx_bw = -1;                 // -1: same as bw
    uint8_t preamble = VARN_PREAMBLE_LEGACY;
};

// A heap frame record (owned by whoever it is pushed into).
VARNMeasurementInfo* newFrame(const Frame& frame);

// A measurement of peer `last_byte` (BSSID 02:00:00:00:00:<last_byte>) with
// the given frames; the caller owns it.
VARNScanMeasurement* newPeer(uint8_t last_byte, std::initializer_list<Frame> frames,
                             eVARNRttType type = VARN_RTT_TYPE_2_SIDED);

// Appends frames with the given RTTs (chain 0, 20 MHz, legacy) held in `storage`.
void fillFrames(VARNFrameList& list, std::vector<VARNMeasurementInfo>& storage,
                std::initializer_list<int32_t> rtts);

// Sets the listener statistics globals and the log level for one test and
// restores them afterwards; clears the bookkeeping before and after.
class ListenerTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    VARNClientListenerImpl listener_{50};
};

}  // namespace listener_test
