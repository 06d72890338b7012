// The relay between streams of every kind, with socat and with relays at the other end.

#include <support/builders/Random.h>
#include <support/checks/Patience.h>
#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Child_program.h>
#include <support/processes/Program.h>
#include <support/processes/Running_program.h>
#include <support/processes/processes.h>
#include <support/streams/TCP_socket.h>
#include <support/terminals/Pty_pair.h>

#include <QCryptographicHash>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

/// Sends and receives at the same time, until all is done or nothing has moved for a long time. Makes the descriptor
/// non-blocking.
/// \return the received bytes
std::string talk(int fd, std::string_view to_send, std::size_t expected) {
    constexpr int longest_wait_ms = 20;
    make_non_blocking(fd);
    std::string received;
    Patience patience;
    while ((received.size() < expected || !to_send.empty()) && patience.lasts()) {
        const int events = (received.size() < expected ? POLLIN : 0) | (to_send.empty() ? 0 : POLLOUT);
        pollfd watched{fd, static_cast<short>(events), 0};
        poll(&watched, 1, longest_wait_ms);
        char piece[65536];
        const ssize_t got = read(fd, piece, std::min(sizeof piece, expected - received.size()));
        const ssize_t sent = write(fd, to_send.data(), to_send.size());
        received.append(piece, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        to_send.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
        if (got > 0 || sent > 0)
            patience.renew();
    }
    EXPECT_EQ(to_send.size(), 0U) << "bytes not sent";
    return received;
}

/// Waits until a count has not changed for a time.
void wait_for_standstill(const std::atomic<std::size_t>& count, std::chrono::milliseconds time) {
    Stopwatch since_last_change;
    std::size_t last = count;
    EXPECT_TRUE(eventually([&] {
        if (const std::size_t now = count; now != last) {
            last = now;
            since_last_change = Stopwatch();
        }
        return since_last_change.elapsed() >= time;
    }));
}

struct Stream_relay : testing::Test {
    void SetUp() override { setenv("GLUE_TCP_BIND", "127.0.0.1", 1); }

    /// Runs the relay until `meanwhile` is done, then interrupts it.
    template <typename Meanwhile>
    Program_result relay(std::vector<std::string> arguments, Meanwhile meanwhile) {
        return Program(STREAM_RELAY, std::move(arguments))
            .once_started([&](pid_t pid) {
                meanwhile();
                send_signal(pid, SIGINT);
            })
            .run();
    }
};

TEST_F(Stream_relay, carries_megabytes_both_ways_at_once_between_a_terminal_and_tcp) {
    Random random;
    const std::string to_tcp = random.bytes(8 << 20);
    const std::string to_line = random.bytes(8 << 20);
    const Pty_pair line;
    const TCP_port port;
    const std::string server = "tcp:" + std::to_string(port.number());
    std::string at_line;
    std::string at_tcp;
    const auto result = relay({line.path(), server}, [&] {
        EXPECT_TRUE(eventually([&] { return TCP_socket::can_connect("127.0.0.1", port.number()); }));
        const TCP_socket client = TCP_socket::connected_to(port.number());
        // When it arrives, the relay has accepted the client; a server drops bytes while it has no client.
        client.send("!");
        EXPECT_EQ(line.receive(1), "!");
        std::thread far([&] { at_line = talk(line.master(), to_tcp, to_line.size()); });
        at_tcp = talk(client.fd(), to_line, to_tcp.size());
        far.join();
    });
    EXPECT_TRUE(at_line == to_line);
    EXPECT_TRUE(at_tcp == to_tcp);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, HasSubstr(" -> " + server + ": 8388608 bytes\n"));
    EXPECT_THAT(result.errors, HasSubstr(" <- " + server + ": 8388609 bytes\n"));
}

TEST_F(Stream_relay, loses_nothing_when_a_side_does_not_read_for_a_while) {
    Random random;
    const std::string bytes = random.bytes(1 << 20);
    const Pty_pair line;
    TCP_port port;
    port.listen();
    std::string received;
    relay({line.path(), "tcpc:port=" + std::to_string(port.number())}, [&] {
        const TCP_socket server = port.accept();
        std::atomic<std::size_t> sent{0};
        std::thread sender([&] {
            constexpr std::size_t piece = 1024;
            for (; sent < bytes.size(); sent += piece)
                write_all(line.master(), bytes.substr(sent, piece));
        });
        wait_for_standstill(sent, std::chrono::milliseconds(700)); // a line's thread waits 500 ms for a reader
        received = server.receive(bytes.size());
        sender.join();
    });
    EXPECT_TRUE(received == bytes);
}

TEST_F(Stream_relay, one_way_forwards_nothing_in_the_other_direction) {
    const Pty_pair first;
    const Pty_pair second;
    const auto result = relay({first.path(), second.path(), "--one-way"}, [&] {
        second.send("ignored");
        first.send("moved");
        EXPECT_EQ(second.receive(5), "moved");
        EXPECT_EQ(bytes_ready(first.master()), 0);
    });
    EXPECT_EQ(result.errors, first.path() + " -> " + second.path() + ": 5 bytes\n");
}

