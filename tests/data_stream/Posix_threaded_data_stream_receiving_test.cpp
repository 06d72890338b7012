// What the thread reads, what it announces and when, the end of the file, and descriptors that fail.

#include <support/Captured_descriptor.h>
#include <support/Recording_waiter.h>
#include <support/Replaced_calls.h>
#include <support/Replaced_delays.h>
#include <support/Stream_bytes.h>
#include <support/Temporary_folder.h>
#include <support/Threaded_stream.h>
#include <support/descriptors.h>
#include <support/waiting.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::milliseconds;
using Codes = std::vector<int>;

constexpr unsigned ring_size = Data_stream::rx_capacity;
constexpr unsigned chunk_size = 256;

std::string pattern(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

std::size_t occurrences(const std::string& what, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + what.size()))
        ++count;
    return count;
}

/// A stream that reads from a socket and tells a waiter.
struct Posix_threaded_data_stream_receiving : testing::Test {
    Captured_descriptor errors{STDERR_FILENO};
    Socket_pair sockets;
    Threaded_stream stream{sockets.take_near(), -1};
    Recording_waiter waiter;

    Posix_threaded_data_stream_receiving() { stream.reg_rx_waiter(waiter, false); }
    ~Posix_threaded_data_stream_receiving() override { stream.stop(); }

    void arrive(std::string_view bytes) const { write_all(sockets.far(), bytes); }
    bool receives(unsigned count) {
        return eventually([&] { return stream.bytes_avail() == count; });
    }
    bool is_said(const std::string& text) {
        return eventually([&] { return errors.text() == text; });
    }
};

// ---- Bytes and their events ----

TEST_F(Posix_threaded_data_stream_receiving, nothing_can_be_fetched) {
    stream.start();
    EXPECT_EQ(stream.get_data(0), 1);
    EXPECT_EQ(stream.get_data(1), 0);
    EXPECT_EQ(stream.get_data(-1), 0);
    EXPECT_FALSE(stream.bytes_avail(1U));
}

TEST_F(Posix_threaded_data_stream_receiving, an_arrival_is_announced_by_one_event) {
    stream.start();
    arrive("abc");
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(take_buffered(stream), "abc");
    stream.stop();
    EXPECT_EQ(waiter.codes(), Codes{0});
}

TEST_F(Posix_threaded_data_stream_receiving, bytes_come_in_chunks_of_256_each_with_its_event) {
    const std::string bytes = pattern(2 * chunk_size + 1);
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(waiter.wait_for(3));
    stream.stop();
    EXPECT_EQ(waiter.codes(), (Codes{0, 0, 0}));
    EXPECT_EQ(take_buffered(stream), bytes);
}

TEST_F(Posix_threaded_data_stream_receiving, the_callback_runs_under_the_lock_of_the_ring) {
    std::atomic<bool> was_free{true};
    std::atomic<bool> called{false};
    stream.set_rx_callback([&] {
        std::thread([&] { // the lock cannot be asked for by its holder
            std::atomic<bool> taken{false};
            std::thread taker([&] {
                stream.lock();
                taken = true;
                stream.unlock();
            });
            was_free = eventually([&] { return taken.load(); }, milliseconds(20));
            called = true;
            taker.detach();
        })
            .join();
    });
    arrive("a");
    stream.start();
    ASSERT_TRUE(eventually([&] { return called.load(); }));
    EXPECT_FALSE(was_free);
    stream.stop();
}

TEST_F(Posix_threaded_data_stream_receiving, filling_the_ring_to_the_last_byte_is_an_ordinary_arrival) {
    const std::string bytes = pattern(ring_size);
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(receives(ring_size));
    stream.stop();
    EXPECT_EQ(waiter.codes(), Codes(ring_size / chunk_size + 1, 0));
    EXPECT_EQ(take_buffered(stream), bytes);
}

// ---- A reader that is too slow ----

const std::string too_slow = "CLIENT TOO SLOW!!!!!!!!!!!!!!!!!!!!\n\n";

/// A ring that lacks 100 bytes of room for a chunk; nobody really sleeps.
struct Posix_threaded_data_stream_overrun : Posix_threaded_data_stream_receiving {
    static constexpr unsigned missing = 100;
    const std::string bytes = pattern(ring_size + missing);
    Replaced_delays delays;

    ~Posix_threaded_data_stream_overrun() override { stream.stop(); }

    Codes codes_behind_the_ordinary_ones() {
        stream.stop();
        Codes codes = waiter.codes();
        codes.erase(codes.begin(), std::find_if(codes.begin(), codes.end(), [](int code) { return code != 0; }));
        return codes;
    }
};

