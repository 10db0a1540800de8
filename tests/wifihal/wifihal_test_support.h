// Shared fixtures and builders of the entry-layer tests.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include <hardware_legacy/rtt.h>
#include <varn_sim/simulator.h>

#include "log_capture.h"

namespace wifihal_test {

// Starts every case from a down interface, a reset simulator, no
// configuration file and all log levels let through; tears down afterwards.
class WifiHalTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Points the configuration path at a new file holding `content`.
    void useConfig(const std::string& content);
    varn_sim::Simulator& sim() { return varn_sim::Simulator::instance(); }

    varn_test::LogCapture capture_;
    std::string config_path_;
};

// The same with the interface up, all levels let through again, nothing captured yet.
class WifiHalUpTest : public WifiHalTest {
  protected:
    void SetUp() override;
};

// A configuration every check accepts: two-sided, AP peer, 20 MHz legacy,
// 8 frames per burst, burst duration 15, BSSID 00:11:22:33:44:`last_octet`.
wifi_rtt_config validConfig(unsigned char last_octet = 0x55);

// The global log threshold (0..5): how many of five probe lines, one per
// level, the active `capture` received.
int effectiveGlobalLogLevel(const varn_test::LogCapture& capture);

}  // namespace wifihal_test
