// Look-ups in a reader's own buffer use an index of the record offsets; a
// reader of a lent stream walks. Both must find the same fields and fail with
// the same codes, also beyond the index's capacity and on cut records.
#include <string.h>

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "postcard/postcard_impl.h"
#include "postcard_test_support.h"

namespace {

using vel_loc_fw::eFieldType;

TEST(PostcardIndex, IndexedAndWalkedLookUpsAgree) {
    std::unique_ptr<vel_loc_fw::OutPostcard> out = varn_test::started();
    for (int i = 0; i < 70; ++i) {  // blob "f" at 4, int16 "g" at 18, blob "f" at 26, ...
        out->addBlob("f", &i, sizeof(i));
        if (i % 10 == 0) out->addInt16("g", static_cast<short>(i));
    }
    ASSERT_EQ(out->finalize(), 0);
    const std::vector<uint8_t> whole = varn_test::stream_bytes(out->getEncodedBuffer());
    std::vector<uint8_t> short_body = whole;  // ends one byte into the third record
    const uint32_t body_length = 23;
    memcpy(short_body.data(), &body_length, sizeof(body_length));
    // Whole, cut inside a record past the index's capacity, cut inside one
    // the index holds, too short for a body length, and lying about it.
    const struct {
        const std::vector<uint8_t>& bytes;
        size_t size;
    } variants[] = {{whole, whole.size()},
                    {whole, whole.size() - 40},
                    {whole, 200},
                    {whole, 3},
                    {short_body, whole.size()}};
    for (const auto& v : variants) {
        SCOPED_TRACE(testing::Message() << v.size << (&v.bytes == &whole ? "" : " short body"));
        vel_loc_fw::InPostcardImpl indexed;
        ASSERT_EQ(indexed.init(v.bytes.data(), v.size, false), 0);
        vel_loc_fw::InMemoryStream* lent = vel_loc_fw::InMemoryStream::createInstance();
        ASSERT_EQ(lent->setBuffer(v.bytes.data(), v.size), 0);
        vel_loc_fw::InPostcardImpl walked(lent);
        for (int index : {0, 5, 63, 64, 69, 70}) {
            for (const char* name : {"f", "g", "h", ""}) {
                for (eFieldType type :
                     {vel_loc_fw::FIELD_TYPE_BLOB, vel_loc_fw::FIELD_TYPE_INT16}) {
                    SCOPED_TRACE(testing::Message() << name << " " << type << " #" << index);
                    const bool blob = type == vel_loc_fw::FIELD_TYPE_BLOB;
                    const void* a = nullptr;
                    const void* b = nullptr;
                    size_t a_length = 0, b_length = 0;
                    const int found = indexed.getBlobByType(name, type, &a, &a_length, blob, index);
                    EXPECT_EQ(found, walked.getBlobByType(name, type, &b, &b_length, blob, index));
                    if (v.size == whole.size() && &v.bytes == &whole && blob && *name == 'f') {
                        EXPECT_EQ(found, index < 70 ? 0 : -1);
                    }
                    if (found == 0 && blob) {
                        ASSERT_EQ(a_length, sizeof(int));
                        EXPECT_EQ(memcmp(a, &index, sizeof(int)), 0);
                        EXPECT_EQ(memcmp(a, b, sizeof(int)), 0);
                    }
                }
            }
        }
    }
}

}  // namespace
