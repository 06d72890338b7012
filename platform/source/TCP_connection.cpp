// The states of the sending side:
//
//                 --the socket does not accept all bytes-->
//     queue empty                                           bytes queued (the server's thread waits until the socket
//          |      <----the socket has accepted all---------      |        is writable, then sends)
//          |                                                     |
//          +-----error of the socket, stop_sending---------------+--> ended (the queue is dropped, writes are ignored)
//
// A write goes to the socket directly only while the queue is empty: bytes never overtake queued ones.

#include "TCP_connection.h"

#include <cerrno>
#include <sys/socket.h>

namespace platform_detail {

TCP_connection::TCP_connection(asio::io_context& io, int fd, int number)
    : id_(number),
      fd_(fd),
      storage_(new unsigned char[TCP_server_base::queue_capacity]), // not cleared: most of it is never touched
      queue_(storage_.get(), TCP_server_base::queue_capacity),
      socket_(io, fd) {}

void TCP_connection::send(const unsigned char* data, unsigned len) {
    const unsigned sent = queue_.empty() ? send_now(data, len) : 0;
    if (accepts_writes_)
        queue_.append(data + sent, len - sent);
}

void TCP_connection::send_queued() {
    const auto oldest = queue_.used_region();
    queue_.consume(send_now(oldest.begin, oldest.size));
}

void TCP_connection::stop_sending() {
    accepts_writes_ = false;
    queue_.clear();
}

/// \return the bytes that the socket accepted. A broken connection accepts no more writes; reading reports the reason
unsigned TCP_connection::send_now(const unsigned char* data, unsigned len) {
    const ssize_t sent = ::send(fd_, data, len, MSG_NOSIGNAL);
    if (sent >= 0)
        return static_cast<unsigned>(sent);
    if (errno != EAGAIN && errno != EINTR)
        stop_sending();
    return 0;
}

ssize_t TCP_connection::receive(unsigned char* destination, unsigned size) const {
    return ::recv(fd_, destination, size, 0);
}

ssize_t TCP_connection::receive_pending() {
    const ssize_t result = receive(received_, sizeof received_);
    consumed_ = 0;
    count_ = result > 0 ? static_cast<unsigned>(result) : 0;
    return result;
}

} // namespace platform_detail
