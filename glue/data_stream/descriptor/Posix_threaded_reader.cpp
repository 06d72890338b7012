// The reader thread:
//
//            "p"              "q", stop
//   paused <------ waiting -------------> ended
//      |            ^  |  ^                 ^
//      +--resume----+  |  |                 |
//      |               v  |                 |
//      |      send, receive, notify --------+   (waits up to 500 ms for free space in the receive ring)
//      +--stop------------------------------+
//
// Each descriptor that it waits for:
//
//   in use --fails, end of file--> resting --after 100 ms, or another descriptor replaces it--> in use

#include "data_stream/descriptor/Posix_threaded_reader.h"

#include "detail/Select.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string_view>
#include <unistd.h>

namespace {

/// How long a descriptor that failed, or is at its end of file, is not used. Without a pipe, also the interval at which
/// the thread checks for requests.
constexpr int rest_ms = 100;

constexpr unsigned read_size = 256;
constexpr unsigned send_size = 1024;
constexpr unsigned requests_at_once = 32;

/// Attempts, 1 ms apart, to find free space in a full receive ring.
constexpr int attempts_to_deliver = 500;

using Descriptor_use = std::shared_lock<std::shared_mutex>;

/// In units of Atime; 0 after the deadline.
std::int64_t time_left_until(std::int64_t deadline) {
    return std::max<std::int64_t>(deadline - Atime::now().units(), 0);
}

/// Whether the descriptor is open. A negative one means that there is none, which is good.
bool is_good(int fd) {
    return fd < 0 || fcntl(fd, F_GETFD) >= 0;
}

bool line_is_gone(int error) {
    return error == EIO || error == ENODEV || error == ENXIO;
}

} // namespace

// ---- Condition ----

bool Posix_threaded_data_stream::Reader::Condition::failed(int error) {
    const bool is_new = error != last_error_;
    last_error_ = error;
    return is_new;
}

void Posix_threaded_data_stream::Reader::Condition::rest(int fd) {
    resting_fd_ = fd;
    rests_until_ = Atime::now() + rest_ms;
}

std::int64_t Posix_threaded_data_stream::Reader::Condition::rest_left(int fd) const {
    return fd == resting_fd_ ? std::max<std::int64_t>(rests_until_ - Atime::now(), 0) : 0;
}

// ---- The loop ----

void Posix_threaded_data_stream::Reader::run() {
    while (!stream_.stopping_) {
        const Ready ready = wait();
        if (ready.requests && handle_requests())
            continue;
        run_timer();
        if (!ready.input)
            notify_when_quiet();
        if (ready.output)
            send_queued();
        if (ready.input)
            receive();
    }
}

Posix_threaded_data_stream::Reader::Ready Posix_threaded_data_stream::Reader::wait() {
    glue_detail::Select select(stream_, stream_.high_descriptor_reported);
    Wait_limit limit;
    const Watched watched = watch(select, limit);
    timeval time_left = glue_detail::Select::limit_of(limit.ms());
    const int count = select.wait(limit.is_set() ? &time_left : nullptr);

    Ready ready;
    ready.requests = watched.requests < 0; // without a pipe, check for requests each time
    if (count > 0) {
        select_condition_.worked();
        ready.requests = ready.requests || select.is_readable(watched.requests);
        ready.output = watched.output >= 0 && select.is_writable(watched.output);
        ready.input = watched.input >= 0 && select.is_readable(watched.input);
    } else if (count == 0) {
        select_condition_.worked();
        if (!limit.is_set())
            handle_unlimited_timeout();
    } else {
        handle_failed_select(errno);
        ready.requests = true;
    }
    return ready;
}

