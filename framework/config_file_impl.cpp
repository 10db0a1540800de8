// Reader of `name = value` configuration files.
#include "framework/config_file_impl.h"

#include <errno.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {
namespace {

constexpr const char kTag[] = "ConfigFile";

// Result codes of loading a file (reported once, then the file is not loaded).
struct LoadResult {
    static constexpr int kOk = 0, kNoPath = 2, kCannotOpen = 3, kNoLineBuffer = 4,
                         kNoTraceBuffer = 5, kReadError = 10, kLineTooLong = 101, kNoName = 110,
                         kNoEqual = 111, kBadValue = 112, kNoMemoryForName = 114,
                         kNoMemoryForValue = 115;
};
// Result codes of the look-ups.
struct GetResult {
    static constexpr int kOk = 0, kNotLoaded = 2, kNullName = 3, kNullOutput = 4, kNotFound = 1000;
};
// getStringDup() beyond GetResult.
struct DupResult {
    static constexpr int kNoMemory = 101, kNoMemoryForDefault = 111;
};
// getInt32() and getDouble() beyond GetResult.
struct Int32Result {
    static constexpr int kEmpty = 101, kOverflow = 102, kErrno = 103, kTrailing = 104,
                         kOutOfRange = 105;
};
struct DoubleResult {
    static constexpr int kEmpty = 101, kErrno = 102, kTrailing = 103;
};
// get_PZ_Int32Default() and get_PNZ_Int32Default(): the stored value was
// below their bound, so the default replaced it.
constexpr int kDefaultReplacedValue = 1;
// Reported with "subStringDup failed %d" when a copy cannot be allocated.
constexpr int kSubStringDupFailed = 4;

bool is_blank(char c) { return c == ' ' || (c >= 9 && c <= 13); }
bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

const char* skip_blanks(const char* p, const char* end) {
    while (p < end && is_blank(*p)) ++p;
    return p;
}

}  // namespace

ConfigFile::~ConfigFile() = default;

ConfigFile* ConfigFile::createInstance(const char* path, size_t maxLineLength, bool verbose) {
    return new (std::nothrow) ConfigFileImpl(path, maxLineLength, verbose);
}

ConfigFileImpl::ConfigFileImpl(const char* path, size_t maxLineLength, bool verbose) {
    int line_number = 0;
    const int result = load(path, maxLineLength, verbose, &line_number);
    if (result == LoadResult::kOk) {
        loaded_ = true;
    } else {
        const int error = errno;
        log_error(kTag,
                  "ConfigFileImpl: cannot load config file result [%d] [%s], error [%d][%s], "
                  "line[%d]",
                  result, path != nullptr ? path : "(null)", error, strerror(error), line_number);
    }
}

ConfigFileImpl::~ConfigFileImpl() = default;

int ConfigFileImpl::load(const char* path, size_t max_line_length, bool verbose, int* line_number) {
    if (path == nullptr) return LoadResult::kNoPath;
    FILE* file = fopen(path, "r");
    if (file == nullptr) return LoadResult::kCannotOpen;

    int result = LoadResult::kOk;
    char* line = new (std::nothrow) char[max_line_length + 1];
    char* trace = nullptr;
    if (line == nullptr) {
        result = LoadResult::kNoLineBuffer;
    } else if (verbose && (trace = new (std::nothrow) char[max_line_length + 1]) == nullptr) {
        result = LoadResult::kNoTraceBuffer;
    }

    while (result == LoadResult::kOk) {
        if (fgets(line, static_cast<int>(max_line_length + 1), file) == nullptr) {
            result = ferror(file) ? LoadResult::kReadError : LoadResult::kOk;
            break;
        }
        ++*line_number;
        const size_t length = strlen(line);
        if (length >= max_line_length) {
            result = LoadResult::kLineTooLong;
            break;
        }
        const char* begin = line;
        const char* end = line + length;
        trim(&begin, &end);
        if (verbose) {
            substring(trace, max_line_length + 1, begin, end);
            log_debug(kTag, "line trimed [%s]", trace);
        }
        if (begin == end) {
            if (verbose) log_verbose(kTag, "Line[%d], skip empty line", *line_number);
            continue;
        }
        if (*begin == '#') {
            if (verbose) log_verbose(kTag, "Line[%d], skip comment line", *line_number);
            continue;
        }
        // Terminate the content in place; the line buffer is ours.
        line[end - line] = '\0';
        result = parseLine(const_cast<char*>(begin), *line_number, verbose);
    }

    delete[] line;
    delete[] trace;
    fclose(file);
    return result;
}

