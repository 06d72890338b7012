#include <platform/TCP_server.h>

#include "TCP_server_core.h"

TCP_server::TCP_server() : TCP_server_base(Kind::plain) {}

TCP_server::~TCP_server() = default;

bool TCP_server::open(int port) {
    return core_->open(port);
}

void TCP_server::run() {
    core_->run();
}

void TCP_server::quit() {
    core_->quit();
}

bool TCP_server::is_finished() const {
    return core_->is_finished();
}

bool TCP_server::write_to_all_connections(const unsigned char* data, unsigned int len, int except) {
    return core_->write_to_all(data, len, except);
}
