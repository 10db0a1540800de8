// Postcard reader: walks the field records of a postcard in place.
//
// Every read is bounded by the stream's size, so a postcard that lies about
// its lengths makes a lookup fail with a code; it never makes the reader
// touch memory outside its buffer.
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
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", CreateResult::kNoStream);
        return;
    }
    stream_ = stream;
    state_ = 1;
}

InPostcardImpl::InPostcardImpl(OutPostcard* out) {
    if (out == nullptr) {
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", CreateResult::kNoStream);
        return;
    }
    own_stream_ = new (std::nothrow) InMemoryStreamImpl(out->getInternalBuffer());
    stream_ = own_stream_;
    if (stream_ == nullptr) {
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", CreateResult::kNoMemory);
        return;
    }
    state_ = 1;
}

InPostcardImpl::~InPostcardImpl() { delete stream_; }

int InPostcardImpl::init(const void* buffer, size_t size, bool takeOwnership) {
    int result = InitResult::kOk;
    if (buffer == nullptr) {
        result = InitResult::kNullBuffer;
    } else if (size == 0) {
        result = InitResult::kEmpty;
    } else {
        delete stream_;
        own_stream_ = new (std::nothrow) InMemoryStreamImpl();
        stream_ = own_stream_;
        if (stream_ == nullptr) {
            result = InitResult::kNoMemory;
        } else if (takeOwnership) {
            if (own_stream_->setBufferOwnership(&buffer, size) != 0) {
                result = InitResult::kOwnershipRefused;
            }
        } else if (own_stream_->setBuffer(buffer, size) != 0) {
            result = InitResult::kBufferRefused;
        }
    }
    if (result != InitResult::kOk) {
        log_error(kTag, "init failed %d", result);
        return result;
    }
    state_ = 1;
    return 0;
}

namespace {

// How a value of each type code is laid out on the wire. Fixed-width values
// are their own bytes; the others are a 32-bit length word and that many
// bytes, where strings and cards (whose word is the nested body length)
// report their faults under other codes than blobs and arrays.
enum ValueLayout : uint8_t {
    kRefused = 0,  // type 0 and unknown codes
    kWidth1 = 1,
    kWidth2 = 2,
    kWidth4 = 4,
    kWidth8 = 8,
    kTextLength = 0x40,  // card (1), string (19)
    kBlobLength = 0x80,  // blob (20), arrays (30-40)
};

// clang-format off
constexpr ValueLayout kValueLayout[] = {
        kRefused,    kTextLength, kRefused,    kRefused,    kRefused,     // 0-4
        kRefused,    kRefused,    kRefused,    kRefused,    kRefused,     // 5-9
        kWidth8,     kWidth8,     kWidth4,     kWidth4,     kWidth2,      // 10-14
        kWidth2,     kWidth1,     kWidth1,     kWidth1,     kTextLength,  // 15-19
        kBlobLength, kWidth8,     kWidth4,     kRefused,    kRefused,     // 20-24
        kRefused,    kRefused,    kRefused,    kRefused,    kRefused,     // 25-29
        kBlobLength, kBlobLength, kBlobLength, kBlobLength, kBlobLength,  // 30-34
        kBlobLength, kBlobLength, kBlobLength, kBlobLength, kBlobLength,  // 35-39
        kBlobLength,                                                      // 40
};
// clang-format on

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

ValueLayout layout_of(unsigned short type) {
    return type < sizeof(kValueLayout) ? kValueLayout[type] : kRefused;
}

}  // namespace

// A read that does not fit: made through the stream at `pos`, which reports
// it ("extract error %d") and returns its code.
__attribute__((noinline)) int extract_through(InMemoryStream* stream, uint64_t pos, void* dest,
                                              uint64_t length) {
    stream->setGetCursor(pos);
    return stream->extract(dest, length);
}

