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
    if (takes_writes_)
        queue_.append(data + sent, len - sent);
}

void TCP_connection::send_queued() {
    const auto oldest = queue_.used_region();
    queue_.consume(send_now(oldest.begin, oldest.size));
}

void TCP_connection::stop_sending() {
    takes_writes_ = false;
    queue_.clear();
}

/// \return what the socket took. A broken connection takes no more writes; reading will find out why
unsigned TCP_connection::send_now(const unsigned char* data, unsigned len) {
    const ssize_t sent = ::send(fd_, data, len, MSG_NOSIGNAL);
    if (sent >= 0)
        return static_cast<unsigned>(sent);
    if (errno != EAGAIN && errno != EINTR)
        stop_sending();
    return 0;
}

ssize_t TCP_connection::receive(unsigned char* destination, unsigned room) const {
    return ::recv(fd_, destination, room, 0);
}

ssize_t TCP_connection::receive_pending() {
    const ssize_t came = receive(received_, sizeof received_);
    taken_ = 0;
    count_ = came > 0 ? static_cast<unsigned>(came) : 0;
    return came;
}

} // namespace platform_detail
