// Both servers of the platform: their common part over TCP_server, then what is special to the buffered one.

#include <platform/TCP_server.h>
#include <platform/TCP_server_buffered.h>

#include <support/builders/Random.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/descriptors.h>
#include <support/streams/TCP_socket.h>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <netinet/tcp.h>
#include <set>
#include <thread>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const unsigned char* as_bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Records the calls of its hooks.
class Server : public TCP_server {
  public:
    ~Server() override { stop(); }

    void start() {
        ASSERT_TRUE(open(0));
        thread_ = std::thread([this] { run(); });
    }
    void stop() {
        quit();
        if (thread_.joinable())
            thread_.join();
    }

    bool write(const std::string& bytes, int except = -1) {
        return write_to_all_connections(as_bytes(bytes), static_cast<unsigned>(bytes.size()), except);
    }
    /// A client that the server has accepted.
    TCP_socket connect(int receive_buffer = 0) {
        const unsigned before = connection_count();
        TCP_socket client = TCP_socket::connected_to(local_port(), receive_buffer);
        EXPECT_TRUE(eventually([&] { return connection_count() == before + 1; }));
        return client;
    }

    std::string received(int connection) {
        const std::lock_guard guard(mutex_);
        return received_[connection];
    }
    std::vector<int> disconnected() {
        const std::lock_guard guard(mutex_);
        return disconnected_;
    }

    std::atomic<unsigned> accepts_at_most{1U << 30}; ///< of each offer
    std::atomic<unsigned> offers{0};

  private:
    unsigned int handle_incoming_data(int connection, unsigned char* data, unsigned int len) override {
        ++offers;
        const unsigned accepted = std::min(len, accepts_at_most.load());
        const std::lock_guard guard(mutex_);
        received_[connection].append(reinterpret_cast<char*>(data), accepted);
        return accepted;
    }
    void handle_direct_read() override { ADD_FAILURE() << "this server has no ring"; }
    void handle_disconnected(int connection) override {
        const std::lock_guard guard(mutex_);
        disconnected_.push_back(connection);
    }

    std::mutex mutex_;
    std::map<int, std::string> received_;
    std::vector<int> disconnected_;
    std::thread thread_;
};

/// Writes until the clients' queues and the system's buffers are full. \return the bytes written
std::string fill(Server& server) {
    const std::string piece(64 * 1024, 'f');
    std::string written;
    while (server.write(piece))
        written += piece;
    return written;
}

struct TCP_server_test : testing::Test {
    Server server;
};

using TCP_server_opening = TCP_server_test;
using TCP_server_clients = TCP_server_test;
using TCP_server_sending = TCP_server_test;
using TCP_server_receiving = TCP_server_test;
using TCP_server_ending = TCP_server_test;

// ---- Opening ----

TEST_F(TCP_server_opening, port_0_opens_one_that_the_system_chooses) {
    EXPECT_EQ(server.local_port(), -1);
    ASSERT_TRUE(server.open(0));
    EXPECT_GT(server.local_port(), 0);
    EXPECT_TRUE(TCP_socket::can_connect("127.0.0.1", server.local_port()));
}

