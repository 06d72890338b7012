#pragma once

#include <atomic>
#include <cstdint>

/// Assigns module ids, by which the receiver of an event identifies its sender.
class module_man {
  public:
    /// Writes the next id, from 1 on, to `*id`. After 32767 the ids start again at 1, so that a unit that opens and
    /// closes streams for years never runs out of them. Callable from any thread.
    /// \param permanent  for makers who keep a list of modules; no effect here
    /// \return 0; non-zero is for makers whose ids run out
    int init_module(std::int16_t* id, bool permanent);

    /// Writes `count` consecutive ids to `ids`.
    /// \param count  1 to 32767
    /// \return 0; -1, with nothing written, for any other count
    int init_module_array(std::uint16_t* ids, int count, bool permanent);

  private:
    std::uint32_t reserve(std::uint32_t count);

    std::atomic<std::uint32_t> next_{0}; ///< the next id, minus 1
};
