#include <platform/Atime.h>

#include <support/checks/waiting.h>

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <limits>
#include <pthread.h>
#include <thread>

namespace {

using std::chrono::milliseconds;

TEST(Atime, starts_at_zero_before_every_now) {
    EXPECT_EQ(Atime().units(), 0);
    EXPECT_LT(Atime(), Atime::now());
}

TEST(Atime, adds_and_subtracts_units) {
    const Atime early = Atime() + 1000;
    const Atime late = early + 250;
    EXPECT_EQ(late.units(), 1250);
    EXPECT_EQ(late - early, 250);
    EXPECT_EQ(early - late, -250);
    EXPECT_EQ(late + -1250, Atime());
}

TEST(Atime, compares) {
    const Atime early = Atime() + 1;
    const Atime late = Atime() + 2;
    const Atime late_too = Atime() + 2;
    EXPECT_TRUE(early < late && !(late < early) && !(late < late_too));
    EXPECT_TRUE(late > early && !(early > late) && !(late > late_too));
    EXPECT_TRUE(early <= late && late <= late_too && !(late <= early));
    EXPECT_TRUE(late >= early && late >= late_too && !(early >= late));
    EXPECT_TRUE(late == late_too && !(late == early));
    EXPECT_TRUE(late != early && !(late != late_too));
}

TEST(Atime, now_counts_the_milliseconds_of_the_monotonic_clock) {
    const auto steady_ms = [] {
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
    const auto before = steady_ms();
    const Atime now = Atime::now();
    EXPECT_GE(now.units(), before);
    EXPECT_LE(now.units(), steady_ms());
}

TEST(Atime, counts_the_milliseconds_since_a_start_and_none_since_a_start_in_the_future) {
    const unsigned long elapsed = Atime::get_elapsed_ms_since(Atime::now() + -500);
    EXPECT_GE(elapsed, 500U);
    EXPECT_LT(elapsed, 20000U);
    EXPECT_EQ(Atime::get_elapsed_ms_since(Atime::now() + 3600000), 0U);
}

TEST(Atime, delay_lasts_that_many_milliseconds) {
    const Stopwatch stopwatch;
    Atime::delay(20);
    EXPECT_GE(stopwatch.elapsed(), milliseconds(20));
}

TEST(Atime, delay_of_0_or_less_returns_at_once) {
    const Stopwatch stopwatch;
    Atime::delay(0);
    Atime::delay(-1);
    Atime::delay(std::numeric_limits<int>::min());
    EXPECT_LT(stopwatch.elapsed(), std::chrono::seconds(20));
}

std::atomic<int> signals{0};

TEST(Atime, delay_is_not_shortened_by_a_signal) {
    struct sigaction counting {};
    struct sigaction before {};
    counting.sa_handler = [](int) { ++signals; };
    sigaction(SIGUSR1, &counting, &before);
    const pthread_t sleeper = pthread_self();
    signals = 0;
    std::thread interrupter([sleeper] {
        for (int sent = 0; sent < 3; ++sent) {
            pthread_kill(sleeper, SIGUSR1);
            eventually([sent] { return signals > sent; });
        }
    });
    const Stopwatch stopwatch;
    Atime::delay(50);
    EXPECT_GE(stopwatch.elapsed(), milliseconds(50));
    interrupter.join();
    EXPECT_EQ(signals, 3);
    sigaction(SIGUSR1, &before, nullptr);
}

} // namespace
