// Capability, channel and responder queries and the location information,
// checked at the simulated service; the refusals and the status table of
// every entry point; the callback table.
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

constexpr const char* kNoStatus = "failed to get status from wifi driver";
constexpr const char* kNullRsp = "NULL rsp from wifi driver";
int g_count;  // the count output of the channel and cached-scan queries

struct EntryPoint {
    const char* name;
    eVARNRequestType type;     // the request whose answer's status is returned
    const char* null_message;  // logged when that request is not answered
    // Result of a success answer of another kind, and the count it leaves.
    int foreign_result, foreign_count;
    std::function<wifi_error()> call;
};

std::vector<EntryPoint> statusReportingEntryPoints() {
    static wifi_channel channels[8];
    static wifi_gscan_capabilities gscan;
    static wifi_rtt_responder responder;
    static wifi_cached_scan_results cached[2];
    return {
            {"get_valid_channels", VARN_REQ_CHANNELS_SUPPORTED, "failed to get supported channels",
             0, 0, [] { return varn_wifihal_get_valid_channels(nullptr, 2, 8, channels, &g_count); }},
            {"get_gscan_capabilities", VARN_REQ_GSCAN_CAPABILITIES,
             "failed to get bgscan capabilities", 0, -1,
             [] { return varn_wifihal_get_gscan_capabilities(nullptr, &gscan); }},
            {"enable_responder", VARN_REQ_ENABLE_RESPONDER,
             "failed to get RTT responder channel info", 0, -1,
             [] { return varn_wifihal_enable_responder(1, nullptr, {}, 5, &responder); }},
            {"start_gscan", VARN_REQ_BGSCAN_START, kNoStatus, -1, -1,
             [] { return varn_wifihal_start_gscan(1, nullptr, {}, {onFull, onEvent}); }},
            {"stop_gscan", VARN_REQ_BGSCAN_STOP, kNoStatus, -1, -1,
             [] { return varn_wifihal_stop_gscan(1, nullptr); }},
            {"get_cached_gscan_results", VARN_REQ_GET_CACHED_BGSCAN_RESULTS, kNoStatus, 0, 0,
             [] { return varn_wifihal_get_cached_gscan_results(nullptr, 0, 2, cached, &g_count); }},
            {"set_bssid_hotlist", VARN_REQ_HOTLIST_SET, kNoStatus, -1, -1,
             [] { return varn_wifihal_set_bssid_hotlist(1, nullptr, {}, {onFound, onFound}); }},
            {"reset_bssid_hotlist", VARN_REQ_HOTLIST_CLEAR, kNullRsp, -1, -1,
             [] { return varn_wifihal_reset_bssid_hotlist(1); }},
            {"set_significant_change_handler", VARN_REQ_SIGNIFICANT_CHANGE_SET, kNullRsp, -1, -1,
             [] { return varn_wifihal_set_significant_change_handler(1, nullptr, {}, {onChange}); }},
            {"reset_significant_change_handler", VARN_REQ_SIGNIFICANT_CHANGE_CLEAR, kNoStatus, -1,
             -1, [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }},
    };
}

class CapabilityQueriesTest : public WifiHalUpTest {
  protected:
    // Asks for the RTT capabilities of a service reporting `caps`, from a fresh interface.
    wifi_rtt_capabilities freshRttCapabilities(const VARNCapabilities& caps) {
        varn_wifihal_destroy();
        EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_init());
        vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
        sim().setCapabilities(caps);
        wifi_rtt_capabilities out;
        memset(&out, 0xee, sizeof(out));
        EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &out));
        return out;
    }
};

TEST_F(CapabilityQueriesTest, ServiceAnswersMapToTheSameErrorsEverywhere) {
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
        sim().setResponseStatus(e.type, VARN_RSP_STATUS_SUCCESS);
        SCOPED_TRACE(e.name);
        capture_.clear();
        sim().answerNextWithNull(e.type);
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, e.call());
        EXPECT_TRUE(
                capture_.contains(std::string("varn_wifihal_") + e.name + ": " + e.null_message));
        // A successful answer of another kind: no status, or no data.
        capture_.clear();
        sim().answerNextWith(e.type, [](const VARNRequest& r) {
            return new VARNResponse(r.getRequestId(), VARN_RSP_INVALID, VARN_RSP_STATUS_SUCCESS);
        });
        g_count = -1;
        EXPECT_EQ(e.foreign_result, e.call());
        EXPECT_EQ(e.foreign_count, g_count);
        EXPECT_EQ(e.foreign_result != 0, capture_.contains(kNoStatus));
    }
}

