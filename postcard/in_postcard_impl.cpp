// Postcard reader: walks the field records of a postcard in place.
//
// Every byte comes through the stream's bounded extract(), so a postcard that
// lies about its lengths makes a lookup fail with a code; it never makes the
// reader touch memory outside its buffer.
#include "postcard/postcard_impl.h"

#include <string.h>

#include <new>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {
namespace {

constexpr const char kTag[] = "InPostcard";

}  // namespace

InPostcard::~InPostcard() = default;

InPostcard* InPostcard::createInstance() { return new (std::nothrow) InPostcardImpl(); }

InPostcard* InPostcard::createInstance(InMemoryStream* stream) {
    return new (std::nothrow) InPostcardImpl(stream);
}

InPostcard* InPostcard::createInstance(OutPostcard* out) {
    return new (std::nothrow) InPostcardImpl(out);
}

InPostcardImpl::InPostcardImpl(InMemoryStream* stream) {
    if (stream == nullptr) {
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", 2);
        return;
    }
    stream_ = stream;
    state_ = 1;
}

InPostcardImpl::InPostcardImpl(OutPostcard* out) {
    if (out == nullptr) {
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", 2);
        return;
    }
    stream_ = new (std::nothrow) InMemoryStreamImpl(out->getInternalBuffer());
    if (stream_ == nullptr) {
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", 3);
        return;
    }
    state_ = 1;
}

InPostcardImpl::~InPostcardImpl() { delete stream_; }

int InPostcardImpl::init(const void* buffer, size_t size, bool takeOwnership) {
    int result = 0;
    if (buffer == nullptr) {
        result = 2;
    } else if (size == 0) {
        result = 3;
    } else {
        delete stream_;
        stream_ = new (std::nothrow) InMemoryStreamImpl();
        if (stream_ == nullptr) {
            result = 4;
        } else if (takeOwnership) {
            if (stream_->setBufferOwnership(&buffer, size) != 0) result = 5;
        } else if (stream_->setBuffer(buffer, size) != 0) {
            result = 6;
        }
    }
    if (result != 0) {
        log_error(kTag, "init failed %d", result);
        return result;
    }
    state_ = 1;
    return 0;
}

int InPostcardImpl::skipValueByType(unsigned short type) {
    int result = 0;
    size_t width = 0;
    switch (type) {
        case FIELD_TYPE_INVALID: result = 100; break;
        case FIELD_TYPE_CARD:
        case FIELD_TYPE_STRING: {
            // For a card this is the nested postcard's own body length, so the
            // skip lands right behind the nested postcard.
            uint32_t length = 0;
            if (stream_->extract(&length, sizeof(length)) != 0) {
                result = 102;
            } else if (length == 0) {
                result = 103;
            } else {
                width = length;
            }
            break;
        }
        case FIELD_TYPE_INT64:
        case FIELD_TYPE_UINT64:
        case FIELD_TYPE_DOUBLE: width = 8; break;
        case FIELD_TYPE_INT32:
        case FIELD_TYPE_UINT32:
        case FIELD_TYPE_FLOAT: width = 4; break;
        case FIELD_TYPE_INT16:
        case FIELD_TYPE_UINT16: width = 2; break;
        case FIELD_TYPE_INT8:
        case FIELD_TYPE_UINT8:
        case FIELD_TYPE_BOOL: width = 1; break;
        case FIELD_TYPE_BLOB:
        case FIELD_TYPE_ARRAY_INT64:
        case FIELD_TYPE_ARRAY_UINT64:
        case FIELD_TYPE_ARRAY_INT32:
        case FIELD_TYPE_ARRAY_UINT32:
        case FIELD_TYPE_ARRAY_INT16:
        case FIELD_TYPE_ARRAY_UINT16:
        case FIELD_TYPE_ARRAY_INT8:
        case FIELD_TYPE_ARRAY_UINT8:
        case FIELD_TYPE_ARRAY_BOOL:
        case FIELD_TYPE_ARRAY_DOUBLE:
        case FIELD_TYPE_ARRAY_FLOAT: {
            uint32_t length = 0;
            if (stream_->extract(&length, sizeof(length)) != 0) {
                result = 104;
            } else if (length == 0) {
                result = 2;
            } else {
                width = length;
            }
            break;
        }
        default: result = 101; break;
    }
    if (result == 0 && stream_->extract(nullptr, width) != 0) result = 3;
    if (result != 0) log_error(kTag, "skipValueByType failed %d, type %u", result, type);
    return result;
}

