#pragma once

namespace glue_detail {

/// Whether a byte is a line terminator.
constexpr bool ends_line(unsigned char byte) {
    return byte == '\r' || byte == '\n';
}

} // namespace glue_detail
