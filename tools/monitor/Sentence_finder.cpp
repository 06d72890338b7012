#include "Sentence_finder.h"

#include <glue/vesk/NMEA_messages.h>

#include <algorithm>
#include <charconv>

namespace {

using NMEA_messages::NMEA0183_message;

bool may_name_kind(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool is_sentence(std::string_view line) {
    constexpr std::size_t shortest_kind = 3;
    constexpr std::size_t longest_kind = 8;
    const std::string_view kind = kind_of_sentence(line);
    return kind.size() >= shortest_kind && kind.size() <= longest_kind &&
           std::all_of(kind.begin(), kind.end(), may_name_kind);
}

} // namespace

std::string_view kind_of_sentence(std::string_view sentence) {
    const auto comma = sentence.find(',');
    return sentence.empty() || comma == std::string_view::npos ? std::string_view() : sentence.substr(1, comma - 1);
}

bool has_good_checksum(std::string_view sentence) {
    constexpr unsigned digits = 2;
    const int star = NMEA0183_message::get_delimiter_pos(sentence.data(), static_cast<unsigned>(sentence.size()));
    if (star == 0)
        return false;
    const char* const begin = sentence.data() + star + 1;
    unsigned received = 0;
    const auto result = std::from_chars(begin, begin + digits, received, 16);
    return result.ptr == begin + digits &&
           received == NMEA0183_message::calculate_checksum(sentence.data() + 1, static_cast<unsigned>(star) - 1);
}

void Sentence_finder::end_line() {
    if (is_sentence(line_))
        use_(line_);
    line_.clear();
}

void Sentence_finder::take(std::string_view noise) {
    for (const char byte : noise)
        take(byte);
}

void Sentence_finder::take(char byte) {
    if (byte == '\r' || byte == '\n') {
        end_line();
    } else if (byte == '$') {
        line_.assign(1, byte);
    } else if (line_.size() >= longest_sentence) {
        line_.clear();
    } else if (!line_.empty()) {
        line_ += byte;
    }
}