TEST_F(CapabilityQueriesTest, EveryEntryPointRefusesWithoutAClient) {
    u32 bits = 0;
    wifi_rtt_capabilities caps{};
    wifi_lci_information lci{};
    wifi_lcr_information lcr{};
    std::vector<std::pair<std::string, std::function<wifi_error()>>> all = {
            {"get_rtt_capabilities", [&] { return varn_wifihal_get_rtt_capabilities(nullptr, &caps); }},
            {"get_varn_capabilities", [&] { return varn_wifihal_get_varn_capabilities(&bits); }},
            {"get_responder_info", [] { return varn_wifihal_get_responder_info(nullptr, nullptr); }},
            {"disable_responder", [] { return varn_wifihal_disable_responder(1, nullptr); }},
            {"set_lci", [&] { return varn_wifihal_set_lci(1, nullptr, &lci); }},
            {"set_lcr", [&] { return varn_wifihal_set_lcr(1, nullptr, &lcr); }}};
    for (const EntryPoint& e : statusReportingEntryPoints()) all.push_back({e.name, e.call});
    // Down, and up with the client dropped by a second init.
    for (uint8_t flag : {0, 1}) {
        varn_wifihal_destroy();
        varn_wifihal_interface_initialized = flag;
        for (const auto& e : all) {
            SCOPED_TRACE(e.first + " flag " + std::to_string(flag));
            capture_.clear();
            EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, e.second());
            EXPECT_TRUE(capture_.contains("varn_wifihal_" + e.first + ": interface not initialized"));
        }
    }
    varn_wifihal_interface_initialized = 0;
    EXPECT_EQ(0u, sim().requestCount());
    EXPECT_EQ(0u, req_id);
}

TEST_F(CapabilityQueriesTest, RttCapabilitiesAreAskedOnceThenCached) {
    VARNCapabilities caps = sim().capabilities();
    const wifi_rtt_capabilities first = freshRttCapabilities(caps);
    sim().setCapabilities(VARNCapabilities{});  // later answers no longer matter
    wifi_rtt_capabilities second{};
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &second));
    EXPECT_EQ(1u, req_id);
    EXPECT_EQ(1u, sim().requestCount());
    EXPECT_EQ(0, memcmp(&first, &second, sizeof(first)));
    EXPECT_TRUE(capture_.contains("delivering cached capabilities: rtt_one_sided_supported(1) "
                                  "rtt_ftm_supported(1)"));
    EXPECT_TRUE(capture_.contains("printCapabilitiesInfo: one_sided_ranging_supported(1) "
                                  "dual_sided_ranging_supported_11mc(1) bwSupport(0x2)"));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_rtt_capabilities(nullptr, nullptr));

    // Highest bandwidth code 0..3 (and an unknown 5); the responder bit; no ranging at all.
    const struct {
        uint8_t ranging, bw;
        uint32_t scans;
        wifi_rtt_capabilities expected;
    } kCases[] = {
            {1, 0, 0x20, {1, 0, 1, 1, 0x5, 0x04, 1, 42}}, {1, 1, 0x1f, {1, 0, 1, 1, 0x5, 0x0c, 0, 42}},
            {1, 2, 0x20, {1, 0, 1, 1, 0x5, 0x1c, 1, 42}}, {1, 3, 0x20, {1, 0, 1, 1, 0x5, 0x3c, 1, 42}},
            {1, 5, 0x20, {1, 0, 1, 1, 0x5, 0x00, 1, 42}}, {0, 3, 0x20, {0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& c : kCases) {
        caps = VARNCapabilities{};
        caps.ranging_scan_supported = c.ranging;
        caps.one_sided_ranging_supported = 1;
        caps.bwSupport = c.bw;
        caps.preambleSupport = 0x5;
        caps.mcVersion = 42;
        caps.scans_supported = c.scans;
        const wifi_rtt_capabilities out = freshRttCapabilities(caps);
        EXPECT_EQ(0, memcmp(&c.expected, &out, sizeof(out))) << int{c.bw} << int{c.ranging};
    }
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    varn_wifihal_destroy();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_rtt_capabilities(nullptr, &second));
    EXPECT_TRUE(capture_.contains("sendCapsRequest: failed to get capabilities"));
    EXPECT_EQ(nullptr, rttCachedCapabilities);
}

