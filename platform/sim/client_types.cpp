// Host build of the client library's request, response and measurement classes.
#include <varn_client/VARNClient.h>

#include <new>

#include <vel_loc_fw/log_util.h>

const char* const VARNRequest::TAG = "VARNRequest";

VARNRequest::VARNRequest(uint32_t request_id) : request_id_(request_id) {}
VARNRequest::~VARNRequest() = default;

const char* VARNRequest::toString(eVARNRequestType type) {
    switch (type) {
        case VARN_REQ_INVALID: return "VARN_REQ_INVALID";
        case VARN_REQ_DISCOVERY_SCAN: return "VARN_REQ_DISCOVERY_SCAN";
        case VARN_REQ_PERIODIC_RANGING_SCAN: return "VARN_REQ_PERIODIC_RANGING_SCAN";
        case VARN_REQ_CANCEL_RANGING_SCAN: return "VARN_REQ_CANCEL_RANGING_SCAN";
        case VARN_REQ_CAPABILITY: return "VARN_REQ_CAPABILITY";
        case VARN_REQ_CHANNELS_SUPPORTED: return "VARN_REQ_CHANNELS_SUPPORTED";
        case VARN_REQ_CAPABILITY_SUBSCRIPTION: return "VARN_REQ_CAPABILITY_SUBSCRIPTION";
        case VARN_REQ_GSCAN_CAPABILITIES: return "VARN_REQ_GSCAN_CAPABILITIES";
        case VARN_REQ_GET_CACHED_BGSCAN_RESULTS: return "VARN_REQ_GET_CACHED_BGSCAN_RESULTS";
        case VARN_REQ_BGSCAN_START: return "VARN_REQ_BGSCAN_START";
        case VARN_REQ_BGSCAN_STOP: return "VARN_REQ_BGSCAN_STOP";
        case VARN_REQ_HOTLIST_SET: return "VARN_REQ_HOTLIST_SET";
        case VARN_REQ_HOTLIST_CLEAR: return "VARN_REQ_HOTLIST_CLEAR";
        case VARN_REQ_SIGNIFICANT_CHANGE_SET: return "VARN_REQ_SIGNIFICANT_CHANGE_SET";
        case VARN_REQ_SIGNIFICANT_CHANGE_CLEAR: return "VARN_REQ_SIGNIFICANT_CHANGE_CLEAR";
        case VARN_REQ_SET_LCI_LOCATION_INFO: return "VARN_REQ_SET_LCI_LOCATION_INFO";
        case VARN_REQ_SET_LCR_LOCATION_INFO: return "VARN_REQ_SET_LCR_LOCATION_INFO";
        case VARN_REQ_RM_CHANNEL: return "VARN_REQ_RM_CHANNEL";
        case VARN_REQ_ENABLE_RESPONDER: return "VARN_REQ_ENABLE_RESPONDER";
        case VARN_REQ_DISABLE_RESPONDER: return "VARN_REQ_DISABLE_RESPONDER";
    }
    return "VARN_REQ_UNKNOWN";
}

