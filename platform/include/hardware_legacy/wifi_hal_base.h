/*
 * Basic types of the Android legacy Wi-Fi HAL, shared by wifi_hal.h,
 * link_layer_stats.h, gscan.h and rtt.h. Kept in its own header so that each
 * of those can be included first without include cycles.
 *
 * Host declaration for LP64 targets, field for field as the published HAL
 * records, so that code built against it is layout-compatible with a vendor
 * Wi-Fi HAL on 64-bit Arm. C and C++.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define WIFI_HAL_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define WIFI_HAL_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char byte;
typedef unsigned char u8;
typedef signed char s8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef int32_t s32;
typedef uint64_t u64;
typedef int64_t s64;
typedef byte mac_addr[6];
typedef byte oui[3];
typedef int wifi_request_id;
typedef int wifi_channel;   /* frequency in MHz */
typedef int wifi_rssi;
typedef int wifi_radio;
typedef int64_t wifi_timestamp; /* microseconds */
typedef int64_t wifi_timespan;  /* picoseconds */
typedef uint64_t feature_set;

struct wifi_info;
struct wifi_interface_info;
typedef struct wifi_info* wifi_handle;
typedef struct wifi_interface_info* wifi_interface_handle;

#ifndef IFNAMSIZ
#define IFNAMSIZ 16
#endif
#define UNSPECIFIED (-1) /* unknown value, e.g. wifi_rtt_result_v2.frequency */

typedef enum {
    WIFI_SUCCESS = 0,
    WIFI_ERROR_NONE = 0,
    WIFI_ERROR_UNKNOWN = -1,
    WIFI_ERROR_UNINITIALIZED = -2,
    WIFI_ERROR_NOT_SUPPORTED = -3,
    WIFI_ERROR_NOT_AVAILABLE = -4, /* not available right now, try later */
    WIFI_ERROR_INVALID_ARGS = -5,
    WIFI_ERROR_INVALID_REQUEST_ID = -6,
    WIFI_ERROR_TIMED_OUT = -7,
    WIFI_ERROR_TOO_MANY_REQUESTS = -8,
    WIFI_ERROR_OUT_OF_MEMORY = -9,
    WIFI_ERROR_BUSY = -10,
} wifi_error;

typedef enum {
    WIFI_CHAN_WIDTH_20 = 0,
    WIFI_CHAN_WIDTH_40 = 1,
    WIFI_CHAN_WIDTH_80 = 2,
    WIFI_CHAN_WIDTH_160 = 3,
    WIFI_CHAN_WIDTH_80P80 = 4,
    WIFI_CHAN_WIDTH_5 = 5,
    WIFI_CHAN_WIDTH_10 = 6,
    WIFI_CHAN_WIDTH_320 = 7,
    WIFI_CHAN_WIDTH_INVALID = -1,
} wifi_channel_width;

#ifdef __cplusplus
}
#endif

WIFI_HAL_STATIC_ASSERT(sizeof(mac_addr) == 6, "mac_addr");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_error) == 4, "wifi_error");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_channel_width) == 4, "wifi_channel_width");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_timestamp) == 8 && sizeof(wifi_timespan) == 8, "time types");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_interface_handle) == 8, "LP64 handles");