TEST_F(Posix_threaded_data_stream_overrun, what_fits_is_announced_as_full_and_the_rest_waits_for_room) {
    std::string taken;
    delays.meanwhile = [&] {
        if (delays.count == 3) {
            taken.resize(missing);
            stream.get_data(reinterpret_cast<unsigned char*>(taken.data()), missing, 0);
            stream.drop(missing);
        }
    };
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(eventually([&] { return waiter.codes().size() == ring_size / chunk_size + 2; }));
    EXPECT_EQ(codes_behind_the_ordinary_ones(), (Codes{1, 1}));
    EXPECT_EQ(taken + take_buffered(stream), bytes);
    EXPECT_EQ(delays.count, 3);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_overrun, after_500_attempts_the_rest_of_the_chunk_is_lost) {
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(is_said(too_slow));
    EXPECT_EQ(codes_behind_the_ordinary_ones(), (Codes{1, 1}));
    EXPECT_GE(delays.milliseconds, 499);
    EXPECT_LE(delays.milliseconds, 501);
    EXPECT_EQ(take_buffered(stream), bytes.substr(0, ring_size));
}

TEST_F(Posix_threaded_data_stream_overrun, any_room_starts_the_count_of_attempts_anew) {
    delays.meanwhile = [&] {
        if (delays.count % 400 == 0)
            stream.drop(1);
    };
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(eventually([&] { return delays.count >= 400 * int{missing}; }));
    stream.stop();
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(take_buffered(stream), bytes.substr(missing));
}

TEST_F(Posix_threaded_data_stream_overrun, an_unread_stream_receives_again_once_it_is_read) {
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(is_said(too_slow));
    stream.drop_all();
    arrive("abc");
    ASSERT_TRUE(receives(3));
    EXPECT_EQ(take_buffered(stream), "abc");
    EXPECT_EQ(errors.text(), too_slow);
}

TEST_F(Posix_threaded_data_stream_receiving, waits_about_half_a_second_for_a_slow_reader) {
    arrive(pattern(ring_size + 1));
    const Stopwatch watch;
    stream.start();
    ASSERT_TRUE(is_said(too_slow));
    EXPECT_GE(watch.elapsed(), milliseconds(490));
}

TEST_F(Posix_threaded_data_stream_receiving, stopping_does_not_wait_for_a_slow_reader_nor_blames_it) {
    arrive(pattern(ring_size + 1));
    const Stopwatch watch;
    stream.start();
    ASSERT_TRUE(receives(ring_size));
    stream.stop();
    const bool gave_up_before = watch.elapsed() >= milliseconds(490); // possible on a loaded machine
    EXPECT_TRUE(gave_up_before || errors.text().empty()) << errors.text();
}

// ---- Events held back until the input is quiet ----

TEST_F(Posix_threaded_data_stream_receiving, an_event_timeout_holds_the_announcement_back_until_the_input_is_quiet) {
    constexpr milliseconds quiet(300);
    std::atomic<int> calls{0};
    stream.set_rx_callback([&] { ++calls; });
    stream.set_rx_event_timeout(quiet.count());
    stream.start();
    const Stopwatch whole;
    Stopwatch since_last;
    for (unsigned i = 1; i <= 20; ++i) {
        since_last = Stopwatch();
        arrive("a");
        ASSERT_TRUE(receives(i));
    }
    const bool was_steady = whole.elapsed() < quiet; // a loaded machine may have made pauses of its own
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_TRUE(eventually([&] { return since_last.elapsed() >= quiet; }));
    stream.stop();
    if (was_steady) {
        EXPECT_EQ(waiter.codes(), Codes{0});
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(Posix_threaded_data_stream_receiving, a_held_back_announcement_comes_no_earlier_than_the_quiet_time) {
    std::atomic<long long> announced_after_us{-1};
    Stopwatch since_arrival;
    stream.set_rx_callback([&] {
        announced_after_us = std::chrono::duration_cast<std::chrono::microseconds>(since_arrival.elapsed()).count();
    });
    stream.set_rx_event_timeout(50);
    stream.start();
    since_arrival = Stopwatch();
    arrive("a");
    ASSERT_TRUE(waiter.wait_for(1));
    stream.stop();
    EXPECT_GE(announced_after_us, 50000);
}

TEST_F(Posix_threaded_data_stream_receiving, wakes_do_not_put_a_held_back_announcement_off) {
    stream.set_rx_event_timeout(50);
    stream.start();
    arrive("a");
    EXPECT_TRUE(eventually([&] {
        stream.wake();
        return !waiter.codes().empty();
    }));
}

TEST_F(Posix_threaded_data_stream_receiving, a_full_announcement_goes_out_at_once_and_leaves_the_other_pending) {
    stream.set_rx_event_timeout(50);
    stream.send_rx_event(false);
    stream.send_rx_event(true);
    EXPECT_EQ(waiter.codes(), Codes{1});
    stream.start();
    ASSERT_TRUE(waiter.wait_for(2));
    stream.stop();
    EXPECT_EQ(waiter.codes(), (Codes{1, 0}));
}

TEST_F(Posix_threaded_data_stream_receiving, an_announcement_made_elsewhere_is_held_back_and_sent_by_the_thread) {
    stream.set_rx_event_timeout(1);
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.flushes == 1; }));
    stream.send_rx_event(false);
    EXPECT_TRUE(waiter.wait_for(1));
}

