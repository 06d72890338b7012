#include <glue/inifile/Inifile_record.h>

#include <support/builders/Random.h>
#include <support/fakes/Scripted_stream.h>
#include <support/files/Decimal_comma.h>

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

using Type = Inifile_record::type_t;

Inifile_record parsed(const std::string& line) {
    Inifile_record record;
    std::strncpy(record.text, line.c_str(), sizeof record.text);
    record.parse();
    return record;
}

/// The type that a value is read as.
Type type_of(const std::string& value) {
    return parsed("key=" + value).type;
}

/// The text that a writer writes.
template <typename... Arguments>
std::string written(bool (*write)(Data_stream&, const char*, Arguments...), const char* key, Arguments... arguments) {
    Scripted_stream stream;
    EXPECT_TRUE(write(stream, key, arguments...));
    return stream.written;
}

std::string written_double(double value, int precision) {
    return written(&Inifile_record::out_double, "k", value, precision).substr(2);
}

} // namespace

// ---- The kind of a line ----

TEST(Inifile_record, new_record_is_empty) {
    const Inifile_record record;
    EXPECT_EQ(record.type, Inifile_record::type_none);
    EXPECT_EQ(record.line_length, 0U);
    EXPECT_EQ(record.value_text, record.text);
    EXPECT_STREQ(record.get_name(), "");
}

TEST(Inifile_record, types_have_their_numbers) {
    const Type types[] = {Inifile_record::type_long,  Inifile_record::type_ulong,   Inifile_record::type_double,
                          Inifile_record::type_bool,  Inifile_record::type_string,  Inifile_record::type_byte_array,
                          Inifile_record::type_empty, Inifile_record::type_section, Inifile_record::type_comment,
                          Inifile_record::type_blank, Inifile_record::type_none};
    for (std::uint32_t i = 0; i < 11; ++i)
        EXPECT_EQ(types[i], i);
}

TEST(Inifile_record, section_is_between_brackets) {
    const Inifile_record record = parsed("[General]");
    EXPECT_EQ(record.type, Inifile_record::type_section);
    EXPECT_STREQ(record.get_name(), "General");
    EXPECT_STREQ(record.as_cstring(), "General");
    EXPECT_EQ(record.line_length, 9U);
    EXPECT_STREQ(parsed("[]").get_name(), "");
    EXPECT_STREQ(parsed("[a=b]").get_name(), "a=b");
}

TEST(Inifile_record, section_without_its_closing_bracket_is_none) {
    EXPECT_EQ(parsed("[General").type, Inifile_record::type_none);
    EXPECT_EQ(parsed("[").type, Inifile_record::type_none);
    EXPECT_EQ(parsed(" [General]").type, Inifile_record::type_none);
    EXPECT_EQ(parsed("[General] ").type, Inifile_record::type_none);
}

TEST(Inifile_record, blanks_and_comments) {
    EXPECT_EQ(parsed("").type, Inifile_record::type_blank);
    EXPECT_EQ(parsed(" \t\v\f").type, Inifile_record::type_blank);
    EXPECT_EQ(parsed("# speed=5").type, Inifile_record::type_comment);
    EXPECT_EQ(parsed("  # word").type, Inifile_record::type_comment);
    EXPECT_EQ(parsed("a #b=c").type, Inifile_record::type_string) << "a # inside belongs to the key";
}

TEST(Inifile_record, line_without_equals_sign_keeps_the_type_of_before) {
    Inifile_record record = parsed("flag=true");
    std::strcpy(record.text, "no key at all");
    record.parse();
    EXPECT_EQ(record.type, Inifile_record::type_bool);
    record.init();
    std::strcpy(record.text, "no key at all");
    record.parse();
    EXPECT_EQ(record.type, Inifile_record::type_none);
    EXPECT_EQ(record.line_length, 13U);
}

TEST(Inifile_record, key_keeps_white_space_before_it_and_loses_white_space_after_it) {
    EXPECT_STREQ(parsed("speed = 42").get_name(), "speed");
    EXPECT_STREQ(parsed("\t speed \t= 42").get_name(), "\t speed");
    EXPECT_STREQ(parsed("=42").get_name(), "");
    EXPECT_STREQ(parsed("  =42").get_name(), "");
    EXPECT_STREQ(parsed("a=b=c").get_name(), "a");
    EXPECT_STREQ(parsed("a=b=c").as_cstring(), "b=c");
    EXPECT_STREQ(parsed("a\xA0=1").get_name(), "a\xA0") << "bytes above 0x7F are no white space";
}

