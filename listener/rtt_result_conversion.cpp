// Conversion of the client library's ranging measurements into Android
// `wifi_rtt_result_v2` records: status, type, RSSI, rates, bandwidth,
// distances, time stamp and the LCI/LCR information elements.
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>
#include <vel_loc_fw/log_util.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "listener/listener_internal.h"
#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"

namespace fw = vel_loc_fw;

namespace {

const char* wifiHalStatusName(int32_t status) { return nameIn(WIFIHAL_STATUS, status, "UNKNOWN"); }

// Microseconds since boot with millisecond resolution.
wifi_timestamp bootTimeUs() {
    struct timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const int64_t ms = static_cast<int64_t>(now.tv_sec) * 1000 + (now.tv_nsec + 500000) / 1000000;
    return ms * 1000;
}

// Distance in millimetres of a time in picoseconds (c/2 = 0.15 mm/ps), in
// single precision as the platform reports it.
int psToMm(wifi_timespan ps) {
    const float product = static_cast<float>(ps) * 0.15f;
    return static_cast<int>(product);
}

}  // namespace

namespace varn_listener {

namespace {

// pow costs as much as the rest of a frame's conversion; the table holds
// pow's own results, so every level gives the same bits as before. Filled
// while the library loads, before any response can arrive.
constexpr int32_t kLowestTabledRssi = -1024;
constexpr int32_t kHighestTabledRssi = 255;

struct AmplitudeTable {
    double amplitude[kHighestTabledRssi - kLowestTabledRssi + 1];
    AmplitudeTable() {
        for (int32_t r = kLowestTabledRssi; r <= kHighestTabledRssi; ++r) {
            amplitude[r - kLowestTabledRssi] = pow(10.0, r / 20.0);
        }
    }
};

const AmplitudeTable kAmplitudes;

}  // namespace

double rssiAmplitude(int32_t rssi) {
    if (rssi < kLowestTabledRssi || rssi > kHighestTabledRssi) return pow(10.0, rssi / 20.0);
    return kAmplitudes.amplitude[rssi - kLowestTabledRssi];
}

}  // namespace varn_listener

namespace {

// Heap copy of a peer's information element as a `wifi_information_element`;
// null when absent or empty, or when out of memory (logged).
wifi_information_element* copyElement(const VARNInformationElement& element, const char* name) {
    if (element.data == nullptr || element.length == 0) return nullptr;
    VARN_LOG_VERBOSE(kListenerTag, "@processLocationIeData(): %s received len(%u)", name,
                     static_cast<unsigned>(element.length));
    auto* copy = static_cast<wifi_information_element*>(malloc(element.length + 2u));
    if (copy == nullptr) {
        fw::log_debug(kListenerTag, "@processLocationIeData(): memory allocation error");
        return nullptr;
    }
    copy->id = element.id;
    copy->len = element.length;
    memcpy(copy->data, element.data, element.length);
    return copy;
}

}  // namespace

void VARNClientListenerImpl::mapVarnStatusToWiFiHalStatus(wifi_rtt_result_v2* result,
                                                          const VARNScanMeasurement* measurement,
                                                          eScanStatus request_status) {
    const int32_t target = measurement->target_status;
    VARN_LOG_VERBOSE(kListenerTag, "%s: status IN(%d)(%s) ReqStatus(%d)",
                     "mapVarnStatusToWiFiHalStatus", target, nameIn(TARGET_STATUS, target),
                     static_cast<int>(request_status));
    // Indexed by the target status 0..10.
    static const wifi_rtt_status kByTarget[11] = {
            RTT_STATUS_SUCCESS,
            RTT_STATUS_FAILURE,
            RTT_STATUS_FAIL_NO_RSP,
            RTT_STATUS_FAIL_REJECTED,
            RTT_STATUS_FAIL_TM_TIMEOUT,
            RTT_STATUS_FAIL_AP_ON_DIFF_CHANNEL,
            RTT_STATUS_FAIL_NO_CAPABILITY,
            RTT_STATUS_FAIL_INVALID_TS,
            RTT_STATUS_FAIL_BUSY_TRY_LATER,
            RTT_STATUS_NAN_RANGING_PROTOCOL_FAILURE,
            RTT_STATUS_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED,
    };
    wifi_rtt_status status = RTT_STATUS_FAILURE;
    bool known = true;
    switch (request_status) {
        case VARN_SCAN_STATUS_SUCCESS:
            if (target >= 0 && target <= 10) {
                status = kByTarget[target];
            } else {
                known = false;
            }
            break;
        case VARN_SCAN_STATUS_INVALID_REQUEST: status = RTT_STATUS_INVALID_REQ; break;
        case VARN_SCAN_STATUS_NOT_CAPABLE: status = RTT_STATUS_FAIL_NO_CAPABILITY; break;
        case VARN_SCAN_STATUS_NO_WIFI: status = RTT_STATUS_NO_WIFI; break;
        default: known = false; break;
    }
    if (!known) {
        fw::log_debug(kListenerTag, "%s: Status type unknown", "mapVarnStatusToWiFiHalStatus");
        status = RTT_STATUS_FAILURE;
    }
    result->rtt_result.status = status;
    VARN_LOG_VERBOSE(kListenerTag, "@mapVarnStatusToWiFiHalStatus(): status OUT(%d)(%s)",
                     static_cast<int>(status), wifiHalStatusName(status));
}

