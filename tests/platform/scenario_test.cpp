#include <varn_sim/simulator.h>

#include "platform/sim/world.h"

#include <gtest/gtest.h>

#include "log_capture.h"

namespace varn_sim {
namespace {

TEST(Scenario, ParsesSettingsAccessPointsAndOptions) {
    const char* text =
            "# lab\n"
            "seed 99\n"
            "path_loss_exponent 2.5   # open space\n"
            "frame_loss 0.1\n"
            "multipath 0\n"
            "chain_offset_ps 450\n"
            "air_time_ms 0\n"
            "sensitivity_dbm -85\n"
            "rssi_noise_db 1.5\n"
            "tx_power_dbm 17\n"
            "\n"
            "ap 0a:0b:0c:0d:0e:0f Lab-1 5180 80 3.25 lci=0102ff lcr=5553 two_sided=0 tx_power=23\n"
            "ap 00:11:22:33:44:55 - 2437 20 12 appear=2 disappear=9 rssi_step=-1.5 one_sided=0\n"
            "ap 00:11:22:33:44:56 Lab-3 5200 40 7 center=5190\n";
    Scenario s;
    std::string error;
    ASSERT_EQ(Scenario::parse(text, &s, &error), 0) << error;
    EXPECT_EQ(s.seed, 99u);
    EXPECT_DOUBLE_EQ(s.path_loss_exponent, 2.5);
    EXPECT_DOUBLE_EQ(s.frame_loss, 0.1);
    EXPECT_DOUBLE_EQ(s.multipath, 0.0);
    EXPECT_EQ(s.chain_offset_ps, 450);
    EXPECT_EQ(s.air_time_ms, 0u);
    EXPECT_DOUBLE_EQ(s.sensitivity_dbm, -85);
    EXPECT_DOUBLE_EQ(s.rssi_noise_db, 1.5);
    ASSERT_EQ(s.access_points.size(), 3u);

    const AccessPoint& a = s.access_points[0];
    EXPECT_EQ(formatMac(a.bssid), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(a.ssid, "Lab-1");
    EXPECT_EQ(a.frequency, 5180u);
    EXPECT_EQ(a.width, VARN_BW_80MHZ);
    EXPECT_EQ(a.center_freq0, 5210u);  // channels 36-48
    EXPECT_DOUBLE_EQ(a.distance_m, 3.25);
    EXPECT_EQ(a.lci, (std::vector<uint8_t>{0x01, 0x02, 0xff}));
    EXPECT_EQ(a.lcr, (std::vector<uint8_t>{'U', 'S'}));
    EXPECT_TRUE(a.one_sided);
    EXPECT_FALSE(a.two_sided);
    EXPECT_DOUBLE_EQ(a.tx_power_dbm, 23);

    const AccessPoint& b = s.access_points[1];
    EXPECT_EQ(b.ssid, "");
    EXPECT_EQ(b.center_freq0, 2437u);
    EXPECT_EQ(b.appear_cycle, 2u);
    EXPECT_EQ(b.disappear_cycle, 9u);
    EXPECT_DOUBLE_EQ(b.rssi_step_db, -1.5);
    EXPECT_FALSE(b.one_sided);
    EXPECT_DOUBLE_EQ(b.tx_power_dbm, 17);

    EXPECT_EQ(s.access_points[2].center_freq0, 5190u);
    EXPECT_EQ(s.access_points[2].widthMhz(), 40u);
}

TEST(Scenario, ReportsTheFirstBadLineAndLeavesTheOutputAlone) {
    const struct {
        const char* text;
        int line;
        const char* why;
    } cases[] = {
            {"seed 1\nbogus 3\n", 2, "unknown statement"},
            {"ap 00:11:22:33:44 X 2412 20 1\n", 1, "bad bssid"},
            {"ap 00:11:22:33:44:55 X 2412 30 1\n", 1, "width"},
            {"ap 00:11:22:33:44:55 X 2412 20\n", 1, "5 fields"},
            {"ap 00:11:22:33:44:55 X 2412 20 -4\n", 1, "bad distance"},
            {"ap 00:11:22:33:44:55 X 2412 20 1 color=red\n", 1, "unknown key"},
            {"ap 00:11:22:33:44:55 X 2412 20 1 lci=abc\n", 1, "bad value for lci"},
            {"ap 00:11:22:33:44:55 X 2412 20 1 two_sided=2\n", 1, "bad value"},
            {"# ok\n\nframe_loss 1.5\n", 3, "probability"},
            {"seed\n", 1, "needs a value"},
            {"seed 5 6\n", 1, "trailing"},
            {"air_time_ms -3\n", 1, "bad air_time_ms"},
            {"ap 00:11:22:33:44:55 SSID-of-more-than-thirty-two-bytes 2412 20 1\n", 1, "32"},
    };
    for (const auto& c : cases) {
        Scenario s;
        s.seed = 1234;
        std::string error;
        EXPECT_EQ(Scenario::parse(c.text, &s, &error), c.line) << c.text;
        EXPECT_NE(error.find(c.why), std::string::npos) << c.text << " -> " << error;
        EXPECT_EQ(s.seed, 1234u);
    }
}

TEST(Scenario, ParsesFilesAndReportsUnreadableOnes) {
    std::string path = varn_test::write_temp_file("ap 02:00:00:00:00:09 F 5745 80 9.5\n");
    Scenario s;
    ASSERT_EQ(Scenario::parseFile(path, &s, nullptr), 0);
    ASSERT_EQ(s.access_points.size(), 1u);
    EXPECT_EQ(s.access_points[0].center_freq0, 5775u);  // channels 149-161
    std::string error;
    EXPECT_EQ(Scenario::parseFile("/nonexistent/varn.scenario", &s, &error), -1);
    EXPECT_FALSE(error.empty());
}

TEST(Scenario, DefaultWorldCoversTheDemoCases) {
    Scenario s = Scenario::defaultScenario();
    ASSERT_GE(s.access_points.size(), 4u);
    bool widths[3] = {false, false, false};
    int located = 0, unreachable = 0, one_sided_only = 0;
    for (const AccessPoint& ap : s.access_points) {
        if (ap.width <= VARN_BW_80MHZ) widths[ap.width] = true;
        if (!ap.lci.empty() && !ap.lcr.empty()) ++located;
        if (meanRssiDbm(s, ap, 0) < s.sensitivity_dbm) ++unreachable;
        if (!ap.two_sided) ++one_sided_only;
    }
    EXPECT_TRUE(widths[0] && widths[1] && widths[2]);
    EXPECT_EQ(located, 1);
    EXPECT_EQ(unreachable, 1);
    EXPECT_EQ(one_sided_only, 1);
}

TEST(Scenario, MacAddressesRoundTrip) {
    VARNMacAddress mac;
    ASSERT_TRUE(parseMac("a0:B1:c2:d3:e4:f5", &mac));
    EXPECT_EQ(formatMac(mac), "a0:b1:c2:d3:e4:f5");
    for (const char* bad : {"a0:b1:c2:d3:e4", "a0:b1:c2:d3:e4:f5:00", "a0-b1-c2-d3-e4-f5",
                            "zz:b1:c2:d3:e4:f5"}) {
        EXPECT_FALSE(parseMac(bad, &mac)) << bad;
    }
}

}  // namespace
}  // namespace varn_sim
