//           less than a quarter of the buffer is free
//   running ------------------------------------------> source paused
//           <------------------------------------------
//                 more than half of it is free
//
// A source that cannot be paused stays in "running": its own back-pressure makes its peer wait.

#include "Relay_direction.h"

#include <algorithm>

namespace {

constexpr unsigned largest_write = 2048;                            // fits every stream's transmit queue
constexpr unsigned pause_below = Relay_direction::buffer_size / 4;  // bytes of free space
constexpr unsigned resume_above = Relay_direction::buffer_size / 2; // bytes of free space

} // namespace

Relay_direction::Relay_direction(End source, End destination)
    : source_(source), destination_(destination), buffer_(storage_, buffer_size) {}

Relay_direction::~Relay_direction() {
    if (paused_)
        source_.stream.resume();
}

bool Relay_direction::move() {
    const bool has_read = read();
    const bool has_written = write();
    apply_back_pressure();
    return has_read || has_written;
}

bool Relay_direction::read() {
    bool has_read = false;
    for (;;) {
        const auto free = buffer_.free_region();
        const unsigned count = std::min(free.size, source_.stream.bytes_avail());
        if (count == 0 || !static_cast<Data_stream&>(source_.stream).get_data(free.begin, count, 0))
            return has_read;
        source_.stream.drop(count);
        if (source_.trace)
            source_.trace->log_read(free.begin, count);
        buffer_.commit(count);
        has_read = true;
    }
}

bool Relay_direction::write() {
    bool has_written = false;
    for (;;) {
        const auto used = buffer_.used_region();
        const unsigned count = std::min(used.size, largest_write);
        const int written = count == 0 ? 0 : destination_.stream.__write(used.begin, count);
        if (written <= 0)
            return has_written;
        if (destination_.trace)
            destination_.trace->log_written(used.begin, static_cast<unsigned>(written));
        buffer_.consume(static_cast<unsigned>(written));
        moved_ += static_cast<unsigned>(written);
        has_written = true;
    }
}

/// A `Posix_threaded_data_stream` drops bytes when nobody reads them for half a second. It is paused earlier, while
/// there is still free space for the bytes that its thread has read already.
void Relay_direction::apply_back_pressure() {
    if (!paused_ && buffer_.free_space() < pause_below) {
        paused_ = source_.stream.pause();
    } else if (paused_ && buffer_.free_space() > resume_above) {
        source_.stream.resume();
        paused_ = false;
    }
}
