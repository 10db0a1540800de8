// RTT ranging requests and their cancellation.
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>

#include <vel_loc_fw/log_util.h>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/rtt_request_conversion.h"
#include "wifihal/wifihal_internal.h"

namespace {

using vel_loc_fw::log_debug;
using vel_loc_fw::log_info;
using vel_loc_fw::log_verbose;
using vel_loc_fw::log_warning;

constexpr const char* kCheckFn = "wifiNodeParamChecking";
constexpr uint32_t kMaxFramesPerBurst = 31;
constexpr uint32_t kMaxRetries = 3;
constexpr uint32_t kMinBurstDuration = 2;
// A burst exponent of 2 or more asks for several bursts, i.e. periodic ranging.
constexpr uint32_t kPeriodicMinBursts = 2;
// `burst_period` is in units of 100 ms.
constexpr uint32_t kBurstPeriodUnitMs = 100;

constexpr uint32_t kFtmBurstExpShift = 8;
constexpr uint32_t kFtmBurstDurationShift = 12;
constexpr uint32_t kFtmBurstPeriodShift = 16;

// `rtt_peer_type` names by value. The exported WIFIHAL_PEER_STR names the
// link-layer peer types, which are numbered differently.
const char* const kRttPeerNames[] = {"RTT_PEER_UNKNOWN", "RTT_PEER_AP",         "RTT_PEER_STA",
                                     "RTT_PEER_P2P_GO",  "RTT_PEER_P2P_CLIENT", "RTT_PEER_NAN"};

void printWiFiHalRequest(wifi_request_id id, unsigned num, const wifi_rtt_config* configs) {
    log_debug(kWifiHalTag, "%s: Request_id: %u, numBssids : %u", __func__,
              static_cast<unsigned>(id), num);
    if (!vel_loc_fw::is_log_verbose_enabled(kWifiHalTag)) return;
    for (unsigned i = 0; i < num; ++i) {
        const wifi_rtt_config& c = configs[i];
        const BssidDigits d = bssidDigits(c.addr, maskBssidInDumps());
        log_verbose(kWifiHalTag, "%s: BSSID: " VARN_BSSID_FMT " freq(%u) Center_freq (%u,%u) MHz",
                    __func__, VARN_BSSID_ARGS(d), static_cast<unsigned>(c.channel.center_freq),
                    static_cast<unsigned>(c.channel.center_freq0),
                    static_cast<unsigned>(c.channel.center_freq1));
        log_verbose(kWifiHalTag,
                    "%s: RTT_type(0x%x) PEER_type(%s) BW(%s) Burst: num(%u), period(%u) 100ms, "
                    "duration(%u) frames/burst(%u)",
                    __func__, static_cast<unsigned>(halInt(c.type)),
                    nameIn(kRttPeerNames, halInt(c.peer), kRttPeerNames[0]),
                    nameIn(WIFIHAL_BW, halInt(c.channel.width)), c.num_burst, c.burst_period,
                    c.burst_duration, c.num_frames_per_burst);
        log_verbose(kWifiHalTag,
                    "%s: retries_per_measurement_frame(%u), retries_per_ftmr(%u), LCI(%u), "
                    "LCR(%u), preamble(0x%x), bw(0x%x)",
                    __func__, c.num_retries_per_rtt_frame, c.num_retries_per_ftmr,
                    static_cast<unsigned>(c.LCI_request), static_cast<unsigned>(c.LCR_request),
                    static_cast<unsigned>(halInt(c.preamble)), static_cast<unsigned>(halInt(c.bw)));
    }
}

void printVarnRequest(uint32_t request_id, const vel_loc_fw::vector<VARNPeriodicNodeInfo>& nodes) {
    log_debug(kWifiHalTag, "%s: Request_id: %u, numBssids: %u", __func__, request_id, nodes.size());
    for (const VARNPeriodicNodeInfo& n : nodes) {
        log_debug(kWifiHalTag,
                  "%s: freq(%u)MHz, band_center_freq1(%u)MHz, band_center_freq2(%u)MHz, "
                  "rttType(%s), bwType(%s), pktsPerMeas(%u)",
                  __func__, n.frequency, n.center_freq0, n.center_freq1,
                  nameIn(WIFIHAL_RTT_STR, n.rtt_type - 1, "RTT_TYPE_UNSPECIFIED"),
                  nameIn(BW_STR, n.bandwidth, "BW_UNKNOWN"),
                  static_cast<unsigned>(n.packets_per_measurement));
        log_debug(kWifiHalTag,
                  "%s: periodic(%u), burstPeriod(%u) ms, numBursts(%u), numRetries(%u)", __func__,
                  static_cast<unsigned>(n.periodic), n.burst_period_ms, n.num_bursts,
                  static_cast<unsigned>(n.num_retries));
        log_debug(kWifiHalTag,
                  "%s: LCI Req(0x%x) Civic(0x%x) Bursts Exp(%u) Burst Duration(%u) "
                  "Burst Period(%u)",
                  __func__, (n.ftm_params & VARNPeriodicNodeInfo::kFtmLciRequest) ? 1u : 0u,
                  (n.ftm_params & VARNPeriodicNodeInfo::kFtmLcrRequest) ? 1u : 0u,
                  (n.ftm_params >> kFtmBurstExpShift) & 0xfu,
                  (n.ftm_params >> kFtmBurstDurationShift) & 0xfu,
                  n.ftm_params >> kFtmBurstPeriodShift);
    }
}

// Checks one entry; logs the first invalid field and returns false.
bool checkNode(const wifi_rtt_config& c) {
    const int32_t type = halInt(c.type);
    if (type != RTT_TYPE_1_SIDED && type != RTT_TYPE_2_SIDED) {
        log_debug(kWifiHalTag, "%s: Unknown RTT type %d", kCheckFn, type);
        return false;
    }
    // Ranging towards stations and P2P peers is not offered by the service.
    const int32_t peer = halInt(c.peer);
    if (peer != RTT_PEER_AP && peer != RTT_PEER_NAN) {
        log_debug(kWifiHalTag, "%s: Bad RTT peer %d", kCheckFn, peer);
        return false;
    }
    // Only single-shot ranging is offered.
    if (c.num_burst != 0) {
        log_debug(kWifiHalTag, "%s: num_burst (%d) not 0", kCheckFn, static_cast<int>(c.num_burst));
        return false;
    }
    if (c.burst_period != 0) {
        log_debug(kWifiHalTag, "%s: burst_period (%d) set to 0", kCheckFn,
                  static_cast<int>(c.burst_period));
    }
    if (c.num_frames_per_burst < 1 || c.num_frames_per_burst > kMaxFramesPerBurst) {
        log_debug(kWifiHalTag, "%s: num_frames_per_burst (%d) out of range", kCheckFn,
                  static_cast<int>(c.num_frames_per_burst));
        return false;
    }
    const bool two_sided = type == RTT_TYPE_2_SIDED;
    if (two_sided && c.num_retries_per_ftmr > kMaxRetries) {
        log_debug(kWifiHalTag, "%s: num_retries_per_ftmr (%d) out of range", kCheckFn,
                  static_cast<int>(c.num_retries_per_ftmr));
        return false;
    }
    if (!two_sided && c.num_retries_per_rtt_frame > kMaxRetries) {
        log_debug(kWifiHalTag, "%s: num_retries_per_rtt_frame (%d) out of range", kCheckFn,
                  static_cast<int>(c.num_retries_per_rtt_frame));
        return false;
    }
    if (c.LCI_request > 1) {
        log_debug(kWifiHalTag, "%s: LCI_Request bad value", kCheckFn);
        return false;
    }
    if (c.LCR_request > 1) {
        log_debug(kWifiHalTag, "%s: LCR_Request bad value", kCheckFn);
        return false;
    }
    if (c.burst_duration == kBurstDurationNoPreference) {
        if (two_sided) {
            log_debug(kWifiHalTag, "%s: 2-sided RTT, burst_duration no preference", kCheckFn);
        } else {
            log_debug(kWifiHalTag,
                      "%s: 1-sided RTT, got illegal burst_duration (%d). Set burst duration to "
                      "maxBurstDuration(%u)",
                      kCheckFn, static_cast<int>(c.burst_duration), kMaxBurstDuration);
        }
    } else if (c.burst_duration < kMinBurstDuration || c.burst_duration > kMaxBurstDuration) {
        log_debug(kWifiHalTag, "%s: burst_duration out of range %d", kCheckFn,
                  static_cast<int>(c.burst_duration));
        return false;
    }
    const int32_t preamble = halInt(c.preamble);
    if (preamble != WIFI_RTT_PREAMBLE_LEGACY && preamble != WIFI_RTT_PREAMBLE_HT &&
        preamble != WIFI_RTT_PREAMBLE_VHT && preamble != WIFI_RTT_PREAMBLE_HE) {
        log_debug(kWifiHalTag, "%s: preamble out of range %d", kCheckFn, preamble);
        return false;
    }
    // 160 MHz ranging is not offered, although the conversion knows its code.
    const int32_t bw = halInt(c.bw);
    if (bw != WIFI_RTT_BW_20 && bw != WIFI_RTT_BW_40 && bw != WIFI_RTT_BW_80) {
        log_debug(kWifiHalTag, "%s: bw out of range %d", kCheckFn, bw);
        return false;
    }
    return true;
}

}  // namespace

