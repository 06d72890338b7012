#pragma once

#include <platform/Atime.h>

#include <cstdint>
#include <optional>

class Data_stream;

/// Where the monitor's bytes come from.
///
/// It counts what arrives by itself, so that the parser's account of the same bytes can be held against it.
class Link_input {
  public:
    enum class Arrival {
        bytes,   ///< something new is buffered
        nothing, ///< not until the deadline, or not yet: look again
        wake_up, ///< the wake-up descriptor has something
        end      ///< nothing will come any more: end of file, the line is gone, or `error()` says why
    };

    virtual ~Link_input() = default;

    /// Waits until bytes arrive, and buffers what is there as far as it fits.
    /// \param deadline           how long; without it, no limit
    /// \param wake_up_descriptor another descriptor that ends the wait when it becomes readable
    virtual Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) = 0;

    /// Does what the wake-up descriptor has become readable for. \return whether it is to end the run
    virtual bool ends_at_wake_up() { return true; }

    /// What has arrived and was not taken yet. Reading from it fetches nothing: bytes come by `wait` alone.
    virtual Data_stream& buffered_bytes() = 0;

    /// Whether what comes waits, without loss, when nobody asks for it: a file, a pipe, but no serial line.
    virtual bool can_wait() const { return false; }

    /// Bytes that have arrived.
    std::uint64_t arrived() const { return arrived_; }
    /// Why reading ended, as an errno value; 0 for a plain end.
    int error() const { return error_; }

  protected:
    std::uint64_t arrived_ = 0;
    int error_ = 0;
};
