#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <platform/TCP_client_task.h>

#include <atomic>

/// A connection to a TCP server, as a stream. The platform's task connects, and connects again when the connection is
/// lost; the stream stays the same meanwhile.
///
///     TCP_client_data_stream receiver(modules, "10.0.0.5", 5017, -1, -1);
///     receiver.reg_rx_waiter(&my_loop_waiter, false);
///     receiver.printf("VER\r\n");                 // queued until the connection is there
///
/// **Receiving.** The task's thread reads into the receive ring and announces that, with `rx_full_event` when the ring
/// is full. While it is full the socket is not read: the thread announces it again after 1, 2, 4 ... 64 ms, and the
/// server is held up; nothing is lost. Unread bytes survive the loss of the connection, which is reported on
/// standard error and announced like received bytes.
///
/// **Writing.** Bytes go to the socket at once when nothing is queued; what it does not take is queued, up to
/// `queue_capacity` bytes, connected or not, for the task to send. When sending fails, everything queued is dropped;
/// otherwise it waits for the next connection.
///
/// **SIGPIPE.** Writing to a connection that the server has closed raises it: ignore it, as
/// `signal(SIGPIPE, SIG_IGN)` does, or it ends the program.
///
/// **Threads.** One thread reads while any threads write; the bytes of one write stay together as far as they
/// were taken. Everything runs under the stream's lock. The rx callback runs in the task's thread ("vro.TCPC") with
/// that lock held: it must not use the stream in any way. Destroying the stream ends the thread first.
class GLUE_EXPORT TCP_client_data_stream : public Pushed_data_stream, private TCP_client_task {
  public:
    static constexpr unsigned queue_capacity = 4200;

    /// Makes the stream that a text asks for: "tcpc:" and, separated by commas, "port=" with a number and "addr=" with
    /// an address in digits (127.0.0.1 without it); of several the last counts. Any other word ends the process, with a
    /// message and status 1; a text of more than 256 characters stops it.
    /// \return the stream, which the caller owns; null when the text asks for something else, or, with a message on
    ///         standard error, when it names no port or port 0
    static TCP_client_data_stream* create(module_man& mm, const char* arg);

    /// Begins to connect and does not wait for it.
    /// \param addr  IPv4 or IPv6 in digits; copied. With what is no address the stream never connects
    /// \param reconnect_period, connect_timeout  in milliseconds; 0 or less for the platform's own
    TCP_client_data_stream(module_man& mm, const char* addr, int port, int reconnect_period, int connect_timeout);
    ~TCP_client_data_stream() override;

    using Data_stream::get_data;

    /// Nothing can be fetched: bytes come by themselves.
    /// \return 1 for an `n` of 0, else 0
    int get_data(int n) override;

    /// Sends or queues. What the socket does not take at once is queued whole or not at all.
    /// \return the bytes sent and queued: fewer than `len` when the rest does not fit the queue
    int _write(const unsigned char* data, unsigned int len) override;

    // ---- Of the task's thread ----

    /// Reads once from the socket into the ring; with the ring full sleeps instead, without the lock.
    /// \return the bytes read; 0 for none; -1, with a message on standard error, when the connection is gone
    int handle_read(int fd) override;
    /// Sends up to 256 bytes of the queue. On purpose, any failure drops the whole queue, even that the socket has no
    /// room right now: the task calls this only when it has.
    void handle_write(int fd) override;
    /// Whether anything is queued.
    bool is_write_data_avail() override;

    // ---- Of the users ----

    /// Logs received bytes (`log_reads`, "RD") and sent ones (`log_writes`: "WRF" for those that went at once, "WR"
    /// for queued ones) under the stream's description. From any thread.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;
    bool traces_itself() const override { return true; }

    /// Kept for applications that set it; of no effect.
    void suppress_errors(bool on);

  private:
    unsigned int send_at_once(const unsigned char* data, unsigned int len);
    int read_into_ring(int fd);
    void log(const char* direction, const unsigned char* data, unsigned int len, unsigned int& counter) const;

    Cbuf_templ<unsigned char> tx_queue_;
    unsigned char tx_storage_[queue_capacity];
    Mutex mutex_;
    int read_backoff_; ///< in units of `Atime`; of the task's thread
    std::atomic<data_stream_logging_t> logging_;
    unsigned int sent_count_;
    bool errors_suppressed_;
    unsigned int received_count_;
};
