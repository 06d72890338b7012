#include <glue/data_stream/TCP_client_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>
#include <glue/data_stream/port_logging.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/Vtable_slot.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/streams/Open_pair.h>
#include <support/streams/TCP_streams.h>
#include <support/streams/With_ring_lock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

constexpr unsigned capacity = Data_stream::rx_capacity;
constexpr unsigned queue_capacity = TCP_client_data_stream::queue_capacity;
constexpr unsigned eight_mib = 8U << 20;

/// Two connected sockets: one for the stream, one for the test.
class Socket_pair {
  public:
    explicit Socket_pair(int type = SOCK_STREAM) {
        if (socketpair(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_) != 0)
            ADD_FAILURE() << "cannot make a pair of sockets";
    }
    ~Socket_pair() {
        close(ends_[0]);
        if (ends_[1] >= 0)
            close(ends_[1]);
    }
    Socket_pair(const Socket_pair&) = delete;
    Socket_pair& operator=(const Socket_pair&) = delete;

    int stream_end() const { return ends_[0]; }
    int test_end() const { return ends_[1]; }
    void close_test_end() { close(std::exchange(ends_[1], -1)); }

  private:
    int ends_[2];
};

std::string all_of(int fd) {
    return read_exactly(fd, static_cast<std::size_t>(bytes_ready(fd)));
}

/// A stream with an invalid address: no task runs, and the test calls the hooks.
struct TCP_client_hooks : testing::Test {
    ~TCP_client_hooks() override { Debug::Print::enable(port_logging_category, false); }

    void fill_ring() {
        Socket_pair source;
        write_all(source.test_end(), std::string(capacity, 'x'));
        EXPECT_EQ(stream.handle_read(source.stream_end()), static_cast<int>(capacity));
    }

    const Signal_disposition no_pipe_signal{SIGPIPE, SIG_IGN}; // as in programs that write to connections
    Captured_debug debug;                                      // the task reports the invalid address
    module_man modules;
    TCP_client_data_stream stream{modules, "nowhere", 1, -1, -1};
    Recording_waiter waiter{modules};
    Socket_pair sockets;
};

TEST_F(TCP_client_hooks, have_their_slots_after_those_of_the_event_sender) {
    using Class = TCP_client_data_stream;
    EXPECT_EQ(vtable_slot(&Class::lock), 3U);
    EXPECT_EQ(vtable_slot(&Class::unlock), 4U);
    const std::size_t first = vtable_slot(&Event_sender_data_stream::traces_itself) + 1;
    EXPECT_EQ((vtable_slot<int (Class::*)(int)>(&Class::get_data)), first);
    EXPECT_EQ(vtable_slot(&Class::_write), first + 1);
    EXPECT_EQ(vtable_slot(&Class::handle_read), first + 2);
    EXPECT_EQ(vtable_slot(&Class::handle_write), first + 3);
    EXPECT_EQ(vtable_slot(&Class::is_write_data_avail), first + 4);
    EXPECT_EQ(vtable_slot(&Class::set_port_logging), first + 5);
}

TEST_F(TCP_client_hooks, share_the_lock_of_the_receive_ring) {
    With_ring_lock<TCP_client_data_stream> locked(modules, "nowhere", 1, -1, -1);
    locked.lock();
    EXPECT_TRUE(locked.ring_is_locked());
    locked.unlock();
    EXPECT_FALSE(locked.ring_is_locked());
}

TEST_F(TCP_client_hooks, fetch_satisfies_only_a_request_for_nothing) {
    EXPECT_EQ(stream.get_data(0), 1);
    EXPECT_EQ(stream.get_data(3), 0);
    EXPECT_EQ(stream.get_data(-1), 0);
}

// ---- Writing without a connection ----