void VARNClientListenerImpl::mapRttTypeToWiFiHal(wifi_rtt_result_v2* result,
                                                 const VARNScanMeasurement* measurement) {
    switch (measurement->rtt_type) {
        case VARN_RTT_TYPE_1_SIDED: result->rtt_result.type = RTT_TYPE_1_SIDED; break;
        case VARN_RTT_TYPE_2_SIDED: result->rtt_result.type = RTT_TYPE_2_SIDED; break;
        case VARN_RTT_TYPE_UNSPECIFIED: result->rtt_result.type = RTT_TYPE_1_SIDED; break;
        default:
            fw::log_debug(kListenerTag, "%s: RTT type unknown", "mapRttTypeToWiFiHal");
            result->rtt_result.type = RTT_TYPE_1_SIDED;
            break;
    }
}

void VARNClientListenerImpl::computeRssiMetrics(wifi_rtt_result_v2* result,
                                                const VARNScanMeasurement* measurement) {
    const vel_loc_fw::vector<VARNMeasurementInfo*>& frames = measurement->measurements;
    const uint32_t n = frames.size();
    if (n == 0) {
        fw::log_warning(kListenerTag,
                        "@computeRssiMetrics(): no measurements available to calculate rssi "
                        "metrics");
        return;
    }
    const bool verbose = fw::is_log_verbose_enabled(kListenerTag);
    int32_t rssi_max = frames[0]->rssi;
    int32_t rssi_min = frames[0]->rssi;
    double amplitude_sum = 0.0;
    for (uint32_t k = 0; k < n; ++k) {
        const int32_t rssi = frames[k]->rssi;
        if (verbose) {
            VARN_LOG_VERBOSE(kListenerTag, "@computeRssiMetrics(): rssi[%d] = %d",
                             static_cast<int>(k), rssi);
        }
        amplitude_sum += varn_listener::rssiAmplitude(rssi);
        if (rssi > rssi_max) {
            rssi_max = rssi;
        } else if (rssi < rssi_min) {
            rssi_min = rssi;
        }
    }
    double level = 10.0 * log10(amplitude_sum / n);
    if (!std::isfinite(level)) {
        // Amplitudes beyond the double range (RSSI values in the thousands):
        // the same level taken relative to the strongest frame, which is finite.
        double relative_sum = 0.0;
        for (uint32_t k = 0; k < n; ++k) {
            relative_sum += varn_listener::rssiAmplitude(frames[k]->rssi - rssi_max);
        }
        level = rssi_max / 2.0 + 10.0 * log10(relative_sum / n);
    }
    const int32_t avg = static_cast<int32_t>(level);
    const int32_t spread = rssi_max - rssi_min;
    result->rtt_result.rssi = avg * -2;
    result->rtt_result.rssi_spread = spread;
    VARN_LOG_VERBOSE(kListenerTag,
                     "@computeRssiMetrics(): avgRssi(%d), rssiMax(%d), rssiMin(%d), rssiSp(%d)",
                     avg, rssi_max, rssi_min, spread);
}

wifi_rtt_bw VARNClientListenerImpl::mapVARNBwToWiFiHal(uint8_t bw) {
    switch (bw) {
        case VARN_BW_20MHZ: return WIFI_RTT_BW_20;
        case VARN_BW_40MHZ: return WIFI_RTT_BW_40;
        case VARN_BW_80MHZ: return WIFI_RTT_BW_80;
        case VARN_BW_160MHZ: return WIFI_RTT_BW_160;
        default:
            fw::log_warning(kWifiHalIfTag, "UNKNOWN BW TYPE defaulting to BW_20MHZ");
            return WIFI_RTT_BW_20;
    }
}

namespace {

// Fills `rate` from one frame's rate record. The `wifi_rate.bw` field is three
// bits wide and receives the `WIFI_RTT_BW_*` value, of which only the low
// three bits survive: 20 MHz reads 4, 40/80/160 MHz read 0.
void fillRate(wifi_rate& rate, const VARNRateInfo& info, const char* function,
              const char* bad_bw_format) {
    rate.preamble = info.preamble & 7u;
    rate.nss = info.spatial_streams & 3u;
    rate.bitrate = info.bit_rate;
    rate.rateMcsIdx = info.mcs_index;
    if (info.bandwidth > 32) fw::log_error(kListenerTag, bad_bw_format, function);
    rate.bw =
            static_cast<uint32_t>(VARNClientListenerImpl::mapVARNBwToWiFiHal(info.bandwidth)) & 7u;
}

}  // namespace

