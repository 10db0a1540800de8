#include <vel_loc_fw/postcard.h>

#include <stdint.h>

#include <memory>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "postcard/postcard_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

using varn_test::Bytes;
using varn_test::le;
using varn_test::record;
using varn_test::started;
using varn_test::operator+;

std::unique_ptr<OutPostcard> finished_empty() {
    std::unique_ptr<OutPostcard> card = started();
    EXPECT_EQ(0, card->finalize());
    return card;
}

// Every type in one postcard: the exact bytes written, then each value read
// back by its getter (and its optional getter), and a miss of each array getter.
TEST(PostcardRoundTripTest, EveryTypeEncodesAndReadsBack) {
    std::unique_ptr<OutPostcard> out = started();
    int marker = 0;
    void* const ptr = reinterpret_cast<void*>(0x1122334455667788ULL);
    const double ad[] = {1.5, -2.5};
    const float af[] = {0.25f};
    const long long a64[] = {-1, 1LL << 40};
    const unsigned long long au64[] = {~0ULL};
    const int a32[] = {-7, 7, 0};
    const unsigned int au32[] = {4000000000U};
    const short a16[] = {-3, 3};
    const unsigned short au16[] = {65535};
    const char a8[] = {'a', 'z'};
    const unsigned char au8[] = {0, 255};
    const bool ab[] = {true, false, true};
    void* const ap[] = {&marker, nullptr};
    const uint8_t blob[] = {0, 1, 2, 0};
    const long long i64 = static_cast<long long>(0x8877665544332211ULL);
    const int i32 = static_cast<int>(0x84838281U);
    const short i16 = static_cast<short>(0x8281);
    ASSERT_EQ(0, out->addDouble("d", 1.5) + out->addFloat("f", -1.5f) + out->addInt64("i64", i64) +
                         out->addUInt64("u64", 0xF8F7F6F5F4F3F2F1ULL) + out->addInt32("i32", i32) +
                         out->addUInt32("u32", 0xC4C3C2C1U) + out->addInt16("i16", i16) +
                         out->addUInt16("u16", 0xC2C1) + out->addInt8("i8", 'q') +
                         out->addUInt8("u8", 250) + out->addBool("b", true) + out->addPtr("p", ptr) +
                         out->addString("s", "hi") + out->addBlob("blob", blob, sizeof(blob)) +
                         out->addCard("c", finished_empty().get()));
    ASSERT_EQ(0, out->addArrayDouble("ad", 2, ad) + out->addArrayFloat("af", 1, af) +
                         out->addArrayInt64("a64", 2, a64) + out->addArrayUInt64("au64", 1, au64) +
                         out->addArrayInt32("a32", 3, a32) + out->addArrayUInt32("au32", 1, au32) +
                         out->addArrayInt16("a16", 2, a16) + out->addArrayUInt16("au16", 1, au16) +
                         out->addArrayInt8("a8", 2, a8) + out->addArrayUInt8("au8", 2, au8) +
                         out->addArrayBool("ab", 3, ab) + out->addArrayPtr("ap", 2, ap));
    ASSERT_EQ(0, out->finalize());
    const Bytes fields =
            record(21, "d", le(0x3FF8000000000000, 8)) + record(22, "f", le(0xBFC00000, 4)) +
            record(10, "i64", le(0x8877665544332211, 8)) +
            record(11, "u64", le(0xF8F7F6F5F4F3F2F1, 8)) + record(12, "i32", le(0x84838281, 4)) +
            record(13, "u32", le(0xC4C3C2C1, 4)) + record(14, "i16", le(0x8281, 2)) +
            record(15, "u16", le(0xC2C1, 2)) + record(16, "i8", {'q'}) + record(17, "u8", {250}) +
            record(18, "b", {1}) + record(10, "p", le(0x1122334455667788, 8)) +
            record(19, "s", le(3, 4) + Bytes{'h', 'i', 0}) +
            record(20, "blob", le(4, 4) + Bytes{0, 1, 2, 0}) +
            record(1, "c", {1, 0, 0, 0, 0}) +  // the nested postcard, no length word of its own
            record(39, "ad", le(16, 4) + le(0x3FF8000000000000, 8) + le(0xC004000000000000, 8)) +
            record(40, "af", le(4, 4) + le(0x3E800000, 4)) +
            record(30, "a64", le(16, 4) + le(~0ULL, 8) + le(1ULL << 40, 8)) +
            record(31, "au64", le(8, 4) + le(~0ULL, 8)) +
            record(32, "a32", le(12, 4) + le(-7, 4) + le(7, 4) + le(0, 4)) +
            record(33, "au32", le(4, 4) + le(4000000000U, 4)) +
            record(34, "a16", le(4, 4) + le(-3, 2) + le(3, 2)) +  // byte length, not count
            record(35, "au16", le(2, 4) + le(65535, 2)) +
            record(36, "a8", le(2, 4) + Bytes{'a', 'z'}) + record(37, "au8", le(2, 4) + Bytes{0, 255}) +
            record(38, "ab", le(3, 4) + Bytes{1, 0, 1}) +
            record(30, "ap", le(16, 4) + le(reinterpret_cast<uintptr_t>(&marker), 8) + le(0, 8));
    EXPECT_EQ(varn_test::postcard_of(fields), varn_test::stream_bytes(out->getEncodedBuffer()));
    EXPECT_EQ(out->getEncodedBuffer(), out->getInternalBuffer());

    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
    ASSERT_NE(nullptr, in);
    auto expect_value = [&](auto getter, auto optional, const char* name, auto expected) {
        decltype(expected) value{};
        EXPECT_EQ(0, ((*in).*getter)(name, value)) << name;
        EXPECT_EQ(expected, value) << name;
        if constexpr (!std::is_same_v<decltype(optional), std::nullptr_t>) {
            value = {};
            EXPECT_EQ(0, ((*in).*optional)(name, value)) << name;
            EXPECT_EQ(0, ((*in).*optional)("missing", value)) << name;
            EXPECT_EQ(expected, value) << name;  // untouched by the miss
            EXPECT_EQ(2, ((*in).*optional)(nullptr, value)) << name;  // errors pass through
        }
    };
    expect_value(&InPostcard::getDouble, &InPostcard::getDoubleOptional, "d", 1.5);
    expect_value(&InPostcard::getFloat, &InPostcard::getFloatOptional, "f", -1.5f);
    expect_value(&InPostcard::getInt64, &InPostcard::getInt64Optional, "i64", i64);
    expect_value(&InPostcard::getUInt64, &InPostcard::getUInt64Optional, "u64", 0xF8F7F6F5F4F3F2F1ULL);
    expect_value(&InPostcard::getInt32, &InPostcard::getInt32Optional, "i32", i32);
    expect_value(&InPostcard::getUInt32, &InPostcard::getUInt32Optional, "u32", 0xC4C3C2C1U);
    expect_value(&InPostcard::getInt16, &InPostcard::getInt16Optional, "i16", i16);
    expect_value(&InPostcard::getUInt16, &InPostcard::getUInt16Optional, "u16",
                 static_cast<unsigned short>(0xC2C1));
    expect_value(&InPostcard::getInt8, &InPostcard::getInt8Optional, "i8", 'q');
    expect_value(&InPostcard::getUInt8, &InPostcard::getUInt8Optional, "u8",
                 static_cast<unsigned char>(250));
    expect_value(&InPostcard::getBool, &InPostcard::getBoolOptional, "b", true);
    expect_value(&InPostcard::getPtr, nullptr, "p", ptr);
    // Pointers travel as plain 64-bit integers.
    expect_value(&InPostcard::getInt64, nullptr, "p", 0x1122334455667788LL);
    const char* s = nullptr;
    EXPECT_EQ(0, in->getString("s", &s));
    EXPECT_STREQ("hi", s);
    const char* kept = "kept";
    EXPECT_EQ(0, in->getStringOptional("missing", &kept));
    EXPECT_STREQ("kept", kept);
    EXPECT_EQ(0, in->getStringOptional("s", &kept));
    EXPECT_EQ(s, kept);
    const char* dup = nullptr;
    EXPECT_EQ(0, in->getStringDup("s", &dup));
    EXPECT_STREQ("hi", dup);
    EXPECT_NE(s, dup);
    delete[] dup;
    const void* data = nullptr;
    size_t length = 0;
    EXPECT_EQ(0, in->getBlob("blob", &data, &length));
    EXPECT_EQ(Bytes(blob, blob + sizeof(blob)),
              Bytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + length));

    auto expect_array = [&](auto getter, const char* name, const auto* expected, int n) {
        using T = std::remove_const_t<std::remove_pointer_t<decltype(expected)>>;
        std::unique_ptr<T[]> values(new T[n]);
        int count = n;
        EXPECT_EQ(0, ((*in).*getter)(name, &count, values.get())) << name;
        EXPECT_EQ(n, count) << name;
        for (int i = 0; i < n && i < count; ++i) EXPECT_EQ(expected[i], values[i]) << name;
        EXPECT_EQ(4, ((*in).*getter)("missing", &count, nullptr)) << name;
    };
    expect_array(&InPostcard::getArrayDouble, "ad", ad, 2);
    expect_array(&InPostcard::getArrayFloat, "af", af, 1);
    expect_array(&InPostcard::getArrayInt64, "a64", a64, 2);
    expect_array(&InPostcard::getArrayUInt64, "au64", au64, 1);
    expect_array(&InPostcard::getArrayInt32, "a32", a32, 3);
    expect_array(&InPostcard::getArrayUInt32, "au32", au32, 1);
    expect_array(&InPostcard::getArrayInt16, "a16", a16, 2);
    expect_array(&InPostcard::getArrayUInt16, "au16", au16, 1);
    expect_array(&InPostcard::getArrayInt8, "a8", a8, 2);
    expect_array(&InPostcard::getArrayUInt8, "au8", au8, 2);
    expect_array(&InPostcard::getArrayBool, "ab", ab, 3);
    expect_array(&InPostcard::getArrayPtr, "ap", ap, 2);
}