TEST_F(TCP_client_hooks, write_without_connection_is_queued_whole_or_not_at_all) {
    EXPECT_FALSE(stream.is_write_data_avail());
    EXPECT_EQ(write_bytes(stream, std::string(5000, 'x')), 0);
    EXPECT_FALSE(stream.is_write_data_avail());
    EXPECT_EQ(write_bytes(stream, std::string(queue_capacity, 'x')), static_cast<int>(queue_capacity));
    EXPECT_TRUE(stream.is_write_data_avail());
    EXPECT_EQ(write_bytes(stream, "x"), 0);
}

TEST_F(TCP_client_hooks, queued_bytes_are_sent_in_order_in_pieces_of_256_at_most) {
    const std::string bytes = numbered(600);
    EXPECT_EQ(write_bytes(stream, bytes.substr(0, 500)), 500);
    EXPECT_EQ(write_bytes(stream, bytes.substr(500)), 100);
    std::string sent;
    for (const std::size_t expected : {256U, 512U, 600U}) {
        EXPECT_TRUE(stream.is_write_data_avail());
        stream.handle_write(sockets.stream_end());
        sent += all_of(sockets.test_end());
        EXPECT_EQ(sent.size(), expected);
    }
    EXPECT_EQ(sent, bytes);
    EXPECT_FALSE(stream.is_write_data_avail());
    stream.handle_write(sockets.stream_end()); // nothing is queued: nothing happens
    EXPECT_EQ(bytes_ready(sockets.test_end()), 0);
}

TEST_F(TCP_client_hooks, queue_is_a_ring_and_pieces_may_cross_its_end) {
    Random random;
    std::string expected;
    std::string sent;
    for (int i = 0; i < 200; ++i) {
        const std::string bytes = random.bytes(random.between(1, 400));
        const int accepted = write_bytes(stream, bytes);
        ASSERT_TRUE(accepted == 0 || accepted == static_cast<int>(bytes.size()));
        ASSERT_EQ(accepted == 0, expected.size() - sent.size() + bytes.size() > queue_capacity);
        expected += bytes.substr(0, static_cast<std::size_t>(accepted));
        if (random.one_in(3))
            stream.handle_write(sockets.stream_end());
        sent += all_of(sockets.test_end());
    }
    while (stream.is_write_data_avail()) {
        stream.handle_write(sockets.stream_end());
        sent += all_of(sockets.test_end());
    }
    EXPECT_EQ(sent, expected);
}

TEST_F(TCP_client_hooks, full_queue_has_free_space_again_after_a_piece_was_sent) {
    EXPECT_EQ(write_bytes(stream, std::string(queue_capacity, 'x')), static_cast<int>(queue_capacity));
    stream.handle_write(sockets.stream_end());
    EXPECT_EQ(write_bytes(stream, std::string(257, 'y')), 0);
    EXPECT_EQ(write_bytes(stream, std::string(256, 'y')), 256);
    EXPECT_EQ(write_bytes(stream, "z"), 0);
}

TEST_F(TCP_client_hooks, failed_sending_drops_the_whole_queue) {
    for (const unsigned queued : {10U, 1000U, queue_capacity}) {
        EXPECT_EQ(write_bytes(stream, std::string(queued, 'x')), static_cast<int>(queued));
        stream.handle_write(-1);
        EXPECT_FALSE(stream.is_write_data_avail());
    }
    EXPECT_EQ(write_bytes(stream, "new"), 3);
    stream.handle_write(sockets.stream_end());
    EXPECT_EQ(all_of(sockets.test_end()), "new");
    sockets.close_test_end();
    write_bytes(stream, "to a closed peer");
    stream.handle_write(sockets.stream_end());
    EXPECT_FALSE(stream.is_write_data_avail());
}

/// On purpose: a full socket counts as a failed one, too.
TEST_F(TCP_client_hooks, sending_to_a_full_socket_drops_the_whole_queue) {
    const std::string piece(4096, 'f');
    while (write(sockets.stream_end(), piece.data(), piece.size()) > 0) {
    }
    EXPECT_EQ(write_bytes(stream, "queued"), 6);
    stream.handle_write(sockets.stream_end());
    EXPECT_FALSE(stream.is_write_data_avail());
}

