#include <glue/data_stream/Posix_data_stream.h>

#include "detail/Select.h"
#include "detail/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

namespace {

/// The descriptors below are the standard ones.
constexpr int first_own_descriptor = 3;
constexpr int no_limit = -1;

int flags_of(int access, bool create, bool blocking, bool append) {
    return access | (create ? O_CREAT : 0) | (blocking ? 0 : O_NONBLOCK) | (append ? O_APPEND : 0);
}

/// On purpose; see the header.
int permissions_of(int flags) {
    return flags & ~O_APPEND;
}

std::int64_t wall_clock_ms() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
}

} // namespace

void Posix_data_stream::Commander::init(int descriptor) {
    fd_ = descriptor;
}

bool Posix_data_stream::Commander::send_break(int) {
    return tcsendbreak(fd_, 0) == 0;
}

Posix_data_stream::Posix_data_stream(int read_descriptor, int write_descriptor)
    : read_fd(read_descriptor),
      write_fd(write_descriptor),
      read_timeout_ms(no_limit),
      write_timeout_ms(no_limit),
      name_prefix("DSPosix") {
    reset_description();
}

Posix_data_stream::Posix_data_stream(const char* prefix)
    : read_fd(-1), write_fd(-1), read_timeout_ms(no_limit), write_timeout_ms(no_limit), name_prefix(prefix) {
    reset_description();
}

Posix_data_stream::~Posix_data_stream() {
    close();
    close_read();
    close_write();
}

bool Posix_data_stream::open(const char* path, bool create, bool blocking, bool append) {
    const int flags = flags_of(O_RDWR, create, blocking, append);
    return open_by_name(path, flags, permissions_of(flags), Direction::both);
}

bool Posix_data_stream::open_read(const char* path, bool blocking) {
    return open_by_name(path, flags_of(O_RDONLY, false, blocking, false), blocking, Direction::read);
}

bool Posix_data_stream::open_write(const char* path, bool create, bool blocking, bool append) {
    const int flags = flags_of(O_WRONLY | O_NOCTTY, create, blocking, append);
    return open_by_name(path, flags, permissions_of(flags), Direction::write);
}

bool Posix_data_stream::open_by_name(const char* path, int flags, int permissions, Direction direction) {
    release(direction);
    const int fd = glue_detail::above_standard(::open(path, flags, permissions));
    if (fd < 0) {
        if (reports_failed_opening)
            std::fprintf(stderr, "Error opening '%s': %s\n", path, std::strerror(errno));
        return false;
    }
    if (direction != Direction::write)
        read_fd = fd;
    if (direction != Direction::read)
        write_fd = fd;
    static constexpr const char* words[] = {"r", "w", "rw"};
    format_description("%s(%p, %s, %s)", name_prefix, static_cast<void*>(this), path,
                       words[static_cast<int>(direction)]);
    return true;
}

/// Closes a descriptor that only this direction uses. Forgets, but does not close, a standard descriptor and one that
/// the other direction still uses. For both directions, the second step closes a shared descriptor.
void Posix_data_stream::release(Direction direction) {
    if (direction != Direction::write) {
        close_read();
        read_fd = -1;
    }
    if (direction != Direction::read) {
        close_write();
        write_fd = -1;
    }
}

bool Posix_data_stream::close_read() {
    reset_description();
    if (read_fd < first_own_descriptor || read_fd == write_fd)
        return false;
    ::close(read_fd);
    read_fd = -1;
    return true;
}

bool Posix_data_stream::close_write() {
    reset_description();
    if (write_fd < first_own_descriptor || write_fd == read_fd)
        return false;
    ::close(write_fd);
    write_fd = -1;
    return true;
}

bool Posix_data_stream::close() {
    reset_description();
    if (write_fd < first_own_descriptor || write_fd != read_fd)
        return false;
    ::close(write_fd);
    read_fd = write_fd = -1;
    return true;
}

