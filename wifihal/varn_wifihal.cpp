// Interface lifecycle of the Wi-Fi HAL entry layer and its callback table.
#include <varn_wifihal.h>

#include <new>

#include <loc_utils/loc_utils.h>
#include <vel_loc_fw/config_file.h>
#include <vel_loc_fw/log_util.h>

#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"

uint8_t varn_wifihal_interface_initialized = 0;
VARNClient* client = nullptr;
VARNClientListenerImpl* listener = nullptr;
int32_t g_weighted_mean = 0;
uint32_t g_discard_bw_mis_match = 0;

namespace {

constexpr int kDefaultLogLevel = 3;
constexpr int kDefaultStdevMultiplier = 50;
// Longest configuration line accepted, newline included.
constexpr size_t kConfigMaxLineLength = 1023;

const varn_wifihal_cb_table_t varn_wifihal_cb_table = {
        varn_wifihal_init,
        varn_wifihal_destroy,
        varn_wifihal_get_rtt_capabilities,
        varn_wifihal_rtt_range_request,
        varn_wifihal_rtt_range_cancel,
        varn_wifihal_get_varn_version,
        varn_wifihal_get_varn_capabilities,
        varn_wifihal_get_valid_channels,
        varn_wifihal_get_gscan_capabilities,
        varn_wifihal_start_gscan,
        varn_wifihal_stop_gscan,
        varn_wifihal_get_cached_gscan_results,
        nullptr,  // 13-18 stay empty: hotlist and significant change are reachable by name
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        varn_wifihal_set_lci,
        varn_wifihal_set_lcr,
        varn_wifihal_get_responder_info,
        varn_wifihal_enable_responder,
        varn_wifihal_disable_responder,
};

// Reads the tuning keys. `level` and `multiplier` hold the defaults on entry.
void readConfiguration(vel_loc_fw::ConfigFile& config, int& level, int& multiplier) {
    // A value that cannot be read counts as missing, like an absent key.
    if (config.getInt32("VARN_WIFIHAL_LOG_LEVEL", level) != 0) {
        const int current = level;
        config.getInt32Default("VARN_LOG_LEVEL", level, current);
        vel_loc_fw::log_debug(kWifiHalTag,
                              "%s: VARN_WIFIHAL_LOG_LEVEL not foundset to varn log level %d",
                              "varn_wifihal_init", level);
    }
    config.getInt32("VARN_RTT_WEIGHTED_MEAN", g_weighted_mean);
    config.getInt32Default("VARN_WIFIHAL_STDEV_MULT", multiplier, kDefaultStdevMultiplier);
    int discard = static_cast<int>(g_discard_bw_mis_match);
    if (config.getInt32("VARN_WIFIHAL_BW_MISMATCH", discard) == 0) {
        g_discard_bw_mis_match = static_cast<uint32_t>(discard);
    }
    vel_loc_fw::log_debug(kWifiHalTag, "%s: VARN_WIFIHAL_BW_MISMATCH %d", "varn_wifihal_init",
                          static_cast<int>(g_discard_bw_mis_match));
}

}  // namespace

wifi_error varn_wifihal_init(void) {
    // Cleared before the state test: a second init while up forgets the live
    // client and listener without deleting them.
    listener = nullptr;
    client = nullptr;
    int level = kDefaultLogLevel;
    int multiplier = kDefaultStdevMultiplier;

    if (varn_wifihal_interface_initialized != 0) {
        vel_loc_fw::log_warning(kWifiHalTag, "%s: VARN-WIFIHAL interface already initialized!",
                                __func__);
        return WIFI_SUCCESS;
    }

    vel_loc_fw::ConfigFile* config =
            vel_loc_fw::ConfigFile::createInstance(LOC_PATH_VARN_CONF, kConfigMaxLineLength, false);
    if (config == nullptr || !config->isLoaded()) {
        vel_loc_fw::log_debug(kWifiHalTag, "%s: config file not available", __func__);
        level = kDefaultLogLevel;
    } else {
        readConfiguration(*config, level, multiplier);
    }

    // Takes the log mutex and reports its own failures.
    vel_loc_fw::log_set_global_level(static_cast<vel_loc_fw::ERROR_LEVEL>(level));

    listener = new VARNClientListenerImpl(multiplier);
    client = VARNClient::createInstance(listener, true, static_cast<eVARNLogLevel>(level));

    wifi_error result;
    if (client != nullptr) {
        varn_wifihal_interface_initialized = 1;
        resetReqId();
        vel_loc_fw::log_debug(kWifiHalTag, "VARN_WIFIHAL_INTERFACE_VERSION: (%s)", kWifiHalTag);
        result = WIFI_SUCCESS;
    } else {
        vel_loc_fw::log_warning(kWifiHalTag, "%s: Could not create the VARNClient", __func__);
        delete listener;
        listener = nullptr;
        result = WIFI_ERROR_UNINITIALIZED;
    }
    delete config;
    return result;
}

wifi_error varn_wifihal_destroy(void) {
    // The client goes first: once its destructor returns no response can
    // reach the listener any more.
    if (client != nullptr) {
        delete client;
        client = nullptr;
    }
    if (listener != nullptr) {
        delete listener;
        listener = nullptr;
    }
    releaseBookkeeping();
    varn_wifihal_interface_initialized = 0;
    return WIFI_SUCCESS;
}

const varn_wifihal_cb_table_t* varn_wifihal_get_cb_table(void) { return &varn_wifihal_cb_table; }
