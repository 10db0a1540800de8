// Postcards: self-describing binary messages of named, typed, nestable fields.
//
// Layout (host byte order, nothing aligned or padded):
//   u32 body length B (= total length - 4) | field records | end byte 0
// Field record:
//   u16 type (`eFieldType`) | u16 N = strlen(name) + 1 | name + NUL | value
// Values: simple types are their own bytes; strings (19) are u32 L = chars + 1
// then the bytes with the NUL; blobs (20) and arrays (30..40) are u32 byte
// length then the bytes; a card (1) is the nested postcard's complete bytes,
// whose own first word says how long it is.
//
// Writing:
//   OutPostcard* out = OutPostcard::createInstance();
//   out->init();
//   out->addInt32("A", 7);
//   out->finalize();           // bytes in out->getEncodedBuffer()
// Reading:
//   InPostcard* in = InPostcard::createInstance(out);  // takes out's bytes
//   int a = 0;
//   in->getInt32("A", a);
//
// Every lookup walks the fields from the start; a field is found by its type
// and name together, and repeated names are told apart by their index. A
// lookup that finds nothing returns -1 without logging; other failures return
// a positive code and log under "OutPostcard" / "InPostcard". A postcard is
// used by one thread at a time.
#pragma once

#include <stddef.h>

#include <vel_loc_fw/fw_export.h>
#include <vel_loc_fw/memory_stream.h>

namespace vel_loc_fw {

// Field type codes as written on the wire (16 bits).
enum eFieldType : unsigned short {
    FIELD_TYPE_INVALID = 0,  // never written; the reader rejects it
    FIELD_TYPE_CARD = 1,
    FIELD_TYPE_INT64 = 10,  // also pointers
    FIELD_TYPE_UINT64 = 11,
    FIELD_TYPE_INT32 = 12,
    FIELD_TYPE_UINT32 = 13,
    FIELD_TYPE_INT16 = 14,
    FIELD_TYPE_UINT16 = 15,
    FIELD_TYPE_INT8 = 16,
    FIELD_TYPE_UINT8 = 17,
    FIELD_TYPE_BOOL = 18,  // one byte, like UINT8, but a distinct type
    FIELD_TYPE_STRING = 19,
    FIELD_TYPE_BLOB = 20,
    FIELD_TYPE_DOUBLE = 21,
    FIELD_TYPE_FLOAT = 22,
    FIELD_TYPE_ARRAY_INT64 = 30,  // also arrays of pointers
    FIELD_TYPE_ARRAY_UINT64 = 31,
    FIELD_TYPE_ARRAY_INT32 = 32,
    FIELD_TYPE_ARRAY_UINT32 = 33,
    FIELD_TYPE_ARRAY_INT16 = 34,
    FIELD_TYPE_ARRAY_UINT16 = 35,
    FIELD_TYPE_ARRAY_INT8 = 36,
    FIELD_TYPE_ARRAY_UINT8 = 37,
    FIELD_TYPE_ARRAY_BOOL = 38,
    FIELD_TYPE_ARRAY_DOUBLE = 39,
    FIELD_TYPE_ARRAY_FLOAT = 40,
};

// Refers to one simple value of type `T` and carries its wire type code, so
// that one generic add and one generic get serve every simple type.
template <unsigned short kCode, typename T>
struct SimpleNode {
    typedef T value_type;
    static const unsigned short field_type = kCode;

    explicit SimpleNode(T& value) : value(value) {}
    T& value;
};

typedef SimpleNode<FIELD_TYPE_INT64, long long> Int64Node;
typedef SimpleNode<FIELD_TYPE_UINT64, unsigned long long> UInt64Node;
typedef SimpleNode<FIELD_TYPE_INT32, int> Int32Node;
typedef SimpleNode<FIELD_TYPE_UINT32, unsigned int> UInt32Node;
typedef SimpleNode<FIELD_TYPE_INT16, short> Int16Node;
typedef SimpleNode<FIELD_TYPE_UINT16, unsigned short> UInt16Node;
typedef SimpleNode<FIELD_TYPE_INT8, char> Int8Node;
typedef SimpleNode<FIELD_TYPE_UINT8, unsigned char> UInt8Node;
typedef SimpleNode<FIELD_TYPE_BOOL, unsigned char> BoolNode;
typedef SimpleNode<FIELD_TYPE_DOUBLE, double> DoubleNode;
typedef SimpleNode<FIELD_TYPE_FLOAT, float> FloatNode;

class VEL_LOC_FW_EXPORT PostcardBase {
  public:
    virtual ~PostcardBase();
};

// Builds one postcard: createInstance(), init(), adds, finalize(). There is no
// reset. All adds check, in order: initialised and not finalised (else 2),
// name not null (3), name not empty (4), name shorter than 256 characters (5).
// A failed add may leave part of its field in the stream (no rollback), so a
// postcard whose add failed should be discarded.
class VEL_LOC_FW_EXPORT OutPostcard : public PostcardBase {
  public:
    ~OutPostcard() override;

