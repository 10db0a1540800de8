// The non-throwing forms of operator new are replaced for the whole test program;
// they forward to the throwing forms, so the sanitizers still see every allocation.
#include "tests/postcard/postcard_test_support.h"

#include <atomic>
#include <new>

#include <gtest/gtest.h>

namespace {

// -1 disarmed; otherwise how many non-throwing allocations still succeed.
std::atomic<int> g_remaining{-1};
std::atomic<bool> g_triggered{false};

void* allocate_or_fail(std::size_t size, bool array) {
    int remaining = g_remaining.load();
    while (remaining >= 0 && !g_remaining.compare_exchange_weak(remaining, remaining - 1)) {
    }
    if (remaining == 0) {
        g_triggered = true;
        return nullptr;
    }
    try {
        return array ? ::operator new[](size) : ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate_or_fail(size, false);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate_or_fail(size, true);
}

namespace varn_test {

NothrowAllocationFailure::NothrowAllocationFailure(int succeed) {
    g_triggered = false;
    g_remaining = succeed;
}

NothrowAllocationFailure::~NothrowAllocationFailure() { g_remaining = -1; }

bool NothrowAllocationFailure::triggered() const { return g_triggered.load(); }

Bytes stream_bytes(const vel_loc_fw::MemoryStreamBase* stream) {
    const uint8_t* bytes = static_cast<const uint8_t*>(stream->getBuffer());
    return bytes == nullptr ? Bytes() : Bytes(bytes, bytes + stream->getSize());
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
    return le(type, 2) + le(name.size() + 1, 2) +
           Bytes(name.c_str(), name.c_str() + name.size() + 1) + value;
}

Bytes postcard_of(const Bytes& fields, int64_t body_length) {
    return le(body_length >= 0 ? static_cast<uint64_t>(body_length) : fields.size() + 1, 4) +
           fields + Bytes{0};
}

std::unique_ptr<vel_loc_fw::OutPostcard> started() {
    std::unique_ptr<vel_loc_fw::OutPostcard> card(vel_loc_fw::OutPostcard::createInstance());
    EXPECT_EQ(0, card->init());
    return card;
}

}  // namespace varn_test
