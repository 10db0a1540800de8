// Capability, channel and responder queries and the location information,
// checked at the simulated service; the status table of every entry point
// that reports a service status.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

void onFull(wifi_request_id, wifi_scan_result*, unsigned) {}
void onEvent(wifi_request_id, wifi_scan_event) {}
void onFound(wifi_request_id, unsigned, wifi_scan_result*) {}
void onChange(wifi_request_id, unsigned, wifi_significant_change_result**) {}

wifi_cached_scan_results g_cached[4];

struct EntryPoint {
    const char* name;
    eVARNRequestType type;  // the request whose status the result reflects
    std::function<wifi_error()> call;
};

std::vector<EntryPoint> statusReportingEntryPoints() {
    static wifi_channel channels[8];
    static int count;
    static wifi_gscan_capabilities gscan;
    static wifi_rtt_responder responder;
    return {
            {"get_valid_channels", VARN_REQ_CHANNELS_SUPPORTED,
             [] { return varn_wifihal_get_valid_channels(nullptr, 2, 8, channels, &count); }},
            {"get_gscan_capabilities", VARN_REQ_GSCAN_CAPABILITIES,
             [] { return varn_wifihal_get_gscan_capabilities(nullptr, &gscan); }},
            {"enable_responder", VARN_REQ_ENABLE_RESPONDER,
             [] { return varn_wifihal_enable_responder(1, nullptr, {}, 5, &responder); }},
            {"start_gscan", VARN_REQ_BGSCAN_START,
             [] {
                 return varn_wifihal_start_gscan(1, nullptr, {}, {onFull, onEvent});
             }},
            {"stop_gscan", VARN_REQ_BGSCAN_STOP,
             [] { return varn_wifihal_stop_gscan(1, nullptr); }},
            {"get_cached_gscan_results", VARN_REQ_GET_CACHED_BGSCAN_RESULTS,
             [] { return varn_wifihal_get_cached_gscan_results(nullptr, 0, 4, g_cached, &count); }},
            {"set_bssid_hotlist", VARN_REQ_HOTLIST_SET,
             [] {
                 return varn_wifihal_set_bssid_hotlist(1, nullptr, {}, {onFound, onFound});
             }},
            {"reset_bssid_hotlist", VARN_REQ_HOTLIST_CLEAR,
             [] { return varn_wifihal_reset_bssid_hotlist(1); }},
            {"set_significant_change_handler", VARN_REQ_SIGNIFICANT_CHANGE_SET,
             [] {
                 return varn_wifihal_set_significant_change_handler(1, nullptr, {}, {onChange});
             }},
            {"reset_significant_change_handler", VARN_REQ_SIGNIFICANT_CHANGE_CLEAR,
             [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }},
    };
}

class CapabilityQueriesTest : public WifiHalTest {
  protected:
    void SetUp() override {
        WifiHalTest::SetUp();
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
        capture_.clear();
    }
};

TEST_F(CapabilityQueriesTest, ServiceStatusesMapToTheSameErrorsEverywhere) {
    // Status 0..11: 1..10 as the table says, anything else unknown.
    const int kExpected[12] = {-1, 0, -4, -2, -7, -1, -5, -3, -1, -8, -9, -1};
    wifi_rtt_responder info{};
    for (const EntryPoint& e : statusReportingEntryPoints()) {
        for (int status = 0; status < 12; ++status) {
            SCOPED_TRACE(std::string(e.name) + " status " + std::to_string(status));
            sim().setResponseStatus(e.type, static_cast<eVARNResponseStatus>(status));
            EXPECT_EQ(kExpected[status], e.call());
            // The responder query succeeds whatever the status.
            sim().setResponseStatus(VARN_REQ_RM_CHANNEL, static_cast<eVARNResponseStatus>(status));
            EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, &info));
        }
    }
}

