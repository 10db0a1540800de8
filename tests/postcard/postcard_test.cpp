// The postcard writer and reader, and timestamps carried in postcards.
#include <vel_loc_fw/postcard.h>

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <vel_loc_fw/time_util.h>

#include "log_capture.h"
#include "postcard/postcard_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

using namespace varn_test;
using O = OutPostcard;
using P = InPostcard;

// Finalises `out`, checks that it holds exactly `fields`, and reads it.
std::unique_ptr<InPostcard> finish(OutPostcard* out, const Bytes& fields) {
    EXPECT_EQ(0, out->finalize());
    EXPECT_EQ(postcard_of(fields), stream_bytes(out->getEncodedBuffer()));
    return std::unique_ptr<InPostcard>(InPostcard::createInstance(out));
}

// Each round trip writes the value twice, as "w" then "v", so that reading "v"
// also skips a record of the same type. `encoded` is the value's wire form.
template <typename T, typename Optional>
void simple_round_trip(int (OutPostcard::*add)(const char*, T),
                       int (InPostcard::*get)(const char*, T&), Optional optional, T value,
                       uint16_t type, const Bytes& encoded) {
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
    simple_round_trip(&O::addPtr, &P::getPtr, nullptr, reinterpret_cast<void*>(0x1122334455667788),
                      10, le(0x1122334455667788, 8));
}

TEST(PostcardRoundTripTest, Arrays) {
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
        EXPECT_EQ(codes[kind][0], add(kind, closed.get(), "N"));  // no adds after finalize
        std::unique_ptr<OutPostcard> card = started();
        EXPECT_EQ(codes[kind][1], add(kind, card.get(), nullptr));
        EXPECT_EQ(codes[kind][2], add(kind, card.get(), ""));
        EXPECT_EQ(codes[kind][3], add(kind, card.get(), std::string(256, 'n').c_str()));
        EXPECT_EQ(0, add(kind, card.get(), std::string(255, 'n').c_str()));
        const Bytes bytes = stream_bytes(card->getEncodedBuffer());
        EXPECT_EQ(le(256, 2), Bytes(bytes.begin() + 6, bytes.begin() + 8));  // name length word
    }
}

TEST(PostcardWriterTest, ArgumentAndLifecycleCodes) {
    VerboseLogScope verbose;
    LogCapture log;
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    EXPECT_EQ(2, card->finalize());
    {
        NothrowAllocationFailure failure(0);
        EXPECT_EQ(3, card->init());
    }
    EXPECT_EQ(nullptr, card->getEncodedBuffer());
    ASSERT_EQ(0, card->init());  // still in its first state
    EXPECT_EQ(le(0x12345678, 4), stream_bytes(card->getEncodedBuffer()));
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

TEST(PostcardLookupTest, TypeAndIndexSelectFields) {
    std::unique_ptr<OutPostcard> inner = started();
    ASSERT_EQ(0, inner->addString("name", "three"));
    ASSERT_EQ(0, inner->finalize());
    std::unique_ptr<OutPostcard> middle = started();
    ASSERT_EQ(0, middle->addInt32("Y", 9) + middle->addCard("X", inner.get()));
    ASSERT_EQ(0, middle->finalize());
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, out->addInt32("X", 1) + out->addCard("X", inner.get()) + out->addInt32("X", 2) +
                         out->addBlob("X", "a", 1) + out->addCard("X", middle.get()) +
                         out->addBlob("X", "bc", 2) + out->addUInt32("U", 5) +
                         out->addBool("B", true) + out->addUInt8("V", 3));
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
    InPostcardImpl* impl = static_cast<InPostcardImpl*>(in.get());
    int x = 0;
    EXPECT_EQ(0, in->getInt32("X", x));
    EXPECT_EQ(1, x);  // simple getters read the first only
    ASSERT_EQ(0, impl->findField(FIELD_TYPE_INT32, "X", 1));
    ASSERT_EQ(0, in->getBuffer()->extract(&x, sizeof(x)));  // at the second one's value
    EXPECT_EQ(2, x);
    EXPECT_EQ(-1, impl->findField(FIELD_TYPE_INT32, "X", 2));
    const void* data = nullptr;
    size_t length = 0;
    ASSERT_EQ(0, impl->getBlobByType("X", FIELD_TYPE_BLOB, &data, &length, true, 1));
    EXPECT_EQ(Bytes({'b', 'c'}),
              Bytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + length));
    // Cards nest at any depth; each nested reader reads the outermost bytes in place.
    InPostcard* raw = nullptr;
    EXPECT_EQ(-1, in->getCard("X", &raw, 2));
    ASSERT_EQ(0, in->getCard("X", &raw, 1));
    std::unique_ptr<InPostcard> second(raw);
    EXPECT_EQ(0, second->getInt32("Y", x));
    EXPECT_EQ(9, x);
    ASSERT_EQ(0, second->getCard("X", &raw, 0));
    std::unique_ptr<InPostcard> third(raw);
    const char* name = nullptr;
    ASSERT_EQ(0, third->getString("name", &name));
    EXPECT_STREQ("three", name);
    // In place, inside the second card's bytes.
    EXPECT_EQ(static_cast<const char*>(in->getBuffer()->getBuffer()) + 108, name);
    // Same name, other type: invisible. Bool and unsigned 8-bit do not mix.
    unsigned char byte = 0;
    bool flag = false;
    EXPECT_EQ(-1, in->getInt32("U", x));
    EXPECT_EQ(-1, in->getUInt8("B", byte));
    EXPECT_EQ(-1, in->getBool("V", flag));
    EXPECT_EQ(-1, in->getInt32("X ", x));  // names match exactly, not by prefix
}