TEST(Inifile_record, value_loses_white_space_before_it_and_keeps_white_space_after_it) {
    EXPECT_STREQ(parsed("a= \t b ").as_cstring(), "b ");
    EXPECT_EQ(parsed("a= \t b ").length, 2U);
    EXPECT_EQ(parsed("v=42 ").type, Inifile_record::type_string);
    EXPECT_EQ(parsed("name=").type, Inifile_record::type_empty);
    EXPECT_EQ(parsed("name=  ").type, Inifile_record::type_empty);
}

TEST(Inifile_record, line_is_256_characters_at_most) {
    const Inifile_record record = parsed("k=" + std::string(300, 'x'));
    EXPECT_EQ(record.line_length, 256U);
    EXPECT_EQ(record.length, 254U);
    EXPECT_EQ(parsed("[" + std::string(254, 'x') + "]").type, Inifile_record::type_section);
}

TEST(Inifile_record, keys_are_found_in_a_list) {
    const char* const keys[] = {"speed", "gain", "", nullptr};
    const char* const none[] = {nullptr};
    EXPECT_EQ(parsed("speed=1").search_key(keys), 0);
    EXPECT_EQ(parsed("gain=1").search_key(keys), 1);
    EXPECT_EQ(parsed("=1").search_key(keys), 2);
    EXPECT_EQ(parsed("other=1").search_key(keys), -1);
    EXPECT_EQ(parsed("speed=1").search_key(none), -1);
    EXPECT_EQ(parsed("speed=1").search_key(nullptr), -1);
    EXPECT_EQ(parsed("[gain]").search_key(keys), 1) << "the name of a section";
    EXPECT_EQ(parsed("speed").search_key(keys), -1) << "nothing was parsed";
}

// ---- The type of a value ----

TEST(Inifile_record, whole_numbers) {
    EXPECT_EQ(type_of("42"), Inifile_record::type_ulong);
    EXPECT_EQ(parsed("k=42").as_ulong(), 42U);
    EXPECT_EQ(type_of("+42"), Inifile_record::type_ulong);
    EXPECT_EQ(type_of("-3"), Inifile_record::type_long);
    EXPECT_EQ(parsed("k=-3").as_long(), -3);
    EXPECT_EQ(type_of("007"), Inifile_record::type_ulong);
    EXPECT_EQ(type_of("-0"), Inifile_record::type_long);
    for (const char* text : {"-", "+", "0x10", "-0x10", "0X1p3", "4 2", "42a", "--1"})
        EXPECT_EQ(type_of(text), Inifile_record::type_string) << text;
}

