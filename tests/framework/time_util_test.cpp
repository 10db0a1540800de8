#include <vel_loc_fw/time_util.h>

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>

#include "framework/time_util_internal.h"
#include "log_capture.h"

namespace vel_loc_fw {
namespace {

constexpr int kBoot = CLOCK_BOOTTIME;
constexpr int kMono = CLOCK_MONOTONIC;

class TimeTest : public ::testing::Test {
  protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { log_set_global_level(EL_LOG_OFF); }
    varn_test::LogCapture log_;
};

Timestamp stamp(int clock_id, time_t sec, long nsec) {
    timespec time;
    time.tv_sec = sec;
    time.tv_nsec = nsec;
    return Timestamp(clock_id, time);
}

::testing::AssertionResult holds(const TimeDiff& diff, time_t sec, long nsec) {
    const timespec* time = diff.getTimeDiffPtr();
    if (time->tv_sec == sec && time->tv_nsec == nsec) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "holds " << time->tv_sec << " s " << time->tv_nsec << " ns, expected " << sec
           << " s " << nsec << " ns";
}

::testing::AssertionResult holds(const Timestamp& ts, time_t sec, long nsec) {
    const timespec* time = ts.getTimestampPtr();
    if (time->tv_sec == sec && time->tv_nsec == nsec) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "holds " << time->tv_sec << " s " << time->tv_nsec << " ns, expected " << sec
           << " s " << nsec << " ns";
}

// Makes the fatal paths' messages visible to the death-test matcher.
void route_timestamp_errors_to_stderr() {
    log_set_global_level(EL_ERROR);
    log_set_local_level_for_tag("Timestamp", EL_ERROR, EO_STDOUT);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

TEST_F(TimeTest, TimeDiffAdditionsCarryOnlyUpward) {
    struct Case {
        const char* what;
        time_t start_sec;
        long start_nsec;
        int sec, msec, nsec;
        time_t want_sec;
        long want_nsec;
    };
    const Case cases[] = {
        {"msec splits into sec and nsec", 0, 0, 0, 1500, 0, 1, 500000000},
        {"negative msec stays unnormalised", 0, 0, 0, -1500, 0, -1, -500000000},
        {"nsec carries one second at a time", 0, 1, 0, 0, 1999999999, 2, 0},
        {"msec remainder carries", 0, 600000000, 0, 400, 0, 1, 0},
        {"negative nsec stays", 1, 0, 0, 0, -300, 1, -300},
        {"sec adds to seconds only", 0, 999999999, 3, 0, 0, 3, 999999999},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TimeDiff diff(true);
        ASSERT_EQ(0, diff.add_sec(static_cast<int>(c.start_sec)));
        ASSERT_EQ(0, diff.add_nsec(static_cast<int>(c.start_nsec)));
        EXPECT_EQ(0, diff.add_sec(c.sec));
        EXPECT_EQ(0, diff.add_msec(c.msec));
        EXPECT_EQ(0, diff.add_nsec(c.nsec));
        EXPECT_TRUE(holds(diff, c.want_sec, c.want_nsec));
    }
}

TEST_F(TimeTest, TimeDiffTotals) {
    TimeDiff diff(true);
    diff.add_msec(1500);
    EXPECT_FLOAT_EQ(1500.0f, diff.get_total_msec());
    EXPECT_FLOAT_EQ(1.5f, diff.get_total_sec());
    diff.reset(true);
    diff.add_msec(-250);
    EXPECT_FLOAT_EQ(-0.25f, diff.get_total_sec());
    EXPECT_TRUE(log_.dump().empty()) << log_.dump();
}

TEST_F(TimeTest, InvalidTimeDiffRefusesAndReports) {
    TimeDiff diff(false);
    EXPECT_FALSE(diff.is_valid());
    EXPECT_FLOAT_EQ(-1.0f, diff.get_total_sec());
    EXPECT_FLOAT_EQ(-1.0f, diff.get_total_msec());
    EXPECT_EQ(2, diff.add_sec(1));
    EXPECT_EQ(2, diff.add_msec(1));
    EXPECT_EQ(2, diff.add_nsec(1));
    EXPECT_TRUE(holds(diff, 0, 0));
    for (const char* text :
         {"[TimerDiff] get_total_sec failed 2", "[TimerDiff] get_total_msec failed 2",
          "[TimerDiff] add_sec failed 2", "[TimerDiff] add_msec failed 2",
          "[TimerDiff] add_nsec failed 2", "[TimerDiff] getTimeDiffPtr time diff is invalid"}) {
        EXPECT_TRUE(log_.contains(text)) << text << "\n" << log_.dump();
    }
    diff.reset(true);
    EXPECT_EQ(0, diff.add_sec(1));
}

TEST_F(TimeTest, TimestampConstructionAndClocks) {
    Timestamp unset(false);
    EXPECT_FALSE(unset.is_valid());
    EXPECT_EQ(-1, unset.get_clock_id());
    Timestamp now(true);
    EXPECT_TRUE(now.is_valid_and_default());
    EXPECT_EQ(kBoot, now.get_clock_id());
    Timestamp mono(kMono);
    EXPECT_TRUE(mono.is_valid());
    EXPECT_FALSE(mono.is_valid_and_default());
    EXPECT_EQ(0, mono.reset_to_realtime());
    EXPECT_EQ(CLOCK_REALTIME, mono.get_clock_id());
    Timestamp copy(mono);
    copy.invalidate();
    EXPECT_TRUE(mono.is_valid());
    EXPECT_EQ(-1, copy.get_clock_id());
    copy = mono;
    EXPECT_TRUE(copy >= mono && mono >= copy);
    EXPECT_TRUE(log_.dump().empty()) << log_.dump();
}

TEST_F(TimeTest, UnreadableClockLeavesStampInvalid) {
    Timestamp ts = stamp(kMono, 5, 0);
    EXPECT_EQ(1, ts.reset_to_clock_id(12345));
    EXPECT_FALSE(ts.is_valid());
    EXPECT_EQ(-1, ts.get_clock_id());
    const std::string expected = std::string("[Timestamp] reset_to_clock_id failed: id(12345) errno(") +
                                 std::to_string(EINVAL) + ")(" + strerror(EINVAL) + ")";
    EXPECT_TRUE(log_.contains(expected)) << log_.dump();
    EXPECT_TRUE(holds(ts, 0, 0));
    EXPECT_TRUE(log_.contains("[Timestamp] getTimestampPtr timestamp is invalid"));
}

TEST_F(TimeTest, StampPlusAndMinusDurationNormalise) {
    TimeDiff ms200(true);
    ms200.add_msec(200);
    Timestamp sum = stamp(kMono, 5, 900000000) + ms200;
    EXPECT_EQ(kMono, sum.get_clock_id());
    EXPECT_TRUE(holds(sum, 6, 100000000));
    EXPECT_TRUE(holds(stamp(kMono, 5, 100000000) - ms200, 4, 900000000));

    TimeDiff negative(true);
    negative.add_msec(-1500);  // -1 s -500,000,000 ns: the subtraction carries upward
    EXPECT_TRUE(holds(stamp(kMono, 5, 0) - negative, 6, 500000000));
    EXPECT_TRUE(log_.dump().empty()) << log_.dump();

    TimeDiff two_sec(true);
    two_sec.add_sec(2);
    Timestamp before_epoch = stamp(kBoot, 1, 0) - two_sec;
    EXPECT_TRUE(before_epoch.is_valid());
    EXPECT_TRUE(holds(before_epoch, -1, 0));
    EXPECT_TRUE(log_.contains("[Timestamp] diff is returning -ve value possible time rollover -1"))
        << log_.dump();
}

TEST_F(TimeTest, StampMinusStamp) {
    EXPECT_TRUE(holds(stamp(kMono, 10, 100) - stamp(kMono, 8, 200), 1, 999999900));
    EXPECT_TRUE(log_.dump().empty()) << log_.dump();

    TimeDiff back = stamp(kMono, 1, 0) - stamp(kMono, 2, 500);
    EXPECT_TRUE(back.is_valid());
    EXPECT_TRUE(holds(back, -2, 999999500));
    EXPECT_TRUE(log_.contains("[Timestamp] operator - ts returning -ve value probable time "
                              "rollover: sec:1/2/-2, nsec:0/500/999999500"))
        << log_.dump();
}

TEST_F(TimeTest, StampMinusStampNarrowsSecondsTo32Bits) {
    const TimeDiff wide = stamp(kBoot, 3000000000LL, 0) - stamp(kBoot, 0, 0);
    EXPECT_TRUE(holds(wide, static_cast<time_t>(3000000000LL - 4294967296LL), 0));
}

TEST_F(TimeTest, Comparisons) {
    struct Case {
        time_t a_sec;
        long a_nsec;
        time_t b_sec;
        long b_nsec;
        bool a_ge_b;
    };
    const Case cases[] = {
        {5, 7, 5, 7, true},          // equal stamps are >=, not <
        {5, 1, 5, 2, false},         // one nanosecond earlier
        {6, 0, 5, 999999999, true},  // the borrow keeps the sign right
        {4, 999999999, 5, 0, false},
    };
    for (const Case& c : cases) {
        const Timestamp a = stamp(kMono, c.a_sec, c.a_nsec);
        const Timestamp b = stamp(kMono, c.b_sec, c.b_nsec);
        EXPECT_EQ(c.a_ge_b, a >= b) << c.a_sec << "." << c.a_nsec;
        EXPECT_EQ(!c.a_ge_b, a < b) << c.a_sec << "." << c.a_nsec;
    }
}

using TimeDeathTest = TimeTest;

TEST_F(TimeDeathTest, MixedClocksEndTheProcess) {
    EXPECT_EXIT(
        {
            route_timestamp_errors_to_stderr();
            (void)(stamp(kBoot, 1, 0) - stamp(kMono, 1, 0));
        },
        ::testing::ExitedWithCode(255),
        "\\[Timestamp\\] operator - ts: my clock id: 7, his clock id: 1");
    EXPECT_EXIT(
        {
            route_timestamp_errors_to_stderr();
            (void)(stamp(kBoot, 1, 0) >= stamp(kMono, 1, 0));
        },
        ::testing::ExitedWithCode(255), "\\[Timestamp\\] operator >=: my clock id: 7, his clock id: 1");
}

TEST_F(TimeDeathTest, InvalidOperandsEndTheProcess) {
    const Timestamp valid = stamp(kMono, 1, 0);
    const Timestamp invalid(false);
    const TimeDiff good(true);
    const TimeDiff bad(false);
    EXPECT_EXIT((void)(invalid + good), ::testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid + bad), ::testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(invalid - good), ::testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid - bad), ::testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid - invalid), ::testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(invalid >= valid), ::testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid < invalid), ::testing::ExitedWithCode(255), "");
}