// A word of `width` bytes that does not fit, read through the stream at
// `pos`: its value, or minus the stream's code. Returned by value so that the
// callers' fast paths keep their words in registers.
__attribute__((noinline)) int64_t word_through(InMemoryStream* stream, uint64_t pos,
                                               uint64_t width) {
    uint32_t word = 0;
    const int code = extract_through(stream, pos, &word, width);
    return code != 0 ? -static_cast<int64_t>(code) : static_cast<int64_t>(word);
}

// The one reader of the record grammar: field records are walked with this
// cursor over the stream's bytes, in place. Every read is bounds-checked; one
// that does not fit is made through the stream instead, so that each failure
// is reported and coded exactly as if every piece had been extracted from the
// stream. A plain value, so that a walk keeps it in registers; sync() moves
// the stream's get cursor to it.
struct InPostcardImpl::RecordCursor {
    InMemoryStream* stream;
    InMemoryStreamImpl* own;  // `stream` when its class is known, else null
    const uint8_t* bytes;
    uint64_t size;  // at most `pos` when `bytes` is null, so that has() is one test
    uint64_t pos;

    // True when the next `length` bytes are inside the buffer.
    bool has(uint64_t length) const { return size - pos >= length; }

    // Reads the next `length` bytes into `dest` (null: skips them). Returns 0,
    // or the stream's code when they are not there (length 0 included).
    int take(void* dest, uint64_t length) {
        if (length == 0 || !has(length)) return extract_through(stream, pos, dest, length);
        if (dest != nullptr) memcpy(dest, bytes + pos, length);
        pos += length;
        return 0;
    }

    // Reads the next little-endian word of `T` (16 or 32 bits): its value, or
    // minus the stream's code.
    template <typename T>
    int64_t word() {
        if (!has(sizeof(T))) return word_through(stream, pos, sizeof(T));
        T value;
        memcpy(&value, bytes + pos, sizeof(T));
        pos += sizeof(T);
        return value;
    }

    // Moves past one value of `type`. Returns a SkipResult code.
    int skipValue(unsigned short type) {
        const ValueLayout layout = layout_of(type);
        if (layout == kRefused) {
            return type == FIELD_TYPE_INVALID ? SkipResult::kInvalidType : SkipResult::kUnknownType;
        }
        uint64_t width = layout;
        if (layout == kTextLength || layout == kBlobLength) {
            const bool text = layout == kTextLength;
            const int64_t length = word<uint32_t>();
            if (length < 0) return text ? SkipResult::kNoTextLength : SkipResult::kNoBlobLength;
            if (length == 0) return text ? SkipResult::kEmptyText : SkipResult::kEmptyBlob;
            width = static_cast<uint64_t>(length);
        }
        return take(nullptr, width) == 0 ? SkipResult::kOk : SkipResult::kCut;
    }

    void sync() const {
        if (own != nullptr) {
            own->setGetCursor(pos);
        } else {
            stream->setGetCursor(pos);
        }
    }
};

inline InPostcardImpl::RecordCursor InPostcardImpl::cursor(bool at_start) {
    RecordCursor at = {stream_, own_stream_, nullptr, 0, 0};
    if (own_stream_ != nullptr) {
        at.bytes = static_cast<const uint8_t*>(own_stream_->getBuffer());
        at.size = own_stream_->getEndCursor();
        at.pos = at_start ? 0 : own_stream_->getGetCursor();
    } else {
        at.bytes = static_cast<const uint8_t*>(stream_->getBuffer());
        at.size = stream_->getEndCursor();
        at.pos = at_start ? 0 : stream_->getGetCursor();
    }
    // Without bytes every read goes through the stream.
    if (at.bytes == nullptr || at.pos > at.size) at.size = at.pos;
    return at;
}

int InPostcardImpl::skipValueByType(unsigned short type) {
    RecordCursor at = cursor(false);
    const int result = at.skipValue(type);
    at.sync();
    if (result != SkipResult::kOk) reportSkip(result, type);
    return result;
}

