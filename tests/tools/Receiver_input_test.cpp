#include <monitor/Receiver_input.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Standard_input.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/terminals/Pty_pair.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <numeric>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Arrival = Receiver_input::Arrival;

constexpr std::int64_t short_while_ms = 20;
constexpr std::int64_t long_time_ms = 20000; // a limit that is never reached

struct Receiver_input_test : testing::Test {
    Arrival wait(std::int64_t limit_ms = long_time_ms) {
        return input->wait(Atime::now() + limit_ms, wake_up.reading());
    }

    /// Waits until that many bytes are buffered, in any number of reads.
    void expect_bytes(const std::string& bytes) {
        while (input->bytes_avail() < bytes.size())
            ASSERT_EQ(wait(), Arrival::bytes);
        EXPECT_EQ(buffered(*input), bytes);
    }

    Temporary_folder folder;
    Pipe wake_up;
    std::optional<Receiver_input> input{std::in_place};
};

using Receiver_input_standard = Receiver_input_test;
using Receiver_input_file = Receiver_input_test;
using Receiver_input_fifo = Receiver_input_test;
using Receiver_input_terminal = Receiver_input_test;
using Receiver_input_waiting = Receiver_input_test;

/// Every value of a byte.
std::string all_bytes() {
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    return bytes;
}

int open_for_writing(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CLOEXEC);
}

termios settings_of(int fd) {
    termios settings{};
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    return settings;
}

// ---- Standard input ----

TEST_F(Receiver_input_standard, is_read_until_its_end) {
    Pipe pipe;
    const Standard_input standard(pipe.reading());
    write_all(pipe.writing(), "first ");
    expect_bytes("first ");
    write_all(pipe.writing(), "second");
    expect_bytes("first second");
    EXPECT_EQ(input->arrived(), 12U);
    pipe.close_writing();
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), 0);
    EXPECT_EQ(buffered(*input), "first second");
}

TEST_F(Receiver_input_standard, stays_open_afterwards) {
    const Standard_input standard("bytes");
    input.reset();
    EXPECT_TRUE(is_open(STDIN_FILENO));
}

TEST_F(Receiver_input_standard, that_is_closed_is_an_end_with_a_reason) {
    const Standard_input standard("");
    close(STDIN_FILENO);
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), EBADF);
}

TEST_F(Receiver_input_standard, is_replaced_by_a_device) {
    const Standard_input standard("from the standard input");
    ASSERT_TRUE(input->open_device(folder.make_file("file", "from the file")));
    expect_bytes("from the file");
    EXPECT_EQ(wait(), Arrival::end);
}

// ---- Files ----

TEST_F(Receiver_input_file, is_read_to_its_end) {
    ASSERT_TRUE(input->open_device(folder.make_file("file", all_bytes())));
    expect_bytes(all_bytes());
    EXPECT_EQ(input->arrived(), 256U);
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), 0);
}

TEST_F(Receiver_input_file, that_is_empty_ends_at_once) {
    ASSERT_TRUE(input->open_device(folder.make_file("file", "")));
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->arrived(), 0U);
}

TEST_F(Receiver_input_file, longer_than_the_ring_is_delivered_in_order_and_complete) {
    std::string content;
    for (int i = 0; i < 3000; ++i)
        content += std::to_string(i) + " ";
    ASSERT_TRUE(input->open_device(folder.make_file("file", content)));
    std::string received;
    for (unsigned drop = 1; received.size() < content.size(); drop = drop % 997 + 1) {
        const Arrival arrival = wait();
        ASSERT_TRUE(arrival == Arrival::bytes || received.size() + input->bytes_avail() == content.size());
        const std::string taken = buffered(*input).substr(0, drop);
        received += taken;
        input->drop(static_cast<unsigned>(taken.size()));
    }
    EXPECT_TRUE(received == content);
    EXPECT_EQ(input->arrived(), content.size());
}

