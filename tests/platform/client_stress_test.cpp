// Threading contract of the simulated client: answers come on the service
// thread, never from inside a call, and never after the client is deleted.
#include <varn_sim/simulator.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "platform_test_support.h"
#include "stress_support.h"

namespace {

using varn_sim::Simulator;

class GuardedListener : public VARNClientListener {
  public:
    void responseReceived(VARNResponse* response) override {
        if (deleted.load()) after_delete.fetch_add(1);
        if (in_call_thread == std::this_thread::get_id()) from_call.fetch_add(1);
        if (response->getResponseType() == VARN_RSP_RANGING_SCAN) ranging.fetch_add(1);
    }
    std::atomic<bool> deleted{false};
    std::atomic<int> after_delete{0}, from_call{0}, ranging{0};
    thread_local static std::thread::id in_call_thread;
};
thread_local std::thread::id GuardedListener::in_call_thread;

TEST(ClientStress, ConcurrentRequestsAndDeletionKeepTheContract) {
    Simulator& sim = Simulator::instance();
    auto aps = sim.accessPoints();
    for (int round = 0; round < 20; ++round) {
        sim.reset();
        sim.setAirTimeMs(round % 3);
        sim.setAutoScan(true, 0.001);  // scan cycles every 10 ms
        GuardedListener listener;
        VARNClient* client = VARNClient::createInstance(&listener, true, VARN_LOG_INFO);
        ASSERT_NE(client, nullptr);
        std::atomic<uint32_t> next_id{100};
        varn_test::runOnThreads(3, [&](int t) {
            GuardedListener::in_call_thread = std::this_thread::get_id();
            for (int i = 0; i < 15; ++i) {
                vel_loc_fw::vector<VARNPeriodicNodeInfo> nodes;
                nodes.push_back(varn_sim_test::nodeFor(aps[(t + i) % aps.size()], 4));
                VARNPeriodicRangingScanRequest request(next_id++, nodes, 0);
                EXPECT_EQ(client->sendRequest(&request), 0);
                if (i % 5 == 0) {
                    VARNCapabilityRequest caps(next_id++);
                    delete client->getCapabilities(&caps);
                }
            }
        });
        if (round % 2 == 0) {
            ASSERT_TRUE(sim.waitUntilDelivered());
        }
        // Half the rounds delete with answers still queued.
        delete client;
        listener.deleted = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(listener.after_delete.load(), 0);
        EXPECT_EQ(listener.from_call.load(), 0);
        if (round % 2 == 0) {
            EXPECT_EQ(listener.ranging.load(), 45);
        }
        EXPECT_EQ(sim.liveClients(), 0u);
        EXPECT_EQ(sim.deliver(new VARNResponse(1, VARN_RSP_INVALID, VARN_RSP_STATUS_SUCCESS)), -1);
    }
    sim.reset();
}

}  // namespace
