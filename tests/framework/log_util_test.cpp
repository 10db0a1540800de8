#include <vel_loc_fw/log_util.h>

#include <android/log.h>

#include <cctype>
#include <climits>
#include <cstdio>

#include "framework_test_support.h"

namespace vel_loc_fw {
namespace {

using LogUtilTest = varn_test::VerboseLogTest;

TEST_F(LogUtilTest, LevelsFilterAndMapToPriorities) {
    const int kPriorities[] = {ANDROID_LOG_ERROR, ANDROID_LOG_WARN, ANDROID_LOG_INFO,
                               ANDROID_LOG_DEBUG, ANDROID_LOG_VERBOSE};
    const struct {
        ERROR_LEVEL global;
        ERROR_LEVEL local;  // of `tag`; EL_LOG_OFF with `flushed`: none
        bool flushed;
        size_t lines;  // of the five levels logged under `tag`
    } kCases[] = {
            {EL_LOG_OFF, EL_LOG_OFF, true, 0},  {EL_ERROR, EL_LOG_OFF, true, 1},
            {EL_WARNING, EL_LOG_OFF, true, 2},  {EL_INFO, EL_LOG_OFF, true, 3},
            {EL_DEBUG, EL_LOG_OFF, true, 4},    {EL_VERBOSE, EL_LOG_OFF, true, 5},
            {EL_VERBOSE, EL_ERROR, false, 1},   {EL_LOG_OFF, EL_VERBOSE, false, 5},
            {EL_VERBOSE, EL_LOG_OFF, false, 0}, {EL_ERROR, EL_DEBUG, false, 4},
            {EL_DEBUG, EL_VERBOSE, true, 4},  // the tag's own level flushed again
    };
    // The tag's own level is set first, so that a prefix, an extension and twelve
    // other tags with levels of their own stand before it in the tag list.
    const std::string tag(40, 'L');
    std::vector<std::string> others = {tag.substr(0, 39), tag + "x"};
    for (int i = 0; i < 12; ++i) others.push_back("Tag" + std::to_string(i));
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::to_string(c.global) + " " + std::to_string(c.local));
        ASSERT_EQ(0, log_flush_all_local_level());
        ASSERT_EQ(0, log_set_global_level(c.global));
        if (!c.flushed || c.local != EL_LOG_OFF) {
            ASSERT_EQ(0, log_set_local_level_for_tag(tag.c_str(), c.local));
        }
        for (const std::string& other : others) {
            ASSERT_EQ(0, log_set_local_level_for_tag(other.c_str(), EL_VERBOSE));
        }
        if (c.flushed) log_flush_local_level_for_tag(tag.c_str());
        log_.clear();
        for (auto log : {log_error, log_warning, log_info, log_debug, log_verbose})
            log(tag.c_str(), "msg");
        const auto lines = log_.lines();
        ASSERT_EQ(c.lines, lines.size()) << log_.dump();
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(kPriorities[i], lines[i].priority);
            EXPECT_EQ("ZORLOG", lines[i].tag);
            EXPECT_EQ("[" + tag + "] msg", lines[i].text);
        }
        EXPECT_EQ(c.lines == 5, is_log_verbose_enabled(tag.c_str()));
        EXPECT_EQ(c.global == EL_VERBOSE, is_log_verbose_enabled(nullptr));
    }
}

TEST_F(LogUtilTest, SingleLines) {
    log_set_global_level(EL_INFO);
    log_error(nullptr, "abc");
    expect_line(ANDROID_LOG_ERROR, "abc");  // no tag: plain text
    log_info("T", "%s", "");
    expect_line(ANDROID_LOG_INFO, "[T] log subsystem message format error");
    log_info("T", "%s", std::string(600, 'x').c_str());
    expect_line(ANDROID_LOG_INFO, "[T] " + std::string(507, 'x'));  // cut at 511 characters
    log_error_no_lock("T", "n %d", 7);
    expect_line(ANDROID_LOG_ERROR, "[T] n 7");
    EXPECT_EQ(2, log_set_local_level_for_tag(nullptr, EL_INFO));
    expect_line(ANDROID_LOG_ERROR, "[LOG_UTIL] log_set_local_level_for_tag failed 2");
    // A global tag is cut at 63 characters, and refused when longer.
    EXPECT_EQ(4, log_set_global_tag(std::string(64, 't').c_str()));
    expect_line(ANDROID_LOG_ERROR, "[LOG_UTIL] log_set_global_tag failed 4", std::string(63, 't'));
    EXPECT_EQ(0, log_set_global_tag(std::string(63, 'u').c_str()));
    log_error("T", "x");
    expect_line(ANDROID_LOG_ERROR, "[T] x", std::string(63, 'u'));
}

TEST_F(LogUtilTest, StandardOutputLineCarriesTimeGlobalTagAndTag) {
    for (const ERROR_OUTPUT output :
         {static_cast<ERROR_OUTPUT>(EO_ANDROID | EO_STDOUT), EO_STDOUT}) {
        SCOPED_TRACE(output);
        log_set_local_level_for_tag("T", EL_INFO, output);
        varn_test::StdoutCapture out;
        log_info("T", "abc");
        const std::string line = out.stop();
        // "MM-DD hh:mm:ss.000", where 9 stands for any digit.
        const std::string shape = "99-99 99:99:99.000 ZORLOG:[T] abc\n";
        bool same = line.size() == shape.size();
        for (size_t i = 0; same && i < shape.size(); ++i) {
            same = shape[i] == '9' ? isdigit(static_cast<unsigned char>(line[i])) != 0
                                   : line[i] == shape[i];
        }
        EXPECT_TRUE(same) << line;
        EXPECT_EQ((output & EO_ANDROID) != 0 ? 1u : 0u, log_.count("[T] abc"));
        log_.clear();
    }
}

// A line reads exactly as printf formats "[T] " and the message, whichever
// conversions it uses and wherever it is cut.
#define EXPECT_LINE_AS_PRINTF(...)                                \
    do {                                                          \
        log_info("T", __VA_ARGS__);                               \
        char expected[512];                                       \
        snprintf(expected, sizeof(expected), "[T] " __VA_ARGS__); \
        expect_line(ANDROID_LOG_INFO, expected);                  \
    } while (0)

TEST_F(LogUtilTest, LinesReadAsPrintfFormatsThem) {
    log_set_global_level(EL_INFO);
    const char* volatile no_text = nullptr;
    const std::string long_text(600, 'y');
    EXPECT_LINE_AS_PRINTF("%s: Weighted mean %s", "computeMean", "Disabled");
    EXPECT_LINE_AS_PRINTF("%d %i %u %c %% %d", INT_MIN, -7, UINT_MAX, 'x', 0);
    EXPECT_LINE_AS_PRINTF("[%s] [%s]", "", no_text);
    EXPECT_LINE_AS_PRINTF("a%cb", '\0');
    EXPECT_LINE_AS_PRINTF("%5d|%-3s|%ld|%.2f|%x", 42, "ab", 123456789L, 1.5, 255u);
    EXPECT_LINE_AS_PRINTF("%d then %.1f then %s", 3, 2.5, "end");  // switches mid-way
    EXPECT_LINE_AS_PRINTF("%s%d", long_text.c_str(), 7);
    EXPECT_LINE_AS_PRINTF("%d%s", 7, long_text.c_str());
}

}  // namespace
}  // namespace vel_loc_fw
