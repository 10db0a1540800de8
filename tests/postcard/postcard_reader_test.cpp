#include <vel_loc_fw/postcard.h>

#include <stdint.h>
#include <string.h>

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

void put16(Bytes* out, uint16_t v) {
    out->push_back(static_cast<uint8_t>(v));
    out->push_back(static_cast<uint8_t>(v >> 8));
}

void put32(Bytes* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A field record header: type, name length, name with NUL.
Bytes header(uint16_t type, const std::string& name) {
    Bytes out;
    put16(&out, type);
    put16(&out, static_cast<uint16_t>(name.size() + 1));
    out.insert(out.end(), name.begin(), name.end());
    out.push_back(0);
    return out;
}

// A postcard around `fields`, with a correct body length unless one is given.
Bytes postcard_of(const Bytes& fields, int64_t body_length = -1) {
    Bytes out;
    put32(&out, body_length >= 0 ? static_cast<uint32_t>(body_length)
                                 : static_cast<uint32_t>(fields.size() + 1));
    out.insert(out.end(), fields.begin(), fields.end());
    out.push_back(0);
    return out;
}

// A reader over a copy of `bytes` kept by the fixture.
class ReaderTest : public testing::Test {
  protected:
    InPostcardImpl* read(const Bytes& bytes) {
        bytes_ = bytes;
        reader_.reset(new InPostcardImpl());
        EXPECT_EQ(0, reader_->init(bytes_.data(), bytes_.size(), false));
        return reader_.get();
    }
    Bytes bytes_;
    std::unique_ptr<InPostcardImpl> reader_;
};

std::unique_ptr<OutPostcard> started() {
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    EXPECT_EQ(0, card->init());
    return card;
}

std::unique_ptr<InPostcard> reader_of(OutPostcard* out) {
    EXPECT_EQ(0, out->finalize());
    return std::unique_ptr<InPostcard>(InPostcard::createInstance(out));
}

TEST(PostcardRoundTripTest, EveryType) {
    std::unique_ptr<OutPostcard> out = started();
    int marker = 0;
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
    ASSERT_EQ(0, out->addDouble("d", 3.25) + out->addFloat("f", -1.5f) +
                         out->addInt64("i64", -(1LL << 50)) + out->addUInt64("u64", ~0ULL) +
                         out->addInt32("i32", -123456) + out->addUInt32("u32", 4000000000U) +
                         out->addInt16("i16", -12345) + out->addUInt16("u16", 54321) +
                         out->addInt8("i8", 'q') + out->addUInt8("u8", 250) +
                         out->addBool("b", true) + out->addPtr("p", &marker) +
                         out->addString("s", "text") + out->addBlob("blob", blob, sizeof(blob)));
    ASSERT_EQ(0, out->addArrayDouble("ad", 2, ad) + out->addArrayFloat("af", 1, af) +
                         out->addArrayInt64("a64", 2, a64) + out->addArrayUInt64("au64", 1, au64) +
                         out->addArrayInt32("a32", 3, a32) + out->addArrayUInt32("au32", 1, au32) +
                         out->addArrayInt16("a16", 2, a16) + out->addArrayUInt16("au16", 1, au16) +
                         out->addArrayInt8("a8", 2, a8) + out->addArrayUInt8("au8", 2, au8) +
                         out->addArrayBool("ab", 3, ab) + out->addArrayPtr("ap", 2, ap));
    std::unique_ptr<InPostcard> in = reader_of(out.get());
    ASSERT_NE(nullptr, in);

    auto expect_value = [&](auto getter, const char* name, auto expected) {
        decltype(expected) value{};
        EXPECT_EQ(0, ((*in).*getter)(name, value)) << name;
        EXPECT_EQ(expected, value) << name;
    };
    expect_value(&InPostcard::getDouble, "d", 3.25);
    expect_value(&InPostcard::getFloat, "f", -1.5f);
    expect_value(&InPostcard::getInt64, "i64", -(1LL << 50));
    expect_value(&InPostcard::getUInt64, "u64", ~0ULL);
    expect_value(&InPostcard::getInt32, "i32", -123456);
    expect_value(&InPostcard::getUInt32, "u32", 4000000000U);
    expect_value(&InPostcard::getInt16, "i16", static_cast<short>(-12345));
    expect_value(&InPostcard::getUInt16, "u16", static_cast<unsigned short>(54321));
    expect_value(&InPostcard::getInt8, "i8", 'q');
    expect_value(&InPostcard::getUInt8, "u8", static_cast<unsigned char>(250));
    expect_value(&InPostcard::getBool, "b", true);
    expect_value(&InPostcard::getPtr, "p", static_cast<void*>(&marker));
    // Pointers are plain 64-bit integers.
    expect_value(&InPostcard::getInt64, "p",
                 static_cast<long long>(reinterpret_cast<intptr_t>(&marker)));
    const char* s = nullptr;
    EXPECT_EQ(0, in->getString("s", &s));
    EXPECT_STREQ("text", s);
    const char* dup = nullptr;
    EXPECT_EQ(0, in->getStringDup("s", &dup));
    EXPECT_STREQ("text", dup);
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

TEST(PostcardRoundTripTest, CardsNestThreeDeepAndReadInPlace) {
    std::unique_ptr<OutPostcard> level3 = started();
    ASSERT_EQ(0, level3->addString("name", "three"));
    ASSERT_EQ(0, level3->finalize());
    std::unique_ptr<OutPostcard> level2 = started();
    ASSERT_EQ(0, level2->addInt32("depth", 2));
    ASSERT_EQ(0, level2->addCard("inner", level3.get()));
    ASSERT_EQ(0, level2->finalize());
    std::unique_ptr<OutPostcard> level1 = started();
    ASSERT_EQ(0, level1->addCard("inner", level2.get()));
    ASSERT_EQ(0, level1->addInt32("depth", 1));
    std::unique_ptr<InPostcard> in = reader_of(level1.get());

    InPostcard* raw = nullptr;
    ASSERT_EQ(0, in->getCard("inner", &raw, 0));
    std::unique_ptr<InPostcard> second(raw);
    ASSERT_EQ(0, second->getCard("inner", &raw, 0));
    std::unique_ptr<InPostcard> third(raw);
    int depth = 0;
    EXPECT_EQ(0, in->getInt32("depth", depth));
    EXPECT_EQ(1, depth);
    EXPECT_EQ(0, second->getInt32("depth", depth));
    EXPECT_EQ(2, depth);
    const char* name = nullptr;
    ASSERT_EQ(0, third->getString("name", &name));
    EXPECT_STREQ("three", name);
    EXPECT_EQ(-1, third->getInt32("depth", depth));
    // Each nested reader reads inside the outermost buffer.
    const uint8_t* outer = static_cast<const uint8_t*>(in->getBuffer()->getBuffer());
    const uint8_t* inner = static_cast<const uint8_t*>(third->getBuffer()->getBuffer());
    EXPECT_GT(inner, outer);
    EXPECT_LE(inner + third->getBuffer()->getSize(), outer + in->getBuffer()->getSize());
    EXPECT_GE(name, reinterpret_cast<const char*>(outer));
    EXPECT_LT(name, reinterpret_cast<const char*>(outer) + in->getBuffer()->getSize());
}

TEST(PostcardLookupTest, TypeAndIndexSelectFields) {
    std::unique_ptr<OutPostcard> nested = started();
    ASSERT_EQ(0, nested->finalize());
    std::unique_ptr<OutPostcard> other = started();
    ASSERT_EQ(0, other->addInt32("Y", 9));
    ASSERT_EQ(0, other->finalize());
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, out->addInt32("X", 1));
    ASSERT_EQ(0, out->addCard("X", nested.get()));
    ASSERT_EQ(0, out->addInt32("X", 2));
    ASSERT_EQ(0, out->addBlob("X", "a", 1));
    ASSERT_EQ(0, out->addCard("X", other.get()));
    ASSERT_EQ(0, out->addBlob("X", "bc", 2));
    ASSERT_EQ(0, out->addUInt32("U", 5));
    ASSERT_EQ(0, out->addBool("B", true));
    ASSERT_EQ(0, out->addUInt8("V", 3));
    std::unique_ptr<InPostcard> in = reader_of(out.get());
    InPostcardImpl* impl = static_cast<InPostcardImpl*>(in.get());

    int x = 0;
    EXPECT_EQ(0, in->getInt32("X", x));
    EXPECT_EQ(1, x);  // simple getters read the first only
    InPostcard* card = nullptr;
    ASSERT_EQ(0, in->getCard("X", &card, 1));
    int y = 0;
    EXPECT_EQ(0, card->getInt32("Y", y));
    EXPECT_EQ(9, y);
    delete card;
    EXPECT_EQ(-1, in->getCard("X", &card, 2));
    const void* data = nullptr;
    size_t length = 0;
    ASSERT_EQ(0, impl->getBlobByType("X", FIELD_TYPE_BLOB, &data, &length, true, 1));
    EXPECT_EQ(2u, length);
    EXPECT_EQ(0, memcmp(data, "bc", 2));
    EXPECT_EQ(0, impl->findField(FIELD_TYPE_INT32, "X", 1));
    EXPECT_EQ(-1, impl->findField(FIELD_TYPE_INT32, "X", 2));

    // Same name, other type: invisible. Bool and unsigned 8-bit do not mix.
    EXPECT_EQ(-1, in->getInt32("U", x));
    unsigned char byte = 0;
    bool flag = false;
    EXPECT_EQ(-1, in->getUInt8("B", byte));
    EXPECT_EQ(-1, in->getBool("V", flag));
    EXPECT_EQ(-1, in->getInt32("X ", x));  // names match exactly, not by prefix
    EXPECT_EQ(3, in->getInt32("", x));  // an empty name is an error, not a miss
}

TEST(PostcardLookupTest, ArrayRoomRules) {
    std::unique_ptr<OutPostcard> out = started();
    const int values[] = {4, 5, 6};
    ASSERT_EQ(0, out->addArrayInt32("A", 3, values));
    std::unique_ptr<InPostcard> in = reader_of(out.get());
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    int room[3] = {-1, -1, -1};
    int count = 2;
    EXPECT_EQ(7, in->getArrayInt32("A", &count, room));
    EXPECT_EQ(-1, room[0]);  // nothing copied
    EXPECT_EQ(2, count);
    count = 0;
    EXPECT_EQ(0, in->getArrayInt32("A", &count, nullptr));
    EXPECT_EQ(3, count);
    EXPECT_EQ(0, in->getArrayInt32("A", &count, room));
    EXPECT_EQ(6, room[2]);
    EXPECT_EQ(4, in->getArrayUInt32("A", &count, nullptr));  // other type: not found
    EXPECT_EQ(3, in->getArrayInt32("A", nullptr, room));
    EXPECT_EQ(2, in->getArrayInt32(nullptr, &count, room));
    EXPECT_TRUE(log.contains("[InPostcard] getArray failed 7")) << log.dump();
    EXPECT_TRUE(log.contains("[InPostcard] getArray failed 4")) << log.dump();
}

TEST(PostcardLookupTest, ArrayByteLengthMustFitTheElement) {
    Bytes fields = header(FIELD_TYPE_ARRAY_INT32, "A");
    put32(&fields, 6);
    fields.insert(fields.end(), 6, 1);
    const Bytes bytes = postcard_of(fields);
    InPostcardImpl reader;
    ASSERT_EQ(0, reader.init(bytes.data(), bytes.size(), false));
    int count = 0;
    EXPECT_EQ(5, reader.getArrayInt32("A", &count, nullptr));
}

TEST(PostcardLookupTest, EmptyPostcardFindsNothingSilently) {
    const Bytes empty = {1, 0, 0, 0, 0};
    std::unique_ptr<InPostcard> in(InPostcard::createInstance());
    ASSERT_EQ(0, in->init(empty.data(), empty.size(), false));
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    double d = 7;
    int i = 7;
    bool b = true;
    const char* s = "keep";
    const void* data = nullptr;
    size_t length = 0;
    InPostcard* card = nullptr;
    EXPECT_EQ(-1, in->getDouble("A", d));
    EXPECT_EQ(-1, in->getInt32("A", i));
    EXPECT_EQ(-1, in->getBool("A", b));
    EXPECT_EQ(-1, in->getString("A", &s));
    EXPECT_EQ(-1, in->getStringDup("A", &s));
    EXPECT_EQ(-1, in->getBlob("A", &data, &length));
    EXPECT_EQ(-1, in->getCard("A", &card, 0));
    EXPECT_EQ(7, d);
    EXPECT_EQ(7, i);
    EXPECT_TRUE(b);
    // Optional getters: missing is fine and leaves the output as it was.
    const char* kept = "kept";
    EXPECT_EQ(0, in->getStringOptional("A", &kept));
    EXPECT_STREQ("kept", kept);
    EXPECT_EQ(0, in->getInt32Optional("A", i));
    EXPECT_EQ(7, i);
    EXPECT_EQ("", log.dump());
}

// Malformed postcards: the walk stops with a code, never outside the buffer.
struct MalformedCase {
    const char* label;
    Bytes bytes;
    int find_code;  // findField(INT32, "A", 0)
};

class PostcardMalformedTest : public ReaderTest,
                              public testing::WithParamInterface<MalformedCase> {};

TEST_P(PostcardMalformedTest, FindFieldFails) {
    InPostcardImpl* in = read(GetParam().bytes);
    EXPECT_EQ(GetParam().find_code, in->findField(FIELD_TYPE_INT32, "A", 0));
    int value = 0;
    EXPECT_EQ(GetParam().find_code == -1 ? -1 : 3, in->getInt32("A", value));
}

Bytes field_then_a(uint16_t type, const Bytes& value) {
    Bytes fields = header(type, "Z");
    fields.insert(fields.end(), value.begin(), value.end());
    const Bytes a = header(FIELD_TYPE_INT32, "A");
    fields.insert(fields.end(), a.begin(), a.end());
    put32(&fields, 1);
    return postcard_of(fields);
}

INSTANTIATE_TEST_SUITE_P(
        Walk, PostcardMalformedTest,
        testing::Values(
                MalformedCase{"short_length_word", {1, 0, 0}, 4},
                // Length word beyond the buffer: the stream stops the walk.
                MalformedCase{"oversize_body_length", {100, 0, 0, 0, 12, 0}, 103},
                MalformedCase{"oversize_then_name_cut", {100, 0, 0, 0, 12, 0, 2, 0, 'A'}, 104},
                MalformedCase{"walk_past_end", postcard_of(header(12, "B") + Bytes(4, 0), 3), 101},
                MalformedCase{"empty_stored_name", postcard_of({12, 0, 0, 0, 0, 0, 0, 0}), 104},
                MalformedCase{"zero_length_blob", field_then_a(20, {0, 0, 0, 0}), 105},
                MalformedCase{"zero_length_array", field_then_a(33, {0, 0, 0, 0}), 105},
                MalformedCase{"zero_length_string", field_then_a(19, {0, 0, 0, 0}), 105},
                MalformedCase{"unknown_type", field_then_a(99, {}), 105},
                MalformedCase{"invalid_type", field_then_a(0, {}), 105},
                MalformedCase{"lying_blob_length", field_then_a(20, {200, 0, 0, 0}), 105},
                MalformedCase{"only_end_byte_left", postcard_of({}), -1}),
        [](const testing::TestParamInfo<MalformedCase>& info) { return info.param.label; });

TEST_F(ReaderTest, MalformedWalkLogsWhereItFails) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    int value = 0;
    read(field_then_a(20, {0, 0, 0, 0}));
    EXPECT_EQ(3, reader_->getInt32("A", value));
    EXPECT_TRUE(log.contains("[InPostcard] skipValueByType failed 2, type 20")) << log.dump();
    EXPECT_TRUE(log.contains("[InPostcard] findName failed 105, field index 0")) << log.dump();
    EXPECT_TRUE(log.contains("[InPostcard] get simple failed 3")) << log.dump();
    log.clear();
    read({100, 0, 0, 0, 12, 0});
    EXPECT_EQ(3, reader_->getInt32("A", value));
    EXPECT_TRUE(log.contains("[MemoryStream] extract error 5")) << log.dump();
}

