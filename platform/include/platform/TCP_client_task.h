#pragma once

#include <atomic>
#include <memory>
#include <string>

/// Maintains a TCP connection to one server, in its own thread: connects, watches the socket, and reconnects when the
/// connection is lost or an attempt fails.
///
/// The derived class moves the bytes: in its hooks and, when nothing is queued, directly through the descriptor.
///
/// **Back-off.** Before the next attempt the task waits: first for the reconnect period, then twice as long after each
/// failed attempt, up to `longest_wait_ms`. A connection, however short, resets the wait. (A connection that the server
/// resets before the task has seen it counts as a failed attempt.)
///
/// **Threads.** The hooks run in the task's thread ("vro.TCPC"), without a lock of the task. The derived class uses
/// `descriptor()` under one lock, which its `is_write_data_avail` acquires, too: the task calls that hook after it has
/// set the descriptor to -1 and before it closes the socket, so that no thread writes to a descriptor that the system
/// has given to another file meanwhile.
///
/// **Signals.** Writing to a connection that the peer has closed raises SIGPIPE: a program must ignore it.
class TCP_client_task {
  public:
    static constexpr int default_reconnect_period_ms = 1000;
    static constexpr int default_connect_timeout_ms = 10000;
    static constexpr int longest_wait_ms = 30000;

    /// Starts nothing.
    /// \param addr  the server's address in digits, IPv4 or IPv6; copied. Names are not resolved
    TCP_client_task(const char* addr, int port);
    TCP_client_task(const TCP_client_task&) = delete;
    TCP_client_task& operator=(const TCP_client_task&) = delete;

    // ---- Configuration: before `open`, in milliseconds, above 0 ----

    /// The first wait between two attempts.
    void set_reconnect_period(int ms);
    /// The time limit of one attempt.
    void set_connect_timeout(int ms);

    // ---- Life cycle ----

    /// Starts the thread and returns at once. When the address or port is invalid, or the system has no descriptors or
    /// threads left, that is reported through the debug printer and no thread runs.
    void open();
    /// Ends the thread and closes the socket; waits for a hook in progress. Call it before members of the derived class
    /// are destroyed, never from a hook.
    void close();

    /// There are bytes to send: makes the thread wait until the socket is writable. From any thread, also while holding
    /// a lock that hooks acquire.
    void notify_write_data_avail();

  protected:
    // ---- Hooks: their order is part of the binary interface ----

    /// The socket is readable. A hook that has no free space and does not read must sleep before it returns: the task
    /// calls it again at once.
    /// \return negative when the connection is lost
    virtual int handle_read(int fd) = 0;
    /// The socket is writable and there are bytes to send.
    virtual void handle_write(int fd) = 0;
    /// Whether there are bytes to send.
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
