// Delivers arbitrary service responses through the listener to HAL callbacks of
// every kind, which read all they are handed, and converts arbitrary cached scans
// into a HAL array of exactly the requested size.
#include <fuzzer/FuzzedDataProvider.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>
#include <vel_loc_fw/log_util.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"

// Log lines are formatted by the library and dropped here.
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 1; }

namespace {

volatile uint64_t g_sink = 0;

void consume(const void* data, size_t length) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < length; ++i) g_sink = g_sink + bytes[i];
}

// What a HAL does with a ranging result: reads it, its elements, and frees the
// elements of every result but the first (the library frees those).
void takeRttResult(wifi_rtt_result& r, bool release_elements) {
    consume(&r, offsetof(wifi_rtt_result, LCI));
    for (wifi_information_element** element : {&r.LCI, &r.LCR}) {
        if (*element == nullptr) continue;
        consume((*element)->data, (*element)->len);
        if (release_elements) free(*element);
    }
}

void onRttV1(wifi_request_id, unsigned n, wifi_rtt_result* results[]) {
    for (unsigned i = 0; i < n; ++i) takeRttResult(*results[i], i > 0);
}

void onRttV2(wifi_request_id, unsigned n, wifi_rtt_result_v2* results[]) {
    for (unsigned i = 0; i < n; ++i) {
        takeRttResult(results[i]->rtt_result, i > 0);
        consume(&results[i]->frequency, sizeof(wifi_channel) + sizeof(wifi_rtt_bw));
    }
}

void takeScanResult(const wifi_scan_result& r) {
    consume(&r, offsetof(wifi_scan_result, ie_data));
    consume(r.ie_data, r.ie_length);
}

void onFullScanResult(wifi_request_id, wifi_scan_result* r, unsigned) { takeScanResult(*r); }

void onScanEvent(wifi_request_id, wifi_scan_event event) { g_sink = g_sink + event; }

void onHotlist(wifi_request_id, unsigned n, wifi_scan_result* results) {
    for (unsigned i = 0; i < n; ++i) takeScanResult(results[i]);
}

void onSignificantChange(wifi_request_id, unsigned n, wifi_significant_change_result** results) {
    for (unsigned i = 0; i < n; ++i) {
        consume(results[i], offsetof(wifi_significant_change_result, rssi));
        consume(results[i]->rssi, sizeof(wifi_rssi) * static_cast<size_t>(results[i]->num_rssi));
    }
}

// Few distinct addresses, so that bandwidth cache entries match measurements.
VARNMacAddress address(FuzzedDataProvider& in) {
    const uint8_t bytes[6] = {0x02, 0x5a, 0, 0, 0, in.ConsumeIntegralInRange<uint8_t>(0, 7)};
    return VARNMacAddress(bytes);
}

// Bandwidth: mostly known codes and the first unknown ones; sometimes any.
VARNRateInfo rate(FuzzedDataProvider& in) {
    return {in.ConsumeIntegral<uint32_t>(),
            in.ConsumeIntegral<uint8_t>(),
            in.ConsumeIntegral<uint8_t>(),
            in.ConsumeBool() ? in.ConsumeIntegralInRange<uint8_t>(0, 5)
                             : in.ConsumeIntegral<uint8_t>(),
            in.ConsumeIntegral<uint8_t>(),
            in.ConsumeIntegral<uint8_t>()};
}