TEST_F(TCP_client_hooks, sending_that_returns_0_changes_nothing) {
    EXPECT_EQ(write_bytes(stream, "queued"), 6);
    {
        Replaced_calls calls;
        calls.write = [](int) { return 0; };
        stream.handle_write(sockets.stream_end());
    }
    stream.handle_write(sockets.stream_end());
    EXPECT_EQ(all_of(sockets.test_end()), "queued");
}

TEST_F(TCP_client_hooks, short_sending_keeps_the_rest) {
    EXPECT_EQ(write_bytes(stream, "queued"), 6);
    {
        Replaced_calls calls;
        calls.write = [](int) { return 2; };
        stream.handle_write(sockets.stream_end());
    }
    stream.handle_write(sockets.stream_end());
    EXPECT_EQ(all_of(sockets.test_end()), "eued");
}

// ---- Reading ----

TEST_F(TCP_client_hooks, announcements_are_made_under_the_lock) {
    With_ring_lock<TCP_client_data_stream> locked(modules, "nowhere", 1, -1, -1);
    int announcements = 0;
    locked.set_rx_callback([&] {
        ++announcements;
        EXPECT_TRUE(locked.ring_is_locked());
    });
    write_all(sockets.test_end(), std::string(capacity, 'x'));
    EXPECT_EQ(locked.handle_read(sockets.stream_end()), static_cast<int>(capacity));
    const Replaced_delays delays;
    locked.handle_read(sockets.stream_end()); // finds it full
    EXPECT_EQ(announcements, 2);
}

TEST_F(TCP_client_hooks, read_bytes_are_announced) {
    stream.reg_rx_waiter(waiter, false);
    write_all(sockets.test_end(), "hello");
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 5);
    EXPECT_EQ(waiter.codes(), std::vector<int>{0});
    EXPECT_EQ(take_buffered(stream), "hello");
}

TEST_F(TCP_client_hooks, one_read_ends_at_the_end_of_the_storage_and_the_next_continues_at_its_start) {
    const std::string bytes = numbered(capacity);
    write_all(sockets.test_end(), bytes.substr(0, capacity - 10));
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), static_cast<int>(capacity - 10));
    stream.drop(100);
    write_all(sockets.test_end(), std::string(200, 'y'));
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 10);
    stream.reg_rx_waiter(waiter, false);
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 100); // up to the oldest unread byte
    EXPECT_EQ(waiter.codes(), std::vector<int>{1});
    EXPECT_EQ(take_buffered(stream), bytes.substr(100, capacity - 110) + std::string(110, 'y'));
}

TEST_F(TCP_client_hooks, read_that_fills_the_ring_is_announced_with_code_1) {
    stream.reg_rx_waiter(waiter, false);
    fill_ring();
    EXPECT_EQ(waiter.codes(), std::vector<int>{1});
    EXPECT_EQ(stream.bytes_avail(), capacity);
}

TEST_F(TCP_client_hooks, full_ring_is_announced_and_not_read_into_and_the_delays_double_up_to_64) {
    fill_ring();
    write_all(sockets.test_end(), "waiting");
    stream.reg_rx_waiter(waiter, true);
    bool free_while_sleeping = true;
    const Replaced_delays delays(
        [&](std::size_t) { free_while_sleeping = free_while_sleeping && stream.bytes_avail() == capacity; });
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(stream.handle_read(sockets.stream_end()), 0);
    EXPECT_EQ(delays.units(), (std::vector<int>{1, 2, 4, 8, 16, 32, 64, 64}));
    EXPECT_EQ(waiter.codes(), std::vector<int>(8, 1));
    EXPECT_TRUE(free_while_sleeping);
    EXPECT_EQ(bytes_ready(sockets.test_end()), 0);
    EXPECT_EQ(bytes_ready(sockets.stream_end()), 7);
}

