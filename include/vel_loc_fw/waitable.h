// A mutex with a condition variable and a wait-again predicate.
//
// A derived class supplies ZeroIfShouldWaitAgain_locked(), which looks at its
// own state with the mutex held. A waiter calls lock_and_wait() and, once it
// returns 0, inspects the state and calls unlock(); a state changer calls
// lock(), changes the state, then signal_one_and_then_unlock() or
// signal_all_and_then_unlock().
//
// Time-outs run on the wall clock (`CLOCK_REALTIME`), so setting the system
// time shortens or lengthens them. Failures are reported through
// log_error_no_lock() under the object's name.
#pragma once

#include <pthread.h>

#include <vel_loc_fw/fw_export.h>
#include <vel_loc_fw/mutex.h>
#include <vel_loc_fw/time_util.h>

namespace vel_loc_fw {

class VEL_LOC_FW_EXPORT WaitableBase {
  public:
    // Locks, then waits until ZeroIfShouldWaitAgain_locked() answers non-zero
    // or `timeout` expires; an invalid `timeout` waits without limit, a zero
    // or negative one does not wait. Every wake-up that leaves the predicate
    // at 0 waits the full `timeout` again.
    // Returns 0 with the mutex held (the caller checks its state and calls
    // unlock()); 2 when the lock failed (not held); 12 when the deadline could
    // not be formed and 15 when the wait failed, both with the mutex still
    // held: the caller must not assume it can carry on with the object.
    virtual int lock_and_wait(const TimeDiff& timeout);
    // Returns 0, or 3 when the mutex could not be unlocked.
    virtual int unlock();

    virtual ~WaitableBase() = 0;

    // Returns 0 once locked, or 3 when the mutex could not be locked.
    virtual int lock();
    // Wake one (resp. every) waiter, then unlock, which is always attempted.
    // Returns 0; 4 when the unlock failed; 101 when only the signal failed.
    virtual int signal_one_and_then_unlock();
    virtual int signal_all_and_then_unlock();

    // Called with the mutex held; returns 0 while waiters must keep waiting.
    virtual int ZeroIfShouldWaitAgain_locked() = 0;

    WaitableBase(const WaitableBase&) = delete;
    WaitableBase& operator=(const WaitableBase&) = delete;

  protected:
    // `name` (the tag of its messages, "WaitableBase" when null) is borrowed
    // and must outlive the object; with `verbose` every step writes a verbose
    // line.
    WaitableBase(const char* name, bool verbose);

  private:
    pthread_cond_t cond_;
    MutexImpl mutex_;
    const char* name_;
    bool verbose_;
};

}  // namespace vel_loc_fw
