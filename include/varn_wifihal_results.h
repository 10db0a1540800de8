// Result conversions of the VARN Wi-Fi HAL response listener.
//
// The listener turns the VARN client library's measurements into the Android
// legacy Wi-Fi HAL records. The pieces other components need are exported
// here: the background-scan conversions (also used by the cached-results
// query of the entry layer), the release of a ranging result array, and the
// name tables used in log texts (index = value).
//
//   wifi_cached_scan_results out[4];
//   toWiFiCachedScanResults(4, out, response->getCachedResults());
#pragma once

#include <cstdint>

#include <hardware_legacy/gscan.h>
#include <hardware_legacy/rtt.h>
#include <varn_client/VARNMeasurement.h>
#include <varn_client/VARNTypes.h>
#include <vel_loc_fw/fw_export.h>
#include <vel_loc_fw/vector.h>

// ---------------------------------------------------------------------------
// Background-scan conversions (no allocation; log tag "VARN-WIFIHAL-2.1.1.25")
// ---------------------------------------------------------------------------

// Maps the scan-status word of a background-scan event: 0 (report threshold
// reached) gives WIFI_SCAN_THRESHOLD_PERCENT (2), every other value 0.
VEL_LOC_FW_EXPORT wifi_scan_event toWifiScanEvent(eVARNBgScanEvent event);

// Converts min(`count`, `meas.size()`) measurements into `out[0..]`.
// Records sit at the fixed 88-byte stride of `wifi_scan_result` and each
// record's information-element bytes are written from its `ie_data` on: bytes
// beyond the 8 at the end of a record land in the next record (later
// overwritten by it) or, for the last one, in whatever the caller allocated
// after it. `rssi`, `rtt`, `rtt_sd` and `ts` are written only for a
// measurement with exactly one measurement info; otherwise they keep what
// `out` held. An SSID reported longer than 32 bytes aborts the process.
VEL_LOC_FW_EXPORT void toWiFiScanResult(unsigned int count, wifi_scan_result* out,
                                        vel_loc_fw::vector<VARNScanMeasurement*>& meas);

// Converts min(`max`, `cached.size()`) cached scans into `out[0..]` (records
// of 2832 bytes). `num_results` is the uncapped number of measurements of the
// scan; at most 32 of them are converted, as `toWiFiScanResult` does. `out`
// must hold `max` records: information-element bytes that would run past its
// end are not written (`ie_length` still gives the number the AP sent). The
// caller reports the same minimum to the HAL. An SSID reported longer than 32
// bytes aborts the process.
VEL_LOC_FW_EXPORT void toWiFiCachedScanResults(unsigned int max, wifi_cached_scan_results* out,
                                               vel_loc_fw::vector<VARNBgscanCachedResult*>& cached);

// ---------------------------------------------------------------------------
// Ranging results
// ---------------------------------------------------------------------------

// Releases a ranging result array made by the listener: when `results` is not
// null, frees the LCI and LCR blocks of the FIRST element only, then the
// array. The LCI/LCR blocks of the second and later elements are not freed
// here; a caller that wants them released frees them itself before this call.
VEL_LOC_FW_EXPORT void FREE_RTT_RESULTS(wifi_rtt_result_v2* results);

// ---------------------------------------------------------------------------
// Name tables for log texts, indexed by value
// ---------------------------------------------------------------------------

VEL_LOC_FW_EXPORT extern const char* const BW_STR[4];                // client bandwidth code
VEL_LOC_FW_EXPORT extern const char* const NODE_STR[3];              // node type
VEL_LOC_FW_EXPORT extern const char* const PREAMBLE_STR[4];          // client preamble
VEL_LOC_FW_EXPORT extern const char* const RTT_STR[3];               // client RTT type
VEL_LOC_FW_EXPORT extern const char* const WIFIHAL_RTT_STR[2];       // wifi_rtt_type - 1
VEL_LOC_FW_EXPORT extern const char* const WIFIHAL_PREAMBLE_STR[6];  // wifi_rate.preamble
VEL_LOC_FW_EXPORT extern const char* const WIFIHAL_NSS_STR[4];       // wifi_rate.nss
VEL_LOC_FW_EXPORT extern const char* const WIFIHAL_BW[8];            // wifi_channel_width
VEL_LOC_FW_EXPORT extern const char* const WIFIHAL_PEER_STR[7];      // peer type
VEL_LOC_FW_EXPORT extern const char* const WIFIHAL_STATUS[18];       // wifi_rtt_status
VEL_LOC_FW_EXPORT extern const char* const TARGET_STATUS[12];        // eVARNTargetStatus
