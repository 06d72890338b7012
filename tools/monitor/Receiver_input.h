#pragma once

#include "Link_input.h"

#include <glue/data_stream/Posix_data_stream.h>

#include <optional>
#include <string>
#include <termios.h>

/// A device, a file or standard input as the monitor's link.
class Receiver_input : public Posix_data_stream, public Link_input {
  public:
    /// Reads standard input until a device is opened.
    Receiver_input();
    /// Restores the settings of a terminal line.
    ~Receiver_input() override;

    /// Reads `path`. A serial line is switched to raw bytes and keeps its speed; a FIFO may have no writer yet.
    /// \return false, with the reason on standard error, when it cannot be opened
    bool open_device(const std::string& path);

    Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) override;
    Data_stream& buffered_bytes() override { return *this; }
    bool can_wait() const override;

    using Posix_data_stream::get_data;
    /// Fetches nothing: only `wait` receives bytes and counts them. \return whether `n` is 0
    int get_data(int n) override;

  private:
    Arrival fetch();

    std::optional<termios> line_settings_;
};
