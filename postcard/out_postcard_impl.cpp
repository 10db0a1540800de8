// Postcard writer: appends field records straight into its output stream.
#include "postcard/postcard_impl.h"

#include <string.h>

#include <new>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {
namespace {

constexpr const char kTag[] = "OutPostcard";
// Stands in for the body length until finalize() knows it.
constexpr uint32_t kLengthPlaceholder = 0x12345678;
// Names are at most 255 characters, so that N = strlen + 1 fits its meaning.
constexpr size_t kMaxNameLength = 255;

}  // namespace

PostcardBase::~PostcardBase() = default;
OutPostcard::~OutPostcard() = default;

OutPostcard* OutPostcard::createInstance() { return new (std::nothrow) OutPostcardImpl(); }

OutPostcardImpl::~OutPostcardImpl() { delete stream_; }

int OutPostcardImpl::init() {
    int result = 0;
    if (state_ != 0) {
        result = 2;
    } else if ((stream_ = new (std::nothrow) OutMemoryStreamImpl()) == nullptr) {
        result = 3;
    }
    if (result != 0) {
        log_error(kTag, "init failed %d", result);
        return result;
    }
    // Unchecked: a failure here leaves the stream short, which finalize() reports.
    (void)stream_->append(&kLengthPlaceholder, sizeof(kLengthPlaceholder));
    state_ = 1;
    return 0;
}

int OutPostcardImpl::finalize() {
    int result = 0;
    if (state_ != 1) {
        result = 2;
    } else if (stream_->getSize() < sizeof(uint32_t)) {
        result = 3;
    } else {
        // The +1 counts the end byte written next.
        const uint32_t body_length =
                static_cast<uint32_t>(stream_->getSize() + 1 - sizeof(uint32_t));
        memcpy(stream_->getBuffer(), &body_length, sizeof(body_length));
        const uint8_t end_byte = 0;
        if (stream_->append(&end_byte, sizeof(end_byte)) != 0) result = 3;
    }
    if (result != 0) {
        // Reported under the same words as init(), as the platform always has.
        log_error(kTag, "init failed %d", result);
        return result;
    }
    state_ = 2;
    return 0;
}

int OutPostcardImpl::checkAdd(const char* name, size_t* name_length) const {
    if (state_ != 1) return 2;
    if (name == nullptr) return 3;
    if (name[0] == '\0') return 4;
    // Names are short: a plain loop beats a library call here.
    size_t length = 1;
    while (length <= kMaxNameLength && name[length] != '\0') ++length;
    if (length > kMaxNameLength) return 5;
    *name_length = length;
    return 0;
}

bool OutPostcardImpl::writeRecord(unsigned short type, const char* name, size_t name_length,
                                  const uint32_t* length_word, const void* value,
                                  size_t value_length) {
    // An empty value must reach the stream's refusal of empty appends.
    if (value_length == 0) return false;
    const size_t header_length = 2 * sizeof(uint16_t) + name_length + 1;
    const size_t word_length = length_word != nullptr ? sizeof(*length_word) : 0;
    const size_t total = header_length + word_length + value_length;
    uint8_t* at = stream_->tryReserve(total);
    if (at == nullptr) return false;
    const uint16_t head[2] = {type, static_cast<uint16_t>(name_length + 1)};
    memcpy(at, head, sizeof(head));
    memcpy(at + sizeof(head), name, name_length + 1);
    at += header_length;
    if (length_word != nullptr) {
        memcpy(at, length_word, sizeof(*length_word));
        at += sizeof(*length_word);
    }
    memcpy(at, value, value_length);
    stream_->commit(total);
    return true;
}

int OutPostcardImpl::appendHeader(unsigned short type, const char* name, size_t name_length) {
    if (stream_->append(&type, sizeof(type)) != 0) return 1;
    const uint16_t stored_length = static_cast<uint16_t>(name_length + 1);
    if (stream_->append(&stored_length, sizeof(stored_length)) != 0) return 2;
    if (stream_->append(name, stored_length) != 0) return 3;
    return 0;
}

