// Interface lifecycle, configuration keys, request ids, the handler tables,
// and RTT ranging requests and cancels checked at the simulated service.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"
#include "wifihal/rtt_request_conversion.h"
#include "wifihal/wifihal_internal.h"
#include "wifihal_test_support.h"

// While armed, the next non-throwing operator new fails; otherwise it forwards
// to the throwing form, so every allocation still pairs with its delete.
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
void onEvent(wifi_request_id, wifi_scan_event) {}
void onLost(wifi_request_id, unsigned, wifi_scan_result*) {}
void onChange(wifi_request_id, unsigned, wifi_significant_change_result**) {}
const wifi_rtt_event_handler kHandler{onRtt, onRttV2};
using C = wifi_rtt_config;

using LifecycleTest = WifiHalTest;
using RequestBookkeepingTest = WifiHalTest;

TEST_F(LifecycleTest, InitWithoutConfigFileUsesDefaultsAndDestroyReleasesEverything) {
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_destroy());  // also while down
    g_weighted_mean = 7;
    g_discard_bw_mis_match = 9;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_cb_table()->init());
    EXPECT_EQ(1, varn_wifihal_interface_initialized);
    ASSERT_TRUE(client != nullptr && listener != nullptr);
    // No file: the multiplier's default, the other settings left as they were.
    EXPECT_EQ((std::vector<int>{50, 7, 9}),
              (std::vector<int>{listener->stdevMultiplier(), g_weighted_mean,
                                static_cast<int>(g_discard_bw_mis_match)}));
    EXPECT_TRUE(capture_.contains(
            "[VARN-WIFIHAL-2.1.1.25] varn_wifihal_init: config file not available"));
    EXPECT_EQ(3, effectiveGlobalLogLevel(capture_));
    EXPECT_EQ(1u, sim().liveClients());

    addRttRequestHandler(1, 1, {onRtt, nullptr});
    addRspHandler(2, 2, VARN_REQ_BGSCAN_START, RspHandlerRecord{});
    ASSERT_EQ(0, storeRttCapabilities({1, 1, 1, 1, 1, 4, 0, 43}));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_cb_table()->destroy());
    EXPECT_EQ(0, varn_wifihal_interface_initialized);
    EXPECT_TRUE(client == nullptr && listener == nullptr && rttCachedCapabilities == nullptr);
    EXPECT_TRUE(rttRequestHandlers.empty() && rspHandlers.empty());
    EXPECT_EQ(0u, sim().liveClients());
}

TEST_F(LifecycleTest, SecondInitWarnsAndDropsPointers) {
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    VARNClient* first_client = client;
    VARNClientListenerImpl* first_listener = listener;
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    EXPECT_EQ(1, varn_wifihal_interface_initialized);
    EXPECT_TRUE(client == nullptr && listener == nullptr);
    EXPECT_TRUE(capture_.contains("init: VARN-WIFIHAL interface already initialized!"));
    // Without a client, ranging and cancel answer as if the interface were down.
    wifi_rtt_config config = validConfig();
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, {onRtt, nullptr}));
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, varn_wifihal_rtt_range_cancel(1, nullptr, 1, &config.addr));
    // The forgotten objects are still alive; release them here so the test leaks nothing.
    delete first_client;
    delete first_listener;
}

