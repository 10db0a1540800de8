// Host values of the platform location utilities.
#include <loc_utils/loc_utils.h>

namespace {
constexpr const char* kDefaultVarnConfPath = "/vendor/etc/varn.conf";
}  // namespace

extern "C" {

const char* LOC_PATH_VARN_CONF = kDefaultVarnConfPath;
int varn_debug_level = 3;

void loc_utils_set_varn_conf_path(const char* path) {
    LOC_PATH_VARN_CONF = path != nullptr ? path : kDefaultVarnConfPath;
}

}  // extern "C"