template <typename Node>
int OutPostcardImpl::add(const char* name, const Node& node) {
    size_t name_length = 0;
    int result = checkAdd(name, &name_length);
    if (result == 0 && !writeRecord(Node::field_type, name, name_length, nullptr, &node.value,
                                    sizeof(node.value))) {
        const int failed_piece = appendHeader(Node::field_type, name, name_length);
        if (failed_piece != 0) {
            result = 5 + failed_piece;
        } else if (stream_->append(&node.value, sizeof(node.value)) != 0) {
            result = 9;
        }
    }
    if (result != 0) log_error(kTag, "add simple failed %d", result);
    return result;
}

int OutPostcardImpl::addBlobWithType(const char* name, eFieldType type, const void* data,
                                     size_t length, bool writeLength) {
    size_t name_length = 0;
    int result = checkAdd(name, &name_length);
    if (result == 0 && data == nullptr) result = 6;
    const uint32_t length_word = static_cast<uint32_t>(length);
    if (result == 0 &&
        !writeRecord(type, name, name_length, writeLength ? &length_word : nullptr, data, length)) {
        const int failed_piece = appendHeader(type, name, name_length);
        if (failed_piece != 0) {
            result = 7 + failed_piece;
        } else if (writeLength && stream_->append(&length_word, sizeof(length_word)) != 0) {
            result = 11;
        } else if (stream_->append(data, length) != 0) {
            result = 12;
        }
    }
    if (result != 0) log_error(kTag, "addBlobWithType failed %d", result);
    return result;
}

template <typename T>
int OutPostcardImpl::addArray(const char* name, eFieldType type, int count, const T* values) {
    size_t name_length = 0;
    int result = checkAdd(name, &name_length);
    if (result == 0 && values == nullptr) result = 6;
    if (result == 0 && count < 1) result = 7;
    const size_t byte_length = result == 0 ? static_cast<size_t>(count) * sizeof(T) : 0;
    const uint32_t length_word = static_cast<uint32_t>(byte_length);
    if (result == 0 && !writeRecord(type, name, name_length, &length_word, values, byte_length)) {
        const int failed_piece = appendHeader(type, name, name_length);
        if (failed_piece != 0) {
            result = 7 + failed_piece;
        } else if (stream_->append(&length_word, sizeof(length_word)) != 0) {
            result = 11;
        } else if (stream_->append(values, byte_length) != 0) {
            result = 12;
        }
    }
    if (result != 0) log_error(kTag, "add array failed %d", result);
    return result;
}

int OutPostcardImpl::addDouble(const char* name, double value) {
    return add(name, DoubleNode(value));
}
int OutPostcardImpl::addFloat(const char* name, float value) { return add(name, FloatNode(value)); }
int OutPostcardImpl::addInt64(const char* name, long long value) {
    return add(name, Int64Node(value));
}
int OutPostcardImpl::addUInt64(const char* name, unsigned long long value) {
    return add(name, UInt64Node(value));
}
int OutPostcardImpl::addInt32(const char* name, int value) { return add(name, Int32Node(value)); }
int OutPostcardImpl::addUInt32(const char* name, unsigned int value) {
    return add(name, UInt32Node(value));
}
int OutPostcardImpl::addInt16(const char* name, short value) { return add(name, Int16Node(value)); }
int OutPostcardImpl::addUInt16(const char* name, unsigned short value) {
    return add(name, UInt16Node(value));
}
int OutPostcardImpl::addInt8(const char* name, char value) { return add(name, Int8Node(value)); }
int OutPostcardImpl::addUInt8(const char* name, unsigned char value) {
    return add(name, UInt8Node(value));
}
int OutPostcardImpl::addBool(const char* name, bool value) {
    unsigned char byte = value ? 1 : 0;
    return add(name, BoolNode(byte));
}
int OutPostcardImpl::addPtr(const char* name, void* value) {
    long long word = static_cast<long long>(reinterpret_cast<intptr_t>(value));
    return add(name, Int64Node(word));
}

