// Internal pieces shared by the entry points of the Wi-Fi HAL entry layer
// (not exported).
#pragma once

#include <stddef.h>

#include <varn_client/VARNClient.h>

// Log tag of the entry layer; also the library's version string.
constexpr const char* kWifiHalTag = "VARN-WIFIHAL-2.1.1.25";

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
