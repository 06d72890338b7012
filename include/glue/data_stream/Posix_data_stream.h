#pragma once

#include <glue/data_stream/Data_stream.h>

#include <atomic>
#include <sys/time.h>
#include <sys/types.h>

/// The stream over a pair of file descriptors, one to read and one to write, possibly the same: devices, FIFOs, pipes,
/// sockets, terminals. It opens paths by itself or adopts descriptors that the caller opened.
///
/// It has no thread: an operation that needs more bytes than are buffered reads the descriptor, within the read
/// time-out; a write writes to it, within the write time-out.
///
///     Posix_data_stream line("DSPosix");
///     if (line.open("/dev/ttyS1", false, false, false)) {   // not created, non-blocking, not appending
///         line.set_read_timeout(200);
///         line.printf("VER\r\n");
///         if (line.bytes_avail(5U))                         // true once five bytes are received, false after 200 ms
///             ...
///     }
///
/// **Ownership.** The stream owns its descriptors, adopted ones included, and closes them when it is destroyed. The
/// standard descriptors 0, 1 and 2 are never closed by it.
///
/// **Threads.** It takes no lock and has no `buffer_lock`: for one thread, or for a derived class that locks.
///
/// **Time-outs** are in milliseconds; a negative one, as at first, means waiting without limit. They limit the wait
/// for the descriptor to become ready. A write that is larger than the free space of a blocking descriptor may take
/// longer: where that matters, open it non-blocking.
///
/// Waiting uses `select`, which knows descriptors below FD_SETSIZE (1024). The first higher one that a stream would
/// wait for is reported on standard error: a read with a time-out then goes on without it, and a write with one writes
/// nothing (`errno` is EINVAL).
class GLUE_EXPORT Posix_data_stream : public virtual Data_stream {
  public:
    /// Commands to the line of a descriptor. The stream still owns the descriptor.
    class GLUE_EXPORT Commander : public Data_stream::Commander {
      public:
        /// Sets the descriptor; without it every command fails.
        void init(int descriptor);
        /// Sends a break of the system's default duration; on purpose, `duration` is ignored.
        /// \return whether it was sent; false, for example, for a descriptor that is no terminal
        bool send_break(int duration) override;

      private:
        int fd_ = -1;
    };

    /// Adopts two descriptors, the same one twice if that serves both ways; -1 for none.
    Posix_data_stream(int read_descriptor, int write_descriptor);
    /// A closed stream. `prefix` is the class word that its description starts with; it is not copied and must live as
    /// long as the stream.
    explicit Posix_data_stream(const char* prefix);
    /// Closes the descriptors.
    ~Posix_data_stream() override;

    // ---- Opening by name ----
    //
    // Each closes the descriptor that the new one replaces (but not one that the other direction still uses) and puts
    // the path and the direction into the description. On failure it prints a message on standard error, leaves the
    // direction closed and returns false.
    //
    // On purpose, and relied on: the permissions of a file that `open` or `open_write` creates are the numeric value
    // of the opening flags without O_APPEND, less the umask. Pass `create` only where these permissions are acceptable.

    /// Opens for both directions. A terminal may become the process's controlling terminal (no O_NOCTTY).
    /// \param create    create the file when it does not exist
    /// \param blocking  reads and writes wait in the system; otherwise the descriptor is non-blocking
    /// \param append    every write goes to the end of the file
    [[nodiscard]] virtual bool open(const char* path, bool create, bool blocking, bool append);
    /// Opens for reading; the other direction keeps its descriptor. A terminal may become the controlling one.
    [[nodiscard]] virtual bool open_read(const char* path, bool blocking);
    /// Opens for writing; the other direction keeps its descriptor. No terminal becomes the controlling one.
    [[nodiscard]] virtual bool open_write(const char* path, bool create, bool blocking, bool append);

    // ---- Closing ----
    //
    // Each first removes the path from the description, whatever it returns.

    /// Closes the reading descriptor. \return false, with nothing closed, when there is none, when it is a standard
    /// descriptor, or when writing uses it, too
    bool close_read();
    /// Closes the writing descriptor. \return false in the same cases
    bool close_write();
    /// Closes the descriptor that both directions share. \return false, with nothing closed, when there is none, when
    /// it is a standard descriptor, or when each direction has its own
    bool close();

    /// Gives `commander` the writing descriptor. \return false, with nothing done, when that is closed
    bool init_commander(Commander& commander);

    // ---- Time-outs ----
    //
    // They are stored for the calls that follow. All four return 1.

    int set_read_timeout(int ms) override;
    /// No limit.
    int set_default_read_timeout() override;
    int set_write_timeout(int ms) override;
    /// No limit.
    int set_default_write_timeout() override;

    using Data_stream::get_data;
    /// Reads `n` bytes, never more, from the descriptor into the ring. The read time-out limits the whole call. Bytes
    /// that do not fit the ring are read and lost.
    /// \return non-zero when `n` bytes were read; 0 when the reading side is closed (also for an `n` of 0), when `n` is
    ///         negative, after the time-out, at end of file or after a read error. The bytes that were read before
    ///         that are in the ring.
    int get_data(int n) override;

    /// Without a write time-out: one system write; returns its result, also -1 (see `errno`). With one: writes
    /// until everything is written, the time-out has passed or an error occurs.
    /// \return the bytes written; -1 when the writing side is closed
    int _write(const unsigned char* data, unsigned int len) override;

    // ---- Additions, for callers that wait on several descriptors at once ----

    /// The reading descriptor; -1 when closed.
    int get_read_fd() const { return read_fd; }
    /// The writing descriptor; -1 when closed.
    int get_write_fd() const { return write_fd; }

  protected:
    // Atomic because a derived class reads and writes them in different threads.
    std::atomic<int> read_fd;
    std::atomic<int> write_fd;
    int read_timeout_ms;
    int write_timeout_ms;
    const char* name_prefix;

    // ---- Additions, for derived classes ----

    enum class Direction { read, write, both };

    /// Opens `path` with the system's flags and permissions for a direction. All opening by name uses it; see there for
    /// the outcome.
    [[nodiscard]] bool open_by_name(const char* path, int flags, int permissions, Direction direction);

    /// Whether a failed opening is reported on standard error, as at first. For a class that tries repeatedly.
    std::atomic<bool> reports_failed_opening{true};

    /// Reports on standard error that `select` failed, and why (`errno`).
    static void report_failed_select();

    /// Whether the stream has reported a descriptor that is too high for `select`.
    std::atomic<bool> high_descriptor_reported{false};

  private:
    void reset_description();
    void release(Direction direction);
    ssize_t read_into_ring(unsigned int most);
    bool wait_for_input(timeval& budget);
    int write_within_timeout(const unsigned char* data, unsigned int len);
    int wait_for_space(timeval& budget);
};
