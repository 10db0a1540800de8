// Capability, version and channel queries: answered synchronously by the
// service, nothing registered, nothing delivered through the listener.
#include <varn_wifihal.h>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/mutex.h>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"

VARNDynamicCapabilities g_dynamic_capabilities;

namespace {

using vel_loc_fw::log_debug;
using vel_loc_fw::log_info;
using vel_loc_fw::log_verbose;
using vel_loc_fw::log_warning;

constexpr uint16_t kVersionMajor = 2;
constexpr uint16_t kVersionMinor = 1;
constexpr uint16_t kVersionMicro = 1;
// Period of the dynamic-capability subscription, in seconds.
constexpr uint32_t kCapabilitySubscriptionPeriodS = 60;

// Guards `g_dynamic_capabilities` against concurrent capability queries.
vel_loc_fw::MutexImpl g_dynamic_capabilities_mutex("WifiHalDynamicCaps", false);

// Android BW_*_SUPPORT masks of the service's highest bandwidth code: every
// bandwidth from 20 MHz up to that one.
uint8_t bandwidthSupport(uint8_t bw_code) {
    switch (bw_code) {
        case VARN_BW_20MHZ: return BW_20_SUPPORT;
        case VARN_BW_40MHZ: return BW_20_SUPPORT | BW_40_SUPPORT;
        case VARN_BW_80MHZ: return BW_20_SUPPORT | BW_40_SUPPORT | BW_80_SUPPORT;
        case VARN_BW_160MHZ: return BW_20_SUPPORT | BW_40_SUPPORT | BW_80_SUPPORT | BW_160_SUPPORT;
        default: return 0;
    }
}

// Sends a capability request with client id `id`; null when the service did
// not answer (logged).
VARNCapabilityResponse* sendCapsRequest(uint32_t id) {
    VARNCapabilityResponse* rsp;
    {
        VARNCapabilityRequest request(id);
        rsp = client->getCapabilities(&request);
    }
    if (rsp == nullptr) log_warning(kWifiHalTag, "%s: failed to get capabilities", __func__);
    return rsp;
}

void printCapabilitiesInfo(const VARNCapabilities& c) {
    log_info(kWifiHalTag,
             "%s: discovery_scan_supported(%d) ranging_scan_supported(%d)active_scan_supported(%d) "
             "bgscan_supported(%d) scans_supported(0x%x)",
             __func__, c.discovery_scan_supported, c.ranging_scan_supported,
             c.active_scan_supported, c.bgscan_supported, c.scans_supported);
    log_info(kWifiHalTag,
             "%s: one_sided_ranging_supported(%d) dual_sided_ranging_supported_11mc(%d) "
             "bwSupport(0x%x) preambleSupport(0x%x) mcVersion(%d)",
             __func__, c.one_sided_ranging_supported, c.dual_sided_ranging_supported_11mc,
             c.bwSupport, c.preambleSupport, c.mcVersion);
}

// Caches the RTT capabilities described by `c` (unless a record is cached
// already). Returns 0, or -1 when the record cannot be allocated.
int setRttCapabilities(const VARNCapabilities& c) {
    log_verbose(kWifiHalTag, "%s: filling in rttCachedCapabilities", __func__);
    wifi_rtt_capabilities caps{};
    if (c.ranging_scan_supported != 0) {
        caps.rtt_one_sided_supported = c.one_sided_ranging_supported;
        caps.rtt_ftm_supported = c.dual_sided_ranging_supported_11mc;
        caps.lci_support = 1;
        caps.lcr_support = 1;
        caps.preamble_support = c.preambleSupport;
        caps.bw_support = bandwidthSupport(c.bwSupport);
        caps.responder_supported = (c.scans_supported & VARNCapabilities::kScansResponder) ? 1 : 0;
        caps.mc_version = c.mcVersion;
    }
    if (storeRttCapabilities(caps) != 0) {
        log_warning(kWifiHalTag, "%s: memory allocation failure", __func__);
        return -1;
    }
    return 0;
}

}  // namespace

