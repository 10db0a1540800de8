// Request ids and the handler tables.
#include "wifihal/request_bookkeeping.h"

#include <gtest/gtest.h>

#include <signal.h>

#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

void onRtt(wifi_request_id, unsigned, wifi_rtt_result**) {}
void onRttV2(wifi_request_id, unsigned, wifi_rtt_result_v2**) {}
void onFull(wifi_request_id, wifi_scan_result*, unsigned) {}
void onEvent(wifi_request_id, wifi_scan_event) {}
void onFound(wifi_request_id, unsigned, wifi_scan_result*) {}
void onLost(wifi_request_id, unsigned, wifi_scan_result*) {}
void onChange(wifi_request_id, unsigned, wifi_significant_change_result**) {}

RspHandlerRecord scanRecord() {
    RspHandlerRecord r{};
    r.scan = {onFull, onEvent};
    return r;
}

using RequestBookkeepingTest = WifiHalTest;

TEST_F(RequestBookkeepingTest, RequestIdsStartAtOneAfterInit) {
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    EXPECT_EQ(1u, nextReqId());
    EXPECT_EQ(2u, nextReqId());
    EXPECT_EQ(2u, req_id);
    varn_wifihal_destroy();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    EXPECT_EQ(1u, nextReqId());
}

TEST_F(RequestBookkeepingTest, LastIdIsUsableButTheCounterNeverWraps) {
    req_id = UINT32_MAX - 1;
    EXPECT_EQ(UINT32_MAX, nextReqId());
    EXPECT_EXIT(nextReqId(), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(RequestBookkeepingTest, RttLookupsFindTheNewestOfDuplicateIds) {
    const wifi_rtt_event_handler older{onRtt, nullptr};
    const wifi_rtt_event_handler newer{nullptr, onRttV2};
    ASSERT_EQ(0, addRttRequestHandler(7, 100, older));
    ASSERT_EQ(0, addRttRequestHandler(8, 100, newer));

    EXPECT_EQ(8, getWiFiHalReqId(100));
    wifi_rtt_event_handler out{};
    EXPECT_EQ(0, getRttHandler(100, &out));
    EXPECT_EQ(newer.on_rtt_results_v2, out.on_rtt_results_v2);
    EXPECT_EQ(nullptr, out.on_rtt_results);
    EXPECT_TRUE(capture_.contains("getRttHandler: clReqId(8), varnReqId(100)"));
}

TEST_F(RequestBookkeepingTest, UnknownClientIdLeavesOutputsUntouched) {
    addRttRequestHandler(7, 100, {onRtt, onRttV2});
    addRspHandler(9, 200, VARN_REQ_BGSCAN_START, scanRecord());

    EXPECT_EQ(-1, getWiFiHalReqId(101));
    wifi_rtt_event_handler rtt{onRtt, nullptr};
    EXPECT_EQ(-1, getRttHandler(101, &rtt));
    EXPECT_EQ(&onRtt, rtt.on_rtt_results);
    EXPECT_EQ(nullptr, rtt.on_rtt_results_v2);

    int hal_id = 1234;
    wifi_scan_result_handler scan{};
    getGscanEventHandler(hal_id, 201, &scan);
    EXPECT_EQ(1234, hal_id);
    EXPECT_EQ(nullptr, scan.on_full_scan_result);
    wifi_hotlist_ap_found_handler hotlist{};
    getHotlistApEvtHandler(hal_id, 201, &hotlist);
    EXPECT_EQ(1234, hal_id);
    EXPECT_EQ(nullptr, hotlist.on_hotlist_ap_found);
}

TEST_F(RequestBookkeepingTest, DeleteRemovesOnlyTheNewestMatch) {
    addRttRequestHandler(5, 1, {onRtt, nullptr});
    addRttRequestHandler(5, 2, {onRtt, nullptr});
    addRttRequestHandler(6, 3, {onRtt, nullptr});
    capture_.clear();

    deleteWiFiHalReq(5);
    EXPECT_EQ(2u, rttRequestHandlers.size());
    EXPECT_EQ(-1, getWiFiHalReqId(2));
    EXPECT_EQ(5, getWiFiHalReqId(1));
    EXPECT_EQ(6, getWiFiHalReqId(3));

    deleteWiFiHalReq(42);  // absent: nothing happens, nothing is logged
    EXPECT_EQ(2u, rttRequestHandlers.size());
    EXPECT_TRUE(capture_.lines().empty()) << capture_.dump();

    // Negative HAL ids travel through the unsigned parameter unchanged.
    addRttRequestHandler(-3, 4, {onRtt, nullptr});
    deleteWiFiHalReq(static_cast<uint32_t>(-3));
    EXPECT_EQ(-1, getWiFiHalReqId(4));
}

TEST_F(RequestBookkeepingTest, ScanLookupsLogEachNodePassed) {
    addRspHandler(11, 300, VARN_REQ_BGSCAN_START, scanRecord());
    RspHandlerRecord hotlist{};
    hotlist.hotlist = {onFound, onLost};
    addRspHandler(12, 301, VARN_REQ_HOTLIST_SET, hotlist);
    RspHandlerRecord change{};
    change.significant_change = {onChange};
    addRspHandler(13, 302, VARN_REQ_SIGNIFICANT_CHANGE_SET, change);
    capture_.clear();

    int hal_id = -1;
    wifi_scan_result_handler scan{};
    getGscanEventHandler(hal_id, 300, &scan);
    EXPECT_EQ(11, hal_id);
    EXPECT_EQ(&onEvent, scan.on_scan_event);
    // Newest first: the significant-change and hotlist nodes are passed on the way.
    EXPECT_EQ(3u, capture_.count("getGscanEventHandler: varnReqId(300) storedVarnReqId("));
    EXPECT_TRUE(capture_.contains("getGscanEventHandler: varnReqId(300) storedVarnReqId(301) "
                                  "reqType(VARN_REQ_HOTLIST_SET) rspHandlersSz(3)"))
            << capture_.dump();
    EXPECT_TRUE(capture_.contains("getGscanEventHandler: clReqId(11), varnReqId(300)"));

    wifi_hotlist_ap_found_handler found{};
    getHotlistApEvtHandler(hal_id, 301, &found);
    EXPECT_EQ(12, hal_id);
    EXPECT_EQ(&onLost, found.on_hotlist_ap_lost);

    wifi_significant_change_handler changed{};
    capture_.clear();
    getSigChangeEvtHandler(hal_id, 302, &changed);
    EXPECT_EQ(13, hal_id);
    EXPECT_EQ(&onChange, changed.on_significant_change);
    EXPECT_TRUE(capture_.contains("getSigChangeEvtHandler: varnReqId(302) storedVarnReqId(302) "
                                  "reqType(VARN_REQ_SIGNIFICANT_CHANGE_SET) "));
    EXPECT_FALSE(capture_.contains("rspHandlersSz"));
}

TEST_F(RequestBookkeepingTest, CleanupHandlersRemovesEveryNodeOfOneType) {
    addRspHandler(1, 1, VARN_REQ_BGSCAN_START, scanRecord());
    addRspHandler(2, 2, VARN_REQ_HOTLIST_SET, scanRecord());
    addRspHandler(3, 3, VARN_REQ_BGSCAN_START, scanRecord());
    capture_.clear();

    cleanupHandlers(VARN_REQ_BGSCAN_START);

    ASSERT_EQ(1u, rspHandlers.size());
    EXPECT_EQ(2u, rspHandlers.head()->varnReqId);
    EXPECT_TRUE(capture_.contains("Before @cleanupHandlers(): rspHandlers size 3"));
    EXPECT_EQ(2u, capture_.count("cleanupHandlers: for VARN_REQ_BGSCAN_START request"));
    EXPECT_TRUE(capture_.contains("After @cleanupHandlers(): rspHandlers size 1"));

    cleanupRttHandlers();  // kept as an entry point; changes nothing
    EXPECT_EQ(1u, rspHandlers.size());
}

TEST_F(RequestBookkeepingTest, BandwidthCacheAnswersFirstEntryOfAnAddress) {
    const unsigned char a[6] = {1, 2, 3, 4, 5, 6};
    const unsigned char b[6] = {1, 2, 3, 4, 5, 7};
    appendReqCache(VARNMacAddress(a), VARN_BW_40MHZ);
    appendReqCache(VARNMacAddress(a), VARN_BW_80MHZ);

    WiFiHalReqCacheEntry entry{};
    ASSERT_TRUE(findRequestedBandwidth(VARNMacAddress(a), &entry));
    EXPECT_EQ(VARN_BW_40MHZ, entry.bandwidth);
    entry.bandwidth = VARN_BW_MAX;
    EXPECT_FALSE(findRequestedBandwidth(VARNMacAddress(b), &entry));
    EXPECT_EQ(VARN_BW_MAX, entry.bandwidth);

    clearReqCache();
    EXPECT_EQ(0u, g_req_cache.size());
    EXPECT_EQ(nullptr, g_req_cache.data());
}

TEST_F(RequestBookkeepingTest, FirstCachedCapabilitiesStay) {
    wifi_rtt_capabilities out{};
    EXPECT_FALSE(copyCachedRttCapabilities(&out));
    ASSERT_EQ(0, storeRttCapabilities({1, 0, 1, 1, 1, 0x1c, 1, 43}));
    ASSERT_EQ(0, storeRttCapabilities({0, 0, 0, 0, 0, 0, 0, 0}));
    ASSERT_TRUE(copyCachedRttCapabilities(&out));
    EXPECT_EQ(1, out.rtt_one_sided_supported);
    EXPECT_EQ(0x1c, out.bw_support);
    EXPECT_EQ(43, out.mc_version);
}

}  // namespace
}  // namespace wifihal_test
