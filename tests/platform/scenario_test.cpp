#include <varn_sim/simulator.h>

#include "platform/sim/world.h"

#include <gtest/gtest.h>

namespace varn_sim {
namespace {

TEST(Scenario, ParsesWorldsReportsBadLinesAndDefaultsToTheDemoCases) {
    const char* text =
            "# lab\n"
            "seed 99\n"
            "path_loss_exponent 2.5   # open space\n"
            "frame_loss 0.1\n"
            "\n"
            "ap 0a:0b:0c:0d:0e:0f Lab-1 5180 80 3.25 lci=0102ff lcr=5553 two_sided=0 tx_power=23\n"
            "ap 00:11:22:33:44:55 - 2437 20 12 appear=2 disappear=9 rssi_step=-1.5\n";
    Scenario s;
    std::string error;
    ASSERT_EQ(Scenario::parse(text, &s, &error), 0) << error;
    EXPECT_EQ(s.seed, 99u);
    EXPECT_DOUBLE_EQ(s.path_loss_exponent, 2.5);
    ASSERT_EQ(s.access_points.size(), 2u);
    const AccessPoint& a = s.access_points[0];
    EXPECT_EQ(formatMac(a.bssid) + a.ssid, "0a:0b:0c:0d:0e:0fLab-1");
    EXPECT_EQ(a.center_freq0, 5210u);  // channels 36-48
    EXPECT_EQ(a.lci, (std::vector<uint8_t>{0x01, 0x02, 0xff}));
    EXPECT_FALSE(a.two_sided);
    EXPECT_EQ(s.access_points[1].ssid, "");
    EXPECT_DOUBLE_EQ(s.access_points[1].rssi_step_db, -1.5);

    const struct {
        const char* text;
        int line;
        const char* why;
    } bad[] = {
            {"seed 1\nbogus 3\n", 2, "unknown statement"},
            {"ap 00:11:22:33:44:55 X 2412 30 1\n", 1, "width"},
            {"ap 00:11:22:33:44:55 X 2412 20 1 lci=abc\n", 1, "bad value for lci"},
            {"# ok\n\nframe_loss 1.5\n", 3, "probability"},
    };
    for (const auto& c : bad) {
        Scenario untouched;
        untouched.seed = 1234;
        EXPECT_EQ(Scenario::parse(c.text, &untouched, &error), c.line) << c.text;
        EXPECT_NE(error.find(c.why), std::string::npos) << c.text << " -> " << error;
        EXPECT_EQ(untouched.seed, 1234u);
    }

    // The demo and the library's tests rely on these access points.
    Scenario d = Scenario::defaultScenario();
    bool widths[3] = {false, false, false};
    int located = 0, unreachable = 0, one_sided_only = 0;
    for (const AccessPoint& ap : d.access_points) {
        if (ap.width <= VARN_BW_80MHZ) widths[ap.width] = true;
        if (!ap.lci.empty() && !ap.lcr.empty()) ++located;
        if (meanRssiDbm(d, ap, 0) < d.sensitivity_dbm) ++unreachable;
        if (!ap.two_sided) ++one_sided_only;
    }
    EXPECT_TRUE(widths[0] && widths[1] && widths[2]);
    EXPECT_EQ(located, 1);
    EXPECT_EQ(unreachable, 1);
    EXPECT_EQ(one_sided_only, 1);
}

}  // namespace
}  // namespace varn_sim