TEST_F(TCP_client_hooks, delays_begin_at_1_again_after_an_attempt_that_finds_free_space) {
    fill_ring();
    const Replaced_delays delays;
    for (int i = 0; i < 3; ++i)
        stream.handle_read(sockets.stream_end());
    stream.drop(1);
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 0); // finds free space and nothing to read
    write_all(sockets.test_end(), "ab");
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 1);
    stream.handle_read(sockets.stream_end());
    stream.handle_read(sockets.stream_end());
    EXPECT_EQ(delays.units(), (std::vector<int>{1, 2, 4, 1, 2}));
}

TEST_F(TCP_client_hooks, nothing_to_read_is_no_error) {
    const Captured_descriptor errors(2);
    stream.reg_rx_waiter(waiter, false);
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 0);
    {
        Replaced_calls calls;
        calls.read = [fd = sockets.stream_end()](int called_fd) -> std::optional<ssize_t> {
            if (called_fd != fd)
                return {};
            errno = EINTR;
            return -1;
        };
        EXPECT_EQ(stream.handle_read(sockets.stream_end()), 0);
    }
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(waiter.codes(), (std::vector<int>{0, 0}));
}

TEST_F(TCP_client_hooks, end_of_the_connection_is_reported_and_announced_and_leaves_unread_bytes) {
    write_all(sockets.test_end(), "last bytes");
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), 10);
    sockets.close_test_end();
    stream.reg_rx_waiter(waiter, false);
    const Captured_descriptor errors(2);
    errno = EPERM; // from another call
    EXPECT_EQ(stream.handle_read(sockets.stream_end()), -1);
    EXPECT_EQ(errors.text(), "TCP_client_data_stream: handle_read: Success\n");
    EXPECT_EQ(waiter.codes(), std::vector<int>{0});
    EXPECT_EQ(take_buffered(stream), "last bytes");
}

TEST_F(TCP_client_hooks, failed_read_is_reported_and_announced) {
    stream.reg_rx_waiter(waiter, false);
    const Captured_descriptor errors(2);
    EXPECT_EQ(stream.handle_read(-1), -1);
    EXPECT_EQ(errors.text(), "TCP_client_data_stream: handle_read: Bad file descriptor\n");
    EXPECT_EQ(waiter.codes(), std::vector<int>{0});
}

TEST_F(TCP_client_hooks, suppressing_errors_has_no_effect) {
    stream.suppress_errors(true);
    const Captured_descriptor errors(2);
    EXPECT_EQ(stream.handle_read(-1), -1);
    EXPECT_EQ(errors.text(), "TCP_client_data_stream: handle_read: Bad file descriptor\n");
}

TEST_F(TCP_client_hooks, log_only_the_selected_directions_and_count_only_logged_bytes) {
    Debug::Print::enable(port_logging_category, true);
    const Captured_debug log;
    stream.set_description("port");
    const auto pass_bytes = [this] {
        write_all(sockets.test_end(), "in\r");
        stream.handle_read(sockets.stream_end());
        write_bytes(stream, "out");
        stream.handle_write(sockets.stream_end());
    };
    pass_bytes();
    EXPECT_EQ(stream.set_port_logging(Data_stream::log_reads), 0);
    pass_bytes();
    stream.set_port_logging(Data_stream::log_writes);
    pass_bytes();
    stream.set_port_logging(Data_stream::log_all);
    pass_bytes();
    stream.set_port_logging(Data_stream::log_none);
    pass_bytes();
    EXPECT_EQ(log.text_without_times(), "<time> port[RD](3/3): in\\r\n"
                                        "<time> port[WR](3/3): out\n"
                                        "<time> port[RD](3/6): in\\r\n"
                                        "<time> port[WR](3/6): out\n");
}

