// Locks and threads.
#include <vel_loc_fw/mutex.h>
#include <vel_loc_fw/thread.h>

#include <pthread.h>

#include <thread>

#include "framework_test_support.h"

namespace vel_loc_fw {
namespace {

using ThreadTest = varn_test::VerboseLogTest;

// Records the name of the thread it ran on and how often it ran; counts its
// deletion in `*deletions`.
struct RecordingRunnable : Runnable {
    explicit RecordingRunnable(int* deletions = nullptr) : deletions(deletions) {}
    ~RecordingRunnable() override {
        if (deletions != nullptr) ++*deletions;
    }
    void run() override {
        pthread_getname_np(pthread_self(), name, sizeof(name));
        ++runs;
    }
    int* deletions;
    char name[16] = {};
    int runs = 0;
};

TEST_F(ThreadTest, MutexAndAutoLockReportEveryStepAndFailure) {
    Mutex* mutex = Mutex::createInstance("M", true);
    {
        AutoLock lock(mutex, nullptr);
        EXPECT_EQ(0, lock.ZeroIfLocked());
        EXPECT_EQ(1, mutex->lock());  // still held by this thread
        AutoLock again(mutex, "Guard");
        EXPECT_EQ(1, again.ZeroIfLocked());  // and releases nothing at its end
    }
    {
        AutoLock lock(nullptr, nullptr);
        EXPECT_EQ(1, lock.ZeroIfLocked());
    }
    ASSERT_EQ(0, mutex->lock());
    int rc = 0;
    std::thread([&] { rc = mutex->unlock(); }).join();
    EXPECT_EQ(1, rc);
    delete mutex;  // still locked
    EXPECT_EQ(
            "ZORLOG: [M] lock: about to lock\nZORLOG: [M] lock: just acquired\nZORLOG: [M] lock: "
            "about to lock\nZORLOG: [M] lock: pthread_mutex_lock return code: 35, [Resource "
            "deadlock avoided]\nZORLOG: [M] lock: about to lock\nZORLOG: [M] lock: "
            "pthread_mutex_lock return code: 35, [Resource deadlock avoided]\nZORLOG: [Guard] "
            "AutoLock: lock error: 3\nZORLOG: [M] lock: just released\nZORLOG: [AutoLock] "
            "AutoLock: lock error: 2\nZORLOG: [AutoLock] AutoLock: unlock error: 2\nZORLOG: [M] "
            "lock: about to lock\nZORLOG: [M] lock: just acquired\nZORLOG: [M] unlock: "
            "pthread_mutex_unlock error: 0, [Success]\nZORLOG: [M] ~MutexImpl: "
            "pthread_mutex_destroy rc: 16, [Device or resource busy]\n",
            log_.dump());
}

TEST_F(ThreadTest, RunsOnceOnANamedThreadAndEnforcesTheStates) {
    int deletions = 0;
    RecordingRunnable runnable(&deletions);
    std::unique_ptr<Thread> thread(Thread::createInstance("Worker", &runnable, false));
    EXPECT_EQ(2, thread->join());
    ASSERT_EQ(0, thread->launch());
    EXPECT_EQ(2, thread->launch());
    ASSERT_EQ(0, thread->join());
    EXPECT_EQ(2, thread->join());
    EXPECT_EQ(2, thread->launch());
    EXPECT_EQ(1, runnable.runs);
    EXPECT_STREQ("loc-mq-thread", runnable.name);
    thread.reset();  // does not delete the runnable it does not own: see `deletions` below
    EXPECT_EQ(2u, log_.count("[Worker] launch: result: 2, errno: ")) << log_.dump();
    EXPECT_EQ(2u, log_.count("[Worker] join: result: 2, errno: "));
    EXPECT_EQ(4u, log_.lines().size());  // and no "still running" warning

    // Unnamed: reported as AutoLock; owned runnables are deleted with the thread.
    EXPECT_EQ(2, std::unique_ptr<Thread>(
                         Thread::createInstance(nullptr, new RecordingRunnable(&deletions), true))
                         ->join());
    EXPECT_TRUE(log_.contains("[AutoLock] join: result: 2")) << log_.dump();
    EXPECT_EQ(1, deletions);
}

}  // namespace
}  // namespace vel_loc_fw
