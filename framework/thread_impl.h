// The one implementation of Thread.
#pragma once

#include <pthread.h>

#include <vel_loc_fw/thread.h>

namespace vel_loc_fw {

class ThreadImpl : public Thread {
  public:
    ThreadImpl(const char* name, Runnable* runnable, bool deleteRunnable);
    ~ThreadImpl() override;

    int launch() override;
    int join() override;

    // Start routine: runs the runnable of `threadImpl`, returns null.
    static void* thread_func(void* threadImpl);

    ThreadImpl(const ThreadImpl&) = delete;
    ThreadImpl& operator=(const ThreadImpl&) = delete;

  private:
    enum State : int { kCreated = 0, kLaunched = 1, kJoined = 2 };

    const char* name_;
    Runnable* runnable_;
    pthread_t thread_;
    bool delete_runnable_;
    int state_;
};

}  // namespace vel_loc_fw
