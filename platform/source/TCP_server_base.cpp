#include <platform/TCP_server_base.h>

#include "TCP_server_core.h"
#include "bind_address.h"

TCP_server_base::TCP_server_base(Kind kind) : core_(std::make_unique<Core>(*this, kind)) {}

TCP_server_base::~TCP_server_base() = default;

void TCP_server_base::set_bind_address(const std::string& address) {
    platform_detail::set_bind_address(address);
}

void TCP_server_base::register_direct_read_buffer(Cbuf_templ<unsigned char>* ring, Mutex* lock) {
    core_->ring = ring;
    core_->ring_lock = lock;
}

void TCP_server_base::set_port_logging(bool on, const char* name) {
    core_->log.set(on, name);
}

int TCP_server_base::local_port() const {
    return core_->local_port();
}

unsigned TCP_server_base::connection_count() const {
    return core_->connection_count();
}

void TCP_server_base::handle_disconnected(int) {}