TEST_F(Receiver_input_file, waits_for_free_space_in_a_full_ring) {
    const std::string content(Receiver_input::rx_capacity + 1, 'x');
    ASSERT_TRUE(input->open_device(folder.make_file("file", content)));
    expect_bytes(content.substr(1));
    EXPECT_EQ(wait(), Arrival::bytes);
    EXPECT_EQ(input->arrived(), Receiver_input::rx_capacity);
    input->drop(1);
    EXPECT_EQ(wait(), Arrival::bytes);
    EXPECT_EQ(input->arrived(), content.size());
    EXPECT_EQ(input->bytes_avail(), Receiver_input::rx_capacity);
}

TEST_F(Receiver_input_file, that_is_missing_is_refused_with_one_line) {
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_FALSE(input->open_device(folder.path("missing")));
    EXPECT_EQ(errors.text(), "Error opening '" + folder.path("missing") + "': No such file or directory\n");
}

TEST_F(Receiver_input_file, that_is_a_folder_is_an_end_with_a_reason) {
    ASSERT_TRUE(input->open_device(folder.path()));
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), EISDIR);
}

TEST_F(Receiver_input_file, is_read_only_by_waiting) {
    ASSERT_TRUE(input->open_device(folder.make_file("file", "bytes")));
    EXPECT_FALSE(input->bytes_avail(1));
    EXPECT_EQ(input->bytes_avail(), 0U);
    EXPECT_TRUE(input->get_data(0));
    EXPECT_FALSE(input->get_data(1));
    expect_bytes("bytes");
}

// ---- FIFOs ----

TEST_F(Receiver_input_fifo, opens_before_its_writer_and_waits_for_it) {
    const std::string path = folder.make_fifo("fifo");
    ASSERT_TRUE(input->open_device(path));
    EXPECT_EQ(wait(short_while_ms), Arrival::nothing);
    const int writer = open_for_writing(path);
    EXPECT_EQ(wait(short_while_ms), Arrival::nothing);
    write_all(writer, "bytes");
    expect_bytes("bytes");
    close(writer);
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), 0);
}

TEST_F(Receiver_input_fifo, whose_writer_has_closed_is_read_to_the_end) {
    const std::string path = folder.make_fifo("fifo");
    ASSERT_TRUE(input->open_device(path));
    const int writer = open_for_writing(path);
    write_all(writer, "last words");
    close(writer);
    expect_bytes("last words");
    EXPECT_EQ(wait(), Arrival::end);
}

// ---- Terminal lines ----

TEST_F(Receiver_input_terminal, passes_every_byte_unchanged) {
    const Pty_pair line(Pty_pair::system_settings);
    ASSERT_TRUE(input->open_device(line.path()));
    line.send(all_bytes());
    expect_bytes(all_bytes());
}

TEST_F(Receiver_input_terminal, echoes_nothing) {
    const Pty_pair line(Pty_pair::system_settings);
    ASSERT_TRUE(input->open_device(line.path()));
    line.send("bytes\n");
    expect_bytes("bytes\n");
    EXPECT_EQ(bytes_ready(line.master()), 0);
}

TEST_F(Receiver_input_terminal, keeps_its_speed) {
    const Pty_pair line;
    termios settings = settings_of(line.slave());
    cfsetispeed(&settings, B4800);
    cfsetospeed(&settings, B4800);
    ASSERT_EQ(tcsetattr(line.slave(), TCSANOW, &settings), 0);
    ASSERT_TRUE(input->open_device(line.path()));
    const termios now = settings_of(line.slave());
    EXPECT_EQ(cfgetispeed(&now), speed_t{B4800});
    EXPECT_EQ(cfgetospeed(&now), speed_t{B4800});
}

TEST_F(Receiver_input_terminal, gets_its_settings_restored) {
    const Pty_pair line(Pty_pair::system_settings);
    const termios before = settings_of(line.slave());
    ASSERT_TRUE(input->open_device(line.path()));
    const termios meanwhile = settings_of(line.slave());
    EXPECT_EQ(meanwhile.c_lflag & tcflag_t{ICANON | ECHO | ISIG}, 0U);
    EXPECT_EQ(meanwhile.c_iflag & tcflag_t{ICRNL | IXON}, 0U);
    input.reset();
    const termios after = settings_of(line.slave());
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(std::memcmp(after.c_cc, before.c_cc, sizeof after.c_cc), 0);
}

