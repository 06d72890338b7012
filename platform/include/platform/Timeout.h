#pragma once

#include <platform/Atime.h>

class Diner;

/// A moment at which an event loop calls its `handle_timeout`. It may be set any number of times.
///
///     poll_due.set(100);                    // in 100 ms, instead of what was set before
///     void handle_timeout(Timeout& due) { if (&due == &poll_due) { poll(); poll_due.set(100); } }
///
/// All operations may be called from any thread. Destroy a timeout in the loop's thread or after the loop has ended, so
/// that its handler cannot be in progress, and before the loop is destroyed. Destroying it cancels it.
class Timeout {
  public:
    explicit Timeout(Diner& loop) : loop_(&loop) {}
    ~Timeout();
    Timeout(const Timeout&) = delete;
    Timeout& operator=(const Timeout&) = delete;

    /// Expires once, `units` from now (at once for 0 or less), instead of when it was set to expire before.
    void set(int units);
    /// Prevents that it expires. Does not wait for a handler in progress.
    void cancel();
    /// Whether it is set and has not expired.
    bool pending() const;

  private:
    friend class Diner;

    Diner* const loop_;
    // The loop's list of the timeouts that are set, in the order of time; guarded by the loop's lock.
    bool set_ = false;
    Atime when_;
    Timeout* next_ = nullptr;
};
