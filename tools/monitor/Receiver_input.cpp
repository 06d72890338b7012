#include "Receiver_input.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool is_fifo(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

int milliseconds_until(std::optional<Atime> deadline) {
    if (!deadline)
        return -1;
    const std::int64_t rest = *deadline - Atime::now();
    return static_cast<int>(std::clamp<std::int64_t>(rest, 0, std::numeric_limits<int>::max()));
}

/// Bytes that a read would give at once; at least 1, since a read tells the end too.
unsigned waiting_in_system(int descriptor) {
    int count = 0;
    return ioctl(descriptor, FIONREAD, &count) == 0 ? static_cast<unsigned>(std::max(count, 1)) : 1;
}

} // namespace

Receiver_input::Receiver_input() : Posix_data_stream(STDIN_FILENO, -1) {
    set_read_timeout(0);
}

Receiver_input::~Receiver_input() {
    if (line_settings_)
        tcsetattr(get_read_fd(), TCSANOW, &*line_settings_);
}

bool Receiver_input::open_device(const std::string& path) {
    if (!open_read(path.c_str(), is_fifo(path)))
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

Receiver_input::Arrival Receiver_input::fetch() {
    const std::uint64_t before = arrived_;
    const unsigned wanted = std::min(waiting_in_system(get_read_fd()), rx_capacity - bytes_avail());
    errno = 0;
    get_data(static_cast<int>(wanted));
    if (arrived_ > before)
        return Arrival::bytes;
    if (errno == EAGAIN || errno == EINTR)
        return Arrival::nothing;
    error_ = errno == EIO ? 0 : errno; // EIO is how a terminal line says that its other end is gone
    return Arrival::end;
}

int Receiver_input::get_data(int n) {
    const unsigned before = bytes_avail();
    const int result = Posix_data_stream::get_data(n);
    arrived_ += bytes_avail() - before;
    return result;
}
