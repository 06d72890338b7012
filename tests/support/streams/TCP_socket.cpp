#include <support/streams/TCP_socket.h>

#include <support/files/descriptors.h>

#include <platform/TCP_server_base.h>

#include <arpa/inet.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int limit_ms = 20000;

const bool servers_listen_here = (TCP_server_base::set_bind_address("127.0.0.1"), true);

sockaddr_in address_of(const char* address, int port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

int make_socket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool connect(int fd, const char* address, int port) {
    const sockaddr_in to = address_of(address, port);
    return ::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

int bound_socket(int port) {
    const int fd = make_socket();
    bind_to(fd, port);
    return fd;
}

/// The local port of a socket; -1 for any other descriptor.
int port_of(int fd) {
    sockaddr_in at{};
    socklen_t size = sizeof at;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&at), &size) != 0 || at.sin_family != AF_INET)
        return -1;
    return ntohs(at.sin_port);
}

bool wait_readable(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, limit_ms) == 1;
}

} // namespace

TCP_socket TCP_socket::connected_to(int port, int receive_buffer) {
    const int fd = make_socket();
    if (receive_buffer != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    if (!connect(fd, "127.0.0.1", port))
        ADD_FAILURE() << "cannot connect to port " << port;
    return TCP_socket(fd);
}

bool TCP_socket::can_connect(const char* address, int port) {
    const TCP_socket socket(make_socket());
    return connect(socket.fd(), address, port);
}

TCP_socket::TCP_socket(TCP_socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

TCP_socket& TCP_socket::operator=(TCP_socket&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

int TCP_socket::port() const {
    return port_of(fd_);
}

void TCP_socket::send(std::string_view bytes) const {
    write_all(fd_, bytes);
}

std::string TCP_socket::receive(std::size_t count) const {
    return read_exactly(fd_, count);
}

std::string TCP_socket::receive_all() const {
    std::string result;
    char piece[65536];
    while (wait_readable(fd_)) {
        const ssize_t count = read(fd_, piece, sizeof piece);
        if (count <= 0)
            return result;
        result.append(piece, static_cast<std::size_t>(count));
    }
    ADD_FAILURE() << "the connection has not ended";
    return result;
}

void TCP_socket::end_sending() const {
    shutdown(fd_, SHUT_WR);
}

void TCP_socket::close() {
    if (fd_ >= 0)
        ::close(std::exchange(fd_, -1));
}

void TCP_socket::reset() {
    const linger reset_at_once{1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &reset_at_once, sizeof reset_at_once);
    close();
}

void bind_to(int fd, int port) {
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const sockaddr_in at = address_of("127.0.0.1", port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0)
        ADD_FAILURE() << "cannot bind to port " << port;
}

TCP_port::TCP_port() : number_(0), reservation_(bound_socket(0)) {
    number_ = port_of(reservation_);
}

TCP_port::~TCP_port() {
    stop_listening();
    close(reservation_);
}

void TCP_port::listen() {
    listener_ = bound_socket(number_);
    if (::listen(listener_, 100) != 0)
        ADD_FAILURE() << "cannot listen on port " << number_;
}

void TCP_port::stop_listening() {
    if (listener_ >= 0)
        close(std::exchange(listener_, -1));
}

TCP_socket TCP_port::accept() const {
    if (wait_readable(listener_))
        return TCP_socket(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
    ADD_FAILURE() << "no client has connected";
    return TCP_socket();
}

Full_listener::Full_listener() : listener_(bound_socket(0)), port_(port_of(listener_)) {
    if (::listen(listener_, 0) != 0)
        ADD_FAILURE() << "cannot listen on port " << port_;
    filler_ = TCP_socket::connected_to(port_);
}

Full_listener::~Full_listener() {
    close(listener_);
}

TCP_socket Full_listener::accept() const {
    return TCP_socket(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
}

bool is_socket(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0;
}

std::vector<int> sockets_at(int port) {
    std::vector<int> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        if (port_of(fd) == port)
            result.push_back(fd);
    }
    return result;
}
