#include "data_stream/descriptor/Posix_threaded_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string_view>
#include <sys/select.h>
#include <unistd.h>

namespace {

/// How long what failed, or is at its end, is let alone; and how often requests are looked for without a pipe.
constexpr int rest_ms = 100;

constexpr unsigned read_size = 256;
constexpr unsigned send_size = 1024;
constexpr unsigned requests_at_once = 32;

/// How often room in a full receive ring is looked for, 1 ms apart.
constexpr int attempts_to_deliver = 500;

using Descriptor_use = std::shared_lock<std::shared_mutex>;

/// The descriptors that one `select` waits for, and for how long.
class Select {
  public:
    Select() {
        FD_ZERO(&readable_);
        FD_ZERO(&writable_);
    }

    /// \return whether it can be waited for
    bool add_reading(int fd) { return add(fd, readable_); }
    bool add_writing(int fd) { return add(fd, writable_); }
    void wait_at_most(std::int64_t ms) { limit_ms_ = limited() ? std::min(limit_ms_, ms) : ms; }
    bool limited() const { return limit_ms_ >= 0; }

    int wait() {
        timeval limit{};
        if (limited()) {
            limit.tv_sec = static_cast<time_t>(limit_ms_ / 1000);
            limit.tv_usec = static_cast<suseconds_t>(limit_ms_ % 1000 * 1000);
        }
        return ::select(highest_ + 1, &readable_, &writable_, nullptr, limited() ? &limit : nullptr);
    }

    bool is_readable(int fd) const { return FD_ISSET(fd, &readable_); }
    bool is_writable(int fd) const { return FD_ISSET(fd, &writable_); }

  private:
    bool add(int fd, fd_set& set) {
        if (fd < 0 || fd >= FD_SETSIZE) // its bit would lie outside the set
            return false;
        FD_SET(fd, &set);
        highest_ = std::max(highest_, fd);
        return true;
    }

    fd_set readable_;
    fd_set writable_;
    int highest_ = -1;
    std::int64_t limit_ms_ = -1;
};

/// In units of Atime; 0 when it is past.
std::int64_t time_left_until(std::int64_t point) {
    return std::max<std::int64_t>(point - Atime::now().units(), 0);
}

/// Whether it is open, or there is none.
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
        if (ready.requests && take_requests())
            continue;
        run_timer();
        if (!ready.input)
            announce_when_quiet();
        if (ready.output)
            send_queued();
        if (ready.input)
            receive();
    }
}

Posix_threaded_data_stream::Reader::Ready Posix_threaded_data_stream::Reader::wait() {
    const int requests = stream_.notify_pipe_[0];
    const int input = stream_.read_fd;
    const int output = stream_.write_fd;
    const std::int64_t input_rest = input_condition_.rest_left(input);
    const std::int64_t output_rest = output_condition_.rest_left(output);
    const bool has_output = bytes_are_queued();

    Select select;
    const bool hears = select.add_reading(requests);
    const bool reads = input_rest == 0 && select.add_reading(input);
    const bool sends = has_output && output_rest == 0 && select.add_writing(output);
    if (!hears)
        select.wait_at_most(rest_ms);
    if (input_rest > 0)
        select.wait_at_most(input_rest);
    if (has_output && output_rest > 0)
        select.wait_at_most(output_rest);
    if (stream_.rx_event_pending_)
        select.wait_at_most(quiet_time_left());
    if (const std::int64_t due = stream_.timer_due_; due >= 0)
        select.wait_at_most(time_left_until(due));

    const int count = select.wait();
    Ready ready;
    ready.requests = true; // also when the wait has failed, or there is no pipe to wait for
    if (count < 0) {
        const int error = errno;
        const bool closed_meanwhile = error == EBADF && descriptors_are_good();
        if (!closed_meanwhile)
            handle_failed_select(error);
        return ready;
    }
    select_condition_.worked();
    if (count > 0) {
        ready.requests = !hears || select.is_readable(requests);
        ready.output = sends && select.is_writable(output);
        ready.input = reads && select.is_readable(input);
    } else if (!select.limited()) {
        std::fputs("select(), should not have timed out", stderr);
        hold_off();
    }
    return ready;
}

/// Tells a descriptor that was closed behind the stream's back from one that was closed, or replaced, by the stream
/// itself during the wait; the new one may have the number of the old.
bool Posix_threaded_data_stream::Reader::descriptors_are_good() const {
    const Descriptor_use use(stream_.descriptor_use); // nobody is about to close one
    return is_good(stream_.notify_pipe_[0]) && is_good(stream_.read_fd) && is_good(stream_.write_fd);
}

void Posix_threaded_data_stream::Reader::handle_failed_select(int error) {
    const bool is_new = select_condition_.failed(error);
    if (is_new) {
        errno = error;
        report_failed_select();
    }
    if (error != EINTR || !is_new)
        hold_off();
}

/// Waits a while, for requests alone.
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

// ---- Requests and announcements ----

/// "n" and "q" have done their work by waking the thread. \return whether what was ready does not count any more: the
/// thread shall stop, or there was a pause, after which everything may be different
bool Posix_threaded_data_stream::Reader::take_requests() {
    char requests[requests_at_once];
    const ssize_t count = ::read(stream_.notify_pipe_[0], requests, sizeof requests);
    stream_.wake_on_way_ = false; // from here on, whoever changes something wakes the thread anew
    const std::string_view seen(requests, count > 0 ? static_cast<std::size_t>(count) : 0);
    const bool pauses = seen.find('p') != seen.npos;
    if (pauses && !stream_.stopping_)
        stream_.pause_gate_.acquire();
    return pauses || stream_.stopping_;
}

void Posix_threaded_data_stream::Reader::announce_when_quiet() {
    if (!stream_.rx_event_pending_ || quiet_time_left() > 0)
        return;
    stream_.rx_event_pending_ = false;
    const std::lock_guard guard(stream_);
    stream_.Event_sender_data_stream::send_rx_event(false);
}

/// In milliseconds, rounded up: the quiet time is never cut short.
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
        const std::lock_guard guard(stream_); // a waiter that deregisters is not told any more
        stream_.send_tx_event(true);
    }
}

/// The bytes stay in the ring.
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
    for (int attempt = 1; attempt <= attempts_to_deliver; ++attempt) {
        const unsigned int taken = deliver_what_fits(bytes, count);
        bytes += taken;
        count -= taken;
        if (count == 0 || stream_.stopping_)
            return;
        if (taken > 0)
            attempt = 1;
        Atime::delay(1);
    }
    std::fputs("CLIENT TOO SLOW!!!!!!!!!!!!!!!!!!!!\n\n", stderr);
    const std::lock_guard guard(stream_);
    stream_.send_rx_event(true);
}

bool Posix_threaded_data_stream::Reader::deliver_at_once(const unsigned char* bytes, unsigned int count) {
    const std::lock_guard guard(stream_);
    if (stream_.rx_buffer.room() < count)
        return false;
    stream_.rx_buffer.append(bytes, count);
    stream_.send_rx_event(false);
    return true;
}

unsigned int Posix_threaded_data_stream::Reader::deliver_what_fits(const unsigned char* bytes, unsigned int count) {
    const std::lock_guard guard(stream_);
    const unsigned int taken = stream_.rx_buffer.append(bytes, count);
    if (taken > 0)
        stream_.send_rx_event(true);
    return taken;
}
