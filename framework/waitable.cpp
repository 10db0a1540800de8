// Mutex, condition variable and wait-again predicate.
#include <vel_loc_fw/waitable.h>

#include <errno.h>
#include <string.h>
#include <time.h>

#include <vel_loc_fw/log_util.h>

#include "framework/waitable_internal.h"

namespace vel_loc_fw {

namespace {

const char* name_or_default(const char* name) { return name != nullptr ? name : "WaitableBase"; }

}  // namespace

WaitableBase::WaitableBase(const char* name, bool verbose)
    : mutex_(name_or_default(name), verbose), name_(name_or_default(name)), verbose_(verbose) {
    int result = 0;
    pthread_condattr_t attr;
    if (pthread_condattr_init(&attr) != 0) {
        result = 2;
    } else if (pthread_condattr_setclock(&attr, CLOCK_REALTIME) != 0) {
        result = pthread_condattr_destroy(&attr) != 0 ? 5 : 3;
    } else {
        const int init_rc = pthread_cond_init(&cond_, &attr);
        if (pthread_condattr_destroy(&attr) != 0) {
            result = 5;
        } else if (init_rc != 0) {
            result = 4;
        }
    }
    if (result != 0) {
        log_error_no_lock(name_,
                          "WaitableBase: pthread conditional variable error: %d, errno=%d, [%s]",
                          result, errno, strerror(errno));
    }
}

// The embedded mutex is destroyed after the condition variable, as a member.
WaitableBase::~WaitableBase() {
    const int rc = pthread_cond_destroy(&cond_);
    if (rc != 0) {
        log_error_no_lock(name_, "~WaitableBase: pthread_cond_destroy error: %d, [%s]", rc,
                          strerror(rc));
    }
}

int WaitableBase::report_mutex_failure(bool lock, int rc) {
    if (lock) {
        log_error_no_lock(name_, "lock: pthread_mutex_lock return code: %d, [%s]", rc,
                          strerror(rc));
    } else {
        // errno rather than the code, as the mutex itself reports it.
        log_error_no_lock(name_, "unlock: pthread_mutex_unlock error: %d, [%s]", errno,
                          strerror(errno));
    }
    return 1;
}

int WaitableBase::wait_locked(const TimeDiff& timeout) {
    int result = 0;
    do {
        if (verbose_) log_verbose(name_, "about to wait");
        int rc;
        if (!timeout.is_valid()) {
            ++waiters_;
            rc = pthread_cond_wait(&cond_, &mutex_.mutex_);
            --waiters_;
        } else {
            // Each wait starts the full time-out again from now.
            const Timestamp now(CLOCK_REALTIME);
            const Timestamp deadline = now + timeout;
            if (!deadline.is_valid()) {
                result = 12;
                break;
            }
            // A zero or negative time-out waits until "now", which has
            // already passed: the predicate is looked at once more.
            const Timestamp& until = timeout.get_total_sec() > 0 ? deadline : now;
            ++waiters_;
            rc = pthread_cond_timedwait(&cond_, &mutex_.mutex_, until.getTimestampPtr());
            --waiters_;
        }
        if (verbose_) log_verbose(name_, "just waken up from wait");
        if (rc == ETIMEDOUT) break;
        if (rc != 0) {
            log_error_no_lock(name_, "lock_and_wait: pthread_cond_wait error: %d, [%s]", errno,
                              strerror(errno));
            result = 15;
            break;
        }
    } while (ZeroIfShouldWaitAgain_locked() == 0);
    // On 12 and 15 the mutex stays locked: the caller's state may be
    // inconsistent, and holding the lock keeps other threads away from it.
    if (result != 0) log_error_no_lock(name_, "WaitableBase: lock_and_wait error: %d", result);
    return result;
}

int WaitableBase::report_signal(bool all, int signal_rc, int unlock_rc) {
    const int result = unlock_rc != 0 ? 4 : (signal_rc != 0 ? 101 : 0);
    if (result == 0) return 0;
    if (all) {
        log_error_no_lock(name_,
                          "WaitableBase: signal_all_and_then_unlock result: %d, errno: %d, [%s]",
                          result, errno, strerror(errno));
    } else {
        log_error_no_lock(name_,
                          "WaitableBase: signal_one_and_then_unlock result: %d, errno %d, [%s]",
                          result, errno, strerror(errno));
    }
    return result;
}

int WaitableBase::lock_and_wait(const TimeDiff& timeout) { return lock_and_wait_impl(timeout); }

int WaitableBase::lock() { return lock_impl(); }

int WaitableBase::unlock() { return unlock_impl(); }

// The unlock goes through the virtual unlock(), which a derived class may
// extend.
int WaitableBase::signal_one_and_then_unlock() {
    const int signal_rc = wake(false);
    return report_signal(false, signal_rc, unlock());
}

int WaitableBase::signal_all_and_then_unlock() {
    const int signal_rc = wake(true);
    return report_signal(true, signal_rc, unlock());
}

}  // namespace vel_loc_fw
