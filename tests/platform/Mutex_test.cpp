#include <platform/Mutex.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

int kernel_id_of_this_thread() {
    return static_cast<int>(syscall(SYS_gettid));
}

void expect_held_by_this_thread(const Mutex& mutex) {
    EXPECT_EQ(mutex.owner_thread(), QThread::currentThreadId());
    EXPECT_EQ(mutex.owner_kernel_id(), kernel_id_of_this_thread());
}

void expect_free(const Mutex& mutex) {
    EXPECT_EQ(mutex.owner_thread(), nullptr);
    EXPECT_EQ(mutex.owner_kernel_id(), 0);
}

TEST(Mutex, records_its_owner_while_held) {
    Mutex mutex;
    expect_free(mutex);
    mutex.lock();
    expect_held_by_this_thread(mutex);
    mutex.unlock();
    expect_free(mutex);
    EXPECT_TRUE(mutex.try_lock());
    expect_held_by_this_thread(mutex);
    mutex.unlock();
    expect_free(mutex);
}

TEST(Mutex, records_the_thread_that_waited_for_it) {
    Mutex mutex;
    mutex.lock();
    std::thread waiting([&] {
        const std::lock_guard guard(mutex);
        expect_held_by_this_thread(mutex);
    });
    mutex.unlock();
    waiting.join();
    expect_free(mutex);
}

TEST(Mutex, try_lock_of_a_held_mutex_fails_and_keeps_the_owner) {
    Mutex mutex;
    const std::lock_guard guard(mutex);
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_FALSE(mutex.tryLock());
    std::thread([&] { EXPECT_FALSE(mutex.try_lock()); }).join();
    expect_held_by_this_thread(mutex);
}

TEST(Mutex, is_held_by_one_thread_at_a_time) {
    constexpr unsigned threads = 4;
    constexpr unsigned rounds = 2000;
    Mutex mutex;
    unsigned counter = 0; // not atomic: guarded by the mutex only
    std::vector<std::thread> running;
    for (unsigned i = 0; i < threads; ++i)
        running.emplace_back([&] {
            for (unsigned round = 0; round < rounds; ++round) {
                const std::lock_guard guard(mutex);
                ++counter;
            }
        });
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(counter, threads * rounds);
    expect_free(mutex);
}

TEST(Mutex, reports_its_owner_once_after_a_second_and_keeps_waiting) {
    Mutex mutex;
    Captured_debug debug;
    std::atomic<int> waiting_id{0};
    std::atomic<bool> entered{false};
    mutex.lock();
    const Stopwatch stopwatch;
    std::thread waiting([&] {
        waiting_id = kernel_id_of_this_thread();
        mutex.lock();
        entered = true;
        expect_held_by_this_thread(mutex);
        mutex.unlock();
    });
    EXPECT_TRUE(eventually([&] { return !debug.text().empty(); }));
    EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(1000));
    EXPECT_FALSE(entered);
    char expected[128];
    snprintf(expected, sizeof expected, "Mutex %p: thread %d has waited over 1000 ms for thread %d\n",
             static_cast<void*>(static_cast<MutexImp*>(&mutex)), waiting_id.load(), kernel_id_of_this_thread());
    mutex.unlock();
    waiting.join();
    EXPECT_TRUE(entered);
    EXPECT_EQ(debug.text(), expected);
}

TEST(Mutex, acquired_again_by_its_owner_prints_a_backtrace_and_aborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto lock_twice = [] {
        Mutex mutex;
        mutex.lock();
        mutex.lock();
    };
    EXPECT_EXIT(lock_twice(), testing::KilledBySignal(SIGABRT),
                "Mutex 0x[0-9a-f]+: thread [0-9]+ takes again what it holds\n    .*platform.*\n    ");
}

TEST(Mutex, may_be_acquired_again_by_its_former_owner) {
    Mutex mutex;
    for (int i = 0; i < 3; ++i) {
        mutex.lock();
        mutex.unlock();
    }
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(Mutex_guard, holds_for_its_scope) {
    Mutex mutex;
    {
        const Mutex_guard guard(&mutex);
        expect_held_by_this_thread(mutex);
    }
    expect_free(mutex);
}

TEST(Mutex_guard, can_release_early_and_then_does_nothing_more) {
    Mutex mutex;
    {
        Mutex_guard guard(&mutex);
        guard.release();
        expect_free(mutex);
        mutex.lock();
        guard.release();
        expect_held_by_this_thread(mutex);
    }
    expect_held_by_this_thread(mutex);
    mutex.unlock();
}

TEST(Mutex_guard, without_a_mutex_holds_nothing) {
    Mutex_guard guard(nullptr);
    guard.release();
}

TEST(kernel_thread_id, is_that_of_the_system_and_differs_between_threads) {
    EXPECT_EQ(MutexImp::kernel_thread_id(), kernel_id_of_this_thread());
    std::thread([id_of_first = MutexImp::kernel_thread_id()] {
        EXPECT_EQ(MutexImp::kernel_thread_id(), kernel_id_of_this_thread());
        EXPECT_NE(MutexImp::kernel_thread_id(), id_of_first);
    }).join();
}

TEST(kernel_thread_id, is_correct_in_a_forked_child_and_still_in_its_parent) {
    ASSERT_EQ(MutexImp::kernel_thread_id(), kernel_id_of_this_thread()); // cached before the fork
    const pid_t child = fork();
    if (child == 0)
        _exit(MutexImp::kernel_thread_id() == kernel_id_of_this_thread() ? 0 : 1);
    ASSERT_GT(child, 0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(MutexImp::kernel_thread_id(), kernel_id_of_this_thread());
}

} // namespace
