#pragma once

#include <glue/data_stream/Posix_serial_port.h>
#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <platform/Atime.h>

/// The asynchronous stream over a serial line: a reader thread moves received bytes into the receive ring and sends
/// events. It also reopens the device when the line was gone for a while (an adapter that was unplugged, for example).
///
///     const std::unique_ptr<Posix_threaded_serial_data_stream> line(
///         Posix_threaded_serial_data_stream::create("/dev/ttyS1:115200"));
///     if (line) {
///         line->reg_rx_waiter(&my_loop_waiter, false);
///         line->printf("VER\r\n");
///     }
///
/// **Reopening.** At end of file the reader thread closes the line, prints "reopen here!" on standard error and opens
/// it again with the specification string of `create` or `open(spec)`: device, baud rate and driver mode. When that
/// fails it tries again every second, without a message, until it succeeds or the owner closes, opens or destroys the
/// stream; never more than once a second. Settings that were changed since opening (format, handshake, modem lines) are
/// lost; the bytes in the receive and transmit rings are kept. Until the line is open again, writes fail, or their
/// bytes are queued in the transmit ring. Only the first 63 characters of the string are kept. A stream that was opened
/// in another way stays closed.
///
/// Reopening changes the description and the descriptors in the reader thread: other threads use `copy_description`.
///
/// **Ownership, threads and failures** are those of Posix_threaded_data_stream. `open(spec)`, `reopen`, `close` and the
/// operations on settings may be called while the reader thread is reopening: one of them runs completely before the
/// other. A write meanwhile goes to the line or fails, never to another file. Do not call `stop` and
/// `open(spec)` in two threads at once.
///
/// Opening is without O_NOCTTY: see Posix_serial_data_stream.
class GLUE_EXPORT Posix_threaded_serial_data_stream : public Posix_threaded_data_stream, public Posix_serial_port {
  public:
    /// Milliseconds between two attempts to reopen.
    static constexpr int reopening_interval_ms = 1000;

    /// Makes a stream and opens the line that `spec` specifies (see `Posix_serial_port::open_from_args`).
    /// \return the stream, which the caller owns; null when opening failed
    [[nodiscard]] static Posix_threaded_serial_data_stream* create(const char* spec);

    /// A closed stream.
    Posix_threaded_serial_data_stream();
    /// Stops the thread and closes the line.
    ~Posix_threaded_serial_data_stream() override;

    using Posix_threaded_data_stream::open;
    /// Keeps `spec` for reopening, also when opening fails, and opens the line that it specifies.
    /// \return as `open_from_args`
    [[nodiscard]] bool open(const char* spec);
    /// Opens a device non-blocking, starts the reader thread, and prepares the line.
    /// \return false when it cannot be opened, and when `init` fails (it is no terminal, for example); in the second
    ///         case it is open
    [[nodiscard]] bool open_default(const char* device) override;
    /// Closes the line and opens it again with the last string of `open(spec)` or `create`. Prints "reopen here!" on
    /// standard error. When it fails, the reader thread, if it runs, tries again every second.
    /// \return as `open_from_args`; false, with nothing done, when there is no string yet
    bool reopen();
    /// Closes the line, forgets its settings, and ends all attempts to reopen it. Waits for a write in progress.
    /// First removes the path from the description, whatever it returns.
    /// \return false in the cases of Posix_data_stream::close; then the settings are kept
    bool close();

    /// The reading descriptor; the writing one when that is closed; -1 when both are.
    int get_fd() const override;

    using Posix_serial_port::init;
    /// Gives the stream a module id and prepares the line again.
    void init(module_man& modules) override;
    /// Prepares the line again, since another program may have used it during the pause, and ends the pause.
    void resume() override;
    /// End of file: closes and reopens the line, as described above. Does nothing on a closed stream.
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
    Mutex device_lock_;  ///< guards these members and serialises opening and closing; acquired before `line_lock`
    bool lost_;          ///< the line is gone, and the thread tries to reopen it
    Atime last_attempt_; ///< when the thread or the owner last tried to reopen the line
};