void VARNClientListenerImpl::processTxRate(wifi_rtt_result_v2* result,
                                           const VARNScanMeasurement* measurement) {
    // Element 0 (with the vector's own error log when there is none).
    const VARNMeasurementInfo* frame = measurement->measurements[0];
    if (frame == nullptr) return;
    fillRate(result->rtt_result.tx_rate, frame->tx_rate, "processTxRate", "%s invalid Tx Bw");
}

void VARNClientListenerImpl::processRxRate(wifi_rtt_result_v2* result,
                                           const VARNScanMeasurement* measurement) {
    const VARNMeasurementInfo* frame = measurement->measurements[0];
    if (frame == nullptr) return;
    fillRate(result->rtt_result.rx_rate, frame->rx_rate, "processRxRate", "%s invalid Rx Bw");
}

wifi_rtt_bw VARNClientListenerImpl::getPacketBw(
        const vel_loc_fw::vector<VARNMeasurementInfo*>& frames) {
    const uint32_t n = frames.size();
    if (n == 0) {
        fw::log_error(kListenerTag, "@getPacketBw(): No measurement present, return UNSPCIFIED");
        return WIFI_RTT_BW_UNSPECIFIED;
    }
    uint32_t sum_mhz = 0;
    for (uint32_t i = 0; i < n; ++i) {
        switch (frames[i]->rx_rate.bandwidth) {
            case VARN_BW_20MHZ: sum_mhz += 20; break;
            case VARN_BW_40MHZ: sum_mhz += 40; break;
            case VARN_BW_80MHZ: sum_mhz += 80; break;
            case VARN_BW_160MHZ: sum_mhz += 160; break;
            default: break;
        }
    }
    const float avg = static_cast<float>(sum_mhz) / static_cast<float>(n);
    // Order of tests kept: an average of exactly 0 fails the first and passes
    // the second, so frames of unknown bandwidth report 10 MHz.
    if (avg > 0.0f && avg <= 7.0f) return WIFI_RTT_BW_5;
    if (avg <= 15.0f) return WIFI_RTT_BW_10;
    if (avg <= 30.0f) return WIFI_RTT_BW_20;
    if (avg <= 60.0f) return WIFI_RTT_BW_40;
    if (avg <= 120.0f) return WIFI_RTT_BW_80;
    if (avg <= 240.0f) return WIFI_RTT_BW_160;
    return WIFI_RTT_BW_320;
}

void VARNClientListenerImpl::processLocationIeData(wifi_rtt_result_v2* result,
                                                   const VARNScanMeasurement* measurement) {
    result->rtt_result.LCI = nullptr;
    result->rtt_result.LCR = nullptr;
    result->rtt_result.LCI = copyElement(measurement->lci, "lciInfo");
    result->rtt_result.LCR = copyElement(measurement->lcr, "lcrInfo");
}

