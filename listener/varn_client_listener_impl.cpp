// Response dispatch: finds the HAL request of each response, converts it,
// calls the HAL's callback and releases everything it allocated.
//
// Runs on the client library's response thread. The bookkeeping look-ups
// return copies and release their lock before returning, so no HAL callback
// is ever called with the bookkeeping lock held.
#include "listener/varn_client_listener_impl.h"

#include <varn_wifihal.h>
#include <varn_wifihal_results.h>
#include <vel_loc_fw/log_util.h>

#include <cstdlib>

#include "listener/listener_internal.h"
#include "wifihal/request_bookkeeping.h"

namespace fw = vel_loc_fw;

namespace {

constexpr const char* kDropAllocation =
        "@responseReceived(): memory allocation failure...drop the rsp";
constexpr const char* kSigChangeAllocation = "@responseReceived(): memory allocation error";

// Logs the raw ranging measurements at verbose level.
void printVarnResponse(const vel_loc_fw::vector<VARNScanMeasurement*>& measurements) {
    if (!fw::is_log_verbose_enabled(kListenerTag)) return;
    for (const VARNScanMeasurement* meas : measurements) {
        VARN_LOG_VERBOSE(kListenerTag, "Frequency = %d, Is Secure = %d, Node type = %d",
                         static_cast<int>(meas->frequency), meas->is_secure ? 1 : 0,
                         static_cast<int>(meas->node_type));
        for (const VARNMeasurementInfo* info : meas->measurements) {
            VARN_LOG_VERBOSE(kListenerTag,
                             "RSSI = %d, RSSI_TIMESTAMP = %llu, RTT = %dps, RTT_TIMESTAMP = %llu",
                             info->rssi, static_cast<unsigned long long>(info->rssi_timestamp),
                             info->rtt_ps, static_cast<unsigned long long>(info->rtt_timestamp));
            VARN_LOG_VERBOSE(kListenerTag, "PREAMBLE = %d, BW = %d, MCS_IDX = %d, BIT_RATE = %d",
                             info->tx_rate.preamble, info->tx_rate.bandwidth,
                             info->tx_rate.mcs_index, static_cast<int>(info->tx_rate.bit_rate));
        }
    }
}

// A response's HAL request id is -1 (0xFFFFFFFF) when none is pending.
bool noHalId(int32_t hal_id) { return static_cast<uint32_t>(hal_id) > 0xFFFFFFFEu; }

// Releases results that no HAL callback will see. Elements 1..count-1 own
// LCI/LCR blocks that only a callback could otherwise free, so they are freed
// here before the array goes the usual way.
void dropRttResults(wifi_rtt_result_v2* results, uint32_t count) {
    for (uint32_t i = 1; i < count; ++i) {
        free(results[i].rtt_result.LCI);
        free(results[i].rtt_result.LCR);
    }
    FREE_RTT_RESULTS(results);
}

template <typename Fn>
void* callbackAddress(Fn fn) {
    return reinterpret_cast<void*>(fn);
}

wifi_rtt_result_v2* v2Element(wifi_rtt_result_v2* element) { return element; }
// A v2 element starts with its v1 record.
wifi_rtt_result* v1Element(wifi_rtt_result_v2* element) { return &element->rtt_result; }

// Hands `results` to the HAL's request `hal_id` through `callback` with an
// array of pointers to its elements, then releases both. Returns false when
// the response was dropped (no memory for the pointers, or no usable HAL id);
// the results are released then too.
template <typename Result>
bool deliverRttResults(void (*callback)(wifi_request_id, unsigned, Result**),
                       wifi_rtt_result_v2* results, uint32_t count,
                       Result* (*element)(wifi_rtt_result_v2*), int32_t hal_id) {
    auto** pointers = static_cast<Result**>(malloc(count * sizeof(Result*)));
    if (pointers == nullptr && count != 0) {
        fw::log_error(kListenerTag, "%s", kDropAllocation);
        dropRttResults(results, count);
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) pointers[i] = element(&results[i]);
    if (noHalId(hal_id)) {
        fw::log_error(kListenerTag,
                      "@responseReceived(): no wifihal reqid for this rsp...drop the rsp");
        dropRttResults(results, count);
        free(pointers);
        return false;
    }
    VARN_LOG_VERBOSE(kListenerTag, "@responseReceived(): calling wifihal rtt results callback(%p)",
                     callbackAddress(callback));
    callback(hal_id, count, pointers);
    FREE_RTT_RESULTS(results);
    free(pointers);
    return true;
}

}  // namespace

// Deliberately frees only the first element's information elements: the
// LCI/LCR blocks of later elements stay allocated (callers that need them
// released free them before calling this).
void FREE_RTT_RESULTS(wifi_rtt_result_v2* results) {
    if (results == nullptr) return;
    if (results[0].rtt_result.LCI != nullptr) free(results[0].rtt_result.LCI);
    if (results[0].rtt_result.LCR != nullptr) free(results[0].rtt_result.LCR);
    free(results);
}

