// Durations, time stamps and millisecond clock readings.
#include <vel_loc_fw/time_util.h>

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include <vel_loc_fw/log_util.h>

#include "framework/time_util_internal.h"

namespace vel_loc_fw {

namespace {

constexpr const char* kDiffTag = "TimerDiff";
constexpr const char* kStampTag = "Timestamp";
constexpr long kNsecPerSec = 1000000000L;
constexpr long kMaxNsec = kNsecPerSec - 1;
constexpr int kDefaultClock = CLOCK_BOOTTIME;
// Wall-clock readings up to this instant come from an unset clock.
constexpr int64_t kRtcValidAfterMs = 1417569370000LL;

// Moves whole seconds between the fields one at a time until the nanoseconds
// are in 0..999,999,999.
void normalise(timespec* time) {
    while (time->tv_nsec < 0) {
        time->tv_nsec += kNsecPerSec;
        --time->tv_sec;
    }
    while (time->tv_nsec > kMaxNsec) {
        time->tv_nsec -= kNsecPerSec;
        ++time->tv_sec;
    }
}

timespec subtract(const timespec& a, const timespec& b) {
    timespec result;
    result.tv_sec = a.tv_sec - b.tv_sec;
    result.tv_nsec = a.tv_nsec - b.tv_nsec;
    normalise(&result);
    return result;
}

// Misuse of stamps is a programming error that must not go on with a
// meaningless time.
[[noreturn]] void fail_fatally() { exit(-1); }

}  // namespace

namespace time_internal {

int64_t rounded_ms(const timespec& time) {
    return static_cast<int64_t>(time.tv_sec) * 1000 + (time.tv_nsec + 500000) / 1000000;
}

int64_t rounded_ms(const timeval& time) {
    return static_cast<int64_t>(time.tv_sec) * 1000 + (time.tv_usec + 500) / 1000;
}

}  // namespace time_internal

// --- TimeDiff ---

TimeDiff::TimeDiff(bool valid) { reset(valid); }

void TimeDiff::reset(bool valid) {
    valid_ = valid;
    diff_.tv_sec = 0;
    diff_.tv_nsec = 0;
}

bool TimeDiff::is_valid() const { return valid_; }

const timespec* TimeDiff::getTimeDiffPtr() const {
    if (!valid_) log_warning(kDiffTag, "getTimeDiffPtr time diff is invalid");
    return &diff_;
}

float TimeDiff::get_total_sec() const {
    if (!valid_) {
        log_error(kDiffTag, "get_total_sec failed %d", 2);
        return -1.0f;
    }
    const double fraction = static_cast<double>(diff_.tv_nsec) / 1e9;
    return static_cast<float>(diff_.tv_sec) + static_cast<float>(fraction);
}

float TimeDiff::get_total_msec() const {
    if (!valid_) {
        log_error(kDiffTag, "get_total_msec failed %d", 2);
        return -1.0f;
    }
    return static_cast<float>(diff_.tv_nsec) / 1e6f + static_cast<float>(diff_.tv_sec) * 1000.0f;
}

int TimeDiff::add_sec(int sec) {
    if (!valid_) {
        log_error(kDiffTag, "add_sec failed %d", 2);
        return 2;
    }
    diff_.tv_sec += sec;
    return 0;
}

int TimeDiff::add_msec(int msec) {
    if (!valid_) {
        log_error(kDiffTag, "add_msec failed %d", 2);
        return 2;
    }
    int64_t sec = msec / 1000;
    const int64_t rest_ms = msec - sec * 1000;
    diff_.tv_nsec += rest_ms * 1000000;
    // Only the upper bound: a negative remainder stays in the nanoseconds.
    while (diff_.tv_nsec > kMaxNsec) {
        diff_.tv_nsec -= kNsecPerSec;
        ++sec;
    }
    diff_.tv_sec += sec;
    return 0;
}

int TimeDiff::add_nsec(int nsec) {
    if (!valid_) {
        log_error(kDiffTag, "add_nsec failed %d", 2);
        return 2;
    }
    diff_.tv_nsec += nsec;
    while (diff_.tv_nsec > kMaxNsec) {
        diff_.tv_nsec -= kNsecPerSec;
        ++diff_.tv_sec;
    }
    return 0;
}

// --- Timestamp ---

Timestamp::Timestamp(bool now) {
    invalidate();
    if (now) reset_to_default_clock();
}

Timestamp::Timestamp(int clockId) { reset_to_clock_id(clockId); }

Timestamp::Timestamp(int clockId, const timespec& time)
    : valid_(true), clock_id_(clockId), time_(time) {}

Timestamp::Timestamp(const Timestamp& other) = default;

Timestamp& Timestamp::operator=(const Timestamp& other) = default;

void Timestamp::invalidate() {
    valid_ = false;
    clock_id_ = -1;
    time_.tv_sec = 0;
    time_.tv_nsec = 0;
}

int Timestamp::reset_to_clock_id(int clockId) {
    invalidate();
    if (clock_gettime(clockId, &time_) != 0) {
        const int error = errno;
        time_.tv_sec = 0;
        time_.tv_nsec = 0;
        log_error(kStampTag, "reset_to_clock_id failed: id(%d) errno(%d)(%s)", clockId, error,
                  strerror(error));
        return 1;
    }
    valid_ = true;
    clock_id_ = clockId;
    return 0;
}

int Timestamp::reset_to_default_clock() { return reset_to_clock_id(kDefaultClock); }

int Timestamp::reset_to_boottime() { return reset_to_clock_id(CLOCK_BOOTTIME); }

int Timestamp::reset_to_monotonic() { return reset_to_clock_id(CLOCK_MONOTONIC); }

int Timestamp::reset_to_realtime() { return reset_to_clock_id(CLOCK_REALTIME); }

int Timestamp::get_clock_id() const { return clock_id_; }

bool Timestamp::is_valid() const { return valid_; }

bool Timestamp::is_valid_and_default() const { return valid_ && clock_id_ == kDefaultClock; }

timespec* Timestamp::getTimestampPtr() {
    if (!valid_) log_warning(kStampTag, "getTimestampPtr timestamp is invalid");
    return &time_;
}

const timespec* Timestamp::getTimestampPtr() const {
    if (!valid_) log_warning(kStampTag, "getTimestampPtr timestamp is invalid");
    return &time_;
}

Timestamp Timestamp::operator-(const TimeDiff& diff) const {
    if (!valid_ || !diff.is_valid()) fail_fatally();
    const timespec result = subtract(time_, *diff.getTimeDiffPtr());
    if (result.tv_sec < 0) {
        log_error(kStampTag, "diff is returning -ve value possible time rollover %d",
                  static_cast<int>(result.tv_sec));
    }
    return Timestamp(clock_id_, result);
}

Timestamp Timestamp::operator+(const TimeDiff& diff) const {
    if (!valid_ || !diff.is_valid()) fail_fatally();
    const timespec* add = diff.getTimeDiffPtr();
    timespec result;
    result.tv_sec = time_.tv_sec + add->tv_sec;
    result.tv_nsec = time_.tv_nsec + add->tv_nsec;
    while (result.tv_nsec > kMaxNsec) {
        result.tv_nsec -= kNsecPerSec;
        ++result.tv_sec;
    }
    return Timestamp(clock_id_, result);
}

TimeDiff Timestamp::operator-(const Timestamp& other) const {
    if (!valid_ || !other.valid_) fail_fatally();
    if (clock_id_ != other.clock_id_) {
        log_error(kStampTag, "operator - ts: my clock id: %d, his clock id: %d", clock_id_,
                  other.clock_id_);
        fail_fatally();
    }
    const timespec result = subtract(time_, other.time_);
    if (result.tv_sec < 0) {
        log_error(kStampTag,
                  "operator - ts returning -ve value probable time rollover: "
                  "sec:%d/%d/%d, nsec:%d/%d/%d",
                  static_cast<int>(time_.tv_sec), static_cast<int>(other.time_.tv_sec),
                  static_cast<int>(result.tv_sec), static_cast<int>(time_.tv_nsec),
                  static_cast<int>(other.time_.tv_nsec), static_cast<int>(result.tv_nsec));
    }
    // Deliberately narrowed to `int`: callers have always received wrapped
    // values for gaps beyond 2^31 - 1 seconds.
    TimeDiff diff(true);
    diff.add_sec(static_cast<int>(result.tv_sec));
    diff.add_nsec(static_cast<int>(result.tv_nsec));
    return diff;
}

bool Timestamp::operator>=(const Timestamp& other) const {
    if (!valid_ || !other.valid_) fail_fatally();
    if (clock_id_ != other.clock_id_) {
        log_error(kStampTag, "operator >=: my clock id: %d, his clock id: %d", clock_id_,
                  other.clock_id_);
        fail_fatally();
    }
    return subtract(time_, other.time_).tv_sec >= 0;
}

bool Timestamp::operator<(const Timestamp& other) const { return !(*this >= other); }

// --- Millisecond clocks ---

extern "C" {

int64_t get_time_rtc_ms() {
    timeval now = {};
    if (gettimeofday(&now, nullptr) != 0) now = timeval{};
    return time_internal::rounded_ms(now);
}

int64_t get_time_monotonic_ms() {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) now = timespec{};
    return time_internal::rounded_ms(now);
}

int64_t get_time_boot_ms() {
    timespec now = {};
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0) now = timespec{};
    return time_internal::rounded_ms(now);
}

bool is_time_rtc_ms_valid(int64_t ms) { return ms > kRtcValidAfterMs; }

}  // extern "C"

}  // namespace vel_loc_fw
