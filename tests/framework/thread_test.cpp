#include <vel_loc_fw/thread.h>

#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"

namespace vel_loc_fw {
namespace {

class RecordingRunnable : public Runnable {
  public:
    explicit RecordingRunnable(int* deletions = nullptr) : deletions_(deletions) {}
    ~RecordingRunnable() override {
        if (deletions_ != nullptr) ++*deletions_;
    }
    void run() override {
        ran_on_ = pthread_self();
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        thread_name_ = name;
        ++runs_;
    }

    pthread_t ran_on_{};
    std::string thread_name_;
    int runs_ = 0;

  private:
    int* deletions_;
};

class ThreadTest : public ::testing::Test {
  protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { log_set_global_level(EL_LOG_OFF); }
    varn_test::LogCapture log_;
};

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

    EXPECT_EQ(1, runnable.runs_);
    EXPECT_FALSE(pthread_equal(pthread_self(), runnable.ran_on_));
    EXPECT_EQ("loc-mq-thread", runnable.thread_name_);
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
