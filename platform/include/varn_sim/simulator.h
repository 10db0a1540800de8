// Host simulation of the VARN location service behind `VARNClient`.
//
// `VARNClient::createInstance` (from the host build of the client library)
// returns a simulated client bound to the process-wide `Simulator`. Like the
// real service, the client has its own response thread: `sendRequest`
// returns at once and answers later on that thread; `processRequest` and
// `getCapabilities` answer synchronously; deleting the client stops the
// thread, and no response is delivered after the deletion returns.
// Responses delivered through the listener are deleted by the service after
// `responseReceived` returns.
//
// The service models a small physical world, deterministic under a seed:
// access points with distance, bandwidth, one-/two-sided support and LCI/LCR.
// A ranging node yields the requested frames: RTT = 2 d / c plus Gaussian
// noise of the bandwidth's expected deviation (21000, 9270, 7000, 5600 ps for
// 20..160 MHz), occasional multipath outliers (10 to 60 ns late), two receive
// chains (chain 1 a small offset later), random frame loss, and per-frame
// RSSI from a log-distance path-loss model in 0.5 dB units (2 x dBm). Scan
// results carry RSSI in dBm. An AP below the receiver sensitivity, on another
// channel or unknown answers nothing: its target status is
// VARN_TARGET_STATUS_RTT_FAIL_NO_RSP with no frames. Background scans,
// cached scans, hotlist and significant-change events come from scan cycles
// over the APs that are visible at that cycle (APs may appear, disappear or
// drift in RSSI from cycle to cycle).
//
// Tests script it through `Simulator::instance()`: call reset() first.
//
// Scenario text format (one statement per line, '#' starts a comment):
//   seed <u64>                      random seed (default 1)
//   path_loss_exponent <x>          log-distance exponent n (default 3.0)
//   tx_power_dbm <x>                transmit power of the ap lines after it (default 20)
//   sensitivity_dbm <x>             weakest usable signal (default -88)
//   rssi_noise_db <x>               per-observation shadowing sigma (default 2)
//   frame_loss <p>                  probability of losing a frame (default 0.05)
//   multipath <p>                   probability of a late outlier (default 0.05)
//   chain_offset_ps <n>             extra delay of receive chain 1 (default 300)
//   bw_fallback <p>                 probability that a frame is exchanged at the
//                                   next narrower bandwidth (default 0)
//   air_time_ms <n>                 ranging air time per node (default 20)
//   ap <bssid> <ssid> <freq_mhz> <width_mhz> <distance_m> [key=value ...]
//       bssid  aa:bb:cc:dd:ee:ff; ssid without blanks ("-" for hidden);
//       width  20, 40, 80 or 160
//       keys:  center=<mhz> (first segment centre, default derived from freq)
//              one_sided=0|1 (default 1)   two_sided=0|1 (default 1)
//              tx_power=<dbm>  lci=<hex bytes>  lcr=<hex bytes>
//              appear=<cycle> (first visible scan cycle, default 0)
//              disappear=<cycle> (first invisible cycle, default never)
//              rssi_step=<dB per cycle> (default 0)
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <varn_client/VARNClient.h>
#include <varn_sim/trace.h>

namespace varn_sim {

struct AccessPoint {
    VARNMacAddress bssid;
    std::string ssid;
    uint32_t frequency = 0;      // primary channel, MHz
    uint32_t center_freq0 = 0;   // centre of the first segment, MHz
    eVARNBandwidth width = VARN_BW_20MHZ;
    double distance_m = 1.0;     // true distance
    bool one_sided = true;       // answers one-sided ranging
    bool two_sided = true;       // FTM responder (802.11mc)
    double tx_power_dbm = 20.0;
    std::vector<uint8_t> lci;    // LCI element data, empty when none
    std::vector<uint8_t> lcr;    // LCR (civic) element data, empty when none
    uint32_t appear_cycle = 0;
    uint32_t disappear_cycle = UINT32_MAX;
    double rssi_step_db = 0.0;

    // Channel width in MHz (20, 40, 80, 160).
    uint32_t widthMhz() const { return 20u << width; }
};

struct Scenario {
    uint64_t seed = 1;
    double path_loss_exponent = 3.0;
    double sensitivity_dbm = -88.0;
    double rssi_noise_db = 2.0;
    double frame_loss = 0.05;
    double multipath = 0.05;
    int32_t chain_offset_ps = 300;
    double bw_fallback = 0.0;
    uint32_t air_time_ms = 20;
    std::vector<AccessPoint> access_points;

    // Handful of APs at known distances: mixed 20/40/80 MHz, one with LCI and
    // LCR, one one-sided only, one out of reach, and one that fades by 4 dB
    // per scan cycle and vanishes at cycle 8 (all others stay put, so that
    // ranging at cycle 0 reaches every AP but the out-of-reach one).
    static Scenario defaultScenario();