// Any codes and lengths, up to 70 frames (more than an inline frame list holds)
// and 700 information-element bytes.
VARNScanMeasurement* measurement(FuzzedDataProvider& in) {
    auto* m = new VARNScanMeasurement();
    m->bssid = address(in);
    m->frequency = in.ConsumeIntegral<uint32_t>();
    m->rtt_type = static_cast<eVARNRttType>(in.ConsumeIntegralInRange<int32_t>(-1, 3));
    m->target_status = static_cast<eVARNTargetStatus>(in.ConsumeIntegral<int32_t>());
    for (auto set : {&VARNScanMeasurement::setLci, &VARNScanMeasurement::setLcr}) {
        if (!in.ConsumeBool()) continue;
        const std::vector<uint8_t> data = in.ConsumeBytes<uint8_t>(in.ConsumeIntegral<uint8_t>());
        (m->*set)(in.ConsumeIntegral<uint8_t>(), data.data(), static_cast<uint8_t>(data.size()));
    }
    // Longer SSIDs end the process by design.
    char ssid[32] = {};
    const size_t ssid_length = in.ConsumeData(ssid, in.ConsumeIntegralInRange<size_t>(0, 32));
    m->ssid.setSSID(ssid, static_cast<uint32_t>(ssid_length));
    const uint32_t ie_length = in.ConsumeIntegralInRange<uint32_t>(0, 700);
    const uint8_t ie_byte = in.ConsumeIntegral<uint8_t>();
    for (uint32_t k = 0; k < ie_length; ++k) m->ie_data.push_back(uint8_t(ie_byte + k));

    const uint32_t frames = in.ConsumeIntegralInRange<uint32_t>(0, 70);
    // Either distinct frames or copies of one, which reach the outlier paths cheaply.
    const bool distinct = in.ConsumeBool();
    VARNMeasurementInfo frame;
    for (uint32_t k = 0; k < frames; ++k) {
        if (k == 0 || distinct) {
            frame.rtt_ps = in.ConsumeIntegral<int32_t>();
            frame.rssi = in.ConsumeIntegral<int16_t>();
            frame.rssi_timestamp = in.ConsumeIntegral<uint64_t>();
            frame.tx_rate = rate(in);
            frame.rx_rate = rate(in);
            frame.tx_chain_index = in.ConsumeIntegralInRange<uint8_t>(0, 2);
            frame.rx_chain_index = in.ConsumeIntegralInRange<uint8_t>(0, 2);
        }
        m->measurements.push_back(new VARNMeasurementInfo(frame));
    }
    return m;
}

void addMeasurements(FuzzedDataProvider& in, vel_loc_fw::vector<VARNScanMeasurement*>& out,
                     uint32_t most) {
    const uint32_t count = in.ConsumeIntegralInRange<uint32_t>(0, most);
    for (uint32_t i = 0; i < count; ++i) out.push_back(measurement(in));
}

// Handlers of every kind use client ids 1..6; the responses 0..7 or any id,
// so that events also meet handlers of another kind under their id.
uint32_t requestId(FuzzedDataProvider& in) {
    return in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(0, 7)
                            : in.ConsumeIntegral<uint32_t>();
}

void registerHandlers(FuzzedDataProvider& in) {
    const int rtt = in.ConsumeIntegralInRange<int>(0, 3);
    for (int i = 0; i < rtt; ++i) {
        const wifi_rtt_event_handler handler = {in.ConsumeBool() ? onRttV1 : nullptr,
                                                in.ConsumeBool() ? onRttV2 : nullptr};
        addRttRequestHandler(in.ConsumeIntegral<int32_t>(),
                             in.ConsumeIntegralInRange<uint32_t>(1, 6), handler);
    }
    const int scans = in.ConsumeIntegralInRange<int>(0, 3);
    for (int i = 0; i < scans; ++i) {
        static const eVARNRequestType kTypes[] = {VARN_REQ_BGSCAN_START, VARN_REQ_HOTLIST_SET,
                                                  VARN_REQ_SIGNIFICANT_CHANGE_SET};
        const int kind = in.ConsumeIntegralInRange<int>(0, 2);
        RspHandlerRecord record{};
        switch (kind) {
            case 0: record.scan = {onFullScanResult, onScanEvent}; break;
            case 1: record.hotlist = {onHotlist, onHotlist}; break;
            default: record.significant_change = {onSignificantChange}; break;
        }
        const uint32_t id = in.ConsumeIntegralInRange<uint32_t>(1, 6);  // read before the HAL id
        addRspHandler(in.ConsumeIntegral<int32_t>(), id, kTypes[kind], record);
    }
}

