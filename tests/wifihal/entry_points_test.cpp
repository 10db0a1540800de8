// Capability, responder, location and background-scan entry points: refusals, status
// codes, what reaches the service, handlers kept, fatal bounds, events travelling back.
#include <varn_wifihal.h>

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "wifihal/request_bookkeeping.h"
#include "wifihal/wifihal_internal.h"
#include "wifihal_test_support.h"

namespace wifihal_test {
namespace {

// What reached the scan handlers: "<HAL id> <kind> <what>" per call and result.
std::mutex g_mutex;
std::vector<std::string> g_calls;
std::thread::id g_event_thread;

void record(wifi_request_id id, const char* kind, const std::string& what) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_calls.push_back(std::to_string(id) + " " + kind + " " + what);
    g_event_thread = std::this_thread::get_id();
}
void onFull(wifi_request_id id, wifi_scan_result* r, unsigned) { record(id, "full", r->ssid); }
void onEvent(wifi_request_id id, wifi_scan_event e) { record(id, "event", std::to_string(e)); }
void onAp(wifi_request_id, unsigned, wifi_scan_result*) {}
void onChange(wifi_request_id, unsigned, wifi_significant_change_result**) {}
const wifi_scan_result_handler kScan{onFull, onEvent};
const wifi_hotlist_ap_found_handler kHotlist{onAp, onAp};
const wifi_significant_change_handler kChange{onChange};

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

// The vendor HAL reaches most entry points through the callback table: so do these cases.
const varn_wifihal_cb_table_t& hal() { return *varn_wifihal_get_cb_table(); }

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
             [] { return hal().get_valid_channels(nullptr, 2, 8, channels, &count); }},
            {"get_gscan_capabilities", kS, VARN_REQ_GSCAN_CAPABILITIES,
             "failed to get bgscan capabilities",
             [] { return hal().get_gscan_capabilities(nullptr, &gscan); }},
            {"enable_responder", kS, VARN_REQ_ENABLE_RESPONDER,
             "failed to get RTT responder channel info",
             [] { return hal().enable_responder(1, nullptr, {}, 5, &responder); }},
            {"start_gscan", kS, VARN_REQ_BGSCAN_START, kNoStatus,
             [] { return hal().start_gscan(1, nullptr, {}, kScan); }},
            {"stop_gscan", kS, VARN_REQ_BGSCAN_STOP, kNoStatus,
             [] { return hal().stop_gscan(1, nullptr); }},
            {"get_cached_gscan_results", kS, VARN_REQ_GET_CACHED_BGSCAN_RESULTS, kNoStatus,
             [] { return hal().get_cached_gscan_results(nullptr, 0, 2, cached, &count); }},
            {"set_bssid_hotlist", kS, VARN_REQ_HOTLIST_SET, kNoStatus,
             [] { return varn_wifihal_set_bssid_hotlist(1, nullptr, {}, kHotlist); }},
            {"reset_bssid_hotlist", kS, VARN_REQ_HOTLIST_CLEAR, kNullRsp,
             [] { return varn_wifihal_reset_bssid_hotlist(1); }},
            {"set_significant_change_handler", kS, VARN_REQ_SIGNIFICANT_CHANGE_SET, kNullRsp,
             [] { return varn_wifihal_set_significant_change_handler(1, nullptr, {}, kChange); }},
            {"reset_significant_change_handler", kS, VARN_REQ_SIGNIFICANT_CHANGE_CLEAR, kNoStatus,
             [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }},
            {"disable_responder", kF, VARN_REQ_DISABLE_RESPONDER,
             "failed to send disable responder",
             [] { return hal().disable_responder(1, nullptr); }},
            {"set_lci", kF, VARN_REQ_SET_LCI_LOCATION_INFO, "failed to send the request",
             [] { return hal().set_lci(1, nullptr, &lci); }},
            {"set_lcr", kF, VARN_REQ_SET_LCR_LOCATION_INFO, "failed to send the request",
             [] { return hal().set_lcr(1, nullptr, &lcr); }},
            {"get_rtt_capabilities", kQ, VARN_REQ_CAPABILITY, nullptr,
             [] { return hal().get_rtt_capabilities(nullptr, &caps); }},
            {"get_varn_capabilities", kQ, VARN_REQ_CAPABILITY, nullptr,
             [] { return hal().get_varn_capabilities(&bits); }},
            {"get_responder_info", kQ, VARN_REQ_RM_CHANNEL, nullptr,
             [] { return hal().get_responder_info(nullptr, nullptr); }},
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
        capture_.clear();
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
    // Bandwidth codes 0..3 and 5, the responder bit, no ranging; one, two-sided, bgscan bits.
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
        EXPECT_EQ(2u, capture_.count("printCapabilitiesInfo: "));  // what the service said
        u32 bits = 0xffffffff;
        EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_capabilities(&bits));
        EXPECT_EQ(c.bits, bits);
        // The RTT capabilities are asked once, then cached.
        sim().setCapabilities(VARNCapabilities{});
        const size_t asked = sim().requestCount();
        wifi_rtt_capabilities again{};
        ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_get_rtt_capabilities(nullptr, &again));
        EXPECT_EQ(0, memcmp(&c.rtt, &again, sizeof(again)));
        EXPECT_EQ(asked, sim().requestCount());
    }
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_rtt_capabilities(nullptr, nullptr));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_get_varn_capabilities(nullptr));
    // Unanswered, nothing is cached; the service's bits also fill an empty cache.
    varn_wifihal_destroy();
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_init());
    wifi_rtt_capabilities cached{};
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_rtt_capabilities(nullptr, &cached));
    u32 bits = 0;
    sim().answerNextWithNull(VARN_REQ_CAPABILITY);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_get_varn_capabilities(&bits));
    EXPECT_FALSE(copyCachedRttCapabilities(&cached));
    EXPECT_EQ(WIFI_SUCCESS, varn_wifihal_get_varn_capabilities(&bits));
    ASSERT_TRUE(copyCachedRttCapabilities(&cached));
    EXPECT_EQ(0, memcmp(&kCases[5].rtt, &cached, sizeof(cached)));
    u16 version[3] = {};
    EXPECT_EQ(WIFI_SUCCESS, hal().get_varn_version(&version[0], &version[1], &version[2]));
    EXPECT_EQ((std::vector<u16>{2, 1, 1}), std::vector<u16>(version, version + 3));
}