TEST_F(LifecycleTest, ConfigurationKeysReachTheirTargets) {
    const struct {
        const char* content;
        int log_level, multiplier, weighted_mean, bw_mismatch;
        bool fallback_logged;
    } kCases[] = {
            {"VARN_WIFIHAL_LOG_LEVEL = 5\nVARN_RTT_WEIGHTED_MEAN = 1\n"
             "VARN_WIFIHAL_STDEV_MULT = 35\nVARN_WIFIHAL_BW_MISMATCH = 1\n",
             5, 35, 1, 1, false},
            // The library's own key wins over the platform-wide one.
            {"VARN_LOG_LEVEL = 1\nVARN_WIFIHAL_LOG_LEVEL = 4\nVARN_WIFIHAL_BW_MISMATCH = 3\n", 4,
             50, 0, 3, false},
            {"VARN_LOG_LEVEL = 2\n", 2, 50, 0, 0, true},
            // Neither key: the fallback keeps the default.
            {"VARN_RTT_WEIGHTED_MEAN = 0x10\n", 3, 50, 16, 0, true},
            // A bad line makes the whole file unavailable.
            {"VARN_WIFIHAL_LOG_LEVEL = 5\nVARN_WIFIHAL_STDEV_MULT =\n", 3, 50, 0, 0, false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.content);
        varn_wifihal_destroy();
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
        g_weighted_mean = 0, g_discard_bw_mis_match = 0;
        capture_.clear();
        useConfig(c.content);
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        ASSERT_NE(nullptr, listener);
        EXPECT_EQ((std::vector<int>{c.multiplier, c.weighted_mean, c.bw_mismatch, c.log_level}),
                  (std::vector<int>{listener->stdevMultiplier(), g_weighted_mean,
                                    static_cast<int>(g_discard_bw_mis_match),
                                    effectiveGlobalLogLevel(capture_)}));
        EXPECT_EQ(c.fallback_logged, capture_.contains("LOG_LEVEL not foundset to varn log level " +
                                                       std::to_string(c.log_level)));
        // The version is shown from the debug level up.
        EXPECT_EQ(c.log_level >= 4, capture_.contains("VARN_WIFIHAL_INTERFACE_VERSION: "
                                                      "(VARN-WIFIHAL-2.1.1.25)"));
    }
}

TEST_F(LifecycleTest, ClientCreationFailureLeavesInterfaceDown) {
    sim().failNextCreateInstance();
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, varn_wifihal_init());
    EXPECT_EQ(0, varn_wifihal_interface_initialized);
    EXPECT_TRUE(client == nullptr && listener == nullptr);
    EXPECT_TRUE(capture_.contains("varn_wifihal_init: Could not create the VARNClient"));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_init());  // a later attempt succeeds
}

