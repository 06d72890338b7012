// The TCP streams with many peers, with peers that misbehave, and with many short-lived streams.

#include <glue/data_stream/TCP_client_data_stream.h>
#include <glue/data_stream/TCP_server_buffered_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>

#include <support/builders/Random.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/processes/processes.h>
#include <support/processes/processor_time.h>
#include <support/streams/TCP_streams.h>
#include <support/streams/destruction.h>

#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// The descriptors and threads of the process: two snapshots are equal when nothing was leaked in between.
struct Resources {
    int descriptors = open_descriptors();
    int threads = ::threads();

    bool operator==(const Resources& other) const {
        return descriptors == other.descriptors && threads == other.threads;
    }
};

/// Reads everything in its own thread until the connection ends.
class Reading_client {
  public:
    explicit Reading_client(TCP_socket socket) : socket_(std::move(socket)), reader_([this] { read_all(); }) {}
    ~Reading_client() { reader_.join(); }
    Reading_client(const Reading_client&) = delete;
    Reading_client& operator=(const Reading_client&) = delete;

    void send(const std::string& bytes) const { socket_.send(bytes); }
    std::size_t count() const { return count_; }
    /// Waits for the end of the connection.
    const std::string& received() {
        EXPECT_TRUE(eventually([this] { return ended_.load(); }));
        return received_;
    }

  private:
    void read_all() {
        char piece[65536];
        for (ssize_t count = 0; (count = ::read(socket_.fd(), piece, sizeof piece)) > 0; count_ = received_.size())
            received_.append(piece, static_cast<std::size_t>(count));
        ended_ = true;
    }

    TCP_socket socket_;
    std::string received_;
    std::atomic<std::size_t> count_{0};
    std::atomic<bool> ended_{false};
    std::thread reader_;
};

/// A socat process that connects and prints what it receives, until it is killed.
class Socat_client {
  public:
    explicit Socat_client(int port)
        : runs_([this, port] {
              const std::string address = "TCP:127.0.0.1:" + std::to_string(port);
              result_ =
                  Program("socat", {"-u", address, "-"}).once_started([this](pid_t started) { pid_ = started; }).run();
          }) {}
    ~Socat_client() { kill(); }
    Socat_client(const Socat_client&) = delete;
    Socat_client& operator=(const Socat_client&) = delete;

    /// \return the result of the process
    Program_result kill() {
        if (runs_.joinable()) {
            send_signal(pid_, SIGKILL);
            runs_.join();
        }
        return result_;
    }

  private:
    std::atomic<pid_t> pid_{0};
    Program_result result_;
    std::thread runs_;
};

