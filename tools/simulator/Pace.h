#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <thread>

namespace simulator {

/// Beats at a rate, by the monotonic clock. The time of each beat counts from the first one, so that neither rounding
/// nor a slow reader makes the pace drift; late beats follow each other at once.
class Pace {
  public:
    /// \param rate  beats a second; 0: without waiting
    explicit Pace(double rate) : rate_(rate), start_(Clock::now()) {}

    using Clock = std::chrono::steady_clock;

    /// The time of the next beat, which is thereby used up. The first one is due at once.
    Clock::time_point next() { return rate_ > 0 ? start_ + due_after(beats_++) : start_; }

    /// Waits for the next beat.
    void wait() { std::this_thread::sleep_until(next()); }

  private:
    Clock::duration due_after(std::uint64_t beats) const {
        constexpr double longest_wait = 1e9; // seconds; the clock's range is little larger
        const std::chrono::duration<double> seconds(std::min(static_cast<double>(beats) / rate_, longest_wait));
        return std::chrono::duration_cast<Clock::duration>(seconds);
    }

    double rate_;
    Clock::time_point start_;
    std::uint64_t beats_ = 0;
};

} // namespace simulator
