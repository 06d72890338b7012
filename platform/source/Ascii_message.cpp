#include <platform/Ascii_message.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace {

constexpr unsigned header_size = 5;

} // namespace

Ascii_message::Ascii_message(const Binary_message& message, bool body_only)
    : text_(reinterpret_cast<char*>(message.get_ptr())), length_(message.get_size()) {
    const unsigned skipped = body_only ? std::min(header_size, length_) : 0;
    text_ += skipped;
    length_ -= skipped;
}

/// A field's characters; none when there is no such field.
std::string_view Ascii_message::field(unsigned index) const {
    std::string_view rest(text_, length_);
    rest = rest.substr(0, rest.find('*'));
    for (; index > 0; --index) {
        const auto comma = rest.find(',');
        if (comma == std::string_view::npos)
            return {};
        rest.remove_prefix(comma + 1);
    }
    return rest.substr(0, rest.find(','));
}

double Ascii_message::get_double(unsigned index) const {
    std::string_view digits = field(index);
    if (digits.size() >= 2 && digits[0] == '+' && digits[1] != '-')
        digits.remove_prefix(1);
    double value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return std::isfinite(value) ? value : 0;
}

char Ascii_message::get_char(unsigned index) const {
    const std::string_view characters = field(index);
    return characters.empty() ? '\0' : characters.front();
}
