#include <platform/Data_item_text.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

namespace {

constexpr int longest_number = 40; // "-1.7976931348623157e+308" and every NaN are shorter

template <typename T>
using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

template <typename T>
Bits<T> bits_of(T value) {
    Bits<T> bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

template <typename T>
bool is_unusual_nan(T value) {
    constexpr Bits<T> sign = Bits<T>(1) << (8 * sizeof(T) - 1);
    return std::isnan(value) && (bits_of(value) & ~sign) != bits_of(std::numeric_limits<T>::quiet_NaN());
}

constexpr std::string_view nan_begin = "nan(0x";

template <typename T>
char* print_nan(T value, char* begin, char* end) {
    std::memcpy(begin, nan_begin.data(), nan_begin.size());
    char* at = std::to_chars(begin + nan_begin.size(), end, bits_of(value), 16).ptr;
    *at++ = ')';
    return at;
}

/// Prints into `longest_number` bytes. \return the end of the text
template <typename T>
char* print(T value, char* begin, char* end) {
    if constexpr (std::is_same_v<T, bool>)
        return std::to_chars(begin, end, static_cast<int>(value)).ptr;
    else if constexpr (std::is_same_v<T, char>)
        return std::to_chars(begin, end, static_cast<unsigned>(static_cast<unsigned char>(value))).ptr;
    else if constexpr (std::is_floating_point_v<T>)
        return is_unusual_nan(value) ? print_nan(value, begin, end) : std::to_chars(begin, end, value).ptr;
    else
        return std::to_chars(begin, end, value).ptr;
}

const char* skip_blanks(const char* text) {
    return text + std::strspn(text, " \t");
}

/// Reads a number with the standard's functions, from a text that begins with it.
template <typename T>
const char* scan(const char* text, T& value) {
    const auto result = std::from_chars(text, text + std::strlen(text), value);
    return result.ec == std::errc() ? result.ptr : nullptr;
}

template <typename T>
const char* scan_unusual_nan(const char* text, T& value) {
    if (std::strncmp(text, nan_begin.data(), nan_begin.size()) != 0)
        return nullptr;
    Bits<T> bits = 0;
    const char* const first = text + nan_begin.size();
    const auto result = std::from_chars(first, text + std::strlen(text), bits, 16);
    if (result.ec != std::errc() || *result.ptr != ')')
        return nullptr;
    T read;
    std::memcpy(&read, &bits, sizeof read);
    if (!std::isnan(read))
        return nullptr;
    std::memcpy(&value, &bits, sizeof value);
    return result.ptr + 1;
}

const char* scan_bool(const char* text, bool& value) {
    for (const bool word : {false, true}) {
        const char* const name = word ? "true" : "false";
        if (std::strncmp(text, name, std::strlen(name)) == 0) {
            value = word;
            return text + std::strlen(name);
        }
    }
    unsigned number = 0;
    const char* const end = scan(text, number);
    if (!end || number > 1)
        return nullptr;
    value = number == 1;
    return end;
}

} // namespace

template <typename T>
int Data_item_stringify<T>::to_string(T value, char* buf, int len) {
    char text[longest_number];
    const auto count = static_cast<int>(print(value, text, text + sizeof text) - text);
    if (!buf || count >= len)
        return 0;
    std::memcpy(buf, text, static_cast<std::size_t>(count));
    buf[count] = '\0';
    return count;
}

template <typename T>
const char* Data_item_destringify<T>::from_string(const char* text, T& value) {
    if (!text)
        return nullptr;
    text = skip_blanks(text);
    if constexpr (std::is_same_v<T, bool>) {
        return scan_bool(text, value);
    } else if constexpr (std::is_same_v<T, char>) {
        unsigned char number = 0;
        const char* const end = scan(text, number);
        if (end)
            value = static_cast<char>(number);
        return end;
    } else if constexpr (std::is_floating_point_v<T>) {
        const char* const end = scan_unusual_nan(text, value);
        return end ? end : scan(text, value);
    } else {
        return scan(text, value);
    }
}

#define INSTANTIATE(T)                                                                                                 \
    template struct Data_item_stringify<T>;                                                                            \
    template struct Data_item_destringify<T>;

INSTANTIATE(bool)
INSTANTIATE(char)
INSTANTIATE(unsigned char)
INSTANTIATE(unsigned short)
INSTANTIATE(unsigned int)
INSTANTIATE(signed char)
INSTANTIATE(short)
INSTANTIATE(int)
INSTANTIATE(float)
INSTANTIATE(double)
INSTANTIATE(unsigned long long)
INSTANTIATE(long long)
