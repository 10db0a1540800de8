#include <vel_loc_fw/config_file.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"

namespace vel_loc_fw {
namespace {

std::unique_ptr<ConfigFile> load(const std::string& content, size_t max_line = 1023) {
    const std::string path = varn_test::write_temp_file(content);
    return std::unique_ptr<ConfigFile>(ConfigFile::createInstance(path.c_str(), max_line, false));
}

class ConfigFileTest : public testing::Test {
  protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { log_set_global_level(EL_LOG_OFF); }
    varn_test::LogCapture capture_;
};

TEST_F(ConfigFileTest, GrammarAcceptsOrRejectsWholeFiles) {
    const struct {
        const char* content;
        int result;  // 0: loaded; else the code in the load report
        int line;
    } kCases[] = {
            {"  KEY =  some value  \n", 0, 1},
            {"# comment\n\n\t \nKEY=1\n", 0, 4},
            {"KEY=\"\"\n", 0, 1},
            {"KEY = a # b\n", 0, 1},
            {"K_1-x=\"quoted\"", 0, 1},  // no final newline
            {"KEY=\n", 112, 1},
            {"KEY=\"\n", 112, 1},
            {"KEY=\"abc\n", 112, 1},
            {"_KEY = 1\n", 110, 1},
            {"1KEY = 1\n", 110, 1},
            {"KEY x = 1\n", 111, 1},
            {"KEY\n", 111, 1},
            {"A=1\nB=2\n=3\n", 110, 3},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.content);
        capture_.clear();
        auto config = load(c.content);
        ASSERT_NE(nullptr, config);
        EXPECT_EQ(c.result == 0, config->isLoaded());
        if (c.result != 0) {
            const std::string report = "cannot load config file result [" +
                                       std::to_string(c.result) + "]";
            EXPECT_EQ(1u, capture_.count(report)) << capture_.dump();
            EXPECT_EQ(1u, capture_.count("line[" + std::to_string(c.line) + "]"));
        }
    }
}

TEST_F(ConfigFileTest, ValuesAreTrimmedUnquotedAndLastDefinitionWins) {
    auto config = load("  KEY =  some value  \nQ=\"  spaced \"\nE=\"\"\nH = a # b\nT=ends\"\n"
                       "D=1\nX=2\nD=3\n");
    ASSERT_TRUE(config->isLoaded());
    const struct {
        const char* name;
        const char* value;
    } kValues[] = {{"KEY", "some value"}, {"Q", "  spaced "}, {"E", ""},
                   {"H", "a # b"},        {"T", "ends\""},   {"D", "3"}};
    for (const auto& v : kValues) {
        const char* value = nullptr;
        ASSERT_EQ(0, config->getString(v.name, &value)) << v.name;
        EXPECT_STREQ(v.value, value);
    }
    const char* value = "untouched";
    EXPECT_EQ(1000, config->getString("missing", &value));
    EXPECT_EQ(nullptr, value);
}

TEST_F(ConfigFileTest, LineLengthLimitCountsTheNewline) {
    auto too_long = load("A=1234567\n", 10);
    EXPECT_FALSE(too_long->isLoaded());
    EXPECT_EQ(1u, capture_.count("result [101]"));
    EXPECT_EQ(1u, capture_.count("line[1]"));
    auto fits = load("A=123456\n", 10);
    EXPECT_TRUE(fits->isLoaded());
}

TEST_F(ConfigFileTest, MissingFileAndNullPathAreNotLoaded) {
    std::unique_ptr<ConfigFile> missing(
            ConfigFile::createInstance("/nonexistent/varn.conf", 1023, false));
    EXPECT_FALSE(missing->isLoaded());
    EXPECT_EQ(1u, capture_.count("result [3] [/nonexistent/varn.conf], error [2]"));
    std::unique_ptr<ConfigFile> null_path(ConfigFile::createInstance(nullptr, 1023, false));
    EXPECT_FALSE(null_path->isLoaded());
    EXPECT_EQ(1u, capture_.count("result [2]"));
}

TEST_F(ConfigFileTest, Int32Conversions) {
    auto config = load("HEX=0x10\nOCT=010\nNEG=-42\nBIG=3000000000\nJUNK=12abc\nLMAX=99999999999999999999\n"
                       "E=\"\"\n");
    ASSERT_TRUE(config->isLoaded());
    const struct {
        const char* name;
        int result;
        int value;
    } kCases[] = {{"HEX", 0, 16},     {"OCT", 0, 8},   {"NEG", 0, -42}, {"BIG", 105, -1},
                  {"JUNK", 104, -1},  {"LMAX", 102, -1}, {"E", 101, -1},  {"NONE", 1000, -1}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        int value = -1;
        EXPECT_EQ(c.result, config->getInt32(c.name, value));
        EXPECT_EQ(c.value, value);
    }
    EXPECT_EQ(1u, capture_.count("getInt32 failed [BIG] 105"));
    int value = 0;
    EXPECT_EQ(3, config->getInt32(nullptr, value));
}

TEST_F(ConfigFileTest, DefaultVariants) {
    auto config = load("ZERO=0\nNEG=-1\nPOS=5\nBAD=x\n");
    ASSERT_TRUE(config->isLoaded());
    const struct {
        const char* name;
        int previous;
        int pz_result, pz_value;
        int pnz_result, pnz_value;
        int def_result, def_value;
    } kCases[] = {
            {"ZERO", 9, 0, 0, 1, 77, 0, 0},      {"NEG", 9, 1, 77, 1, 77, 0, -1},
            {"POS", 9, 0, 5, 0, 5, 0, 5},        {"NONE", 9, 0, 77, 0, 77, 0, 77},
            {"BAD", 9, 104, 9, 104, 9, 104, 9},  // failed conversion, previous value tested
            {"BAD", -9, 1, 77, 1, 77, 104, -9},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.previous));
        int value = c.previous;
        EXPECT_EQ(c.pz_result, config->get_PZ_Int32Default(c.name, value, 77));
        EXPECT_EQ(c.pz_value, value);
        value = c.previous;
        EXPECT_EQ(c.pnz_result, config->get_PNZ_Int32Default(c.name, value, 77));
        EXPECT_EQ(c.pnz_value, value);
        value = c.previous;
        EXPECT_EQ(c.def_result, config->getInt32Default(c.name, value, 77));
        EXPECT_EQ(c.def_value, value);
    }
}

