// The implementations of the postcard writer and reader (internal to the
// library).
#pragma once

#include <stdint.h>

#include <vel_loc_fw/postcard.h>

#include "postcard/memory_stream_impl.h"

namespace vel_loc_fw {

class OutPostcardImpl final : public OutPostcard {
  public:
    OutPostcardImpl() = default;
    ~OutPostcardImpl() override;

    OutPostcardImpl(const OutPostcardImpl&) = delete;
    OutPostcardImpl& operator=(const OutPostcardImpl&) = delete;

    int init() override;
    int finalize() override;
    OutMemoryStream* getEncodedBuffer() override { return stream_; }
    OutMemoryStream* getInternalBuffer() override { return stream_; }

    int addDouble(const char* name, double value) override;
    int addFloat(const char* name, float value) override;
    int addInt64(const char* name, long long value) override;
    int addUInt64(const char* name, unsigned long long value) override;
    int addInt32(const char* name, int value) override;
    int addUInt32(const char* name, unsigned int value) override;
    int addInt16(const char* name, short value) override;
    int addUInt16(const char* name, unsigned short value) override;
    int addInt8(const char* name, char value) override;
    int addUInt8(const char* name, unsigned char value) override;
    int addBool(const char* name, bool value) override;
    int addString(const char* name, const char* value) override;
    int addPtr(const char* name, void* value) override;
    int addBlob(const char* name, const void* data, size_t length) override;
    int addCard(const char* name, const OutPostcard* card) override;
    int addArrayDouble(const char* name, int count, const double* values) override;
    int addArrayFloat(const char* name, int count, const float* values) override;
    int addArrayInt64(const char* name, int count, const long long* values) override;
    int addArrayUInt64(const char* name, int count, const unsigned long long* values) override;
    int addArrayInt32(const char* name, int count, const int* values) override;
    int addArrayUInt32(const char* name, int count, const unsigned int* values) override;
    int addArrayInt16(const char* name, int count, const short* values) override;
    int addArrayUInt16(const char* name, int count, const unsigned short* values) override;
    int addArrayInt8(const char* name, int count, const char* values) override;
    int addArrayUInt8(const char* name, int count, const unsigned char* values) override;
    int addArrayBool(const char* name, int count, const bool* values) override;
    int addArrayPtr(const char* name, int count, void* const* values) override;

    // The common writer of strings, blobs and cards: type, name, the length
    // word when `writeLength`, then `length` bytes of `data`. Codes: 2-5 as
    // every add, 6 null data, 8 to 12 per failing append.
    int addBlobWithType(const char* name, eFieldType type, const void* data, size_t length,
                        bool writeLength);

    // Writes one simple field of any `SimpleNode` type. Codes: 2-5 as every
    // add, 6 to 9 per failing append.
    template <typename Node>
    int add(const char* name, const Node& node);

    // Writes an array of `count` elements of `T`. Codes: 2-5 as every add, 6
    // null values, 7 count below 1, 8 to 12 per failing append.
    template <typename T>
    int addArray(const char* name, eFieldType type, int count, const T* values);

    uint32_t state() const { return state_; }

  private:
    // The checks every add starts with; returns 0 or the code 2-5, and sets
    // `*name_length` to strlen(name).
    int checkAdd(const char* name, size_t* name_length) const;
    // Appends type, name length and name; returns 0 or 1, 2, 3 for the piece
    // that failed.
    int appendHeader(unsigned short type, const char* name, size_t name_length);
    // Writes a whole record (header, optional length word, value) in one go
    // when the buffer already has room for all of it, which is when appending
    // it piece by piece could not fail either. Returns false, writing nothing,
    // when the record must go through the piece-by-piece path.
    bool writeRecord(unsigned short type, const char* name, size_t name_length,
                     const uint32_t* length_word, const void* value, size_t value_length);

    uint32_t state_ = 0;
    // Created by init(), so its class is always known: appends go straight to
    // the implementation without a virtual call.
    OutMemoryStreamImpl* stream_ = nullptr;
};

class InPostcardImpl final : public InPostcard {
  public:
    InPostcardImpl() = default;
    // Takes over `stream`; a null stream leaves the reader not ready.
    explicit InPostcardImpl(InMemoryStream* stream);
    // Takes over `out`'s bytes; a null `out` leaves the reader not ready.
    explicit InPostcardImpl(OutPostcard* out);
    ~InPostcardImpl() override;

    InPostcardImpl(const InPostcardImpl&) = delete;
    InPostcardImpl& operator=(const InPostcardImpl&) = delete;

    int init(const void* buffer, size_t size, bool takeOwnership) override;
    InMemoryStream* getBuffer() override { return stream_; }

    int getDouble(const char* name, double& value) override;
    int getFloat(const char* name, float& value) override;
    int getInt64(const char* name, long long& value) override;
    int getUInt64(const char* name, unsigned long long& value) override;
    int getInt32(const char* name, int& value) override;
    int getUInt32(const char* name, unsigned int& value) override;
    int getInt16(const char* name, short& value) override;
    int getUInt16(const char* name, unsigned short& value) override;
    int getInt8(const char* name, char& value) override;
    int getUInt8(const char* name, unsigned char& value) override;
    int getBool(const char* name, bool& value) override;
    int getString(const char* name, const char** value) override;
    int getStringDup(const char* name, const char** value) override;

