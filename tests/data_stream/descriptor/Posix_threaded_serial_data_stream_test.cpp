// Opening, closing, settings, pausing. A line that disappears: Posix_threaded_serial_reopening_test.cpp.

#include <glue/data_stream/Posix_threaded_serial_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Simulated_line.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

namespace {

using Calls = std::vector<std::string>;
using Stream = Posix_threaded_serial_data_stream;

/// "DSPosTSer(address)", or with a path, cut to the size of a description.
std::string name_of(Stream& stream, const std::string& path = "") {
    char text[Data_stream::description_size];
    std::snprintf(text, sizeof text, path.empty() ? "DSPosTSer(%p)" : "DSPosTSer(%p, %s, rw)",
                  static_cast<void*>(&stream), path.c_str());
    return text;
}

struct Posix_threaded_serial_data_stream_test : testing::Test {
    Simulated_line line;

    std::unique_ptr<Stream> make(const std::string& spec) {
        return std::unique_ptr<Stream>(Stream::create(spec.c_str()));
    }
    bool is_raw() const { return (line.settings().c_lflag & (ICANON | ECHO)) == 0; }
    /// As another program might leave a line.
    void make_cooked() {
        termios settings = line.settings();
        settings.c_lflag |= ICANON | ECHO;
        line.set_settings(settings);
    }
};

TEST_F(Posix_threaded_serial_data_stream_test, starts_closed) {
    Stream stream;
    EXPECT_EQ(stream.get_description(), name_of(stream));
    EXPECT_EQ(stream.get_fd(), -1);
    EXPECT_FALSE(stream.set_baud_rate(9600));
    EXPECT_FALSE(stream.close());
}

TEST_F(Posix_threaded_serial_data_stream_test, is_made_from_a_specification_string) {
    const auto stream = make(line.path() + ":115200:rs485");
    ASSERT_TRUE(stream);
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(stream->get_baudRate(), 115200);
    EXPECT_EQ(line.modem_lines(), TIOCM_OUT1);
    EXPECT_EQ(line.take_calls(), (Calls{"tcgetattr", "tcsetattr", "tcsetattr", "TIOCMGET", "TIOCMSET"}));
    EXPECT_EQ(stream->get_description(), name_of(*stream, line.path()));
    EXPECT_EQ(stream->get_fd(), stream->get_read_fd());
    EXPECT_EQ(stream->get_fd(), stream->get_write_fd());
    EXPECT_EQ(fcntl(stream->get_fd(), F_GETFL) & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDWR | O_NONBLOCK);
}

TEST_F(Posix_threaded_serial_data_stream_test, receives_in_its_thread_and_sends) {
    Recording_waiter waiter;
    const auto stream = make(line.path());
    ASSERT_TRUE(stream);
    stream->reg_rx_waiter(waiter, false);
    line.terminal().send("hello");
    ASSERT_TRUE(eventually([&] { return stream->bytes_avail() == 5; }));
    EXPECT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(take_buffered(*stream), "hello");
    EXPECT_EQ(write_bytes(*stream, "answer"), 6);
    EXPECT_EQ(line.terminal().receive(6), "answer");
    stream->dereg_rx_waiter();
}

TEST_F(Posix_threaded_serial_data_stream_test, is_not_made_for_a_line_that_does_not_open) {
    const int before = open_descriptors();
    {
        const Captured_descriptor errors(STDERR_FILENO);
        EXPECT_FALSE(make("/dev/none:9600"));
        EXPECT_EQ(errors.text(), "Error opening '/dev/none': No such file or directory\n");
    }
    EXPECT_FALSE(make("/dev/null")) << "no terminal";
    line.fail({"TIOCMSET"});
    EXPECT_FALSE(make(line.path() + ":9600:rs485"));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Posix_threaded_serial_data_stream_test, stays_open_when_the_driver_cannot_be_selected) {
    line.fail({"TIOCMGET"});
    Stream stream;
    EXPECT_FALSE(stream.open((line.path() + ":19200:rs232").c_str()));
    EXPECT_GE(stream.get_fd(), 0);
    EXPECT_EQ(stream.get_baudRate(), 19200);
    line.terminal().send("x");
    EXPECT_TRUE(eventually([&] { return stream.bytes_avail() == 1; }));
}

TEST_F(Posix_threaded_serial_data_stream_test, opens_a_device_by_default_non_blocking_and_raw) {
    Stream stream;
    ASSERT_TRUE(stream.open_default(line.path().c_str()));
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(line.take_calls(), (Calls{"tcgetattr", "tcsetattr"}));
    EXPECT_EQ(fcntl(stream.get_fd(), F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
    line.terminal().send("x");
    EXPECT_TRUE(eventually([&] { return stream.bytes_avail() == 1; }));
}

TEST_F(Posix_threaded_serial_data_stream_test, opening_replaces_the_line_that_was_open) {
    Pty_pair other;
    const auto stream = make(line.path() + ":57600");
    ASSERT_TRUE(stream);
    const int before = open_descriptors();
    ASSERT_TRUE(stream->open((other.path() + ":1200").c_str()));
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(stream->get_baudRate(), 1200);
    other.send("other");
    EXPECT_TRUE(eventually([&] { return stream->bytes_avail() == 5; }));
}

TEST_F(Posix_threaded_serial_data_stream_test, opening_that_fails_leaves_it_closed_and_without_settings) {
    const auto stream = make(line.path());
    ASSERT_TRUE(stream);
    EXPECT_FALSE(stream->open("/dev/none"));
    EXPECT_EQ(stream->get_fd(), -1);
    ASSERT_TRUE(stream->Posix_threaded_data_stream::open(line.path().c_str(), false, false, false));
    EXPECT_FALSE(stream->set_baud_rate(9600)) << "settings of an earlier line";
}

TEST_F(Posix_threaded_serial_data_stream_test, descriptor_is_the_reading_one_else_the_writing_one) {
    Stream stream;
    ASSERT_TRUE(stream.open_write(line.path().c_str(), false, false, false));
    EXPECT_EQ(stream.get_fd(), stream.get_write_fd());
    EXPECT_GE(stream.get_fd(), 0);
    ASSERT_TRUE(stream.open_read(line.path().c_str(), false));
    EXPECT_NE(stream.get_read_fd(), stream.get_write_fd());
    EXPECT_EQ(stream.get_fd(), stream.get_read_fd());
    EXPECT_TRUE(stream.init()) << "one descriptor is enough";
}

TEST_F(Posix_threaded_serial_data_stream_test, closing_releases_the_device_although_the_thread_waits_for_it) {
    for (int round = 0; round < 10; ++round) { // in most of them it is waiting already
        Pty_pair terminal;
        const auto stream = make(terminal.path());
        ASSERT_TRUE(stream);
        terminal.send("x");
        ASSERT_TRUE(eventually([&] { return stream->bytes_avail() == 1; }));
        terminal.close_slave();
        EXPECT_FALSE(terminal.near_end_is_gone());
        ASSERT_TRUE(stream->close());
        ASSERT_TRUE(eventually([&] { return terminal.near_end_is_gone(); }));
    }
}

TEST_F(Posix_threaded_serial_data_stream_test, closing_forgets_the_settings) {
    const auto stream = make(line.path());
    ASSERT_TRUE(stream);
    const int fd = stream->get_fd();
    EXPECT_TRUE(stream->close());
    EXPECT_FALSE(is_open(fd));
    EXPECT_EQ(stream->get_fd(), -1);
    EXPECT_EQ(stream->get_description(), name_of(*stream));
    EXPECT_FALSE(stream->set_baud_rate(9600));
    EXPECT_FALSE(stream->close());
    EXPECT_EQ(write_bytes(*stream, "x"), -1);
    ASSERT_TRUE(stream->Posix_threaded_data_stream::open(line.path().c_str(), false, false, false));
    EXPECT_FALSE(stream->set_baud_rate(9600)) << "settings of an earlier line";
    ASSERT_TRUE(stream->open(line.path().c_str()));
    line.terminal().send("x");
    EXPECT_TRUE(eventually([&] { return stream->bytes_avail() == 1; })) << "the thread still runs";
}

TEST_F(Posix_threaded_serial_data_stream_test, closing_a_pair_of_descriptors_closes_nothing_and_keeps_the_settings) {
    Stream stream;
    ASSERT_TRUE(stream.open_write(line.path().c_str(), false, false, false));
    ASSERT_TRUE(stream.open_read(line.path().c_str(), false));
    ASSERT_TRUE(stream.init());
    EXPECT_FALSE(stream.close());
    EXPECT_TRUE(stream.set_baud_rate(9600));
}

TEST_F(Posix_threaded_serial_data_stream_test, initialising_gives_it_an_id_and_makes_the_line_raw_again) {
    module_man modules;
    Recording_waiter waiter;
    const auto stream = make(line.path() + ":57600");
    ASSERT_TRUE(stream);
    stream->reg_rx_waiter(waiter, false);
    make_cooked();
    stream->init(modules);
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(stream->get_baudRate(), 57600);
    line.terminal().send("x");
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(waiter.sources().front(), 1);
    stream->dereg_rx_waiter();
}

TEST_F(Posix_threaded_serial_data_stream_test, pausing_stops_the_thread_and_resuming_makes_the_line_raw_again) {
    const auto stream = make(line.path());
    ASSERT_TRUE(stream);
    EXPECT_TRUE(stream->pause());
    // The pause may not have begun: the thread may still read.
    ASSERT_TRUE(eventually([&] {
        const unsigned before = stream->bytes_avail();
        line.terminal().send("x");
        return !eventually([&] { return stream->bytes_avail() > before; }, std::chrono::milliseconds(50));
    }));
    make_cooked();
    line.take_calls();
    const unsigned before = stream->bytes_avail();
    stream->resume();
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(line.take_calls(), (Calls{"tcgetattr", "tcsetattr"}));
    EXPECT_TRUE(eventually([&] { return stream->bytes_avail() > before; }));
}

} // namespace
