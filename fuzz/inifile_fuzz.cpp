// Texts of every sort, read as ini files. The lines are compared with those of the same rules, written here in another
// way; each line is read as a record, its value as every type; and the values are written and read again.

#include "fuzz_target.h"

#include <glue/data_stream/Data_stream.h>
#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Record = Inifile_record;

const unsigned char* bytes_of(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Delivers a text in pieces of random sizes, and keeps the bytes written.
class Text_stream : public Data_stream {
  public:
    explicit Text_stream(std::string text, unsigned longest_piece = rx_capacity)
        : text_(std::move(text)), longest_piece_(longest_piece) {}

    /// Appends the next piece to the ring. \return its size, 0 when nothing is left or the ring is full
    unsigned push() {
        const auto left = static_cast<unsigned>(text_.size() - position_);
        const unsigned size =
            std::min({1 + static_cast<unsigned>(engine_()) % longest_piece_, left, rx_buffer.free_space()});
        rx_buffer.append(bytes_of(text_) + position_, size);
        position_ += size;
        return size;
    }

    using Data_stream::get_data;
    int get_data(int n) override {
        const auto wanted = static_cast<unsigned>(n);
        unsigned fetched = 0;
        while (pulls && fetched < wanted) {
            const unsigned piece = push();
            if (piece == 0)
                break;
            fetched += piece;
        }
        return fetched >= wanted;
    }
    int _write(const unsigned char* data, unsigned int len) override {
        written.append(reinterpret_cast<const char*>(data), len);
        return static_cast<int>(len);
    }

    bool pulls = true; ///< whether a fetch delivers more
    std::string written;

  private:
    std::string text_;
    std::size_t position_ = 0;
    unsigned longest_piece_;
    std::mt19937 engine_;
};

// ---- Lines ----

struct Line {
    int kind;
    std::string text;

    bool operator==(const Line& other) const { return kind == other.kind && text == other.text; }
};
using Lines = std::vector<Line>;

bool is_line_end(char c) {
    return c == '\r' || c == '\n';
}

Lines lines_by_the_rules(const std::string& text, std::size_t longest) {
    Lines lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t limit = std::min(begin + longest, text.size());
        std::size_t end = std::min(text.find_first_of("\r\n", begin), limit);
        const std::string line = text.substr(begin, end - begin);
        const bool ended = end < text.size() && is_line_end(text[end]);
        if (ended)
            end += end + 1 < text.size() && is_line_end(text[end + 1]) && text[end + 1] != text[end] ? 2 : 1;
        lines.push_back({ended ? 1 : 2, line});
        begin = end;
    }
    return lines;
}

/// All lines that the parser returns now, each read into a buffer of exactly `size` bytes.
Lines lines_of(Inifile_parser& parser, int size, bool take_partial) {
    Lines lines;
    std::vector<unsigned char> buffer(static_cast<std::size_t>(size));
    int len = -1;
    while (const int kind = parser.get_packet(buffer.data(), size, len, take_partial)) {
        FUZZ_CHECK(len >= 0 && len <= size - 3 && buffer[static_cast<std::size_t>(len)] == '\0');
        lines.push_back({kind, std::string(buffer.begin(), buffer.begin() + len)});
    }
    return lines;
}

void check_pulled_lines(const std::string& text, unsigned longest_piece, int size) {
    const auto longest = std::min<std::size_t>(4197, static_cast<std::size_t>(size - 3));
    Lines expected = lines_by_the_rules(text, longest);
    Text_stream whole(text, longest_piece);
    Inifile_parser parser(&whole);
    FUZZ_CHECK(lines_of(parser, size, true) == expected);

    Text_stream without_last(text, longest_piece);
    parser.init(&without_last);
    const bool open_end = !expected.empty() && !text.empty() && !is_line_end(text.back());
    if (open_end)
        expected.pop_back();
    FUZZ_CHECK(lines_of(parser, size, false) == expected);
}

/// When a text is received in pieces, a line end may be cut in two. The bytes between line ends are still the same.
void check_pushed_lines(const std::string& text, unsigned longest_piece, int size) {
    Text_stream stream(text, longest_piece);
    stream.pulls = false;
    Inifile_parser parser(&stream);
    std::string found;
    const auto take = [&](bool take_partial) {
        for (const Line& line : lines_of(parser, size, take_partial)) {
            FUZZ_CHECK(line.text.find_first_of("\r\n") == std::string::npos);
            found += line.text;
        }
    };
    while (stream.push() != 0)
        take(false);
    take(true);
    std::string expected = text;
    expected.erase(std::remove_if(expected.begin(), expected.end(), is_line_end), expected.end());
    FUZZ_CHECK(found == expected);
}

// ---- Records ----

