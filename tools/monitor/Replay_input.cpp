// States, while there are bytes:
//
//      bytes released --all handed over--> at a time message --not due yet--> waiting
//        ^                                   |  (or none)                        |
//        +-----------------------------------+-------------- due ----------------+
//
// A pipe may have nothing at the moment. It is then waited for before anything is released: where an epoch begins
// cannot be seen yet.

#include "Replay_input.h"

#include "waiting_time.h"

#include <glue/vesk/GNSS_messages.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

using GNSS_messages::Msg_RT;

constexpr std::size_t piece_size = 65536;
constexpr std::size_t time_size = Vesk_message::header_size + Msg_RT::body_length + 1; // with its line end

} // namespace

Replay_input::~Replay_input() {
    if (fd_ >= 0)
        close(fd_);
}

bool Replay_input::open(const std::string& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); // a FIFO may have no writer yet
    if (fd_ < 0)
        std::fprintf(stderr, "Error opening '%s': %s\n", path.c_str(), std::strerror(errno));
    return fd_ >= 0;
}

Link_input::Arrival Replay_input::wait(std::optional<Atime> deadline, int wake_up_descriptor) {
    const bool ready = release();
    std::optional<Atime> end = deadline;
    if (ready)
        end = Atime::now();
    else if (due_ && (!deadline || *due_ < *deadline))
        end = due_;
    pollfd descriptors[] = {{wake_up_descriptor, POLLIN, 0}, {is_starved() ? fd_ : -1, POLLIN, 0}};
    poll(descriptors, 2, milliseconds_until(end));
    if (descriptors[0].revents != 0)
        return Arrival::wake_up;
    return ready ? hand_over() : Arrival::nothing;
}

/// Finds out what may go now. \return false while it is not time yet
bool Replay_input::release() {
    if (released_ > 0)
        return true;
    refill();
    if (is_starved())
        return false;
    const auto time = time_at(first_);
    if (time && !due_)
        due_ = pace_.due(*time);
    if (due_ && Atime::now() < *due_)
        return false;
    due_.reset();
    released_ = next_time(first_ + (time ? 1 : 0)) - first_;
    return true;
}

/// Whether it cannot be seen what comes next, though something may come.
bool Replay_input::is_starved() const {
    return !ended_ && released_ == 0 && pending_.size() - first_ < time_size;
}

/// Whether reading brings something, be it the end: not from a pipe that is empty, or that nobody writes to yet.
bool Replay_input::is_readable() const {
    pollfd file{fd_, POLLIN, 0};
    return poll(&file, 1, 0) > 0;
}

/// Has a piece pending, if the file has as much at the moment.
void Replay_input::refill() {
    if (pending_.size() - first_ >= time_size)
        return;
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(first_));
    first_ = 0;
    while (!ended_ && pending_.size() < time_size && is_readable()) {
        const std::size_t size = pending_.size();
        pending_.resize(size + piece_size);
        const ssize_t came = read(fd_, pending_.data() + size, piece_size);
        pending_.resize(size + static_cast<std::size_t>(std::max<ssize_t>(came, 0)));
        if (came < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (came < 0)
            error_ = errno;
        ended_ = came <= 0;
    }
}

/// The receiver's time of day, if there is a time message at this place.
std::optional<std::uint32_t> Replay_input::time_at(std::size_t place) const {
    if (pending_.size() - place < time_size)
        return std::nullopt;
    unsigned char frame[time_size];
    std::copy_n(pending_.begin() + static_cast<std::ptrdiff_t>(place), time_size, frame);
    const Msg_RT message(frame, time_size);
    const unsigned char end = frame[time_size - 1];
    if ((end != '\r' && end != '\n') || message.get_msg_len() != Msg_RT::body_length || !message.validate(Msg_RT::id) ||
        message.get_ms() >= Replay_pace::ms_per_day)
        return std::nullopt;
    return message.get_ms();
}

/// Where the next time message begins, or may begin as far as can be seen; behind the last byte when nothing more
/// comes.
std::size_t Replay_input::next_time(std::size_t from) const {
    constexpr unsigned char begins_time = Msg_RT::id & 0xFF;
    const std::size_t end = ended_ ? pending_.size() : std::max(pending_.size() - time_size + 1, from);
    for (std::size_t place = from; place < end; ++place) {
        const void* const found = std::memchr(pending_.data() + place, begins_time, end - place);
        if (!found)
            break;
        place = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - pending_.data());
        if (time_at(place))
            return place;
    }
    return end;
}

/// Moves what may go into the ring, as far as it fits.
Link_input::Arrival Replay_input::hand_over() {
    if (released_ == 0)
        return Arrival::end;
    const auto count = static_cast<unsigned>(std::min<std::size_t>(released_, rx_capacity - rx_buffer.size()));
    rx_buffer.append(pending_.data() + first_, count);
    first_ += count;
    released_ -= count;
    arrived_ += count;
    return Arrival::bytes;
}

int Replay_input::get_data(int n) {
    return n == 0;
}

int Replay_input::_write(const unsigned char*, unsigned int) {
    return -1;
}
