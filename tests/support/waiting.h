#pragma once

#include <chrono>
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
