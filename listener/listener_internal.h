// Helpers shared by the listener's source files (not exported).
#pragma once

#include "wifihal/wifi_log.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace varn_listener {

// 10^(rssi / 20), the amplitude of a level in half-dB units: the value of
// pow(10.0, rssi / 20.0), bit for bit, taken from a table for the levels
// ranging frames carry and from pow for the others.
double rssiAmplitude(int32_t rssi);

// A short array of trivially copyable values that lives on the stack while it
// holds at most `N` elements and moves to the heap beyond that. Ranging
// bursts have at most 31 frames per chain, so the per-peer statistics
// normally run without touching the allocator.
template <typename T, uint32_t N>
class InlineArray {
    static_assert(std::is_trivially_copyable<T>::value, "elements are moved with memcpy");

  public:
    InlineArray() = default;
    ~InlineArray() {
        if (data_ != inline_) std::free(data_);
    }
    InlineArray(const InlineArray&) = delete;
    InlineArray& operator=(const InlineArray&) = delete;

    // Appends `value`. Returns 0, or -1 when the heap array cannot grow (the
    // element is then not added).
    int push_back(const T& value) {
        if (size_ == capacity_) {
            if (capacity_ > UINT32_MAX / 2) return -1;
            const uint32_t doubled = capacity_ * 2;
            T* grown = static_cast<T*>(std::malloc(sizeof(T) * doubled));
            if (grown == nullptr) return -1;
            std::memcpy(static_cast<void*>(grown), data_, sizeof(T) * size_);
            if (data_ != inline_) std::free(data_);
            data_ = grown;
            capacity_ = doubled;
        }
        data_[size_++] = value;
        return 0;
    }

    // Removes element `index` (< size), keeping the order of the others.
    void erase(uint32_t index) {
        std::memmove(static_cast<void*>(&data_[index]), &data_[index + 1],
                     sizeof(T) * (size_ - index - 1));
        --size_;
    }

    T& operator[](uint32_t index) { return data_[index]; }
    const T& operator[](uint32_t index) const { return data_[index]; }
    uint32_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T* data() { return data_; }
    const T* data() const { return data_; }

  private:
    T inline_[N];
    T* data_ = inline_;
    uint32_t size_ = 0;
    uint32_t capacity_ = N;
};

}  // namespace varn_listener
