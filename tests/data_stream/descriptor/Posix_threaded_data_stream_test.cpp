// Description, notification pipe, opening, and the life of the thread. Reading and writing: the _receiving_test,
// _writing_test and _transfer_test of the same folder.

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/Vtable_slot.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/faults/No_new_threads.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/streams/Threaded_stream.h>

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;

std::string address_of(const void* object) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", object);
    return text;
}

/// While it lives, the process cannot open descriptors.
class No_descriptors_left {
  public:
    No_descriptors_left() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none_left{static_cast<rlim_t>(next_descriptor()), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none_left);
    }
    ~No_descriptors_left() { setrlimit(RLIMIT_NOFILE, &before_); }

  private:
    rlimit before_{};
};

/// A stream that reads from a socket.
struct Posix_threaded_data_stream_test : testing::Test {
    const int request_pipe = next_descriptor(); ///< the stream's notification pipe will have this number
    Threaded_stream stream;
    Socket_pair sockets;

    Posix_threaded_data_stream_test() { stream.use(sockets.take_near(), -1); }

    void arrive(std::string_view bytes) const { write_all(sockets.far(), bytes); }
    bool has_received(const std::string& bytes) {
        return eventually([&] { return stream.bytes_avail() >= bytes.size(); }) && take_buffered(stream) == bytes;
    }
    /// Waits until the thread has read all requests.
    bool requests_are_read() const {
        return eventually([&] { return bytes_ready(request_pipe) == 0; });
    }
    /// Whether the stream receives nothing although bytes have arrived.
    bool stays_paused() {
        return !eventually([&] { return stream.bytes_avail() > 0; }, milliseconds(50));
    }
};

// ---- The binary interface and names ----

TEST_F(Posix_threaded_data_stream_test, virtual_operations_follow_those_of_the_plain_stream_in_order) {
    using Class = Posix_threaded_data_stream;
    const std::size_t first = vtable_slot(&Class::pause);
    EXPECT_GT(first, vtable_slot(&Posix_data_stream::open_write));
    EXPECT_EQ(vtable_slot(&Class::resume), first + 1);
    EXPECT_EQ(vtable_slot(&Class::set_write_buffering), first + 2);
    EXPECT_EQ(vtable_slot(&Class::set_port_logging), first + 3);
    EXPECT_EQ(vtable_slot(&Class::handle_close), first + 4);
    EXPECT_EQ(vtable_slot(&Class::lock), first + 5);
    EXPECT_EQ(vtable_slot(&Class::unlock), first + 6);
    EXPECT_EQ(vtable_slot(&Class::send_rx_event), first + 7);
    EXPECT_EQ(vtable_slot(&Class::open), vtable_slot(&Posix_data_stream::open));
    EXPECT_EQ(vtable_slot(&Class::write_packet), not_virtual);
}

TEST_F(Posix_threaded_data_stream_test, has_the_class_word_of_its_constructor) {
    const Posix_threaded_data_stream named("Word");
    EXPECT_EQ(named.get_description(), "Word(" + address_of(static_cast<const Posix_data_stream*>(&named)) + ")");
}

TEST_F(Posix_threaded_data_stream_test, registration_waits_for_the_lock_of_the_receive_ring) {
    std::lock_guard guard(stream);
    std::atomic<bool> done{false};
    std::thread registering([&] {
        stream.dereg_rx_waiter();
        stream.bytes_avail();
        done = true;
    });
    EXPECT_FALSE(eventually([&] { return done.load(); }, milliseconds(20)));
    stream.unlock();
    registering.join();
    stream.lock();
}

// ---- The notification pipe ----

