#pragma once

#include <atomic>
#include <csignal>
#include <thread>

/// While it lives, every thread of the process but its own gets a signal a thousand times a second. The handler does
/// nothing, and system calls are not begun anew behind it: those that wait return with EINTR.
class Signal_storm {
  public:
    Signal_storm();
    ~Signal_storm();
    Signal_storm(const Signal_storm&) = delete;
    Signal_storm& operator=(const Signal_storm&) = delete;

    /// Signals that threads have got so far.
    unsigned count() const;

  private:
    void blow();

    struct sigaction action_before_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};