wifi_error mapVarnStatusToWiFiHalStatus(int32_t status) {
    static const wifi_error kByStatus[] = {
            WIFI_SUCCESS,                  // 1 success
            WIFI_ERROR_NOT_AVAILABLE,      // 2
            WIFI_ERROR_UNINITIALIZED,      // 3
            WIFI_ERROR_TIMED_OUT,          // 4
            WIFI_ERROR_UNKNOWN,            // 5 unknown
            WIFI_ERROR_INVALID_ARGS,       // 6
            WIFI_ERROR_NOT_SUPPORTED,      // 7
            WIFI_ERROR_UNKNOWN,            // 8 internal error
            WIFI_ERROR_TOO_MANY_REQUESTS,  // 9
            WIFI_ERROR_OUT_OF_MEMORY,      // 10
    };
    if (status < 1 || status > 10) return WIFI_ERROR_UNKNOWN;
    return kByStatus[status - 1];
}

wifi_error varn_wifihal_get_rtt_capabilities(wifi_interface_handle /*iface*/,
                                             wifi_rtt_capabilities* capabilities) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    if (capabilities == nullptr) {
        log_warning(kWifiHalTag, "%s: %s", __func__, "incorrect input parameter");
        return WIFI_ERROR_INVALID_ARGS;
    }
    if (copyCachedRttCapabilities(capabilities)) {
        log_verbose(kWifiHalTag,
                    "%s: delivering cached capabilities: rtt_one_sided_supported(%d) "
                    "rtt_ftm_supported(%d)",
                    __func__, capabilities->rtt_one_sided_supported,
                    capabilities->rtt_ftm_supported);
        return WIFI_SUCCESS;
    }
    VARNCapabilityResponse* rsp = sendCapsRequest(nextReqId());
    if (rsp == nullptr) return WIFI_ERROR_UNKNOWN;
    printCapabilitiesInfo(rsp->getCapabilities());
    // A concurrent first query may have cached its record meanwhile; every
    // caller hands out the one that is cached.
    const bool cached = setRttCapabilities(rsp->getCapabilities()) == 0 &&
                        copyCachedRttCapabilities(capabilities);
    delete rsp;
    return cached ? WIFI_SUCCESS : WIFI_ERROR_UNKNOWN;
}

wifi_error varn_wifihal_get_varn_version(u16* major, u16* minor, u16* micro) {
    log_debug(kWifiHalTag, "%s: WIFIHAL supported: major(%u) minor(%u) micro(%u)", __func__,
              kVersionMajor, kVersionMinor, kVersionMicro);
    log_debug(kWifiHalTag, "%s: VARN supported: major(%u) minor(%u) micro(%u)", __func__,
              kVersionMajor, kVersionMinor, kVersionMicro);
    // Nothing is checked here, but a missing output is skipped rather than
    // written through.
    if (major != nullptr) *major = kVersionMajor;
    if (minor != nullptr) *minor = kVersionMinor;
    if (micro != nullptr) *micro = kVersionMicro;
    return WIFI_SUCCESS;
}

wifi_error varn_wifihal_get_varn_capabilities(u32* capabilities) {
    // Deliberately no test of the interface flag; only a client that does
    // not exist (before init) is refused.
    if (client == nullptr) {
        log_warning(kWifiHalTag, "%s: interface not initialized", __func__);
        return WIFI_ERROR_UNINITIALIZED;
    }
    if (capabilities == nullptr) {
        log_warning(kWifiHalTag, "%s: %s", __func__, "got NULL from client");
        return WIFI_ERROR_INVALID_ARGS;
    }
    VARNCapabilityResponse* rsp = sendCapsRequest(nextReqId());
    if (rsp == nullptr) {
        log_debug(kWifiHalTag, "%s: Got NULL rsp from VARN", __func__);
        return WIFI_ERROR_UNKNOWN;
    }
    const VARNCapabilities caps = rsp->getCapabilities();
    delete rsp;
    printCapabilitiesInfo(caps);
    u32 bits = 0;
    if (caps.one_sided_ranging_supported != 0) bits |= 1u << 0;
    if (caps.dual_sided_ranging_supported_11mc != 0) bits |= 1u << 1;
    if (caps.bgscan_supported != 0) {
        bits |= 1u << 2;
        log_verbose(kWifiHalTag, "%s: BGSCAN SUPPORT ENABLED", __func__);
    } else {
        log_verbose(kWifiHalTag, "%s: BGSCAN SUPPORT DISABLED", __func__);
    }
    log_debug(kWifiHalTag, "%s: (0x%x)", __func__, bits);
    *capabilities = bits;
    wifi_rtt_capabilities cached;
    if (!copyCachedRttCapabilities(&cached) && setRttCapabilities(caps) != 0) {
        return WIFI_ERROR_UNKNOWN;
    }
    return WIFI_SUCCESS;
}

