// Unbounded first-in first-out queue of untyped pointers, with close and
// time-outs.
//
//   vel_loc_fw::BlockingQueue* queue = vel_loc_fw::BlockingQueue::createInstance("MyQueue", false);
//   queue->push(message);                     // producer
//   void* item = nullptr;
//   bool closed = false;
//   queue->pop(&item, vel_loc_fw::TimeDiff(false), &closed);  // consumer, no time limit
//
// Any thread may push, pop and close at any time. The queue never owns what
// the items point to. After close() pushes are refused and every waiting or
// later pop() receives the remaining items one by one, then null items.
// Messages use the queue's name as tag.
#pragma once

#include <time.h>

#include <vel_loc_fw/fw_export.h>
#include <vel_loc_fw/time_util.h>

namespace vel_loc_fw {

class VEL_LOC_FW_EXPORT BlockingQueue {
  public:
    // Warns when items are left; they are not touched.
    virtual ~BlockingQueue();

    // Appends `item` (borrowed; may be null, though a popped null then looks
    // like "nothing") and wakes one waiting pop().
    // Returns 0; 2 when the lock failed or out of memory; 3 when the queue is
    // closed (nothing stored); 4 when the signal or the unlock failed.
    virtual int push(void* item) = 0;

    // Refuses later pushes and wakes every waiting pop().
    // Returns 0; 2 when the lock failed; 3 when the signal or unlock failed.
    virtual int close() = 0;

    // Deprecated: warns on every call; use the `TimeDiff` form. Waits until
    // the wall-clock time `absTime` (`CLOCK_REALTIME`), or without limit when
    // `absTime` is null. Returns 0, 2 when `item` is null, or 10 when the
    // `TimeDiff` form failed.
    virtual int pop(void** item, const timespec* absTime, bool* closed) = 0;

    // Takes the oldest item into `*item`, waiting up to `timeout` for one (an
    // invalid `timeout` waits without limit, a zero one does not wait).
    // `*item` is null after a time-out or on a closed, empty queue. `closed`
    // (optional) receives whether the queue is closed; without it a pop on a
    // closed queue warns.
    // Returns 0; 2 when `item` is null; 4 when waiting failed, in which case
    // the queue stays locked and unusable; 5 when the unlock failed.
    virtual int pop(void** item, const TimeDiff& timeout, bool* closed) = 0;

    // Predicate of the queue's waitable, called with its mutex held: -1 when
    // closed, else the number of items (0: keep waiting).
    virtual int ZeroIfShouldWaitAgain_locked() = 0;

    // Creates an open queue. `name` (the tag of its messages, "BlockingQueue"
    // when null) is borrowed and must outlive the queue. With `verbose` every
    // locking step writes a verbose line. Returns null when out of memory; the
    // caller deletes the queue.
    static BlockingQueue* createInstance(const char* name, bool verbose);
};

}  // namespace vel_loc_fw
