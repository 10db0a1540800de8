#include <vel_loc_fw/log_util.h>

#include <android/log.h>
#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "log_capture.h"

namespace vel_loc_fw {
namespace {

class LogUtilTest : public testing::Test {
  protected:
    void TearDown() override {
        log_flush_all_local_level();
        log_set_global_level(EL_LOG_OFF);
        log_set_global_tag("ZORLOG");
    }
    varn_test::LogCapture capture_;
};

void log_at(ERROR_LEVEL level, const char* tag, const char* text) {
    switch (level) {
        case EL_ERROR: log_error(tag, "%s", text); break;
        case EL_WARNING: log_warning(tag, "%s", text); break;
        case EL_INFO: log_info(tag, "%s", text); break;
        case EL_DEBUG: log_debug(tag, "%s", text); break;
        case EL_VERBOSE: log_verbose(tag, "%s", text); break;
        default: break;
    }
}

TEST_F(LogUtilTest, GlobalLevelFiltersAndMapsPriorities) {
    const struct {
        ERROR_LEVEL level;
        int priority;
    } kLevels[] = {{EL_ERROR, ANDROID_LOG_ERROR},
                   {EL_WARNING, ANDROID_LOG_WARN},
                   {EL_INFO, ANDROID_LOG_INFO},
                   {EL_DEBUG, ANDROID_LOG_DEBUG},
                   {EL_VERBOSE, ANDROID_LOG_VERBOSE}};
    for (int threshold = EL_LOG_OFF; threshold <= EL_VERBOSE; ++threshold) {
        SCOPED_TRACE(threshold);
        ASSERT_EQ(0, log_set_global_level(static_cast<ERROR_LEVEL>(threshold)));
        capture_.clear();
        for (const auto& l : kLevels) log_at(l.level, "T", "msg");
        const auto lines = capture_.lines();
        ASSERT_EQ(static_cast<size_t>(threshold), lines.size());
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(kLevels[i].priority, lines[i].priority);
            EXPECT_EQ("ZORLOG", lines[i].tag);
            EXPECT_EQ("[T] msg", lines[i].text);
        }
    }
}

TEST_F(LogUtilTest, LocalLevelOverridesGlobalLevelBothWays) {
    log_set_global_level(EL_VERBOSE);
    ASSERT_EQ(0, log_set_local_level_for_tag("X", EL_ERROR));
    log_error("X", "e");
    log_warning("X", "w");
    log_warning("Y", "other tag");
    EXPECT_EQ(1u, capture_.count("[X] e"));
    EXPECT_EQ(0u, capture_.count("[X] w"));
    EXPECT_EQ(1u, capture_.count("[Y] other tag"));

    log_set_global_level(EL_LOG_OFF);
    ASSERT_EQ(0, log_set_local_level_for_tag("X", EL_VERBOSE));  // changed in place
    capture_.clear();
    log_verbose("X", "v");
    log_error("Y", "silenced");
    EXPECT_EQ(1u, capture_.count("[X] v"));
    EXPECT_EQ(0u, capture_.count("silenced"));
}

TEST_F(LogUtilTest, FlushRemovesOneTagOrAll) {
    log_set_local_level_for_tag("A", EL_VERBOSE);
    log_set_local_level_for_tag("B", EL_VERBOSE);
    ASSERT_EQ(0, log_flush_local_level_for_tag("A"));
    log_info("A", "a");
    log_info("B", "b");
    EXPECT_FALSE(capture_.contains("[A] a"));
    EXPECT_TRUE(capture_.contains("[B] b"));
    ASSERT_EQ(0, log_flush_all_local_level());
    log_info("B", "b2");
    EXPECT_FALSE(capture_.contains("[B] b2"));
}

TEST_F(LogUtilTest, NullTagUsesGlobalLevelAndPlainText) {
    log_set_global_level(EL_ERROR);
    log_error(nullptr, "abc");
    const auto lines = capture_.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("abc", lines[0].text);
}

// True when `line` is "MM-DD HH:MM:SS.000" followed by `rest`.
bool matches_stamp(const std::string& line, const std::string& rest) {
    const std::string shape = "dd-dd dd:dd:dd.000";
    if (line.size() != shape.size() + rest.size()) return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        const bool ok = shape[i] == 'd' ? isdigit(static_cast<unsigned char>(line[i])) != 0
                                        : line[i] == shape[i];
        if (!ok) return false;
    }
    return line.compare(shape.size(), std::string::npos, rest) == 0;
}

TEST_F(LogUtilTest, StdoutLineCarriesTimeGlobalTagAndTag) {
    log_set_local_level_for_tag("T", EL_INFO, static_cast<ERROR_OUTPUT>(EO_ANDROID | EO_STDOUT));
    varn_test::StdoutCapture out;
    log_info("T", "abc");
    const std::string text = out.stop();
    EXPECT_TRUE(matches_stamp(text, " ZORLOG:[T] abc\n")) << text;
    EXPECT_EQ(1u, capture_.count("[T] abc"));
}