/// Adds the descriptors and the time limits of the next wait.
Posix_threaded_data_stream::Reader::Watched Posix_threaded_data_stream::Reader::watch(glue_detail::Select& select,
                                                                                      Wait_limit& limit) const {
    Watched watched;
    const int input = stream_.read_fd;
    if (const std::int64_t rest = input_condition_.rest_left(input); rest > 0)
        limit.at_most(rest);
    else if (select.add_reading(input))
        watched.input = input;

    if (bytes_are_queued()) {
        const int output = stream_.write_fd;
        if (const std::int64_t rest = output_condition_.rest_left(output); rest > 0)
            limit.at_most(rest);
        else if (select.add_writing(output))
            watched.output = output;
    }

    if (select.add_reading(stream_.notify_pipe_[0]))
        watched.requests = stream_.notify_pipe_[0];
    else
        limit.at_most(rest_ms);
    if (stream_.rx_event_pending_)
        limit.at_most(quiet_time_left());
    if (const std::int64_t due = stream_.timer_due_; due >= 0)
        limit.at_most(time_left_until(due));
    return watched;
}

/// Distinguishes a descriptor that was closed without the stream's knowledge from one that the stream itself closed or
/// replaced during the wait. A new descriptor may have the number of the old one.
bool Posix_threaded_data_stream::Reader::descriptors_are_good() const {
    const Descriptor_use use(stream_.descriptor_use); // no other thread closes one meanwhile
    return is_good(stream_.notify_pipe_[0]) && is_good(stream_.read_fd) && is_good(stream_.write_fd);
}

void Posix_threaded_data_stream::Reader::handle_unlimited_timeout() const {
    std::fputs("select(), should not have timed out", stderr);
    hold_off();
}

void Posix_threaded_data_stream::Reader::handle_failed_select(int error) {
    const bool was_replaced = error == EBADF && descriptors_are_good();
    if (was_replaced)
        return;
    const bool is_new = select_condition_.failed(error);
    if (is_new) {
        errno = error;
        report_failed_select();
    }
    if (error != EINTR || !is_new)
        hold_off();
}

/// Waits a while, for requests only.
void Posix_threaded_data_stream::Reader::hold_off() const {
    pollfd requests{stream_.notify_pipe_[0], POLLIN, 0};
    ::poll(&requests, 1, rest_ms);
}

bool Posix_threaded_data_stream::Reader::bytes_are_queued() const {
    if (!stream_.write_buffering_)
        return false;
    const std::lock_guard guard(stream_.tx_lock_);
    return !stream_.tx_ring_.empty();
}

// ---- Requests, delayed events and the timer ----

/// "n" and "q" need no action: they woke the thread.
/// \return whether the result of the wait is no longer valid: the thread must stop, or there was a pause, during which
///         anything may have changed
bool Posix_threaded_data_stream::Reader::handle_requests() {
    char requests[requests_at_once];
    const ssize_t count = ::read(stream_.notify_pipe_[0], requests, sizeof requests);
    stream_.wake_pending_ = false; // the next change wakes the thread again
    const std::string_view received(requests, count > 0 ? static_cast<std::size_t>(count) : 0);
    const bool pauses = received.find('p') != received.npos;
    if (pauses && !stream_.stopping_)
        stream_.pause_gate_.acquire();
    return pauses || stream_.stopping_;
}

void Posix_threaded_data_stream::Reader::notify_when_quiet() {
    if (!stream_.rx_event_pending_ || quiet_time_left() > 0)
        return;
    stream_.rx_event_pending_ = false;
    const std::lock_guard guard(stream_);
    stream_.Event_sender_data_stream::send_rx_event(false);
}

/// In milliseconds, rounded up so that the quiet time is never too short.
std::int64_t Posix_threaded_data_stream::Reader::quiet_time_left() const {
    const std::int64_t quiet = stream_.rx_event_timeout_ms_;
    return std::max<std::int64_t>(last_input_ + (quiet + 1) - Atime::now(), 0);
}

void Posix_threaded_data_stream::Reader::run_timer() {
    std::int64_t due = stream_.timer_due_;
    if (due >= 0 && time_left_until(due) == 0 && stream_.timer_due_.compare_exchange_strong(due, -1))
        stream_.handle_timer();
}

// ---- Sending ----

