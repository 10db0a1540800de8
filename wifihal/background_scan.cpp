// Background scan, BSSID hotlist and significant-change monitoring: the
// long-running requests whose events come back through the listener, and the
// synchronous fetch of cached scan results.
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>

#include <stdlib.h>

#include <vel_loc_fw/log_util.h>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"

namespace {

using vel_loc_fw::log_debug;
using vel_loc_fw::log_error;
using vel_loc_fw::log_verbose;
using vel_loc_fw::log_warning;

constexpr const char* kNoStatus = "failed to get status from wifi driver";
constexpr const char* kNullRsp = "NULL rsp from wifi driver";

// Ends the process when a HAL count lies outside 0..`bound`: the records
// behind it have room for `bound` entries only, so any other count would
// read or send memory that is not part of the request.
void checkBound(const char* caller, const char* what, int count, int bound) {
    if (count < 0 || count > bound) {
        log_error(kWifiHalTag, "%s: %s (%d) outside 0..%d", caller, what, count, bound);
        abort();
    }
}

// The result of a long-running request's synchronous answer: -1 when there
// is none (logged with `null_message`) or when it has another type than
// `expected`; otherwise its mapped status. Deletes `rsp`.
wifi_error answerStatus(const char* caller, VARNResponse* rsp, eVARNResponseType expected,
                        const char* null_message) {
    if (rsp == nullptr) {
        log_warning(kWifiHalTag, "%s: %s", caller, null_message);
        return WIFI_ERROR_UNKNOWN;
    }
    wifi_error result = WIFI_ERROR_UNKNOWN;
    if (rsp->getResponseType() == expected) {
        result = mapVarnStatusToWiFiHalStatus(rsp->getResponseStatus());
    } else {
        log_warning(kWifiHalTag, "%s: %s", caller, kNoStatus);
    }
    delete rsp;
    return result;
}

// Sends `request` synchronously and maps its answer as `answerStatus` does.
wifi_error process(const char* caller, VARNRequest&& request, eVARNResponseType expected,
                   const char* null_message = kNoStatus) {
    return answerStatus(caller, client->processRequest(&request), expected, null_message);
}

void printScanParams(wifi_request_id id, const wifi_scan_cmd_params& p) {
    log_debug(kWifiHalTag, "*** GSCAN PARAMS START *** ");
    log_debug(kWifiHalTag,
              "req_id(%d) base_period(%d) max_ap_per_scan(%d) report_threshold_percent(%d) "
              "report_threshold_num_scans(%d) num_buckets(%d)",
              id, p.base_period, p.max_ap_per_scan, p.report_threshold_percent,
              p.report_threshold_num_scans, p.num_buckets);
    for (int b = 0; b < p.num_buckets; ++b) {
        const wifi_scan_bucket_spec& s = p.buckets[b];
        log_debug(kWifiHalTag,
                  " bucket(%d) band(%d) period(%d) report_events(%d) max_period(%d) base(%d) "
                  "step_count(%d) num_channels(%d)",
                  s.bucket, halInt(s.band), s.period, s.report_events, s.max_period, s.base,
                  s.step_count, s.num_channels);
        for (int c = 0; c < s.num_channels; ++c) {
            log_debug(kWifiHalTag, "  channel(%d), dwellTimeMs(%d), passive(%d)",
                      s.channels[c].channel, s.channels[c].dwellTimeMs, s.channels[c].passive);
        }
    }
    log_debug(kWifiHalTag, "*** GSCAN PARAMS END *** ");
}

enum class ApLine { kHotlist, kSignificantChange };

// One AP of a hotlist or significant-change dump, BSSID masked.
void printAp(ApLine line, const unsigned char* bssid, int low, int high) {
    const BssidDigits d = bssidDigits(bssid, maskBssidInDumps());
    if (line == ApLine::kHotlist) {
        log_debug(kWifiHalTag, " bssid(" VARN_BSSID_FMT ") low(%d) high(%d)", VARN_BSSID_ARGS(d),
                  low, high);
    } else {
        log_debug(kWifiHalTag, " bssid(" VARN_BSSID_FMT "), low(%d), high(%d)", VARN_BSSID_ARGS(d),
                  low, high);
    }
}

VARNApThreshold toVarnAp(const ap_threshold_param& ap) {
    VARNApThreshold out;
    out.bssid = VARNMacAddress(ap.bssid);
    out.low = static_cast<int16_t>(ap.low);
    out.high = static_cast<int16_t>(ap.high);
    return out;
}

// Client band of a HAL `wifi_band` code.
eVARNBand toVarnBand(int32_t band) {
    switch (band) {
        case WIFI_BAND_UNSPECIFIED: return VARN_BAND_UNSPECIFIED;
        case WIFI_BAND_A: return VARN_BAND_A;
        case WIFI_BAND_ABG: return VARN_BAND_ABG;
        case WIFI_BAND_A_DFS: return VARN_BAND_A_DFS;
        case WIFI_BAND_A_WITH_DFS: return VARN_BAND_A_WITH_DFS;
        case WIFI_BAND_ABG_WITH_DFS: return VARN_BAND_ABG_WITH_DFS;
        default: return VARN_BAND_BG;  // 2.4 GHz itself, and every unknown code
    }
}

}  // namespace

