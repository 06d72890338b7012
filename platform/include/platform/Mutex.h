#pragma once

#include <QMutex>
#include <QThread>

#include <atomic>

/// The part of a `Mutex` that waits.
class MutexImp {
  public:
    /// Acquires the mutex without waiting. \return false when it is held
    bool tryLock();

    /// Waits until the mutex is free, and acquires it. After a second it reports once, through the debug printer, which
    /// thread holds the mutex, then keeps waiting. A thread that already holds the mutex would wait for ever: instead
    /// it prints a backtrace and aborts the process.
    void debug_lock();

    /// Kernel id of the calling thread; one system call per thread (and one more after a fork).
    static int kernel_thread_id();

  protected:
    MutexImp() = default;
    ~MutexImp() = default;

    void record_owner();
    void clear_owner_and_unlock();

    QMutex mutex_;
    std::atomic<Qt::HANDLE> owner_thread_{nullptr};
    std::atomic<int> owner_kernel_id_{0};
};

/// The lock of the library: a QMutex that records the thread that holds it. Not recursive.
///
/// It is a BasicLockable: use `std::lock_guard`, or `Mutex_guard` where the mutex may be absent.
class Mutex : public MutexImp {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Tries without waiting, else waits in `debug_lock()`; then records the calling thread as the owner.
    void lock();
    /// Acquires the mutex only if it is free, and records the owner.
    bool try_lock();
    /// Clears the owner, then releases.
    void unlock();

    /// Qt's id of the thread that holds the mutex; null when it is free.
    Qt::HANDLE owner_thread() const { return owner_thread_.load(std::memory_order_relaxed); }
    /// Kernel id of the thread that holds the mutex; 0 when it is free.
    int owner_kernel_id() const { return owner_kernel_id_.load(std::memory_order_relaxed); }
};

/// Holds a mutex for a scope. A null pointer means that there is no mutex: nothing is held.
class Mutex_guard {
  public:
    explicit Mutex_guard(Mutex* mutex) : mutex_(mutex) {
        if (mutex_)
            mutex_->lock();
    }
    ~Mutex_guard() { release(); }
    Mutex_guard(const Mutex_guard&) = delete;
    Mutex_guard& operator=(const Mutex_guard&) = delete;

    /// Releases the mutex before the scope ends.
    void release() {
        if (mutex_)
            mutex_->unlock();
        mutex_ = nullptr;
    }

  private:
    Mutex* mutex_;
};
