// Conversion of background-scan, hotlist and significant-change measurements
// into Android `wifi_scan_result` and `wifi_cached_scan_results` records.
//
// The output records are addressed at their fixed sizes (88 and 2832 bytes)
// through byte pointers: a record's information elements start at its
// `ie_data` and may run on into the next record, which the HAL's layout
// allows, so the writes must not be expressed as indexing the one-byte
// `ie_data` array.
#include <loc_utils/loc_utils.h>
#include <varn_wifihal_results.h>
#include <vel_loc_fw/log_util.h>

#include <cstdlib>
#include <cstring>

#include "listener/listener_internal.h"

namespace fw = vel_loc_fw;

namespace {

constexpr size_t kScanResultStride = sizeof(wifi_scan_result);
constexpr size_t kCachedResultStride = sizeof(wifi_cached_scan_results);
static_assert(kScanResultStride == 88, "wifi_scan_result records are 88 bytes apart");
static_assert(kCachedResultStride == 2832, "cached scan records are 2832 bytes apart");

wifi_scan_result* recordAt(unsigned char* base, uint32_t index) {
    return reinterpret_cast<wifi_scan_result*>(base +
                                               static_cast<size_t>(index) * kScanResultStride);
}

// Converts one measurement into `*out`; the element bytes go to the bytes
// from `out->ie_data` on, at most `ie_room` of them.
void convertOne(wifi_scan_result* out, const VARNScanMeasurement* meas, size_t ie_room) {
    char ssid[33] = {};
    uint32_t ssid_length = 0;
    meas->ssid.getSSID(ssid, &ssid_length);
    if (ssid_length > 32) {
        fw::log_error(kWifiHalTag, "%s: SSID length %u exceeds 32 bytes", "toWiFiScanResult",
                      ssid_length);
        abort();
    }
    ssid[ssid_length] = '\0';
    memcpy(out->ssid, ssid, sizeof(ssid));

    out->channel = static_cast<wifi_channel>(meas->frequency);
    for (int b = 0; b < 6; ++b) out->bssid[b] = meas->bssid[b];

    // The service reports a single beacon observation per AP; anything else
    // leaves these fields as the caller's memory held them.
    if (meas->measurements.size() == 1) {
        const VARNMeasurementInfo* info = meas->measurements[0];
        out->rssi = info->rssi;
        out->rtt = 0;
        out->rtt_sd = 0;
        out->ts = static_cast<wifi_timestamp>(info->rssi_timestamp);
    }

    const uint32_t ie_length = meas->ie_data.size();
    out->ie_length = ie_length;
    unsigned char* ie = reinterpret_cast<unsigned char*>(out) + offsetof(wifi_scan_result, ie_data);
    const size_t copied = ie_length < ie_room ? ie_length : ie_room;
    for (size_t k = 0; k < copied; ++k) ie[k] = meas->ie_data[static_cast<uint32_t>(k)];
}

}  // namespace

wifi_scan_event toWifiScanEvent(eVARNBgScanEvent event) {
    return event == VARN_BGSCAN_BUFFER_THRESHOLD ? WIFI_SCAN_THRESHOLD_PERCENT
                                                 : WIFI_SCAN_RESULTS_AVAILABLE;
}

void toWiFiScanResult(unsigned int count, wifi_scan_result* out,
                      vel_loc_fw::vector<VARNScanMeasurement*>& meas) {
    const uint32_t n = count < meas.size() ? count : meas.size();
    unsigned char* base = reinterpret_cast<unsigned char*>(out);
    const bool verbose = fw::is_log_verbose_enabled(kWifiHalTag);
    for (uint32_t i = 0; i < n; ++i) {
        wifi_scan_result* record = recordAt(base, i);
        // The caller sized `out` for every record's elements.
        convertOne(record, meas[i], SIZE_MAX);
        if (verbose) {
            const BssidDigits bssid = bssidDigits(record->bssid, false);
            VARN_LOG_VERBOSE(kWifiHalTag,
                             "%s: bssid(" VARN_BSSID_FMT
                             ") ssid(%s) channel(%u) rssi(%d) rssi_ts(%ld) rtt(%d) rtt_sd(%d)",
                             "toWiFiScanResult", VARN_BSSID_ARGS(bssid), record->ssid,
                             static_cast<unsigned>(record->channel), record->rssi,
                             static_cast<long>(record->ts), static_cast<int>(record->rtt),
                             static_cast<int>(record->rtt_sd));
        }
    }
}

void toWiFiCachedScanResults(unsigned int max, wifi_cached_scan_results* out,
                             vel_loc_fw::vector<VARNBgscanCachedResult*>& cached) {
    const uint32_t available = cached.size();
    const uint32_t n = max < available ? max : available;
    fw::log_debug(kWifiHalTag, "%s: requested %u results, got %u results, passing %u results",
                  "toWiFiCachedScanResults", max, available, n);
    unsigned char* base = reinterpret_cast<unsigned char*>(out);
    // The HAL's array holds `max` records. Element bytes run on into the next
    // records as everywhere, but those of the last record are cut at the end
    // of the array; `ie_length` still tells how many the AP sent.
    const unsigned char* end = base + static_cast<size_t>(max) * kCachedResultStride;
    for (uint32_t k = 0; k < n; ++k) {
        auto* scan = reinterpret_cast<wifi_cached_scan_results*>(
                base + static_cast<size_t>(k) * kCachedResultStride);
        VARNBgscanCachedResult* source = cached[k];
        scan->scan_id = source->scan_id;
        scan->flags = source->flags;
        // Uncapped: the HAL reads at most MAX_AP_CACHE_PER_SCAN records.
        scan->num_results = static_cast<int>(source->measurements.size());
        VARN_LOG_VERBOSE(kWifiHalTag, "%s: scan_id(%d) flags(%d) num_results(%d)",
                         "toWiFiCachedScanResults", scan->scan_id, scan->flags, scan->num_results);

        const uint32_t total = source->measurements.size();
        const uint32_t converted = total < MAX_AP_CACHE_PER_SCAN ? total : MAX_AP_CACHE_PER_SCAN;
        unsigned char* results = reinterpret_cast<unsigned char*>(scan) +
                                 offsetof(wifi_cached_scan_results, results);
        for (uint32_t j = 0; j < converted; ++j) {
            wifi_scan_result* record = recordAt(results, j);
            const unsigned char* ie =
                    reinterpret_cast<unsigned char*>(record) + offsetof(wifi_scan_result, ie_data);
            convertOne(record, source->measurements[j], static_cast<size_t>(end - ie));
            if (varn_debug_level >= 5) {
                const BssidDigits bssid = bssidDigits(record->bssid, false);
                VARN_LOG_VERBOSE(kWifiHalTag,
                                 "%s: scan_id(%d) flags(%d) num_results(%d) bssid(" VARN_BSSID_FMT
                                 ") ssid(%s) channel(%u) rssi(%d) rssi_ts(%ld) rtt(%d) "
                                 "rtt_sd(%d)",
                                 "toWiFiCachedScanResults", scan->scan_id, scan->flags,
                                 scan->num_results, VARN_BSSID_ARGS(bssid), record->ssid,
                                 static_cast<unsigned>(record->channel), record->rssi,
                                 static_cast<long>(record->ts), static_cast<int>(record->rtt),
                                 static_cast<int>(record->rtt_sd));
            }
        }
    }
}