TEST_F(CapabilityQueriesTest, ServiceCapabilityBitsAndVersion) {
    const struct {
        uint8_t one, two, bg;
        u32 bits;
    } kCases[] = {{1, 0, 1, 0x5}, {0, 1, 0, 0x2}, {0, 0, 0, 0x0}};
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
    // The first answer also filled the RTT capability cache; later ones left it.
    wifi_rtt_capabilities cached{};
    ASSERT_TRUE(copyCachedRttCapabilities(&cached));
    EXPECT_EQ((std::vector<int>{1, 0}),
              (std::vector<int>{cached.rtt_one_sided_supported, cached.rtt_ftm_supported}));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_varn_capabilities(nullptr));
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    u32 bits = 0;
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_varn_capabilities(&bits));
    EXPECT_TRUE(capture_.contains("varn_wifihal_get_varn_capabilities: Got NULL rsp from VARN"));

    u16 version[3] = {};
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_version(&version[0], &version[1], &version[2]));
    EXPECT_EQ((std::vector<u16>{2, 1, 1}), std::vector<u16>(version, version + 3));
}

TEST_F(CapabilityQueriesTest, ValidChannels) {
    wifi_channel out[16];
    int count = -1;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 2, 16, out, &count));
    EXPECT_EQ(9, count);
    EXPECT_EQ((std::vector<int>{5180, 5825}), (std::vector<int>{out[0], out[8]}));
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 1, 3, out, &count));
    EXPECT_EQ(3, count);
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_CHANNELS_SUPPORTED);
    EXPECT_EQ((std::vector<int>{1, 3}), (std::vector<int>{sent.band, sent.max_channels}));
    // A service answering with more than asked: the count is passed on, the
    // array is not written past its end.
    for (int max : {2, -1}) {
        sim().answerNextWith(VARN_REQ_CHANNELS_SUPPORTED, [](const VARNRequest& r) {
            auto* rsp = new VARNChannelsSupportedResponse(r.getRequestId(), VARN_RSP_STATUS_SUCCESS);
            for (uint32_t f : {5180u, 5200u, 5220u}) rsp->getChannels().push_back(VARNChannel{f});
            return rsp;
        });
        out[0] = out[1] = out[2] = -7;
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 2, max, out, &count));
        EXPECT_EQ(3, count);
        EXPECT_EQ((std::vector<int>{max > 0 ? 5180 : -7, max > 1 ? 5200 : -7, -7}),
                  std::vector<int>(out, out + 3));
    }
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_valid_channels(nullptr, 2, 2, out, nullptr));
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
}

TEST_F(CapabilityQueriesTest, ResponderChannelAndPreamble) {
    const int kPreamble[5] = {1, 2, 4, 8, 1};
    wifi_rtt_responder out{};
    for (uint32_t code = 0; code < 5; ++code) {
        sim().setResponderChannel({3, 5500, 5530, 5610, code});
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, &out));
        EXPECT_EQ((std::vector<int>{kPreamble[code], 3, 5500, 5530, 5610}),
                  (std::vector<int>{halInt(out.preamble), halInt(out.channel.width),
                                    out.channel.center_freq, out.channel.center_freq0,
                                    out.channel.center_freq1}));
    }
    EXPECT_TRUE(capture_.contains("Preamble default(WIFI_RTT_PREAMBLE_LEGACY) for input(4)"));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, nullptr));

    // Enable follows the hint; a failure status still comes with the channel.
    sim().setResponseStatus(VARN_REQ_ENABLE_RESPONDER, VARN_RSP_STATUS_INVALID_ARGS);
    wifi_channel_info hint{WIFI_CHAN_WIDTH_80, 5745, 5775, 0};
    setHalInt(hint.width, 0x102);  // narrowed to 8 bits on the way
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_enable_responder(9, nullptr, hint, 30, &out));
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_ENABLE_RESPONDER);
    EXPECT_EQ((std::vector<int>{30, 2, 5745, 5775, 2, 5745}),
              (std::vector<int>{static_cast<int>(sent.max_duration_s), sent.responder_channel.width,
                                sent.responder_channel.center_freq,
                                sent.responder_channel.center_freq0, halInt(out.channel.width),
                                out.channel.center_freq}));
    sim().answerNextWithNull(VARN_REQ_RM_CHANNEL);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_responder_info(nullptr, &out));
    EXPECT_TRUE(capture_.contains("get_responder_info: failed to get channel info"));
}

