#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <platform/TCP_server.h>
#include <platform/Task.h>

#include <atomic>
#include <mutex>

/// A TCP port that others connect to, as one stream: what any client sends is received, what is written goes to every
/// client.
///
///     TCP_server_data_stream port(modules, 4001);
///     port.reg_rx_waiter(&my_loop_waiter, false);
///     ...                                          // in the loop, for each event of the stream:
///     while (port.bytes_avail() != 0)
///         take_a_message_from(port);
///     port.printf("%u clients\n", port.connection_count());
///
/// **Receiving.** The server's thread puts the bytes into the receive ring and announces them, always with `rx_event`.
/// While the ring is full it announces that again every millisecond and leaves further bytes with the clients until the
/// reader has made room: nothing is lost. Bytes of different clients arrive in pieces of any size and are not told
/// apart.
///
/// **Writing.** All or nothing: see `_write`. A client gets nothing that was written before it came.
///
/// **Opening.** The thread opens the port; the constructor does not wait for that. A port that is taken or above 65535
/// stays closed for the life of the stream, without a word: nothing is received, and writes succeed and go nowhere.
///
/// **Threads.** One thread reads while any threads write; the server's own one is "vro.TCP". Reading and registration
/// run under the stream's lock. The rx callback runs in the server's thread with that lock held: it may write to the
/// stream, but must not read from it, register or lock it. Destroying the stream ends the thread first.
class GLUE_EXPORT TCP_server_data_stream : public Pushed_data_stream, public TCP_server {
  public:
    /// Makes the stream that a text asks for: "tcp:" and a port number, with anything before and after it ("tcp:" alone
    /// means port 0, for which the system chooses one: see `local_port()`).
    /// \return the stream, which the caller owns; null when the text asks for something else
    /// \throws std::out_of_range when the number does not fit an int
    static TCP_server_data_stream* create(module_man& mm, const char* spec);

    /// Starts the server's thread.
    TCP_server_data_stream(module_man& mm, int port);
    /// Waits up to 100 ms for the server to end. When something holds its thread up for longer, the stream says so on
    /// standard error and waits on.
    ~TCP_server_data_stream() override;

    // ---- Of the server's thread ----

    /// Takes what fits of received bytes and announces them; when not all fit, sleeps a millisecond without the lock.
    /// \return how many were taken
    unsigned int handle_incoming_data(int connection, unsigned char* data, unsigned int len) override;
    /// Announces bytes that are in the ring already, with `rx_full_event` when they fill it. The caller holds the lock.
    void handle_direct_read() override;

    // ---- Of the users ----

    using Data_stream::get_data;

    /// Nothing can be fetched: bytes come by themselves.
    /// \return 1 for an `n` of 0, else 0
    int get_data(int n) override;

    /// Sends to every client.
    /// \return `len`; or 0, with nothing sent to anybody, when no client has room for all of it or when it is
    ///         more than 256 KiB: write again later. A client that has no room while others have is disconnected
    int _write(const unsigned char* data, unsigned int len) override;

    /// Logs received bytes (`log_reads`, "RD") and written ones (`log_writes`, "WR") under the stream's description;
    /// with any of them also the clients that come and go. From any thread.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;
    bool traces_itself() const override { return true; }

  private:
    static void* serve(void* self);

    Task task_;
    int port_;
    Mutex mutex_;
    std::atomic<data_stream_logging_t> logging_;
    unsigned int received_count_;   ///< grows while received data are logged; `mutex` guards it
    unsigned int written_count_;    ///< grows while written data are logged; `written_count_lock` guards it
    std::mutex written_count_lock_; ///< an addition of ours: several threads may write
};
