#pragma once

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <termios.h>

/// The stream over the process's standard input and output: keys arrive one by one as they are pressed, what is written
/// appears as it is.
///
///     const std::unique_ptr<Posix_console_data_stream> console(Posix_console_data_stream::create("cons:"));
///     console->set_rx_callback([] { look_for_keys(); });
///     console->printf("Press q to leave\r\n");
///
/// While it lives, the terminal behind standard input neither collects lines nor echoes, and standard input does
/// not block; where the same terminal serves as standard output, that does not block either, so a write may be short.
/// Both are put back when the stream is destroyed, and by `exit` when the process ends with the stream still alive;
/// not when a signal or `_exit` ends it. Standard input that is no terminal is read all the same.
///
/// **Several consoles** at once share the input between them as it happens to fall, and each puts back what it found;
/// destroy them in the opposite order. `exit` puts back what the first of them found.
///
/// **Ownership, threads, failures** are those of Posix_threaded_data_stream; the standard descriptors stay open. The
/// end of standard input is no error: it is looked at ten times a second whether more has come.
class GLUE_EXPORT Posix_console_data_stream : public Posix_threaded_data_stream {
  public:
    /// Makes a console when `spec` begins with "cons:"; what follows does not matter.
    /// \return the console, which belongs to the caller; null for any other `spec`
    static Posix_console_data_stream* create(const char* spec);

    /// Switches the terminal and starts the reader thread.
    Posix_console_data_stream();
    /// Stops the reader thread, then puts the terminal back as it was and has standard input block.
    ~Posix_console_data_stream() override;

    using Posix_threaded_data_stream::get_data;
    /// Nothing can be fetched: keys come when they are pressed. \return true only for an `n` of 0
    int get_data(int n) override;

  private:
    Mutex console_lock_;
    termios saved_attributes_;

    // Additions
    bool is_terminal_;
};