void InPostcardImpl::reportSkip(int result, unsigned short type) {
    log_error(kTag, "skipValueByType failed %d, type %u", result, type);
}

int InPostcardImpl::reportFind(int result, int field_no) {
    log_error(kTag, "findName failed %d, field index %d", result, field_no);
    return result;
}

int InPostcardImpl::findField(unsigned short type, const char* name, int index) {
    RecordCursor at = {};
    const int result = find(type, name, index, &at);
    if (at.stream != nullptr) at.sync();
    return result;
}

namespace {

// Where and why a walk stopped.
struct WalkEnd {
    uint64_t pos = 0;              // at the value for a match
    int fields = 0;                // fields passed over
    int skip_result = 0;           // for FindResult::kBadValue: what skipping gave,
    unsigned short skip_type = 0;  // and for which type
};

// The walk of findField() over `bytes` (`size` of them) from offset 0, as a
// free function with its cursor in registers. Returns a FindResult code or
// kNotFound, without logging.
int walk_fields(InMemoryStream* stream, const uint8_t* bytes, uint64_t size, unsigned short type,
                const char* name, int index, WalkEnd* end_of_walk) {
    using FindResult = InPostcardImpl::FindResult;
    InPostcardImpl::RecordCursor walk = {stream, nullptr, bytes, size, 0};
    const auto stop = [&](int result, int fields) {
        end_of_walk->pos = walk.pos;
        end_of_walk->fields = fields;
        return result;
    };
    const int64_t body_length = walk.word<uint32_t>();
    if (body_length < 0) return stop(FindResult::kNoBodyLength, 0);
    const size_t name_length = strlen(name);
    if (name_length == 0) return stop(FindResult::kEmptyName, 0);
    // The body length is trusted as the walk's end; reads beyond the real
    // buffer are stopped by the cursor.
    const uint64_t end = static_cast<uint64_t>(body_length) + sizeof(uint32_t);
    int matches = 0;
    for (int fields = 0;; ++fields) {
        if (walk.pos >= end) return stop(FindResult::kPastEnd, fields);
        if (end - walk.pos == 1) return stop(InPostcardImpl::kNotFound, fields);  // end byte
        // The common case in one step: a record wholly inside the buffer.
        // Anything else is read piece by piece below, which reports it.
        if (walk.has(2 * sizeof(uint16_t))) {
            uint32_t head = 0;
            memcpy(&head, walk.bytes + walk.pos, sizeof(head));
            const uint64_t record_type = kLittleEndian ? head & 0xffff : head >> 16;
            const uint64_t record_name = kLittleEndian ? head >> 16 : head & 0xffff;
            const uint64_t value_at = walk.pos + sizeof(head) + record_name;
            if (record_name != 0 && value_at <= walk.size) {
                bool match = record_type == type && record_name == name_length + 1;
                for (size_t i = 0; match && i < name_length; ++i) {
                    match = walk.bytes[walk.pos + sizeof(head) + i] ==
                            static_cast<uint8_t>(name[i]);
                }
                if (match && matches == index) {
                    walk.pos = value_at;
                    return stop(FindResult::kFound, fields);
                }
                const ValueLayout layout = layout_of(static_cast<unsigned short>(record_type));
                uint64_t next = 0;
                if (layout == kTextLength || layout == kBlobLength) {
                    uint32_t length = 0;
                    if (walk.size - value_at >= sizeof(length)) {
                        memcpy(&length, walk.bytes + value_at, sizeof(length));
                        if (length != 0) next = value_at + sizeof(length) + length;
                    }
                } else if (layout != kRefused) {
                    next = value_at + layout;
                }
                if (next != 0 && next <= walk.size) {
                    if (match) ++matches;
                    walk.pos = next;
                    continue;
                }
            }
        }
        // A record the step above cannot pass is malformed or cut short (and
        // not the match sought, which it returns as soon as the name is
        // read). Read piece by piece, it fails at the piece that is wrong,
        // with that piece's code.
        int64_t field_type = 0;
        int64_t stored_length = 0;
        if ((field_type = walk.word<uint16_t>()) < 0) return stop(FindResult::kNoType, fields);
        if ((stored_length = walk.word<uint16_t>()) < 0) {
            return stop(FindResult::kNoNameLength, fields);
        }
        if (walk.take(nullptr, static_cast<uint64_t>(stored_length)) != 0) {
            return stop(FindResult::kNameCut, fields);
        }
        const int skipped = walk.skipValue(static_cast<unsigned short>(field_type));
        if (skipped != InPostcardImpl::SkipResult::kOk) {
            end_of_walk->skip_result = skipped;
            end_of_walk->skip_type = static_cast<unsigned short>(field_type);
            return stop(FindResult::kBadValue, fields);
        }
    }
}

}  // namespace