// ---- Connected ----

struct TCP_client_data_stream_test : testing::Test {
    TCP_client_data_stream_test() { port.listen(); }
    ~TCP_client_data_stream_test() override { Debug::Print::enable(port_logging_category, false); }

    std::unique_ptr<TCP_client_data_stream> make_stream() {
        return std::make_unique<TCP_client_data_stream>(modules, "127.0.0.1", port.number(), 1, -1);
    }

    const Signal_disposition no_pipe_signal{SIGPIPE, SIG_IGN};
    module_man modules;
    TCP_port port;
    Captured_descriptor errors{2}; // the stream reports the end of a connection there
};

TEST_F(TCP_client_data_stream_test, exchanges_bytes_with_its_server) {
    const auto stream = make_stream();
    Recording_waiter waiter(modules);
    stream->reg_rx_waiter(waiter, false);
    const TCP_socket server = port.accept();
    server.send("question");
    EXPECT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(take(*stream, 8), "question");
    EXPECT_TRUE(stream->printf("%s", "answer"));
    EXPECT_EQ(server.receive(6), "answer");
    stream->dereg_rx_waiter();
}

TEST_F(TCP_client_data_stream_test, bytes_sent_at_once_and_queued_bytes_are_logged_differently) {
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    port.stop_listening();
    const auto stream = make_stream();
    stream->set_description("port");
    stream->set_port_logging(Data_stream::log_writes);
    EXPECT_EQ(write_bytes(*stream, "early"), 5);
    port.listen();
    const TCP_socket server = port.accept();
    EXPECT_EQ(server.receive(5), "early");
    EXPECT_TRUE(eventually([&] { return !stream->is_write_data_avail(); }));
    EXPECT_EQ(write_bytes(*stream, "at once"), 7);
    EXPECT_EQ(server.receive(7), "at once");
    EXPECT_EQ(debug.text_without_times(), "<time> port[WR](5/5): early\n<time> port[WRF](7/12): at once\n");
}

TEST_F(TCP_client_data_stream_test, bytes_never_overtake_queued_ones) {
    std::atomic<bool> blocked{false};
    std::atomic<int> own_attempts{0};
    Replaced_calls calls;
    calls.write = [&, own = std::this_thread::get_id()](int fd) -> std::optional<ssize_t> {
        if (!blocked || !is_socket(fd))
            return {};
        own_attempts += std::this_thread::get_id() == own;
        return 0;
    };
    auto stream = make_stream();
    const TCP_socket server = port.accept();
    EXPECT_EQ(write_bytes(*stream, "connected "), 10);
    EXPECT_EQ(server.receive(10), "connected ");
    EXPECT_TRUE(eventually([&] { return !stream->is_write_data_avail(); }));
    blocked = true;
    EXPECT_EQ(write_bytes(*stream, "first "), 6);
    EXPECT_EQ(own_attempts, 1);
    EXPECT_EQ(write_bytes(*stream, "second"), 6);
    EXPECT_EQ(own_attempts, 1) << "it must not try to send while bytes are queued";
    blocked = false;
    EXPECT_EQ(server.receive(12), "first second");
    stream.reset(); // before the replaced call, which its thread uses
}

TEST_F(TCP_client_data_stream_test, write_that_exceeds_socket_and_queue_is_short_and_nothing_is_lost) {
    const auto stream = make_stream();
    const TCP_socket server = port.accept();
    EXPECT_TRUE(eventually([&] { return write_bytes(*stream, "") == 0 && !stream->is_write_data_avail(); }));
    const std::string large(16U << 20, 'x');
    std::size_t written = 0;
    for (int accepted = 1; accepted > 0; written += static_cast<std::size_t>(accepted))
        accepted = write_bytes(*stream, large);
    EXPECT_LT(written, large.size());
    std::thread reads([&] { EXPECT_EQ(server.receive(written + 4), std::string(written, 'x') + "last"); });
    EXPECT_TRUE(eventually([&] { return write_bytes(*stream, "last") == 4; }));
    reads.join();
}

