// Throughput of BlockingQueue between one producer and one consumer thread,
// against a queue made of std::mutex, std::condition_variable and std::deque
// measured in the same run.
//
// BM_QueueRatio alternates both queues inside each iteration, so load from
// other processes hits both alike; its counter `ratio` is the BlockingQueue's
// throughput divided by the baseline's (goal: at least 0.8). The ratio of the
// last repetition is printed again after the table.
#include <vel_loc_fw/blocking_queue.h>

#include <stdint.h>
#include <stdio.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

namespace {

constexpr int64_t kItemsPerRound = 100000;

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

void* item_for(int64_t i) { return reinterpret_cast<void*>(static_cast<uintptr_t>(i + 1)); }

// Moves kItemsPerRound items from a new producer thread to this thread and
// returns the seconds taken; fails the benchmark if an item goes astray.
double round_through_vel(benchmark::State& state) {
    std::unique_ptr<vel_loc_fw::BlockingQueue> queue(
            vel_loc_fw::BlockingQueue::createInstance("Bench", false));
    const vel_loc_fw::TimeDiff no_limit(false);
    const auto start = std::chrono::steady_clock::now();
    std::thread producer([&] {
        for (int64_t i = 0; i < kItemsPerRound; ++i) queue->push(item_for(i));
    });
    for (int64_t i = 0; i < kItemsPerRound; ++i) {
        void* item = nullptr;
        queue->pop(&item, no_limit, nullptr);
        if (item != item_for(i)) state.SkipWithError("BlockingQueue lost or reordered an item");
    }
    producer.join();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double round_through_std(benchmark::State& state) {
    StdQueue queue;
    const auto start = std::chrono::steady_clock::now();
    std::thread producer([&] {
        for (int64_t i = 0; i < kItemsPerRound; ++i) queue.push(item_for(i));
    });
    for (int64_t i = 0; i < kItemsPerRound; ++i) {
        if (queue.pop() != item_for(i)) state.SkipWithError("std queue lost or reordered an item");
    }
    producer.join();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_BlockingQueue(benchmark::State& state) {
    for (auto _ : state) state.SetIterationTime(round_through_vel(state));
    state.SetItemsProcessed(state.iterations() * kItemsPerRound);
}
BENCHMARK(BM_BlockingQueue)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_StdDequeQueue(benchmark::State& state) {
    for (auto _ : state) state.SetIterationTime(round_through_std(state));
    state.SetItemsProcessed(state.iterations() * kItemsPerRound);
}
BENCHMARK(BM_StdDequeQueue)->UseManualTime()->Unit(benchmark::kMillisecond);

double g_last_ratio = 0.0;

void BM_QueueRatio(benchmark::State& state) {
    double vel_seconds = 0.0;
    double std_seconds = 0.0;
    for (auto _ : state) {
        const double vel = round_through_vel(state);
        const double base = round_through_std(state);
        vel_seconds += vel;
        std_seconds += base;
        state.SetIterationTime(vel + base);
    }
    const double items = static_cast<double>(state.iterations() * kItemsPerRound);
    state.counters["vel_items_per_s"] = items / vel_seconds;
    state.counters["std_items_per_s"] = items / std_seconds;
    g_last_ratio = std_seconds / vel_seconds;
    state.counters["ratio"] = g_last_ratio;
}
BENCHMARK(BM_QueueRatio)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (g_last_ratio > 0.0) {
        printf("BlockingQueue / std::deque queue throughput ratio: %.3f (goal >= 0.8)\n",
               g_last_ratio);
    }
    return 0;
}
