// VARN client library: capability records, request parameters and location
// information. Plain records: value semantics, zero-initialised by default.
#pragma once

#include <cstdint>

#include <varn_client/VARNTypes.h>

// Static ranging and scanning capabilities of the service.
struct VARNCapabilities {
    uint8_t discovery_scan_supported = 0;
    uint8_t ranging_scan_supported = 0;
    uint8_t active_scan_supported = 0;
    uint8_t one_sided_ranging_supported = 0;
    uint8_t dual_sided_ranging_supported_11mc = 0;
    uint8_t bgscan_supported = 0;
    uint8_t bwSupport = 0;        // highest eVARNBandwidth supported (0..3)
    uint8_t preambleSupport = 0;  // bit mask, Android PREAMBLE_* coding
    uint8_t mcVersion = 0;        // 802.11mc draft version x 10
    uint32_t scans_supported = 0; // bit mask; kScansResponder = responder support
    static constexpr uint32_t kScansResponder = 1u << 5;
};

// Capabilities that depend on the current state of the platform.
struct VARNDynamicCapabilities {
    uint32_t lpBatchingSupported = 0;
    uint32_t lpMaxNumAPBatched = 0;
    uint32_t lpBgscanBatchingSupported = 0;
    uint32_t lpBgscanMaxScanCacheSize = 0;
    uint32_t lpBgscanMaxApCachePerScan = 0;
    uint32_t lpBgscanMaxScanReportThresh = 0;
};

// Background-scan capabilities, field for field those of the Android record.
struct VARNGscanCapabilities {
    int32_t max_scan_cache_size = 0;
    int32_t max_scan_buckets = 0;
    int32_t max_ap_cache_per_scan = 0;
    int32_t max_rssi_sample_size = 0;
    int32_t max_scan_reporting_threshold = 0;
    int32_t max_hotlist_bssids = 0;
    int32_t max_hotlist_ssids = 0;
    int32_t max_significant_wifi_change_aps = 0;
    int32_t max_bssid_history_entries = 0;
    int32_t max_number_epno_networks = 0;
    int32_t max_number_epno_networks_by_ssid = 0;
    int32_t max_number_of_white_listed_ssid = 0;
};

// One supported channel.
struct VARNChannel {
    uint32_t frequency = 0;  // MHz
};

// Channel on which the device acts as RTT responder.
struct VARNResponderChannelInfo {
    int8_t width = 0;           // Android wifi_channel_width code
    int32_t center_freq = 0;    // MHz
    int32_t center_freq0 = 0;
    int32_t center_freq1 = 0;
    uint32_t preamble = 0;      // eVARNRttPreamble (0..3)
};

// Location (LCI) the device announces as responder.
struct VARNLciInformation {
    int64_t latitude = 0;        // degrees x 2^25
    int64_t longitude = 0;
    int32_t altitude = 0;        // 1/256 m
    uint8_t latitude_unc = 0;
    uint8_t longitude_unc = 0;
    uint8_t altitude_unc = 0;
    eVARNMotionPattern motion_pattern = VARN_MOTION_NOT_EXPECTED;
    int32_t floor = 0;           // 1/16 floor
    int32_t height_above_floor = 0;  // 1/64 m
    int32_t height_unc = 0;      // 1/64 m
};

// Civic location (LCR) the device announces as responder.
struct VARNLcrInformation {
    static constexpr uint32_t kMaxCivicLength = 256;
    char country_code[2] = {0, 0};
    int32_t length = 0;          // bytes used in civic_info
    char civic_info[kMaxCivicLength] = {};
};

// One node (target) of a periodic ranging request.
struct VARNPeriodicNodeInfo {
    VARNMacAddress bssid;
    uint32_t frequency = 0;            // primary channel, MHz
    uint32_t center_freq0 = 0;         // first band centre, MHz
    uint32_t center_freq1 = 0;         // second band centre, MHz
    eVARNRttType rtt_type = VARN_RTT_TYPE_1_SIDED;
    eVARNNodeType peer_type = VARN_NODE_ACCESS_POINT;
    eVARNBandwidth bandwidth = VARN_BW_20MHZ;
    eVARNRttPreamble preamble = VARN_RTT_PREAMBLE_LEGACY;
    uint8_t packets_per_measurement = 0;  // frames per burst
    uint8_t periodic = 0;
    uint32_t burst_period_ms = 0;
    uint32_t num_bursts = 0;
    uint8_t num_retries = 0;
    // FTM parameters: bit 0 as soon as possible, bit 1 LCI request, bit 2 LCR
    // request, bits 8-11 burst exponent, bits 12-15 burst duration code,
    // bits 16-31 burst period.
    uint32_t ftm_params = 0;
    static constexpr uint32_t kFtmAsap = 1u << 0;
    static constexpr uint32_t kFtmLciRequest = 1u << 1;
    static constexpr uint32_t kFtmLcrRequest = 1u << 2;
};

// Background-scan parameters.
struct VARNScanChannelSpec {
    uint32_t channel = 0;      // MHz
    uint32_t dwell_time_ms = 0;
    uint8_t passive = 0;
};

struct VARNScanBucketSpec {
    static constexpr int kMaxChannels = 16;
    uint32_t bucket = 0;       // index
    eVARNBand band = VARN_BAND_UNSPECIFIED;
    uint32_t period = 0;       // ms
    uint8_t report_events = 0; // Android REPORT_EVENTS_* bits
    uint32_t max_period = 0;   // ms
    uint8_t base = 0;
    uint8_t step_count = 0;
    uint8_t num_channels = 0;
    VARNScanChannelSpec channels[kMaxChannels];
};

struct VARNScanParams {
    static constexpr int kMaxBuckets = 16;
    uint32_t base_period = 0;  // ms
    uint32_t max_ap_per_scan = 0;
    uint32_t report_threshold_percent = 0;
    uint32_t report_threshold_num_scans = 0;
    uint8_t num_buckets = 0;
    VARNScanBucketSpec buckets[kMaxBuckets];
};

// An AP with RSSI thresholds (dBm) for hotlist and significant-change monitoring.
struct VARNApThreshold {
    VARNMacAddress bssid;
    int16_t low = 0;
    int16_t high = 0;
};

struct VARNHotlistParams {
    static constexpr int kMaxAps = 128;
    int32_t lost_ap_sample_size = 0;
    int32_t num_bssid = 0;
    VARNApThreshold ap[kMaxAps];
};

struct VARNSignificantChangeParams {
    static constexpr int kMaxAps = 64;
    int32_t rssi_sample_size = 0;
    int32_t lost_ap_sample_size = 0;
    int32_t min_breaching = 0;
    int32_t num_bssid = 0;
    VARNApThreshold ap[kMaxAps];
};
