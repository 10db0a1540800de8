// Mutex and scoped lock.
//
// `Mutex` hides an error-checking POSIX mutex: relocking from the owning
// thread fails with EDEADLK instead of deadlocking, and unlocking from another
// thread fails too. `AutoLock` locks in its constructor and unlocks in its
// destructor:
//
//   vel_loc_fw::AutoLock guard(mutex, "MyModule");
//   if (guard.ZeroIfLocked() != 0) return kLockFailed;
//
// Failures are reported through log_error_no_lock(), never through a locking
// log function, because the log mutex is itself a Mutex.
#pragma once

#include <pthread.h>

#include <vel_loc_fw/fw_export.h>

namespace vel_loc_fw {

class VEL_LOC_FW_EXPORT Mutex {
  public:
    virtual ~Mutex();
    // Returns 0 once locked, 1 on failure (reported under the mutex's name).
    virtual int lock() = 0;
    // Returns 0 once unlocked, 1 on failure (reported under the mutex's name).
    virtual int unlock() = 0;

    // Creates an error-checking mutex. `name` (the tag of its messages,
    // "Mutex" when null) is borrowed and must outlive the mutex. With
    // `verbose`, lock and unlock write verbose lines. Returns null when out of
    // memory; the caller deletes the result.
    static Mutex* createInstance(const char* name, bool verbose);
};

// The one implementation of Mutex. Embedded by WaitableBase; everyone else
// creates mutexes through Mutex::createInstance().
class MutexImpl final : public Mutex {
  public:
    MutexImpl(const char* name, bool verbose);
    ~MutexImpl() override;
    int lock() override;
    int unlock() override;

    // Library-internal: lock() and unlock() themselves, defined inline in
    // the library (framework/mutex_internal.h) so that its own hot paths, the
    // log mutex above all, bind to them without a call. Hidden: nothing
    // outside the library can use them.
    __attribute__((visibility("hidden"))) int lock_inline();
    __attribute__((visibility("hidden"))) int unlock_inline();
    // The same for a mutex created without `verbose` (the log mutex), which
    // need not test the flag.
    __attribute__((visibility("hidden"))) int lock_not_verbose();
    __attribute__((visibility("hidden"))) int unlock_not_verbose();

    MutexImpl(const MutexImpl&) = delete;
    MutexImpl& operator=(const MutexImpl&) = delete;

  private:
    // Waits on its condition variable with this mutex.
    friend class WaitableBase;

    // Out of line: the failure reports of lock_inline() and unlock_inline().
    __attribute__((visibility("hidden"))) int report_lock_failure(int rc) const;
    __attribute__((visibility("hidden"))) int report_unlock_failure() const;

    const char* name_;
    bool verbose_;
    pthread_mutex_t mutex_;
};

// Scoped lock on a Mutex, owned by the thread that creates it. `name` (the tag
// of its error messages, "AutoLock" when null) is borrowed.
class VEL_LOC_FW_EXPORT AutoLock {
  public:
    // Inline: every log call takes a scoped lock, so the common path must
    // cost no more than the lock itself.
    AutoLock(Mutex* mutex, const char* name)
        : mutex_(mutex), name_(name != nullptr ? name : "AutoLock"), locked_(false) {
        if (mutex_ != nullptr && mutex_->lock() == 0) {
            locked_ = true;
        } else {
            reportLockFailure();
        }
    }
    ~AutoLock() {
        if (mutex_ != nullptr && locked_ && mutex_->unlock() == 0) {
            locked_ = false;
        } else if (mutex_ == nullptr || locked_) {
            reportUnlockFailure();
        }
    }

    // 0 when the lock is held, 1 otherwise. Test it right after construction.
    int ZeroIfLocked() const { return locked_ ? 0 : 1; }

    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

  private:
    void reportLockFailure() const;
    void reportUnlockFailure() const;

    Mutex* mutex_;
    const char* name_;
    bool locked_;
};

}  // namespace vel_loc_fw
