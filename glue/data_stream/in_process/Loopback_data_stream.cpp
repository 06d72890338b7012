#include <glue/data_stream/Loopback_data_stream.h>

Loopback_data_stream::Loopback_data_stream() = default;

Loopback_data_stream::~Loopback_data_stream() = default;

int Loopback_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

int Loopback_data_stream::_write(const unsigned char* data, unsigned int len) {
    const Mutex_guard guard(buffer_lock);
    return static_cast<int>(rx_buffer.append(data, len));
}
