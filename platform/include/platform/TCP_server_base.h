#pragma once

#include <platform/Cbuf.h>
#include <platform/Mutex.h>

#include <memory>
#include <string>

/// The common part of `TCP_server` and `TCP_server_buffered`: a listening port, its clients, and the hooks through
/// which a derived class receives what they send.
///
/// **Sending.** Each client has a queue of `queue_capacity` bytes in addition to its socket's buffer. A write goes to
/// every client: whole, and never mixed with another thread's write. When it does not fit into the queue of any client,
/// it is refused and nothing is sent: the writer tries again later (back-pressure), nothing is lost. When it fits into
/// some queues and not into others, the clients of those others are disconnected with a message, so that a client that
/// has stopped reading never delays the rest. A client does not receive what was written before it connected. Without
/// clients, writes succeed and go nowhere.
///
/// **Receiving.** The server's thread delivers the bytes of each client in the order in which they were sent. While
/// they are not accepted, the server tries again every millisecond, and TCP's flow control makes the senders wait.
///
/// **Clients.** At most `most_clients` at a time; another one is disconnected at once, with a message. A client that
/// closes its connection or its sending direction is disconnected. Keep-alive (a dead peer is noticed after about a
/// minute) and TCP_NODELAY are on; programs that the process starts inherit no descriptor.
///
/// **Threads.** Hooks run in the server's thread, without a lock of the server: they may write. All operations except
/// `register_direct_read_buffer` may be called from any thread.
class TCP_server_base {
  public:
    static constexpr unsigned queue_capacity = 256 * 1024;
    static constexpr unsigned most_clients = 64;

    TCP_server_base(const TCP_server_base&) = delete;
    TCP_server_base& operator=(const TCP_server_base&) = delete;

    /// Sets the local address, in digits, for ports that are opened later; an empty text removes the setting. Without
    /// it the environment variable GLUE_TCP_BIND names the address; without that, servers listen on every address.
    static void set_bind_address(const std::string& address);

    /// Registers the ring that finally receives the bytes, and its lock: the server offers no more than fits there, and
    /// may append to it directly. Call it before the server runs; both must outlive the server's loop.
    void register_direct_read_buffer(Cbuf_templ<unsigned char>* ring, Mutex* lock);

    /// Switches the server's own log: clients that connect and disconnect, under the given name, which is copied. It
    /// goes to the debug printer's category for port traffic.
    void set_port_logging(bool on, const char* name);

    /// The port that the server listens on (with port 0 the system chooses it); -1 until it is open.
    int local_port() const;
    /// The number of connected clients.
    unsigned connection_count() const;

  protected:
    enum class Kind {
        plain,   ///< delivers received bytes to `handle_incoming_data`; the derived class logs the traffic
        buffered ///< appends received bytes to the registered ring; logs the traffic itself
    };

    explicit TCP_server_base(Kind kind);

    // ---- Hooks: their order is part of the binary interface ----

    /// Bytes from a client. Those that are not accepted are offered again. Called with a `len` of 0 every millisecond
    /// while the registered ring is full and bytes wait: the hook notifies its reader again.
    /// \return how many were accepted
    virtual unsigned int handle_incoming_data(int connection, unsigned char* data, unsigned int len) = 0;
    /// Bytes have been appended to the registered ring, whose lock is held.
    virtual void handle_direct_read() = 0;
    /// A client has been disconnected, by either side; not called for those that are connected when the server ends.
    /// Does nothing here.
    virtual void handle_disconnected(int connection);

    virtual ~TCP_server_base();

    class Core;
    std::unique_ptr<Core> core_;
};
