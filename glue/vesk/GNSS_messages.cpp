#include <glue/vesk/GNSS_messages.h>

#include "detail/assertion.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace GNSS_messages {

// The virtual tables of all messages are here.

GNSS_message::~GNSS_message() = default;
GNSS_block_message::~GNSS_block_message() = default;
Msg_PG::~Msg_PG() = default;
Msg_PV::~Msg_PV() = default;
Msg_SG::~Msg_SG() = default;
Msg_DP::~Msg_DP() = default;
Msg_PS::~Msg_PS() = default;
Msg_RT::~Msg_RT() = default;
Msg_RD::~Msg_RD() = default;
Msg_GT::~Msg_GT() = default;
Msg_NT::~Msg_NT() = default;
Msg_ST::~Msg_ST() = default;
Msg_EE::~Msg_EE() = default;
Msg_GA::~Msg_GA() = default;
Msg_NA::~Msg_NA() = default;
Msg_SI::~Msg_SI() = default;
Msg_NN::~Msg_NN() = default;
Msg_EC::~Msg_EC() = default;
Msg_E1::~Msg_E1() = default;
Msg_E2::~Msg_E2() = default;
Msg_EL::~Msg_EL() = default;
Msg_AZ::~Msg_AZ() = default;
Msg_SS::~Msg_SS() = default;
Msg_TC::~Msg_TC() = default;
Msg_PA::~Msg_PA() = default;
Msg_S1::~Msg_S1() = default;
Msg_S2::~Msg_S2() = default;

bool GNSS_message::init_frame(int identifier, unsigned L) {
    const unsigned frame_size = header_size + L;
    if (L >= body_limit || !set_size(frame_size))
        return false;
    std::memset(get_ptr(), 0, frame_size);
    return set_uint16_le(0, static_cast<std::uint16_t>(identifier)) && set_msg_len(L);
}

namespace {

constexpr double pi = 3.141592653589793;

double degrees(double radians) {
    return radians * 180.0 / pi;
}

} // namespace

double Msg_PG::get_lat_deg() const {
    return degrees(get_lat());
}

double Msg_PG::get_lon_deg() const {
    return degrees(get_lon());
}

float Msg_DP::get_gdop() const {
    const double h = get_hdop(), v = get_vdop(), t = get_tdop();
    return static_cast<float>(std::sqrt(h * h + v * v + t * t));
}

float Msg_DP::get_pdop() const {
    const double h = get_hdop(), v = get_vdop();
    return static_cast<float>(std::sqrt(h * h + v * v));
}

// ---- Position blocks ----

namespace {

constexpr int main_block = 1;
constexpr int fallback_block = 2;
constexpr int main_offset = 6;
constexpr int fallback_offset = 59;

/// Calls `use(field, value)` for each field of a position block.
template <typename Block, typename Use>
void for_each_field(Block& block, Use use) {
    use(Field<double>{0}, block.position[0]);
    use(Field<double>{8}, block.position[1]);
    use(Field<double>{16}, block.position[2]);
    use(Field<float>{24}, block.values[0]);
    use(Field<float>{28}, block.values[1]);
    use(Field<float>{32}, block.values[2]);
    use(Field<float>{36}, block.values[3]);
    use(Field<float>{40}, block.values[4]);
    use(Field<std::uint8_t>{44}, block.type);
    use(Field<float>{45}, block.extra[0]);
    use(Field<float>{49}, block.extra[1]);
}

} // namespace

int get_PA_block_offset(const Msg_PA& message, int block) {
    const int num_blocks = message.get_num_blocks();
    GLUE_ASSERT(num_blocks <= 2);
    if (block > num_blocks)
        return -1;
    switch (block) {
    case main_block:
        return main_offset;
    case fallback_block:
        return fallback_offset;
    default:
        return -1;
    }
}

bool Msg_PA::get_block(int number, block_t& block) const {
    const int offset = get_PA_block_offset(*this, number);
    if (offset < 0)
        return false;
    for_each_field(block, [&](auto field, auto& value) { value = get(field, static_cast<unsigned>(offset)); });
    return true;
}