TEST_F(CapabilityQueriesTest, EveryEntryPointRefusesWithoutAClient) {
    u32 bits = 0;
    wifi_rtt_capabilities caps{};
    wifi_lci_information lci{};
    wifi_lcr_information lcr{};
    std::vector<EntryPoint> all = statusReportingEntryPoints();
    all.push_back({"get_rtt_capabilities", VARN_REQ_INVALID,
                   [&] { return varn_wifihal_get_rtt_capabilities(nullptr, &caps); }});
    all.push_back({"get_varn_capabilities", VARN_REQ_INVALID,
                   [&] { return varn_wifihal_get_varn_capabilities(&bits); }});
    all.push_back({"get_responder_info", VARN_REQ_INVALID,
                   [&] { return varn_wifihal_get_responder_info(nullptr, nullptr); }});
    all.push_back({"disable_responder", VARN_REQ_INVALID,
                   [&] { return varn_wifihal_disable_responder(1, nullptr); }});
    all.push_back(
            {"set_lci", VARN_REQ_INVALID, [&] { return varn_wifihal_set_lci(1, nullptr, &lci); }});
    all.push_back(
            {"set_lcr", VARN_REQ_INVALID, [&] { return varn_wifihal_set_lcr(1, nullptr, &lcr); }});
    // Down, and up with the client dropped by a second init.
    for (bool flag : {false, true}) {
        varn_wifihal_destroy();
        varn_wifihal_interface_initialized = flag ? 1 : 0;
        for (const EntryPoint& e : all) {
            SCOPED_TRACE(std::string(e.name) + (flag ? " without client" : " down"));
            capture_.clear();
            EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, e.call());
            EXPECT_TRUE(capture_.contains(std::string("varn_wifihal_") + e.name +
                                          ": interface not initialized"))
                    << capture_.dump();
        }
    }
    varn_wifihal_interface_initialized = 0;
    EXPECT_EQ(0u, sim().requestCount());
    EXPECT_EQ(0u, req_id);
}

TEST_F(CapabilityQueriesTest, RttCapabilitiesAreAskedOnceThenCached) {
    wifi_rtt_capabilities first{}, second{};
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &first));
    EXPECT_EQ(1u, req_id);
    // Later answers of the service no longer matter.
    sim().setCapabilities(VARNCapabilities{});
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &second));

    EXPECT_EQ(1u, req_id);
    EXPECT_EQ(1u, sim().requestCount());
    EXPECT_EQ(0, memcmp(&first, &second, sizeof(first)));
    EXPECT_TRUE(
            capture_.contains("delivering cached capabilities: rtt_one_sided_supported(1) "
                              "rtt_ftm_supported(1)"));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_rtt_capabilities(nullptr, nullptr));
}

TEST_F(CapabilityQueriesTest, RttCapabilityRecord) {
    const struct {
        uint8_t ranging, bw;
        uint32_t scans;
        wifi_rtt_capabilities expected;
    } kCases[] = {
            {1, 0, 0x20, {1, 0, 1, 1, 0x5, 0x04, 1, 42}},
            {1, 1, 0x1f, {1, 0, 1, 1, 0x5, 0x0c, 0, 42}},
            {1, 2, 0x20, {1, 0, 1, 1, 0x5, 0x1c, 1, 42}},
            {1, 3, 0x20, {1, 0, 1, 1, 0x5, 0x3c, 1, 42}},
            {1, 5, 0x20, {1, 0, 1, 1, 0x5, 0x00, 1, 42}},
            {0, 3, 0x20, {0, 0, 0, 0, 0, 0, 0, 0}},  // no ranging: nothing at all
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << "bw " << int{c.bw} << " ranging " << int{c.ranging});
        varn_wifihal_destroy();
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        VARNCapabilities caps;
        caps.ranging_scan_supported = c.ranging;
        caps.one_sided_ranging_supported = 1;
        caps.bwSupport = c.bw;
        caps.preambleSupport = 0x5;
        caps.mcVersion = 42;
        caps.scans_supported = c.scans;
        sim().setCapabilities(caps);
        wifi_rtt_capabilities out;
        memset(&out, 0xee, sizeof(out));
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &out));
        EXPECT_EQ(0, memcmp(&c.expected, &out, sizeof(out)));
    }
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    varn_wifihal_destroy();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    wifi_rtt_capabilities out{};
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_rtt_capabilities(nullptr, &out));
    EXPECT_TRUE(capture_.contains("sendCapsRequest: failed to get capabilities"));
    EXPECT_EQ(nullptr, rttCachedCapabilities);
}

