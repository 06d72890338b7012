#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <platform/TCP_server_buffered.h>
#include <platform/Task.h>

#include <atomic>
#include <string>

/// A listening TCP port as one stream, over the platform's buffered server: bytes go from the socket straight into the
/// receive ring, and the platform logs the traffic.
///
/// It is used like `TCP_server_data_stream`, whose header describes receiving, writing, opening and threads. The
/// differences: bytes are announced with `rx_full_event` when they fill the ring; `flush` discards unread bytes; the
/// server's threads are "vro.TCSB0", "vro.TCSB1" and so on, numbered in the order of construction in the process; the
/// destructor waits for the server without a time limit.
class GLUE_EXPORT TCP_server_buffered_data_stream : public Pushed_data_stream, public TCP_server_buffered {
  public:
    /// As `TCP_server_data_stream::create`, for "tcpb:" and a port number.
    static TCP_server_buffered_data_stream* create(module_man& mm, const char* spec);

    /// Starts the server's thread.
    TCP_server_buffered_data_stream(module_man& mm, int port);
    ~TCP_server_buffered_data_stream() override;

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

    /// Any flag switches the platform's logging on: the traffic of both directions and the clients that connect and
    /// disconnect, under the stream's description. From any thread.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;
    bool traces_itself() const override { return true; }

    /// Discards unread bytes; sends nothing.
    void flush() override;

    /// The name of the server's thread, without the platform's prefix.
    const std::string& get_task_name() const { return task_name_; }

  private:
    static void* serve(void* self);

    std::string task_name_;
    Task task_;
    [[maybe_unused]] int port_;
    Mutex mutex_;
    std::atomic<data_stream_logging_t> logging_;
};
