#include <support/fakes/Scripted_event_sender.h>

#include <mutex>

Scripted_event_sender::Scripted_event_sender(module_man* modules) : Pushed_data_stream(modules, mutex_) {}

Scripted_event_sender::~Scripted_event_sender() {
    if (on_destroy)
        on_destroy();
}

unsigned Scripted_event_sender::push(std::string_view bytes) {
    const std::lock_guard guard(*this);
    const unsigned received = receive_locked(bytes);
    send_rx_event(rx_buffer.full());
    return received;
}

unsigned Scripted_event_sender::receive(std::string_view bytes) {
    const std::lock_guard guard(*this);
    return receive_locked(bytes);
}

unsigned Scripted_event_sender::receive_locked(std::string_view bytes) {
    return rx_buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
}

std::string Scripted_event_sender::buffered() {
    const std::lock_guard guard(*this);
    std::string bytes(rx_buffer.size(), '\0');
    rx_buffer.peek(reinterpret_cast<unsigned char*>(bytes.data()), rx_buffer.size(), 0);
    return bytes;
}

void Scripted_event_sender::init(module_man& modules) {
    ++inits;
    Event_sender_data_stream::init(modules);
}

int Scripted_event_sender::get_data(int n) {
    const int before = static_cast<int>(rx_buffer.size());
    if (on_fetch)
        on_fetch();
    return static_cast<int>(rx_buffer.size()) - before >= n;
}

int Scripted_event_sender::_write(const unsigned char* data, unsigned int len) {
    const int accepted = on_write ? on_write(data, len) : static_cast<int>(len);
    if (accepted > 0) {
        writes.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(accepted));
        written += writes.back();
    }
    return accepted;
}
