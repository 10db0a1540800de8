// The one listener through which the VARN client library hands every response
// back to the Wi-Fi HAL layer.
//
// `VARNClientListenerImpl` is created once by the interface initialisation and
// passed to `VARNClient::createInstance`; it lives until the interface is torn
// down. `responseReceived` runs on the client library's response thread: it
// finds the HAL request a response belongs to through the request bookkeeping,
// converts the measurements into Android Wi-Fi HAL records, computes the RTT
// and distance statistics, calls the HAL's callback and frees what it
// allocated before returning. It keeps no state between calls besides the
// standard-deviation multiplier, which is fixed at construction.
#pragma once

#include <cstdint>

#include <hardware_legacy/gscan.h>
#include <hardware_legacy/rtt.h>
#include <varn_client/VARNClientListener.h>
#include <varn_client/VARNMeasurement.h>
#include <varn_client/VARNResponse.h>
#include <vel_loc_fw/vector.h>

#include "listener/listener_internal.h"

// Per-frame records of one peer (borrowed from the response that carries
// them), split by receive chain for the statistics.
using VARNFrameList = varn_listener::InlineArray<VARNMeasurementInfo*, 64>;

class VARNClientListenerImpl : public VARNClientListener {
  public:
    // Expected standard deviation of one RTT sample, in picoseconds, indexed
    // by the client bandwidth code 0..3 (20, 40, 80, 160 MHz).
    static const int32_t RTT_STDEV[4];

    // `stdev_multiplier` scales `RTT_STDEV` into the outlier tolerance, in
    // tenths (50 keeps frames within 5 standard deviations of the median).
    explicit VARNClientListenerImpl(int stdev_multiplier);
    // Only logs "~VARNClientListenerImpl".
    ~VARNClientListenerImpl() override;

    VARNClientListenerImpl(const VARNClientListenerImpl&) = delete;
    VARNClientListenerImpl& operator=(const VARNClientListenerImpl&) = delete;

    // Handles one response of the client library: ranging results (type 2),
    // background-scan events (9), hotlist events (11) and significant-change
    // events (12); every other type is ignored. Calls the HAL callback on this
    // thread, without holding any bookkeeping lock. `rsp` is borrowed; a null
    // `rsp` is logged and ignored. Every allocation is released before it
    // returns; failures drop the single response and report nothing to the HAL.
    void responseReceived(VARNResponse* rsp) override;

    int stdevMultiplier() const { return stdev_multiplier_; }

    // ---- Ranging result conversion ----

    // Converts one ranging response into a `calloc`-ed array of one
    // `wifi_rtt_result_v2` per measurement. `request_status` is the response's
    // scan status. Returns null (logged) when the array cannot be allocated.
    // An empty `measurements` vector gives one zeroed element. The caller
    // frees the array with `FREE_RTT_RESULTS`.
    wifi_rtt_result_v2* scanMeasToWiFiHalResult(
            const vel_loc_fw::vector<VARNScanMeasurement*>& measurements,
            eScanStatus request_status);

    static void mapVarnStatusToWiFiHalStatus(wifi_rtt_result_v2* result,
                                             const VARNScanMeasurement* measurement,
                                             eScanStatus request_status);
    static void mapRttTypeToWiFiHal(wifi_rtt_result_v2* result,
                                    const VARNScanMeasurement* measurement);
    static void computeRssiMetrics(wifi_rtt_result_v2* result,
                                   const VARNScanMeasurement* measurement);
    static void processTxRate(wifi_rtt_result_v2* result, const VARNScanMeasurement* measurement);
    static void processRxRate(wifi_rtt_result_v2* result, const VARNScanMeasurement* measurement);
    // Copies the peer's LCI and LCR elements into fresh heap blocks owned by
    // `result` (freed by `FREE_RTT_RESULTS` for the first element only).
    static void processLocationIeData(wifi_rtt_result_v2* result,
                                      const VARNScanMeasurement* measurement);
    // `WIFI_RTT_BW_*` bit for the average receive bandwidth of `frames`.
    static wifi_rtt_bw getPacketBw(const vel_loc_fw::vector<VARNMeasurementInfo*>& frames);
    // `WIFI_RTT_BW_*` value of a client bandwidth code (unknown codes: 20 MHz).
    static wifi_rtt_bw mapVARNBwToWiFiHal(uint8_t bw);
    static void printWiFiHalNodeResult(const wifi_rtt_result_v2* result);

    // ---- RTT distance statistics ----

    // Weight of one frame for the weighted mean.
    static float getRTTWeightedFactor(uint8_t tx_preamble, uint8_t rx_preamble, uint8_t tx_bw,
                                      uint8_t rx_bw);
    // Mean of the frames' RTTs, weighted when `g_weighted_mean` is set; leaves
    // `mean` unchanged when every weight is zero.
    static void computeMean(const VARNFrameList& frames, float& mean);
    // Median of the `count` (> 0) `values`, which it sorts ascending.
    static int32_t computeMedian(int32_t* values, uint32_t count);
    static void computeStats(const VARNFrameList& frames, float& mean, int32_t& max, int32_t& min,
                             int32_t& spread, int32_t& stdev, int32_t& median, bool with_median);
    // Removes outliers around `median` (or frames off the requested bandwidth
    // when `g_discard_bw_mis_match` is set) from `frames` and recomputes the
    // statistics over the rest.
    void filterOutliers(VARNFrameList& frames, float& mean, int32_t& max, int32_t& min,
                        int32_t& spread, int32_t& stdev, int32_t& median, int32_t requested_bw);
    // Writes `rtt`, `rtt_sd` and `rtt_spread` of `result` from the frames of
    // `measurement`, choosing between the two receive chains.
    void computeRttMetrics(wifi_rtt_result_v2* result, const VARNScanMeasurement* measurement,
                           int32_t requested_bw);

  private:
    int32_t stdev_multiplier_;
};
