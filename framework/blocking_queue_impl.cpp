// First-in first-out queue of untyped pointers on a waitable.
#include "framework/blocking_queue_impl.h"

#include <limits.h>
#include <time.h>

#include <new>

#include <vel_loc_fw/log_util.h>

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
    // The items belong to whoever pushed them; only the nodes are ours.
    if (items_.size() != 0) log_warning(name_, "~BlockingQueueImpl: memory leak");
    items_.clear();
    tail_ = nullptr;
}

int BlockingQueueImpl::ZeroIfShouldWaitAgain_locked() {
    if (closed_) return -1;
    const uint64_t count = items_.size();
    return count > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(count);
}

int BlockingQueueImpl::push(void* item) {
    // Allocated before locking to keep the critical section short.
    Node* node = new (std::nothrow) Node{nullptr, item};
    int result = 0;
    if (node == nullptr || lock() != 0) {
        delete node;
        result = 2;
    } else {
        if (closed_) {
            delete node;
            result = 3;
        } else {
            Node* oldest = items_.head();
            items_.push_front(node);
            if (oldest == nullptr) {
                tail_ = node;
            } else {
                // The list only inserts at its head, where the oldest item has
                // to stay. The new node takes over the oldest item and its
                // place; the node that held it moves to the tail and carries
                // the new item. The list's own count and links stay exact.
                node->item = oldest->item;
                node->next = oldest->next;
                if (tail_ == oldest) tail_ = node;
                tail_->next = oldest;
                oldest->next = nullptr;
                oldest->item = item;
                tail_ = oldest;
            }
        }
        if (signal_one_and_then_unlock() != 0) result = 4;
    }
    if (result != 0) log_error_no_lock(name_, "push: error: %d", result);
    return result;
}

int BlockingQueueImpl::close() {
    int result = 0;
    if (lock() != 0) {
        result = 2;
    } else {
        closed_ = true;
        if (signal_all_and_then_unlock() != 0) result = 3;
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

    if (lock_and_wait(timeout) != 0) {
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
    if (items_.size() != 0) {
        Node* oldest = items_.head();
        if (oldest == nullptr) {
            items_.clear();
            tail_ = nullptr;
            log_error("Queue", "pop: failed %d", 3);
        } else {
            *item = oldest->item;
            if (tail_ == oldest) tail_ = nullptr;
            items_.erase_and_delete(oldest);
        }
    }
    if (unlock() != 0) {
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