TEST_F(RequestBookkeepingTest, RequestIdsStartAtOneAfterEachInitAndNeverWrap) {
    for (int round = 0; round < 2; ++round) {
        varn_wifihal_destroy();
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        EXPECT_EQ((std::vector<uint32_t>{1, 2}), (std::vector<uint32_t>{nextReqId(), nextReqId()}));
    }
    req_id = UINT32_MAX - 1;
    EXPECT_EQ(UINT32_MAX, nextReqId());  // the last id is usable
    EXPECT_EXIT(nextReqId(), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(RequestBookkeepingTest, RttLookupsFindTheNewestAndLeaveOutputsOnAMiss) {
    ASSERT_EQ(0, addRttRequestHandler(7, 100, {onRtt, nullptr}));
    ASSERT_EQ(0, addRttRequestHandler(8, 100, {nullptr, onRttV2}));
    EXPECT_EQ(8, getWiFiHalReqId(100));
    wifi_rtt_event_handler out{onRtt, nullptr};
    EXPECT_EQ(0, getRttHandler(100, &out));
    EXPECT_TRUE(out.on_rtt_results == nullptr && out.on_rtt_results_v2 == &onRttV2);
    // A miss leaves the outputs as they were.
    EXPECT_TRUE(getWiFiHalReqId(101) == -1 && getRttHandler(101, &out) == -1);
    EXPECT_EQ(&onRttV2, out.on_rtt_results_v2);
    int hal_id = 1234;
    wifi_scan_result_handler scan{nullptr, onEvent};
    getGscanEventHandler(hal_id, 100, &scan);
    EXPECT_TRUE(hal_id == 1234 && scan.on_scan_event == &onEvent);
}

TEST_F(RequestBookkeepingTest, ScanLookupsFindTheirOwnKindAndLogEachNodePassed) {
    RspHandlerRecord scan_record{}, hotlist_record{}, change_record{};
    scan_record.scan = {nullptr, onEvent};
    hotlist_record.hotlist = {nullptr, onLost};
    change_record.significant_change = {onChange};
    addRspHandler(11, 300, VARN_REQ_BGSCAN_START, scan_record);
    addRspHandler(12, 301, VARN_REQ_HOTLIST_SET, hotlist_record);
    addRspHandler(13, 302, VARN_REQ_SIGNIFICANT_CHANGE_SET, change_record);
    // Response code 12 is shared by the hotlist answer and the significant-change
    // event: a node of another kind with the same client id must be passed.
    addRspHandler(99, 301, VARN_REQ_SIGNIFICANT_CHANGE_SET, RspHandlerRecord{});
    addRspHandler(98, 300, VARN_REQ_HOTLIST_SET, RspHandlerRecord{});
    capture_.clear();

    int hal_id = -1;
    wifi_scan_result_handler scan{};
    getGscanEventHandler(hal_id, 300, &scan);
    EXPECT_TRUE(hal_id == 11 && scan.on_scan_event == &onEvent);
    // Newest first: every other node is passed on the way, logged with the list size.
    EXPECT_EQ(5u, capture_.count("getGscanEventHandler: varnReqId(300) storedVarnReqId("));
    EXPECT_TRUE(
            capture_.contains("storedVarnReqId(301) reqType(VARN_REQ_HOTLIST_SET) "
                              "rspHandlersSz(5)"));
    wifi_hotlist_ap_found_handler found{};
    capture_.clear();
    getHotlistApEvtHandler(hal_id, 301, &found);
    EXPECT_TRUE(hal_id == 12 && found.on_hotlist_ap_lost == &onLost);
    EXPECT_TRUE(
            capture_.contains("storedVarnReqId(301) reqType(VARN_REQ_SIGNIFICANT_CHANGE_SET) "));
    EXPECT_FALSE(capture_.contains("rspHandlersSz"));
    wifi_significant_change_handler changed{};
    getSigChangeEvtHandler(hal_id, 302, &changed);
    EXPECT_TRUE(hal_id == 13 && changed.on_significant_change == &onChange);
}

TEST_F(RequestBookkeepingTest, CachesAnswerTheirFirstEntry) {
    const unsigned char a[6] = {1, 2, 3, 4, 5, 6};
    const unsigned char b[6] = {1, 2, 3, 4, 5, 7};
    appendReqCache(VARNMacAddress(a), VARN_BW_40MHZ);
    appendReqCache(VARNMacAddress(a), VARN_BW_80MHZ);
    WiFiHalReqCacheEntry entry{};
    ASSERT_TRUE(findRequestedBandwidth(VARNMacAddress(a), &entry));
    EXPECT_EQ(VARN_BW_40MHZ, entry.bandwidth);
    EXPECT_FALSE(findRequestedBandwidth(VARNMacAddress(b), &entry));
    EXPECT_EQ(VARN_BW_40MHZ, entry.bandwidth);  // a miss leaves it
    clearReqCache();
    EXPECT_TRUE(g_req_cache.size() == 0 && g_req_cache.data() == nullptr);

    wifi_rtt_capabilities out{};
    EXPECT_FALSE(copyCachedRttCapabilities(&out));
    ASSERT_EQ(0, storeRttCapabilities({1, 0, 1, 1, 1, 0x1c, 1, 43}));
    ASSERT_EQ(0, storeRttCapabilities({0, 0, 0, 0, 0, 0, 0, 0}));
    ASSERT_TRUE(copyCachedRttCapabilities(&out));
    EXPECT_EQ(0x1c, out.bw_support);
}

class RttRangingTest : public WifiHalUpTest {
  protected:
    // Sends `configs` with ranging answers held back: the handler stays registered.
    wifi_error send(std::vector<C> configs, wifi_request_id id = 77) {
        sim().answerNextWithNull(VARN_REQ_PERIODIC_RANGING_SCAN);
        return varn_wifihal_rtt_range_request(id, nullptr, static_cast<unsigned>(configs.size()),
                                              configs.data(), kHandler);
    }
};

TEST_F(RttRangingTest, EachInvalidFieldRefusesTheWholeRequest) {
    const struct {
        std::function<void(C&)> mutate;
        const char* message;
    } kCases[] = {
            {[](C& c) { c.peer = RTT_PEER_STA; }, "Bad RTT peer 2"},
            {[](C& c) { c.num_burst = 1; }, "num_burst (1) not 0"},
            {[](C& c) { c.num_frames_per_burst = 0; }, "num_frames_per_burst (0) out of range"},
            {[](C& c) { c.num_frames_per_burst = 32; }, "num_frames_per_burst (32) out of range"},
            {[](C& c) { c.num_retries_per_ftmr = 4; }, "num_retries_per_ftmr (4) out of range"},
            {[](C& c) { c.type = RTT_TYPE_1_SIDED, c.num_retries_per_rtt_frame = 4; },
             "num_retries_per_rtt_frame (4) out of range"},
            {[](C& c) { c.LCI_request = 2; }, "LCI_Request bad value"},
            {[](C& c) { c.LCR_request = 2; }, "LCR_Request bad value"},
            {[](C& c) { c.burst_duration = 1; }, "burst_duration out of range 1"},
            {[](C& c) { c.burst_duration = 12; }, "burst_duration out of range 12"},
            {[](C& c) { c.preamble = WIFI_RTT_PREAMBLE_EHT; }, "preamble out of range 16"},
            {[](C& c) { c.bw = WIFI_RTT_BW_160; }, "bw out of range 32"},
            // Codes outside the HAL's enumerations, as raw integers.
            {[](C& c) { setHalInt(c.type, 4); }, "Unknown RTT type 4"},
            {[](C& c) { setHalInt(c.peer, 8); }, "Bad RTT peer 8"},
            {[](C& c) { setHalInt(c.preamble, 0x20); }, "preamble out of range 32"},
            {[](C& c) { setHalInt(c.bw, 0x80); }, "bw out of range 128"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.message);
        capture_.clear();
        // A valid first entry: the whole array is checked before anything is sent.
        std::vector<C> configs{validConfig(1), validConfig(2)};
        c.mutate(configs[1]);
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, send(configs));
        EXPECT_TRUE(capture_.contains(std::string("wifiNodeParamChecking: ") + c.message));
        EXPECT_TRUE(capture_.contains(
                "varn_wifihal_rtt_range_request: Incorrect rtt_config parameters"));
    }
    EXPECT_EQ(0u, req_id);  // a refused request takes no id
    EXPECT_EQ(0u, sim().requestCount());
}

TEST_F(RttRangingTest, BadArgumentsAndDownInterfaceAreRefusedBeforeTheChecks) {
    C config = validConfig();
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_request(1, nullptr, 0, &config, kHandler));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_request(1, nullptr, 1, nullptr, kHandler));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, {nullptr, nullptr}));
    EXPECT_EQ(3u, capture_.count("varn_wifihal_rtt_range_request: Incorrect input parameter"));
    varn_wifihal_destroy();
    g_discard_bw_mis_match = 1;
    appendReqCache(VARNMacAddress(config.addr), VARN_BW_40MHZ);
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, kHandler));
    EXPECT_TRUE(capture_.contains("Illegal rtt range request - interface not initialized"));
    EXPECT_EQ(0u, g_req_cache.size());  // emptied even before the state test
}