struct SkipCase {
    const char* label;
    uint16_t type;
    Bytes value;
    int code;
};

class PostcardSkipTest : public ReaderTest, public testing::WithParamInterface<SkipCase> {};

TEST_P(PostcardSkipTest, SkipValueByType) {
    InPostcardImpl* in = read(GetParam().value);
    EXPECT_EQ(GetParam().code, in->skipValueByType(GetParam().type));
    if (GetParam().code == 0) {
        EXPECT_EQ(GetParam().value.size(), in->getBuffer()->getGetCursor());
    }
}

INSTANTIATE_TEST_SUITE_P(
        Types, PostcardSkipTest,
        testing::Values(SkipCase{"invalid", 0, {1}, 100},
                        SkipCase{"unknown", 23, {1}, 101},
                        SkipCase{"past_the_codes", 41, {1}, 101},
                        SkipCase{"card", 1, {1, 0, 0, 0, 0}, 0},
                        SkipCase{"card_zero", 1, {0, 0, 0, 0}, 103},
                        SkipCase{"string_no_length", 19, {1, 0}, 102},
                        SkipCase{"string_cut", 19, {3, 0, 0, 0, 'a'}, 3},
                        SkipCase{"double", 21, Bytes(8, 0), 0},
                        SkipCase{"uint64_cut", 11, Bytes(7, 0), 3},
                        SkipCase{"float", 22, Bytes(4, 0), 0},
                        SkipCase{"uint16", 15, Bytes(2, 0), 0},
                        SkipCase{"bool", 18, Bytes(1, 0), 0},
                        SkipCase{"blob_no_length", 20, {1}, 104},
                        SkipCase{"blob_zero", 20, {0, 0, 0, 0}, 2},
                        SkipCase{"array_float", 40, {4, 0, 0, 0, 1, 2, 3, 4}, 0},
                        SkipCase{"array_cut", 30, {8, 0, 0, 0, 1}, 3}),
        [](const testing::TestParamInfo<SkipCase>& info) { return info.param.label; });

