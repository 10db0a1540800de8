#include <vel_loc_fw/postcard.h>

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "postcard/postcard_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

using Bytes = std::vector<uint8_t>;
using AddFn = std::function<int(OutPostcard*)>;

// One field record: type, name length, name with NUL, value.
Bytes record(uint16_t type, const std::string& name, const Bytes& value) {
    Bytes out;
    out.reserve(4 + name.size() + 1 + value.size());
    for (uint8_t b : {static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
                      static_cast<uint8_t>(name.size() + 1), uint8_t{0}}) {
        out.push_back(b);
    }
    for (char c : name) out.push_back(static_cast<uint8_t>(c));
    out.push_back(0);
    for (uint8_t b : value) out.push_back(b);
    return out;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::unique_ptr<OutPostcard> started() {
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    EXPECT_EQ(0, card->init());
    return card;
}

std::unique_ptr<OutPostcard> finished_empty() {
    std::unique_ptr<OutPostcard> card = started();
    EXPECT_EQ(0, card->finalize());
    return card;
}

struct EncodingCase {
    const char* label;
    AddFn add;
    Bytes fields;  // everything between the length word and the end byte
};

class PostcardEncodingTest : public testing::TestWithParam<EncodingCase> {};

TEST_P(PostcardEncodingTest, WritesExactBytes) {
    std::unique_ptr<OutPostcard> card = started();
    if (GetParam().add) {
        ASSERT_EQ(0, GetParam().add(card.get()));
    }
    ASSERT_EQ(0, card->finalize());
    const Bytes& fields = GetParam().fields;
    const uint32_t body = static_cast<uint32_t>(fields.size() + 1);
    Bytes expected = {static_cast<uint8_t>(body), static_cast<uint8_t>(body >> 8), 0, 0};
    expected.insert(expected.end(), fields.begin(), fields.end());
    expected.push_back(0);
    EXPECT_EQ(expected, varn_test::stream_bytes(card->getEncodedBuffer()));
    EXPECT_EQ(card->getEncodedBuffer(), card->getInternalBuffer());
}

INSTANTIATE_TEST_SUITE_P(
        Records, PostcardEncodingTest,
        testing::Values(
                EncodingCase{"empty", nullptr, {}},
                EncodingCase{"int32", [](OutPostcard* c) { return c->addInt32("A", 7); },
                             {0x0C, 0, 2, 0, 'A', 0, 7, 0, 0, 0}},
                EncodingCase{"string", [](OutPostcard* c) { return c->addString("S", "hi"); },
                             {0x13, 0, 2, 0, 'S', 0, 3, 0, 0, 0, 'h', 'i', 0}},
                EncodingCase{"array_int16",
                             [](OutPostcard* c) {
                                 const short v[] = {1, 2};
                                 return c->addArrayInt16("V", 2, v);
                             },
                             {0x22, 0, 2, 0, 'V', 0, 4, 0, 0, 0, 1, 0, 2, 0}},
                EncodingCase{"card",
                             [](OutPostcard* c) {
                                 return c->addCard("C", finished_empty().get());
                             },
                             {0x01, 0, 2, 0, 'C', 0, 1, 0, 0, 0, 0}},
                EncodingCase{"bool", [](OutPostcard* c) { return c->addBool("B", true); },
                             record(18, "B", {1})},
                EncodingCase{"ptr",
                             [](OutPostcard* c) {
                                 return c->addPtr("P", reinterpret_cast<void*>(
                                                               0x1122334455667788ULL));
                             },
                             record(10, "P", {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11})},
                EncodingCase{"double", [](OutPostcard* c) { return c->addDouble("D", 1.0); },
                             record(21, "D", {0, 0, 0, 0, 0, 0, 0xF0, 0x3F})},
                EncodingCase{"float", [](OutPostcard* c) { return c->addFloat("F", 1.0f); },
                             record(22, "F", {0, 0, 0x80, 0x3F})},
                EncodingCase{"int64", [](OutPostcard* c) { return c->addInt64("L", -2); },
                             record(10, "L", Bytes(1, 0xFE) + Bytes(7, 0xFF))},
                EncodingCase{"uint64", [](OutPostcard* c) { return c->addUInt64("U", 3); },
                             record(11, "U", {3, 0, 0, 0, 0, 0, 0, 0})},
                EncodingCase{"uint32", [](OutPostcard* c) { return c->addUInt32("U", 3); },
                             record(13, "U", {3, 0, 0, 0})},
                EncodingCase{"int16", [](OutPostcard* c) { return c->addInt16("H", -1); },
                             record(14, "H", {0xFF, 0xFF})},
                EncodingCase{"uint16", [](OutPostcard* c) { return c->addUInt16("H", 258); },
                             record(15, "H", {2, 1})},
                EncodingCase{"int8", [](OutPostcard* c) { return c->addInt8("C", 'x'); },
                             record(16, "C", {'x'})},
                EncodingCase{"uint8", [](OutPostcard* c) { return c->addUInt8("C", 200); },
                             record(17, "C", {200})},
                EncodingCase{"blob",
                             [](OutPostcard* c) {
                                 const uint8_t b[] = {9, 8};
                                 return c->addBlob("X", b, sizeof(b));
                             },
                             record(20, "X", {2, 0, 0, 0, 9, 8})},
                EncodingCase{"array_ptr",
                             [](OutPostcard* c) {
                                 void* const v[] = {reinterpret_cast<void*>(1)};
                                 return c->addArrayPtr("P", 1, v);
                             },
                             record(30, "P", {8, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0})},
                EncodingCase{"array_bool",
                             [](OutPostcard* c) {
                                 const bool v[] = {true, false, true};
                                 return c->addArrayBool("B", 3, v);
                             },
                             record(38, "B", {3, 0, 0, 0, 1, 0, 1})},
                EncodingCase{"repeated_name_kept_in_order",
                             [](OutPostcard* c) {
                                 return c->addUInt8("X", 1) + c->addUInt8("X", 2);
                             },
                             record(17, "X", {1}) + record(17, "X", {2})}),
        [](const testing::TestParamInfo<EncodingCase>& info) { return info.param.label; });

// Every add kind refuses the same states and names, but the wrappers of
// addBlobWithType() report through their own codes.
struct CheckCase {
    const char* label;
    std::function<int(OutPostcard*, const char*)> add;
    int not_started, null_name, empty_name, long_name;
};

class PostcardAddChecksTest : public testing::TestWithParam<CheckCase> {};

TEST_P(PostcardAddChecksTest, RefusesStateAndNames) {
    const CheckCase& c = GetParam();
    std::unique_ptr<OutPostcard> fresh(OutPostcard::createInstance());
    EXPECT_EQ(c.not_started, c.add(fresh.get(), "N"));
    std::unique_ptr<OutPostcard> card = started();
    EXPECT_EQ(c.null_name, c.add(card.get(), nullptr));
    EXPECT_EQ(c.empty_name, c.add(card.get(), ""));
    EXPECT_EQ(c.long_name, c.add(card.get(), std::string(256, 'n').c_str()));
    EXPECT_EQ(0, c.add(card.get(), std::string(255, 'n').c_str()));
    // The 255-character name is stored with the length word 256.
    const Bytes bytes = varn_test::stream_bytes(card->getEncodedBuffer());
    ASSERT_GE(bytes.size(), 8u);
    EXPECT_EQ(0, bytes[6]);
    EXPECT_EQ(1, bytes[7]);
    ASSERT_EQ(0, card->finalize());
    EXPECT_EQ(c.not_started, c.add(card.get(), "N"));  // no adds after finalize
}

INSTANTIATE_TEST_SUITE_P(
        AllKinds, PostcardAddChecksTest,
        testing::Values(
                CheckCase{"simple", [](OutPostcard* p, const char* n) { return p->addInt32(n, 1); },
                          2, 3, 4, 5},
                CheckCase{"blob",
                          [](OutPostcard* p, const char* n) { return p->addBlob(n, "b", 1); },
                          2, 3, 4, 5},
                CheckCase{"array",
                          [](OutPostcard* p, const char* n) {
                              const float v = 1.0f;
                              return p->addArrayFloat(n, 1, &v);
                          },
                          2, 3, 4, 5},
                CheckCase{"string",
                          [](OutPostcard* p, const char* n) { return p->addString(n, "s"); },
                          4, 2, 4, 4},
                CheckCase{"card",
                          [](OutPostcard* p, const char* n) {
                              return p->addCard(n, finished_empty().get());
                          },
                          5, 2, 5, 5}),
        [](const testing::TestParamInfo<CheckCase>& info) { return info.param.label; });

TEST(PostcardWriterTest, ArgumentCodesWriteNothing) {
    std::unique_ptr<OutPostcard> card = started();
    std::unique_ptr<OutPostcard> open = started();
    const size_t before = card->getEncodedBuffer()->getSize();
    const int values[] = {1};
    EXPECT_EQ(6, card->addArrayInt32("A", 1, nullptr));
    EXPECT_EQ(7, card->addArrayInt32("A", 0, values));
    EXPECT_EQ(7, card->addArrayInt32("A", -1, values));
    EXPECT_EQ(6, card->addBlob("B", nullptr, 1));
    EXPECT_EQ(3, card->addString("S", nullptr));
    EXPECT_EQ(3, card->addCard("C", nullptr));
    EXPECT_EQ(4, card->addCard("C", open.get()));  // not finalised
    EXPECT_EQ(before, card->getEncodedBuffer()->getSize());
}

TEST(PostcardWriterTest, EmptyBlobFailsAfterWritingItsHeader) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    std::unique_ptr<OutPostcard> card = started();
    const size_t before = card->getEncodedBuffer()->getSize();
    EXPECT_EQ(12, card->addBlob("B", "x", 0));
    // No rollback: type, name length, name and length word stay.
    EXPECT_EQ(before + 2 + 2 + 2 + 4, card->getEncodedBuffer()->getSize());
    EXPECT_TRUE(log.contains("[OutPostcard] addBlobWithType failed 12")) << log.dump();
}

