#pragma once

namespace glue_detail {

/// What `std::isspace` accepts in the "C" locale, whatever the program's locale is.
constexpr bool is_white_space(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// \return the first character of a text that is no white space; it may be the NUL
inline char* skip_white_space(char* text) {
    while (is_white_space(*text))
        ++text;
    return text;
}

} // namespace glue_detail
