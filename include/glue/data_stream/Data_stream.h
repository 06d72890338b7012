#pragma once

#include <glue/export.h>

#include <platform/Cbuf.h>
#include <platform/Mutex.h>

#include <array>
#include <cstdarg>
#include <cstdint>

class Binary_message;

/// A bidirectional stream of bytes: what every transport, adapter and message layer of the library stands on.
///
/// A concrete stream supplies two things: `get_data(int)` fetches received bytes into the receive ring, `_write` puts
/// bytes on the medium. Everything else is done here once: looking at received bytes, taking them, copying one stream
/// into another, formatted output, tracing.
///
///     unsigned char header[5];
///     if (stream.get_data(header, sizeof header, 0))   // look at five bytes, wait for them if the stream waits
///         stream.drop(sizeof header);                  // then take them
///     stream.printf("VER %d\r\n", version);
///
/// **Received bytes** pass through a ring of `rx_capacity` bytes inside the object. Some streams fill it when a reader
/// asks for more than there is (a file, a descriptor); others fill it from a thread of their own and have nothing
/// to fetch.
///
/// **Threads.** A stream whose ring is filled by another thread names a mutex as its `buffer_lock`; every reading
/// operation holds it from beginning to end, also while it fetches. Without one the ring is for one thread. Two threads
/// may write to one stream as far as this class is concerned; whether their bytes mix is up to the concrete stream.
///
/// **Ownership.** The caller owns the stream. A derived stream stops every thread that fills the ring before its own
/// destructor returns.
///
/// Inherit virtually where a class may be combined with another stream class, so that both share one ring.
class GLUE_EXPORT Data_stream {
  public:
    /// What passes through a port can be logged.
    enum data_stream_logging_t { log_none = 0, log_reads = 1, log_writes = 2, log_all = 3 };

    /// Bytes that the receive ring holds.
    static constexpr unsigned rx_capacity = 4200;
    /// Bytes of a description, the terminating NUL included.
    static constexpr unsigned description_size = 32;
    /// Bytes that one formatted write can send.
    static constexpr unsigned printf_size = 256;

    /// Commands to the line itself, beside the bytes that travel on it.
    class GLUE_EXPORT Commander {
      public:
        virtual ~Commander();
        /// Sends a break.
        /// \return whether it was sent
        virtual bool send_break(int duration) = 0;
    };

    Data_stream();
    Data_stream(const Data_stream&) = delete;
    Data_stream& operator=(const Data_stream&) = delete;

    // Virtual operations: their order is part of the binary interface.

    virtual ~Data_stream();

    /// Takes `n` bytes out of the ring, fetching first when fewer are buffered. When that fetch fails nothing is taken;
    /// when it brings fewer than asked for, what is there is taken.
    virtual void drop(unsigned int n);

    /// Empties the ring; never fetches.
    virtual void drop_all();

    /// \return the number of buffered bytes, 0 to `rx_capacity`
    virtual unsigned int bytes_avail();

    /// Switches the logging of the port's traffic; `log_none` switches it off. Does nothing here.
    /// \return 0 here
    virtual int set_port_logging(data_stream_logging_t flags);

    /// Discards what is in the transport's hands but not yet in the ring. Does nothing here.
    virtual void flush();

    // Time-outs, in milliseconds. The transports say what a negative one means. None here; all four return 0 here.

    virtual int set_read_timeout(int ms);
    virtual int set_default_read_timeout();
    virtual int set_write_timeout(int ms);
    virtual int set_default_write_timeout();

    /// Copies `len` bytes that start `offset` bytes past the oldest one into `dst`; consumes nothing.
    ///
    /// Fetches when too few are buffered. On purpose, and relied on: an `offset` beyond the buffered bytes never
    /// fetches; the result is then true only for a `len` of 0.
    /// \param dst  room for `len` bytes; fewer may be written when the result is false
    /// \return true when exactly `len` bytes were copied
    virtual bool get_data(unsigned char* dst, unsigned int len, unsigned int offset);

    /// Fetches at least `n` more bytes into the ring. Called with `buffer_lock` held, when there is one; must not take
    /// it again. `n` may be negative when a caller asked for more than 2^31 bytes: nothing can satisfy that.
    /// \return non-zero when it could
    virtual int get_data(int n) = 0;