// Cached scans of any size into a HAL array of exactly `max` records.
void convertCached(FuzzedDataProvider& in) {
    VARNCachedBgscanResultsResponse rsp(requestId(in), VARN_RSP_STATUS_SUCCESS);
    const uint32_t scans = in.ConsumeIntegralInRange<uint32_t>(0, 3);
    for (uint32_t k = 0; k < scans; ++k) {
        auto* scan = new VARNBgscanCachedResult();
        scan->scan_id = in.ConsumeIntegral<int32_t>();
        scan->flags = in.ConsumeIntegral<int32_t>();
        addMeasurements(in, scan->measurements, 40);
        rsp.getCachedResults().push_back(scan);
    }
    const unsigned max = in.ConsumeIntegralInRange<unsigned>(1, 4);
    auto* out =
            static_cast<wifi_cached_scan_results*>(calloc(max, sizeof(wifi_cached_scan_results)));
    toWiFiCachedScanResults(max, out, rsp.getCachedResults());
    consume(out, max * sizeof(wifi_cached_scan_results));
    free(out);
}

void deliverOne(FuzzedDataProvider& in, VARNClientListenerImpl& listener) {
    static const eVARNResponseType kScanTypes[] = {VARN_RSP_BGSCAN, VARN_RSP_HOTLIST_EVENT,
                                                   VARN_RSP_SIGNIFICANT_CHANGE_EVENT};
    switch (in.ConsumeIntegralInRange<int>(0, 4)) {
        case 0: {
            VARNRangingScanResponse rsp(requestId(in),
                                        static_cast<eScanStatus>(in.ConsumeIntegral<int32_t>()));
            addMeasurements(in, rsp.getMeasurements(), 12);
            listener.responseReceived(&rsp);
            return;
        }
        case 1: {
            const int kind = in.ConsumeIntegralInRange<int>(0, 2);
            VARNScanEventResponse rsp(
                    requestId(in), kScanTypes[kind], VARN_RSP_STATUS_SUCCESS,
                    static_cast<eVARNEventCode>(in.ConsumeIntegralInRange<int32_t>(-1, 6)),
                    static_cast<eVARNBgScanEvent>(in.ConsumeIntegral<int32_t>()));
            addMeasurements(in, rsp.getMeasurements(), 12);
            listener.responseReceived(&rsp);
            return;
        }
        case 2: convertCached(in); return;
        case 3: {
            VARNResponse rsp(requestId(in),
                             static_cast<eVARNResponseType>(in.ConsumeIntegral<int32_t>()),
                             VARN_RSP_STATUS_SUCCESS);
            listener.responseReceived(&rsp);
            return;
        }
        default: listener.responseReceived(nullptr); return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    vel_loc_fw::log_set_global_level(in.ConsumeBool() ? vel_loc_fw::EL_VERBOSE
                                                      : vel_loc_fw::EL_LOG_OFF);
    varn_debug_level = in.ConsumeIntegralInRange<int>(3, 5);
    g_weighted_mean = in.ConsumeBool() ? 1 : 0;
    g_discard_bw_mis_match = in.ConsumeBool() ? 1 : 0;
    const int cached = in.ConsumeIntegralInRange<int>(0, 3);
    for (int i = 0; i < cached; ++i) {
        appendReqCache(address(in), static_cast<eVARNBandwidth>(in.ConsumeIntegral<int32_t>()));
    }
    registerHandlers(in);
    VARNClientListenerImpl listener(in.ConsumeIntegral<int32_t>());
    for (int i = 0; i < 6 && in.remaining_bytes() > 0; ++i) deliverOne(in, listener);

    releaseBookkeeping();
    clearReqCache();
    return 0;
}