wifi_error varn_wifihal_start_gscan(wifi_request_id id, wifi_interface_handle /*iface*/,
                                    wifi_scan_cmd_params params, wifi_scan_result_handler handler) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    if (handler.on_full_scan_result == nullptr || handler.on_scan_event == nullptr) {
        log_warning(kWifiHalTag, "%s: Null callbacks as input parameters", __func__);
        return WIFI_ERROR_INVALID_ARGS;
    }
    checkBound(__func__, "num_buckets", params.num_buckets, MAX_BUCKETS);
    for (int b = 0; b < params.num_buckets; ++b) {
        checkBound(__func__, "num_channels", params.buckets[b].num_channels, MAX_CHANNELS);
    }
    printScanParams(id, params);

    const uint32_t varn_req_id = nextReqId();
    log_verbose(kWifiHalTag, "%s: clReqId(%d), varnReqId(%d)", __func__, id,
                static_cast<int>(varn_req_id));
    // Registered before the send, so that no event can precede it; a refused
    // start keeps it until the next stop.
    RspHandlerRecord record{};
    record.scan = handler;
    if (addRspHandler(id, varn_req_id, VARN_REQ_BGSCAN_START, record) != 0) {
        return WIFI_ERROR_OUT_OF_MEMORY;
    }

    VARNScanParams scan{};
    scan.base_period = static_cast<uint32_t>(params.base_period);
    scan.max_ap_per_scan = static_cast<uint32_t>(params.max_ap_per_scan);
    scan.report_threshold_percent = static_cast<uint32_t>(params.report_threshold_percent);
    scan.report_threshold_num_scans = static_cast<uint32_t>(params.report_threshold_num_scans);
    scan.num_buckets = static_cast<uint8_t>(params.num_buckets);
    for (int b = 0; b < params.num_buckets; ++b) {
        const wifi_scan_bucket_spec& in = params.buckets[b];
        VARNScanBucketSpec& out = scan.buckets[b];
        out.bucket = static_cast<uint32_t>(in.bucket);
        out.band = toVarnBand(halInt(in.band));
        out.period = static_cast<uint32_t>(in.period);
        out.report_events = in.report_events;
        out.max_period = static_cast<uint32_t>(in.max_period);
        out.base = static_cast<uint8_t>(in.base);
        out.step_count = static_cast<uint8_t>(in.step_count);
        out.num_channels = static_cast<uint8_t>(in.num_channels);
        for (int c = 0; c < in.num_channels; ++c) {
            out.channels[c].channel = static_cast<uint32_t>(in.channels[c].channel);
            out.channels[c].dwell_time_ms = static_cast<uint32_t>(in.channels[c].dwellTimeMs);
            out.channels[c].passive = static_cast<uint8_t>(in.channels[c].passive);
        }
    }
    return process(__func__, VARNBgscanStartRequest(varn_req_id, scan), VARN_RSP_BGSCAN);
}

