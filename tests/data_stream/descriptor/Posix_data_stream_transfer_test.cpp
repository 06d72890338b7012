// Reading and writing. Description, opening and closing: Posix_data_stream_test.cpp.

#include <glue/data_stream/Posix_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Limited_descriptors.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/descriptors.h>
#include <support/terminals/Pty_pair.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <deque>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::milliseconds;

/// A time limit that only a stream that hangs exceeds.
constexpr auto generous = std::chrono::seconds(20);

constexpr unsigned ring_size = Data_stream::rx_capacity;

/// A stream that reads from a pipe; the test writes into the pipe.
struct Posix_data_stream_reading : testing::Test {
    Pipe pipe;
    Posix_data_stream stream{pipe.take_reading(), -1};

    void arrive(std::string_view bytes) const { write_all(pipe.writing(), bytes); }
    int left_in_pipe() const { return bytes_ready(stream.get_read_fd()); }
};

// ---- Reading ----

TEST_F(Posix_data_stream_reading, reads_exactly_the_requested_bytes_and_leaves_the_rest) {
    arrive("0123456789");
    EXPECT_TRUE(stream.get_data(3));
    EXPECT_EQ(buffered(stream), "012");
    EXPECT_EQ(left_in_pipe(), 7);
    EXPECT_TRUE(stream.get_data(7));
    EXPECT_EQ(buffered(stream), "0123456789");
}

TEST_F(Posix_data_stream_reading, of_no_bytes_succeeds_at_once_when_open) {
    EXPECT_TRUE(stream.get_data(0));
}

TEST_F(Posix_data_stream_reading, from_a_closed_stream_fails_even_for_no_bytes) {
    Posix_data_stream closed("X");
    EXPECT_FALSE(closed.get_data(0));
    EXPECT_FALSE(closed.get_data(1));
}

TEST_F(Posix_data_stream_reading, of_a_negative_count_fails_and_reads_nothing) {
    arrive("abc");
    EXPECT_FALSE(stream.get_data(-1));
    EXPECT_FALSE(stream.get_data(std::numeric_limits<int>::min()));
    EXPECT_EQ(left_in_pipe(), 3);
    EXPECT_EQ(stream.bytes_avail(), 0U);
}

TEST_F(Posix_data_stream_reading, up_to_end_of_file_fails_and_keeps_what_was_read) {
    arrive("abc");
    pipe.close_writing();
    EXPECT_FALSE(stream.get_data(5));
    EXPECT_EQ(buffered(stream), "abc");
    EXPECT_FALSE(stream.get_data(1));
}

TEST_F(Posix_data_stream_reading,
       of_an_empty_non_blocking_descriptor_without_a_timeout_fails_at_once_and_keeps_what_was_read) {
    make_non_blocking(stream.get_read_fd());
    EXPECT_FALSE(stream.get_data(1));
    arrive("abc");
    EXPECT_FALSE(stream.get_data(5));
    EXPECT_EQ(buffered(stream), "abc");
}

TEST_F(Posix_data_stream_reading, of_a_folder_fails) {
    ASSERT_TRUE(stream.open_read("/", true));
    EXPECT_FALSE(stream.get_data(1));
    EXPECT_EQ(stream.bytes_avail(), 0U);
}

TEST_F(Posix_data_stream_reading, serves_the_reading_operations_of_every_stream) {
    arrive("VER 1\r\n");
    EXPECT_EQ(stream[4], '1');
    EXPECT_EQ(left_in_pipe(), 2);
    EXPECT_TRUE(stream.bytes_avail(7U));
    EXPECT_EQ(stream.string_avail(), 5U);
    stream.drop(7);
    EXPECT_EQ(stream.bytes_avail(), 0U);
}

TEST_F(Posix_data_stream_reading, into_a_full_ring_loses_the_bytes) {
    const std::string bytes = numbered(ring_size);
    arrive(bytes);
    ASSERT_TRUE(stream.get_data(ring_size));
    arrive(std::string(1000, 'x'));
    EXPECT_TRUE(stream.get_data(990));
    EXPECT_EQ(left_in_pipe(), 10);
    EXPECT_EQ(buffered(stream), bytes);
}