void Posix_data_stream::reset_description() {
    format_description("%s(%p)", name_prefix, static_cast<void*>(this));
}

bool Posix_data_stream::init_commander(Commander& commander) {
    if (write_fd < 0)
        return false;
    commander.init(write_fd);
    return true;
}

int Posix_data_stream::set_read_timeout(int ms) {
    read_timeout_ms = ms;
    return 1;
}

int Posix_data_stream::set_default_read_timeout() {
    return set_read_timeout(no_limit);
}

int Posix_data_stream::set_write_timeout(int ms) {
    write_timeout_ms = ms;
    return 1;
}

int Posix_data_stream::set_default_write_timeout() {
    return set_write_timeout(no_limit);
}

int Posix_data_stream::get_data(int n) {
    if (read_fd < 0 || n < 0)
        return 0;
    const bool limited = read_timeout_ms >= 0;
    timeval budget = glue_detail::Select::limit_of(limited ? read_timeout_ms : 0);
    auto missing = static_cast<unsigned int>(n);
    while (missing > 0) {
        if (limited && !wait_for_input(budget))
            return 0;
        const ssize_t received = read_into_ring(missing);
        if (received < 1)
            return 0;
        missing -= static_cast<unsigned int>(received);
    }
    return 1;
}

/// \return false after the time limit. True when there is input, and when waiting fails: the read that follows returns
///         the error then
bool Posix_data_stream::wait_for_input(timeval& budget) {
    glue_detail::Select select(*this, high_descriptor_reported);
    if (!select.add_reading(read_fd))
        return true;
    const int ready = select.wait(&budget);
    if (ready < 0)
        report_failed_select();
    return ready != 0;
}

/// One read of at most `most` bytes, directly into the ring's storage. When the ring is full, the bytes are lost.
ssize_t Posix_data_stream::read_into_ring(unsigned int most) {
    if (rx_buffer.full()) {
        unsigned char lost[256];
        return ::read(read_fd, lost, std::min<std::size_t>(most, sizeof lost));
    }
    const auto free = rx_buffer.free_region();
    const ssize_t received = ::read(read_fd, free.begin, std::min(most, free.size));
    if (received > 0)
        rx_buffer.commit(static_cast<unsigned int>(received));
    return received;
}

void Posix_data_stream::report_failed_select() {
    std::perror("select(), Posix_data_stream::get_data");
}

int Posix_data_stream::_write(const unsigned char* data, unsigned int len) {
    if (write_fd < 0)
        return -1;
    if (write_timeout_ms < 0)
        return static_cast<int>(::write(write_fd, data, len));
    return write_within_timeout(data, len);
}

int Posix_data_stream::write_within_timeout(const unsigned char* data, unsigned int len) {
    const std::int64_t start = wall_clock_ms();
    timeval budget = glue_detail::Select::limit_of(write_timeout_ms);
    unsigned int written = 0;
    while (true) {
        const int ready = wait_for_space(budget);
        if (ready == 0 || (ready < 0 && errno != EAGAIN))
            break;
        if (ready > 0) {
            const ssize_t count = ::write(write_fd, data + written, len - written);
            if (count < 0)
                break;
            written += static_cast<unsigned int>(count);
            if (written == len)
                break;
        }
        const std::int64_t elapsed = wall_clock_ms() - start;
        if (elapsed > write_timeout_ms)
            break;
        // The wall clock may have been set back: the time left must never grow.
        const std::int64_t left_ms = std::min<std::int64_t>(write_timeout_ms - elapsed, write_timeout_ms);
        const timeval left = glue_detail::Select::limit_of(left_ms);
        if (timercmp(&left, &budget, <))
            budget = left;
    }
    return static_cast<int>(written);
}

/// \return as `select`
int Posix_data_stream::wait_for_space(timeval& budget) {
    glue_detail::Select select(*this, high_descriptor_reported);
    if (!select.add_writing(write_fd)) {
        errno = EINVAL;
        return -1;
    }
    return select.wait(&budget);
}