bool wifiNodeParamChecking(wifi_request_id id, unsigned num_configs,
                           const wifi_rtt_config* configs) {
    log_debug(kWifiHalTag, "%s: Request_id: %u, numBssids : %u", kCheckFn,
              static_cast<unsigned>(id), num_configs);
    for (unsigned i = 0; i < num_configs; ++i) {
        if (!checkNode(configs[i])) return false;
    }
    return true;
}

eVARNRttType toVarnRttType(uint32_t type) {
    switch (type) {
        case RTT_TYPE_1_SIDED: return VARN_RTT_TYPE_1_SIDED;
        case RTT_TYPE_2_SIDED: return VARN_RTT_TYPE_2_SIDED;
        default:
            log_debug(kWifiHalIfTag, "UNKNOWN RTT TYPE defaulting to RTT_TYPE_1_SIDED");
            return VARN_RTT_TYPE_1_SIDED;
    }
}

eVARNNodeType toVarnNodeType(uint32_t peer) {
    switch (peer) {
        case RTT_PEER_AP: return VARN_NODE_ACCESS_POINT;
        case RTT_PEER_STA: return VARN_NODE_STATION;
        case RTT_PEER_P2P_GO:
        case RTT_PEER_P2P_CLIENT: return VARN_NODE_PEER_DEVICE;
        case RTT_PEER_NAN: return VARN_NODE_NAN_DEVICE;
        default:
            log_debug(kWifiHalIfTag, "UNKNOWN PEER TYPE defaulting to ACCESS_POINT");
            return VARN_NODE_ACCESS_POINT;
    }
}

