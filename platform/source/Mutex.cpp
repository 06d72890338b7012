#include <platform/Mutex.h>

#include <platform/Debug.h>

#include <cstdlib>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace {

constexpr int patience_ms = 1000;

thread_local int cached_kernel_id = 0;

void forget_kernel_id() {
    cached_kernel_id = 0;
}

/// Qt's library is not built for ThreadSanitizer, which therefore does not see what QMutex does: these report it.
void report_acquire([[maybe_unused]] void* mutex) {
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(mutex);
#endif
}

void report_release([[maybe_unused]] void* mutex) {
#if defined(__SANITIZE_THREAD__)
    __tsan_release(mutex);
#endif
}

} // namespace

int MutexImp::kernel_thread_id() {
    static const bool forgets_after_fork = pthread_atfork(nullptr, nullptr, forget_kernel_id) == 0;
    if (cached_kernel_id == 0 || !forgets_after_fork)
        cached_kernel_id = static_cast<int>(syscall(SYS_gettid));
    return cached_kernel_id;
}

bool MutexImp::tryLock() {
    if (!mutex_.tryLock())
        return false;
    report_acquire(this);
    return true;
}

void MutexImp::debug_lock() {
    if (owner_thread_.load(std::memory_order_relaxed) == QThread::currentThreadId()) {
        Debug::Print::print_backtrace("Mutex %p: thread %d takes again what it holds\n", static_cast<void*>(this),
                                      kernel_thread_id());
        std::abort();
    }
    if (!mutex_.tryLock(patience_ms)) {
        Debug::Print::critical("Mutex %p: thread %d has waited over %d ms for thread %d\n", static_cast<void*>(this),
                               kernel_thread_id(), patience_ms, owner_kernel_id_.load(std::memory_order_relaxed));
        mutex_.lock();
    }
    report_acquire(this);
}

void MutexImp::record_owner() {
    owner_thread_.store(QThread::currentThreadId(), std::memory_order_relaxed);
    owner_kernel_id_.store(kernel_thread_id(), std::memory_order_relaxed);
}

void MutexImp::clear_owner_and_unlock() {
    owner_thread_.store(nullptr, std::memory_order_relaxed);
    owner_kernel_id_.store(0, std::memory_order_relaxed);
    report_release(this);
    mutex_.unlock();
}

void Mutex::lock() {
    if (!tryLock())
        debug_lock();
    record_owner();
}

bool Mutex::try_lock() {
    if (!tryLock())
        return false;
    record_owner();
    return true;
}

void Mutex::unlock() {
    clear_owner_and_unlock();
}