TEST_F(Stream_relay, ends_when_a_child_has_ended_and_its_output_is_delivered) {
    const Pty_pair line;
    const auto result = Program(STREAM_RELAY, {"exec:printf hello", line.path()}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(line.receive(5), "hello");
    EXPECT_THAT(result.errors, HasSubstr(": 5 bytes\n"));
}

TEST_F(Stream_relay, reconnect_starts_a_child_again) {
    const Pty_pair line;
    relay({"exec:printf hello", line.path(), "--reconnect"}, [&] { EXPECT_EQ(line.receive(10), "hellohello"); });
}

TEST_F(Stream_relay, log_traces_the_traffic) {
    const Pty_pair first;
    const Pty_pair second;
    const auto result = relay({first.path(), second.path(), "--log"}, [&] {
        first.send("?"); // arrives when both streams are open
        EXPECT_EQ(second.receive(1), "?");
        first.send("abc");
        EXPECT_EQ(second.receive(3), "abc");
    });
    EXPECT_THAT(result.errors, HasSubstr("[RD](3): abc\n"));
    EXPECT_THAT(result.errors, HasSubstr("[WR](3): abc\n"));
}

TEST_F(Stream_relay, stats_prints_the_counts_at_intervals) {
    const Pty_pair first;
    const Pty_pair second;
    const Temporary_folder folder;
    const std::string redirected = "exec \"$0\" \"$@\" 2>" + folder.make_file("errors", "");
    const std::string line = first.path() + " -> " + second.path() + ": 3 bytes\n";
    const auto result = Program("sh", {"-c", redirected, STREAM_RELAY, first.path(), second.path(), "--stats", "0.05"})
                            .once_started([&](pid_t pid) {
                                first.send("abc");
                                EXPECT_EQ(second.receive(3), "abc");
                                EXPECT_TRUE(eventually([&] {
                                    const std::string printed = folder.content_of("errors");
                                    return printed.find(line) != printed.rfind(line); // more than once
                                }));
                                send_signal(pid, SIGINT);
                            })
                            .run();
    EXPECT_EQ(result.status, 0);
}

TEST_F(Stream_relay, log_traces_children_and_frames_too) {
    const std::string echo = "exec:" + path_of_echo();
    const auto child = Program(STREAM_RELAY, {"exec:printf abc", echo, "--log"}).run();
    EXPECT_THAT(child.errors, HasSubstr("exec:printf abc[RD](3/3): abc\n"));
    EXPECT_THAT(child.errors, HasSubstr("[WR](3/3): abc\n"));
    const auto framed = Program(STREAM_RELAY, {"exec:printf abc", "aim," + echo, "--log"}).run();
    EXPECT_THAT(framed.errors, ContainsRegex("WR.*: >>006xabc"));
}

TEST_F(Stream_relay, ends_when_a_stream_cannot_be_made) {
    const auto result = Program(STREAM_RELAY, {"tcp:0", "/nonexistent"}).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("Error: can't parse /nonexistent into a port specification\n"));
    EXPECT_EQ(Program(STREAM_RELAY, {"tcp:0"}).run().status, 1);
    EXPECT_EQ(Program(STREAM_RELAY, {"tcp:0", "tcp:99999999999"}).run().status, 1);
}

TEST_F(Stream_relay, reports_a_specification_of_any_length) {
    constexpr std::size_t longest_argument = 131071; // of a program, on Linux
    for (const std::size_t length : {std::size_t(30000), longest_argument}) {
        for (const std::string beginning : {"", "aim,", "/", "tcp:"}) {
            const std::string text = beginning + std::string(length - beginning.size(), '1');
            const auto result = Program(STREAM_RELAY, {text, "tcp:0"}).run();
            EXPECT_EQ(result.status, 1) << beginning << length;
            EXPECT_EQ(result.errors, "Error: can't parse " + text + " into a port specification\n");
        }
    }
}

// ---- Several relays, and socat ----

QByteArray digest_of(const std::string& bytes) {
    return QCryptographicHash::hash(QByteArray::fromStdString(bytes), QCryptographicHash::Sha1);
}

/// Sends random bytes both ways at the same time between two descriptors.
void expect_carries(int one, int other, std::size_t amount) {
    Random random;
    const std::string to_one = random.bytes(amount);
    const std::string to_other = random.bytes(amount);
    std::string at_one;
    std::thread far([&] { at_one = talk(one, to_other, amount); });
    const std::string at_other = talk(other, to_one, amount);
    far.join();
    EXPECT_EQ(at_one.size(), amount);
    EXPECT_EQ(at_other.size(), amount);
    EXPECT_EQ(digest_of(at_one), digest_of(to_one));
    EXPECT_EQ(digest_of(at_other), digest_of(to_other));
}

