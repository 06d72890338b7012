#include <glue/data_stream/TCP_client_data_stream.h>

#include "data_stream/core/stream_specification.h"
#include "data_stream/network/traffic_logging.h"
#include "detail/assertion.h"

#include <platform/Atime.h>
#include <platform/stzncpy.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unistd.h>

namespace {

constexpr int longest_backoff = 64;
constexpr unsigned most_at_once = 256;

} // namespace

TCP_client_data_stream* TCP_client_data_stream::create(module_man& mm, const char* arg) {
    constexpr std::string_view prefix = glue_detail::tcp_client_prefix;
    if (std::strncmp(arg, prefix.data(), prefix.size()) != 0)
        return nullptr;
    char tmp[256];
    GLUE_ASSERT(sizeof(tmp) > strlen(arg + 1));
    stzncpy(tmp, arg + prefix.size(), sizeof tmp);
    const glue_detail::TCP_client_target target = glue_detail::target_in(tmp);
    if (target.unknown_token) { // a unit with a wrong configuration must not start its work
        std::fprintf(stderr, "Unknown token: %s\n", target.unknown_token);
        std::exit(1);
    }
    if (target.port == 0) {
        std::fputs("Error: No port specified\n", stderr);
        return nullptr;
    }
    return new TCP_client_data_stream(mm, target.address, target.port, -1, -1);
}

TCP_client_data_stream::TCP_client_data_stream(module_man& mm, const char* addr, int port, int reconnect_period,
                                               int connect_timeout)
    : Pushed_data_stream(&mm, mutex_),
      TCP_client_task(addr, port),
      tx_queue_(tx_storage_, queue_capacity),
      read_backoff_(1),
      logging_(log_none),
      sent_count_(0),
      errors_suppressed_(false),
      received_count_(0) {
    if (reconnect_period > 0)
        set_reconnect_period(reconnect_period);
    if (connect_timeout > 0)
        set_connect_timeout(connect_timeout);
    open();
}

TCP_client_data_stream::~TCP_client_data_stream() {
    close();
}

int TCP_client_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

// ---- Sending ----

int TCP_client_data_stream::_write(const unsigned char* data, unsigned int len) {
    const std::lock_guard guard(mutex_);
    const unsigned int sent = tx_queue_.empty() ? send_at_once(data, len) : 0;
    const unsigned int rest = len - sent;
    if (rest > tx_queue_.free_space())
        return static_cast<int>(sent);
    if (tx_queue_.append(data + sent, rest) > 0)
        notify_write_data_avail();
    return static_cast<int>(len);
}

/// \return the bytes that the socket accepted; 0 also when the write failed or there is no socket
unsigned int TCP_client_data_stream::send_at_once(const unsigned char* data, unsigned int len) {
    const ssize_t sent = ::write(descriptor(), data, len);
    if (sent <= 0)
        return 0;
    const auto count = static_cast<unsigned int>(sent);
    if (logging_ & log_writes)
        glue_detail::log_traffic(*this, "WRF", data, count, sent_count_);
    return count;
}

void TCP_client_data_stream::handle_write(int fd) {
    const std::lock_guard guard(mutex_);
    unsigned char piece[most_at_once];
    const unsigned int gathered = tx_queue_.peek(piece, most_at_once, 0);
    const ssize_t sent = ::write(fd, piece, gathered);
    if (sent < 0) {
        tx_queue_.clear();
        return;
    }
    const auto count = static_cast<unsigned int>(sent);
    if (count > 0 && (logging_ & log_writes))
        glue_detail::log_traffic(*this, "WR", piece, count, sent_count_);
    tx_queue_.consume(count);
}

bool TCP_client_data_stream::is_write_data_avail() {
    const std::lock_guard guard(mutex_);
    return !tx_queue_.empty();
}

// ---- Receiving ----

int TCP_client_data_stream::handle_read(int fd) {
    std::unique_lock<Mutex> held(mutex_);
    if (rx_buffer.full()) {
        send_rx_event(true);
        held.unlock();
        Atime::delay(read_backoff_);
        read_backoff_ = std::min(2 * read_backoff_, longest_backoff);
        return 0;
    }
    read_backoff_ = 1;
    const int result = read_into_ring(fd);
    send_rx_event(rx_buffer.full());
    return result;
}

int TCP_client_data_stream::read_into_ring(int fd) {
    const auto free = rx_buffer.free_region();
    errno = 0; // end of file sets none, and the message must not show that of an earlier call
    const ssize_t received = ::read(fd, free.begin, free.size);
    if (received < 0 && (errno == EINTR || errno == EAGAIN))
        return 0;
    if (received <= 0) {
        std::perror("TCP_client_data_stream: handle_read");
        return -1;
    }
    const auto count = static_cast<unsigned int>(received);
    if (logging_ & log_reads)
        glue_detail::log_traffic(*this, "RD", free.begin, count, received_count_);
    rx_buffer.commit(count);
    return static_cast<int>(count);
}

// ---- Logging and errors ----

int TCP_client_data_stream::set_port_logging(data_stream_logging_t flags) {
    logging_ = flags;
    return 0;
}

void TCP_client_data_stream::suppress_errors(bool on) {
    errors_suppressed_ = on;
}