const int32_t VARNClientListenerImpl::RTT_STDEV[4] = {21000, 9270, 7000, 5600};

VARNClientListenerImpl::VARNClientListenerImpl(int stdev_multiplier)
    : stdev_multiplier_(stdev_multiplier) {}

VARNClientListenerImpl::~VARNClientListenerImpl() {
    VARN_LOG_VERBOSE(kListenerTag, "~VARNClientListenerImpl");
}

namespace {

// Ranging results (type 2). `listener` converts; this delivers and retires.
void handleRangingResults(VARNClientListenerImpl& listener, VARNRangingScanResponse& rsp) {
    const uint32_t varn_req_id = rsp.getRequestId();
    // Borrowed pointers; the response owns the measurements.
    const vel_loc_fw::vector<VARNScanMeasurement*> measurements = rsp.getMeasurements();
    printVarnResponse(measurements);
    const uint32_t count = measurements.size();
    wifi_rtt_result_v2* results =
            listener.scanMeasToWiFiHalResult(measurements, rsp.getScanStatus());
    if (results == nullptr) return;  // logged by the conversion

    wifi_rtt_event_handler handlers = {};
    int32_t hal_id = -1;
    if (!findRttRequest(varn_req_id, &hal_id, &handlers)) {
        fw::log_error(kListenerTag,
                      "@responseReceived(): got a rsp but NULL handler...drop the rsp");
        dropRttResults(results, count);
        return;
    }

    if (handlers.on_rtt_results_v2 != nullptr) {
        if (!deliverRttResults(handlers.on_rtt_results_v2, results, count, &v2Element, hal_id)) {
            return;
        }
    } else if (handlers.on_rtt_results != nullptr) {
        if (!deliverRttResults(handlers.on_rtt_results, results, count, &v1Element, hal_id)) {
            return;
        }
    } else {
        fw::log_error(kListenerTag,
                      "@responseReceived(): Rtt result callbacks are NULL, dropping the results");
        dropRttResults(results, count);
    }
    // Ranging requests are answered once: the request is retired now.
    deleteWiFiHalReq(static_cast<uint32_t>(hal_id));
}

// Background-scan events (type 9).
void handleBgscanEvent(VARNScanEventResponse& rsp) {
    int hal_id = -1;
    wifi_scan_result_handler handlers = {};
    getGscanEventHandler(hal_id, rsp.getRequestId(), &handlers);
    vel_loc_fw::vector<VARNScanMeasurement*>& measurements = rsp.getMeasurements();
    VARN_LOG_VERBOSE(kListenerTag, "@responseReceived(): clReqId(%d), numResults(%u)", hal_id,
                     measurements.size());

    switch (rsp.getEventCode()) {
        case VARN_ON_SCAN_EVT:
            VARN_LOG_VERBOSE(kListenerTag,
                             "@responseReceived(): calling VARN_ON_FULL_SCAN_RESULT_EVT cb");
            if (handlers.on_scan_event == nullptr) {
                fw::log_debug(kListenerTag, "@responseReceived(): no scan event callback");
                return;
            }
            handlers.on_scan_event(hal_id, toWifiScanEvent(rsp.getScanStatus()));
            return;
        case VARN_ON_FULL_SCAN_RESULT_EVT: {
            // Element 0, with the vector's own error log when there is none.
            const VARNScanMeasurement* first = measurements[0];
            if (first == nullptr) return;
            // One record followed by its information elements.
            auto* result = static_cast<wifi_scan_result*>(
                    calloc(1, sizeof(wifi_scan_result) + first->ie_data.size()));
            if (result == nullptr) {
                fw::log_error(kListenerTag, "%s", kDropAllocation);
                return;
            }
            toWiFiScanResult(1, result, measurements);
            fw::log_debug(kListenerTag,
                          "@responseReceived(): calling VARN_ON_FULL_SCAN_RESULT_EVT cb");
            if (handlers.on_full_scan_result != nullptr) {
                handlers.on_full_scan_result(hal_id, result, 0);
            } else {
                fw::log_debug(kListenerTag, "@responseReceived(): no full scan result callback");
            }
            free(result);
            return;
        }
        default: fw::log_debug(kListenerTag, "@responseReceived(): not a bgscan event"); return;
    }
}

// Hotlist AP found / lost events (type 11).
void handleHotlistEvent(VARNScanEventResponse& rsp) {
    int hal_id = -1;
    wifi_hotlist_ap_found_handler handlers = {};
    getHotlistApEvtHandler(hal_id, rsp.getRequestId(), &handlers);
    vel_loc_fw::vector<VARNScanMeasurement*> measurements = rsp.getMeasurements();
    const uint32_t count = measurements.size();
    // Records at the fixed 88-byte stride, each with its information elements
    // from its `ie_data` on (running into the records after it): the block
    // reaches the end of the farthest element copy, and at least the records.
    size_t size = static_cast<size_t>(count) * sizeof(wifi_scan_result);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t end = static_cast<size_t>(i) * sizeof(wifi_scan_result) +
                           offsetof(wifi_scan_result, ie_data) + measurements[i]->ie_data.size();
        if (end > size) size = end;
    }
    auto* results = static_cast<wifi_scan_result*>(calloc(1, size == 0 ? 1 : size));
    if (results == nullptr) {
        fw::log_error(kListenerTag, "%s", kDropAllocation);
        return;
    }
    toWiFiScanResult(count, results, measurements);
    switch (rsp.getEventCode()) {
        case VARN_AP_FOUND_EVT:
            fw::log_debug(kListenerTag, "@responseReceived(): calling VARN_AP_FOUND_EVT cb");
            if (handlers.on_hotlist_ap_found != nullptr) {
                handlers.on_hotlist_ap_found(hal_id, count, results);
            }
            break;
        case VARN_AP_LOST_EVT:
            fw::log_debug(kListenerTag, "@responseReceived(): calling VARN_AP_LOST_EVT cb");
            if (handlers.on_hotlist_ap_lost != nullptr) {
                handlers.on_hotlist_ap_lost(hal_id, count, results);
            }
            break;
        default: VARN_LOG_VERBOSE(kListenerTag, "@responseReceived(): not a hotlist event"); break;
    }
    free(results);
}

