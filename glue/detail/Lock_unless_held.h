#pragma once

#include <platform/Mutex.h>

#include <QThread>

namespace glue_detail {

/// Holds a mutex for a scope. When the calling thread holds it already, the guard neither acquires nor releases it.
///
///     const glue_detail::Lock_unless_held guard(mutex_);
///
/// For operations that may be called with the lock held and without it: `Mutex` is not recursive. A null pointer means
/// that there is no mutex to hold.
class Lock_unless_held {
  public:
    explicit Lock_unless_held(Mutex& mutex) : Lock_unless_held(&mutex) {}
    explicit Lock_unless_held(Mutex* mutex) : acquired_(is_held(mutex) ? nullptr : mutex) {
        if (acquired_)
            acquired_->lock();
    }
    ~Lock_unless_held() {
        if (acquired_)
            acquired_->unlock();
    }
    Lock_unless_held(const Lock_unless_held&) = delete;
    Lock_unless_held& operator=(const Lock_unless_held&) = delete;

  private:
    static bool is_held(const Mutex* mutex) { return mutex && mutex->owner_thread() == QThread::currentThreadId(); }

    Mutex* acquired_; ///< null when this guard releases nothing
};

} // namespace glue_detail