TEST_F(TCP_client_data_stream_test, megabytes_pass_unchanged_in_both_directions_at_once) {
    Random random;
    const std::string in = repeated(random.bytes(65537), eight_mib);
    const std::string out = repeated(random.bytes(65521), eight_mib);
    const auto stream = make_stream();
    const TCP_socket server = port.accept();
    std::thread sends([&] { server.send(in); });
    std::thread receives([&] { EXPECT_TRUE(server.receive(out.size()) == out); });
    std::thread writes([&] {
        for (std::size_t at = 0; at < out.size();) {
            int written = 0;
            const std::string piece = out.substr(at, 4000);
            ASSERT_TRUE(eventually([&] { return (written = write_bytes(*stream, piece)) > 0; }));
            at += static_cast<std::size_t>(written);
        }
    });
    EXPECT_TRUE(take(*stream, in.size()) == in);
    for (std::thread* thread : {&sends, &receives, &writes})
        thread->join();
}

TEST_F(TCP_client_data_stream_test, writes_of_several_threads_stay_whole) {
    constexpr std::size_t size = 500;
    constexpr int count = 500;
    const auto stream = make_stream();
    const TCP_socket server = port.accept();
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b', 'c'})
        writers.emplace_back([&, letter] {
            for (int i = 0; i < count; ++i)
                while (write_bytes(*stream, std::string(size, letter)) == 0)
                    std::this_thread::yield();
        });
    for (int i = 0; i < 3 * count; ++i) {
        const std::string piece = server.receive(size);
        EXPECT_TRUE(piece == std::string(size, piece[0])) << "piece " << i;
    }
    for (std::thread& writer : writers)
        writer.join();
}

TEST_F(TCP_client_data_stream_test, slow_reader_loses_nothing_and_does_not_delay_writes) {
    const auto stream = make_stream();
    const TCP_socket server = port.accept();
    Random random;
    const std::string bytes = random.bytes(3 * capacity);
    server.send(bytes);
    EXPECT_TRUE(eventually([&] { return stream->bytes_avail() == capacity; }));
    EXPECT_TRUE(process_rests());
    const std::string out = numbered(queue_capacity);
    EXPECT_EQ(write_bytes(*stream, out), static_cast<int>(out.size()));
    EXPECT_EQ(server.receive(out.size()), out);
    EXPECT_EQ(take(*stream, bytes.size()), bytes);
}

TEST_F(TCP_client_data_stream_test, server_that_returns_receives_what_was_queued_meanwhile) {
    port.stop_listening();
    const auto stream = make_stream();
    EXPECT_EQ(write_bytes(*stream, "0"), 1);
    EXPECT_TRUE(process_rests());
    const int without_server = open_descriptors();
    for (char i = '0'; i < '5'; ++i) {
        port.listen();
        TCP_socket server = port.accept();
        EXPECT_EQ(server.receive(1), std::string(1, i));
        server.send("unread");
        EXPECT_TRUE(eventually([&] { return stream->bytes_avail() == 6U * static_cast<unsigned>(i - '0' + 1); }));
        port.stop_listening();
        server.close();
        const std::size_t ends = static_cast<std::size_t>(i - '0' + 1);
        EXPECT_TRUE(eventually([&] {
            const std::string text = errors.text();
            return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) == ends;
        }));
        // Directly after the message the old socket may still be open.
        ASSERT_TRUE(eventually([&] { return open_descriptors() == without_server; }));
        EXPECT_EQ(write_bytes(*stream, std::string(1, static_cast<char>(i + 1))), 1);
    }
    EXPECT_THAT(errors.text(), HasSubstr("TCP_client_data_stream: handle_read: Success\n"));
}