wifi_error varn_wifihal_stop_gscan(wifi_request_id /*id*/, wifi_interface_handle /*iface*/) {
    wifi_error result;
    if (clientUnavailable()) {
        log_warning(kWifiHalTag, "%s: interface not initialized", __func__);
        result = WIFI_ERROR_UNINITIALIZED;
    } else {
        result = process(__func__, VARNBgscanStopRequest(nextReqId()), VARN_RSP_BGSCAN_STOP);
    }
    cleanupHandlers(VARN_REQ_BGSCAN_START);
    return result;
}

wifi_error varn_wifihal_get_cached_gscan_results(wifi_interface_handle /*iface*/, byte flush,
                                                 int max, wifi_cached_scan_results* results,
                                                 int* num) {
    log_debug(kWifiHalTag, "%s: Inputs: flush(%u), max(%u)", __func__, static_cast<unsigned>(flush),
              static_cast<unsigned>(max));
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    // The results are written into `max` records at `results`: without them
    // there is nowhere to put an answer.
    if (results == nullptr || num == nullptr || max < 0) {
        log_warning(kWifiHalTag, "%s: Incorrect input parameter", __func__);
        return WIFI_ERROR_INVALID_ARGS;
    }
    VARNResponse* rsp;
    {
        VARNGetCachedBgscanResultsRequest request(nextReqId(), flush, max);
        rsp = client->processRequest(&request);
    }
    if (rsp == nullptr) {
        log_warning(kWifiHalTag, "%s: %s", __func__, kNoStatus);
        return WIFI_ERROR_UNKNOWN;
    }
    const int32_t status = rsp->getResponseStatus();
    if (status != VARN_RSP_STATUS_SUCCESS) {
        delete rsp;
        return mapVarnStatusToWiFiHalStatus(status);
    }
    auto* cached = responseAs<VARNCachedBgscanResultsResponse>(rsp, VARN_RSP_CACHED_BGSCAN_RESULTS);
    uint32_t count = 0;
    if (cached != nullptr) {
        vel_loc_fw::vector<VARNBgscanCachedResult*>& list = cached->getCachedResults();
        toWiFiCachedScanResults(static_cast<unsigned>(max), results, list);
        count = list.size() < static_cast<uint32_t>(max) ? list.size() : static_cast<uint32_t>(max);
    }
    *num = static_cast<int>(count);
    delete rsp;
    return WIFI_SUCCESS;
}

wifi_error varn_wifihal_set_bssid_hotlist(wifi_request_id id, wifi_interface_handle /*iface*/,
                                          wifi_bssid_hotlist_params params,
                                          wifi_hotlist_ap_found_handler handler) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    checkBound(__func__, "num_bssid", params.num_bssid, MAX_HOTLIST_APS);
    log_debug(kWifiHalTag, "*** HOTLIST PARAMS START *** ");
    log_debug(kWifiHalTag, "request_id(%d) lost_ap_sample_size(%d) num_bssid(%d)", id,
              params.lost_ap_sample_size, params.num_bssid);
    for (int i = 0; i < params.num_bssid; ++i) {
        printAp(ApLine::kHotlist, params.ap[i].bssid, params.ap[i].low, params.ap[i].high);
    }
    log_debug(kWifiHalTag, "*** HOTLIST PARAMS END *** ");

    const uint32_t varn_req_id = nextReqId();
    RspHandlerRecord record{};
    record.hotlist = handler;
    if (addRspHandler(id, varn_req_id, VARN_REQ_HOTLIST_SET, record) != 0) {
        return WIFI_ERROR_OUT_OF_MEMORY;
    }

    VARNHotlistParams hotlist{};
    hotlist.lost_ap_sample_size = params.lost_ap_sample_size;
    hotlist.num_bssid = params.num_bssid;
    for (int i = 0; i < params.num_bssid; ++i) hotlist.ap[i] = toVarnAp(params.ap[i]);
    log_debug(kWifiHalTag, "*** VARN HOTLIST PARAMS START *** ");
    log_debug(kWifiHalTag, "reqId(%d) lost_ap_sample_size(%d) num_bssid(%d)",
              static_cast<int>(varn_req_id), hotlist.lost_ap_sample_size, hotlist.num_bssid);
    for (int i = 0; i < hotlist.num_bssid; ++i) {
        printAp(ApLine::kHotlist, hotlist.ap[i].bssid.bytes(), hotlist.ap[i].low,
                hotlist.ap[i].high);
    }
    log_debug(kWifiHalTag, "*** VARN HOTLIST PARAMS END *** ");
    return process(__func__, VARNHotlistSetRequest(varn_req_id, hotlist), VARN_RSP_HOTLIST_SET);
}

