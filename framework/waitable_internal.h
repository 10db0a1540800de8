// Inline cores of WaitableBase, shared by the waitable and the blocking queue.
//
// The common path of every operation is a handful of instructions around the
// pthread calls; logging and failure reports stay out of line. Each core
// behaves exactly as the public operation of the same name.
#pragma once

#include <pthread.h>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/waitable.h>

namespace vel_loc_fw {

// The embedded mutex is driven directly unless verbose: its own verbose flag
// sits next to the lock word, and a call into it adds a layer to the hottest
// path. Its messages, verbose lines and failure reports are unchanged.
inline int WaitableBase::lock_mutex() {
    if (verbose_) return mutex_.lock();
    const int rc = pthread_mutex_lock(&mutex_.mutex_);
    return rc == 0 ? 0 : report_mutex_failure(true, rc);
}

inline int WaitableBase::unlock_mutex() {
    if (verbose_) return mutex_.unlock();
    const int rc = pthread_mutex_unlock(&mutex_.mutex_);
    return rc == 0 ? 0 : report_mutex_failure(false, rc);
}

inline int WaitableBase::lock_and_wait_impl(const TimeDiff& timeout) {
    if (verbose_) log_verbose(name_, "about to lock for wait");
    if (lock_mutex() != 0) {
        log_error_no_lock(name_, "WaitableBase: lock_and_wait error: %d", 2);
        return 2;
    }
    return ZeroIfShouldWaitAgain_locked() != 0 ? 0 : wait_locked(timeout);
}

inline int WaitableBase::lock_impl() {
    const bool verbose = verbose_;
    if (verbose) log_verbose(name_, "about to lock for state modification");
    if (lock_mutex() != 0) {
        log_error_no_lock(name_, "lock : result %d", 3);
        return 3;
    }
    if (verbose) log_verbose(name_, "just acquired lock for state modification");
    return 0;
}

inline int WaitableBase::unlock_impl() {
    // Read once, before the unlock: afterwards the other thread owns the
    // cache lines around the lock, and reading the flag would pull them back.
    const bool verbose = verbose_;
    if (verbose) log_verbose(name_, "about to unlock");
    if (unlock_mutex() != 0) {
        log_error_no_lock(name_, "unlock : result %d", 3);
        return 3;
    }
    if (verbose) log_verbose(name_, "unlocked");
    return 0;
}

// Called with the mutex held. Nobody waiting means nobody to wake, which
// keeps the condition variable out of the common path.
inline int WaitableBase::wake(bool all) {
    if (verbose_) log_verbose(name_, "about to signal");
    if (waiters_ == 0) return 0;
    return all ? pthread_cond_broadcast(&cond_) : pthread_cond_signal(&cond_);
}

inline int WaitableBase::signal_one_and_unlock_impl() {
    const int signal_rc = wake(false);
    const int unlock_rc = unlock_impl();
    return signal_rc == 0 && unlock_rc == 0 ? 0 : report_signal(false, signal_rc, unlock_rc);
}

inline int WaitableBase::signal_all_and_unlock_impl() {
    const int signal_rc = wake(true);
    const int unlock_rc = unlock_impl();
    return signal_rc == 0 && unlock_rc == 0 ? 0 : report_signal(true, signal_rc, unlock_rc);
}

}  // namespace vel_loc_fw
