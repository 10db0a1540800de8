// Value classes of the host client library that carry logic.
#include <varn_client/VARNClient.h>

#include <cstring>
#include <memory>

#include <gtest/gtest.h>

namespace {

// The entry layer keeps {BSSID, requested bandwidth} pairs in 12-byte slots.
struct RequestCacheEntry {
    VARNMacAddress bssid;
    eVARNBandwidth bw;
};
static_assert(sizeof(RequestCacheEntry) == 12, "request-cache entry is 12 bytes");

TEST(ClientTypes, MacAddressComparesByBytes) {
    const uint8_t a_bytes[6] = {1, 2, 3, 4, 5, 6};
    VARNMacAddress a(a_bytes), b(a_bytes);
    EXPECT_EQ(a.compareTo(b), 0);
    b[5] = 7;
    EXPECT_LT(a.compareTo(b), 0);
    EXPECT_GT(b.compareTo(a), 0);
    EXPECT_NE(a, b);
    EXPECT_EQ(VARNMacAddress()[3], 0);
}

TEST(ClientTypes, SsidReportsItsLengthButCopiesAtMost32Bytes) {
    char buffer[64];
    const struct {
        const char* text;
        uint32_t length;
        uint32_t copied;
    } cases[] = {{"", 0, 0}, {"lab", 3, 3}, {"0123456789abcdef0123456789abcdef", 32, 32},
                 {"0123456789abcdef0123456789abcdef0123456789", 40, 32}};
    for (const auto& c : cases) {
        std::memset(buffer, '#', sizeof(buffer));
        VARNSsid ssid(c.text, c.length);
        uint32_t length = 99;
        ASSERT_EQ(ssid.getSSID(buffer, &length), 0);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(std::string(buffer, c.copied), std::string(c.text, c.copied));
        EXPECT_EQ(buffer[c.copied], '#') << "wrote past the copied bytes";
    }
    uint32_t length = 0;
    EXPECT_EQ(VARNSsid().getSSID(nullptr, &length), -1);
}

TEST(ClientTypes, MotionPatternAndRequestTypeNames) {
    EXPECT_EQ(VARNUtils::to_eVARNMotionPattern(0), VARN_MOTION_NOT_EXPECTED);
    EXPECT_EQ(VARNUtils::to_eVARNMotionPattern(1), VARN_MOTION_EXPECTED);
    EXPECT_EQ(VARNUtils::to_eVARNMotionPattern(2), VARN_MOTION_UNKNOWN);
    EXPECT_EQ(VARNUtils::to_eVARNMotionPattern(200), VARN_MOTION_UNKNOWN);
    EXPECT_STREQ(VARNRequest::toString(VARN_REQ_BGSCAN_START), "VARN_REQ_BGSCAN_START");
    EXPECT_STREQ(VARNRequest::toString(VARN_REQ_DISABLE_RESPONDER), "VARN_REQ_DISABLE_RESPONDER");
    EXPECT_STREQ(VARNRequest::toString(static_cast<eVARNRequestType>(11)), "VARN_REQ_UNKNOWN");
}

TEST(ClientTypes, MeasurementCloneIsDeep) {
    VARNScanMeasurement original;
    original.frequency = 5180;
    const uint8_t lci[3] = {9, 8, 7};
    ASSERT_EQ(original.setLci(8, lci, 3), 0);
    original.ie_data.push_back(3);
    auto* info = new VARNMeasurementInfo();
    info->rtt_ps = 1234;
    original.measurements.push_back(info);
    std::unique_ptr<VARNScanMeasurement> copy(original.clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->frequency, 5180u);
    ASSERT_EQ(copy->measurements.size(), 1u);
    EXPECT_NE(copy->measurements[0], info);
    EXPECT_EQ(copy->measurements[0]->rtt_ps, 1234);
    ASSERT_NE(copy->lci.data, nullptr);
    EXPECT_NE(copy->lci.data, original.lci.data);
    EXPECT_EQ(copy->lci.data[2], 7);
    EXPECT_EQ(copy->lcr.data, nullptr);
    EXPECT_EQ(copy->ie_data.size(), 1u);
}

}  // namespace
