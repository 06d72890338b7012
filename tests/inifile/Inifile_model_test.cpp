#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <support/builders/Random.h>
#include <support/fakes/Scripted_stream.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using Record = Inifile_record;
using Type = Record::type_t;

/// The expected result of parsing a line.
struct Expected {
    Type type;
    std::string name;  ///< of a key or section; not compared for other lines
    std::string value; ///< the text of the value
    double number = 0; ///< of a number or a boolean
};

/// Makes lines of every kind, and knows the kind.
class Line_maker {
  public:
    std::pair<std::string, Expected> next() {
        switch (random_.between(0, 7)) {
        case 0: {
            const std::string name = text_of("abcXYZ 09_=#]", 0, 20);
            return {"[" + name + "]", {Record::type_section, name, name}};
        }
        case 1:
            return {blanks() + "#" + text_of("ab =[]#\"", 0, 30), {Record::type_comment, "", ""}};
        case 2:
            return {blanks(), {Record::type_blank, "", ""}};
        case 3:
            return {text_of("abc", 1, 10) + blanks() + text_of("abc #]", 0, 10), {Record::type_none, "", ""}};
        default:
            return key_and_value();
        }
    }

  private:
    std::string text_of(const std::string& characters, unsigned shortest, unsigned longest) {
        std::string text(random_.between(shortest, longest), '\0');
        for (char& c : text)
            c = characters[random_.between(0, static_cast<unsigned>(characters.size()) - 1)];
        return text;
    }
    std::string blanks() { return text_of(" \t", 0, 3); }
    std::string digits(unsigned most) { return text_of("0123456789", 1, most); }

    std::pair<std::string, Expected> key_and_value() {
        Expected value = any_value();
        value.name = blanks() + text_of("abcXYZ09_", 1, 8) + text_of("abc #.\"", 0, 8) + "k";
        return {value.name + blanks() + "=" + blanks() + value.value, value};
    }

    Expected any_value() {
        switch (random_.between(0, 6)) {
        case 0: {
            const std::string text = (random_.one_in(4) ? "+" : "") + digits(12);
            return {Record::type_ulong, "", text, std::min(std::stod(text), 4294967295.0)};
        }
        case 1: {
            const std::string text = "-" + digits(12);
            return {Record::type_long, "", text, std::max(std::stod(text), -2147483648.0)};
        }
        case 2: {
            std::string text = (random_.one_in(2) ? "-" : "") + digits(6) + "." + digits(6);
            if (random_.one_in(3))
                text += "e" + std::string(random_.one_in(2) ? "-" : "") + digits(2);
            return {Record::type_double, "", text, std::stod(text)};
        }
        case 3: {
            const bool on = random_.one_in(2);
            return {Record::type_bool, "", on ? "true" : "false", on ? 1.0 : 0.0};
        }
        case 4:
            return {Record::type_byte_array, "", "\"@ByteArray({" + text_of("ab \x01\xFF}\")", 0, 20) + "})\""};
        case 5:
            return {Record::type_empty, "", ""};
        default:
            return {Record::type_string, "", text_of("xyz", 1, 1) + text_of("abc=# 019[]\"\xA0", 0, 40)};
        }
    }

    Random random_;
};

std::int64_t clamp_cut(double number, double low, double high) {
    return static_cast<std::int64_t>(std::trunc(std::max(low, std::min(high, number))));
}

void expect_value(const Record& record, const Expected& expected) {
    EXPECT_STREQ(record.as_cstring(), expected.value.c_str());
    EXPECT_EQ(record.as_string().view(), expected.value);
    EXPECT_EQ(record.as_double(-1), expected.number);
    const bool is_array = expected.type == Record::type_byte_array;
    if (is_array || expected.type == Record::type_string) {
        const std::string data = is_array ? expected.value.substr(13, expected.value.size() - 16) : expected.value;
        EXPECT_EQ(std::string(record.value.as_data, record.length), data);
    }
    const bool is_floating = expected.type == Record::type_double;
    if (is_floating || expected.type == Record::type_long) {
        EXPECT_EQ(record.as_long(), clamp_cut(expected.number, -2147483648.0, 2147483647.0));
    }
    if (is_floating || expected.type == Record::type_ulong) {
        EXPECT_EQ(record.as_ulong(), clamp_cut(expected.number, 0, 4294967295.0));
    }
    EXPECT_EQ(record.as_bool(), std::fabs(expected.number) >= 1e-8);
}