/// Counts the watched sockets: one for each attempt to connect.
void count_attempts(Replaced_calls& calls, std::atomic<int>& attempts) {
    calls.epoll_add_fails = [&attempts](int fd) {
        attempts += is_socket(fd);
        return false;
    };
}

TEST_F(TCP_client_data_stream_test, attempt_ends_at_the_given_time_limit) {
    const Full_listener hanging;
    Replaced_calls calls;
    std::atomic<int> attempts{0};
    count_attempts(calls, attempts);
    const TCP_client_data_stream stream(modules, "127.0.0.1", hanging.port(), 1, 20);
    EXPECT_TRUE(eventually([&] { return attempts >= 4; })); // with the default of 10 s each this would take too long
}

TEST_F(TCP_client_data_stream_test, attempt_has_the_default_time_limit_when_none_is_given) {
    const Full_listener hanging;
    Replaced_calls calls;
    std::atomic<int> attempts{0};
    count_attempts(calls, attempts);
    for (const int no_limit : {-1, 0}) {
        attempts = 0;
        const TCP_client_data_stream stream(modules, "127.0.0.1", hanging.port(), 1, no_limit);
        EXPECT_TRUE(eventually([&] { return attempts == 1; }));
        EXPECT_TRUE(process_rests()); // for 300 ms of the default 10 s
        EXPECT_EQ(attempts, 1);
    }
}

TEST_F(TCP_client_data_stream_test, two_streams_of_the_library_exchange_bytes) {
    TCP_server_data_stream server(modules, 0);
    ASSERT_TRUE(eventually([&] { return server.local_port() > 0; }));
    TCP_client_data_stream client(modules, "127.0.0.1", server.local_port(), 1, -1);
    EXPECT_EQ(write_bytes(client, "question"), 8);
    EXPECT_EQ(take(server, 8), "question");
    EXPECT_EQ(write_bytes(server, "answer"), 6);
    EXPECT_EQ(take(client, 6), "answer");
}

TEST_F(TCP_client_data_stream_test, socat_echoes) {
    port.stop_listening();
    auto stream = make_stream();
    EXPECT_EQ(write_bytes(*stream, "there and back"), 14);
    const std::string address = "TCP-LISTEN:" + std::to_string(port.number()) + ",bind=127.0.0.1,reuseaddr";
    Program_result result;
    std::thread echoes([&] { result = Program("socat", {address, "PIPE"}).run(); });
    EXPECT_EQ(take(*stream, 14), "there and back");
    stream.reset();
    echoes.join();
    EXPECT_EQ(result.status, 0) << result.errors;
}

TEST_F(TCP_client_data_stream_test, destruction_is_prompt_in_every_state_and_leaves_no_descriptors) {
    const TCP_port silent_port;
    const int before = open_descriptors();
    const Stopwatch stopwatch;
    for (int i = 0; i < 100; ++i) {
        TCP_client_data_stream waiting(modules, "127.0.0.1", silent_port.number(), 1, -1);
        write_bytes(waiting, "x");
        TCP_socket server; // outlives the stream, which would otherwise reconnect and be accepted as the next one
        const auto stream = make_stream();
        server = port.accept();
        if (i % 8 == 0) { // the task waits for free space
            server.send(std::string(2 * capacity, 'x'));
            EXPECT_TRUE(eventually([&] { return stream->bytes_avail() == capacity; }));
        }
    }
    EXPECT_LT(stopwatch.elapsed(), 20s);
    EXPECT_EQ(open_descriptors(), before);
}

// ---- Specifications ----

struct TCP_client_specification : TCP_client_data_stream_test {
    /// Whether the string makes a stream that connects to the test's port.
    bool connects(const std::string& spec) {
        const std::unique_ptr<TCP_client_data_stream> stream(TCP_client_data_stream::create(modules, spec.c_str()));
        if (!stream)
            return false;
        write_bytes(*stream, "x");
        return port.accept().receive(1) == "x";
    }
    bool makes_nothing(const char* spec) { return TCP_client_data_stream::create(modules, spec) == nullptr; }
    std::string with_port(const std::string& before, const std::string& after = "") const {
        return "tcpc:" + before + "port=" + std::to_string(port.number()) + after;
    }
};

