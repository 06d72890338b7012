#pragma once

#include <glue/data_stream/Posix_data_stream.h>
#include <glue/data_stream/Posix_serial_port.h>

/// The synchronous stream over a serial line: nothing runs in the background, a reader reads the line itself. For the
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
/// **Ownership, time-outs and threads** are those of Posix_data_stream. Closing and destroying leave the line set as it
/// is; `restore` before that gives it back its former settings.
///
/// Opening without O_NOCTTY, as this class does except for `open_nonintrusive`, makes the device the controlling
/// terminal of a process that leads a session and has none: it gets SIGHUP when the line hangs up then. Start such a
/// process with one, or as no session leader, where that matters.
class GLUE_EXPORT Posix_serial_data_stream : public Posix_data_stream, public Posix_serial_port {
  public:
    /// A closed stream.
    Posix_serial_data_stream();

    using Posix_data_stream::open;
    /// Opens a device, names it in the description (also when it cannot be opened) and makes its line ready.
    /// \return false when it cannot be opened, or is no terminal and the like: then it is open all the same
    bool open(const char* path, bool create, bool blocking, bool append) override;
    /// `open`, not creating anything, blocking, not appending.
    bool open_default(const char* device) override;
    /// Opens a device for reading alone, to listen without touching the line's settings. The port has no settings then;
    /// `get_fd` names the line, so that `init` takes hold of it after all.
    /// \return whether it is open
    bool open_nonintrusive(const char* path);

    /// Closes the line and forgets its settings. Takes the path out of the description first, whatever it returns.
    /// \return false in the cases of Posix_data_stream::close; the settings stay then
    bool close();

    /// The descriptor of a line that both directions share; -1 when there is none, or each direction has its own.
    int get_fd() const override;

    /// Usage text of the command-line option that names a serial device.
    static const char* get_help();
};
