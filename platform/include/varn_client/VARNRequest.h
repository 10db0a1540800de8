// VARN client library: requests.
//
// A request is created by the caller for one call of `VARNClient` and deleted
// by the caller after that call returns; the client copies what it keeps.
// Every request carries the caller's client request id. Derived classes
// outside the client library are allowed: construct the base with the id and
// override getRequestType().
#pragma once

#include <cstdint>

#include <vel_loc_fw/vector.h>
#include <varn_client/VARNRecords.h>
#include <varn_client/VARNTypes.h>

class VARNRequest {
  public:
    // Tag of the requests' verbose constructor and destructor logs.
    static const char* const TAG;  // "VARNRequest"

    explicit VARNRequest(uint32_t request_id);
    virtual ~VARNRequest();
    virtual eVARNRequestType getRequestType() const = 0;

    uint32_t getRequestId() const { return request_id_; }

    // Name of a request type, e.g. "VARN_REQ_BGSCAN_START"; "VARN_REQ_UNKNOWN"
    // for a code without a name. Never null.
    static const char* toString(eVARNRequestType type);

  private:
    uint32_t request_id_;
};

// Ranging of one or more nodes. The nodes are copied.
class VARNPeriodicRangingScanRequest : public VARNRequest {
  public:
    VARNPeriodicRangingScanRequest(uint32_t request_id,
                                   const vel_loc_fw::vector<VARNPeriodicNodeInfo>& nodes,
                                   int64_t reserved);
    ~VARNPeriodicRangingScanRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_PERIODIC_RANGING_SCAN; }
    const vel_loc_fw::vector<VARNPeriodicNodeInfo>& getNodes() const { return nodes_; }
    int64_t getReserved() const { return reserved_; }

  private:
    vel_loc_fw::vector<VARNPeriodicNodeInfo> nodes_;
    int64_t reserved_;
};

// Cancels ranging of the listed BSSIDs. The list is copied.
class VARNCancelRangingScanRequest : public VARNRequest {
  public:
    VARNCancelRangingScanRequest(uint32_t request_id,
                                 const vel_loc_fw::vector<VARNMacAddress>& bssids);
    ~VARNCancelRangingScanRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_CANCEL_RANGING_SCAN; }
    const vel_loc_fw::vector<VARNMacAddress>& getBssids() const { return bssids_; }

  private:
    vel_loc_fw::vector<VARNMacAddress> bssids_;
};

// Static capabilities; answered by `VARNClient::getCapabilities`.
class VARNCapabilityRequest : public VARNRequest {
  public:
    explicit VARNCapabilityRequest(uint32_t request_id);
    ~VARNCapabilityRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_CAPABILITY; }
};

// Channels of a band, at most `max_channels` of them.
class VARNChannelsSupportedRequest : public VARNRequest {
  public:
    VARNChannelsSupportedRequest(uint32_t request_id, int32_t band, int32_t max_channels);
    ~VARNChannelsSupportedRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_CHANNELS_SUPPORTED; }
    int32_t getBand() const { return band_; }
    int32_t getMaxChannels() const { return max_channels_; }

  private:
    int32_t band_;
    int32_t max_channels_;
};

// Dynamic capabilities, with a subscription period in seconds.
class VARNCapabilitySubscriptionRequest : public VARNRequest {
  public:
    VARNCapabilitySubscriptionRequest(uint32_t request_id, uint32_t period_s);
    ~VARNCapabilitySubscriptionRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_CAPABILITY_SUBSCRIPTION; }
    uint32_t getPeriod() const { return period_s_; }

  private:
    uint32_t period_s_;
};

class VARNGscanCapabilitiesRequest : public VARNRequest {
  public:
    explicit VARNGscanCapabilitiesRequest(uint32_t request_id);
    ~VARNGscanCapabilitiesRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_GSCAN_CAPABILITIES; }
};