TEST(PostcardWriterTest, LifecycleCodes) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    EXPECT_EQ(nullptr, card->getEncodedBuffer());
    EXPECT_EQ(2, card->finalize());
    ASSERT_EQ(0, card->init());
    EXPECT_EQ(Bytes({0x78, 0x56, 0x34, 0x12}), varn_test::stream_bytes(card->getEncodedBuffer()));
    EXPECT_EQ(2, card->init());
    ASSERT_EQ(0, card->finalize());
    EXPECT_EQ(2, card->finalize());
    // finalize() reports under init()'s words.
    EXPECT_EQ(3u, log.count("[OutPostcard] init failed 2")) << log.dump();
}

TEST(PostcardWriterTest, InitOutOfMemory) {
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    {
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(3, card->init());
    }
    EXPECT_EQ(nullptr, card->getEncodedBuffer());
    EXPECT_EQ(0, card->init());  // still in its first state
}

// A failing append is forced by leaving `free_room` bytes in the first 64-byte
// buffer and failing the reallocation that the next too-large piece needs.
struct AppendFailureCase {
    const char* label;
    size_t free_room;
    std::function<int(OutPostcard*)> step;
    int code;
};

class PostcardAppendFailureTest : public testing::TestWithParam<AppendFailureCase> {};

TEST_P(PostcardAppendFailureTest, ReportsTheFailingPiece) {
    std::unique_ptr<OutPostcard> card = started();
    // After init: 4 bytes. The filler record is 10 bytes plus its data.
    const Bytes filler(50 - GetParam().free_room, 0xAB);
    ASSERT_EQ(0, card->addBlob("F", filler.data(), filler.size()));
    ASSERT_EQ(64 - GetParam().free_room, card->getEncodedBuffer()->getSize());
    varn_test::NothrowAllocationFailure failure(0);
    EXPECT_EQ(GetParam().code, GetParam().step(card.get()));
    EXPECT_TRUE(failure.triggered());
}

