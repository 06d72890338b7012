#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// What the texts say that streams are made from. Nothing here opens or starts anything: that is for the streams' own
/// `create` and `open`, which ask here. The grammar for users: docs/stream_specifications.md.
namespace glue_detail {

// ---- What stands in front of every kind's own text ----

struct Stream_specification {
    std::string label;    ///< "" when there is none
    bool wants_aim;       ///< the stream is to be wrapped in the AIM adapter
    const char* own_text; ///< the end of the whole text, which the kinds are asked with; not empty
};

/// Nothing for a text that is no kind's: empty, empty behind its prefixes, or too long to be matched safely.
std::optional<Stream_specification> split_specification(const char* spec);

// ---- The kinds' own texts ----

/// The command line of a child process, up to a quote character; empty when the text is of another kind.
std::string command_in(const char* spec);

struct TCP_client_target {
    const char* address = "127.0.0.1";   ///< may point into the text
    int port = 0;                        ///< 0: none was named, or one that is no number
    const char* unknown_token = nullptr; ///< the first one; what stands behind it has not been looked at
};

constexpr std::string_view tcp_client_prefix = "tcpc:";

/// Cuts the text behind the prefix into its tokens.
TCP_client_target target_in(char* text);

/// The port of a TCP server, 0 for one without digits; nothing when the text is of another kind.
/// \throws std::out_of_range when the number does not fit an int
std::optional<int> tcp_server_port_in(const char* spec);
/// The same for a buffered TCP server.
std::optional<int> tcp_server_buffered_port_in(const char* spec);

bool is_console(const char* spec);

/// The text of a serial line, cut where it has colons.
struct Serial_line_text {
    explicit Serial_line_text(const char* spec);
    Serial_line_text(const Serial_line_text&) = delete;
    Serial_line_text& operator=(const Serial_line_text&) = delete;

    const char* device() const { return text; }

    static constexpr std::size_t longest_text = 256; ///< with its NUL
    static constexpr long default_baud = 9600;

    char text[longest_text];
    long baud = default_baud;
    std::string_view mode; ///< of the line driver; only its first five characters
};

} // namespace glue_detail
