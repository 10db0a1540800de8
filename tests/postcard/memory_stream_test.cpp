#include <vel_loc_fw/memory_stream.h>

#include <string.h>

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "postcard/memory_stream_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

struct GrowthCase {
    const char* label;
    std::vector<size_t> appends;
    uint64_t capacity;
};

class OutMemoryStreamGrowthTest : public testing::TestWithParam<GrowthCase> {};

TEST_P(OutMemoryStreamGrowthTest, CapacityAfterAppends) {
    OutMemoryStreamImpl stream;
    std::vector<uint8_t> expected;
    for (size_t length : GetParam().appends) {
        std::vector<uint8_t> piece(length);
        for (size_t i = 0; i < length; ++i) piece[i] = static_cast<uint8_t>(expected.size() + i);
        ASSERT_EQ(0, stream.append(piece.data(), piece.size()));
        expected.insert(expected.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(GetParam().capacity, stream.getCapacity());
    EXPECT_EQ(expected.size(), stream.getSize());
    EXPECT_EQ(expected.size(), stream.getPutCursor());
    EXPECT_EQ(expected, varn_test::stream_bytes(&stream));  // kept across reallocations
}

INSTANTIATE_TEST_SUITE_P(
        Policy, OutMemoryStreamGrowthTest,
        testing::Values(GrowthCase{"first_byte", {1}, 64},
                        GrowthCase{"total_63_stays", std::vector<size_t>(63, 1), 64},
                        // Free room equal to the request still reallocates.
                        GrowthCase{"byte_64_grows", std::vector<size_t>(64, 1), 128},
                        GrowthCase{"exact_fill_grows", {60, 4}, 128},
                        GrowthCase{"large_first", {100}, 100},
                        GrowthCase{"large_then_doubles", {100, 1}, 200},
                        GrowthCase{"needed_beats_double", {10, 200}, 210}),
        [](const testing::TestParamInfo<GrowthCase>& info) { return info.param.label; });

TEST(OutMemoryStreamTest, EmptyAppendIsRefusedAndLogged) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    OutMemoryStreamImpl stream;
    const uint8_t byte = 1;
    EXPECT_EQ(2, stream.append(&byte, 0));
    EXPECT_EQ(2, stream.expand(0));
    EXPECT_EQ(0u, stream.getSize());
    EXPECT_EQ(nullptr, stream.getBuffer());
    EXPECT_EQ(2u, log.count("[MemoryStream] expand error 2")) << log.dump();
    EXPECT_EQ(1u, log.count("[MemoryStream] append error 2")) << log.dump();
}

TEST(OutMemoryStreamTest, FailedGrowthKeepsOldBytes) {
    OutMemoryStreamImpl stream;
    const uint8_t bytes[64] = {7};
    ASSERT_EQ(0, stream.append(bytes, 10));
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    varn_test::NothrowAllocationFailure failure(0);
    EXPECT_EQ(2, stream.append(bytes, 60));
    EXPECT_TRUE(log.contains("expand error 3")) << log.dump();
    EXPECT_EQ(10u, stream.getSize());
    EXPECT_EQ(64u, stream.getCapacity());
    EXPECT_EQ(7, static_cast<const uint8_t*>(stream.getBuffer())[0]);
}

class InMemoryStreamTest : public testing::Test {
  protected:
    void SetUp() override {
        const uint8_t bytes[] = {1, 2, 3, 4, 5, 6};
        ASSERT_EQ(0, stream_.setBuffer(bytes_, sizeof(bytes_)));
        memcpy(bytes_, bytes, sizeof(bytes));
    }
    uint8_t bytes_[6] = {};
    InMemoryStreamImpl stream_;
};

TEST_F(InMemoryStreamTest, ExtractCopiesOrSkips) {
    uint8_t two[2] = {};
    ASSERT_EQ(0, stream_.extract(two, 2));
    EXPECT_EQ(1, two[0]);
    EXPECT_EQ(2, two[1]);
    ASSERT_EQ(0, stream_.extract(nullptr, 3));
    EXPECT_EQ(5u, stream_.getGetCursor());
    ASSERT_EQ(0, stream_.extract(two, 1));
    EXPECT_EQ(6, two[0]);
    EXPECT_EQ(6u, stream_.getEndCursor());
    EXPECT_EQ(6u, stream_.getSize());
}

TEST_F(InMemoryStreamTest, ExtractFailuresLeaveTheCursor) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    ASSERT_EQ(0, stream_.extract(nullptr, 4));
    uint8_t sink[8] = {};
    EXPECT_EQ(5, stream_.extract(sink, 3));
    EXPECT_EQ(3, stream_.extract(sink, 0));
    EXPECT_EQ(4u, stream_.getGetCursor());
    InMemoryStreamImpl empty;
    EXPECT_EQ(4, empty.extract(sink, 1));
    EXPECT_TRUE(log.contains("[MemoryStream] extract error 5")) << log.dump();
    EXPECT_TRUE(log.contains("[MemoryStream] extract error 3")) << log.dump();
    EXPECT_TRUE(log.contains("[MemoryStream] extract error 4")) << log.dump();
}