TEST_F(CapabilityQueriesTest, ValidChannelsNeverWritePastTheArray) {
    wifi_channel out[4];
    int count = -1;
    // More channels than asked: count passed on, array not overrun; none in a foreign answer.
    for (int max : {3, 2, -1, 0}) {
        sim().answerNextWith(VARN_REQ_CHANNELS_SUPPORTED, [max](const VARNRequest& r) {
            const uint32_t id = r.getRequestId();
            if (max == 0) return new VARNResponse(id, VARN_RSP_INVALID, VARN_RSP_STATUS_SUCCESS);
            auto* rsp = new VARNChannelsSupportedResponse(id, VARN_RSP_STATUS_SUCCESS);
            for (uint32_t f : {5180u, 5200u, 5220u}) rsp->getChannels().push_back(VARNChannel{f});
            return static_cast<VARNResponse*>(rsp);
        });
        out[0] = out[1] = out[2] = -7;
        ASSERT_EQ(WIFI_SUCCESS,
                  varn_wifihal_get_valid_channels(nullptr, max + 8, max, out, &count));
        const varn_sim::RecordedRequest sent = sim().lastRequest(VARN_REQ_CHANNELS_SUPPORTED);
        EXPECT_EQ((std::vector<int>{max + 8, max, max == 0 ? 0 : 3, max > 0 ? 5180 : -7,
                                    max > 1 ? 5200 : -7, max > 2 ? 5220 : -7}),
                  (std::vector<int>{sent.band, sent.max_channels, count, out[0], out[1], out[2]}));
    }
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS,
              varn_wifihal_get_valid_channels(nullptr, 2, 2, out, nullptr));
}