TEST_F(CapabilityQueriesTest, FireAndForgetRequestsReportRefusal) {
    wifi_lci_information lci{};
    wifi_lcr_information lcr{};
    const struct {
        const char* message;
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
        SCOPED_TRACE(c.message);
        EXPECT_EQ(WIFI_SUCCESS, c.call());
        EXPECT_EQ(varn_sim::Call::kSend, sim().lastRequest(c.type).call);
        sim().refuseNext(c.type);
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, c.call());
        EXPECT_TRUE(capture_.contains(c.message));
    }
}

TEST_F(CapabilityQueriesTest, LocationInformationIsCopiedFieldByField) {
    wifi_lci_information lci{-1234567890123, 987654321, -50, 10, 11, 12, {}, -16, 64, 3};
    // Motion pattern from the low byte: 0..2 kept, anything else unknown.
    const int kMotion[][2] = {{0, 0}, {1, 1}, {2, 2}, {7, 2}, {0x101, 1}};
    for (const auto& m : kMotion) {
        setHalInt(lci.motion_pattern, m[0]);
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_lci(1, nullptr, &lci));
        EXPECT_EQ(m[1], sim().lastRequest(VARN_REQ_SET_LCI_LOCATION_INFO).lci.motion_pattern);
    }
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_SET_LCI_LOCATION_INFO);
    const VARNLciInformation& l = sent.lci;
    EXPECT_EQ((std::vector<int64_t>{-1234567890123, 987654321, -50, 10, 11, 12, -16, 64, 3, 1}),
              (std::vector<int64_t>{l.latitude, l.longitude, l.altitude, l.latitude_unc,
                                    l.longitude_unc, l.altitude_unc, l.floor, l.height_above_floor,
                                    l.height_unc, sent.usage_rules}));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lci(1, nullptr, nullptr));

    for (int length : {0, 256}) {
        wifi_lcr_information lcr{{'U', 'S'}, length, {}};
        memset(lcr.civic_info, 'x', sizeof(lcr.civic_info));  // no terminating NUL
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_lcr(1, nullptr, &lcr));
        const VARNLcrInformation got = sim().lastRequest(VARN_REQ_SET_LCR_LOCATION_INFO).lcr;
        EXPECT_EQ(length, got.length);
        EXPECT_EQ("US", std::string(got.country_code, 2));
        EXPECT_EQ(std::string(length, 'x') + std::string(256 - length, '\0'),
                  std::string(got.civic_info, 256));
    }
    // The civic text is logged as far as its 256 bytes go.
    EXPECT_TRUE(capture_.contains("civic_info(" + std::string(256, 'x') + ")"));
    wifi_lcr_information lcr{{'U', 'S'}, -1, {}};
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lcr(1, nullptr, &lcr));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lcr(1, nullptr, nullptr));
    EXPECT_EQ(2u, capture_.count("varn_wifihal_set_lcr: bad input"));
    lcr.length = 257;
    EXPECT_DEATH(varn_wifihal_set_lcr(1, nullptr, &lcr), "");
}

TEST(CallbackTableTest, EverySlotButThirteenToEighteenIsItsEntryPoint) {
    using Fn = void (*)();
    auto f = [](auto entry_point) { return reinterpret_cast<Fn>(entry_point); };
    const Fn kExpected[23] = {
            f(varn_wifihal_init), f(varn_wifihal_destroy), f(varn_wifihal_get_rtt_capabilities),
            f(varn_wifihal_rtt_range_request), f(varn_wifihal_rtt_range_cancel),
            f(varn_wifihal_get_varn_version), f(varn_wifihal_get_varn_capabilities),
            f(varn_wifihal_get_valid_channels), f(varn_wifihal_get_gscan_capabilities),
            f(varn_wifihal_start_gscan), f(varn_wifihal_stop_gscan),
            f(varn_wifihal_get_cached_gscan_results), nullptr, nullptr, nullptr, nullptr, nullptr,
            nullptr, f(varn_wifihal_set_lci), f(varn_wifihal_set_lcr),
            f(varn_wifihal_get_responder_info), f(varn_wifihal_enable_responder),
            f(varn_wifihal_disable_responder)};
    Fn slots[23];
    memcpy(slots, varn_wifihal_get_cb_table(), sizeof(slots));
    for (int i = 0; i < 23; ++i) EXPECT_EQ(kExpected[i], slots[i]) << "slot " << i + 1;
}

}  // namespace
}  // namespace wifihal_test