constexpr std::size_t much = 8 << 20;

TEST_F(Stream_relay, two_connected_by_TCP_carry_megabytes_both_ways_at_once_between_terminals) {
    const Pty_pair one;
    const Pty_pair other;
    const TCP_port port;
    const std::string number = std::to_string(port.number());
    Running_program server(STREAM_RELAY, {one.path(), "tcp:" + number});
    ASSERT_TRUE(eventually([&] { return TCP_socket::can_connect("127.0.0.1", port.number()); }));
    Running_program client(STREAM_RELAY, {"tcpc:port=" + number, other.path()});
    other.send("!"); // arrives when the client has connected; a server drops bytes while it has no client
    ASSERT_EQ(one.receive(1), "!");
    expect_carries(one.master(), other.master(), much);

    const Program_result& result = client.end(SIGINT);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, HasSubstr(" -> " + other.path() + ": 8388608 bytes\n"));
    EXPECT_THAT(result.errors, HasSubstr(" <- " + other.path() + ": 8388609 bytes\n"));
    EXPECT_EQ(server.end(SIGINT).status, 0);
}

/// The end of a terminal that another program makes; opened as soon as its path exists.
class Terminal_end {
  public:
    explicit Terminal_end(const std::string& path) {
        eventually([&] { return (fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) >= 0; });
    }
    ~Terminal_end() { close(fd_); }
    Terminal_end(const Terminal_end&) = delete;
    Terminal_end& operator=(const Terminal_end&) = delete;

    int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

TEST_F(Stream_relay, carries_megabytes_both_ways_at_once_over_TCP_to_a_terminal_of_socat) {
    const Pty_pair line;
    const TCP_port port;
    const Temporary_folder folder;
    const std::string number = std::to_string(port.number());
    Running_program socat(
        "socat", {"TCP-LISTEN:" + number + ",bind=127.0.0.1,reuseaddr", "PTY,raw,echo=0,link=" + folder.path("far")});
    Running_program relay(STREAM_RELAY, {line.path(), "tcpc:port=" + number});
    const Terminal_end far(folder.path("far"));
    expect_carries(line.master(), far.fd(), much);
    EXPECT_EQ(relay.end(SIGINT).status, 0);
}

TEST_F(Stream_relay, two_that_exchange_frames_over_a_line_lose_none_when_the_line_is_too_full_for_a_whole_one) {
    const Pty_pair one;
    const Pty_pair other;
    const Temporary_folder folder;
    const std::string near = folder.path("near");
    const std::string far = folder.path("far");
    Running_program line("socat", {"PTY,raw,echo=0,link=" + near, "PTY,raw,echo=0,link=" + far});
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(near) && std::filesystem::exists(far); }));
    const Terminal_end near_line(near);
    Running_program second(STREAM_RELAY, {"front/line,aim," + far, other.path()});
    other.send("!");
    ASSERT_EQ(read_exactly(near_line.fd(), 10).substr(0, 7), ">>004x!"); // the second is running
    Running_program first(STREAM_RELAY, {one.path(), "aim," + near});
    one.send("!");
    ASSERT_EQ(other.receive(1), "!"); // so is the first
    expect_carries(one.master(), other.master(), 2 << 20);
    EXPECT_EQ(first.end(SIGINT).status, 0);
    EXPECT_EQ(second.end(SIGINT).status, 0);
}

// ---- A line that disappears and returns ----

/// A name of a terminal, as a serial adapter has one: another terminal may get it later.
class Line_name {
  public:
    const std::string& path() const { return path_; }
    void assign_to(const Pty_pair& line) const { std::filesystem::create_symlink(line.path(), path_); }
    void remove() const { std::filesystem::remove(path_); }

  private:
    const Temporary_folder folder_;
    const std::string path_ = folder_.path("line");
};

TEST_F(Stream_relay, continues_when_a_line_returns_and_loses_no_bytes_that_were_sent_meanwhile) {
    Pty_pair first;
    const Line_name name;
    name.assign_to(first);
    const TCP_port port;
    Running_program relay(STREAM_RELAY, {name.path(), "tcp:" + std::to_string(port.number()), "--reconnect"});
    ASSERT_TRUE(eventually([&] { return TCP_socket::can_connect("127.0.0.1", port.number()); }));
    const TCP_socket client = TCP_socket::connected_to(port.number());
    client.send("to the first line");
    ASSERT_EQ(first.receive(17), "to the first line");
    first.send("from the first line");
    EXPECT_EQ(client.receive(19), "from the first line");

    first.hang_up();
    name.remove();
    client.send("to nobody yet");
    const Pty_pair second;
    name.assign_to(second);
    EXPECT_EQ(second.receive(13), "to nobody yet");
    expect_carries(second.master(), client.fd(), 1 << 20);

    const Program_result& result = relay.end(SIGINT);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, HasSubstr("reopen here!\n"));
}

} // namespace