namespace {

// How a value of each type code is laid out: its width for simple values,
// kLengthPrefixed for a length word and that many bytes, 0 for codes that are
// refused.
constexpr uint8_t kLengthPrefixed = 0xFF;
// clang-format off
constexpr uint8_t kValueLayout[] = {
        0, kLengthPrefixed, 0, 0, 0, 0, 0, 0, 0, 0,                        // 0-9
        8, 8, 4, 4, 2, 2, 1, 1, 1, kLengthPrefixed,                          // 10-19
        kLengthPrefixed, 8, 4, 0, 0, 0, 0, 0, 0, 0,                          // 20-29
        kLengthPrefixed, kLengthPrefixed, kLengthPrefixed, kLengthPrefixed,  // 30-33
        kLengthPrefixed, kLengthPrefixed, kLengthPrefixed, kLengthPrefixed,  // 34-37
        kLengthPrefixed, kLengthPrefixed, kLengthPrefixed,                   // 38-40
};
// clang-format on

// Bytes taken by a value of `type` that starts at `value`, with `room` bytes
// left in the buffer, or 0 when the value cannot be skipped plainly (refused
// type, missing or zero length word); skipValueByType() reports those.
uint64_t plain_value_width(unsigned short type, const uint8_t* value, uint64_t room) {
    if (type >= sizeof(kValueLayout)) return 0;
    const uint8_t layout = kValueLayout[type];
    if (layout != kLengthPrefixed) return layout;
    uint32_t length = 0;
    if (room < sizeof(length)) return 0;
    memcpy(&length, value, sizeof(length));
    return length == 0 ? 0 : sizeof(length) + static_cast<uint64_t>(length);
}

}  // namespace

int InPostcardImpl::findField(unsigned short type, const char* name, int index) {
    int result = 0;
    int field_no = 0;
    uint32_t body_length = 0;
    size_t name_length = 0;
    if (name == nullptr) {
        result = 2;
    } else if (stream_->setGetCursor(0) != 0) {
        result = 3;
    } else if (stream_->extract(&body_length, sizeof(body_length)) != 0) {
        result = 4;
    } else if ((name_length = strlen(name)) == 0) {
        result = 5;
    }
    // The body length is trusted as the walk's end; reads beyond the real
    // buffer are stopped by extract().
    const uint64_t end = static_cast<uint64_t>(body_length) + sizeof(body_length);
    int matches = 0;
    if (result == 0) {
        // Fast walk straight over the buffer while records are wholly inside
        // it. The first record that is not is handed, from its start, to the
        // stream-based walk below, which reports what is wrong with it.
        const uint8_t* bytes = static_cast<const uint8_t*>(stream_->getBuffer());
        const uint64_t size = stream_->getEndCursor();
        uint64_t pos = sizeof(body_length);
        while (pos < end) {
            if (end - pos == 1) {
                stream_->setGetCursor(pos);
                return -1;  // only the end byte is left
            }
            if (size - pos < 2 * sizeof(uint16_t)) break;
            uint16_t field_type = 0;
            uint16_t stored_length = 0;
            memcpy(&field_type, bytes + pos, sizeof(field_type));
            memcpy(&stored_length, bytes + pos + sizeof(field_type), sizeof(stored_length));
            const uint64_t name_pos = pos + 2 * sizeof(uint16_t);
            if (stored_length == 0 || size - name_pos < stored_length) break;
            const uint64_t value_pos = name_pos + stored_length;
            const bool match = field_type == type && stored_length == name_length + 1 &&
                               memcmp(bytes + name_pos, name, name_length) == 0;
            if (match && matches == index) {
                stream_->setGetCursor(value_pos);
                return 0;
            }
            const uint64_t width =
                    plain_value_width(field_type, bytes + value_pos, size - value_pos);
            if (width == 0 || width > size - value_pos) break;
            if (match) ++matches;
            pos = value_pos + width;
            ++field_no;
        }
        stream_->setGetCursor(pos);
    }
    while (result == 0) {
        const uint64_t pos = stream_->getGetCursor();
        if (pos >= end) {
            result = 101;
            break;
        }
        if (end - pos == 1) return -1;  // only the end byte is left
        uint16_t field_type = 0;
        uint16_t stored_length = 0;
        if (stream_->extract(&field_type, sizeof(field_type)) != 0) {
            result = 102;
            break;
        }
        if (stream_->extract(&stored_length, sizeof(stored_length)) != 0) {
            result = 103;
            break;
        }
        // Compare only when the stored name is wholly inside the buffer; when
        // it is not, skipping it fails below anyway.
        const size_t name_pos = stream_->getGetCursor();
        const bool match = field_type == type && stored_length == name_length + 1 &&
                           stream_->getEndCursor() - name_pos >= stored_length &&
                           memcmp(static_cast<const uint8_t*>(stream_->getBuffer()) + name_pos,
                                  name, name_length) == 0;
        if (stream_->extract(nullptr, stored_length) != 0) {
            result = 104;
            break;
        }
        if (match) {
            if (matches == index) return 0;
            ++matches;
        }
        if (skipValueByType(field_type) != 0) {
            result = 105;
            break;
        }
        ++field_no;
    }
    log_error(kTag, "findName failed %d, field index %d", result, field_no);
    return result;
}

