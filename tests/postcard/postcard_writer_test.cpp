#include <vel_loc_fw/postcard.h>

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

using varn_test::Bytes;
using varn_test::le;
using varn_test::record;
using varn_test::started;
using varn_test::operator+;

// Finalises `out`, checks that it holds exactly `fields`, and reads it.
std::unique_ptr<InPostcard> finish(OutPostcard* out, const Bytes& fields) {
    EXPECT_EQ(0, out->finalize());
    EXPECT_EQ(varn_test::postcard_of(fields), varn_test::stream_bytes(out->getEncodedBuffer()));
    return std::unique_ptr<InPostcard>(InPostcard::createInstance(out));
}

// Each round trip writes the value twice, as "w" then "v", so that reading "v"
// also skips a record of the same type. `encoded` is the value's wire form.
template <typename T, typename Optional>
void simple_round_trip(int (OutPostcard::*add)(const char*, T),
                       int (InPostcard::*get)(const char*, T&), Optional optional, T value,
                       uint16_t type, const Bytes& encoded) {
    SCOPED_TRACE(type);
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, ((*out).*add)("w", value) + ((*out).*add)("v", value));
    std::unique_ptr<InPostcard> in =
            finish(out.get(), record(type, "w", encoded) + record(type, "v", encoded));
    T back{};
    EXPECT_EQ(0, ((*in).*get)("v", back));
    EXPECT_EQ(value, back);
    if constexpr (!std::is_same_v<Optional, std::nullptr_t>) {
        EXPECT_EQ(0, ((*in).*optional)("missing", back));  // leaves `back` alone
        EXPECT_EQ(2, ((*in).*optional)(nullptr, back));    // other failures pass through
        EXPECT_EQ(value, back);
    }
}

template <typename T>
void array_round_trip(int (OutPostcard::*add)(const char*, int, const T*),
                      int (InPostcard::*get)(const char*, int*, T*), uint16_t type,
                      std::initializer_list<T> values, const Bytes& encoded) {
    SCOPED_TRACE(type);
    std::unique_ptr<OutPostcard> out = started();
    const int n = static_cast<int>(values.size());
    ASSERT_EQ(0, ((*out).*add)("w", n, values.begin()) + ((*out).*add)("v", n, values.begin()));
    const Bytes value = le(encoded.size(), 4) + encoded;  // a byte length, not a count
    std::unique_ptr<InPostcard> in =
            finish(out.get(), record(type, "w", value) + record(type, "v", value));
    std::unique_ptr<T[]> back(new T[n]);
    int count = n - 1;
    EXPECT_EQ(7, ((*in).*get)("v", &count, back.get()));  // too little room
    EXPECT_EQ(0, ((*in).*get)("v", &count, nullptr));     // only counts
    EXPECT_EQ(n, count);
    EXPECT_EQ(0, ((*in).*get)("v", &count, back.get()));
    for (int i = 0; i < n && i < count; ++i) EXPECT_EQ(values.begin()[i], back[i]);
    EXPECT_EQ(4, ((*in).*get)("missing", &count, nullptr));  // a miss is an error here
}

