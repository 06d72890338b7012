#pragma once

#include <glue/data_stream/Data_stream.h>

#include <atomic>
#include <sys/types.h>

/// The stream over a pair of file descriptors, one to read and one to write, possibly the same: devices, FIFOs, pipes,
/// sockets, terminals. It opens paths by itself or adopts descriptors that the caller opened.
///
/// Nothing runs in the background: a reader who asks for more bytes than are buffered reads the descriptor, for no
/// longer than the read time-out; a writer writes to it, for no longer than the write time-out.
///
///     Posix_data_stream line("DSPosix");
///     if (line.open("/dev/ttyS1", false, false, false)) {   // not created, non-blocking, not appending
///         line.set_read_timeout(200);
///         line.printf("VER\r\n");
///         if (line.bytes_avail(5U))                         // true once five bytes came, false after 200 ms
///             ...
///     }
///
/// **Ownership.** The stream owns its descriptors, adopted ones included, and closes them when it is destroyed. The
/// standard descriptors 0, 1 and 2 are never closed by it.
///
/// **Threads.** It takes no lock and has no `buffer_lock`: for one thread, or for a derived class that locks.
///
/// **Time-outs** are in milliseconds; a negative one, as at first, means waiting without limit. They bound the wait
/// for the descriptor to become ready. Where even a short wait beyond that matters, open it non-blocking: a blocking
/// descriptor takes its time over a write larger than the room it has.
///
/// Waiting uses `select`, which knows descriptors below FD_SETSIZE (1024). On one above, a wait fails at once with
/// EINVAL, as any failing wait does: a read with a time-out goes on without it and a write with one writes nothing.
class GLUE_EXPORT Posix_data_stream : public virtual Data_stream {
  public:
    /// Commands to the line behind a descriptor, which stays the stream's.
    class GLUE_EXPORT Commander : public Data_stream::Commander {
      public:
        /// Sets the descriptor; none before that.
        void init(int descriptor);
        /// Sends a break of the system's default duration; on purpose, `duration` does not matter.
        /// \return whether it was sent; false, say, for a descriptor that is no terminal
        bool send_break(int duration) override;

      private:
        int fd_ = -1;
    };

    /// Adopts two descriptors, the same one twice if that serves both ways; -1 for none.
    Posix_data_stream(int read_descriptor, int write_descriptor);
    /// A closed stream. `prefix` is the class word that its description starts with; not copied, so let it live as
    /// long as the stream.
    explicit Posix_data_stream(const char* prefix);
    /// Closes the descriptors.
    ~Posix_data_stream() override;

    // Opening by name.
    //
    // Each closes what the new descriptor replaces (a descriptor that the other direction still uses stays open for
    // it) and names the path and the direction in the description. On failure it says so on standard error, leaves
    // the direction closed and returns false.
    //
    // On purpose, and relied on: the permissions of a file that `open` or `open_write` creates are the numeric value
    // of the opening flags, O_APPEND left out, less the umask. Pass `create` only where that will do.

    /// Opens for both directions. Opening a terminal so may make it the process's controlling terminal (no O_NOCTTY).
    /// \param create    make the file when it is not there
    /// \param blocking  reads and writes wait in the system; otherwise the descriptor is non-blocking
    /// \param append    every write goes to the end of the file
    virtual bool open(const char* path, bool create, bool blocking, bool append);
    /// Opens for reading; the other direction keeps its descriptor. May win a controlling terminal, as `open`.
    virtual bool open_read(const char* path, bool blocking);
    /// Opens for writing; the other direction keeps its descriptor. Never wins a controlling terminal.
    virtual bool open_write(const char* path, bool create, bool blocking, bool append);

    // Closing. Each takes the path out of the description first, whatever it returns.

    /// Closes the reading descriptor. \return false, with nothing closed, when there is none, when it is a standard
    /// descriptor, or when writing uses it too
    bool close_read();
    /// Closes the writing descriptor. \return false in the same cases
    bool close_write();
    /// Closes the one descriptor of both directions. \return false, with nothing closed, when there is none, when it
    /// is a standard descriptor, or when the directions have one each
    bool close();

    /// Points `commander` at the writing descriptor. \return false, and nothing happens, when that is closed
    bool init_commander(Commander& commander);

    // Time-outs: stored as they are, for the calls that follow. All four return 1.

    int set_read_timeout(int ms) override;
    /// No limit.
    int set_default_read_timeout() override;
    int set_write_timeout(int ms) override;
    /// No limit.
    int set_default_write_timeout() override;

    using Data_stream::get_data;
    /// Reads `n` bytes, never more, from the descriptor into the ring, within the read time-out as a whole. Bytes that
    /// find the ring full are read and lost.
    /// \return non-zero when `n` bytes came; 0 when the reading side is closed (also for an `n` of 0), when `n` is
    ///         negative, after the time-out, at the end of the file or after a read error. The bytes that came before
    ///         that are in the ring.
    int get_data(int n) override;

    /// Without a write time-out: one plain write, whose result it returns, -1 (see `errno`) included. With one: writes
    /// until everything is out, the time-out has passed or an error occurs.
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

    /// Opens `path` with the system's flags and permissions, and makes it the descriptor of a direction: what all
    /// opening by name goes through, with the outcome told there.
    bool open_by_name(const char* path, int flags, int permissions, Direction direction);

    /// Whether a failed opening is told on standard error, as at first. For a class that tries again and again.
    std::atomic<bool> reports_failed_opening{true};

    /// Says on standard error that `select` failed, and why (`errno`).
    static void report_failed_select();

  private:
    void reset_description();
    void let_go(Direction direction);
    ssize_t read_into_ring(unsigned int most);
    int write_within_timeout(const unsigned char* data, unsigned int len);
};
