#include "data_stream/core/stream_specification.h"

#include <glue/data_stream/Data_stream_factory.h>

#include <platform/stzncpy.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <regex>

namespace glue_detail {

namespace {

/// Takes what `expression` matches off the front of a text; whether it was there.
bool take(const char*& text, const std::regex& expression, std::cmatch& match) {
    if (!std::regex_search(text, match, expression, std::regex_constants::match_continuous))
        return false;
    text = match[0].second;
    return true;
}

std::string take_label(const char*& text) {
    static const std::regex expression("^(.*)/(.*?),");
    std::cmatch match;
    return take(text, expression, match) ? match[1].str() + "/" + match[2].str() : std::string();
}

bool take_aim_prefix(const char*& text) {
    static const std::regex expression("^aim,");
    std::cmatch match;
    return take(text, expression, match);
}

/// The number after the first occurrence of a kind's word, which may be anywhere in the text.
std::optional<int> port_after(const char* word, const char* spec) {
    const char* const found = std::strstr(spec, word);
    if (!found)
        return {};
    const char* const first = found + std::strlen(word);
    const std::string digits(first, std::strspn(first, "0123456789"));
    return digits.empty() ? 0 : std::stoi(digits);
}

/// The text behind `key` in a token that begins with it; else null.
const char* value_of(const char* token, std::string_view key) {
    return std::strncmp(token, key.data(), key.size()) == 0 ? token + key.size() : nullptr;
}

/// The same on every system, whatever the size of its `long`.
int decimal(const char* digits) {
    return static_cast<int>(std::clamp<long>(std::strtol(digits, nullptr, 10), INT_MIN, INT_MAX));
}

} // namespace

std::optional<Stream_specification> split_specification(const char* spec) {
    if (strnlen(spec, longest_stream_specification + 1) > longest_stream_specification)
        return {};
    const char* rest = spec;
    std::string label = take_label(rest);
    const bool wants_aim = take_aim_prefix(rest);
    if (*rest == '\0')
        return {};
    return Stream_specification{std::move(label), wants_aim, rest};
}

/// The expression finds where the command begins; the rest is not left to it, because the standard library's matching
/// takes stack for every character that it repeats.
std::string command_in(const char* spec) {
    static const std::regex beginning("exec:['\"]?([^'\"])");
    std::cmatch match;
    if (!std::regex_search(spec, match, beginning))
        return {};
    const char* const command = match[1].first;
    return {command, std::strcspn(command, "'\"")};
}

TCP_client_target target_in(char* text) {
    TCP_client_target target;
    char* rest = nullptr;
    for (char* token = strtok_r(text, ",", &rest); token; token = strtok_r(nullptr, ",", &rest)) {
        if (const char* address = value_of(token, "addr=")) {
            target.address = address;
        } else if (const char* port = value_of(token, "port=")) {
            target.port = decimal(port);
        } else {
            target.unknown_token = token;
            return target;
        }
    }
    return target;
}

std::optional<int> tcp_server_port_in(const char* spec) {
    return port_after("tcp:", spec);
}

std::optional<int> tcp_server_buffered_port_in(const char* spec) {
    return port_after("tcpb:", spec);
}

bool is_console(const char* spec) {
    constexpr std::string_view prefix = "cons:";
    return std::strncmp(spec, prefix.data(), prefix.size()) == 0;
}

Serial_line_text::Serial_line_text(const char* spec) {
    stzncpy(text, spec, sizeof text);
    char* rest = text;
    strsep(&rest, ":");
    if (const char* const field = strsep(&rest, ":"))
        baud = std::strtol(field, nullptr, 10);
    if (const char* const field = strsep(&rest, ":"))
        mode = std::string_view(field).substr(0, 5);
}

} // namespace glue_detail
