#pragma once

#include <functional>
#include <mutex>
#include <vector>

/// Stands in for `Atime::delay` while it lives: nobody sleeps, how long they would have is recorded, and what happens
/// meanwhile is up to the test. One at a time; from any thread.
class Replaced_delays {
  public:
    /// \param meanwhile  runs in the thread that would sleep, with the number of delays so far
    explicit Replaced_delays(std::function<void(std::size_t)> meanwhile = {});
    ~Replaced_delays();
    Replaced_delays(const Replaced_delays&) = delete;
    Replaced_delays& operator=(const Replaced_delays&) = delete;

    /// The units of each delay so far.
    std::vector<int> units() const;

    void note(int units);

  private:
    std::function<void(std::size_t)> meanwhile_;
    mutable std::mutex mutex_;
    std::vector<int> units_;
};
