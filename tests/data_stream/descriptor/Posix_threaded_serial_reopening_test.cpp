// A line that disappears and returns.

#include <glue/data_stream/Posix_threaded_serial_data_stream.h>
#include <glue/data_stream/port_logging.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/terminals/Pty_pair.h>

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Stream = Posix_threaded_serial_data_stream;

const std::string reopening = "reopen here!\n";

std::size_t count_of(const std::string& part, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

/// A path that always is the current line, as the device node of an adapter that is unplugged and plugged in again.
class Socket_for_lines {
  public:
    const std::string& path() const { return path_; }
    Pty_pair& line() { return *line_; }

    /// Plugs in a new line; replaces one that is plugged in.
    void plug_in() {
        auto next = std::make_unique<Pty_pair>();
        const std::string other = folder_.path("next");
        std::filesystem::create_symlink(next->path(), other);
        std::filesystem::rename(other, path_);
        line_ = std::move(next);
    }
    void pull_out() {
        std::filesystem::remove(path_);
        line_.reset();
    }

  private:
    Temporary_folder folder_;
    std::string path_ = folder_.path("line");
    std::unique_ptr<Pty_pair> line_;
};

struct Posix_threaded_serial_reopening : testing::Test {
    Socket_for_lines socket;

    Posix_threaded_serial_reopening() { socket.plug_in(); }

    std::unique_ptr<Stream> make(const std::string& spec) {
        std::unique_ptr<Stream> stream(Stream::create(spec.c_str()));
        EXPECT_TRUE(stream);
        return stream;
    }
    static bool is_closed(const Stream& stream) { return stream.get_fd() < 0; }
    /// Expects bytes to pass both ways.
    void expect_works(Stream& stream) {
        socket.line().send("in");
        EXPECT_TRUE(eventually([&] { return stream.bytes_avail() >= 2; }));
        EXPECT_EQ(take_buffered(stream), "in");
        EXPECT_EQ(write_bytes(stream, "out"), 3);
        EXPECT_EQ(socket.line().receive(3), "out");
    }
};

// ---- On request ----

TEST_F(Posix_threaded_serial_reopening, without_a_specification_string_does_nothing) {
    Stream stream;
    ASSERT_TRUE(stream.open_default(socket.path().c_str()));
    const int fd = stream.get_fd();
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_FALSE(stream.reopen());
    EXPECT_EQ(stream.get_fd(), fd);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_serial_reopening, opens_by_the_last_specification_string_and_reports_it) {
    Stream stream;
    ASSERT_TRUE(stream.open((socket.path() + ":1200").c_str()));
    ASSERT_TRUE(stream.set_baud_rate(57600));
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_TRUE(stream.reopen());
    EXPECT_EQ(errors.text(), reopening);
    EXPECT_EQ(stream.get_baudRate(), 1200);
    ASSERT_TRUE(stream.close());
    EXPECT_TRUE(stream.reopen()) << "also after closing";
    expect_works(stream);
}

TEST_F(Posix_threaded_serial_reopening, of_a_created_stream_uses_its_specification_string) {
    const auto stream = make(socket.path() + ":2400");
    EXPECT_TRUE(stream->reopen());
    EXPECT_EQ(stream->get_baudRate(), 2400);
}

TEST_F(Posix_threaded_serial_reopening, keeps_a_specification_string_that_failed_to_open) {
    Stream stream;
    socket.pull_out();
    ASSERT_FALSE(stream.open((socket.path() + ":2400").c_str()));
    socket.plug_in();
    EXPECT_TRUE(stream.reopen());
    EXPECT_EQ(stream.get_baudRate(), 2400);
}

TEST_F(Posix_threaded_serial_reopening, uses_the_first_63_characters) {
    Temporary_folder folder;
    Pty_pair whole;
    Pty_pair cut;
    ASSERT_LT(folder.path("").size(), 60U);
    const std::string name(60 - folder.path("").size(), 'x');
    const std::string short_path = folder.path(name); // 60 characters, followed by ":30"
    std::filesystem::create_symlink(cut.path(), short_path);
    Stream stream;
    ASSERT_TRUE(stream.open((short_path + ":3000").c_str()));
    EXPECT_EQ(stream.get_baudRate(), 4800);
    ASSERT_TRUE(stream.reopen());
    EXPECT_EQ(stream.get_baudRate(), 300);

    const std::string long_path = folder.path(name + "yyyy"); // cut to three y
    std::filesystem::create_symlink(whole.path(), long_path);
    std::filesystem::create_symlink(cut.path(), folder.path(name + "yyy"));
    ASSERT_TRUE(stream.open((long_path + ":115200").c_str()));
    EXPECT_EQ(write_bytes(stream, "w"), 1);
    EXPECT_EQ(whole.receive(1), "w");
    ASSERT_TRUE(stream.reopen());
    EXPECT_EQ(stream.get_baudRate(), 9600);
    EXPECT_EQ(write_bytes(stream, "c"), 1);
    EXPECT_EQ(cut.receive(1), "c");
}

// ---- By itself ----

TEST_F(Posix_threaded_serial_reopening, happens_at_once_when_the_line_ends_and_another_is_there) {
    const auto stream = make(socket.path() + ":2400");
    const Captured_descriptor errors(STDERR_FILENO);
    socket.plug_in();
    // Some systems also report a read error.
    ASSERT_TRUE(eventually([&] { return count_of(reopening, errors.text()) == 1 && stream->get_baudRate() == 2400; }));
    expect_works(*stream);
    EXPECT_EQ(count_of(reopening, errors.text()), 1U);
    EXPECT_EQ(count_of("Error opening", errors.text()), 0U);
}

TEST_F(Posix_threaded_serial_reopening, follows_end_of_file_but_not_twice_within_a_second) {
    const auto stream = make(socket.path() + ":2400");
    ASSERT_TRUE(stream->set_baud_rate(300));
    const Captured_descriptor errors(STDERR_FILENO);
    const Stopwatch time;
    stream->handle_close();
    EXPECT_EQ(stream->get_baudRate(), 2400);
    EXPECT_EQ(errors.text(), reopening);
    stream->handle_close();
    const bool waits = is_closed(*stream);
    EXPECT_TRUE(waits || time.elapsed() > 900ms);
    EXPECT_EQ(errors.text(), reopening + reopening);
    ASSERT_TRUE(eventually([&] { return stream->get_baudRate() == 2400; }));
    EXPECT_GT(time.elapsed(), 900ms);
    EXPECT_EQ(errors.text(), reopening + reopening) << "reported at end of file, not at each attempt";
    expect_works(*stream);
}

TEST_F(Posix_threaded_serial_reopening, is_tried_until_the_line_is_back_and_reported_once) {
    const auto stream = make(socket.path() + ":2400");
    const Captured_descriptor errors(STDERR_FILENO);
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream) && count_of("Error opening", errors.text()) == 1; }));
    EXPECT_EQ(write_bytes(*stream, "lost"), -1);
    EXPECT_FALSE(stream->set_baud_rate(9600));
    // Longer than the time between two attempts.
    EXPECT_FALSE(eventually([&] { return !is_closed(*stream); }, 1200ms));
    socket.plug_in();
    ASSERT_TRUE(eventually([&] { return stream->get_baudRate() == 2400; }));
    expect_works(*stream);
    EXPECT_EQ(count_of(reopening, errors.text()), 1U) << errors.text();
    EXPECT_EQ(count_of("Error opening", errors.text()), 1U) << errors.text();
    EXPECT_FALSE(stream->open("/dev/none"));
    EXPECT_EQ(count_of("Error opening '/dev/none'", errors.text()), 1U) << "the owner's failure is reported";
}

