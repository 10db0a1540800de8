// Scripting of the simulated client library: what the library's tests build on.
#include <varn_sim/simulator.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform_test_support.h"

namespace {

using varn_sim::Simulator;

// Keeps "<request id>:<peers>" per response, and the thread of the last one.
class RecordingListener : public VARNClientListener {
  public:
    void responseReceived(VARNResponse* response) override {
        size_t peers = 0;
        if (response->getResponseType() == VARN_RSP_RANGING_SCAN) {
            peers = static_cast<VARNRangingScanResponse*>(response)->getMeasurements().size();
        }
        std::lock_guard<std::mutex> lock(mu);
        received.push_back(std::to_string(response->getRequestId()) + ":" + std::to_string(peers));
        thread = std::this_thread::get_id();
    }
    std::mutex mu;
    std::vector<std::string> received;
    std::thread::id thread;
};

TEST(Simulator, ScriptsApplyToTheNextRequestOfTheirKindAndAnswersComeOnTheServiceThread) {
    Simulator& sim = Simulator::instance();
    sim.reset();
    sim.setAutoScan(false);
    sim.setAirTimeMs(0);
    RecordingListener listener;
    std::unique_ptr<VARNClient> client(VARNClient::createInstance(&listener, true, VARN_LOG_INFO));
    ASSERT_NE(client, nullptr);
    auto aps = sim.accessPoints();
    auto range = [&](uint32_t id) {
        vel_loc_fw::vector<VARNPeriodicNodeInfo> nodes;
        for (const auto& ap : aps) nodes.push_back(varn_sim_test::nodeFor(ap));
        VARNPeriodicRangingScanRequest request(id, nodes, 0);
        return client->sendRequest(&request);
    };

    sim.setDeliveryHeld(true);
    sim.refuseNext(VARN_REQ_PERIODIC_RANGING_SCAN);
    sim.answerNextWithNull(VARN_REQ_PERIODIC_RANGING_SCAN);
    sim.answerNextWith(VARN_REQ_PERIODIC_RANGING_SCAN, [](const VARNRequest& r) {
        return new VARNRangingScanResponse(r.getRequestId(), VARN_SCAN_STATUS_NO_WIFI);
    });
    EXPECT_EQ(range(1), -1);
    EXPECT_EQ(range(2), 0);
    EXPECT_EQ(range(3), 0);
    EXPECT_EQ(range(4), 0);
    ASSERT_EQ(sim.deliver(new VARNResponse(5, VARN_RSP_INVALID, VARN_RSP_STATUS_SUCCESS)), 0);
    EXPECT_EQ(sim.deliveredCount(), 0u);  // held
    sim.setDeliveryHeld(false);
    ASSERT_TRUE(sim.waitUntilDelivered());
    {
        std::lock_guard<std::mutex> lock(listener.mu);
        EXPECT_EQ(listener.received,
                  (std::vector<std::string>{"3:0", "4:" + std::to_string(aps.size()), "5:0"}));
        EXPECT_EQ(listener.thread, sim.serviceThreadId());
    }
    auto recorded = sim.lastRequest(VARN_REQ_PERIODIC_RANGING_SCAN);
    EXPECT_EQ(recorded.request_id, 4u);
    EXPECT_EQ(recorded.call, varn_sim::Call::kSend);
    ASSERT_EQ(recorded.nodes.size(), aps.size());
    EXPECT_EQ(recorded.nodes[1].bssid, aps[1].bssid);
    EXPECT_FALSE(sim.requests()[0].accepted);

    client.reset();
    EXPECT_EQ(sim.liveClients(), 0u);
    sim.reset();
}

}  // namespace
