// Durations, clock-bound time stamps and millisecond clock readings.
//
// `TimeDiff` is a duration that may be marked invalid ("no limit" where it is
// used as a time-out). `Timestamp` is a point in time on one POSIX clock
// (`CLOCK_REALTIME` 0, `CLOCK_MONOTONIC` 1, `CLOCK_BOOTTIME` 7, the default).
//
//   vel_loc_fw::Timestamp start(true);             // boot time, now
//   ...
//   vel_loc_fw::TimeDiff elapsed = vel_loc_fw::Timestamp(true) - start;
//
// Arithmetic and comparison on an invalid `Timestamp`, or across two clocks,
// is a programming error and ends the process with exit status -1: check
// is_valid() first. `TimeDiff` messages use the tag "TimerDiff", `Timestamp`
// messages the tag "Timestamp".
//
// Normalisation moves whole seconds of 1,000,000,000 ns one at a time, and
// only `Timestamp` arithmetic borrows; `TimeDiff` additions carry into the
// seconds but leave negative nanoseconds as they are.
#pragma once

#include <stdint.h>
#include <time.h>

#include <vel_loc_fw/fw_export.h>

namespace vel_loc_fw {

class OutPostcard;
class InPostcard;

// A duration. Value type, no shared state.
class VEL_LOC_FW_EXPORT TimeDiff {
  public:
    // Zero duration, valid or not.
    explicit TimeDiff(bool valid);

    // Zero duration again, with the given validity.
    void reset(bool valid);
    bool is_valid() const;

    // The duration; warns when invalid but returns it all the same.
    const timespec* getTimeDiffPtr() const;

    // Seconds (resp. milliseconds) as a float; -1.0 and an error when invalid.
    float get_total_sec() const;
    float get_total_msec() const;

    // Add to the duration. Each returns 0, or 2 (with an error) when invalid.
    // Nanoseconds above 999,999,999 carry into the seconds; negative
    // nanoseconds are kept as they are.
    int add_sec(int sec);
    int add_msec(int msec);
    int add_nsec(int nsec);

  private:
    bool valid_;
    timespec diff_;
};

// A point in time on one clock. Value type, no shared state.
class VEL_LOC_FW_EXPORT Timestamp {
  public:
    // Invalid; with `now`, reads the default clock (`CLOCK_BOOTTIME`).
    explicit Timestamp(bool now);
    // Reads `clockId`; invalid when the clock cannot be read.
    explicit Timestamp(int clockId);
    // Valid, on `clockId`, holding `time`; reads no clock.
    Timestamp(int clockId, const timespec& time);
    Timestamp(const Timestamp& other);
    Timestamp& operator=(const Timestamp& other);

    // Invalid, clock -1, time zero.
    void invalidate();

    // Invalidate, then read `clockId`. Returns 0, or 1 (with an error, the
    // stamp left invalid) when the clock cannot be read.
    int reset_to_clock_id(int clockId);
    int reset_to_default_clock();
    int reset_to_boottime();
    int reset_to_monotonic();
    int reset_to_realtime();

    int get_clock_id() const;
    bool is_valid() const;
    // Valid and on `CLOCK_BOOTTIME`.
    bool is_valid_and_default() const;

    // The time; warns when invalid but returns it all the same.
    timespec* getTimestampPtr();
    const timespec* getTimestampPtr() const;

    // A valid stamp on this stamp's clock, normalised to 0..999,999,999 ns.
    // Exits the process when either operand is invalid. A result before the
    // clock's epoch is logged as a probable rollover and returned.
    Timestamp operator-(const TimeDiff& diff) const;
    Timestamp operator+(const TimeDiff& diff) const;

    // This stamp minus `other`. Exits the process when either is invalid or
    // the clocks differ. The seconds and nanoseconds are narrowed to `int` on
    // the way into the result, so a gap beyond 2^31 - 1 seconds wraps.
    TimeDiff operator-(const Timestamp& other) const;

    // Exits the process when either is invalid or the clocks differ. Equal
    // stamps compare as `>=`.
    bool operator>=(const Timestamp& other) const;
    bool operator<(const Timestamp& other) const;

    // Carries this stamp as a nested postcard `name` of `out`. Defined with
    // the postcards (see there for the codes); as members they read and
    // write the fields below directly.
    int insert_into_postcard(OutPostcard* out, const char* name) const;
    // Reads a stamp written by insert_into_postcard(); invalid on failure.
    static Timestamp retrieve_from_postcard(InPostcard* in, const char* name);

  private:
    bool valid_;    // kept in a 32-bit slot by the alignment of `clock_id_`
    int clock_id_;  // -1 while invalid
    timespec time_;
};

// Clock readings in milliseconds, rounded half up; 0 when the clock cannot be
// read. Reentrant.
extern "C" {
// Wall clock (`gettimeofday`).
VEL_LOC_FW_EXPORT int64_t get_time_rtc_ms();
VEL_LOC_FW_EXPORT int64_t get_time_monotonic_ms();
VEL_LOC_FW_EXPORT int64_t get_time_boot_ms();
// False for wall-clock readings up to 2014-12-03 01:16:10 UTC, which come from
// a clock that has not been set yet.
VEL_LOC_FW_EXPORT bool is_time_rtc_ms_valid(int64_t ms);
}

}  // namespace vel_loc_fw
