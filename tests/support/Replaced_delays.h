#pragma once

#include <atomic>
#include <functional>

/// Takes over `Atime::delay()` while it lives: nobody sleeps; what happens instead is up to the test, in the thread
/// that would sleep. One at a time; set it up before other threads start.
///
///     Replaced_delays delays;
///     delays.meanwhile = [&] { if (delays.count == 3) stream.drop(1); };   // room comes during the third delay
class Replaced_delays {
  public:
    Replaced_delays();
    ~Replaced_delays();
    Replaced_delays(const Replaced_delays&) = delete;
    Replaced_delays& operator=(const Replaced_delays&) = delete;

    std::atomic<int> count{0};        ///< delays so far, the present one included
    std::atomic<int> milliseconds{0}; ///< their sum
    std::function<void()> meanwhile;
};
