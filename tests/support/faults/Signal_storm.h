#pragma once

#include <atomic>
#include <csignal>
#include <thread>

/// While it lives, every thread of the process except its own gets a signal a thousand times a second. The handler only
/// counts, and system calls are not restarted: those that wait return with EINTR.
class Signal_storm {
  public:
    Signal_storm();
    ~Signal_storm();
    Signal_storm(const Signal_storm&) = delete;
    Signal_storm& operator=(const Signal_storm&) = delete;

    /// Signals that threads have received so far.
    unsigned count() const;

  private:
    void send_signals();

    struct sigaction action_before_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};
