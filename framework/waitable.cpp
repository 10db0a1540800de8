// Mutex, condition variable and wait-again predicate.
#include <vel_loc_fw/waitable.h>

#include <errno.h>
#include <string.h>
#include <time.h>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {

namespace {

const char* name_or_default(const char* name) {
    return name != nullptr ? name : "WaitableBase";
}

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
        log_error_no_lock(name_, "WaitableBase: pthread conditional variable error: %d, errno=%d, [%s]",
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

int WaitableBase::lock_and_wait(const TimeDiff& timeout) {
    int result = 0;
    if (verbose_) log_verbose(name_, "about to lock for wait");
    if (mutex_.lock() != 0) {
        result = 2;
    } else {
        while (ZeroIfShouldWaitAgain_locked() == 0) {
            if (verbose_) log_verbose(name_, "about to wait");
            int rc;
            if (!timeout.is_valid()) {
                rc = pthread_cond_wait(&cond_, &mutex_.mutex_);
            } else {
                const Timestamp now(CLOCK_REALTIME);
                const Timestamp deadline = now + timeout;
                if (!deadline.is_valid()) {
                    result = 12;
                    break;
                }
                // A zero or negative time-out waits until "now", which has
                // already passed: the predicate is looked at once.
                const Timestamp& until = timeout.get_total_sec() > 0 ? deadline : now;
                rc = pthread_cond_timedwait(&cond_, &mutex_.mutex_, until.getTimestampPtr());
            }
            if (verbose_) log_verbose(name_, "just waken up from wait");
            if (rc == ETIMEDOUT) break;
            if (rc != 0) {
                log_error_no_lock(name_, "lock_and_wait: pthread_cond_wait error: %d, [%s]", errno,
                                  strerror(errno));
                result = 15;
                break;
            }
        }
    }
    // On 12 and 15 the mutex stays locked: the caller's state may be
    // inconsistent, and holding the lock keeps other threads away from it.
    if (result != 0) log_error_no_lock(name_, "WaitableBase: lock_and_wait error: %d", result);
    return result;
}

int WaitableBase::lock() {
    if (verbose_) log_verbose(name_, "about to lock for state modification");
    if (mutex_.lock() != 0) {
        log_error_no_lock(name_, "lock : result %d", 3);
        return 3;
    }
    if (verbose_) log_verbose(name_, "just acquired lock for state modification");
    return 0;
}

int WaitableBase::unlock() {
    if (verbose_) log_verbose(name_, "about to unlock");
    if (mutex_.unlock() != 0) {
        log_error_no_lock(name_, "unlock : result %d", 3);
        return 3;
    }
    if (verbose_) log_verbose(name_, "unlocked");
    return 0;
}

int WaitableBase::signal_one_and_then_unlock() {
    if (verbose_) log_verbose(name_, "about to signal");
    const int signal_rc = pthread_cond_signal(&cond_);
    const int unlock_rc = unlock();
    const int result = unlock_rc != 0 ? 4 : (signal_rc != 0 ? 101 : 0);
    if (result != 0) {
        log_error_no_lock(name_, "WaitableBase: signal_one_and_then_unlock result: %d, errno %d, [%s]",
                          result, errno, strerror(errno));
    }
    return result;
}

int WaitableBase::signal_all_and_then_unlock() {
    if (verbose_) log_verbose(name_, "about to signal");
    const int signal_rc = pthread_cond_broadcast(&cond_);
    const int unlock_rc = unlock();
    const int result = unlock_rc != 0 ? 4 : (signal_rc != 0 ? 101 : 0);
    if (result != 0) {
        log_error_no_lock(name_,
                          "WaitableBase: signal_all_and_then_unlock result: %d, errno: %d, [%s]",
                          result, errno, strerror(errno));
    }
    return result;
}

}  // namespace vel_loc_fw