TEST(PostcardRoundTripTest, SimpleValues) {
    using P = InPostcard;
    using O = OutPostcard;
    simple_round_trip(&O::addDouble, &P::getDouble, &P::getDoubleOptional, 1.5, 21,
                      le(0x3FF8000000000000, 8));
    simple_round_trip(&O::addFloat, &P::getFloat, &P::getFloatOptional, -1.5f, 22,
                      le(0xBFC00000, 4));
    simple_round_trip<long long>(&O::addInt64, &P::getInt64, &P::getInt64Optional,
                                 -0x778899AABBCCDDEF, 10, le(0x8877665544332211, 8));
    simple_round_trip<unsigned long long>(&O::addUInt64, &P::getUInt64, &P::getUInt64Optional,
                                          0xF8F7F6F5F4F3F2F1, 11, le(0xF8F7F6F5F4F3F2F1, 8));
    simple_round_trip(&O::addInt32, &P::getInt32, &P::getInt32Optional, -0x7B7C7D7F, 12,
                      le(0x84838281, 4));
    simple_round_trip(&O::addUInt32, &P::getUInt32, &P::getUInt32Optional, 0xC4C3C2C1U, 13,
                      le(0xC4C3C2C1, 4));
    simple_round_trip<short>(&O::addInt16, &P::getInt16, &P::getInt16Optional, -0x7D7F, 14,
                             le(0x8281, 2));
    simple_round_trip<unsigned short>(&O::addUInt16, &P::getUInt16, &P::getUInt16Optional, 0xC2C1,
                                      15, le(0xC2C1, 2));
    simple_round_trip(&O::addInt8, &P::getInt8, &P::getInt8Optional, 'q', 16, {'q'});
    simple_round_trip<unsigned char>(&O::addUInt8, &P::getUInt8, &P::getUInt8Optional, 250, 17,
                                     {250});
    simple_round_trip(&O::addBool, &P::getBool, &P::getBoolOptional, true, 18, {1});
    void* const ptr = reinterpret_cast<void*>(0x1122334455667788ULL);
    simple_round_trip(&O::addPtr, &P::getPtr, nullptr, ptr, 10, le(0x1122334455667788, 8));
    // The same bytes as an int64 of that value: pointers travel as plain 64-bit integers.
    simple_round_trip<long long>(&O::addInt64, &P::getInt64, nullptr, 0x1122334455667788, 10,
                                 le(0x1122334455667788, 8));
}

TEST(PostcardRoundTripTest, Arrays) {
    using P = InPostcard;
    using O = OutPostcard;
    int marker = 0;
    array_round_trip<double>(&O::addArrayDouble, &P::getArrayDouble, 39, {1.5, -2.5},
                             le(0x3FF8000000000000, 8) + le(0xC004000000000000, 8));
    array_round_trip<float>(&O::addArrayFloat, &P::getArrayFloat, 40, {0.25f}, le(0x3E800000, 4));
    array_round_trip<long long>(&O::addArrayInt64, &P::getArrayInt64, 30, {-1, 1LL << 40},
                                le(~0ULL, 8) + le(1ULL << 40, 8));
    array_round_trip<unsigned long long>(&O::addArrayUInt64, &P::getArrayUInt64, 31, {~0ULL},
                                         le(~0ULL, 8));
    array_round_trip<int>(&O::addArrayInt32, &P::getArrayInt32, 32, {-7, 7}, le(-7, 4) + le(7, 4));
    array_round_trip<unsigned int>(&O::addArrayUInt32, &P::getArrayUInt32, 33, {4000000000U},
                                   le(4000000000U, 4));
    array_round_trip<short>(&O::addArrayInt16, &P::getArrayInt16, 34, {1, 2}, {1, 0, 2, 0});
    array_round_trip<unsigned short>(&O::addArrayUInt16, &P::getArrayUInt16, 35, {65535},
                                     {255, 255});
    array_round_trip<char>(&O::addArrayInt8, &P::getArrayInt8, 36, {'a', 'z'}, {'a', 'z'});
    array_round_trip<unsigned char>(&O::addArrayUInt8, &P::getArrayUInt8, 37, {0, 255}, {0, 255});
    array_round_trip<bool>(&O::addArrayBool, &P::getArrayBool, 38, {true, false}, {1, 0});
    array_round_trip<void*>(&O::addArrayPtr, &P::getArrayPtr, 30, {&marker},
                            le(reinterpret_cast<uintptr_t>(&marker), 8));
}

