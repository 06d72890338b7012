#pragma once

#include <support/checks/waiting.h>

#include <chrono>

/// Decides when a test gives up on a transfer: as long as bytes move, never.
///
///     for (Patience patience; received < expected && patience.lasts();)
///         if (const auto count = receive_some()) {
///             received += count;
///             patience.renew();
///         }
///
/// On a machine whose processors are all busy nothing may move for long although nothing is lost: `poll` on a terminal
/// waits in the kernel, past its own time limit, until a kernel thread has moved the terminal's bytes. More than 20
/// seconds were seen beside busy loops. The limit is well below that of a whole test.
class Patience {
  public:
    bool lasts() const { return since_last_move_.elapsed() < std::chrono::seconds(120); }
    /// Something has moved.
    void renew() { since_last_move_ = Stopwatch(); }

  private:
    Stopwatch since_last_move_;
};
