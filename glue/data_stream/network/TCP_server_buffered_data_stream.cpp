#include <glue/data_stream/TCP_server_buffered_data_stream.h>

#include "data_stream/core/stream_specification.h"
#include "data_stream/network/TCP_server_streams.h"

namespace {

std::string next_task_name() {
    static std::atomic<int> counter{0};
    return "TCSB" + std::to_string(counter++);
}

} // namespace

TCP_server_buffered_data_stream* TCP_server_buffered_data_stream::create(module_man& mm, const char* spec) {
    const std::optional<int> port = glue_detail::tcp_server_buffered_port_in(spec);
    return port ? new TCP_server_buffered_data_stream(mm, *port) : nullptr;
}

TCP_server_buffered_data_stream::TCP_server_buffered_data_stream(module_man& mm, int port_to_open)
    : Pushed_data_stream(&mm, mutex_),
      TCP_server_buffered(port_to_open),
      task_name_(next_task_name()),
      task_(task_name_, glue_detail::server_stack_size, 0, 0),
      port_(port_to_open),
      logging_(log_none) {
    register_direct_read_buffer(&rx_buffer, &mutex_);
    task_.vro_start(0, serve, this, false);
}

TCP_server_buffered_data_stream::~TCP_server_buffered_data_stream() {
    wait_quit();
    task_.join(); // the thread may not have begun to serve
}

void* TCP_server_buffered_data_stream::serve(void* self) {
    static_cast<TCP_server_buffered_data_stream*>(self)->run_blocking();
    return nullptr;
}

unsigned int TCP_server_buffered_data_stream::handle_incoming_data(int, unsigned char* data, unsigned int len) {
    return glue_detail::append_received(*this, rx_buffer, data, len, std::unique_lock<Mutex>(mutex_));
}

void TCP_server_buffered_data_stream::handle_direct_read() {
    send_rx_event(rx_buffer.full());
}

int TCP_server_buffered_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

int TCP_server_buffered_data_stream::_write(const unsigned char* data, unsigned int len) {
    return write_to_all_connections(data, len) ? static_cast<int>(len) : 0;
}

int TCP_server_buffered_data_stream::set_port_logging(data_stream_logging_t flags) {
    logging_ = flags;
    TCP_server_buffered::set_port_logging(flags != log_none, get_description());
    return 0;
}

void TCP_server_buffered_data_stream::flush() {
    const std::lock_guard guard(mutex_);
    rx_buffer.clear();
}
