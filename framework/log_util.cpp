// Logging: global and per-tag levels, Android log and standard output.
#include <vel_loc_fw/log_util.h>

#include <android/log.h>
#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <stdint.h>

#include <atomic>
#include <new>

#include <vel_loc_fw/list.h>
#include <vel_loc_fw/mutex.h>

#include "framework/mutex_internal.h"

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
// The mutex is held as its implementation so that every log call locks it
// without a virtual call.
MutexImpl* g_log_mutex = nullptr;
TagLevelList* g_local_levels = nullptr;
// Written only under the log mutex; atomic because is_log_level_enabled() and
// log_error_no_lock() read it without the mutex.
std::atomic<int> g_global_level{EL_LOG_OFF};
char g_global_tag[kGlobalTagSize] = "ZORLOG";

// is_log_level_enabled() and log_error_no_lock() read the per-tag list and the
// global tag without the log mutex, so a flush could free a node under them.
// Setters therefore change the list and the tag holding this lock as well (always
// after the log mutex), and those readers take it alone; it is held only for a
// few loads and stores and never while logging. `g_has_local_levels` lets
// them skip it entirely while no tag has a level of its own.
pthread_mutex_t g_filter_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<bool> g_has_local_levels{false};

__attribute__((constructor(101))) void create_log_state() {
    g_log_mutex = new (std::nothrow) MutexImpl(nullptr, false);
    g_local_levels = new (std::nothrow) TagLevelList();
}

class FilterLock {
  public:
    FilterLock() { pthread_mutex_lock(&g_filter_lock); }
    ~FilterLock() { pthread_mutex_unlock(&g_filter_lock); }
    FilterLock(const FilterLock&) = delete;
    FilterLock& operator=(const FilterLock&) = delete;
};

// The first node, from the head, whose tag equals `tag`; null when there is
// none. The caller holds the log mutex or the filter lock.
const TagLevelNode* find_local_level(const char* tag) {
    if (g_local_levels == nullptr || tag == nullptr) return nullptr;
    for (const TagLevelNode* n = g_local_levels->head(); n != nullptr; n = n->next) {
        if (n->tag != nullptr && strcmp(n->tag, tag) == 0) return n;
    }
    return nullptr;
}

// A flat copy of the head of the per-tag list for the message path: the first
// nodes that have a tag, in list order, with their tags stored inline, so that
// a look-up follows no pointers. It is `complete` when it holds every such
// node; otherwise a look-up that misses it goes on through the list.
// Rebuilt by every setter that changes the list, under both locks.
constexpr size_t kFlatTagSize = 32;
constexpr uint32_t kFlatLevels = 8;
struct FlatLevel {
    char tag[kFlatTagSize];
    ERROR_LEVEL level;
    ERROR_OUTPUT output;
};
struct FlatLevels {
    bool any = false;  // some tag has a level of its own: look it up
    bool complete = true;
    uint32_t count = 0;
    FlatLevel entries[kFlatLevels];
};
FlatLevels g_flat_levels;

void rebuild_flat_levels() {
    FlatLevels& flat = g_flat_levels;
    flat.count = 0;
    flat.complete = true;
    flat.any = !g_local_levels->empty();
    for (const TagLevelNode* n = g_local_levels->head(); n != nullptr; n = n->next) {
        if (n->tag == nullptr) continue;  // never matches
        const size_t length = strlen(n->tag);
        if (flat.count == kFlatLevels || length >= kFlatTagSize) {
            flat.complete = false;
            break;
        }
        FlatLevel& entry = flat.entries[flat.count++];
        memset(entry.tag, 0, sizeof(entry.tag));
        memcpy(entry.tag, n->tag, length);
        entry.level = n->level;
        entry.output = n->output;
    }
}

// Decides whether a message passes; on success `*output` is where it goes.
// The caller holds the log mutex or the filter lock.
inline bool passes(const char* tag, ERROR_LEVEL level, ERROR_OUTPUT* output) {
    const FlatLevels& flat = g_flat_levels;
    if (flat.any && tag != nullptr) {
        for (uint32_t i = 0; i < flat.count; ++i) {
            const FlatLevel& entry = flat.entries[i];
            if (strcmp(entry.tag, tag) != 0) continue;
            if (level > entry.level) return false;
            *output = entry.output;
            return true;
        }
        if (!flat.complete) {
            if (const TagLevelNode* node = find_local_level(tag)) {
                if (level > node->level) return false;
                *output = node->output;
                return true;
            }
        }
    }
    if (level > g_global_level.load(std::memory_order_relaxed)) return false;
    *output = EO_ANDROID;
    return true;
}

