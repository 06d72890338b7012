#pragma once

/// While it lives, SIGINT and SIGTERM make a descriptor readable instead of ending the process. On request SIGUSR1 does
/// so too: the signal with which a user switches something on and off. At most one object lives at a time.
class Interrupt {
  public:
    explicit Interrupt(bool with_switch = false);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /// Readable from the first SIGINT or SIGTERM on; after a SIGUSR1, until `take_switches`.
    int descriptor() const;
    /// Whether a SIGINT or SIGTERM was received.
    bool is_requested() const;
    /// The number of SIGUSR1 received since the last call.
    unsigned take_switches();
};