TEST_F(Posix_data_stream_reading, more_than_fits_keeps_the_first_bytes) {
    const std::string bytes = numbered(ring_size + 800);
    arrive(bytes + "rest");
    EXPECT_TRUE(stream.get_data(ring_size + 800));
    EXPECT_EQ(buffered(stream), bytes.substr(0, ring_size));
    EXPECT_EQ(left_in_pipe(), 4);
}

TEST_F(Posix_data_stream_reading, continues_at_the_start_of_the_ring_storage) {
    arrive(numbered(ring_size - 5));
    ASSERT_TRUE(stream.get_data(ring_size - 5));
    stream.drop(ring_size - 10); // the last five bytes and the start are free
    arrive("abcdefghijkl");
    EXPECT_TRUE(stream.get_data(12));
    EXPECT_EQ(buffered(stream), numbered(ring_size - 5).substr(ring_size - 10) + "abcdefghijkl");
}

TEST_F(Posix_data_stream_reading, of_lost_bytes_up_to_end_of_file_fails) {
    arrive(numbered(ring_size + 3));
    pipe.close_writing();
    EXPECT_FALSE(stream.get_data(ring_size + 4));
    EXPECT_EQ(stream.bytes_avail(), ring_size);
}

TEST_F(Posix_data_stream_reading, of_a_terminal_returns_what_its_far_end_sends_and_fails_after_a_hang_up) {
    Pty_pair terminal;
    ASSERT_TRUE(stream.open(terminal.path().c_str(), false, true, false));
    stream.set_read_timeout(20000);
    const std::string all_kinds("fix\x03\x00\xFF", 6);
    terminal.send(all_kinds);
    EXPECT_TRUE(stream.get_data(6));
    EXPECT_EQ(buffered(stream), all_kinds);
    EXPECT_TRUE(stream.printf("VER %d\r\n", 7));
    EXPECT_EQ(terminal.receive(7), "VER 7\r\n");
    terminal.hang_up();
    EXPECT_FALSE(stream.get_data(1));
}

// ---- Time-outs of reading ----

TEST_F(Posix_data_stream_reading, timeout_setters_report_success) {
    EXPECT_NE(stream.set_read_timeout(100), 0);
    EXPECT_NE(stream.set_write_timeout(0), 0);
    EXPECT_NE(stream.set_read_timeout(-7), 0);
    EXPECT_NE(stream.set_default_read_timeout(), 0);
    EXPECT_NE(stream.set_default_write_timeout(), 0);
}

TEST_F(Posix_data_stream_reading, times_out_and_keeps_what_was_read) {
    stream.set_read_timeout(100);
    arrive("abc");
    const Stopwatch stopwatch;
    EXPECT_FALSE(stream.get_data(5));
    EXPECT_GE(stopwatch.elapsed(), milliseconds(100));
    EXPECT_LT(stopwatch.elapsed(), generous);
    EXPECT_EQ(buffered(stream), "abc");
}

TEST_F(Posix_data_stream_reading, of_bytes_that_arrive_one_by_one_shares_the_timeout) {
    stream.set_read_timeout(100);
    make_non_blocking(stream.get_read_fd());
    std::vector<std::int64_t> waits_ms;
    Replaced_calls calls;
    calls.select = [&](timeval* left) { // a byte every 40 ms
        waits_ms.push_back(left->tv_sec * 1000 + left->tv_usec / 1000);
        if (waits_ms.back() < 40) {
            *left = {0, 0};
            return 0;
        }
        left->tv_usec -= 40000;
        arrive("x");
        return 1;
    };
    EXPECT_FALSE(stream.get_data(5));
    EXPECT_EQ(waits_ms, (std::vector<std::int64_t>{100, 60, 20}));
    EXPECT_EQ(buffered(stream), "xx");
}

TEST_F(Posix_data_stream_reading, waits_for_bytes_within_the_timeout) {
    stream.set_read_timeout(20000);
    std::thread sender([this] {
        for (const char* byte : {"a", "b", "c"}) {
            eventually([this] { return left_in_pipe() == 0; });
            arrive(byte);
        }
    });
    EXPECT_TRUE(stream.get_data(3));
    sender.join();
    EXPECT_EQ(buffered(stream), "abc");
}

TEST_F(Posix_data_stream_reading, a_timeout_is_split_into_seconds_and_microseconds) {
    Replaced_calls calls;
    timeval limit{};
    calls.select = [&](timeval* left) {
        limit = *left;
        return 0;
    };
    stream.set_read_timeout(12345);
    EXPECT_FALSE(stream.get_data(1));
    EXPECT_EQ(limit.tv_sec, 12);
    EXPECT_EQ(limit.tv_usec, 345000);
}