// findField() without moving the stream's get cursor: on return `*at` (when
// its stream is set) is where the walk stopped, at the value for a match.
int InPostcardImpl::find(unsigned short type, const char* name, int index, RecordCursor* at) {
    if (name == nullptr) return reportFind(FindResult::kNullName, 0);
    // The reader's own stream rewinds without fail, and its cursor is set
    // where the walk ends; another stream is asked.
    if (own_stream_ == nullptr && stream_->setGetCursor(0) != 0) {
        return reportFind(FindResult::kCannotRewind, 0);
    }
    *at = cursor(true);
    WalkEnd end;
    const int result = walk_fields(stream_, at->bytes, at->size, type, name, index, &end);
    at->pos = end.pos;
    if (result == FindResult::kBadValue) reportSkip(end.skip_result, end.skip_type);
    if (result != FindResult::kFound && result != kNotFound) reportFind(result, end.fields);
    return result;
}

template <typename Node>
int InPostcardImpl::getSimple(const char* name, Node& node) {
    if (name == nullptr) {
        log_error(kTag, "get simple failed %d", SimpleResult::kNullName);
        return SimpleResult::kNullName;
    }
    RecordCursor at = {};
    const int found = find(Node::field_type, name, 0, &at);
    int result = SimpleResult::kOk;
    if (found == kNotFound) {
        result = kNotFound;
    } else if (found != FindResult::kFound) {
        result = SimpleResult::kMalformed;
    } else if (at.take(&node.value, sizeof(node.value)) != 0) {
        result = SimpleResult::kValueCut;
    }
    if (at.stream != nullptr) at.sync();
    if (result != SimpleResult::kOk && result != kNotFound) {
        log_error(kTag, "get simple failed %d", result);
    }
    return result;
}

int InPostcardImpl::getBlobByType(const char* name, eFieldType type, const void** data,
                                  size_t* length, bool hasLength, int index) {
    int result = BlobResult::kOk;
    if (name == nullptr) {
        result = BlobResult::kNullName;
    } else if (data == nullptr) {
        result = BlobResult::kNullOutput;
    } else {
        *data = nullptr;
        if (length == nullptr) result = BlobResult::kNullOutput;
    }
    if (result != BlobResult::kOk) {
        log_error(kTag, "get blob failed %d", result);
        return result;
    }
    *length = 0;
    RecordCursor at = {};
    const int found = find(type, name, index, &at);
    const uint64_t pos = at.pos;
    uint32_t stored_length = 0;
    if (found == kNotFound) {
        result = kNotFound;
    } else if (found != FindResult::kFound) {
        result = BlobResult::kMalformed;
    } else if (at.take(&stored_length, sizeof(stored_length)) != 0) {
        result = BlobResult::kNoLength;
    } else if (at.take(nullptr, stored_length) != 0) {
        result = BlobResult::kValueCut;
    }
    if (at.stream != nullptr) at.sync();
    if (result == kNotFound) return kNotFound;
    if (result != BlobResult::kOk) {
        log_error(kTag, "get blob failed %d", result);
        return result;
    }
    const uint8_t* value = at.bytes + pos;
    *length = stored_length;
    *data = hasLength ? value + sizeof(stored_length) : value;
    return 0;
}

