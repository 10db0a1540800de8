// Ranging traces: the ranging responses a location service handed over,
// as text, so that a capture can be replayed in place of the simulated
// world's physical model (see Simulator::setRecording, Simulator::replay).
//
// Format, version 1: JSON lines (UTF-8, one JSON object per line; blank lines
// are ignored). The first line is the header
//   {"format":"varn-ranging-trace","version":1}
// (other members, e.g. "comment", are ignored). Every further line is one
// ranging response:
//   {"scan_status":1,"peers":[<peer>,...]}
// with the response's eScanStatus (1 success; a failed scan has no peers).
// A peer is one measured target, in the order of the request's nodes:
//   "bssid"             "aa:bb:cc:dd:ee:ff"
//   "frequency"         MHz, as the service answered it
//   "rtt_type"          eVARNRttType (1 one-sided, 2 two-sided)
//   "node_type"         eVARNNodeType
//   "target_status"     eVARNTargetStatus (0 success)
//   "burst_number", "attempted", "frames_per_burst_peer", "retry_after_s",
//   "burst_duration_ms", "negotiated_burst_num"    the counts of the answer
//   "ssid"              optional string
//   "lci", "lcr"        optional [id, "hex bytes"] information elements
//   "true_distance_m"   optional: the peer's true distance, where known
//   "request"           what was asked of this node:
//       {"center_freq0":MHz,"center_freq1":MHz,"bandwidth":eVARNBandwidth,
//        "preamble":eVARNRttPreamble,"rtt_type":eVARNRttType,"frames":n,
//        "retries":n,"ftm_params":bits}
//   "frames"            the frame exchanges, each
//       {"rtt_ps":n,"rssi":n,"ts":[rssi_us,rtt_us],"chains":[tx,rx],
//        "tx":<rate>,"rx":<rate>}
//     with <rate> = [bit_rate, preamble, spatial_streams, bandwidth, mcs, chains]
//     (VARNRateInfo in that order) and "rssi" in 0.5 dB units as reported.
// Every member but the optional ones is required; integers must fit their
// field. A line that breaks any rule is reported with its number and skipped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <varn_client/VARNClient.h>

namespace varn_sim {

struct TraceElement {
    uint8_t id = 0;
    std::vector<uint8_t> data;  // empty: absent
};

struct TracePeer {
    VARNPeriodicNodeInfo request;  // bssid and frequency are the answer's
    eVARNRttType rtt_type = VARN_RTT_TYPE_UNSPECIFIED;
    eVARNNodeType node_type = VARN_NODE_ACCESS_POINT;
    eVARNTargetStatus target_status = VARN_TARGET_STATUS_SUCCESS;
    uint32_t burst_number = 0;
    uint32_t measurements_attempted = 0;
    uint8_t frames_per_burst_peer = 0;
    uint8_t retry_after_duration = 0;
    uint32_t burst_duration = 0;
    uint32_t negotiated_burst_num = 0;
    std::string ssid;
    TraceElement lci, lcr;
    bool has_true_distance = false;
    double true_distance_m = 0;
    std::vector<VARNMeasurementInfo> frames;

    // The peer as a service answered it for `node`.
    static TracePeer of(const VARNPeriodicNodeInfo& node, const VARNScanMeasurement& measurement);
    // A new measurement with these contents (the caller deletes it); null
    // when out of memory.
    VARNScanMeasurement* toMeasurement() const;
};

struct TraceResponse {
    eScanStatus scan_status = VARN_SCAN_STATUS_SUCCESS;
    std::vector<TracePeer> peers;
};

struct Trace {
    static constexpr int kVersion = 1;
    std::vector<TraceResponse> responses;

    // Reads a trace. Lines that break the format are skipped and described
    // in `problems` (when not null) as "line N: why"; returns false when the
    // header is missing or of another version (then nothing is read).
    static bool parse(const std::string& text, Trace* out, std::vector<std::string>* problems);
    // Same for a file; false also when it cannot be read.
    static bool parseFile(const std::string& path, Trace* out, std::vector<std::string>* problems);

    // The text of the trace: the header line, then a line per response.
    std::string format() const;
    static std::string headerLine();
    static std::string responseLine(const TraceResponse& response);
    // Writes format() to `path`; false (and `error` says why) on failure.
    bool writeFile(const std::string& path, std::string* error) const;
};

}  // namespace varn_sim