TEST_F(LogUtilTest, StdoutOnlyOutputSkipsAndroidLog) {
    log_set_local_level_for_tag("T", EL_INFO, EO_STDOUT);
    varn_test::StdoutCapture out;
    log_info("T", "only stdout");
    EXPECT_NE(std::string::npos, out.stop().find("ZORLOG:[T] only stdout"));
    EXPECT_FALSE(capture_.contains("only stdout"));
}

TEST_F(LogUtilTest, EmptyMessageIsReplaced) {
    log_set_global_level(EL_INFO);
    log_info("T", "%s", "");
    EXPECT_EQ(1u, capture_.count("[T] log subsystem message format error"));
}

TEST_F(LogUtilTest, LongTextIsCutAt511Characters) {
    log_set_global_level(EL_INFO);
    const std::string long_text(600, 'x');
    log_info("T", "%s", long_text.c_str());
    const auto lines = capture_.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(511u, lines[0].text.size());
    EXPECT_EQ("[T] " + std::string(507, 'x'), lines[0].text);
}

TEST_F(LogUtilTest, GlobalTagIsTruncatedAt63Characters) {
    log_set_global_level(EL_ERROR);
    const std::string tag(70, 't');
    EXPECT_EQ(4, log_set_global_tag(tag.c_str()));
    const auto lines = capture_.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("[LOG_UTIL] log_set_global_tag failed 4", lines[0].text);
    EXPECT_EQ(tag.substr(0, 63), lines[0].tag);

    EXPECT_EQ(0, log_set_global_tag(std::string(63, 'u').c_str()));
    log_error("T", "x");
    EXPECT_EQ(std::string(63, 'u'), capture_.lines().back().tag);
}

TEST_F(LogUtilTest, NullTagIsRefusedForLocalLevel) {
    log_set_global_level(EL_ERROR);
    EXPECT_EQ(2, log_set_local_level_for_tag(nullptr, EL_INFO));
    EXPECT_EQ(1u, capture_.count("[LOG_UTIL] log_set_local_level_for_tag failed 2"));
}

TEST_F(LogUtilTest, VerboseEnabledFollowsTheApplicableLevel) {
    EXPECT_FALSE(is_log_verbose_enabled("T"));
    log_set_global_level(EL_DEBUG);
    EXPECT_FALSE(is_log_verbose_enabled("T"));
    log_set_global_level(EL_VERBOSE);
    EXPECT_TRUE(is_log_verbose_enabled("T"));
    EXPECT_TRUE(is_log_verbose_enabled(nullptr));
    log_set_local_level_for_tag("T", EL_DEBUG);
    EXPECT_FALSE(is_log_verbose_enabled("T"));
    log_set_global_level(EL_ERROR);
    log_set_local_level_for_tag("T", EL_VERBOSE);
    EXPECT_TRUE(is_log_verbose_enabled("T"));
}

// A line reads exactly as printf formats "[T] " and the message, whichever
// conversions it uses and wherever it is cut.
#define EXPECT_LINE_AS_PRINTF(...)                                  \
    do {                                                            \
        capture_.clear();                                           \
        log_info("T", __VA_ARGS__);                                 \
        char expected[512];                                         \
        snprintf(expected, sizeof(expected), "[T] " __VA_ARGS__);   \
        ASSERT_EQ(1u, capture_.lines().size());                     \
        EXPECT_EQ(std::string(expected), capture_.lines()[0].text); \
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

TEST_F(LogUtilTest, ManyAndLongTagsEachKeepTheirOwnLevel) {
    log_set_global_level(EL_INFO);
    std::vector<std::string> tags;
    for (int i = 0; i < 12; ++i) tags.push_back("Tag" + std::to_string(i));
    tags.push_back(std::string(40, 'L'));
    tags.push_back(std::string(40, 'L') + "x");  // shares the long prefix
    for (size_t i = 0; i < tags.size(); ++i) {
        ASSERT_EQ(0, log_set_local_level_for_tag(tags[i].c_str(), i % 2 ? EL_VERBOSE : EL_ERROR));
    }
    for (size_t i = 0; i < tags.size(); ++i) {
        SCOPED_TRACE(tags[i]);
        const bool verbose = i % 2 != 0;
        EXPECT_EQ(verbose, is_log_verbose_enabled(tags[i].c_str()));
        EXPECT_EQ(verbose, is_log_level_enabled(tags[i].c_str(), EL_DEBUG));
        EXPECT_TRUE(is_log_level_enabled(tags[i].c_str(), EL_ERROR));
        capture_.clear();
        log_verbose(tags[i].c_str(), "v");
        log_warning(tags[i].c_str(), "w");
        EXPECT_EQ(verbose ? 2u : 0u, capture_.lines().size());
    }
    // Prefixes and extensions of a tag are other tags: the global level applies.
    log_info("Tag1x", "i");
    log_info("Ta", "i");
    log_debug(std::string(39, 'L').c_str(), "d");
    EXPECT_EQ(2u, capture_.count("] i"));
    EXPECT_FALSE(capture_.contains("] d"));
}

TEST_F(LogUtilTest, NoLockVariantWritesAtErrorLevel) {
    log_set_global_level(EL_ERROR);
    log_error_no_lock("T", "n %d", 7);
    const auto lines = capture_.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, lines[0].priority);
    EXPECT_EQ("[T] n 7", lines[0].text);
}

}  // namespace
}  // namespace vel_loc_fw