TEST_F(RttRangingTest, TableRequestReachesServiceWithExactNodes) {
    // Fields at the edges of their ranges, and fields the type ignores.
    C two = validConfig(0xa1);  // burst duration 15, "no preference", kept for two-sided
    two.LCR_request = 1, two.num_retries_per_ftmr = 3, two.num_retries_per_rtt_frame = 9;
    two.num_frames_per_burst = 31, two.preamble = WIFI_RTT_PREAMBLE_VHT, two.bw = WIFI_RTT_BW_80;
    two.peer = RTT_PEER_NAN, two.channel = {WIFI_CHAN_WIDTH_80, 5745, 5775, 0};
    setHalInt(two.channel.width, 8);  // only logged
    C one = validConfig(0xb2);        // one-sided "no preference" becomes 11
    one.type = RTT_TYPE_1_SIDED, one.LCI_request = 1, one.num_retries_per_rtt_frame = 3;
    one.num_retries_per_ftmr = 9, one.preamble = WIFI_RTT_PREAMBLE_HT, one.bw = WIFI_RTT_BW_40;
    one.num_frames_per_burst = 1;
    C fixed = validConfig(0xc3), eleven = validConfig(0xd4);
    fixed.burst_duration = 2, fixed.burst_period = 9;  // the period is only logged: single-shot
    fixed.addr[3] = 0xab, fixed.preamble = WIFI_RTT_PREAMBLE_HE, eleven.burst_duration = 11;

    std::vector<C> configs{two, one, fixed, eleven};
    sim().answerNextWithNull(VARN_REQ_PERIODIC_RANGING_SCAN);
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_cb_table()->rtt_range_request(
                                    42, nullptr, 4, configs.data(), kHandler))
            << capture_.dump();
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_PERIODIC_RANGING_SCAN);
    EXPECT_EQ(1u, sim().requestCount());
    EXPECT_EQ(1u, sent.request_id);
    ASSERT_EQ(4u, sent.nodes.size());
    const VARNPeriodicNodeInfo &n0 = sent.nodes[0], &n1 = sent.nodes[1], &n2 = sent.nodes[2];
    EXPECT_TRUE(VARNMacAddress(two.addr) == n0.bssid && VARNMacAddress(one.addr) == n1.bssid);
    EXPECT_EQ((std::vector<uint32_t>{5745, 5775, 0, 0, 0, 31, 3, 0, 0}),
              (std::vector<uint32_t>{n0.frequency, n0.center_freq0, n0.center_freq1, n0.num_bursts,
                                     n0.burst_period_ms, n0.packets_per_measurement, n0.num_retries,
                                     n0.periodic, n2.periodic}));
    EXPECT_EQ(
            (std::vector<int>{VARN_RTT_TYPE_2_SIDED, VARN_NODE_NAN_DEVICE, VARN_BW_80MHZ,
                              VARN_RTT_PREAMBLE_VHT, VARN_RTT_TYPE_1_SIDED, VARN_NODE_ACCESS_POINT,
                              VARN_BW_40MHZ, VARN_RTT_PREAMBLE_HT, VARN_RTT_PREAMBLE_HE}),
            (std::vector<int>{n0.rtt_type, n0.peer_type, n0.bandwidth, n0.preamble, n1.rtt_type,
                              n1.peer_type, n1.bandwidth, n1.preamble, n2.preamble}));
    EXPECT_EQ((std::vector<uint32_t>{1, 3, 0}),
              (std::vector<uint32_t>{n1.packets_per_measurement, n1.num_retries,
                                     n2.burst_period_ms}));
    // ASAP | LCR with duration 15 kept for two-sided; ASAP | LCI with 11; ASAP with 2 and 11.
    EXPECT_EQ((std::vector<uint32_t>{0xf005, 0xb003, 0x2001, 0xb001}),
              (std::vector<uint32_t>{n0.ftm_params, n1.ftm_params, n2.ftm_params,
                                     sent.nodes[3].ftm_params}));
    EXPECT_TRUE(capture_.contains(
            "wifiNodeParamChecking: 1-sided RTT, got illegal burst_duration (15). Set burst "
            "duration to maxBurstDuration(11)"));
    EXPECT_TRUE(capture_.contains("wifiNodeParamChecking: burst_period (9) set to 0"));
    EXPECT_TRUE(capture_.contains("printVarnRequest: Request_id: 1, numBssids: 4"));
    // The request dump masks addresses below platform debug level 5.
    EXPECT_TRUE(capture_.contains(
            "printWiFiHalRequest: BSSID: 00:11:22:**:**:c3 freq(5180) Center_freq (5180,0) MHz"));
    EXPECT_TRUE(capture_.contains(
            "printWiFiHalRequest: RTT_type(0x2) PEER_type(RTT_PEER_AP) BW(WIFI_CHAN_WIDTH_20) "
            "Burst: num(0), period(9) 100ms, duration(2) frames/burst(8)"));
    varn_debug_level = 5;
    ASSERT_EQ(WIFI_SUCCESS, send({fixed}));
    EXPECT_TRUE(capture_.contains("printWiFiHalRequest: BSSID: 00:11:22:ab:44:c3"));

    wifi_rtt_event_handler out{};  // registered under the new client id
    ASSERT_EQ(0, getRttHandler(1, &out));
    EXPECT_TRUE(out.on_rtt_results_v2 == &onRttV2 && getWiFiHalReqId(1) == 42);

    // Periodic ranging never passes the checks today; the conversion keeps the period.
    C periodic = validConfig();
    periodic.num_burst = 3, periodic.burst_period = 7, periodic.burst_duration = 5;
    const VARNPeriodicNodeInfo node = toPeriodicNodeInfo(periodic);
    EXPECT_EQ((std::vector<uint32_t>{1, 700, 3, 0x00075301}),
              (std::vector<uint32_t>{node.periodic, node.burst_period_ms, node.num_bursts,
                                     node.ftm_params}));
}