void Posix_threaded_data_stream::Reader::send_queued() {
    unsigned char piece[send_size];
    int fd;
    bool was_full;
    ssize_t sent;
    {
        const std::lock_guard guard(stream_.tx_lock_);
        const Descriptor_use use(stream_.descriptor_use);
        fd = stream_.write_fd;
        if (fd < 0) // closed since the wait
            return;
        was_full = stream_.tx_ring_.full();
        sent = ::write(fd, piece, stream_.tx_ring_.peek(piece, send_size, 0));
        if (sent > 0)
            stream_.tx_ring_.consume(static_cast<unsigned int>(sent));
    }
    if (sent < 0)
        handle_failed_write(fd);
    if (sent <= 0)
        return;
    output_condition_.worked();
    stream_.log_port(log_writes, "WRB", piece, static_cast<unsigned int>(sent));
    if (was_full) {
        const std::lock_guard guard(stream_); // a waiter that deregistered is no longer notified
        stream_.send_tx_event(true);
    }
}

/// The bytes stay in the transmit ring.
void Posix_threaded_data_stream::Reader::handle_failed_write(int fd) {
    const int error = errno;
    if (error == EINTR || error == EAGAIN)
        return;
    if (output_condition_.failed(error))
        std::perror("ptds write");
    output_condition_.rest(fd);
}

// ---- Receiving ----

void Posix_threaded_data_stream::Reader::receive() {
    unsigned char chunk[read_size];
    int fd;
    ssize_t count;
    {
        const Descriptor_use use(stream_.descriptor_use);
        fd = stream_.read_fd;
        if (fd < 0) // closed since the wait
            return;
        count = ::read(fd, chunk, sizeof chunk);
    }
    if (count > 0) {
        input_condition_.worked();
        last_input_ = Atime::now();
        stream_.log_port(log_reads, "RD", chunk, static_cast<unsigned int>(count));
        deliver(chunk, static_cast<unsigned int>(count));
    } else if (count == 0) {
        handle_end_of_file(fd);
    } else if (errno != EAGAIN) {
        handle_failed_read(fd);
    }
}

void Posix_threaded_data_stream::Reader::handle_failed_read(int fd) {
    const int error = errno;
    const bool is_new = input_condition_.failed(error);
    if (is_new)
        std::perror("read(), Posix_data_stream::get_data");
    if (line_is_gone(error))
        handle_end_of_file(fd);
    else if (error != EINTR || !is_new)
        input_condition_.rest(fd);
}

void Posix_threaded_data_stream::Reader::handle_end_of_file(int fd) {
    stream_.handle_close();
    if (stream_.read_fd == fd)
        input_condition_.rest(fd);
}

void Posix_threaded_data_stream::Reader::deliver(const unsigned char* bytes, unsigned int count) {
    if (deliver_at_once(bytes, count))
        return;
    int attempts = 0; // since the last one that found free space, that one included
    while (attempts < attempts_to_deliver) {
        const unsigned int delivered = deliver_what_fits(bytes, count);
        bytes += delivered;
        count -= delivered;
        if (count == 0 || stream_.stopping_)
            return;
        attempts = delivered > 0 ? 1 : attempts + 1;
        Atime::delay(1);
    }
    std::fputs("CLIENT TOO SLOW!!!!!!!!!!!!!!!!!!!!\n\n", stderr);
    const std::lock_guard guard(stream_);
    stream_.send_rx_event(true);
}

bool Posix_threaded_data_stream::Reader::deliver_at_once(const unsigned char* bytes, unsigned int count) {
    const std::lock_guard guard(stream_);
    if (stream_.rx_buffer.free_space() < count)
        return false;
    stream_.rx_buffer.append(bytes, count);
    stream_.send_rx_event(false);
    return true;
}

unsigned int Posix_threaded_data_stream::Reader::deliver_what_fits(const unsigned char* bytes, unsigned int count) {
    const std::lock_guard guard(stream_);
    const unsigned int appended = stream_.rx_buffer.append(bytes, count);
    if (appended > 0)
        stream_.send_rx_event(true);
    return appended;
}
