#include "Relay_direction.h"

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <algorithm>

namespace {

constexpr unsigned largest_write = 2048; // fits every stream's transmit queue with room to spare
constexpr unsigned nearly_full = Relay_direction::buffer_size / 4; // of room left

} // namespace

Relay_direction::Relay_direction(End source, End destination)
    : source_(source), destination_(destination), buffer_(storage_, buffer_size) {}

Relay_direction::~Relay_direction() {
    if (paused_)
        dynamic_cast<Posix_threaded_data_stream&>(source_.stream).resume();
}

bool Relay_direction::move() {
    const bool took = take();
    const bool gave = give();
    hold_source_back();
    return took || gave;
}

bool Relay_direction::take() {
    bool took = false;
    for (;;) {
        const auto room = buffer_.free_region();
        const unsigned count = std::min(room.size, source_.stream.bytes_avail());
        if (count == 0 || !static_cast<Data_stream&>(source_.stream).get_data(room.begin, count, 0))
            return took;
        source_.stream.drop(count);
        if (source_.trace)
            source_.trace->tell_read(room.begin, count);
        buffer_.commit(count);
        took = true;
    }
}

bool Relay_direction::give() {
    bool gave = false;
    for (;;) {
        const auto waiting = buffer_.used_region();
        const unsigned count = std::min(waiting.size, largest_write);
        const int written = count == 0 ? 0 : destination_.stream.__write(waiting.begin, count);
        if (written <= 0)
            return gave;
        if (destination_.trace)
            destination_.trace->tell_written(waiting.begin, static_cast<unsigned>(written));
        buffer_.consume(static_cast<unsigned>(written));
        moved_ += static_cast<unsigned>(written);
        gave = true;
    }
}

/// A stream over a descriptor gives up on a reader after half a second. It is paused before that can happen, while
/// there is still room for what its thread has in hand.
void Relay_direction::hold_source_back() {
    auto* const source = dynamic_cast<Posix_threaded_data_stream*>(&source_.stream);
    if (!source)
        return;
    if (!paused_ && buffer_.room() < nearly_full) {
        paused_ = source->pause();
    } else if (paused_ && buffer_.room() > buffer_size / 2) {
        source->resume();
        paused_ = false;
    }
}
