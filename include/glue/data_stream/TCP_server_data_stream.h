#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <platform/TCP_server.h>
#include <platform/Task.h>

#include <atomic>
#include <mutex>

/// A listening TCP port as one stream: it receives what any client sends, and sends what is written to every client.
///
///     TCP_server_data_stream port(modules, 4001);
///     port.reg_rx_waiter(&my_loop_waiter, false);
///     ...                                          // in the loop, for each event of the stream:
///     while (port.bytes_avail() != 0)
///         take_a_message_from(port);
///     port.printf("%u clients\n", port.connection_count());
///
/// **Receiving.** The server's thread appends the bytes to the receive ring and announces them, always with `rx_event`.
/// While the ring is full, the thread repeats the event every millisecond and TCP's flow control makes the clients wait
/// (back-pressure): nothing is lost. Bytes of different clients are mixed in pieces of any size, and nothing marks
/// which client sent them.
///
/// **Writing.** All or nothing: see `_write`. A client does not receive what was written before it connected.
///
/// **Opening.** The thread opens the port; the constructor does not wait for that. A port that is in use or above 65535
/// stays closed for the life of the stream, without a message: nothing is received, and writes succeed and go nowhere.
///
/// **Threads.** One thread may read while any threads write; the server's thread is "vro.TCP". Reading and registration
/// run under the stream's lock. The rx callback runs in the server's thread with that lock held: it may write to the
/// stream, but must not read from it, register or lock it. Destroying the stream ends the thread first.
class GLUE_EXPORT TCP_server_data_stream : public Pushed_data_stream, public TCP_server {
  public:
    /// Makes the stream of a specification string: "tcp:" and a port number, with any text before and after them
    /// ("tcp:" alone means port 0, for which the system chooses a port: see `local_port()`).
    /// \return the stream, which the caller owns; null for a string of another kind
    /// \throws std::out_of_range when the number does not fit into an int
    static TCP_server_data_stream* create(module_man& mm, const char* spec);

    /// Starts the server's thread.
    TCP_server_data_stream(module_man& mm, int port);
    /// Waits up to 100 ms for the server to end. When its thread needs longer, reports that on standard error and keeps
    /// waiting.
    ~TCP_server_data_stream() override;

    // ---- Called by the server's thread ----

    /// Appends the received bytes that fit and announces them; when not all fit, sleeps a millisecond without the lock.
    /// \return how many were appended
    unsigned int handle_incoming_data(int connection, unsigned char* data, unsigned int len) override;
    /// Announces bytes that are already in the ring, with `rx_full_event` when it is full. The caller holds the lock.
    void handle_direct_read() override;

    // ---- Called by the users ----

    using Data_stream::get_data;

    /// Fetches nothing: the server's thread delivers the bytes.
    /// \return 1 for an `n` of 0, else 0
    int get_data(int n) override;

    /// Sends to every client.
    /// \return `len`; or 0, with nothing sent to any client, when no client's queue can take all of it or when `len` is
    ///         above 256 KiB: write again later. A client whose queue is full while others have space is disconnected
    int _write(const unsigned char* data, unsigned int len) override;

    /// Logs received bytes (`log_reads`, "RD") and written ones (`log_writes`, "WR") under the stream's description,
    /// and with any flag also the clients that connect and disconnect. From any thread.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;
    bool traces_itself() const override { return true; }

  private:
    static void* serve(void* self);

    Task task_;
    int port_;
    Mutex mutex_;
    std::atomic<data_stream_logging_t> logging_;
    unsigned int received_count_;   ///< grows while received data are logged; guarded by `mutex_`
    unsigned int written_count_;    ///< grows while written data are logged; guarded by `written_count_lock_`
    std::mutex written_count_lock_; ///< an addition of ours: several threads may write
};
