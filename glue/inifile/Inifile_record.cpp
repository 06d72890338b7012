#include <glue/inifile/Inifile_record.h>

#include "detail/white_space.h"

#include <glue/data_stream/Data_stream.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string_view>

using glue_detail::is_white_space;
using glue_detail::skip_white_space;

namespace {

using Longs = std::numeric_limits<std::int32_t>;
using Ulongs = std::numeric_limits<std::uint32_t>;

constexpr std::string_view array_begin = "\"@ByteArray({";
constexpr std::string_view array_end = "})\"";

/// Cuts off the white space at the end of a text: `end` is its NUL.
void trim_end(char* end, const char* begin) {
    while (end > begin && is_white_space(end[-1]))
        *--end = '\0';
}

bool begins_with(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// `strtod` in the "C" locale, whatever the program's locale is.
double c_strtod(const char* text, char** end) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, end, c_locale);
}

bool is_hexadecimal(const char* text) {
    text += *text == '+' || *text == '-';
    return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

/// Truncates a number toward zero and limits it to the range of an integer type.
template <typename Integer>
Integer clamped(double value) {
    using Limits = std::numeric_limits<Integer>;
    if (std::isnan(value))
        return 0;
    return static_cast<Integer>(
        std::clamp(std::trunc(value), static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

bool write_all(Data_stream& stream, std::string_view piece) {
    const auto size = static_cast<unsigned int>(piece.size());
    return stream.__write(reinterpret_cast<const unsigned char*>(piece.data()), size) == static_cast<int>(size);
}

/// Writes a line of several pieces, in one write if it is short enough.
bool write_line(Data_stream& stream, std::initializer_list<std::string_view> pieces) {
    constexpr std::size_t longest_whole = 255;
    char line[longest_whole + 1];
    std::size_t length = 0;
    for (const std::string_view piece : pieces)
        length += piece.size();
    if (length > longest_whole)
        return std::all_of(pieces.begin(), pieces.end(),
                           [&](std::string_view piece) { return write_all(stream, piece); });
    char* end = line;
    for (const std::string_view piece : pieces)
        end += piece.copy(end, piece.size());
    return write_all(stream, {line, length});
}

template <typename Number>
bool write_number(Data_stream& stream, const char* key, Number value) {
    char digits[16];
    *std::to_chars(digits, digits + sizeof digits - 1, value).ptr = '\0';
    return Inifile_record::out_cstring(stream, key, digits);
}

} // namespace

Inifile_record::Inifile_record() {
    text[0] = '\0';
    init();
}

Inifile_record::Inifile_record(const Inifile_record& other) {
    *this = other;
}

Inifile_record& Inifile_record::operator=(const Inifile_record& other) {
    if (this == &other)
        return *this;
    std::memcpy(text, other.text, sizeof text);
    type = other.type;
    value = other.value;
    length = other.length;
    line_length = other.line_length;
    value_text = text + (other.value_text - other.text);
    if (type == type_string || type == type_byte_array)
        value.as_data = text + (other.value.as_data - other.text);
    return *this;
}

void Inifile_record::init() {
    text[0] = '\0';
    type = type_none;
    value.as_floating = 0;
    length = 0;
    line_length = 0;
    value_text = text;
}

// ---- Classifying a line ----

void Inifile_record::parse() {
    text[longest_line] = '\0';
    line_length = static_cast<std::uint32_t>(std::strlen(text));
    if (parse_section())
        return;
    char* const begin = skip_white_space(text);
    if (*begin == '\0' || *begin == '#') {
        type = *begin == '#' ? type_comment : type_blank;
        return;
    }
    char* const equals = std::strchr(text, '=');
    if (!equals)
        return;
    *equals = '\0';
    trim_end(equals, text);
    value_text = skip_white_space(equals + 1);
    parse_value();
}

bool Inifile_record::parse_section() {
    if (text[0] != '[' || text[line_length - 1] != ']')
        return false;
    type = type_section;
    text[line_length - 1] = '\0';
    value_text = text + 1;
    return true;
}

void Inifile_record::parse_value() {
    if (*value_text == '\0') {
        type = type_empty;
        return;
    }
    if (parse_whole_number() || parse_floating() || parse_bool() || parse_byte_array())
        return;
    type = type_string;
    value.as_data = value_text;
    length = static_cast<std::uint32_t>(std::strlen(value_text));
}

bool Inifile_record::parse_whole_number() {
    char* end = nullptr;
    if (*value_text == '-') {
        const long long number = std::strtoll(value_text, &end, 10);
        if (end == value_text || *end != '\0')
            return false;
        type = type_long;
        value.as_signed = static_cast<std::int32_t>(std::clamp<long long>(number, Longs::min(), Longs::max()));
        return true;
    }
    const unsigned long long number = std::strtoull(value_text, &end, 10);
    if (end == value_text || *end != '\0')
        return false;
    type = type_ulong;
    value.as_unsigned = static_cast<std::uint32_t>(std::min<unsigned long long>(number, Ulongs::max()));
    return true;
}

/// Hexadecimal numbers are strings, although the standard library would read them.
bool Inifile_record::parse_floating() {
    if (is_hexadecimal(value_text))
        return false;
    char* end = nullptr;
    const double number = c_strtod(value_text, &end);
    if (end == value_text || *end != '\0')
        return false;
    type = type_double;
    value.as_floating = number;
    return true;
}

bool Inifile_record::parse_bool() {
    const bool is_true = std::strcmp(value_text, "true") == 0;
    if (!is_true && std::strcmp(value_text, "false") != 0)
        return false;
    type = type_bool;
    value.as_boolean = is_true;
    return true;
}

bool Inifile_record::parse_byte_array() {
    const std::string_view whole(value_text);
    if (!begins_with(whole, array_begin) || !ends_with(whole, array_end))
        return false;
    type = type_byte_array;
    value.as_data = value_text + array_begin.size();
    length = static_cast<std::uint32_t>(whole.size() - array_begin.size() - array_end.size());
    return true;
}

// ---- Reading the value ----

const char* Inifile_record::get_name() const {
    return type == type_section ? value_text : text;
}

int Inifile_record::search_key(const char* const* keys) const {
    if (type == type_none || !keys)
        return -1;
    for (int i = 0; keys[i]; ++i)
        if (std::strcmp(keys[i], get_name()) == 0)
            return i;
    return -1;
}

bool Inifile_record::_as_type(type_t wanted) const {
    if (wanted == type)
        return true;
    switch (wanted) {
    case type_long:
        return (type == type_ulong && value.as_unsigned <= static_cast<std::uint32_t>(Longs::max())) ||
               type == type_bool;
    case type_ulong:
        return (type == type_long && value.as_signed >= 0) || type == type_bool;
    case type_double:
        return type == type_long || type == type_ulong || type == type_bool;
    case type_bool:
        return type == type_long || type == type_ulong;
    case type_string:
        return true;
    default:
        return false;
    }
}

std::int32_t Inifile_record::as_long() const {
    switch (type) {
    case type_long:
    case type_ulong:
        return value.as_signed;
    case type_double:
        return clamped<std::int32_t>(value.as_floating);
    case type_bool:
        return value.as_boolean ? 1 : 0;
    default:
        return 0;
    }
}

std::uint32_t Inifile_record::as_ulong() const {
    switch (type) {
    case type_long:
    case type_ulong:
        return value.as_unsigned;
    case type_double:
        return clamped<std::uint32_t>(value.as_floating);
    case type_bool:
        return value.as_boolean ? 1 : 0;
    default:
        return 0;
    }
}

double Inifile_record::as_double(int decimals) const {
    switch (type) {
    case type_long:
        return value.as_signed;
    case type_ulong:
        return value.as_unsigned;
    case type_double: {
        if (decimals < 0)
            return value.as_floating;
        const double step = std::pow(10.0, -decimals);
        return std::rint(value.as_floating / step) * step;
    }
    case type_bool:
        return value.as_boolean ? 1.0 : 0.0;
    default:
        return 0;
    }
}

bool Inifile_record::as_bool() const {
    constexpr double smallest_true = 1e-8;
    switch (type) {
    case type_long:
    case type_ulong:
        return value.as_unsigned != 0;
    case type_double:
        return std::fabs(value.as_floating) >= smallest_true;
    case type_bool:
        return value.as_boolean;
    default:
        return false;
    }
}

const char* Inifile_record::as_cstring() const {
    return value_text;
}

String<257> Inifile_record::as_string() const {
    return String<257>(value_text);
}

const char* Inifile_record::as_byte_array(unsigned int& count) const {
    count = static_cast<unsigned int>(std::strlen(value_text));
    return value_text;
}

// ---- Writing ----

bool Inifile_record::start_section(Data_stream& stream, const char* name) {
    return write_line(stream, {"\n[", name, "]\n"});
}

bool Inifile_record::out_cstring(Data_stream& stream, const char* key, const char* value) {
    return write_line(stream, {key, "=", value, "\n"});
}

bool Inifile_record::out_long(Data_stream& stream, const char* key, std::int32_t value) {
    return write_number(stream, key, value);
}

bool Inifile_record::out_ulong(Data_stream& stream, const char* key, std::uint32_t value) {
    return write_number(stream, key, value);
}

bool Inifile_record::out_double(Data_stream& stream, const char* key, double value, int precision) {
    constexpr int default_precision = 14;
    constexpr int most_decimals = 400; // more than the text can keep
    constexpr std::size_t longest = 31;
    char digits[800]; // a sign, up to 309 digits, the point and the decimals
    const int decimals = precision < 0 ? default_precision : std::min(precision, most_decimals);
    const auto result = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, decimals);
    std::size_t length = std::min(static_cast<std::size_t>(result.ptr - digits), longest);
    while (length >= 2 && digits[length - 1] == '0' && digits[length - 2] != '.')
        --length;
    return write_line(stream, {key, "=", {digits, length}, "\n"});
}

bool Inifile_record::out_bool(Data_stream& stream, const char* key, bool value) {
    return out_cstring(stream, key, value ? "true" : "false");
}

bool Inifile_record::out_string(Data_stream& stream, const char* key, const String_base& value) {
    return out_cstring(stream, key, value.c_str());
}

bool Inifile_record::out_byte_array(Data_stream& stream, const char* key, const unsigned char* data,
                                    unsigned int count) {
    return write_line(stream, {key, "=\"@ByteArray(", {reinterpret_cast<const char*>(data), count}, "\"\n"});
}
