#pragma once

#include <asio/ip/tcp.hpp>

#include <optional>
#include <string>

/// Sockets for the TCP classes: non-blocking, close-on-exec, with keep-alive and TCP_NODELAY.
namespace platform_detail {

using Tcp_endpoint = asio::ip::tcp::endpoint;

/// An address in digits and a port; nothing when either is invalid.
std::optional<Tcp_endpoint> tcp_endpoint(const std::string& address, int port);

// The following return -1 on failure; when the system refused, errno has the reason.

/// A socket that listens on the address.
int open_listener(const Tcp_endpoint& local);
/// A socket that listens on every address, of both families where the system has them.
int open_listener_everywhere(int port);
/// The next client of a listener.
int accept_client(int listener);
/// A socket that is connecting to the address: when it becomes writable, `is_connected` has the result.
int start_connecting(const Tcp_endpoint& remote);

bool is_connected(int fd);
/// Whether the socket accepts bytes now.
bool is_writable(int fd);
/// The port that a socket is bound to.
int local_port_of(int fd);
/// "address:port" of the peer, as text.
std::string peer_of(int fd);

} // namespace platform_detail
