#pragma once

#include <atomic>
#include <cstdint>

/// Hands out module ids: the identities by which the receivers of events tell their senders apart.
class module_man {
  public:
    /// Writes the next id, from 1 on, to `*id`. After 32767 ids the count starts again at 1, so that a unit that
    /// opens and closes streams for years never runs out. Callable from any thread.
    /// \param permanent  for makers who keep a list of modules; of no effect here
    /// \return 0; non-zero is for makers whose ids run out
    int init_module(std::int16_t* id, bool permanent);

  private:
    std::atomic<std::uint32_t> next_{0};
};
