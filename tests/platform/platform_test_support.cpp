#include "platform_test_support.h"

namespace varn_sim_test {

void RecordingListener::responseReceived(VARNResponse* response) {
    Received r;
    r.type = response->getResponseType();
    r.request_id = response->getRequestId();
    r.event_code = -1;
    r.thread = std::this_thread::get_id();
    const vel_loc_fw::vector<VARNScanMeasurement*>* meas = nullptr;
    if (r.type == VARN_RSP_RANGING_SCAN) {
        meas = &static_cast<VARNRangingScanResponse*>(response)->getMeasurements();
    } else if (r.type >= VARN_RSP_BGSCAN && r.type <= VARN_RSP_SIGNIFICANT_CHANGE_CLEAR) {
        auto* event = static_cast<VARNScanEventResponse*>(response);
        r.event_code = event->getEventCode();
        meas = &event->getMeasurements();
    }
    if (meas != nullptr) {
        for (VARNScanMeasurement* m : *meas) {
            r.bssids.push_back(varn_sim::formatMac(m->bssid));
            r.frames.push_back(m->measurements.size());
            r.target_status.push_back(m->target_status);
        }
    }
    std::lock_guard<std::mutex> lock(mu_);
    received_.push_back(r);
}

std::vector<RecordingListener::Received> RecordingListener::received() const {
    std::lock_guard<std::mutex> lock(mu_);
    return received_;
}

size_t RecordingListener::count() const {
    std::lock_guard<std::mutex> lock(mu_);
    return received_.size();
}

VARNClient* startClient(RecordingListener* listener) {
    varn_sim::Simulator& sim = varn_sim::Simulator::instance();
    sim.reset();
    sim.setAutoScan(false);
    sim.setAirTimeMs(0);
    return VARNClient::createInstance(listener, true, VARN_LOG_INFO);
}

VARNPeriodicNodeInfo nodeFor(const varn_sim::AccessPoint& ap, uint8_t frames) {
    VARNPeriodicNodeInfo node;
    node.bssid = ap.bssid;
    node.frequency = ap.frequency;
    node.center_freq0 = ap.center_freq0;
    node.rtt_type = ap.two_sided ? VARN_RTT_TYPE_2_SIDED : VARN_RTT_TYPE_1_SIDED;
    node.bandwidth = ap.width;
    node.preamble = VARN_RTT_PREAMBLE_VHT;
    node.packets_per_measurement = frames;
    node.ftm_params = VARNPeriodicNodeInfo::kFtmAsap | VARNPeriodicNodeInfo::kFtmLciRequest |
                      VARNPeriodicNodeInfo::kFtmLcrRequest;
    return node;
}

}  // namespace varn_sim_test