TEST(Inifile_model, any_line_is_parsed_as_the_kind_that_was_made) {
    Line_maker maker;
    for (int round = 0; round < 20000; ++round) {
        const auto [line, expected] = maker.next();
        SCOPED_TRACE(line);
        Record record;
        ASSERT_LE(line.size(), Record::longest_line);
        std::strcpy(record.text, line.c_str());
        record.parse();
        ASSERT_EQ(record.type, expected.type);
        EXPECT_EQ(record.line_length, line.size());
        if (record.type <= Record::type_section) {
            EXPECT_EQ(record.get_name(), expected.name);
        }
        if (record.type <= Record::type_empty)
            expect_value(record, expected);
        if (HasFailure())
            return;
    }
}

// ---- A file, written and read ----

/// A record for each line that is not blank.
std::vector<Record> records_of(const std::string& file) {
    Scripted_stream stream;
    stream.will_arrive(file);
    Inifile_parser parser(&stream);
    std::vector<Record> records;
    Record record;
    for (; parser.get_packet(record, true); record.init())
        if (record.type != Record::type_blank)
            records.push_back(record);
    return records;
}

/// Writes a line and reads it.
template <typename Write>
Record read_back(Write write) {
    Scripted_stream stream;
    EXPECT_TRUE(write(stream));
    std::vector<Record> records = records_of(stream.written);
    EXPECT_EQ(records.size(), 1U) << stream.written;
    return records.empty() ? Record() : records.front();
}

Record text_read_back(const std::string& key, const std::string& value) {
    return read_back([&](Data_stream& out) { return Record::out_cstring(out, key.c_str(), value.c_str()); });
}

TEST(Inifile_model, written_file_is_read_back_the_same) {
    Line_maker maker;
    for (int round = 0; round < 100; ++round) {
        Scripted_stream file;
        std::vector<Expected> written;
        for (int i = 0; i < 50; ++i) {
            const Expected line = maker.next().second;
            if (line.type == Record::type_section)
                ASSERT_TRUE(Record::start_section(file, line.name.c_str()));
            else if (line.type <= Record::type_empty)
                ASSERT_TRUE(Record::out_cstring(file, line.name.c_str(), line.value.c_str()));
            else
                continue;
            written.push_back(line);
        }
        const std::vector<Record> read = records_of(file.written);
        ASSERT_EQ(read.size(), written.size());
        for (std::size_t i = 0; i < read.size(); ++i) {
            ASSERT_EQ(read[i].type, written[i].type) << written[i].name << "=" << written[i].value;
            ASSERT_EQ(read[i].get_name(), written[i].name);
            if (written[i].type != Record::type_section)
                expect_value(read[i], written[i]);
        }
    }
}

TEST(Inifile_model, floating_point_numbers_are_read_back_to_their_decimals) {
    Random random;
    for (int round = 0; round < 5000; ++round) {
        const double value = (static_cast<double>(random.between(0, 2000000000)) - 1e9) / 1000;
        const int precision = static_cast<int>(random.between(1, 9));
        const Record record =
            read_back([&](Data_stream& out) { return Record::out_double(out, "k", value, precision); });
        ASSERT_EQ(record.type, Record::type_double) << "the point is kept";
        ASSERT_NEAR(record.as_double(-1), value, 0.5000001 * std::pow(10, -precision) + 1e-9);
    }
}

TEST(Inifile_model, booleans_are_read_back) {
    for (const bool flag : {false, true}) {
        const Record record = read_back([&](Data_stream& out) { return Record::out_bool(out, "k", flag); });
        EXPECT_EQ(record.type, Record::type_bool);
        EXPECT_EQ(record.as_bool(), flag);
    }
}

// ---- Values that are not read back as they were written, all on purpose ----

TEST(Inifile_model, signed_number_that_is_not_negative_is_read_back_as_unsigned) {
    const Record record = read_back([](Data_stream& out) { return Record::out_long(out, "k", 5); });
    EXPECT_EQ(record.type, Record::type_ulong);
    EXPECT_TRUE(record.as_type(Record::type_long));
    EXPECT_EQ(record.as_long(), 5);
}

