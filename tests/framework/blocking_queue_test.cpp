#include <vel_loc_fw/blocking_queue.h>

#include <stdint.h>

#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"
#include "stress_support.h"

namespace vel_loc_fw {
namespace {

class BlockingQueueTest : public ::testing::Test {
  protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { log_set_global_level(EL_LOG_OFF); }

    static std::unique_ptr<BlockingQueue> make(const char* name, bool verbose = false) {
        return std::unique_ptr<BlockingQueue>(BlockingQueue::createInstance(name, verbose));
    }
    varn_test::LogCapture log_;
};

void* item_at(uintptr_t n) { return reinterpret_cast<void*>(n + 1); }

TEST_F(BlockingQueueTest, PopsInPushOrderWhateverTheInterleaving) {
    auto queue = make("Q");
    // Runs of pushes and pops, short and long: the queue passes through empty,
    // short and multi-hundred backlogs and reuses the storage it freed.
    const int runs[] = {2, -1, 2, -3, 1, -1, 150, -100, 150, -200, 70, -70};
    uintptr_t pushed = 0;
    uintptr_t popped = 0;
    for (int run : runs) {
        for (int i = 0; i < run; ++i) ASSERT_EQ(0, queue->push(item_at(pushed++)));
        for (int i = 0; i < -run; ++i) {
            void* got = nullptr;
            ASSERT_EQ(0, queue->pop(&got, TimeDiff(true), nullptr));
            ASSERT_EQ(item_at(popped++), got);
        }
    }
    EXPECT_EQ(0u, log_.count("[Q]")) << log_.dump();

    // Empty: a time-out of zero or less returns at once, a positive one is
    // waited out.
    for (int timeout_ms : {0, -5, 30}) {
        SCOPED_TRACE(timeout_ms);
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

TEST_F(BlockingQueueTest, UnlimitedPopBlocksUntilPushOrClose) {
    auto queue = make("Q", true);
    int item = 0;
    void* got = nullptr;
    bool closed = true;
    // The verbose queue logs "about to wait" right before it blocks, which
    // orders the next step after the waiter without sleeping.
    std::thread waiter([&] { EXPECT_EQ(0, queue->pop(&got, TimeDiff(false), &closed)); });
    ASSERT_TRUE(varn_test::waitFor([&] { return log_.count("about to wait") == 1; }));
    EXPECT_EQ(0, queue->push(&item));
    waiter.join();
    EXPECT_EQ(&item, got);
    EXPECT_FALSE(closed);

    std::thread closed_waiter([&] { EXPECT_EQ(0, queue->pop(&got, TimeDiff(false), &closed)); });
    ASSERT_TRUE(varn_test::waitFor([&] { return log_.count("about to wait") == 2; }));
    EXPECT_EQ(0, queue->close());
    closed_waiter.join();
    EXPECT_EQ(nullptr, got);
    EXPECT_TRUE(closed);
    for (const char* text : {"[BlockingQueue] about to lock for state modification",
                             "[BlockingQueue] just acquired lock for state modification",
                             "[BlockingQueue] about to signal", "[BlockingQueue] about to unlock",
                             "[BlockingQueue] unlocked"}) {
        EXPECT_TRUE(log_.contains(text)) << text << "\n" << log_.dump();
    }
    EXPECT_FALSE(log_.contains("[Q]"));  // steps carry the waitable's name
}

TEST_F(BlockingQueueTest, CloseRefusesPushesAndDrainsInOrder) {
    auto queue = make("Q");
    int a = 1, b = 2, c = 3;
    ASSERT_EQ(0, queue->push(&a));
    ASSERT_EQ(0, queue->push(&b));
    ASSERT_EQ(0, queue->close());
    EXPECT_EQ(3, queue->push(&c));
    EXPECT_TRUE(log_.contains("[Q] push: error: 3")) << log_.dump();

    void* got = nullptr;
    bool closed = false;
    for (void* want : {static_cast<void*>(&a), static_cast<void*>(&b), static_cast<void*>(nullptr),
                       static_cast<void*>(nullptr)}) {
        ASSERT_EQ(0, queue->pop(&got, TimeDiff(false), &closed));  // never blocks once closed
        EXPECT_EQ(want, got);
        EXPECT_TRUE(closed);
    }
    EXPECT_FALSE(log_.contains("pop: queue is already closed"));
    ASSERT_EQ(0, queue->pop(&got, TimeDiff(false), nullptr));
    EXPECT_TRUE(log_.contains("[Q] pop: queue is already closed")) << log_.dump();

    queue.reset();  // drained: nothing to report
    // Destroyed with items left: reported, the items left alone.
    queue = make("Q");
    ASSERT_EQ(0, queue->push(&a));
    queue.reset();
    EXPECT_EQ(1u, log_.count("[Q] ~BlockingQueueImpl: memory leak")) << log_.dump();
    EXPECT_EQ(1, a);
    EXPECT_EQ(1u, log_.count("memory leak"));
}

TEST_F(BlockingQueueTest, NullItemPointerAndDeprecatedPop) {
    auto queue = make(nullptr);
    EXPECT_EQ(2, queue->pop(nullptr, TimeDiff(true), nullptr));
    EXPECT_TRUE(log_.contains("[BlockingQueue] pop: error: 2")) << log_.dump();
    EXPECT_EQ(2, queue->pop(nullptr, static_cast<const timespec*>(nullptr), nullptr));
    EXPECT_TRUE(log_.contains("[BlockingQueue] pop 0: error: 2")) << log_.dump();

    // The deadline form warns on every call and honours its deadline.
    int item = 0;
    void* got = &got;
    TimeDiff one_sec(true);
    one_sec.add_sec(1);
    const Timestamp past = Timestamp(CLOCK_REALTIME) - one_sec;
    EXPECT_EQ(0, queue->pop(&got, past.getTimestampPtr(), nullptr));
    EXPECT_EQ(nullptr, got);
    ASSERT_EQ(0, queue->push(&item));
    const Timestamp future = Timestamp(CLOCK_REALTIME) + one_sec;
    EXPECT_EQ(0, queue->pop(&got, future.getTimestampPtr(), nullptr));
    EXPECT_EQ(&item, got);
    ASSERT_EQ(0, queue->push(&item));
    EXPECT_EQ(0, queue->pop(&got, static_cast<const timespec*>(nullptr), nullptr));
    EXPECT_EQ(&item, got);
    EXPECT_EQ(4u, log_.count("[BlockingQueue] pop 0: deprecated.")) << log_.dump();
}

TEST_F(BlockingQueueTest, FailedWaitKeepsTheQueueLocked) {
    auto queue = make("Q");
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
         {"[BlockingQueue] lock_and_wait: pthread_cond_wait error:",
          "[BlockingQueue] WaitableBase: lock_and_wait error: 15", "[Q] pop: error: 4",
          "[BlockingQueue] lock : result 3", "[Q] close: error: 2",
          "[BlockingQueue] WaitableBase: lock_and_wait error: 2", "[Q] pop 0: error: 10"}) {
        EXPECT_TRUE(log_.contains(text)) << text << "\n" << log_.dump();
    }
}

}  // namespace
}  // namespace vel_loc_fw
