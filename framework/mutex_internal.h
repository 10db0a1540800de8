// Inline lock and unlock of MutexImpl for the library's own hot paths. Each
// behaves exactly as MutexImpl::lock() / unlock(): the same verbose lines,
// results and failure reports.
#pragma once

#include <pthread.h>

#include <vel_loc_fw/log_util.h>
#include <vel_loc_fw/mutex.h>

namespace vel_loc_fw {

inline int MutexImpl::lock_inline() {
    if (verbose_) log_verbose(name_, "lock: about to lock");
    const int rc = pthread_mutex_lock(&mutex_);
    if (rc != 0) return report_lock_failure(rc);
    if (verbose_) log_verbose(name_, "lock: just acquired");
    return 0;
}

inline int MutexImpl::unlock_inline() {
    // Read before the unlock: afterwards another thread may own the lock word
    // and the flag next to it.
    const bool verbose = verbose_;
    if (pthread_mutex_unlock(&mutex_) != 0) return report_unlock_failure();
    if (verbose) log_verbose(name_, "lock: just released");
    return 0;
}

inline int MutexImpl::lock_not_verbose() {
    const int rc = pthread_mutex_lock(&mutex_);
    return rc == 0 ? 0 : report_lock_failure(rc);
}

inline int MutexImpl::unlock_not_verbose() {
    return pthread_mutex_unlock(&mutex_) == 0 ? 0 : report_unlock_failure();
}

}  // namespace vel_loc_fw
