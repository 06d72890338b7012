#pragma once

#include "TCP_connection.h"
#include "TCP_log.h"
#include "Wake_up.h"

#include <platform/TCP_server_base.h>

#include <asio/steady_timer.hpp>

#include <atomic>
#include <climits>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

/// The loop of a server: everything that its thread does, and the two things that other threads do to it, writing and
/// ending.
///
/// `mutex_` guards the list of clients and what is queued for them; it is held for moments only, never while a hook
/// runs. The server's thread alone changes the list, so that it reads it without the lock.
class TCP_server_base::Core {
  public:
    Core(TCP_server_base& owner, Kind kind);

    bool open(int port);
    void run();
    void quit();
    void wait_until_finished();
    bool is_finished() const { return finished_; }

    bool write_to_all(const unsigned char* data, unsigned len, int except);

    int local_port() const { return local_port_; }
    unsigned connection_count() const;

    platform_detail::TCP_log log;
    Cbuf_templ<unsigned char>* ring = nullptr;
    Mutex* ring_lock = nullptr;

  private:
    using Connection = platform_detail::TCP_connection;
    using Connection_ptr = std::shared_ptr<Connection>;

    /// What needs descriptors of the system.
    struct Loop {
        explicit Loop(Core& core);

        asio::io_context io;
        asio::posix::stream_descriptor listener;
        asio::steady_timer accept_pause;
        asio::steady_timer room_timer;
        platform_detail::Wake_up writers_call;
    };

    void wait_for_clients();
    void accept_client();
    void welcome(int fd);
    Connection_ptr make_connection(int fd);

    void wait_for_bytes(const Connection_ptr& connection);
    void read(const Connection_ptr& connection);
    void read_and_offer(const Connection_ptr& connection);
    void read_directly(const Connection_ptr& connection);
    void offer(const Connection_ptr& connection);
    void go_on_after(ssize_t received, const Connection_ptr& connection);

    unsigned room() const;
    void wait_for_room(const Connection_ptr& connection);
    void look_for_room_soon();
    void look_for_room();

    bool send_to_all(const unsigned char* data, unsigned len, int except);
    void serve_writers();
    void wait_to_send(const Connection_ptr& connection);
    void send_queued(const Connection_ptr& connection);

    void close(const Connection_ptr& connection);
    void close_all();
    void dismiss(Connection& connection) const;

    TCP_server_base& owner_;
    const Kind kind_;
    std::unique_ptr<Loop> loop_; // null when the system had no descriptors left
    std::atomic<int> local_port_{-1};
    int next_id_ = 0;

    mutable std::mutex mutex_;
    std::vector<Connection_ptr> connections_;

    std::vector<Connection_ptr> without_room_; // have bytes that nobody has taken
    std::vector<Connection_ptr> their_turn_;

    std::mutex end_mutex_;
    std::condition_variable ended_;
    bool quit_ = false;
    std::atomic<bool> finished_{true};
};
