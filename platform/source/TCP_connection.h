#pragma once

#include <platform/Cbuf.h>
#include <platform/TCP_server_base.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <memory>

namespace platform_detail {

/// One client of a server: its socket, the bytes queued for it, and its received bytes that are not yet delivered.
///
/// Every thread that writes uses the sending side, under the server's lock; the server's thread alone uses the rest.
class TCP_connection {
  public:
    /// Adopts the socket. Throws when the system cannot provide memory or watch another socket; the caller then still
    /// owns the socket.
    TCP_connection(asio::io_context& io, int fd, int number);

    int id() const { return id_; }
    asio::posix::stream_descriptor& socket() { return socket_; }

    // ---- Sending ----

    /// False after an error of the socket and after `stop_sending`.
    bool accepts_writes() const { return accepts_writes_; }
    /// Free space in the queue.
    unsigned free_space() const { return queue_.free_space(); }
    /// Sends what the socket accepts at once and queues the rest; `len` is at most `free_space()`.
    void send(const unsigned char* data, unsigned len);
    /// Sends what the socket accepts of the queue.
    void send_queued();
    bool has_queued() const { return !queue_.empty(); }
    /// Ends sending and drops the queue.
    void stop_sending();

    /// A writer has dropped this client; the server's thread closes it.
    bool to_be_closed = false;
    /// The server's thread waits until the socket is writable.
    bool waits_to_send = false;

    // ---- Receiving ----

    /// Reads from the socket into the caller's memory.
    /// \return as `recv`
    ssize_t receive(unsigned char* destination, unsigned size) const;
    /// Reads from the socket into the connection's own memory; only when nothing is pending there.
    /// \return as `recv`
    ssize_t receive_pending();
    /// Received bytes that are not yet delivered.
    unsigned char* pending() { return received_ + consumed_; }
    unsigned pending_count() const { return count_ - consumed_; }
    void consume_pending(unsigned count) { consumed_ += count; }

  private:
    unsigned send_now(const unsigned char* data, unsigned len);

    const int id_;
    const int fd_;

    bool accepts_writes_ = true;
    std::unique_ptr<unsigned char[]> storage_;
    Cbuf_templ<unsigned char> queue_;

    unsigned consumed_ = 0;
    unsigned count_ = 0;
    unsigned char received_[4096];

    asio::posix::stream_descriptor
        socket_; // last: nothing after it can fail, so the socket is adopted or still the caller's
};

} // namespace platform_detail