// One call on a postcard's bytes and the code it must return.
enum Call { kFind, kSkip, kInt32, kBlob, kString, kStringDup, kArray, kCard };
struct CodeCase {
    const char* label;
    Bytes bytes;
    Call call;
    int code;
    uint16_t skip_type;
};

int run(InPostcardImpl* in, const CodeCase& c) {
    int value = 0;
    const void* data = nullptr;
    size_t length = 0;
    const char* text = nullptr;
    InPostcard* card = nullptr;
    int result = -100;
    switch (c.call) {
        case kFind: return in->findField(FIELD_TYPE_INT32, "A", 0);
        case kSkip: return in->skipValueByType(c.skip_type);
        case kInt32: return in->getInt32("A", value);
        case kBlob: return in->getBlob("A", &data, &length);
        case kString: return in->getString("A", &text);
        case kStringDup: result = in->getStringDup("A", &text); break;
        case kArray: return in->getArrayInt32("A", &value, nullptr);
        case kCard: result = in->getCard("A", &card, 0); break;
    }
    if (result == 0) delete[] text;
    delete card;
    return result;
}

// A record "Z" of `type` with `value`, then an int32 "A".
Bytes z_then_a(uint16_t type, const Bytes& value) {
    return postcard_of(record(type, "Z", value) + record(FIELD_TYPE_INT32, "A", le(1, 4)));
}