wifi_error varn_wifihal_reset_bssid_hotlist(wifi_request_id id) {
    log_verbose(kWifiHalTag, "%s: wifi_request_id(%d)", __func__, id);
    wifi_error result;
    if (clientUnavailable()) {
        log_warning(kWifiHalTag, "%s: interface not initialized", __func__);
        result = WIFI_ERROR_UNINITIALIZED;
    } else {
        result = process(__func__, VARNHotlistClearRequest(nextReqId()), VARN_RSP_HOTLIST_CLEAR,
                         kNullRsp);
    }
    cleanupHandlers(VARN_REQ_HOTLIST_SET);
    return result;
}

wifi_error varn_wifihal_set_significant_change_handler(wifi_request_id id,
                                                       wifi_interface_handle /*iface*/,
                                                       wifi_significant_change_params params,
                                                       wifi_significant_change_handler handler) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    checkBound(__func__, "num_bssid", params.num_bssid, MAX_SIGNIFICANT_CHANGE_APS);
    log_debug(kWifiHalTag, "*** SIGNIFICANT CHANGE REQ_ID (%d) PARAMS START *** ", id);
    log_debug(kWifiHalTag,
              "rssi_sample_size(%d), lost_ap_sample_size(%d), min_breaching(%d), num_bssid(%d)",
              params.rssi_sample_size, params.lost_ap_sample_size, params.min_breaching,
              params.num_bssid);
    for (int i = 0; i < params.num_bssid; ++i) {
        printAp(ApLine::kSignificantChange, params.ap[i].bssid, params.ap[i].low,
                params.ap[i].high);
    }
    log_debug(kWifiHalTag, "*** SIGNIFICANT CHANGE PARAMS END *** ");

    const uint32_t varn_req_id = nextReqId();
    // The HAL's handler is one pointer; the rest of the slot stays zero.
    RspHandlerRecord record{};
    record.significant_change = handler;
    if (addRspHandler(id, varn_req_id, VARN_REQ_SIGNIFICANT_CHANGE_SET, record) != 0) {
        return WIFI_ERROR_OUT_OF_MEMORY;
    }

    VARNSignificantChangeParams change{};
    change.rssi_sample_size = params.rssi_sample_size;
    change.lost_ap_sample_size = params.lost_ap_sample_size;
    change.min_breaching = params.min_breaching;
    change.num_bssid = params.num_bssid;
    for (int i = 0; i < params.num_bssid; ++i) change.ap[i] = toVarnAp(params.ap[i]);
    return process(__func__, VARNSignificantChangeListSetRequest(varn_req_id, change),
                   VARN_RSP_SIGNIFICANT_CHANGE_SET, kNullRsp);
}

wifi_error varn_wifihal_reset_significant_change_handler(wifi_request_id /*id*/,
                                                         wifi_interface_handle /*iface*/) {
    wifi_error result;
    if (clientUnavailable()) {
        log_warning(kWifiHalTag, "%s: interface not initialized", __func__);
        result = WIFI_ERROR_UNINITIALIZED;
    } else {
        result = process(__func__, VARNSignificantChangeListClearRequest(nextReqId()),
                         VARN_RSP_SIGNIFICANT_CHANGE_CLEAR);
    }
    cleanupHandlers(VARN_REQ_SIGNIFICANT_CHANGE_SET);
    return result;
}
