// Background-scan conversions.
#include <cstring>

#include "listener_test_support.h"

namespace {

class ScanConversionTest : public listener_test::ListenerTest {
  protected:
    // listener_test::newAp, deleted after the test.
    VARNScanMeasurement* ap(uint8_t last_byte, std::vector<int16_t> rssi,
                            std::vector<uint8_t> ie = {}) {
        owned_.emplace_back(listener_test::newAp(last_byte, rssi, ie));
        return owned_.back().get();
    }
    // A cached scan of APs first..first+count-1; the last one carries `ie`.
    VARNBgscanCachedResult* cachedScan(uint8_t first, uint8_t count, std::vector<uint8_t> ie = {}) {
        auto* scan = new VARNBgscanCachedResult();
        for (uint8_t i = 0; i < count; ++i) {
            scan->measurements.push_back(
                    listener_test::newAp(first + i, {-50}, i + 1 == count ? ie : ie_none_));
        }
        cached_.push_back(scan);
        return scan;
    }
    void TearDown() override {
        for (VARNBgscanCachedResult* scan : cached_) delete scan;
        ListenerTest::TearDown();
    }
    std::vector<uint8_t> ie_none_;  // stays empty
    std::vector<std::unique_ptr<VARNScanMeasurement>> owned_;
    vel_loc_fw::vector<VARNBgscanCachedResult*> cached_;
};

TEST_F(ScanConversionTest, ConvertsFieldsAndAppliesTheExactlyOneInfoRule) {
    vel_loc_fw::vector<VARNScanMeasurement*> meas;
    meas.push_back(ap(1, {-50}));
    meas.push_back(ap(2, {-50, -51}));  // two observations: rssi, rtt, rtt_sd and ts untouched
    meas.push_back(ap(3, {}));          // none: likewise
    wifi_scan_result out[4];
    memset(out, 0x5a, sizeof(out));
    varn_test::LogCapture log;
    toWiFiScanResult(4, out, meas);  // capped by the vector

    EXPECT_STREQ("net1", out[0].ssid);
    EXPECT_EQ((std::vector<int64_t>{2413, 0xa0, 1, -50, 0, 0, 1001, 0}),
              (std::vector<int64_t>{out[0].channel, out[0].bssid[0], out[0].bssid[5], out[0].rssi,
                                    out[0].rtt, out[0].rtt_sd, out[0].ts, out[0].ie_length}));
    wifi_scan_result pattern;
    memset(&pattern, 0x5a, sizeof(pattern));
    for (const wifi_scan_result& r : {out[1], out[2]}) {  // beacon_period: never written
        EXPECT_EQ((std::vector<int64_t>{pattern.rssi, pattern.rtt, pattern.rtt_sd, pattern.ts,
                                        pattern.beacon_period}),
                  (std::vector<int64_t>{r.rssi, r.rtt, r.rtt_sd, r.ts, r.beacon_period}));
    }
    EXPECT_STREQ("net3", out[2].ssid);
    EXPECT_EQ(0, memcmp(&pattern, &out[3], sizeof(pattern)));
    EXPECT_TRUE(
            log.contains("[VARN-WIFIHAL-2.1.1.25] toWiFiScanResult: bssid(a0:00:00:00:00:01) "
                         "ssid(net1) channel(2413) rssi(-50) rssi_ts(1001) rtt(0) rtt_sd(0)"))
            << log.dump();
}

TEST_F(ScanConversionTest, RecordsKeepTheFixedStride) {
    // Record 0 has 12 element bytes: 8 fit in its tail, the next 4 run into
    // record 1, which then overwrites them with its own fields.
    std::vector<uint8_t> ie0;
    for (uint8_t b = 1; b <= 12; ++b) ie0.push_back(b);
    vel_loc_fw::vector<VARNScanMeasurement*> meas;
    meas.push_back(ap(1, {-50}, ie0));
    meas.push_back(ap(2, {-50}, {0xee}));
    alignas(8) unsigned char buffer[2 * 88 + 16] = {};
    auto* out = reinterpret_cast<wifi_scan_result*>(buffer);
    toWiFiScanResult(2, out, meas);
    EXPECT_EQ(12u, out[0].ie_length);
    EXPECT_EQ(0, memcmp(buffer + 80, ie0.data(), 8));
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&out[1]), buffer + 88);
    // Record 0's element bytes 9..12 were written where record 1's time stamp
    // lives, and then replaced by it.
    EXPECT_EQ(
            (std::vector<int64_t>{1002, 2, 1, 0xee}),
            (std::vector<int64_t>{out[1].ts, out[1].bssid[5], out[1].ie_length, buffer[88 + 80]}));
}