TEST_F(Posix_threaded_data_stream_receiving, without_a_timeout_again_the_pending_announcement_is_not_forgotten) {
    stream.set_rx_event_timeout(1000000);
    stream.start();
    arrive("a");
    ASSERT_TRUE(receives(1));
    stream.set_rx_event_timeout(0);
    stream.wake();
    EXPECT_TRUE(waiter.wait_for(1));
}

TEST_F(Posix_threaded_data_stream_receiving, a_quiet_waiter_hears_of_a_full_ring_alone) {
    const Replaced_delays no_delays;
    stream.reg_rx_waiter(waiter, true);
    arrive(pattern(ring_size + 1));
    stream.start();
    ASSERT_TRUE(is_said(too_slow));
    stream.stop();
    EXPECT_EQ(waiter.codes(), (Codes{1, 1})); // the ring is full; a byte was lost
}

// ---- The end of the file ----

TEST_F(Posix_threaded_data_stream_receiving, the_end_of_the_file_is_told_ten_times_a_second) {
    sockets.close_far();
    const Stopwatch watch;
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.ends_of_file >= 4; }));
    stream.stop();
    EXPECT_GE(watch.elapsed(), milliseconds(300));
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_receiving, the_end_of_the_file_is_told_without_a_lock) {
    stream.on_end_of_file = [this] {
        stream.lock();
        stream.unlock();
    };
    sockets.close_far();
    stream.start();
    EXPECT_TRUE(eventually([&] { return stream.ends_of_file >= 1; }));
}

TEST_F(Posix_threaded_data_stream_receiving, what_comes_behind_the_end_of_a_fifo_is_received) {
    const Temporary_folder folder;
    const std::string path = folder.make_fifo("fifo");
    Threaded_stream reader;
    ASSERT_TRUE(reader.open_read(path.c_str(), false));
    for (const std::string bytes : {"abc", "def"}) {
        const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        write_all(writer, bytes);
        EXPECT_TRUE(eventually([&] { return reader.bytes_avail() == 3; }));
        EXPECT_EQ(take_buffered(reader), bytes);
        const int ends_before = reader.ends_of_file;
        close(writer);
        EXPECT_TRUE(eventually([&] { return reader.ends_of_file > ends_before; }));
    }
}

TEST_F(Posix_threaded_data_stream_receiving, a_descriptor_that_replaces_one_at_its_end_is_read_at_once) {
    Socket_pair next;
    stream.on_end_of_file = [&] {
        stream.close_read();
        stream.use(next.take_near(), -1);
    };
    sockets.close_far();
    write_all(next.far(), "abc");
    stream.start();
    EXPECT_TRUE(receives(3));
    stream.stop();
    EXPECT_EQ(stream.ends_of_file, 1);
}

TEST_F(Posix_threaded_data_stream_receiving, a_stream_that_closes_at_the_end_goes_on_without_input) {
    stream.on_end_of_file = [&] { stream.close_read(); };
    sockets.close_far();
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.ends_of_file == 1; }));
    EXPECT_TRUE(process_rests());
    stream.stop();
    EXPECT_EQ(stream.ends_of_file, 1);
    EXPECT_EQ(errors.text(), "");
}

// ---- Descriptors that fail ----

/// A terminal whose near end nobody has open: reading from the far end fails with EIO.
struct Line_that_is_gone {
    int far = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);

    Line_that_is_gone() {
        EXPECT_EQ(grantpt(far) + unlockpt(far), 0);
        close(open_near());
    }
    int open_near() const {
        char name[128] = "";
        EXPECT_EQ(ptsname_r(far, name, sizeof name), 0);
        return open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
};

TEST_F(Posix_threaded_data_stream_receiving, a_line_that_is_gone_is_reported_once_and_is_at_its_end) {
    const std::string message = "read(), Posix_data_stream::get_data: Input/output error\n";
    const Line_that_is_gone line;
    Threaded_stream reader(line.far, -1);
    reader.start();
    ASSERT_TRUE(eventually([&] { return reader.ends_of_file >= 3; }));
    EXPECT_EQ(errors.text(), message);
    EXPECT_TRUE(process_rests());

    const int near = line.open_near();
    write_all(near, "abc");
    EXPECT_TRUE(eventually([&] { return reader.bytes_avail() == 3; }));
    close(near);
    EXPECT_TRUE(is_said(message + message)); // gone again, which is news
}

