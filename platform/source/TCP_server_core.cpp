// The states of a server:
//
//     closed --open--> listening --run--> serving --quit--> finished
//                          |                                   ^
//                          +--------- quit, then run ----------+
//
// The states of a client, as the server's thread receives from it:
//
//                       +----- all delivered ------+
//                       v                          |
//     accepted --> waiting for bytes --readable--> reading <--free space-- waiting for space
//                                                  |    |                        ^
//                                                  |    +--not all delivered-----+
//                                                  v
//                                                closed (on end of file or an error)
//
// A client whose queue is full when others can be served is closed in any state. The sending side of a client has its
// own states: see TCP_connection.cpp.

#include "TCP_server_core.h"

#include "bind_address.h"
#include "tcp_sockets.h"

#include <platform/Debug.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

using Wait = asio::posix::stream_descriptor::wait_type;

namespace {

constexpr std::chrono::milliseconds retry_period(1);
constexpr std::chrono::milliseconds accept_pause_period(100);

bool is_temporary(int error) {
    return error == EAGAIN || error == EINTR;
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

} // namespace

TCP_server_base::Core::Loop::Loop(Core& core)
    : listener(io), accept_pause(io), retry_timer(io), write_notification(io, [&core] { core.serve_writers(); }) {}

TCP_server_base::Core::Core(TCP_server_base& owner, Kind kind) : owner_(owner), kind_(kind) {
    connections_.reserve(most_clients);
    waiting_for_space_.reserve(most_clients);
    retried_.reserve(most_clients);
    try {
        loop_ = std::make_unique<Loop>(*this);
    } catch (const std::system_error&) {
        // no descriptors are left: open() fails
    }
}

// ---- Begin and end ----

bool TCP_server_base::Core::open(int port) {
    if (!loop_ || loop_->listener.is_open())
        return false;
    const int fd = platform_detail::open_bound_listener(port);
    if (fd < 0)
        return false;
    std::error_code error;
    loop_->listener.assign(fd, error);
    if (error) {
        ::close(fd);
        return false;
    }
    local_port_ = platform_detail::local_port_of(fd);
    return true;
}

void TCP_server_base::Core::run() {
    {
        const std::lock_guard guard(end_mutex_);
        if (quit_ || !loop_)
            return;
        finished_ = false;
    }
    if (loop_->listener.is_open())
        wait_for_clients();
    loop_->io.run();
    close_all();

    const std::lock_guard guard(end_mutex_);
    finished_ = true;
    ended_.notify_all();
}

void TCP_server_base::Core::quit() {
    const std::lock_guard guard(end_mutex_);
    quit_ = true;
    if (loop_)
        loop_->io.stop();
}

void TCP_server_base::Core::wait_until_finished() {
    std::unique_lock<std::mutex> held(end_mutex_);
    ended_.wait(held, [this] { return finished_.load(); });
}

void TCP_server_base::Core::close_all() {
    const std::lock_guard guard(mutex_);
    for (const Connection_ptr& connection : connections_)
        connection->socket().close();
    connections_.clear();
    waiting_for_space_.clear();
    loop_->listener.close();
}

// ---- Clients connect and disconnect ----

unsigned TCP_server_base::Core::connection_count() const {
    const std::lock_guard guard(mutex_);
    return static_cast<unsigned>(connections_.size());
}

void TCP_server_base::Core::wait_for_clients() {
    loop_->listener.async_wait(Wait::wait_read, [this](const std::error_code& error) {
        if (!error)
            accept_client();
    });
}

void TCP_server_base::Core::accept_client() {
    const int fd = platform_detail::accept_client(loop_->listener.native_handle());
    if (fd < 0 && is_shortage(errno)) {
        // The client stays in the listener's queue, and the listener stays readable: without a pause this would repeat.
        loop_->accept_pause.expires_after(accept_pause_period);
        loop_->accept_pause.async_wait([this](const std::error_code&) { wait_for_clients(); });
        return;
    }
    if (fd >= 0)
        add_client(fd);
    wait_for_clients();
}

void TCP_server_base::Core::add_client(int fd) {
    const Connection_ptr connection = make_connection(fd);
    if (!connection) {
        ::close(fd);
        return;
    }
    log.connected(connection->id(), platform_detail::peer_of(fd));
    {
        const std::lock_guard guard(mutex_);
        connections_.push_back(connection);
    }
    wait_for_bytes(connection);
}

/// Null, with a message, when there are already enough clients, or the system cannot provide memory or watch another
/// socket.
TCP_server_base::Core::Connection_ptr TCP_server_base::Core::make_connection(int fd) {
    if (connections_.size() == most_clients) {
        Debug::Print::dprint_ts("TCP server, port %d: has %u clients, another one is refused\n", local_port(),
                                most_clients);
        return nullptr;
    }
    try {
        auto connection = std::make_shared<Connection>(loop_->io, fd, next_id_);
        ++next_id_;
        return connection;
    } catch (const std::exception& error) {
        Debug::Print::dprint_ts("TCP server, port %d: a client is refused: %s\n", local_port(), error.what());
        return nullptr;
    }
}

void TCP_server_base::Core::close(const Connection_ptr& connection) {
    if (!connection->socket().is_open())
        return;
    {
        const std::lock_guard guard(mutex_);
        connection->stop_sending();
        connection->socket().close();
        connections_.erase(std::find(connections_.begin(), connections_.end(), connection));
    }
    log.disconnected(connection->id());
    owner_.handle_disconnected(connection->id());
}

// ---- Receiving ----

void TCP_server_base::Core::wait_for_bytes(const Connection_ptr& connection) {
    connection->socket().async_wait(Wait::wait_read, [this, connection](const std::error_code& error) {
        if (!error)
            read(connection);
    });
}

void TCP_server_base::Core::read(const Connection_ptr& connection) {
    if (!connection->socket().is_open())
        return;
    if (kind_ == Kind::buffered && ring)
        read_directly(connection);
    else
        read_and_offer(connection);
}

void TCP_server_base::Core::read_and_offer(const Connection_ptr& connection) {
    const ssize_t received = connection->receive_pending();
    if (received > 0)
        offer(connection);
    else
        continue_after(received, connection);
}

/// Offers no more than fits into the ring, so that a derived class that logs what it is offered logs each byte once.
void TCP_server_base::Core::offer(const Connection_ptr& connection) {
    const unsigned offered = std::min(connection->pending_count(), free_space());
    const unsigned accepted = owner_.handle_incoming_data(connection->id(), connection->pending(), offered);
    connection->consume_pending(std::min(accepted, offered));
    if (connection->pending_count() > 0)
        wait_for_space(connection);
    else
        wait_for_bytes(connection);
}

void TCP_server_base::Core::read_directly(const Connection_ptr& connection) {
    ssize_t received = 0;
    {
        const Mutex_guard guard(ring_lock);
        const auto free = ring->free_region();
        if (free.size == 0)
            return wait_for_space(connection);
        received = connection->receive(free.begin, free.size);
        if (received > 0) {
            const auto count = static_cast<unsigned>(received);
            log.traffic("RD", connection->id(), free.begin, count);
            ring->commit(count);
            owner_.handle_direct_read();
        }
    }
    continue_after(received, connection);
}

/// \param received  what `recv` returned
void TCP_server_base::Core::continue_after(ssize_t received, const Connection_ptr& connection) {
    if (received > 0 || (received < 0 && is_temporary(errno)))
        wait_for_bytes(connection);
    else
        close(connection);
}

unsigned TCP_server_base::Core::free_space() const {
    if (!ring)
        return UINT_MAX;
    const Mutex_guard guard(ring_lock);
    return ring->free_space();
}

void TCP_server_base::Core::wait_for_space(const Connection_ptr& connection) {
    waiting_for_space_.push_back(connection);
    if (waiting_for_space_.size() == 1)
        start_retry_timer();
}

/// Polls, because a reader does not notify the server when it has consumed bytes.
void TCP_server_base::Core::start_retry_timer() {
    loop_->retry_timer.expires_after(retry_period);
    loop_->retry_timer.async_wait([this](const std::error_code& error) {
        if (!error)
            retry();
    });
}

/// Serves the waiting clients until the ring is full again; those that were not served are first the next time.
void TCP_server_base::Core::retry() {
    retried_.swap(waiting_for_space_);
    const auto is_closed = [](const Connection_ptr& connection) { return !connection->socket().is_open(); };
    retried_.erase(std::remove_if(retried_.begin(), retried_.end(), is_closed), retried_.end());

    auto next = retried_.begin();
    if (next != retried_.end() && free_space() == 0)
        owner_.handle_incoming_data((*next)->id(), (*next)->pending(), 0);
    for (; next != retried_.end() && free_space() > 0; ++next) {
        if ((*next)->pending_count() > 0)
            offer(*next);
        else
            read(*next);
    }
    waiting_for_space_.insert(waiting_for_space_.begin(), next, retried_.end());
    retried_.clear();
    if (!waiting_for_space_.empty())
        start_retry_timer();
}

// ---- Sending ----

bool TCP_server_base::Core::write_to_all(const unsigned char* data, unsigned len, int except) {
    if (!send_to_all(data, len, except))
        return false;
    if (kind_ == Kind::buffered)
        log.traffic("WR", -1, data, len);
    return true;
}

bool TCP_server_base::Core::send_to_all(const unsigned char* data, unsigned len, int except) {
    const std::lock_guard guard(mutex_);
    const auto is_receiver = [except](const Connection_ptr& connection) {
        return connection->accepts_writes() && connection->id() != except;
    };
    const auto fits = [len](const Connection_ptr& connection) { return len <= connection->free_space(); };
    const auto can_send = [&](const Connection_ptr& connection) { return is_receiver(connection) && fits(connection); };
    if (std::none_of(connections_.begin(), connections_.end(), is_receiver))
        return true;
    if (std::none_of(connections_.begin(), connections_.end(), can_send))
        return false;

    bool needs_loop = false;
    for (const Connection_ptr& connection : connections_) {
        if (!is_receiver(connection))
            continue;
        if (fits(connection))
            connection->send(data, len);
        else
            drop_slow_client(*connection);
        needs_loop = needs_loop || connection->to_be_closed || (connection->has_queued() && !connection->waits_to_send);
    }
    if (needs_loop)
        loop_->write_notification.notify();
    return true;
}

void TCP_server_base::Core::drop_slow_client(Connection& connection) const {
    Debug::Print::dprint_ts("TCP server, port %d: client %d does not keep up, it is disconnected\n", local_port(),
                            connection.id());
    connection.stop_sending();
    connection.to_be_closed = true;
}

/// Completes writes: closes the clients that writers have dropped, and waits for the sockets of those with queued
/// bytes.
void TCP_server_base::Core::serve_writers() {
    for (std::size_t i = connections_.size(); i-- > 0;) { // backwards: closing erases from the list
        const Connection_ptr connection = connections_[i];
        std::unique_lock<std::mutex> held(mutex_);
        const bool to_be_closed = connection->to_be_closed;
        const bool begins_to_wait = connection->has_queued() && !connection->waits_to_send;
        connection->waits_to_send = connection->waits_to_send || begins_to_wait;
        held.unlock();
        if (to_be_closed)
            close(connection);
        else if (begins_to_wait)
            wait_to_send(connection);
    }
}

void TCP_server_base::Core::wait_to_send(const Connection_ptr& connection) {
    connection->socket().async_wait(Wait::wait_write, [this, connection](const std::error_code& error) {
        if (!error && connection->socket().is_open())
            send_queued(connection);
    });
}

void TCP_server_base::Core::send_queued(const Connection_ptr& connection) {
    {
        const std::lock_guard guard(mutex_);
        connection->send_queued();
        connection->waits_to_send = connection->has_queued();
        if (!connection->waits_to_send)
            return;
    }
    wait_to_send(connection);
}
