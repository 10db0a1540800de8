// Concurrency of the framework: a blocking queue's producers and consumers
// with a close mid-traffic or while every consumer waits; log calls racing with
// every setter of the logging state. Meant for the ThreadSanitizer build as well.
#include <vel_loc_fw/blocking_queue.h>

#include <algorithm>

#include "framework_test_support.h"
#include "stress_support.h"

namespace vel_loc_fw {
namespace {

using BlockingQueueStressTest = varn_test::VerboseLogTest;

TEST_F(BlockingQueueStressTest, EveryAcceptedItemIsPoppedOnceInProducerOrder) {
    constexpr uintptr_t kProducers = 4, kConsumers = 3, kPerProducer = 3000;
    std::unique_ptr<BlockingQueue> queue(BlockingQueue::createInstance("Stress", false));
    std::atomic<uintptr_t> half_way{0};
    uintptr_t accepted[kProducers] = {};
    std::vector<uintptr_t> popped[kConsumers];
    // Thread 0 closes the queue once every producer is half-way through. An item
    // is producer * kPerProducer + sequence number + 1: never null.
    varn_test::runOnThreads(1 + kProducers + kConsumers, [&](int index) {
        const uintptr_t t = static_cast<uintptr_t>(index);
        if (t == 0) {
            EXPECT_TRUE(varn_test::waitFor([&] { return half_way == kProducers; }));
            EXPECT_EQ(0, queue->close());  // also when the wait failed, so that all end
        }
        for (uintptr_t seq = 0; t > 0 && t <= kProducers && seq < kPerProducer; ++seq) {
            if (seq == kPerProducer / 2) ++half_way;
            const int rc = queue->push(reinterpret_cast<void*>((t - 1) * kPerProducer + seq + 1));
            if (rc == 3) break;  // closed: this and every later push are refused
            ASSERT_EQ(0, rc);
            accepted[t - 1] = seq + 1;
        }
        TimeDiff timeout(t == kProducers + 1);  // one consumer polls, the others block
        if (timeout.is_valid()) timeout.add_msec(1);
        for (bool done = false; t > kProducers && !done;) {
            void* item = nullptr;
            bool closed = false;
            ASSERT_EQ(0, queue->pop(&item, timeout, &closed));
            if (item != nullptr)
                popped[t - 1 - kProducers].push_back(reinterpret_cast<uintptr_t>(item));
            done = closed && item == nullptr;
        }
    });
    std::vector<uintptr_t> all, want;
    for (const std::vector<uintptr_t>& items : popped) {
        uintptr_t last[kProducers] = {};  // each consumer sees a producer's items in push order
        for (uintptr_t item : items) {
            EXPECT_GT(item, last[(item - 1) / kPerProducer]) << "reordered";
            last[(item - 1) / kPerProducer] = item;
        }
        all.insert(all.end(), items.begin(), items.end());
    }
    for (uintptr_t p = 0; p < kProducers; ++p) {
        EXPECT_GE(accepted[p], kPerProducer / 2);
        for (uintptr_t seq = 0; seq < accepted[p]; ++seq)
            want.push_back(p * kPerProducer + seq + 1);
    }
    std::sort(all.begin(), all.end());
    EXPECT_TRUE(all == want) << "each accepted item popped exactly once, nothing else";
}

TEST_F(BlockingQueueStressTest, CloseWakesEveryWaiter) {
    std::unique_ptr<BlockingQueue> queue(BlockingQueue::createInstance("Q", true));
    varn_test::runOnThreads(3, [&](int index) {
        void* got = &got;
        bool closed = false;
        if (index > 0) {
            EXPECT_EQ(0, queue->pop(&got, TimeDiff(false), &closed));
            EXPECT_TRUE(closed && got == nullptr);
            return;
        }
        // Each waiter logs "about to wait" with the queue's mutex held, just
        // before blocking on the condition variable.
        EXPECT_TRUE(varn_test::waitFor([&] { return log_.count("about to wait") == 2; }));
        EXPECT_EQ(0, queue->close());  // also when the wait failed, so that all end
    });
    // Steps carry the waitable's name, not the queue's.
    EXPECT_TRUE(log_.contains("[BlockingQueue] about to signal") && !log_.contains("[Q]"));
}

TEST(LogUtilStressTest, TagLevelsHoldWhileOtherLevelsChange) {
    varn_test::LogCapture capture;
    // Set first and never touched again: found behind ten newer tags.
    ASSERT_EQ(0, log_set_local_level_for_tag("Muted", EL_LOG_OFF));
    ASSERT_EQ(0, log_set_local_level_for_tag("Loud", EL_VERBOSE));
    std::vector<std::string> tags;
    for (int i = 0; i < 10; ++i) tags.push_back("Busy" + std::to_string(i));

    std::atomic<bool> stop{false};
    std::atomic<int> muted_enabled{0};
    std::atomic<size_t> loud_calls{0};
    // Thread 0 changes every setting while the others log.
    varn_test::runOnThreads(4, [&](int t) {
        for (int i = 0; t == 0 && i < 3000; ++i) {
            const std::string& tag = tags[static_cast<size_t>(i) % tags.size()];
            log_set_local_level_for_tag(tag.c_str(), i % 3 == 0 ? EL_VERBOSE : EL_ERROR);
            if (i % 7 == 0) log_flush_local_level_for_tag(tag.c_str());
            log_set_global_level(i % 2 == 0 ? EL_VERBOSE : EL_INFO);
            log_set_global_tag(i % 2 == 0 ? "ZORLOG" : "OTHER");
        }
        if (t == 0) stop = true;
        for (int i = 0; t != 0 && (!stop || i < 100); ++i) {
            log_verbose("Loud", "loud %d", i);
            ++loud_calls;
            log_verbose("Muted", "muted %d", i);
            log_error("Muted", "muted %d", i);
            log_debug(tags[static_cast<size_t>(i + t) % tags.size()].c_str(), "busy %d", i);
            if (is_log_level_enabled("Muted", EL_ERROR)) ++muted_enabled;
            if (t == 1) log_error_no_lock("Muted", "muted no lock %d", i);
        }
    });
    log_flush_all_local_level();
    log_set_global_level(EL_LOG_OFF);
    log_set_global_tag("ZORLOG");

    EXPECT_EQ(0u, capture.count("muted"));
    EXPECT_EQ(0, muted_enabled.load());
    EXPECT_EQ(loud_calls.load(), capture.count("[Loud] loud"));
}

}  // namespace
}  // namespace vel_loc_fw