wifi_error varn_wifihal_get_valid_channels(wifi_interface_handle /*iface*/, int band,
                                           int max_channels, wifi_channel* channels,
                                           int* num_channels) {
    log_debug(kWifiHalTag, "%s: Inputs: band(%u), max_channels(%u)", __func__,
              static_cast<unsigned>(band), static_cast<unsigned>(max_channels));
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    if (channels == nullptr || num_channels == nullptr) {
        log_warning(kWifiHalTag, "%s: Incorrect input parameter", __func__);
        return WIFI_ERROR_INVALID_ARGS;
    }
    VARNResponse* rsp;
    {
        VARNChannelsSupportedRequest request(nextReqId(), band, max_channels);
        rsp = client->processRequest(&request);
    }
    if (rsp == nullptr) {
        log_warning(kWifiHalTag, "%s: failed to get supported channels", __func__);
        return WIFI_ERROR_UNKNOWN;
    }
    const auto* list = responseAs<VARNChannelsSupportedResponse>(rsp, VARN_RSP_CHANNELS_SUPPORTED);
    const uint32_t count = list != nullptr ? list->getChannels().size() : 0;
    // The count goes out as the service reported it, but no more than
    // `max_channels` entries are written: the HAL's array ends there.
    const uint32_t room = max_channels > 0 ? static_cast<uint32_t>(max_channels) : 0;
    for (uint32_t i = 0; i < count && i < room; ++i) {
        channels[i] = static_cast<wifi_channel>(list->getChannels()[i].frequency);
        log_debug(kWifiHalTag, "%s: channel[%d](%d)", __func__, static_cast<int>(i), channels[i]);
    }
    *num_channels = static_cast<int>(count);
    const wifi_error result = mapVarnStatusToWiFiHalStatus(rsp->getResponseStatus());
    delete rsp;
    return result;
}

