// RTT responder control and the location (LCI) and civic (LCR) information
// the device announces as a responder.
#include <varn_wifihal.h>

#include <stdlib.h>
#include <string.h>

#include <vel_loc_fw/log_util.h>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"

namespace {

using vel_loc_fw::log_debug;
using vel_loc_fw::log_error;
using vel_loc_fw::log_verbose;
using vel_loc_fw::log_warning;

// Usage rules sent with the LCI: retransmission allowed.
constexpr uint32_t kLciUsageRules = 1;

// Sends a request whose answer nobody waits for: WIFI_SUCCESS once the
// service takes it, else WIFI_ERROR_UNKNOWN after "<function>: <refusal>".
wifi_error sendUnanswered(const char* function, VARNRequest* request, const char* refusal) {
    if (client->sendRequest(request) == 0) return WIFI_SUCCESS;
    log_warning(kWifiHalTag, "%s: %s", function, refusal);
    return WIFI_ERROR_UNKNOWN;
}

// Fills `*out` from the responder channel the service reported: width and
// the three frequencies as given, preamble code 0..3 as the Android preamble
// bit 1, 2, 4, 8 (any other code as legacy, 1, logged at debug level).
void fillResponderInfo(const VARNResponderChannelInfo& info, wifi_rtt_responder* out) {
    static const int32_t kPreambles[] = {WIFI_RTT_PREAMBLE_LEGACY, WIFI_RTT_PREAMBLE_HT,
                                         WIFI_RTT_PREAMBLE_VHT, WIFI_RTT_PREAMBLE_HE};
    setHalInt(out->channel.width, info.width);
    out->channel.center_freq = info.center_freq;
    out->channel.center_freq0 = info.center_freq0;
    out->channel.center_freq1 = info.center_freq1;
    int32_t preamble = WIFI_RTT_PREAMBLE_LEGACY;
    if (info.preamble < 4) {
        preamble = kPreambles[info.preamble];
    } else {
        log_debug(kWifiHalTag, "Preamble default(WIFI_RTT_PREAMBLE_LEGACY) for input(%u)",
                  info.preamble);
    }
    setHalInt(out->preamble, preamble);
}

}  // namespace

VARNRMChannelRequest::VARNRMChannelRequest(uint32_t request_id) : VARNRequest(request_id) {
    log_verbose(VARNRequest::TAG, "VARNRMChannelRequest");
}

VARNRMChannelRequest::~VARNRMChannelRequest() {
    log_verbose(VARNRequest::TAG, "~VARNRMChannelRequest");
}

VARNDisableResponderRequest::VARNDisableResponderRequest(uint32_t request_id)
    : VARNRequest(request_id) {
    log_verbose(VARNRequest::TAG, "VARNDisableResponder");
}

VARNDisableResponderRequest::~VARNDisableResponderRequest() {
    log_verbose(VARNRequest::TAG, "~VARNDisableResponderRequest");
}

wifi_error varn_wifihal_get_responder_info(wifi_interface_handle /*iface*/,
                                           wifi_rtt_responder* responder_info) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    VARNResponse* rsp;
    {
        VARNRMChannelRequest request(nextReqId());
        rsp = client->processRequest(&request);
    }
    if (rsp == nullptr) {
        log_warning(kWifiHalTag, "%s: failed to get channel info", __func__);
        return WIFI_ERROR_UNKNOWN;
    }
    // Without a record to fill (or a channel to fill it with) the query still
    // succeeds, as it does whatever status the service reports.
    const auto* channel = responseAs<VARNRMChannelResponse>(rsp, VARN_RSP_RM_CHANNEL);
    if (channel != nullptr && responder_info != nullptr) {
        fillResponderInfo(channel->getChannelInfo(), responder_info);
    }
    delete rsp;
    return WIFI_SUCCESS;
}

wifi_error varn_wifihal_enable_responder(wifi_request_id /*id*/, wifi_interface_handle /*iface*/,
                                         wifi_channel_info channel_hint,
                                         unsigned max_duration_seconds,
                                         wifi_rtt_responder* responder_info) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    VARNResponse* rsp;
    {
        VARNEnableResponderRequest request(
                nextReqId(), max_duration_seconds, static_cast<int8_t>(halInt(channel_hint.width)),
                channel_hint.center_freq, channel_hint.center_freq0, channel_hint.center_freq1);
        rsp = client->processRequest(&request);
    }
    if (rsp == nullptr) {
        log_warning(kWifiHalTag, "%s: failed to get RTT responder channel info", __func__);
        return WIFI_ERROR_UNKNOWN;
    }
    const auto* channel = responseAs<VARNRMChannelResponse>(rsp, VARN_RSP_ENABLE_RESPONDER);
    if (channel != nullptr && responder_info != nullptr) {
        fillResponderInfo(channel->getChannelInfo(), responder_info);
    }
    const wifi_error result = mapVarnStatusToWiFiHalStatus(rsp->getResponseStatus());
    delete rsp;
    return result;
}

