#include "Running_checksum.h"

#include <platform/Util.h>

// A CRC-32 is a polynomial over the two-element field, modulo the one below. Of bytes A and bytes B after them,
//
//     crc(A B) = crc(A) * x^(8 * length of B) + crc(B)
//
// so that crc(B) follows from the two others. The coefficient of x^0 is the top bit.

namespace {

constexpr std::uint32_t modulus = 0xEDB88320;
constexpr std::uint32_t one = 0x80000000;       // x^0
constexpr std::uint32_t one_byte_on = one >> 8; // x^8
constexpr std::uint32_t top_coefficient = 0x1;  // of x^31

std::uint32_t times_x(std::uint32_t a) {
    return a & top_coefficient ? a >> 1 ^ modulus : a >> 1;
}

std::uint32_t product(std::uint32_t a, std::uint32_t b) {
    std::uint32_t sum = 0;
    for (std::uint32_t coefficient = one; coefficient; coefficient >>= 1) {
        if (a & coefficient)
            sum ^= b;
        b = times_x(b);
    }
    return sum;
}

/// x^(8 * count)
std::uint32_t bytes_on(std::size_t count) {
    std::uint32_t result = one;
    for (std::uint32_t square = one_byte_on; count; count >>= 1, square = product(square, square))
        if (count & 1)
            result = product(result, square);
    return result;
}

} // namespace

void Running_checksum::add(const unsigned char* bytes, int count) {
    now_.crc = Util::crc32(now_.crc, bytes, count);
    now_.position += static_cast<std::size_t>(count);
}

std::uint32_t Running_checksum::since(const Mark& mark) const {
    return now_.crc ^ product(mark.crc, bytes_on(now_.position - mark.position));
}