    // Parses the text format above. Returns 0, or the number of the first bad
    // line (then `error`, when not null, says why and `out` is unchanged).
    static int parse(const std::string& text, Scenario* out, std::string* error);
    // Same for a file; -1 when it cannot be read.
    static int parseFile(const std::string& path, Scenario* out, std::string* error);
};

// How the service handled one request.
enum class Call { kSend, kProcess, kGetCapabilities };

// A copy of a request the library made, with the contents of its kind.
struct RecordedRequest {
    eVARNRequestType type = VARN_REQ_INVALID;
    uint32_t request_id = 0;
    Call call = Call::kSend;
    bool accepted = true;  // sendRequest returned 0 / a response was returned
    std::vector<VARNPeriodicNodeInfo> nodes;  // ranging
    std::vector<VARNMacAddress> bssids;       // cancel
    int32_t band = 0, max_channels = 0;       // channels
    uint32_t period_s = 0;                    // capability subscription
    uint8_t flush = 0;                        // cached results
    int32_t max_results = 0;
    uint32_t max_duration_s = 0;              // enable responder
    VARNResponderChannelInfo responder_channel;
    VARNLciInformation lci;
    uint32_t usage_rules = 0;
    VARNLcrInformation lcr;
    std::shared_ptr<VARNScanParams> scan_params;
    std::shared_ptr<VARNHotlistParams> hotlist_params;
    std::shared_ptr<VARNSignificantChangeParams> significant_change_params;
};

// Builds the answer to a request; may return null.
using ResponseFactory = std::function<VARNResponse*(const VARNRequest& request)>;

class Simulator {
  public:
    static Simulator& instance();

    // Back to the defaults: default scenario, capabilities, channels, statuses,
    // automatic scan cycles on; clears scripts, recordings and monitors.
    // Does not touch live clients.
    void reset();

    // World.
    void setScenario(const Scenario& scenario);  // also reseeds
    Scenario scenario() const;
    std::vector<AccessPoint> accessPoints() const;
    void setAirTimeMs(uint32_t ms_per_node);     // 0: answer ranging at once
    // Expected RSSI (dBm) of `ap` without noise, at scan cycle `cycle`.
    double expectedRssiDbm(const AccessPoint& ap, uint32_t cycle = 0) const;
    static int32_t expectedRttPs(double distance_m);
    static int32_t rttStdevPs(eVARNBandwidth bw);

    // Answers.
    void setCapabilities(const VARNCapabilities& caps);
    VARNCapabilities capabilities() const;
    void setDynamicCapabilities(const VARNDynamicCapabilities& caps);
    void setGscanCapabilities(const VARNGscanCapabilities& caps);
    void setChannels(int32_t band, const std::vector<uint32_t>& frequencies);
    void setResponderChannel(const VARNResponderChannelInfo& info);
    // Status of every later synchronous answer to requests of `type`.
    void setResponseStatus(eVARNRequestType type, eVARNResponseStatus status);
    // Response-level scan status of later ranging answers (default success).
    void setRangingScanStatus(eScanStatus status);

    // Ranging traces. While recording, every ranging answer the service
    // produces (from the world or from a replayed trace) is kept, with the
    // true distance of each peer the world knows; switching it on starts a
    // new recording.
    void setRecording(bool on);
    Trace recordedTrace() const;
    // Answers ranging from `trace` instead of the physical model: each
    // request takes the trace's next response (after the last, the first
    // again) with its scan status, and each node the first peer of its BSSID
    // not yet taken from that response, or no response when there is none.
    // An empty trace brings the physical model back.
    void replay(const Trace& trace);

    // One-shot scripts, consumed by the next request of `type` (queued in order).
    void refuseNext(eVARNRequestType type);  // send: returns -1; sync: returns null
    void answerNextWithNull(eVARNRequestType type);  // send: accepted, never answered
    void answerNextWith(eVARNRequestType type, ResponseFactory factory);
    void failNextCreateInstance();

    // Recorded requests, oldest first.
    std::vector<RecordedRequest> requests() const;
    size_t requestCount() const;
    RecordedRequest lastRequest(eVARNRequestType type) const;  // type INVALID if none
    void clearRequests();

    // Delivery. Queues `response` (ownership taken) on the newest live
    // client's service thread after `delay_ms`. Returns 0, or -1 when no
    // client is alive (the response is deleted).
    int deliver(VARNResponse* response, uint32_t delay_ms = 0);
    // Waits until every queued response of every live client was handled
    // (listener returned). Returns false on timeout.
    bool waitUntilDelivered(uint32_t timeout_ms = 5000);
    // While held, nothing is delivered (responses stay queued). A test that
    // sets the air time to 0 holds deliveries around the call that sends a
    // request, so the caller has recorded its request before the answer comes.
    void setDeliveryHeld(bool held);
    // Number of responses handed to listeners since reset().
    uint64_t deliveredCount() const;
    // Thread of the newest live client; default id when none.
    std::thread::id serviceThreadId() const;
    size_t liveClients() const;

    // Scan cycles: run one now (events queued for delivery), or let the
    // service thread run them at the background-scan base period (1 s for
    // hotlist/significant change alone), scaled by `scale`.
    void runScanCycle();
    void setAutoScan(bool enabled, double period_scale = 1.0);
    uint32_t scanCycle() const;
    bool bgscanActive() const;

    // Internal state shared with the simulated client.
    struct State;
    State& state() { return *state_; }

  private:
    Simulator();
    std::unique_ptr<State> state_;
};

// Writes a MAC address as "aa:bb:cc:dd:ee:ff" into a string.
std::string formatMac(const VARNMacAddress& mac);
// Parses "aa:bb:cc:dd:ee:ff"; false when malformed.
bool parseMac(const std::string& text, VARNMacAddress* out);

}  // namespace varn_sim
