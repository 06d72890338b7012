#pragma once

#include <atomic>
#include <memory>
#include <string>

/// Keeps a TCP connection to one server, in a thread of its own: connects, watches the socket, and connects again when
/// the connection is lost or cannot be made.
///
/// The derived class moves the bytes, in its hooks and, for the first bytes of a write, with the descriptor itself.
/// Between two attempts the task waits: the reconnect period at first, twice as long after each attempt that fails, up
/// to `longest_wait_ms`; after a connection, however short it was, it begins anew. (One that the server resets before
/// the task has seen it counts as an attempt that fails.)
///
/// **Threads.** The hooks run in the task's thread ("vro.TCPC"), without a lock of the task. The derived class uses
/// `descriptor()` under one lock, which its `is_write_data_avail` takes too: the task calls that hook between making
/// the descriptor -1 and closing it, so that nobody writes to a descriptor that has become somebody else's.
///
/// **Signals.** Writing to a connection that the peer has closed raises SIGPIPE, as everywhere: programs ignore it.
class TCP_client_task {
  public:
    static constexpr int default_reconnect_period_ms = 1000;
    static constexpr int default_connect_timeout_ms = 10000;
    static constexpr int longest_wait_ms = 30000;

    /// Nothing runs yet.
    /// \param addr  the server's address in digits, IPv4 or IPv6; copied. Names are not looked up
    TCP_client_task(const char* addr, int port);
    TCP_client_task(const TCP_client_task&) = delete;
    TCP_client_task& operator=(const TCP_client_task&) = delete;

    // Before `open`; in milliseconds, more than 0.

    /// The first wait between two attempts.
    void set_reconnect_period(int ms);
    /// How long one attempt may take.
    void set_connect_timeout(int ms);

    /// Starts the thread and returns at once. When the address or port cannot be one, or the system has no descriptors
    /// or threads left, that is reported through the debug printer and nothing runs.
    void open();
    /// Ends the thread and closes the socket; waits for a hook that is running. Called before the derived class's
    /// members die, never from a hook.
    void close();

    /// Something is to be sent: makes the thread wait until the socket is writable. From any thread, also with a lock
    /// held that hooks take.
    void notify_write_data_avail();

  protected:
    // Hooks: their order is part of the binary interface.

    /// The socket is readable. Who does not read, because there is no room, sleeps before returning: the task would ask
    /// again at once.
    /// \return negative when the connection is gone
    virtual int handle_read(int fd) = 0;
    /// The socket is writable and there is something to send.
    virtual void handle_write(int fd) = 0;
    /// Whether something is to be sent.
    virtual bool is_write_data_avail() = 0;

    virtual ~TCP_client_task();

    /// The connected, non-blocking socket; -1 while there is no connection.
    int descriptor() const { return descriptor_; }

  private:
    class Loop;

    std::string address_;
    int port_;
    int reconnect_period_ms_;
    int connect_timeout_ms_;
    std::atomic<int> descriptor_;
    std::unique_ptr<Loop> loop_;
};
