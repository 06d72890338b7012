#pragma once

#include <string>

/// The address on which servers listen.
namespace platform_detail {

/// See `TCP_server_base::set_bind_address`.
void set_bind_address(const std::string& address);

/// A socket that listens on the port, at the address that the application or else the environment has set; -1 on
/// failure.
int open_bound_listener(int port);

} // namespace platform_detail