// Every add kind refuses the same states and names, but the wrappers of
// addBlobWithType() report through their own codes.
TEST(PostcardWriterTest, AddsRefuseStateAndNames) {
    const struct {
        const char* label;
        int (*add)(OutPostcard*, const char*);
        int not_started, null_name, empty_name, long_name;
    } cases[] = {
            {"simple", [](OutPostcard* p, const char* n) { return p->addInt32(n, 1); }, 2, 3, 4, 5},
            {"blob", [](OutPostcard* p, const char* n) { return p->addBlob(n, "b", 1); }, 2, 3, 4, 5},
            {"array",
             [](OutPostcard* p, const char* n) {
                 const float v = 1.0f;
                 return p->addArrayFloat(n, 1, &v);
             },
             2, 3, 4, 5},
            {"string", [](OutPostcard* p, const char* n) { return p->addString(n, "s"); }, 4, 2, 4, 4},
            {"card", [](OutPostcard* p, const char* n) { return p->addCard(n, finished_empty().get()); },
             5, 2, 5, 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        std::unique_ptr<OutPostcard> fresh(OutPostcard::createInstance());
        EXPECT_EQ(c.not_started, c.add(fresh.get(), "N"));
        std::unique_ptr<OutPostcard> card = started();
        EXPECT_EQ(c.null_name, c.add(card.get(), nullptr));
        EXPECT_EQ(c.empty_name, c.add(card.get(), ""));
        EXPECT_EQ(c.long_name, c.add(card.get(), std::string(256, 'n').c_str()));
        EXPECT_EQ(0, c.add(card.get(), std::string(255, 'n').c_str()));
        const Bytes bytes = varn_test::stream_bytes(card->getEncodedBuffer());
        ASSERT_GE(bytes.size(), 8u);
        EXPECT_EQ(le(256, 2), Bytes(bytes.begin() + 6, bytes.begin() + 8));  // name length word
        ASSERT_EQ(0, card->finalize());
        EXPECT_EQ(c.not_started, c.add(card.get(), "N"));  // no adds after finalize
    }
}

TEST(PostcardWriterTest, ArgumentCodes) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    std::unique_ptr<OutPostcard> card = started();
    std::unique_ptr<OutPostcard> open = started();
    const int values[] = {1};
    EXPECT_EQ(6, card->addArrayInt32("A", 1, nullptr));
    EXPECT_EQ(7, card->addArrayInt32("A", 0, values));
    EXPECT_EQ(7, card->addArrayInt32("A", -1, values));
    EXPECT_EQ(6, card->addBlob("B", nullptr, 1));
    EXPECT_EQ(3, card->addString("S", nullptr));
    EXPECT_EQ(3, card->addCard("C", nullptr));
    EXPECT_EQ(4, card->addCard("C", open.get()));  // not finalised
    EXPECT_EQ(4u, card->getEncodedBuffer()->getSize());  // nothing written so far
    // An empty blob fails after its header: there is no rollback.
    EXPECT_EQ(12, card->addBlob("B", "x", 0));
    EXPECT_EQ(4u + 2 + 2 + 2 + 4, card->getEncodedBuffer()->getSize());
    EXPECT_TRUE(log.contains("[OutPostcard] addBlobWithType failed 12")) << log.dump();
}