TEST_F(CapabilityQueriesTest, GscanCapabilitiesTakeTheBatchingLimits) {
    sim().setGscanCapabilities({100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111});
    int32_t fields[12];
    static_assert(sizeof(wifi_gscan_capabilities) == sizeof(fields), "twelve fields");
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
        EXPECT_EQ((std::vector<std::string>{
                          std::to_string(length), "US",
                          std::string(length, 'x') + std::string(256 - length, '\0')}),
                  (std::vector<std::string>{std::to_string(got.length),
                                            std::string(got.country_code, 2),
                                            std::string(got.civic_info, 256)}));
    }
    // The civic text is logged as far as its 256 bytes go.
    EXPECT_TRUE(capture_.contains("civic_info(" + std::string(256, 'x') + ")"));
    wifi_lcr_information lcr{{'U', 'S'}, -1, {}};
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lcr(1, nullptr, &lcr));
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_set_lcr(1, nullptr, nullptr));
    lcr.length = 257;
    EXPECT_DEATH(varn_wifihal_set_lcr(1, nullptr, &lcr), "");
}

TEST(CallbackTableTest, SlotsThirteenToEighteenStayEmpty) {
    const varn_wifihal_cb_table_t& t = hal();
    for (auto slot : {t.reserved_13, t.reserved_14, t.reserved_15, t.reserved_16, t.reserved_17,
                      t.reserved_18}) {
        EXPECT_EQ(nullptr, slot);
    }
}

class BackgroundScanTest : public WifiHalUpTest {
  protected:
    void SetUp() override {
        WifiHalUpTest::SetUp();
        sim().setAutoScan(false);
        std::lock_guard<std::mutex> lock(g_mutex);
        g_calls.clear();
    }
};

TEST_F(BackgroundScanTest, ScanParametersReachTheServiceWithClientBands) {
    // Band codes 0..9; 15 buckets of 2..16 channels; nothing beyond the counts is read.
    const int kClientBand[10] = {0, 1, 2, 3, 4, 1, 6, 7, 1, 1};
    wifi_scan_cmd_params params{5000, 24, 80, 6, 15, {}};
    params.buckets[15].num_channels = 99;
    for (int b = 0; b < 15; ++b) {
        wifi_scan_bucket_spec& bucket = params.buckets[b];
        bucket = {b, {}, 1000 * (b + 1), REPORT_EVENTS_FULL_RESULTS, 300, 2, 3, b + 2, {}};
        setHalInt(bucket.band, b % 10);
        for (int c = 0; c < 16; ++c) bucket.channels[c] = {5180 + 20 * c, 40 + c, c & 1};
    }
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_start_gscan(7, nullptr, params, kScan));

    const auto p = sim().lastRequest(VARN_REQ_BGSCAN_START).scan_params;
    ASSERT_NE(nullptr, p);
    EXPECT_EQ((std::vector<uint32_t>{5000, 24, 80, 6, 15, 0}),
              (std::vector<uint32_t>{p->base_period, p->max_ap_per_scan,
                                     p->report_threshold_percent, p->report_threshold_num_scans,
                                     p->num_buckets, p->buckets[15].num_channels}));
    for (int b = 0; b < 15; ++b) {
        const VARNScanBucketSpec& s = p->buckets[b];
        const VARNScanChannelSpec& last = s.channels[b + 1];
        EXPECT_EQ((std::vector<uint32_t>{uint32_t(kClientBand[b % 10]), uint32_t(b),
                                         1000u * (b + 1), 2, 300, 2, 3, b + 2u, 5200u + 20 * b,
                                         41u + b, (b + 1) & 1u, 0}),
                  (std::vector<uint32_t>{uint32_t(s.band), s.bucket, s.period, s.report_events,
                                         s.max_period, s.base, s.step_count, s.num_channels,
                                         last.channel, last.dwell_time_ms, last.passive,
                                         b < 14 ? s.channels[b + 2].channel : 0}))
                << "bucket " << b;
    }
    EXPECT_EQ(15u, capture_.count(" bucket("));
    EXPECT_EQ(135u, capture_.count("  channel("));
}