TEST_F(CapabilityQueriesTest, ServiceCapabilityBitsAndVersion) {
    const struct {
        uint8_t one, two, bg;
        u32 bits;
    } kCases[] = {{1, 0, 0, 0x1}, {0, 1, 0, 0x2}, {0, 0, 1, 0x4}, {1, 1, 1, 0x7}};
    for (const auto& c : kCases) {
        VARNCapabilities caps;
        caps.ranging_scan_supported = 1;
        caps.one_sided_ranging_supported = c.one;
        caps.dual_sided_ranging_supported_11mc = c.two;
        caps.bgscan_supported = c.bg;
        sim().setCapabilities(caps);
        u32 bits = 0xffffffff;
        EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_capabilities(&bits));
        EXPECT_EQ(c.bits, bits);
    }
    EXPECT_EQ(2u, capture_.count("BGSCAN SUPPORT DISABLED"));
    // The first answer also filled the RTT capability cache.
    wifi_rtt_capabilities cached{};
    ASSERT_TRUE(copyCachedRttCapabilities(&cached));
    EXPECT_EQ(1, cached.rtt_one_sided_supported);
    EXPECT_EQ(0, cached.rtt_ftm_supported);

    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_varn_capabilities(nullptr));
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    u32 bits = 0;
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_varn_capabilities(&bits));
    EXPECT_TRUE(capture_.contains("varn_wifihal_get_varn_capabilities: Got NULL rsp from VARN"));

    u16 major = 0, minor = 0, micro = 0;
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_version(&major, &minor, &micro));
    EXPECT_EQ((std::vector<u16>{2, 1, 1}), (std::vector<u16>{major, minor, micro}));
}

TEST_F(CapabilityQueriesTest, ValidChannels) {
    wifi_channel out[16];
    int count = -1;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 2, 16, out, &count));
    EXPECT_EQ(9, count);
    EXPECT_EQ(5180, out[0]);
    EXPECT_EQ(5825, out[8]);
    EXPECT_EQ(2, sim().lastRequest(VARN_REQ_CHANNELS_SUPPORTED).band);
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 1, 3, out, &count));
    EXPECT_EQ(3, count);
    EXPECT_EQ(3, sim().lastRequest(VARN_REQ_CHANNELS_SUPPORTED).max_channels);

    // A service answering with more than asked: the count is passed on, the
    // array is not written past its end.
    sim().answerNextWith(VARN_REQ_CHANNELS_SUPPORTED, [](const VARNRequest& r) {
        auto* rsp = new VARNChannelsSupportedResponse(r.getRequestId(), VARN_RSP_STATUS_SUCCESS);
        for (uint32_t f : {5180u, 5200u, 5220u}) rsp->getChannels().push_back(VARNChannel{f});
        return rsp;
    });
    out[2] = -7;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 2, 2, out, &count));
    EXPECT_EQ(3, count);
    EXPECT_EQ(5200, out[1]);
    EXPECT_EQ(-7, out[2]);

    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS,
              varn_wifihal_get_valid_channels(nullptr, 2, 2, out, nullptr));
    sim().answerNextWithNull(VARN_REQ_CHANNELS_SUPPORTED);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_valid_channels(nullptr, 2, 2, out, &count));
    EXPECT_TRUE(capture_.contains("get_valid_channels: failed to get supported channels"));
}

