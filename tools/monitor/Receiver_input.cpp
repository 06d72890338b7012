#include "Receiver_input.h"

#include "waiting_time.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

Receiver_input::Receiver_input() : Posix_data_stream(STDIN_FILENO, -1) {}

Receiver_input::~Receiver_input() {
    if (line_settings_)
        tcsetattr(get_read_fd(), TCSANOW, &*line_settings_);
}

bool Receiver_input::open_device(const std::string& path) {
    // A FIFO opens at once, and `wait` waits for its writer. A line does not become the controlling terminal of a
    // process without one: a line that hangs up ends the input, not the process.
    if (!open_by_name(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY, 0, Direction::read))
        return false;
    termios settings{};
    if (tcgetattr(get_read_fd(), &settings) == 0) {
        line_settings_ = settings;
        cfmakeraw(&settings);
        tcsetattr(get_read_fd(), TCSANOW, &settings);
    }
    return true;
}

Receiver_input::Arrival Receiver_input::wait(std::optional<Atime> deadline, int wake_up_descriptor) {
    pollfd descriptors[] = {{get_read_fd(), POLLIN, 0}, {wake_up_descriptor, POLLIN, 0}};
    const int ready = poll(descriptors, 2, milliseconds_until(deadline));
    if (ready < 0 && errno != EINTR) {
        error_ = errno;
        return Arrival::end;
    }
    if (ready <= 0)
        return Arrival::nothing;
    if (descriptors[1].revents != 0)
        return Arrival::wake_up;
    return fetch();
}

bool Receiver_input::can_wait() const {
    return isatty(get_read_fd()) == 0;
}

/// Reads once, into the ring's contiguous free space.
Receiver_input::Arrival Receiver_input::fetch() {
    const auto free = rx_buffer.free_region();
    if (free.size == 0)
        return Arrival::bytes;
    const ssize_t received = ::read(get_read_fd(), free.begin, free.size);
    if (received > 0) {
        rx_buffer.commit(static_cast<unsigned>(received));
        arrived_ += static_cast<std::uint64_t>(received);
        return Arrival::bytes;
    }
    if (received < 0 && (errno == EAGAIN || errno == EINTR))
        return Arrival::nothing;      // another process read the bytes first
    if (received < 0 && errno != EIO) // EIO: the other end of a terminal line is closed
        error_ = errno;
    return Arrival::end;
}

int Receiver_input::get_data(int n) {
    return n == 0;
}
