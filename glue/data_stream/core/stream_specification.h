#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The kinds' own parts of specification strings; `split_stream_specification` cuts off what comes before them. Nothing
/// here opens or starts anything: the streams' own `create` and `open` do, with what they get from here. The grammar
/// for users: docs/stream_specifications.md.
namespace glue_detail {

/// The command line of a child process, up to a quote character; empty when the text belongs to another kind.
std::string command_in(const char* spec);

struct TCP_client_target {
    const char* address = "127.0.0.1";   ///< may point into the text
    int port = 0;                        ///< 0: missing, or not a number
    const char* unknown_token = nullptr; ///< the first one; the tokens after it were not read
};

constexpr std::string_view tcp_client_prefix = "tcpc:";

/// Splits the text after the prefix into its tokens, in place.
TCP_client_target target_in(char* text);

/// The port of a TCP server, 0 when there are no digits; nothing when the text belongs to another kind.
/// \throws std::out_of_range when the number does not fit an int
std::optional<int> tcp_server_port_in(const char* spec);
/// The same for a buffered TCP server.
std::optional<int> tcp_server_buffered_port_in(const char* spec);

bool is_console(const char* spec);

/// The specification of a serial line, split at its colons.
struct Serial_line_text {
    explicit Serial_line_text(const char* spec);
    Serial_line_text(const Serial_line_text&) = delete;
    Serial_line_text& operator=(const Serial_line_text&) = delete;

    const char* device() const { return text; }

    static constexpr std::size_t longest_text = 256; ///< with its NUL
    static constexpr long default_baud = 9600;

    char text[longest_text];
    long baud = default_baud;
    std::string_view mode; ///< of the line driver; at most five characters
};

} // namespace glue_detail
