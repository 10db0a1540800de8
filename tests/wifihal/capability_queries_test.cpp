// Capability, channel, responder and location entry points, checked at the
// simulated service; the refusals and status codes of every entry point.
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

enum class Kind { kQuery, kStatus, kFireAndForget };
struct EntryPoint {
    const char* name;
    Kind kind;
    eVARNRequestType type;  // the request whose answer is returned, or whose refusal
    const char* message;    // is logged with this (status: when not answered)
    std::function<wifi_error()> call;
};

std::vector<EntryPoint> entryPoints() {
    static wifi_channel channels[8];
    static wifi_gscan_capabilities gscan;
    static wifi_rtt_responder responder;
    static wifi_cached_scan_results cached[2];
    static int count;
    static wifi_rtt_capabilities caps;
    static u32 bits;
    static wifi_lci_information lci;
    static wifi_lcr_information lcr;
    const Kind kS = Kind::kStatus, kF = Kind::kFireAndForget, kQ = Kind::kQuery;
    return {
            {"get_valid_channels", kS, VARN_REQ_CHANNELS_SUPPORTED,
             "failed to get supported channels",
             [] { return varn_wifihal_get_valid_channels(nullptr, 2, 8, channels, &count); }},
            {"get_gscan_capabilities", kS, VARN_REQ_GSCAN_CAPABILITIES,
             "failed to get bgscan capabilities",
             [] { return varn_wifihal_get_gscan_capabilities(nullptr, &gscan); }},
            {"enable_responder", kS, VARN_REQ_ENABLE_RESPONDER,
             "failed to get RTT responder channel info",
             [] { return varn_wifihal_enable_responder(1, nullptr, {}, 5, &responder); }},
            {"start_gscan", kS, VARN_REQ_BGSCAN_START, kNoStatus,
             [] { return varn_wifihal_start_gscan(1, nullptr, {}, {onFull, onEvent}); }},
            {"stop_gscan", kS, VARN_REQ_BGSCAN_STOP, kNoStatus,
             [] { return varn_wifihal_stop_gscan(1, nullptr); }},
            {"get_cached_gscan_results", kS, VARN_REQ_GET_CACHED_BGSCAN_RESULTS, kNoStatus,
             [] { return varn_wifihal_get_cached_gscan_results(nullptr, 0, 2, cached, &count); }},
            {"set_bssid_hotlist", kS, VARN_REQ_HOTLIST_SET, kNoStatus,
             [] { return varn_wifihal_set_bssid_hotlist(1, nullptr, {}, {onFound, onFound}); }},
            {"reset_bssid_hotlist", kS, VARN_REQ_HOTLIST_CLEAR, kNullRsp,
             [] { return varn_wifihal_reset_bssid_hotlist(1); }},
            {"set_significant_change_handler", kS, VARN_REQ_SIGNIFICANT_CHANGE_SET, kNullRsp,
             [] { return varn_wifihal_set_significant_change_handler(1, nullptr, {}, {onChange}); }},
            {"reset_significant_change_handler", kS, VARN_REQ_SIGNIFICANT_CHANGE_CLEAR, kNoStatus,
             [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }},
            {"disable_responder", kF, VARN_REQ_DISABLE_RESPONDER,
             "failed to send disable responder",
             [] { return varn_wifihal_disable_responder(1, nullptr); }},
            {"set_lci", kF, VARN_REQ_SET_LCI_LOCATION_INFO, "failed to send the request",
             [] { return varn_wifihal_set_lci(1, nullptr, &lci); }},
            {"set_lcr", kF, VARN_REQ_SET_LCR_LOCATION_INFO, "failed to send the request",
             [] { return varn_wifihal_set_lcr(1, nullptr, &lcr); }},
            {"get_rtt_capabilities", kQ, VARN_REQ_CAPABILITY, nullptr,
             [] { return varn_wifihal_get_rtt_capabilities(nullptr, &caps); }},
            {"get_varn_capabilities", kQ, VARN_REQ_CAPABILITY, nullptr,
             [] { return varn_wifihal_get_varn_capabilities(&bits); }},
            {"get_responder_info", kQ, VARN_REQ_RM_CHANNEL, nullptr,
             [] { return varn_wifihal_get_responder_info(nullptr, nullptr); }},
    };
}

