#include <vel_loc_fw/memory_stream.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "postcard/memory_stream_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

TEST(OutMemoryStreamTest, GrowthPolicyKeepsTheBytes) {
    const struct {
        const char* label;
        std::vector<size_t> appends;
        uint64_t capacity;
    } cases[] = {
            {"total_63_stays_in_64", std::vector<size_t>(63, 1), 64},
            {"free_room_equal_to_request_grows", std::vector<size_t>(64, 1), 128},
            {"large_first_exact_then_doubles", {100, 1}, 200},
            {"needed_beats_double", {10, 200}, 210},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        OutMemoryStreamImpl stream;
        varn_test::Bytes expected;
        for (size_t length : c.appends) {
            varn_test::Bytes piece(length);
            for (size_t i = 0; i < length; ++i) piece[i] = static_cast<uint8_t>(expected.size() + i);
            ASSERT_EQ(0, stream.append(piece.data(), piece.size()));
            expected.insert(expected.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(c.capacity, stream.getCapacity());
        EXPECT_EQ(expected.size(), stream.getPutCursor());
        EXPECT_EQ(expected, varn_test::stream_bytes(&stream));
    }
}

TEST(OutMemoryStreamTest, FailedAppendsChangeNothing) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    OutMemoryStreamImpl stream;
    const uint8_t bytes[64] = {7};
    EXPECT_EQ(2, stream.append(bytes, 0));
    EXPECT_EQ(nullptr, stream.getBuffer());
    EXPECT_EQ(1u, log.count("[MemoryStream] expand error 2")) << log.dump();
    EXPECT_EQ(1u, log.count("[MemoryStream] append error 2")) << log.dump();
    ASSERT_EQ(0, stream.append(bytes, 10));
    varn_test::NothrowAllocationFailure failure(0);
    EXPECT_EQ(2, stream.append(bytes, 60));
    EXPECT_TRUE(log.contains("[MemoryStream] expand error 3")) << log.dump();
    EXPECT_EQ(10u, stream.getSize());
    EXPECT_EQ(64u, stream.getCapacity());
    EXPECT_EQ(7, static_cast<const uint8_t*>(stream.getBuffer())[0]);
}

TEST(InMemoryStreamTest, ExtractAndCursorBounds) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    const uint8_t bytes[] = {1, 2, 3, 4, 5, 6};
    InMemoryStreamImpl stream;
    ASSERT_EQ(0, stream.setBuffer(bytes, sizeof(bytes)));
    uint8_t two[8] = {};
    ASSERT_EQ(0, stream.extract(two, 2));
    EXPECT_EQ(2, two[1]);
    ASSERT_EQ(0, stream.extract(nullptr, 2));  // skips
    EXPECT_EQ(5, stream.extract(two, 3));
    EXPECT_EQ(3, stream.extract(two, 0));
    EXPECT_EQ(4u, stream.getGetCursor());
    ASSERT_EQ(0, stream.extract(two, 2));
    EXPECT_EQ(6, two[1]);
    EXPECT_EQ(0, stream.setGetCursor(6));
    EXPECT_EQ(1, stream.setGetCursor(7));
    EXPECT_EQ(6u, stream.getGetCursor());
    EXPECT_EQ(6u, stream.getSize());
    InMemoryStreamImpl empty;
    EXPECT_EQ(4, empty.extract(two, 1));
    for (const char* line : {"extract error 5", "extract error 3", "extract error 4",
                             "setGetCursor range error"}) {
        EXPECT_TRUE(log.contains(std::string("[MemoryStream] ") + line)) << log.dump();
    }
}

TEST(InMemoryStreamTest, CloneCopiesBytesAndCursor) {
    uint8_t bytes[] = {1, 2, 3, 4};
    InMemoryStreamImpl stream;
    ASSERT_EQ(0, stream.setBuffer(bytes, sizeof(bytes)));
    ASSERT_EQ(0, stream.extract(nullptr, 2));
    std::unique_ptr<InMemoryStream> copy(stream.clone());
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(2u, copy->getGetCursor());
    EXPECT_EQ(4u, copy->getSize());
    bytes[2] = 99;  // the clone does not see the source's memory
    uint8_t value = 0;
    ASSERT_EQ(0, copy->extract(&value, 1));
    EXPECT_EQ(3, value);
    std::unique_ptr<InMemoryStream> empty_copy(InMemoryStreamImpl().clone());
    ASSERT_NE(nullptr, empty_copy);
    EXPECT_EQ(nullptr, empty_copy->getBuffer());
}

// Leak and double-free checks come from the sanitizer build.
TEST(InMemoryStreamTest, OwnershipAndHandOver) {
    InMemoryStreamImpl stream;
    const void* buffer = new uint8_t[3]{9, 8, 7};
    ASSERT_EQ(0, stream.setBufferOwnership(&buffer, 3));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_TRUE(stream.ownsBuffer());
    // Installing a borrowed buffer releases the owned one and rewinds.
    ASSERT_EQ(0, stream.extract(nullptr, 1));
    const uint8_t borrowed[2] = {5, 6};
    ASSERT_EQ(0, stream.setBuffer(borrowed, sizeof(borrowed)));
    EXPECT_FALSE(stream.ownsBuffer());
    EXPECT_EQ(0u, stream.getGetCursor());
    EXPECT_EQ(2, stream.setBufferOwnership(nullptr, 3));

    OutMemoryStream* out = OutMemoryStream::createInstance();
    const uint32_t word = 0xA1B2C3D4;
    ASSERT_EQ(0, out->append(&word, sizeof(word)));
    const void* bytes = out->getBuffer();
    std::unique_ptr<InMemoryStream> in(InMemoryStream::createInstance(out));
    EXPECT_EQ(bytes, in->getBuffer());
    EXPECT_EQ(0u, out->getSize());
    EXPECT_EQ(nullptr, out->getBuffer());
    ASSERT_EQ(0, out->append(&word, 1));  // still usable, allocates afresh
    delete out;  // must not free what `in` reads
    uint32_t read = 0;
    ASSERT_EQ(0, in->extract(&read, sizeof(read)));
    EXPECT_EQ(word, read);
    EXPECT_EQ(nullptr, std::unique_ptr<InMemoryStream>(InMemoryStream::createInstance(nullptr))
                               ->getBuffer());
}

}  // namespace
}  // namespace vel_loc_fw