TEST_F(Receiver_input_terminal, that_is_pulled_is_a_plain_end) {
    Pty_pair line;
    ASSERT_TRUE(input->open_device(line.path()));
    line.send("bytes");
    expect_bytes("bytes");
    line.hang_up();
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), 0);
}

TEST_F(Receiver_input_terminal, never_becomes_the_controlling_terminal) {
    // The next terminal that a session leader opens becomes its controlling terminal, unless it opens it with O_NOCTTY.
    const Pty_pair line;
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        const bool opened = input->open_device(line.path());
        const bool controlled = open("/dev/tty", O_RDONLY) >= 0;
        _exit(!opened ? 2 : controlled ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// ---- Waiting ----

TEST_F(Receiver_input_waiting, lasts_until_the_deadline) {
    const Pipe silent;
    const Standard_input standard(silent.reading());
    const Atime deadline = Atime::now() + 50;
    while (Atime::now() < deadline)
        ASSERT_EQ(input->wait(deadline, wake_up.reading()), Arrival::nothing);
    EXPECT_EQ(input->wait(deadline, wake_up.reading()), Arrival::nothing);
}

TEST_F(Receiver_input_waiting, past_its_deadline_still_receives_available_bytes) {
    const Standard_input standard("bytes");
    EXPECT_EQ(wait(-1), Arrival::bytes);
}

TEST_F(Receiver_input_waiting, without_a_deadline_ends_when_bytes_arrive) {
    const Standard_input standard("bytes");
    EXPECT_EQ(input->wait(std::nullopt, wake_up.reading()), Arrival::bytes);
}

TEST_F(Receiver_input_waiting, ends_at_a_wake_up_with_or_without_bytes) {
    Pipe pipe;
    const Standard_input standard(pipe.reading());
    write_all(wake_up.writing(), "!");
    EXPECT_EQ(wait(), Arrival::wake_up);
    write_all(pipe.writing(), "bytes");
    EXPECT_EQ(wait(), Arrival::wake_up);
    EXPECT_EQ(input->arrived(), 0U);
}

TEST_F(Receiver_input_waiting, needs_no_wake_up_descriptor) {
    const Standard_input standard("bytes");
    EXPECT_EQ(input->wait(std::nullopt, -1), Arrival::bytes);
}

TEST_F(Receiver_input_waiting, continues_when_another_reader_was_faster) {
    // Two processes read the same FIFO: both wake up, one reads the bytes.
    const std::string path = folder.make_fifo("fifo");
    ASSERT_TRUE(input->open_device(path));
    const int writer = open_for_writing(path);
    Replaced_calls calls;
    calls.poll = [](pollfd* descriptors, nfds_t) {
        descriptors[0].revents = POLLIN;
        return 1;
    };
    EXPECT_EQ(wait(), Arrival::nothing);
    write_all(writer, "bytes");
    EXPECT_EQ(wait(), Arrival::bytes);
    close(writer);
}

TEST_F(Receiver_input_waiting, continues_after_a_signal) {
    const Standard_input standard("bytes");
    Replaced_calls calls;
    calls.poll = [](pollfd*, nfds_t) {
        errno = EINTR;
        return -1;
    };
    EXPECT_EQ(wait(), Arrival::nothing);
    calls.poll = nullptr;
    EXPECT_EQ(wait(), Arrival::bytes);
}

TEST_F(Receiver_input_waiting, that_fails_is_an_end_with_a_reason) {
    const Standard_input standard("bytes");
    Replaced_calls calls;
    calls.poll = [](pollfd*, nfds_t) {
        errno = ENOMEM;
        return -1;
    };
    EXPECT_EQ(wait(), Arrival::end);
    EXPECT_EQ(input->error(), ENOMEM);
}

} // namespace