    // Creates the stream and writes the length placeholder. Returns 2 when
    // called twice, 3 when out of memory.
    virtual int init() = 0;
    // Writes the body length and the end byte; no adds afterwards. Returns 2
    // when not initialised or already finalised, 3 when the stream is short or
    // the end byte cannot be written.
    virtual int finalize() = 0;
    // The stream holding the bytes (owned by the postcard; null before init()).
    // After finalize() its buffer and size are the complete postcard.
    virtual OutMemoryStream* getEncodedBuffer() = 0;
    virtual OutMemoryStream* getInternalBuffer() = 0;

    // Simple values. Beyond the common codes 2-5: 6 to 9 when appending the
    // type, name length, name or value fails.
    virtual int addDouble(const char* name, double value) = 0;
    virtual int addFloat(const char* name, float value) = 0;
    virtual int addInt64(const char* name, long long value) = 0;
    virtual int addUInt64(const char* name, unsigned long long value) = 0;
    virtual int addInt32(const char* name, int value) = 0;
    virtual int addUInt32(const char* name, unsigned int value) = 0;
    virtual int addInt16(const char* name, short value) = 0;
    virtual int addUInt16(const char* name, unsigned short value) = 0;
    virtual int addInt8(const char* name, char value) = 0;
    virtual int addUInt8(const char* name, unsigned char value) = 0;
    virtual int addBool(const char* name, bool value) = 0;
    // NUL-terminated text, stored with its NUL. Returns 2 for a null name, 3
    // for a null value, 4 when the field cannot be written.
    virtual int addString(const char* name, const char* value) = 0;
    // Written as a signed 64-bit value (type 10); reads back as getInt64() too.
    virtual int addPtr(const char* name, void* value) = 0;
    // Raw bytes with a length word. Beyond 2-5: 6 null data, 8 to 12 when
    // appending the type, name length, name, length or data fails (12 for a
    // zero `length`: empty pieces are refused).
    virtual int addBlob(const char* name, const void* data, size_t length) = 0;
    // Copies the finalised postcard `card` as a nested field; the caller keeps
    // `card`. Returns 2 for a null name, 3 for a null card, 4 when `card` is
    // not finalised, 5 when the field cannot be written.
    virtual int addCard(const char* name, const OutPostcard* card) = 0;
    // Arrays of `count` elements, stored with their byte length. Beyond 2-5: 6
    // null values, 7 count below 1, 8 to 12 when appending fails.
    virtual int addArrayDouble(const char* name, int count, const double* values) = 0;
    virtual int addArrayFloat(const char* name, int count, const float* values) = 0;
    virtual int addArrayInt64(const char* name, int count, const long long* values) = 0;
    virtual int addArrayUInt64(const char* name, int count, const unsigned long long* values) = 0;
    virtual int addArrayInt32(const char* name, int count, const int* values) = 0;
    virtual int addArrayUInt32(const char* name, int count, const unsigned int* values) = 0;
    virtual int addArrayInt16(const char* name, int count, const short* values) = 0;
    virtual int addArrayUInt16(const char* name, int count, const unsigned short* values) = 0;
    virtual int addArrayInt8(const char* name, int count, const char* values) = 0;
    virtual int addArrayUInt8(const char* name, int count, const unsigned char* values) = 0;
    virtual int addArrayBool(const char* name, int count, const bool* values) = 0;
    virtual int addArrayPtr(const char* name, int count, void* const* values) = 0;

    // Returns a new writer (not initialised), or null when out of memory. The
    // caller deletes it.
    static OutPostcard* createInstance();
};

// Reads a postcard by name. Getters rewind the stream on every call, so they
// may be called in any order and repeatedly; they do not check that the
// reader is ready. Results: 0 found, -1 not found (nothing logged, output
// untouched), positive codes for failures (logged).
class VEL_LOC_FW_EXPORT InPostcard : public PostcardBase {
  public:
    ~InPostcard() override;

    // Reads `size` bytes at `buffer`. With `takeOwnership` the reader delete[]s
    // the buffer when destroyed; otherwise the caller keeps it alive for the
    // reader's life. Returns 2 null buffer, 3 size 0, 4 out of memory, 5 or 6
    // when the stream refuses the buffer.
    virtual int init(const void* buffer, size_t size, bool takeOwnership) = 0;
    // The reader's stream (owned by the reader; null before init()).
    virtual InMemoryStream* getBuffer() = 0;

