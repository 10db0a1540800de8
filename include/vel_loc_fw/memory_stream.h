// In-memory byte streams that carry postcards.
//
// `OutMemoryStream` only appends; it grows its buffer as needed. `InMemoryStream`
// reads forward from a get cursor over a buffer it may or may not own. The bytes
// of an output stream can be handed to a new input stream without copying:
//
//   vel_loc_fw::OutMemoryStream* out = vel_loc_fw::OutMemoryStream::createInstance();
//   out->append(&word, sizeof(word));
//   vel_loc_fw::InMemoryStream* in = vel_loc_fw::InMemoryStream::createInstance(out);
//   // `out` is now empty; `in` owns and reads the bytes.
//
// Failures are logged under "MemoryStream" and returned as int codes (0 is
// success). A stream is used by one thread at a time; there is no locking.
#pragma once

#include <stddef.h>

#include <vel_loc_fw/fw_export.h>

namespace vel_loc_fw {

class VEL_LOC_FW_EXPORT MemoryStreamBase {
  public:
    virtual ~MemoryStreamBase();

    // Number of valid bytes in the stream.
    virtual size_t getSize() const = 0;
    // The stream's bytes (null when it has none); owned by the stream.
    virtual const void* getBuffer() const = 0;
};

class VEL_LOC_FW_EXPORT OutMemoryStream : public MemoryStreamBase {
  public:
    ~OutMemoryStream() override;

    using MemoryStreamBase::getBuffer;
    // Same pointer as the const overload; still owned by the stream.
    virtual void* getBuffer() = 0;
    // Appends `length` bytes of `data`, growing the buffer first when needed.
    // Returns 2 (nothing written) when the room cannot be made, which includes
    // `length` 0: empty appends are refused.
    virtual int append(const void* data, size_t length) = 0;
    // Bytes written so far.
    virtual size_t getPutCursor() const = 0;

    // Returns an empty stream (no buffer until the first append), or null when
    // out of memory. The caller deletes it.
    static OutMemoryStream* createInstance();
};

class VEL_LOC_FW_EXPORT InMemoryStream : public MemoryStreamBase {
  public:
    ~InMemoryStream() override;

    // Installs `*pBuffer` (allocated with new[]) as the stream's buffer and takes
    // it over: `*pBuffer` is set to null and the stream delete[]s it later.
    // Returns 2 when `pBuffer` is null, 3 when the buffer cannot be installed.
    virtual int setBufferOwnership(const void** pBuffer, size_t size) = 0;
    // Installs a borrowed buffer, releasing an owned previous one, and rewinds
    // the cursor. The caller keeps `buffer` alive while the stream uses it.
    // Always returns 0.
    virtual int setBuffer(const void* buffer, size_t size) = 0;
    // Copies the next `length` bytes into `dest` and advances the cursor; a null
    // `dest` skips them. Returns 3 when `length` is 0, 4 when there is no
    // buffer, 5 when fewer than `length` bytes remain; the cursor stays then.
    virtual int extract(void* dest, size_t length) = 0;
    // Offset of the next byte to extract.
    virtual size_t getGetCursor() const = 0;
    // Moves the cursor to `position` (at most the size). Returns 1 when out of
    // range, leaving the cursor.
    virtual int setGetCursor(size_t position) = 0;
    // Number of valid bytes.
    virtual size_t getEndCursor() const = 0;
    // Returns a stream with a private copy of the bytes and the same cursor, or
    // null when out of memory. The caller deletes it.
    virtual InMemoryStream* clone() const = 0;

    // Returns a stream without bytes, or null when out of memory.
    static InMemoryStream* createInstance();
    // Returns a stream that takes over `out`'s bytes without copying, leaving
    // `out` empty but usable; a null `out` gives a stream without bytes.
    // Returns null when out of memory (then `out` keeps its bytes).
    static InMemoryStream* createInstance(OutMemoryStream* out);
};

}  // namespace vel_loc_fw
