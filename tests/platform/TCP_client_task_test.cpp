#include <platform/TCP_client_task.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/descriptors.h>
#include <support/processes/processor_time.h>
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

/// Keeps what it receives and sends what it is given, a byte at a time unless told otherwise.
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
    std::atomic<unsigned> most_at_once{1};
    std::atomic<unsigned> refused{0};         ///< writes that the socket had no room for
    std::atomic<unsigned> asked_to_let_go{0}; ///< of a descriptor that was still open

  private:
    int handle_read(int fd) override {
        const std::lock_guard guard(mutex_);
        used_ = fd;
        char piece[1000];
        const ssize_t came = ::read(fd, piece, sizeof piece);
        if (came < 0 && errno == EAGAIN)
            return 0;
        if (came <= 0) {
            ++lost;
            return -1;
        }
        received_.append(piece, static_cast<std::size_t>(came));
        return static_cast<int>(came);
    }
    void handle_write(int fd) override {
        const std::lock_guard guard(mutex_);
        const ssize_t gone =
            ::send(fd, to_send_.data(), std::min<std::size_t>(to_send_.size(), most_at_once), MSG_NOSIGNAL);
        if (gone > 0)
            to_send_.erase(0, static_cast<std::size_t>(gone));
        else
            ++refused;
    }
    bool is_write_data_avail() override {
        const std::lock_guard guard(mutex_);
        if (used_ >= 0 && descriptor() < 0) { // the task is about to close it
            asked_to_let_go += is_open(used_);
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

TEST(TCP_client_task_test, sends_what_was_given_before_the_connection) {
    TCP_port port;
    port.listen();
    Client client(port);
    client.send("early ");
    client.open();
    client.send("bird");
    EXPECT_EQ(port.accept().receive(10), "early bird");
}

/// Whoever derives may take a socket without room for one that has failed.
TEST(TCP_client_task_test, sends_only_while_the_socket_has_room) {
    TCP_port port;
    port.listen();
    Client client(port);
    client.most_at_once = 256 * 1024;
    client.open();
    const TCP_socket server = port.accept();
    const std::string bytes(16U << 20, 'x');
    client.send(bytes);
    EXPECT_TRUE(server.receive(bytes.size()) == bytes);
    EXPECT_EQ(client.refused, 0U);
}

/// Where nobody listens on a local port, the system may choose that very port for this end.
TEST(TCP_client_task_test, connection_to_itself_is_none) {
    TCP_port port;
    std::atomic<int> attempts{0};
    Replaced_calls calls;
    calls.before_connect = [&](int fd) {
        if (++attempts <= 3)
            bind_to(fd, port.number());
    };
    Client client(port);
    client.send("who is there?");
    client.open();
    EXPECT_TRUE(eventually([&] { return attempts > 3; }));
    EXPECT_EQ(client.received(), "");
    port.listen();
    EXPECT_EQ(port.accept().receive(13), "who is there?");
    client.close();
}

TEST(TCP_client_task_test, socket_is_non_blocking_not_inherited_kept_alive_and_without_delay) {
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
    // A server that vanishes is noticed after a minute.
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE) + option(IPPROTO_TCP, TCP_KEEPINTVL) * option(IPPROTO_TCP, TCP_KEEPCNT),
              60);
}

TEST(TCP_client_task_test, keeps_trying_until_the_server_is_there_and_again_when_it_comes_back) {
    TCP_port port;
    Client client(port);
    client.open();
    client.send("1");
    EXPECT_LT(cpu_time_during(50ms), 50ms);
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
    EXPECT_TRUE(eventually([&] { return client.asked_to_let_go == 3; }));
}

TEST(TCP_client_task_test, server_that_closes_at_once_again_and_again_costs_nothing_but_the_waits) {
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
    EXPECT_TRUE(eventually([&] { return client.asked_to_let_go == 201; }));
}

TEST(TCP_client_task_test, socket_that_the_system_cannot_watch_is_an_attempt_that_fails) {
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

/// When each attempt to connect to a port came.
class Attempts {
  public:
    explicit Attempts(TCP_port& port) : port_(port) { port.listen(); }
    /// Accepts the next one and ends it. \return the time since the one before
    std::chrono::nanoseconds next() {
        port_.accept().close();
        const auto elapsed = since_last_.elapsed();
        since_last_ = Stopwatch();
        return elapsed;
    }

  private:
    TCP_port& port_;
    Stopwatch since_last_;
};

TEST(TCP_client_task_test, waits_the_period_after_every_connection_however_short) {
    TCP_port port;
    Attempts attempts(port);
    Client client(port, 20);
    client.open();
    attempts.next();
    const Stopwatch stopwatch;
    for (int i = 0; i < 8; ++i)
        EXPECT_GE(attempts.next(), 15ms); // 20 less what the test took to notice the one before
    EXPECT_LT(stopwatch.elapsed(), 4s);   // twice as long each time would make 5.1 s
}

TEST(TCP_client_task_test, waits_twice_as_long_after_each_attempt_that_fails) {
    using Time = std::chrono::steady_clock::time_point;
    const TCP_port nobody_there;
    std::mutex mutex;
    std::vector<Time> attempts;
    const auto attempts_so_far = [&] {
        const std::lock_guard guard(mutex);
        return attempts;
    };
    Replaced_calls calls;
    calls.epoll_add_fails = [&](int fd) { // every attempt has a socket of its own that is to be watched
        const std::lock_guard guard(mutex);
        if (is_socket(fd))
            attempts.push_back(std::chrono::steady_clock::now());
        return false;
    };
    Client client(nobody_there, 20);
    client.open();
    EXPECT_TRUE(eventually([&] { return attempts_so_far().size() >= 6; }));
    client.close();
    const std::vector<Time> made = attempts_so_far();
    for (std::size_t i = 0; i + 1 < made.size(); ++i)
        EXPECT_GE(made[i + 1] - made[i], std::chrono::milliseconds(20 << i)) << "after attempt " << i;
}

TEST(TCP_client_task_test, gives_up_an_attempt_that_takes_too_long) {
    const Full_listener listener;
    Client client("127.0.0.1", listener.port());
    client.set_connect_timeout(20);
    client.open();
    EXPECT_LT(cpu_time_during(300ms), 100ms);
    EXPECT_FALSE(client.is_connected());
    const TCP_socket makes_room = listener.accept();
    EXPECT_TRUE(eventually([&] { return client.is_connected(); }));
    client.close();
}

TEST(TCP_client_task_test, text_that_is_no_address_is_reported_and_nothing_runs) {
    const int before = open_descriptors();
    for (const char* const address : {"", "somewhere", "127.0.0.1 ", "1.2.3.4.5"}) {
        const Captured_debug debug;
        Client client(address, 4001);
        client.open();
        client.send("nobody");
        EXPECT_THAT(debug.text_without_times(), testing::Eq("<time> TCP client: \"" + std::string(address) +
                                                            "\" and 4001 are no address and port to connect to\n"));
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(TCP_client_task_test, number_that_is_no_port_is_reported_and_nothing_runs) {
    for (const int port : {-1, 0, 65536}) {
        const Captured_debug debug;
        Client client("127.0.0.1", port);
        client.open();
        EXPECT_THAT(debug.text(), HasSubstr("are no address and port to connect to\n"));
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