TEST(PostcardRoundTripTest, StringBlobAndCard) {
    std::unique_ptr<OutPostcard> empty = started();
    ASSERT_EQ(0, empty->finalize());
    std::unique_ptr<OutPostcard> out = started();
    const uint8_t blob[] = {0, 1, 2, 0};
    ASSERT_EQ(0, out->addString("s", "hi") + out->addBlob("b", blob, sizeof(blob)) +
                         out->addCard("c", empty.get()));
    std::unique_ptr<InPostcard> in = finish(
            out.get(), record(19, "s", le(3, 4) + Bytes{'h', 'i', 0}) +
                               record(20, "b", le(4, 4) + Bytes{0, 1, 2, 0}) +
                               record(1, "c", {1, 0, 0, 0, 0}));  // no length word of its own
    const char* s = "kept";
    EXPECT_EQ(0, in->getStringOptional("missing", &s));
    EXPECT_STREQ("kept", s);
    EXPECT_EQ(0, in->getStringDup("s", &s));
    std::unique_ptr<const char[]> dup(s);
    EXPECT_STREQ("hi", dup.get());
    EXPECT_EQ(0, in->getStringOptional("s", &s));
    EXPECT_STREQ("hi", s);
    const void* data = nullptr;
    size_t length = 0;
    EXPECT_EQ(0, in->getBlob("b", &data, &length));
    EXPECT_EQ(4u, length);
    EXPECT_EQ(0, memcmp(blob, data, sizeof(blob)));
}

// Every add kind refuses the same states and names, but the wrappers of
// addBlobWithType() report through their own codes.
TEST(PostcardWriterTest, AddsRefuseStateAndNames) {
    std::unique_ptr<OutPostcard> closed = started();
    ASSERT_EQ(0, closed->finalize());
    const auto add = [&](int kind, OutPostcard* p, const char* n) {
        switch (kind) {
            case 0: return p->addInt32(n, 1);
            case 1: return p->addBlob(n, "b", 1);
            case 2: return p->addString(n, "s");
            default: return p->addCard(n, closed.get());
        }
    };
    const int codes[][4] = {{2, 3, 4, 5}, {2, 3, 4, 5}, {4, 2, 4, 4}, {5, 2, 5, 5}};
    for (int kind = 0; kind < 4; ++kind) {
        SCOPED_TRACE(kind);
        std::unique_ptr<OutPostcard> fresh(OutPostcard::createInstance());
        EXPECT_EQ(codes[kind][0], add(kind, fresh.get(), "N"));
        EXPECT_EQ(codes[kind][0], add(kind, closed.get(), "N"));  // no adds after finalize
        std::unique_ptr<OutPostcard> card = started();
        EXPECT_EQ(codes[kind][1], add(kind, card.get(), nullptr));
        EXPECT_EQ(codes[kind][2], add(kind, card.get(), ""));
        EXPECT_EQ(codes[kind][3], add(kind, card.get(), std::string(256, 'n').c_str()));
        EXPECT_EQ(0, add(kind, card.get(), std::string(255, 'n').c_str()));
        const Bytes bytes = varn_test::stream_bytes(card->getEncodedBuffer());
        EXPECT_EQ(le(256, 2), Bytes(bytes.begin() + 6, bytes.begin() + 8));  // name length word
    }
}

TEST(PostcardWriterTest, ArgumentAndLifecycleCodes) {
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
    const int values[] = {1};
    EXPECT_EQ(6, card->addArrayInt32("A", 1, nullptr));
    EXPECT_EQ(7, card->addArrayInt32("A", 0, values));
    EXPECT_EQ(7, card->addArrayInt32("A", -1, values));
    EXPECT_EQ(6, card->addBlob("B", nullptr, 1));
    EXPECT_EQ(3, card->addString("S", nullptr));
    EXPECT_EQ(3, card->addCard("C", nullptr));
    EXPECT_EQ(4, card->addCard("C", card.get()));        // not finalised
    EXPECT_EQ(4u, card->getEncodedBuffer()->getSize());  // nothing written so far
    // An empty blob fails after its header: there is no rollback.
    EXPECT_EQ(12, card->addBlob("B", "x", 0));
    EXPECT_EQ(4u + 2 + 2 + 2 + 4, card->getEncodedBuffer()->getSize());
    EXPECT_TRUE(log.contains("[OutPostcard] addBlobWithType failed 12")) << log.dump();
    ASSERT_EQ(0, card->finalize());
    EXPECT_EQ(2, card->finalize());
    EXPECT_EQ(3u, log.count("[OutPostcard] init failed 2")) << log.dump();  // finalize's too
}

}  // namespace
}  // namespace vel_loc_fw