/// Sends while it exists.
class Flood {
  public:
    explicit Flood(const TCP_socket& socket)
        : sends_([this, fd = socket.fd()] {
              const std::string piece(3000, 'x');
              while (!done_)
                  ::send(fd, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
          }) {}
    ~Flood() {
        done_ = true;
        sends_.join();
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

  private:
    std::atomic<bool> done_{false};
    std::thread sends_;
};

/// Destroys a stream while its peer sends continuously.
/// \param full  wait until the ring is full
void destroy_during_traffic(std::unique_ptr<Event_sender_data_stream> stream, const TCP_socket& peer, bool full) {
    Recording_waiter waiter;
    stream->reg_rx_waiter(waiter, false);
    {
        const Flood flood(peer);
        EXPECT_TRUE(waiter.wait_for(1));
        EXPECT_TRUE(eventually([&] { return !full || stream->bytes_avail() == Data_stream::rx_capacity; }));
        stream.reset();
    }
    for (const int code : waiter.codes())
        EXPECT_TRUE(code == 0 || code == 1);
}

template <typename Stream>
struct TCP_server_peers : testing::Test {
    module_man modules;
    Captured_debug debug;
    std::unique_ptr<Stream> stream = std::make_unique<Stream>(modules, 0);

    bool has_clients(unsigned count) {
        return eventually([&] { return stream->connection_count() == count; });
    }
};

using Both = testing::Types<TCP_server_data_stream, TCP_server_buffered_data_stream>;
TYPED_TEST_SUITE(TCP_server_peers, Both);

TYPED_TEST(TCP_server_peers, one_that_stops_reading_and_one_that_is_killed_do_not_affect_three_others) {
    const TCP_socket stopped = connect_to(*this->stream, 4096);
    Socat_client killed(this->stream->local_port());
    ASSERT_TRUE(this->has_clients(2));
    std::vector<std::unique_ptr<Reading_client>> others;
    for (int i = 0; i < 3; ++i)
        others.push_back(std::make_unique<Reading_client>(connect_to(*this->stream)));

    Random random;
    std::string written;
    const auto write_more = [&] {
        const std::string bytes = random.bytes(random.between(1, 20000));
        ASSERT_EQ(write_bytes(*this->stream, bytes), static_cast<int>(bytes.size()));
        written += bytes;
        for (const auto& other : others) // waits for the readers, also on a busy machine
            ASSERT_TRUE(eventually([&] { return other->count() + 100000 > written.size(); }));
    };
    while (written.size() < 500000)
        ASSERT_NO_FATAL_FAILURE(write_more());
    EXPECT_EQ(killed.kill().status, -SIGKILL);
    while (this->stream->connection_count() > 3 && written.size() < (100U << 20))
        ASSERT_NO_FATAL_FAILURE(write_more());
    EXPECT_EQ(this->stream->connection_count(), 3U);
    EXPECT_THAT(this->debug.text(), HasSubstr("client 0 does not keep up, it is disconnected\n"));
    for (int i = 0; i < 20; ++i)
        ASSERT_NO_FATAL_FAILURE(write_more());

    for (const auto& other : others)
        other->send("reply");
    EXPECT_EQ(take(*this->stream, 15), "replyreplyreply");
    for (const auto& other : others)
        EXPECT_TRUE(eventually([&] { return other->count() == written.size(); }));
    this->stream.reset();
    for (const auto& other : others)
        EXPECT_TRUE(other->received() == written);
    const std::string received = stopped.receive_all();
    EXPECT_TRUE(received == written.substr(0, received.size()));
}

TYPED_TEST(TCP_server_peers, thousand_that_close_at_once_leak_nothing) {
    wait_until_open(*this->stream);
    const Resources before;
    for (int i = 0; i < 1000; ++i) {
        TCP_socket client = TCP_socket::connected_to(this->stream->local_port());
        if (i % 3 == 0)
            client.reset();
        else if (i % 3 == 1)
            client.end_sending();
    }
    { // the server accepts in order: when it has received this client's bytes, it has accepted the thousand before
        const TCP_socket last = TCP_socket::connected_to(this->stream->local_port());
        last.send("last");
        EXPECT_EQ(take(*this->stream, 4), "last");
    }
    EXPECT_TRUE(this->has_clients(0));
    EXPECT_TRUE(eventually([&] { return Resources() == before; }));
    EXPECT_TRUE(process_rests());
    const TCP_socket late = connect_to(*this->stream);
    EXPECT_EQ(write_bytes(*this->stream, "welcome"), 7);
    EXPECT_EQ(late.receive(7), "welcome");
}

TYPED_TEST(TCP_server_peers, receive_the_writes_of_two_threads_unmixed) {
    const TCP_socket one = connect_to(*this->stream, 4096);
    constexpr std::size_t size = 1777;
    constexpr int count = 1000;
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b'})
        writers.emplace_back([this, letter] {
            for (int i = 0; i < count; ++i)
                EXPECT_TRUE(eventually([&] { return write_bytes(*this->stream, std::string(size, letter)) != 0; }));
        });
    std::map<char, int> counts;
    for (int i = 0; i < 2 * count; ++i) {
        const std::string piece = one.receive(size);
        ASSERT_EQ(piece.size(), size);
        EXPECT_TRUE(piece == std::string(size, piece[0])) << "piece " << i;
        ++counts[piece[0]];
    }
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(counts, (std::map<char, int>{{'a', count}, {'b', count}}));
}

TYPED_TEST(TCP_server_peers, of_a_thousand_short_lived_streams_leak_nothing) {
    wait_until_open(*this->stream);
    const Resources before;
    const Captured_descriptor errors(2);
    for (int i = 0; i < 1000; ++i) {
        TypeParam short_lived(this->modules, 0);
        if (i % 8 == 0)
            connect_to(short_lived).send("bye");
    }
    EXPECT_EQ(errors.text(), "");
    EXPECT_TRUE(eventually([&] { return Resources().threads == before.threads; }));
    EXPECT_EQ(Resources().descriptors, before.descriptors + 2); // those of `errors`
}

TYPED_TEST(TCP_server_peers, may_send_while_the_stream_is_destroyed_and_the_event_arrives) {
    const Captured_descriptor errors(2); // the destructor may report that it waits
    const TCP_socket client = connect_to(*this->stream);
    expect_event_on_its_way_to_arrive(std::move(this->stream), [&] { client.send("!"); });
}

TYPED_TEST(TCP_server_peers, may_send_continuously_while_the_stream_is_destroyed) {
    for (int i = 0; i < 20; ++i) {
        auto short_lived = std::make_unique<TypeParam>(this->modules, 0);
        const TCP_socket client = connect_to(*short_lived);
        destroy_during_traffic(std::move(short_lived), client, i % 2 == 0);
    }
}

// ---- The client ----

struct TCP_client_peers : testing::Test {
    const Signal_disposition no_pipe_signal{SIGPIPE, SIG_IGN};
    module_man modules;
    TCP_port port;
    Captured_descriptor errors{2}; // the stream reports the end of a connection there

    TCP_client_peers() { port.listen(); }

    std::unique_ptr<TCP_client_data_stream> make_stream(int reconnect_period = 1) {
        return std::make_unique<TCP_client_data_stream>(modules, "127.0.0.1", port.number(), reconnect_period, -1);
    }
};

TEST_F(TCP_client_peers, that_close_at_once_a_thousand_times_leak_nothing) {
    const auto stream = make_stream();
    port.accept().close();
    const Resources before;
    const auto before_all = processor_time();
    for (int i = 0; i < 1000; ++i)
        port.accept().close();
    EXPECT_LT(processor_time() - before_all, 20s);
    EXPECT_EQ(Resources().threads, before.threads);
    EXPECT_TRUE(eventually([&] { return open_descriptors() <= before.descriptors + 1; }));
    port.accept().send("stays");
    EXPECT_EQ(take(*stream, 5), "stays");
}

TEST_F(TCP_client_peers, that_close_at_once_are_reconnected_after_the_default_period_of_a_second) {
    const auto stream = make_stream(-1);
    TCP_socket server = port.accept();
    const Stopwatch since;
    server.close();
    EXPECT_TRUE(process_rests());
    port.accept().close();
    EXPECT_GE(since.elapsed(), 1s);
    EXPECT_LT(since.elapsed(), 10s);
}

TEST_F(TCP_client_peers, of_a_thousand_short_lived_streams_leak_nothing) {
    const Resources before;
    for (int i = 0; i < 1000; ++i) {
        const auto stream = make_stream();
        write_bytes(*stream, "x");
        if (i % 4 == 0)
            port.accept();
        if (i % 50 == 0) { // empties the queue of the listener
            port.stop_listening();
            port.listen();
        }
    }
    EXPECT_EQ(open_descriptors(), before.descriptors);
    EXPECT_TRUE(eventually([&] { return threads() == before.threads; }));
}

TEST_F(TCP_client_peers, may_send_while_the_stream_is_destroyed_and_the_event_arrives) {
    auto stream = make_stream();
    const TCP_socket server = port.accept();
    expect_event_on_its_way_to_arrive(std::move(stream), [&] { server.send("!"); });
}

TEST_F(TCP_client_peers, may_send_continuously_while_the_stream_is_destroyed) {
    for (int i = 0; i < 20; ++i) {
        auto stream = make_stream();
        const TCP_socket server = port.accept();
        destroy_during_traffic(std::move(stream), server, i % 2 == 0);
    }
}

} // namespace
