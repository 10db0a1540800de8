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

// Every level on and the Android log captured while a test runs.
class VerboseLogTest : public ::testing::Test {
  protected:
    void SetUp() override { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE); }
    void TearDown() override { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF); }
    LogCapture log_;
};

}  // namespace varn_test
