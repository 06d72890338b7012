#pragma once

#include <chrono>
#include <ctime>
#include <thread>

/// Looks again and again until `condition()` holds. \return false when it does not within `limit`
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Time since it was made.
class Stopwatch {
  public:
    std::chrono::nanoseconds elapsed() const { return std::chrono::steady_clock::now() - start_; }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// CPU time that the whole process has used since it was made.
class Cpu_stopwatch {
  public:
    std::chrono::nanoseconds used() const { return now() - start_; }

  private:
    static std::chrono::nanoseconds now() {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }

    std::chrono::nanoseconds start_ = now();
};

/// Whether the process's threads mostly wait: what they use of the CPU within 300 ms is less than a third of what one
/// of them would use that never waits.
inline bool process_rests() {
    constexpr std::chrono::milliseconds period(300);
    const Cpu_stopwatch cpu;
    std::this_thread::sleep_for(period);
    return cpu.used() < period / 3;
}
