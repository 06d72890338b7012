#include <glue/data_stream/AIM_message.h>

#include "detail/hex_digits.h"

#include <cstring>

using glue_detail::hex_digit;

namespace {

constexpr unsigned chan_offset = 5;
constexpr unsigned data_offset = 6;

} // namespace

AIM_message::AIM_message(unsigned char* buf, unsigned capacity) : Vesk_message(buf, capacity), received_chan_(0) {}

AIM_message::AIM_message(Vesk_message& message)
    : Vesk_message(message.get_ptr(), message.get_capacity(), message.get_size()), received_chan_(get_chan()) {}

AIM_message::~AIM_message() = default;

unsigned char AIM_message::get_chan() const {
    return get_uint8(chan_offset);
}

unsigned char* AIM_message::get_data() const {
    return get_ptr() + data_offset;
}

unsigned int AIM_message::get_len() const {
    const unsigned L = get_msg_len();
    return L < shortest_body ? 0 : L - shortest_body;
}

void AIM_message::set(unsigned char chan, const unsigned char* data, unsigned int n) {
    const unsigned size = calc_buffer_size(n);
    if (size < n || !set_size(size))
        return;
    _set_header();
    _set_len(n + shortest_body);
    _set_chan(chan);
    _set_data(data, n);
    _set_checksum(n);
}

void AIM_message::_set_header() {
    set_uint8(0, '>');
    set_uint8(1, '>');
}

void AIM_message::_set_len(unsigned int v) {
    if (v < length_limit)
        set_msg_len(v);
}

void AIM_message::_set_chan(unsigned char chan) {
    set_uint8(chan_offset, chan);
}

void AIM_message::_set_data(const unsigned char* data, unsigned int n) {
    if (n != 0)
        std::memmove(get_data(), data, n);
}

void AIM_message::_set_checksum(unsigned int n) {
    const unsigned value = compute_8bit_checksum(static_cast<int>(data_offset + n));
    set_uint8(data_offset + n, hex_digit(value >> 4));
    set_uint8(data_offset + n + 1, hex_digit(value));
}