eVARNRttPreamble toVarnPreamble(uint32_t preamble) {
    switch (preamble) {
        case WIFI_RTT_PREAMBLE_LEGACY: return VARN_RTT_PREAMBLE_LEGACY;
        case WIFI_RTT_PREAMBLE_HT: return VARN_RTT_PREAMBLE_HT;
        case WIFI_RTT_PREAMBLE_VHT: return VARN_RTT_PREAMBLE_VHT;
        case WIFI_RTT_PREAMBLE_HE: return VARN_RTT_PREAMBLE_HE;
        default:
            log_debug(kWifiHalIfTag, "UNKNOWN PREAMBLE defaulting to RTT_PREAMBLE_LEGACY");
            return VARN_RTT_PREAMBLE_LEGACY;
    }
}

eVARNBandwidth toVarnBandwidth(uint32_t bw) {
    switch (bw) {
        case WIFI_RTT_BW_20: return VARN_BW_20MHZ;
        case WIFI_RTT_BW_40: return VARN_BW_40MHZ;
        case WIFI_RTT_BW_80: return VARN_BW_80MHZ;
        case WIFI_RTT_BW_160: return VARN_BW_160MHZ;
        default:
            log_warning(kWifiHalIfTag, "UNKNOWN BW TYPE defaulting to BW_20MHZ");
            return VARN_BW_20MHZ;
    }
}

uint32_t toFtmParams(const wifi_rtt_config& c) {
    uint32_t word = VARNPeriodicNodeInfo::kFtmAsap;
    if (c.LCI_request != 0) word |= VARNPeriodicNodeInfo::kFtmLciRequest;
    if (c.LCR_request != 0) word |= VARNPeriodicNodeInfo::kFtmLcrRequest;
    word |= (c.num_burst & 0xfu) << kFtmBurstExpShift;
    uint32_t duration = c.burst_duration;
    if (halInt(c.type) == RTT_TYPE_1_SIDED && duration == kBurstDurationNoPreference) {
        duration = kMaxBurstDuration;
    }
    word |= (duration & 0xfu) << kFtmBurstDurationShift;
    if (c.num_burst >= kPeriodicMinBursts) {
        word |= (c.burst_period & 0xffffu) << kFtmBurstPeriodShift;
    }
    return word;
}

VARNPeriodicNodeInfo toPeriodicNodeInfo(const wifi_rtt_config& c) {
    VARNPeriodicNodeInfo node;
    node.bssid = VARNMacAddress(c.addr);
    node.frequency = static_cast<uint32_t>(c.channel.center_freq);
    node.center_freq0 = static_cast<uint32_t>(c.channel.center_freq0);
    node.center_freq1 = static_cast<uint32_t>(c.channel.center_freq1);
    const int32_t type = halInt(c.type);
    node.rtt_type = toVarnRttType(static_cast<uint32_t>(type));
    node.peer_type = toVarnNodeType(static_cast<uint32_t>(halInt(c.peer)));
    if (c.num_burst < kPeriodicMinBursts) {
        node.periodic = 0;
    } else {
        node.periodic = 1;
        node.burst_period_ms = c.burst_period * kBurstPeriodUnitMs;
        node.num_bursts = c.num_burst;
    }
    node.num_retries = static_cast<uint8_t>(type == RTT_TYPE_2_SIDED ? c.num_retries_per_ftmr
                                                                     : c.num_retries_per_rtt_frame);
    node.packets_per_measurement = static_cast<uint8_t>(c.num_frames_per_burst & 0xffu);
    node.ftm_params = toFtmParams(c);
    node.preamble = toVarnPreamble(static_cast<uint32_t>(halInt(c.preamble)));
    node.bandwidth = toVarnBandwidth(static_cast<uint32_t>(halInt(c.bw)));
    return node;
}