// Malformed or cut postcards: every walk stops with its code, never outside the buffer.
TEST(PostcardReaderTest, ResultCodes) {
    const Bytes cut = le(100, 4);  // a body length beyond the buffer
    const CodeCase cases[] = {
            {"short_length_word", {1, 0, 0}, kFind, 4, 0},
            {"no_type", cut + Bytes{12}, kFind, 102, 0},
            {"no_name_length", cut + Bytes{12, 0}, kFind, 103, 0},
            {"name_cut", cut + Bytes{12, 0, 2, 0, 'A'}, kFind, 104, 0},
            {"walk_past_end", postcard_of(record(12, "B", le(0, 4)), 3), kFind, 101, 0},
            {"empty_stored_name", postcard_of({12, 0, 0, 0, 0, 0, 0, 0}), kFind, 104, 0},
            {"zero_length_blob", z_then_a(20, le(0, 4)), kFind, 105, 0},
            {"unknown_type", z_then_a(99, {}), kFind, 105, 0},
            {"invalid_type", z_then_a(0, {}), kFind, 105, 0},
            {"lying_blob_length", z_then_a(20, le(200, 4)), kFind, 105, 0},
            {"only_end_byte_left", postcard_of({}), kFind, -1, 0},
            {"int32_value_cut", cut + record(12, "A", {7}), kInt32, 4, 0},
            {"skip_invalid", {1}, kSkip, 100, 0},
            {"skip_unknown", {1}, kSkip, 101, 23},
            {"skip_past_the_codes", {1}, kSkip, 101, 41},
            {"skip_card", {1, 0, 0, 0, 0}, kSkip, 0, 1},
            {"skip_card_zero", le(0, 4), kSkip, 103, 1},
            {"skip_string_no_length", {1, 0}, kSkip, 102, 19},
            {"skip_string_cut", {3, 0, 0, 0, 'a'}, kSkip, 3, 19},
            {"skip_double", Bytes(8, 0), kSkip, 0, 21},
            {"skip_uint64_cut", Bytes(7, 0), kSkip, 3, 11},
            {"skip_blob_no_length", {1}, kSkip, 104, 20},
            {"skip_blob_zero", le(0, 4), kSkip, 2, 20},
            {"skip_array_float", {4, 0, 0, 0, 1, 2, 3, 4}, kSkip, 0, 40},
            {"skip_array_cut", {8, 0, 0, 0, 1}, kSkip, 3, 30},
            {"blob_walk_fails", z_then_a(20, le(0, 4)), kBlob, 4, 0},
            {"blob_length_cut", cut + record(20, "A", {9, 0}), kBlob, 5, 0},
            {"blob_value_cut", cut + record(20, "A", le(9, 4) + Bytes{'x'}), kBlob, 7, 0},
            {"string_cut", cut + record(19, "A", le(9, 4)), kString, 4, 0},
            {"string_no_nul", postcard_of(record(19, "A", le(1, 4) + Bytes{'h'})), kString, 7, 0},
            {"dup_no_nul", postcard_of(record(19, "A", le(1, 4) + Bytes{'h'})), kStringDup, 3, 0},
            {"array_not_whole", postcard_of(record(32, "A", le(6, 4) + Bytes(6, 1))), kArray, 5, 0},
            {"array_type", postcard_of(record(33, "A", le(4, 4) + Bytes(4, 1))), kArray, 4, 0},
            {"card_length_cut", cut + record(1, "A", {9}), kCard, 4, 0},
            {"empty_finds_nothing", postcard_of({}), kCard, -1, 0},
    };
    VerboseLogScope verbose;
    LogCapture log;
    for (const CodeCase& c : cases) {
        SCOPED_TRACE(c.label);
        InPostcardImpl in;
        ASSERT_EQ(0, in.init(c.bytes.data(), c.bytes.size(), false));
        EXPECT_EQ(c.code, run(&in, c));
        if (c.call == kSkip && c.code == 0) {
            EXPECT_EQ(c.bytes.size(), in.getBuffer()->getGetCursor());
        }
        EXPECT_EQ(c.code > 0, log.count("") > 0) << log.dump();  // a miss is silent
        log.clear();
    }
}

