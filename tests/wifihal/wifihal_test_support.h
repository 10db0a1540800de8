// Shared fixtures and builders of the entry-layer tests.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include <hardware_legacy/rtt.h>
#include <varn_sim/simulator.h>

#include "log_capture.h"

namespace wifihal_test {

// Each case starts down, with a reset simulator, no configuration file, all log levels.
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

// Accepted by every check: two-sided, AP, 20 MHz legacy, 8 frames, BSSID 00:11:22:33:44:xx.
wifi_rtt_config validConfig(unsigned char last_octet = 0x55);

// The global log threshold (0..5): how many of five probe lines, one per level, got through.
int effectiveGlobalLogLevel(const varn_test::LogCapture& capture);

}  // namespace wifihal_test
