// The examples of streams, with a peer at the other end.

#include <support/builders/Frame_builder.h>
#include <support/processes/Program.h>
#include <support/terminals/Pty_pair.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <termios.h>
#include <thread>
#include <vector>

namespace {

const std::string simulator = RECEIVER_SIMULATOR;

// ---- A receiver in the application's own process ----

TEST(In_process_receiver, shows_every_epoch_that_the_other_thread_sends) {
    constexpr int epochs = 1000;
    std::string expected;
    for (int epoch = 0; epoch < epochs; ++epoch) {
        char line[80];
        std::snprintf(line, sizeof line, "%d ms: 52.%05d00 7.5000000\n", 100 * epoch, epoch);
        expected += line;
    }
    const auto result = Program(IN_PROCESS_RECEIVER, {std::to_string(epochs)}).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(result.output == expected) << result.output;
}

TEST(In_process_receiver, both_threads_end_for_0_epochs) {
    const auto result = Program(IN_PROCESS_RECEIVER, {"0"}).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "");
}

// ---- Commands, line by line ----

std::string without_times(const std::string& text) {
    return std::regex_replace(text, std::regex("(^|\n)\\d\\d:\\d\\d:\\d\\d\\.\\d{3} "), "$1");
}

TEST(Send_commands, prints_the_reply_to_each_command_between_the_frames_of_a_receiver) {
    const auto result = Program(SEND_COMMANDS, {"exec:" + simulator + " --stream cons: --rate 50", "60"})
                            .input("version\nrate\n\ndance\r\nrate,20\r\nrate\n")
                            .run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "accepted {receiver_simulator}\n"
                             "accepted {50}\n"
                             "refused {1,wrong command}\n"
                             "accepted \n"
                             "accepted {20}\n");
    EXPECT_EQ(without_times(result.errors), "sent [version\\n]\n"
                                            "sent [rate\\n]\n"
                                            "sent [\\ndance\\r]\n"
                                            "sent [\\nrate,20\\r]\n"
                                            "sent [\\nrate\\n]\n");
}

TEST(Send_commands, sends_a_command_after_the_reply_to_the_one_before) {
    const Pty_pair line;
    std::thread device([&] {
        EXPECT_EQ(line.receive(4), "one\n");
        line.send(build_frame("~~", le(1000)) + "noise\nRE00");
        line.send("6first\r\n");
        EXPECT_EQ(line.receive(4), "two\n");
        line.send("ER007second\r\n");
    });
    const auto result = Program(SEND_COMMANDS, {line.path(), "60"}).input("one\ntwo\n").run();
    device.join();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "accepted first\nrefused second\n");
}

TEST(Send_commands, stops_at_a_command_without_a_reply) {
    const Pty_pair line;
    const auto result = Program(SEND_COMMANDS, {line.path(), "0"}).input("one\ntwo\n").run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "no answer\n");
    EXPECT_EQ(without_times(result.errors), "sent [one\\n]\n");
}

TEST(Send_commands, without_a_stream_prints_the_whole_lines) {
    const auto result = Program(SEND_COMMANDS).input("version\nrate,5\nra").run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "version\nrate,5\n");
}

TEST(Send_commands, returns_1_when_the_stream_cannot_be_opened) {
    const auto result = Program(SEND_COMMANDS, {"/nowhere"}).input("version\n").run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
}

// ---- Bytes as hexadecimal digits ----

std::string hex(const std::string& bytes) {
    std::string digits;
    for (const char byte : bytes) {
        char two[4];
        std::snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(byte));
        digits += two;
        if (digits.size() % 61 == 60)
            digits += '\n';
    }
    return digits;
}

std::string time_frame(unsigned ms) {
    return build_frame("~~", le(ms));
}

std::string carried(char channel, const std::string& bytes) {
    return build_frame(">>", channel + bytes, Checksum::text);
}

TEST(Decode_hex, shows_messages_noise_and_acknowledgements) {
    std::string damaged = time_frame(3);
    damaged[6] ^= 1;
    const auto result =
        Program(DECODE_HEX)
            .input(hex(time_frame(1) + "RE006%1%ok\r\n" + "junk\n" + damaged + time_frame(2) + "\x06" + "~~005"))
            .run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "RT ms=1\n"
                             "RE006%1%ok\n"
                             "5 bytes of noise\n"
                             "a frame whose checksum is wrong\n"
                             "RT ms=2\n"
                             "accepted\n"
                             "5 bytes left over\n");
}