TEST(Inifile_record, whole_numbers_saturate_at_32_bits) {
    EXPECT_EQ(parsed("k=4294967295").as_ulong(), 4294967295U);
    EXPECT_EQ(parsed("k=4294967296").as_ulong(), 4294967295U);
    EXPECT_EQ(parsed("k=99999999999999999999999").as_ulong(), 4294967295U);
    EXPECT_EQ(parsed("k=99999999999999999999999").type, Inifile_record::type_ulong);
    EXPECT_EQ(parsed("k=-2147483648").as_long(), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(parsed("k=-2147483649").as_long(), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(parsed("k=-99999999999999999999999").as_long(), std::numeric_limits<std::int32_t>::min());
}

TEST(Inifile_record, floating_point_numbers) {
    EXPECT_EQ(parsed("gain=1.5").as_double(-1), 1.5);
    EXPECT_EQ(parsed("gain=1e3").as_double(-1), 1000);
    for (const char* text : {"1.5", "1e3", ".5", "5.", "-2.5E-3", "inf", "-INF", "nan", "infinity", "1e999"})
        EXPECT_EQ(type_of(text), Inifile_record::type_double) << text;
    EXPECT_TRUE(std::isinf(parsed("k=1e999").as_double(-1)));
    for (const char* text : {"1,5", "1.5.", "1e", ".", "e5", "infi"})
        EXPECT_EQ(type_of(text), Inifile_record::type_string) << text;
}

TEST(Inifile_record, locale_does_not_matter) {
    const Decimal_comma locale;
    ASSERT_TRUE(locale.is_set()) << locale.problem();
    EXPECT_EQ(parsed("k=1.5").as_double(-1), 1.5);
    EXPECT_EQ(type_of("1,5"), Inifile_record::type_string);
    EXPECT_EQ(written_double(1.5, 3), "1.5\n");
}

TEST(Inifile_record, booleans_are_exact_words) {
    EXPECT_EQ(type_of("true"), Inifile_record::type_bool);
    EXPECT_TRUE(parsed("k=true").as_bool());
    EXPECT_EQ(type_of("false"), Inifile_record::type_bool);
    EXPECT_FALSE(parsed("k=false").as_bool());
    for (const char* text : {"True", "TRUE", "true ", "yes"})
        EXPECT_EQ(type_of(text), Inifile_record::type_string) << text;
}

TEST(Inifile_record, byte_array_is_between_its_marks) {
    const Inifile_record record = parsed("k=\"@ByteArray({abc})\"");
    EXPECT_EQ(record.type, Inifile_record::type_byte_array);
    EXPECT_EQ(record.length, 3U);
    EXPECT_EQ(std::string(record.value.as_data, record.length), "abc");
    unsigned count = 0;
    EXPECT_STREQ(record.as_byte_array(count), "\"@ByteArray({abc})\"") << "the whole text, on purpose";
    EXPECT_EQ(count, 19U);
    EXPECT_EQ(parsed("k=\"@ByteArray({})\"").length, 0U);
    for (const char* text : {"\"@ByteArray(abc)\"", "\"@ByteArray({abc)\"", "\"@ByteArray({abc})", "@ByteArray({abc})"})
        EXPECT_EQ(type_of(text), Inifile_record::type_string) << text;
}

TEST(Inifile_record, copy_points_into_itself) {
    Inifile_record copy;
    {
        const Inifile_record original = parsed("name = text");
        copy = original;
    }
    EXPECT_EQ(copy.value_text, copy.text + 7);
    EXPECT_EQ(copy.value.as_data, copy.value_text);
    EXPECT_STREQ(Inifile_record(copy).as_cstring(), "text");
}

// ---- Reading a value as a type ----

TEST(Inifile_record, as_type_follows_the_table) {
    using R = Inifile_record;
    struct Row {
        const char* line;
        bool as[11];
    };
    const Row rows[] = {
        // long, ulong, double, bool, string, array, empty, section, comment, blank, none
        {"k=-3", {true, false, true, true, true, false, false, false, false, false, false}},
        {"k=42", {true, true, true, true, true, false, false, false, false, false, false}},
        {"k=3000000000", {false, true, true, true, true, false, false, false, false, false, false}},
        {"k=2147483647", {true, true, true, true, true, false, false, false, false, false, false}},
        {"k=2147483648", {false, true, true, true, true, false, false, false, false, false, false}},
        {"k=-0", {true, true, true, true, true, false, false, false, false, false, false}},
        {"k=1.5", {false, false, true, false, true, false, false, false, false, false, false}},
        {"k=true", {true, true, true, true, true, false, false, false, false, false, false}},
        {"k=word", {false, false, false, false, true, false, false, false, false, false, false}},
        {"k=\"@ByteArray({})\"", {false, false, false, false, true, true, false, false, false, false, false}},
        {"k=", {false, false, false, false, true, false, true, false, false, false, false}},
        {"[s]", {false, false, false, false, true, false, false, true, false, false, false}},
        {"#", {false, false, false, false, true, false, false, false, true, false, false}},
        {"", {false, false, false, false, true, false, false, false, false, true, false}},
        {"word", {false, false, false, false, true, false, false, false, false, false, true}},
    };
    for (const Row& row : rows)
        for (std::uint32_t wanted = 0; wanted < 11; ++wanted) {
            EXPECT_EQ(parsed(row.line)._as_type(static_cast<R::type_t>(wanted)), row.as[wanted]) << row.line << wanted;
            EXPECT_EQ(parsed(row.line).as_type(static_cast<R::type_t>(wanted)), row.as[wanted]) << row.line << wanted;
        }
}

TEST(Inifile_record, conversions_clamp) {
    EXPECT_EQ(parsed("k=-2.9").as_long(), -2);
    EXPECT_EQ(parsed("k=2.9").as_ulong(), 2U);
    EXPECT_EQ(parsed("k=1e30").as_long(), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(parsed("k=-1e30").as_long(), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(parsed("k=1e30").as_ulong(), 4294967295U);
    EXPECT_EQ(parsed("k=-1.5").as_ulong(), 0U);
    EXPECT_EQ(parsed("k=nan").as_long(), 0);
    EXPECT_EQ(parsed("k=-1").as_ulong(), 4294967295U) << "as stored";
    EXPECT_EQ(parsed("k=4294967295").as_long(), -1) << "as stored";
    EXPECT_EQ(parsed("k=true").as_long(), 1);
    EXPECT_EQ(parsed("k=true").as_ulong(), 1U);
    EXPECT_EQ(parsed("k=true").as_double(0), 1.0);
    EXPECT_EQ(parsed("k=-7").as_double(0), -7.0);
    EXPECT_EQ(parsed("k=4000000000").as_double(0), 4e9);
    EXPECT_EQ(parsed("k=word").as_long(), 0);
    EXPECT_EQ(parsed("k=word").as_ulong(), 0U);
    EXPECT_EQ(parsed("k=word").as_double(-1), 0.0);
    EXPECT_FALSE(parsed("k=word").as_bool());
}

TEST(Inifile_record, decimals_are_rounded) {
    EXPECT_DOUBLE_EQ(parsed("k=1.23456").as_double(2), 1.23);
    EXPECT_DOUBLE_EQ(parsed("k=1.23456").as_double(0), 1);
    EXPECT_DOUBLE_EQ(parsed("k=-1.235").as_double(4), -1.235);
    EXPECT_EQ(parsed("k=1.23456").as_double(-1), 1.23456);
}

TEST(Inifile_record, halves_are_rounded_to_even) {
    EXPECT_EQ(parsed("k=0.5").as_double(0), 0);
    EXPECT_EQ(parsed("k=1.5").as_double(0), 2);
    EXPECT_EQ(parsed("k=2.5").as_double(0), 2);
    EXPECT_EQ(parsed("k=-2.5").as_double(0), -2);
    EXPECT_EQ(parsed("k=0.125").as_double(0), 0);
}

TEST(Inifile_record, small_numbers_are_false) {
    EXPECT_TRUE(parsed("k=0.5").as_bool());
    EXPECT_TRUE(parsed("k=-0.5").as_bool());
    EXPECT_TRUE(parsed("k=1e-8").as_bool());
    EXPECT_FALSE(parsed("k=1e-9").as_bool());
    EXPECT_FALSE(parsed("k=0").as_bool());
    EXPECT_FALSE(parsed("k=-0").as_bool());
    EXPECT_TRUE(parsed("k=-1").as_bool());
}

TEST(Inifile_record, as_string_is_the_text) {
    EXPECT_EQ(parsed("k=some text").as_string().view(), "some text");
    EXPECT_EQ(parsed("k=some text").as_string().capacity(), 257U);
}

// ---- Writing ----

TEST(Inifile_record, writers_write_lines) {
    Scripted_stream stream;
    EXPECT_TRUE(Inifile_record::start_section(stream, "General"));
    EXPECT_EQ(stream.written, "\n[General]\n");
    EXPECT_EQ(written(&Inifile_record::out_cstring, "k", "some text"), "k=some text\n");
    EXPECT_EQ(written(&Inifile_record::out_long, "k", std::numeric_limits<std::int32_t>::min()), "k=-2147483648\n");
    EXPECT_EQ(written(&Inifile_record::out_ulong, "k", 4294967295U), "k=4294967295\n");
    EXPECT_EQ(written(&Inifile_record::out_bool, "k", true), "k=true\n");
    EXPECT_EQ(written(&Inifile_record::out_bool, "k", false), "k=false\n");
    Scripted_stream text;
    EXPECT_TRUE(Inifile_record::out_string(text, "k", String<20>("text")));
    EXPECT_EQ(text.written, "k=text\n");
}

TEST(Inifile_record, out_double_removes_zeros) {
    EXPECT_EQ(written_double(2.5, 3), "2.5\n");
    EXPECT_EQ(written_double(3.0, 2), "3.0\n");
    EXPECT_EQ(written_double(0.1, -1), "0.1\n");
    EXPECT_EQ(written_double(1.0 / 3, -5), "0.33333333333333\n");
    EXPECT_EQ(written_double(10, 0), "1\n") << "on purpose";
    EXPECT_EQ(written_double(0, 0), "0\n");
    EXPECT_EQ(written_double(7, 0), "7\n");
    EXPECT_EQ(written_double(-0.0, 2), "-0.0\n");
    EXPECT_EQ(written_double(1e30, 2), "1000000000000000019884624838656\n") << "31 characters";
    EXPECT_EQ(written_double(-1e300, 2), "-10000000000000000525047602552\n") << "31, then without a zero";
    EXPECT_EQ(written_double(INFINITY, 2), "inf\n");
    EXPECT_EQ(written_double(1e-300, 1000), "0.0\n") << "31 characters, then without zeros";
}

TEST(Inifile_record, out_byte_array_writes_other_marks_than_parse_reads) {
    const unsigned char data[] = {'a', 0, '"', 0xFF};
    Scripted_stream stream;
    EXPECT_TRUE(Inifile_record::out_byte_array(stream, "k", data, 4));
    EXPECT_EQ(stream.written, std::string("k=\"@ByteArray(a\0\"\xFF\"\n", 20));
}

TEST(Inifile_record, written_byte_array_reads_back_as_a_string_unless_its_data_has_the_marks) {
    const auto read_back = [](const std::string& data) {
        Scripted_stream stream;
        Inifile_record::out_byte_array(stream, "k", reinterpret_cast<const unsigned char*>(data.data()),
                                       static_cast<unsigned>(data.size()));
        return parsed(stream.written.substr(0, stream.written.size() - 1));
    };
    EXPECT_EQ(read_back("abc").type, Inifile_record::type_string);
    const Inifile_record marked = read_back("{abc})");
    EXPECT_EQ(marked.type, Inifile_record::type_byte_array);
    EXPECT_EQ(std::string(marked.value.as_data, marked.length), "abc");
}

TEST(Inifile_record, line_of_255_characters_is_one_write_and_a_longer_one_is_not) {
    Scripted_stream stream;
    EXPECT_TRUE(Inifile_record::out_cstring(stream, "key", std::string(250, 'x').c_str()));
    EXPECT_EQ(stream.writes.size(), 1U);
    EXPECT_TRUE(Inifile_record::out_cstring(stream, "key", std::string(251, 'x').c_str()));
    EXPECT_EQ(stream.writes.size(), 5U);
    EXPECT_EQ(stream.written, "key=" + std::string(250, 'x') + "\nkey=" + std::string(251, 'x') + "\n");
    stream.writes.clear();
    EXPECT_TRUE(Inifile_record::start_section(stream, std::string(251, 'x').c_str()));
    EXPECT_EQ(stream.writes.size(), 1U);
    EXPECT_TRUE(Inifile_record::start_section(stream, std::string(252, 'x').c_str()));
    EXPECT_EQ(stream.writes.size(), 4U);
    stream.writes.clear();
    const std::string data(238, 'x');
    EXPECT_TRUE(Inifile_record::out_byte_array(stream, "ke", reinterpret_cast<const unsigned char*>(data.data()), 238));
    EXPECT_EQ(stream.writes.size(), 1U);
    EXPECT_TRUE(
        Inifile_record::out_byte_array(stream, "key", reinterpret_cast<const unsigned char*>(data.data()), 238));
    EXPECT_EQ(stream.writes.size(), 5U);
}

TEST(Inifile_record, write_that_the_stream_does_not_accept_whole_is_false) {
    Scripted_stream stream;
    stream.on_write = [](const unsigned char*, unsigned len) { return static_cast<int>(len) - 1; };
    EXPECT_FALSE(Inifile_record::out_cstring(stream, "k", "v"));
    EXPECT_FALSE(Inifile_record::start_section(stream, "s"));
    stream.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_FALSE(Inifile_record::out_bool(stream, "k", true));
    stream.written.clear();
    stream.on_write = [](const unsigned char*, unsigned len) { return len == 1 ? 0 : static_cast<int>(len); };
    EXPECT_FALSE(Inifile_record::out_cstring(stream, "key", std::string(300, 'x').c_str()));
    EXPECT_EQ(stream.written, "key") << "nothing is written after a piece that was refused";
}

TEST(Inifile_record, written_values_read_back) {
    Random random;
    for (int i = 0; i < 2000; ++i) {
        const auto number = static_cast<std::uint32_t>(random.engine()());
        Scripted_stream stream;
        Inifile_record::out_ulong(stream, "k", number);
        Inifile_record::out_long(stream, "k", static_cast<std::int32_t>(number));
        const auto end = stream.written.find('\n');
        EXPECT_EQ(parsed(stream.written.substr(0, end)).as_ulong(), number);
        EXPECT_EQ(parsed(stream.written.substr(end + 1, stream.written.size() - end - 2)).as_long(),
                  static_cast<std::int32_t>(number));
    }
}
