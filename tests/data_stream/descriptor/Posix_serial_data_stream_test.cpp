#include <glue/data_stream/Posix_serial_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Simulated_line.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

namespace {

using Calls = std::vector<std::string>;

termios settings_of(int fd) {
    termios settings{};
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    return settings;
}

struct Posix_serial_data_stream_test : testing::Test {
    Pty_pair terminal{Pty_pair::system_settings};
    Posix_serial_data_stream stream;

    /// "DSPosSer(address)", or with a path, cut to the size of a description.
    std::string named(const std::string& path = "") {
        char text[Data_stream::description_size];
        std::snprintf(text, sizeof text, path.empty() ? "DSPosSer(%p)" : "DSPosSer(%p, %s)",
                      static_cast<void*>(&stream), path.c_str());
        return text;
    }
    bool is_raw() const { return (settings_of(terminal.slave()).c_lflag & (ICANON | ECHO)) == 0; }
    bool has_settings() const { return stream.get_baudRate() != 0; }
};

TEST_F(Posix_serial_data_stream_test, starts_closed) {
    EXPECT_EQ(stream.get_description(), named());
    EXPECT_EQ(stream.get_fd(), -1);
    EXPECT_FALSE(stream.set_baud_rate(9600));
    EXPECT_FALSE(stream.close());
}

TEST_F(Posix_serial_data_stream_test, opens_and_makes_the_line_raw) {
    ASSERT_FALSE(is_raw());
    ASSERT_TRUE(stream.open(terminal.path().c_str(), false, true, false));
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(stream.get_description(), named(terminal.path()));
    EXPECT_EQ(stream.get_fd(), stream.get_read_fd());
    EXPECT_EQ(stream.get_fd(), stream.get_write_fd());
}

TEST_F(Posix_serial_data_stream_test, transfers_bytes_both_ways_unchanged) {
    ASSERT_TRUE(stream.open_from_args((terminal.path() + ":115200").c_str()));
    const std::string bytes("\x03\r\n\x04\x11\x13\x7F\xFF\x00\x1A", 10);
    EXPECT_EQ(write_bytes(stream, bytes), 10);
    EXPECT_EQ(terminal.receive(10), bytes);
    terminal.send(bytes);
    ASSERT_TRUE(stream.get_data(10));
    EXPECT_EQ(take_buffered(stream), bytes);
}

TEST_F(Posix_serial_data_stream_test, opens_with_the_requested_flags) {
    ASSERT_TRUE(stream.open(terminal.path().c_str(), false, false, true));
    EXPECT_EQ(fcntl(stream.get_fd(), F_GETFL) & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDWR | O_NONBLOCK | O_APPEND);
}

TEST_F(Posix_serial_data_stream_test, opens_by_default_blocking_and_raw) {
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    EXPECT_EQ(fcntl(stream.get_fd(), F_GETFL) & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDWR);
    EXPECT_EQ(stream.get_description(), named(terminal.path()));
    EXPECT_TRUE(is_raw());
}

TEST_F(Posix_serial_data_stream_test, opens_by_a_specification_string) {
    ASSERT_TRUE(stream.open_from_args((terminal.path() + ":100000").c_str()));
    const termios now = settings_of(terminal.slave());
    EXPECT_EQ(cfgetispeed(&now), speed_t{B115200});
    EXPECT_EQ(cfgetospeed(&now), speed_t{B115200});
    EXPECT_EQ(stream.get_description(), named(terminal.path()));
}

TEST_F(Posix_serial_data_stream_test, selects_the_driver_on_the_line_it_opens) {
    Simulated_line line;
    ASSERT_TRUE(stream.open_from_args((line.path() + ":38400:rs485").c_str()));
    EXPECT_EQ(line.modem_lines(), TIOCM_OUT1);
    EXPECT_EQ(stream.get_baudRate(), 38400);
    EXPECT_EQ(line.take_calls(), (Calls{"tcgetattr", "tcsetattr", "tcsetattr", "TIOCMGET", "TIOCMSET"}));
}

TEST_F(Posix_serial_data_stream_test, missing_device_is_named_on_standard_error_and_in_the_description) {
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_FALSE(stream.open("/dev/none", false, true, false));
    EXPECT_EQ(errors.text(), "Error opening '/dev/none': No such file or directory\n");
    EXPECT_EQ(stream.get_description(), named("/dev/none"));
    EXPECT_EQ(stream.get_fd(), -1);
    EXPECT_FALSE(has_settings());
    EXPECT_FALSE(stream.open_default("/dev/none"));
    EXPECT_FALSE(stream.open_from_args("/dev/none:9600"));
}

TEST_F(Posix_serial_data_stream_test, file_that_is_no_terminal_opens_with_a_failure_and_without_settings) {
    Temporary_folder folder;
    const std::string path = folder.make_file("f", "content");
    EXPECT_FALSE(stream.open(path.c_str(), false, true, false));
    EXPECT_GE(stream.get_fd(), 0);
    EXPECT_FALSE(stream.set_baud_rate(9600));
    EXPECT_FALSE(stream.open_default(path.c_str()));
}

TEST_F(Posix_serial_data_stream_test, opening_another_device_uses_the_settings_of_that_one) {
    Simulated_line line;
    ASSERT_TRUE(stream.open_from_args((line.path() + ":57600").c_str()));
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    EXPECT_EQ(stream.get_baudRate(), 38400);
    EXPECT_TRUE(is_raw());
}

TEST_F(Posix_serial_data_stream_test, closing_forgets_the_settings_and_does_not_change_the_line) {
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    const int fd = stream.get_fd();
    EXPECT_TRUE(stream.close());
    EXPECT_FALSE(is_open(fd));
    EXPECT_EQ(stream.get_description(), named());
    EXPECT_EQ(stream.get_fd(), -1);
    EXPECT_FALSE(has_settings());
    EXPECT_TRUE(is_raw());
    EXPECT_FALSE(stream.close());
    ASSERT_TRUE(stream.Posix_data_stream::open(terminal.path().c_str(), false, true, false));
    EXPECT_FALSE(stream.set_baud_rate(9600)) << "settings of an earlier line";
}

TEST_F(Posix_serial_data_stream_test, closing_a_pair_of_descriptors_closes_nothing) {
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    Pty_pair other;
    const int fd = stream.get_fd();
    ASSERT_TRUE(stream.open_read(other.path().c_str(), true)); // reading and writing have a descriptor each now
    EXPECT_EQ(stream.get_fd(), -1);
    EXPECT_FALSE(stream.close());
    EXPECT_EQ(stream.get_description(), named());
    EXPECT_TRUE(is_open(fd));
}

TEST_F(Posix_serial_data_stream_test, descriptor_is_that_of_both_directions_or_none) {
    EXPECT_EQ(stream.get_fd(), -1);
    ASSERT_TRUE(stream.open_write(terminal.path().c_str(), false, true, false));
    EXPECT_EQ(stream.get_fd(), -1);
    ASSERT_TRUE(stream.open_read(terminal.path().c_str(), true));
    EXPECT_EQ(stream.get_fd(), -1);
    EXPECT_FALSE(stream.init());
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    EXPECT_EQ(stream.get_fd(), stream.get_write_fd());
    EXPECT_GE(stream.get_fd(), 0);
}

TEST_F(Posix_serial_data_stream_test, nonintrusive_opening_changes_no_settings) {
    Simulated_line line;
    ASSERT_TRUE(stream.open_nonintrusive(line.path().c_str()));
    EXPECT_EQ(line.take_calls(), Calls{});
    EXPECT_EQ(stream.get_description(), named(line.path()));
    EXPECT_EQ(stream.get_read_fd(), stream.get_write_fd());
    EXPECT_EQ(fcntl(stream.get_fd(), F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDONLY);
    EXPECT_FALSE(stream.set_baud_rate(9600));
    EXPECT_EQ(line.take_calls(), Calls{});
    line.terminal().send("abc");
    ASSERT_TRUE(stream.get_data(3));
    EXPECT_EQ(take_buffered(stream), "abc");
    EXPECT_EQ(write_bytes(stream, "x"), -1);
    EXPECT_TRUE(stream.close());
}

TEST_F(Posix_serial_data_stream_test, nonintrusive_opening_after_a_line_with_settings_has_none) {
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    Simulated_line line;
    ASSERT_TRUE(stream.open_nonintrusive(line.path().c_str()));
    EXPECT_FALSE(stream.set_baud_rate(9600));
    EXPECT_FALSE(stream.restore());
    EXPECT_EQ(line.take_calls(), Calls{});
    EXPECT_TRUE(stream.init()) << "unless the caller requests them";
    EXPECT_TRUE(stream.set_baud_rate(9600));
}

TEST_F(Posix_serial_data_stream_test, nonintrusive_opening_of_a_missing_device_fails) {
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_FALSE(stream.open_nonintrusive("/dev/none"));
    EXPECT_EQ(errors.text(), "Error opening '/dev/none': No such file or directory\n");
    EXPECT_EQ(stream.get_description(), named());
    EXPECT_EQ(stream.get_fd(), -1);
}

TEST_F(Posix_serial_data_stream_test, former_settings_are_restored_on_request) {
    const termios before = settings_of(terminal.slave());
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    ASSERT_TRUE(stream.restore());
    EXPECT_EQ(settings_of(terminal.slave()).c_lflag, before.c_lflag);
    EXPECT_EQ(settings_of(terminal.slave()).c_iflag, before.c_iflag);
}

TEST_F(Posix_serial_data_stream_test, destroying_closes_the_line_and_leaves_its_settings) {
    const int before = open_descriptors();
    {
        Posix_serial_data_stream another;
        ASSERT_TRUE(another.open_default(terminal.path().c_str()));
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(is_raw());
}

TEST_F(Posix_serial_data_stream_test, line_that_hangs_up_is_at_end_of_file) {
    ASSERT_TRUE(stream.open_default(terminal.path().c_str()));
    terminal.hang_up();
    EXPECT_FALSE(stream.get_data(1));
    EXPECT_FALSE(stream.set_baud_rate(9600));
    EXPECT_TRUE(stream.close());
}

TEST_F(Posix_serial_data_stream_test, pseudo_terminal_has_no_modem_lines_and_no_counters) {
    ASSERT_TRUE(stream.open_from_args(terminal.path().c_str()));
    EXPECT_TRUE(stream.set_handshake(Posix_serial_port::handshake_rts_cts));
    EXPECT_TRUE(stream.set_dtr_state(true));
    Posix_serial_port::Status status;
    EXPECT_FALSE(stream.get_status(status));
    EXPECT_EQ(status.handshake, Posix_serial_port::handshake_rts_cts);
    Posix_serial_port::Counters counters;
    EXPECT_FALSE(stream.get_counters(counters));
    EXPECT_FALSE(stream.open_from_args((terminal.path() + ":9600:rs485").c_str()));
    EXPECT_EQ(stream.get_baudRate(), 9600) << "it is open nevertheless";
}

TEST(Posix_serial_data_stream_help, names_the_command_line_option) {
    EXPECT_STREQ(Posix_serial_data_stream::get_help(), "-c|--comm device[:baud]");
}

} // namespace
