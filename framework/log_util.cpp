// Logging: global and per-tag levels, Android log and standard output.
#include <vel_loc_fw/log_util.h>

#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <atomic>
#include <new>

#include <vel_loc_fw/list.h>
#include <vel_loc_fw/mutex.h>

#include "framework/log_util_internal.h"

namespace vel_loc_fw {
namespace {

constexpr const char kTag[] = "LOG_UTIL";
constexpr size_t kTextSize = 512;
constexpr size_t kTimeSize = 40;
constexpr size_t kGlobalTagSize = 64;

struct TagLevelNode {
    TagLevelNode* next;
    char* tag;  // strdup'ed, owned
    ERROR_LEVEL level;
    ERROR_OUTPUT output;
    ~TagLevelNode() { free(tag); }
};

using TagLevelList = List<TagLevelNode>;

// Process-wide logging state. The mutex and the list are created by a load-time
// constructor that runs before every other initialiser of the library, and are
// deliberately never destroyed: exit-time destructors of other objects still log.
Mutex* g_log_mutex = nullptr;
TagLevelList* g_local_levels = nullptr;
// Written only under the log mutex; atomic because is_log_verbose_enabled() and
// log_error_no_lock() read it without the mutex.
std::atomic<int> g_global_level{EL_LOG_OFF};
char g_global_tag[kGlobalTagSize] = "ZORLOG";

__attribute__((constructor(101))) void create_log_state() {
    g_log_mutex = new (std::nothrow) MutexImpl(nullptr, false);
    g_local_levels = new (std::nothrow) TagLevelList();
}

// Decides whether a message passes; on success `*output` is where it goes.
bool passes(const char* tag, ERROR_LEVEL level, ERROR_OUTPUT* output) {
    if (g_local_levels != nullptr && tag != nullptr) {
        const TagLevelNode* node = g_local_levels->find([tag](const TagLevelNode& n) {
            return n.tag != nullptr && strcmp(n.tag, tag) == 0;
        });
        if (node != nullptr) {
            if (level > node->level) return false;
            *output = node->output;
            return true;
        }
    }
    if (level > g_global_level.load(std::memory_order_relaxed)) return false;
    *output = EO_ANDROID;
    return true;
}

int android_priority(ERROR_LEVEL level) {
    switch (level) {
        case EL_ERROR: return ANDROID_LOG_ERROR;
        case EL_WARNING: return ANDROID_LOG_WARN;
        case EL_INFO: return ANDROID_LOG_INFO;
        case EL_DEBUG: return ANDROID_LOG_DEBUG;
        case EL_VERBOSE: return ANDROID_LOG_VERBOSE;
        default: return -1;
    }
}

// Formats and writes one message that already passed the filter. Kept out of
// line so that filtered-out calls never touch its 1 KiB of stack buffers.
__attribute__((noinline)) void write_message(const char* tag, ERROR_LEVEL level,
                                             ERROR_OUTPUT output, const char* fmt, va_list args) {
    char text[kTextSize];
    char line[kTextSize];
    if (output == EO_ANDROID) {
        // The common case in one formatting pass: "[tag] " first, then the
        // text formatted straight after it. Both are cut at the same 511
        // characters as formatting the text and then the line would cut them.
        size_t used = 0;
        if (tag != nullptr) {
            line[used++] = '[';
            for (const char* c = tag; *c != '\0' && used < kTextSize - 1; ++c) line[used++] = *c;
            for (const char* c = "] "; *c != '\0' && used < kTextSize - 1; ++c) line[used++] = *c;
            line[used] = '\0';
        }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        const int n = vsnprintf(line + used, kTextSize - used, fmt, args);
#pragma GCC diagnostic pop
        if (n < 1) {
            snprintf(line + used, kTextSize - used, "%s", "log subsystem message format error");
        }
        const int priority = android_priority(level);
        if (priority < 0) {
            __android_log_print(ANDROID_LOG_ERROR, g_global_tag,
                                "Internal error in log subsystem: unknown log level");
        } else {
            __android_log_print(priority, g_global_tag, "%s", line);
        }
        return;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int n = vsnprintf(text, sizeof(text), fmt, args);
#pragma GCC diagnostic pop
    if (n < 1) {
        snprintf(text, sizeof(text), "%s", "log subsystem message format error");
    }

    if (output & EO_ANDROID) {
        n = tag != nullptr ? snprintf(line, sizeof(line), "[%s] %s", tag, text)
                           : snprintf(line, sizeof(line), "%s", text);
        const int priority = android_priority(level);
        if (n < 1) {
            __android_log_print(ANDROID_LOG_ERROR, g_global_tag,
                                "Internal error in log subsystem: format error");
        } else if (priority < 0) {
            __android_log_print(ANDROID_LOG_ERROR, g_global_tag,
                                "Internal error in log subsystem: unknown log level");
        } else {
            __android_log_print(priority, g_global_tag, "%s", line);
        }
    }

    if (output & EO_STDOUT) {
        const time_t now = time(nullptr);
        struct tm calendar;
        if (localtime_r(&now, &calendar) == nullptr) memset(&calendar, 0, sizeof(calendar));
        // Whole seconds only: the ".000" is literal text of the format.
        char stamp[kTimeSize] = {};
        strftime(stamp, kTimeSize - 1, "%m-%d %H:%M:%S.000", &calendar);
        n = tag != nullptr
                    ? snprintf(line, sizeof(line), "%s %s:[%s] %s", stamp, g_global_tag, tag, text)
                    : snprintf(line, sizeof(line), "%s %s: %s", stamp, g_global_tag, text);
        puts(n < 1 ? "Internal error in log subsystem: format error" : line);
    }
}

void log_locked(const char* tag, ERROR_LEVEL level, const char* fmt, va_list args) {
    AutoLock guard(g_log_mutex, nullptr);
    // Written even when the lock failed; the AutoLock has reported that.
    ERROR_OUTPUT output;
    if (passes(tag, level, &output)) write_message(tag, level, output, fmt, args);
}

}  // namespace

#define VEL_LOC_FW_DEFINE_LOG_FUNCTION(name, level)    \
    void name(const char* tag, const char* fmt, ...) { \
        va_list args;                                  \
        va_start(args, fmt);                           \
        log_locked(tag, level, fmt, args);             \
        va_end(args);                                  \
    }

VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_error, EL_ERROR)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_warning, EL_WARNING)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_info, EL_INFO)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_debug, EL_DEBUG)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_verbose, EL_VERBOSE)

