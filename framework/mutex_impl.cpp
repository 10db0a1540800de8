// Error-checking POSIX mutex and scoped lock.
#include <vel_loc_fw/mutex.h>

#include <errno.h>
#include <string.h>

#include <new>

#include <vel_loc_fw/log_util.h>

#include "framework/mutex_internal.h"

namespace vel_loc_fw {

Mutex::~Mutex() = default;

Mutex* Mutex::createInstance(const char* name, bool verbose) {
    return new (std::nothrow) MutexImpl(name, verbose);
}

MutexImpl::MutexImpl(const char* name, bool verbose)
    : name_(name != nullptr ? name : "Mutex"), verbose_(verbose) {
    int result = 0;
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) {
        result = 2;
    } else if (pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK) != 0) {
        result = pthread_mutexattr_destroy(&attr) != 0 ? 5 : 3;
    } else {
        const int init_rc = pthread_mutex_init(&mutex_, &attr);
        if (pthread_mutexattr_destroy(&attr) != 0) {
            result = 5;
        } else if (init_rc != 0) {
            result = 4;
        }
    }
    if (result != 0) {
        log_error_no_lock(name_, "MutexImpl: result: %d, error: %d, [%s]", result, errno,
                          strerror(errno));
    }
}

MutexImpl::~MutexImpl() {
    const int rc = pthread_mutex_destroy(&mutex_);
    if (rc != 0) {
        log_error_no_lock(name_, "~MutexImpl: pthread_mutex_destroy rc: %d, [%s]", rc,
                          strerror(rc));
    }
}

int MutexImpl::lock() { return lock_inline(); }

int MutexImpl::unlock() { return unlock_inline(); }

int MutexImpl::report_lock_failure(int rc) const {
    log_error_no_lock(name_, "lock: pthread_mutex_lock return code: %d, [%s]", rc, strerror(rc));
    return 1;
}

int MutexImpl::report_unlock_failure() const {
    // pthread returns the code rather than setting errno; errno is what this
    // message has always carried, so field reports stay comparable.
    log_error_no_lock(name_, "unlock: pthread_mutex_unlock error: %d, [%s]", errno,
                      strerror(errno));
    return 1;
}

// Lock failed, or there was no mutex to lock.
void AutoLock::reportLockFailure() const {
    log_error_no_lock(name_, "AutoLock: lock error: %d", mutex_ == nullptr ? 2 : 3);
}

// Unlock failed, or there was no mutex to unlock.
void AutoLock::reportUnlockFailure() const {
    log_error_no_lock(name_, "AutoLock: unlock error: %d", mutex_ == nullptr ? 2 : 3);
}

}  // namespace vel_loc_fw
