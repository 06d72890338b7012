#pragma once

#include <asio/ip/tcp.hpp>

#include <optional>
#include <string>

/// Sockets as the TCP classes want them: non-blocking, not inherited by other programs, kept alive, without delay.
namespace platform_detail {

using Tcp_endpoint = asio::ip::tcp::endpoint;

/// Address and port as numbers; nothing when the text is no address or the port no port.
std::optional<Tcp_endpoint> tcp_endpoint(const std::string& address, int port);

// The following return -1 when they cannot; where the system refused, errno tells why.

/// A socket that listens on the address.
int open_listener(const Tcp_endpoint& local);
/// A socket that listens on every address, of both families where the system has them.
int open_listener_everywhere(int port);
/// The next client of a listener.
int accept_client(int listener);
/// A socket on its way to the address: when it becomes writable, `is_connected` tells how that ended.
int start_connecting(const Tcp_endpoint& remote);

bool is_connected(int fd);
/// Whether the socket takes bytes right now.
bool is_writable(int fd);
/// The port that a socket is bound to.
int local_port_of(int fd);
/// "address:port" of the other side, as text.
std::string peer_of(int fd);

} // namespace platform_detail