bool same(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

/// The record that one writer wrote: one line, or an empty line and one.
template <typename Write>
Record read_back(Write write) {
    Text_stream out("");
    FUZZ_CHECK(write(out));
    Text_stream in(out.written);
    Inifile_parser parser(&in);
    Record record;
    while (parser.get_packet(record, false) && record.type == Record::type_blank)
        record.init();
    return record;
}

/// A key and its value, without the white space around the sign between them.
void check_key_and_value(const std::string& line, const Record& record) {
    if (record.type > Record::type_empty)
        return;
    constexpr const char* blanks = " \t\v\f";
    const std::size_t equals_sign = line.find('=');
    FUZZ_CHECK(equals_sign != std::string::npos);
    const std::string key = line.substr(0, equals_sign);
    const std::string value = line.substr(equals_sign + 1);
    FUZZ_CHECK(key.substr(0, key.find_last_not_of(blanks) + 1) == record.get_name());
    FUZZ_CHECK(value.substr(std::min(value.find_first_not_of(blanks), value.size())) == record.value_text);
}

void check_value(const Record& record) {
    FUZZ_CHECK(record.as_cstring() == record.value_text);
    FUZZ_CHECK(record.as_string().view() == record.value_text);
    unsigned int count = 0;
    FUZZ_CHECK(record.as_byte_array(count) == record.value_text && count == std::strlen(record.value_text));
    for (std::uint32_t type = 0; type <= Record::type_none; ++type) {
        const auto wanted = static_cast<Record::type_t>(type);
        FUZZ_CHECK(record.as_type(wanted) == record._as_type(wanted));
        FUZZ_CHECK(record.as_type(wanted) || (wanted != record.type && wanted != Record::type_string));
    }
    if (record.as_type(Record::type_long))
        FUZZ_CHECK(record.as_long() == record.as_double(-1));
    if (record.as_type(Record::type_ulong))
        FUZZ_CHECK(record.as_ulong() == record.as_double(-1));
    if (record.type == Record::type_long)
        FUZZ_CHECK(record.as_long() <= 0);
    if (record.type > Record::type_bool)
        FUZZ_CHECK(record.as_long() == 0 && record.as_ulong() == 0 && record.as_double(3) == 0 && !record.as_bool());
    if (record.type == Record::type_string || record.type == Record::type_byte_array)
        FUZZ_CHECK(record.value.as_data >= record.value_text && std::strlen(record.value.as_data) >= record.length);
    const double all = record.as_double(-1);
    for (const int decimals : {0, 2, 14})
        if (std::fabs(all) < 1e9)
            FUZZ_CHECK(std::fabs(record.as_double(decimals) - all) <= 0.5000001 * std::pow(10, -decimals) + 1e-6);
}

void check_copy(const Record& record) {
    const Record copy(record);
    FUZZ_CHECK(copy.type == record.type && std::strcmp(copy.get_name(), record.get_name()) == 0);
    FUZZ_CHECK(copy.value_text - copy.text == record.value_text - record.text);
}

/// A record that is written and read again is the same.
void check_read_back(const Record& record) {
    if (record.type == Record::type_section) {
        const Record again = read_back([&](Data_stream& out) { return Record::start_section(out, record.get_name()); });
        FUZZ_CHECK(again.type == Record::type_section && std::strcmp(again.get_name(), record.get_name()) == 0);
    }
    if (record.type > Record::type_empty)
        return;
    const char* const key = record.get_name();
    const Record again = read_back([&](Data_stream& out) { return Record::out_cstring(out, key, record.value_text); });
    FUZZ_CHECK(again.type == record.type);
    FUZZ_CHECK(std::strcmp(again.get_name(), key) == 0);
    FUZZ_CHECK(std::strcmp(again.value_text, record.value_text) == 0);
    FUZZ_CHECK(again.as_ulong() == record.as_ulong() && same(again.as_double(-1), record.as_double(-1)));
}

void check_numbers_read_back(const Record& record) {
    const char* const key = "key";
    const std::int32_t number = record.as_long();
    FUZZ_CHECK(read_back([&](Data_stream& out) { return Record::out_long(out, key, number); }).as_long() == number);
    const std::uint32_t bits = record.as_ulong();
    FUZZ_CHECK(read_back([&](Data_stream& out) { return Record::out_ulong(out, key, bits); }).as_ulong() == bits);
    const bool flag = record.as_bool();
    FUZZ_CHECK(read_back([&](Data_stream& out) { return Record::out_bool(out, key, flag); }).as_bool() == flag);
    const double value = record.as_double(-1);
    const Record again = read_back([&](Data_stream& out) { return Record::out_double(out, key, value, -1); });
    if (std::fabs(value) < 1e15) // a larger one does not fit with all its decimals
        FUZZ_CHECK(std::fabs(again.as_double(-1) - value) <= 1e-14 + std::fabs(value) * 1e-15);
}

void check_byte_array(const std::string& bytes) {
    Text_stream out("");
    const auto size = static_cast<unsigned>(bytes.size());
    FUZZ_CHECK(Record::out_byte_array(out, "key", bytes_of(bytes), size));
    FUZZ_CHECK(out.written == "key=\"@ByteArray(" + bytes + "\"\n");
}

void check_records(const std::string& text, unsigned longest_piece) {
    Text_stream stream(text, longest_piece);
    Inifile_parser parser(&stream);
    for (const Line& line : lines_by_the_rules(text, Record::longest_line)) {
        Record record;
        FUZZ_CHECK(parser.get_packet(record, true));
        FUZZ_CHECK(record.line_length == std::strlen(line.text.c_str()));
        FUZZ_CHECK(record.type <= Record::type_none);
        FUZZ_CHECK(record.value_text >= record.text && record.value_text <= record.text + record.line_length);
        const char* const keys[] = {"speed", record.get_name(), nullptr};
        FUZZ_CHECK((record.search_key(keys) >= 0) == (record.type != Record::type_none));
        check_key_and_value(line.text.c_str(), record);
        check_value(record);
        check_copy(record);
        check_read_back(record);
        check_numbers_read_back(record);
    }
    Record none;
    FUZZ_CHECK(!parser.get_packet(none, true));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const unsigned longest_piece = 1 + (text.empty() ? 0U : static_cast<unsigned char>(text[0]) % 64U);
    for (const int buffer_size : {7, 5000}) {
        check_pulled_lines(text, longest_piece, buffer_size);
        check_pushed_lines(text, longest_piece, buffer_size);
    }
    check_records(text, longest_piece);
    check_byte_array(text);
    return 0;
}