TEST(Decode_hex, shows_messages_that_AIM_frames_carry_in_pieces) {
    const std::string inner = time_frame(7) + time_frame(8);
    const auto result = Program(DECODE_HEX)
                            .input(hex(carried('1', inner.substr(0, 6)) + time_frame(1) +
                                       carried('1', inner.substr(6)) + carried('1', carried('2', time_frame(9)) + "~")))
                            .run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "channel 31 carries 6 bytes\n"
                             "RT ms=1\n"
                             "channel 31 carries 16 bytes\n"
                             "  RT ms=7\n"
                             "  RT ms=8\n"
                             "channel 31 carries 21 bytes\n"
                             "  channel 32 carries 11 bytes\n"
                             "    RT ms=9\n"
                             "  1 bytes left over\n");
}

TEST(Decode_hex, decodes_more_bytes_than_a_stream_holds) {
    std::string bytes;
    std::string expected;
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        const std::string reply = "RE3E9" + std::string(1000, letter);
        bytes += reply + "\r\n";
        expected += "  " + reply + "\n";
    }
    const std::size_t piece = 4080; // with the rest of the piece before, more than a stream holds
    std::string frames;
    for (std::size_t begin = 0; begin < bytes.size(); begin += piece)
        frames += carried('x', bytes.substr(begin, piece));
    const auto result = Program(DECODE_HEX).input(hex(frames)).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    const std::string shown = std::regex_replace(result.output, std::regex("channel 78 carries [0-9]+ bytes\n"), "");
    EXPECT_TRUE(shown == expected) << result.output;
}

TEST(Decode_hex, ends_at_a_character_that_is_not_a_digit) {
    const auto result = Program(DECODE_HEX).input(hex(time_frame(1)) + " xyz").run();
    EXPECT_EQ(result.output, "RT ms=1\n");
    EXPECT_EQ(result.status, 1);
}

// ---- A serial line ----

/// A line with text settings that would spoil binary bytes, two stop bits and a hardware handshake.
termios give_text_settings(const Pty_pair& line) {
    termios settings{};
    tcgetattr(line.slave(), &settings);
    settings.c_iflag |= ISTRIP;
    settings.c_oflag |= OPOST | ONLCR;
    settings.c_cflag |= CSTOPB | CRTSCTS;
    cfsetspeed(&settings, B4800);
    tcsetattr(line.slave(), TCSANOW, &settings);
    tcgetattr(line.slave(), &settings);
    return settings;
}

TEST(Feed_line, prints_the_settings_and_forwards_every_byte_of_the_program) {
    const Pty_pair line;
    give_text_settings(line);
    const std::vector<std::string> source = {simulator, "--rate", "0", "--epochs", "100"};
    const std::string expected = Program(simulator, {source.begin() + 1, source.end()}).run().output;
    std::vector<std::string> arguments = {line.path() + ":19200"};
    arguments.insert(arguments.end(), source.begin(), source.end());
    line.send("ready\r\n");
    const auto result = Program(FEED_LINE, arguments)
                            .once_started([&](pid_t) { EXPECT_TRUE(line.receive(expected.size()) == expected); })
                            .run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "19200 bits/s, 8N2, handshake RTS/CTS\n"
                             "device: ready\n" +
                                 std::to_string(expected.size()) + " bytes sent\n");
}

TEST(Feed_line, restores_the_lines_settings) {
    const Pty_pair line;
    const termios before = give_text_settings(line);
    line.send("ready\r\n");
    const auto result = Program(FEED_LINE, {line.path() + ":19200", "true"}).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    termios after{};
    tcgetattr(line.slave(), &after);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
}

TEST(Feed_line, continues_when_the_device_is_silent) {
    const Pty_pair line;
    const auto result = Program(FEED_LINE, {line.path(), "echo", "5"})
                            .once_started([&](pid_t) { EXPECT_EQ(line.receive(2), "5\n"); })
                            .run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "9600 bits/s, 8N1, handshake none\n2 bytes sent\n");
}

TEST(Feed_line, refuses_a_file_that_is_no_line) {
    const auto result = Program(FEED_LINE, {"/dev/null", "echo", "5"}).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
}

} // namespace
