// Logging for every module of the platform.
//
// A message carries a level and a module tag. It is filtered against the
// per-tag level set for its tag, or the global level when the tag has none,
// and written to the Android log, to standard output, or to both.
//
//   vel_loc_fw::log_set_global_level(vel_loc_fw::EL_INFO);
//   vel_loc_fw::log_info("MyModule", "%s: started", __func__);
//
// All state is guarded by one process-wide, error-checking mutex that is
// created before any other code of the library runs. No message path
// allocates: the text is formatted into fixed stack buffers of 512 bytes
// (longer text is cut at 511 characters).
#pragma once

#include <vel_loc_fw/fw_export.h>

namespace vel_loc_fw {

// Level of a message, and threshold of a filter. A message of level L passes
// a threshold T when L <= T; T = EL_LOG_OFF silences everything.
enum ERROR_LEVEL {
    EL_LOG_OFF = 0,
    EL_ERROR = 1,
    EL_WARNING = 2,
    EL_INFO = 3,
    EL_DEBUG = 4,
    EL_VERBOSE = 5,
};

// Where a passing message goes; a bit set, both bits may be combined.
enum ERROR_OUTPUT {
    EO_ANDROID = 1,  // __android_log_print
    EO_STDOUT = 2,   // one line through puts()
};

// Setters return 0 on success and report every failure under "LOG_UTIL" after
// releasing the log mutex.

// Sets the threshold of tags without a level of their own.
// Returns 2 when the log mutex is missing, 3 when it cannot be locked.
VEL_LOC_FW_EXPORT int log_set_global_level(ERROR_LEVEL level);

// Sets the Android log tag of every message (default "ZORLOG"). A tag of 64
// characters or more keeps its first 63 characters and returns 4.
// Returns 2 when the log mutex is missing, 3 when it cannot be locked.
VEL_LOC_FW_EXPORT int log_set_global_tag(const char* tag);

// Gives `tag` its own threshold and output (EO_ANDROID in the two-argument
// form), replacing an earlier setting for the same tag.
// Returns 2 for a null tag, 3 when the log mutex is missing, 4 when the tag
// list is missing, 5 when the mutex cannot be locked, 6 when out of memory.
VEL_LOC_FW_EXPORT int log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level);
VEL_LOC_FW_EXPORT int log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level,
                                                  ERROR_OUTPUT output);

// Removes the per-tag settings of `tag`, or all of them when `tag` is null.
// Returns 2 when the log mutex is missing, 3 when the tag list is missing, 4
// when the mutex cannot be locked.
VEL_LOC_FW_EXPORT int log_flush_local_level_for_tag(const char* tag);
VEL_LOC_FW_EXPORT int log_flush_all_local_level();

// True when verbose messages of `tag` would pass. Does not take the log mutex,
// so callers may use it to skip building text that cannot be written.
VEL_LOC_FW_EXPORT bool is_log_verbose_enabled(const char* tag);

// True when a message of `level` for `tag` would pass the filter (the
// per-tag level of `tag`, else the global level); is_log_verbose_enabled()
// is this with EL_VERBOSE. Does not take the log mutex either: a hot path can
// skip the arguments and the call of a message that cannot be written. The
// answer may be stale by the time the message is written if another thread
// changes the levels meanwhile; the message function filters again.
VEL_LOC_FW_EXPORT bool is_log_level_enabled(const char* tag, ERROR_LEVEL level);

// Message functions. `tag` may be null. They never fail to their caller.
VEL_LOC_FW_EXPORT void log_error(const char* tag, const char* fmt, ...) VEL_LOC_FW_PRINTF(2, 3);
VEL_LOC_FW_EXPORT void log_warning(const char* tag, const char* fmt, ...) VEL_LOC_FW_PRINTF(2, 3);
VEL_LOC_FW_EXPORT void log_info(const char* tag, const char* fmt, ...) VEL_LOC_FW_PRINTF(2, 3);
VEL_LOC_FW_EXPORT void log_debug(const char* tag, const char* fmt, ...) VEL_LOC_FW_PRINTF(2, 3);
VEL_LOC_FW_EXPORT void log_verbose(const char* tag, const char* fmt, ...) VEL_LOC_FW_PRINTF(2, 3);

// Error-level message written without taking the log mutex. Meant for the
// lock code itself, whose failures must not re-enter the log mutex.
VEL_LOC_FW_EXPORT void log_error_no_lock(const char* tag, const char* fmt, ...)
        VEL_LOC_FW_PRINTF(2, 3);

}  // namespace vel_loc_fw
