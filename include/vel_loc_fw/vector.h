// The framework's growable array.
//
// An element pointer, a capacity and an unsigned 32-bit element count. The
// first allocation holds 64 elements and every growth doubles the capacity.
// Nothing throws: an allocation failure is logged under "vector" and leaves
// the vector as it was. Indexing is bounds-checked in a forgiving way: a
// position not below the count logs "index out of range\n" under "vector" and
// yields the first element, which callers rely on instead of checking counts.
//
// Elements are moved with memcpy/realloc, so `T` must be trivially copyable
// (plain records, integers, pointers). A vector of pointers does not own what
// they point to; the owner of the vector documents who deletes them.
//
// No locking: the owner guards the vector.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {

template <typename T>
class vector {
    static_assert(std::is_trivially_copyable<T>::value,
                  "vel_loc_fw::vector moves its elements with memcpy");

  public:
    static constexpr uint32_t kInitialCapacity = 64;

    vector() = default;
    ~vector() { std::free(data_); }

    // Copies hold their own array. When it cannot be allocated the copy is
    // left empty and the failure is logged ("insertion failed -1").
    vector(const vector& other) { copyFrom(other); }
    vector& operator=(const vector& other) {
        if (this != &other) {
            clear();
            copyFrom(other);
        }
        return *this;
    }
    vector(vector&& other) noexcept
        : data_(other.data_), capacity_(other.capacity_), count_(other.count_) {
        other.data_ = nullptr;
        other.capacity_ = 0;
        other.count_ = 0;
    }
    vector& operator=(vector&& other) noexcept {
        if (this != &other) {
            std::free(data_);
            data_ = other.data_;
            capacity_ = other.capacity_;
            count_ = other.count_;
            other.data_ = nullptr;
            other.capacity_ = 0;
            other.count_ = 0;
        }
        return *this;
    }

    // Appends `value`. Returns 0, or -1 when the first array (64 elements)
    // cannot be allocated and -2 when doubling it fails; both are logged as
    // error "insertion failed %d" under "vector" and change nothing.
    int push_back(const T& value) {
        if (count_ == capacity_) {
            int rc = grow();
            if (rc != 0) {
                log_error("vector", "insertion failed %d", rc);
                return rc;
            }
        }
        std::memcpy(static_cast<void*>(&data_[count_]), &value, sizeof(T));
        ++count_;
        return 0;
    }

    // Removes the element at `index`, keeping the order of the others.
    // Returns 0, or -1 (logging "index out of range\n") when `index` is not
    // below the count.
    int erase(uint32_t index) {
        if (index >= count_) {
            log_error("vector", "index out of range\n");
            return -1;
        }
        std::memmove(static_cast<void*>(&data_[index]), &data_[index + 1],
                     sizeof(T) * (count_ - index - 1));
        --count_;
        return 0;
    }

    // Frees the array; the vector is empty and unallocated afterwards.
    void clear() {
        std::free(data_);
        data_ = nullptr;
        capacity_ = 0;
        count_ = 0;
    }

    // Element `index`; a position not below the count logs error "index out
    // of range\n" under "vector" and yields the first element (a zeroed
    // per-thread element when nothing was ever allocated).
    T& operator[](uint32_t index) { return at(index); }
    const T& operator[](uint32_t index) const { return const_cast<vector*>(this)->at(index); }

    uint32_t size() const { return count_; }
    uint32_t capacity() const { return capacity_; }
    bool empty() const { return count_ == 0; }
    T* data() { return data_; }
    const T* data() const { return data_; }
    T* begin() { return data_; }
    T* end() { return data_ + count_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + count_; }

  private:
    T& at(uint32_t index) {
        if (index >= count_) {
            log_error("vector", "index out of range\n");
            if (data_ == nullptr) {
                thread_local T empty_element;
                std::memset(static_cast<void*>(&empty_element), 0, sizeof(T));
                return empty_element;
            }
            return data_[0];
        }
        return data_[index];
    }

    int grow() {
        if (data_ == nullptr) {
            // Zero-filled so that the first element is defined even before it is written.
            T* fresh = static_cast<T*>(std::calloc(kInitialCapacity, sizeof(T)));
            if (fresh == nullptr) return -1;
            data_ = fresh;
            capacity_ = kInitialCapacity;
            return 0;
        }
        if (capacity_ > UINT32_MAX / 2) return -2;
        uint32_t doubled = capacity_ * 2;
        T* moved = static_cast<T*>(std::realloc(static_cast<void*>(data_), sizeof(T) * doubled));
        if (moved == nullptr) return -2;
        data_ = moved;
        capacity_ = doubled;
        return 0;
    }

    void copyFrom(const vector& other) {
        if (other.count_ == 0) return;
        T* fresh = static_cast<T*>(std::malloc(sizeof(T) * other.capacity_));
        if (fresh == nullptr) {
            log_error("vector", "insertion failed %d", -1);
            return;
        }
        std::memcpy(static_cast<void*>(fresh), other.data_, sizeof(T) * other.count_);
        data_ = fresh;
        capacity_ = other.capacity_;
        count_ = other.count_;
    }

    T* data_ = nullptr;
    uint32_t capacity_ = 0;
    uint32_t count_ = 0;
};

}  // namespace vel_loc_fw
