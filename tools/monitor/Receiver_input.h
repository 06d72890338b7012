#pragma once

#include "Link_input.h"

#include <glue/data_stream/Posix_data_stream.h>

#include <optional>
#include <string>
#include <termios.h>

/// A device, a file or standard input as the monitor's link.
class Receiver_input : public Posix_data_stream, public Link_input {
  public:
    /// Reads standard input until another one is opened.
    Receiver_input();
    /// Gives a terminal line back its settings.
    ~Receiver_input() override;

    /// Reads `path`. A serial line is switched to raw bytes, at the speed it has; a FIFO may have no writer yet. On
    /// failure says why on standard error and returns false.
    bool open_device(const std::string& path);

    Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) override;
    Data_stream& buffered_bytes() override { return *this; }
    bool can_wait() const override;

    using Posix_data_stream::get_data;
    /// Fetches nothing: bytes come by `wait` alone, which counts them. \return whether `n` is 0
    int get_data(int n) override;

  private:
    Arrival fetch();

    std::optional<termios> line_settings_;
};