TEST_F(Posix_threaded_data_stream_test, opens_two_descriptors_and_closes_them) {
    const int before = open_descriptors();
    {
        Posix_threaded_data_stream other("X");
        EXPECT_EQ(open_descriptors(), before + 2);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Posix_threaded_data_stream_test, its_pipe_is_not_inherited_by_programs) {
    EXPECT_TRUE(fcntl(request_pipe, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(request_pipe + 1, F_GETFD) & FD_CLOEXEC);
}

TEST_F(Posix_threaded_data_stream_test, its_pipe_never_becomes_a_standard_stream) {
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(STDIN_FILENO);
    {
        const Posix_threaded_data_stream other("X");
        EXPECT_FALSE(is_open(STDIN_FILENO));
    }
    EXPECT_FALSE(is_open(STDIN_FILENO));
    if (kept >= 0) {
        dup2(kept, STDIN_FILENO);
        close(kept);
    }
}

TEST_F(Posix_threaded_data_stream_test, a_pipe_that_cannot_be_closed_is_reported) {
    const Captured_descriptor errors(STDERR_FILENO);
    {
        const int end = next_descriptor();
        Posix_threaded_data_stream other("X");
        close(end);
    }
    EXPECT_EQ(errors.text(), "Posix_threaded_data_stream: cannot close notification pipe: Bad file descriptor\n");
}

/// A stream that got no notification pipe.
struct Posix_threaded_data_stream_without_pipe : testing::Test {
    Socket_pair sockets;
    Captured_descriptor errors{STDERR_FILENO};
    std::unique_ptr<Threaded_stream> stream;

    Posix_threaded_data_stream_without_pipe() {
        const int near = sockets.take_near();
        make_non_blocking(near);
        const Threaded_stream first(-1, -1); // a sanitizer opens descriptors when it first checks a class
        const No_descriptors_left none_left;
        stream = std::make_unique<Threaded_stream>(near, near);
    }
    /// What was printed since the last call.
    std::string new_errors() {
        const std::string all = errors.text();
        return all.substr(std::exchange(returned_, all.size()));
    }

  private:
    std::size_t returned_ = 0;
};

TEST_F(Posix_threaded_data_stream_without_pipe, reports_it_and_receives_nevertheless) {
    EXPECT_EQ(new_errors(), "Posix_threaded_data_stream: cannot open notification pipe: Too many open files\n");
    stream->start();
    write_all(sockets.far(), "abc");
    EXPECT_TRUE(eventually([&] { return stream->bytes_avail() == 3; }));
    EXPECT_TRUE(process_rests());
    stream.reset();
    EXPECT_EQ(new_errors(), "Posix_threaded_data_stream: cannot close notification stream: Bad file descriptor\n");
}

TEST_F(Posix_threaded_data_stream_without_pipe, cannot_pause) {
    new_errors();
    EXPECT_TRUE(stream->pause());
    EXPECT_EQ(new_errors(), "Posix_threaded_data_stream: cannot write to notification stream: Bad file descriptor\n");
}

TEST_F(Posix_threaded_data_stream_without_pipe, sends_queued_bytes_although_it_cannot_be_notified) {
    new_errors();
    stream->set_write_buffering(true);
    stream->start();
    const int written = write_bytes(*stream, std::string(1 << 20, 'x')); // more than the socket and the ring hold
    ASSERT_GT(written, 0);
    EXPECT_EQ(new_errors(), "Posix_threaded_data_stream: cannot notification write: Bad file descriptor\n");
    read_exactly(sockets.far(), static_cast<unsigned>(written) + Posix_threaded_data_stream::tx_capacity);
}

// ---- Opening ----

TEST_F(Posix_threaded_data_stream_test, opening_starts_the_thread_and_names_the_stream) {
    const Temporary_folder folder;
    const std::string path = folder.make_file("file", "abc");
    const int threads_before = threads();
    Posix_threaded_data_stream line("L");
    EXPECT_TRUE(line.open(path.c_str(), false, false, false));
    EXPECT_EQ(threads(), threads_before + 1);
    EXPECT_TRUE(eventually([&] { return line.bytes_avail() == 3; }));
    const std::string whole = "L(" + address_of(static_cast<Posix_data_stream*>(&line)) + ", " + path + ", rw)";
    EXPECT_EQ(line.get_description(), whole.substr(0, Data_stream::description_size - 1));
}

TEST_F(Posix_threaded_data_stream_test, opening_for_reading_or_writing_alone_starts_the_thread) {
    const Temporary_folder folder;
    const std::string path = folder.make_file("file", "abc");
    const int threads_before = threads();
    Posix_threaded_data_stream reader("R");
    EXPECT_TRUE(reader.open_read(path.c_str(), false));
    EXPECT_EQ(threads(), threads_before + 1);
    Posix_threaded_data_stream writer("W");
    EXPECT_TRUE(writer.open_write(path.c_str(), false, false, true));
    EXPECT_EQ(threads(), threads_before + 2);
}

TEST_F(Posix_threaded_data_stream_test, a_failed_opening_starts_nothing) {
    const Captured_descriptor errors(STDERR_FILENO);
    const int threads_before = threads();
    Posix_threaded_data_stream line("L");
    EXPECT_FALSE(line.open("/no/such", false, false, false));
    EXPECT_FALSE(line.open_read("/no/such", false));
    EXPECT_FALSE(line.open_write("/no/such", false, false, false));
    EXPECT_EQ(threads(), threads_before);
}

TEST_F(Posix_threaded_data_stream_test, opening_makes_a_running_thread_use_the_descriptor) {
    const Temporary_folder folder;
    Threaded_stream closed;
    closed.start();
    EXPECT_TRUE(eventually([&] { return closed.flushes == 1; }));
    EXPECT_TRUE(closed.open_read(folder.make_file("file", "abc").c_str(), false));
    EXPECT_TRUE(eventually([&] { return closed.bytes_avail() == 3; }));
}

// ---- Starting and stopping ----

TEST_F(Posix_threaded_data_stream_test, starts_only_one_thread) {
    const int before = threads();
    stream.start();
    stream.start();
    EXPECT_EQ(threads(), before + 1);
    stream.stop();
    EXPECT_TRUE(eventually([&] { return threads() == before; })); // the system may list the thread a little longer
}

TEST_F(Posix_threaded_data_stream_test, thread_flushes_the_stream_first) {
    stream.start();
    EXPECT_TRUE(eventually([&] { return stream.flushes == 1; }));
}

TEST_F(Posix_threaded_data_stream_test, each_thread_has_the_next_number_in_its_name) {
    std::string names[2];
    for (std::string& name : names) {
        std::atomic<bool> named{false};
        stream.set_rx_callback([&] {
            char text[16] = "";
            pthread_getname_np(pthread_self(), text, sizeof text);
            name = text;
            named = true;
        });
        stream.start();
        arrive("a");
        EXPECT_TRUE(eventually([&] { return named.load(); }));
        stream.stop();
    }
    ASSERT_EQ(names[0].substr(0, 4), "PTDS");
    EXPECT_EQ(names[1], "PTDS" + std::to_string(std::stoi(names[0].substr(4)) + 1));
}

TEST_F(Posix_threaded_data_stream_test, stopping_without_a_thread_does_nothing) {
    const Captured_descriptor errors(STDERR_FILENO);
    stream.stop();
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_test, receives_again_when_it_is_started_again) {
    for (int i = 0; i < 3; ++i) {
        stream.start();
        arrive("abc");
        EXPECT_TRUE(has_received("abc"));
        stream.stop();
        EXPECT_EQ(bytes_ready(request_pipe), 0); // no request that would stop the next thread
    }
}

TEST_F(Posix_threaded_data_stream_test, a_stopped_stream_keeps_what_it_has_received_and_receives_nothing) {
    stream.start();
    arrive("abc");
    EXPECT_TRUE(eventually([&] { return stream.bytes_avail() == 3; }));
    stream.stop();
    arrive("def");
    EXPECT_EQ(take_buffered(stream), "abc");
    EXPECT_EQ(bytes_ready(stream.get_read_fd()), 3);
}

TEST_F(Posix_threaded_data_stream_test, a_thread_that_must_stop_reads_nothing_more) {
    std::atomic<bool> waits{false};
    Replaced_calls calls;
    calls.select = [&](timeval*) { // everything is ready, the request to stop included
        waits = true;
        EXPECT_TRUE(eventually([&] { return bytes_ready(request_pipe) > 0; }));
        return 1;
    };
    arrive("abc");
    stream.start();
    ASSERT_TRUE(eventually([&] { return waits.load(); }));
    stream.stop();
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_EQ(bytes_ready(stream.get_read_fd()), 3);
}

TEST_F(Posix_threaded_data_stream_test, a_thread_that_cannot_be_started_is_reported) {
    std::string printed;
    {
        const No_new_threads no_room;
        const Captured_descriptor errors(STDERR_FILENO);
        stream.start();
        printed = errors.text();
    }
    EXPECT_EQ(printed.find("Posix_threaded_data_stream: cannot start the reader thread: "), 0U);
    stream.start(); // which may be repeated
    arrive("abc");
    EXPECT_TRUE(has_received("abc"));
}

TEST_F(Posix_threaded_data_stream_test, the_thread_cannot_stop_itself_and_continues) {
    std::atomic<bool> called{false};
    stream.set_rx_callback([&] {
        stream.stop();
        stream.start();
        called = true;
    });
    stream.start();
    arrive("abc");
    EXPECT_TRUE(has_received("abc"));
    EXPECT_TRUE(called);
    arrive("def");
    EXPECT_TRUE(has_received("def"));
}

TEST(Posix_threaded_data_stream_death_test, the_thread_that_destroys_its_stream_ends_the_process) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            Socket_pair sockets;
            auto* stream = new Threaded_stream(sockets.take_near());
            stream->set_rx_callback([stream] { delete stream; });
            stream->start();
            write_all(sockets.far(), "a");
            eventually([] { return false; });
        },
        "glue/data_stream/Posix_threaded_data_stream.cpp.*in_reader_thread");
}

