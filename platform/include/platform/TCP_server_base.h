#pragma once

#include <platform/Cbuf.h>
#include <platform/Mutex.h>

#include <memory>
#include <string>

/// What `TCP_server` and `TCP_server_buffered` have in common: a listening port, the clients that come and go, and the
/// hooks through which a derived class gets what they send.
///
/// **Sending.** Each client has a queue of `queue_capacity` bytes behind its socket. A write goes to every client:
/// whole, and never mixed with another thread's write. When no client has room for all of it, the write is
/// refused and nobody gets anything of it: the writer tries again later, nothing is lost. When some have room and
/// others do not, those others are disconnected with a message, so that a client that has stopped reading never holds
/// up the rest. A client gets nothing that was written before it came; with no client at all writes go nowhere.
///
/// **Receiving.** The server's thread hands over bytes in the order in which each client sent them. While nobody takes
/// them the server looks again every millisecond, and the senders are held up by TCP's own flow control.
///
/// **Clients.** At most `most_clients` at a time; the next is turned away with a message. A client that closes its
/// connection or its sending direction is gone. Keep-alive (a dead peer is noticed after about a minute) and
/// TCP_NODELAY are on; no descriptor is inherited by programs that the process starts.
///
/// **Threads.** Hooks run in the server's thread, without a lock of the server: they may write. Writing, logging and
/// the questions may be called from any thread.
class TCP_server_base {
  public:
    static constexpr unsigned queue_capacity = 256 * 1024;
    static constexpr unsigned most_clients = 64;

    TCP_server_base(const TCP_server_base&) = delete;
    TCP_server_base& operator=(const TCP_server_base&) = delete;

    /// The local address, in digits, on which ports opened from now on listen; an empty text takes it back.
    /// Without one the environment variable GLUE_TCP_BIND says it, and without that servers listen on every address.
    static void set_bind_address(const std::string& address);

    /// Tells the server where received bytes finally go, and the lock of that ring: it offers no more than fits there,
    /// and may store bytes there itself. Call it before the server runs; both outlive the server's loop.
    void register_direct_read_buffer(Cbuf_templ<unsigned char>* ring, Mutex* lock);

    /// Logging of the server's own, under the given name, which is copied: clients that come and go. Goes to the debug
    /// printer's category for port traffic.
    void set_port_logging(bool on, const char* name);

    /// The port that it listens on, of use where the system chose it; -1 until it is open.
    int local_port() const;
    /// How many clients are connected.
    unsigned connection_count() const;

  protected:
    enum class Kind {
        plain,   ///< hands received bytes to `handle_incoming_data`; whoever derives logs the traffic
        buffered ///< stores received bytes in the registered ring; logs the traffic itself
    };

    explicit TCP_server_base(Kind kind);

    // Hooks: their order is part of the binary interface.

    /// Bytes from a client. What is not taken is offered again. Called with a `len` of 0 every millisecond while the
    /// registered ring is full and bytes wait: a reminder for whoever should read.
    /// \return how many were taken
    virtual unsigned int handle_incoming_data(int connection, unsigned char* data, unsigned int len) = 0;
    /// Bytes have been stored in the registered ring, whose lock is held.
    virtual void handle_direct_read() = 0;
    /// A client is gone, whoever ended it; not called for those that are there when the server ends. Does nothing here.
    virtual void handle_disconnected(int connection);

    virtual ~TCP_server_base();

    class Core;
    std::unique_ptr<Core> core_;
};
