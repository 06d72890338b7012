#include <platform/TCP_client_task.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/descriptors.h>
#include <support/streams/TCP_socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// Keeps the received bytes, and sends the given ones in pieces of `longest_piece`.
class Client : public TCP_client_task {
  public:
    Client(const char* address, int port, int period_ms = 1) : TCP_client_task(address, port) {
        set_reconnect_period(period_ms);
    }
    explicit Client(const TCP_port& port, int period_ms = 1) : Client("127.0.0.1", port.number(), period_ms) {}
    ~Client() override { close(); }

    bool is_connected() const { return descriptor() >= 0; }
    int socket() const { return descriptor(); }

    std::string received() {
        const std::lock_guard guard(mutex_);
        return received_;
    }
    void send(const std::string& bytes) {
        const std::lock_guard guard(mutex_);
        to_send_ += bytes;
        notify_write_data_avail();
    }

    std::atomic<unsigned> lost{0};
    std::atomic<unsigned> longest_piece{1};
    std::atomic<unsigned> refused{0};            ///< writes that the socket did not accept
    std::atomic<unsigned> calls_before_close{0}; ///< of `is_write_data_avail`, with the old descriptor still open

  private:
    int handle_read(int fd) override {
        const std::lock_guard guard(mutex_);
        used_ = fd;
        char piece[1000];
        const ssize_t count = ::read(fd, piece, sizeof piece);
        if (count < 0 && errno == EAGAIN)
            return 0;
        if (count <= 0) {
            ++lost;
            return -1;
        }
        received_.append(piece, static_cast<std::size_t>(count));
        return static_cast<int>(count);
    }
    void handle_write(int fd) override {
        const std::lock_guard guard(mutex_);
        const ssize_t sent =
            ::send(fd, to_send_.data(), std::min<std::size_t>(to_send_.size(), longest_piece), MSG_NOSIGNAL);
        if (sent > 0)
            to_send_.erase(0, static_cast<std::size_t>(sent));
        else
            ++refused;
    }
    bool is_write_data_avail() override {
        const std::lock_guard guard(mutex_);
        if (used_ >= 0 && descriptor() < 0) { // the task is about to close it
            calls_before_close += is_open(used_);
            used_ = -1;
        }
        return !to_send_.empty();
    }

    std::mutex mutex_;
    std::string received_;
    std::string to_send_;
    int used_ = -1;
};

TEST(TCP_client_task_test, exchanges_bytes_with_a_server) {
    TCP_port port;
    port.listen();
    Client client(port);
    EXPECT_FALSE(client.is_connected());
    client.open();
    const TCP_socket server = port.accept();
    server.send("to the client");
    client.send("to the server");
    EXPECT_EQ(server.receive(13), "to the server");
    EXPECT_TRUE(eventually([&] { return client.received() == "to the client"; }));
}

TEST(TCP_client_task_test, sends_bytes_from_before_the_connection) {
    TCP_port port;
    port.listen();
    Client client(port);
    client.send("early ");
    client.open();
    client.send("late");
    EXPECT_EQ(port.accept().receive(10), "early late");
}

/// A derived class may treat a full socket as a failed one.
TEST(TCP_client_task_test, sends_only_while_the_socket_is_writable) {
    TCP_port port;
    port.listen();
    Client client(port);
    client.longest_piece = 256 * 1024;
    client.open();
    const TCP_socket server = port.accept();
    const std::string bytes(16U << 20, 'x');
    client.send(bytes);
    EXPECT_TRUE(server.receive(bytes.size()) == bytes);
    EXPECT_EQ(client.refused, 0U);
}

/// When no server listens on a local port, the system may choose the same port for this end.
TEST(TCP_client_task_test, connection_to_itself_is_a_failed_attempt) {
    TCP_port port;
    std::atomic<int> attempts{0};
    Replaced_calls calls;
    calls.before_connect = [&](int fd) {
        if (++attempts <= 3)
            bind_to(fd, port.number());
    };
    Client client(port);
    client.send("no connection");
    client.open();
    EXPECT_TRUE(eventually([&] { return attempts > 3; }));
    EXPECT_EQ(client.received(), "");
    port.listen();
    EXPECT_EQ(port.accept().receive(13), "no connection");
    client.close();
}

TEST(TCP_client_task_test, socket_is_non_blocking_and_close_on_exec_with_keep_alive_and_no_delay) {
    TCP_port port;
    port.listen();
    Client client(port);
    client.open();
    ASSERT_TRUE(eventually([&] { return client.is_connected(); }));
    const int fd = client.socket();
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(fd, F_GETFL) & O_NONBLOCK);
    const auto option = [fd](int level, int name) {
        int value = 0;
        socklen_t size = sizeof value;
        getsockopt(fd, level, name, &value, &size);
        return value;
    };
    EXPECT_NE(option(IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_NE(option(SOL_SOCKET, SO_KEEPALIVE), 0);
    // A dead server is noticed after a minute.
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE) + option(IPPROTO_TCP, TCP_KEEPINTVL) * option(IPPROTO_TCP, TCP_KEEPCNT),
              60);
}

TEST(TCP_client_task_test, connects_when_the_server_listens_and_again_when_it_returns) {
    TCP_port port;
    Client client(port);
    client.open();
    client.send("1");
    EXPECT_TRUE(process_rests());
    EXPECT_FALSE(client.is_connected());
    for (int i = 0; i < 3; ++i) {
        port.listen();
        TCP_socket server = port.accept();
        EXPECT_EQ(server.receive(1), "1");
        port.stop_listening();
        server.reset();
        EXPECT_TRUE(eventually([&] { return !client.is_connected(); }));
        client.send("1");
    }
    EXPECT_EQ(client.lost, 3U);
    EXPECT_TRUE(eventually([&] { return client.calls_before_close == 3; }));
}

