#include <vel_loc_fw/time_util.h>

#include <unistd.h>

#include "framework/time_util_internal.h"
#include "framework_test_support.h"

namespace vel_loc_fw {
namespace {

constexpr int kBoot = CLOCK_BOOTTIME;
constexpr int kMono = CLOCK_MONOTONIC;

using TimeTest = varn_test::VerboseLogTest;

Timestamp stamp(int clock_id, time_t sec, long nsec) { return Timestamp(clock_id, {sec, nsec}); }
TimeDiff diff_ms(int msec) {
    TimeDiff diff(true);
    diff.add_msec(msec);
    return diff;
}
// "seconds/nanoseconds"
std::string text(const timespec* time) {
    return std::to_string(time->tv_sec) + "/" + std::to_string(time->tv_nsec);
}

TEST_F(TimeTest, TimeDiffAdditionsCarryOnlyUpward) {
    const struct {
        int start_nsec, sec, msec, nsec;
        const char* want;
        float want_total_sec;
    } cases[] = {
            {0, 0, 1500, 0, "1/500000000", 1.5f},      // msec splits into sec and nsec
            {0, 0, -1500, 0, "-1/-500000000", -1.5f},  // negative msec stays unnormalised
            {1, 0, 0, 1999999999, "2/0", 2.0f},        // nsec carries one second at a time
            {600000000, 0, 400, 0, "1/0", 1.0f},       // msec remainder carries
            {0, 1, 0, -300, "1/-300", 0.9999997f},     // negative nsec stays
            {999999999, 3, 0, 0, "3/999999999", 4.0f}  // sec adds to seconds only
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.want);
        TimeDiff diff(true);
        ASSERT_EQ(0, diff.add_nsec(c.start_nsec));
        EXPECT_EQ(0, diff.add_sec(c.sec));
        EXPECT_EQ(0, diff.add_msec(c.msec));
        EXPECT_EQ(0, diff.add_nsec(c.nsec));
        EXPECT_EQ(c.want, text(diff.getTimeDiffPtr()));
        EXPECT_FLOAT_EQ(c.want_total_sec, diff.get_total_sec());
        EXPECT_FLOAT_EQ(c.want_total_sec * 1000.0f, diff.get_total_msec());
    }
    TimeDiff invalid(false);
    EXPECT_FLOAT_EQ(-1.0f, invalid.get_total_sec());
    EXPECT_FLOAT_EQ(-1.0f, invalid.get_total_msec());
    for (int rc : {invalid.add_sec(1), invalid.add_msec(1), invalid.add_nsec(1)}) EXPECT_EQ(2, rc);
    EXPECT_EQ("0/0", text(invalid.getTimeDiffPtr()));
    EXPECT_EQ(
            "ZORLOG: [TimerDiff] get_total_sec failed 2\nZORLOG: [TimerDiff] get_total_msec failed "
            "2\nZORLOG: [TimerDiff] add_sec failed 2\nZORLOG: [TimerDiff] add_msec failed 2\n"
            "ZORLOG: [TimerDiff] add_nsec failed 2\nZORLOG: [TimerDiff] getTimeDiffPtr time diff "
            "is invalid\n",
            log_.dump());
}

TEST_F(TimeTest, TimestampClocks) {
    EXPECT_EQ(-1, Timestamp(false).get_clock_id());
    EXPECT_TRUE(Timestamp(true).is_valid_and_default());
    Timestamp ts(kMono);
    EXPECT_EQ(0, ts.reset_to_realtime());
    EXPECT_EQ(CLOCK_REALTIME, ts.get_clock_id());

    EXPECT_EQ(1, ts.reset_to_clock_id(12345));
    EXPECT_FALSE(ts.is_valid());
    EXPECT_EQ(-1, ts.get_clock_id());
    EXPECT_EQ("0/0", text(ts.getTimestampPtr()));
    EXPECT_TRUE(log_.contains("reset_to_clock_id failed: id(12345) errno(22)(Invalid argument)"));
    EXPECT_TRUE(log_.contains("[Timestamp] getTimestampPtr timestamp is invalid"));
}

TEST_F(TimeTest, StampArithmeticNormalises) {
    const Timestamp sum = stamp(kMono, 5, 900000000) + diff_ms(200);
    EXPECT_EQ(kMono, sum.get_clock_id());
    EXPECT_EQ("6/100000000", text(sum.getTimestampPtr()));
    EXPECT_EQ("4/900000000", text((stamp(kMono, 5, 100000000) - diff_ms(200)).getTimestampPtr()));
    EXPECT_EQ("6/500000000", text((stamp(kMono, 5, 0) - diff_ms(-1500)).getTimestampPtr()));
    EXPECT_EQ("1/999999900", text((stamp(kMono, 10, 100) - stamp(kMono, 8, 200)).getTimeDiffPtr()));
    EXPECT_EQ(0u, log_.lines().size()) << log_.dump();

    // Before the epoch: reported, returned all the same.
    const Timestamp early = stamp(kBoot, 1, 0) - diff_ms(2000);
    EXPECT_TRUE(early.is_valid());
    EXPECT_EQ("-1/0", text(early.getTimestampPtr()));
    EXPECT_TRUE(log_.contains("[Timestamp] diff is returning -ve value possible time rollover -1"));
    const TimeDiff back = stamp(kMono, 1, 0) - stamp(kMono, 2, 500);
    EXPECT_TRUE(back.is_valid());
    EXPECT_EQ("-2/999999500", text(back.getTimeDiffPtr()));
    EXPECT_TRUE(
            log_.contains("[Timestamp] operator - ts returning -ve value probable time "
                          "rollover: sec:1/2/-2, nsec:0/500/999999500"))
            << log_.dump();
    // Differences are narrowed to 32-bit seconds on purpose.
    EXPECT_EQ("-1294967296/0",
              text((stamp(kBoot, 3000000000LL, 0) - stamp(kBoot, 0, 0)).getTimeDiffPtr()));

    // Pairs of an earlier and a later stamp; the nanosecond borrow keeps the sign right.
    for (const auto& p : {std::make_pair(stamp(kMono, 5, 1), stamp(kMono, 5, 2)),
                          std::make_pair(stamp(kMono, 5, 999999999), stamp(kMono, 6, 0))}) {
        EXPECT_TRUE(p.first < p.second && p.second >= p.first && p.first >= p.first);
        EXPECT_FALSE(p.first >= p.second || p.second < p.first || p.first < p.first);
    }
}

TEST_F(TimeTest, MisuseEndsTheProcess) {
    // Forked without re-executing the binary, which user-mode emulation cannot do.
    GTEST_FLAG_SET(death_test_style, "fast");
    const struct {
        void (*misuse)();
        const char* message;
    } cases[] = {{[] { (void)(stamp(kBoot, 1, 0) - stamp(kMono, 1, 0)); },
                  "\\[Timestamp\\] operator - ts: my clock id: 7, his clock id: 1"},
                 {[] { (void)(stamp(kBoot, 1, 0) >= stamp(kMono, 1, 0)); },
                  "\\[Timestamp\\] operator >=: my clock id: 7, his clock id: 1"},
                 {[] { (void)(Timestamp(false) + TimeDiff(true)); }, ""},
                 {[] { (void)(stamp(kMono, 1, 0) + TimeDiff(false)); }, ""},
                 {[] { (void)(stamp(kMono, 1, 0) - TimeDiff(false)); }, ""},
                 {[] { (void)(stamp(kMono, 1, 0) - Timestamp(false)); }, ""},
                 {[] { (void)(Timestamp(false) < stamp(kMono, 1, 0)); }, ""}};
    for (const auto& c : cases) {
        EXPECT_EXIT(
                {
                    log_set_local_level_for_tag("Timestamp", EL_ERROR,
                                                EO_STDOUT);  // to the matcher
                    dup2(STDERR_FILENO, STDOUT_FILENO);
                    c.misuse();
                },
                ::testing::ExitedWithCode(255), c.message);
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
}

TEST(TimeMillisTest, RoundHalfUpAndClockReadings) {
    EXPECT_EQ(6000, time_internal::rounded_ms(timespec{5, 999600000}));
    EXPECT_EQ(5000, time_internal::rounded_ms(timespec{5, 499999}));
    EXPECT_EQ(5001, time_internal::rounded_ms(timespec{5, 500000}));
    EXPECT_EQ(5000, time_internal::rounded_ms(timeval{5, 499}));
    EXPECT_EQ(5001, time_internal::rounded_ms(timeval{5, 500}));

    EXPECT_NEAR(Timestamp(kBoot).getTimestampPtr()->tv_sec * 1000.0, get_time_boot_ms(), 1000.0);
    EXPECT_NEAR(time(nullptr) * 1000.0, get_time_rtc_ms(), 2000.0);
    EXPECT_FALSE(is_time_rtc_ms_valid(1417569370000LL));
    EXPECT_TRUE(is_time_rtc_ms_valid(1417569370001LL));
}

}  // namespace
}  // namespace vel_loc_fw
