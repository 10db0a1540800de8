// Physical model of the simulated location service: random numbers, path
// loss, ranging frames and scan observations. Internal to the simulator.
#pragma once

#include <cstdint>

#include <varn_client/VARNClient.h>
#include <varn_sim/simulator.h>

namespace varn_sim {

// Small deterministic generator (splitmix64) with uniform and Gaussian draws,
// identical on every standard library.
class Rng {
  public:
    explicit Rng(uint64_t seed = 1) : state_(seed) {}
    void seed(uint64_t seed) { state_ = seed; has_spare_ = false; }
    uint64_t next();
    double uniform();        // [0, 1)
    double gaussian();       // mean 0, deviation 1
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }

  private:
    uint64_t state_;
    bool has_spare_ = false;
    double spare_ = 0.0;
};

constexpr double kSpeedOfLight = 299792458.0;  // m/s
constexpr double kMultipathMinPs = 10000.0;
constexpr double kMultipathMaxPs = 60000.0;

// Microseconds since boot.
uint64_t nowBoottimeUs();
// Channel number of a frequency (2.4 and 5 GHz bands), 0 when unknown.
uint32_t channelNumber(uint32_t frequency_mhz);

// Mean received power (dBm) of `ap` at scan cycle `cycle`, log-distance model:
// transmit power - free-space loss at 1 m - 10 n log10(d).
double meanRssiDbm(const Scenario& scenario, const AccessPoint& ap, uint32_t cycle);
bool isVisible(const Scenario& scenario, const AccessPoint& ap, uint32_t cycle);

// The scenario's access point of `bssid`; null when there is none.
const AccessPoint* findAp(const Scenario& scenario, const VARNMacAddress& bssid);

// The measurement of one ranging node (owned by the caller), never null
// unless out of memory. `cycle` is the current scan cycle.
VARNScanMeasurement* rangeNode(const Scenario& scenario, const VARNPeriodicNodeInfo& node,
                               uint32_t cycle, Rng& rng);

// One scan observation of `ap` with the given RSSI (dBm): BSSID, frequency,
// SSID, a short information-element blob and one measurement info.
VARNScanMeasurement* observeAp(const AccessPoint& ap, int16_t rssi_dbm, uint64_t timestamp_us);

}  // namespace varn_sim
