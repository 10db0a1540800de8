// Interface lifecycle: init, destroy, configuration keys and the callback table.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include "listener/varn_client_listener_impl.h"
#include "wifihal/request_bookkeeping.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

using LifecycleTest = WifiHalTest;

TEST_F(LifecycleTest, InitWithoutConfigFileUsesDefaults) {
    g_weighted_mean = 7;
    g_discard_bw_mis_match = 9;

    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());

    EXPECT_EQ(1, varn_wifihal_interface_initialized);
    ASSERT_NE(nullptr, client);
    ASSERT_NE(nullptr, listener);
    EXPECT_EQ(50, listener->stdevMultiplier());
    EXPECT_EQ(0u, req_id);
    EXPECT_EQ(7, g_weighted_mean);
    EXPECT_EQ(9u, g_discard_bw_mis_match);
    EXPECT_TRUE(capture_.contains(
            "[VARN-WIFIHAL-2.1.1.25] varn_wifihal_init: config file not available"))
            << capture_.dump();
    EXPECT_EQ(3, effectiveGlobalLogLevel(capture_));
    EXPECT_EQ(1u, sim().liveClients());
}

TEST_F(LifecycleTest, SecondInitWarnsAndDropsPointers) {
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    VARNClient* first_client = client;
    VARNClientListenerImpl* first_listener = listener;

    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_init());

    EXPECT_EQ(1, varn_wifihal_interface_initialized);
    EXPECT_EQ(nullptr, client);
    EXPECT_EQ(nullptr, listener);
    EXPECT_TRUE(capture_.contains(
            "varn_wifihal_init: VARN-WIFIHAL interface already initialized!"));
    // Without a client, ranging and cancel answer as if the interface were down.
    wifi_rtt_config config = validConfig();
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED,
              varn_wifihal_rtt_range_request(1, nullptr, 1, &config, {nullptr, nullptr}));
    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, varn_wifihal_rtt_range_cancel(1, nullptr, 1, &config.addr));
    EXPECT_TRUE(capture_.contains("Illegal rtt range request - interface not initialized"));
    EXPECT_TRUE(capture_.contains("varn_wifihal_rtt_range_cancel: - interface not initialized"));
    // The forgotten objects are still alive; release them here so the test leaks nothing.
    delete first_client;
    delete first_listener;
}

TEST_F(LifecycleTest, ConfigurationKeysReachTheirTargets) {
    const struct {
        const char* content;
        int log_level;
        int multiplier;
        int32_t weighted_mean;
        uint32_t bw_mismatch;
        bool fallback_logged;
    } kCases[] = {
            {"VARN_WIFIHAL_LOG_LEVEL = 5\nVARN_RTT_WEIGHTED_MEAN = 1\n"
             "VARN_WIFIHAL_STDEV_MULT = 35\nVARN_WIFIHAL_BW_MISMATCH = 1\n",
             5, 35, 1, 1, false},
            // The library's own key wins over the platform-wide one.
            {"VARN_LOG_LEVEL = 1\nVARN_WIFIHAL_LOG_LEVEL = 4\n", 4, 50, 0, 0, false},
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
        EXPECT_EQ(c.multiplier, listener->stdevMultiplier());
        EXPECT_EQ(c.weighted_mean, g_weighted_mean);
        EXPECT_EQ(c.bw_mismatch, g_discard_bw_mis_match);
        EXPECT_EQ(c.log_level, effectiveGlobalLogLevel(capture_));
        const std::string fallback =
                "varn_wifihal_init: VARN_WIFIHAL_LOG_LEVEL not foundset to varn log level " +
                std::to_string(c.log_level);
        EXPECT_EQ(c.fallback_logged, capture_.contains(fallback)) << capture_.dump();
    }
}

TEST_F(LifecycleTest, DebugLevelShowsSettingsAndVersion) {
    useConfig("VARN_WIFIHAL_LOG_LEVEL = 4\nVARN_WIFIHAL_BW_MISMATCH = 3\n");
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    EXPECT_TRUE(capture_.contains("varn_wifihal_init: VARN_WIFIHAL_BW_MISMATCH 3"));
    EXPECT_TRUE(capture_.contains(
            "[VARN-WIFIHAL-2.1.1.25] VARN_WIFIHAL_INTERFACE_VERSION: (VARN-WIFIHAL-2.1.1.25)"));
}

TEST_F(LifecycleTest, ClientCreationFailureLeavesInterfaceDown) {
    sim().failNextCreateInstance();

    EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, varn_wifihal_init());

    EXPECT_EQ(0, varn_wifihal_interface_initialized);
    EXPECT_EQ(nullptr, client);
    EXPECT_EQ(nullptr, listener);
    EXPECT_TRUE(capture_.contains("varn_wifihal_init: Could not create the VARNClient"));
    // A later attempt succeeds.
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_init());
}

TEST_F(LifecycleTest, DestroyReleasesEverythingInAnyState) {
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_destroy());
    EXPECT_EQ(0, varn_wifihal_interface_initialized);

    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    const wifi_rtt_event_handler handler{nullptr, nullptr};
    addRttRequestHandler(1, 1, handler);
    RspHandlerRecord scan{};
    addRspHandler(2, 2, VARN_REQ_BGSCAN_START, scan);
    const wifi_rtt_capabilities caps{1, 1, 1, 1, 1, 4, 0, 43};
    ASSERT_EQ(0, storeRttCapabilities(caps));

    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_destroy());

    EXPECT_EQ(0, varn_wifihal_interface_initialized);
    EXPECT_EQ(nullptr, client);
    EXPECT_EQ(nullptr, listener);
    EXPECT_EQ(nullptr, rttCachedCapabilities);
    EXPECT_TRUE(rttRequestHandlers.empty());
    EXPECT_TRUE(rspHandlers.empty());
    EXPECT_EQ(0u, sim().liveClients());
}

TEST_F(LifecycleTest, CallbackTableIsStaticAndUsableBeforeInit) {
    const varn_wifihal_cb_table_t* table = varn_wifihal_get_cb_table();
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(table, varn_wifihal_get_cb_table());
    EXPECT_EQ(&varn_wifihal_init, table->init);
    EXPECT_EQ(&varn_wifihal_destroy, table->destroy);
    EXPECT_EQ(&varn_wifihal_rtt_range_request, table->rtt_range_request);
    EXPECT_EQ(&varn_wifihal_rtt_range_cancel, table->rtt_range_cancel);
    EXPECT_EQ(nullptr, table->reserved_13);
    EXPECT_EQ(nullptr, table->reserved_14);
    EXPECT_EQ(nullptr, table->reserved_15);
    EXPECT_EQ(nullptr, table->reserved_16);
    EXPECT_EQ(nullptr, table->reserved_17);
    EXPECT_EQ(nullptr, table->reserved_18);

    EXPECT_EQ(WIFI_SUCCESS, table->init());
    EXPECT_EQ(1, varn_wifihal_interface_initialized);
    EXPECT_EQ(WIFI_SUCCESS, table->destroy());
    EXPECT_EQ(0, varn_wifihal_interface_initialized);
}

}  // namespace
}  // namespace wifihal_test