// ---- Pausing ----

TEST_F(Posix_threaded_data_stream_test, receives_nothing_while_paused_and_everything_afterwards) {
    stream.start();
    EXPECT_TRUE(stream.pause());
    ASSERT_TRUE(requests_are_read());
    arrive("abc");
    EXPECT_TRUE(stays_paused());
    stream.resume();
    EXPECT_TRUE(has_received("abc"));
}

TEST_F(Posix_threaded_data_stream_test, a_resume_without_a_pause_ends_the_next_pause_at_once) {
    stream.resume();
    stream.pause();
    stream.start();
    ASSERT_TRUE(requests_are_read());
    arrive("abc");
    EXPECT_TRUE(has_received("abc"));
    stream.pause();
    ASSERT_TRUE(requests_are_read());
    arrive("def");
    EXPECT_TRUE(stays_paused());
}

TEST_F(Posix_threaded_data_stream_test, pauses_that_the_thread_reads_together_are_one) {
    stream.pause();
    stream.pause();
    stream.start();
    ASSERT_TRUE(requests_are_read());
    stream.resume();
    arrive("abc");
    EXPECT_TRUE(has_received("abc"));
}

TEST_F(Posix_threaded_data_stream_test, what_was_ready_before_a_pause_is_checked_again) {
    std::atomic<int> waits{0};
    std::atomic<int> reads{0};
    Replaced_calls calls;
    calls.select = [&](timeval*) {
        if (++waits == 1)
            return 1;
        EXPECT_TRUE(eventually([&] { return bytes_ready(request_pipe) > 0; })); // the request to stop
        return 1;
    };
    calls.read = [&, fd = stream.get_read_fd()](int asked) -> std::optional<ssize_t> {
        reads += asked == fd ? 1 : 0;
        return std::nullopt;
    };
    arrive("abc");
    stream.pause();
    stream.start();
    ASSERT_TRUE(requests_are_read());
    stream.resume();
    EXPECT_TRUE(eventually([&] { return waits > 1; }));
    EXPECT_EQ(reads, 0);
    stream.stop();
}