TEST_F(InMemoryStreamTest, SetGetCursorAllowsTheEndOnly) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    EXPECT_EQ(0, stream_.setGetCursor(6));
    EXPECT_EQ(1, stream_.setGetCursor(7));
    EXPECT_EQ(6u, stream_.getGetCursor());
    EXPECT_TRUE(log.contains("[MemoryStream] setGetCursor range error")) << log.dump();
}

TEST_F(InMemoryStreamTest, CloneCopiesBytesAndCursor) {
    ASSERT_EQ(0, stream_.extract(nullptr, 2));
    std::unique_ptr<InMemoryStream> copy(stream_.clone());
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(stream_.getBuffer(), copy->getBuffer());
    EXPECT_EQ(2u, copy->getGetCursor());
    EXPECT_EQ(6u, copy->getSize());
    bytes_[2] = 99;  // the clone does not see the source's memory
    uint8_t value = 0;
    ASSERT_EQ(0, copy->extract(&value, 1));
    EXPECT_EQ(3, value);

    InMemoryStreamImpl empty;
    std::unique_ptr<InMemoryStream> empty_copy(empty.clone());
    ASSERT_NE(nullptr, empty_copy);
    EXPECT_EQ(nullptr, empty_copy->getBuffer());
}

TEST(InMemoryStreamOwnershipTest, SetBufferOwnershipTakesTheBuffer) {
    // Leak and double-free checks come from the sanitizer build.
    InMemoryStreamImpl stream;
    const void* buffer = new uint8_t[3]{9, 8, 7};
    ASSERT_EQ(0, stream.setBufferOwnership(&buffer, 3));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_TRUE(stream.ownsBuffer());
    uint8_t value = 0;
    ASSERT_EQ(0, stream.extract(&value, 1));
    EXPECT_EQ(9, value);
    // Installing a borrowed buffer releases the owned one and rewinds.
    const uint8_t borrowed[2] = {5, 6};
    ASSERT_EQ(0, stream.setBuffer(borrowed, sizeof(borrowed)));
    EXPECT_FALSE(stream.ownsBuffer());
    EXPECT_EQ(0u, stream.getGetCursor());

    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    EXPECT_EQ(2, stream.setBufferOwnership(nullptr, 3));
    EXPECT_TRUE(log.contains("setBufferOwnership failed 2")) << log.dump();
}

TEST(InMemoryStreamOwnershipTest, HandOverMovesBytesWithoutCopy) {
    OutMemoryStream* out = OutMemoryStream::createInstance();
    ASSERT_NE(nullptr, out);
    const uint32_t word = 0xA1B2C3D4;
    ASSERT_EQ(0, out->append(&word, sizeof(word)));
    const void* bytes = out->getBuffer();
    std::unique_ptr<InMemoryStream> in(InMemoryStream::createInstance(out));
    ASSERT_NE(nullptr, in);
    EXPECT_EQ(bytes, in->getBuffer());
    EXPECT_EQ(0u, out->getSize());
    EXPECT_EQ(nullptr, out->getBuffer());
    ASSERT_EQ(0, out->append(&word, 1));  // still usable, allocates afresh
    EXPECT_NE(bytes, out->getBuffer());
    delete out;  // must not free what `in` reads
    uint32_t read = 0;
    ASSERT_EQ(0, in->extract(&read, sizeof(read)));
    EXPECT_EQ(word, read);

    std::unique_ptr<InMemoryStream> none(InMemoryStream::createInstance(nullptr));
    ASSERT_NE(nullptr, none);
    EXPECT_EQ(nullptr, none->getBuffer());
}

}  // namespace
}  // namespace vel_loc_fw
