// Scaffolding shared by the concurrency tests (*_stress_test.cpp, also run
// under ThreadSanitizer).
#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace varn_test {

// Runs `body(index)` for index 0..count-1, each on its own thread, all at
// once, and returns when every one has returned.
template <typename Body>
void runOnThreads(int count, Body body) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
    for (std::thread& thread : threads) thread.join();
}

// Polls `done()` every millisecond until it is true or `timeout_ms` passed.
// Returns its last value.
template <typename Predicate>
bool waitFor(Predicate done, int timeout_ms = 10000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Runs `step()` over and over on a thread of its own, pausing `pause_ms`
// between calls, until stop() or destruction.
class BackgroundLoop {
  public:
    template <typename Step>
    explicit BackgroundLoop(Step step, int pause_ms = 0)
        : thread_([this, step = std::move(step), pause_ms]() mutable {
              while (!stop_.load()) {
                  step();
                  if (pause_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
              }
          }) {}
    ~BackgroundLoop() { stop(); }
    BackgroundLoop(const BackgroundLoop&) = delete;
    BackgroundLoop& operator=(const BackgroundLoop&) = delete;

    void stop() {
        stop_.store(true);
        if (thread_.joinable()) thread_.join();
    }

  private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace varn_test
