#include <vel_loc_fw/vector.h>

#include <android/log.h>
#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"

namespace {

class VectorTest : public ::testing::Test {
  protected:
    void SetUp() override { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE); }
    void TearDown() override { vel_loc_fw::log_set_global_level(vel_loc_fw::EL_LOG_OFF); }
};

TEST_F(VectorTest, FirstAllocationHolds64AndGrowthDoubles) {
    vel_loc_fw::vector<uint32_t> v;
    EXPECT_EQ(v.capacity(), 0u);
    const struct {
        uint32_t pushes;
        uint32_t capacity;
    } steps[] = {{1, 64}, {64, 64}, {65, 128}, {128, 128}, {129, 256}, {600, 1024}};
    uint32_t pushed = 0;
    for (const auto& step : steps) {
        while (pushed < step.pushes) ASSERT_EQ(v.push_back(pushed++ * 3), 0);
        EXPECT_EQ(v.size(), step.pushes);
        EXPECT_EQ(v.capacity(), step.capacity) << "after " << step.pushes;
    }
    for (uint32_t i = 0; i < v.size(); ++i) ASSERT_EQ(v[i], i * 3);
}

TEST_F(VectorTest, IndexNotBelowCountLogsAndYieldsFirstElement) {
    vel_loc_fw::vector<int> v;
    v.push_back(7);
    v.push_back(8);
    varn_test::LogCapture capture;
    EXPECT_EQ(v[1], 8);
    EXPECT_EQ(capture.count("index out of range"), 0u);
    EXPECT_EQ(v[2], 7);
    EXPECT_EQ(v[100], 7);
    const auto& cv = v;
    EXPECT_EQ(cv[5], 7);
    EXPECT_EQ(capture.count("[vector] index out of range"), 3u) << capture.dump();
    for (const auto& line : capture.lines()) {
        if (line.text.find("index out of range") != std::string::npos) {
            EXPECT_EQ(line.priority, ANDROID_LOG_ERROR);
        }
    }
}

TEST_F(VectorTest, IndexIntoEmptyVectorYieldsZeroedElement) {
    vel_loc_fw::vector<int*> never_allocated;
    varn_test::LogCapture capture;
    EXPECT_EQ(never_allocated[0], nullptr);
    vel_loc_fw::vector<int> emptied;
    emptied.push_back(5);
    emptied.erase(0);
    EXPECT_EQ(emptied[0], 5);  // the array is kept; its first slot still holds 5
    EXPECT_EQ(capture.count("index out of range"), 2u);
}

TEST_F(VectorTest, EraseKeepsOrderAndRejectsBadIndex) {
    vel_loc_fw::vector<int> v;
    for (int i = 0; i < 5; ++i) v.push_back(i);
    EXPECT_EQ(v.erase(1), 0);
    EXPECT_EQ(v.erase(3), 0);
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(v[0], 0);
    EXPECT_EQ(v[1], 2);
    EXPECT_EQ(v[2], 3);
    varn_test::LogCapture capture;
    EXPECT_EQ(v.erase(3), -1);
    EXPECT_TRUE(capture.contains("index out of range"));
    EXPECT_EQ(v.size(), 3u);
}

TEST_F(VectorTest, CopiesAreIndependentAndMovesEmptyTheSource) {
    vel_loc_fw::vector<int> a;
    for (int i = 0; i < 70; ++i) a.push_back(i);
    vel_loc_fw::vector<int> b(a);
    b[0] = 100;
    b.push_back(70);
    EXPECT_EQ(a[0], 0);
    EXPECT_EQ(a.size(), 70u);
    EXPECT_EQ(b.size(), 71u);
    vel_loc_fw::vector<int> c;
    c = b;
    EXPECT_EQ(c[70], 70);
    vel_loc_fw::vector<int> d(std::move(c));
    EXPECT_EQ(d.size(), 71u);
    EXPECT_EQ(c.size(), 0u);
    EXPECT_EQ(c.capacity(), 0u);
    d.clear();
    EXPECT_EQ(d.size(), 0u);
    EXPECT_EQ(d.capacity(), 0u);
    EXPECT_EQ(d.push_back(1), 0);
    EXPECT_EQ(d.capacity(), 64u);
}

}  // namespace