TEST_F(Posix_threaded_serial_reopening, sends_the_bytes_of_the_transmit_ring_afterwards) {
    const auto stream = make(socket.path());
    stream->set_write_buffering(true);
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
    EXPECT_EQ(write_bytes(*stream, "later"), 0);
    socket.plug_in();
    EXPECT_EQ(socket.line().receive(5), "later");
}

TEST_F(Posix_threaded_serial_reopening, keeps_what_was_received_before) {
    const auto stream = make(socket.path());
    socket.line().send("before");
    ASSERT_TRUE(eventually([&] { return stream->bytes_avail() == 6; }));
    const Captured_descriptor errors(STDERR_FILENO);
    socket.plug_in();
    ASSERT_TRUE(eventually([&] { return count_of(reopening, errors.text()) == 1; }));
    socket.line().send(" after");
    ASSERT_TRUE(eventually([&] { return stream->bytes_avail() == 12; }));
    EXPECT_EQ(take_buffered(*stream), "before after");
}

TEST_F(Posix_threaded_serial_reopening, does_not_happen_on_a_line_that_was_opened_without_a_specification_string) {
    Stream stream;
    ASSERT_TRUE(stream.open_default(socket.path().c_str()));
    const Captured_descriptor errors(STDERR_FILENO);
    socket.plug_in();
    ASSERT_TRUE(eventually([&] { return is_closed(stream); }));
    EXPECT_TRUE(process_rests());
    EXPECT_TRUE(is_closed(stream));
    EXPECT_EQ(count_of(reopening, errors.text()), 0U);
}

