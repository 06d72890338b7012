//        open             a side ends          buffers are empty, or a second has passed
// closed -----> connected ----------> draining ------------------------------------------> ended
//                   ^                                                                        |
//                   +------------ reconnect: a second later both sides are opened again -----+
//
// In "connected" the relay moves bytes and waits for events of the streams. Only a child process ends; all other
// streams return by themselves.

#include "Relay.h"

#include <platform/Atime.h>

#include <algorithm>

namespace {

constexpr int retry_ms = 2;          // not every destination notifies when it accepts bytes again
constexpr int poll_interval_ms = 50; // for the end of a child process
constexpr int restart_ms = 1000;     // between two starts of a child process that ends at once
constexpr int draining_ms = 1000;    // how long the last bytes of an ended side may take

} // namespace

Relay::Relay(const Options& options) : options_(options) {}

Relay::~Relay() {
    disconnect();
}

bool Relay::open() {
    if (!open_side(0) || !open_side(1))
        return false;
    connect();
    return true;
}

bool Relay::open_side(int side) {
    sides_[side] = Relay_side::open(options_.specifications[side], options_.log, waiter_);
    return sides_[side] != nullptr;
}

void Relay::connect() {
    forward_ = std::make_unique<Relay_direction>(sides_[0]->end(), sides_[1]->end());
    if (!options_.one_way)
        backward_ = std::make_unique<Relay_direction>(sides_[1]->end(), sides_[0]->end());
}

/// Destroys the directions, then the sides that they use.
void Relay::disconnect() {
    moved_before_ = moved();
    forward_.reset();
    backward_.reset();
    for (auto& side : sides_)
        side.reset();
}

bool Relay::work(int ms) {
    const Atime end = Atime::now() + ms;
    while (Atime::now() < end) {
        const bool ended = side_has_ended(); // before moving: the bytes received until then are moved below
        if (move())
            continue;
        if (!ended)
            wait_for_event(end);
        else if (!finish())
            return false;
    }
    return true;
}

bool Relay::move() {
    bool moved = false;
    for (const auto& side : sides_)
        moved = side->move() || moved;
    moved = forward_->move() || moved;
    return (backward_ && backward_->move()) || moved;
}

void Relay::wait_for_event(Atime deadline) {
    waiter_event event;
    const Atime next_poll = Atime::now() + (has_buffered() ? retry_ms : poll_interval_ms);
    waiter_.get_event(event, std::min(deadline, next_poll));
    release_payload(event);
}

bool Relay::has_buffered() const {
    return forward_->has_buffered() || (backward_ && backward_->has_buffered()) || sides_[0]->has_buffered() ||
           sides_[1]->has_buffered();
}

/// A side has ended. \return whether the relay continues with new sides
bool Relay::finish() {
    deliver_last_bytes();
    if (!options_.reconnect)
        return false;
    disconnect();
    Atime::delay(restart_ms);
    return open();
}

void Relay::deliver_last_bytes() {
    const Atime deadline = Atime::now() + draining_ms;
    while (has_buffered() && Atime::now() < deadline)
        if (!move())
            Atime::delay(retry_ms);
}

bool Relay::side_has_ended() const {
    return std::any_of(std::begin(sides_), std::end(sides_), [](const auto& side) { return side->has_ended(); });
}

Relay::Moved Relay::moved() const {
    Moved sum = moved_before_;
    if (forward_)
        sum.forward += forward_->moved();
    if (backward_)
        sum.backward += backward_->moved();
    return sum;
}