TEST_F(Posix_data_stream_reading, with_a_timeout_of_zero_reads_what_is_available_and_never_waits) {
    stream.set_read_timeout(0);
    EXPECT_FALSE(stream.get_data(1));
    arrive("abc");
    EXPECT_TRUE(stream.get_data(3));
    EXPECT_FALSE(stream.get_data(1));
}

TEST_F(Posix_data_stream_reading, without_a_timeout_calls_no_select) {
    int waits = 0;
    Replaced_calls calls;
    calls.select = [&](timeval*) { return ++waits, 0; };
    arrive("abcd");
    EXPECT_TRUE(stream.get_data(1));
    stream.set_read_timeout(-2);
    EXPECT_TRUE(stream.get_data(1));
    stream.set_read_timeout(5);
    stream.set_default_read_timeout();
    EXPECT_TRUE(stream.get_data(1));
    EXPECT_EQ(waits, 0);
    stream.set_read_timeout(5);
    EXPECT_FALSE(stream.get_data(1));
    EXPECT_EQ(waits, 1);
}

TEST_F(Posix_data_stream_reading, reports_a_failed_select_and_reads_nevertheless) {
    stream.set_read_timeout(100);
    arrive("abc");
    const Captured_descriptor standard_error(2);
    Replaced_calls calls;
    calls.select = [](timeval*) { return errno = EINTR, -1; };
    EXPECT_TRUE(stream.get_data(3));
    EXPECT_EQ(buffered(stream), "abc");
    EXPECT_EQ(standard_error.text(), "select(), Posix_data_stream::get_data: Interrupted system call\n");
}

TEST_F(Posix_data_stream_reading, of_a_descriptor_too_high_for_select_has_no_timeout_and_is_reported_once) {
    Posix_data_stream high(copy_too_high_for_select(stream.get_read_fd()), -1);
    high.set_read_timeout(100);
    const std::string report = report_of_high_descriptor(high.get_description(), high.get_read_fd());
    const Captured_descriptor standard_error(2);
    for (const char* bytes : {"abc", "def"}) {
        arrive(bytes);
        EXPECT_TRUE(high.get_data(3));
        EXPECT_EQ(take_buffered(high), bytes);
    }
    EXPECT_EQ(standard_error.text(), report);
}

// ---- Against a model ----

/// The pipe and the ring as queues.
struct Model {
    std::deque<char> pipe;
    std::deque<char> ring;

    bool fetch(std::size_t n) {
        const bool enough = pipe.size() >= n;
        for (; n > 0 && !pipe.empty(); --n) {
            if (ring.size() < ring_size)
                ring.push_back(pipe.front());
            pipe.pop_front();
        }
        return enough;
    }
    void drop(std::size_t n) {
        if (n > ring.size() && !fetch(n - ring.size()))
            return;
        ring.erase(ring.begin(), ring.begin() + static_cast<std::ptrdiff_t>(std::min(n, ring.size())));
    }
};

TEST_F(Posix_data_stream_reading, behaves_like_two_queues_over_random_operations) {
    make_non_blocking(stream.get_read_fd());
    Random random;
    Model model;
    for (int step = 0; step < 4000; ++step) {
        stream.set_read_timeout(random.one_in(2) ? 0 : -1);
        const unsigned count = random.one_in(20) ? random.between(0, 2 * ring_size) : random.between(0, 400);
        switch (random.between(0, 3)) {
        case 0:
        case 1: {
            const std::string bytes = random.bytes(model.pipe.size() < 30000 ? count : 0);
            arrive(bytes);
            model.pipe.insert(model.pipe.end(), bytes.begin(), bytes.end());
            break;
        }
        case 2:
            ASSERT_EQ(stream.get_data(static_cast<int>(count)) != 0, model.fetch(count));
            break;
        default:
            stream.drop(count);
            model.drop(count);
        }
        ASSERT_EQ(static_cast<std::size_t>(left_in_pipe()), model.pipe.size());
        ASSERT_EQ(buffered(stream), std::string(model.ring.begin(), model.ring.end()));
    }
}

// ---- Writing ----

