#include "Queue_end.h"

#include <mutex>

Queue_end::Pair Queue_end::make_pair(Writes of_first, Writes of_second) {
    Pair pair(new Queue_end(of_first), new Queue_end(of_second));
    pair.first->other_ = pair.second.get();
    pair.second->other_ = pair.first.get();
    return pair;
}

Queue_end::Queue_end(Writes writes) : Event_sender_data_stream(nullptr), writes_(writes) {
    buffer_lock = &mutex_;
}

void Queue_end::lock() {
    mutex_.lock();
}

void Queue_end::unlock() {
    mutex_.unlock();
}

int Queue_end::get_data(int n) {
    return n == 0;
}

int Queue_end::_write(const unsigned char* data, unsigned int len) {
    return static_cast<int>(writes_ == whole ? other_->receive_whole(data, len) : other_->receive(data, len));
}

unsigned int Queue_end::receive(const unsigned char* data, unsigned int len) {
    const std::lock_guard guard(mutex_);
    const unsigned int taken = rx_buffer.append(data, len);
    if (taken > 0)
        send_rx_event(rx_buffer.full());
    return taken;
}

unsigned int Queue_end::receive_whole(const unsigned char* data, unsigned int len) {
    const bool is_line_feed = len == 1;
    const bool refused = is_line_feed ? refused_frame_ : len >= room();
    refused_frame_ = refused && !is_line_feed;
    return refused ? 0 : receive(data, len);
}

unsigned int Queue_end::room() {
    const std::lock_guard guard(mutex_);
    return rx_buffer.room();
}