TEST_F(TCP_client_specification, port_alone_means_this_machine) {
    EXPECT_TRUE(connects(with_port("")));
}

TEST_F(TCP_client_specification, tokens_may_have_any_order_and_empty_ones_are_ignored) {
    EXPECT_TRUE(connects(with_port("addr=127.0.0.1,")));
    EXPECT_TRUE(connects(with_port("", ",addr=127.0.0.1")));
    EXPECT_TRUE(connects(with_port(",,", ",,")));
}

TEST_F(TCP_client_specification, last_token_of_a_key_counts) {
    EXPECT_TRUE(connects(with_port("addr=10.0.0.5,addr=127.0.0.1,port=1,")));
}

TEST_F(TCP_client_specification, characters_after_the_digits_of_the_port_are_ignored) {
    EXPECT_TRUE(connects(with_port("", "x7")));
    EXPECT_TRUE(connects("tcpc:port= " + std::to_string(port.number())));
}

TEST_F(TCP_client_specification, without_a_port_makes_nothing_and_reports_it) {
    for (const char* spec : {"tcpc:addr=10.0.0.5", "tcpc:port=0", "tcpc:port=", "tcpc:port=x", "tcpc:", "tcpc:,,"}) {
        const Captured_descriptor message(2);
        EXPECT_TRUE(makes_nothing(spec)) << spec;
        EXPECT_EQ(message.text(), "Error: No port specified\n") << spec;
    }
}

TEST_F(TCP_client_specification, of_another_kind_makes_nothing_silently) {
    for (const char* spec : {"", "tcp:5000", "tcpb:5000", " tcpc:port=5000", "TCPC:port=5000", "tcpc"})
        EXPECT_TRUE(makes_nothing(spec)) << spec;
    EXPECT_EQ(errors.text(), "");
}

TEST_F(TCP_client_specification, port_above_16_bits_makes_a_stream_that_never_connects) {
    const Captured_debug debug;
    for (const char* spec : {"tcpc:port=65536", "tcpc:port=-1", "tcpc:port=99999999999999999999"}) {
        const std::unique_ptr<TCP_client_data_stream> stream(TCP_client_data_stream::create(modules, spec));
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(write_bytes(*stream, "queued"), 6);
    }
}

TEST_F(TCP_client_specification, of_256_characters_is_the_longest) {
    const std::string longest = with_port("", std::string(256 - with_port("").size(), ' '));
    EXPECT_EQ(longest.size(), 256U);
    EXPECT_TRUE(connects(longest));
}

using TCP_client_DeathTest = TCP_client_specification;

TEST_F(TCP_client_DeathTest, unknown_token_ends_the_process) {
    EXPECT_EXIT(makes_nothing("tcpc:port=5000,mode=x"), testing::ExitedWithCode(1), "^Unknown token: mode=x\n$");
    EXPECT_EXIT(makes_nothing("tcpc:addr"), testing::ExitedWithCode(1), "^Unknown token: addr\n$");
}

TEST_F(TCP_client_DeathTest, of_257_characters_aborts_the_process) {
    const std::string spec = "tcpc:" + std::string(252, ',');
    EXPECT_EXIT(makes_nothing(spec.c_str()), testing::KilledBySignal(SIGABRT),
                "glue/data_stream/TCP_client_data_stream.cpp:[0-9]+: static TCP_client_data_stream\\* "
                "TCP_client_data_stream::create\\(module_man&, const char\\*\\): "
                "Assertion `sizeof\\(tmp\\) > strlen\\(arg \\+ 1\\)' failed.");
}

} // namespace
