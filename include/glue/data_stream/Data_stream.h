#pragma once

#include <glue/export.h>

#include <platform/Cbuf.h>
#include <platform/Mutex.h>

#include <array>
#include <cstdarg>
#include <cstdint>

class Binary_message;

/// A bidirectional stream of bytes, on which every transport, adapter and message layer of the library is built.
///
/// A concrete stream supplies two things: `get_data(int)` fetches received bytes into the receive ring, `_write` puts
/// bytes on the medium. Everything else is done here once: peeking at received bytes, consuming them, copying one
/// stream to another, formatted output, tracing.
///
///     unsigned char header[5];
///     if (stream.get_data(header, sizeof header, 0))   // peek at five bytes; some streams wait for them
///         stream.drop(sizeof header);                  // consume them
///     stream.printf("VER %d\r\n", version);
///
/// **Received bytes** pass through a ring of `rx_capacity` bytes inside the object. Some streams fill it when a reader
/// needs more bytes than are buffered (a file, a descriptor); others fill it from a thread of their own and have
/// nothing to fetch.
///
/// **Threads.** A stream whose ring is filled by another thread names a mutex as its `buffer_lock`; every reading
/// operation holds it from beginning to end, also while it fetches. Without one, only one thread may use the ring. Two
/// threads may write to one stream as far as this class is concerned; the concrete stream decides whether their bytes
/// mix.
///
/// **Ownership.** The caller owns the stream. A derived stream stops every thread that fills the ring before its own
/// destructor returns.
///
/// Inherit virtually where a class may be combined with another stream class, so that both share one ring.
class GLUE_EXPORT Data_stream {
  public:
    /// Which traffic of a port is logged.
    enum data_stream_logging_t { log_none = 0, log_reads = 1, log_writes = 2, log_all = 3 };

    /// Bytes that the receive ring holds.
    static constexpr unsigned rx_capacity = 4200;
    /// Bytes of a description, the terminating NUL included.
    static constexpr unsigned description_size = 32;
    /// Bytes that one formatted write can send.
    static constexpr unsigned printf_size = 256;

    /// Commands to the line itself, as opposed to the bytes on it.
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

    /// Consumes `n` bytes, fetching first when fewer are buffered. When that fetch fails, nothing is consumed; when it
    /// succeeds with fewer bytes than needed, all buffered bytes are consumed.
    virtual void drop(unsigned int n);

    /// Empties the ring; never fetches.
    virtual void drop_all();

    /// \return the number of buffered bytes, 0 to `rx_capacity`
    virtual unsigned int bytes_avail();

    /// Switches the logging of the port's traffic; `log_none` switches it off. Does nothing here.
    /// \return 0 here
    virtual int set_port_logging(data_stream_logging_t flags);

    /// Drops received bytes that the transport has not yet put into the ring. Does nothing here.
    virtual void flush();

    // Time-outs, in milliseconds. Each transport defines what a negative one means. This class has none; all four
    // return 0 here.

    virtual int set_read_timeout(int ms);
    virtual int set_default_read_timeout();
    virtual int set_write_timeout(int ms);
    virtual int set_default_write_timeout();

    /// Copies `len` bytes that start `offset` bytes past the oldest one into `dst`; consumes nothing.
    ///
    /// Fetches when too few are buffered. On purpose, and relied on: an `offset` beyond the buffered bytes never
    /// fetches; the result is then true only for a `len` of 0.
    /// \param dst  holds `len` bytes; fewer may be written when the result is false
    /// \return true when exactly `len` bytes were copied
    virtual bool get_data(unsigned char* dst, unsigned int len, unsigned int offset);

    /// Fetches at least `n` more bytes into the ring. Called with `buffer_lock` held, when there is one; must not
    /// acquire it again. `n` is negative when a caller asks for more than 2^31 bytes: nothing can satisfy that.
    /// \return non-zero on success
    virtual int get_data(int n) = 0;

    /// Puts `len` bytes on the medium. Use `__write` instead.
    /// \return the bytes written, or -1 for an error
    virtual int _write(const unsigned char* data, unsigned int len) = 0;

    // ---- Reading ----

    /// `get_data(n)`, for callers that hold the ring's lock already. Acquires no lock.
    int _get_data(int n);

    /// The byte `i` places past the oldest one, fetched when it is not buffered. 0 when the fetch fails.
    ///
    /// On purpose, and relied on: when a fetch reports success but leaves fewer than `i` + 1 bytes, the result is the
    /// byte at the start of the ring's storage.
    unsigned char operator[](unsigned int i);

    /// Whether at least `n` bytes are buffered. Fetches the missing ones.
    /// \return true, or the result of the fetch
    int bytes_avail(unsigned int n);

    /// The length of the printable line (0x20 to 0x7E) at the head of the ring. Drops the control characters before it;
    /// the character that ends it stays in the ring. The lock is acquired for each step separately.
    /// \return 0 when no line is complete; `full_ring` when the ring is full, so that no line end can be received
    unsigned int string_avail();
    static constexpr unsigned int full_ring = 0xFFFFFFFFU;

    // ---- Writing ----

    /// The entry for all writes. With `debug_writes` they are traced.
    ///
    /// A thread that is inside this stream's `_write` already (tracing may write to the stream that it traces) writes
    /// nothing and gets 0.
    /// \return the result of `_write`: the bytes written, or -1
    int __write(const unsigned char* data, unsigned int len);

    /// The same without tracing. On purpose, a nested call reports success: it gets `len`.
    int write_direct(const unsigned char* data, unsigned int len);

    /// Writes a message and, with `newline`, a line feed after it, even when only a part of the message was written.
    /// \return true when every byte of it was written
    bool write(const Binary_message& message, bool newline);

    /// Writes the buffered bytes of `source`, and consumes the written ones there. Holds the lock of `source` for the
    /// whole time, this stream's not at all.
    /// \return the bytes written; 0 or negative, with nothing consumed, when the first write failed
    int write(Data_stream& source);

    /// Formats into `printf_size` bytes on the stack and writes the text without its NUL. A text of `printf_size`
    /// characters or more is cut: its first `printf_size` - 1 and a NUL are written.
    /// \return whether the write returned non-zero (-1 included); false when the text cannot be formatted
    bool vprintf(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));
    bool printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // ---- Naming and tracing ----

    /// Traces `len` buffered bytes from `offset` on, or all from there when `len` is 0 or too large. Neither fetches
    /// nor consumes.
    void dprint(const char* tag, unsigned int len, unsigned int offset);

    /// Names the stream in traces and logs: the first `description_size` - 1 characters of `text`, unchanged.
    /// \return true
    bool set_description(const char* text);
    /// The stream's name; "DS(address)" until it gets another one.
    const char* get_description() const { return description_; }
    /// Addition: a copy of the name, made under a lock, for threads that use the name while another one may change it.
    std::array<char, description_size> copy_description() const;

  protected:
    /// `dprint` for a derived stream that holds the ring's lock already. Acquires no lock.
    void _dprint(const char* tag, unsigned int len, unsigned int offset);

    /// `set_description` of a formatted text, cut to fit.
    void format_description(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// What `get_data(n)` returns in a stream that has nothing to fetch: true for an `n` of 0 only.
    static int fetch_nothing(int n) { return n == 0; }

    /// The received bytes. `buffer_lock` guards it.
    Cbuf_templ<unsigned char> rx_buffer;

  private:
    unsigned char rx_storage_[rx_capacity];

  public:
    /// Trace every write through the debug printer. The library never changes it; an application may.
    bool debug_writes;
    /// Bytes received and sent, for streams that count them. This class never changes them.
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
