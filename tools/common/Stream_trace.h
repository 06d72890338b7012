#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

/// Shows the traffic of a stream on standard error, whatever kind it is.
///
/// Most kinds do that themselves, as it passes through their descriptor. For those that do not - child processes, AIM
/// frames - whoever reads and writes the stream tells of it.
class Stream_trace {
  public:
    /// Shows nothing.
    Stream_trace() = default;
    /// The stream outlives this.
    explicit Stream_trace(Event_sender_data_stream& stream);

    void tell_read(const unsigned char* data, unsigned count) { show("RD", data, count, read_); }
    void tell_written(const unsigned char* data, unsigned count) { show("WR", data, count, written_); }

  private:
    void show(const char* direction, const unsigned char* data, unsigned count, unsigned& counter);

    Event_sender_data_stream* stream_ = nullptr; ///< null when there is nothing to be told
    unsigned read_ = 0;
    unsigned written_ = 0;
};