/// A stream that writes to a small non-blocking pipe; the test reads from the pipe.
struct Posix_data_stream_writing : testing::Test {
    Pipe pipe;
    const int pipe_size = pipe.shrink();
    Posix_data_stream stream{-1, pipe.take_writing()};

    Posix_data_stream_writing() { make_non_blocking(stream.get_write_fd()); }
    std::size_t pipe_bytes() const { return static_cast<std::size_t>(pipe_size); }
    void fill() { ASSERT_EQ(write_text(stream, numbered(pipe_bytes())), pipe_size); }
};

TEST_F(Posix_data_stream_writing, sends_the_bytes) {
    EXPECT_EQ(write_text(stream, "$GPGGA\r\n"), 8);
    EXPECT_EQ(pipe.drain(), "$GPGGA\r\n");
    stream.set_write_timeout(20000);
    EXPECT_EQ(write_text(stream, "more"), 4);
    EXPECT_EQ(pipe.drain(), "more");
}

TEST_F(Posix_data_stream_writing, to_a_closed_stream_is_an_error_with_and_without_a_timeout) {
    Posix_data_stream closed("X");
    EXPECT_EQ(write_text(closed, "x"), -1);
    closed.set_write_timeout(0);
    EXPECT_EQ(write_text(closed, "x"), -1);
}

