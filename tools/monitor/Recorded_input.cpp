#include "Recorded_input.h"

#include <glue/data_stream/Data_stream.h>

#include <algorithm>

Recorded_input::Recorded_input(std::unique_ptr<Link_input> link, Traffic_recorder& recorder, Interrupt& interrupt)
    : link_(std::move(link)), recorder_(recorder), interrupt_(interrupt) {}

Link_input::Arrival Recorded_input::wait(std::optional<Atime> deadline, int wake_up_descriptor) {
    const Arrival arrival = link_->wait(deadline, wake_up_descriptor);
    record(static_cast<unsigned>(link_->arrived() - arrived_));
    arrived_ = link_->arrived();
    error_ = link_->error();
    return arrival == Arrival::wake_up && !ends_at_wake_up() ? Arrival::nothing : arrival;
}

bool Recorded_input::ends_at_wake_up() {
    if (interrupt_.take_switches() % 2 != 0)
        recorder_.toggle();
    return interrupt_.is_requested();
}

/// Records the newest `count` bytes: none of them was consumed since they were received.
void Recorded_input::record(unsigned count) {
    Data_stream& stream = link_->buffered_bytes();
    unsigned char piece[1024];
    while (count > 0) {
        const unsigned size = std::min<unsigned>(count, sizeof piece);
        stream.get_data(piece, size, stream.bytes_avail() - count);
        recorder_.take(piece, size, can_wait());
        count -= size;
    }
}