    // Copy the first field of the name and type into `value`. Returns 2 for a
    // null name, 3 when the postcard is malformed before the field is found,
    // 4 when the value is cut short.
    virtual int getDouble(const char* name, double& value) = 0;
    virtual int getFloat(const char* name, float& value) = 0;
    virtual int getInt64(const char* name, long long& value) = 0;
    virtual int getUInt64(const char* name, unsigned long long& value) = 0;
    virtual int getInt32(const char* name, int& value) = 0;
    virtual int getUInt32(const char* name, unsigned int& value) = 0;
    virtual int getInt16(const char* name, short& value) = 0;
    virtual int getUInt16(const char* name, unsigned short& value) = 0;
    virtual int getInt8(const char* name, char& value) = 0;
    virtual int getUInt8(const char* name, unsigned char& value) = 0;
    virtual int getBool(const char* name, bool& value) = 0;
    // Points `*value` at the string inside the postcard (valid while the reader
    // and its buffer live); null on failure. Returns 2 null name, 3 null value,
    // 4 malformed, 5 empty, 7 not NUL-terminated.
    virtual int getString(const char* name, const char** value) = 0;
    // As getString(), but `*value` is a private copy the caller delete[]s.
    // Returns 2 null value, 3 getString() failed, 4 out of memory.
    virtual int getStringDup(const char* name, const char** value) = 0;

    // As the getters above, but a missing field returns 0 and leaves `value`.
    virtual int getDoubleOptional(const char* name, double& value) = 0;
    virtual int getFloatOptional(const char* name, float& value) = 0;
    virtual int getInt64Optional(const char* name, long long& value) = 0;
    virtual int getUInt64Optional(const char* name, unsigned long long& value) = 0;
    virtual int getInt32Optional(const char* name, int& value) = 0;
    virtual int getUInt32Optional(const char* name, unsigned int& value) = 0;
    virtual int getInt16Optional(const char* name, short& value) = 0;
    virtual int getUInt16Optional(const char* name, unsigned short& value) = 0;
    virtual int getInt8Optional(const char* name, char& value) = 0;
    virtual int getUInt8Optional(const char* name, unsigned char& value) = 0;
    virtual int getBoolOptional(const char* name, bool& value) = 0;
    virtual int getStringOptional(const char* name, const char** value) = 0;

    // Reads a field written by addPtr() (a signed 64-bit field).
    virtual int getPtr(const char* name, void*& value) = 0;
    // Points `*data` at the blob's bytes inside the postcard and sets `*length`
    // (both cleared first). Returns 2 null name, 3 null output, 4 malformed, 5
    // or 7 when the value is cut short.
    virtual int getBlob(const char* name, const void** data, size_t* length) = 0;
    // Creates in `*card` a reader over the `index`-th card field of the name
    // (counting from 0). The nested reader reads inside this reader's buffer,
    // so this reader must outlive it; the caller deletes it. Returns 2 null
    // name, 3 null card, 4 malformed, 8 out of memory, 9 unreadable card.
    virtual int getCard(const char* name, InPostcard** card, int index) = 0;
    // Arrays: `*count` on entry is the room in `values`, in elements; on
    // success it is the element count. With `values` null only the count is
    // reported. Returns 2 null name, 3 null count, 4 not found or malformed
    // (not-found is an error here), 5 byte length not a multiple of the
    // element size, 6 empty, 7 too little room (nothing copied).
    virtual int getArrayDouble(const char* name, int* count, double* values) = 0;
    virtual int getArrayFloat(const char* name, int* count, float* values) = 0;
    virtual int getArrayInt64(const char* name, int* count, long long* values) = 0;
    virtual int getArrayUInt64(const char* name, int* count, unsigned long long* values) = 0;
    virtual int getArrayInt32(const char* name, int* count, int* values) = 0;
    virtual int getArrayUInt32(const char* name, int* count, unsigned int* values) = 0;
    virtual int getArrayInt16(const char* name, int* count, short* values) = 0;
    virtual int getArrayUInt16(const char* name, int* count, unsigned short* values) = 0;
    virtual int getArrayInt8(const char* name, int* count, char* values) = 0;
    virtual int getArrayUInt8(const char* name, int* count, unsigned char* values) = 0;
    virtual int getArrayBool(const char* name, int* count, bool* values) = 0;
    virtual int getArrayPtr(const char* name, int* count, void** values) = 0;

    // Returns a reader without bytes (init() must follow), or null when out of
    // memory. The caller deletes it.
    static InPostcard* createInstance();
    // Returns a reader over `stream`, which it takes over (a null stream is
    // logged and gives a reader without bytes).
    static InPostcard* createInstance(InMemoryStream* stream);
    // Returns a reader that takes `out`'s bytes without copying; `out` must be
    // finalised and is left with an empty stream.
    static InPostcard* createInstance(OutPostcard* out);
};

}  // namespace vel_loc_fw
