#pragma once

#include <platform/Atime.h>

#include <cstdint>
#include <optional>

class Data_stream;

/// The source of the monitor's bytes.
///
/// It counts the received bytes itself, so that the parser's account of the same bytes can be compared with it.
class Link_input {
  public:
    enum class Arrival {
        bytes,   ///< new bytes are buffered
        nothing, ///< no bytes so far; the deadline may have passed
        wake_up, ///< the wake-up descriptor is readable
        end      ///< no more bytes will follow: end of file, a line that hung up, or `error()` has the reason
    };

    virtual ~Link_input() = default;

    /// Waits until bytes arrive, and buffers as many as fit.
    /// \param deadline           when to stop waiting; without it, never
    /// \param wake_up_descriptor ends the wait, too, when it becomes readable
    virtual Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) = 0;

    /// Handles the event that made the wake-up descriptor readable. \return whether it ends the run
    virtual bool ends_at_wake_up() { return true; }

    /// The bytes that were received and not consumed yet. Reading from it fetches nothing: only `wait` receives bytes.
    virtual Data_stream& buffered_bytes() = 0;

    /// Whether back-pressure loses no bytes: true for a file or a pipe, false for a serial line.
    virtual bool can_wait() const { return false; }

    /// How many bytes were received.
    std::uint64_t arrived() const { return arrived_; }
    /// Why reading ended, as an errno value; 0 for a plain end.
    int error() const { return error_; }

  protected:
    std::uint64_t arrived_ = 0;
    int error_ = 0;
};
