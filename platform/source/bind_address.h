#pragma once

#include <string>

/// Where servers listen.
namespace platform_detail {

/// See `TCP_server_base::set_bind_address`.
void set_bind_address(const std::string& address);

/// A socket that listens on the port where the application, or else the environment, wants servers to listen; -1 when
/// it cannot.
int open_listener_where_bound(int port);

} // namespace platform_detail
