#pragma once

/// Turns SIGINT and SIGTERM into a readable descriptor while it lives; at most one lives at a time.
class Interrupt {
  public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /// Becomes readable when a signal has come, and stays so.
    int descriptor() const;
    /// Whether one has come.
    bool has_come() const;
};
