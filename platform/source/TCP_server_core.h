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

/// The implementation of a server: the loop of its thread, and the operations of other threads, which write and end it.
///
/// `mutex_` guards the list of clients and their queues; it is held for short times only, never while a hook runs. Only
/// the server's thread changes the list, so it may read the list without the lock.
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

    /// The parts that need descriptors of the system.
    struct Loop {
        explicit Loop(Core& core);

        asio::io_context io;
        asio::posix::stream_descriptor listener;
        asio::steady_timer accept_pause;
        asio::steady_timer retry_timer;
        platform_detail::Wake_up write_notification;
    };

    void wait_for_clients();
    void accept_client();
    void add_client(int fd);
    Connection_ptr make_connection(int fd);

    void wait_for_bytes(const Connection_ptr& connection);
    void read(const Connection_ptr& connection);
    void read_and_offer(const Connection_ptr& connection);
    void read_directly(const Connection_ptr& connection);
    void offer(const Connection_ptr& connection);
    void continue_after(ssize_t received, const Connection_ptr& connection);

    unsigned free_space() const;
    void wait_for_space(const Connection_ptr& connection);
    void start_retry_timer();
    void retry();

    bool send_to_all(const unsigned char* data, unsigned len, int except);
    void serve_writers();
    void wait_to_send(const Connection_ptr& connection);
    void send_queued(const Connection_ptr& connection);

    void close(const Connection_ptr& connection);
    void close_all();
    void drop_slow_client(Connection& connection) const;

    TCP_server_base& owner_;
    const Kind kind_;
    std::unique_ptr<Loop> loop_; // null when the system has no descriptors left
    std::atomic<int> local_port_{-1};
    int next_id_ = 0;

    mutable std::mutex mutex_;
    std::vector<Connection_ptr> connections_;

    std::vector<Connection_ptr> waiting_for_space_; // their bytes do not fit into the ring
    std::vector<Connection_ptr> retried_;           // used within one retry

    std::mutex end_mutex_;
    std::condition_variable ended_;
    bool quit_ = false;
    std::atomic<bool> finished_{true};
};
