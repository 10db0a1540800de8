#include <cmath>
#include <cstring>
#include <cstdint>

#include <gtest/gtest.h>

#include "listener/listener_internal.h"

namespace {

// The RSSI average must not move by a bit: every level a frame can carry,
// and every difference of two, gives pow's own result.
TEST(RssiAmplitude, EqualsPowForEveryLevelAFrameOrADifferenceCanCarry) {
    for (int32_t rssi = 2 * INT16_MIN; rssi <= 2 * INT16_MAX + 1; ++rssi) {
        const double expected = pow(10.0, rssi / 20.0);
        const double got = varn_listener::rssiAmplitude(rssi);
        if (std::memcmp(&got, &expected, sizeof got) != 0) {
            ADD_FAILURE() << "rssi " << rssi << ": " << got << " != " << expected;
            return;
        }
    }
}

}  // namespace
