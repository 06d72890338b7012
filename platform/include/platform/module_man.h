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

    /// Writes `count` ids, each one above the one before, to `ids`.
    /// \param count  1 to 32767
    /// \return 0; -1, with nothing written, for any other count
    int init_module_array(std::uint16_t* ids, int count, bool permanent);

  private:
    std::uint32_t take(std::uint32_t count);

    std::atomic<std::uint32_t> next_{0}; ///< 0 stands for id 1
};
