// Texts of every sort, split as the stream factory and each kind of stream split them, and compared with the grammar,
// written here in another way: searches where the library uses expressions, an expression where it searches. Nothing is
// opened or started.

#include "fuzz_target.h"

#include <glue/data_stream/Stream_specification.h>

#include <data_stream/core/stream_specification.h>

#include <cctype>
#include <limits>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

constexpr auto npos = std::string::npos;

bool begins_with(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

/// The length of a label with its comma; 0 when there is none.
std::size_t length_of_label(const std::string& text) {
    static const std::regex label("^(.*)/(.*?),");
    std::smatch match;
    const bool labelled = std::regex_search(text, match, label, std::regex_constants::match_continuous);
    return labelled ? static_cast<std::size_t>(match.length()) : 0;
}

/// The decimal number at the beginning of a text as `strtol` reads it, limited to the range of an int.
long long number_at(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])) != 0)
        ++i;
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+'))
        ++i;
    constexpr long long beyond_int = 1LL << 32;
    long long number = 0;
    for (; i < text.size() && is_digit(text[i]); ++i)
        number = std::min(beyond_int, number * 10 + (text[i] - '0'));
    number = negative ? -number : number;
    return std::max<long long>(std::numeric_limits<int>::min(),
                               std::min<long long>(number, std::numeric_limits<int>::max()));
}

std::vector<std::string> split_at(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

// ---- The library and the grammar, compared ----

void check_command(const std::string& text) {
    std::string expected;
    for (std::size_t at = text.find("exec:"); at != npos && expected.empty(); at = text.find("exec:", at + 1)) {
        const std::string rest = text.substr(at + 5);
        const bool quoted = !rest.empty() && (rest[0] == '"' || rest[0] == '\'');
        const std::string command = rest.substr(quoted ? 1 : 0);
        expected = command.substr(0, command.find_first_of("'\""));
    }
    FUZZ_CHECK(glue_detail::command_in(text.c_str()) == expected);
}

void check_tcp_client(const std::string& text) {
    if (!begins_with(text, std::string(glue_detail::tcp_client_prefix)))
        return;
    const std::string tokens = text.substr(glue_detail::tcp_client_prefix.size());
    std::string address = "127.0.0.1";
    long long port = 0;
    std::optional<std::string> unknown;
    for (const std::string& token : split_at(tokens, ',')) {
        if (begins_with(token, "addr="))
            address = token.substr(5);
        else if (begins_with(token, "port="))
            port = number_at(token.substr(5));
        else if (!token.empty()) {
            unknown = token;
            break;
        }
    }
    std::vector<char> work_area(tokens.c_str(), tokens.c_str() + tokens.size() + 1); // ends where the text ends
    const glue_detail::TCP_client_target target = glue_detail::target_in(work_area.data());
    FUZZ_CHECK(target.address == address);
    FUZZ_CHECK(target.port == port);
    FUZZ_CHECK(unknown ? target.unknown_token == *unknown : target.unknown_token == nullptr);
}

using Port_of = std::optional<int>(const char*);

void check_tcp_server(const std::string& text, const std::string& word, Port_of port_in) {
    const std::size_t at = text.find(word);
    std::string digits;
    for (std::size_t i = at == npos ? npos : at + word.size(); i < text.size() && is_digit(text[i]); ++i)
        digits += text[i];
    const bool fits = number_at(digits) < std::numeric_limits<int>::max() ||
                      std::stoll("0" + digits.substr(0, 15)) == std::numeric_limits<int>::max();
    try {
        const std::optional<int> port = port_in(text.c_str());
        FUZZ_CHECK(port.has_value() == (at != npos));
        FUZZ_CHECK(fits && (!port || *port == number_at(digits)));
    } catch (const std::out_of_range&) {
        FUZZ_CHECK(!fits);
    }
}

void check_serial_line(const std::string& text) {
    const std::vector<std::string> fields = split_at(text.substr(0, 255), ':');
    const glue_detail::Serial_line_text line(text.c_str());
    FUZZ_CHECK(line.device() == fields[0]);
    if (fields.size() < 2)
        FUZZ_CHECK(line.baud == glue_detail::Serial_line_text::default_baud);
    else if (line.baud >= std::numeric_limits<int>::min() && line.baud <= std::numeric_limits<int>::max())
        FUZZ_CHECK(line.baud == number_at(fields[1]));
    FUZZ_CHECK(line.mode == (fields.size() < 3 ? ""s : fields[2].substr(0, 5)));
}

void check_kinds(const std::string& text) {
    check_command(text);
    check_tcp_client(text);
    check_tcp_server(text, "tcp:", glue_detail::tcp_server_port_in);
    check_tcp_server(text, "tcpb:", glue_detail::tcp_server_buffered_port_in);
    FUZZ_CHECK(glue_detail::is_console(text.c_str()) == begins_with(text, "cons:"));
    check_serial_line(text);
}

void check_specification(const std::string& text) {
    const auto split = split_stream_specification(text.c_str());
    if (text.size() > longest_stream_specification) {
        FUZZ_CHECK(!split);
        return;
    }
    const std::size_t label_length = length_of_label(text);
    const bool wants_aim = text.compare(label_length, 4, "aim,") == 0;
    const std::string own_text = text.substr(label_length + (wants_aim ? 4 : 0));

    FUZZ_CHECK(split.has_value() == !own_text.empty());
    if (!split)
        return;
    FUZZ_CHECK(split->label == (label_length == 0 ? "" : text.substr(0, label_length - 1)));
    FUZZ_CHECK(split->wants_aim == wants_aim);
    FUZZ_CHECK(split->own_text == own_text);
    check_kinds(own_text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    check_specification(bytes.c_str()); // up to the first NUL, as an application passes it
    return 0;
}
