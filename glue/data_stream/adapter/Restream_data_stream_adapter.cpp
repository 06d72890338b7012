#include <glue/data_stream/Restream_data_stream_adapter.h>

#include "data_stream/adapter/adapting.h"

Restream_data_stream_adapter::Restream_data_stream_adapter(Data_stream* inner_stream) : inner_(inner_stream) {}

Restream_data_stream_adapter::~Restream_data_stream_adapter() = default;

void Restream_data_stream_adapter::refill() {
    glue_detail::move_buffered(*inner_, rx_buffer);
}

void Restream_data_stream_adapter::drop(unsigned int n) {
    refill();
    Data_stream::drop(n);
    refill();
}

void Restream_data_stream_adapter::drop_all() {
    refill();
    Data_stream::drop_all();
    refill();
}

unsigned int Restream_data_stream_adapter::bytes_avail() {
    refill();
    return Data_stream::bytes_avail();
}

bool Restream_data_stream_adapter::get_data(unsigned char* dst, unsigned int len, unsigned int offset) {
    refill();
    return Data_stream::get_data(dst, len, offset);
}

int Restream_data_stream_adapter::get_data(int) {
    refill();
    const unsigned int before = rx_buffer.size(); // not bytes_avail(), which acquires the lock that the caller holds
    refill();
    return rx_buffer.size() >= before;
}

int Restream_data_stream_adapter::_write(const unsigned char* data, unsigned int len) {
    return inner_->__write(data, len);
}
