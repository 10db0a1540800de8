/*
 * Android legacy Wi-Fi HAL background-scan (gscan) records: scan commands,
 * scan results, cached results, hotlist and significant-change monitoring
 * (host declaration, LP64, C and C++).
 */
#pragma once

#include <hardware_legacy/wifi_hal_base.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MAX_CHANNELS 16
#define MAX_BUCKETS 16
#define MAX_HOTLIST_APS 128
#define MAX_SIGNIFICANT_CHANGE_APS 64
#define MAX_EPNO_NETWORKS 64
#define MAX_HOTLIST_SSID 8
#define MAX_AP_CACHE_PER_SCAN 32

#define REPORT_EVENTS_EACH_SCAN (1 << 0)
#define REPORT_EVENTS_FULL_RESULTS (1 << 1)
#define REPORT_EVENTS_NO_BATCH (1 << 2)

typedef enum {
    WIFI_BAND_UNSPECIFIED,
    WIFI_BAND_BG = 1,             /* 2.4 GHz */
    WIFI_BAND_A = 2,              /* 5 GHz without DFS */
    WIFI_BAND_A_DFS = 4,          /* 5 GHz DFS only */
    WIFI_BAND_A_WITH_DFS = 6,     /* 5 GHz with DFS */
    WIFI_BAND_ABG = 3,            /* 2.4 GHz + 5 GHz, no DFS */
    WIFI_BAND_ABG_WITH_DFS = 7,   /* 2.4 GHz + 5 GHz with DFS */
} wifi_band;

typedef enum {
    WIFI_SCAN_RESULTS_AVAILABLE = 0,
    WIFI_SCAN_THRESHOLD_NUM_SCANS = 1,
    WIFI_SCAN_THRESHOLD_PERCENT = 2,
    WIFI_SCAN_FAILED = 3,
} wifi_scan_event;

typedef enum {
    WIFI_SCAN_FLAG_INTERRUPTED = 1, /* results incomplete, some channels not probed */
} wifi_scan_flags;

/* An information element: id, length, then `len` data bytes. */
typedef struct wifi_information_element {
    byte id;
    byte len;
    byte data[];
} wifi_information_element;

typedef struct {
    wifi_timestamp ts;     /* microseconds since boot when retrieved */
    char ssid[32 + 1];     /* NUL-terminated */
    mac_addr bssid;
    wifi_channel channel;  /* MHz */
    wifi_rssi rssi;        /* dBm */
    wifi_timespan rtt;
    wifi_timespan rtt_sd;
    unsigned short beacon_period;
    unsigned short capability;
    unsigned int ie_length; /* bytes of the element blob in ie_data */
    char ie_data[1];        /* first byte of the packed information elements */
} wifi_scan_result;

typedef struct {
    int scan_id;
    int flags;                      /* wifi_scan_flags bits */
    unsigned buckets_scanned;       /* bit set of scanned buckets, 0 if unknown */
    int num_results;
    wifi_scan_result results[MAX_AP_CACHE_PER_SCAN]; /* stride 88 bytes */
} wifi_cached_scan_results;

typedef struct {
    void (*on_full_scan_result)(wifi_request_id id, wifi_scan_result* result,
                                unsigned buckets_scanned);
    void (*on_scan_event)(wifi_request_id id, wifi_scan_event event);
} wifi_scan_result_handler;

typedef struct {
    wifi_channel channel; /* MHz */
    int dwellTimeMs;
    int passive;          /* 0 active, 1 passive */
} wifi_scan_channel_spec;

typedef struct {
    int bucket;           /* 0-based index */
    wifi_band band;       /* WIFI_BAND_UNSPECIFIED: use the channel list */
    int period;           /* ms */
    byte report_events;   /* REPORT_EVENTS_* bits */
    int max_period;       /* exponential back-off when non-zero and != period */
    int base;
    int step_count;
    int num_channels;
    wifi_scan_channel_spec channels[MAX_CHANNELS];
} wifi_scan_bucket_spec;

