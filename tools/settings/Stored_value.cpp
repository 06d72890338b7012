#include "Stored_value.h"

#include <platform/Data_item.h>
#include <platform/Data_item_text.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace {

using DTS::Defs;
using NV_store::NV_iterator;

constexpr NV_iterator::Options byte_order = NV_iterator::little_endian;

template <typename Shown, typename Stored>
bool read_as(NV_iterator& it, bool (NV_iterator::*pop)(Stored&, NV_iterator::Options), std::string& text) {
    Stored stored{};
    if (!(it.*pop)(stored, byte_order))
        return false;
    char buffer[64] = "";
    Data_item_stringify<Shown>::to_string(static_cast<Shown>(stored), buffer, sizeof buffer);
    text = buffer;
    return true;
}

bool read_bool(NV_iterator& it, std::string& text) {
    bool value = false;
    if (!it.pop_bool(value, byte_order))
        return false;
    text = value ? "true" : "false";
    return true;
}

/// Reads a number of one type; null for types that are not numbers.
using Reader = bool (*)(NV_iterator&, std::string&);

#define READER(Shown, name)                                                                                            \
    [](NV_iterator& it, std::string& text) { return read_as<Shown>(it, &NV_iterator::pop_##name, text); }

struct Type {
    const char* name = nullptr;
    Reader read = nullptr;
};

/// By type code.
constexpr Type types[] = {
    {"root", nullptr},
    {"struct", nullptr},
    {"bool", read_bool},
    {"char", READER(char, char)},
    {"uint8", READER(unsigned char, uint8)},
    {"uint16", READER(unsigned short, uint16)},
    {"uint32", READER(unsigned int, uint32)},
    {"int8", READER(signed char, int8)},
    {"int16", READER(short, int16)},
    {"int32", READER(int, int32)},
    {"float", READER(float, float)},
    {"double", READER(double, double)},
    {nullptr, nullptr},
    {"list", nullptr},
    {"pointer", nullptr},
    {"uint64", READER(unsigned long long, uint64)},
    {"int64", READER(long long, int64)},
    {"special number", nullptr},
};

#undef READER

Type type_of(int code) {
    return code >= 0 && code < static_cast<int>(std::size(types)) ? types[code] : Type{};
}

bool is_printable(int character) {
    return character >= ' ' && character <= '~';
}

std::string quoted(const std::vector<std::string>& characters) {
    std::string text = "\"";
    for (const std::string& number : characters) {
        const int character = std::atoi(number.c_str());
        char escaped[8];
        if (!is_printable(character))
            std::snprintf(escaped, sizeof escaped, "\\x%02X", character & 0xFF);
        else
            std::snprintf(escaped, sizeof escaped, character == '"' || character == '\\' ? "\\%c" : "%c", character);
        text += escaped;
    }
    return text + '"';
}

std::string one_number(int type, const std::string& number) {
    const int character = type == Defs::type_char ? std::atoi(number.c_str()) : 0;
    return is_printable(character) ? number + " '" + static_cast<char>(character) + "'" : number;
}

/// Some of the numbers, in brackets.
std::string bracketed(const Stored_value& value, std::size_t begin, std::size_t count) {
    std::string text = "[";
    for (std::size_t i = begin; i < begin + count; ++i)
        text += (i > begin ? ", " : "") + value.numbers[i];
    return text + "]";
}

} // namespace

const char* type_name(int type) {
    return type_of(type).name;
}

bool is_number(int type) {
    return type_of(type).read != nullptr;
}

bool has_arrays(int type) {
    return type >= Defs::type_bool && type <= Defs::type_double;
}

bool read_number(NV_iterator& it, int type, std::string& text) {
    const Reader read = type_of(type).read;
    return read && read(it, text);
}

std::string kind_text(int dimension, int type, const Stored_value& value) {
    const char* const name = type_name(type);
    if (dimension == Defs::single)
        return name;
    if (dimension == Defs::array)
        return "array of " + std::to_string(value.rows) + " " + name;
    return "matrix of " + std::to_string(value.rows) + " x " + std::to_string(value.columns) + " " + name;
}

std::string value_text(int dimension, int type, const Stored_value& value) {
    if (dimension == Defs::single)
        return one_number(type, value.numbers.front());
    if (dimension == Defs::array)
        return type == Defs::type_char ? quoted(value.numbers) : bracketed(value, 0, value.numbers.size());
    std::string text = "[";
    for (unsigned row = 0; row < value.rows; ++row)
        text += (row > 0 ? ", " : "") + bracketed(value, std::size_t{row} * value.columns, value.columns);
    return text + "]";
}
