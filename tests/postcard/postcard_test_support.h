// Shared helpers of the postcard tests.
#pragma once

#include <stdint.h>

#include <vector>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/memory_stream.h>

namespace varn_test {

// Makes one of the next non-throwing allocations (new (std::nothrow), scalar
// or array) fail: `succeed` of them still succeed, the one after returns null.
// Disarmed on destruction and after the failure. Throwing allocations are not
// affected.
class NothrowAllocationFailure {
  public:
    explicit NothrowAllocationFailure(int succeed);
    ~NothrowAllocationFailure();
    NothrowAllocationFailure(const NothrowAllocationFailure&) = delete;
    NothrowAllocationFailure& operator=(const NothrowAllocationFailure&) = delete;
    // True once the planned failure happened.
    bool triggered() const;
};

// Lets every message through while alive, so that tests can assert on them.
class VerboseLogScope {
  public:
    VerboseLogScope() { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE); }
    ~VerboseLogScope() { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF); }
    VerboseLogScope(const VerboseLogScope&) = delete;
    VerboseLogScope& operator=(const VerboseLogScope&) = delete;
};

// The valid bytes of a stream.
std::vector<uint8_t> stream_bytes(const vel_loc_fw::MemoryStreamBase* stream);

}  // namespace varn_test