TEST_F(TCP_server_opening, port_in_use_cannot_be_opened) {
    TCP_port used_port;
    used_port.listen();
    const Captured_debug debug;
    EXPECT_FALSE(server.open(used_port.number()));
    EXPECT_EQ(server.local_port(), -1);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(TCP_server_opening, port_out_of_range_cannot_be_opened) {
    for (const int port : {-1, 65536, 1 << 30}) {
        EXPECT_FALSE(server.open(port));
        TCP_server_base::set_bind_address("");
        EXPECT_FALSE(server.open(port));
        TCP_server_base::set_bind_address("127.0.0.1");
    }
}

TEST_F(TCP_server_opening, port_is_free_again_right_after_a_server_that_had_clients) {
    TCP_port port;
    for (int i = 0; i < 3; ++i) {
        Server next;
        ASSERT_TRUE(next.open(port.number()));
        std::thread thread([&next] { next.run(); });
        const TCP_socket client = next.connect();
        next.quit();
        thread.join();
    }
}

TEST_F(TCP_server_opening, port_that_the_system_cannot_watch_is_closed) {
    const int descriptors = open_descriptors();
    Replaced_calls calls;
    calls.epoll_add_fails = [](int) {
        errno = ENOSPC;
        return true;
    };
    EXPECT_FALSE(server.open(0));
    EXPECT_EQ(server.local_port(), -1);
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(TCP_server_opening, address_comes_from_the_application_then_from_the_environment) {
    TCP_server_base::set_bind_address("");
    setenv("GLUE_TCP_BIND", "127.0.0.2", 1);
    EXPECT_TRUE(server.open(0));
    EXPECT_FALSE(TCP_socket::can_connect("127.0.0.1", server.local_port()));
    EXPECT_TRUE(TCP_socket::can_connect("127.0.0.2", server.local_port()));

    TCP_server_base::set_bind_address("127.0.0.1");
    Server other;
    EXPECT_TRUE(other.open(0));
    EXPECT_TRUE(TCP_socket::can_connect("127.0.0.1", other.local_port()));
    EXPECT_FALSE(TCP_socket::can_connect("127.0.0.2", other.local_port()));
    unsetenv("GLUE_TCP_BIND");
}

TEST_F(TCP_server_opening, invalid_address_opens_nothing_and_is_reported) {
    const Captured_debug debug;
    TCP_server_base::set_bind_address("somewhere");
    EXPECT_FALSE(server.open(0));
    EXPECT_EQ(debug.text_without_times(), "<time> TCP server: \"somewhere\" is not a valid address to listen on\n");
    TCP_server_base::set_bind_address("127.0.0.1");
}

TEST_F(TCP_server_opening, without_an_address_every_address_of_both_families_is_tried) {
    std::vector<std::string> tried;
    Replaced_calls calls;
    calls.bind = [&tried](const sockaddr* address) {
        char text[INET6_ADDRSTRLEN] = "";
        if (address->sa_family == AF_INET6)
            inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof text);
        else
            inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
        tried.emplace_back(text);
        errno = EADDRNOTAVAIL; // as on a system without IPv6
        return -1;
    };
    TCP_server_base::set_bind_address("");
    EXPECT_FALSE(server.open(4001));
    TCP_server_base::set_bind_address("127.0.0.1");
    EXPECT_THAT(tried, ElementsAre("::", "0.0.0.0"));
}

// ---- Clients connect and disconnect ----

TEST_F(TCP_server_clients, have_non_blocking_close_on_exec_sockets_with_keep_alive_and_no_delay) {
    server.start();
    const TCP_socket client = server.connect();
    const std::vector<int> sockets = sockets_at(server.local_port());
    ASSERT_EQ(sockets.size(), 2U); // the listening one and the client's
    for (const int fd : sockets) {
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_TRUE(fcntl(fd, F_GETFL) & O_NONBLOCK);
    }
    const auto option = [fd = sockets.back()](int level, int name) {
        int value = 0;
        socklen_t size = sizeof value;
        getsockopt(fd, level, name, &value, &size);
        return value;
    };
    EXPECT_NE(option(IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_NE(option(SOL_SOCKET, SO_KEEPALIVE), 0);
    // A dead client is noticed after a minute.
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE) + option(IPPROTO_TCP, TCP_KEEPINTVL) * option(IPPROTO_TCP, TCP_KEEPCNT),
              60);
}

TEST_F(TCP_server_clients, that_disconnect_are_reported_to_the_hook_and_forgotten) {
    server.start();
    TCP_socket closing = server.connect();
    TCP_socket resetting = server.connect();
    const TCP_socket half_closing = server.connect();
    const TCP_socket staying = server.connect();
    closing.close();
    EXPECT_TRUE(eventually([this] { return server.disconnected() == std::vector<int>{0}; }));
    resetting.reset();
    EXPECT_TRUE(eventually([this] { return server.disconnected() == std::vector<int>{0, 1}; }));
    half_closing.end_sending();
    EXPECT_TRUE(eventually([this] { return server.disconnected() == std::vector<int>{0, 1, 2}; }));
    EXPECT_EQ(server.connection_count(), 1U);
    EXPECT_TRUE(server.write("on"));
    EXPECT_EQ(staying.receive(2), "on");
}

TEST_F(TCP_server_clients, after_the_64th_are_refused_until_one_disconnects) {
    const Captured_debug debug;
    server.start();
    std::vector<TCP_socket> clients;
    for (unsigned i = 0; i < TCP_server_base::most_clients; ++i)
        clients.push_back(server.connect());
    const TCP_socket refused = TCP_socket::connected_to(server.local_port());
    EXPECT_EQ(refused.receive_all(), "");
    EXPECT_THAT(debug.text(), HasSubstr("has 64 clients, another one is refused\n"));
    EXPECT_TRUE(server.disconnected().empty());

    clients.front().close();
    EXPECT_TRUE(eventually([this] { return server.connection_count() == 63; }));
    const TCP_socket late = server.connect();
    EXPECT_TRUE(server.write("welcome"));
    EXPECT_EQ(late.receive(7), "welcome");
    EXPECT_EQ(clients.back().receive(7), "welcome");
}

TEST_F(TCP_server_clients, wait_while_the_process_has_no_descriptors_left) {
    std::atomic<int> refusals{0};
    std::atomic<bool> refusing{true};
    Replaced_calls calls;
    calls.accept4_fails = [&] {
        errno = EMFILE;
        refusals += refusing;
        return refusing.load();
    };
    server.start();
    const TCP_socket client = TCP_socket::connected_to(server.local_port());
    EXPECT_TRUE(eventually([&] { return refusals > 0; }));
    EXPECT_TRUE(process_rests());
    EXPECT_LT(refusals, 50);
    refusing = false;
    EXPECT_TRUE(eventually([this] { return server.connection_count() == 1; }));
    server.stop();
}

TEST_F(TCP_server_clients, that_the_system_cannot_watch_are_refused) {
    const Captured_debug debug;
    std::atomic<bool> failing{false};
    Replaced_calls calls;
    calls.epoll_add_fails = [&](int) {
        errno = ENOSPC;
        return failing.load();
    };
    server.start();
    const TCP_socket before = server.connect();
    const int descriptors = open_descriptors();
    failing = true;
    {
        const TCP_socket refused = TCP_socket::connected_to(server.local_port());
        EXPECT_EQ(refused.receive_all(), "");
    }
    failing = false;
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_THAT(debug.text(), HasSubstr("a client is refused: "));
    const TCP_socket after = server.connect();
    EXPECT_TRUE(server.write("on"));
    EXPECT_EQ(before.receive(2), "on");
    EXPECT_EQ(after.receive(2), "on");
    server.stop();
}

TEST_F(TCP_server_clients, that_come_and_go_leave_no_descriptors) {
    server.start();
    const int before = open_descriptors();
    for (int i = 0; i < 200; ++i) {
        TCP_socket client = TCP_socket::connected_to(server.local_port());
        if (i % 2)
            client.reset();
    }
    EXPECT_TRUE(eventually([&] { return server.connection_count() == 0 && open_descriptors() == before; }));
}

TEST_F(TCP_server_clients, are_logged_under_the_given_name) {
    const Captured_debug debug;
    Debug::Print::enable(136, true);
    server.start();
    TCP_socket unseen = server.connect();
    server.set_port_logging(true, "the port");
    TCP_socket client = server.connect();
    const std::string from = std::to_string(client.port());
    client.close();
    EXPECT_TRUE(eventually([this] { return server.disconnected().size() == 1; }));
    server.set_port_logging(false, "the port");
    unseen.close();
    EXPECT_TRUE(eventually([this] { return server.disconnected().size() == 2; }));
    Debug::Print::enable(136, false);
    EXPECT_EQ(debug.text_without_times(), "<time> the port: client 1 connected from 127.0.0.1:" + from +
                                              "\n<time> the port: client 1 disconnected\n");
}

// ---- Sending ----

TEST_F(TCP_server_sending, without_clients_succeeds_and_reaches_none_later) {
    EXPECT_TRUE(server.write("before it is open"));
    server.start();
    EXPECT_TRUE(server.write(std::string(1000000, 'x')));
    const TCP_socket client = server.connect();
    EXPECT_TRUE(server.write("first"));
    EXPECT_EQ(client.receive(5), "first");
}

TEST_F(TCP_server_sending, reaches_every_client_except_the_given_one) {
    server.start();
    const TCP_socket a = server.connect();
    const TCP_socket b = server.connect();
    EXPECT_TRUE(server.write("not for 0 ", 0));
    EXPECT_TRUE(server.write("not for 1 ", 1));
    EXPECT_TRUE(server.write("for all"));
    EXPECT_EQ(a.receive(17), "not for 1 for all");
    EXPECT_EQ(b.receive(17), "not for 0 for all");
}

TEST_F(TCP_server_sending, to_the_only_client_which_does_not_read_is_refused_whole_and_loses_nothing) {
    const Captured_debug debug;
    server.start();
    const TCP_socket client = server.connect(4096);
    std::string written = fill(server);
    EXPECT_GE(written.size(), TCP_server_base::queue_capacity);
    EXPECT_FALSE(server.write(std::string(64 * 1024, 'r')));
    EXPECT_EQ(server.connection_count(), 1U);

    std::thread reader([&] { EXPECT_EQ(client.receive(written.size() + 4), written + "last"); });
    EXPECT_TRUE(eventually([this] { return server.write("last"); }));
    reader.join();
    EXPECT_EQ(debug.text(), "");
}

TEST_F(TCP_server_sending, more_than_a_queue_can_hold_is_refused) {
    server.start();
    const TCP_socket a = server.connect();
    const TCP_socket b = server.connect();
    EXPECT_FALSE(server.write(std::string(TCP_server_base::queue_capacity + 1, 'x')));
    EXPECT_TRUE(server.write("still here"));
    EXPECT_EQ(a.receive(10), "still here");
    EXPECT_EQ(b.receive(10), "still here");
}

TEST_F(TCP_server_sending, disconnects_a_slow_client_when_others_keep_up) {
    const Captured_debug debug;
    server.start();
    const TCP_socket stalled = server.connect(4096);
    const TCP_socket reading = server.connect();
    const std::string piece(16 * 1024, 'p');
    std::size_t written = 0;
    while (server.disconnected().empty()) {
        ASSERT_TRUE(server.write(piece));
        written += piece.size();
        ASSERT_EQ(reading.receive(piece.size()), piece);
        ASSERT_LT(written, 100U << 20);
    }
    EXPECT_EQ(server.disconnected(), std::vector<int>{0});
    EXPECT_GE(written, TCP_server_base::queue_capacity);
    EXPECT_THAT(debug.text(), HasSubstr("client 0 does not keep up, it is disconnected\n"));
    EXPECT_TRUE(server.write("on"));
    EXPECT_EQ(reading.receive(2), "on");
    const std::string received = stalled.receive_all();
    EXPECT_LT(received.size(), written);
    EXPECT_EQ(received, std::string(received.size(), 'p'));
}

TEST_F(TCP_server_sending, is_refused_and_disconnects_no_client_when_every_queue_is_full) {
    server.start();
    const TCP_socket a = server.connect(4096);
    const TCP_socket b = server.connect(4096);
    // Writes of a whole queue: it is full for both clients or for neither.
    while (server.write(std::string(TCP_server_base::queue_capacity, 'x')) && server.connection_count() == 2) {
    }
    EXPECT_EQ(server.connection_count(), 2U);
    EXPECT_FALSE(server.write(std::string(TCP_server_base::queue_capacity, 'x')));
}

TEST_F(TCP_server_sending, to_a_client_that_has_reset_does_not_disturb_the_others) {
    server.start();
    TCP_socket resetting = server.connect();
    const TCP_socket staying = server.connect();
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        if (i == 50)
            resetting.reset();
        expected += std::to_string(i) + " ";
        EXPECT_TRUE(server.write(std::to_string(i) + " "));
    }
    EXPECT_EQ(staying.receive(expected.size()), expected);
    EXPECT_TRUE(eventually([this] { return server.disconnected() == std::vector<int>{0}; }));
}

