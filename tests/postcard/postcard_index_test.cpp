// Look-ups in a reader's own buffer use an index of the record offsets; a
// reader of a lent stream walks. Both must find the same fields and fail with
// the same codes, also beyond the index's capacity and on cut records.
#include <string.h>

#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "postcard/postcard_impl.h"
#include "postcard_test_support.h"

namespace {

using vel_loc_fw::FIELD_TYPE_BLOB;
using vel_loc_fw::FIELD_TYPE_INT16;
using vel_loc_fw::InPostcardImpl;

std::vector<uint8_t> manyFields() {
    std::unique_ptr<vel_loc_fw::OutPostcard> out(vel_loc_fw::OutPostcard::createInstance());
    EXPECT_EQ(out->init(), 0);
    for (int i = 0; i < 70; ++i) {
        EXPECT_EQ(out->addBlob("f", &i, sizeof(i)), 0);
        if (i % 10 == 0) {
            EXPECT_EQ(out->addInt16("g", static_cast<short>(i)), 0);
        }
    }
    EXPECT_EQ(out->finalize(), 0);
    return varn_test::stream_bytes(out->getEncodedBuffer());
}

TEST(PostcardIndex, IndexedAndWalkedLookUpsAgree) {
    const std::vector<uint8_t> whole = manyFields();
    // A body length that ends the fields one byte into the third record
    // (blob "f" at 4, int16 "g" at 18, blob "f" at 26): the walk stops there.
    std::vector<uint8_t> short_body = whole;
    const uint32_t body_length = 23;
    memcpy(short_body.data(), &body_length, sizeof(body_length));
    // Whole, cut inside a record past the index's capacity, cut inside one
    // the index would hold, too short for a body length, and lying about it.
    const std::pair<const std::vector<uint8_t>*, size_t> variants[] = {{&whole, whole.size()},
                                                                       {&whole, whole.size() - 40},
                                                                       {&whole, 200},
                                                                       {&whole, 3},
                                                                       {&short_body, whole.size()}};
    for (const auto& variant : variants) {
        const std::vector<uint8_t>& bytes = *variant.first;
        const size_t size = variant.second;
        SCOPED_TRACE(testing::Message() << size << (variant.first == &whole ? "" : " short body"));
        InPostcardImpl indexed;
        ASSERT_EQ(indexed.init(bytes.data(), size, false), 0);
        std::unique_ptr<vel_loc_fw::InMemoryStream> lent(
                vel_loc_fw::InMemoryStream::createInstance());
        ASSERT_EQ(lent->setBuffer(bytes.data(), size), 0);
        InPostcardImpl walked(lent.release());
        for (int index : {0, 5, 63, 64, 69, 70}) {
            for (const char* name : {"f", "g", "h", ""}) {
                for (unsigned short type : {FIELD_TYPE_BLOB, FIELD_TYPE_INT16}) {
                    SCOPED_TRACE(testing::Message() << name << " " << type << " #" << index);
                    const void* a = nullptr;
                    const void* b = nullptr;
                    size_t a_length = 0, b_length = 0;
                    const int found =
                            indexed.getBlobByType(name, static_cast<vel_loc_fw::eFieldType>(type),
                                                  &a, &a_length, type == FIELD_TYPE_BLOB, index);
                    EXPECT_EQ(found,
                              walked.getBlobByType(name, static_cast<vel_loc_fw::eFieldType>(type),
                                                   &b, &b_length, type == FIELD_TYPE_BLOB, index));
                    if (found == 0 && type == FIELD_TYPE_BLOB) {
                        ASSERT_EQ(a_length, sizeof(int));
                        EXPECT_EQ(memcmp(a, &index, sizeof(int)), 0);
                        EXPECT_EQ(memcmp(a, b, sizeof(int)), 0);
                    }
                }
            }
        }
        if (&bytes == &whole && size == whole.size()) {
            const void* data = nullptr;
            size_t length = 0;
            EXPECT_EQ(indexed.getBlobByType("f", FIELD_TYPE_BLOB, &data, &length, true, 69), 0);
            EXPECT_EQ(indexed.getBlobByType("f", FIELD_TYPE_BLOB, &data, &length, true, 70), -1);
        }
    }
}

}  // namespace