TEST_F(ReaderTest, StringAndBlobCodes) {
    Bytes fields = header(FIELD_TYPE_STRING, "S");
    put32(&fields, 2);
    fields.push_back('h');
    fields.push_back('i');  // no NUL
    InPostcardImpl* in = read(postcard_of(fields));
    const char* text = "old";
    EXPECT_EQ(7, in->getString("S", &text));
    EXPECT_EQ(nullptr, text);  // cleared first
    EXPECT_EQ(3, in->getStringDup("S", &text));
    EXPECT_EQ(2, in->getStringDup("S", nullptr));
    EXPECT_EQ(2, in->getString(nullptr, &text));
    EXPECT_EQ(3, in->getString("S", nullptr));
    EXPECT_EQ(7, in->getStringOptional("S", &text));  // only missing is excused
    const void* data = nullptr;
    size_t length = 9;
    EXPECT_EQ(3, in->getBlob("S", &data, nullptr));
    EXPECT_EQ(3, in->getBlob("S", nullptr, &length));
    EXPECT_EQ(2, in->getBlob(nullptr, &data, &length));
    // The blob getter sees the string's bytes only through the string type.
    EXPECT_EQ(0, in->getBlobByType("S", FIELD_TYPE_STRING, &data, &length, true, 0));
    EXPECT_EQ(2u, length);
    EXPECT_EQ(bytes_.data() + 4 + 6 + 4, data);
    EXPECT_EQ(0, in->getBlobByType("S", FIELD_TYPE_STRING, &data, &length, false, 0));
    EXPECT_EQ(bytes_.data() + 4 + 6, data);
}

