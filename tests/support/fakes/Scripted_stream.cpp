#include <support/fakes/Scripted_stream.h>

#include <algorithm>

void Scripted_stream::receive(std::string_view bytes) {
    rx_buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
}

void Scripted_stream::move_head_to(unsigned head) {
    rx_buffer.clear();
    const unsigned steps = (head + rx_buffer.capacity() - rx_buffer.head()) % rx_buffer.capacity();
    receive(std::string(steps, '#'));
    rx_buffer.consume(steps);
}

std::string Scripted_stream::buffered() const {
    std::string bytes(rx_buffer.size(), '\0');
    rx_buffer.peek(reinterpret_cast<unsigned char*>(bytes.data()), rx_buffer.size(), 0);
    return bytes;
}

int Scripted_stream::get_data(int n) {
    fetches.push_back(n);
    if (on_fetch)
        return on_fetch(n);
    if (n < 0)
        return 0;
    const std::size_t count = std::min(arriving.size(), static_cast<std::size_t>(n));
    receive(std::string_view(arriving).substr(0, count));
    arriving.erase(0, count);
    return count == static_cast<std::size_t>(n);
}

int Scripted_stream::_write(const unsigned char* data, unsigned int len) {
    const int accepted = on_write ? on_write(data, len) : static_cast<int>(len);
    if (accepted > 0) {
        writes.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(accepted));
        written += writes.back();
    }
    return accepted;
}
