// RTT ranging requests and cancels, checked at the simulated service.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

#include <loc_utils/loc_utils.h>
#include <vel_loc_fw/log_util.h>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/rtt_request_conversion.h"
#include "wifihal_test_support.h"

// Allocation failure for the ranging tests: while armed, the next non-throwing
// operator new of the program fails. Otherwise forwards to the throwing form,
// so every allocation still pairs with the matching delete.
std::atomic<bool> g_fail_next_nothrow_new{false};

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (g_fail_next_nothrow_new.exchange(false)) return nullptr;
    try {
        return ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

namespace wifihal_test {
namespace {

void onRtt(wifi_request_id, unsigned, wifi_rtt_result**) {}
void onRttV2(wifi_request_id, unsigned, wifi_rtt_result_v2**) {}
const wifi_rtt_event_handler kHandler{onRtt, onRttV2};

// Stores `value` in an enumeration-typed field as a C HAL may, also outside
// the enumeration.
template <typename Enum>
void setRaw(Enum& field, int32_t value) {
    memcpy(&field, &value, sizeof(value));
}

class RttRangingTest : public WifiHalTest {
  protected:
    void SetUp() override {
        WifiHalTest::SetUp();
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        // init applied the default level; these cases read debug and verbose lines.
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
        capture_.clear();
    }

    // Sends `configs` with ranging answers held back, so that the handler
    // stays registered for inspection.
    wifi_error send(std::vector<wifi_rtt_config> configs, wifi_request_id id = 77) {
        sim().answerNextWithNull(VARN_REQ_PERIODIC_RANGING_SCAN);
        return varn_wifihal_rtt_range_request(id, nullptr, static_cast<unsigned>(configs.size()),
                                              configs.data(), kHandler);
    }

    std::vector<varn_sim::RecordedRequest> rangingRequests() {
        std::vector<varn_sim::RecordedRequest> out;
        for (const auto& r : sim().requests()) {
            if (r.type == VARN_REQ_PERIODIC_RANGING_SCAN) out.push_back(r);
        }
        return out;
    }
};

TEST_F(RttRangingTest, ValidationBoundaries) {
    using Mutate = std::function<void(wifi_rtt_config&)>;
    const struct {
        const char* name;
        Mutate mutate;
        const char* message;  // null: accepted
    } kCases[] = {
            {"type 0", [](wifi_rtt_config& c) { c.type = static_cast<wifi_rtt_type>(0); },
             "wifiNodeParamChecking: Unknown RTT type 0"},
            {"type 3", [](wifi_rtt_config& c) { c.type = static_cast<wifi_rtt_type>(3); },
             "wifiNodeParamChecking: Unknown RTT type 3"},
            {"peer STA", [](wifi_rtt_config& c) { c.peer = RTT_PEER_STA; },
             "wifiNodeParamChecking: Bad RTT peer 2"},
            {"peer NAN", [](wifi_rtt_config& c) { c.peer = RTT_PEER_NAN; }, nullptr},
            {"num_burst 1", [](wifi_rtt_config& c) { c.num_burst = 1; },
             "wifiNodeParamChecking: num_burst (1) not 0"},
            {"burst_period 5", [](wifi_rtt_config& c) { c.burst_period = 5; }, nullptr},
            {"frames 0", [](wifi_rtt_config& c) { c.num_frames_per_burst = 0; },
             "wifiNodeParamChecking: num_frames_per_burst (0) out of range"},
            {"frames 1", [](wifi_rtt_config& c) { c.num_frames_per_burst = 1; }, nullptr},
            {"frames 31", [](wifi_rtt_config& c) { c.num_frames_per_burst = 31; }, nullptr},
            {"frames 32", [](wifi_rtt_config& c) { c.num_frames_per_burst = 32; },
             "wifiNodeParamChecking: num_frames_per_burst (32) out of range"},
            {"2-sided ftmr retries 3", [](wifi_rtt_config& c) { c.num_retries_per_ftmr = 3; },
             nullptr},
            {"2-sided ftmr retries 4", [](wifi_rtt_config& c) { c.num_retries_per_ftmr = 4; },
             "wifiNodeParamChecking: num_retries_per_ftmr (4) out of range"},
            {"2-sided ignores frame retries",
             [](wifi_rtt_config& c) { c.num_retries_per_rtt_frame = 9; }, nullptr},
            {"1-sided frame retries 4",
             [](wifi_rtt_config& c) {
                 c.type = RTT_TYPE_1_SIDED;
                 c.num_retries_per_rtt_frame = 4;
             },
             "wifiNodeParamChecking: num_retries_per_rtt_frame (4) out of range"},
            {"1-sided ignores ftmr retries",
             [](wifi_rtt_config& c) {
                 c.type = RTT_TYPE_1_SIDED;
                 c.num_retries_per_ftmr = 9;
             },
             nullptr},
            {"LCI 2", [](wifi_rtt_config& c) { c.LCI_request = 2; },
             "wifiNodeParamChecking: LCI_Request bad value"},
            {"LCR 2", [](wifi_rtt_config& c) { c.LCR_request = 2; },
             "wifiNodeParamChecking: LCR_Request bad value"},
            {"duration 1", [](wifi_rtt_config& c) { c.burst_duration = 1; },
             "wifiNodeParamChecking: burst_duration out of range 1"},
            {"duration 2", [](wifi_rtt_config& c) { c.burst_duration = 2; }, nullptr},
            {"duration 11", [](wifi_rtt_config& c) { c.burst_duration = 11; }, nullptr},
            {"duration 12", [](wifi_rtt_config& c) { c.burst_duration = 12; },
             "wifiNodeParamChecking: burst_duration out of range 12"},
            {"duration 15", [](wifi_rtt_config& c) { c.burst_duration = 15; }, nullptr},
            {"preamble 3",
             [](wifi_rtt_config& c) { c.preamble = static_cast<wifi_rtt_preamble>(3); },
             "wifiNodeParamChecking: preamble out of range 3"},
            {"preamble HE", [](wifi_rtt_config& c) { c.preamble = WIFI_RTT_PREAMBLE_HE; },
             nullptr},
            {"preamble EHT", [](wifi_rtt_config& c) { c.preamble = WIFI_RTT_PREAMBLE_EHT; },
             "wifiNodeParamChecking: preamble out of range 16"},
            {"bw 80", [](wifi_rtt_config& c) { c.bw = WIFI_RTT_BW_80; }, nullptr},
            {"bw 160", [](wifi_rtt_config& c) { c.bw = WIFI_RTT_BW_160; },
             "wifiNodeParamChecking: bw out of range 32"},
            {"bw 10", [](wifi_rtt_config& c) { c.bw = WIFI_RTT_BW_10; },
             "wifiNodeParamChecking: bw out of range 2"},
            // Codes outside the HAL's enumerations, as raw integers.
            {"raw type 4", [](wifi_rtt_config& c) { setRaw(c.type, 4); },
             "wifiNodeParamChecking: Unknown RTT type 4"},
            {"raw peer 8", [](wifi_rtt_config& c) { setRaw(c.peer, 8); },
             "wifiNodeParamChecking: Bad RTT peer 8"},
            {"raw preamble 0x20", [](wifi_rtt_config& c) { setRaw(c.preamble, 0x20); },
             "wifiNodeParamChecking: preamble out of range 32"},
            {"raw bw 0x80", [](wifi_rtt_config& c) { setRaw(c.bw, 0x80); },
             "wifiNodeParamChecking: bw out of range 128"},
            {"raw width 8", [](wifi_rtt_config& c) { setRaw(c.channel.width, 8); }, nullptr},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        sim().clearRequests();
        capture_.clear();
        const uint32_t id_before = req_id;
        // A valid first entry: the whole array is checked before anything is sent.
        std::vector<wifi_rtt_config> configs{validConfig(1), validConfig(2)};
        c.mutate(configs[1]);

        const wifi_error result = send(configs);

        if (c.message == nullptr) {
            EXPECT_EQ(WIFI_SUCCESS, result) << capture_.dump();
            EXPECT_EQ(id_before + 1, req_id);
            EXPECT_EQ(1u, rangingRequests().size());
        } else {
            EXPECT_EQ(WIFI_ERROR_UNKNOWN, result);
            EXPECT_TRUE(capture_.contains(c.message)) << capture_.dump();
            EXPECT_TRUE(capture_.contains(
                    "varn_wifihal_rtt_range_request: Incorrect rtt_config parameters"));
            EXPECT_EQ(id_before, req_id);  // a refused request consumes no id
            EXPECT_EQ(0u, sim().requestCount());
        }
    }
    sim().clearRequests();
}

TEST_F(RttRangingTest, BadArgumentsAndDownInterfaceAreRefusedBeforeTheChecks) {
    wifi_rtt_config config = validConfig();
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_request(1, nullptr, 0, &config, kHandler));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_request(1, nullptr, 1, nullptr, kHandler));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, {nullptr, nullptr}));
    EXPECT_EQ(3u, capture_.count("varn_wifihal_rtt_range_request: Incorrect input parameter"));
    EXPECT_FALSE(capture_.contains("wifiNodeParamChecking"));

    varn_wifihal_destroy();
    g_discard_bw_mis_match = 1;
    appendReqCache(VARNMacAddress(config.addr), VARN_BW_40MHZ);
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, kHandler));
    EXPECT_TRUE(capture_.contains("Illegal rtt range request - interface not initialized"));
    // The cache is emptied even before the state test.
    EXPECT_EQ(0u, g_req_cache.size());
    EXPECT_EQ(0u, sim().requestCount());
}

