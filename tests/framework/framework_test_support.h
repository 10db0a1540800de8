// Fixture and common includes of the framework's tests.
#pragma once

#include <stdint.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"

namespace varn_test {

// Every level on and the Android log captured while a test runs; the logging
// state is reset after it.
class VerboseLogTest : public ::testing::Test {
  protected:
    void SetUp() override { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE); }
    void TearDown() override {
        vel_loc_fw::log_flush_all_local_level();
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF);
        vel_loc_fw::log_set_global_tag("ZORLOG");
    }
    // Expects exactly one line logged since the last check, and forgets it.
    void expect_line(int priority, const std::string& text, const std::string& tag = "ZORLOG") {
        const std::vector<AndroidLogLine> lines = log_.lines();
        ASSERT_EQ(1u, lines.size()) << log_.dump();
        EXPECT_EQ(priority, lines[0].priority);
        EXPECT_EQ(text, lines[0].text);
        EXPECT_EQ(tag, lines[0].tag);
        log_.clear();
    }
    LogCapture log_;
};

}  // namespace varn_test
