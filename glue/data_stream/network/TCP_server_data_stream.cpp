#include <glue/data_stream/TCP_server_data_stream.h>

#include "data_stream/core/stream_specification.h"
#include "data_stream/network/TCP_server_streams.h"
#include "data_stream/network/traffic_logging.h"

#include <platform/Atime.h>

#include <cstdio>

namespace {

constexpr int task_priority = 44;
constexpr int most_polls_for_end = 100;

} // namespace

TCP_server_data_stream* TCP_server_data_stream::create(module_man& mm, const char* spec) {
    const std::optional<int> port = glue_detail::tcp_server_port_in(spec);
    return port ? new TCP_server_data_stream(mm, *port) : nullptr;
}

TCP_server_data_stream::TCP_server_data_stream(module_man& mm, int port_to_open)
    : Pushed_data_stream(&mm, mutex_),
      task_("TCP", glue_detail::server_stack_size, 0, 0),
      port_(port_to_open),
      logging_(log_none),
      received_count_(0),
      written_count_(0) {
    register_direct_read_buffer(&rx_buffer, &mutex_);
    task_.vro_start(task_priority, serve, this, false);
}

TCP_server_data_stream::~TCP_server_data_stream() {
    quit();
    int polls = 0;
    while (!is_finished() && polls < most_polls_for_end) {
        Atime::delay(1);
        ++polls;
    }
    if (polls == most_polls_for_end)
        std::fputs("Couldnt close TCP_server_data_stream cleanly\n", stderr);
    task_.join(); // the thread uses the members that are destroyed next
}

void* TCP_server_data_stream::serve(void* self) {
    auto* const stream = static_cast<TCP_server_data_stream*>(self);
    if (stream->open(stream->port_))
        stream->run();
    return nullptr;
}

unsigned int TCP_server_data_stream::handle_incoming_data(int, unsigned char* data, unsigned int len) {
    std::unique_lock<Mutex> held(mutex_);
    if (logging_ & log_reads)
        glue_detail::log_traffic(*this, "RD", data, len, received_count_);
    return glue_detail::append_received(*this, rx_buffer, data, len, std::move(held));
}

void TCP_server_data_stream::handle_direct_read() {
    send_rx_event(rx_buffer.full());
}

int TCP_server_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

int TCP_server_data_stream::_write(const unsigned char* data, unsigned int len) {
    if (logging_ & log_writes) {
        const std::lock_guard guard(written_count_lock_);
        glue_detail::log_traffic(*this, "WR", data, len, written_count_);
    }
    return write_to_all_connections(data, len, -1) ? static_cast<int>(len) : 0;
}

int TCP_server_data_stream::set_port_logging(data_stream_logging_t flags) {
    logging_ = flags;
    TCP_server::set_port_logging(flags != log_none, get_description());
    return 0;
}
