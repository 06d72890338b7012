#include <platform/TCP_client_task.h>

#include "TCP_client_loop.h"

#include <platform/Debug.h>

#include <system_error>

TCP_client_task::TCP_client_task(const char* addr, int port)
    : address_(addr),
      port_(port),
      reconnect_period_ms_(default_reconnect_period_ms),
      connect_timeout_ms_(default_connect_timeout_ms),
      descriptor_(-1) {}

TCP_client_task::~TCP_client_task() = default;

void TCP_client_task::set_reconnect_period(int ms) {
    reconnect_period_ms_ = ms;
}

void TCP_client_task::set_connect_timeout(int ms) {
    connect_timeout_ms_ = ms;
}

void TCP_client_task::open() {
    if (loop_)
        return;
    const auto remote = platform_detail::tcp_endpoint(address_, port_);
    if (!remote || port_ == 0) {
        Debug::Print::dprint_ts("TCP client: \"%s\" and %d are not a valid address and port\n", address_.c_str(),
                                port_);
        return;
    }
    try {
        loop_ = std::make_unique<Loop>(*this, *remote);
        if (!loop_->start())
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "thread");
    } catch (const std::system_error& error) {
        loop_.reset();
        Debug::Print::dprint_ts("TCP client: %s\n", error.what());
    }
}

void TCP_client_task::close() {
    if (loop_)
        loop_->stop();
    loop_.reset();
}

void TCP_client_task::notify_write_data_avail() {
    if (loop_)
        loop_->notify_write();
}
