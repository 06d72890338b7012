// The states of a connection:
//
//     waiting --time is over--> connecting --writable, no error--> connected
//        ^                          |                                 |
//        +--error or time limit-----+---- handle_read is negative ----+
//
// All states share one timer and one socket. A handler that was queued before the state changed finds another state and
// does nothing.

#include "TCP_client_loop.h"

#include <algorithm>
#include <system_error>
#include <unistd.h>

using Wait = asio::posix::stream_descriptor::wait_type;

namespace {

/// Pieces that are sent before the socket is read again.
constexpr int most_pieces = 32;

} // namespace

TCP_client_task::Loop::Loop(TCP_client_task& owner, const platform_detail::Tcp_endpoint& remote)
    : owner_(owner),
      remote_(remote),
      socket_(io_),
      timer_(io_),
      write_notification_(io_, [this] { wait_to_send(); }),
      next_wait_(owner.reconnect_period_ms_),
      task_("TCPC") {}

bool TCP_client_task::Loop::start() {
    return task_.vro_start(0, thread, this, false);
}

void* TCP_client_task::Loop::thread(void* self) {
    auto* const loop = static_cast<Loop*>(self);
    loop->connect();
    loop->io_.run();
    loop->close_socket();
    return nullptr;
}

void TCP_client_task::Loop::stop() {
    io_.stop();
    task_.join();
}

// ---- Connecting ----

void TCP_client_task::Loop::connect() {
    const int fd = platform_detail::start_connecting(remote_);
    if (fd < 0)
        return wait_before_next_attempt();
    std::error_code cannot_be_watched;
    socket_.assign(fd, cannot_be_watched);
    if (cannot_be_watched) {
        ::close(fd);
        return wait_before_next_attempt();
    }
    state_ = State::connecting;
    socket_.async_wait(Wait::wait_write, [this](const std::error_code& error) {
        if (!error && state_ == State::connecting)
            finish_connecting();
    });
    timer_.expires_after(Milliseconds(owner_.connect_timeout_ms_));
    timer_.async_wait([this](const std::error_code& error) {
        if (!error && state_ == State::connecting)
            disconnect();
    });
}

void TCP_client_task::Loop::finish_connecting() {
    timer_.cancel();
    if (!platform_detail::is_connected(socket_.native_handle()))
        return disconnect();
    state_ = State::connected;
    next_wait_ = Milliseconds(owner_.reconnect_period_ms_);
    owner_.descriptor_ = socket_.native_handle();
    wait_for_bytes();
    wait_to_send();
}

void TCP_client_task::Loop::disconnect() {
    close_socket();
    wait_before_next_attempt();
}

void TCP_client_task::Loop::wait_before_next_attempt() {
    state_ = State::waiting;
    timer_.expires_after(next_wait_);
    timer_.async_wait([this](const std::error_code& error) {
        if (!error && state_ == State::waiting)
            connect();
    });
    const Milliseconds longest(std::max(longest_wait_ms, owner_.reconnect_period_ms_));
    next_wait_ = std::min(2 * next_wait_, longest);
}

void TCP_client_task::Loop::close_socket() {
    if (owner_.descriptor_ >= 0) {
        owner_.descriptor_ = -1;
        // Acquires and releases the lock under which the descriptor is used: afterwards no thread uses it any longer.
        owner_.is_write_data_avail();
    }
    waits_to_send_ = false;
    socket_.close();
}

// ---- Connected ----

void TCP_client_task::Loop::wait_for_bytes() {
    socket_.async_wait(Wait::wait_read, [this](const std::error_code& error) {
        if (!error && state_ == State::connected)
            read();
    });
}

void TCP_client_task::Loop::read() {
    if (owner_.handle_read(socket_.native_handle()) < 0)
        disconnect();
    else
        wait_for_bytes();
}

void TCP_client_task::Loop::wait_to_send() {
    if (state_ != State::connected || waits_to_send_ || !owner_.is_write_data_avail())
        return;
    waits_to_send_ = true;
    socket_.async_wait(Wait::wait_write, [this](const std::error_code& error) {
        if (error || state_ != State::connected)
            return;
        waits_to_send_ = false;
        send();
    });
}

/// Sends several pieces if possible: `handle_read` sleeps while there is no free space, and that would delay each
/// piece. Sends only while the socket is writable: a derived class may treat EAGAIN as an error.
void TCP_client_task::Loop::send() {
    const int fd = socket_.native_handle();
    for (int piece = 0; piece < most_pieces && platform_detail::is_writable(fd) && owner_.is_write_data_avail();
         ++piece)
        owner_.handle_write(fd);
    wait_to_send();
}