int add_simple(OutPostcard* c) { return c->addInt32("N", 1); }
int add_blob(OutPostcard* c) { return c->addBlob("N", "abcd", 4); }
int add_array(OutPostcard* c) {
    const int v = 1;
    return c->addArrayInt32("N", 1, &v);
}

INSTANTIATE_TEST_SUITE_P(
        Pieces, PostcardAppendFailureTest,
        testing::Values(AppendFailureCase{"simple_type", 2, add_simple, 6},
                        AppendFailureCase{"simple_name_length", 4, add_simple, 7},
                        AppendFailureCase{"simple_name", 6, add_simple, 8},
                        AppendFailureCase{"simple_value", 8, add_simple, 9},
                        AppendFailureCase{"blob_type", 2, add_blob, 8},
                        AppendFailureCase{"blob_name_length", 4, add_blob, 9},
                        AppendFailureCase{"blob_name", 6, add_blob, 10},
                        AppendFailureCase{"blob_length", 10, add_blob, 11},
                        AppendFailureCase{"blob_data", 14, add_blob, 12},
                        AppendFailureCase{"array_type", 2, add_array, 8},
                        AppendFailureCase{"array_name_length", 4, add_array, 9},
                        AppendFailureCase{"array_name", 6, add_array, 10},
                        AppendFailureCase{"array_length", 10, add_array, 11},
                        AppendFailureCase{"array_values", 14, add_array, 12},
                        AppendFailureCase{"finalize_end_byte", 1,
                                          [](OutPostcard* c) { return c->finalize(); }, 3}),
        [](const testing::TestParamInfo<AppendFailureCase>& info) { return info.param.label; });

}  // namespace
}  // namespace vel_loc_fw
