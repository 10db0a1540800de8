#include "world.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace varn_sim {

uint64_t Rng::next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double Rng::uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }

double Rng::gaussian() {
    if (has_spare_) {
        has_spare_ = false;
        return spare_;
    }
    // Marsaglia's polar method.
    double u, v, s;
    do {
        u = 2.0 * uniform() - 1.0;
        v = 2.0 * uniform() - 1.0;
        s = u * u + v * v;
    } while (s >= 1.0 || s == 0.0);
    double factor = std::sqrt(-2.0 * std::log(s) / s);
    spare_ = v * factor;
    has_spare_ = true;
    return u * factor;
}

uint64_t nowBoottimeUs() {
    struct timespec ts;
    clock_gettime(CLOCK_BOOTTIME, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

uint32_t channelNumber(uint32_t f) {
    if (f == 2484) return 14;
    if (f >= 2412 && f < 2484) return (f - 2407) / 5;
    if (f >= 5000 && f < 5900) return (f - 5000) / 5;
    return 0;
}

double meanRssiDbm(const Scenario& scenario, const AccessPoint& ap, uint32_t cycle) {
    double d = std::max(ap.distance_m, 0.5);
    double free_space_1m = 20.0 * std::log10(static_cast<double>(std::max(ap.frequency, 1u))) - 27.55;
    return ap.tx_power_dbm - free_space_1m - 10.0 * scenario.path_loss_exponent * std::log10(d) +
           ap.rssi_step_db * cycle;
}

bool isVisible(const Scenario& scenario, const AccessPoint& ap, uint32_t cycle) {
    return cycle >= ap.appear_cycle && cycle < ap.disappear_cycle &&
           meanRssiDbm(scenario, ap, cycle) >= scenario.sensitivity_dbm;
}

namespace {

// MCS 0, one stream, 100 kbit/s units, by bandwidth code.
constexpr uint32_t kHtBitRate[4] = {65, 135, 293, 585};

uint8_t framePreamble(eVARNRttPreamble preamble) {
    switch (preamble) {
        case VARN_RTT_PREAMBLE_HT: return VARN_PREAMBLE_HT;
        case VARN_RTT_PREAMBLE_VHT: return VARN_PREAMBLE_VHT;
        case VARN_RTT_PREAMBLE_HE: return VARN_PREAMBLE_HE;
        default: return VARN_PREAMBLE_LEGACY;
    }
}

VARNRateInfo frameRate(uint8_t preamble, uint8_t bw, uint8_t chains) {
    VARNRateInfo rate;
    rate.preamble = preamble;
    rate.bandwidth = bw;
    rate.spatial_streams = 0;
    rate.num_chains = chains;
    if (preamble == VARN_PREAMBLE_LEGACY) {
        rate.bit_rate = 60;  // 6 Mbit/s
        rate.mcs_index = 12; // rate code in 0.5 Mbit/s
    } else {
        rate.bit_rate = kHtBitRate[bw];
        rate.mcs_index = 0;
    }
    return rate;
}

}  // namespace

const AccessPoint* findAp(const Scenario& scenario, const VARNMacAddress& bssid) {
    for (const AccessPoint& ap : scenario.access_points) {
        if (ap.bssid == bssid) return &ap;
    }
    return nullptr;
}

VARNScanMeasurement* rangeNode(const Scenario& scenario, const VARNPeriodicNodeInfo& node,
                               uint32_t cycle, Rng& rng) {
    VARNScanMeasurement* m = new (std::nothrow) VARNScanMeasurement();
    if (m == nullptr) return nullptr;
    m->bssid = node.bssid;
    m->frequency = node.frequency;
    m->node_type = node.peer_type;
    m->rtt_type = node.rtt_type;
    m->measurements_attempted = node.packets_per_measurement;
    m->frames_per_burst_peer = node.packets_per_measurement;
    m->negotiated_burst_num = node.periodic != 0 ? node.num_bursts : 1;
    m->burst_duration = scenario.air_time_ms;

    const AccessPoint* ap = findAp(scenario, node.bssid);
    // Nothing answers on that channel: unknown, gone, too weak or elsewhere.
    if (ap == nullptr || !isVisible(scenario, *ap, cycle) || ap->frequency != node.frequency) {
        m->target_status = VARN_TARGET_STATUS_RTT_FAIL_NO_RSP;
        return m;
    }
    m->ssid.setSSID(ap->ssid.data(), static_cast<uint32_t>(ap->ssid.size()));
    bool two_sided = node.rtt_type == VARN_RTT_TYPE_2_SIDED;
    if ((two_sided && !ap->two_sided) || (!two_sided && !ap->one_sided)) {
        m->target_status = VARN_TARGET_STATUS_RTT_FAIL_TARGET_NOT_CAPABLE;
        return m;
    }

    int requested_bw = std::min(std::max(static_cast<int>(node.bandwidth), 0), 3);
    uint8_t bw = static_cast<uint8_t>(std::min(requested_bw, static_cast<int>(ap->width)));
    uint8_t preamble = framePreamble(node.preamble);
    double true_rtt = 2.0 * ap->distance_m / kSpeedOfLight * 1e12;
    double mean_rssi = meanRssiDbm(scenario, *ap, cycle);
    uint64_t start_us = nowBoottimeUs();

    for (uint32_t k = 0; k < node.packets_per_measurement; ++k) {
        if (rng.uniform() < scenario.frame_loss) continue;
        VARNMeasurementInfo* info = new (std::nothrow) VARNMeasurementInfo();
        if (info == nullptr) break;
        uint8_t chain = static_cast<uint8_t>(k % 2);
        // Drawn only when enabled, so that other scenarios keep their numbers.
        uint8_t frame_bw = bw;
        if (scenario.bw_fallback > 0 && bw > 0 && rng.uniform() < scenario.bw_fallback) --frame_bw;
        double stdev = Simulator::rttStdevPs(static_cast<eVARNBandwidth>(frame_bw));
        double rtt = true_rtt + rng.gaussian() * stdev;
        if (rng.uniform() < scenario.multipath) {
            rtt += rng.uniform(kMultipathMinPs, kMultipathMaxPs);
        }
        if (chain == 1) rtt += scenario.chain_offset_ps;
        info->rtt_ps = static_cast<int32_t>(std::lround(rtt));
        double rssi = mean_rssi + rng.gaussian() * scenario.rssi_noise_db;
        info->rssi = static_cast<int16_t>(std::lround(2.0 * rssi));
        info->rssi_timestamp = start_us + k * 1000u;
        info->rtt_timestamp = info->rssi_timestamp;
        info->tx_rate = frameRate(preamble, frame_bw, 1);
        info->rx_rate = frameRate(preamble, frame_bw, 2);
        info->tx_chain_index = 0;
        info->rx_chain_index = chain;
        if (m->measurements.push_back(info) != 0) delete info;
    }
    if (m->measurements.empty() && node.packets_per_measurement > 0) {
        m->target_status = VARN_TARGET_STATUS_RTT_FAIL_FTM_TIMEOUT;
        return m;
    }
    // LCI measurement type 8, civic location type 11.
    if ((node.ftm_params & VARNPeriodicNodeInfo::kFtmLciRequest) != 0 && !ap->lci.empty()) {
        m->setLci(8, ap->lci.data(), static_cast<uint8_t>(std::min<size_t>(ap->lci.size(), 255)));
    }
    if ((node.ftm_params & VARNPeriodicNodeInfo::kFtmLcrRequest) != 0 && !ap->lcr.empty()) {
        m->setLcr(11, ap->lcr.data(), static_cast<uint8_t>(std::min<size_t>(ap->lcr.size(), 255)));
    }
    return m;
}

VARNScanMeasurement* observeAp(const AccessPoint& ap, int16_t rssi_dbm, uint64_t timestamp_us) {
    VARNScanMeasurement* m = new (std::nothrow) VARNScanMeasurement();
    if (m == nullptr) return nullptr;
    m->bssid = ap.bssid;
    m->frequency = ap.frequency;
    m->is_secure = true;
    m->node_type = VARN_NODE_ACCESS_POINT;
    m->ssid.setSSID(ap.ssid.data(), static_cast<uint32_t>(ap.ssid.size()));
    // DS Parameter Set element: the only element reported, so that a result
    // stays within the few bytes a fixed-stride result record has for it.
    m->ie_data.push_back(3);
    m->ie_data.push_back(1);
    m->ie_data.push_back(static_cast<uint8_t>(channelNumber(ap.frequency)));
    VARNMeasurementInfo* info = new (std::nothrow) VARNMeasurementInfo();
    if (info != nullptr) {
        info->rssi = rssi_dbm;
        info->rssi_timestamp = timestamp_us;
        if (m->measurements.push_back(info) != 0) delete info;
    }
    return m;
}

}  // namespace varn_sim
