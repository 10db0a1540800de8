// Ranging result conversion: status tables, type, RSSI, rates, bandwidth,
// distances, copies, the zero-RTT rule and the LCI/LCR elements.
#include "listener/varn_client_listener_impl.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>
#include <varn_wifihal.h>
#include <varn_wifihal_results.h>

#include "listener_test_support.h"
#include "log_capture.h"
#include "wifihal/request_bookkeeping.h"

namespace {

using listener_test::Frame;
using listener_test::newFrame;
using listener_test::newPeer;

class RttConversionTest : public listener_test::ListenerTest {};

// Frees what one converted array owns beyond what FREE_RTT_RESULTS releases.
void freeAll(wifi_rtt_result_v2* results, uint32_t count) {
    for (uint32_t i = 1; i < count; ++i) {
        free(results[i].rtt_result.LCI);
        free(results[i].rtt_result.LCR);
    }
    FREE_RTT_RESULTS(results);
}

TEST_F(RttConversionTest, StatusTables) {
    struct Case {
        eScanStatus scan;
        int32_t target;
        wifi_rtt_status status;
        bool unknown;
    };
    const Case cases[] = {
            {VARN_SCAN_STATUS_SUCCESS, 0, RTT_STATUS_SUCCESS, false},
            {VARN_SCAN_STATUS_SUCCESS, 1, RTT_STATUS_FAILURE, false},
            {VARN_SCAN_STATUS_SUCCESS, 2, RTT_STATUS_FAIL_NO_RSP, false},
            {VARN_SCAN_STATUS_SUCCESS, 3, RTT_STATUS_FAIL_REJECTED, false},
            {VARN_SCAN_STATUS_SUCCESS, 4, RTT_STATUS_FAIL_TM_TIMEOUT, false},
            {VARN_SCAN_STATUS_SUCCESS, 5, RTT_STATUS_FAIL_AP_ON_DIFF_CHANNEL, false},
            {VARN_SCAN_STATUS_SUCCESS, 6, RTT_STATUS_FAIL_NO_CAPABILITY, false},
            {VARN_SCAN_STATUS_SUCCESS, 7, RTT_STATUS_FAIL_INVALID_TS, false},
            {VARN_SCAN_STATUS_SUCCESS, 8, RTT_STATUS_FAIL_BUSY_TRY_LATER, false},
            {VARN_SCAN_STATUS_SUCCESS, 9, RTT_STATUS_NAN_RANGING_PROTOCOL_FAILURE, false},
            {VARN_SCAN_STATUS_SUCCESS, 10, RTT_STATUS_NAN_RANGING_CONCURRENCY_NOT_SUPPORTED, false},
            {VARN_SCAN_STATUS_SUCCESS, 11, RTT_STATUS_FAILURE, true},
            {VARN_SCAN_STATUS_SUCCESS, 99, RTT_STATUS_FAILURE, true},
            {VARN_SCAN_STATUS_INVALID_REQUEST, 0, RTT_STATUS_INVALID_REQ, false},
            {VARN_SCAN_STATUS_NOT_CAPABLE, 0, RTT_STATUS_FAIL_NO_CAPABILITY, false},
            {VARN_SCAN_STATUS_NO_WIFI, 0, RTT_STATUS_NO_WIFI, false},
            {VARN_SCAN_STATUS_FAILURE, 0, RTT_STATUS_FAILURE, true},
            {VARN_SCAN_STATUS_ABORTED, 0, RTT_STATUS_FAILURE, true},
            {VARN_SCAN_STATUS_TIMEOUT, 0, RTT_STATUS_FAILURE, true},
            {VARN_SCAN_STATUS_BUSY, 0, RTT_STATUS_FAILURE, true},
            {static_cast<eScanStatus>(0), 0, RTT_STATUS_FAILURE, true},
            {static_cast<eScanStatus>(9), 0, RTT_STATUS_FAILURE, true},
    };
    VARNScanMeasurement peer;
    for (const Case& c : cases) {
        peer.target_status = static_cast<eVARNTargetStatus>(c.target);
        wifi_rtt_result_v2 result{};
        result.rtt_result.status = static_cast<wifi_rtt_status>(-1);
        varn_test::LogCapture log;
        VARNClientListenerImpl::mapVarnStatusToWiFiHalStatus(&result, &peer, c.scan);
        EXPECT_EQ(c.status, result.rtt_result.status) << c.scan << "/" << c.target;
        EXPECT_EQ(c.unknown, log.contains("mapVarnStatusToWiFiHalStatus: Status type unknown"))
                << c.scan << "/" << c.target;
        const std::string in = "status IN(" + std::to_string(c.target) + ")(" +
                               TARGET_STATUS[c.target < 11 ? c.target : 11] +
                               ") ReqStatus(" + std::to_string(c.scan) + ")";
        const std::string out = "status OUT(" + std::to_string(c.status) + ")(" +
                                WIFIHAL_STATUS[c.status] + ")";
        EXPECT_TRUE(log.contains(in)) << log.dump();
        EXPECT_TRUE(log.contains(out)) << log.dump();
    }
}

TEST_F(RttConversionTest, RttType) {
    const std::pair<int32_t, wifi_rtt_type> cases[] = {
            {0, RTT_TYPE_1_SIDED}, {1, RTT_TYPE_1_SIDED}, {2, RTT_TYPE_2_SIDED}, {3, RTT_TYPE_1_SIDED}};
    VARNScanMeasurement peer;
    for (const auto& c : cases) {
        peer.rtt_type = static_cast<eVARNRttType>(c.first);
        wifi_rtt_result_v2 result{};
        varn_test::LogCapture log;
        VARNClientListenerImpl::mapRttTypeToWiFiHal(&result, &peer);
        EXPECT_EQ(c.second, result.rtt_result.type);
        EXPECT_EQ(c.first == 3, log.contains("mapRttTypeToWiFiHal: RTT type unknown"));
    }
}

TEST_F(RttConversionTest, RssiMetrics) {
    // 10*log10((10^-7 + 10^-7.1 + 10^-7.5) / 3) = -71.53, truncated to -71.
    VARNScanMeasurement* peer = newPeer(1, {{1, -140}, {1, -142}, {1, -150}});
    wifi_rtt_result_v2 result{};
    varn_test::LogCapture log;
    VARNClientListenerImpl::computeRssiMetrics(&result, peer);
    EXPECT_EQ(142, result.rtt_result.rssi);
    EXPECT_EQ(10, result.rtt_result.rssi_spread);
    EXPECT_TRUE(log.contains("@computeRssiMetrics(): rssi[2] = -150"));
    EXPECT_TRUE(log.contains("avgRssi(-71), rssiMax(-140), rssiMin(-150), rssiSp(10)"))
            << log.dump();
    delete peer;

    VARNScanMeasurement empty;
    result.rtt_result.rssi = 0;
    VARNClientListenerImpl::computeRssiMetrics(&result, &empty);
    EXPECT_EQ(0, result.rtt_result.rssi);
    EXPECT_TRUE(log.contains("no measurements available to calculate rssi metrics"));
}

TEST_F(RttConversionTest, RatesKeepThreeBitsOfTheBandwidth) {
    struct Case {
        uint8_t bw;
        uint32_t field;
    };
    // WIFI_RTT_BW_20/40/80/160 are 4, 8, 16, 32: only 20 MHz survives 3 bits.
    const Case cases[] = {{0, 4}, {1, 0}, {2, 0}, {3, 0}, {7, 4}, {40, 4}};
    for (const Case& c : cases) {
        VARNScanMeasurement peer;
        VARNMeasurementInfo* frame = newFrame(Frame{});
        frame->tx_rate = {65, 0x0b, 0x06, c.bw, 7, 1};
        frame->rx_rate = {130, 3, 1, c.bw, 9, 2};
        peer.measurements.push_back(frame);
        wifi_rtt_result_v2 result{};
        varn_test::LogCapture log;
        VARNClientListenerImpl::processTxRate(&result, &peer);
        VARNClientListenerImpl::processRxRate(&result, &peer);
        const wifi_rate& tx = result.rtt_result.tx_rate;
        const wifi_rate& rx = result.rtt_result.rx_rate;
        EXPECT_EQ(c.field, tx.bw) << int(c.bw);
        EXPECT_EQ(c.field, rx.bw) << int(c.bw);
        EXPECT_EQ(3u, tx.preamble);  // 0x0b & 7
        EXPECT_EQ(2u, tx.nss);       // 6 & 3
        EXPECT_EQ(65u, tx.bitrate);
        EXPECT_EQ(7u, tx.rateMcsIdx);
        EXPECT_EQ(3u, rx.preamble);
        EXPECT_EQ(1u, rx.nss);
        EXPECT_EQ(130u, rx.bitrate);
        EXPECT_EQ(c.bw > 3, log.contains("UNKNOWN BW TYPE defaulting to BW_20MHZ"));
        EXPECT_EQ(c.bw > 32, log.contains("processTxRate invalid Tx Bw"));
        EXPECT_EQ(c.bw > 32, log.contains("processRxRate invalid Rx Bw"));
    }
}

TEST_F(RttConversionTest, PacketBandwidth) {
    struct Case {
        std::vector<int> rx_bw;
        wifi_rtt_bw bw;
    };
    const Case cases[] = {
            {{0, 0}, WIFI_RTT_BW_20},    {{1}, WIFI_RTT_BW_40},       {{2, 2, 1}, WIFI_RTT_BW_80},
            {{3}, WIFI_RTT_BW_160},      {{0, 1}, WIFI_RTT_BW_20},   // avg 30 is still 20 MHz
            {{9, 9}, WIFI_RTT_BW_10},    // unknown codes average 0: the 10 MHz bit
            {{9, 9, 9, 0}, WIFI_RTT_BW_5},  // avg 5
            {{9, 0}, WIFI_RTT_BW_10},       // avg 10
    };
    for (const Case& c : cases) {
        vel_loc_fw::vector<VARNMeasurementInfo*> frames;
        std::vector<VARNMeasurementInfo> storage(c.rx_bw.size());
        for (size_t i = 0; i < storage.size(); ++i) {
            storage[i].rx_rate.bandwidth = static_cast<uint8_t>(c.rx_bw[i]);
            frames.push_back(&storage[i]);
        }
        EXPECT_EQ(c.bw, VARNClientListenerImpl::getPacketBw(frames));
    }
    vel_loc_fw::vector<VARNMeasurementInfo*> none;
    varn_test::LogCapture log;
    EXPECT_EQ(WIFI_RTT_BW_UNSPECIFIED, VARNClientListenerImpl::getPacketBw(none));
    EXPECT_TRUE(log.contains("@getPacketBw(): No measurement present, return UNSPCIFIED"));
}

TEST_F(RttConversionTest, ConvertsOnePeer) {
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
    vel_loc_fw::vector<VARNScanMeasurement*> peers;
    peers.push_back(peer);

    struct timespec before = {};
    clock_gettime(CLOCK_BOOTTIME, &before);
    wifi_rtt_result_v2* results = listener_.scanMeasToWiFiHalResult(peers, VARN_SCAN_STATUS_SUCCESS);
    struct timespec after = {};
    clock_gettime(CLOCK_BOOTTIME, &after);
    ASSERT_NE(nullptr, results);
    const wifi_rtt_result& r = results[0].rtt_result;
    EXPECT_EQ(0x3c, r.addr[5]);
    EXPECT_EQ(0x02, r.addr[0]);
    EXPECT_EQ(RTT_STATUS_SUCCESS, r.status);
    EXPECT_EQ(RTT_TYPE_2_SIDED, r.type);
    EXPECT_EQ(33356, r.rtt);
    EXPECT_EQ(5003, r.distance_mm);  // 33356 * 0.15f = 5003.4
    EXPECT_EQ(0, r.distance_sd_mm);
    EXPECT_EQ(0u, r.tx_rate.bw);     // 40 MHz does not fit the 3-bit field
    EXPECT_EQ(3u, r.burst_num);
    EXPECT_EQ(8u, r.measurement_number);
    EXPECT_EQ(3u, r.success_number);
    EXPECT_EQ(9, r.number_per_burst_peer);
    EXPECT_EQ(4, r.retry_after_duration);
    EXPECT_EQ(55, r.burst_duration);
    EXPECT_EQ(6, r.negotiated_burst_num);
    EXPECT_EQ(5200, results[0].frequency);
    EXPECT_EQ(WIFI_RTT_BW_40, results[0].packet_bw);
    EXPECT_EQ(nullptr, r.LCI);
    // Microseconds with millisecond resolution, read during the call.
    EXPECT_EQ(0, r.ts % 1000);
    const int64_t lo = (before.tv_sec * 1000LL + before.tv_nsec / 1000000) * 1000;
    const int64_t hi = (after.tv_sec * 1000LL + after.tv_nsec / 1000000 + 1) * 1000;
    EXPECT_GE(r.ts, lo);
    EXPECT_LE(r.ts, hi);
    FREE_RTT_RESULTS(results);
    delete peer;
}

TEST_F(RttConversionTest, ZeroRttIsAnInvalidTimestamp) {
    VARNScanMeasurement* zero = newPeer(1, {{0}, {0}, {0}});
    VARNScanMeasurement* no_frames = newPeer(2, {});
    no_frames->target_status = VARN_TARGET_STATUS_RTT_FAIL_NO_RSP;
    vel_loc_fw::vector<VARNScanMeasurement*> peers;
    peers.push_back(zero);
    peers.push_back(no_frames);
    wifi_rtt_result_v2* results = listener_.scanMeasToWiFiHalResult(peers, VARN_SCAN_STATUS_SUCCESS);
    ASSERT_NE(nullptr, results);
    EXPECT_EQ(0u, results[0].rtt_result.success_number);
    EXPECT_EQ(RTT_STATUS_FAIL_INVALID_TS, results[0].rtt_result.status);
    // No frames at all: nothing to invalidate, the target status stands.
    EXPECT_EQ(0u, results[1].rtt_result.success_number);
    EXPECT_EQ(RTT_STATUS_FAIL_NO_RSP, results[1].rtt_result.status);
    EXPECT_EQ(0, results[1].rtt_result.rtt);
    EXPECT_EQ(WIFI_RTT_BW_UNSPECIFIED, results[1].packet_bw);
    FREE_RTT_RESULTS(results);
    delete zero;
    delete no_frames;
}

TEST_F(RttConversionTest, RequestedBandwidthFromTheCache) {
    g_discard_bw_mis_match = 1;
    // Requested 80 MHz: the two 20 MHz frames are dropped, the 80 MHz ones kept.
    VARNScanMeasurement* peer = newPeer(7, {{40000, -120, 0, VARN_BW_20MHZ},
                                            {30000, -120, 0, VARN_BW_80MHZ},
                                            {32000, -120, 0, VARN_BW_80MHZ},
                                            {50000, -120, 0, VARN_BW_20MHZ}});
    ASSERT_EQ(0, appendReqCache(peer->bssid, VARN_BW_80MHZ));
    vel_loc_fw::vector<VARNScanMeasurement*> peers;
    peers.push_back(peer);
    varn_test::LogCapture log;
    wifi_rtt_result_v2* results = listener_.scanMeasToWiFiHalResult(peers, VARN_SCAN_STATUS_SUCCESS);
    ASSERT_NE(nullptr, results);
    EXPECT_EQ(31000, results[0].rtt_result.rtt);
    EXPECT_TRUE(log.contains("requstedBW for node 0"));
    FREE_RTT_RESULTS(results);
    delete peer;
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
    vel_loc_fw::vector<VARNScanMeasurement*> peers;
    peers.push_back(first);
    peers.push_back(second);
    varn_test::LogCapture log;
    wifi_rtt_result_v2* results = listener_.scanMeasToWiFiHalResult(peers, VARN_SCAN_STATUS_SUCCESS);
    ASSERT_NE(nullptr, results);
    const wifi_information_element* copy = results[0].rtt_result.LCI;
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(8, copy->id);
    EXPECT_EQ(5, copy->len);
    EXPECT_EQ(0, memcmp(lci, copy->data, sizeof(lci)));
    ASSERT_NE(nullptr, results[0].rtt_result.LCR);
    EXPECT_EQ(11, results[0].rtt_result.LCR->id);
    EXPECT_EQ(9, results[0].rtt_result.LCR->data[0]);
    ASSERT_NE(nullptr, results[1].rtt_result.LCI);
    EXPECT_EQ(3, results[1].rtt_result.LCI->len);
    EXPECT_EQ(nullptr, results[1].rtt_result.LCR);
    EXPECT_TRUE(log.contains("@processLocationIeData(): lciInfo received len(5)"));
    EXPECT_TRUE(log.contains("@processLocationIeData(): lcrInfo received len(2)"));
    // FREE_RTT_RESULTS releases element 0's blocks only; element 1's are ours.
    freeAll(results, 2);
    delete first;
    delete second;
}

}  // namespace
