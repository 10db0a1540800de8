#include <vel_loc_fw/memory_stream.h>

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "postcard/memory_stream_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

TEST(OutMemoryStreamTest, GrowthPolicyKeepsTheBytes) {
    const struct {
        std::vector<size_t> appends;
        uint64_t capacity;
    } cases[] = {
            {std::vector<size_t>(63, 1), 64},
            {std::vector<size_t>(64, 1), 128},  // free room equal to the request still grows
            {{100, 1}, 200},                    // a large first piece exactly, then doubles
            {{10, 200}, 210},                   // what is needed beats doubling
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.capacity);
        OutMemoryStreamImpl stream;
        varn_test::Bytes expected;
        for (size_t length : c.appends) {
            const varn_test::Bytes piece(length, static_cast<uint8_t>(expected.size()));
            ASSERT_EQ(0, stream.append(piece.data(), piece.size()));
            expected.insert(expected.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(c.capacity, stream.getCapacity());
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
    ASSERT_EQ(0, stream.append(bytes, 10));
    varn_test::NothrowAllocationFailure failure(0);
    EXPECT_EQ(2, stream.append(bytes, 60));
    EXPECT_EQ(varn_test::Bytes(bytes, bytes + 10), varn_test::stream_bytes(&stream));
    EXPECT_EQ(64u, stream.getCapacity());
    EXPECT_EQ(1u, log.count("[MemoryStream] expand error 2")) << log.dump();
    EXPECT_EQ(2u, log.count("[MemoryStream] append error 2")) << log.dump();
    EXPECT_TRUE(log.contains("[MemoryStream] expand error 3")) << log.dump();
}

TEST(InMemoryStreamTest, ExtractCursorAndClone) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    uint8_t bytes[] = {1, 2, 3, 4, 5, 6};
    InMemoryStreamImpl stream;
    ASSERT_EQ(0, stream.setBuffer(bytes, sizeof(bytes)));
    uint8_t out[8] = {};
    ASSERT_EQ(0, stream.extract(nullptr, 3));  // skips
    ASSERT_EQ(0, stream.extract(out, 1));
    EXPECT_EQ(4, out[0]);
    EXPECT_EQ(5, stream.extract(out, 3));
    EXPECT_EQ(3, stream.extract(out, 0));
    EXPECT_EQ(4, InMemoryStreamImpl().extract(out, 1));
    // A clone keeps the cursor but not the memory.
    std::unique_ptr<InMemoryStream> copy(stream.clone());
    bytes[4] = 99;
    ASSERT_EQ(0, copy->extract(out, 2));
    EXPECT_EQ(5, out[0]);
    EXPECT_EQ(0, stream.setGetCursor(6));
    EXPECT_EQ(1, stream.setGetCursor(7));
    EXPECT_EQ(6u, stream.getGetCursor());
    for (const char* line : {"error 5", "error 3", "error 4", "setGetCursor range error"}) {
        EXPECT_TRUE(log.contains(line)) << log.dump();
    }
}

// Leak and double-free checks come from the sanitizer build.
TEST(InMemoryStreamTest, Ownership) {
    InMemoryStreamImpl stream;
    const void* buffer = new uint8_t[3]{9, 8, 7};
    ASSERT_EQ(0, stream.setBufferOwnership(&buffer, 3));
    EXPECT_EQ(nullptr, buffer);
    ASSERT_EQ(0, stream.extract(nullptr, 1));
    // Installing a borrowed buffer releases the owned one and rewinds.
    const uint8_t borrowed = 5;
    ASSERT_EQ(0, stream.setBuffer(&borrowed, 1));
    EXPECT_FALSE(stream.ownsBuffer());
    EXPECT_EQ(0u, stream.getGetCursor());
    EXPECT_EQ(2, stream.setBufferOwnership(nullptr, 3));
}

}  // namespace
}  // namespace vel_loc_fw