TEST_F(RttRangingTest, TableRequestReachesServiceWithExactNodes) {
    wifi_rtt_config two = validConfig(0xa1);
    two.LCR_request = 1;
    two.burst_duration = 15;
    two.num_retries_per_ftmr = 2;
    two.num_retries_per_rtt_frame = 3;
    two.num_frames_per_burst = 31;
    two.preamble = WIFI_RTT_PREAMBLE_VHT;
    two.bw = WIFI_RTT_BW_80;
    two.peer = RTT_PEER_NAN;
    two.channel = {WIFI_CHAN_WIDTH_80, 5745, 5775, 0};

    wifi_rtt_config one = validConfig(0xb2);
    one.type = RTT_TYPE_1_SIDED;
    one.LCI_request = 1;
    one.burst_duration = 15;  // one-sided "no preference" becomes 11
    one.num_retries_per_rtt_frame = 1;
    one.num_retries_per_ftmr = 3;
    one.preamble = WIFI_RTT_PREAMBLE_HT;
    one.bw = WIFI_RTT_BW_40;
    one.channel = {WIFI_CHAN_WIDTH_40, 2412, 2422, 0};

    wifi_rtt_config fixed = validConfig(0xc3);
    fixed.burst_duration = 4;
    fixed.burst_period = 9;  // logged only: ranging is single-shot

    std::vector<wifi_rtt_config> configs{two, one, fixed};
    sim().answerNextWithNull(VARN_REQ_PERIODIC_RANGING_SCAN);
    const wifi_error result = varn_wifihal_get_cb_table()->rtt_range_request(
            42, nullptr, static_cast<unsigned>(configs.size()), configs.data(), kHandler);
    ASSERT_EQ(WIFI_SUCCESS, result) << capture_.dump();

    const std::vector<varn_sim::RecordedRequest> sent = rangingRequests();
    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(1u, sent[0].request_id);
    ASSERT_EQ(3u, sent[0].nodes.size());

    const VARNPeriodicNodeInfo& n0 = sent[0].nodes[0];
    EXPECT_EQ(VARNMacAddress(two.addr), n0.bssid);
    EXPECT_EQ(5745u, n0.frequency);
    EXPECT_EQ(5775u, n0.center_freq0);
    EXPECT_EQ(0u, n0.center_freq1);
    EXPECT_EQ(VARN_RTT_TYPE_2_SIDED, n0.rtt_type);
    EXPECT_EQ(VARN_NODE_NAN_DEVICE, n0.peer_type);
    EXPECT_EQ(VARN_BW_80MHZ, n0.bandwidth);
    EXPECT_EQ(VARN_RTT_PREAMBLE_VHT, n0.preamble);
    EXPECT_EQ(31, n0.packets_per_measurement);
    EXPECT_EQ(0, n0.periodic);
    EXPECT_EQ(0u, n0.burst_period_ms);
    EXPECT_EQ(0u, n0.num_bursts);
    EXPECT_EQ(2, n0.num_retries);
    // ASAP | LCR, burst duration 15 kept for two-sided.
    EXPECT_EQ(0xf005u, n0.ftm_params);

    const VARNPeriodicNodeInfo& n1 = sent[0].nodes[1];
    EXPECT_EQ(VARNMacAddress(one.addr), n1.bssid);
    EXPECT_EQ(VARN_RTT_TYPE_1_SIDED, n1.rtt_type);
    EXPECT_EQ(VARN_NODE_ACCESS_POINT, n1.peer_type);
    EXPECT_EQ(VARN_BW_40MHZ, n1.bandwidth);
    EXPECT_EQ(VARN_RTT_PREAMBLE_HT, n1.preamble);
    EXPECT_EQ(8, n1.packets_per_measurement);
    EXPECT_EQ(1, n1.num_retries);
    // ASAP | LCI, duration 11.
    EXPECT_EQ(0xb003u, n1.ftm_params);

    const VARNPeriodicNodeInfo& n2 = sent[0].nodes[2];
    EXPECT_EQ(0x4001u, n2.ftm_params);
    EXPECT_EQ(0, n2.periodic);
    EXPECT_EQ(0u, n2.burst_period_ms);

    EXPECT_TRUE(capture_.contains(
            "wifiNodeParamChecking: 1-sided RTT, got illegal burst_duration (15). Set burst "
            "duration to maxBurstDuration(11)"));
    EXPECT_TRUE(
            capture_.contains("wifiNodeParamChecking: 2-sided RTT, burst_duration no preference"));
    EXPECT_TRUE(capture_.contains("wifiNodeParamChecking: burst_period (9) set to 0"));

    // The handler is registered under the new client id.
    wifi_rtt_event_handler out{};
    ASSERT_EQ(0, getRttHandler(1, &out));
    EXPECT_EQ(&onRttV2, out.on_rtt_results_v2);
    EXPECT_EQ(42, getWiFiHalReqId(1));

    EXPECT_TRUE(capture_.contains("printVarnRequest: Request_id: 1, numBssids: 3"));
    EXPECT_TRUE(capture_.contains(
            "printVarnRequest: freq(5745)MHz, band_center_freq1(5775)MHz, "
            "band_center_freq2(0)MHz, rttType(RTT_TYPE_2_SIDED), bwType(BW_80MHZ), "
            "pktsPerMeas(31)"))
            << capture_.dump();
    EXPECT_TRUE(capture_.contains(
            "printVarnRequest: LCI Req(0x1) Civic(0x0) Bursts Exp(0) Burst Duration(11) "
            "Burst Period(0)"));
}