TEST_F(Posix_threaded_data_stream_test, stopping_ends_a_pause) {
    stream.start();
    for (int i = 0; i < 100; ++i) // more than the thread reads at once
        stream.pause();
    stream.stop();
    stream.start();
    arrive("abc");
    EXPECT_TRUE(has_received("abc")); // none of the pauses is left
    stream.pause();
    ASSERT_TRUE(requests_are_read());
    arrive("def");
    EXPECT_TRUE(stays_paused()); // nor is a resume
}

TEST_F(Posix_threaded_data_stream_test, a_paused_thread_rests) {
    stream.start();
    stream.pause();
    arrive("abc");
    EXPECT_TRUE(process_rests());
}

TEST_F(Posix_threaded_data_stream_test, wakes_do_not_fill_the_pipe_of_a_paused_thread) {
    stream.start();
    stream.pause();
    ASSERT_TRUE(requests_are_read());
    for (int i = 0; i < 100000; ++i)
        stream.wake();
    EXPECT_LE(bytes_ready(request_pipe), 1);
}

TEST_F(Posix_threaded_data_stream_test, a_pause_that_does_not_fit_the_pipe_is_reported) {
    const Captured_descriptor errors(STDERR_FILENO);
    for (int i = 0; i < 70000 && errors.text().empty(); ++i)
        stream.pause();
    EXPECT_EQ(errors.text(), "Posix_threaded_data_stream: cannot write to notification stream: "
                             "Resource temporarily unavailable\n");
    stream.start();
    stream.stop(); // also with a full pipe
}

