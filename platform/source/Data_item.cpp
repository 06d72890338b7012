#include <platform/Data_item.h>

#include <atomic>
#include <string>

namespace {

constexpr unsigned number_count = 0xFFFF; // 0 to 65534

constexpr unsigned short most_skipped = 0x7FFF;
constexpr unsigned short lowest_counter = 0x8000; // one less would mean: skip 32767

constexpr int type_bits = 6;
constexpr int type_mask = (1 << type_bits) - 1;

unsigned short next_number() {
    static std::atomic<unsigned> items{0};
    return static_cast<unsigned short>(items.fetch_add(1, std::memory_order_relaxed) % number_count);
}

} // namespace

Data_item::Data_item() : number_(next_number()) {}

unsigned char Data_item::get_type_byte(int dimension, int type) {
    return static_cast<unsigned char>(static_cast<unsigned>(dimension) << type_bits | (type & type_mask));
}

void Data_item::decode_type_byte(unsigned char byte, int& dimension, int& type) {
    dimension = byte >> type_bits;
    type = byte & type_mask;
}

bool Data_item::serial_action_started(unsigned short& counter) {
    const bool started = counter == 0 || counter > most_skipped;
    if (counter != lowest_counter)
        --counter;
    return started;
}

bool Data_item::append_description(CDS::Remote::Send_buffer& buffer, const char* name, unsigned char type_byte) const {
    const std::string text = std::string(name) + ":" + std::to_string(type_byte) + ":" + std::to_string(number_);
    return buffer.append_TEXT(text.c_str()) > 0;
}