TEST(PostcardReaderTest, ArgumentCodesLogsAndOutOfMemory) {
    VerboseLogScope verbose;
    LogCapture log;
    int value = 0;
    const char* text = "old";
    const void* data = nullptr;
    size_t length = 9;
    InPostcard* card = nullptr;
    const Bytes zero_blob = z_then_a(20, le(0, 4));
    InPostcardImpl in;
    ASSERT_EQ(0, in.init(zero_blob.data(), zero_blob.size(), false));
    EXPECT_EQ(2, in.getString(nullptr, &text));
    EXPECT_EQ(3, in.getString("S", nullptr));
    EXPECT_EQ(2, in.getStringDup("S", nullptr));
    EXPECT_EQ(2, in.getBlob(nullptr, &data, &length));
    EXPECT_EQ(3, in.getBlob("S", nullptr, &length));
    EXPECT_EQ(3, in.getBlob("S", &data, nullptr));
    EXPECT_EQ(3, in.getCard("S", nullptr, 0));
    EXPECT_EQ(3, in.getArrayInt32("A", nullptr, &value));
    EXPECT_EQ(2, in.getArrayInt32(nullptr, &value, &value));
    {
        NothrowAllocationFailure failure(0);
        EXPECT_EQ(2, in.getCard(nullptr, &card, 0));
        EXPECT_FALSE(failure.triggered());  // a refused call allocates nothing
    }
    EXPECT_EQ(3, in.getInt32("A", value));
    EXPECT_EQ(5, in.findField(FIELD_TYPE_INT32, "", 0));  // an empty name is an error, not a miss
    EXPECT_EQ(2, in.findField(FIELD_TYPE_INT32, nullptr, 0));
    const Bytes cut = {100, 0, 0, 0, 12, 0};
    ASSERT_EQ(0, in.init(cut.data(), cut.size(), false));
    EXPECT_EQ(3, in.getInt32("A", value));
    for (const char* line :
         {"skipValueByType failed 2, type 20", "findName failed 105, field index 0",
          "get simple failed 3", "findName failed 5, field index 0",
          "findName failed 2, field index 0", "[MemoryStream] extract error 5"}) {
        EXPECT_TRUE(log.contains(line)) << line << "\n" << log.dump();
    }
    // Factories and init.
    delete InPostcard::createInstance(static_cast<InMemoryStream*>(nullptr));
    delete InPostcard::createInstance(static_cast<OutPostcard*>(nullptr));
    EXPECT_EQ(2u, log.count("[InPostcard] InPostcardImpl(pInMem) failed 2")) << log.dump();
    std::unique_ptr<InPostcard> reader(InPostcard::createInstance());
    const uint8_t byte = 0;
    EXPECT_EQ(2, reader->init(nullptr, 1, false));
    EXPECT_EQ(3, reader->init(&byte, 0, false));
    {
        NothrowAllocationFailure failure(0);
        EXPECT_EQ(4, reader->init(&byte, 1, false));
    }
    EXPECT_EQ(nullptr, reader->getBuffer());
    // Owned buffers are freed with the reader (checked by the sanitizer build).
    EXPECT_EQ(0, reader->init(new uint8_t[5]{1, 0, 0, 0, 0}, 5, true));
    // A reader over a stream owns it; a stream without bytes fails every walk.
    InMemoryStream* no_bytes = InMemoryStream::createInstance();
    ASSERT_EQ(0, no_bytes->setBuffer(nullptr, 8));
    EXPECT_EQ(3, std::unique_ptr<InPostcard>(InPostcard::createInstance(no_bytes))
                         ->getInt32("A", value));
    EXPECT_TRUE(log.contains("[MemoryStream] extract error 4")) << log.dump();

    std::unique_ptr<OutPostcard> out = started();
    {
        NothrowAllocationFailure failure(1);  // the reader, then its stream
        EXPECT_EQ(nullptr,
                  std::unique_ptr<InPostcard>(InPostcard::createInstance(out.get()))->getBuffer());
        EXPECT_TRUE(failure.triggered());
    }
    const Bytes bytes =
            postcard_of(record(1, "C", {1, 0, 0, 0, 0}) + record(19, "S", {2, 0, 0, 0, 's', 0}));
    ASSERT_EQ(0, reader->init(bytes.data(), bytes.size(), false));
    for (int succeed : {0, 1}) {  // the nested reader, then its stream
        NothrowAllocationFailure failure(succeed);
        EXPECT_EQ(8 + succeed, reader->getCard("C", &card, 0));
        EXPECT_EQ(nullptr, card);
    }
    NothrowAllocationFailure failure(0);
    EXPECT_EQ(4, reader->getStringDup("S", &text));
}

