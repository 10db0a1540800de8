// Allocation failure injection for the postcard tests.
//
// Replaces the non-throwing forms of operator new for the whole test program.
// The replacements forward to the throwing forms, so every allocation is still
// made (and checked) by the sanitizer's or the standard library's allocator and
// released by the matching delete.
#include "tests/postcard/postcard_test_support.h"

#include <atomic>
#include <new>

namespace {

// -1 disarmed; otherwise the number of non-throwing allocations that still
// succeed before one fails.
std::atomic<int> g_remaining{-1};
std::atomic<bool> g_triggered{false};

bool should_fail() {
    int remaining = g_remaining.load();
    while (remaining >= 0) {
        if (g_remaining.compare_exchange_weak(remaining, remaining - 1)) {
            if (remaining == 0) {
                g_triggered = true;
                return true;
            }
            return false;
        }
    }
    return false;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (should_fail()) return nullptr;
    try {
        return ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (should_fail()) return nullptr;
    try {
        return ::operator new[](size);
    } catch (...) {
        return nullptr;
    }
}

namespace varn_test {

NothrowAllocationFailure::NothrowAllocationFailure(int succeed) {
    g_triggered = false;
    g_remaining = succeed;
}

NothrowAllocationFailure::~NothrowAllocationFailure() {
    g_remaining = -1;
}

bool NothrowAllocationFailure::triggered() const {
    return g_triggered.load();
}

std::vector<uint8_t> stream_bytes(const vel_loc_fw::MemoryStreamBase* stream) {
    const uint8_t* bytes = static_cast<const uint8_t*>(stream->getBuffer());
    if (bytes == nullptr) return {};
    return std::vector<uint8_t>(bytes, bytes + stream->getSize());
}

}  // namespace varn_test