TEST_F(TCP_server_sending, from_several_threads_never_mixes_their_writes) {
    constexpr std::size_t size = 3001;
    constexpr int writes = 1500; // more than the buffers of the system hold
    server.start();
    const TCP_socket client = server.connect(4096); // small, so that writes end in the middle
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b', 'c'})
        writers.emplace_back([this, letter] {
            for (int i = 0; i < writes; ++i)
                while (!server.write(std::string(size, letter)))
                    std::this_thread::yield();
        });
    std::map<char, int> counts;
    for (int i = 0; i < 3 * writes; ++i) {
        const std::string piece = client.receive(size);
        EXPECT_TRUE(piece == std::string(size, piece[0])) << "piece " << i;
        ++counts[piece[0]];
    }
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(counts, (std::map<char, int>{{'a', writes}, {'b', writes}, {'c', writes}}));
}

// ---- Receiving ----

TEST_F(TCP_server_receiving, keeps_the_order_of_each_client) {
    server.start();
    Random random;
    const std::string from_a = random.bytes(50000);
    const std::string from_b = random.bytes(50000);
    const TCP_socket a = server.connect();
    const TCP_socket b = server.connect();
    std::thread other([&] { b.send(from_b); });
    a.send(from_a);
    other.join();
    EXPECT_TRUE(eventually([&] { return server.received(0) == from_a && server.received(1) == from_b; }));
}