TEST_F(Posix_threaded_serial_reopening, ends_when_the_owner_closes) {
    const auto stream = make(socket.path());
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
    EXPECT_FALSE(stream->close()) << "no line is open";
    socket.plug_in();
    EXPECT_FALSE(eventually([&] { return !is_closed(*stream); }, 1300ms));
}

TEST_F(Posix_threaded_serial_reopening, ends_when_the_owner_opens_another_line) {
    const auto stream = make(socket.path() + ":2400");
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
    Pty_pair other;
    ASSERT_TRUE(stream->open_default(other.path().c_str()));
    const int fd = stream->get_fd();
    socket.plug_in();
    EXPECT_FALSE(eventually([&] { return stream->get_fd() != fd || stream->get_baudRate() == 2400; }, 1300ms));
}

TEST_F(Posix_threaded_serial_reopening, ends_when_the_owner_replaces_the_specification_string) {
    const auto stream = make(socket.path());
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
    EXPECT_FALSE(stream->open((socket.path() + ":2400").c_str())); // and the new one is not tried again
    socket.plug_in();
    EXPECT_FALSE(eventually([&] { return !is_closed(*stream); }, 1300ms));
}

TEST_F(Posix_threaded_serial_reopening, does_not_follow_end_of_file_on_a_closed_stream) {
    const auto stream = make(socket.path());
    ASSERT_TRUE(stream->close());
    const Captured_descriptor errors(STDERR_FILENO);
    stream->handle_close();
    EXPECT_TRUE(is_closed(*stream));
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_serial_reopening, happens_once_a_second_at_most) {
    // At end of file as soon as it is open. It is no terminal, so opening returns false, but it is open.
    Stream stream;
    const Captured_descriptor errors(STDERR_FILENO);
    const Stopwatch time;
    ASSERT_FALSE(stream.open("/dev/null"));
    // The first at once, the second a second after it.
    ASSERT_TRUE(eventually([&] { return count_of(reopening, errors.text()) > 2; }));
    EXPECT_GT(time.elapsed(), 900ms);
    EXPECT_TRUE(process_rests());
}

TEST_F(Posix_threaded_serial_reopening, uses_no_processor_time_while_it_waits) {
    const auto stream = make(socket.path());
    stream->set_write_buffering(true);
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
    write_bytes(*stream, "waits");
    EXPECT_TRUE(process_rests());
}

// ---- Owner and reader thread at once ----