class CapabilityQueriesTest : public WifiHalUpTest {
  protected:
    // The RTT capabilities of a service reporting `caps`, asked from a fresh interface.
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
    for (const EntryPoint& e : entryPoints()) {
        SCOPED_TRACE(e.name);
        capture_.clear();
        if (e.kind == Kind::kFireAndForget) {  // success unless the send is refused
            EXPECT_EQ(WIFI_SUCCESS, e.call());
            EXPECT_EQ(varn_sim::Call::kSend, sim().lastRequest(e.type).call);
            sim().refuseNext(e.type);
            EXPECT_EQ(WIFI_ERROR_UNKNOWN, e.call());
            EXPECT_TRUE(capture_.contains(std::string(e.name) + ": " + e.message));
        }
        if (e.kind != Kind::kStatus) continue;
        for (int status = 0; status < 12; ++status) {
            SCOPED_TRACE(status);
            sim().setResponseStatus(e.type, static_cast<eVARNResponseStatus>(status));
            EXPECT_EQ(kExpected[status], e.call());
            // The responder query succeeds whatever the status.
            sim().setResponseStatus(VARN_REQ_RM_CHANNEL, static_cast<eVARNResponseStatus>(status));
            EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, &info));
        }
        sim().setResponseStatus(e.type, VARN_RSP_STATUS_SUCCESS);
        sim().answerNextWithNull(e.type);
        EXPECT_EQ(WIFI_ERROR_UNKNOWN, e.call());
        EXPECT_TRUE(capture_.contains(std::string("varn_wifihal_") + e.name + ": " + e.message));
    }
}

TEST_F(CapabilityQueriesTest, EveryEntryPointRefusesWithoutAClient) {
    for (uint8_t flag : {0, 1}) {  // down, and up with the client dropped by a second init
        varn_wifihal_destroy();
        varn_wifihal_interface_initialized = flag;
        for (const EntryPoint& e : entryPoints()) {
            SCOPED_TRACE(std::string(e.name) + " flag " + std::to_string(flag));
            capture_.clear();
            EXPECT_EQ(WIFI_ERROR_UNINITIALIZED, e.call());
            EXPECT_TRUE(capture_.contains(std::string("varn_wifihal_") + e.name +
                                          ": interface not initialized"));
        }
    }
    varn_wifihal_interface_initialized = 0;
    EXPECT_EQ(0u, sim().requestCount());
    EXPECT_EQ(0u, req_id);
}

TEST_F(CapabilityQueriesTest, CapabilitiesOfTheService) {
    // RTT capabilities: highest bandwidth code 0..3 (and an unknown 5), the
    // responder bit, no ranging at all; the service's bits: one-sided,
    // two-sided, background scan.
    const struct {
        VARNCapabilities caps;
        wifi_rtt_capabilities rtt;
        u32 bits;
    } kCases[] = {
            {{0, 1, 0, 1, 0, 1, 0, 5, 42, 0x20}, {1, 0, 1, 1, 5, 0x04, 1, 42}, 0x5},
            {{0, 1, 0, 0, 1, 0, 1, 5, 42, 0x1f}, {0, 1, 1, 1, 5, 0x0c, 0, 42}, 0x2},
            {{0, 1, 0, 1, 1, 0, 2, 5, 42, 0x20}, {1, 1, 1, 1, 5, 0x1c, 1, 42}, 0x3},
            {{0, 1, 0, 0, 0, 0, 3, 5, 42, 0x20}, {0, 0, 1, 1, 5, 0x3c, 1, 42}, 0x0},
            {{0, 1, 0, 1, 0, 0, 5, 5, 42, 0x20}, {1, 0, 1, 1, 5, 0x00, 1, 42}, 0x1},
            {{0, 0, 0, 1, 1, 1, 3, 5, 42, 0x20}, {0, 0, 0, 0, 0, 0, 0, 0}, 0x7},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << "bw " << int{c.caps.bwSupport} << " bits " << c.bits);
        const wifi_rtt_capabilities out = freshRttCapabilities(c.caps);
        EXPECT_EQ(0, memcmp(&c.rtt, &out, sizeof(out)));
        u32 bits = 0xffffffff;
        EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_capabilities(&bits));
        EXPECT_EQ(c.bits, bits);
    }
    // The service's bits also fill an empty RTT capability cache.
    varn_wifihal_destroy();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    u32 bits = 0;
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_capabilities(&bits));
    wifi_rtt_capabilities cached{};
    ASSERT_TRUE(copyCachedRttCapabilities(&cached));
    EXPECT_EQ(0, memcmp(&kCases[5].rtt, &cached, sizeof(cached)));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_varn_capabilities(nullptr));
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_varn_capabilities(&bits));
    u16 version[3] = {};
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_version(&version[0], &version[1], &version[2]));
    EXPECT_EQ((std::vector<u16>{2, 1, 1}), std::vector<u16>(version, version + 3));
}

TEST_F(CapabilityQueriesTest, RttCapabilitiesAreAskedOnceThenCached) {
    const wifi_rtt_capabilities first = freshRttCapabilities(sim().capabilities());
    sim().setCapabilities(VARNCapabilities{});  // later answers no longer matter
    wifi_rtt_capabilities second{};
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &second));
    EXPECT_EQ(1u, sim().requestCount());
    EXPECT_EQ(0, memcmp(&first, &second, sizeof(first)));
    EXPECT_TRUE(capture_.contains("printCapabilitiesInfo: one_sided_ranging_supported(1) "
                                  "dual_sided_ranging_supported_11mc(1) bwSupport(0x2)"));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_rtt_capabilities(nullptr, nullptr));
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    varn_wifihal_destroy();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_rtt_capabilities(nullptr, &second));
    EXPECT_EQ(nullptr, rttCachedCapabilities);
}

