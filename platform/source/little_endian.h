#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

/// Numbers as little-endian bytes, on every processor; floating-point numbers as their bits.
namespace little_endian {

namespace detail {

template <std::size_t size>
struct Bits;
template <>
struct Bits<1> {
    using type = std::uint8_t;
};
template <>
struct Bits<2> {
    using type = std::uint16_t;
};
template <>
struct Bits<4> {
    using type = std::uint32_t;
};
template <>
struct Bits<8> {
    using type = std::uint64_t;
};

} // namespace detail

template <typename Number>
void put(Number number, unsigned char* bytes) {
    typename detail::Bits<sizeof(Number)>::type bits;
    std::memcpy(&bits, &number, sizeof bits);
    for (unsigned i = 0; i < sizeof bits; ++i)
        bytes[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(bits) >> (8 * i));
}

template <typename Number>
Number get(const unsigned char* bytes) {
    std::uint64_t wide = 0;
    for (unsigned i = sizeof(Number); i-- > 0;)
        wide = wide << 8 | bytes[i];
    const auto bits = static_cast<typename detail::Bits<sizeof(Number)>::type>(wide);
    Number number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

} // namespace little_endian