TEST_F(TCP_server_receiving, offers_again_what_was_not_accepted) {
    server.accepts_at_most = 7;
    server.start();
    Random random;
    const std::string bytes = random.bytes(500);
    const TCP_socket client = server.connect();
    client.send(bytes);
    EXPECT_TRUE(eventually([&] { return server.received(0) == bytes; }));
}

TEST_F(TCP_server_receiving, delivers_the_last_bytes_of_a_client_that_has_disconnected) {
    server.accepts_at_most = 0;
    server.start();
    TCP_socket client = server.connect();
    const std::string bytes(20000, 'z');
    client.send(bytes);
    client.close();
    EXPECT_TRUE(eventually([this] { return server.offers > 2; }));
    EXPECT_TRUE(server.disconnected().empty());
    server.accepts_at_most = 1 << 20;
    EXPECT_TRUE(eventually([this] { return server.disconnected() == std::vector<int>{0}; }));
    EXPECT_EQ(server.received(0), bytes);
}

TEST_F(TCP_server_receiving, does_not_spin_when_idle_or_when_bytes_are_not_accepted) {
    server.start();
    const TCP_socket client = server.connect();
    EXPECT_TRUE(process_rests());
    server.accepts_at_most = 0;
    client.send("not accepted");
    EXPECT_TRUE(eventually([this] { return server.offers > 2; }));
    EXPECT_TRUE(process_rests());
}

