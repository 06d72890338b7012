// Writing with and without the transmit ring, packets, commands under congestion, and the logging of the port. Which
// commands wait: Posix_threaded_data_stream_congestion_test.cpp.

#include <glue/data_stream/port_logging.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/descriptors.h>
#include <support/streams/Threaded_stream.h>

#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using Codes = std::vector<int>;

constexpr unsigned ring_size = Posix_threaded_data_stream::tx_capacity;
constexpr unsigned send_size = 1024;

int write_as(Posix_threaded_data_stream& stream, const std::string& bytes, bool packet) {
    return stream._write(bytes_of(bytes), static_cast<unsigned>(bytes.size()), packet);
}

int write_packet(Posix_threaded_data_stream& stream, const std::string& bytes) {
    return stream.write_packet(bytes_of(bytes), static_cast<unsigned>(bytes.size()));
}

bool write_tarve(Posix_threaded_data_stream& stream, const std::string& bytes) {
    return stream.write_tarve(bytes_of(bytes), static_cast<unsigned>(bytes.size()));
}

/// A stream that writes to a small pipe. Its thread does not run, so queued bytes stay queued.
struct Posix_threaded_data_stream_writing : testing::Test {
    const Captured_descriptor errors{STDERR_FILENO};
    Pipe pipe;
    const unsigned pipe_size = static_cast<unsigned>(pipe.shrink());
    Threaded_stream stream{-1, pipe.take_writing()};
    Recording_waiter waiter;

    Posix_threaded_data_stream_writing() {
        make_non_blocking(stream.get_write_fd());
        stream.set_write_buffering(true);
        stream.reg_tx_waiter(waiter, false);
    }
    ~Posix_threaded_data_stream_writing() override { stream.stop(); }

    /// The descriptor accepts nothing more until the test reads.
    void fill_pipe() { ASSERT_EQ(write_bytes(stream, std::string(pipe_size, '.')), static_cast<int>(pipe_size)); }
    /// Whether the transmit ring holds these bytes and no others.
    bool has_queued(const std::string& expected) {
        pipe.drain();
        stream.start();
        std::string sent;
        const auto receives = [&](std::size_t count) {
            return eventually([&] { return (sent += pipe.drain()).size() >= count; });
        };
        const bool complete = receives(expected.size());
        write_bytes(stream, "|"); // is queued after all other bytes
        return complete && receives(expected.size() + 1) && sent == expected + "|";
    }
};

// ---- Without buffering ----

