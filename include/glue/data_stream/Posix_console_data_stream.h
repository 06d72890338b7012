#pragma once

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <termios.h>

/// The stream over the process's standard input and output: each key is received when it is pressed, and written bytes
/// are shown unchanged.
///
///     const std::unique_ptr<Posix_console_data_stream> console(Posix_console_data_stream::create("cons:"));
///     console->set_rx_callback([] { handle_keys(); });
///     console->printf("Press q to leave\r\n");
///
/// While it lives, the terminal of standard input neither buffers lines nor echoes, and standard input does
/// not block. Where standard output is the same terminal, it does not block either, so a write may be short.
/// Both are restored when the stream is destroyed, and by `exit` when the stream still exists;
/// not when a signal or `_exit` ends the process. Standard input that is no terminal is read, too.
///
/// **Several consoles** at once share the input: which one receives a byte is left to chance. Each restores the
/// settings that it found, so destroy them in the opposite order. `exit` restores the settings that the first one
/// found.
///
/// **Ownership, threads, failures** are those of Posix_threaded_data_stream; the standard descriptors stay open. The
/// end of standard input is no error: the thread checks ten times a second for more input.
class GLUE_EXPORT Posix_console_data_stream : public Posix_threaded_data_stream {
  public:
    /// Makes a console when `spec` begins with "cons:"; the rest is ignored.
    /// \return the console, which the caller owns; null for any other `spec`
    [[nodiscard]] static Posix_console_data_stream* create(const char* spec);

    /// Switches the terminal and starts the reader thread.
    Posix_console_data_stream();
    /// Stops the reader thread, restores the terminal's settings and makes standard input blocking.
    ~Posix_console_data_stream() override;

    using Posix_threaded_data_stream::get_data;
    /// Nothing can be fetched: the thread moves all input into the ring. \return true only for an `n` of 0
    int get_data(int n) override;

  private:
    Mutex console_lock_;
    termios saved_attributes_;

    // Additions
    bool is_terminal_;
};