TEST_F(CapabilityQueriesTest, ValidChannelsNeverWritePastTheArray) {
    wifi_channel out[4];
    int count = -1;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 1, 3, out, &count));
    EXPECT_EQ(3, count);
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_CHANNELS_SUPPORTED);
    EXPECT_EQ((std::vector<int>{1, 3}), (std::vector<int>{sent.band, sent.max_channels}));
    // More channels than asked: the count is passed on, the array not overrun.
    // An answer of another kind carries none.
    for (int max : {2, -1, 0}) {
        sim().answerNextWith(VARN_REQ_CHANNELS_SUPPORTED, [max](const VARNRequest& r) {
            const uint32_t id = r.getRequestId();
            if (max == 0) return new VARNResponse(id, VARN_RSP_INVALID, VARN_RSP_STATUS_SUCCESS);
            auto* rsp = new VARNChannelsSupportedResponse(id, VARN_RSP_STATUS_SUCCESS);
            for (uint32_t f : {5180u, 5200u, 5220u}) rsp->getChannels().push_back(VARNChannel{f});
            return static_cast<VARNResponse*>(rsp);
        });
        out[0] = out[1] = out[2] = -7;
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_valid_channels(nullptr, 2, max, out, &count));
        EXPECT_EQ(max == 0 ? 0 : 3, count);
        EXPECT_EQ((std::vector<int>{max > 0 ? 5180 : -7, max > 1 ? 5200 : -7, -7}),
                  std::vector<int>(out, out + 3));
    }
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_valid_channels(nullptr, 2, 2, out, nullptr));
}

TEST_F(CapabilityQueriesTest, GscanCapabilitiesTakeTheBatchingLimits) {
    int32_t fields[12];
    static_assert(sizeof(VARNGscanCapabilities) == sizeof(fields), "twelve fields");
    for (int i = 0; i < 12; ++i) fields[i] = 100 + i;
    VARNGscanCapabilities g;
    memcpy(&g, fields, sizeof(g));
    sim().setGscanCapabilities(g);
    for (uint32_t batching : {0u, 1u}) {
        sim().setDynamicCapabilities({0, 0, batching, 7, 8, 9});
        wifi_gscan_capabilities out{};
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_gscan_capabilities(nullptr, &out));
        memcpy(fields, &out, sizeof(fields));
        for (int i = 0; i < 12; ++i) {
            const bool overridden = batching != 0 && (i == 0 || i == 2 || i == 4);
            EXPECT_EQ(overridden ? 7 + i / 2 : 100 + i, fields[i]) << "field " << i;
        }
    }
    EXPECT_EQ(60u, sim().lastRequest(VARN_REQ_CAPABILITY_SUBSCRIPTION).period_s);
    wifi_gscan_capabilities out{};
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_gscan_capabilities(nullptr, nullptr));
    sim().answerNextWithNull(VARN_REQ_CAPABILITY_SUBSCRIPTION);
    EXPECT_EQ(WIFI_ERROR_OUT_OF_MEMORY, varn_wifihal_get_gscan_capabilities(nullptr, &out));
}

TEST_F(CapabilityQueriesTest, ResponderChannelAndPreamble) {
    const int kPreamble[5] = {1, 2, 4, 8, 1};  // codes 0..3, then the default
    wifi_rtt_responder out{};
    for (uint32_t code = 0; code < 5; ++code) {
        sim().setResponderChannel({3, 5500, 5530, 5610, code});
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, &out));
        EXPECT_EQ((std::vector<int>{kPreamble[code], 3, 5500, 5530, 5610}),
                  (std::vector<int>{halInt(out.preamble), halInt(out.channel.width),
                                    out.channel.center_freq, out.channel.center_freq0,
                                    out.channel.center_freq1}));
    }
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_responder_info(nullptr, nullptr));
    sim().answerNextWithNull(VARN_REQ_RM_CHANNEL);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_responder_info(nullptr, &out));

    // Enable follows the hint; a failure status still comes with the channel.
    sim().setResponseStatus(VARN_REQ_ENABLE_RESPONDER, VARN_RSP_STATUS_INVALID_ARGS);
    wifi_channel_info hint{WIFI_CHAN_WIDTH_80, 5745, 5775, 0};
    setHalInt(hint.width, 0x102);  // narrowed to 8 bits on the way
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_enable_responder(9, nullptr, hint, 30, &out));
    const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_ENABLE_RESPONDER);
    const VARNResponderChannelInfo& asked = sent.responder_channel;
    EXPECT_EQ((std::vector<int>{30, 2, 5745, 5775, 2, 5745}),
              (std::vector<int>{static_cast<int>(sent.max_duration_s), asked.width,
                                asked.center_freq, asked.center_freq0, halInt(out.channel.width),
                                out.channel.center_freq}));
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
