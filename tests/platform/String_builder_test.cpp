#include <platform/String_builder.h>

#include <cstdio>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

namespace {

const unsigned char* bytes(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

TEST(String_builder_test, starts_empty_and_terminated) {
    const String_builder<5> text;
    EXPECT_STREQ(text.text(), "");
    EXPECT_EQ(text.length(), 0U);
    EXPECT_EQ(text.free_space(), 5U);
}

TEST(String_builder_test, holds_as_many_characters_as_its_capacity) {
    String_builder<5> text;
    EXPECT_TRUE(text.append("abc"));
    EXPECT_TRUE(text.append("de"));
    EXPECT_STREQ(text.text(), "abcde");
    EXPECT_EQ(text.free_space(), 0U);
    EXPECT_TRUE(text.append(""));
    EXPECT_FALSE(text.append("f"));
    EXPECT_EQ(text.view(), "abcde");
}

TEST(String_builder_test, keeps_the_part_that_fits) {
    String_builder<5> text;
    EXPECT_FALSE(text.append("abcdefg"));
    EXPECT_STREQ(text.text(), "abcde");
    text.clear();
    EXPECT_STREQ(text.text(), "");
    EXPECT_FALSE(text.append_format("%d", 1234567));
    EXPECT_STREQ(text.text(), "12345");
    EXPECT_EQ(text.length(), 5U);
}

TEST(String_builder_test, appends_a_formatted_text) {
    String_builder<20> text;
    text.append("a=");
    EXPECT_TRUE(text.append_format("%d;%s", 5, "b"));
    EXPECT_STREQ(text.text(), "a=5;b");
}

TEST(String_builder_test, format_that_just_fits_is_whole) {
    String_builder<5> text;
    EXPECT_TRUE(text.append_format("%s", "abcde"));
    EXPECT_STREQ(text.text(), "abcde");
}

TEST(String_builder_test, text_that_cannot_be_formatted_changes_nothing) {
    String_builder<20> text;
    text.append("abc");
    const wchar_t no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_FALSE(text.append_format("xyz%ls", no_character));
    EXPECT_STREQ(text.text(), "abc");
}

TEST(String_builder_test, time_stamp_is_the_time_of_day) {
    String_builder<20> text;
    EXPECT_TRUE(text.append_ts());
    EXPECT_EQ(text.length(), 13U);
    for (unsigned i = 0; i < 13; ++i) {
        const char expected = "00:00:00.000 "[i];
        const char c = text.text()[i];
        EXPECT_TRUE(expected == '0' ? c >= '0' && c <= '9' : c == expected) << text.text();
    }
}

TEST(String_builder_test, time_stamp_counts_the_milliseconds) {
    constexpr long day_ms = 86400 * 1000;
    const auto now_ms = [] {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return static_cast<long>(now.tv_sec % 86400 * 1000 + now.tv_nsec / 1000000);
    };
    String_builder<20> text;
    const long before = now_ms();
    text.append_ts();
    const long lasted = (now_ms() - before + day_ms) % day_ms;
    long hours = 0;
    long minutes = 0;
    long seconds = 0;
    long ms = 0;
    ASSERT_EQ(std::sscanf(text.text(), "%ld:%ld:%ld.%ld", &hours, &minutes, &seconds, &ms), 4);
    const long stamped = ((hours * 60 + minutes) * 60 + seconds) * 1000 + ms;
    EXPECT_LE((stamped - before + day_ms) % day_ms, lasted);
}

TEST(String_builder_test, bytes_become_readable) {
    String_builder<100> text;
    EXPECT_EQ(text.append_ascii_esc(bytes("a \\~\r\n\t\x7F\x01\xFF"), 10), 10U);
    EXPECT_STREQ(text.text(), "a \\\\~\\r\\n\\t\\x7F\\x01\\xFF");
}

TEST(String_builder_test, byte_whose_readable_form_does_not_fit_is_not_appended) {
    String_builder<6> text;
    EXPECT_EQ(text.append_ascii_esc(bytes("abc\x01z"), 5), 3U);
    EXPECT_STREQ(text.text(), "abc");
    text.clear();
    EXPECT_EQ(text.append_ascii_esc(bytes("\x01z"), 2), 2U);
    EXPECT_STREQ(text.text(), "\\x01z");
    EXPECT_EQ(text.append_ascii_esc(bytes("yz"), 2), 1U); // the last position is used, too
    EXPECT_STREQ(text.text(), "\\x01zy");
}

} // namespace