wifi_error varn_wifihal_rtt_range_request(wifi_request_id id, wifi_interface_handle /*iface*/,
                                          unsigned num_rtt_config, wifi_rtt_config rtt_config[],
                                          wifi_rtt_event_handler handler) {
    // The cache describes the latest request only; emptied even for a
    // request that is refused below.
    if (g_discard_bw_mis_match != 0) clearReqCache();

    if (clientUnavailable()) {
        log_warning(kWifiHalTag, "%s: Illegal rtt range request - interface not initialized",
                    __func__);
        return WIFI_ERROR_UNINITIALIZED;
    }
    if (rtt_config == nullptr || num_rtt_config == 0 ||
        (handler.on_rtt_results == nullptr && handler.on_rtt_results_v2 == nullptr)) {
        log_info(kWifiHalTag, "%s: Incorrect input parameter", __func__);
        return WIFI_ERROR_UNKNOWN;
    }

    printWiFiHalRequest(id, num_rtt_config, rtt_config);
    if (!wifiNodeParamChecking(id, num_rtt_config, rtt_config)) {
        log_info(kWifiHalTag, "%s: Incorrect rtt_config parameters", __func__);
        return WIFI_ERROR_UNKNOWN;
    }

    // A node or cache entry that cannot be stored fails the whole request
    // before anything is sent: a partial request is never reported as success.
    vel_loc_fw::vector<VARNPeriodicNodeInfo> nodes;
    for (unsigned i = 0; i < num_rtt_config; ++i) {
        const VARNPeriodicNodeInfo node = toPeriodicNodeInfo(rtt_config[i]);
        if (nodes.push_back(node) != 0) return WIFI_ERROR_OUT_OF_MEMORY;
        if (g_discard_bw_mis_match != 0 && appendReqCache(node.bssid, node.bandwidth) != 0) {
            return WIFI_ERROR_OUT_OF_MEMORY;
        }
    }

    const uint32_t varn_req_id = nextReqId();
    // Registered before the send, not after it: the service may answer on its
    // own thread before sendRequest returns, and that answer must find its
    // handler. A refused send removes the node again, so it leaves nothing.
    if (addRttRequestHandler(id, varn_req_id, handler) != 0) return WIFI_ERROR_OUT_OF_MEMORY;
    VARNPeriodicRangingScanRequest request(varn_req_id, nodes, 0);
    if (client->sendRequest(&request) != 0) {
        removeRttRequestHandler(varn_req_id);
        return WIFI_ERROR_UNKNOWN;
    }
    printVarnRequest(varn_req_id, nodes);
    return WIFI_SUCCESS;
}

wifi_error varn_wifihal_rtt_range_cancel(wifi_request_id id, wifi_interface_handle /*iface*/,
                                         unsigned num_devices, mac_addr addr[]) {
    if (clientUnavailable()) {
        log_warning(kWifiHalTag, "%s: - interface not initialized", __func__);
        return WIFI_ERROR_UNINITIALIZED;
    }
    if (addr == nullptr || num_devices == 0) {
        log_warning(kWifiHalTag, "%s: Incorrect input parameter", __func__);
        return WIFI_ERROR_UNKNOWN;
    }

    // Forgotten first: results that still arrive for this request are dropped.
    deleteWiFiHalReq(static_cast<uint32_t>(id));

    log_verbose(kWifiHalTag, "%s: bssids to cancel:", __func__);
    vel_loc_fw::vector<VARNMacAddress> bssids;
    for (unsigned i = 0; i < num_devices; ++i) {
        const BssidDigits d = bssidDigits(addr[i], maskBssidInDumps());
        log_verbose(kWifiHalTag, "%s: " VARN_BSSID_FMT, __func__, VARN_BSSID_ARGS(d));
        bssids.push_back(VARNMacAddress(addr[i]));
    }

    VARNCancelRangingScanRequest request(nextReqId(), bssids);
    return client->sendRequest(&request) == 0 ? WIFI_SUCCESS : WIFI_ERROR_UNKNOWN;
}