// ---- Destruction ----

TEST_F(Posix_threaded_data_stream_test, may_be_destroyed_in_every_state) {
    enum State { idle, receiving, paused, full, in_an_event, at_the_end, closed };
    for (const State state : {idle, receiving, paused, full, in_an_event, at_the_end, closed}) {
        Socket_pair pair;
        std::atomic<bool> in_event{false};
        Stopwatch destruction;
        {
            const int requests = next_descriptor();
            Threaded_stream dying(state == closed ? -1 : pair.take_near());
            dying.set_rx_callback([&] {
                in_event = true;
                if (state == in_an_event) { // until the destructor stops the thread
                    EXPECT_TRUE(eventually([&] { return bytes_ready(requests) > 0; }));
                }
            });
            dying.start();
            if (state == receiving || state == in_an_event || state == full)
                write_all(pair.far(), std::string(state == full ? Data_stream::rx_capacity + 1000 : 100, 'x'));
            if (state == paused)
                dying.pause();
            if (state == at_the_end)
                pair.close_far();
            const bool is_in_state = eventually([&] {
                return (state != full || dying.bytes_avail() == Data_stream::rx_capacity) &&
                       (state != in_an_event || in_event);
            });
            EXPECT_TRUE(is_in_state);
            destruction = Stopwatch();
        }
        EXPECT_LT(destruction.elapsed(), std::chrono::seconds(10)) << "in state " << state;
    }
}

TEST_F(Posix_threaded_data_stream_test, hundreds_of_streams_leave_no_threads_and_descriptors) {
    const int descriptors_before = open_descriptors();
    const int threads_before = threads();
    for (int i = 0; i < 500; ++i) {
        Socket_pair pair;
        Threaded_stream short_lived(pair.take_near());
        short_lived.start();
        if (i % 2)
            write_all(pair.far(), "abc");
        if (i % 3 == 0)
            short_lived.pause();
        if (i % 4 == 0)
            short_lived.stop();
        if (i % 5 == 0)
            short_lived.start();
    }
    EXPECT_EQ(open_descriptors(), descriptors_before);
    EXPECT_EQ(threads(), threads_before);
}

} // namespace