bool Msg_PA::set_block(int number, const block_t& block) {
    const int offset = get_PA_block_offset(*this, number);
    if (offset < 0)
        return false;
    bool fits = true;
    for_each_field(block,
                   [&](auto field, auto value) { fits = set(field, value, static_cast<unsigned>(offset)) && fits; });
    return fits;
}

bool Msg_PA::get_main(block_t& block) const {
    return get_block(main_block, block);
}

bool Msg_PA::get_fallback(block_t& block) const {
    return get_block(fallback_block, block);
}

bool Msg_PA::set_main(const block_t& block) {
    return set_block(main_block, block);
}

bool Msg_PA::set_fallback(const block_t& block) {
    return set_block(fallback_block, block);
}

// ---- Chains of blocks ----

namespace {

constexpr int hp_block = 1;
constexpr int ts_block = 2;
constexpr int vbs_block = 3;
constexpr unsigned chain_offset = 6;
/// Bytes of a block's kind and length.
constexpr unsigned block_header_size = 2;

} // namespace

template <typename Message>
int get_S1S2_block_offset(const Message& message, int kind) {
    const int num_blocks = message.get_num_blocks();
    GLUE_ASSERT(num_blocks <= 3);
    unsigned offset = chain_offset;
    for (int block = 0; block < num_blocks; ++block) {
        if (message.get_uint8(offset) == kind)
            return static_cast<int>(offset);
        offset += message.get_uint8(offset + 1) + block_header_size;
    }
    return -1;
}

template int get_S1S2_block_offset(const Msg_S1& message, int kind);
template int get_S1S2_block_offset(const Msg_S2& message, int kind);

bool Msg_S1::get_block(int kind, block_t& block) const {
    const int found = get_S1S2_block_offset(*this, kind);
    if (found < 0)
        return false;
    const auto offset = static_cast<unsigned>(found);
    block.number = get_uint32_le(offset + 2);
    block.values[0] = get_uint16_le(offset + 6);
    block.values[1] = get_uint16_le(offset + 8);
    block.values[2] = get_uint16_le(offset + 10);
    block.values[3] = get_uint16_le(offset + 12);
    return true;
}

bool Msg_S1::get_hp(block_t& block) const {
    return get_block(hp_block, block);
}

bool Msg_S1::get_ts(block_t& block) const {
    return get_block(ts_block, block);
}

bool Msg_S1::get_vbs(block_t& block) const {
    return get_block(vbs_block, block);
}

namespace {

/// Copies the text after the length byte at `offset`, cut to the size of `text`; fills the rest of `text` with NULs.
/// \return the length on the wire
template <unsigned size>
std::uint8_t copy_text(const Binary_message& message, unsigned offset, char (&text)[size]) {
    const std::uint8_t length = message.get_uint8(offset);
    std::memset(text, 0, size);
    for (unsigned i = 0; i < std::min<unsigned>(length, size - 1); ++i)
        text[i] = static_cast<char>(message.get_uint8(offset + 1 + i));
    return length;
}

} // namespace

bool Msg_S2::get_block(int kind, block_t& block) const {
    const int found = get_S1S2_block_offset(*this, kind);
    if (found < 0)
        return false;
    const auto offset = static_cast<unsigned>(found);
    block.code = get_uint16_le(offset + 2);
    block.number = get_uint32_le(offset + 4);
    block.length_a = copy_text(*this, offset + 8, block.text_a);
    block.length_b = copy_text(*this, offset + 9 + block.length_a, block.text_b);
    return true;
}

bool Msg_S2::get_hp(block_t& block) const {
    return get_block(hp_block, block);
}

bool Msg_S2::get_ts(block_t& block) const {
    return get_block(ts_block, block);
}

bool Msg_S2::get_vbs(block_t& block) const {
    return get_block(vbs_block, block);
}

} // namespace GNSS_messages
