#include "data_stream/core/stream_specification.h"

#include <glue/data_stream/Stream_specification.h>

#include <platform/stzncpy.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <regex>

namespace {

/// The length of a label with its comma: "first/second,", which lies in the first line and is as long as possible up
/// to its "/" and as short as possible after it. 0 when the text begins with none.
std::size_t length_of_label(std::string_view text) {
    const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
    const std::size_t last_comma = line.rfind(',');
    const std::size_t slash = line.substr(0, last_comma).rfind('/');
    if (last_comma == std::string_view::npos || slash == std::string_view::npos)
        return 0;
    return line.find(',', slash) + 1;
}

} // namespace

std::optional<Stream_specification> split_stream_specification(const char* spec) {
    constexpr std::string_view aim_prefix = "aim,";
    const std::string_view text(spec, strnlen(spec, longest_stream_specification + 1));
    if (text.size() > longest_stream_specification)
        return {};
    const std::size_t label_length = length_of_label(text);
    const std::string_view label = text.substr(0, std::max<std::size_t>(label_length, 1) - 1);
    std::string_view rest = text.substr(label_length);
    const bool wants_aim = rest.substr(0, aim_prefix.size()) == aim_prefix;
    if (wants_aim)
        rest.remove_prefix(aim_prefix.size());
    if (rest.empty())
        return {};
    return Stream_specification{std::string(label), wants_aim, std::string(rest)};
}

namespace glue_detail {

namespace {

/// The number after the first occurrence of a kind's word, which may be anywhere in the text.
std::optional<int> port_after(const char* word, const char* spec) {
    const char* const found = std::strstr(spec, word);
    if (!found)
        return {};
    const char* const first = found + std::strlen(word);
    const std::string digits(first, std::strspn(first, "0123456789"));
    return digits.empty() ? 0 : std::stoi(digits);
}

/// The text after `key` in a token that begins with it; else null.
const char* value_of(const char* token, std::string_view key) {
    return std::strncmp(token, key.data(), key.size()) == 0 ? token + key.size() : nullptr;
}

/// The same on every system: the size of `long` differs.
int decimal(const char* digits) {
    return static_cast<int>(std::clamp<long>(std::strtol(digits, nullptr, 10), INT_MIN, INT_MAX));
}

} // namespace

/// The expression only finds where the command begins: the standard library's matching needs stack for every character
/// that it repeats.
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
