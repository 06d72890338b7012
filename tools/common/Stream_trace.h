#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

/// Shows the traffic of a stream on standard error, whatever kind it is.
///
/// Most kinds log their traffic themselves. For the others (child processes, AIM frames) the code that reads and writes
/// the stream calls `log_read` and `log_written`; for the first these do nothing.
class Stream_trace {
  public:
    /// Shows nothing.
    Stream_trace() = default;
    /// \param stream  outlives the trace
    explicit Stream_trace(Event_sender_data_stream& stream);

    void log_read(const unsigned char* data, unsigned count) { log("RD", data, count, read_); }
    void log_written(const unsigned char* data, unsigned count) { log("WR", data, count, written_); }

  private:
    void log(const char* direction, const unsigned char* data, unsigned count, unsigned& counter);

    Event_sender_data_stream* stream_ = nullptr; ///< null when nothing is logged here
    unsigned read_ = 0;
    unsigned written_ = 0;
};
