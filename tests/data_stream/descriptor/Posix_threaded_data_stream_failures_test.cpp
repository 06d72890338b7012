// End of file, descriptors and waits that fail; none of it keeps the thread busy.

#include <support/builders/Stream_bytes.h>
#include <support/faults/Limited_descriptors.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/streams/Receiving_stream.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <stdlib.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;

std::size_t occurrences(const std::string& what, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + what.size()))
        ++count;
    return count;
}

using Posix_threaded_data_stream_failures = Receiving_stream;

// ---- End of file ----

TEST_F(Posix_threaded_data_stream_failures, end_of_file_is_handled_ten_times_a_second) {
    sockets.close_far();
    const Stopwatch watch;
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.ends_of_file >= 4; }));
    stream.stop();
    EXPECT_GE(watch.elapsed(), milliseconds(300));
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_failures, a_thread_at_end_of_file_rests) {
    stream.set_rx_event_timeout(1);
    arrive("abc");
    sockets.close_far();
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.ends_of_file >= 1; }));
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(waiter.codes(), std::vector<int>{0});
}

TEST_F(Posix_threaded_data_stream_failures, end_of_file_is_handled_without_a_lock) {
    stream.on_end_of_file = [this] {
        stream.lock();
        stream.unlock();
    };
    sockets.close_far();
    stream.start();
    EXPECT_TRUE(eventually([&] { return stream.ends_of_file >= 1; }));
}

