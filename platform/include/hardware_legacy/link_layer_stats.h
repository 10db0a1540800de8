/*
 * Android legacy Wi-Fi HAL link-layer records used by RTT and scanning:
 * the channel description and the rate word (host declaration, LP64).
 */
#pragma once

#include <hardware_legacy/wifi_hal_base.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    wifi_channel_width width;
    wifi_channel center_freq;  /* primary 20 MHz channel */
    wifi_channel center_freq0; /* centre of the first segment */
    wifi_channel center_freq1; /* centre of the second segment */
} wifi_channel_info;

typedef struct {
    u32 preamble : 3;   /* 0 OFDM, 1 CCK, 2 HT, 3 VHT, 4 HE, 5 EHT */
    u32 nss : 2;        /* 0 1x1, 1 2x2, ... */
    u32 bw : 3;         /* 0 20 MHz, 1 40, 2 80, 3 160, 4 320 */
    u32 rateMcsIdx : 8; /* OFDM/CCK: rate code in 0.5 Mbit/s; HT and later: MCS index */
    u32 reserved : 16;
    u32 bitrate;        /* units of 100 kbit/s */
} wifi_rate;

#ifdef __cplusplus
}
#endif

WIFI_HAL_STATIC_ASSERT(sizeof(wifi_channel_info) == 16, "wifi_channel_info size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_channel_info, center_freq1) == 12, "wifi_channel_info");
WIFI_HAL_STATIC_ASSERT(sizeof(wifi_rate) == 8, "wifi_rate size");
WIFI_HAL_STATIC_ASSERT(offsetof(wifi_rate, bitrate) == 4, "wifi_rate.bitrate");
