// Internal pieces shared by the entry points of the Wi-Fi HAL entry layer
// (not exported).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <type_traits>

#include <varn_client/VARNClient.h>
#include <varn_wifihal.h>

// Log tag of the entry layer; also the library's version string.
constexpr const char* kWifiHalTag = "VARN-WIFIHAL-" VARN_WIFIHAL_VERSION;

// Tag of the HAL-to-client conversion helpers.
constexpr const char* kWifiHalIfTag = "VARN_WIFIHAL_IF";

// Dynamic capabilities of the latest capability query, overwritten by each.
extern VARNDynamicCapabilities g_dynamic_capabilities;

// Number of characters of a BSSID printed as "%c%c:%c%c:%c%c:%c%c:%c%c:%c%c".
constexpr size_t kBssidDigits = 12;

// Fills `digits` with the twelve lower-case hexadecimal digits of `bssid`.
// The fourth and fifth octets become '*' unless the platform debug level
// (`varn_debug_level`) is at least 5, so that logs do not identify devices.
void bssidDigits(const unsigned char* bssid, char (&digits)[kBssidDigits]);

// True while no request can be sent: the interface is down, or a second init
// while up dropped the client and left the flag set. Entry points that use
// `client` refuse with WIFI_ERROR_UNINITIALIZED in both cases.
inline bool clientUnavailable() {
    return varn_wifihal_interface_initialized == 0 || client == nullptr;
}

// The integer a C HAL stored in an enumeration-typed field of its records.
// Such a field may hold any value; loading it as the enumeration type is
// undefined for values outside the enumeration's range, so it is read as the
// plain integer it is.
template <typename Enum>
int32_t halInt(const Enum& field) {
    static_assert(std::is_enum<Enum>::value && sizeof(Enum) == sizeof(int32_t),
                  "HAL enumerations are 32-bit");
    int32_t value;
    memcpy(&value, &field, sizeof(value));
    return value;
}