TEST(PostcardReaderTest, FactoriesAndInit) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    std::unique_ptr<InPostcard> none(InPostcard::createInstance(static_cast<InMemoryStream*>(nullptr)));
    ASSERT_NE(nullptr, none);
    EXPECT_EQ(nullptr, none->getBuffer());
    std::unique_ptr<InPostcard> no_out(InPostcard::createInstance(static_cast<OutPostcard*>(nullptr)));
    EXPECT_EQ(2u, log.count("[InPostcard] InPostcardImpl(pInMem) failed 2")) << log.dump();

    std::unique_ptr<InPostcard> in(InPostcard::createInstance());
    const uint8_t byte = 0;
    EXPECT_EQ(2, in->init(nullptr, 1, false));
    EXPECT_EQ(3, in->init(&byte, 0, false));
    {
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(4, in->init(&byte, 1, false));
    }
    EXPECT_EQ(nullptr, in->getBuffer());
    // Owned buffers are freed with the reader (checked by the sanitizer build).
    uint8_t* owned = new uint8_t[5]{1, 0, 0, 0, 0};
    EXPECT_EQ(0, in->init(owned, 5, true));
    int value = 0;
    EXPECT_EQ(-1, in->getInt32("A", value));

    // A reader over a stream owns the stream.
    OutPostcard* out = OutPostcard::createInstance();
    ASSERT_EQ(0, out->init());
    ASSERT_EQ(0, out->addInt32("A", 5));
    ASSERT_EQ(0, out->finalize());
    std::unique_ptr<InPostcard> from_stream(
            InPostcard::createInstance(InMemoryStream::createInstance(out->getEncodedBuffer())));
    EXPECT_EQ(0u, out->getEncodedBuffer()->getSize());  // bytes moved, not copied
    delete out;
    EXPECT_EQ(0, from_stream->getInt32("A", value));
    EXPECT_EQ(5, value);
}