template <typename Node>
int InPostcardImpl::getSimple(const char* name, Node& node) {
    int result = 0;
    if (name == nullptr) {
        result = 2;
    } else {
        const int found = findField(Node::field_type, name, 0);
        if (found == -1) return -1;
        if (found != 0) {
            result = 3;
        } else if (stream_->extract(&node.value, sizeof(node.value)) != 0) {
            result = 4;
        }
    }
    if (result != 0) log_error(kTag, "get simple failed %d", result);
    return result;
}

int InPostcardImpl::getBlobByType(const char* name, eFieldType type, const void** data,
                                  size_t* length, bool hasLength, int index) {
    int result = 0;
    uint32_t stored_length = 0;
    size_t pos = 0;
    if (name == nullptr) {
        result = 2;
    } else if (data == nullptr) {
        result = 3;
    } else {
        *data = nullptr;
        if (length == nullptr) result = 3;
    }
    if (result == 0) {
        *length = 0;
        const int found = findField(type, name, index);
        if (found == -1) return -1;
        pos = stream_->getGetCursor();
        if (found != 0) {
            result = 4;
        } else if (stream_->extract(&stored_length, sizeof(stored_length)) != 0) {
            result = 5;
        } else if (stream_->extract(nullptr, stored_length) != 0) {
            result = 7;
        }
    }
    if (result != 0) {
        log_error(kTag, "get blob failed %d", result);
        return result;
    }
    const uint8_t* at = static_cast<const uint8_t*>(stream_->getBuffer()) + pos;
    *length = stored_length;
    *data = hasLength ? at + sizeof(stored_length) : at;
    return 0;
}

int InPostcardImpl::getString(const char* name, const char** value) {
    int result = 0;
    const void* data = nullptr;
    size_t length = 0;
    if (name == nullptr) {
        result = 2;
    } else if (value == nullptr) {
        result = 3;
    } else {
        *value = nullptr;
        const int found = getBlobByType(name, FIELD_TYPE_STRING, &data, &length, true, 0);
        if (found == -1) return -1;
        if (found != 0) {
            result = 4;
        } else if (length == 0) {
            result = 5;
        } else if (data == nullptr) {
            result = 6;
        } else if (static_cast<const char*>(data)[length - 1] != '\0') {
            result = 7;
        }
    }
    if (result != 0) {
        log_error(kTag, "get string failed %d", result);
        return result;
    }
    *value = static_cast<const char*>(data);
    return 0;
}

