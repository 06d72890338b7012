#include <glue/vesk/Vesk_message.h>

#include "detail/hex_digits.h"
#include "detail/line_end.h"

#include <algorithm>
#include <cstring>

using glue_detail::ends_line;
using glue_detail::hex_digit;
using glue_detail::hex_value;

namespace {

constexpr unsigned length_offset = 2;
constexpr unsigned length_digits = 3;
constexpr unsigned checksum_digits = 2;

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_space_or_control(char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F;
}

unsigned rotate_left(unsigned byte, unsigned bits) {
    return (byte << bits | byte >> (8 - bits)) & 0xFFU;
}

/// The checksum is linear over XOR: each byte contributes itself, rotated by 2 bits for every position from it to the
/// end. Bytes whose positions differ by a multiple of four are rotated alike. So the bytes are XORed eight at a time,
/// into one byte for each position modulo 8, and each of these is rotated once.
unsigned checksum_of(const unsigned char* bytes, unsigned count) {
    unsigned char sums[8] = {};
    unsigned done = 0;
    std::uint64_t wide = 0;
    for (; count - done >= sizeof wide; done += sizeof wide) {
        std::uint64_t next;
        std::memcpy(&next, bytes + done, sizeof next);
        wide ^= next;
    }
    std::memcpy(sums, &wide, sizeof wide);
    for (unsigned i = 0; done < count; ++i, ++done)
        sums[i] ^= bytes[done];

    unsigned value = 0;
    for (unsigned i = 0; i < sizeof sums; ++i)
        value ^= rotate_left(sums[i], 2 * ((count - i) % 4));
    return value;
}

} // namespace

Vesk_message::~Vesk_message() = default;

bool Vesk_message::setup(const unsigned char* src, int size) {
    const bool identified = set_uint8(0, src[0]) && set_uint8(1, src[1]);
    return identified && size >= static_cast<int>(header_size) &&
           set_msg_len(static_cast<unsigned>(size) - header_size);
}

unsigned Vesk_message::get_msg_len() const {
    if (get_size() < header_size)
        return 0;
    return static_cast<unsigned>(std::max(0, hex_value(get_ptr() + length_offset, length_digits)));
}

bool Vesk_message::set_msg_len(unsigned L) {
    if (L >= body_limit || get_size() < header_size)
        return false;
    unsigned char* const digits = get_ptr() + length_offset;
    digits[0] = hex_digit(L >> 8);
    digits[1] = hex_digit(L >> 4);
    digits[2] = hex_digit(L);
    return true;
}

bool Vesk_message::reduce_size_to(unsigned L) {
    if (L >= body_limit || L + header_size > get_size())
        return false;
    return set_size(L + header_size) && set_msg_len(L);
}

unsigned Vesk_message::compute_8bit_checksum(int n) const {
    if (n <= 0)
        return 0;
    return checksum_of(get_ptr(), std::min(static_cast<unsigned>(n), get_size()));
}

bool Vesk_message::check_checksum() const {
    const unsigned size = get_size();
    if (size < header_size)
        return false;
    const unsigned L = get_msg_len();
    if (L + header_size > size)
        return false;

    const unsigned char* const frame = get_ptr();
    if (!ends_line(frame[size - 1]))
        return false;
    if (frame[L + 4] == compute_8bit_checksum(static_cast<int>(L + 4)))
        return true;

    const bool text_form = (frame[0] == '>' && frame[1] == '>') || frame[size - 4] == '@';
    if (!text_form)
        return false;
    const int received = hex_value(frame + size - 3, checksum_digits);
    return received >= 0 && static_cast<unsigned>(received) == compute_8bit_checksum(static_cast<int>(L + 3));
}

bool Vesk_message::validate(int identifier) const {
    return get_msg_id() == (identifier & 0xFFFF) && check_checksum();
}

bool Vesk_message::set_checksum(bool binary) {
    const unsigned L = get_msg_len();
    if (L + header_size > get_size())
        return false;
    if (binary)
        return set_uint8(L + 4, static_cast<std::uint8_t>(compute_8bit_checksum(static_cast<int>(L + 4))));
    const unsigned value = compute_8bit_checksum(static_cast<int>(L + 3));
    return set_uint8(L + 3, hex_digit(value >> 4)) && set_uint8(L + 4, hex_digit(value));
}

namespace {

/// The characters of a message up to its first NUL.
struct Text {
    explicit Text(const Vesk_message& message)
        : begin(reinterpret_cast<const char*>(message.get_ptr())),
          end(std::find(begin, begin + message.get_size(), '\0')) {}

    const char* begin;
    const char* end;
};

} // namespace

Vesk_response::~Vesk_response() = default;

bool Vesk_response::get_response_status() const {
    return get_msg_id() == msg_id('R', 'E');
}

const char* Vesk_response::get_response_string() const {
    const unsigned L = get_msg_len();
    return L == 0 ? "" : get_string(header_size, L + 3);
}

bool Vesk_response::check_response_string(const char* s) const {
    return std::strncmp(get_response_string(), s, std::strlen(s)) == 0;
}

bool Vesk_response::get_identifier(const char*& begin, const char*& end) const {
    const Text text(*this);
    const char* const first = std::find(text.begin, text.end, '%');
    if (first == text.end)
        return false;
    begin = first;
    const char* const second = std::find(first + 1, text.end, '%');
    if (second == text.end)
        return false;
    end = second + 1;
    return true;
}

const char* Vesk_response::strip_identifier(unsigned& len) {
    const char* identifier = nullptr;
    const char* identifier_end = nullptr;
    if (!get_identifier(identifier, identifier_end))
        return nullptr;
    const Text text(*this);
    const char* const begin = std::find_if_not(identifier_end, text.end, is_space);
    const char* end = text.end;
    while (end > begin && is_space_or_control(end[-1]))
        --end;
    if (begin == end)
        return nullptr;
    len = static_cast<unsigned>(end - begin);
    skip_front(static_cast<unsigned>(begin - text.begin));
    return begin;
}