TEST_F(CapabilityQueriesTest, GscanCapabilitiesTakeTheBatchingLimits) {
    static_assert(sizeof(VARNGscanCapabilities) == 12 * sizeof(int32_t), "twelve fields");
    int32_t fields[12];
    for (int i = 0; i < 12; ++i) fields[i] = 100 + i;
    VARNGscanCapabilities g;
    memcpy(&g, fields, sizeof(g));
    sim().setGscanCapabilities(g);
    VARNDynamicCapabilities d;
    d.lpBgscanMaxScanCacheSize = 7;
    d.lpBgscanMaxApCachePerScan = 8;
    d.lpBgscanMaxScanReportThresh = 9;
    for (uint32_t batching : {0u, 1u}) {
        d.lpBgscanBatchingSupported = batching;
        sim().setDynamicCapabilities(d);
        wifi_gscan_capabilities out{};
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_gscan_capabilities(nullptr, &out));
        int got[12];
        memcpy(got, &out, sizeof(got));
        for (int i = 0; i < 12; ++i) {
            const bool overridden = batching != 0 && (i == 0 || i == 2 || i == 4);
            EXPECT_EQ(overridden ? 7 + i / 2 : 100 + i, got[i]) << "field " << i;
        }
    }
    EXPECT_EQ(60u, sim().lastRequest(VARN_REQ_CAPABILITY_SUBSCRIPTION).period_s);

    wifi_gscan_capabilities out{};
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_gscan_capabilities(nullptr, nullptr));
    sim().answerNextWithNull(VARN_REQ_CAPABILITY_SUBSCRIPTION);
    EXPECT_EQ(WIFI_ERROR_OUT_OF_MEMORY, varn_wifihal_get_gscan_capabilities(nullptr, &out));
    sim().answerNextWithNull(VARN_REQ_GSCAN_CAPABILITIES);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_gscan_capabilities(nullptr, &out));
}

TEST_F(CapabilityQueriesTest, ResponderChannelAndPreamble) {
    const int kPreamble[5] = {1, 2, 4, 8, 1};
    for (uint32_t code = 0; code < 5; ++code) {
        sim().setResponderChannel({3, 5500, 5530, 5610, code});
        wifi_rtt_responder out{};
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, &out));
        EXPECT_EQ(kPreamble[code], halInt(out.preamble));
        EXPECT_EQ(3, halInt(out.channel.width));
        EXPECT_EQ(5610, out.channel.center_freq1);
    }
    EXPECT_TRUE(capture_.contains("Preamble default(WIFI_RTT_PREAMBLE_LEGACY) for input(4)"));
    EXPECT_TRUE(capture_.contains("[VARNRequest] VARNRMChannelRequest"));
    EXPECT_TRUE(capture_.contains("[VARNRequest] ~VARNRMChannelRequest"));
    EXPECT_EQ(VARN_REQ_RM_CHANNEL, sim().lastRequest(VARN_REQ_RM_CHANNEL).type);

    // Enable follows the hint; a failure status still comes with the channel.
    sim().setResponseStatus(VARN_REQ_ENABLE_RESPONDER, VARN_RSP_STATUS_INVALID_ARGS);
    wifi_channel_info hint{WIFI_CHAN_WIDTH_80, 5745, 5775, 0};
    setHalInt(hint.width, 0x102);  // narrowed to 8 bits on the way
    wifi_rtt_responder out{};
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_enable_responder(9, nullptr, hint, 30, &out));
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_ENABLE_RESPONDER);
    EXPECT_EQ(30u, sent.max_duration_s);
    EXPECT_EQ(2, sent.responder_channel.width);
    EXPECT_EQ(5775, sent.responder_channel.center_freq0);
    EXPECT_EQ(5745, out.channel.center_freq);
    EXPECT_EQ(2, halInt(out.channel.width));

    for (eVARNRequestType type : {VARN_REQ_RM_CHANNEL, VARN_REQ_ENABLE_RESPONDER}) {
        sim().answerNextWithNull(type);
    }
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_responder_info(nullptr, &out));
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_enable_responder(9, nullptr, hint, 30, &out));
    EXPECT_TRUE(capture_.contains("get_responder_info: failed to get channel info"));
    EXPECT_TRUE(capture_.contains("enable_responder: failed to get RTT responder channel info"));
}

