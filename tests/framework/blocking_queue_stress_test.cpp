// Concurrency of the blocking queue: several producers and consumers, a close
// in the middle of the traffic. Meant for the ThreadSanitizer build as well.
#include <vel_loc_fw/blocking_queue.h>

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/thread.h>

#include "log_capture.h"

namespace vel_loc_fw {
namespace {

constexpr int kProducers = 4;
constexpr int kConsumers = 3;
constexpr uint32_t kPerProducer = 3000;

class Latch {
  public:
    explicit Latch(int count) : count_(count) {}
    void count_down() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (--count_ == 0) cv_.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        cv_.wait(lock, [this] { return count_ <= 0; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    int count_;
};

// Items carry their producer and sequence number; never null.
void* encode(uint32_t producer, uint32_t seq) {
    return reinterpret_cast<void*>((static_cast<uintptr_t>(producer) << 32) | (seq + 1u));
}
uint32_t producer_of(void* item) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(item) >> 32);
}
uint32_t seq_of(void* item) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(item) & 0xffffffffu) - 1u;
}

class Consumer : public Runnable {
  public:
    Consumer(BlockingQueue* queue, bool timed) : queue_(queue), timed_(timed) {}
    void run() override {
        TimeDiff timeout(timed_);
        if (timed_) timeout.add_msec(1);
        for (;;) {
            void* item = nullptr;
            bool closed = false;
            if (queue_->pop(&item, timeout, &closed) != 0) {
                failed_ = true;
                return;
            }
            if (item != nullptr) {
                popped_.push_back(item);
            } else if (closed) {
                return;
            }
        }
    }

    std::vector<void*> popped_;
    bool failed_ = false;

  private:
    BlockingQueue* queue_;
    bool timed_;
};

TEST(BlockingQueueStressTest, EveryAcceptedItemIsPoppedOnceInProducerOrder) {
    std::unique_ptr<BlockingQueue> queue(BlockingQueue::createInstance("Stress", false));
    ASSERT_NE(nullptr, queue);

    std::vector<std::unique_ptr<Consumer>> consumers;
    std::vector<std::unique_ptr<Thread>> consumer_threads;
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back(new Consumer(queue.get(), c == 0));
        consumer_threads.emplace_back(Thread::createInstance("Consumer", consumers.back().get(),
                                                             false));
        ASSERT_EQ(0, consumer_threads.back()->launch());
    }

    Latch half_way(kProducers);
    std::vector<uint32_t> accepted(kProducers, 0);
    std::vector<std::thread> producers;
    for (uint32_t p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (uint32_t seq = 0; seq < kPerProducer; ++seq) {
                if (seq == kPerProducer / 2) half_way.count_down();
                const int rc = queue->push(encode(p, seq));
                if (rc == 3) break;  // closed: this and every later push are refused
                ASSERT_EQ(0, rc);
                accepted[p] = seq + 1;
            }
        });
    }
    half_way.wait();
    ASSERT_EQ(0, queue->close());
    for (std::thread& producer : producers) producer.join();
    for (std::unique_ptr<Thread>& thread : consumer_threads) ASSERT_EQ(0, thread->join());

    std::vector<std::vector<int>> seen(kProducers);
    for (uint32_t p = 0; p < kProducers; ++p) {
        EXPECT_GE(accepted[p], kPerProducer / 2);
        seen[p].assign(accepted[p], 0);
    }
    for (const std::unique_ptr<Consumer>& consumer : consumers) {
        EXPECT_FALSE(consumer->failed_);
        std::vector<int64_t> last_seq(kProducers, -1);
        for (void* item : consumer->popped_) {
            const uint32_t p = producer_of(item);
            const uint32_t seq = seq_of(item);
            ASSERT_LT(p, static_cast<uint32_t>(kProducers));
            ASSERT_LT(seq, accepted[p]) << "popped an item whose push was refused";
            EXPECT_GT(static_cast<int64_t>(seq), last_seq[p]) << "producer " << p << " reordered";
            last_seq[p] = seq;
            ++seen[p][seq];
        }
    }
    for (uint32_t p = 0; p < kProducers; ++p) {
        for (uint32_t seq = 0; seq < accepted[p]; ++seq) {
            ASSERT_EQ(1, seen[p][seq]) << "producer " << p << " item " << seq;
        }
    }
}

TEST(BlockingQueueStressTest, CloseWakesEveryWaiter) {
    log_set_global_level(EL_VERBOSE);
    varn_test::LogCapture log;
    std::unique_ptr<BlockingQueue> queue(BlockingQueue::createInstance("Stress", true));
    std::vector<std::unique_ptr<Consumer>> consumers;
    std::vector<std::unique_ptr<Thread>> threads;
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back(new Consumer(queue.get(), false));
        threads.emplace_back(Thread::createInstance("Waiter", consumers.back().get(), false));
        ASSERT_EQ(0, threads.back()->launch());
    }
    // Each waiter logs "about to wait" with the queue's mutex held, just
    // before blocking on the condition variable.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (log.count("[BlockingQueue] about to wait") < static_cast<size_t>(kConsumers)) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::yield();
    }
    ASSERT_EQ(0, queue->close());
    for (std::unique_ptr<Thread>& thread : threads) ASSERT_EQ(0, thread->join());
    for (const std::unique_ptr<Consumer>& consumer : consumers) {
        EXPECT_FALSE(consumer->failed_);
        EXPECT_TRUE(consumer->popped_.empty());
    }
    log_set_global_level(EL_LOG_OFF);
}

}  // namespace
}  // namespace vel_loc_fw
