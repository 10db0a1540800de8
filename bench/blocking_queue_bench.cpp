// Throughput of BlockingQueue between one producer and one consumer thread,
// against a queue made of std::mutex, std::condition_variable and std::deque
// measured in the same run.
//
// Rounds of both queues alternate (see bench_ratio.h), so load from other
// processes hits both alike; the row's ratio is the BlockingQueue's
// throughput divided by the baseline's.
#include <vel_loc_fw/blocking_queue.h>

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench_ratio.h"

namespace {

class StdQueue {
  public:
    void push(void* item) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(item);
        }
        cv_.notify_one();
    }
    void* pop() {
        std::unique_lock<std::mutex> lock(mutex_);
        cv_.wait(lock, [this] { return !items_.empty(); });
        void* item = items_.front();
        items_.pop_front();
        return item;
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<void*> items_;
};

// StdQueue on an error-checking mutex, the type that BlockingQueue's mutex
// has to be: how much of the difference is the mutex type alone.
class ErrorCheckQueue {
  public:
    ErrorCheckQueue() { pthread_cond_init(&cv_, nullptr); }
    ~ErrorCheckQueue() { pthread_cond_destroy(&cv_); }
    ErrorCheckQueue(const ErrorCheckQueue&) = delete;
    ErrorCheckQueue& operator=(const ErrorCheckQueue&) = delete;
    void push(void* item) {
        pthread_mutex_lock(&mutex_.mutex);
        items_.push_back(item);
        pthread_mutex_unlock(&mutex_.mutex);
        pthread_cond_signal(&cv_);
    }
    void* pop() {
        pthread_mutex_lock(&mutex_.mutex);
        while (items_.empty()) pthread_cond_wait(&cv_, &mutex_.mutex);
        void* item = items_.front();
        items_.pop_front();
        pthread_mutex_unlock(&mutex_.mutex);
        return item;
    }

  private:
    varn_bench::ErrorCheckMutex mutex_;
    pthread_cond_t cv_;
    std::deque<void*> items_;
};

void* item_for(int64_t i) { return reinterpret_cast<void*>(static_cast<uintptr_t>(i + 1)); }

// Moves `items` items from a new producer thread to this thread; fails the
// benchmark if an item goes astray.
void through_vel(benchmark::State& state, int64_t items) {
    std::unique_ptr<vel_loc_fw::BlockingQueue> queue(
            vel_loc_fw::BlockingQueue::createInstance("Bench", false));
    const vel_loc_fw::TimeDiff no_limit(false);
    std::thread producer([&] {
        for (int64_t i = 0; i < items; ++i) queue->push(item_for(i));
    });
    for (int64_t i = 0; i < items; ++i) {
        void* item = nullptr;
        queue->pop(&item, no_limit, nullptr);
        if (item != item_for(i)) state.SkipWithError("BlockingQueue lost or reordered an item");
    }
    producer.join();
}

template <typename Queue>
void through_std(benchmark::State& state, int64_t items) {
    Queue queue;
    std::thread producer([&] {
        for (int64_t i = 0; i < items; ++i) queue.push(item_for(i));
    });
    for (int64_t i = 0; i < items; ++i) {
        if (queue.pop() != item_for(i)) state.SkipWithError("std queue lost or reordered an item");
    }
    producer.join();
}

// Items per second, in wall time: the work is spread over two threads. A
// round moves at least 1000 items, so that starting the producer thread
// stays a small part of it.
template <typename Baseline>
void queue_row(benchmark::State& state, const char* path, varn_bench::Goal goal) {
    varn_bench::ratio_row(
            state, path, goal, varn_bench::Clock::kWall,
            [&](int64_t items) { through_vel(state, items); },
            [&](int64_t items) { through_std<Baseline>(state, items); }, 0.02, 1000);
}

void BM_Queue(benchmark::State& state) {
    queue_row<StdQueue>(state, "BlockingQueue items/s / std::mutex + condition_variable + deque",
                        {1.0, false, true});
}
BENCHMARK(BM_Queue)->Iterations(1);

void BM_QueueSameMutexType(benchmark::State& state) {
    queue_row<ErrorCheckQueue>(
            state, "BlockingQueue items/s / the same std queue on an error-checking mutex",
            {0.0, false, true});
}
BENCHMARK(BM_QueueSameMutexType)->Iterations(1);

}  // namespace

int main(int argc, char** argv) { return varn_bench::main(argc, argv); }
