// A small listener and fixtures for tests of the simulated client library.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include <varn_client/VARNClient.h>
#include <varn_sim/simulator.h>

namespace varn_sim_test {

// Keeps a summary of every response it receives, and the receiving thread.
class RecordingListener : public VARNClientListener {
  public:
    struct Received {
        eVARNResponseType type;
        uint32_t request_id;
        int32_t event_code;  // of VARNScanEventResponse, else -1
        std::vector<std::string> bssids;
        std::vector<uint32_t> frames;  // per measurement
        std::vector<int32_t> target_status;
        std::thread::id thread;
    };

    void responseReceived(VARNResponse* response) override;
    std::vector<Received> received() const;
    size_t count() const;

  private:
    mutable std::mutex mu_;
    std::vector<Received> received_;
};

// Resets the simulator, makes ranging instant (deliveries held by the tests
// that need ordering) and creates a client.
VARNClient* startClient(RecordingListener* listener);

VARNPeriodicNodeInfo nodeFor(const varn_sim::AccessPoint& ap, uint8_t frames = 8);

}  // namespace varn_sim_test