int InPostcardImpl::getStringDup(const char* name, const char** value) {
    int result = 0;
    const char* text = nullptr;
    char* copy = nullptr;
    if (value == nullptr) {
        result = 2;
    } else {
        const int found = getString(name, &text);
        if (found == -1) return -1;
        if (found != 0) {
            result = 3;
        } else {
            const size_t size = strlen(text) + 1;
            copy = new (std::nothrow) char[size];
            if (copy == nullptr) {
                result = 4;
            } else {
                memcpy(copy, text, size);
            }
        }
    }
    if (result != 0) {
        log_error(kTag, "get string duplicate failed %d", result);
        return result;
    }
    *value = copy;
    return 0;
}

namespace {

// Array elements are copied as they are stored, except bools: a stored byte
// other than 0 or 1 must not become an invalid bool.
template <typename T>
void copy_elements(T* values, const void* data, size_t count) {
    memcpy(values, data, count * sizeof(T));
}

template <>
void copy_elements<bool>(bool* values, const void* data, size_t count) {
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < count; ++i) values[i] = bytes[i] != 0;
}

}  // namespace

template <typename T>
int InPostcardImpl::getArray(const char* name, eFieldType type, int* count, T* values) {
    int result = 0;
    const void* data = nullptr;
    size_t length = 0;
    size_t element_count = 0;
    if (name == nullptr) {
        result = 2;
    } else if (count == nullptr) {
        result = 3;
    } else if (getBlobByType(name, type, &data, &length, true, 0) != 0) {
        result = 4;  // not found is an error here
    } else if (length % sizeof(T) != 0) {
        result = 5;
    } else if ((element_count = length / sizeof(T)) == 0) {
        result = 6;
    } else if (values != nullptr) {
        if (*count < 0 || static_cast<size_t>(*count) < element_count) {
            result = 7;
        } else {
            copy_elements(values, data, element_count);
        }
    }
    if (result != 0) {
        log_error(kTag, "getArray failed %d", result);
        return result;
    }
    *count = static_cast<int>(element_count);
    return 0;
}

// --- simple getters ---

