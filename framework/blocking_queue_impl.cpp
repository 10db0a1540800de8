// First-in first-out queue of untyped pointers on a waitable.
#include "framework/blocking_queue_impl.h"

#include <limits.h>
#include <time.h>

#include <new>

#include <vel_loc_fw/log_util.h>

#include "framework/waitable_internal.h"

namespace vel_loc_fw {

BlockingQueue::~BlockingQueue() = default;

BlockingQueue* BlockingQueue::createInstance(const char* name, bool verbose) {
    return new (std::nothrow) BlockingQueueImpl(name, verbose);
}

BlockingQueueImpl::BlockingQueueImpl(const char* name, bool verbose)
    : WaitableBase("BlockingQueue", verbose),
      name_(name != nullptr ? name : "BlockingQueue"),
      verbose_(verbose) {}

BlockingQueueImpl::~BlockingQueueImpl() {
    // The items belong to whoever pushed them; only the chunks are ours.
    if (count_ != 0) log_warning(name_, "~BlockingQueueImpl: memory leak");
    chunks_.clear();
}

int BlockingQueueImpl::ZeroIfShouldWaitAgain_locked() {
    if (closed_) return -1;
    return count_ > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(count_);
}

bool BlockingQueueImpl::reserve_locked() {
    if (newest_ != nullptr && write_ < kChunkItems) return true;
    Chunk* chunk = spare_;
    if (chunk != nullptr) {
        spare_ = chunk->newer;
    } else {
        chunk = new (std::nothrow) Chunk;
        if (chunk == nullptr) return false;
        chunks_.push_front(chunk);
    }
    chunk->newer = nullptr;
    if (newest_ != nullptr) {
        newest_->newer = chunk;
    } else {
        oldest_ = chunk;
        read_ = 0;
    }
    newest_ = chunk;
    write_ = 0;
    return true;
}

int BlockingQueueImpl::push(void* item) {
    if (lock_impl() != 0) {
        log_error_no_lock(name_, "push: error: %d", 2);
        return 2;
    }
    int result = 0;
    if (closed_) {
        result = 3;
    } else if (!reserve_locked()) {
        result = 2;
    } else {
        newest_->items[write_++] = item;
        ++count_;
    }
    if (signal_one_and_unlock_impl() != 0) result = 4;
    if (result != 0) log_error_no_lock(name_, "push: error: %d", result);
    return result;
}

int BlockingQueueImpl::close() {
    int result = 0;
    if (lock_impl() != 0) {
        result = 2;
    } else {
        closed_ = true;
        if (signal_all_and_unlock_impl() != 0) result = 3;
    }
    if (result != 0) log_error_no_lock(name_, "close: error: %d", result);
    return result;
}

int BlockingQueueImpl::pop(void** item, const TimeDiff& timeout, bool* closed) {
    if (item == nullptr) {
        log_error_no_lock(name_, "pop: error: %d", 2);
        return 2;
    }
    *item = nullptr;
    if (closed != nullptr) *closed = false;

    if (lock_and_wait_impl(timeout) != 0) {
        // Left locked on purpose: a failed wait leaves the queue unusable
        // rather than letting callers race on it.
        log_error_no_lock(name_, "pop: error: %d", 4);
        return 4;
    }
    if (closed != nullptr) {
        *closed = closed_;
    } else if (closed_) {
        log_warning(name_, "pop: queue is already closed");
    }
    if (count_ != 0) {
        Chunk* chunk = oldest_;
        if (chunk == nullptr) {
            count_ = 0;
            newest_ = nullptr;
            log_error("Queue", "pop: failed %d", 3);
        } else {
            *item = chunk->items[read_++];
            --count_;
            if (count_ == 0) {
                read_ = 0;  // `chunk` is the only one in use: refill it from the start
                write_ = 0;
            } else if (read_ == kChunkItems) {
                oldest_ = chunk->newer;
                read_ = 0;
                chunk->newer = spare_;
                spare_ = chunk;
            }
        }
    }
    if (unlock_impl() != 0) {
        log_error_no_lock(name_, "pop: error: %d", 5);
        return 5;
    }
    return 0;
}

int BlockingQueueImpl::pop(void** item, const timespec* absTime, bool* closed) {
    log_warning(name_, "pop 0: deprecated.");
    if (item == nullptr) {
        log_error_no_lock(name_, "pop 0: error: %d", 2);
        return 2;
    }
    const Timestamp now(CLOCK_REALTIME);
    TimeDiff timeout(false);
    if (absTime != nullptr) {
        const Timestamp until(CLOCK_REALTIME, *absTime);
        if (until >= now) {
            timeout = until - now;
        } else {
            timeout.reset(true);  // already passed: do not wait
        }
    }
    if (pop(item, timeout, closed) != 0) {
        log_error_no_lock(name_, "pop 0: error: %d", 10);
        return 10;
    }
    return 0;
}

}  // namespace vel_loc_fw
