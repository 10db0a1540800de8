// VARN client library: responses.
//
// Ownership: a response owns everything it carries (measurements, cached
// results) and deletes it in its destructor. Responses returned by
// `VARNClient::processRequest` / `getCapabilities` belong to the caller, who
// deletes them; responses delivered to `VARNClientListener::responseReceived`
// belong to the client library, which deletes them after the call returns.
//
// Classes by response type:
//   2                  VARNRangingScanResponse (scan status, measurements)
//   4                  VARNCapabilityResponse
//   5                  VARNChannelsSupportedResponse
//   6                  VARNDynamicCapabilitiesResponse
//   7                  VARNGscanCapabilitiesResponse
//   8                  VARNCachedBgscanResultsResponse
//   9 to 15            VARNScanEventResponse, both for the synchronous answers
//                      of start/stop, hotlist set/clear and significant-change
//                      set/clear (event code VARN_NO_EVT) and for the events
//                      (9 background scan, 11 hotlist, 12 significant change);
//                      a response of any of these types may be cast to it.
//   25, 26             VARNRMChannelResponse (responder channel)
//   anything else      VARNResponse (status only)
#pragma once

#include <cstdint>

#include <vel_loc_fw/vector.h>
#include <varn_client/VARNMeasurement.h>
#include <varn_client/VARNRecords.h>
#include <varn_client/VARNTypes.h>

class VARNResponse {
  public:
    VARNResponse(uint32_t request_id, eVARNResponseType type, eVARNResponseStatus status);
    virtual ~VARNResponse();
    VARNResponse(const VARNResponse&) = delete;
    VARNResponse& operator=(const VARNResponse&) = delete;

    // Client request id of the request this response answers.
    uint32_t getRequestId() const { return request_id_; }
    virtual eVARNResponseType getResponseType() const { return type_; }
    eVARNResponseStatus getResponseStatus() const { return status_; }

  private:
    uint32_t request_id_;
    eVARNResponseType type_;
    eVARNResponseStatus status_;
};

// Results of a ranging request (type 2): one measurement per target.
class VARNRangingScanResponse : public VARNResponse {
  public:
    VARNRangingScanResponse(uint32_t request_id, eScanStatus scan_status,
                            eVARNResponseStatus status = VARN_RSP_STATUS_SUCCESS);
    ~VARNRangingScanResponse() override;  // deletes the measurements

    eScanStatus getScanStatus() const { return scan_status_; }
    vel_loc_fw::vector<VARNScanMeasurement*>& getMeasurements() { return measurements_; }
    const vel_loc_fw::vector<VARNScanMeasurement*>& getMeasurements() const {
        return measurements_;
    }

  private:
    eScanStatus scan_status_;
    vel_loc_fw::vector<VARNScanMeasurement*> measurements_;
};

class VARNCapabilityResponse : public VARNResponse {
  public:
    VARNCapabilityResponse(uint32_t request_id, eVARNResponseStatus status,
                           const VARNCapabilities& capabilities);
    ~VARNCapabilityResponse() override;
    const VARNCapabilities& getCapabilities() const { return capabilities_; }

  private:
    VARNCapabilities capabilities_;
};

// Supported channels (type 5), never more than the request's maximum.
class VARNChannelsSupportedResponse : public VARNResponse {
  public:
    VARNChannelsSupportedResponse(uint32_t request_id, eVARNResponseStatus status);
    ~VARNChannelsSupportedResponse() override;
    vel_loc_fw::vector<VARNChannel>& getChannels() { return channels_; }
    const vel_loc_fw::vector<VARNChannel>& getChannels() const { return channels_; }

  private:
    vel_loc_fw::vector<VARNChannel> channels_;
};

class VARNDynamicCapabilitiesResponse : public VARNResponse {
  public:
    VARNDynamicCapabilitiesResponse(uint32_t request_id, eVARNResponseStatus status,
                                    const VARNDynamicCapabilities& capabilities);
    ~VARNDynamicCapabilitiesResponse() override;
    const VARNDynamicCapabilities& getDynamicCapabilities() const { return capabilities_; }

  private:
    VARNDynamicCapabilities capabilities_;
};

class VARNGscanCapabilitiesResponse : public VARNResponse {
  public:
    VARNGscanCapabilitiesResponse(uint32_t request_id, eVARNResponseStatus status,
                                  const VARNGscanCapabilities& capabilities);
    ~VARNGscanCapabilitiesResponse() override;
    const VARNGscanCapabilities& getGscanCapabilities() const { return capabilities_; }

  private:
    VARNGscanCapabilities capabilities_;
};

// Cached background scans (type 8), never more than the request's maximum.
class VARNCachedBgscanResultsResponse : public VARNResponse {
  public:
    VARNCachedBgscanResultsResponse(uint32_t request_id, eVARNResponseStatus status);
    ~VARNCachedBgscanResultsResponse() override;  // deletes the cached results
    vel_loc_fw::vector<VARNBgscanCachedResult*>& getCachedResults() { return results_; }
    const vel_loc_fw::vector<VARNBgscanCachedResult*>& getCachedResults() const {
        return results_;
    }

  private:
    vel_loc_fw::vector<VARNBgscanCachedResult*> results_;
};

// Background-scan, hotlist and significant-change answers and events
// (types 9 to 15). Events carry an event code and measurements:
//   type 9,  VARN_ON_FULL_SCAN_RESULT_EVT: one measurement, the AP's full result
//   type 9,  VARN_ON_SCAN_EVT: the scan-status word, no measurements
//   type 11, VARN_AP_FOUND_EVT / VARN_AP_LOST_EVT: one measurement per AP, each
//            with exactly one VARNMeasurementInfo (RSSI in dBm, time stamp)
//   type 12, VARN_SIGNIFICANT_CHANGE_EVT: one measurement per AP, one
//            VARNMeasurementInfo per RSSI sample (dBm)
class VARNScanEventResponse : public VARNResponse {
  public:
    VARNScanEventResponse(uint32_t request_id, eVARNResponseType type,
                          eVARNResponseStatus status, eVARNEventCode event_code = VARN_NO_EVT,
                          eVARNBgScanEvent scan_status = VARN_BGSCAN_SCAN_COMPLETE);
    ~VARNScanEventResponse() override;  // deletes the measurements

    eVARNEventCode getEventCode() const { return event_code_; }
    eVARNBgScanEvent getScanStatus() const { return scan_status_; }
    vel_loc_fw::vector<VARNScanMeasurement*>& getMeasurements() { return measurements_; }
    const vel_loc_fw::vector<VARNScanMeasurement*>& getMeasurements() const {
        return measurements_;
    }

  private:
    eVARNEventCode event_code_;
    eVARNBgScanEvent scan_status_;
    vel_loc_fw::vector<VARNScanMeasurement*> measurements_;
};

// Responder channel (type 25 for the channel query, 26 for enable responder).
class VARNRMChannelResponse : public VARNResponse {
  public:
    VARNRMChannelResponse(uint32_t request_id, eVARNResponseType type,
                          eVARNResponseStatus status, const VARNResponderChannelInfo& info);
    ~VARNRMChannelResponse() override;
    const VARNResponderChannelInfo& getChannelInfo() const { return info_; }

  private:
    VARNResponderChannelInfo info_;
};
