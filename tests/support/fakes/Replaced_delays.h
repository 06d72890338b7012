#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

/// Replaces `Atime::delay()` while it exists: the delay is recorded, and instead of sleeping the thread runs an action
/// of the test. One at a time; construct it before other threads start.
///
///     Replaced_delays delays([&](std::size_t count) { if (count == 3) stream.drop(1); });   // frees space
class Replaced_delays {
  public:
    /// \param action  runs instead of each delay, with the number of delays so far, this one included
    explicit Replaced_delays(std::function<void(std::size_t)> action = {});
    ~Replaced_delays();
    Replaced_delays(const Replaced_delays&) = delete;
    Replaced_delays& operator=(const Replaced_delays&) = delete;

    std::function<void(std::size_t)> meanwhile;
    std::atomic<int> count{0};        ///< delays so far
    std::atomic<int> milliseconds{0}; ///< their sum
    /// The duration of each.
    std::vector<int> units() const;

    void record(int units);

  private:
    mutable std::mutex mutex_;
    std::vector<int> units_;
};
