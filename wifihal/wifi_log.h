// Log names of the Wi-Fi layer, shared by the entry layer and the listener:
// the module tags, the library's version string, BSSID text and name-table
// look-ups, and the guards that skip formatting a line that cannot pass.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <loc_utils/loc_utils.h>
#include <varn_client/VARNTypes.h>
#include <vel_loc_fw/log_util.h>

// Tag of the entry layer and of the background-scan conversions; also the
// library's version string. VARN_WIFIHAL_VERSION is the build's project version.
constexpr const char* kWifiHalTag = "VARN-WIFIHAL-" VARN_WIFIHAL_VERSION;
// Tag of the HAL-to-client code conversions.
constexpr const char* kWifiHalIfTag = "VARN_WIFIHAL_IF";
// Tag of the response listener.
constexpr const char* kListenerTag = "VARNClientListener";

// The twelve lower-case hexadecimal digits of a BSSID, for the
// VARN_BSSID_FMT ("%c%c:%c%c:%c%c:%c%c:%c%c:%c%c") formats. Not NUL-terminated.
struct BssidDigits {
    char d[12];
};

// `mask` hides the fourth and fifth octets as '*'.
inline BssidDigits bssidDigits(const uint8_t* bytes, bool mask) {
    static const char kHex[] = "0123456789abcdef";
    BssidDigits out;
    for (int octet = 0; octet < 6; ++octet) {
        const bool hidden = mask && (octet == 3 || octet == 4);
        out.d[2 * octet] = hidden ? '*' : kHex[bytes[octet] >> 4];
        out.d[2 * octet + 1] = hidden ? '*' : kHex[bytes[octet] & 0x0f];
    }
    return out;
}

inline BssidDigits bssidDigits(const VARNMacAddress& mac, bool mask) {
    return bssidDigits(mac.bytes(), mask);
}

// Request dumps mask BSSIDs unless the platform debug level is 5 or more:
// full addresses identify devices.
inline bool maskBssidInDumps() { return varn_debug_level < 5; }

#define VARN_BSSID_FMT "%c%c:%c%c:%c%c:%c%c:%c%c:%c%c"
// The twelve characters of a `BssidDigits` as printf arguments.
#define VARN_BSSID_ARGS(b)                                                                    \
    (b).d[0], (b).d[1], (b).d[2], (b).d[3], (b).d[4], (b).d[5], (b).d[6], (b).d[7], (b).d[8], \
            (b).d[9], (b).d[10], (b).d[11]

// Entry `value` of a name table (index = value); `fallback` when out of range,
// or the table's last entry (its "invalid"/"max" name) when none is given.
template <size_t N>
const char* nameIn(const char* const (&table)[N], int64_t value, const char* fallback = nullptr) {
    if (value >= 0 && static_cast<uint64_t>(value) < N) return table[value];
    return fallback != nullptr ? fallback : table[N - 1];
}

// Verbose line whose arguments are evaluated, and whose log call (with its
// lock) is made, only when verbose lines of `tag` can pass; the output is that
// of an unconditional `log_verbose`.
#define VARN_LOG_VERBOSE(tag, ...)                                                              \
    do {                                                                                        \
        if (vel_loc_fw::is_log_verbose_enabled(tag)) vel_loc_fw::log_verbose(tag, __VA_ARGS__); \
    } while (0)

// The same for debug lines that repeat per frame.
#define VARN_LOG_DEBUG(tag, ...)                                           \
    do {                                                                   \
        if (vel_loc_fw::is_log_level_enabled(tag, vel_loc_fw::EL_DEBUG)) { \
            vel_loc_fw::log_debug(tag, __VA_ARGS__);                       \
        }                                                                  \
    } while (0)