TEST_F(Posix_threaded_data_stream_writing, without_buffering_returns_what_the_plain_stream_returns) {
    stream.set_write_buffering(false);
    EXPECT_EQ(write_bytes(stream, "abc"), 3);
    EXPECT_EQ(write_packet(stream, "def"), 3);
    EXPECT_TRUE(write_tarve(stream, "ghi"));
    EXPECT_EQ(pipe.drain(), "abcdefghi");
    fill_pipe();
    EXPECT_EQ(write_bytes(stream, "abc"), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(write_tarve(stream, "abc"));
    Threaded_stream closed;
    EXPECT_EQ(write_bytes(closed, "abc"), -1);
}

TEST_F(Posix_threaded_data_stream_writing, buffering_is_off_at_first) {
    Threaded_stream fresh(-1, dup(stream.get_write_fd()));
    fill_pipe();
    EXPECT_EQ(write_bytes(fresh, "abc"), -1);
}

TEST_F(Posix_threaded_data_stream_writing, without_buffering_the_write_timeout_is_in_force) {
    stream.set_write_buffering(false);
    stream.set_write_timeout(20);
    const Stopwatch watch;
    EXPECT_EQ(write_bytes(stream, numbered(pipe_size + 100)), static_cast<int>(pipe_size));
    EXPECT_GT(watch.elapsed(), milliseconds(18)); // its clock counts whole milliseconds
}

// ---- With buffering ----

TEST_F(Posix_threaded_data_stream_writing, what_the_descriptor_accepts_is_written_at_once) {
    EXPECT_EQ(write_bytes(stream, "abc"), 3);
    EXPECT_EQ(pipe.drain(), "abc");
}

TEST_F(Posix_threaded_data_stream_writing, what_it_does_not_accept_is_queued_and_not_counted) {
    const std::string bytes = numbered(pipe_size + 1000);
    EXPECT_EQ(write_bytes(stream, bytes), static_cast<int>(pipe_size));
    EXPECT_EQ(write_bytes(stream, "behind"), 0);
    EXPECT_EQ(pipe.drain(), bytes.substr(0, pipe_size));
    EXPECT_TRUE(has_queued(bytes.substr(pipe_size) + "behind"));
}

TEST_F(Posix_threaded_data_stream_writing, nothing_overtakes_queued_bytes) {
    fill_pipe();
    EXPECT_EQ(write_bytes(stream, "first"), 0);
    pipe.drain();
    EXPECT_EQ(write_bytes(stream, "second"), 0); // although the descriptor would accept it now
    EXPECT_TRUE(has_queued("firstsecond"));
}

TEST_F(Posix_threaded_data_stream_writing, what_does_not_fit_the_transmit_ring_is_lost) {
    fill_pipe();
    const std::string bytes = numbered(ring_size + 50);
    EXPECT_EQ(write_bytes(stream, bytes), 0);
    EXPECT_EQ(write_bytes(stream, "more"), 0);
    EXPECT_TRUE(has_queued(bytes.substr(0, ring_size)));
}

TEST_F(Posix_threaded_data_stream_writing, a_closed_stream_queues_until_it_has_a_descriptor) {
    Threaded_stream closed;
    closed.set_write_buffering(true);
    closed.start();
    EXPECT_EQ(write_bytes(closed, "abc"), 0);
    closed.use(-1, dup(stream.get_write_fd()));
    closed.wake();
    EXPECT_EQ(read_exactly(pipe.reading(), 3), "abc");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_writing, a_running_thread_sends_queued_bytes_while_the_peer_reads) {
    stream.start();
    const std::string bytes = numbered(pipe_size + ring_size);
    EXPECT_EQ(write_bytes(stream, bytes), static_cast<int>(pipe_size));
    EXPECT_EQ(read_exactly(pipe.reading(), bytes.size()), bytes);
}

TEST_F(Posix_threaded_data_stream_writing, an_event_reports_free_space_in_a_ring_that_was_full) {
    fill_pipe();
    write_bytes(stream, numbered(ring_size));
    stream.start();
    read_exactly(pipe.reading(), pipe_size + ring_size);
    ASSERT_TRUE(waiter.wait_for(1));
    stream.stop();
    EXPECT_EQ(waiter.codes(), Codes{3});
}

TEST_F(Posix_threaded_data_stream_writing, free_space_is_reported_under_the_lock_of_the_stream) {
    fill_pipe();
    write_bytes(stream, numbered(ring_size));
    stream.lock(); // a waiter that deregistered under it is no longer notified
    stream.start();
    read_exactly(pipe.reading(), pipe_size + 1); // the thread has sent bytes
    EXPECT_FALSE(eventually([&] { return !waiter.codes().empty(); }, milliseconds(50)));
    stream.unlock();
    EXPECT_TRUE(waiter.wait_for(1));
}

TEST_F(Posix_threaded_data_stream_writing, free_space_in_a_ring_that_was_not_full_is_not_reported) {
    fill_pipe();
    write_bytes(stream, numbered(ring_size - 1));
    stream.start();
    read_exactly(pipe.reading(), pipe_size + ring_size - 1);
    stream.stop();
    EXPECT_EQ(waiter.codes(), Codes{});
}

TEST_F(Posix_threaded_data_stream_writing, without_buffering_queued_bytes_stay_until_it_is_on_again) {
    stream.start();
    fill_pipe();
    stream.set_write_buffering(false);
    stream.stop();
    stream.set_write_buffering(true);
    write_bytes(stream, "queued");
    stream.set_write_buffering(false);
    stream.start();
    pipe.drain();
    EXPECT_EQ(write_bytes(stream, "now"), 3);
    EXPECT_EQ(read_exactly(pipe.reading(), 3), "now");
    EXPECT_EQ(bytes_ready(pipe.reading()), 0);
    stream.set_write_buffering(true);
    EXPECT_EQ(read_exactly(pipe.reading(), 6), "queued");
}

TEST_F(Posix_threaded_data_stream_writing, a_full_descriptor_lets_the_thread_wait) {
    stream.start();
    write_bytes(stream, numbered(pipe_size + ring_size));
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_writing, a_peer_that_is_gone_is_reported_once_and_survived) {
    const Signal_disposition deadly(SIGPIPE, SIG_DFL);
    fill_pipe();
    write_bytes(stream, "lost");
    pipe.close_reading();
    stream.start();
    ASSERT_TRUE(eventually([&] { return !errors.text().empty(); }));
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(errors.text(), "ptds write: Broken pipe\n");

    Pipe next; // the next peer gets the queued bytes
    const int broken = stream.get_write_fd();
    stream.use(-1, next.take_writing());
    stream.wake();
    EXPECT_EQ(read_exactly(next.reading(), 4), "lost");
    close(broken);
}

/// A write of queued bytes fails once with this error.
struct Posix_threaded_data_stream_failing_write : Posix_threaded_data_stream_writing {
    void fail_once(int error) {
        fill_pipe();
        write_bytes(stream, "queued");
        pipe.drain();
        Replaced_calls calls;
        std::atomic<int> writes{0};
        calls.write = [&, fd = stream.get_write_fd()](int asked) -> std::optional<ssize_t> {
            if (asked != fd || ++writes > 1)
                return std::nullopt;
            errno = error;
            return -1;
        };
        stream.start();
        EXPECT_EQ(read_exactly(pipe.reading(), 6), "queued"); // although nothing wakes the thread
        stream.stop();
    }
};

TEST_F(Posix_threaded_data_stream_failing_write, is_not_reported_when_the_descriptor_was_only_not_ready) {
    fail_once(EAGAIN);
    fail_once(EINTR);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_failing_write, is_reported_and_tried_again) {
    fail_once(EIO);
    EXPECT_EQ(errors.text(), "ptds write: Input/output error\n");
}

TEST_F(Posix_threaded_data_stream_failing_write, that_follows_a_successful_one_is_reported_again) {
    fill_pipe();
    write_bytes(stream, numbered(send_size + 1)); // sent in two pieces
    pipe.drain();
    Replaced_calls calls;
    std::atomic<int> writes{0};
    calls.write = [&, fd = stream.get_write_fd()](int asked) -> std::optional<ssize_t> {
        if (asked != fd || ++writes % 2 == 0)
            return std::nullopt;
        errno = EIO;
        return -1;
    };
    stream.start();
    EXPECT_EQ(read_exactly(pipe.reading(), send_size + 1), numbered(send_size + 1));
    stream.stop();
    EXPECT_EQ(errors.text(), "ptds write: Input/output error\nptds write: Input/output error\n");
}

// ---- Packets ----

TEST_F(Posix_threaded_data_stream_writing, a_packet_that_is_written_at_once_is_counted) {
    EXPECT_EQ(write_packet(stream, "abc"), 3);
    EXPECT_EQ(pipe.drain(), "abc");
}

TEST_F(Posix_threaded_data_stream_writing, a_packet_larger_than_the_ring_is_dropped_whole) {
    fill_pipe();
    EXPECT_EQ(write_packet(stream, numbered(5000)), 0);
    EXPECT_EQ(write_packet(stream, numbered(ring_size + 1)), 0);
    EXPECT_TRUE(has_queued(""));
}

TEST_F(Posix_threaded_data_stream_writing, a_packet_as_large_as_the_free_space_is_queued) {
    fill_pipe();
    const std::string bytes = numbered(ring_size);
    EXPECT_EQ(write_packet(stream, bytes.substr(0, 200)), 0);
    EXPECT_EQ(write_packet(stream, bytes.substr(200)), 0);
    EXPECT_TRUE(has_queued(bytes));
}

TEST_F(Posix_threaded_data_stream_writing, a_packet_larger_than_the_free_space_leaves_the_ring_unchanged) {
    fill_pipe();
    const std::string bytes = numbered(200);
    write_packet(stream, bytes);
    EXPECT_EQ(write_packet(stream, numbered(ring_size - 199)), 0);
    EXPECT_TRUE(has_queued(bytes));
}

TEST_F(Posix_threaded_data_stream_writing,
       a_packet_whose_rest_does_not_fit_counts_as_dropped_though_its_start_is_written) {
    const std::string bytes = numbered(pipe_size + ring_size + 1);
    EXPECT_EQ(write_packet(stream, bytes), 0);
    EXPECT_EQ(pipe.drain(), bytes.substr(0, pipe_size));
    EXPECT_TRUE(has_queued(""));
}

TEST_F(Posix_threaded_data_stream_writing, a_packet_whose_rest_fits_counts_what_is_written) {
    const std::string bytes = numbered(pipe_size + ring_size);
    EXPECT_EQ(write_packet(stream, bytes), static_cast<int>(pipe_size));
    EXPECT_EQ(pipe.drain(), bytes.substr(0, pipe_size));
    EXPECT_TRUE(has_queued(bytes.substr(pipe_size)));
}

TEST_F(Posix_threaded_data_stream_writing, bytes_written_as_a_packet_are_queued_whole_or_not_at_all) {
    fill_pipe();
    EXPECT_EQ(write_as(stream, numbered(ring_size + 1), true), 0);
    EXPECT_TRUE(has_queued(""));
}

TEST_F(Posix_threaded_data_stream_writing, bytes_not_written_as_a_packet_are_queued_as_far_as_they_fit) {
    fill_pipe();
    EXPECT_EQ(write_as(stream, numbered(ring_size + 1), false), 0);
    EXPECT_TRUE(has_queued(numbered(ring_size)));
}

// ---- Commands under congestion ----

struct Posix_threaded_data_stream_commands : Posix_threaded_data_stream_writing {
    Captured_debug debug;
    Replaced_delays delays;

    ~Posix_threaded_data_stream_commands() override { stream.stop(); }

    static std::string report(int polls) {
        return "Delayed writing TARVE message due to congestion.  Delay = ~" + std::to_string(polls) + "ms\n";
    }
};

TEST_F(Posix_threaded_data_stream_commands, are_written_at_once_when_the_descriptor_accepts_them) {
    EXPECT_TRUE(write_tarve(stream, "PG003abc\r\n"));
    EXPECT_EQ(pipe.drain(), "PG003abc\r\n");
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Posix_threaded_data_stream_commands, that_can_be_dropped_are_dropped_under_congestion) {
    fill_pipe();
    EXPECT_FALSE(write_tarve(stream, "PG003abc\r\n"));
    EXPECT_FALSE(write_tarve(stream, "$GPGGA,1*00\r\n"));
    EXPECT_EQ(delays.count, 0);
    EXPECT_EQ(debug.text(), "");
    EXPECT_TRUE(has_queued(""));
}

TEST_F(Posix_threaded_data_stream_commands, that_wait_are_queued_and_reported_even_when_they_fit) {
    fill_pipe();
    EXPECT_FALSE(write_tarve(stream, "RE003abc\r\n")); // nothing was written at once
    EXPECT_EQ(delays.count, 0);
    EXPECT_EQ(debug.text(), report(0));
    EXPECT_TRUE(has_queued("RE003abc\r\n"));
}

TEST_F(Posix_threaded_data_stream_commands, that_wait_are_sent_by_an_idle_thread) {
    fill_pipe();
    stream.start();
    EXPECT_TRUE(eventually([&] { return stream.flushes == 1; }));
    EXPECT_TRUE(process_rests()); // it waits
    write_tarve(stream, "RE003abc\r\n");
    EXPECT_EQ(read_exactly(pipe.reading(), pipe_size + 10).substr(pipe_size), "RE003abc\r\n");
}

TEST_F(Posix_threaded_data_stream_commands, that_just_fit_are_not_delayed) {
    fill_pipe();
    write_bytes(stream, std::string(ring_size - 8, '.'));
    EXPECT_FALSE(write_tarve(stream, "RE003abc"));
    EXPECT_EQ(debug.text(), report(0));
}

TEST_F(Posix_threaded_data_stream_commands, wait_for_free_space_a_millisecond_at_a_time_without_a_lock) {
    fill_pipe();
    write_bytes(stream, std::string(ring_size - 5, '.'));
    delays.meanwhile = [&](std::size_t) {
        if (delays.count == 7) {
            pipe.drain();
            stream.start();
            EXPECT_TRUE(eventually([&] { return bytes_ready(pipe.reading()) > 0; }));
            stream.stop();
        }
    };
    EXPECT_FALSE(write_tarve(stream, "RE003abc"));
    EXPECT_EQ(delays.milliseconds, 7);
    EXPECT_EQ(debug.text(), report(7));
    stream.start();
    EXPECT_EQ(read_exactly(pipe.reading(), ring_size - 5 + 8).substr(ring_size - 5), "RE003abc");
}

TEST_F(Posix_threaded_data_stream_commands, queue_what_fits_after_a_thousand_polls) {
    fill_pipe();
    write_bytes(stream, std::string(ring_size - 5, '.'));
    EXPECT_FALSE(write_tarve(stream, "RE003abc"));
    EXPECT_EQ(delays.milliseconds, 1000);
    EXPECT_EQ(debug.text(), report(1000));
    EXPECT_TRUE(has_queued(std::string(ring_size - 5, '.') + "RE003"));
}

TEST_F(Posix_threaded_data_stream_commands, that_are_partly_written_are_judged_by_their_rest) {
    const std::string sentence = "$" + numbered(pipe_size + 50); // the rest does not begin with a dollar
    EXPECT_TRUE(write_tarve(stream, sentence));
    EXPECT_EQ(pipe.drain().size(), pipe_size);
    EXPECT_TRUE(has_queued(sentence.substr(pipe_size)));
}

// ---- Logging ----

/// The tags and counts that the port logs, in order: "WR 3 WRB 5".
struct Posix_threaded_data_stream_logging : Posix_threaded_data_stream_writing {
    Captured_debug debug;
    Socket_pair sockets;

    Posix_threaded_data_stream_logging() {
        Debug::Print::enable(port_logging_category, true);
        stream.use(sockets.take_near(), stream.get_write_fd());
    }
    ~Posix_threaded_data_stream_logging() override {
        stream.stop();
        Debug::Print::enable(port_logging_category, false);
    }

    std::string logged() const {
        const std::string text = debug.text();
        static const std::regex head("\\[([A-Z]+)\\]\\((\\d+)\\): ");
        std::string result;
        for (std::sregex_iterator match(text.begin(), text.end(), head), end; match != end; ++match)
            result += (result.empty() ? "" : " ") + match->str(1) + " " + match->str(2);
        return result;
    }
    /// Drains the pipe until that has been logged.
    bool logs(const std::string& expected) {
        return eventually([&] {
            pipe.drain();
            return logged() == expected;
        });
    }
};

TEST_F(Posix_threaded_data_stream_logging, shows_the_description_the_tag_and_the_bytes) {
    stream.set_port_logging(Data_stream::log_reads);
    write_all(sockets.far(), "a\r\n");
    stream.start();
    ASSERT_TRUE(logs("RD 3"));
    EXPECT_EQ(debug.text_without_times(), "<time> " + std::string(stream.get_description()) + "[RD](3): a\\r\\n\n");
}

TEST_F(Posix_threaded_data_stream_logging, is_also_for_the_snoop_logger) {
    static std::atomic<unsigned> snooped;
    snooped = 0;
    Debug::Print::enable(port_logging_category, false);
    snoop_logger = [](const char*, unsigned int length) { snooped += length; };
    stream.set_port_logging(Data_stream::log_writes);
    write_bytes(stream, "abc");
    snoop_logger = nullptr;
    EXPECT_GT(snooped, 0U);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Posix_threaded_data_stream_logging, is_off_at_first_and_each_direction_has_its_bit) {
    stream.start();
    const auto traffic = [&] {
        write_all(sockets.far(), "abc");
        EXPECT_TRUE(eventually([&] { return stream.bytes_avail() == 3; }));
        stream.drop_all();
        write_bytes(stream, "de");
    };
    traffic();
    EXPECT_EQ(logged(), "");
    EXPECT_EQ(stream.set_port_logging(Data_stream::log_reads), 0);
    traffic();
    EXPECT_EQ(logged(), "RD 3");
    stream.set_port_logging(Data_stream::log_writes);
    traffic();
    EXPECT_EQ(logged(), "RD 3 WRPRE 2 WR 2");
    stream.set_port_logging(Data_stream::log_all);
    traffic();
    EXPECT_EQ(logged(), "RD 3 WRPRE 2 WR 2 RD 3 WRPRE 2 WR 2");
    stream.set_port_logging(Data_stream::log_none);
    traffic();
    EXPECT_EQ(logged(), "RD 3 WRPRE 2 WR 2 RD 3 WRPRE 2 WR 2");
}

TEST_F(Posix_threaded_data_stream_logging, of_an_unbuffered_write_shows_what_was_written) {
    stream.set_port_logging(Data_stream::log_writes);
    stream.set_write_buffering(false);
    write_bytes(stream, std::string(pipe_size + 9, 'x'));
    write_bytes(stream, "abc"); // fails
    write_tarve(stream, "de");  // fails
    const std::string size = std::to_string(pipe_size);
    EXPECT_EQ(logged(), "WRPRE " + std::to_string(pipe_size + 9) + " WR " + size + " WRPRE 3 WRPRE 2");
}

TEST_F(Posix_threaded_data_stream_logging, of_queued_bytes_shows_pieces_of_up_to_1024) {
    fill_pipe();
    stream.set_port_logging(Data_stream::log_writes);
    write_packet(stream, std::string(2500, 'x'));
    EXPECT_EQ(logged(), "WRPRE 2500");
    pipe.drain();
    stream.start();
    EXPECT_TRUE(logs("WRPRE 2500 WRB 1024 WRB 1024 WRB 452"));
}

TEST_F(Posix_threaded_data_stream_logging, of_commands_has_a_tag_of_its_own) {
    stream.set_port_logging(Data_stream::log_writes);
    write_tarve(stream, "PG003abc");
    EXPECT_EQ(logged(), "WRGPRE 8 WR 8");
}

} // namespace