TEST(PostcardReaderTest, OutOfMemoryCodes) {
    std::unique_ptr<OutPostcard> nested = started();
    ASSERT_EQ(0, nested->addString("S", "x"));
    ASSERT_EQ(0, nested->finalize());
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, out->addCard("C", nested.get()));
    ASSERT_EQ(0, out->addString("S", "abc"));
    ASSERT_EQ(0, out->finalize());
    {
        varn_test::NothrowAllocationFailure failure(1);  // the reader, then its stream
        std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
        ASSERT_NE(nullptr, in);
        EXPECT_EQ(nullptr, in->getBuffer());
        EXPECT_TRUE(failure.triggered());
    }
    std::unique_ptr<InPostcard> in(InPostcard::createInstance(out.get()));
    InPostcard* card = nullptr;
    const char* text = nullptr;
    {
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(8, in->getCard("C", &card, 0));
    }
    {
        varn_test::NothrowAllocationFailure failure(1);  // the nested reader, then its stream
        EXPECT_EQ(9, in->getCard("C", &card, 0));
        EXPECT_EQ(nullptr, card);
    }
    {
        varn_test::NothrowAllocationFailure failure(0);
        EXPECT_EQ(4, in->getStringDup("S", &text));
    }
    EXPECT_EQ(2, in->getCard(nullptr, &card, 0));
    EXPECT_EQ(3, in->getCard("C", nullptr, 0));
}

}  // namespace
}  // namespace vel_loc_fw