wifi_error varn_wifihal_get_gscan_capabilities(wifi_interface_handle /*iface*/,
                                               wifi_gscan_capabilities* capabilities) {
    if (clientUnavailable()) {
        log_debug(kWifiHalTag, "%s: interface not initialized", __func__);
        return WIFI_ERROR_UNINITIALIZED;
    }
    if (capabilities == nullptr) {
        log_debug(kWifiHalTag, "%s: invalid argument (NULL)", __func__);
        return WIFI_ERROR_INVALID_ARGS;
    }
    VARNResponse* rsp;
    {
        VARNCapabilitySubscriptionRequest request(nextReqId(), kCapabilitySubscriptionPeriodS);
        rsp = client->processRequest(&request);
    }
    if (rsp == nullptr) {
        log_debug(kWifiHalTag, "%s: NULL DynCapsRsp", __func__);
        return WIFI_ERROR_OUT_OF_MEMORY;
    }
    VARNDynamicCapabilities dyn;
    {
        vel_loc_fw::AutoLock lock(&g_dynamic_capabilities_mutex, "WifiHalDynamicCaps");
        const auto* d =
                responseAs<VARNDynamicCapabilitiesResponse>(rsp, VARN_RSP_DYNAMIC_CAPABILITIES);
        if (d != nullptr) g_dynamic_capabilities = d->getDynamicCapabilities();
        dyn = g_dynamic_capabilities;
    }
    delete rsp;
    log_debug(kWifiHalTag,
              "%s: lpBatchingSupported(%u) lpMaxNumAPBatched(%u) lpBgscanBatchingSupported(%u)",
              __func__, dyn.lpBatchingSupported, dyn.lpMaxNumAPBatched,
              dyn.lpBgscanBatchingSupported);
    log_debug(kWifiHalTag,
              "%s: lpBgscanMaxApCachePerScan(%u) lpBgscanMaxScanCacheSize(%u) "
              "lpBgscanMaxScanReportThresh(%u)",
              __func__, dyn.lpBgscanMaxApCachePerScan, dyn.lpBgscanMaxScanCacheSize,
              dyn.lpBgscanMaxScanReportThresh);

    {
        VARNGscanCapabilitiesRequest request(nextReqId());
        rsp = client->processRequest(&request);
    }
    if (rsp == nullptr) {
        log_warning(kWifiHalTag, "%s: failed to get bgscan capabilities", __func__);
        return WIFI_ERROR_UNKNOWN;
    }
    const auto* g = responseAs<VARNGscanCapabilitiesResponse>(rsp, VARN_RSP_GSCAN_CAPABILITIES);
    if (g != nullptr) {
        const VARNGscanCapabilities& s = g->getGscanCapabilities();
        wifi_gscan_capabilities& out = *capabilities;
        out.max_scan_cache_size = s.max_scan_cache_size;
        out.max_scan_buckets = s.max_scan_buckets;
        out.max_ap_cache_per_scan = s.max_ap_cache_per_scan;
        out.max_rssi_sample_size = s.max_rssi_sample_size;
        out.max_scan_reporting_threshold = s.max_scan_reporting_threshold;
        out.max_hotlist_bssids = s.max_hotlist_bssids;
        out.max_hotlist_ssids = s.max_hotlist_ssids;
        out.max_significant_wifi_change_aps = s.max_significant_wifi_change_aps;
        out.max_bssid_history_entries = s.max_bssid_history_entries;
        out.max_number_epno_networks = s.max_number_epno_networks;
        out.max_number_epno_networks_by_ssid = s.max_number_epno_networks_by_ssid;
        out.max_number_of_white_listed_ssid = s.max_number_of_white_listed_ssid;
        if (dyn.lpBgscanBatchingSupported != 0) {
            out.max_scan_cache_size = static_cast<int>(dyn.lpBgscanMaxScanCacheSize);
            out.max_ap_cache_per_scan = static_cast<int>(dyn.lpBgscanMaxApCachePerScan);
            out.max_scan_reporting_threshold = static_cast<int>(dyn.lpBgscanMaxScanReportThresh);
        }
        log_verbose(kWifiHalTag,
                    "%s: max_ap_cache_per_scan(%d) max_bssid_history_entries(%d) "
                    "max_hotlist_bssids(%d) max_hotlist_ssids(%d) max_rssi_sample_size(%d) "
                    "max_scan_buckets(%d) max_scan_cache_size(%d) max_scan_reporting_threshold(%d)",
                    __func__, out.max_ap_cache_per_scan, out.max_bssid_history_entries,
                    out.max_hotlist_bssids, out.max_hotlist_ssids, out.max_rssi_sample_size,
                    out.max_scan_buckets, out.max_scan_cache_size,
                    out.max_scan_reporting_threshold);
        log_verbose(kWifiHalTag,
                    "%s: max_significant_wifi_change_aps(%d) max_number_epno_networks(%d) "
                    "max_number_epno_networks_by_ssid(%d) max_number_of_white_listed_ssid(%d)",
                    __func__, out.max_significant_wifi_change_aps, out.max_number_epno_networks,
                    out.max_number_epno_networks_by_ssid, out.max_number_of_white_listed_ssid);
    }
    const wifi_error result = mapVarnStatusToWiFiHalStatus(rsp->getResponseStatus());
    delete rsp;
    return result;
}