#undef VEL_LOC_FW_DEFINE_LOG_FUNCTION

void log_error_no_lock(const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    ERROR_OUTPUT output;
    if (passes(tag, EL_ERROR, &output)) write_message(tag, EL_ERROR, output, fmt, args);
    va_end(args);
}

bool is_log_level_enabled(const char* tag, ERROR_LEVEL level) {
    if (g_local_levels != nullptr && tag != nullptr && !g_local_levels->empty()) {
        const TagLevelNode* node = g_local_levels->find([tag](const TagLevelNode& n) {
            return n.tag != nullptr && strcmp(n.tag, tag) == 0;
        });
        if (node != nullptr) return level <= node->level;
    }
    return level <= g_global_level.load(std::memory_order_relaxed);
}

bool is_log_verbose_enabled(const char* tag) { return is_log_level_enabled(tag, EL_VERBOSE); }

int log_set_global_level(ERROR_LEVEL level) {
    int result = 0;
    if (g_log_mutex == nullptr) {
        result = 2;
    } else {
        AutoLock guard(g_log_mutex, nullptr);
        if (guard.ZeroIfLocked() != 0) {
            result = 3;
        } else {
            g_global_level.store(level, std::memory_order_relaxed);
        }
    }
    if (result != 0) log_error(kTag, "log_set_global_level failed %d", result);
    return result;
}

int log_set_global_tag(const char* tag) {
    int result = 0;
    if (g_log_mutex == nullptr) {
        result = 2;
    } else {
        AutoLock guard(g_log_mutex, nullptr);
        if (guard.ZeroIfLocked() != 0) {
            result = 3;
        } else {
            const int n = snprintf(g_global_tag, sizeof(g_global_tag), "%s", tag);
            if (n >= static_cast<int>(sizeof(g_global_tag))) result = 4;
        }
    }
    if (result != 0) log_error(kTag, "log_set_global_tag failed %d", result);
    return result;
}

int log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level) {
    return log_set_local_level_for_tag(tag, level, EO_ANDROID);
}

int log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level, ERROR_OUTPUT output) {
    int result = 0;
    if (tag == nullptr) {
        result = 2;
    } else if (g_log_mutex == nullptr) {
        result = 3;
    } else if (g_local_levels == nullptr) {
        result = 4;
    } else {
        AutoLock guard(g_log_mutex, nullptr);
        if (guard.ZeroIfLocked() != 0) {
            result = 5;
        } else if (TagLevelNode* node = g_local_levels->find([tag](const TagLevelNode& n) {
                       return n.tag != nullptr && strcmp(n.tag, tag) == 0;
                   })) {
            node->level = level;
            node->output = output;
        } else {
            TagLevelNode* fresh =
                    new (std::nothrow) TagLevelNode{nullptr, strdup(tag), level, output};
            if (fresh == nullptr || fresh->tag == nullptr) {
                delete fresh;
                result = 6;
            } else {
                g_local_levels->push_front(fresh);
            }
        }
    }
    if (result != 0) log_error(kTag, "log_set_local_level_for_tag failed %d", result);
    return result;
}

int log_flush_local_level_for_tag(const char* tag) {
    int result = 0;
    if (g_log_mutex == nullptr) {
        result = 2;
    } else if (g_local_levels == nullptr) {
        result = 3;
    } else {
        AutoLock guard(g_log_mutex, nullptr);
        if (guard.ZeroIfLocked() != 0) {
            result = 4;
        } else {
            TagLevelNode* node = g_local_levels->head();
            while (node != nullptr) {
                TagLevelNode* next = node->next;
                const bool remove =
                        tag == nullptr || (node->tag != nullptr && strcmp(node->tag, tag) == 0);
                if (remove && !g_local_levels->erase_and_delete(node)) break;
                node = next;
            }
        }
    }
    if (result != 0) log_error(kTag, "log_flush_local_level_for_tag failed %d", result);
    return result;
}

int log_flush_all_local_level() { return log_flush_local_level_for_tag(nullptr); }

}  // namespace vel_loc_fw