// Turns the RTT responder on for at most `max_duration_s` seconds.
class VARNEnableResponderRequest : public VARNRequest {
  public:
    VARNEnableResponderRequest(uint32_t request_id, uint32_t max_duration_s, int8_t width,
                               int32_t center_freq, int32_t center_freq0, int32_t center_freq1);
    ~VARNEnableResponderRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_ENABLE_RESPONDER; }
    uint32_t getMaxDuration() const { return max_duration_s_; }
    int8_t getWidth() const { return width_; }
    int32_t getCenterFreq() const { return center_freq_; }
    int32_t getCenterFreq0() const { return center_freq0_; }
    int32_t getCenterFreq1() const { return center_freq1_; }

  private:
    uint32_t max_duration_s_;
    int8_t width_;
    int32_t center_freq_;
    int32_t center_freq0_;
    int32_t center_freq1_;
};

// Location the responder announces; `usage_rules` as in the LCI element.
class VARNSetLCILocationInformation : public VARNRequest {
  public:
    VARNSetLCILocationInformation(uint32_t request_id, const VARNLciInformation& lci,
                                  uint32_t usage_rules);
    ~VARNSetLCILocationInformation() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_SET_LCI_LOCATION_INFO; }
    const VARNLciInformation& getLci() const { return lci_; }
    uint32_t getUsageRules() const { return usage_rules_; }

  private:
    VARNLciInformation lci_;
    uint32_t usage_rules_;
};

// Civic location the responder announces.
class VARNSetLCRLocationInformation : public VARNRequest {
  public:
    VARNSetLCRLocationInformation(uint32_t request_id, const VARNLcrInformation& lcr);
    ~VARNSetLCRLocationInformation() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_SET_LCR_LOCATION_INFO; }
    const VARNLcrInformation& getLcr() const { return lcr_; }

  private:
    VARNLcrInformation lcr_;
};

// Starts background scanning; events arrive as type-9 responses.
class VARNBgscanStartRequest : public VARNRequest {
  public:
    VARNBgscanStartRequest(uint32_t request_id, const VARNScanParams& params);
    ~VARNBgscanStartRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_BGSCAN_START; }
    const VARNScanParams& getParams() const { return params_; }

  private:
    VARNScanParams params_;
};

class VARNBgscanStopRequest : public VARNRequest {
  public:
    explicit VARNBgscanStopRequest(uint32_t request_id);
    ~VARNBgscanStopRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_BGSCAN_STOP; }
};

// Cached background-scan results, at most `max` scans; `flush` empties the cache.
class VARNGetCachedBgscanResultsRequest : public VARNRequest {
  public:
    VARNGetCachedBgscanResultsRequest(uint32_t request_id, uint8_t flush, int32_t max);
    ~VARNGetCachedBgscanResultsRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_GET_CACHED_BGSCAN_RESULTS; }
    uint8_t getFlush() const { return flush_; }
    int32_t getMax() const { return max_; }

  private:
    uint8_t flush_;
    int32_t max_;
};

// Watches the listed APs; found/lost events arrive as type-11 responses.
class VARNHotlistSetRequest : public VARNRequest {
  public:
    VARNHotlistSetRequest(uint32_t request_id, const VARNHotlistParams& params);
    ~VARNHotlistSetRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_HOTLIST_SET; }
    const VARNHotlistParams& getParams() const { return params_; }

  private:
    VARNHotlistParams params_;
};

class VARNHotlistClearRequest : public VARNRequest {
  public:
    explicit VARNHotlistClearRequest(uint32_t request_id);
    ~VARNHotlistClearRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_HOTLIST_CLEAR; }
};

// Watches the listed APs' RSSI; events arrive as type-12 responses.
class VARNSignificantChangeListSetRequest : public VARNRequest {
  public:
    VARNSignificantChangeListSetRequest(uint32_t request_id,
                                        const VARNSignificantChangeParams& params);
    ~VARNSignificantChangeListSetRequest() override;
    eVARNRequestType getRequestType() const override { return VARN_REQ_SIGNIFICANT_CHANGE_SET; }
    const VARNSignificantChangeParams& getParams() const { return params_; }

  private:
    VARNSignificantChangeParams params_;
};

class VARNSignificantChangeListClearRequest : public VARNRequest {
  public:
    explicit VARNSignificantChangeListClearRequest(uint32_t request_id);
    ~VARNSignificantChangeListClearRequest() override;
    eVARNRequestType getRequestType() const override {
        return VARN_REQ_SIGNIFICANT_CHANGE_CLEAR;
    }
};
