#pragma once

#include <glue/data_stream/Posix_serial_port.h>
#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <platform/Atime.h>

/// The asynchronous stream over a serial line: a reader thread fills the receive ring and announces what came, and
/// opens the device anew when the line has gone away and come back (an adapter that was unplugged, say).
///
///     const std::unique_ptr<Posix_threaded_serial_data_stream> line(
///         Posix_threaded_serial_data_stream::create("/dev/ttyS1:115200"));
///     if (line) {
///         line->reg_rx_waiter(&my_loop_waiter, false);
///         line->printf("VER\r\n");
///     }
///
/// **Reopening.** At the end of the line the reader thread closes it, says "reopen here!" on standard error and opens
/// anew what `create` or `open(spec)` was given: device, baud rate and driver mode. When that fails it tries again
/// every second, without saying so, until it works or the owner closes, opens or destroys the stream; never more than
/// once a second. What was set since opening (format, handshake, modem lines) is not set again; what the receive and
/// transmit rings hold stays. Meanwhile writes fail, or wait in the transmit ring. Of the text, the first 63 characters
/// are kept for this. A stream that was opened in another way stays closed.
///
/// The description, and the descriptors, change in the reader thread then. Who keeps the description, copies it.
///
/// **Ownership, threads and failures** are those of Posix_threaded_data_stream. `open(spec)`, `reopen`, `close` and the
/// operations on settings may be called while the reader thread is reopening; each of them and the reopening is as a
/// whole before or after the other; a write then goes to the line or fails, never elsewhere. Do not call `stop` and
/// `open(spec)` in two threads at once.
///
/// Opening is without O_NOCTTY: see Posix_serial_data_stream.
class GLUE_EXPORT Posix_threaded_serial_data_stream : public Posix_threaded_data_stream, public Posix_serial_port {
  public:
    /// Milliseconds between two attempts to reopen.
    static constexpr int reopening_interval_ms = 1000;

    /// Makes a stream and opens what `spec` names (see `Posix_serial_port::open_from_args`).
    /// \return the stream, which belongs to the caller; null when that failed
    static Posix_threaded_serial_data_stream* create(const char* spec);

    /// A closed stream.
    Posix_threaded_serial_data_stream();
    /// Stops the thread and closes the line.
    ~Posix_threaded_serial_data_stream() override;

    using Posix_threaded_data_stream::open;
    /// Keeps `spec` for reopening, whether the opening succeeds or not, and opens what it names.
    /// \return as `open_from_args`
    bool open(const char* spec);
    /// Opens a device without making reads and writes wait, starts the reader thread, and makes the line ready.
    /// \return false when it cannot be opened, or is no terminal and the like: then it is open all the same
    bool open_default(const char* device) override;
    /// Closes the line and opens anew what was last given to `open(spec)` or `create`. Says "reopen here!" on standard
    /// error. When it fails and the reader thread runs, that goes on trying.
    /// \return as `open_from_args`; false, and nothing happens, when nothing was given yet
    bool reopen();
    /// Closes the line, forgets its settings, and ends all attempts to reopen it. Waits for a write that is going on.
    /// Takes the path out of the description first, whatever it returns. \return false in the cases of
    /// Posix_data_stream::close; the settings stay then
    bool close();

    /// The reading descriptor; the writing one when that is closed; -1 when both are.
    int get_fd() const override;

    using Posix_serial_port::init;
    /// Gives the stream a module id and makes the line ready anew.
    void init(module_man& modules) override;
    /// Makes the line ready anew, for the case that somebody else has used it during the pause, and lets the thread go
    /// on.
    void resume() override;
    /// The end of the line: closes it and reopens it, as told above. Does nothing on a closed stream.
    void handle_close() override;

  protected:
    /// The next attempt to reopen.
    void handle_timer() override;

  private:
    static constexpr unsigned spec_size = 64;

    bool close_line();
    bool try_to_reopen();

    char spec_to_reopen_[spec_size];

    // Additions
    Mutex device_lock_;  ///< guards what is here, and keeps closing and opening apart; taken before `line_lock`
    bool lost_;          ///< the line is gone and wanted back
    Atime last_attempt_; ///< to reopen
};
