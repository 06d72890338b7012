#pragma once

#include <platform/Atime.h>

class Diner;

/// A moment at which an event loop calls its `handle_timeout`: the loop's alarm clock, set as often as one likes.
///
///     poll_due.set(100);                    // in 100 ms, whatever was set before
///     void handle_timeout(Timeout& due) { if (&due == &poll_due) { poll(); poll_due.set(100); } }
///
/// All operations may be called from any thread. A timeout belongs to the object that sets it and is destroyed in the
/// loop's thread or when the loop has ended, so that its handler cannot be on its way, and before the loop is;
/// destroying it cancels it.
class Timeout {
  public:
    explicit Timeout(Diner& loop) : loop_(&loop) {}
    ~Timeout();
    Timeout(const Timeout&) = delete;
    Timeout& operator=(const Timeout&) = delete;

    /// Goes off once, `units` from now (at once for 0 or less), instead of whenever it was set to go off before.
    void set(int units);
    /// Does not go off. A handler that runs already, in the loop's thread, is not held up.
    void cancel();
    /// Whether it is set and has not gone off.
    bool pending() const;

  private:
    friend class Diner;

    Diner* const loop_;
    // The loop's list of what is set, in the order of time; guarded by the loop's lock.
    bool set_ = false;
    Atime when_;
    Timeout* next_ = nullptr;
};
