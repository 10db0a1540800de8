#include <vel_loc_fw/blocking_queue.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"

namespace vel_loc_fw {
namespace {

class BlockingQueueTest : public ::testing::Test {
  protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { log_set_global_level(EL_LOG_OFF); }

    static std::unique_ptr<BlockingQueue> make(const char* name, bool verbose = false) {
        return std::unique_ptr<BlockingQueue>(BlockingQueue::createInstance(name, verbose));
    }

    // Returns once `needle` has been logged `times` times; the verbose queue
    // logs "about to wait" right before it blocks, which orders the test's
    // next step after the waiter without sleeping.
    bool wait_for_log(const std::string& needle, size_t times = 1) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (log_.count(needle) < times) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::yield();
        }
        return true;
    }

    varn_test::LogCapture log_;
};

TEST_F(BlockingQueueTest, PopsInPushOrderWhateverTheInterleaving) {
    auto queue = make("Q");
    int items[5] = {};
    void* got = nullptr;
    // Pushes and pops interleaved so the queue passes through lengths 0 to 3.
    const char* script = "+++-+--++---+-";
    int next_push = 0;
    int next_pop = 0;
    for (const char* step = script; *step != '\0'; ++step) {
        if (*step == '+') {
            ASSERT_EQ(0, queue->push(&items[next_push++ % 5]));
        } else {
            ASSERT_EQ(0, queue->pop(&got, TimeDiff(true), nullptr));
            EXPECT_EQ(&items[next_pop++ % 5], got) << "pop #" << next_pop;
        }
    }
    ASSERT_EQ(0, queue->pop(&got, TimeDiff(true), nullptr));
    EXPECT_EQ(nullptr, got);
    EXPECT_EQ(0u, log_.count("[Q]")) << log_.dump();
}

TEST_F(BlockingQueueTest, NonPositiveTimeoutReturnsAtOnceWhenEmpty) {
    auto queue = make("Q");
    TimeDiff negative(true);
    negative.add_msec(-5);
    for (const TimeDiff& timeout : {TimeDiff(true), negative}) {
        void* got = &got;
        bool closed = true;
        EXPECT_EQ(0, queue->pop(&got, timeout, &closed));
        EXPECT_EQ(nullptr, got);
        EXPECT_FALSE(closed);
    }
}

TEST_F(BlockingQueueTest, PositiveTimeoutWaitsItOut) {
    auto queue = make("Q");
    TimeDiff timeout(true);
    timeout.add_msec(30);
    void* got = &got;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, queue->pop(&got, timeout, nullptr));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(29));
    EXPECT_EQ(nullptr, got);
}

TEST_F(BlockingQueueTest, UnlimitedPopBlocksUntilPushOrClose) {
    auto queue = make("Q", true);
    int item = 0;
    void* got = nullptr;
    bool closed = true;
    std::thread waiter([&] { EXPECT_EQ(0, queue->pop(&got, TimeDiff(false), &closed)); });
    ASSERT_TRUE(wait_for_log("[BlockingQueue] about to wait"));
    EXPECT_EQ(0, queue->push(&item));
    waiter.join();
    EXPECT_EQ(&item, got);
    EXPECT_FALSE(closed);

    std::thread closed_waiter([&] { EXPECT_EQ(0, queue->pop(&got, TimeDiff(false), &closed)); });
    ASSERT_TRUE(wait_for_log("[BlockingQueue] about to wait", 2));
    EXPECT_EQ(0, queue->close());
    closed_waiter.join();
    EXPECT_EQ(nullptr, got);
    EXPECT_TRUE(closed);
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
}

TEST_F(BlockingQueueTest, NullItemPointerIsRefused) {
    auto queue = make(nullptr);
    EXPECT_EQ(2, queue->pop(nullptr, TimeDiff(true), nullptr));
    EXPECT_TRUE(log_.contains("[BlockingQueue] pop: error: 2")) << log_.dump();
    EXPECT_EQ(2, queue->pop(nullptr, static_cast<const timespec*>(nullptr), nullptr));
    EXPECT_TRUE(log_.contains("[BlockingQueue] pop 0: error: 2")) << log_.dump();
}

TEST_F(BlockingQueueTest, DeprecatedPopWarnsEveryCallAndHonoursDeadline) {
    auto queue = make("Q");
    int item = 0;
    void* got = &got;
    Timestamp past(CLOCK_REALTIME);
    TimeDiff one_sec(true);
    one_sec.add_sec(1);
    past = past - one_sec;
    EXPECT_EQ(0, queue->pop(&got, past.getTimestampPtr(), nullptr));
    EXPECT_EQ(nullptr, got);

    ASSERT_EQ(0, queue->push(&item));
    const Timestamp future = Timestamp(CLOCK_REALTIME) + one_sec;
    EXPECT_EQ(0, queue->pop(&got, future.getTimestampPtr(), nullptr));
    EXPECT_EQ(&item, got);

    ASSERT_EQ(0, queue->push(&item));
    EXPECT_EQ(0, queue->pop(&got, static_cast<const timespec*>(nullptr), nullptr));
    EXPECT_EQ(&item, got);
    EXPECT_EQ(3u, log_.count("[Q] pop 0: deprecated.")) << log_.dump();
}

TEST_F(BlockingQueueTest, DestroyingWithItemsWarnsAndLeavesThemAlone) {
    auto queue = make("Q");
    int a = 7, b = 8;
    ASSERT_EQ(0, queue->push(&a));
    ASSERT_EQ(0, queue->push(&b));
    queue.reset();
    EXPECT_TRUE(log_.contains("[Q] ~BlockingQueueImpl: memory leak")) << log_.dump();
    EXPECT_EQ(7, a);
    EXPECT_EQ(8, b);

    make("Q").reset();
    EXPECT_EQ(1u, log_.count("memory leak"));
}

TEST_F(BlockingQueueTest, VerboseStepsUseTheWaitableName) {
    auto queue = make("MyQ", true);
    ASSERT_EQ(0, queue->push(nullptr));
    for (const char* text : {"[BlockingQueue] about to lock for state modification",
                             "[BlockingQueue] just acquired lock for state modification",
                             "[BlockingQueue] about to signal", "[BlockingQueue] about to unlock",
                             "[BlockingQueue] unlocked"}) {
        EXPECT_TRUE(log_.contains(text)) << text << "\n" << log_.dump();
    }
    EXPECT_FALSE(log_.contains("[MyQ]"));
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
    EXPECT_TRUE(log_.contains("[BlockingQueue] lock_and_wait: pthread_cond_wait error:"));
    EXPECT_TRUE(log_.contains("[BlockingQueue] WaitableBase: lock_and_wait error: 15"));
    EXPECT_TRUE(log_.contains("[Q] pop: error: 4")) << log_.dump();

    // Still held by this thread: the error-checking mutex refuses to relock.
    int item = 0;
    EXPECT_EQ(2, queue->push(&item));
    EXPECT_TRUE(log_.contains("[BlockingQueue] lock : result 3"));
    EXPECT_EQ(2, queue->close());
    EXPECT_TRUE(log_.contains("[Q] close: error: 2")) << log_.dump();
}

}  // namespace
}  // namespace vel_loc_fw