TEST_F(RttRangingTest, RefusedOrUnrecordableRequestsLeaveNothingBehind) {
    C config = validConfig();
    for (bool refuse : {true, false}) {  // else the handler node cannot be allocated
        sim().clearRequests();
        if (refuse) sim().refuseNext(VARN_REQ_PERIODIC_RANGING_SCAN);
        g_fail_next_nothrow_new = !refuse;
        EXPECT_EQ(refuse ? WIFI_ERROR_UNKNOWN : WIFI_ERROR_OUT_OF_MEMORY,
                  varn_wifihal_rtt_range_request(5, nullptr, 1, &config, kHandler));
        EXPECT_FALSE(g_fail_next_nothrow_new.load());
        EXPECT_EQ(refuse ? 1u : 0u, sim().requestCount());
        EXPECT_TRUE(rttRequestHandlers.empty());
    }
    EXPECT_EQ(2u, req_id);  // each took an id
}

TEST_F(RttRangingTest, BandwidthCacheFollowsTheLatestRequest) {
    C a = validConfig(1), b = validConfig(2);
    a.bw = WIFI_RTT_BW_80, b.bw = WIFI_RTT_BW_40;
    ASSERT_EQ(WIFI_SUCCESS, send({a, b}));
    EXPECT_EQ(0u, g_req_cache.size());  // filtering off: nothing kept

    g_discard_bw_mis_match = 1;
    ASSERT_EQ(WIFI_SUCCESS, send({a, b}));
    ASSERT_EQ(2u, g_req_cache.size());
    WiFiHalReqCacheEntry entry{};
    EXPECT_TRUE(findRequestedBandwidth(VARNMacAddress(b.addr), &entry));
    EXPECT_EQ(VARN_BW_40MHZ, entry.bandwidth);
    ASSERT_EQ(WIFI_SUCCESS, send({b}));
    EXPECT_EQ(1u, g_req_cache.size());
    EXPECT_FALSE(findRequestedBandwidth(VARNMacAddress(a.addr), &entry));
}

