#include "Queue_end.h"

#include <mutex>

Queue_end::Pair Queue_end::make_pair(Writes of_first, Writes of_second) {
    Pair pair(new Queue_end(of_first), new Queue_end(of_second));
    pair.first->other_ = pair.second.get();
    pair.second->other_ = pair.first.get();
    return pair;
}

Queue_end::Queue_end(Writes writes) : Pushed_data_stream(nullptr, mutex_), writes_(writes) {}

int Queue_end::get_data(int n) {
    return fetch_nothing(n);
}

int Queue_end::_write(const unsigned char* data, unsigned int len) {
    return static_cast<int>(writes_ == whole_frames ? other_->receive_whole(data, len) : other_->receive(data, len));
}

unsigned int Queue_end::receive(const unsigned char* data, unsigned int len) {
    const std::lock_guard guard(mutex_);
    const unsigned int accepted = rx_buffer.append(data, len);
    if (accepted > 0)
        send_rx_event(rx_buffer.full());
    return accepted;
}

unsigned int Queue_end::receive_whole(const unsigned char* data, unsigned int len) {
    const bool is_line_feed = len == 1;
    const bool refused = is_line_feed ? refused_frame_ : len >= free_space();
    refused_frame_ = refused && !is_line_feed;
    return refused ? 0 : receive(data, len);
}

unsigned int Queue_end::free_space() {
    const std::lock_guard guard(mutex_);
    return rx_buffer.free_space();
}