TEST(PostcardWriterTest, LifecycleCodes) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    EXPECT_EQ(2, card->finalize());
    {
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(3, card->init());
    }
    EXPECT_EQ(nullptr, card->getEncodedBuffer());
    ASSERT_EQ(0, card->init());  // still in its first state
    EXPECT_EQ(le(0x12345678, 4), varn_test::stream_bytes(card->getEncodedBuffer()));
    EXPECT_EQ(2, card->init());
    ASSERT_EQ(0, card->finalize());
    EXPECT_EQ(Bytes({1, 0, 0, 0, 0}), varn_test::stream_bytes(card->getEncodedBuffer()));
    EXPECT_EQ(2, card->finalize());
    // finalize() reports under init()'s words.
    EXPECT_EQ(3u, log.count("[OutPostcard] init failed 2")) << log.dump();
}

// A failing append is forced by leaving `free_room` bytes in the first 64-byte
// buffer and failing the reallocation that the next too-large piece needs.
TEST(PostcardWriterTest, FailedAppendReportsItsPiece) {
    const auto simple = [](OutPostcard* c) { return c->addInt32("N", 1); };
    const auto blob = [](OutPostcard* c) { return c->addBlob("N", "abcd", 4); };
    const auto array = [](OutPostcard* c) {
        const int v = 1;
        return c->addArrayInt32("N", 1, &v);
    };
    const struct {
        size_t free_room;
        int (*step)(OutPostcard*);
        int code;
    } cases[] = {
            {2, simple, 6}, {4, simple, 7}, {6, simple, 8},  {8, simple, 9},  {2, blob, 8},
            {4, blob, 9},   {6, blob, 10},  {10, blob, 11},  {14, blob, 12},  {2, array, 8},
            {4, array, 9},  {6, array, 10}, {10, array, 11}, {14, array, 12},
            {1, [](OutPostcard* c) { return c->finalize(); }, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "free room " << c.free_room << ", code " << c.code);
        std::unique_ptr<OutPostcard> card = started();
        // After init: 4 bytes. The filler record is 10 bytes plus its data.
        const Bytes filler(50 - c.free_room, 0xAB);
        ASSERT_EQ(0, card->addBlob("F", filler.data(), filler.size()));
        ASSERT_EQ(64 - c.free_room, card->getEncodedBuffer()->getSize());
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(c.code, c.step(card.get()));
        EXPECT_TRUE(failure.triggered());
    }
}

}  // namespace
}  // namespace vel_loc_fw