// passes() for a caller without the log mutex.
bool passes_unlocked(const char* tag, ERROR_LEVEL level, ERROR_OUTPUT* output) {
    if (!g_has_local_levels.load(std::memory_order_acquire)) {
        if (level > g_global_level.load(std::memory_order_relaxed)) return false;
        *output = EO_ANDROID;
        return true;
    }
    FilterLock lock;
    return passes(tag, level, output);
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

// Formats into `out` (`room` bytes, at least 1) the part of printf that log
// messages mostly use: plain text, "%%", and "%s", "%d", "%i", "%u" and "%c"
// without flags, width, precision or length; the text is cut and terminated
// as vsnprintf() cuts it, and `*length` is what vsnprintf() returns. Returns
// false for any other conversion: the caller formats with vsnprintf() then,
// from its own copy of the arguments. Saves vsnprintf()'s stream set-up on
// every line that is written.
bool format_simple(char* out, size_t room, const char* fmt, va_list args, int* length) {
    size_t n = 0;
    const auto put = [&](char c) {
        if (n + 1 < room) out[n] = c;
        ++n;
    };
    const auto put_number = [&](bool negative, unsigned int magnitude) {
        char digits[10];
        int count = 0;
        do {
            digits[count++] = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude != 0);
        if (negative) put('-');
        while (count > 0) put(digits[--count]);
    };
    for (const char* p = fmt; *p != '\0'; ++p) {
        if (*p != '%') {
            put(*p);
            continue;
        }
        switch (*++p) {
            case '%': put('%'); break;
            case 's': {
                const char* text = va_arg(args, const char*);
                if (text == nullptr) text = "(null)";
                while (*text != '\0') put(*text++);
                break;
            }
            case 'd':
            case 'i': {
                const int value = va_arg(args, int);
                const unsigned int magnitude = value < 0 ? 0u - static_cast<unsigned int>(value)
                                                         : static_cast<unsigned int>(value);
                put_number(value < 0, magnitude);
                break;
            }
            case 'u': put_number(false, va_arg(args, unsigned int)); break;
            case 'c': put(static_cast<char>(va_arg(args, int))); break;
            default: return false;  // also a '%' that ends the format
        }
        if (n > static_cast<size_t>(INT_MAX)) return false;
    }
    out[n < room ? n : room - 1] = '\0';
    *length = static_cast<int>(n);
    return true;
}

// Formats and writes one message that already passed the filter. Kept out of
// line so that filtered-out calls never touch its 1 KiB of stack buffers.
// `global_tag` is the Android tag to write under.
__attribute__((noinline)) void write_message(const char* global_tag, const char* tag,
                                             ERROR_LEVEL level, ERROR_OUTPUT output,
                                             const char* fmt, va_list args) {
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
        int n = 0;
        va_list copy;
        va_copy(copy, args);
        if (!format_simple(line + used, kTextSize - used, fmt, copy, &n)) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            n = vsnprintf(line + used, kTextSize - used, fmt, args);
#pragma GCC diagnostic pop
        }
        va_end(copy);
        if (n < 1) {
            snprintf(line + used, kTextSize - used, "%s", "log subsystem message format error");
        }
        const int priority = android_priority(level);
        if (priority < 0) {
            __android_log_print(ANDROID_LOG_ERROR, global_tag,
                                "Internal error in log subsystem: unknown log level");
        } else {
            __android_log_print(priority, global_tag, "%s", line);
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
            __android_log_print(ANDROID_LOG_ERROR, global_tag,
                                "Internal error in log subsystem: format error");
        } else if (priority < 0) {
            __android_log_print(ANDROID_LOG_ERROR, global_tag,
                                "Internal error in log subsystem: unknown log level");
        } else {
            __android_log_print(priority, global_tag, "%s", line);
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
                    ? snprintf(line, sizeof(line), "%s %s:[%s] %s", stamp, global_tag, tag, text)
                    : snprintf(line, sizeof(line), "%s %s: %s", stamp, global_tag, text);
        puts(n < 1 ? "Internal error in log subsystem: format error" : line);
    }
}

// Writes a message that passed the filter without the log mutex, under a
// copy of the global tag taken under the filter lock.
void write_unlocked(const char* tag, ERROR_LEVEL level, ERROR_OUTPUT output, const char* fmt,
                    va_list args) {
    char global_tag[kGlobalTagSize];
    {
        FilterLock lock;
        memcpy(global_tag, g_global_tag, sizeof(global_tag));
    }
    write_message(global_tag, tag, level, output, fmt, args);
}

