#include <vel_loc_fw/postcard.h>

#include <stdint.h>

#include <memory>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "postcard/postcard_impl.h"
#include "tests/postcard/postcard_test_support.h"

namespace vel_loc_fw {
namespace {

using varn_test::Bytes;
using varn_test::le;
using varn_test::postcard_of;
using varn_test::record;
using varn_test::started;
using varn_test::operator+;

std::unique_ptr<InPostcard> reader_of(OutPostcard* out) {
    EXPECT_EQ(0, out->finalize());
    return std::unique_ptr<InPostcard>(InPostcard::createInstance(out));
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
    std::unique_ptr<InPostcard> in = reader_of(out.get());
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
    const char* outer = static_cast<const char*>(in->getBuffer()->getBuffer());
    EXPECT_GT(name, outer + 100);  // inside the second card, not the first
    EXPECT_LT(name, outer + in->getBuffer()->getSize());
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
            {"zero_length_string", z_then_a(19, le(0, 4)), kFind, 105, 0},
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
            {"string_unterminated", postcard_of(record(19, "A", le(1, 4) + Bytes{'h'})), kString, 7,
             0},
            {"dup_unterminated", postcard_of(record(19, "A", le(1, 4) + Bytes{'h'})), kStringDup, 3,
             0},
            {"array_not_whole", postcard_of(record(32, "A", le(6, 4) + Bytes(6, 1))), kArray, 5, 0},
            {"array_other_type", postcard_of(record(33, "A", le(4, 4) + Bytes(4, 1))), kArray, 4,
             0},
            {"card_length_cut", cut + record(1, "A", {9}), kCard, 4, 0},
            {"empty_finds_nothing", postcard_of({}), kCard, -1, 0},
    };
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
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

TEST(PostcardReaderTest, ArgumentCodesAndLogs) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
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
        varn_test::NothrowAllocationFailure failure(0);
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
}

TEST(PostcardReaderTest, FactoriesInitAndOutOfMemory) {
    varn_test::VerboseLogScope verbose;
    varn_test::LogCapture log;
    std::unique_ptr<InPostcard> none(
            InPostcard::createInstance(static_cast<InMemoryStream*>(nullptr)));
    EXPECT_EQ(nullptr, none->getBuffer());
    std::unique_ptr<InPostcard> no_out(
            InPostcard::createInstance(static_cast<OutPostcard*>(nullptr)));
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
    EXPECT_EQ(0, in->init(new uint8_t[5]{1, 0, 0, 0, 0}, 5, true));
    // A reader over a stream owns it; a stream without bytes fails every walk.
    InMemoryStream* no_bytes = InMemoryStream::createInstance();
    ASSERT_EQ(0, no_bytes->setBuffer(nullptr, 8));
    int value = 0;
    EXPECT_EQ(3, std::unique_ptr<InPostcard>(InPostcard::createInstance(no_bytes))
                         ->getInt32("A", value));
    EXPECT_TRUE(log.contains("[MemoryStream] extract error 4")) << log.dump();

    std::unique_ptr<OutPostcard> nested = started();
    ASSERT_EQ(0, nested->finalize());
    std::unique_ptr<OutPostcard> out = started();
    ASSERT_EQ(0, out->addCard("C", nested.get()) + out->addString("S", "abc"));
    ASSERT_EQ(0, out->finalize());
    {
        varn_test::NothrowAllocationFailure failure(1);  // the reader, then its stream
        EXPECT_EQ(nullptr,
                  std::unique_ptr<InPostcard>(InPostcard::createInstance(out.get()))->getBuffer());
        EXPECT_TRUE(failure.triggered());
    }
    in.reset(InPostcard::createInstance(InMemoryStream::createInstance(out->getEncodedBuffer())));
    EXPECT_EQ(0u, out->getEncodedBuffer()->getSize());  // bytes moved, not copied
    out.reset();
    InPostcard* card = nullptr;
    const char* text = nullptr;
    for (int succeed : {0, 1}) {  // the nested reader, then its stream
        varn_test::NothrowAllocationFailure failure(succeed);
        EXPECT_EQ(8 + succeed, in->getCard("C", &card, 0));
        EXPECT_EQ(nullptr, card);
    }
    varn_test::NothrowAllocationFailure failure(0);
    EXPECT_EQ(4, in->getStringDup("S", &text));
    EXPECT_EQ(0, in->getString("S", &text));
}

}  // namespace
}  // namespace vel_loc_fw
