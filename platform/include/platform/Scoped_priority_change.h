#pragma once

/// While it exists, the calling thread is scheduled as a background thread: for work that nobody waits for. Needs no
/// privilege; does nothing where the system refuses, or where the thread has a priority of its own.
class Scoped_priority_change {
  public:
    Scoped_priority_change();
    ~Scoped_priority_change();
    Scoped_priority_change(const Scoped_priority_change&) = delete;
    Scoped_priority_change& operator=(const Scoped_priority_change&) = delete;

  private:
    int policy_before_;
    bool changed_;
};
