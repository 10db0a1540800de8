#include <vel_loc_fw/mutex.h>

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include <vel_loc_fw/log_util.h>

#include "log_capture.h"

namespace vel_loc_fw {
namespace {

class MutexTest : public testing::Test {
  protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { log_set_global_level(EL_LOG_OFF); }
    varn_test::LogCapture capture_;
};

TEST_F(MutexTest, AutoLockHoldsUntilScopeEndsAndReportsFailures) {
    std::unique_ptr<Mutex> mutex(Mutex::createInstance(nullptr, false));
    ASSERT_NE(nullptr, mutex);
    {
        AutoLock lock(mutex.get(), nullptr);
        EXPECT_EQ(0, lock.ZeroIfLocked());
        EXPECT_EQ(1, mutex->lock());  // still held by this thread
    }
    EXPECT_EQ(1u, capture_.count("[Mutex] lock: pthread_mutex_lock return code: 35, [Resource "
                                 "deadlock avoided]"))
            << capture_.dump();
    ASSERT_EQ(0, mutex->lock());
    {
        AutoLock lock(mutex.get(), "Guard");
        EXPECT_EQ(1, lock.ZeroIfLocked());
    }
    EXPECT_EQ(1u, capture_.count("[Guard] AutoLock: lock error: 3"));
    EXPECT_EQ(0u, capture_.count("unlock error"));  // nothing to release
    EXPECT_EQ(0, mutex->unlock());
    {
        AutoLock lock(nullptr, nullptr);
        EXPECT_EQ(1, lock.ZeroIfLocked());
    }
    EXPECT_EQ(1u, capture_.count("[AutoLock] AutoLock: lock error: 2"));
    EXPECT_EQ(1u, capture_.count("[AutoLock] AutoLock: unlock error: 2"));
}

TEST_F(MutexTest, VerboseMutexTracesEachStep) {
    std::unique_ptr<Mutex> mutex(Mutex::createInstance("Traced", true));
    ASSERT_EQ(0, mutex->lock());
    ASSERT_EQ(0, mutex->unlock());
    const auto lines = capture_.lines();
    ASSERT_EQ(3u, lines.size()) << capture_.dump();
    EXPECT_EQ("[Traced] lock: about to lock", lines[0].text);
    EXPECT_EQ("[Traced] lock: just acquired", lines[1].text);
    EXPECT_EQ("[Traced] lock: just released", lines[2].text);
}

TEST_F(MutexTest, ForeignUnlockAndLockedDestructionAreReported) {
    Mutex* mutex = Mutex::createInstance("Owner", false);
    ASSERT_EQ(0, mutex->lock());
    int rc = 0;
    std::thread([&] { rc = mutex->unlock(); }).join();
    EXPECT_EQ(1, rc);
    EXPECT_EQ(1u, capture_.count("[Owner] unlock: pthread_mutex_unlock error:"));
    delete mutex;  // still locked
    EXPECT_EQ(1u, capture_.count("[Owner] ~MutexImpl: pthread_mutex_destroy rc: 16, [Device or "
                                 "resource busy]"))
            << capture_.dump();
}

}  // namespace
}  // namespace vel_loc_fw