int InPostcardImpl::getDouble(const char* name, double& value) {
    DoubleNode node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getFloat(const char* name, float& value) {
    FloatNode node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getInt64(const char* name, long long& value) {
    Int64Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getUInt64(const char* name, unsigned long long& value) {
    UInt64Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getInt32(const char* name, int& value) {
    Int32Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getUInt32(const char* name, unsigned int& value) {
    UInt32Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getInt16(const char* name, short& value) {
    Int16Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getUInt16(const char* name, unsigned short& value) {
    UInt16Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getInt8(const char* name, char& value) {
    Int8Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getUInt8(const char* name, unsigned char& value) {
    UInt8Node node(value);
    return getSimple(name, node);
}
int InPostcardImpl::getBool(const char* name, bool& value) {
    // Read as the stored byte: any nonzero byte is true.
    unsigned char byte = 0;
    BoolNode node(byte);
    const int result = getSimple(name, node);
    if (result == 0) value = byte != 0;
    return result;
}
int InPostcardImpl::getPtr(const char* name, void*& value) {
    long long word = 0;
    Int64Node node(word);
    const int result = getSimple(name, node);
    if (result == 0) value = reinterpret_cast<void*>(static_cast<intptr_t>(word));
    return result;
}

// --- optional getters: a missing field is not an error ---

namespace {

int optional_result(int result) { return result == -1 ? 0 : result; }

}  // namespace

int InPostcardImpl::getDoubleOptional(const char* name, double& value) {
    return optional_result(getDouble(name, value));
}
int InPostcardImpl::getFloatOptional(const char* name, float& value) {
    return optional_result(getFloat(name, value));
}
int InPostcardImpl::getInt64Optional(const char* name, long long& value) {
    return optional_result(getInt64(name, value));
}
int InPostcardImpl::getUInt64Optional(const char* name, unsigned long long& value) {
    return optional_result(getUInt64(name, value));
}
int InPostcardImpl::getInt32Optional(const char* name, int& value) {
    return optional_result(getInt32(name, value));
}
int InPostcardImpl::getUInt32Optional(const char* name, unsigned int& value) {
    return optional_result(getUInt32(name, value));
}
int InPostcardImpl::getInt16Optional(const char* name, short& value) {
    return optional_result(getInt16(name, value));
}
int InPostcardImpl::getUInt16Optional(const char* name, unsigned short& value) {
    return optional_result(getUInt16(name, value));
}
int InPostcardImpl::getInt8Optional(const char* name, char& value) {
    return optional_result(getInt8(name, value));
}
int InPostcardImpl::getUInt8Optional(const char* name, unsigned char& value) {
    return optional_result(getUInt8(name, value));
}
int InPostcardImpl::getBoolOptional(const char* name, bool& value) {
    return optional_result(getBool(name, value));
}
int InPostcardImpl::getStringOptional(const char* name, const char** value) {
    // getString() clears `*value` first; a missing field must leave it as it was.
    const char* found = nullptr;
    const int result = getString(name, value != nullptr ? &found : nullptr);
    if (result == 0) *value = found;
    return optional_result(result);
}

// --- blobs, cards and arrays ---

int InPostcardImpl::getBlob(const char* name, const void** data, size_t* length) {
    return getBlobByType(name, FIELD_TYPE_BLOB, data, length, true, 0);
}

int InPostcardImpl::getCard(const char* name, InPostcard** card, int index) {
    int result = 0;
    const void* data = nullptr;
    size_t body_length = 0;
    if (name == nullptr) {
        result = 2;
    } else if (card == nullptr) {
        result = 3;
    } else {
        *card = nullptr;
        const int found = getBlobByType(name, FIELD_TYPE_CARD, &data, &body_length, false, index);
        if (found == -1) return -1;
        if (found != 0) result = 4;
    }
    InPostcardImpl* nested = nullptr;
    if (result == 0 && (nested = new (std::nothrow) InPostcardImpl()) == nullptr) result = 8;
    // The nested reader borrows the bytes in this reader's buffer.
    if (result == 0 && nested->init(data, body_length + sizeof(uint32_t), false) != 0) {
        delete nested;
        result = 9;
    }
    if (result != 0) {
        log_error(kTag, "get card failed %d", result);
        return result;
    }
    *card = nested;
    return 0;
}

int InPostcardImpl::getArrayDouble(const char* name, int* count, double* values) {
    return getArray(name, FIELD_TYPE_ARRAY_DOUBLE, count, values);
}
int InPostcardImpl::getArrayFloat(const char* name, int* count, float* values) {
    return getArray(name, FIELD_TYPE_ARRAY_FLOAT, count, values);
}
int InPostcardImpl::getArrayInt64(const char* name, int* count, long long* values) {
    return getArray(name, FIELD_TYPE_ARRAY_INT64, count, values);
}
int InPostcardImpl::getArrayUInt64(const char* name, int* count, unsigned long long* values) {
    return getArray(name, FIELD_TYPE_ARRAY_UINT64, count, values);
}
int InPostcardImpl::getArrayInt32(const char* name, int* count, int* values) {
    return getArray(name, FIELD_TYPE_ARRAY_INT32, count, values);
}
int InPostcardImpl::getArrayUInt32(const char* name, int* count, unsigned int* values) {
    return getArray(name, FIELD_TYPE_ARRAY_UINT32, count, values);
}
int InPostcardImpl::getArrayInt16(const char* name, int* count, short* values) {
    return getArray(name, FIELD_TYPE_ARRAY_INT16, count, values);
}
int InPostcardImpl::getArrayUInt16(const char* name, int* count, unsigned short* values) {
    return getArray(name, FIELD_TYPE_ARRAY_UINT16, count, values);
}
int InPostcardImpl::getArrayInt8(const char* name, int* count, char* values) {
    return getArray(name, FIELD_TYPE_ARRAY_INT8, count, values);
}
int InPostcardImpl::getArrayUInt8(const char* name, int* count, unsigned char* values) {
    return getArray(name, FIELD_TYPE_ARRAY_UINT8, count, values);
}
int InPostcardImpl::getArrayBool(const char* name, int* count, bool* values) {
    return getArray(name, FIELD_TYPE_ARRAY_BOOL, count, values);
}
int InPostcardImpl::getArrayPtr(const char* name, int* count, void** values) {
    return getArray(name, FIELD_TYPE_ARRAY_INT64, count, values);
}

}  // namespace vel_loc_fw
