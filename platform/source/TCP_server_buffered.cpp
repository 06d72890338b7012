#include <platform/TCP_server_buffered.h>

#include "TCP_server_core.h"

TCP_server_buffered::TCP_server_buffered(int port) : TCP_server_base(Kind::buffered), port_(port) {}

TCP_server_buffered::~TCP_server_buffered() = default;

void TCP_server_buffered::run_blocking() {
    if (core_->open(port_))
        core_->run();
}

void TCP_server_buffered::wait_quit() {
    core_->quit();
    core_->wait_until_finished();
}

bool TCP_server_buffered::write_to_all_connections(const unsigned char* data, unsigned int len) {
    return core_->write_to_all(data, len, -1);
}