wifi_error varn_wifihal_disable_responder(wifi_request_id /*id*/, wifi_interface_handle /*iface*/) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    VARNDisableResponderRequest request(nextReqId());
    return sendUnanswered(__func__, &request, "failed to send disable responder");
}

wifi_error varn_wifihal_set_lci(wifi_request_id /*id*/, wifi_interface_handle /*iface*/,
                                wifi_lci_information* lci) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    if (lci == nullptr) {
        log_warning(kWifiHalTag, "%s: %s", __func__, "bad input");
        return WIFI_ERROR_INVALID_ARGS;
    }
    const int32_t motion = halInt(lci->motion_pattern);
    log_debug(kWifiHalTag,
              "%s: client's input: latitude(%ld) longitude(%ld) altitude(%d) latitude_unc(%d) "
              "longitude_unc(%d) altitude_unc(%d) motion_pattern(%d) floor(%d) "
              "height_above_floor(%d) height_unc(%d)",
              __func__, static_cast<long>(lci->latitude), static_cast<long>(lci->longitude),
              lci->altitude, lci->latitude_unc, lci->longitude_unc, lci->altitude_unc, motion,
              lci->floor, lci->height_above_floor, lci->height_unc);
    VARNLciInformation info{};
    info.latitude = lci->latitude;
    info.longitude = lci->longitude;
    info.altitude = lci->altitude;
    info.latitude_unc = lci->latitude_unc;
    info.longitude_unc = lci->longitude_unc;
    info.altitude_unc = lci->altitude_unc;
    info.motion_pattern = VARNUtils::to_eVARNMotionPattern(static_cast<uint8_t>(motion & 0xff));
    info.floor = lci->floor;
    info.height_above_floor = lci->height_above_floor;
    info.height_unc = lci->height_unc;

    VARNSetLCILocationInformation request(nextReqId(), info, kLciUsageRules);
    return sendUnanswered(__func__, &request, "failed to send the request");
}

wifi_error varn_wifihal_set_lcr(wifi_request_id /*id*/, wifi_interface_handle /*iface*/,
                                wifi_lcr_information* lcr) {
    if (refuseWithoutClient(__func__)) return WIFI_ERROR_UNINITIALIZED;
    if (lcr == nullptr || lcr->length < 0) {
        log_warning(kWifiHalTag, "%s: bad input", __func__);
        return WIFI_ERROR_INVALID_ARGS;
    }
    log_debug(kWifiHalTag, "%s: client's input: country_code(0x%x%x) length(%d)", __func__,
              static_cast<unsigned>(static_cast<unsigned char>(lcr->country_code[0])),
              static_cast<unsigned>(static_cast<unsigned char>(lcr->country_code[1])), lcr->length);
    // The HAL's civic text need not end in a NUL inside its 256 bytes.
    char civic[VARNLcrInformation::kMaxCivicLength + 1];
    memcpy(civic, lcr->civic_info, VARNLcrInformation::kMaxCivicLength);
    civic[VARNLcrInformation::kMaxCivicLength] = '\0';
    log_debug(kWifiHalTag, "%s: client's input: civic_info(%s)", __func__, civic);

    if (static_cast<uint32_t>(lcr->length) > VARNLcrInformation::kMaxCivicLength) {
        log_error(kWifiHalTag, "%s: civic info length %d exceeds the %u-byte buffer", __func__,
                  lcr->length, VARNLcrInformation::kMaxCivicLength);
        abort();
    }
    VARNLcrInformation info{};
    info.country_code[0] = lcr->country_code[0];
    info.country_code[1] = lcr->country_code[1];
    info.length = lcr->length;
    memcpy(info.civic_info, lcr->civic_info, static_cast<size_t>(lcr->length));

    VARNSetLCRLocationInformation request(nextReqId(), info);
    return sendUnanswered(__func__, &request, "failed to send the request");
}
