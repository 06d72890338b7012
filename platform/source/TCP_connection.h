#pragma once

#include <platform/Cbuf.h>
#include <platform/TCP_server_base.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <memory>

namespace platform_detail {

/// One client of a server: its socket, what waits to be sent to it, and what it sent that nobody has taken yet.
///
/// The sending half is used by every thread that writes, under the server's lock; the rest by the server's thread
/// alone.
class TCP_connection {
  public:
    /// Takes the socket over; when it throws, which it does when the system has no memory or no watch left, the socket
    /// is still the caller's.
    TCP_connection(asio::io_context& io, int fd, int number);

    int id() const { return id_; }
    asio::posix::stream_descriptor& socket() { return socket_; }

    // ---- Sending ----

    /// Whether it is still worth writing to.
    bool takes_writes() const { return takes_writes_; }
    bool has_room_for(unsigned len) const { return len <= queue_.room(); }
    /// Sends what the socket takes at once and queues the rest, for which there is room.
    void send(const unsigned char* data, unsigned len);
    /// Sends what the socket takes of the queue.
    void send_queued();
    bool has_queued() const { return !queue_.empty(); }
    /// Ends sending; whatever is queued is dropped.
    void stop_sending();

    /// The writers want it to go; the server's thread closes it.
    bool dismissed = false;
    /// The server's thread waits until the socket is writable.
    bool waits_to_send = false;

    // ---- Receiving ----

    /// Reads from the socket into somebody else's memory.
    /// \return as `recv`
    ssize_t receive(unsigned char* destination, unsigned room) const;
    /// Reads from the socket into memory of its own; only when nothing is pending there.
    ssize_t receive_pending();
    /// Received bytes that nobody has taken.
    unsigned char* pending() { return received_ + taken_; }
    unsigned pending_count() const { return count_ - taken_; }
    void take_pending(unsigned count) { taken_ += count; }

  private:
    unsigned send_now(const unsigned char* data, unsigned len);

    const int id_;
    const int fd_;

    bool takes_writes_ = true;
    std::unique_ptr<unsigned char[]> storage_;
    Cbuf_templ<unsigned char> queue_;

    unsigned taken_ = 0;
    unsigned count_ = 0;
    unsigned char received_[4096];

    asio::posix::stream_descriptor socket_; // last: nothing that can fail comes after taking the socket over
};

} // namespace platform_detail