TEST_F(TCP_server_receiving, pending_bytes_of_one_client_do_not_delay_the_others) {
    server.accepts_at_most = 0;
    server.start();
    const TCP_socket stuck = server.connect();
    const TCP_socket other = server.connect();
    stuck.send("not accepted");
    EXPECT_TRUE(eventually([this] { return server.offers > 2; }));
    EXPECT_TRUE(server.write("news"));
    EXPECT_EQ(other.receive(4), "news");
    const TCP_socket late = server.connect();
    EXPECT_EQ(server.connection_count(), 3U);
}

// ---- Ending ----

TEST_F(TCP_server_ending, is_finished_before_it_runs_and_after) {
    EXPECT_TRUE(server.is_finished());
    server.start();
    EXPECT_TRUE(eventually([this] { return !server.is_finished(); }));
    server.quit();
    EXPECT_TRUE(eventually([this] { return server.is_finished(); }));
}

TEST_F(TCP_server_ending, quit_before_run_makes_run_return_at_once) {
    ASSERT_TRUE(server.open(0));
    server.quit();
    server.run();
    EXPECT_TRUE(server.is_finished());
}

TEST_F(TCP_server_ending, ends_the_connections_without_a_call_of_the_hook) {
    server.start();
    const TCP_socket client = server.connect();
    server.stop();
    EXPECT_EQ(client.receive_all(), "");
    EXPECT_TRUE(server.disconnected().empty());
    EXPECT_EQ(server.connection_count(), 0U);
    EXPECT_FALSE(TCP_socket::can_connect("127.0.0.1", server.local_port()));
    EXPECT_TRUE(server.write("none"));
}

