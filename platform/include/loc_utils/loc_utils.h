// Platform location utilities: the values this platform's components read.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Path of the VARN configuration file. Points at the platform's default
// ("/vendor/etc/varn.conf") until changed; tests and tools may assign any
// path that outlives its use, or call loc_utils_set_varn_conf_path().
extern const char* LOC_PATH_VARN_CONF;

// Debug level of the platform (0..5); 5 and above enables full BSSID printing.
extern int varn_debug_level;

// Sets LOC_PATH_VARN_CONF; null restores the default. `path` is borrowed.
void loc_utils_set_varn_conf_path(const char* path);

#ifdef __cplusplus
}
#endif
