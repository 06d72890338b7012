#pragma once

#include <glue/data_stream/Data_stream.h>

/// A tap: passes writes on to another stream and shows them through the debug printer, at once or a buffer at a time.
/// Nothing is ever read from it.
///
///     unsigned char buffer[256];
///     Diagnostic_data_stream tap("to receiver", port, buffer, sizeof buffer);
///     send_commands(tap);
///     tap.print_debug();               // what is left in the buffer
///
/// Each showing is a time stamp, the name, and the bytes in brackets, made readable.
///
/// **Ownership.** Target, name and buffer stay the caller's and outlive the tap; destroying it prints nothing.
/// **Threads.** For one thread at a time.
class GLUE_EXPORT Diagnostic_data_stream : public Data_stream {
  public:
    /// Passes writes on and shows nothing.
    explicit Diagnostic_data_stream(Data_stream& write_to);

    /// \param shown_name  null shows nothing
    /// \param buffer      collects the bytes until `size` of them are there; null, or a `size` of 0, shows every
    ///                    write at once
    Diagnostic_data_stream(const char* shown_name, Data_stream& write_to, unsigned char* buffer, unsigned long size);
    ~Diagnostic_data_stream() override;

    using Data_stream::get_data;

    /// There is nothing to fetch.
    /// \return true for an `n` of 0 only
    int get_data(int n) override;

    /// Shows or collects the bytes, then passes them on.
    /// \return what the target returned
    int _write(const unsigned char* data, unsigned int len) override;

    /// Shows `len` bytes now; nothing when there is no name.
    void print_debug(const unsigned char* data, unsigned int len);

    /// Shows what the buffer holds, and empties it.
    void print_debug();

  private:
    void collect(const unsigned char* data, unsigned int len);
    unsigned int fill_up(const unsigned char* data, unsigned int len);

    Data_stream& target_;
    const char* name_;
    unsigned char* capture_;
    unsigned int capture_size_;
    unsigned int capture_fill_;
};