TEST_F(Posix_data_stream_writing, without_a_timeout_is_one_system_write) {
    EXPECT_EQ(write_text(stream, numbered(pipe_bytes() + 100)), pipe_size);
    errno = 0;
    EXPECT_EQ(write_text(stream, "x"), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(pipe.drain(), numbered(pipe_bytes()));
}

TEST_F(Posix_data_stream_writing, to_a_full_pipe_times_out_with_nothing_written) {
    fill();
    stream.set_write_timeout(50);
    const Stopwatch stopwatch;
    EXPECT_EQ(write_text(stream, "x"), 0);
    EXPECT_GE(stopwatch.elapsed(), milliseconds(50));
    EXPECT_LT(stopwatch.elapsed(), generous);
}

TEST_F(Posix_data_stream_writing, more_than_fits_times_out_with_the_count_so_far) {
    stream.set_write_timeout(50);
    EXPECT_EQ(write_text(stream, numbered(pipe_bytes() + 100)), pipe_size);
    EXPECT_EQ(pipe.drain(), numbered(pipe_bytes()));
}

TEST_F(Posix_data_stream_writing, with_the_default_timeout_restored_is_one_system_write) {
    fill();
    stream.set_write_timeout(0);
    EXPECT_EQ(write_text(stream, "x"), 0);
    stream.set_default_write_timeout();
    EXPECT_EQ(write_text(stream, "x"), -1);
}

TEST_F(Posix_data_stream_writing, with_any_negative_timeout_is_one_system_write) {
    fill();
    for (const int ms : {-1, -2, std::numeric_limits<int>::min()}) {
        stream.set_write_timeout(ms);
        EXPECT_EQ(write_text(stream, "x"), -1) << ms;
    }
}

TEST_F(Posix_data_stream_writing, to_a_slow_reader_writes_everything_in_time) {
    const std::string bytes = numbered(20 * pipe_bytes() + 17);
    stream.set_write_timeout(20000);
    std::string received;
    std::thread reader([&] { received = read_exactly(pipe.reading(), bytes.size()); });
    EXPECT_EQ(write_text(stream, bytes), static_cast<int>(bytes.size()));
    reader.join();
    EXPECT_EQ(received, bytes);
}

TEST_F(Posix_data_stream_writing, to_a_reader_that_is_gone_fails_or_returns_the_count_so_far) {
    const Signal_disposition no_pipe_signal(SIGPIPE, SIG_IGN);
    pipe.close_reading();
    errno = 0;
    EXPECT_EQ(write_text(stream, "x"), -1);
    EXPECT_EQ(errno, EPIPE);
    stream.set_write_timeout(20000);
    EXPECT_EQ(write_text(stream, "x"), 0);
}

TEST_F(Posix_data_stream_writing, to_a_reader_that_disappears_returns_the_count_so_far) {
    const Signal_disposition no_pipe_signal(SIGPIPE, SIG_IGN);
    stream.set_write_timeout(20000);
    Replaced_calls calls;
    int waits = 0;
    calls.select = [&](timeval*) {
        if (++waits == 2)
            pipe.close_reading();
        return 1;
    };
    EXPECT_EQ(write_text(stream, numbered(2 * pipe_bytes())), pipe_size);
    EXPECT_EQ(waits, 2);
}

TEST_F(Posix_data_stream_writing, with_an_interrupted_wait_returns_the_count_so_far) {
    stream.set_write_timeout(20000);
    Replaced_calls calls;
    int waits = 0;
    calls.select = [&](timeval*) { return ++waits == 1 ? 1 : (errno = EINTR, -1); };
    EXPECT_EQ(write_text(stream, numbered(2 * pipe_bytes())), pipe_size);
    EXPECT_EQ(waits, 2);
}

TEST_F(Posix_data_stream_writing, repeats_a_wait_that_fails_with_EAGAIN) {
    stream.set_write_timeout(20000);
    Replaced_calls calls;
    int waits = 0;
    calls.select = [&](timeval*) { return ++waits == 3 ? 1 : (errno = EAGAIN, -1); };
    EXPECT_EQ(write_text(stream, "abc"), 3);
    EXPECT_EQ(waits, 3);
}

TEST_F(Posix_data_stream_writing,
       with_a_timeout_to_a_descriptor_too_high_for_select_writes_nothing_and_is_reported_once) {
    Posix_data_stream high(-1, copy_too_high_for_select(stream.get_write_fd()));
    const Captured_descriptor standard_error(2);
    EXPECT_EQ(write_text(high, "plain"), 5);
    EXPECT_EQ(standard_error.text(), "");
    high.set_write_timeout(20000);
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(write_text(high, "x"), 0);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(standard_error.text(), report_of_high_descriptor(high.get_description(), high.get_write_fd()));
    EXPECT_EQ(pipe.drain(), "plain");
}

/// Writes in rounds: each wait empties the pipe. The test sets the duration of the waits and the clock.
struct Posix_data_stream_write_timing : Posix_data_stream_writing {
    Replaced_calls calls;
    std::vector<std::int64_t> waits_ms;
    long waited_ms = 0;               ///< the duration of each wait
    std::vector<std::int64_t> clocks; ///< the wall clock at each call; the last value is repeated

    int write_in_rounds(int timeout_ms, int rounds) {
        calls.select = [this](timeval* left) {
            waits_ms.push_back(left->tv_sec * 1000 + left->tv_usec / 1000);
            if (waits_ms.back() < waited_ms)
                return 0;
            left->tv_usec -= waited_ms * 1000;
            pipe.drain();
            return 1;
        };
        calls.wall_clock_ms = [this, next = std::size_t{0}]() mutable {
            return clocks[std::min(next++, clocks.size() - 1)];
        };
        stream.set_write_timeout(timeout_ms);
        return write_text(stream, numbered(static_cast<std::size_t>(rounds) * pipe_bytes()));
    }
};

TEST_F(Posix_data_stream_write_timing, each_wait_gets_the_rest_of_the_timeout_by_the_wall_clock) {
    clocks = {1000000, 1000040, 1000080, 1000120};
    EXPECT_EQ(write_in_rounds(100, 10), 3 * pipe_size);
    EXPECT_EQ(waits_ms, (std::vector<std::int64_t>{100, 60, 20}));
}

TEST_F(Posix_data_stream_write_timing, a_wait_follows_when_exactly_the_timeout_has_elapsed) {
    clocks = {1000000, 1000050, 1000100, 1000101};
    EXPECT_EQ(write_in_rounds(100, 10), 3 * pipe_size);
    EXPECT_EQ(waits_ms, (std::vector<std::int64_t>{100, 50, 0}));
}

TEST_F(Posix_data_stream_write_timing, everything_written_after_the_timeout_still_counts) {
    clocks = {1000000, 1000040, 2000000};
    EXPECT_EQ(write_in_rounds(100, 2), 2 * pipe_size);
}

TEST_F(Posix_data_stream_write_timing, a_wall_clock_that_is_set_back_never_makes_a_wait_longer) {
    clocks = {3000000000, 0}; // by five weeks, more milliseconds than an int holds
    waited_ms = 30;
    EXPECT_EQ(write_in_rounds(100, 10), 3 * pipe_size);
    EXPECT_EQ(waits_ms, (std::vector<std::int64_t>{100, 70, 40, 10}));
}

} // namespace
