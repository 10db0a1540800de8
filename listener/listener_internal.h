// Helpers shared by the listener's source files (not exported).
#pragma once

#include <varn_client/VARNTypes.h>
#include <vel_loc_fw/log_util.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace varn_listener {

// Tag of every log line of the listener.
constexpr const char* kTag = "VARNClientListener";
// Tag of the background-scan conversions, shared with the entry layer.
constexpr const char* kWifiHalTag = "VARN-WIFIHAL-" VARN_WIFIHAL_VERSION;

// Twelve lower-case hexadecimal digits of a BSSID, for the "%c%c:..." log
// formats. Not NUL-terminated.
struct BssidDigits {
    char d[12];
};

inline BssidDigits bssidDigits(const uint8_t* bytes) {
    static const char kHex[] = "0123456789abcdef";
    BssidDigits out;
    for (int i = 0; i < 6; ++i) {
        out.d[2 * i] = kHex[bytes[i] >> 4];
        out.d[2 * i + 1] = kHex[bytes[i] & 0xf];
    }
    return out;
}

inline BssidDigits bssidDigits(const VARNMacAddress& mac) {
    uint8_t bytes[6];
    for (int i = 0; i < 6; ++i) bytes[i] = mac[i];
    return bssidDigits(bytes);
}

// Verbose message whose arguments are evaluated and whose log call (with its
// lock) is made only when verbose messages of `tag` can pass; the output is the
// same as an unconditional `log_verbose`.
#define VARN_LOG_VERBOSE(tag, ...)                                                              \
    do {                                                                                        \
        if (vel_loc_fw::is_log_verbose_enabled(tag)) vel_loc_fw::log_verbose(tag, __VA_ARGS__); \
    } while (0)

// Per-frame debug lines: skipped before formatting when debug cannot pass.
#define VARN_LOG_DEBUG(tag, ...)                                           \
    do {                                                                   \
        if (vel_loc_fw::is_log_level_enabled(tag, vel_loc_fw::EL_DEBUG)) { \
            vel_loc_fw::log_debug(tag, __VA_ARGS__);                       \
        }                                                                  \
    } while (0)

// The twelve characters of `BssidDigits` as printf arguments.
#define VARN_BSSID_ARGS(b)                                                                    \
    (b).d[0], (b).d[1], (b).d[2], (b).d[3], (b).d[4], (b).d[5], (b).d[6], (b).d[7], (b).d[8], \
            (b).d[9], (b).d[10], (b).d[11]
#define VARN_BSSID_FMT "%c%c:%c%c:%c%c:%c%c:%c%c:%c%c"

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