TEST_F(CapabilityQueriesTest, FireAndForgetRequestsReportRefusal) {
    wifi_lci_information lci{-1234567890123,      987654321, -50, 10, 11, 12,
                             WIFI_MOTION_UNKNOWN, -16,       64,  3};
    wifi_lcr_information lcr{{'D', 'E'}, 3, "abc"};
    const struct {
        const char* name;
        eVARNRequestType type;
        std::function<wifi_error()> call;
    } kCases[] = {
            {"disable_responder: failed to send disable responder", VARN_REQ_DISABLE_RESPONDER,
             [] { return varn_wifihal_disable_responder(1, nullptr); }},
            {"set_lci: failed to send the request", VARN_REQ_SET_LCI_LOCATION_INFO,
             [&] { return varn_wifihal_set_lci(1, nullptr, &lci); }},
            {"set_lcr: failed to send the request", VARN_REQ_SET_LCR_LOCATION_INFO,
             [&] { return varn_wifihal_set_lcr(1, nullptr, &lcr); }},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(WIFI_SUCCESS, c.call());
        EXPECT_EQ(varn_sim::Call::kSend, sim().lastRequest(c.type).call);
        sim().refuseNext(c.type);
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, c.call());
        EXPECT_TRUE(capture_.contains(c.name));
    }
    EXPECT_TRUE(capture_.contains("[VARNRequest] VARNDisableResponder"));
    EXPECT_TRUE(capture_.contains("[VARNRequest] ~VARNDisableResponderRequest"));
}

TEST_F(CapabilityQueriesTest, LocationInformationIsCopiedFieldByField) {
    const struct {
        int32_t motion;
        eVARNMotionPattern expected;
    } kMotion[] = {{0, VARN_MOTION_NOT_EXPECTED},
                   {1, VARN_MOTION_EXPECTED},
                   {7, VARN_MOTION_UNKNOWN},
                   {0x101, VARN_MOTION_EXPECTED}};
    for (const auto& m : kMotion) {
        wifi_lci_information lci{-1234567890123, 987654321, -50, 10, 11, 12, {}, -16, 64, 3};
        setHalInt(lci.motion_pattern, m.motion);
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_lci(1, nullptr, &lci));
        const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_SET_LCI_LOCATION_INFO);
        EXPECT_EQ(m.expected, sent.lci.motion_pattern) << m.motion;
        EXPECT_EQ(-1234567890123, sent.lci.latitude);
        EXPECT_EQ(987654321, sent.lci.longitude);
        EXPECT_EQ((std::vector<int>{-50, 10, 11, 12, -16, 64, 3}),
                  (std::vector<int>{sent.lci.altitude, sent.lci.latitude_unc,
                                    sent.lci.longitude_unc, sent.lci.altitude_unc, sent.lci.floor,
                                    sent.lci.height_above_floor, sent.lci.height_unc}));
        EXPECT_EQ(1u, sent.usage_rules);
    }
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lci(1, nullptr, nullptr));
    EXPECT_TRUE(capture_.contains("varn_wifihal_set_lci: bad input"));

    for (int length : {0, 5, 256}) {
        wifi_lcr_information lcr{{'U', 'S'}, length, {}};
        memset(lcr.civic_info, 'x', sizeof(lcr.civic_info));  // no terminating NUL
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_lcr(1, nullptr, &lcr));
        const VARNLcrInformation sent = sim().lastRequest(VARN_REQ_SET_LCR_LOCATION_INFO).lcr;
        EXPECT_EQ(length, sent.length);
        EXPECT_EQ('S', sent.country_code[1]);
        EXPECT_EQ(std::string(length, 'x') + std::string(256 - length, '\0'),
                  std::string(sent.civic_info, 256));
    }
    wifi_lcr_information lcr{{'U', 'S'}, -1, {}};
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lcr(1, nullptr, &lcr));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lcr(1, nullptr, nullptr));
    EXPECT_EQ(2u, capture_.count("varn_wifihal_set_lcr: bad input"));
    lcr.length = 257;
    EXPECT_DEATH(varn_wifihal_set_lcr(1, nullptr, &lcr), "");
}

}  // namespace
}  // namespace wifihal_test
