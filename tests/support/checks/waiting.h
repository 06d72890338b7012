#pragma once

#include <support/processes/processor_time.h>

#include <chrono>
#include <thread>

/// Waits until `condition()` holds. \return false when it does not within `limit`
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

/// Measures the time since its construction.
class Stopwatch {
  public:
    std::chrono::nanoseconds elapsed() const { return std::chrono::steady_clock::now() - start_; }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Whether the process's threads wait most of the time: within a period, all of them together use less than a third of
/// the processor time that a thread which never waits would use. Tries several periods, because a thread may have work
/// to complete first.
inline bool process_rests() {
    constexpr std::chrono::milliseconds period(300);
    return eventually([period] { return cpu_time_during(period) < period / 3; });
}
