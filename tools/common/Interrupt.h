#pragma once

/// Turns SIGINT and SIGTERM into a readable descriptor while it lives, and SIGUSR1 too if it is to: the signal with
/// which a user switches something on and off. At most one lives at a time.
class Interrupt {
  public:
    explicit Interrupt(bool with_switch = false);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /// Becomes readable when a signal has come, and stays so; after a SIGUSR1, until `take_switches`.
    int descriptor() const;
    /// Whether a SIGINT or SIGTERM has come.
    bool has_come() const;
    /// How often SIGUSR1 has come since the last call.
    unsigned take_switches();
};
