#include "tcp_sockets.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform_detail {

namespace {

constexpr int highest_port = 65535;
constexpr int socket_flags = SOCK_NONBLOCK | SOCK_CLOEXEC;

// A dead peer is noticed after idle + count * interval seconds.
constexpr int keep_alive_idle_s = 30;
constexpr int keep_alive_interval_s = 10;
constexpr int keep_alive_count = 3;

void set_option(int fd, int level, int option, int value) {
    ::setsockopt(fd, level, option, &value, sizeof value);
}

void prepare_for_traffic(int fd) {
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, keep_alive_idle_s);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, keep_alive_interval_s);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, keep_alive_count);
}

int close_and_fail(int fd) {
    const int error = errno;
    ::close(fd);
    errno = error;
    return -1;
}

/// The local or the remote end of a socket.
/// \param query  `getsockname` or `getpeername`
template <typename Query>
Tcp_endpoint end_of(int fd, Query query) {
    Tcp_endpoint end;
    auto size = static_cast<socklen_t>(end.capacity());
    if (query(fd, end.data(), &size) == 0)
        end.resize(size);
    return end;
}

} // namespace

std::optional<Tcp_endpoint> tcp_endpoint(const std::string& address, int port) {
    std::error_code error;
    const asio::ip::address parsed = asio::ip::make_address(address, error);
    if (error || port < 0 || port > highest_port)
        return {};
    return Tcp_endpoint(parsed, static_cast<unsigned short>(port));
}

int open_listener(const Tcp_endpoint& local) {
    const int fd = ::socket(local.protocol().family(), SOCK_STREAM | socket_flags, 0);
    if (fd < 0)
        return -1;
    set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    if (local.protocol() == asio::ip::tcp::v6())
        set_option(fd, IPPROTO_IPV6, IPV6_V6ONLY, 0); // "::" accepts clients of both families
    if (::bind(fd, local.data(), static_cast<socklen_t>(local.size())) != 0 || ::listen(fd, SOMAXCONN) != 0)
        return close_and_fail(fd);
    return fd;
}

int open_listener_everywhere(int port) {
    const auto both = tcp_endpoint("::", port);
    const auto ipv4_only = tcp_endpoint("0.0.0.0", port);
    if (!both || !ipv4_only)
        return -1;
    const int fd = open_listener(*both);
    const bool without_ipv6 = fd < 0 && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL);
    return without_ipv6 ? open_listener(*ipv4_only) : fd;
}

int accept_client(int listener) {
    const int fd = ::accept4(listener, nullptr, nullptr, socket_flags);
    if (fd >= 0)
        prepare_for_traffic(fd);
    return fd;
}

int start_connecting(const Tcp_endpoint& remote) {
    const int fd = ::socket(remote.protocol().family(), SOCK_STREAM | socket_flags, 0);
    if (fd < 0)
        return -1;
    prepare_for_traffic(fd);
    if (::connect(fd, remote.data(), static_cast<socklen_t>(remote.size())) != 0 && errno != EINPROGRESS)
        return close_and_fail(fd);
    return fd;
}

bool is_connected(int fd) {
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0)
        return false;
    // When no server listens on a local port, the system may choose this same port for our side and connect the socket
    // to itself; as long as it is open, the server cannot open its port.
    return end_of(fd, ::getsockname) != end_of(fd, ::getpeername);
}

bool is_writable(int fd) {
    pollfd query{fd, POLLOUT, 0};
    return ::poll(&query, 1, 0) == 1 && (query.revents & POLLOUT) != 0;
}

int local_port_of(int fd) {
    return end_of(fd, ::getsockname).port();
}

std::string peer_of(int fd) {
    const Tcp_endpoint peer = end_of(fd, ::getpeername);
    return peer.address().to_string() + ":" + std::to_string(peer.port());
}

} // namespace platform_detail
