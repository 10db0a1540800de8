// Rounding of clock readings, shared by the millisecond clock functions and
// their tests. Not exported.
#pragma once

#include <stdint.h>
#include <sys/time.h>
#include <time.h>

namespace vel_loc_fw {
namespace time_internal {

// Nearest millisecond, half up.
int64_t rounded_ms(const timespec& time);
int64_t rounded_ms(const timeval& time);

}  // namespace time_internal
}  // namespace vel_loc_fw
