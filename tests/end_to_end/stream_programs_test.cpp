// The programs over streams of every kind, with socat at the other end.

#include <support/Program.h>
#include <support/Pty_pair.h>
#include <support/Random.h>
#include <support/TCP_socket.h>
#include <support/descriptors.h>
#include <support/processes.h>
#include <support/waiting.h>

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

using testing::HasSubstr;

struct Stream_programs : testing::Test {
    void SetUp() override { setenv("GLUE_TCP_BIND", "127.0.0.1", 1); }
};

const std::string simulator = RECEIVER_SIMULATOR;

TEST_F(Stream_programs, monitor_reads_a_simulator_that_is_its_child) {
    const auto result = Program(RECEIVER_MONITOR, {"exec:" + simulator + " --epochs 20 --rate 0 --seed 3"}).run();
    const auto piped = Program("sh", {"-c", simulator + " --epochs 20 --rate 0 --seed 3 | " + RECEIVER_MONITOR}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, piped.output);
    EXPECT_THAT(result.errors, HasSubstr(" + noise 0 + separators 0\nchecksum failures: 0\n"));
}

TEST_F(Stream_programs, monitor_reads_a_peer_over_tcp_in_both_roles) {
    const TCP_port port;
    const std::string number = std::to_string(port.number());
    const std::string serve = "socat EXEC:'" + simulator + " --epochs 20 --rate 0 --seed 3' TCP-LISTEN:" + number +
                              ",bind=127.0.0.1,reuseaddr & ";
    const auto client =
        Program("sh", {"-c", serve + RECEIVER_MONITOR + " tcpc:port=" + number + " --count 410 --duration 20; kill %1"})
            .run();
    EXPECT_EQ(client.status == 0 || client.status == 1, true) << client.errors; // the status of kill
    EXPECT_THAT(client.errors, HasSubstr(" + noise 0 + separators 0\nchecksum failures: 0\n"));
    EXPECT_THAT(client.errors, HasSubstr("PG         20"));
}

TEST_F(Stream_programs, monitor_sends_a_command_first) {
    const Pty_pair line;
    std::string seen;
    std::thread receiver([&] {
        seen = line.receive(5);
        line.send("RE006%1%ok\r\n");
    });
    const auto result = Program(RECEIVER_MONITOR, {line.path(), "--send", "VER", "--duration", "1"}).run();
    receiver.join();
    EXPECT_EQ(seen, "VER\r\n");
    EXPECT_EQ(result.status, 2); // a reply is no frame
}

TEST_F(Stream_programs, monitor_traces_when_asked_to) {
    const auto result =
        Program(RECEIVER_MONITOR, {"tcpc:port=1", "--send", "VER", "--trace", "--duration", "0.1"}).run();
    EXPECT_EQ(result.status, 2);
    const Pty_pair line;
    const auto traced = Program(RECEIVER_MONITOR, {line.path(), "--send", "VER", "--trace", "--duration", "0.1"}).run();
    EXPECT_THAT(traced.errors, HasSubstr("[WR](5): VER\\r\\n\n"));
}

// The relay

/// Sends and receives at once, and says what came.
std::string talk(int fd, const std::string& to_send, std::size_t expected) {
    std::thread sender([&] { write_all(fd, to_send); });
    std::string received;
    char piece[65536];
    while (received.size() < expected) {
        const ssize_t count = read(fd, piece, std::min(sizeof piece, expected - received.size()));
        if (count <= 0)
            break;
        received.append(piece, static_cast<std::size_t>(count));
    }
    sender.join();
    return received;
}

struct Stream_relay : Stream_programs {
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
        // Its way back proves that the relay has taken the client on; a server's bytes to nobody are lost.
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

TEST_F(Stream_relay, loses_nothing_to_a_side_that_does_not_read_for_a_while) {
    Random random;
    const std::string bytes = random.bytes(1 << 20);
    const Pty_pair line;
    TCP_port port;
    port.listen();
    std::string received;
    relay({line.path(), "tcpc:port=" + std::to_string(port.number())}, [&] {
        const TCP_socket server = port.accept();
        std::thread sender([&] { write_all(line.master(), bytes); });
        std::this_thread::sleep_for(std::chrono::seconds(2)); // longer than a line's thread waits for a reader
        received = server.receive(bytes.size());
        sender.join();
    });
    EXPECT_TRUE(received == bytes);
}

TEST_F(Stream_relay, one_way_leaves_the_other_alone) {
    const Pty_pair first;
    const Pty_pair second;
    const auto result = relay({first.path(), second.path(), "--one-way"}, [&] {
        second.send("unheard");
        first.send("heard");
        EXPECT_EQ(second.receive(5), "heard");
        EXPECT_EQ(bytes_ready(first.master()), 0);
    });
    EXPECT_EQ(result.errors, first.path() + " -> " + second.path() + ": 5 bytes\n");
}

TEST_F(Stream_relay, ends_when_a_child_has_said_all) {
    const Pty_pair line;
    const auto result = Program(STREAM_RELAY, {"exec:printf hello", line.path()}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(line.receive(5), "hello");
    EXPECT_THAT(result.errors, HasSubstr(": 5 bytes\n"));
}

TEST_F(Stream_relay, starts_a_child_anew_when_asked_to) {
    const Pty_pair line;
    relay({"exec:printf hello", line.path(), "--reconnect"}, [&] { EXPECT_EQ(line.receive(10), "hellohello"); });
}

TEST_F(Stream_relay, traces_and_counts_when_asked_to) {
    const Pty_pair first;
    const Pty_pair second;
    const auto result = relay({first.path(), second.path(), "--log", "--stats", "0.05"}, [&] {
        first.send("?"); // comes through when both streams are there
        EXPECT_EQ(second.receive(1), "?");
        first.send("abc");
        EXPECT_EQ(second.receive(3), "abc");
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    });
    EXPECT_THAT(result.errors, HasSubstr("[RD](3): abc\n"));
    EXPECT_THAT(result.errors, HasSubstr("[WR](3): abc\n"));
    const std::string line = first.path() + " -> " + second.path() + ": 4 bytes\n";
    EXPECT_NE(result.errors.find(line), result.errors.rfind(line)); // more than once
}

TEST_F(Stream_relay, stream_that_cannot_be_made_ends_it) {
    const auto result = Program(STREAM_RELAY, {"tcp:0", "/nonexistent"}).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("Error: can't parse /nonexistent into a port specification\n"));
    EXPECT_EQ(Program(STREAM_RELAY, {"tcp:0"}).run().status, 1);
    EXPECT_EQ(Program(STREAM_RELAY, {"tcp:0", "tcp:99999999999"}).run().status, 1);
}

} // namespace
