#include <glue/data_stream/Event_receiver_data_stream.h>

#include <glue/data_stream/Event_sender_data_stream.h>

Event_receiver_data_stream::Event_receiver_data_stream(Event_sender_data_stream& read_from, module_man& modules)
    : source_(read_from),
      waiter_(modules),
      read_timeout_ms_(default_timeout_ms),
      write_timeout_ms_(default_timeout_ms) {}

Event_receiver_data_stream::~Event_receiver_data_stream() = default;

int Event_receiver_data_stream::set_read_timeout(int ms) {
    read_timeout_ms_ = ms;
    return true;
}

int Event_receiver_data_stream::set_default_read_timeout() {
    return set_read_timeout(default_timeout_ms);
}

int Event_receiver_data_stream::set_write_timeout(int ms) {
    write_timeout_ms_ = ms;
    return true;
}

int Event_receiver_data_stream::set_default_write_timeout() {
    return set_write_timeout(default_timeout_ms);
}

int Event_receiver_data_stream::get_data(int n) {
    const Atime deadline = Atime::now() + read_timeout_ms_;
    source_.reg_rx_waiter(&waiter_, false);
    while (n > 0) {
        if (source_.bytes_avail(1)) {
            move_byte();
            --n;
        } else if (!wait_for_event(deadline)) {
            break;
        }
    }
    source_.dereg_rx_waiter();
    return n == 0;
}

/// Waits for a notification of the source. False when the deadline passed first.
bool Event_receiver_data_stream::wait_for_event(Atime deadline) {
    waiter_event event;
    const bool arrived = waiter_.get_event(event, deadline) == 0;
    release_payload(event);
    return arrived;
}

/// Byte by byte on purpose: each reading operation of the source may fetch, refill or notify again.
void Event_receiver_data_stream::move_byte() {
    rx_buffer.push(source_[0]); // lost when the ring is full
    source_.drop(1);
}

int Event_receiver_data_stream::_write(const unsigned char* data, unsigned int len) {
    return source_.__write(data, len);
}
