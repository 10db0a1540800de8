// Ranging result conversion, field by field and as a whole.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <tuple>

#include "listener/listener_internal.h"
#include "listener_test_support.h"

namespace {

using listener_test::Frame;
using listener_test::newPeer;

class RttConversionTest : public listener_test::ListenerTest {
  protected:
    // Converts the peers (which it deletes) and returns the result array.
    wifi_rtt_result_v2* convert(std::initializer_list<VARNScanMeasurement*> peers) {
        vel_loc_fw::vector<VARNScanMeasurement*> list;
        for (VARNScanMeasurement* peer : peers) list.push_back(peer);
        wifi_rtt_result_v2* results =
                listener_.scanMeasToWiFiHalResult(list, VARN_SCAN_STATUS_SUCCESS);
        for (VARNScanMeasurement* peer : peers) delete peer;
        return results;
    }
};

// A successful scan reports target statuses 0..10 one to one, unknown ones as
// failures; other scan statuses decide alone.
TEST_F(RttConversionTest, StatusTables) {
    const wifi_rtt_status by_target[] = {RTT_STATUS_SUCCESS,
                                         RTT_STATUS_FAILURE,
                                         RTT_STATUS_FAIL_NO_RSP,
                                         RTT_STATUS_FAIL_REJECTED,
                                         RTT_STATUS_FAIL_TM_TIMEOUT,
                                         RTT_STATUS_FAIL_AP_ON_DIFF_CHANNEL,
                                         RTT_STATUS_FAIL_NO_CAPABILITY,
                                         RTT_STATUS_FAIL_INVALID_TS,
                                         RTT_STATUS_FAIL_BUSY_TRY_LATER,
                                         RTT_STATUS_NAN_RANGING_PROTOCOL_FAILURE,
                                         RTT_STATUS_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED,
                                         RTT_STATUS_FAILURE};
    std::vector<std::tuple<int, int, wifi_rtt_status>> cases = {
            {VARN_SCAN_STATUS_INVALID_REQUEST, 0, RTT_STATUS_INVALID_REQ},
            {VARN_SCAN_STATUS_NOT_CAPABLE, 0, RTT_STATUS_FAIL_NO_CAPABILITY},
            {VARN_SCAN_STATUS_NO_WIFI, 0, RTT_STATUS_NO_WIFI},
            {VARN_SCAN_STATUS_FAILURE, 0, RTT_STATUS_FAILURE},
            {VARN_SCAN_STATUS_BUSY, 0, RTT_STATUS_FAILURE},
            {9, 0, RTT_STATUS_FAILURE}};
    for (int t = 0; t < 12; ++t) cases.emplace_back(VARN_SCAN_STATUS_SUCCESS, t, by_target[t]);
    VARNScanMeasurement peer;
    for (const auto& [scan, target, status] : cases) {
        SCOPED_TRACE(std::to_string(scan) + "/" + std::to_string(target));
        peer.target_status = static_cast<eVARNTargetStatus>(target);
        wifi_rtt_result_v2 result{};
        result.rtt_result.status = static_cast<wifi_rtt_status>(-1);
        VARNClientListenerImpl::mapVarnStatusToWiFiHalStatus(&result, &peer,
                                                             static_cast<eScanStatus>(scan));
        EXPECT_EQ(status, result.rtt_result.status);
    }
}

TEST_F(RttConversionTest, RssiMetrics) {
    const struct {
        std::initializer_list<Frame> frames;
        int avg, spread;
    } cases[] = {
            // 10*log10((10^-7.5 + 10^-7 + 10^-7.1) / 3) = -71.53, truncated to -71.
            {{{1, -150}, {1, -140}, {1, -142}}, -71, 10},
            // Amplitudes beyond the double range: the level relative to the strongest
            // frame, max / 2 + 10 log10(sum of 10^((rssi - max) / 20) / n).
            {{{0, 32767}, {0, -32768}}, 16380, 65535},  // 16383.5 + 10 log10(1 / 2)
            {{{0, 32767}, {0, 32765}}, 16383, 2},       // 16383.5 + 10 log10((1 + 0.794) / 2)
            {{{0, -32768}, {0, -32768}}, -16384, 0},
            {{}, 0, 0},  // nothing to measure: nothing written
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.avg);
        std::unique_ptr<VARNScanMeasurement> peer(newPeer(1, c.frames));
        wifi_rtt_result_v2 result{};
        VARNClientListenerImpl::computeRssiMetrics(&result, peer.get());
        EXPECT_EQ(-2 * c.avg, result.rtt_result.rssi);
        EXPECT_EQ(c.spread, result.rtt_result.rssi_spread);
    }
    // The amplitudes come from a table: every level a frame can carry, and
    // every difference of two, must give pow's own bits.
    for (int32_t rssi = 2 * INT16_MIN; rssi <= 2 * INT16_MAX + 1; ++rssi) {
        const double expected = pow(10.0, rssi / 20.0);
        const double got = varn_listener::rssiAmplitude(rssi);
        ASSERT_EQ(memcmp(&got, &expected, sizeof got), 0) << rssi << ": " << got;
    }
}