    /// Puts `len` bytes on the medium. Use `__write` instead.
    /// \return the bytes written, or -1 for an error
    virtual int _write(const unsigned char* data, unsigned int len) = 0;

    // ---- Reading ----

    /// `get_data(n)`, for callers who hold the ring's lock already. Takes no lock.
    int _get_data(int n);

    /// The byte `i` places past the oldest one, fetching when it is not there yet. 0 when the fetch fails.
    ///
    /// On purpose, and relied on: when a fetch claims success but leaves fewer than `i` + 1 bytes, the result is the
    /// byte at the start of the ring's storage.
    unsigned char operator[](unsigned int i);

    /// Whether at least `n` bytes are buffered, after fetching what is missing.
    /// \return true, or what the fetch returned
    int bytes_avail(unsigned int n);

    /// The length of the printable line (0x20 to 0x7E) at the head of the ring. Drops the control characters in front
    /// of it; the character that ends it stays in the ring. The lock is taken anew for each step. \return 0 when no
    /// line is complete; `full_ring` when the ring is full, so that no line end can come any more
    unsigned int string_avail();
    static constexpr unsigned int full_ring = 0xFFFFFFFFU;

    // ---- Writing ----

    /// The entry for all writes. With `debug_writes` the bytes are traced.
    ///
    /// A thread that is inside this stream's `_write` already (tracing may write to the very stream it traces) writes
    /// nothing and gets 0.
    /// \return what `_write` returned: the bytes written, or -1
    int __write(const unsigned char* data, unsigned int len);

    /// The same without tracing. On purpose, a nested call reports success: it gets `len`.
    int write_direct(const unsigned char* data, unsigned int len);

    /// Writes a message and, when asked, a line feed after it, even when the message was cut short.
    /// \return true when every byte of it was written
    bool write(const Binary_message& message, bool newline);

    /// Writes what `source` has buffered and takes from `source` what was written. Holds `source`'s lock for the whole
    /// time, this stream's not at all.
    /// \return the bytes written; 0 or negative, with nothing taken, when the first write failed
    int write(Data_stream& source);

    /// Formats into `printf_size` bytes on the stack and writes the text without its NUL. Of a text of `printf_size`
    /// characters or more the first `printf_size` - 1 and a NUL are written, and the rest is lost.
    /// \return whether the write returned non-zero (-1 included); false when the text cannot be formatted
    bool vprintf(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));
    bool printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // ---- Naming and tracing ----

    /// Traces `len` buffered bytes from `offset` on, or all from there when `len` is 0 or more than there are. Neither
    /// fetches nor consumes.
    void dprint(const char* tag, unsigned int len, unsigned int offset);

    /// Names the stream in traces and logs: the first `description_size` - 1 characters of `text`, as they stand.
    /// \return true
    bool set_description(const char* text);
    /// The stream's name; "DS(address)" until somebody gives it another.
    const char* get_description() const { return description_; }
    /// Addition: a copy of the name, made under a lock, for threads that use the name while another one may change it.
    std::array<char, description_size> copy_description() const;

  protected:
    /// `dprint` for a derived stream that holds the ring's lock already. Takes no lock.
    void _dprint(const char* tag, unsigned int len, unsigned int offset);

    /// `set_description` of a formatted text, cut to fit.
    void format_description(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// The received bytes. `buffer_lock` guards it.
    Cbuf_templ<unsigned char> rx_buffer;

  private:
    unsigned char rx_storage_[rx_capacity];

  public:
    /// Trace every write through the debug printer. The library leaves it alone; an application may set it.
    bool debug_writes;
    /// Bytes received and sent, for streams that count them. Never changed here.
    std::uint32_t rx_count;
    std::uint32_t tx_count;

  protected:
    /// Guards the ring of a stream that another thread fills; null when no other thread does.
    Mutex* buffer_lock;

  private:
    struct Traced_bytes;

    bool skip(unsigned int n);
    void copy_for_trace(Traced_bytes& traced, unsigned int len, unsigned int offset) const;
    int guarded_write(const unsigned char* data, unsigned int len, int result_when_nested);

    char description_[description_size];
};
