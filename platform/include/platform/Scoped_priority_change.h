#pragma once

/// Makes the calling thread step back behind others while it lives: work that nobody waits for. Needs no privilege;
/// does nothing where the system refuses.
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