int ConfigFileImpl::parseLine(char* content, int /*line_number*/, bool verbose) {
    const char* end = content + strlen(content);
    const char* name_end = find_name(content, end);
    if (name_end == nullptr) return LoadResult::kNoName;
    const char* after_equal = find_equal(name_end, end);
    if (after_equal == nullptr) return LoadResult::kNoEqual;
    const char* value_begin = nullptr;
    const char* value_end = nullptr;
    if (!find_value(after_equal, end, &value_begin, &value_end)) return LoadResult::kBadValue;

    char* name = subStringDup(content, name_end);
    char* value = name != nullptr ? subStringDup(value_begin, value_end) : nullptr;
    Pair* pair = value != nullptr ? new (std::nothrow) Pair{nullptr, name, value} : nullptr;
    if (pair == nullptr) {
        log_error(kTag, "subStringDup failed %d", kSubStringDupFailed);
        const int result =
                name == nullptr ? LoadResult::kNoMemoryForName : LoadResult::kNoMemoryForValue;
        delete[] name;
        delete[] value;
        return result;
    }
    if (verbose) {
        log_verbose(kTag, "name [%s]", name);
        log_verbose(kTag, "value [%s]", value);
    }
    pairs_.push_front(pair);
    return LoadResult::kOk;
}

void ConfigFileImpl::trim(const char** begin, const char** end) {
    const char* b = *begin;
    const char* e = *end;
    while (b < e && is_blank(*b)) ++b;
    while (e > b && is_blank(e[-1])) --e;
    *begin = b;
    *end = e;
}

void ConfigFileImpl::substring(char* dest, size_t size, const char* begin, const char* end) {
    if (size == 0) return;
    size_t n = static_cast<size_t>(end - begin);
    if (n >= size) n = size - 1;
    memcpy(dest, begin, n);
    dest[n] = '\0';
}

char* ConfigFileImpl::subStringDup(const char* begin, const char* end) {
    const size_t n = static_cast<size_t>(end - begin);
    char* copy = new (std::nothrow) char[n + 1];
    if (copy != nullptr) substring(copy, n + 1, begin, end);
    return copy;
}

const char* ConfigFileImpl::find_name(const char* begin, const char* end) {
    if (begin >= end || !is_letter(*begin)) return nullptr;
    const char* p = begin + 1;
    while (p < end && (is_letter(*p) || is_digit(*p) || *p == '_' || *p == '-')) ++p;
    return p;
}

const char* ConfigFileImpl::find_equal(const char* begin, const char* end) {
    const char* p = skip_blanks(begin, end);
    if (p >= end || *p != '=') return nullptr;
    return p + 1;
}

bool ConfigFileImpl::find_value(const char* begin, const char* end, const char** value_begin,
                                const char** value_end) {
    const char* b = skip_blanks(begin, end);
    const char* e = end;
    if (b >= e) return false;
    if (*b == '"') {
        if (e - b < 2 || e[-1] != '"') return false;
        ++b;
        --e;
    }
    *value_begin = b;
    *value_end = e;
    return true;
}

const ConfigFileImpl::Pair* ConfigFileImpl::find(const char* name) const {
    return pairs_.find([name](const Pair& p) { return strcmp(p.name, name) == 0; });
}

bool ConfigFileImpl::isLoaded() const { return loaded_; }

int ConfigFileImpl::getString(const char* name, const char** value) {
    int result = GetResult::kOk;
    if (!loaded_) {
        result = GetResult::kNotLoaded;
    } else if (name == nullptr) {
        result = GetResult::kNullName;
    } else if (value == nullptr) {
        result = GetResult::kNullOutput;
    }
    if (result != GetResult::kOk) {
        if (name != nullptr) {
            log_error(kTag, "getString failed [%s] %d", name, result);
        } else {
            log_error(kTag, "getString failed %d", result);
        }
        return result;
    }
    *value = nullptr;
    const Pair* pair = find(name);
    if (pair == nullptr) return GetResult::kNotFound;
    *value = pair->value;
    return GetResult::kOk;
}

