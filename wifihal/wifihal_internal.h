// Internal pieces shared by the entry points of the Wi-Fi HAL entry layer
// (not exported).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <type_traits>

#include <varn_client/VARNClient.h>
#include <varn_wifihal.h>

#include "wifihal/wifi_log.h"

// Dynamic capabilities of the latest background-scan capability query,
// overwritten by each (see `varn_wifihal_get_gscan_capabilities`).
extern VARNDynamicCapabilities g_dynamic_capabilities;

// True while no request can be sent: the interface is down, or a second init
// while up dropped the client and left the flag set. Entry points that use
// `client` refuse with WIFI_ERROR_UNINITIALIZED in both cases.
inline bool clientUnavailable() {
    return varn_wifihal_interface_initialized == 0 || client == nullptr;
}

// clientUnavailable(), with the warning every entry point gives when it
// refuses for that reason; `function` names the entry point.
inline bool refuseWithoutClient(const char* function) {
    if (!clientUnavailable()) return false;
    vel_loc_fw::log_warning(kWifiHalTag, "%s: interface not initialized", function);
    return true;
}

// The integer a C HAL stored in an enumeration-typed field of its records.
// Such a field may hold any value; loading it as the enumeration type is
// undefined for values outside the enumeration's range, so it is read as the
// plain integer it is.
template <typename Enum>
int32_t halInt(const Enum& field) {
    static_assert(std::is_enum<Enum>::value && sizeof(Enum) == sizeof(int32_t),
                  "HAL enumerations are 32-bit");
    int32_t value;
    memcpy(&value, &field, sizeof(value));
    return value;
}

// Stores `value` in an enumeration-typed field of a HAL record. Values the
// service sends need not be enumerators, and converting them to the
// enumeration type first would be undefined.
template <typename Enum>
void setHalInt(Enum& field, int32_t value) {
    static_assert(std::is_enum<Enum>::value && sizeof(Enum) == sizeof(int32_t),
                  "HAL enumerations are 32-bit");
    memcpy(&field, &value, sizeof(value));
}

// The `wifi_error` of a client response status: 1..10 give 0, -4, -2, -7,
// -1, -5, -3, -1, -8, -9; any other value gives -1 (WIFI_ERROR_UNKNOWN).
wifi_error mapVarnStatusToWiFiHalStatus(int32_t status);

// `rsp` as the response class its type code stands for, or null when `rsp` is
// null or carries another type code. Keeps a misbehaving service from making
// the entry points read a response as a class it is not.
template <typename Response>
Response* responseAs(VARNResponse* rsp, eVARNResponseType type) {
    return rsp != nullptr && rsp->getResponseType() == type ? static_cast<Response*>(rsp) : nullptr;
}

// Requests defined on this side of the client interface. Each logs its
// construction and destruction at verbose level under `VARNRequest::TAG`.

// Asks for the channel the RTT responder uses (answered by a type-25
// `VARNRMChannelResponse`).
class VARNRMChannelRequest : public VARNRequest {
  public:
    explicit VARNRMChannelRequest(uint32_t request_id);
    ~VARNRMChannelRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_RM_CHANNEL; }
};

// Turns the RTT responder off; sent without an answer.
class VARNDisableResponderRequest : public VARNRequest {
  public:
    explicit VARNDisableResponderRequest(uint32_t request_id);
    ~VARNDisableResponderRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_DISABLE_RESPONDER; }
};
