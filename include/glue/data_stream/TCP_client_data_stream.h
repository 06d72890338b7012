#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <platform/TCP_client_task.h>

#include <atomic>

/// A connection to a TCP server, as a stream. The platform's task connects, and reconnects when the connection is lost;
/// the stream stays the same.
///
///     TCP_client_data_stream receiver(modules, "10.0.0.5", 5017, -1, -1);
///     receiver.reg_rx_waiter(&my_loop_waiter, false);
///     receiver.printf("VER\r\n");                 // queued until the connection is established
///
/// **Receiving.** The task's thread reads into the receive ring and announces the bytes, with `rx_full_event` when the
/// ring is full. While the ring is full, the socket is not read: the thread repeats the event after 1, 2, 4 ... 64 ms,
/// and TCP's flow control makes the server wait (back-pressure); nothing is lost. Unread bytes survive the loss of the
/// connection, which is reported on standard error and announced like received bytes.
///
/// **Writing.** When nothing is queued, bytes go to the socket at once. What the socket does not accept is queued for
/// the task to send, up to `queue_capacity` bytes, connected or not. When sending fails, the whole queue is dropped;
/// otherwise it is kept for the next connection.
///
/// **SIGPIPE.** Writing to a connection that the server has closed raises this signal, which ends the program unless it
/// is ignored: `signal(SIGPIPE, SIG_IGN)`.
///
/// **Threads.** One thread may read while any threads write; the accepted bytes of one write stay together. All
/// operations run under the stream's lock. The rx callback runs in the task's thread ("vro.TCPC") with that lock held:
/// it must not use the stream in any way. Destroying the stream ends the thread first.
class GLUE_EXPORT TCP_client_data_stream : public Pushed_data_stream, private TCP_client_task {
  public:
    static constexpr unsigned queue_capacity = 4200;

    /// Makes the stream of a specification string: "tcpc:" and, separated by commas, "port=" with a number and "addr="
    /// with an address in digits (default: 127.0.0.1). When a key is repeated, the last one counts. Any other token
    /// ends the process with a message and status 1; a string of more than 256 characters aborts it.
    /// \return the stream, which the caller owns; null for a string of another kind, or, with a message on standard
    ///         error, for one without a port or with port 0
    static TCP_client_data_stream* create(module_man& mm, const char* arg);

    /// Begins to connect and does not wait for the connection.
    /// \param addr  IPv4 or IPv6 in digits; copied. With any other text the stream never connects
    /// \param reconnect_period, connect_timeout  in milliseconds; 0 or less for the platform's default
    TCP_client_data_stream(module_man& mm, const char* addr, int port, int reconnect_period, int connect_timeout);
    ~TCP_client_data_stream() override;

    using Data_stream::get_data;

    /// Fetches nothing: the task's thread delivers the bytes.
    /// \return 1 for an `n` of 0, else 0
    int get_data(int n) override;

    /// Sends or queues. What the socket does not accept at once is queued whole or not at all.
    /// \return the bytes sent and queued: fewer than `len` when the rest does not fit into the queue
    int _write(const unsigned char* data, unsigned int len) override;

    // ---- Called by the task's thread ----

    /// Reads once from the socket into the ring. When the ring is full, sleeps instead, without the lock.
    /// \return the bytes read; 0 for none; -1, with a message on standard error, when the connection is lost
    int handle_read(int fd) override;
    /// Sends up to 256 bytes of the queue. On purpose, any error drops the whole queue, EAGAIN too: the task calls this
    /// only when the socket is writable.
    void handle_write(int fd) override;
    /// Whether anything is queued.
    bool is_write_data_avail() override;

    // ---- Called by the users ----

    /// Logs received bytes (`log_reads`, "RD") and sent bytes (`log_writes`: "WRF" when sent at once, "WR" when sent
    /// from the queue) under the stream's description. From any thread.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;
    bool traces_itself() const override { return true; }

    /// Kept for applications that call it; has no effect.
    void suppress_errors(bool on);

  private:
    unsigned int send_at_once(const unsigned char* data, unsigned int len);
    int read_into_ring(int fd);

    Cbuf_templ<unsigned char> tx_queue_;
    unsigned char tx_storage_[queue_capacity];
    Mutex mutex_;
    int read_backoff_; ///< in units of `Atime`; used by the task's thread only
    std::atomic<data_stream_logging_t> logging_;
    unsigned int sent_count_;
    bool errors_suppressed_;
    unsigned int received_count_;
};
