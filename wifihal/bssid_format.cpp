// BSSID printing shared by the entry points' request dumps.
#include "wifihal/wifihal_internal.h"

#include <loc_utils/loc_utils.h>

void bssidDigits(const unsigned char* bssid, char (&digits)[kBssidDigits]) {
    static const char kHex[] = "0123456789abcdef";
    // Full addresses identify devices; print them only on debug builds of the platform.
    const bool mask = varn_debug_level < 5;
    for (size_t octet = 0; octet < 6; ++octet) {
        const bool hidden = mask && (octet == 3 || octet == 4);
        digits[2 * octet] = hidden ? '*' : kHex[bssid[octet] >> 4];
        digits[2 * octet + 1] = hidden ? '*' : kHex[bssid[octet] & 0x0f];
    }
}