typedef struct {
    int base_period;                /* ms */
    int max_ap_per_scan;
    int report_threshold_percent;
    int report_threshold_num_scans;
    int num_buckets;
    wifi_scan_bucket_spec buckets[MAX_BUCKETS];
} wifi_scan_cmd_params;

typedef struct {
    int max_scan_cache_size;
    int max_scan_buckets;
    int max_ap_cache_per_scan;
    int max_rssi_sample_size;
    int max_scan_reporting_threshold;
    int max_hotlist_bssids;
    int max_hotlist_ssids;
    int max_significant_wifi_change_aps;
    int max_bssid_history_entries;
    int max_number_epno_networks;
    int max_number_epno_networks_by_ssid;
    int max_number_of_white_listed_ssid;
} wifi_gscan_capabilities;

typedef struct {
    mac_addr bssid;
    wifi_rssi low;
    wifi_rssi high;
} ap_threshold_param;

typedef struct {
    int lost_ap_sample_size;
    int num_bssid;
    ap_threshold_param ap[MAX_HOTLIST_APS];
} wifi_bssid_hotlist_params;

typedef struct {
    /* `results` is a contiguous array of `num_results` records (stride 88). */
    void (*on_hotlist_ap_found)(wifi_request_id id, unsigned num_results,
                                wifi_scan_result* results);
    void (*on_hotlist_ap_lost)(wifi_request_id id, unsigned num_results,
                               wifi_scan_result* results);
} wifi_hotlist_ap_found_handler;

typedef struct {
    int rssi_sample_size;
    int lost_ap_sample_size;
    int min_breaching;
    int num_bssid;
    ap_threshold_param ap[MAX_SIGNIFICANT_CHANGE_APS];
} wifi_significant_change_params;

typedef struct {
    mac_addr bssid;
    wifi_channel channel;
    int num_rssi;
    wifi_rssi rssi[]; /* record length 16 + 4 * num_rssi */
} wifi_significant_change_result;

typedef struct {
    /* An array of pointers, since the records vary in length. */
    void (*on_significant_change)(wifi_request_id id, unsigned num_results,
                                  wifi_significant_change_result** results);
} wifi_significant_change_handler;

#ifdef __cplusplus
}
#endif

WIFI_HAL_STATIC_ASSERT(MAX_BUCKETS <= 8 * sizeof(unsigned), "buckets_scanned is a bit set");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_band) == 4, "wifi_band");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_information_element) == 2, "wifi_information_element");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_scan_result) == 88, "wifi_scan_result size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, ssid) == 8, "wifi_scan_result.ssid");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, bssid) == 41, "wifi_scan_result.bssid");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, channel) == 48, "wifi_scan_result.channel");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, rtt) == 56, "wifi_scan_result.rtt");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, beacon_period) == 72, "beacon_period");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, ie_length) == 76, "ie_length");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_result, ie_data) == 80, "ie_data");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_cached_scan_results) == 2832, "wifi_cached_scan_results");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_cached_scan_results, results) == 16, "cached results");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_scan_result_handler) == 16, "wifi_scan_result_handler");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_scan_channel_spec) == 12, "wifi_scan_channel_spec");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_scan_bucket_spec) == 224, "wifi_scan_bucket_spec");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_bucket_spec, max_period) == 16, "bucket max_period");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_bucket_spec, channels) == 32, "bucket channels");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_scan_cmd_params) == 3604, "wifi_scan_cmd_params");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_scan_cmd_params, buckets) == 20, "cmd buckets");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_gscan_capabilities) == 48, "wifi_gscan_capabilities");
WIFI_HAL_STATIC_ASSERT(sizeof(ap_threshold_param) == 16, "ap_threshold_param");
WIFI_HAL_STATIC_ASSERT(offsetof(ap_threshold_param, low) == 8, "ap_threshold_param.low");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_bssid_hotlist_params) == 2056, "wifi_bssid_hotlist_params");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_hotlist_ap_found_handler) == 16, "hotlist handler");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_significant_change_params) == 1040, "sig change params");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_significant_change_params, ap) == 16, "sig change ap");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_significant_change_result) == 16, "sig change result");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_significant_change_result, rssi) == 16, "sig change rssi");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_significant_change_handler) == 8, "sig change handler");