TEST_F(Posix_threaded_serial_reopening, destroying_a_stream_that_tries_is_prompt) {
    const int before = open_descriptors();
    {
        Socket_for_lines another;
        another.plug_in();
        auto stream = make(another.path());
        another.pull_out();
        ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
        const Stopwatch time;
        stream.reset();
        EXPECT_LT(time.elapsed(), 900ms); // less than the time between two attempts
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Posix_threaded_serial_reopening, closing_a_stream_that_tries_is_prompt) {
    const auto stream = make(socket.path());
    socket.pull_out();
    ASSERT_TRUE(eventually([&] { return is_closed(*stream); }));
    const Stopwatch time;
    stream->close();
    EXPECT_LT(time.elapsed(), 900ms);
}

TEST_F(Posix_threaded_serial_reopening, closing_wins_over_a_line_that_ends_at_the_same_time) {
    const Captured_descriptor errors(STDERR_FILENO);
    for (int round = 0; round < 100; ++round) {
        const auto stream = make(socket.path());
        const int before = open_descriptors();
        std::thread owner([&] { stream->close(); });
        socket.plug_in(); // ends the line, and another is there
        owner.join();
        EXPECT_TRUE(is_closed(*stream));
        EXPECT_FALSE(stream->set_baud_rate(300));
        EXPECT_EQ(open_descriptors(), before - 1) << "in round " << round;
        ASSERT_TRUE(stream->open(socket.path().c_str()));
        expect_works(*stream);
    }
}

TEST_F(Posix_threaded_serial_reopening, settings_may_be_changed_at_the_same_time) {
    const Captured_descriptor errors(STDERR_FILENO);
    const auto stream = make(socket.path() + ":2400");
    std::atomic<bool> done{false};
    std::thread owner([&] {
        while (!done) {
            stream->set_baud_rate(57600);
            stream->set_handshake(Posix_serial_port::handshake_xon_xoff);
            stream->init();
            stream->get_baudRate();
            Posix_serial_port::Status status;
            stream->get_status(status);
            stream->restore();
            stream->deinit();
            std::this_thread::yield();
        }
    });
    for (std::size_t round = 1; round <= 2; ++round) {
        socket.plug_in();
        EXPECT_TRUE(eventually([&] { return count_of(reopening, errors.text()) == round && !is_closed(*stream); }));
    }
    done = true;
    owner.join();
    expect_works(*stream);
}

TEST_F(Posix_threaded_serial_reopening, by_the_owner_is_possible_while_bytes_arrive) {
    const auto stream = make(socket.path());
    const Captured_descriptor errors(STDERR_FILENO);
    for (int round = 0; round < 1000; ++round) { // in most of them the thread is waiting for the line
        socket.line().send("xxxxx");
        EXPECT_TRUE(stream->open(socket.path().c_str()));
        stream->drop_all();
    }
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_serial_reopening, renames_a_stream_that_another_thread_logs) {
    const Captured_descriptor errors(STDERR_FILENO);
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    const auto stream = make(socket.path());
    stream->set_port_logging(Data_stream::log_writes);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        while (!done) {
            write_bytes(*stream, "x");
            std::this_thread::yield();
        }
    });
    for (std::size_t round = 1; round <= 2; ++round) {
        socket.plug_in();
        EXPECT_TRUE(eventually([&] { return count_of(reopening, errors.text()) == round && !is_closed(*stream); }));
    }
    done = true;
    writer.join();
    Debug::Print::enable(port_logging_category, false);
    const std::string text = debug.text();
    EXPECT_GT(count_of("[WRPRE](1): x\n", text), 0U);
    EXPECT_EQ(count_of("[WRPRE](1): x\n", text), count_of("DSPosTSer(0x", text) - count_of("[WR](1): x\n", text));
}

TEST_F(Posix_threaded_serial_reopening, writing_continues_at_the_same_time) {
    const Captured_descriptor errors(STDERR_FILENO);
    const auto stream = make(socket.path());
    for (const bool buffering : {false, true}) {
        stream->set_write_buffering(buffering);
        std::atomic<bool> done{false};
        std::thread writer([&] {
            while (!done) {
                write_bytes(*stream, "x");
                std::this_thread::yield();
            }
        });
        const std::size_t before = count_of(reopening, errors.text());
        socket.plug_in();
        EXPECT_TRUE(eventually([&] { return count_of(reopening, errors.text()) > before && !is_closed(*stream); }));
        socket.line().receive(1);
        stream->close();
        EXPECT_TRUE(is_closed(*stream));
        EXPECT_TRUE(stream->open(socket.path().c_str()));
        done = true;
        writer.join();
    }
}

TEST_F(Posix_threaded_serial_reopening, destroying_while_the_line_ends_leaves_no_descriptor) {
    const Captured_descriptor errors(STDERR_FILENO);
    const int before = open_descriptors();
    for (int round = 0; round < 200; ++round) {
        auto stream = make(socket.path());
        socket.plug_in();
        stream.reset();
        ASSERT_EQ(open_descriptors(), before);
    }
}

} // namespace
