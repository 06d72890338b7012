#pragma once

#include <cstdint>
#include <string_view>

/// The common CRC-32, bit by bit by its definition, continued from `crc`.
inline std::uint32_t crc32_by_definition(std::uint32_t crc, std::string_view bytes) {
    crc = ~crc;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}
