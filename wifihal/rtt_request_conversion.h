// Conversion of the HAL's ranging configuration into the client library's
// ranging node (not exported). Used by `varn_wifihal_rtt_range_request`.
#pragma once

#include <stdint.h>

#include <hardware_legacy/rtt.h>
#include <varn_client/VARNClient.h>

// Longest burst duration code a one-sided request may use; also what a
// one-sided "no preference" (15) becomes.
constexpr uint32_t kMaxBurstDuration = 11;
// Burst duration code meaning "no preference".
constexpr uint32_t kBurstDurationNoPreference = 15;

// Checks every entry of `configs` in order; returns true when all are valid.
// The first invalid field is logged at debug level (as "wifiNodeParamChecking")
// and ends the check.
bool wifiNodeParamChecking(wifi_request_id id, unsigned num_configs,
                           const wifi_rtt_config* configs);

// Client codes of the HAL's values. Values outside the HAL's enumerations map
// to the first client code, logged under "VARN_WIFIHAL_IF".
eVARNRttType toVarnRttType(uint32_t type);
eVARNNodeType toVarnNodeType(uint32_t peer);
eVARNRttPreamble toVarnPreamble(uint32_t preamble);
eVARNBandwidth toVarnBandwidth(uint32_t bw);

// The FTM-parameter word of `config`: bit 0 as soon as possible, bit 1 LCI,
// bit 2 LCR, bits 8-11 burst exponent, bits 12-15 burst duration (a one-sided
// "no preference" becomes 11), bits 16-31 burst period when periodic.
uint32_t toFtmParams(const wifi_rtt_config& config);

// The complete client node for one validated configuration.
VARNPeriodicNodeInfo toPeriodicNodeInfo(const wifi_rtt_config& config);