int InPostcardImpl::getString(const char* name, const char** value) {
    int result = StringResult::kOk;
    const void* data = nullptr;
    size_t length = 0;
    if (name == nullptr) {
        result = StringResult::kNullName;
    } else if (value == nullptr) {
        result = StringResult::kNullOutput;
    } else {
        *value = nullptr;
        const int found = getBlobByType(name, FIELD_TYPE_STRING, &data, &length, true, 0);
        if (found == kNotFound) return kNotFound;
        if (found != BlobResult::kOk) {
            result = StringResult::kMalformed;
        } else if (length == 0) {
            result = StringResult::kEmpty;
        } else if (data == nullptr) {
            result = StringResult::kNoData;
        } else if (static_cast<const char*>(data)[length - 1] != '\0') {
            result = StringResult::kNotTerminated;
        }
    }
    if (result != StringResult::kOk) {
        log_error(kTag, "get string failed %d", result);
        return result;
    }
    *value = static_cast<const char*>(data);
    return 0;
}

int InPostcardImpl::getStringDup(const char* name, const char** value) {
    int result = StringDupResult::kOk;
    const char* text = nullptr;
    char* copy = nullptr;
    if (value == nullptr) {
        result = StringDupResult::kNullOutput;
    } else {
        const int found = getString(name, &text);
        if (found == kNotFound) return kNotFound;
        if (found != StringResult::kOk) {
            result = StringDupResult::kNoString;
        } else {
            const size_t size = strlen(text) + 1;
            copy = new (std::nothrow) char[size];
            if (copy == nullptr) {
                result = StringDupResult::kNoMemory;
            } else {
                memcpy(copy, text, size);
            }
        }
    }
    if (result != StringDupResult::kOk) {
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
    int result = ArrayResult::kOk;
    const void* data = nullptr;
    size_t length = 0;
    size_t element_count = 0;
    if (name == nullptr) {
        result = ArrayResult::kNullName;
    } else if (count == nullptr) {
        result = ArrayResult::kNullCount;
    } else if (getBlobByType(name, type, &data, &length, true, 0) != BlobResult::kOk) {
        result = ArrayResult::kNotRead;  // not found is an error here
    } else if (length % sizeof(T) != 0) {
        result = ArrayResult::kBadLength;
    } else if ((element_count = length / sizeof(T)) == 0) {
        result = ArrayResult::kEmpty;
    } else if (values != nullptr) {
        if (*count < 0 || static_cast<size_t>(*count) < element_count) {
            result = ArrayResult::kNoRoom;
        } else {
            copy_elements(values, data, element_count);
        }
    }
    if (result != ArrayResult::kOk) {
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

int optional_result(int result) { return result == InPostcardImpl::kNotFound ? 0 : result; }

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
    int result = CardResult::kOk;
    const void* data = nullptr;
    size_t body_length = 0;
    if (name == nullptr) {
        result = CardResult::kNullName;
    } else if (card == nullptr) {
        result = CardResult::kNullOutput;
    } else {
        *card = nullptr;
        const int found = getBlobByType(name, FIELD_TYPE_CARD, &data, &body_length, false, index);
        if (found == kNotFound) return kNotFound;
        if (found != BlobResult::kOk) result = CardResult::kMalformed;
    }
    InPostcardImpl* nested = nullptr;
    if (result == CardResult::kOk && (nested = new (std::nothrow) InPostcardImpl()) == nullptr) {
        result = CardResult::kNoMemory;
    }
    // The nested reader borrows the bytes in this reader's buffer.
    if (result == CardResult::kOk &&
        nested->init(data, body_length + sizeof(uint32_t), false) != InitResult::kOk) {
        delete nested;
        result = CardResult::kUnreadable;
    }
    if (result != CardResult::kOk) {
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
