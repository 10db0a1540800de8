/*
 * Android legacy Wi-Fi HAL: basic types, plus the link-layer, gscan and RTT
 * records this platform uses (host declaration, LP64, C and C++).
 */
#pragma once

#include <hardware_legacy/wifi_hal_base.h>
#include <hardware_legacy/link_layer_stats.h>
#include <hardware_legacy/gscan.h>
#include <hardware_legacy/rtt.h>
