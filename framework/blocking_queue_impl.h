// The one implementation of BlockingQueue.
#pragma once

#include <stdint.h>

#include <vel_loc_fw/blocking_queue.h>
#include <vel_loc_fw/list.h>
#include <vel_loc_fw/waitable.h>

namespace vel_loc_fw {

class BlockingQueueImpl : public BlockingQueue, public WaitableBase {
  public:
    BlockingQueueImpl(const char* name, bool verbose);
    ~BlockingQueueImpl() override;

    int push(void* item) override;
    int close() override;
    int pop(void** item, const timespec* absTime, bool* closed) override;
    int pop(void** item, const TimeDiff& timeout, bool* closed) override;
    int ZeroIfShouldWaitAgain_locked() override;

  private:
    struct Node {
        Node* next;
        void* item;
    };

    // The list runs from the oldest item at its head to the newest at
    // `tail_`, so both ends are reached in constant time (see push()).
    List<Node> items_;
    Node* tail_ = nullptr;
    const char* name_;
    bool closed_ = false;
    // The verbose lines come from the waitable part; kept beside the name as
    // part of the queue's settings.
    [[maybe_unused]] bool verbose_;
};

}  // namespace vel_loc_fw
