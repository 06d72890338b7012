#pragma once

namespace glue_detail {

/// The value of a hexadecimal digit in either case; -1 for any other character.
constexpr int hex_value(unsigned char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

/// The value of `count` hexadecimal digits; -1 when one of the characters is no such digit.
constexpr int hex_value(const unsigned char* digits, unsigned count) {
    int value = 0;
    for (unsigned i = 0; i < count; ++i) {
        const int digit = hex_value(digits[i]);
        if (digit < 0)
            return -1;
        value = value * 16 + digit;
    }
    return value;
}

/// The upper-case digit for a value from 0 to 15.
constexpr unsigned char hex_digit(unsigned value) {
    return static_cast<unsigned char>("0123456789ABCDEF"[value & 15U]);
}

} // namespace glue_detail