TEST_F(Posix_threaded_data_stream_receiving, what_cannot_be_read_is_reported_once_and_is_not_at_its_end) {
    Threaded_stream reader(open("/", O_RDONLY | O_CLOEXEC), -1);
    reader.start();
    ASSERT_TRUE(is_said("read(), Posix_data_stream::get_data: Is a directory\n"));
    EXPECT_TRUE(process_rests());
    reader.stop();
    EXPECT_EQ(reader.ends_of_file, 0);
    EXPECT_EQ(errors.text(), "read(), Posix_data_stream::get_data: Is a directory\n");
}

TEST_F(Posix_threaded_data_stream_receiving, a_descriptor_closed_behind_its_back_is_reported_once_and_rests) {
    const std::string message = "select(), Posix_data_stream::get_data: Bad file descriptor\n";
    const int fd = stream.get_read_fd();
    const int kept = dup(fd);
    close(fd);
    stream.start();
    ASSERT_TRUE(is_said(message));
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(errors.text(), message);

    dup2(kept, fd);
    close(kept);
    arrive("abc");
    EXPECT_TRUE(receives(3));
}

TEST_F(Posix_threaded_data_stream_receiving, requests_are_heard_while_select_fails) {
    const int request_pipe = next_descriptor();
    Threaded_stream failing;
    Replaced_calls calls;
    calls.select = [](timeval*) {
        errno = ENOMEM;
        return -1;
    };
    failing.start();
    failing.pause();
    EXPECT_TRUE(eventually([&] { return bytes_ready(request_pipe) == 0; }));
    failing.stop();
}

TEST_F(Posix_threaded_data_stream_receiving, a_wait_that_ends_without_reason_is_reported) {
    Replaced_calls calls;
    calls.select = [](timeval* limit) {
        EXPECT_EQ(limit, nullptr);
        return 0;
    };
    const Stopwatch watch;
    stream.start();
    EXPECT_TRUE(process_rests());
    stream.stop();
    const std::string said = errors.text();
    const std::string message = "select(), should not have timed out";
    EXPECT_EQ(occurrences(message, said) * message.size(), said.size());
    EXPECT_GE(occurrences(message, said), 1U);
    EXPECT_LE(occurrences(message, said), static_cast<std::size_t>(watch.elapsed() / milliseconds(100)) + 1);
}

TEST_F(Posix_threaded_data_stream_receiving, a_select_that_always_fails_is_reported_once_and_does_not_spin) {
    for (const int error : {EINTR, ENOMEM}) {
        const std::string before = errors.text();
        Threaded_stream failing;
        Replaced_calls calls;
        calls.select = [error](timeval*) {
            errno = error;
            return -1;
        };
        failing.start();
        EXPECT_TRUE(eventually([&] { return errors.text() != before; }));
        EXPECT_TRUE(process_rests());
        failing.stop();
        EXPECT_EQ(occurrences("select(), Posix_data_stream::get_data: ", errors.text().substr(before.size())), 1U);
    }
}

TEST_F(Posix_threaded_data_stream_receiving, a_signal_is_reported_and_survived) {
    struct sigaction quiet {};
    struct sigaction before {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, &before);
    std::atomic<pthread_t> thread{};
    stream.set_rx_callback([&] { thread = pthread_self(); });
    stream.start();
    arrive("a");
    ASSERT_TRUE(waiter.wait_for(1));
    // The thread may not be waiting yet; a signal that finds it elsewhere goes unnoticed.
    EXPECT_TRUE(eventually([&] {
        pthread_kill(thread, SIGUSR1);
        return errors.text().find("select(), Posix_data_stream::get_data: Interrupted system call\n") == 0;
    }));
    arrive("b");
    EXPECT_TRUE(receives(2));
    stream.stop();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(Posix_threaded_data_stream_receiving, a_descriptor_beyond_what_select_knows_is_left_alone) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    if (before.rlim_max <= FD_SETSIZE)
        GTEST_SKIP() << "this process may not open more than " << before.rlim_max << " descriptors";
    const rlimit enough{FD_SETSIZE + 10, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &enough);
    const int fd = fcntl(stream.get_read_fd(), F_DUPFD_CLOEXEC, FD_SETSIZE);
    ASSERT_GE(fd, FD_SETSIZE);
    {
        Threaded_stream reader(fd, fd);
        reader.set_write_buffering(true);
        arrive("abc");
        reader.start();
        EXPECT_TRUE(process_rests());
        EXPECT_EQ(reader.bytes_avail(), 0U);
    }
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_receiving, an_idle_thread_rests) {
    stream.start();
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(errors.text(), "");
}

} // namespace
