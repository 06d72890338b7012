#include <glue/data_stream/Stream_specification.h>

#include <gtest/gtest.h>

#include <string>

namespace {

/// The parts as "label|aim|own text"; "none" when the text is no specification.
std::string parts_of(const std::string& text) {
    const auto parts = split_stream_specification(text.c_str());
    return parts ? parts->label + "|" + (parts->wants_aim ? "aim" : "") + "|" + parts->own_text : "none";
}

TEST(Stream_specification, plain_text_is_the_own_text) {
    EXPECT_EQ(parts_of("tcp:4001"), "||tcp:4001");
    EXPECT_EQ(parts_of("/dev/ttyS1:115200"), "||/dev/ttyS1:115200");
}

TEST(Stream_specification, label_and_aim_are_split_off) {
    EXPECT_EQ(parts_of("front/line,aim,tcp:4001"), "front/line|aim|tcp:4001");
    EXPECT_EQ(parts_of("front/line,tcp:4001"), "front/line||tcp:4001");
    EXPECT_EQ(parts_of("aim,tcp:4001"), "|aim|tcp:4001");
    EXPECT_EQ(parts_of("/,tcp:4001"), "/||tcp:4001");
}

TEST(Stream_specification, label_ends_at_the_first_comma_after_the_last_slash_that_has_one) {
    EXPECT_EQ(parts_of("a,b/c/d,e,f"), "a,b/c/d||e,f");
    EXPECT_EQ(parts_of("a/b,/dev/ttyS1"), "a/b||/dev/ttyS1");
    EXPECT_EQ(parts_of("a,b/c"), "||a,b/c");
}

TEST(Stream_specification, label_lies_in_the_first_line) {
    EXPECT_EQ(parts_of("a/b\n,c"), "||a/b\n,c");
    EXPECT_EQ(parts_of("a/b\r,c"), "||a/b\r,c");
    EXPECT_EQ(parts_of("a/b,c\nd/e,f"), "a/b||c\nd/e,f");
}

TEST(Stream_specification, aim_is_split_off_once_and_in_lower_case) {
    EXPECT_EQ(parts_of("aim,aim,tcp:0"), "|aim|aim,tcp:0");
    EXPECT_EQ(parts_of("AIM,tcp:0"), "||AIM,tcp:0");
    EXPECT_EQ(parts_of("aim"), "||aim");
}

TEST(Stream_specification, text_without_an_own_text_is_none) {
    EXPECT_EQ(parts_of(""), "none");
    EXPECT_EQ(parts_of("aim,"), "none");
    EXPECT_EQ(parts_of("a/b,"), "none");
    EXPECT_EQ(parts_of("a/b,aim,"), "none");
}

TEST(Stream_specification, longest_text_is_split_and_a_longer_one_is_none) {
    const std::string label(longest_stream_specification - 3, 'x');
    EXPECT_EQ(parts_of(label + "/,c"), label + "/||c");
    EXPECT_EQ(parts_of(label + "/,cc"), "none");
    EXPECT_EQ(parts_of(std::string(16 << 20, '/')), "none");
}

} // namespace
