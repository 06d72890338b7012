#include <platform/Ascii_message.h>

#include <support/files/Decimal_comma.h>

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string_view text_of(const Ascii_message& message) {
    return {message.get_text(), message.get_length()};
}

/// A text of exactly its size on the heap, so that a sanitizer reports every access past it.
struct Fields {
    explicit Fields(std::string_view text) : text_(text.begin(), text.end()) {}
    double number(unsigned field) { return message().get_double(field); }
    char letter(unsigned field) { return message().get_char(field); }

  private:
    Ascii_message message() { return {text_.data(), static_cast<unsigned>(text_.size())}; }
    std::vector<char> text_;
};

/// A field with this text, as a number.
double number_in(const std::string& field) {
    return Fields("$GPGGA," + field + ",7").number(1);
}

TEST(Ascii_message, refers_to_the_text_of_its_caller) {
    char text[] = "PASHR";
    const Ascii_message message(text, 3);
    EXPECT_EQ(message.get_text(), text);
    EXPECT_EQ(text_of(message), "PAS");
}

TEST(Ascii_message, of_a_message_is_the_whole_frame_or_the_body_after_its_header) {
    unsigned char frame[] = "ER005body!unused";
    const Binary_message message(frame, 16, 10);
    EXPECT_EQ(text_of(Ascii_message(message, false)), "ER005body!");
    EXPECT_EQ(text_of(Ascii_message(message, true)), "body!");
    EXPECT_EQ(static_cast<void*>(Ascii_message(message, true).get_text()), frame + 5);
}

TEST(Ascii_message, of_a_message_no_longer_than_its_header_has_no_body) {
    unsigned char frame[] = "ER005";
    for (unsigned size = 0; size <= 5; ++size) {
        const Ascii_message body(Binary_message(frame, 5, size), true);
        EXPECT_EQ(body.get_length(), 0U);
        EXPECT_EQ(static_cast<void*>(body.get_text()), frame + size);
    }
}

// ---- Fields ----

TEST(Ascii_message, fields_are_between_commas_and_counted_from_0) {
    Fields fields("$GPGGA,1.5,N,,-2,last");
    EXPECT_EQ(fields.letter(0), '$');
    EXPECT_EQ(fields.number(1), 1.5);
    EXPECT_EQ(fields.letter(2), 'N');
    EXPECT_EQ(fields.number(4), -2);
    EXPECT_EQ(fields.letter(5), 'l');
}

TEST(Ascii_message, empty_and_missing_fields_are_0) {
    Fields fields(",,5,");
    for (const unsigned field : {0U, 1U, 3U, 4U, 5U, 1000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(fields.number(field), 0) << field;
        EXPECT_EQ(fields.letter(field), '\0') << field;
    }
    EXPECT_EQ(Fields("").number(0), 0);
    EXPECT_EQ(Fields("").letter(0), '\0');
}

TEST(Ascii_message, star_ends_the_fields) {
    Fields fields("a,12*34,56");
    EXPECT_EQ(fields.number(1), 12);
    EXPECT_EQ(fields.number(2), 0);
    EXPECT_EQ(Fields("a,*1").letter(1), '\0');
}

TEST(Ascii_message, numbers_are_decimal_and_end_at_the_first_other_character) {
    EXPECT_EQ(number_in("4807.038"), 4807.038);
    EXPECT_EQ(number_in("007"), 7);
    EXPECT_EQ(number_in(".5"), 0.5);
    EXPECT_EQ(number_in("5."), 5);
    EXPECT_EQ(number_in("+3.25"), 3.25);
    EXPECT_EQ(number_in("-3.25"), -3.25);
    EXPECT_EQ(number_in("1e2"), 100);
    EXPECT_EQ(number_in("12M"), 12);
    EXPECT_EQ(number_in("0x10"), 0);
}

TEST(Ascii_message, other_text_is_0) {
    for (const char* text : {"M", "-", "+", "+-5", "++5", "--5", " 5", ".", "1e999", "-1e999", "inf", "-inf", "+inf",
                             "infinity", "nan", "NAN", "-nan", "nan(1)"})
        EXPECT_EQ(number_in(text), 0) << text;
}

TEST(Ascii_message, numbers_have_a_point_whatever_the_locale) {
    const Decimal_comma locale;
    ASSERT_TRUE(locale.is_set()) << locale.problem();
    EXPECT_EQ(number_in("1.5"), 1.5);
}

} // namespace
