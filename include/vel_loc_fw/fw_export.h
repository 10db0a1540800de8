// Symbol visibility of the exported interface.
//
// The library is built with hidden visibility by default; only declarations
// marked with VEL_LOC_FW_EXPORT are part of its dynamic symbol table.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define VEL_LOC_FW_EXPORT __attribute__((visibility("default")))
#define VEL_LOC_FW_PRINTF(fmt_index, first_arg) \
    __attribute__((format(printf, fmt_index, first_arg)))
#else
#define VEL_LOC_FW_EXPORT
#define VEL_LOC_FW_PRINTF(fmt_index, first_arg)
#endif