// The message functions lock the log mutex as an AutoLock without a name
// does, with the same reports, but bound to the mutex's inline lock and
// without an object on the stack: everything stored before the lock's atomic
// instruction has to drain first, so the path keeps its state in registers.
__attribute__((noinline, cold)) void report_log_lock(const char* format, const Mutex* mutex) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    log_error_no_lock("AutoLock", format, mutex == nullptr ? 2 : 3);
#pragma GCC diagnostic pop
}

// True when `mutex` is now held.
// The log mutex is created without verbose lines.
inline bool lock_log_mutex(MutexImpl* mutex) {
    if (mutex != nullptr && mutex->lock_not_verbose() == 0) return true;
    report_log_lock("AutoLock: lock error: %d", mutex);
    return false;
}

inline void unlock_log_mutex(MutexImpl* mutex, bool locked) {
    if (mutex == nullptr || (locked && mutex->unlock_not_verbose() != 0)) {
        report_log_lock("AutoLock: unlock error: %d", mutex);
    }
}

}  // namespace

// Each message function: lock, filter, and only for a passing message start
// the argument list and write. A message is written even when the lock
// failed (the lock has reported that).
#define VEL_LOC_FW_DEFINE_LOG_FUNCTION(name, level)                                        \
    void name(const char* tag, const char* fmt, ...) {                                     \
        MutexImpl* const mutex = g_log_mutex;                                              \
        const bool locked = lock_log_mutex(mutex);                                         \
        ERROR_OUTPUT output;                                                               \
        if (locked ? passes(tag, level, &output) : passes_unlocked(tag, level, &output)) { \
            va_list args;                                                                  \
            va_start(args, fmt);                                                           \
            if (locked) {                                                                  \
                write_message(g_global_tag, tag, level, output, fmt, args);                \
            } else {                                                                       \
                write_unlocked(tag, level, output, fmt, args);                             \
            }                                                                              \
            va_end(args);                                                                  \
        }                                                                                  \
        unlock_log_mutex(mutex, locked);                                                   \
    }

VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_error, EL_ERROR)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_warning, EL_WARNING)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_info, EL_INFO)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_debug, EL_DEBUG)
VEL_LOC_FW_DEFINE_LOG_FUNCTION(log_verbose, EL_VERBOSE)

#undef VEL_LOC_FW_DEFINE_LOG_FUNCTION

void log_error_no_lock(const char* tag, const char* fmt, ...) {
    ERROR_OUTPUT output;
    if (!passes_unlocked(tag, EL_ERROR, &output)) return;
    va_list args;
    va_start(args, fmt);
    write_unlocked(tag, EL_ERROR, output, fmt, args);
    va_end(args);
}

bool is_log_level_enabled(const char* tag, ERROR_LEVEL level) {
    ERROR_OUTPUT output;
    return passes_unlocked(tag, level, &output);
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
            FilterLock lock;
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
        } else if (TagLevelNode* node = const_cast<TagLevelNode*>(find_local_level(tag))) {
            FilterLock lock;
            node->level = level;
            node->output = output;
            rebuild_flat_levels();
        } else {
            TagLevelNode* fresh =
                    new (std::nothrow) TagLevelNode{nullptr, strdup(tag), level, output};
            if (fresh == nullptr || fresh->tag == nullptr) {
                delete fresh;
                result = 6;
            } else {
                FilterLock lock;
                g_local_levels->push_front(fresh);
                rebuild_flat_levels();
                g_has_local_levels.store(true, std::memory_order_release);
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
            // Unlinked in one walk under the filter lock, freed after it.
            TagLevelNode* removed = nullptr;
            {
                FilterLock lock;
                removed = g_local_levels->extract_if([tag](const TagLevelNode& n) {
                    return tag == nullptr || (n.tag != nullptr && strcmp(n.tag, tag) == 0);
                });
                rebuild_flat_levels();
                g_has_local_levels.store(!g_local_levels->empty(), std::memory_order_release);
            }
            while (removed != nullptr) {
                TagLevelNode* next = removed->next;
                delete removed;
                removed = next;
            }
        }
    }
    if (result != 0) log_error(kTag, "log_flush_local_level_for_tag failed %d", result);
    return result;
}

int log_flush_all_local_level() { return log_flush_local_level_for_tag(nullptr); }

}  // namespace vel_loc_fw