TEST(TCP_client_task_test, server_that_always_closes_at_once_leaks_no_descriptor) {
    TCP_port port;
    port.listen();
    Client client(port);
    client.open();
    port.accept().close();
    EXPECT_TRUE(eventually([&] { return client.lost == 1; }));
    const int before = open_descriptors();
    for (int i = 0; i < 200; ++i)
        port.accept().close();
    EXPECT_TRUE(eventually([&] { return client.lost == 201 && open_descriptors() <= before + 1; }));
    EXPECT_TRUE(eventually([&] { return client.calls_before_close == 201; }));
}

TEST(TCP_client_task_test, socket_that_the_system_cannot_watch_is_a_failed_attempt) {
    TCP_port port;
    port.listen();
    std::atomic<bool> failing{false};
    std::atomic<int> failures{0};
    Replaced_calls calls;
    calls.epoll_add_fails = [&](int) {
        errno = ENOSPC;
        failures += failing;
        return failing.load();
    };
    Client client(port);
    client.open();
    TCP_socket server = port.accept();
    failing = true;
    server.close();
    EXPECT_TRUE(eventually([&] { return failures >= 3; }));
    failing = false;
    EXPECT_TRUE(eventually([&] { return client.is_connected(); }));
    client.close();
}

/// Measures the time between the connections to a port.
class Attempts {
  public:
    explicit Attempts(TCP_port& port) : port_(port) { port.listen(); }
    /// Accepts the next one and ends it. \return the time since the previous one
    std::chrono::nanoseconds next() {
        TCP_socket connection = port_.accept();
        const auto elapsed = since_last_.elapsed();
        since_last_ = Stopwatch(); // before the end of the connection, from which on the client waits
        connection.close();
        return elapsed;
    }

  private:
    TCP_port& port_;
    Stopwatch since_last_;
};

TEST(TCP_client_task_test, waits_the_period_after_every_connection_even_a_short_one) {
    TCP_port port;
    Attempts attempts(port);
    Client client(port, 20);
    client.open();
    attempts.next();
    const Stopwatch stopwatch;
    for (int i = 0; i < 8; ++i)
        EXPECT_GE(attempts.next(), 20ms);
    EXPECT_LT(stopwatch.elapsed(), 4s); // twice as long each time would be 5.1 s
}

TEST(TCP_client_task_test, waits_twice_as_long_after_each_failed_attempt) {
    using Time = std::chrono::steady_clock::time_point;
    const TCP_port silent_port;
    std::mutex mutex;
    std::vector<Time> attempts;
    const auto attempts_so_far = [&] {
        const std::lock_guard guard(mutex);
        return attempts;
    };
    Replaced_calls calls;
    calls.epoll_add_fails = [&](int fd) { // every attempt watches its own socket
        const std::lock_guard guard(mutex);
        if (is_socket(fd))
            attempts.push_back(std::chrono::steady_clock::now());
        return false;
    };
    Client client(silent_port, 20);
    client.open();
    EXPECT_TRUE(eventually([&] { return attempts_so_far().size() >= 6; }));
    client.close();
    const std::vector<Time> made = attempts_so_far();
    for (std::size_t i = 0; i + 1 < made.size(); ++i)
        EXPECT_GE(made[i + 1] - made[i], std::chrono::milliseconds(20 << i)) << "after attempt " << i;
}

TEST(TCP_client_task_test, ends_an_attempt_at_its_time_limit) {
    const Full_listener listener;
    Client client("127.0.0.1", listener.port());
    client.set_connect_timeout(20);
    client.open();
    EXPECT_TRUE(process_rests());
    EXPECT_FALSE(client.is_connected());
    const TCP_socket accepted = listener.accept();
    EXPECT_TRUE(eventually([&] { return client.is_connected(); }));
    client.close();
}

TEST(TCP_client_task_test, invalid_address_is_reported_and_nothing_runs) {
    const int before = open_descriptors();
    for (const char* const address : {"", "somewhere", "127.0.0.1 ", "1.2.3.4.5"}) {
        const Captured_debug debug;
        Client client(address, 4001);
        client.open();
        client.send("not sent");
        EXPECT_THAT(debug.text_without_times(), testing::Eq("<time> TCP client: \"" + std::string(address) +
                                                            "\" and 4001 are not a valid address and port\n"));
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(TCP_client_task_test, invalid_port_is_reported_and_nothing_runs) {
    for (const int port : {-1, 0, 65536}) {
        const Captured_debug debug;
        Client client("127.0.0.1", port);
        client.open();
        EXPECT_THAT(debug.text(), HasSubstr("are not a valid address and port\n"));
    }
}

TEST(TCP_client_task_test, close_is_prompt_in_every_state) {
    TCP_port port;
    const Stopwatch stopwatch;
    {
        Client never_opened(port);
        never_opened.close();
        Client waiting(port, 30000);
        waiting.open();
    }
    port.listen();
    {
        Client connected(port);
        connected.open();
        EXPECT_TRUE(eventually([&] { return connected.is_connected(); }));
        connected.close();
        EXPECT_FALSE(connected.is_connected());
        connected.close();
    }
    EXPECT_LT(stopwatch.elapsed(), 10s);
}

TEST(TCP_client_task_test, may_be_opened_again_after_it_was_closed) {
    TCP_port port;
    port.listen();
    Client client(port);
    for (int i = 0; i < 3; ++i) {
        client.open();
        client.open(); // is open already
        const TCP_socket server = port.accept();
        client.send("x");
        EXPECT_EQ(server.receive(1), "x");
        client.close();
        EXPECT_EQ(server.receive_all(), "");
    }
}

} // namespace
