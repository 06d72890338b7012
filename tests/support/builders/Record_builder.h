#pragma once

#include <support/builders/crc32_by_definition.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// The lowest `count` bytes of a number, the lowest first.
inline std::string low_bytes(std::uint64_t number, int count) {
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += static_cast<char>(number >> (8 * i) & 0xFF);
    return bytes;
}

/// "01 fe" as two bytes.
inline std::string from_hex(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at + 1 < text.size(); at += 3)
        bytes += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
    return bytes;
}

/// Builds stored settings byte by byte, without the library:
///
///     Record_builder().open(0, 7).value(9, 1, low_bytes(5, 4)).close().bytes()
class Record_builder {
  public:
    Record_builder& header(int type_byte, int kind, int id) {
        bytes_ += low_bytes(
            static_cast<unsigned>(type_byte) << 24 | static_cast<unsigned>(kind) << 16 | static_cast<unsigned>(id), 4);
        return *this;
    }
    /// A container's opening header.
    Record_builder& open(int type_byte, int id) {
        open_.push_back({bytes_.size(), type_byte, id});
        return header(type_byte, 1, id);
    }
    /// The closing header of the container that was opened last, and its checksum, with `damage` added to it.
    Record_builder& close(std::uint32_t damage = 0) {
        const Open container = open_.back();
        open_.pop_back();
        header(container.type_byte, 2, container.id);
        return raw(low_bytes(crc32_by_definition(0, bytes_.substr(container.begin)) + damage, 4));
    }
    Record_builder& value(int type_byte, int id, const std::string& bytes) {
        return header(type_byte, 9, id).raw(bytes);
    }
    Record_builder& integer(int id, int number) { return value(9, id, low_bytes(static_cast<unsigned>(number), 4)); }
    /// A pointer's record.
    Record_builder& path(int id, std::initializer_list<int> ids) {
        header(14, 12, id).raw(low_bytes(ids.size(), 1));
        for (const int each : ids)
            raw(low_bytes(static_cast<unsigned>(each), 2));
        return *this;
    }
    Record_builder& raw(const std::string& bytes) {
        bytes_ += bytes;
        return *this;
    }

    const std::string& bytes() const { return bytes_; }
    operator std::string() const { return bytes_; }

  private:
    struct Open {
        std::size_t begin;
        int type_byte;
        int id;
    };

    std::string bytes_;
    std::vector<Open> open_;
};
