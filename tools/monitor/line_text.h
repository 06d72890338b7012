#pragma once

#include <string_view>

/// A text without the CRs, LFs and NULs at its end.
inline std::string_view without_line_end(std::string_view text) {
    const auto last = text.find_last_not_of(std::string_view("\r\n\0", 3));
    return text.substr(0, last + 1); // npos + 1 is 0
}

/// The character, or a point for a byte that a terminal might act on.
inline char printable(char c) {
    return c >= 0x20 && c <= 0x7E ? c : '.';
}