TEST(Inifile_model, text_that_has_the_form_of_another_type_is_read_back_as_that) {
    EXPECT_EQ(text_read_back("k", "42").type, Record::type_ulong);
    EXPECT_EQ(text_read_back("k", "-1").type, Record::type_long);
    EXPECT_EQ(text_read_back("k", "1.5").type, Record::type_double);
    EXPECT_EQ(text_read_back("k", "nan").type, Record::type_double);
    EXPECT_EQ(text_read_back("k", "true").type, Record::type_bool);
    EXPECT_EQ(text_read_back("k", "").type, Record::type_empty);
    EXPECT_EQ(text_read_back("#k", "v").type, Record::type_comment);
    EXPECT_EQ(text_read_back("[k", "v]").type, Record::type_section);
}

TEST(Inifile_model, white_space_around_the_equals_sign_is_lost) {
    const Record record = text_read_back("k \t", " \tv ");
    EXPECT_STREQ(record.get_name(), "k");
    EXPECT_STREQ(record.as_cstring(), "v ");
    EXPECT_EQ(text_read_back("k", "  ").type, Record::type_empty);
}

TEST(Inifile_model, equals_sign_in_a_key_ends_the_key) {
    const Record record = text_read_back("a=b", "c");
    EXPECT_STREQ(record.get_name(), "a");
    EXPECT_STREQ(record.as_cstring(), "b=c");
}

TEST(Inifile_model, line_end_inside_a_value_ends_the_line) {
    Scripted_stream stream;
    EXPECT_TRUE(Record::out_cstring(stream, "k", "one\ntwo=2"));
    const std::vector<Record> records = records_of(stream.written);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_STREQ(records[0].as_cstring(), "one");
    EXPECT_STREQ(records[1].get_name(), "two");
}

TEST(Inifile_model, number_without_decimals_loses_its_zeros_and_its_type) {
    const auto back = [](double value, int precision) {
        return read_back([=](Data_stream& out) { return Record::out_double(out, "k", value, precision); });
    };
    EXPECT_EQ(back(1200, 0).as_double(-1), 12);
    EXPECT_EQ(back(7, 0).type, Record::type_ulong);
    EXPECT_EQ(back(-7, 0).type, Record::type_long);
    EXPECT_EQ(back(1e40, 2).type, Record::type_ulong) << "31 digits have no point";
    EXPECT_EQ(back(INFINITY, 2).as_double(-1), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(back(std::nan(""), 2).as_double(-1)));
}

TEST(Inifile_model, line_of_more_than_256_characters_is_read_back_as_two) {
    Scripted_stream stream;
    EXPECT_TRUE(Record::out_cstring(stream, "k", std::string(300, 'x').c_str()));
    const std::vector<Record> records = records_of(stream.written);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].as_cstring(), std::string(254, 'x'));
    EXPECT_EQ(records[1].type, Record::type_none);
    EXPECT_EQ(records[1].text, std::string(46, 'x'));
}

TEST(Inifile_model, byte_array_with_a_nul_or_a_line_end_is_read_up_to_it) {
    const unsigned char with_nul[] = {'{', 'a', 0, 'b', '}', ')'};
    const Record record = read_back([&](Data_stream& out) { return Record::out_byte_array(out, "k", with_nul, 6); });
    EXPECT_EQ(record.type, Record::type_string);
    EXPECT_STREQ(record.as_cstring(), "\"@ByteArray({a");
    Scripted_stream stream;
    const unsigned char with_line_end[] = {'{', '\n', '}', ')'};
    EXPECT_TRUE(Record::out_byte_array(stream, "k", with_line_end, 4));
    EXPECT_EQ(records_of(stream.written).size(), 2U);
}

TEST(Inifile_model, byte_array_without_bytes_is_read_back_as_a_string) {
    const Record record = read_back([](Data_stream& out) { return Record::out_byte_array(out, "k", nullptr, 0); });
    EXPECT_EQ(record.type, Record::type_string);
    EXPECT_STREQ(record.as_cstring(), "\"@ByteArray(\"");
}

} // namespace
