// Growable output stream and cursor-based input stream.
#include "postcard/memory_stream_impl.h"

#include <new>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {
namespace {

constexpr const char kTag[] = "MemoryStream";
constexpr uint64_t kFirstCapacity = 64;

}  // namespace

MemoryStreamBase::~MemoryStreamBase() = default;
OutMemoryStream::~OutMemoryStream() = default;
InMemoryStream::~InMemoryStream() = default;

OutMemoryStream* OutMemoryStream::createInstance() {
    return new (std::nothrow) OutMemoryStreamImpl();
}

InMemoryStream* InMemoryStream::createInstance() { return new (std::nothrow) InMemoryStreamImpl(); }

InMemoryStream* InMemoryStream::createInstance(OutMemoryStream* out) {
    return new (std::nothrow) InMemoryStreamImpl(out);
}

// --- OutMemoryStreamImpl ---

OutMemoryStreamImpl::~OutMemoryStreamImpl() {
    delete[] buffer_;
    buffer_ = nullptr;
    size_ = 0;
    capacity_ = 0;
}

int OutMemoryStreamImpl::expand(size_t length) {
    if (length == 0) {
        log_error(kTag, "expand error %d", 2);
        return 2;
    }
    if (capacity_ - size_ > length) return 0;
    const uint64_t needed = size_ + length;
    uint64_t new_capacity = kFirstCapacity;
    if (needed >= kFirstCapacity) {
        new_capacity = capacity_ * 2 > needed ? capacity_ * 2 : needed;
    }
    uint8_t* new_buffer = new (std::nothrow) uint8_t[new_capacity];
    if (new_buffer == nullptr) {
        log_error(kTag, "expand error %d", 3);
        return 3;
    }
    if (buffer_ != nullptr) {
        if (size_ != 0) memcpy(new_buffer, buffer_, size_);
        delete[] buffer_;
    }
    buffer_ = new_buffer;
    capacity_ = new_capacity;
    return 0;
}

int OutMemoryStreamImpl::appendSlow(const void* data, size_t length) {
    if (expand(length) != 0) {
        log_error(kTag, "append error %d", 2);
        return 2;
    }
    memcpy(buffer_ + size_, data, length);
    size_ += length;
    return 0;
}

uint8_t* OutMemoryStreamImpl::releaseBuffer() {
    uint8_t* buffer = buffer_;
    buffer_ = nullptr;
    size_ = 0;
    capacity_ = 0;
    return buffer;
}

// --- InMemoryStreamImpl ---

InMemoryStreamImpl::InMemoryStreamImpl(OutMemoryStream* out) {
    if (out == nullptr) return;
    // The output stream's class is known: OutMemoryStream has no other
    // implementation, and only its factory creates one.
    OutMemoryStreamImpl* impl = static_cast<OutMemoryStreamImpl*>(out);
    size_ = impl->getSize();
    buffer_ = impl->releaseBuffer();
    owns_buffer_ = true;
}

InMemoryStreamImpl::~InMemoryStreamImpl() { release(); }

void InMemoryStreamImpl::release() {
    if (owns_buffer_) delete[] buffer_;
    owns_buffer_ = false;
    buffer_ = nullptr;
    cursor_ = 0;
    size_ = 0;
}

int InMemoryStreamImpl::setBuffer(const void* buffer, size_t size) {
    release();
    buffer_ = static_cast<const uint8_t*>(buffer);
    size_ = size;
    cursor_ = 0;
    return 0;
}

int InMemoryStreamImpl::setBufferOwnership(const void** pBuffer, size_t size) {
    if (pBuffer == nullptr) {
        log_error(kTag, "setBufferOwnership failed %d", 2);
        return 2;
    }
    if (setBuffer(*pBuffer, size) != 0) {
        log_error(kTag, "setBufferOwnership failed %d", 3);
        return 3;
    }
    *pBuffer = nullptr;
    owns_buffer_ = true;
    return 0;
}

int InMemoryStreamImpl::extractFailed(size_t length) const {
    int code = 5;
    if (length == 0) {
        code = 3;
    } else if (buffer_ == nullptr) {
        code = 4;
    }
    log_error(kTag, "extract error %d", code);
    return code;
}

int InMemoryStreamImpl::setGetCursorFailed() const {
    log_error(kTag, "setGetCursor range error");
    return 1;
}

InMemoryStream* InMemoryStreamImpl::clone() const {
    // The private copy uses a throwing new: a clone must never share the
    // source's memory, and there is no code to report a failed copy with.
    uint8_t* bytes = nullptr;
    if (buffer_ != nullptr) {
        bytes = new uint8_t[size_];
        if (size_ != 0) memcpy(bytes, buffer_, size_);
    }
    InMemoryStreamImpl* copy = new (std::nothrow) InMemoryStreamImpl();
    if (copy == nullptr) {
        delete[] bytes;
        return nullptr;
    }
    copy->owns_buffer_ = bytes != nullptr ? true : owns_buffer_;
    copy->buffer_ = bytes;
    copy->cursor_ = cursor_;
    copy->size_ = size_;
    return copy;
}

}  // namespace vel_loc_fw