TEST(TimeMillisTest, RoundHalfUp) {
    struct Case {
        time_t sec;
        long sub;  // nanoseconds or microseconds
        int64_t from_timespec;
        int64_t from_timeval;
    };
    const Case cases[] = {
        {5, 0, 5000, 5000},
        {5, 499, 5000, 5000},  // timeval: 0.499 ms rounds down
        {5, 500, 5000, 5001},  // timeval: 0.5 ms rounds up
        {5, 499999, 5000, 5500},
        {5, 500000, 5001, 5500},
        {5, 999600000, 6000, -1},
    };
    for (const Case& c : cases) {
        const timespec ts{c.sec, c.sub};
        EXPECT_EQ(c.from_timespec, time_internal::rounded_ms(ts)) << c.sub;
        if (c.from_timeval < 0) continue;
        const timeval tv{c.sec, static_cast<suseconds_t>(c.sub)};
        EXPECT_EQ(c.from_timeval, time_internal::rounded_ms(tv)) << c.sub;
    }
}

TEST(TimeMillisTest, ReadingsFollowTheirClocks) {
    const Timestamp boot_before(kBoot);
    const Timestamp mono_before(kMono);
    const int64_t boot_ms = get_time_boot_ms();
    const int64_t mono_ms = get_time_monotonic_ms();
    const Timestamp boot_after(kBoot);
    const Timestamp mono_after(kMono);
    EXPECT_GE(boot_ms, boot_before.getTimestampPtr()->tv_sec * 1000);
    EXPECT_LE(boot_ms, (boot_after.getTimestampPtr()->tv_sec + 1) * 1000);
    EXPECT_GE(mono_ms, mono_before.getTimestampPtr()->tv_sec * 1000);
    EXPECT_LE(mono_ms, (mono_after.getTimestampPtr()->tv_sec + 1) * 1000);
    const int64_t rtc_ms = get_time_rtc_ms();
    EXPECT_NEAR(static_cast<double>(time(nullptr)) * 1000.0, static_cast<double>(rtc_ms), 2000.0);
    EXPECT_TRUE(is_time_rtc_ms_valid(rtc_ms));
}

TEST(TimeMillisTest, RtcValidityBoundary) {
    EXPECT_FALSE(is_time_rtc_ms_valid(0));
    EXPECT_FALSE(is_time_rtc_ms_valid(1417569370000LL));
    EXPECT_TRUE(is_time_rtc_ms_valid(1417569370001LL));
}

}  // namespace
}  // namespace vel_loc_fw
