/*
 * Android legacy Wi-Fi HAL RTT records: ranging requests and results (with the
 * Android 14 `_v2` result and event handler), capabilities, responder and
 * LCI/LCR location information (host declaration, LP64, C and C++).
 */
#pragma once

#include <hardware_legacy/wifi_hal_base.h>
#include <hardware_legacy/link_layer_stats.h>
#include <hardware_legacy/gscan.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    RTT_STATUS_SUCCESS = 0,
    RTT_STATUS_FAILURE = 1,
    RTT_STATUS_FAIL_NO_RSP = 2,
    RTT_STATUS_FAIL_REJECTED = 3,
    RTT_STATUS_FAIL_NOT_SCHEDULED_YET = 4,
    RTT_STATUS_FAIL_TM_TIMEOUT = 5,
    RTT_STATUS_FAIL_AP_ON_DIFF_CHANNEL = 6,
    RTT_STATUS_FAIL_NO_CAPABILITY = 7,
    RTT_STATUS_ABORTED = 8,
    RTT_STATUS_FAIL_INVALID_TS = 9,
    RTT_STATUS_FAIL_PROTOCOL = 10,
    RTT_STATUS_FAIL_SCHEDULE = 11,
    RTT_STATUS_FAIL_BUSY_TRY_LATER = 12,
    RTT_STATUS_INVALID_REQ = 13,
    RTT_STATUS_NO_WIFI = 14,
    RTT_STATUS_FAIL_FTM_PARAM_OVERRIDE = 15,
    RTT_STATUS_NAN_RANGING_PROTOCOL_FAILURE = 16,
    RTT_STATUS_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED = 17,
} wifi_rtt_status;

typedef enum {
    RTT_PEER_AP = 0x1,
    RTT_PEER_STA = 0x2,
    RTT_PEER_P2P_GO = 0x3,
    RTT_PEER_P2P_CLIENT = 0x4,
    RTT_PEER_NAN = 0x5,
} rtt_peer_type;

typedef enum {
    WIFI_RTT_BW_UNSPECIFIED = 0x00,
    WIFI_RTT_BW_5 = 0x01,
    WIFI_RTT_BW_10 = 0x02,
    WIFI_RTT_BW_20 = 0x04,
    WIFI_RTT_BW_40 = 0x08,
    WIFI_RTT_BW_80 = 0x10,
    WIFI_RTT_BW_160 = 0x20,
    WIFI_RTT_BW_320 = 0x40,
} wifi_rtt_bw;

typedef enum {
    WIFI_RTT_PREAMBLE_LEGACY = 0x1,
    WIFI_RTT_PREAMBLE_HT = 0x2,
    WIFI_RTT_PREAMBLE_VHT = 0x4,
    WIFI_RTT_PREAMBLE_HE = 0x8,
    WIFI_RTT_PREAMBLE_EHT = 0x10,
} wifi_rtt_preamble;

typedef enum {
    RTT_TYPE_1_SIDED = 0x1,
    RTT_TYPE_2_SIDED = 0x2,
} wifi_rtt_type;

/* Bit masks of wifi_rtt_capabilities.preamble_support and bw_support. */
#define PREAMBLE_LEGACY 0x1
#define PREAMBLE_HT 0x2
#define PREAMBLE_VHT 0x4
#define PREAMBLE_HE 0x8
#define PREAMBLE_EHT 0x10
#define BW_5_SUPPORT 0x1
#define BW_10_SUPPORT 0x2
#define BW_20_SUPPORT 0x4
#define BW_40_SUPPORT 0x8
#define BW_80_SUPPORT 0x10
#define BW_160_SUPPORT 0x20
#define BW_320_SUPPORT 0x40

typedef enum {
    WIFI_MOTION_NOT_EXPECTED = 0,
    WIFI_MOTION_EXPECTED = 1,
    WIFI_MOTION_UNKNOWN = 2,
} wifi_motion_pattern;

typedef struct {
    mac_addr addr;
    wifi_rtt_type type;
    rtt_peer_type peer;
    wifi_channel_info channel;
    unsigned burst_period;              /* units of 100 ms, 0..31 */
    unsigned num_burst;                 /* burst exponent 0..15, 0 = single shot */
    unsigned num_frames_per_burst;      /* 1..31 */
    unsigned num_retries_per_rtt_frame; /* 0..3, one-sided */
    unsigned num_retries_per_ftmr;      /* 0..3, two-sided */
    byte LCI_request;
    byte LCR_request;
    unsigned burst_duration;            /* 2..11, or 15 for no preference */
    wifi_rtt_preamble preamble;
    wifi_rtt_bw bw;
} wifi_rtt_config;

