#pragma once

#include <QMutex>
#include <QThread>

#include <atomic>

/// The part of a `Mutex` that waits.
class MutexImp {
  public:
    /// Takes the mutex without waiting; false when somebody holds it.
    bool tryLock();

    /// Waits until the mutex is free, and takes it. After a second it says once through the debug printer who holds the
    /// mutex, then keeps waiting. A thread that waits for what it holds itself would wait for ever: it gets a
    /// backtrace and the process is aborted.
    void debug_lock();

    /// Kernel id of the calling thread, asked of the system once per thread (and again after a fork).
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

/// The lock of the library: a QMutex that knows who holds it. Not recursive.
///
/// A BasicLockable, so `std::lock_guard<Mutex>` serves; `Mutex_guard` where there may be no mutex at all.
class Mutex : public MutexImp {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Tries without waiting, else waits in `debug_lock()`; then records the calling thread as the holder.
    void lock();
    /// Takes the mutex only when nobody holds it, and records the holder.
    bool try_lock();
    /// Clears the holder, then releases.
    void unlock();

    /// Qt's id of the thread that holds the mutex; null when nobody does.
    Qt::HANDLE owner_thread() const { return owner_thread_.load(std::memory_order_relaxed); }
    /// Kernel id of the thread that holds the mutex; 0 when nobody does.
    int owner_kernel_id() const { return owner_kernel_id_.load(std::memory_order_relaxed); }
};

/// Holds a mutex for a scope; a null pointer means that there is nothing to hold.
class Mutex_guard {
  public:
    explicit Mutex_guard(Mutex* mutex) : mutex_(mutex) {
        if (mutex_)
            mutex_->lock();
    }
    ~Mutex_guard() { release(); }
    Mutex_guard(const Mutex_guard&) = delete;
    Mutex_guard& operator=(const Mutex_guard&) = delete;

    /// Lets go before the scope ends.
    void release() {
        if (mutex_)
            mutex_->unlock();
        mutex_ = nullptr;
    }

  private:
    Mutex* mutex_;
};
