#pragma once

#include <glue/data_stream/Data_stream.h>

/// A tap: forwards writes to another stream and prints them through the debug printer, at once or a buffer at a time.
/// Nothing is ever read from it.
///
///     unsigned char buffer[256];
///     Diagnostic_data_stream tap("to receiver", port, buffer, sizeof buffer);
///     send_commands(tap);
///     tap.print_debug();               // the rest in the buffer
///
/// Each print is a time stamp, the name, and the bytes in brackets, made readable.
///
/// **Ownership.** The caller owns target, name and buffer, which outlive the tap; destroying it prints nothing.
/// **Threads.** For one thread at a time.
class GLUE_EXPORT Diagnostic_data_stream : public Data_stream {
  public:
    /// Forwards writes and prints nothing.
    explicit Diagnostic_data_stream(Data_stream& write_to);

    /// \param shown_name  null: print nothing
    /// \param buffer      collects up to `size` bytes before they are printed; null, or a `size` of 0: print every
    ///                    write at once
    Diagnostic_data_stream(const char* shown_name, Data_stream& write_to, unsigned char* buffer, unsigned long size);
    ~Diagnostic_data_stream() override;

    using Data_stream::get_data;

    /// There is nothing to fetch.
    /// \return true for an `n` of 0 only
    int get_data(int n) override;

    /// Prints or collects the bytes, then forwards them.
    /// \return the target's result
    int _write(const unsigned char* data, unsigned int len) override;

    /// Prints `len` bytes; nothing without a name.
    void print_debug(const unsigned char* data, unsigned int len);

    /// Prints the buffered bytes and empties the buffer.
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
