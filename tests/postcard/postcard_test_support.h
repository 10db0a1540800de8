#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/memory_stream.h>
#include <vel_loc_fw/postcard.h>

namespace varn_test {

// Makes one of the next non-throwing allocations (new (std::nothrow), scalar
// or array) fail: `succeed` of them still succeed, the one after returns null.
// Disarmed on destruction and after the failure.
class NothrowAllocationFailure {
  public:
    explicit NothrowAllocationFailure(int succeed);
    ~NothrowAllocationFailure();
    NothrowAllocationFailure(const NothrowAllocationFailure&) = delete;
    NothrowAllocationFailure& operator=(const NothrowAllocationFailure&) = delete;
    bool triggered() const;  // the planned failure happened
};

// Lets every message through while alive, so that tests can assert on them.
struct VerboseLogScope {
    VerboseLogScope() { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE); }
    ~VerboseLogScope() { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF); }
};

using Bytes = std::vector<uint8_t>;

Bytes stream_bytes(const vel_loc_fw::MemoryStreamBase* stream);  // its valid bytes
Bytes le(uint64_t value, int width);  // the low `width` bytes, little-endian
Bytes operator+(Bytes left, const Bytes& right);
// One field record: type, name length, name with its NUL, then `value`.
Bytes record(uint16_t type, const std::string& name, const Bytes& value = {});
// Body length (the right one unless given), `fields`, end byte.
Bytes postcard_of(const Bytes& fields, int64_t body_length = -1);
std::unique_ptr<vel_loc_fw::OutPostcard> started();  // a writer ready for adds

}  // namespace varn_test
