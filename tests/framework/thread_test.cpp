// Locks and threads.
#include <vel_loc_fw/mutex.h>
#include <vel_loc_fw/thread.h>

#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "framework_test_support.h"

namespace vel_loc_fw {
namespace {

// Records where it ran and how often; counts its deletion in `*deletions`.
struct RecordingRunnable : Runnable {
    explicit RecordingRunnable(int* deletions = nullptr) : deletions(deletions) {}
    ~RecordingRunnable() override {
        if (deletions != nullptr) ++*deletions;
    }
    void run() override {
        pthread_getname_np(pthread_self(), name, sizeof(name));
        ran_on = pthread_self();
        ++runs;
    }
    int* deletions;
    char name[16] = {};
    pthread_t ran_on{};
    int runs = 0;
};

using ThreadTest = varn_test::VerboseLogTest;

TEST_F(ThreadTest, AutoLockHoldsUntilScopeEndsAndReportsFailures) {
    std::unique_ptr<Mutex> mutex(Mutex::createInstance(nullptr, false));
    ASSERT_NE(nullptr, mutex);
    {
        AutoLock lock(mutex.get(), nullptr);
        EXPECT_EQ(0, lock.ZeroIfLocked());
        EXPECT_EQ(1, mutex->lock());  // still held by this thread
    }
    EXPECT_EQ(1u, log_.count("[Mutex] lock: pthread_mutex_lock return code: 35, [Resource "
                             "deadlock avoided]"))
            << log_.dump();
    ASSERT_EQ(0, mutex->lock());
    {
        AutoLock lock(mutex.get(), "Guard");
        EXPECT_EQ(1, lock.ZeroIfLocked());
    }
    EXPECT_EQ(1u, log_.count("[Guard] AutoLock: lock error: 3"));
    EXPECT_EQ(0u, log_.count("unlock error"));  // nothing to release
    EXPECT_EQ(0, mutex->unlock());
    {
        AutoLock lock(nullptr, nullptr);
        EXPECT_EQ(1, lock.ZeroIfLocked());
    }
    EXPECT_EQ(1u, log_.count("[AutoLock] AutoLock: lock error: 2"));
    EXPECT_EQ(1u, log_.count("[AutoLock] AutoLock: unlock error: 2"));
}

TEST_F(ThreadTest, MutexTracesEachStepAndReportsMisuse) {
    Mutex* mutex = Mutex::createInstance("Owner", true);
    ASSERT_EQ(0, mutex->lock());
    ASSERT_EQ(0, mutex->unlock());
    ASSERT_EQ(0, mutex->lock());
    int rc = 0;
    std::thread([&] { rc = mutex->unlock(); }).join();
    EXPECT_EQ(1, rc);
    delete mutex;  // still locked
    const auto lines = log_.lines();
    ASSERT_EQ(7u, lines.size()) << log_.dump();
    EXPECT_EQ("[Owner] lock: about to lock", lines[0].text);
    EXPECT_EQ("[Owner] lock: just acquired", lines[1].text);
    EXPECT_EQ("[Owner] lock: just released", lines[2].text);
    EXPECT_EQ(0u, lines[5].text.rfind("[Owner] unlock: pthread_mutex_unlock error:", 0));
    EXPECT_EQ("[Owner] ~MutexImpl: pthread_mutex_destroy rc: 16, [Device or resource busy]",
              lines[6].text);
}

TEST_F(ThreadTest, RunsOnceOnANamedThreadAndEnforcesTheStates) {
    RecordingRunnable runnable;
    std::unique_ptr<Thread> thread(Thread::createInstance("Worker", &runnable, false));
    ASSERT_NE(nullptr, thread);
    EXPECT_EQ(2, thread->join());
    EXPECT_TRUE(log_.contains("[Worker] join: result: 2, errno: ")) << log_.dump();

    ASSERT_EQ(0, thread->launch());
    EXPECT_EQ(2, thread->launch());
    EXPECT_TRUE(log_.contains("[Worker] launch: result: 2, errno: ")) << log_.dump();
    ASSERT_EQ(0, thread->join());
    EXPECT_EQ(2, thread->join());
    EXPECT_EQ(2, thread->launch());

    EXPECT_EQ(1, runnable.runs);
    EXPECT_FALSE(pthread_equal(pthread_self(), runnable.ran_on));
    EXPECT_STREQ("loc-mq-thread", runnable.name);
    thread.reset();
    EXPECT_FALSE(log_.contains("still running")) << log_.dump();

    // Unnamed: reported as AutoLock.
    EXPECT_EQ(2,
              std::unique_ptr<Thread>(Thread::createInstance(nullptr, &runnable, false))->join());
    EXPECT_TRUE(log_.contains("[AutoLock] join: result: 2")) << log_.dump();
}

TEST_F(ThreadTest, RunnableOwnershipAndNullRunnable) {
    int deletions = 0;
    RecordingRunnable kept(&deletions);
    delete Thread::createInstance("T", &kept, false);
    EXPECT_EQ(0, deletions);
    delete Thread::createInstance("T", new RecordingRunnable(&deletions), true);
    EXPECT_EQ(1, deletions);

    std::unique_ptr<Thread> thread(Thread::createInstance("T", nullptr, true));
    EXPECT_TRUE(log_.contains("[T] ThreadImpl: result: 2")) << log_.dump();
    EXPECT_EQ(0, thread->launch());
    EXPECT_EQ(0, thread->join());
}

// Spins until the process ends; tells when it has started, after which the
// thread no longer touches its Thread object.
class EndlessRunnable : public Runnable {
  public:
    void run() override {
        started_ = true;
        for (;;) sched_yield();
    }
    std::atomic<bool> started_{false};
};

TEST(ThreadDeathTest, DeletingALaunchedThreadWarns) {
    // In a child process: the unjoined thread must not outlive the test. The
    // child is forked, not re-executed, which user-mode emulation cannot do;
    // no other thread is alive at this point.
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
            {
                log_set_global_level(EL_ERROR);
                log_set_local_level_for_tag("T", EL_ERROR, EO_STDOUT);
                dup2(STDERR_FILENO, STDOUT_FILENO);
                static EndlessRunnable runnable;
                Thread* thread = Thread::createInstance("T", &runnable, false);
                thread->launch();
                while (!runnable.started_) sched_yield();
                delete thread;
                fflush(stdout);
                _exit(0);
            },
            ::testing::ExitedWithCode(0), "\\[T\\] ~ThreadImpl: thread is probably still running");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
}

}  // namespace
}  // namespace vel_loc_fw
