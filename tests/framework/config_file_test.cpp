#include <vel_loc_fw/config_file.h>

#include "framework_test_support.h"

namespace vel_loc_fw {
namespace {

std::unique_ptr<ConfigFile> open(const char* path, size_t max_line = 1023, bool verbose = false) {
    return std::unique_ptr<ConfigFile>(ConfigFile::createInstance(path, max_line, verbose));
}
std::unique_ptr<ConfigFile> load(const std::string& content, size_t max_line = 1023,
                                 bool verbose = false) {
    return open(varn_test::write_temp_file(content).c_str(), max_line, verbose);
}

using ConfigFileTest = varn_test::VerboseLogTest;

TEST_F(ConfigFileTest, GrammarAcceptsOrRejectsWholeFiles) {
    const struct {
        const char* content;
        size_t max_line;
        int result, line;  // result 0: loaded; else the code and line in the load report
    } kCases[] = {
            // clang-format off
            {"# comment\n\n\t \nKEY=1\n", 1023, 0, 4}, {"K_1-x=\"quoted\"", 1023, 0, 1},
            {"A=123456\n", 10, 0, 1}, {"A=1234567\n", 10, 101, 1},  // the newline counts
            {"KEY=\n", 1023, 112, 1}, {"KEY=\"\n", 1023, 112, 1}, {"KEY=\"abc\n", 1023, 112, 1},
            {"_KEY = 1\n", 1023, 110, 1}, {"1KEY = 1\n", 1023, 110, 1},
            {"\x0e" "K=1\n", 1023, 110, 1},  // control characters other than \t..\r are not blank
            {"KEY x = 1\n", 1023, 111, 1}, {"KEY\n", 1023, 111, 1},
            {"A=1\nB=2\n=3\n", 1023, 110, 3},
            // clang-format on
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.content);
        log_.clear();
        EXPECT_EQ(c.result == 0, load(c.content, c.max_line)->isLoaded());
        const size_t reports = c.result == 0 ? 0 : 1;
        EXPECT_EQ(reports, log_.count("result [" + std::to_string(c.result) + "]")) << log_.dump();
        EXPECT_EQ(reports, log_.count("line[" + std::to_string(c.line) + "]"));
    }
    EXPECT_FALSE(open("/nonexistent/varn.conf")->isLoaded());
    EXPECT_FALSE(open(nullptr)->isLoaded());
    EXPECT_EQ(1u, log_.count("result [3] [/nonexistent/varn.conf], error [2]"));
    EXPECT_EQ(1u, log_.count("result [2] [(null)]"));
}

TEST_F(ConfigFileTest, ValuesAreTrimmedUnquotedAndLastDefinitionWins) {
    auto config =
            load("  KEY =  some value  \nQ=\"  spaced \"\nE=\"\"\nH = a # b\nT=ends\"\n"
                 "D=1\nX=2\nD=3\n");
    ASSERT_TRUE(config->isLoaded());
    const struct {
        const char *name, *value;
    } kValues[] = {{"KEY", "some value"}, {"Q", "  spaced "}, {"E", ""},
                   {"H", "a # b"},        {"T", "ends\""},    {"D", "3"}};
    for (const auto& v : kValues) {
        const char* value = nullptr;
        ASSERT_EQ(0, config->getString(v.name, &value)) << v.name;
        EXPECT_STREQ(v.value, value);
        ASSERT_EQ(0, config->getStringDup(v.name, &value, "dflt"));
        EXPECT_STREQ(v.value, value);
        delete[] value;
    }
    const char* value = "untouched";
    EXPECT_EQ(1000, config->getString("missing", &value));
    EXPECT_EQ(nullptr, value);
    EXPECT_EQ(1000, config->getStringDup("NONE", &value, nullptr));
    EXPECT_EQ(3, config->getStringDup(nullptr, &value, "dflt"));
    EXPECT_EQ(4, config->getStringDup("KEY", nullptr, "dflt"));
    EXPECT_EQ(1u, log_.count("getStringDup failed [KEY] 4"));
}

TEST_F(ConfigFileTest, NumberConversions) {
    auto config =
            load("HEX=0x10\nOCT=010\nNEG=-42\nBIG=3000000000\nJUNK=12abc\n"
                 "LMAX=99999999999999999999\nE=\"\"\nPI=3.25\nHUGE=1e999\nDJUNK=1.5x\n");
    ASSERT_TRUE(config->isLoaded());
    const struct {
        const char* name;
        int int_result, int_value, double_result;
        double double_value;
    } kCases[] = {
            {"HEX", 0, 16, 0, 16},      {"OCT", 0, 8, 0, 10},         {"NEG", 0, -42, 0, -42},
            {"BIG", 105, -1, 0, 3e9},   {"JUNK", 104, -1, 103, -1},   {"LMAX", 102, -1, 0, 1e20},
            {"E", 101, -1, 101, -1},    {"NONE", 1000, -1, 1000, -1}, {"PI", 104, -1, 0, 3.25},
            {"HUGE", 104, -1, 102, -1}, {"DJUNK", 104, -1, 103, -1},  {nullptr, 3, -1, 3, -1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        int int_value = -1;
        EXPECT_EQ(c.int_result, config->getInt32(c.name, int_value));
        EXPECT_EQ(c.int_value, int_value);
        double double_value = -1;
        EXPECT_EQ(c.double_result, config->getDouble(c.name, double_value));
        EXPECT_EQ(c.double_value, double_value);
    }
    EXPECT_EQ(1u, log_.count("getInt32 failed [BIG] 105"));
    EXPECT_EQ(1u, log_.count("getDouble failed [DJUNK] 103"));
}

TEST_F(ConfigFileTest, DefaultVariants) {
    auto config = load("ZERO=0\nNEG=-1\nONE=1\nPOS=5\nBAD=x\n");
    ASSERT_TRUE(config->isLoaded());
    const struct {
        const char* name;
        int previous, pz_result, pz_value, pnz_result, pnz_value, def_result, def_value;
    } kCases[] = {
            // clang-format off
            {"ZERO", 9, 0, 0, 1, 77, 0, 0},  {"NEG", 9, 1, 77, 1, 77, 0, -1},
            {"ONE", 9, 0, 1, 0, 1, 0, 1},    {"POS", 9, 0, 5, 0, 5, 0, 5},
            {"NONE", 9, 0, 77, 0, 77, 0, 77},
            {"BAD", 9, 104, 9, 104, 9, 104, 9},  // failed conversion, previous value tested
            {"BAD", -9, 1, 77, 1, 77, 104, -9},
            // clang-format on
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
    int value = 0;
    double real = 0;
    const char* text = nullptr;
    EXPECT_EQ(0, config->getInt32Default("GOOD", value, 11));
    EXPECT_EQ(0, config->getDoubleDefault("GOOD", real, 2.5));
    EXPECT_EQ(2, config->getString("GOOD", &text));
    EXPECT_TRUE(value == 11 && real == 2.5 && text == nullptr);
    ASSERT_EQ(0, config->getStringDup("GOOD", &text, "fallback"));
    EXPECT_STREQ("fallback", text);
    delete[] text;
    EXPECT_TRUE(log_.contains("[ConfigFile] getInt32 m_loaded is false")) << log_.dump();
    EXPECT_TRUE(log_.contains("getString failed [GOOD] 2"));
}

TEST_F(ConfigFileTest, VerboseTracesEveryLine) {
    ASSERT_TRUE(load("# c\n\n K = v \n", 100, true)->isLoaded());
    EXPECT_EQ(7u, log_.lines().size()) << log_.dump();
    for (const char* text : {"[ConfigFile] line trimed [K = v]", "Line[1], skip comment line",
                             "Line[2], skip empty line", "name [K]", "value [v]"}) {
        EXPECT_TRUE(log_.contains(text)) << text;
    }
}

}  // namespace
}  // namespace vel_loc_fw