int ConfigFileImpl::getStringDup(const char* name, const char** value, const char* defaultValue) {
    if (loaded_) {
        if (name == nullptr) {
            log_error(kTag, "getStringDup failed %d", GetResult::kNullName);
            return GetResult::kNullName;
        }
        if (value == nullptr) {
            log_error(kTag, "getStringDup failed [%s] %d", name, GetResult::kNullOutput);
            return GetResult::kNullOutput;
        }
        *value = nullptr;
        if (const Pair* pair = find(name)) {
            char* copy = subStringDup(pair->value, pair->value + strlen(pair->value));
            if (copy == nullptr) {
                log_error(kTag, "getStringDup failed [%s] %d", name, DupResult::kNoMemory);
                return DupResult::kNoMemory;
            }
            *value = copy;
            return GetResult::kOk;
        }
    }
    if (defaultValue == nullptr) return GetResult::kNotFound;
    if (value == nullptr) {
        // Not loaded: the output was never checked above.
        log_error(kTag, "getStringDup failed %d", GetResult::kNullOutput);
        return GetResult::kNullOutput;
    }
    char* copy = subStringDup(defaultValue, defaultValue + strlen(defaultValue));
    if (copy == nullptr) {
        if (name != nullptr) {
            log_error(kTag, "getStringDup failed [%s] %d", name, DupResult::kNoMemoryForDefault);
        } else {
            log_error(kTag, "getStringDup failed %d", DupResult::kNoMemoryForDefault);
        }
        return DupResult::kNoMemoryForDefault;
    }
    *value = copy;
    return GetResult::kOk;
}

int ConfigFileImpl::findForConversion(const char* getter, const char* name,
                                      const char** text) const {
    if (!loaded_) {
        log_debug(kTag, "%s m_loaded is false", getter);
        return GetResult::kNotFound;
    }
    if (name == nullptr) {
        log_error(kTag, "%s failed %d", getter, GetResult::kNullName);
        return GetResult::kNullName;
    }
    const Pair* pair = find(name);
    if (pair == nullptr) return GetResult::kNotFound;
    *text = pair->value;
    return GetResult::kOk;
}

int ConfigFileImpl::getInt32(const char* name, int& value) {
    const char* text = nullptr;
    int result = findForConversion("getInt32", name, &text);
    if (result != GetResult::kOk) return result;

    char* rest = nullptr;
    errno = 0;
    const long number = strtol(text, &rest, 0);
    const int error = errno;
    if (*text == '\0') {
        result = Int32Result::kEmpty;
    } else if (number == LONG_MAX || number == LONG_MIN) {
        result = Int32Result::kOverflow;
    } else if (error != 0) {
        log_error(kTag, "conversion error [%d] [%s]", error, strerror(error));
        result = Int32Result::kErrno;
    } else if (*rest != '\0') {
        result = Int32Result::kTrailing;
    } else if (number > INT32_MAX || number < INT32_MIN) {
        result = Int32Result::kOutOfRange;
    }
    if (result != GetResult::kOk) {
        log_error(kTag, "getInt32 failed [%s] %d", name, result);
        return result;
    }
    value = static_cast<int>(number);
    return GetResult::kOk;
}

int ConfigFileImpl::getInt32Default(const char* name, int& value, const int& defaultValue) {
    const int result = getInt32(name, value);
    if (result != GetResult::kNotFound) return result;
    value = defaultValue;
    return GetResult::kOk;
}

int ConfigFileImpl::get_PZ_Int32Default(const char* name, int& value, const int& defaultValue) {
    const int result = getInt32(name, value);
    if (result == GetResult::kNotFound) {
        value = defaultValue;
        return GetResult::kOk;
    }
    // Tests the value even after a failed conversion, when it still holds the
    // caller's previous content.
    if (value >= 0) return result;
    value = defaultValue;
    return kDefaultReplacedValue;
}

int ConfigFileImpl::get_PNZ_Int32Default(const char* name, int& value, const int& defaultValue) {
    const int result = getInt32(name, value);
    if (result == GetResult::kNotFound) {
        value = defaultValue;
        return GetResult::kOk;
    }
    if (value > 0) return result;
    value = defaultValue;
    return kDefaultReplacedValue;
}

int ConfigFileImpl::getDouble(const char* name, double& value) {
    const char* text = nullptr;
    int result = findForConversion("getDouble", name, &text);
    if (result != GetResult::kOk) return result;

    char* rest = nullptr;
    errno = 0;
    const double number = strtod(text, &rest);
    const int error = errno;
    if (*text == '\0') {
        result = DoubleResult::kEmpty;
    } else if (error != 0) {
        log_error(kTag, "conversion error [%d] [%s]", error, strerror(error));
        result = DoubleResult::kErrno;
    } else if (*rest != '\0') {
        result = DoubleResult::kTrailing;
    }
    if (result != GetResult::kOk) {
        log_error(kTag, "getDouble failed [%s] %d", name, result);
        return result;
    }
    value = number;
    return GetResult::kOk;
}

int ConfigFileImpl::getDoubleDefault(const char* name, double& value, const double& defaultValue) {
    const int result = getDouble(name, value);
    if (result != GetResult::kNotFound) return result;
    value = defaultValue;
    return GetResult::kOk;
}

}  // namespace vel_loc_fw
