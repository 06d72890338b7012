#include <glue/data_stream/Capped_semaphore.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int long_enough_ms = 20000;

TEST(Capped_semaphore, starts_without_permits_and_without_cap) {
    Capped_semaphore semaphore;
    EXPECT_EQ(semaphore.available(), 0);
    EXPECT_FALSE(semaphore.is_capped());
    EXPECT_FALSE(semaphore.acquire(0));
}

TEST(Capped_semaphore, counts_permits_without_cap) {
    Capped_semaphore semaphore;
    for (int i = 0; i < 3; ++i)
        semaphore.release();
    EXPECT_EQ(semaphore.available(), 3);
    EXPECT_TRUE(semaphore.acquire(0));
    EXPECT_TRUE(semaphore.acquire(long_enough_ms));
    semaphore.acquire();
    EXPECT_FALSE(semaphore.acquire(0));
    EXPECT_EQ(semaphore.available(), 0);
}

TEST(Capped_semaphore, cap_keeps_one_permit) {
    Capped_semaphore semaphore;
    semaphore.set_capped(true);
    EXPECT_TRUE(semaphore.is_capped());
    semaphore.release();
    semaphore.release();
    semaphore.release();
    EXPECT_EQ(semaphore.available(), 1);
    EXPECT_TRUE(semaphore.acquire(0));
    EXPECT_FALSE(semaphore.acquire(0));
}

TEST(Capped_semaphore, cap_that_is_set_late_removes_one_permit_per_release) {
    Capped_semaphore semaphore;
    for (int i = 0; i < 3; ++i)
        semaphore.release();
    semaphore.set_capped(true);
    EXPECT_EQ(semaphore.available(), 3);
    semaphore.release();
    EXPECT_EQ(semaphore.available(), 3);
}

TEST(Capped_semaphore, counts_again_when_the_cap_is_cleared) {
    Capped_semaphore semaphore;
    semaphore.set_capped(true);
    semaphore.release();
    semaphore.set_capped(false);
    semaphore.release();
    EXPECT_EQ(semaphore.available(), 2);
}

TEST(Capped_semaphore, permits_beyond_the_most_are_not_counted) {
    Capped_semaphore semaphore;
    for (int i = 0; i < Capped_semaphore::most_permits + 3; ++i)
        semaphore.release();
    EXPECT_EQ(semaphore.available(), Capped_semaphore::most_permits);
}

TEST(Capped_semaphore, acquire_waits_for_its_whole_time_limit) {
    Capped_semaphore semaphore;
    const auto start = Clock::now();
    EXPECT_FALSE(semaphore.acquire(30));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(29));
}

TEST(Capped_semaphore, release_wakes_a_waiting_thread) {
    for (const int limit : {long_enough_ms, -1}) {
        Capped_semaphore semaphore;
        std::atomic<bool> woken{false};
        std::thread waiter([&] { woken = semaphore.acquire(limit); });
        semaphore.release();
        waiter.join();
        EXPECT_TRUE(woken) << limit;
    }
}

TEST(Capped_semaphore, loses_no_permit_between_threads) {
    constexpr int permits = 20000;
    Capped_semaphore semaphore;
    std::thread releaser([&] {
        for (int i = 0; i < permits; ++i)
            semaphore.release();
    });
    int acquired = 0;
    while (acquired < permits && semaphore.acquire(long_enough_ms))
        ++acquired;
    releaser.join();
    EXPECT_EQ(acquired, permits);
    EXPECT_EQ(semaphore.available(), 0);
}

} // namespace
