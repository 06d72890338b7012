#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

/// Takes over `Atime::delay()` while it lives: nobody sleeps, how long they would have is recorded, and what happens
/// instead is up to the test, in the thread that would sleep. One at a time; set it up before other threads start.
///
///     Replaced_delays delays([&](std::size_t count) { if (count == 3) stream.drop(1); });   // room comes then
class Replaced_delays {
  public:
    /// \param in_the_meantime  runs instead of each delay, with their number so far, that one included
    explicit Replaced_delays(std::function<void(std::size_t)> in_the_meantime = {});
    ~Replaced_delays();
    Replaced_delays(const Replaced_delays&) = delete;
    Replaced_delays& operator=(const Replaced_delays&) = delete;

    std::function<void(std::size_t)> meanwhile;
    std::atomic<int> count{0};        ///< delays so far
    std::atomic<int> milliseconds{0}; ///< their sum
    /// How long each would have been.
    std::vector<int> units() const;

    void note(int units);

  private:
    mutable std::mutex mutex_;
    std::vector<int> units_;
};