void VARNClientListenerImpl::printWiFiHalNodeResult(const wifi_rtt_result_v2* result) {
    // Logging only, all at verbose level: skip the formatting when it cannot pass.
    if (!fw::is_log_verbose_enabled(kListenerTag)) return;
    const wifi_rtt_result& r = result->rtt_result;
    const BssidDigits bssid = bssidDigits(r.addr, false);
    const int type = r.type;
    VARN_LOG_VERBOSE(kListenerTag, "%s: " VARN_BSSID_FMT " status(%d)(%s) type(%d)(%s)",
                     "printWiFiHalNodeResult", VARN_BSSID_ARGS(bssid), static_cast<int>(r.status),
                     wifiHalStatusName(r.status), type,
                     nameIn(WIFIHAL_RTT_STR, type - 1, "UNKNOWN"));
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: burst_num(%u), measurement_number(%u), success_number(%u), "
                     "number_per_burst_peer(%u), retry_after_duration(%u)",
                     "printWiFiHalNodeResult", r.burst_num, r.measurement_number, r.success_number,
                     static_cast<unsigned>(r.number_per_burst_peer),
                     static_cast<unsigned>(r.retry_after_duration));
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: rssi(%d), rssi_spread(%d), rtt(%llu), rtt_sd(%llu), rtt_spread(%llu)",
                     "printWiFiHalNodeResult", r.rssi, r.rssi_spread,
                     static_cast<unsigned long long>(r.rtt),
                     static_cast<unsigned long long>(r.rtt_sd),
                     static_cast<unsigned long long>(r.rtt_spread));
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: distance_mm(%d), distance_sd_mm(%d), distance_spread_mm(%d), ts(%lld)",
                     "printWiFiHalNodeResult", r.distance_mm, r.distance_sd_mm,
                     r.distance_spread_mm, static_cast<long long>(r.ts));
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: tx_rate preamble(%s) nss(%s) bw(%u) mcs(%u) bitrate(%u); rx_rate "
                     "preamble(%s) nss(%s) bw(%u) mcs(%u) bitrate(%u)",
                     "printWiFiHalNodeResult", nameIn(WIFIHAL_PREAMBLE_STR, r.tx_rate.preamble),
                     WIFIHAL_NSS_STR[r.tx_rate.nss], static_cast<unsigned>(r.tx_rate.bw),
                     static_cast<unsigned>(r.tx_rate.rateMcsIdx), r.tx_rate.bitrate,
                     nameIn(WIFIHAL_PREAMBLE_STR, r.rx_rate.preamble),
                     WIFIHAL_NSS_STR[r.rx_rate.nss], static_cast<unsigned>(r.rx_rate.bw),
                     static_cast<unsigned>(r.rx_rate.rateMcsIdx), r.rx_rate.bitrate);
    VARN_LOG_VERBOSE(kListenerTag,
                     "%s: burst_duration(%d), negotiated_burst_num(%d), frequency(%d), "
                     "packet_bw(%d), LCI(%p), LCR(%p)",
                     "printWiFiHalNodeResult", r.burst_duration, r.negotiated_burst_num,
                     result->frequency, static_cast<int>(result->packet_bw),
                     static_cast<const void*>(r.LCI), static_cast<const void*>(r.LCR));
}

wifi_rtt_result_v2* VARNClientListenerImpl::scanMeasToWiFiHalResult(
        const vel_loc_fw::vector<VARNScanMeasurement*>& measurements, eScanStatus request_status) {
    const uint32_t count = measurements.size();
    // At least one zeroed element: `FREE_RTT_RESULTS` reads element 0's
    // LCI/LCR pointers, also after a response without measurements.
    auto* results = static_cast<wifi_rtt_result_v2*>(
            calloc(count == 0 ? 1 : count, sizeof(wifi_rtt_result_v2)));
    if (results == nullptr) {
        fw::log_error(kListenerTag, "@scanMeasToWiFiHalResult(): memory allocation error");
        return nullptr;
    }
    for (uint32_t i = 0; i < count; ++i) {
        wifi_rtt_result_v2* result = &results[i];
        wifi_rtt_result& r = result->rtt_result;
        const VARNScanMeasurement* measurement = measurements[i];
        for (int b = 0; b < 6; ++b) r.addr[b] = measurement->bssid[b];

        int32_t requested_bw = 0;
        if (g_discard_bw_mis_match != 0) {
            WiFiHalReqCacheEntry entry;
            if (findRequestedBandwidth(measurement->bssid, &entry)) {
                requested_bw = entry.bandwidth;
                fw::log_debug(kListenerTag, "requstedBW for node %u", static_cast<unsigned>(i));
                const BssidDigits bssid = bssidDigits(entry.bssid, false);
                fw::log_debug(kListenerTag, "%s: " VARN_BSSID_FMT " requested bw(%d)",
                              "scanMeasToWiFiHalResult", VARN_BSSID_ARGS(bssid), requested_bw);
            }
        }

        mapVarnStatusToWiFiHalStatus(result, measurement, request_status);
        mapRttTypeToWiFiHal(result, measurement);
        computeRssiMetrics(result, measurement);
        processTxRate(result, measurement);
        processRxRate(result, measurement);
        computeRttMetrics(result, measurement, requested_bw);

        r.distance_mm = psToMm(r.rtt);
        r.distance_sd_mm = psToMm(r.rtt_sd);
        r.distance_spread_mm = psToMm(r.rtt_spread);
        r.ts = bootTimeUs();

        r.burst_num = measurement->burst_number;
        r.measurement_number = measurement->measurements_attempted;
        r.success_number = measurement->measurements.size();
        r.number_per_burst_peer = measurement->frames_per_burst_peer;
        r.retry_after_duration = measurement->retry_after_duration;
        r.burst_duration = static_cast<int>(measurement->burst_duration);
        r.negotiated_burst_num = static_cast<int>(measurement->negotiated_burst_num);
        result->frequency = static_cast<wifi_channel>(measurement->frequency);
        result->packet_bw = getPacketBw(measurement->measurements);

        // Frames whose statistics give no RTT are not a successful measurement.
        if (r.rtt == 0 && r.success_number != 0) {
            r.success_number = 0;
            r.status = RTT_STATUS_FAIL_INVALID_TS;
        }

        processLocationIeData(result, measurement);
        printWiFiHalNodeResult(result);
    }
    return results;
}