TEST_F(ScanConversionTest, CachedScansKeepTheUncappedCount) {
    VARNBgscanCachedResult* big = cachedScan(0, 40);
    big->scan_id = 7;
    big->flags = 1;
    cachedScan(100, 1)->scan_id = 8;
    cachedScan(0, 0)->scan_id = 9;
    std::vector<wifi_cached_scan_results> out(3);
    varn_debug_level = 5;  // records are logged one by one at level 5 only
    varn_test::LogCapture log;
    toWiFiCachedScanResults(2, out.data(), cached_);
    EXPECT_EQ(33u, log.count("scan_id(7) flags(1) num_results(40)"));  // 1 + 32 records
    varn_debug_level = 4;
    log.clear();
    toWiFiCachedScanResults(2, out.data(), cached_);
    EXPECT_EQ(1u, log.count("scan_id(7) flags(1) num_results(40)"));
    EXPECT_EQ((std::vector<int>{7, 1, 40, 31, 8, 1, 100, 0}),
              (std::vector<int>{out[0].scan_id, out[0].flags, out[0].num_results,
                                out[0].results[31].bssid[5], out[1].scan_id, out[1].num_results,
                                out[1].results[0].bssid[5], out[2].scan_id}));
    EXPECT_STREQ("net31", out[0].results[31].ssid);
}

TEST_F(ScanConversionTest, CachedElementBytesStopAtTheEndOfTheCallersArray) {
    // Two full scans whose last records carry 24 element bytes: 8 fit that
    // record, the rest run into the next scan or past the array.
    std::vector<uint8_t> ie;
    for (uint8_t b = 1; b <= 24; ++b) ie.push_back(b);
    cachedScan(0, 32, ie);
    cachedScan(0, 32, ie);
    for (unsigned max : {1u, 2u}) {
        SCOPED_TRACE(max);
        // Exactly `max` records on the heap, so that a write past them is caught.
        auto* out = static_cast<wifi_cached_scan_results*>(
                calloc(max, sizeof(wifi_cached_scan_results)));
        toWiFiCachedScanResults(max, out, cached_);
        const wifi_scan_result& last = out[max - 1].results[31];
        EXPECT_EQ(24u, last.ie_length);
        EXPECT_EQ(0, memcmp(last.ie_data, ie.data(), 8));
        if (max == 2) {
            // Scan 0's bytes 17..20 stay in the word scan 1 leaves unwritten.
            EXPECT_EQ(0, memcmp(reinterpret_cast<const uint8_t*>(&out[1]) + 8, &ie[16], 4));
            EXPECT_EQ(32, out[1].num_results);
        }
        free(out);
    }
}

TEST_F(ScanConversionTest, OverlongSsidEndsTheProcess) {
    VARNScanMeasurement* meas = ap(1, {-50});
    const char long_ssid[33] = "0123456789abcdef0123456789abcdef";
    meas->ssid.setSSID(long_ssid, 33);
    vel_loc_fw::vector<VARNScanMeasurement*> list;
    list.push_back(meas);
    wifi_scan_result out{};
    EXPECT_DEATH(toWiFiScanResult(1, &out, list), "");

    meas->ssid.setSSID(long_ssid, 32);  // exactly 32 is fine
    toWiFiScanResult(1, &out, list);
    EXPECT_EQ(32u, strlen(out.ssid));
}

}  // namespace
