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
    // A FIFO opens at once and is then waited for as everything else is. A line does not become the controlling
    // terminal of a process that has none: that it hangs up is an end of the input, not of the process.
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

/// One read, of what is there, into the room that the ring has in one piece.
Receiver_input::Arrival Receiver_input::fetch() {
    const auto room = rx_buffer.free_region();
    if (room.size == 0)
        return Arrival::bytes;
    const ssize_t came = ::read(get_read_fd(), room.begin, room.size);
    if (came > 0) {
        rx_buffer.commit(static_cast<unsigned>(came));
        arrived_ += static_cast<std::uint64_t>(came);
        return Arrival::bytes;
    }
    if (came < 0 && (errno == EAGAIN || errno == EINTR))
        return Arrival::nothing;  // somebody else was faster
    if (came < 0 && errno != EIO) // EIO is how a terminal line says that its other end is gone
        error_ = errno;
    return Arrival::end;
}

int Receiver_input::get_data(int n) {
    return n == 0;
}