TEST_F(BackgroundScanTest, CountsBeyondTheRecordsEndTheProcess) {
    // Buckets, channels of the first bucket, hotlist APs, significant-change APs.
    const int kCounts[][4] = {
            {17, 0, 0, 0}, {-1, 0, 0, 0}, {1, 17, 0, 0}, {0, 0, 129, 0}, {0, 0, 0, 65}};
    for (const auto& n : kCounts) {
        wifi_scan_cmd_params scan{0, 0, 0, 0, n[0], {}};
        scan.buckets[0].num_channels = n[1];
        const wifi_bssid_hotlist_params hot{0, n[2], {}};
        const wifi_significant_change_params change{0, 0, 0, n[3], {}};
        EXPECT_DEATH(
                {
                    varn_wifihal_start_gscan(1, nullptr, scan, kScan);
                    varn_wifihal_set_bssid_hotlist(1, nullptr, hot, kHotlist);
                    varn_wifihal_set_significant_change_handler(1, nullptr, change, kChange);
                },
                "");
    }
}

TEST_F(BackgroundScanTest, ApListsAreConvertedAndDumpedMasked) {
    wifi_bssid_hotlist_params hot{3, 127, {}};
    wifi_significant_change_params change{4, 5, 6, 63, {}};
    for (int i = 0; i < 128; ++i) {
        const uint8_t bssid[6] = {0x00, 0x11, 0x22, 0x33, 0x44, static_cast<uint8_t>(i)};
        memcpy(hot.ap[i].bssid, bssid, 6);
        hot.ap[i].low = i == 7 ? 40000 : -80;  // narrowed to 16 bits
        hot.ap[i].high = -40;
        if (i < 64) change.ap[i] = hot.ap[i];
    }
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_set_bssid_hotlist(3, nullptr, hot, kHotlist));
    ASSERT_EQ(WIFI_SUCCESS,
              varn_wifihal_set_significant_change_handler(4, nullptr, change, kChange));

    const auto h = sim().lastRequest(VARN_REQ_HOTLIST_SET).hotlist_params;
    const auto s = sim().lastRequest(VARN_REQ_SIGNIFICANT_CHANGE_SET).significant_change_params;
    ASSERT_TRUE(h && s);
    EXPECT_EQ((std::vector<int>{3, 127, -25536, -40, 4, 5, 6, 63, -80}),
              (std::vector<int>{h->lost_ap_sample_size, h->num_bssid, h->ap[7].low, h->ap[7].high,
                                s->rssi_sample_size, s->lost_ap_sample_size, s->min_breaching,
                                s->num_bssid, s->ap[62].low}));
    // Only the given number of APs is sent and dumped.
    EXPECT_EQ((std::vector<VARNMacAddress>{VARNMacAddress(hot.ap[126].bssid), VARNMacAddress(),
                                           VARNMacAddress(hot.ap[62].bssid), VARNMacAddress()}),
              (std::vector<VARNMacAddress>{h->ap[126].bssid, h->ap[127].bssid, s->ap[62].bssid,
                                           s->ap[63].bssid}));
    // The hotlist dumps the HAL's list and the converted one, masked.
    EXPECT_EQ(2 * 127u, capture_.count(") low("));
    EXPECT_EQ(63u, capture_.count("), low("));
    EXPECT_EQ(2u, capture_.count(" bssid(00:11:22:**:**:00) low(-80) high(-40)"));
}