TEST_F(RttConversionTest, RatesKeepThreeBitsOfTheBandwidth) {
    // WIFI_RTT_BW_20/40/80/160 are 4, 8, 16, 32: only 20 MHz survives 3 bits.
    const std::pair<uint8_t, uint32_t> cases[] = {{0, 4}, {1, 0}, {2, 0}, {3, 0}, {7, 4}, {40, 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(int(c.first));
        VARNScanMeasurement peer;
        peer.measurements.push_back(new VARNMeasurementInfo());
        peer.measurements[0]->tx_rate = {65, 0x0b, 0x06, c.first, 7, 1};
        peer.measurements[0]->rx_rate = {130, 3, 1, c.first, 9, 2};
        wifi_rtt_result_v2 result{};
        VARNClientListenerImpl::processTxRate(&result, &peer);
        VARNClientListenerImpl::processRxRate(&result, &peer);
        const wifi_rate& tx = result.rtt_result.tx_rate;
        const wifi_rate& rx = result.rtt_result.rx_rate;
        // Preamble 0x0b & 7, streams 6 & 3.
        EXPECT_EQ((std::vector<uint32_t>{c.second, 3, 2, 65, 7, c.second, 3, 1, 130}),
                  (std::vector<uint32_t>{tx.bw, tx.preamble, tx.nss, tx.bitrate, tx.rateMcsIdx,
                                         rx.bw, rx.preamble, rx.nss, rx.bitrate}));
    }
}

// The average of the frames' 20/40/80/160 MHz: 30 is still 20 MHz, 120 still 80;
// unknown codes count 0 MHz: above 0 up to 7 is 5 MHz, 0 or up to 15 the 10 MHz bit.
TEST_F(RttConversionTest, PacketBandwidth) {
    const std::pair<std::vector<uint8_t>, wifi_rtt_bw> cases[] = {
            {{0, 0}, WIFI_RTT_BW_20},      {{1}, WIFI_RTT_BW_40},
            {{2, 2, 1}, WIFI_RTT_BW_80},   {{3}, WIFI_RTT_BW_160},
            {{0, 1}, WIFI_RTT_BW_20},      {{2, 3}, WIFI_RTT_BW_80},
            {{9, 9}, WIFI_RTT_BW_10},      {{9, 9, 9, 0}, WIFI_RTT_BW_5},
            {{9, 0}, WIFI_RTT_BW_10},      {{9, 0, 0, 0}, WIFI_RTT_BW_10},
            {{}, WIFI_RTT_BW_UNSPECIFIED},
    };
    for (const auto& c : cases) {
        vel_loc_fw::vector<VARNMeasurementInfo*> frames;
        std::vector<VARNMeasurementInfo> storage(c.first.size());
        for (size_t i = 0; i < storage.size(); ++i) {
            storage[i].rx_rate.bandwidth = c.first[i];
            frames.push_back(&storage[i]);
        }
        EXPECT_EQ(c.second, VARNClientListenerImpl::getPacketBw(frames));
    }
}

TEST_F(RttConversionTest, ConvertsPeers) {
    VARNScanMeasurement* peer = newPeer(0x3c, {{33356, -140, 0, VARN_BW_40MHZ},
                                               {33356, -140, 0, VARN_BW_40MHZ},
                                               {33356, -140, 1, VARN_BW_40MHZ}});
    peer->burst_number = 3;
    peer->measurements_attempted = 8;
    peer->frames_per_burst_peer = 9;
    peer->retry_after_duration = 4;
    peer->burst_duration = 55;
    peer->negotiated_burst_num = 6;
    peer->frequency = 5200;
    // Types 0 and 3 (unknown) are one-sided.
    VARNScanMeasurement* zero = newPeer(1, {{0}, {0}, {0}}, static_cast<eVARNRttType>(0));
    VARNScanMeasurement* no_frames = newPeer(2, {}, static_cast<eVARNRttType>(3));
    no_frames->target_status = VARN_TARGET_STATUS_RTT_FAIL_NO_RSP;

    struct timespec before = {}, after = {};
    clock_gettime(CLOCK_BOOTTIME, &before);
    wifi_rtt_result_v2* results = convert({peer, zero, no_frames});
    clock_gettime(CLOCK_BOOTTIME, &after);
    ASSERT_NE(nullptr, results);
    const wifi_rtt_result& r = results[0].rtt_result;
    // 33356 ps * 0.15f = 5003.4 mm; 40 MHz does not fit the 3-bit rate field.
    EXPECT_EQ(
            (std::vector<int64_t>{2, 0x3c, RTT_STATUS_SUCCESS, RTT_TYPE_2_SIDED, 33356, 5003, 0, 0,
                                  3, 8, 3, 9, 4, 55, 6, 5200, WIFI_RTT_BW_40}),
            (std::vector<int64_t>{r.addr[0], r.addr[5], r.status, r.type, r.rtt, r.distance_mm,
                                  r.distance_sd_mm, r.tx_rate.bw, r.burst_num, r.measurement_number,
                                  r.success_number, r.number_per_burst_peer, r.retry_after_duration,
                                  r.burst_duration, r.negotiated_burst_num, results[0].frequency,
                                  results[0].packet_bw}));
    EXPECT_EQ(nullptr, r.LCI);
    // Microseconds with millisecond resolution, read during the call.
    EXPECT_EQ(0, r.ts % 1000);
    EXPECT_GE(r.ts, (before.tv_sec * 1000LL + before.tv_nsec / 1000000) * 1000);
    EXPECT_LE(r.ts, (after.tv_sec * 1000LL + after.tv_nsec / 1000000 + 1) * 1000);
    // Frames whose RTT is zero are an invalid time stamp; without frames there
    // is nothing to invalidate and the target status stands.
    const wifi_rtt_result& zeros = results[1].rtt_result;
    const wifi_rtt_result& none = results[2].rtt_result;
    EXPECT_EQ((std::vector<int64_t>{0, RTT_STATUS_FAIL_INVALID_TS, RTT_TYPE_1_SIDED, 0,
                                    RTT_STATUS_FAIL_NO_RSP, RTT_TYPE_1_SIDED, 0,
                                    WIFI_RTT_BW_UNSPECIFIED}),
              (std::vector<int64_t>{zeros.success_number, zeros.status, zeros.type,
                                    none.success_number, none.status, none.type, none.rtt,
                                    results[2].packet_bw}));
    FREE_RTT_RESULTS(results);
}

TEST_F(RttConversionTest, RequestedBandwidthFromTheCache) {
    g_discard_bw_mis_match = 1;
    // Requested 80 MHz: the two 20 MHz frames are dropped, the 80 MHz ones kept.
    VARNScanMeasurement* peer = newPeer(7, {{40000, -120, 0, VARN_BW_20MHZ},
                                            {30000, -120, 0, VARN_BW_80MHZ},
                                            {32000, -120, 0, VARN_BW_80MHZ},
                                            {50000, -120, 0, VARN_BW_20MHZ}});
    ASSERT_EQ(0, appendReqCache(peer->bssid, VARN_BW_80MHZ));
    // A peer without a cache entry keeps its 20 MHz frames.
    wifi_rtt_result_v2* results = convert({peer, newPeer(8, {{20000}, {22000}, {24000}})});
    ASSERT_NE(nullptr, results);
    EXPECT_EQ(31000, results[0].rtt_result.rtt);
    EXPECT_EQ(22000, results[1].rtt_result.rtt);
    FREE_RTT_RESULTS(results);
}

TEST_F(RttConversionTest, LocationElementsAreCopiedAndOnlyTheFirstIsFreed) {
    const uint8_t lci[] = {1, 2, 3, 4, 5};
    const uint8_t lcr[] = {9, 8};
    VARNScanMeasurement* first = newPeer(1, {{30000}});
    VARNScanMeasurement* second = newPeer(2, {{30000}});
    ASSERT_EQ(0, first->setLci(8, lci, sizeof(lci)));
    ASSERT_EQ(0, first->setLcr(11, lcr, sizeof(lcr)));
    ASSERT_EQ(0, second->setLci(8, lci, 3));
    ASSERT_EQ(0, second->setLcr(11, lcr, 0));  // empty: not copied
    wifi_rtt_result_v2* results = convert({first, second});
    ASSERT_NE(nullptr, results);
    const wifi_rtt_result& r0 = results[0].rtt_result;
    ASSERT_TRUE(r0.LCI != nullptr && r0.LCR != nullptr && results[1].rtt_result.LCI != nullptr);
    EXPECT_EQ((std::vector<uint8_t>{8, 5, 1, 2, 3, 4, 5}),
              std::vector<uint8_t>(&r0.LCI->id, r0.LCI->data + r0.LCI->len));
    EXPECT_EQ((std::vector<uint8_t>{11, 2, 9, 8}),
              std::vector<uint8_t>(&r0.LCR->id, r0.LCR->data + r0.LCR->len));
    EXPECT_EQ(3, results[1].rtt_result.LCI->len);
    EXPECT_EQ(nullptr, results[1].rtt_result.LCR);
    // FREE_RTT_RESULTS releases element 0's blocks only; element 1's are ours.
    free(results[1].rtt_result.LCI);
    FREE_RTT_RESULTS(results);
}

}  // namespace
