// VARN client library: measurement records handed over in responses.
//
// Ownership: a `VARNScanMeasurement` owns its `VARNMeasurementInfo` records
// and its LCI/LCR element data and deletes them in its destructor; a
// `VARNBgscanCachedResult` owns its measurements. The responses that carry
// them own them in turn (see VARNResponse.h). Copies of the pointer vectors
// borrow the records; they must not outlive the response.
#pragma once

#include <cstdint>

#include <vel_loc_fw/vector.h>
#include <varn_client/VARNTypes.h>

// Transmit or receive rate of one frame.
struct VARNRateInfo {
    uint32_t bit_rate = 0;        // units of 100 kbit/s
    uint8_t preamble = 0;         // eVARNPreamble
    uint8_t spatial_streams = 0;  // 0 = 1x1, 1 = 2x2, ...
    uint8_t bandwidth = 0;        // eVARNBandwidth
    uint8_t mcs_index = 0;
    uint8_t num_chains = 0;       // transmit (tx_rate) or receive (rx_rate) chains
};

// One frame exchange of a ranging burst, or one beacon observation of a scan
// (then only `rssi` and `rssi_timestamp` are meaningful).
struct VARNMeasurementInfo {
    int32_t rtt_ps = 0;           // round-trip time, picoseconds
    int16_t rssi = 0;             // ranging frames: 0.5 dB units (2 x dBm); scans: dBm
    uint64_t rssi_timestamp = 0;  // microseconds since boot
    uint64_t rtt_timestamp = 0;   // microseconds since boot
    VARNRateInfo tx_rate;
    VARNRateInfo rx_rate;
    uint8_t tx_chain_index = 0;
    uint8_t rx_chain_index = 0;
};

// An information element (LCI or LCR) reported by a peer. Present when `data`
// is not null; `data` holds `length` bytes owned by the enclosing measurement.
struct VARNInformationElement {
    uint8_t id = 0;
    uint8_t length = 0;
    uint8_t* data = nullptr;
};

// Everything measured about one peer: ranging results of one target, or one
// AP of a scan.
class VARNScanMeasurement {
  public:
    VARNScanMeasurement() = default;
    // Deletes every `measurements` entry and the LCI/LCR data.
    ~VARNScanMeasurement();
    VARNScanMeasurement(const VARNScanMeasurement&) = delete;
    VARNScanMeasurement& operator=(const VARNScanMeasurement&) = delete;

    // Replaces the LCI (or LCR) element with a copy of `length` bytes of
    // `data`. Returns 0, or -1 when out of memory (the element is then absent).
    int setLci(uint8_t id, const uint8_t* data, uint8_t length);
    int setLcr(uint8_t id, const uint8_t* data, uint8_t length);

    // A deep copy (measurement infos and elements included); null when out
    // of memory. The caller deletes it.
    VARNScanMeasurement* clone() const;

    VARNMacAddress bssid;
    uint32_t frequency = 0;               // MHz
    bool is_secure = false;
    eVARNNodeType node_type = VARN_NODE_ACCESS_POINT;
    eVARNRttType rtt_type = VARN_RTT_TYPE_UNSPECIFIED;
    eVARNTargetStatus target_status = VARN_TARGET_STATUS_SUCCESS;
    uint32_t burst_number = 0;
    uint32_t measurements_attempted = 0;  // frames attempted
    uint8_t frames_per_burst_peer = 0;    // frames per burst the peer supports
    uint8_t retry_after_duration = 0;     // seconds, with ..._BUSY_TRY_LATER
    uint32_t burst_duration = 0;          // ms taken by one burst
    uint32_t negotiated_burst_num = 0;
    VARNInformationElement lci;
    VARNInformationElement lcr;
    VARNSsid ssid;
    vel_loc_fw::vector<uint8_t> ie_data;  // raw information-element bytes of a scan result
    vel_loc_fw::vector<VARNMeasurementInfo*> measurements;  // owned
};

// One cached background scan. Owns its measurements.
class VARNBgscanCachedResult {
  public:
    VARNBgscanCachedResult() = default;
    ~VARNBgscanCachedResult();
    VARNBgscanCachedResult(const VARNBgscanCachedResult&) = delete;
    VARNBgscanCachedResult& operator=(const VARNBgscanCachedResult&) = delete;

    int32_t scan_id = 0;
    int32_t flags = 0;
    vel_loc_fw::vector<VARNScanMeasurement*> measurements;  // owned
};
