#include "Stream_input.h"

#include <algorithm>
#include <poll.h>

namespace {

constexpr int longest_wait_ms = 50; // the wake-up descriptor and the end of the source are looked at in between

bool is_readable(int descriptor) {
    pollfd look{descriptor, POLLIN, 0};
    return poll(&look, 1, 0) > 0;
}

} // namespace

Stream_input::Stream_input(std::unique_ptr<Event_sender_data_stream> source, bool traced)
    : source_(std::move(source)), trace_(traced ? Stream_trace(*source_) : Stream_trace()) {
    source_->reg_rx_waiter(&waiter_, false);
}

Stream_input::~Stream_input() {
    source_->dereg_rx_waiter();
    source_.reset(); // its thread may still be telling the waiter
}

Link_input::Arrival Stream_input::wait(std::optional<Atime> deadline, int wake_up_descriptor) {
    for (;;) {
        const bool ended = source_->has_ended(); // asked first: what came before its end is taken all the same
        if (take())
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

/// Moves what the source has buffered into the ring, as far as it fits; whether there was something.
bool Stream_input::take() {
    const unsigned before = rx_buffer.size();
    for (;;) {
        const auto room = rx_buffer.free_region();
        const unsigned count = std::min(room.size, source_->bytes_avail());
        if (count == 0 || !source_->get_data(room.begin, count, 0))
            break;
        source_->drop(count);
        trace_.log_read(room.begin, count);
        rx_buffer.commit(count);
    }
    const unsigned taken = rx_buffer.size() - before;
    arrived_ += taken;
    return taken > 0;
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