typedef struct {
    mac_addr addr;
    unsigned burst_num;
    unsigned measurement_number;   /* frames attempted */
    unsigned success_number;       /* frames successful */
    byte number_per_burst_peer;    /* frames per burst the responder supports */
    wifi_rtt_status status;
    byte retry_after_duration;     /* seconds, with RTT_STATUS_FAIL_BUSY_TRY_LATER */
    wifi_rtt_type type;
    wifi_rssi rssi;                /* 0.5 dB steps */
    wifi_rssi rssi_spread;
    wifi_rate tx_rate;
    wifi_rate rx_rate;
    wifi_timespan rtt;             /* ps */
    wifi_timespan rtt_sd;
    wifi_timespan rtt_spread;
    int distance_mm;
    int distance_sd_mm;
    int distance_spread_mm;
    wifi_timestamp ts;             /* microseconds since boot */
    int burst_duration;            /* ms taken by one burst */
    int negotiated_burst_num;
    struct wifi_information_element* LCI; /* may be null */
    struct wifi_information_element* LCR; /* may be null */
} wifi_rtt_result;

typedef struct {
    wifi_rtt_result rtt_result;    /* first, so a v2 pointer is a valid v1 pointer */
    wifi_channel frequency;        /* MHz, UNSPECIFIED when unknown */
    wifi_rtt_bw packet_bw;
} wifi_rtt_result_v2;

typedef struct {
    void (*on_rtt_results)(wifi_request_id id, unsigned num_results,
                           wifi_rtt_result* rtt_result[]);
    void (*on_rtt_results_v2)(wifi_request_id id, unsigned num_results,
                              wifi_rtt_result_v2* rtt_result_v2[]);
} wifi_rtt_event_handler;

typedef struct {
    byte rtt_one_sided_supported;
    byte rtt_ftm_supported;
    byte lci_support;
    byte lcr_support;
    byte preamble_support;   /* PREAMBLE_* bits */
    byte bw_support;         /* BW_*_SUPPORT bits */
    byte responder_supported;
    byte mc_version;         /* draft version x 10 */
} wifi_rtt_capabilities;

typedef struct {
    int64_t latitude;        /* degrees x 2^25 ("long" on LP64) */
    int64_t longitude;
    int altitude;            /* 1/256 m */
    byte latitude_unc;
    byte longitude_unc;
    byte altitude_unc;
    wifi_motion_pattern motion_pattern;
    int floor;               /* 1/16 floor, 0x80000000 if unknown */
    int height_above_floor;  /* 1/64 m */
    int height_unc;          /* 1/64 m, 0 if unknown */
} wifi_lci_information;

typedef struct {
    char country_code[2];    /* not NUL-terminated */
    int length;
    char civic_info[256];
} wifi_lcr_information;

typedef struct {
    wifi_channel_info channel;
    wifi_rtt_preamble preamble;
} wifi_rtt_responder;

typedef struct {
    wifi_channel availablity[32]; /* the published spelling */
} wifi_channel_map;

#ifdef __cplusplus
}
#endif

WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_status) == 4, "wifi_rtt_status");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_config) == 68, "wifi_rtt_config size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_config, type) == 8, "wifi_rtt_config.type");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_config, channel) == 16, "wifi_rtt_config.channel");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_config, LCI_request) == 52, "LCI_request");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_config, burst_duration) == 56, "burst_duration");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_config, bw) == 64, "wifi_rtt_config.bw");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_result) == 136, "wifi_rtt_result size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, number_per_burst_peer) == 20, "npbp");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, status) == 24, "wifi_rtt_result.status");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, retry_after_duration) == 28, "retry_after");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, rssi) == 36, "wifi_rtt_result.rssi");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, tx_rate) == 44, "wifi_rtt_result.tx_rate");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, rx_rate) == 52, "wifi_rtt_result.rx_rate");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, rtt) == 64, "wifi_rtt_result.rtt");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, distance_mm) == 88, "distance_mm");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, ts) == 104, "wifi_rtt_result.ts");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, burst_duration) == 112, "burst_duration");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, LCI) == 120, "wifi_rtt_result.LCI");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result, LCR) == 128, "wifi_rtt_result.LCR");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_result_v2) == 144, "wifi_rtt_result_v2 size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result_v2, frequency) == 136, "v2 frequency");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rtt_result_v2, packet_bw) == 140, "v2 packet_bw");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_event_handler) == 16, "wifi_rtt_event_handler");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_capabilities) == 8, "wifi_rtt_capabilities");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_lci_information) == 40, "wifi_lci_information size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_lci_information, motion_pattern) == 24, "motion_pattern");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_lci_information, height_unc) == 36, "height_unc");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_lcr_information) == 264, "wifi_lcr_information size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_lcr_information, civic_info) == 8, "civic_info");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rtt_responder) == 20, "wifi_rtt_responder");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_channel_map) == 128, "wifi_channel_map");
