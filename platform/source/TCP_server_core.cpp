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

constexpr std::chrono::milliseconds room_poll_period(1);
constexpr std::chrono::milliseconds accept_pause_period(100);

bool is_temporary(int error) {
    return error == EAGAIN || error == EINTR;
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

} // namespace

TCP_server_base::Core::Loop::Loop(Core& core)
    : listener(io), accept_pause(io), room_timer(io), writers_call(io, [&core] { core.serve_writers(); }) {}

TCP_server_base::Core::Core(TCP_server_base& owner, Kind kind) : owner_(owner), kind_(kind) {
    connections_.reserve(most_clients);
    without_room_.reserve(most_clients);
    their_turn_.reserve(most_clients);
    try {
        loop_ = std::make_unique<Loop>(*this);
    } catch (const std::system_error&) {
        // no descriptors left: open() fails
    }
}

// ---- Beginning and end ----

bool TCP_server_base::Core::open(int port) {
    if (!loop_ || loop_->listener.is_open())
        return false;
    const int fd = platform_detail::open_listener_where_bound(port);
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
    without_room_.clear();
    loop_->listener.close();
}

// ---- Clients come and go ----

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
        // The client stays in the listener's queue, which would be readable again at once.
        loop_->accept_pause.expires_after(accept_pause_period);
        loop_->accept_pause.async_wait([this](const std::error_code&) { wait_for_clients(); });
        return;
    }
    if (fd >= 0)
        welcome(fd);
    wait_for_clients();
}

void TCP_server_base::Core::welcome(int fd) {
    const Connection_ptr connection = make_connection(fd);
    if (!connection) {
        ::close(fd);
        return;
    }
    log.came(connection->id(), platform_detail::peer_of(fd));
    {
        const std::lock_guard guard(mutex_);
        connections_.push_back(connection);
    }
    wait_for_bytes(connection);
}

/// Null, with a message, when there are clients enough or the system has no memory or no watch left for another.
TCP_server_base::Core::Connection_ptr TCP_server_base::Core::make_connection(int fd) {
    if (connections_.size() == most_clients) {
        Debug::Print::dprint_ts("TCP server, port %d: has %u clients, another is turned away\n", local_port(),
                                most_clients);
        return nullptr;
    }
    try {
        auto connection = std::make_shared<Connection>(loop_->io, fd, next_id_);
        ++next_id_;
        return connection;
    } catch (const std::exception& error) {
        Debug::Print::dprint_ts("TCP server, port %d: a client is turned away: %s\n", local_port(), error.what());
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
    log.left(connection->id());
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
        go_on_after(received, connection);
}

/// Offers no more than there is room for: what is logged on the way is then logged once.
void TCP_server_base::Core::offer(const Connection_ptr& connection) {
    const unsigned offered = std::min(connection->pending_count(), room());
    const unsigned taken = owner_.handle_incoming_data(connection->id(), connection->pending(), offered);
    connection->take_pending(std::min(taken, offered));
    if (connection->pending_count() > 0)
        wait_for_room(connection);
    else
        wait_for_bytes(connection);
}

void TCP_server_base::Core::read_directly(const Connection_ptr& connection) {
    ssize_t received = 0;
    {
        const Mutex_guard guard(ring_lock);
        const auto free = ring->free_region();
        if (free.size == 0)
            return wait_for_room(connection);
        received = connection->receive(free.begin, free.size);
        if (received > 0) {
            const auto count = static_cast<unsigned>(received);
            log.traffic("RD", connection->id(), free.begin, count);
            ring->commit(count);
            owner_.handle_direct_read();
        }
    }
    go_on_after(received, connection);
}

/// \param received  what `recv` returned
void TCP_server_base::Core::go_on_after(ssize_t received, const Connection_ptr& connection) {
    if (received > 0 || (received < 0 && is_temporary(errno)))
        wait_for_bytes(connection);
    else
        close(connection);
}

unsigned TCP_server_base::Core::room() const {
    if (!ring)
        return UINT_MAX;
    const Mutex_guard guard(ring_lock);
    return ring->room();
}

void TCP_server_base::Core::wait_for_room(const Connection_ptr& connection) {
    without_room_.push_back(connection);
    if (without_room_.size() == 1)
        look_for_room_soon();
}

/// Nobody says when the reader has made room.
void TCP_server_base::Core::look_for_room_soon() {
    loop_->room_timer.expires_after(room_poll_period);
    loop_->room_timer.async_wait([this](const std::error_code& error) {
        if (!error)
            look_for_room();
    });
}

/// Lets those go on whose bytes had no room, until there is none again: who was not served is first next time.
void TCP_server_base::Core::look_for_room() {
    their_turn_.swap(without_room_);
    const auto is_closed = [](const Connection_ptr& connection) { return !connection->socket().is_open(); };
    their_turn_.erase(std::remove_if(their_turn_.begin(), their_turn_.end(), is_closed), their_turn_.end());

    auto next = their_turn_.begin();
    if (next != their_turn_.end() && room() == 0)
        owner_.handle_incoming_data((*next)->id(), (*next)->pending(), 0);
    for (; next != their_turn_.end() && room() > 0; ++next) {
        if ((*next)->pending_count() > 0)
            offer(*next);
        else
            read(*next);
    }
    without_room_.insert(without_room_.begin(), next, their_turn_.end());
    their_turn_.clear();
    if (!without_room_.empty())
        look_for_room_soon();
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
    const auto gets_it = [except](const Connection_ptr& connection) {
        return connection->takes_writes() && connection->id() != except;
    };
    const auto has_room = [len](const Connection_ptr& connection) { return connection->has_room_for(len); };
    const auto is_ready = [&](const Connection_ptr& connection) { return gets_it(connection) && has_room(connection); };
    if (std::none_of(connections_.begin(), connections_.end(), gets_it))
        return true;
    if (std::none_of(connections_.begin(), connections_.end(), is_ready))
        return false;

    bool call = false;
    for (const Connection_ptr& connection : connections_) {
        if (!gets_it(connection))
            continue;
        if (has_room(connection))
            connection->send(data, len);
        else
            dismiss(*connection);
        call = call || connection->dismissed || (connection->has_queued() && !connection->waits_to_send);
    }
    if (call)
        loop_->writers_call.call();
    return true;
}

void TCP_server_base::Core::dismiss(Connection& connection) const {
    Debug::Print::dprint_ts("TCP server, port %d: client %d does not keep up, it is disconnected\n", local_port(),
                            connection.id());
    connection.stop_sending();
    connection.dismissed = true;
}

/// Does what writers in other threads cannot do themselves.
void TCP_server_base::Core::serve_writers() {
    for (std::size_t i = connections_.size(); i-- > 0;) { // backwards: closing takes them out of the list
        const Connection_ptr connection = connections_[i];
        std::unique_lock<std::mutex> held(mutex_);
        const bool dismissed = connection->dismissed;
        const bool begins_to_wait = connection->has_queued() && !connection->waits_to_send;
        connection->waits_to_send = connection->waits_to_send || begins_to_wait;
        held.unlock();
        if (dismissed)
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