// A timestamp travels as a card of three signed 32-bit fields; seconds keep
// only their low 32 bits and come back sign-extended. A card that lacks a
// field gives an invalid timestamp.
TEST(TimestampPostcardTest, RoundTripAndRetrieveFailures) {
    timespec time = {};
    time.tv_sec = static_cast<time_t>((1LL << 32) + 0x80000005LL);
    time.tv_nsec = 123456789;
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, Timestamp(CLOCK_BOOTTIME, time).insert_into_postcard(out.get(), "T"));
    const char* names[] = {"CLOCK_ID", "TS_SEC", "TS_NSEC"};
    for (int fields = 1; fields <= 2; ++fields) {  // cards named after their first missing field
        std::unique_ptr<OutPostcard> card = started();
        for (int i = 0; i < fields; ++i) ASSERT_EQ(0, card->addInt32(names[i], 1));
        ASSERT_EQ(0, card->finalize());
        ASSERT_EQ(0, out->addCard(names[fields], card.get()));
    }
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
    Timestamp back = Timestamp::retrieve_from_postcard(in.get(), "T");
    ASSERT_TRUE(back.is_valid());
    EXPECT_EQ(CLOCK_BOOTTIME, back.get_clock_id());
    EXPECT_EQ(static_cast<int>(0x80000005U), back.getTimestampPtr()->tv_sec);
    EXPECT_EQ(123456789, back.getTimestampPtr()->tv_nsec);
    InPostcard* card = nullptr;
    ASSERT_EQ(0, in->getCard("T", &card, 0));
    int nanoseconds = 0;
    EXPECT_EQ(0, card->getInt32("TS_NSEC", nanoseconds));
    delete card;

    VerboseLogScope verbose;
    LogCapture log;
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), nullptr).is_valid());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(nullptr, "T").is_valid());
    EXPECT_EQ(-1, Timestamp::retrieve_from_postcard(in.get(), "missing").get_clock_id());
    // A clock id read before the failure stays in the invalid result.
    const Timestamp no_seconds = Timestamp::retrieve_from_postcard(in.get(), "TS_SEC");
    EXPECT_FALSE(no_seconds.is_valid());
    EXPECT_EQ(1, no_seconds.get_clock_id());
    EXPECT_FALSE(Timestamp::retrieve_from_postcard(in.get(), "TS_NSEC").is_valid());
    for (int code : {2, 3, 10, 11, 12}) {
        const std::string line = "retrieve_from_postcard failed " + std::to_string(code);
        EXPECT_TRUE(log.contains("[Timestamp] " + line)) << log.dump();
    }
}

TEST(TimestampPostcardTest, InsertCodes) {
    VerboseLogScope verbose;
    LogCapture log;
    const Timestamp valid(CLOCK_REALTIME, timespec{});
    std::unique_ptr<OutPostcard> out = started();
    EXPECT_EQ(2, valid.insert_into_postcard(out.get(), nullptr));
    EXPECT_EQ(4, Timestamp(false).insert_into_postcard(out.get(), "T"));
    for (int succeed : {0, 1}) {  // the temporary card, then its stream
        NothrowAllocationFailure failure(succeed);
        EXPECT_EQ(succeed == 0 ? 3 : 10, valid.insert_into_postcard(out.get(), "T"));
    }
    EXPECT_EQ(20, valid.insert_into_postcard(out.get(), ""));
    EXPECT_TRUE(log.contains("[Timestamp] insert_into_postcard failed 20")) << log.dump();
    EXPECT_EQ(4u, out->getEncodedBuffer()->getSize());  // nothing added to `out`
}

// Each piece of a record reports its own code when its append cannot grow the
// stream: `free_room` bytes are left in the first 64-byte buffer and the
// reallocation the next too-large piece needs fails.
TEST(PostcardWriterTest, AFailedAppendReportsItsPiece) {
    static const int one = 1;
    int (*const simple)(O*) = [](O* c) { return c->addInt32("N", 1); };
    int (*const blob)(O*) = [](O* c) { return c->addBlob("N", "abcd", 4); };
    int (*const array)(O*) = [](O* c) { return c->addArrayInt32("N", 1, &one); };
    const struct {
        size_t free_room;
        int (*step)(O*);
        int code;
    } cases[] = {{2, simple, 6},  {4, simple, 7},  {6, simple, 8},
                 {8, simple, 9},  {2, blob, 8},    {4, blob, 9},
                 {6, blob, 10},   {10, blob, 11},  {14, blob, 12},
                 {2, array, 8},   {4, array, 9},   {6, array, 10},
                 {10, array, 11}, {14, array, 12}, {1, [](O* c) { return c->finalize(); }, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.free_room << " -> " << c.code);
        std::unique_ptr<OutPostcard> card = started();
        const Bytes filler(50 - c.free_room, 0xAB);  // a 10-byte record head and its data
        ASSERT_EQ(0, card->addBlob("F", filler.data(), filler.size()));
        ASSERT_EQ(64 - c.free_room, card->getEncodedBuffer()->getSize());
        NothrowAllocationFailure failure(0);
        EXPECT_EQ(c.code, c.step(card.get()));
        EXPECT_TRUE(failure.triggered());
    }
}

}  // namespace
}  // namespace vel_loc_fw