TEST_F(RttRangingTest, RequestDumpMasksBssidBelowDebugLevelFive) {
    wifi_rtt_config config = validConfig(0x5f);
    config.addr[3] = 0xab;
    config.addr[4] = 0xcd;
    ASSERT_EQ(WIFI_SUCCESS, send({config}));
    EXPECT_TRUE(capture_.contains("printWiFiHalRequest: Request_id: 77, numBssids : 1"));
    EXPECT_TRUE(capture_.contains(
            "printWiFiHalRequest: BSSID: 00:11:22:**:**:5f freq(5180) Center_freq (5180,0) MHz"))
            << capture_.dump();
    EXPECT_TRUE(capture_.contains(
            "printWiFiHalRequest: RTT_type(0x2) PEER_type(RTT_PEER_AP) BW(WIFI_CHAN_WIDTH_20) "
            "Burst: num(0), period(0) 100ms, duration(15) frames/burst(8)"));

    varn_debug_level = 5;
    capture_.clear();
    ASSERT_EQ(WIFI_SUCCESS, send({config}));
    EXPECT_TRUE(capture_.contains("printWiFiHalRequest: BSSID: 00:11:22:ab:cd:5f"));
}

TEST_F(RttRangingTest, RefusedOrUnrecordableRequestsLeaveNothingBehind) {
    const struct {
        bool refuse;  // else the handler node cannot be allocated
        wifi_error result;
        size_t sent;
    } kCases[] = {{true, WIFI_ERROR_UNKNOWN, 1}, {false, WIFI_ERROR_OUT_OF_MEMORY, 0}};
    wifi_rtt_config config = validConfig();
    for (const auto& c : kCases) {
        sim().clearRequests();
        if (c.refuse) {
            sim().refuseNext(VARN_REQ_PERIODIC_RANGING_SCAN);
        } else {
            g_fail_next_nothrow_new = true;
        }
        EXPECT_EQ(c.result, varn_wifihal_rtt_range_request(5, nullptr, 1, &config, kHandler));
        EXPECT_FALSE(g_fail_next_nothrow_new.load());
        EXPECT_EQ(c.sent, sim().requestCount());
        EXPECT_TRUE(rttRequestHandlers.empty());
    }
    EXPECT_EQ(2u, req_id);  // each took an id
}

