// Interface lifecycle, configuration keys, request ids and the handler tables.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <signal.h>

#include <vector>

#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

void onRtt(wifi_request_id, unsigned, wifi_rtt_result**) {}
void onRttV2(wifi_request_id, unsigned, wifi_rtt_result_v2**) {}
void onEvent(wifi_request_id, wifi_scan_event) {}
void onLost(wifi_request_id, unsigned, wifi_scan_result*) {}
void onChange(wifi_request_id, unsigned, wifi_significant_change_result**) {}

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
    EXPECT_TRUE(
            capture_.contains("varn_wifihal_init: VARN-WIFIHAL interface already initialized!"));
    // Without a client, ranging and cancel answer as if the interface were down.
    wifi_rtt_config config = validConfig();
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, {onRtt, nullptr}));
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, varn_wifihal_rtt_range_cancel(1, nullptr, 1, &config.addr));
    EXPECT_TRUE(capture_.contains("varn_wifihal_rtt_range_cancel: - interface not initialized"));
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
        g_weighted_mean = 0;
        g_discard_bw_mis_match = 0;
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
    EXPECT_EQ(-1, getWiFiHalReqId(101));
    EXPECT_EQ(-1, getRttHandler(101, &out));
    EXPECT_EQ(&onRttV2, out.on_rtt_results_v2);
    int hal_id = 1234;
    wifi_scan_result_handler scan{nullptr, onEvent};
    getGscanEventHandler(hal_id, 100, &scan);
    EXPECT_EQ(1234, hal_id);
    EXPECT_EQ(&onEvent, scan.on_scan_event);
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
            capture_.contains("getHotlistApEvtHandler: varnReqId(301) storedVarnReqId(301) "
                              "reqType(VARN_REQ_SIGNIFICANT_CHANGE_SET) "));
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

}  // namespace
}  // namespace wifihal_test