int OutPostcardImpl::addString(const char* name, const char* value) {
    int result = 0;
    if (name == nullptr) {
        result = 2;
    } else if (value == nullptr) {
        result = 3;
    } else if (addBlobWithType(name, FIELD_TYPE_STRING, value, strlen(value) + 1, true) != 0) {
        result = 4;
    }
    if (result != 0) log_error(kTag, "add string failed %d", result);
    return result;
}

int OutPostcardImpl::addBlob(const char* name, const void* data, size_t length) {
    return addBlobWithType(name, FIELD_TYPE_BLOB, data, length, true);
}

int OutPostcardImpl::addCard(const char* name, const OutPostcard* card) {
    int result = 0;
    // OutPostcardImpl is the only writer there is (see createInstance()).
    const OutPostcardImpl* nested = static_cast<const OutPostcardImpl*>(card);
    if (name == nullptr) {
        result = 2;
    } else if (card == nullptr) {
        result = 3;
    } else if (nested->state_ != 2) {
        result = 4;
    } else if (addBlobWithType(name, FIELD_TYPE_CARD, nested->stream_->getBuffer(),
                               nested->stream_->getSize(), false) != 0) {
        // The nested bytes start with their own length word: no extra one.
        result = 5;
    }
    if (result != 0) log_error(kTag, "add card failed %d", result);
    return result;
}

int OutPostcardImpl::addArrayDouble(const char* name, int count, const double* values) {
    return addArray(name, FIELD_TYPE_ARRAY_DOUBLE, count, values);
}
int OutPostcardImpl::addArrayFloat(const char* name, int count, const float* values) {
    return addArray(name, FIELD_TYPE_ARRAY_FLOAT, count, values);
}
int OutPostcardImpl::addArrayInt64(const char* name, int count, const long long* values) {
    return addArray(name, FIELD_TYPE_ARRAY_INT64, count, values);
}
int OutPostcardImpl::addArrayUInt64(const char* name, int count, const unsigned long long* values) {
    return addArray(name, FIELD_TYPE_ARRAY_UINT64, count, values);
}
int OutPostcardImpl::addArrayInt32(const char* name, int count, const int* values) {
    return addArray(name, FIELD_TYPE_ARRAY_INT32, count, values);
}
int OutPostcardImpl::addArrayUInt32(const char* name, int count, const unsigned int* values) {
    return addArray(name, FIELD_TYPE_ARRAY_UINT32, count, values);
}
int OutPostcardImpl::addArrayInt16(const char* name, int count, const short* values) {
    return addArray(name, FIELD_TYPE_ARRAY_INT16, count, values);
}
int OutPostcardImpl::addArrayUInt16(const char* name, int count, const unsigned short* values) {
    return addArray(name, FIELD_TYPE_ARRAY_UINT16, count, values);
}
int OutPostcardImpl::addArrayInt8(const char* name, int count, const char* values) {
    return addArray(name, FIELD_TYPE_ARRAY_INT8, count, values);
}
int OutPostcardImpl::addArrayUInt8(const char* name, int count, const unsigned char* values) {
    return addArray(name, FIELD_TYPE_ARRAY_UINT8, count, values);
}
int OutPostcardImpl::addArrayBool(const char* name, int count, const bool* values) {
    static_assert(sizeof(bool) == 1, "bool arrays travel as one byte per element");
    return addArray(name, FIELD_TYPE_ARRAY_BOOL, count, values);
}
int OutPostcardImpl::addArrayPtr(const char* name, int count, void* const* values) {
    static_assert(sizeof(void*) == 8, "pointer arrays travel as 64-bit integers");
    return addArray(name, FIELD_TYPE_ARRAY_INT64, count, values);
}

}  // namespace vel_loc_fw
