// The implementations of the memory streams (internal to the library).
//
// The hot operations (`append`, `extract`) are defined here so that code that
// knows the concrete class, such as the postcard writer and reader, calls them
// without a virtual dispatch; the rare failure paths stay out of line.
#pragma once

#include <stdint.h>
#include <string.h>

#include <vel_loc_fw/memory_stream.h>

namespace vel_loc_fw {

class OutMemoryStreamImpl final : public OutMemoryStream {
  public:
    OutMemoryStreamImpl() = default;
    ~OutMemoryStreamImpl() override;

    OutMemoryStreamImpl(const OutMemoryStreamImpl&) = delete;
    OutMemoryStreamImpl& operator=(const OutMemoryStreamImpl&) = delete;

    size_t getSize() const override { return getPutCursor(); }
    const void* getBuffer() const override { return buffer_; }
    void* getBuffer() override { return buffer_; }
    int append(const void* data, size_t length) override {
        // Fast path: expand() would return at once without changing anything.
        if (length == 0 || capacity_ - size_ <= length) return appendSlow(data, length);
        memcpy(buffer_ + size_, data, length);
        size_ += length;
        return 0;
    }
    size_t getPutCursor() const override { return size_; }

    // Makes room for `length` more bytes. Growth is kept coarse: the first
    // buffer holds 64 bytes, later ones the larger of twice the old capacity
    // and what is needed. A request that exactly fills the free room still
    // reallocates. Returns 2 for `length` 0, 3 when out of memory (old buffer
    // kept).
    int expand(size_t length);
    size_t getCapacity() const { return capacity_; }
    // Where `length` more bytes can be written when the buffer has room for
    // them under expand()'s strict test (so no append of those bytes, in one
    // piece or several, would grow it); null otherwise. Pair with commit().
    uint8_t* tryReserve(size_t length) {
        return capacity_ - size_ > length ? buffer_ + size_ : nullptr;
    }
    // Counts `length` bytes written at tryReserve()'s pointer.
    void commit(size_t length) { size_ += length; }
    // Gives up the buffer without freeing it, leaving the stream empty; the
    // caller now owns the returned bytes (allocated with new[]).
    uint8_t* releaseBuffer();

  private:
    int appendSlow(const void* data, size_t length);

    uint8_t* buffer_ = nullptr;
    uint64_t size_ = 0;
    uint64_t capacity_ = 0;
};

class InMemoryStreamImpl final : public InMemoryStream {
  public:
    InMemoryStreamImpl() = default;
    // Takes over `out`'s buffer (see InMemoryStream::createInstance()); `out`
    // must be an OutMemoryStreamImpl, the only implementation there is.
    explicit InMemoryStreamImpl(OutMemoryStream* out);
    ~InMemoryStreamImpl() override;

    InMemoryStreamImpl(const InMemoryStreamImpl&) = delete;
    InMemoryStreamImpl& operator=(const InMemoryStreamImpl&) = delete;

    size_t getSize() const override { return getEndCursor(); }
    const void* getBuffer() const override { return buffer_; }
    int setBufferOwnership(const void** pBuffer, size_t size) override;
    int setBuffer(const void* buffer, size_t size) override;
    int extract(void* dest, size_t length) override {
        if (length == 0 || buffer_ == nullptr || size_ - cursor_ < length) {
            return extractFailed(length);
        }
        if (dest != nullptr) memcpy(dest, buffer_ + cursor_, length);
        cursor_ += length;
        return 0;
    }
    size_t getGetCursor() const override { return cursor_; }
    int setGetCursor(size_t position) override {
        if (position > size_) return setGetCursorFailed();
        cursor_ = position;
        return 0;
    }
    size_t getEndCursor() const override { return size_; }
    InMemoryStream* clone() const override;

    bool ownsBuffer() const { return owns_buffer_; }

  private:
    int extractFailed(size_t length) const;
    int setGetCursorFailed() const;
    void release();

    bool owns_buffer_ = false;
    const uint8_t* buffer_ = nullptr;
    uint64_t cursor_ = 0;
    uint64_t size_ = 0;
};

}  // namespace vel_loc_fw