TEST_F(RttRangingTest, BandwidthCacheFollowsTheLatestRequest) {
    wifi_rtt_config a = validConfig(1);
    a.bw = WIFI_RTT_BW_80;
    wifi_rtt_config b = validConfig(2);
    b.bw = WIFI_RTT_BW_40;

    ASSERT_EQ(WIFI_SUCCESS, send({a, b}));
    EXPECT_EQ(0u, g_req_cache.size());  // filtering off: nothing kept

    g_discard_bw_mis_match = 1;
    ASSERT_EQ(WIFI_SUCCESS, send({a, b}));
    ASSERT_EQ(2u, g_req_cache.size());
    WiFiHalReqCacheEntry entry{};
    ASSERT_TRUE(findRequestedBandwidth(VARNMacAddress(b.addr), &entry));
    EXPECT_EQ(VARN_BW_40MHZ, entry.bandwidth);

    ASSERT_EQ(WIFI_SUCCESS, send({b}));
    EXPECT_EQ(1u, g_req_cache.size());
    EXPECT_FALSE(findRequestedBandwidth(VARNMacAddress(a.addr), &entry));
}

TEST_F(RttRangingTest, CancelForgetsHandlerAndSendsAddresses) {
    wifi_rtt_config config = validConfig(0x10);
    ASSERT_EQ(WIFI_SUCCESS, send({config}, 9));
    ASSERT_EQ(9, getWiFiHalReqId(1));

    mac_addr addrs[2] = {{1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1}};
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_cb_table()->rtt_range_cancel(9, nullptr, 2, addrs));

    EXPECT_EQ(-1, getWiFiHalReqId(1));
    const varn_sim::RecordedRequest cancel = sim().lastRequest(VARN_REQ_CANCEL_RANGING_SCAN);
    EXPECT_EQ(2u, cancel.request_id);
    ASSERT_EQ(2u, cancel.bssids.size());
    EXPECT_EQ(VARNMacAddress(addrs[0]), cancel.bssids[0]);
    EXPECT_EQ(VARNMacAddress(addrs[1]), cancel.bssids[1]);
    EXPECT_TRUE(capture_.contains("varn_wifihal_rtt_range_cancel: bssids to cancel:"));
}