TEST_F(ConfigFileTest, BadLineKeepsEarlierPairsButAnswersNotFound) {
    auto config = load("GOOD=5\nbad line\n");
    ASSERT_FALSE(config->isLoaded());
    int value = 0;
    EXPECT_EQ(0, config->getInt32Default("GOOD", value, 11));
    EXPECT_EQ(11, value);
    EXPECT_EQ(1u, capture_.count("[ConfigFile] getInt32 m_loaded is false"));
    const char* text = nullptr;
    EXPECT_EQ(2, config->getString("GOOD", &text));
    EXPECT_EQ(1u, capture_.count("getString failed [GOOD] 2"));
    double d = 0;
    EXPECT_EQ(0, config->getDoubleDefault("GOOD", d, 2.5));
    EXPECT_EQ(2.5, d);
}

TEST_F(ConfigFileTest, DoubleConversions) {
    auto config = load("PI=3.25\nHUGE=1e999\nJUNK=1.5x\nE=\"\"\n");
    const struct {
        const char* name;
        int result;
        double value;
    } kCases[] = {{"PI", 0, 3.25}, {"HUGE", 102, -1}, {"JUNK", 103, -1}, {"E", 101, -1},
                  {"NONE", 1000, -1}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        double value = -1;
        EXPECT_EQ(c.result, config->getDouble(c.name, value));
        EXPECT_EQ(c.value, value);
    }
    EXPECT_EQ(1u, capture_.count("getDouble failed [JUNK] 103"));
}

TEST_F(ConfigFileTest, StringDupCopiesValueOrDefault) {
    auto config = load("NAME=value\n");
    const char* copy = nullptr;
    ASSERT_EQ(0, config->getStringDup("NAME", &copy, "dflt"));
    EXPECT_STREQ("value", copy);
    delete[] copy;
    ASSERT_EQ(0, config->getStringDup("NONE", &copy, "dflt"));
    EXPECT_STREQ("dflt", copy);
    delete[] copy;
    EXPECT_EQ(1000, config->getStringDup("NONE", &copy, nullptr));
    EXPECT_EQ(3, config->getStringDup(nullptr, &copy, "dflt"));
    EXPECT_EQ(4, config->getStringDup("NAME", nullptr, "dflt"));
    EXPECT_EQ(1u, capture_.count("getStringDup failed [NAME] 4"));

    auto broken = load("bad\n");
    ASSERT_EQ(0, broken->getStringDup("NAME", &copy, "fallback"));
    EXPECT_STREQ("fallback", copy);
    delete[] copy;
}

TEST_F(ConfigFileTest, VerboseTracesEveryLine) {
    const std::string path = varn_test::write_temp_file("# c\n\nK = v\n");
    std::unique_ptr<ConfigFile> config(ConfigFile::createInstance(path.c_str(), 100, true));
    ASSERT_TRUE(config->isLoaded());
    EXPECT_EQ(3u, capture_.count("[ConfigFile] line trimed ["));
    EXPECT_EQ(1u, capture_.count("Line[1], skip comment line"));
    EXPECT_EQ(1u, capture_.count("Line[2], skip empty line"));
    EXPECT_EQ(1u, capture_.count("[ConfigFile] name [K]"));
    EXPECT_EQ(1u, capture_.count("[ConfigFile] value [v]"));
}

}  // namespace
}  // namespace vel_loc_fw
