#include "Relay.h"

#include <platform/Atime.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int retry_ms = 2;         // a destination that takes nothing does not always say when it does again
constexpr int look_ms = 50;         // for the end of a child process
constexpr int restart_ms = 1000;    // between two starts of a child process that ends at once
constexpr int last_words_ms = 1000; // how long a side that has ended may take to pass on what it said

} // namespace

Relay::Relay(const Options& options) : options_(options) {}

Relay::~Relay() {
    part();
}

bool Relay::open() {
    if (!open_side(0) || !open_side(1))
        return false;
    join();
    return true;
}

bool Relay::open_side(int side) {
    sides_[side] = Relay_side::open(options_.specifications[side], options_.log, waiter_);
    return sides_[side] != nullptr;
}

void Relay::join() {
    forward_ = std::make_unique<Relay_direction>(sides_[0]->end(), sides_[1]->end());
    if (!options_.one_way)
        backward_ = std::make_unique<Relay_direction>(sides_[1]->end(), sides_[0]->end());
}

/// Leaves nothing of the sides, so that they can be replaced.
void Relay::part() {
    moved_before_ = moved();
    forward_.reset();
    backward_.reset();
    for (auto& side : sides_)
        side.reset();
}

bool Relay::work(int ms) {
    const Atime end = Atime::now() + ms;
    while (Atime::now() < end) {
        const bool ended = side_has_ended(); // asked first: what came before its end is moved all the same
        if (move())
            continue;
        if (ended) {
            pass_on_last_words();
            if (!options_.reconnect || !start_again())
                return false;
            continue;
        }
        waiter_event event;
        const Atime next_look = Atime::now() + (has_waiting() ? retry_ms : look_ms);
        if (waiter_.get_event(event, std::min(end, next_look)) == 0)
            std::free(event.payload);
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

bool Relay::has_waiting() const {
    return forward_->has_waiting() || (backward_ && backward_->has_waiting()) || sides_[0]->has_waiting() ||
           sides_[1]->has_waiting();
}

void Relay::pass_on_last_words() {
    const Atime limit = Atime::now() + last_words_ms;
    while (has_waiting() && Atime::now() < limit)
        if (!move())
            Atime::delay(retry_ms);
}

bool Relay::start_again() {
    part();
    Atime::delay(restart_ms);
    return open();
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
