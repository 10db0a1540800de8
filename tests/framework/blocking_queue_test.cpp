#include <vel_loc_fw/blocking_queue.h>

#include <chrono>

#include "framework_test_support.h"

namespace vel_loc_fw {
namespace {

using BlockingQueueTest = varn_test::VerboseLogTest;
using Queue = std::unique_ptr<BlockingQueue>;

void* item_at(uintptr_t n) { return reinterpret_cast<void*>(n + 1); }

TEST_F(BlockingQueueTest, PopsInPushOrderWhateverTheInterleaving) {
    Queue queue(BlockingQueue::createInstance("Q", false));
    // Runs of pushes and pops, short and long: the queue passes through empty,
    // short and multi-hundred backlogs and reuses the storage it freed.
    uintptr_t pushed = 0, popped = 0;
    for (int run : {2, -1, 2, -3, 1, -1, 150, -100, 150, -200, 70, -70}) {
        for (int i = 0; i < run; ++i) ASSERT_EQ(0, queue->push(item_at(pushed++)));
        for (int i = 0; i < -run; ++i) {
            void* got = nullptr;
            ASSERT_EQ(0, queue->pop(&got, TimeDiff(true), nullptr));
            ASSERT_EQ(item_at(popped++), got);
        }
    }
    // Empty: a time-out of zero or less returns at once, a positive one is waited out.
    for (int timeout_ms : {0, -5, 30}) {
        TimeDiff timeout(true);
        timeout.add_msec(timeout_ms);
        void* got = &got;
        bool closed = true;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, queue->pop(&got, timeout, &closed));
        EXPECT_GE(std::chrono::steady_clock::now() - start,
                  std::chrono::milliseconds(timeout_ms - 1));
        EXPECT_EQ(nullptr, got);
        EXPECT_FALSE(closed);
    }
}

TEST_F(BlockingQueueTest, CloseRefusesPushesAndDrainsInOrder) {
    Queue queue(BlockingQueue::createInstance("Q", false));
    int a = 1, b = 2;
    ASSERT_EQ(0, queue->push(&a));
    ASSERT_EQ(0, queue->push(&b));
    ASSERT_EQ(0, queue->close());
    EXPECT_EQ(3, queue->push(&b));
    void* got = nullptr;
    bool closed = false;
    for (void* want : {static_cast<void*>(&a), static_cast<void*>(&b), static_cast<void*>(nullptr),
                       static_cast<void*>(nullptr)}) {
        ASSERT_EQ(0, queue->pop(&got, TimeDiff(false), &closed));  // never blocks once closed
        EXPECT_EQ(want, got);
        EXPECT_TRUE(closed);
    }
    EXPECT_EQ("ZORLOG: [Q] push: error: 3\n", log_.dump());
    ASSERT_EQ(0, queue->pop(&got, TimeDiff(false), nullptr));
    EXPECT_TRUE(log_.contains("[Q] pop: queue is already closed")) << log_.dump();

    queue.reset(BlockingQueue::createInstance("Q", false));  // the drained one: no report
    ASSERT_EQ(0, queue->push(&a));
    queue.reset();  // with an item left: reported
    EXPECT_EQ(1u, log_.count("[Q] ~BlockingQueueImpl: memory leak")) << log_.dump();
}

TEST_F(BlockingQueueTest, NullItemPointerAndDeprecatedPop) {
    Queue queue(BlockingQueue::createInstance(nullptr, false));
    EXPECT_EQ(2, queue->pop(nullptr, TimeDiff(true), nullptr));
    EXPECT_EQ(2, queue->pop(nullptr, static_cast<const timespec*>(nullptr), nullptr));
    // The deadline form warns on every call and honours its deadline.
    void* got = &got;
    EXPECT_EQ(0, queue->pop(&got, Timestamp(CLOCK_REALTIME).getTimestampPtr(), nullptr));
    EXPECT_EQ(nullptr, got);
    EXPECT_EQ(2u, log_.count("[BlockingQueue] pop 0: deprecated.")) << log_.dump();
    EXPECT_TRUE(log_.contains("[BlockingQueue] pop: error: 2") &&
                log_.contains("[BlockingQueue] pop 0: error: 2"))
            << log_.dump();
}

TEST_F(BlockingQueueTest, FailedWaitKeepsTheQueueLocked) {
    Queue queue(BlockingQueue::createInstance("Q", false));
    // A positive time-out whose nanoseconds stay negative yields a deadline
    // that the condition variable rejects.
    TimeDiff malformed(true);
    malformed.add_sec(2);
    malformed.add_nsec(-999999999);
    void* got = &got;
    EXPECT_EQ(4, queue->pop(&got, malformed, nullptr));
    EXPECT_EQ(nullptr, got);
    // Still held by this thread: the error-checking mutex refuses to relock.
    int item = 0;
    EXPECT_EQ(2, queue->push(&item));
    EXPECT_EQ(2, queue->close());
    EXPECT_EQ(10, queue->pop(&got, static_cast<const timespec*>(nullptr), nullptr));
    for (const char* text :
         {"lock_and_wait: pthread_cond_wait error:", "lock_and_wait error: 15", "[Q] pop: error: 4",
          "[BlockingQueue] lock : result 3", "[Q] close: error: 2", "lock_and_wait error: 2",
          "[Q] pop 0: error: 10"}) {
        EXPECT_TRUE(log_.contains(text)) << text << "\n" << log_.dump();
    }
}

}  // namespace
}  // namespace vel_loc_fw