    int getDoubleOptional(const char* name, double& value) override;
    int getFloatOptional(const char* name, float& value) override;
    int getInt64Optional(const char* name, long long& value) override;
    int getUInt64Optional(const char* name, unsigned long long& value) override;
    int getInt32Optional(const char* name, int& value) override;
    int getUInt32Optional(const char* name, unsigned int& value) override;
    int getInt16Optional(const char* name, short& value) override;
    int getUInt16Optional(const char* name, unsigned short& value) override;
    int getInt8Optional(const char* name, char& value) override;
    int getUInt8Optional(const char* name, unsigned char& value) override;
    int getBoolOptional(const char* name, bool& value) override;
    int getStringOptional(const char* name, const char** value) override;

    int getPtr(const char* name, void*& value) override;
    int getBlob(const char* name, const void** data, size_t* length) override;
    int getCard(const char* name, InPostcard** card, int index) override;
    int getArrayDouble(const char* name, int* count, double* values) override;
    int getArrayFloat(const char* name, int* count, float* values) override;
    int getArrayInt64(const char* name, int* count, long long* values) override;
    int getArrayUInt64(const char* name, int* count, unsigned long long* values) override;
    int getArrayInt32(const char* name, int* count, int* values) override;
    int getArrayUInt32(const char* name, int* count, unsigned int* values) override;
    int getArrayInt16(const char* name, int* count, short* values) override;
    int getArrayUInt16(const char* name, int* count, unsigned short* values) override;
    int getArrayInt8(const char* name, int* count, char* values) override;
    int getArrayUInt8(const char* name, int* count, unsigned char* values) override;
    int getArrayBool(const char* name, int* count, bool* values) override;
    int getArrayPtr(const char* name, int* count, void** values) override;

    // Leaves the cursor at the value of the `index`-th field (from 0) whose type
    // and name both match. Returns 0, -1 when there is none (unlogged), 2 null
    // name, 3 cannot rewind, 4 no length word, 5 empty name, 101 walk past the
    // end, 102/103 type or name length cut short, 104 name cut short, 105 a
    // value that cannot be skipped.
    int findField(unsigned short type, const char* name, int index);
    // Moves the cursor past one value of `type`. Codes: 100 type 0, 101 unknown
    // type, 3 value cut short; for cards and strings 102 no length, 103 length
    // 0; for blobs and arrays 104 no length, 2 length 0.
    int skipValueByType(unsigned short type);
    // Finds the `index`-th field of `type` and name and points `*data` at its
    // bytes: after the length word with `hasLength`, at it otherwise (a card's
    // own length word). Returns 0, -1 (unlogged), 2 null name, 3 null output,
    // 4 malformed, 5 no length word, 7 value cut short.
    int getBlobByType(const char* name, eFieldType type, const void** data, size_t* length,
                      bool hasLength, int index);
    // The generic simple getter behind getDouble() ... getPtr().
    template <typename Node>
    int getSimple(const char* name, Node& node);
    // The generic array getter behind getArrayDouble() ... getArrayPtr().
    template <typename T>
    int getArray(const char* name, eFieldType type, int* count, T* values);

    uint32_t state() const { return state_; }

    // Result codes of the reader, per operation; 0 is success. Every lookup
    // returns kNotFound (-1), unlogged, when no field matches.
    static constexpr int kNotFound = -1;
    struct CreateResult {  // factories (logged, the reader is left not ready)
        static constexpr int kNoStream = 2, kNoMemory = 3;
    };
    struct InitResult {
        static constexpr int kOk = 0, kNullBuffer = 2, kEmpty = 3, kNoMemory = 4,
                             kOwnershipRefused = 5, kBufferRefused = 6;
    };
    struct FindResult {
        static constexpr int kFound = 0, kNullName = 2, kCannotRewind = 3, kNoBodyLength = 4,
                             kEmptyName = 5, kPastEnd = 101, kNoType = 102, kNoNameLength = 103,
                             kNameCut = 104, kBadValue = 105;
    };
    struct SkipResult {
        static constexpr int kOk = 0, kEmptyBlob = 2, kCut = 3, kInvalidType = 100,
                             kUnknownType = 101, kNoTextLength = 102, kEmptyText = 103,
                             kNoBlobLength = 104;
    };
    struct SimpleResult {
        static constexpr int kOk = 0, kNullName = 2, kMalformed = 3, kValueCut = 4;
    };
    struct BlobResult {
        static constexpr int kOk = 0, kNullName = 2, kNullOutput = 3, kMalformed = 4, kNoLength = 5,
                             kValueCut = 7;
    };
    struct StringResult {
        static constexpr int kOk = 0, kNullName = 2, kNullOutput = 3, kMalformed = 4, kEmpty = 5,
                             kNoData = 6, kNotTerminated = 7;
    };
    struct StringDupResult {
        static constexpr int kOk = 0, kNullOutput = 2, kNoString = 3, kNoMemory = 4;
    };
    struct ArrayResult {
        static constexpr int kOk = 0, kNullName = 2, kNullCount = 3, kNotRead = 4, kBadLength = 5,
                             kEmpty = 6, kNoRoom = 7;
    };
    struct CardResult {
        static constexpr int kOk = 0, kNullName = 2, kNullOutput = 3, kMalformed = 4, kNoMemory = 8,
                             kUnreadable = 9;
    };

    // The reader's view of the record grammar (defined with the reader).
    struct RecordCursor;

  private:
    // A cursor over the stream's bytes at its get cursor, or at 0.
    RecordCursor cursor(bool at_start);
    int find(unsigned short type, const char* name, int index, RecordCursor* at);
    int reportFind(int result, int field_no);
    void reportSkip(int result, unsigned short type);

    uint32_t state_ = 0;
    InMemoryStream* stream_ = nullptr;
    // `stream_` when the reader created it itself (its class is then known,
    // so its calls bind directly), else null.
    InMemoryStreamImpl* own_stream_ = nullptr;
};

}  // namespace vel_loc_fw