TEST_F(RttRangingTest, CancelRefusalsAndArgumentErrors) {
    mac_addr addr[1] = {{1, 2, 3, 4, 5, 6}};
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_cancel(1, nullptr, 0, addr));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_cancel(1, nullptr, 1, nullptr));
    EXPECT_EQ(2u, capture_.count("varn_wifihal_rtt_range_cancel: Incorrect input parameter"));
    EXPECT_EQ(0u, req_id);

    // The handler goes even when the service refuses the cancel.
    addRttRequestHandler(3, 50, kHandler);
    sim().refuseNext(VARN_REQ_CANCEL_RANGING_SCAN);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_cancel(3, nullptr, 1, addr));
    EXPECT_EQ(-1, getWiFiHalReqId(50));

    varn_wifihal_destroy();
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, varn_wifihal_rtt_range_cancel(1, nullptr, 1, addr));
    EXPECT_TRUE(capture_.contains("varn_wifihal_rtt_range_cancel: - interface not initialized"));
}

TEST_F(RttRangingTest, ConversionTablesOutsideTheValidatedRange) {
    const struct {
        uint32_t peer;
        eVARNNodeType node;
    } kPeers[] = {{1, VARN_NODE_ACCESS_POINT}, {2, VARN_NODE_STATION},
                  {3, VARN_NODE_PEER_DEVICE},  {4, VARN_NODE_PEER_DEVICE},
                  {5, VARN_NODE_NAN_DEVICE},   {9, VARN_NODE_ACCESS_POINT}};
    for (const auto& p : kPeers) EXPECT_EQ(p.node, toVarnNodeType(p.peer)) << p.peer;
    EXPECT_EQ(VARN_BW_160MHZ, toVarnBandwidth(WIFI_RTT_BW_160));
    EXPECT_EQ(VARN_BW_20MHZ, toVarnBandwidth(WIFI_RTT_BW_320));
    EXPECT_TRUE(capture_.contains("[VARN_WIFIHAL_IF] UNKNOWN BW TYPE defaulting to BW_20MHZ"));
    EXPECT_EQ(VARN_RTT_TYPE_1_SIDED, toVarnRttType(7));
    EXPECT_TRUE(capture_.contains("UNKNOWN RTT TYPE defaulting to RTT_TYPE_1_SIDED"));
    EXPECT_EQ(VARN_RTT_PREAMBLE_HE, toVarnPreamble(WIFI_RTT_PREAMBLE_HE));
    EXPECT_EQ(VARN_RTT_PREAMBLE_LEGACY, toVarnPreamble(WIFI_RTT_PREAMBLE_EHT));

    // Periodic ranging (never passes the checks today) carries the period in the word.
    wifi_rtt_config periodic = validConfig();
    periodic.num_burst = 3;
    periodic.burst_period = 7;
    periodic.burst_duration = 5;
    const VARNPeriodicNodeInfo node = toPeriodicNodeInfo(periodic);
    EXPECT_EQ(1, node.periodic);
    EXPECT_EQ(700u, node.burst_period_ms);
    EXPECT_EQ(3u, node.num_bursts);
    EXPECT_EQ(0x00075301u, node.ftm_params);
}

}  // namespace
}  // namespace wifihal_test
