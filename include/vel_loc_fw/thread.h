// Joinable POSIX thread running a `Runnable`.
//
//   vel_loc_fw::Thread* thread = vel_loc_fw::Thread::createInstance("Worker", runnable, true);
//   thread->launch();   // run() starts on a new thread named "loc-mq-thread"
//   ...
//   thread->join();     // always join before deleting
//   delete thread;      // deletes `runnable` too, as asked above
//
// A thread goes created -> launched -> joined, once; it is never detached.
// Failures are reported through log_error_no_lock() under the thread's name.
#pragma once

#include <vel_loc_fw/fw_export.h>

namespace vel_loc_fw {

// The body of a thread.
class VEL_LOC_FW_EXPORT Runnable {
  public:
    virtual ~Runnable();
    // Runs on the launched thread; the thread ends when it returns.
    virtual void run() = 0;
};

class VEL_LOC_FW_EXPORT Thread {
  public:
    // Warns when the thread was launched but not joined. Deletes the runnable
    // when the thread was created to own it.
    virtual ~Thread();

    // Starts the thread. Returns 0; 2 when already launched; 3, 4 or 5 when
    // the attributes, the creation, the naming or the clean-up failed. After
    // a naming failure the thread runs although launch() reported 5.
    virtual int launch() = 0;

    // Waits until run() has returned. Returns 0; 2 when not launched (or
    // already joined); 3 when the join failed.
    virtual int join() = 0;

    // `name` (the tag of its messages, "AutoLock" when null) is borrowed and
    // must outlive the object. `runnable` is borrowed, or owned when
    // `deleteRunnable` is true. Returns null when out of memory; the caller
    // joins and deletes the thread.
    static Thread* createInstance(const char* name, Runnable* runnable, bool deleteRunnable);
};

}  // namespace vel_loc_fw
