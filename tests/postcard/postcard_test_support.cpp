// Allocation failure injection for the postcard tests.
//
// Replaces the non-throwing forms of operator new for the whole test program.
// The replacements forward to the throwing forms, so every allocation is still
// made (and checked) by the sanitizer's or the standard library's allocator and
// released by the matching delete.
#include "tests/postcard/postcard_test_support.h"

#include <atomic>
#include <new>

#include <gtest/gtest.h>

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

Bytes stream_bytes(const vel_loc_fw::MemoryStreamBase* stream) {
    const uint8_t* bytes = static_cast<const uint8_t*>(stream->getBuffer());
    if (bytes == nullptr) return {};
    return Bytes(bytes, bytes + stream->getSize());
}

Bytes le(uint64_t value, int width) {
    Bytes out;
    for (int i = 0; i < width; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return out;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes record(uint16_t type, const std::string& name, const Bytes& value) {
    return le(type, 2) + le(name.size() + 1, 2) + Bytes(name.begin(), name.end()) + Bytes{0} +
           value;
}

Bytes postcard_of(const Bytes& fields, int64_t body_length) {
    const uint64_t body = body_length >= 0 ? static_cast<uint64_t>(body_length) : fields.size() + 1;
    return le(body, 4) + fields + Bytes{0};
}

std::unique_ptr<vel_loc_fw::OutPostcard> started() {
    std::unique_ptr<vel_loc_fw::OutPostcard> card(vel_loc_fw::OutPostcard::createInstance());
    EXPECT_EQ(0, card->init());
    return card;
}

}  // namespace varn_test
