#pragma once

#include <support/builders/crc32_by_definition.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

/// Reads the records of a settings file as far as they are valid, and corrects the checksum of every container: for
/// damage that a checksum would detect. Written from the description of the format, not from the library.
inline std::string mended_checksums(std::string bytes) {
    const auto byte = [&bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    static constexpr unsigned sizes[] = {0, 0, 1, 1, 1, 2, 4, 1, 2, 4, 4, 8, 0, 0, 0, 8, 8}; // of values, by type
    std::vector<std::size_t> open;
    std::size_t at = 0;
    while (at + 4 <= bytes.size()) {
        const std::size_t begin = at;
        const unsigned type = byte(at + 3) & 0x3FU;
        const unsigned dimension = byte(at + 3) >> 6U;
        const unsigned kind = byte(at + 2);
        at += 4;
        if (kind == 1) {
            open.push_back(begin);
        } else if (kind == 2) {
            if (open.empty() || at + 4 > bytes.size())
                break;
            const std::uint32_t crc =
                crc32_by_definition(0, std::string_view(bytes).substr(open.back(), at - open.back()));
            for (unsigned i = 0; i < 4; ++i)
                bytes[at + i] = static_cast<char>(crc >> (8 * i));
            open.pop_back();
            at += 4;
        } else if (kind == 9 && type < std::size(sizes) && sizes[type] != 0) {
            std::size_t count = 1;
            for (unsigned i = 0; i < dimension && at < bytes.size(); ++i)
                count *= byte(at++);
            at += count * sizes[type];
        } else if (kind == 12 && at < bytes.size()) {
            at += 1 + 2 * std::size_t{byte(at)};
        } else {
            break;
        }
    }
    return bytes;
}
