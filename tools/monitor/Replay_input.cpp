// States, while there are bytes:
//
//      bytes released --all delivered--> at a time message --not due yet--> waiting
//        ^                                  |  (or none)                       |
//        +----------------------------------+-------------- due ---------------+
//
// A pipe may be empty at the moment. Then nothing is released before it is readable: the next bytes decide where an
// epoch begins.

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
    return ready ? deliver() : Arrival::nothing;
}

/// Decides which bytes may be delivered now. \return false while the next epoch is not due
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

/// Whether too few bytes are pending to recognise a time message, and more may follow.
bool Replay_input::is_starved() const {
    return !ended_ && released_ == 0 && pending_.size() - first_ < time_size;
}

/// Whether a read returns bytes or the end of file: not from a pipe that is empty or has no writer yet.
bool Replay_input::is_readable() const {
    pollfd file{fd_, POLLIN, 0};
    return poll(&file, 1, 0) > 0;
}

/// Reads until enough bytes are pending to recognise a time message, or the file has no more at the moment.
void Replay_input::refill() {
    if (pending_.size() - first_ >= time_size)
        return;
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(first_));
    first_ = 0;
    while (!ended_ && pending_.size() < time_size && is_readable()) {
        const std::size_t size = pending_.size();
        pending_.resize(size + piece_size);
        const ssize_t received = read(fd_, pending_.data() + size, piece_size);
        pending_.resize(size + static_cast<std::size_t>(std::max<ssize_t>(received, 0)));
        if (received < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (received < 0)
            error_ = errno;
        ended_ = received <= 0;
    }
}

/// The receiver's time of day, if a time message is at this index.
std::optional<std::uint32_t> Replay_input::time_at(std::size_t index) const {
    if (pending_.size() - index < time_size)
        return std::nullopt;
    unsigned char frame[time_size];
    std::copy_n(pending_.begin() + static_cast<std::ptrdiff_t>(index), time_size, frame);
    const Msg_RT message(frame, time_size);
    const unsigned char end = frame[time_size - 1];
    if ((end != '\r' && end != '\n') || message.get_msg_len() != Msg_RT::body_length || !message.validate(Msg_RT::id) ||
        message.get_ms() >= Replay_pace::ms_per_day)
        return std::nullopt;
    return message.get_ms();
}

/// The index where the next time message begins, or where one may begin that is not complete yet; the number of bytes
/// after the end of the file.
std::size_t Replay_input::next_time(std::size_t from) const {
    constexpr unsigned char begins_time = Msg_RT::id & 0xFF;
    const std::size_t end = ended_ ? pending_.size() : std::max(pending_.size() - time_size + 1, from);
    for (std::size_t index = from; index < end; ++index) {
        const void* const found = std::memchr(pending_.data() + index, begins_time, end - index);
        if (!found)
            break;
        index = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - pending_.data());
        if (time_at(index))
            return index;
    }
    return end;
}

/// Moves released bytes into the ring, as many as fit.
Link_input::Arrival Replay_input::deliver() {
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
