#include <varn_wifihal_results.h>

const char* const BW_STR[4] = {"BW_20MHz", "BW_40MHZ", "BW_80MHZ", "BW_160MHZ"};

const char* const NODE_STR[3] = {"ACCESS_POINT", "PEER_DEVICE", "NAN_DEVICE"};

const char* const PREAMBLE_STR[4] = {"PREAMBLE_LEGACY", "PREAMBLE_CCK", "PREAMBLE_HT",
                                     "PREAMBLE_VHT"};

const char* const RTT_STR[3] = {"RTT1", "RTT2", "RTT3"};

const char* const WIFIHAL_RTT_STR[2] = {"RTT_TYPE_1_SIDED", "RTT_TYPE_2_SIDED"};

const char* const WIFIHAL_PREAMBLE_STR[6] = {"OFDM", "CCK", "HT", "VHT", "HE", "MAX"};

const char* const WIFIHAL_NSS_STR[4] = {"1x1", "2x2", "3x3", "4x4"};

const char* const WIFIHAL_BW[8] = {"WIFI_CHAN_WIDTH_20",    "WIFI_CHAN_WIDTH_40",
                                   "WIFI_CHAN_WIDTH_80",    "WIFI_CHAN_WIDTH_160",
                                   "WIFI_CHAN_WIDTH_80P80", "WIFI_CHAN_WIDTH_5",
                                   "WIFI_CHAN_WIDTH_10",    "WIFI_CHAN_WIDTH_INVALID"};

const char* const WIFIHAL_PEER_STR[7] = {"WIFI_PEER_STA",        "WIFI_PEER_AP",
                                         "WIFI_PEER_P2P_GO",     "WIFI_PEER_P2P_CLIENT",
                                         "WIFI_PEER_NAN",        "WIFI_PEER_TDLS",
                                         "WIFI_PEER_INVALID"};

const char* const WIFIHAL_STATUS[18] = {
        "RTT_STATUS_SUCCESS",
        "RTT_STATUS_FAILURE",
        "RTT_STATUS_FAIL_NO_RSP",
        "RTT_STATUS_FAIL_REJECTED",
        "RTT_STATUS_FAIL_NOT_SCHEDULED_YET",
        "RTT_STATUS_FAIL_TM_TIMEOUT",
        "RTT_STATUS_FAIL_AP_ON_DIFF_CHANNEL",
        "RTT_STATUS_FAIL_NO_CAPABILITY",
        "RTT_STATUS_ABORTED",
        "RTT_STATUS_FAIL_INVALID_TS",
        "RTT_STATUS_FAIL_PROTOCOL",
        "RTT_STATUS_FAIL_SCHEDULE",
        "RTT_STATUS_FAIL_BUSY_TRY_LATER",
        "RTT_STATUS_INVALID_REQ",
        "RTT_STATUS_NO_WIFI",
        "RTT_STATUS_FAIL_FTM_PARAM_OVERRIDE",
        "RTT_STATUS_NAN_RANGING_PROTOCOL_FAILURE",
        "RTT_STATUS_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED",
};

const char* const TARGET_STATUS[12] = {
        "VARN_TARGET_STATUS_SUCCESS",
        "VARN_TARGET_STATUS_FAILURE",
        "VARN_TARGET_STATUS_RTT_FAIL_NO_RSP",
        "VARN_TARGET_STATUS_RTT_FAIL_REJECTED",
        "VARN_TARGET_STATUS_RTT_FAIL_FTM_TIMEOUT",
        "VARN_TARGET_STATUS_RTT_TARGET_ON_DIFF_CHANNEL",
        "VARN_TARGET_STATUS_RTT_FAIL_TARGET_NOT_CAPABLE",
        "VARN_TARGET_STATUS_RTT_FAIL_INVALID_TS",
        "VARN_TARGET_STATUS_RTT_FAIL_TARGET_BUSY_TRY_LATER",
        "VARN_TARGET_STATUS_RTT_NAN_RANGING_PROTOCOL_FAILURE",
        "VARN_TARGET_STATUS_RTT_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED",
        "VARN_TARGET_STATUS_MAX",
};