TEST_F(RttRangingTest, CancelForgetsHandlerAndSendsAddresses) {
    mac_addr addrs[2] = {{1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1}};
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_cancel(1, nullptr, 0, addrs));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_cancel(1, nullptr, 1, nullptr));
    EXPECT_EQ(2u, capture_.count("varn_wifihal_rtt_range_cancel: Incorrect input parameter"));
    // A negative HAL id travels through the unsigned parameters unchanged.
    addRttRequestHandler(-9, 40, kHandler);  // an older request of the same HAL id stays
    ASSERT_EQ(WIFI_SUCCESS, send({validConfig()}, -9));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_cb_table()->rtt_range_cancel(-9, nullptr, 2, addrs));
    EXPECT_EQ(-9, getWiFiHalReqId(40));
    EXPECT_EQ(-1, getWiFiHalReqId(1));
    const varn_sim::RecordedRequest cancel = sim().lastRequest(VARN_REQ_CANCEL_RANGING_SCAN);
    EXPECT_EQ(2u, cancel.request_id);
    EXPECT_EQ((std::vector<VARNMacAddress>{VARNMacAddress(addrs[0]), VARNMacAddress(addrs[1])}),
              std::vector<VARNMacAddress>(cancel.bssids.begin(), cancel.bssids.end()));

    // The handler goes even when the service refuses the cancel.
    addRttRequestHandler(3, 50, kHandler);
    sim().refuseNext(VARN_REQ_CANCEL_RANGING_SCAN);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_rtt_range_cancel(3, nullptr, 1, addrs));
    EXPECT_EQ(-1, getWiFiHalReqId(50));
}

}  // namespace
}  // namespace wifihal_test
