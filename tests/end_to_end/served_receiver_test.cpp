// The simulator at the other end of streams of every kind: readers receive its bytes, and it answers commands.

#include <support/builders/Frame_builder.h>
#include <support/checks/waiting.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/processes/processes.h>
#include <support/streams/TCP_socket.h>
#include <support/terminals/Pty_pair.h>

#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <thread>

namespace {

using testing::HasSubstr;

const std::string simulator = RECEIVER_SIMULATOR;
const std::string monitor = RECEIVER_MONITOR;

/// The simulator's bytes of the first epochs.
std::string bytes_of_epochs(int epochs) {
    return Program(simulator, {"--rate", "0", "--epochs", std::to_string(epochs)}).run().output;
}

void expect_reply(const Pty_pair& line, const std::string& reply) {
    EXPECT_EQ(line.receive(reply.size()), reply);
}

struct Served_receiver : testing::Test {
    void SetUp() override { setenv("GLUE_TCP_BIND", "127.0.0.1", 1); }

    /// Runs the simulator on a stream until `meanwhile` is done, then interrupts it.
    template <typename Meanwhile>
    static Program_result serve(const std::string& stream, std::vector<std::string> arguments, Meanwhile meanwhile) {
        arguments.insert(arguments.begin(), {"--stream", stream});
        return Program(simulator, arguments)
            .once_started([&](pid_t pid) {
                meanwhile();
                send_signal(pid, SIGINT);
            })
            .run();
    }
};

TEST_F(Served_receiver, sends_its_epochs_over_a_line) {
    const Pty_pair line;
    const std::string expected = bytes_of_epochs(300);
    std::string received;
    std::thread reader([&] { received = line.receive(expected.size()); });
    const auto result = Program(simulator, {"--stream", line.path(), "--rate", "0", "--epochs", "300"}).run();
    reader.join();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(received == expected);
}

TEST_F(Served_receiver, answers_commands_between_its_epochs) {
    const Pty_pair line;
    const std::string epochs = bytes_of_epochs(2);
    const std::string first = bytes_of_epochs(1);
    const auto result = serve(line.path(), {"--rate", "0.001"}, [&] {
        EXPECT_TRUE(line.receive(first.size()) == first);
        line.send("%1%version\r\n");
        expect_reply(line, "RE018%1%{receiver_simulator}\r\n");
        line.send("%2%dance\n\r\n%3%rate\n");
        expect_reply(line, "ER015%2%{1,wrong command}\r\nRE00B%3%{0.001}\r\n");
        line.send("rate,100\n");
        expect_reply(line, "RE001\r\n");
        EXPECT_TRUE(line.receive(epochs.size() - first.size()) == epochs.substr(first.size()))
            << "a faster rate takes effect at once";
    });
    EXPECT_EQ(result.status, 0) << result.errors;
}

TEST_F(Served_receiver, command_in_pieces_is_one_command) {
    const Pty_pair line;
    serve(line.path(), {"--rate", "0.001"}, [&] {
        const std::string first = bytes_of_epochs(1);
        EXPECT_TRUE(line.receive(first.size()) == first);
        for (const char* piece : {"ra", "te", "\r", "\n"}) {
            line.send(piece);
            EXPECT_TRUE(eventually([&] { return bytes_ready(line.slave()) == 0; }))
                << "so that the pieces arrive apart";
        }
        expect_reply(line, "RE008{0.001}\r\n");
    });
}

TEST_F(Served_receiver, is_silent_on_request) {
    const Pty_pair line;
    serve(line.path(), {"--rate", "200"}, [&] {
        line.send("messages,off\n");
        std::string received;
        while (received.find("RE001\r\n") == std::string::npos && received.size() < 1000000)
            received += line.receive(1);
        line.send("version\n");
        expect_reply(line, "RE015{receiver_simulator}\r\n"); // no bytes before it
    });
}

TEST_F(Served_receiver, lines_shorter_than_a_header_are_answered_at_once) {
    const Pty_pair line;
    serve(line.path(), {"--rate", "0.001"}, [&] {
        const std::string first = bytes_of_epochs(1);
        EXPECT_TRUE(line.receive(first.size()) == first);
        for (const char* text : {"x\n", "ab\r\n", "\nabc\n", "GC0\n"}) {
            line.send(text);
            expect_reply(line, "ER012{1,wrong command}\r\n");
        }
    });
}

TEST_F(Served_receiver, text_that_looks_like_a_frame_is_a_command_line) {
    const Pty_pair line;
    serve(line.path(), {"--rate", "0.001"}, [&] {
        const std::string first = bytes_of_epochs(1);
        EXPECT_TRUE(line.receive(first.size()) == first);
        for (const std::string& text : {std::string("beadface\n"), std::string("RE0012345\n"), std::string("PG009\n"),
                                        std::string(300, '0') + "\n"}) {
            line.send(text);
            expect_reply(line, "ER012{1,wrong command}\r\n");
        }
    });
}

/// Receives frames up to the next status of the automation.
std::string next_status(const Pty_pair& line) {
    for (;;) {
        std::string frame = line.receive(5);
        if (frame.size() < 5)
            return "nothing received";
        frame += line.receive(std::stoul(frame.substr(2, 3), nullptr, 16) + 1);
        if (frame.rfind("GS", 0) == 0)
            return frame;
    }
}

/// The state in the first status whose state is not `before`.
int next_state_after(int before, const Pty_pair& line) {
    for (int i = 0; i < 1000; ++i) {
        const std::string status = next_status(line);
        const int state = status.size() == 15 ? static_cast<unsigned char>(status[7]) >> 4 : -1;
        if (state != before)
            return state;
    }
    return before;
}

TEST_F(Served_receiver, command_frames_control_the_automation) {
    const Pty_pair line;
    const auto command = [](char flags) {
        return build_frame("GC", std::string("\1\r\0", 3) + flags + "\n\r\n\r"); // line ends in the middle of it
    };
    const auto result = serve(line.path(), {"--rate", "100", "--automation"}, [&] {
        EXPECT_EQ(next_state_after(-1, line), 1);
        line.send(command('\x40'));
        EXPECT_EQ(next_state_after(1, line), 2);
        line.send(command('\x41'));
        EXPECT_EQ(next_state_after(2, line), 3);
        std::string bad = command('\0');
        bad[7] = '\1'; // the checksum does not match
        line.send(bad);
        line.send(command('\x43'));
        EXPECT_EQ(next_state_after(3, line), 5) << "the bad one was ignored";
        const std::string one = next_status(line);
        const std::string other = next_status(line);
        EXPECT_EQ(static_cast<unsigned char>(other[6]), (static_cast<unsigned char>(one[6]) + 1) % 256);
        line.send(command('\0'));
        EXPECT_EQ(next_state_after(5, line), 1);
    });
    EXPECT_EQ(result.status, 0) << result.errors;
}

TEST_F(Served_receiver, command_lines_and_frames_may_be_mixed_and_cut_anywhere) {
    const Pty_pair line;
    serve(line.path(), {"--rate", "0.001"}, [&] {
        const std::string first = bytes_of_epochs(1);
        EXPECT_TRUE(line.receive(first.size()) == first);
        const std::string frame = build_frame("GC", std::string("\1\r\0\x40\n\r\n\r", 8));
        line.send("rate\r\n" + frame + "rate\n" + frame.substr(0, 6));
        expect_reply(line, "RE008{0.001}\r\nRE008{0.001}\r\n");
        line.send(frame.substr(6) + "version\n");
        expect_reply(line, "RE015{receiver_simulator}\r\n");
    });
}

TEST_F(Served_receiver, monitor_receives_the_reply) {
    const TCP_port port;
    const std::string number = std::to_string(port.number());
    serve("tcp:" + number, {"--rate", "50"}, [&] {
        const auto read =
            Program(monitor, {"tcpc:port=" + number, "--send", "%x%version", "--count", "200", "--duration", "30"})
                .run();
        EXPECT_EQ(read.status, 0) << read.errors;
        EXPECT_THAT(read.errors, HasSubstr("RE          1 "));
    });
}

/// Readers that connect while the receiver sends: each receives a part of the same traffic.
struct Shared_receiver : Served_receiver, testing::WithParamInterface<const char*> {};

TEST_P(Shared_receiver, every_reader_sees_the_same_traffic) {
    const TCP_port port;
    const std::string number = std::to_string(port.number());
    const std::string prefix = GetParam();
    const std::string all = Program("sh", {"-c", simulator + " --rate 0 --epochs 3000 | " + monitor}).run().output;
    const std::string socat = "socat -u TCP:127.0.0.1:" + number + " -"; // standard input has ended
    const std::string piped = prefix.empty() ? socat + " | " + monitor + " - --count 500"
                                             : monitor + " '" + prefix + "exec:" + socat + "' --count 500";
    const auto served = serve(prefix + "tcp:" + number, {"--rate", "100"}, [&] {
        ASSERT_TRUE(eventually([&] { return TCP_socket::can_connect("127.0.0.1", port.number()); }));
        Program_result through_socat;
        std::thread second([&] { through_socat = Program("sh", {"-c", piped}).run(); });
        const auto direct =
            Program(monitor, {prefix + "tcpc:port=" + number, "--count", "500", "--duration", "40"}).run();
        second.join();
        for (const Program_result& result : {direct, through_socat}) {
            EXPECT_GT(result.output.size(), 10000U) << result.errors;
            EXPECT_NE(all.find(result.output), std::string::npos) << "lines that the receiver did not send";
            EXPECT_THAT(result.errors, HasSubstr("checksum failures: 0\n"));
        }
    });
    EXPECT_EQ(served.status, 0) << served.errors;
}

INSTANTIATE_TEST_SUITE_P(plain, Shared_receiver, testing::Values(""));
INSTANTIATE_TEST_SUITE_P(framed, Shared_receiver, testing::Values("aim,"));

TEST_F(Served_receiver, ends_with_the_child_that_it_serves) {
    const auto result = Program(simulator, {"--stream", "exec:head -c 1000", "--rate", "100"}).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(result.in_time);
}

TEST_F(Served_receiver, last_epoch_is_still_sent) {
    TCP_port port;
    port.listen();
    const std::string expected = bytes_of_epochs(5);
    std::string received;
    std::thread reader([&] { received = port.accept().receive_all(); });
    const auto result =
        Program(simulator, {"--stream", "tcpc:port=" + std::to_string(port.number()), "--rate", "0", "--epochs", "5"})
            .run();
    reader.join();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(received == expected);
}

TEST_F(Served_receiver, interrupt_ends_it_while_the_stream_accepts_nothing) {
    const Pty_pair line; // the far end never reads
    const auto is_full = [&] {
        pollfd near_end{line.slave(), POLLOUT, 0};
        return poll(&near_end, 1, 0) == 0;
    };
    const auto result = serve(line.path(), {"--rate", "0"}, [&] { EXPECT_TRUE(eventually(is_full)); });
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(result.in_time);
}

TEST_F(Served_receiver, stream_that_cannot_be_made_is_status_1) {
    const auto result = Program(simulator, {"--stream", "/nonexistent"}).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("Error: can't parse /nonexistent into a port specification\n"));
}

} // namespace