TEST_F(Posix_threaded_data_stream_failures, bytes_after_the_end_of_a_fifo_are_received) {
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

TEST_F(Posix_threaded_data_stream_failures, a_descriptor_that_replaces_one_at_its_end_is_read_at_once) {
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

TEST_F(Posix_threaded_data_stream_failures, a_stream_that_closes_at_end_of_file_continues_without_input) {
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

/// A terminal whose near end is not open: reading from the far end fails with EIO.
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

TEST_F(Posix_threaded_data_stream_failures, a_line_that_is_gone_is_reported_once_and_is_at_end_of_file) {
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
    EXPECT_TRUE(is_reported(message + message)); // gone again, which is reported again
}

TEST_F(Posix_threaded_data_stream_failures, every_error_of_a_line_that_is_gone_is_end_of_file) {
    for (const int error : {EIO, ENODEV, ENXIO}) {
        Socket_pair pair;
        Threaded_stream reader(pair.take_near());
        const int fd = reader.get_read_fd();
        write_all(pair.far(), "abc");
        Replaced_calls calls;
        calls.read = [fd, error](int asked) -> std::optional<ssize_t> {
            if (asked != fd)
                return std::nullopt;
            errno = error;
            return -1;
        };
        reader.start();
        EXPECT_TRUE(eventually([&] { return reader.ends_of_file > 0; })) << error;
        EXPECT_TRUE(process_rests()) << error;
        reader.stop();
    }
}

TEST_F(Posix_threaded_data_stream_failures, input_that_another_process_has_read_is_no_failure) {
    const int fd = stream.get_read_fd();
    std::atomic<int> reads{0};
    Replaced_calls calls;
    calls.read = [&, fd](int asked) -> std::optional<ssize_t> {
        if (asked != fd || ++reads > 1)
            return std::nullopt;
        errno = EAGAIN;
        return -1;
    };
    arrive("abc");
    stream.start();
    EXPECT_TRUE(receives(3));
    stream.stop();
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_failures, reads_that_signals_interrupt_are_reported_once_and_do_not_spin) {
    const int fd = stream.get_read_fd();
    std::atomic<bool> interrupted{true};
    Replaced_calls calls;
    calls.read = [&, fd](int asked) -> std::optional<ssize_t> {
        if (asked != fd || !interrupted)
            return std::nullopt;
        errno = EINTR;
        return -1;
    };
    arrive("abc");
    stream.start();
    ASSERT_TRUE(is_reported("read(), Posix_data_stream::get_data: Interrupted system call\n"));
    EXPECT_TRUE(process_rests());
    interrupted = false;
    EXPECT_TRUE(receives(3));
    stream.stop();
    EXPECT_EQ(stream.ends_of_file, 0);
    EXPECT_EQ(errors.text(), "read(), Posix_data_stream::get_data: Interrupted system call\n");
}

TEST_F(Posix_threaded_data_stream_failures, a_folder_is_reported_once_and_is_not_at_end_of_file) {
    Threaded_stream reader(open("/", O_RDONLY | O_CLOEXEC), -1);
    reader.start();
    ASSERT_TRUE(is_reported("read(), Posix_data_stream::get_data: Is a directory\n"));
    EXPECT_TRUE(process_rests());
    reader.stop();
    EXPECT_EQ(reader.ends_of_file, 0);
    EXPECT_EQ(errors.text(), "read(), Posix_data_stream::get_data: Is a directory\n");
}

TEST_F(Posix_threaded_data_stream_failures, a_descriptor_that_the_test_closes_is_reported_once_and_rests) {
    const std::string message = "select(), Posix_data_stream::get_data: Bad file descriptor\n";
    const int fd = stream.get_read_fd();
    const int kept = dup(fd);
    close(fd);
    stream.start();
    ASSERT_TRUE(is_reported(message));
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(errors.text(), message);

    dup2(kept, fd);
    close(kept);
    arrive("abc");
    EXPECT_TRUE(receives(3));
}

TEST_F(Posix_threaded_data_stream_failures, a_descriptor_that_was_replaced_during_the_wait_is_no_failure) {
    std::atomic<int> waits{0};
    Replaced_calls calls;
    calls.select = [&](timeval*) { // the old one was closed, and the new one has its number
        errno = ++waits == 1 ? EBADF : ENOMEM;
        return -1;
    };
    stream.start();
    EXPECT_TRUE(eventually([&] { return waits > 1; }));
    EXPECT_TRUE(is_reported("select(), Posix_data_stream::get_data: Cannot allocate memory\n"));
    stream.stop();
}

TEST_F(Posix_threaded_data_stream_failures, requests_are_handled_while_select_fails) {
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

TEST_F(Posix_threaded_data_stream_failures, a_wait_without_a_limit_that_times_out_is_reported) {
    Replaced_calls calls;
    calls.select = [](timeval* limit) {
        EXPECT_EQ(limit, nullptr);
        return 0;
    };
    const Stopwatch watch;
    stream.start();
    EXPECT_TRUE(process_rests());
    stream.stop();
    const std::string printed = errors.text();
    const std::string message = "select(), should not have timed out";
    EXPECT_EQ(occurrences(message, printed) * message.size(), printed.size());
    EXPECT_GE(occurrences(message, printed), 1U);
    EXPECT_LE(occurrences(message, printed), static_cast<std::size_t>(watch.elapsed() / milliseconds(100)) + 1);
}

TEST_F(Posix_threaded_data_stream_failures, a_select_that_always_fails_is_reported_once_and_does_not_spin) {
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

TEST_F(Posix_threaded_data_stream_failures, a_signal_is_reported_and_survived) {
    struct sigaction quiet {};
    struct sigaction before {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, &before);
    std::atomic<pthread_t> thread{};
    stream.set_rx_callback([&] { thread = pthread_self(); });
    stream.start();
    arrive("a");
    ASSERT_TRUE(waiter.wait_for(1));
    // The thread may not be waiting yet; a signal before the wait has no effect.
    EXPECT_TRUE(eventually([&] {
        pthread_kill(thread, SIGUSR1);
        return errors.text().find("select(), Posix_data_stream::get_data: Interrupted system call\n") == 0;
    }));
    arrive("b");
    EXPECT_TRUE(receives(2));
    stream.stop();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(Posix_threaded_data_stream_failures, a_descriptor_too_high_for_select_is_reported_once_and_left_alone) {
    const int fd = copy_too_high_for_select(stream.get_read_fd());
    Threaded_stream reader(fd, fd);
    reader.set_write_buffering(true);
    arrive("abc");
    reader.start();
    EXPECT_TRUE(is_reported(report_of_high_descriptor(reader.get_description(), fd)));
    EXPECT_TRUE(process_rests());
    reader.wake();
    EXPECT_TRUE(process_rests());
    reader.stop();
    EXPECT_EQ(reader.bytes_avail(), 0U);
    EXPECT_EQ(errors.text(), report_of_high_descriptor(reader.get_description(), fd));
}

TEST_F(Posix_threaded_data_stream_failures, queued_bytes_for_a_descriptor_too_high_for_select_are_reported_once) {
    Pipe pipe;
    pipe.shrink();
    make_non_blocking(pipe.writing());
    const int fd = copy_too_high_for_select(pipe.writing());
    Threaded_stream writer(-1, fd);
    writer.set_write_buffering(true);
    writer.start();
    const std::string bytes(70000, 'x'); // more than the pipe holds
    write_bytes(writer, bytes);
    EXPECT_TRUE(is_reported(report_of_high_descriptor(writer.get_description(), fd)));
    write_bytes(writer, bytes);
    EXPECT_TRUE(process_rests());
    writer.stop();
    EXPECT_EQ(errors.text(), report_of_high_descriptor(writer.get_description(), fd));
}

TEST_F(Posix_threaded_data_stream_failures,
       a_notification_pipe_too_high_for_select_is_reported_and_requests_still_count) {
    const int fd = dup(stream.get_read_fd());
    const Many_descriptors many(FD_SETSIZE);
    const int request_pipe = next_descriptor();
    Threaded_stream reader(fd, -1);
    reader.start();
    EXPECT_TRUE(is_reported(report_of_high_descriptor(reader.get_description(), request_pipe)));
    arrive("abc");
    EXPECT_TRUE(eventually([&] { return reader.bytes_avail() == 3; }));
    reader.pause();
    EXPECT_TRUE(eventually([&] { return bytes_ready(request_pipe) == 0; }));
    reader.stop();
    EXPECT_EQ(errors.text(), report_of_high_descriptor(reader.get_description(), request_pipe));
}

TEST_F(Posix_threaded_data_stream_failures, an_idle_thread_rests) {
    stream.start();
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(errors.text(), "");
}

} // namespace
