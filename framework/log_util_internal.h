// Logging helpers for the library's own modules (not exported).
#pragma once

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {

// True when a message of `level` for `tag` would pass the filter. Reads the
// filter state without the log mutex, as is_log_verbose_enabled() does, so
// hot paths can skip formatting text that cannot be written.
bool is_log_level_enabled(const char* tag, ERROR_LEVEL level);

}  // namespace vel_loc_fw
