#pragma once

#include <glue/data_stream/Posix_data_stream.h>
#include <glue/data_stream/Posix_serial_port.h>

/// The synchronous stream over a serial line: it has no thread, and reading operations read the line. For the
/// asynchronous one, see Posix_threaded_serial_data_stream.
///
///     Posix_serial_data_stream line;
///     if (line.open_from_args("/dev/ttyS1:115200")) {
///         line.set_read_timeout(200);
///         line.printf("VER\r\n");
///         if (line.bytes_avail(5U))
///             ...
///     }
///
/// **Ownership, time-outs and threads** are those of Posix_data_stream. Closing and destroying do not change the line's
/// settings; call `restore` first to apply its former ones.
///
/// All opening except `open_nonintrusive` is without O_NOCTTY. The device then becomes the controlling terminal of a
/// process that leads a session and has none, and the process gets SIGHUP when the line hangs up. Where that matters,
/// start the process with a controlling terminal, or not as a session leader.
class GLUE_EXPORT Posix_serial_data_stream : public Posix_data_stream, public Posix_serial_port {
  public:
    /// A closed stream.
    Posix_serial_data_stream();

    using Posix_data_stream::open;
    /// Opens a device, puts its path into the description (also when it cannot be opened) and prepares its line.
    /// \return false when it cannot be opened, and when `init` fails (it is no terminal, for example); in the second
    ///         case it is open
    [[nodiscard]] bool open(const char* path, bool create, bool blocking, bool append) override;
    /// Calls `open`: without creating a file, blocking, not appending.
    [[nodiscard]] bool open_default(const char* device) override;
    /// Opens a device for reading only, and leaves the line's settings unchanged. The port has no settings then;
    /// `get_fd` returns the line's descriptor, so that a later `init` can prepare the line.
    /// \return whether it is open
    [[nodiscard]] bool open_nonintrusive(const char* path);

    /// Closes the line and forgets its settings. First removes the path from the description, whatever it returns.
    /// \return false in the cases of Posix_data_stream::close; then the settings are kept
    bool close();

    /// The descriptor that both directions share; -1 when there is none, or each direction has its own.
    int get_fd() const override;

    /// Usage text of the command-line option that names a serial device.
    static const char* get_help();
};