TEST_F(BackgroundScanTest, HandlersStayUntilTheirStopOrReset) {
    EXPECT_EQ(WIFI_ERROR_INVALID_ARGS, varn_wifihal_start_gscan(6, nullptr, {}, {onFull, nullptr}));
    // A refused start keeps its handler; each stop drops its own kind only, also while down.
    sim().refuseNext(VARN_REQ_BGSCAN_START);
    EXPECT_EQ(WIFI_ERROR_UNKNOWN, varn_wifihal_start_gscan(5, nullptr, {}, kScan));
    ASSERT_EQ(1u, rspHandlers.size());
    EXPECT_EQ(5, rspHandlers.head()->clReqId);
    const std::function<wifi_error()> kStops[] = {
            [] { return varn_wifihal_stop_gscan(1, nullptr); },
            [] { return varn_wifihal_reset_bssid_hotlist(1); },
            [] { return varn_wifihal_reset_significant_change_handler(1, nullptr); }};
    const eVARNRequestType kTypes[] = {VARN_REQ_BGSCAN_START, VARN_REQ_HOTLIST_SET,
                                       VARN_REQ_SIGNIFICANT_CHANGE_SET};
    for (bool up : {true, false}) {
        if (!up) varn_wifihal_destroy();
        for (auto type : kTypes) addRspHandler(1, 1, type, RspHandlerRecord{});
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE(testing::Message() << "stop " << k << " up " << up);
            EXPECT_EQ(up ? WIFI_SUCCESS : WIFI_ERROR_UNINITIALIZED, kStops[k]());
            EXPECT_EQ(size_t(2 - k), rspHandlers.size());
            EXPECT_EQ(nullptr, rspHandlers.find([&](const RspHandlerNode& n) {
                return n.reqType == kTypes[k];
            }));
        }
    }
}

// One access point that stays, one that fades by 6 dB per scan and is gone at the fifth.
const char* const kScenario = R"(
seed 3
rssi_noise_db 0
ap 02:5a:00:00:00:01 Office 5180 80 3.0
ap 02:5a:00:00:00:05 Cafe 2462 20 4.5 rssi_step=-6 disappear=4
)";

TEST_F(BackgroundScanTest, EventsOfAScanReachTheHalHandlers) {
    varn_sim::Scenario scenario;
    ASSERT_EQ(0, varn_sim::Scenario::parse(kScenario, &scenario, nullptr));
    sim().setScenario(scenario);

    wifi_scan_cmd_params params{100, 0, 0, 0, 1, {}};
    wifi_scan_bucket_spec& bucket = params.buckets[0];
    bucket.report_events = REPORT_EVENTS_EACH_SCAN | REPORT_EVENTS_FULL_RESULTS;
    bucket.num_channels = 2, bucket.channels[0].channel = 5180, bucket.channels[1].channel = 2462;
    ASSERT_EQ(WIFI_SUCCESS, varn_wifihal_start_gscan(21, nullptr, params, kScan));
    for (int cycle = 0; cycle < 5; ++cycle) sim().runScanCycle();
    ASSERT_TRUE(sim().waitUntilDelivered());
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        auto calls = [](const char* e) { return std::count(g_calls.begin(), g_calls.end(), e); };
        // Office in every scan, Cafe in the first four; a completed scan each time.
        EXPECT_TRUE(calls("21 full Office") == 5 && calls("21 full Cafe") == 4);
        EXPECT_EQ(5, calls("21 event 0"));
        EXPECT_EQ(sim().serviceThreadId(), g_event_thread);
    }

    // Five scans cached; the count is the smaller of those and the maximum.
    static wifi_cached_scan_results cached[8];
    int num = -1;
    for (int max : {0, 3, 8}) {
        ASSERT_EQ(WIFI_SUCCESS,
                  varn_wifihal_get_cached_gscan_results(nullptr, max == 8, max, cached, &num));
        EXPECT_EQ(std::min(max, 5), num);
    }
    EXPECT_EQ(1, sim().lastRequest(VARN_REQ_GET_CACHED_BGSCAN_RESULTS).flush);
    EXPECT_STREQ("Cafe", cached[3].results[1].ssid);
    EXPECT_EQ(1, cached[4].num_results);
    for (int* out : {&num, static_cast<int*>(nullptr)}) {
        EXPECT_EQ(WIFI_ERROR_INVALID_ARGS,
                  varn_wifihal_get_cached_gscan_results(nullptr, 0, out ? -1 : 8, cached, out));
    }
}

}  // namespace
}  // namespace wifihal_test
