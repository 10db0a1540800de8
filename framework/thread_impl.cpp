// Joinable POSIX thread running a Runnable.
#include "framework/thread_impl.h"

#include <errno.h>
#include <string.h>

#include <new>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {

namespace {

// Every framework thread carries this name, whatever the object is called.
constexpr const char* kThreadName = "loc-mq-thread";

}  // namespace

Runnable::~Runnable() = default;

Thread::~Thread() = default;

Thread* Thread::createInstance(const char* name, Runnable* runnable, bool deleteRunnable) {
    return new (std::nothrow) ThreadImpl(name, runnable, deleteRunnable);
}

ThreadImpl::ThreadImpl(const char* name, Runnable* runnable, bool deleteRunnable)
    // Unnamed threads report as "AutoLock", the text their logs have always carried.
    : name_(name != nullptr ? name : "AutoLock"),
      runnable_(runnable),
      thread_(),
      delete_runnable_(deleteRunnable),
      state_(kCreated) {
    if (runnable_ == nullptr) log_error_no_lock(name_, "ThreadImpl: result: %d", 2);
}

ThreadImpl::~ThreadImpl() {
    if (state_ == kLaunched || state_ > 3) {
        log_error_no_lock(name_, "~ThreadImpl: thread is probably still running");
    }
    if (delete_runnable_) delete runnable_;
    runnable_ = nullptr;
}

void* ThreadImpl::thread_func(void* threadImpl) {
    Runnable* runnable = static_cast<ThreadImpl*>(threadImpl)->runnable_;
    if (runnable != nullptr) runnable->run();
    return nullptr;
}

int ThreadImpl::launch() {
    int result = 0;
    pthread_attr_t attr;
    if (state_ != kCreated) {
        result = 2;
    } else if (pthread_attr_init(&attr) != 0) {
        result = 3;
    } else {
        if (pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE) != 0) {
            result = 4;
        } else if (pthread_create(&thread_, &attr, thread_func, this) != 0) {
            result = 5;
        } else if (pthread_setname_np(thread_, kThreadName) != 0) {
            // Already running; the state stays "created" as reported.
            result = 5;
        }
        if (pthread_attr_destroy(&attr) != 0 && result == 0) result = 5;
    }
    if (result != 0) {
        log_error_no_lock(name_, "launch: result: %d, errno: %d, [%s]", result, errno,
                          strerror(errno));
        return result;
    }
    state_ = kLaunched;
    return 0;
}

int ThreadImpl::join() {
    int result = 0;
    if (state_ != kLaunched) {
        result = 2;
    } else if (pthread_join(thread_, nullptr) != 0) {
        result = 3;
    }
    if (result != 0) {
        log_error_no_lock(name_, "join: result: %d, errno: %d, [%s]", result, errno,
                          strerror(errno));
        return result;
    }
    state_ = kJoined;
    return 0;
}

}  // namespace vel_loc_fw