// Every request class logs its construction and destruction at verbose level,
// as the client library does.
#define VARN_REQUEST_LIFETIME_LOGS(Class)                                   \
    Class::~Class() { vel_loc_fw::log_verbose(TAG, "~" #Class); }

VARNPeriodicRangingScanRequest::VARNPeriodicRangingScanRequest(
        uint32_t request_id, const vel_loc_fw::vector<VARNPeriodicNodeInfo>& nodes,
        int64_t reserved)
    : VARNRequest(request_id), nodes_(nodes), reserved_(reserved) {
    vel_loc_fw::log_verbose(TAG, "VARNPeriodicRangingScanRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNPeriodicRangingScanRequest)

VARNCancelRangingScanRequest::VARNCancelRangingScanRequest(
        uint32_t request_id, const vel_loc_fw::vector<VARNMacAddress>& bssids)
    : VARNRequest(request_id), bssids_(bssids) {
    vel_loc_fw::log_verbose(TAG, "VARNCancelRangingScanRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNCancelRangingScanRequest)

VARNCapabilityRequest::VARNCapabilityRequest(uint32_t request_id) : VARNRequest(request_id) {
    vel_loc_fw::log_verbose(TAG, "VARNCapabilityRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNCapabilityRequest)

VARNChannelsSupportedRequest::VARNChannelsSupportedRequest(uint32_t request_id, int32_t band,
                                                           int32_t max_channels)
    : VARNRequest(request_id), band_(band), max_channels_(max_channels) {
    vel_loc_fw::log_verbose(TAG, "VARNChannelsSupportedRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNChannelsSupportedRequest)

VARNCapabilitySubscriptionRequest::VARNCapabilitySubscriptionRequest(uint32_t request_id,
                                                                     uint32_t period_s)
    : VARNRequest(request_id), period_s_(period_s) {
    vel_loc_fw::log_verbose(TAG, "VARNCapabilitySubscriptionRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNCapabilitySubscriptionRequest)

VARNGscanCapabilitiesRequest::VARNGscanCapabilitiesRequest(uint32_t request_id)
    : VARNRequest(request_id) {
    vel_loc_fw::log_verbose(TAG, "VARNGscanCapabilitiesRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNGscanCapabilitiesRequest)

VARNEnableResponderRequest::VARNEnableResponderRequest(uint32_t request_id,
                                                       uint32_t max_duration_s, int8_t width,
                                                       int32_t center_freq, int32_t center_freq0,
                                                       int32_t center_freq1)
    : VARNRequest(request_id),
      max_duration_s_(max_duration_s),
      width_(width),
      center_freq_(center_freq),
      center_freq0_(center_freq0),
      center_freq1_(center_freq1) {
    vel_loc_fw::log_verbose(TAG, "VARNEnableResponderRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNEnableResponderRequest)

VARNSetLCILocationInformation::VARNSetLCILocationInformation(uint32_t request_id,
                                                             const VARNLciInformation& lci,
                                                             uint32_t usage_rules)
    : VARNRequest(request_id), lci_(lci), usage_rules_(usage_rules) {
    vel_loc_fw::log_verbose(TAG, "VARNSetLCILocationInformation");
}
VARN_REQUEST_LIFETIME_LOGS(VARNSetLCILocationInformation)

VARNSetLCRLocationInformation::VARNSetLCRLocationInformation(uint32_t request_id,
                                                             const VARNLcrInformation& lcr)
    : VARNRequest(request_id), lcr_(lcr) {
    vel_loc_fw::log_verbose(TAG, "VARNSetLCRLocationInformation");
}
VARN_REQUEST_LIFETIME_LOGS(VARNSetLCRLocationInformation)

VARNBgscanStartRequest::VARNBgscanStartRequest(uint32_t request_id, const VARNScanParams& params)
    : VARNRequest(request_id), params_(params) {
    vel_loc_fw::log_verbose(TAG, "VARNBgscanStartRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNBgscanStartRequest)

VARNBgscanStopRequest::VARNBgscanStopRequest(uint32_t request_id) : VARNRequest(request_id) {
    vel_loc_fw::log_verbose(TAG, "VARNBgscanStopRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNBgscanStopRequest)

VARNGetCachedBgscanResultsRequest::VARNGetCachedBgscanResultsRequest(uint32_t request_id,
                                                                     uint8_t flush, int32_t max)
    : VARNRequest(request_id), flush_(flush), max_(max) {
    vel_loc_fw::log_verbose(TAG, "VARNGetCachedBgscanResultsRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNGetCachedBgscanResultsRequest)

VARNHotlistSetRequest::VARNHotlistSetRequest(uint32_t request_id, const VARNHotlistParams& params)
    : VARNRequest(request_id), params_(params) {
    vel_loc_fw::log_verbose(TAG, "VARNHotlistSetRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNHotlistSetRequest)

VARNHotlistClearRequest::VARNHotlistClearRequest(uint32_t request_id) : VARNRequest(request_id) {
    vel_loc_fw::log_verbose(TAG, "VARNHotlistClearRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNHotlistClearRequest)

VARNSignificantChangeListSetRequest::VARNSignificantChangeListSetRequest(
        uint32_t request_id, const VARNSignificantChangeParams& params)
    : VARNRequest(request_id), params_(params) {
    vel_loc_fw::log_verbose(TAG, "VARNSignificantChangeListSetRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNSignificantChangeListSetRequest)

VARNSignificantChangeListClearRequest::VARNSignificantChangeListClearRequest(uint32_t request_id)
    : VARNRequest(request_id) {
    vel_loc_fw::log_verbose(TAG, "VARNSignificantChangeListClearRequest");
}
VARN_REQUEST_LIFETIME_LOGS(VARNSignificantChangeListClearRequest)

// ---- measurements -------------------------------------------------------

namespace {

void releaseElement(VARNInformationElement* element) {
    delete[] element->data;
    *element = VARNInformationElement();
}

int copyElement(VARNInformationElement* element, uint8_t id, const uint8_t* data,
                uint8_t length) {
    releaseElement(element);
    uint8_t* copy = new (std::nothrow) uint8_t[length > 0 ? length : 1];
    if (copy == nullptr) return -1;
    if (length > 0) std::memcpy(copy, data, length);
    element->id = id;
    element->length = length;
    element->data = copy;
    return 0;
}

template <typename T>
void deleteAll(vel_loc_fw::vector<T*>* items) {
    for (T* item : *items) delete item;
    items->clear();
}

}  // namespace

VARNScanMeasurement::~VARNScanMeasurement() {
    deleteAll(&measurements);
    releaseElement(&lci);
    releaseElement(&lcr);
}

int VARNScanMeasurement::setLci(uint8_t id, const uint8_t* data, uint8_t length) {
    return copyElement(&lci, id, data, length);
}

int VARNScanMeasurement::setLcr(uint8_t id, const uint8_t* data, uint8_t length) {
    return copyElement(&lcr, id, data, length);
}

VARNScanMeasurement* VARNScanMeasurement::clone() const {
    VARNScanMeasurement* copy = new (std::nothrow) VARNScanMeasurement();
    if (copy == nullptr) return nullptr;
    copy->bssid = bssid;
    copy->frequency = frequency;
    copy->is_secure = is_secure;
    copy->node_type = node_type;
    copy->rtt_type = rtt_type;
    copy->target_status = target_status;
    copy->burst_number = burst_number;
    copy->measurements_attempted = measurements_attempted;
    copy->frames_per_burst_peer = frames_per_burst_peer;
    copy->retry_after_duration = retry_after_duration;
    copy->burst_duration = burst_duration;
    copy->negotiated_burst_num = negotiated_burst_num;
    copy->ssid = ssid;
    copy->ie_data = ie_data;
    bool ok = copy->ie_data.size() == ie_data.size();
    if (ok && lci.data != nullptr) ok = copy->setLci(lci.id, lci.data, lci.length) == 0;
    if (ok && lcr.data != nullptr) ok = copy->setLcr(lcr.id, lcr.data, lcr.length) == 0;
    for (uint32_t i = 0; ok && i < measurements.size(); ++i) {
        VARNMeasurementInfo* info = new (std::nothrow) VARNMeasurementInfo(*measurements[i]);
        ok = info != nullptr && copy->measurements.push_back(info) == 0;
        if (!ok) delete info;
    }
    if (!ok) {
        delete copy;
        return nullptr;
    }
    return copy;
}

VARNBgscanCachedResult::~VARNBgscanCachedResult() { deleteAll(&measurements); }

// ---- responses ------------------------------------------------------------

VARNResponse::VARNResponse(uint32_t request_id, eVARNResponseType type,
                           eVARNResponseStatus status)
    : request_id_(request_id), type_(type), status_(status) {}
VARNResponse::~VARNResponse() = default;

VARNRangingScanResponse::VARNRangingScanResponse(uint32_t request_id, eScanStatus scan_status,
                                                 eVARNResponseStatus status)
    : VARNResponse(request_id, VARN_RSP_RANGING_SCAN, status), scan_status_(scan_status) {}
VARNRangingScanResponse::~VARNRangingScanResponse() { deleteAll(&measurements_); }

VARNCapabilityResponse::VARNCapabilityResponse(uint32_t request_id, eVARNResponseStatus status,
                                               const VARNCapabilities& capabilities)
    : VARNResponse(request_id, VARN_RSP_CAPABILITY, status), capabilities_(capabilities) {}
VARNCapabilityResponse::~VARNCapabilityResponse() = default;

VARNChannelsSupportedResponse::VARNChannelsSupportedResponse(uint32_t request_id,
                                                             eVARNResponseStatus status)
    : VARNResponse(request_id, VARN_RSP_CHANNELS_SUPPORTED, status) {}
VARNChannelsSupportedResponse::~VARNChannelsSupportedResponse() = default;

VARNDynamicCapabilitiesResponse::VARNDynamicCapabilitiesResponse(
        uint32_t request_id, eVARNResponseStatus status,
        const VARNDynamicCapabilities& capabilities)
    : VARNResponse(request_id, VARN_RSP_DYNAMIC_CAPABILITIES, status),
      capabilities_(capabilities) {}
VARNDynamicCapabilitiesResponse::~VARNDynamicCapabilitiesResponse() = default;

VARNGscanCapabilitiesResponse::VARNGscanCapabilitiesResponse(
        uint32_t request_id, eVARNResponseStatus status, const VARNGscanCapabilities& capabilities)
    : VARNResponse(request_id, VARN_RSP_GSCAN_CAPABILITIES, status),
      capabilities_(capabilities) {}
VARNGscanCapabilitiesResponse::~VARNGscanCapabilitiesResponse() = default;

VARNCachedBgscanResultsResponse::VARNCachedBgscanResultsResponse(uint32_t request_id,
                                                                 eVARNResponseStatus status)
    : VARNResponse(request_id, VARN_RSP_CACHED_BGSCAN_RESULTS, status) {}
VARNCachedBgscanResultsResponse::~VARNCachedBgscanResultsResponse() { deleteAll(&results_); }

VARNScanEventResponse::VARNScanEventResponse(uint32_t request_id, eVARNResponseType type,
                                             eVARNResponseStatus status,
                                             eVARNEventCode event_code,
                                             eVARNBgScanEvent scan_status)
    : VARNResponse(request_id, type, status), event_code_(event_code), scan_status_(scan_status) {}
VARNScanEventResponse::~VARNScanEventResponse() { deleteAll(&measurements_); }

VARNRMChannelResponse::VARNRMChannelResponse(uint32_t request_id, eVARNResponseType type,
                                             eVARNResponseStatus status,
                                             const VARNResponderChannelInfo& info)
    : VARNResponse(request_id, type, status), info_(info) {}
VARNRMChannelResponse::~VARNRMChannelResponse() = default;