// Significant-change events (type 12).
void handleSignificantChange(VARNScanEventResponse& rsp) {
    int hal_id = -1;
    wifi_significant_change_handler handlers = {};
    getSigChangeEvtHandler(hal_id, rsp.getRequestId(), &handlers);
    vel_loc_fw::vector<VARNScanMeasurement*> measurements = rsp.getMeasurements();
    const uint32_t count = measurements.size();
    auto** results = static_cast<wifi_significant_change_result**>(
            calloc(count == 0 ? 1 : count, sizeof(void*)));
    if (results == nullptr) {
        fw::log_error(kListenerTag, "%s", kSigChangeAllocation);
        return;
    }
    for (uint32_t i = 0; i < count; ++i) {
        const VARNScanMeasurement* meas = measurements[i];
        const uint32_t samples = meas->measurements.size();
        auto* block = static_cast<wifi_significant_change_result*>(
                malloc(sizeof(wifi_significant_change_result) + samples * sizeof(wifi_rssi)));
        if (block == nullptr) {
            for (uint32_t k = 0; k < i; ++k) free(results[k]);
            free(results);
            fw::log_error(kListenerTag, "%s", kSigChangeAllocation);
            return;
        }
        for (int b = 0; b < 6; ++b) block->bssid[b] = meas->bssid[b];
        block->channel = static_cast<wifi_channel>(meas->frequency);
        block->num_rssi = static_cast<int>(samples);
        for (uint32_t k = 0; k < samples; ++k) block->rssi[k] = meas->measurements[k]->rssi;
        results[i] = block;
    }
    fw::log_debug(kListenerTag, "@responseReceived(): calling VARN_SIGNIFICANT_CHANGE_EVT cb");
    if (handlers.on_significant_change != nullptr) {
        handlers.on_significant_change(hal_id, count, results);
    }
    for (uint32_t i = 0; i < count; ++i) free(results[i]);
    free(results);
}

}  // namespace

void VARNClientListenerImpl::responseReceived(VARNResponse* rsp) {
    if (rsp == nullptr) {
        fw::log_error(kListenerTag, "%s: invalid response: NULL pointer received ",
                      "responseReceived");
        return;
    }
    VARN_LOG_VERBOSE(kListenerTag, "%s: varnReqid(%u)", "responseReceived", rsp->getRequestId());
    switch (static_cast<int32_t>(rsp->getResponseType())) {
        case VARN_RSP_RANGING_SCAN:
            handleRangingResults(*this, *static_cast<VARNRangingScanResponse*>(rsp));
            break;
        case VARN_RSP_BGSCAN: handleBgscanEvent(*static_cast<VARNScanEventResponse*>(rsp)); break;
        case VARN_RSP_HOTLIST_EVENT:
            handleHotlistEvent(*static_cast<VARNScanEventResponse*>(rsp));
            break;
        case VARN_RSP_SIGNIFICANT_CHANGE_EVENT:
            handleSignificantChange(*static_cast<VARNScanEventResponse*>(rsp));
            break;
        default: break;  // other responses carry nothing for the HAL
    }
}
