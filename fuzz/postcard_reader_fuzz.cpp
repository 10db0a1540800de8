// Feeds arbitrary bytes to the postcard reader and looks up every field type,
// descending into nested cards. Every lookup must return a code; the
// sanitizers catch any read outside the input, leak or undefined behaviour.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <memory>

#include <vel_loc_fw/memory_stream.h>
#include <vel_loc_fw/postcard.h>

namespace {

using vel_loc_fw::InMemoryStream;
using vel_loc_fw::InPostcard;

// The seed postcards use these names, so mutations keep hitting real fields.
constexpr const char* kNames[] = {"A", "B", "card"};
constexpr int kMaxDepth = 6;

// Keeps the compiler from dropping reads whose values are otherwise unused.
volatile uint64_t g_sink = 0;

void consume_bytes(const void* data, size_t length) {
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < length; ++i) g_sink = g_sink + bytes[i];
}

template <typename T>
void consume(const T& value) {
    consume_bytes(&value, sizeof(T));
}

template <typename T>
void read_array(InPostcard* card, const char* name, int (InPostcard::*get)(const char*, int*, T*)) {
    int count = 0;
    if ((card->*get)(name, &count, nullptr) != 0 || count <= 0) return;
    T small[1] = {};
    int room = 1;
    if (count > 1) (card->*get)(name, &room, small);  // too little room: refused, nothing written
    if (count > (1 << 20)) return;
    // Not std::vector: vector<bool> has no element array to fill.
    std::unique_ptr<T[]> values(new T[static_cast<size_t>(count)]);
    room = count;
    if ((card->*get)(name, &room, values.get()) == 0) {
        for (int i = 0; i < room; ++i) consume(values[i]);
    }
}

// Reads `name` with a simple getter, then with its optional twin.
template <typename T>
void read_simple(InPostcard* card, const char* name, int (InPostcard::*get)(const char*, T&),
                 int (InPostcard::*get_optional)(const char*, T&)) {
    T value{};
    if ((card->*get)(name, value) == 0) consume(value);
    if (get_optional != nullptr) (card->*get_optional)(name, value);
}

void read_all(InPostcard* card, int depth) {
    for (const char* name : kNames) {
        read_simple(card, name, &InPostcard::getDouble, &InPostcard::getDoubleOptional);
        read_simple(card, name, &InPostcard::getFloat, &InPostcard::getFloatOptional);
        read_simple(card, name, &InPostcard::getInt64, &InPostcard::getInt64Optional);
        read_simple(card, name, &InPostcard::getUInt64, &InPostcard::getUInt64Optional);
        read_simple(card, name, &InPostcard::getInt32, &InPostcard::getInt32Optional);
        read_simple(card, name, &InPostcard::getUInt32, &InPostcard::getUInt32Optional);
        read_simple(card, name, &InPostcard::getInt16, &InPostcard::getInt16Optional);
        read_simple(card, name, &InPostcard::getUInt16, &InPostcard::getUInt16Optional);
        read_simple(card, name, &InPostcard::getInt8, &InPostcard::getInt8Optional);
        read_simple(card, name, &InPostcard::getUInt8, &InPostcard::getUInt8Optional);
        read_simple(card, name, &InPostcard::getBool, &InPostcard::getBoolOptional);
        read_simple<void*>(card, name, &InPostcard::getPtr, nullptr);

        const char* text = nullptr;
        if (card->getString(name, &text) == 0) consume_bytes(text, strlen(text));
        card->getStringOptional(name, &text);
        if (card->getStringDup(name, &text) == 0) {
            consume_bytes(text, strlen(text));
            delete[] text;
        }
        const void* blob = nullptr;
        size_t blob_length = 0;
        if (card->getBlob(name, &blob, &blob_length) == 0) consume_bytes(blob, blob_length);

        read_array(card, name, &InPostcard::getArrayDouble);
        read_array(card, name, &InPostcard::getArrayFloat);
        read_array(card, name, &InPostcard::getArrayInt64);
        read_array(card, name, &InPostcard::getArrayUInt64);
        read_array(card, name, &InPostcard::getArrayInt32);
        read_array(card, name, &InPostcard::getArrayUInt32);
        read_array(card, name, &InPostcard::getArrayInt16);
        read_array(card, name, &InPostcard::getArrayUInt16);
        read_array(card, name, &InPostcard::getArrayInt8);
        read_array(card, name, &InPostcard::getArrayUInt8);
        read_array(card, name, &InPostcard::getArrayBool);
        read_array(card, name, &InPostcard::getArrayPtr);

        if (depth >= kMaxDepth) continue;
        for (int index = 0; index < 2; ++index) {
            InPostcard* nested = nullptr;
            if (card->getCard(name, &nested, index) != 0) break;
            read_all(nested, depth + 1);
            delete nested;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    // Borrowed buffer: the reader must stay inside the fuzzer's exact-sized copy.
    std::unique_ptr<InPostcard> reader(InPostcard::createInstance());
    if (reader == nullptr || reader->init(data, size, false) != 0) return 0;
    read_all(reader.get(), 0);

    // Owned buffer through a stream: the same walk, plus clone and release.
    if (data[0] & 1) {
        uint8_t* owned = new uint8_t[size];
        memcpy(owned, data, size);
        std::unique_ptr<InMemoryStream> stream(InMemoryStream::createInstance());
        const void* handed = owned;
        if (stream == nullptr || stream->setBufferOwnership(&handed, size) != 0) {
            delete[] owned;
            return 0;
        }
        std::unique_ptr<InPostcard> from_stream(InPostcard::createInstance(stream->clone()));
        if (from_stream != nullptr) read_all(from_stream.get(), kMaxDepth - 1);
    }
    return 0;
}
