#pragma once

#include <glue/data_stream/Posix_data_stream.h>

#include <platform/Atime.h>

#include <cstdint>
#include <optional>
#include <string>
#include <termios.h>

/// The monitor's end of the link: a device, a file or standard input.
///
/// It counts what arrives by itself, so that the parser's account of the same bytes can be held against it.
class Receiver_input : public Posix_data_stream {
  public:
    enum class Arrival {
        bytes,   ///< something new is buffered
        nothing, ///< not until the deadline, or not yet: look again
        wake_up, ///< the wake-up descriptor has something
        end      ///< nothing will come any more: end of file, the line is gone, or `error()` says why
    };

    /// Reads standard input until another one is opened.
    Receiver_input();
    /// Gives a terminal line back its settings.
    ~Receiver_input() override;

    /// Reads `path`. A serial line is switched to raw bytes, at the speed it has; a FIFO may have no writer yet. On
    /// failure says why on standard error and returns false.
    bool open_device(const std::string& path);

    /// Waits until bytes arrive, and buffers what is there as far as it fits.
    /// \param deadline           how long; without it, no limit
    /// \param wake_up_descriptor another descriptor that ends the wait when it becomes readable
    Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor);

    using Posix_data_stream::get_data;
    /// Fetches nothing: bytes come by `wait` alone, which counts them. \return whether `n` is 0
    int get_data(int n) override;

    /// Bytes that have arrived.
    std::uint64_t arrived() const { return arrived_; }
    /// Why reading ended, as an errno value; 0 for a plain end.
    int error() const { return error_; }

  private:
    Arrival fetch();

    std::uint64_t arrived_ = 0;
    int error_ = 0;
    std::optional<termios> line_settings_;
};