TEST_F(TCP_server_ending, many_servers_leave_no_descriptors) {
    const int before = open_descriptors();
    for (int i = 0; i < 100; ++i) {
        Server short_lived;
        short_lived.start();
        if (i % 3 == 0)
            TCP_socket::connected_to(short_lived.local_port());
    }
    EXPECT_EQ(open_descriptors(), before);
}

// ---- The buffered server ----

/// Receives into a ring of ten bytes.
class Buffered : public TCP_server_buffered {
  public:
    Buffered() : TCP_server_buffered(0) { register_direct_read_buffer(&ring, &lock); }
    ~Buffered() override { stop(); }

    void start() {
        thread_ = std::thread([this] { run_blocking(); });
        EXPECT_TRUE(eventually([this] { return local_port() > 0; }));
    }
    void stop() {
        wait_quit();
        if (thread_.joinable())
            thread_.join();
    }
    std::string read() {
        const std::lock_guard guard(lock);
        std::string bytes(ring.size(), '\0');
        ring.peek(reinterpret_cast<unsigned char*>(bytes.data()), ring.size(), 0);
        ring.clear();
        return bytes;
    }

    unsigned char storage[10];
    Cbuf_templ<unsigned char> ring{storage, sizeof storage};
    Mutex lock;
    std::atomic<unsigned> direct_reads{0};
    std::atomic<unsigned> reminders{0};

  private:
    unsigned int handle_incoming_data(int, unsigned char*, unsigned int len) override {
        EXPECT_EQ(len, 0U);
        ++reminders;
        return 0;
    }
    void handle_direct_read() override {
        EXPECT_EQ(lock.owner_kernel_id(), MutexImp::kernel_thread_id());
        ++direct_reads;
    }

    std::thread thread_;
};

TEST(TCP_server_buffered_test, appends_as_many_bytes_as_fit_and_repeats_its_event_while_the_ring_is_full) {
    Buffered server;
    server.start();
    const TCP_socket client = TCP_socket::connected_to(server.local_port());
    client.send("0123456789abcdefghij-");
    EXPECT_TRUE(eventually([&] { return server.reminders > 2; }));
    EXPECT_TRUE(process_rests());
    std::string received;
    EXPECT_TRUE(eventually([&] {
        received += server.read();
        return received.size() == 21;
    }));
    EXPECT_EQ(received, "0123456789abcdefghij-");
    EXPECT_GE(server.direct_reads, 3U);
}

TEST(TCP_server_buffered_test, serves_every_client_while_free_space_is_scarce) {
    Buffered server;
    server.start();
    std::vector<TCP_socket> clients;
    for (const char letter : {'a', 'b', 'c'}) {
        clients.push_back(TCP_socket::connected_to(server.local_port()));
        clients.back().send(std::string(1000, letter));
    }
    std::set<char> seen;
    EXPECT_TRUE(eventually([&] {
        const std::string bytes = server.read();
        seen.insert(bytes.begin(), bytes.end());
        return seen.size() == 3;
    }));
}

TEST(TCP_server_buffered_test, wait_quit_before_the_thread_begins_prevents_serving) {
    Buffered server;
    server.wait_quit();
    server.run_blocking();
    EXPECT_EQ(server.connection_count(), 0U);
}

TEST(TCP_server_buffered_test, logs_both_directions_itself) {
    const Captured_debug debug;
    Debug::Print::enable(136, true);
    Buffered server;
    server.set_port_logging(true, "the port");
    server.start();
    const TCP_socket client = TCP_socket::connected_to(server.local_port());
    client.send("in\r");
    EXPECT_TRUE(eventually([&] { return server.direct_reads == 1; }));
    const std::string answer(5000, 'o');
    EXPECT_TRUE(server.write_to_all_connections(as_bytes(answer), 5000));
    Debug::Print::enable(136, false);
    EXPECT_THAT(debug.text_without_times(),
                HasSubstr("<time> the port[RD 0](3): in\\r\n<time> the port[WR](5000): " + answer + "\n"));
}

} // namespace
