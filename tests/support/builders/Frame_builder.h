#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// The frame checksum by its definition: for each byte rotate left by two bits and XOR the byte; at the end rotate once
/// more. 0 for no bytes. Independent of the library.
unsigned char frame_checksum(std::string_view bytes);

enum class Checksum {
    binary, ///< one byte at the end of the body
    text    ///< two upper-case hexadecimal digits at the end of the body; the caller adds the "@" before them
};

/// A whole frame: identifier, three-digit length, `body`, checksum, `line_end`. `body` is without its checksum.
std::string build_frame(std::string_view identifier, std::string_view body, Checksum checksum = Checksum::binary,
                        std::string_view line_end = "\n");

/// The same without its line end.
inline std::string unterminated_frame(std::string_view identifier, std::string_view body,
                                      Checksum checksum = Checksum::binary) {
    return build_frame(identifier, body, checksum, "");
}

/// The little-endian bytes of a number.
template <typename Number>
std::string le(Number number) {
    static_assert(std::is_arithmetic_v<Number>);
    if constexpr (std::is_same_v<Number, double>) {
        std::uint64_t bits;
        std::memcpy(&bits, &number, sizeof bits);
        return le(bits);
    } else if constexpr (std::is_same_v<Number, float>) {
        std::uint32_t bits;
        std::memcpy(&bits, &number, sizeof bits);
        return le(bits);
    } else {
        std::string bytes;
        auto rest = static_cast<std::uint64_t>(number);
        for (std::size_t i = 0; i < sizeof(Number); ++i, rest >>= 8)
            bytes += static_cast<char>(rest & 0xFF);
        return bytes;
    }
}

/// A frame in a buffer of exactly its size, so that a sanitizer detects every access past it.
class Frame {
  public:
    explicit Frame(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) {}

    /// A view of the frame, valid as long as this lives.
    template <typename Message>
    Message as() {
        return Message(bytes_.data(), static_cast<unsigned>(bytes_.size()));
    }
    std::string bytes() const { return std::string(bytes_.begin(), bytes_.end()); }

  private:
    std::vector<unsigned char> bytes_;
};
