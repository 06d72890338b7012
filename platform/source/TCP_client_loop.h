#pragma once

#include "Wake_up.h"
#include "tcp_sockets.h"

#include <platform/TCP_client_task.h>
#include <platform/Task.h>

#include <asio/steady_timer.hpp>

#include <chrono>

/// The thread of a client. Its states: see the source.
class TCP_client_task::Loop {
  public:
    /// Throws std::system_error when the system has no descriptors left.
    Loop(TCP_client_task& owner, const platform_detail::Tcp_endpoint& remote);

    bool start();
    /// Ends the thread and waits for it.
    void stop();
    /// There are bytes to send. From any thread.
    void notify_write() { write_notification_.notify(); }

  private:
    using Milliseconds = std::chrono::milliseconds;
    enum class State { waiting, connecting, connected };

    static void* thread(void* self);

    void connect();
    void finish_connecting();
    void disconnect();
    void wait_before_next_attempt();

    void wait_for_bytes();
    void read();
    void wait_to_send();
    void send();

    void close_socket();

    TCP_client_task& owner_;
    const platform_detail::Tcp_endpoint remote_;
    asio::io_context io_;
    asio::posix::stream_descriptor socket_;
    asio::steady_timer timer_; // until the next attempt begins, or the time limit of the present one
    platform_detail::Wake_up write_notification_;
    State state_ = State::waiting;
    Milliseconds next_wait_;
    bool waits_to_send_ = false;
    Task task_;
};
