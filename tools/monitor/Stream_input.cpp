#include "Stream_input.h"

#include <algorithm>
#include <poll.h>

namespace {

constexpr int longest_wait_ms = 50; // then the wake-up descriptor and the end of the source are checked

bool is_readable(int descriptor) {
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, 0) > 0;
}

} // namespace

Stream_input::Stream_input(std::unique_ptr<Event_sender_data_stream> source, bool traced)
    : source_(std::move(source)), trace_(traced ? Stream_trace(*source_) : Stream_trace()) {
    source_->reg_rx_waiter(&waiter_, false);
}

Stream_input::~Stream_input() {
    source_->dereg_rx_waiter();
    source_.reset(); // its thread may still notify the waiter
}

Link_input::Arrival Stream_input::wait(std::optional<Atime> deadline, int wake_up_descriptor) {
    for (;;) {
        const bool ended = source_->has_ended(); // checked first: bytes from before the end are still received
        if (receive())
            return Arrival::bytes;
        if (ended)
            return Arrival::end;
        if (is_readable(wake_up_descriptor))
            return Arrival::wake_up;
        const Atime now = Atime::now();
        if (deadline && now >= *deadline)
            return Arrival::nothing;

        const Atime soon = now + longest_wait_ms;
        waiter_event event;
        if (waiter_.get_event(event, deadline ? std::min(*deadline, soon) : soon) == 0)
            release_payload(event);
    }
}

/// Moves the source's buffered bytes into the ring, as many as fit. \return whether there were any
bool Stream_input::receive() {
    const unsigned before = rx_buffer.size();
    for (;;) {
        const auto free = rx_buffer.free_region();
        const unsigned count = std::min(free.size, source_->bytes_avail());
        if (count == 0 || !source_->get_data(free.begin, count, 0))
            break;
        source_->drop(count);
        trace_.log_read(free.begin, count);
        rx_buffer.commit(count);
    }
    const unsigned received = rx_buffer.size() - before;
    arrived_ += received;
    return received > 0;
}

int Stream_input::get_data(int n) {
    return n == 0;
}

int Stream_input::_write(const unsigned char* data, unsigned int len) {
    const int written = source_->__write(data, len);
    if (written > 0)
        trace_.log_written(data, static_cast<unsigned>(written));
    return written;
}
