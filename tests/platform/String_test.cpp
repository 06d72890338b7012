#include <platform/String.h>

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace {

using namespace std::string_view_literals;

TEST(String, new_one_is_empty_and_terminated) {
    const String<5> text;
    EXPECT_EQ(text.length(), 0U);
    EXPECT_EQ(text.capacity(), 5U);
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_EQ(text.view(), "");
}

TEST(String, holds_as_many_characters_as_its_capacity) {
    EXPECT_EQ(String<5>("abcd").view(), "abcd");
    EXPECT_STREQ(String<5>("abcde").c_str(), "abcde");
    EXPECT_EQ(String<5>("abcdef").view(), "abcde");
    EXPECT_STREQ(String<5>("abcdef").c_str(), "abcde");
    EXPECT_EQ(String<0>("abc").view(), "");
}

TEST(String, assignment_returns_whether_all_of_it_fitted) {
    String<5> text;
    EXPECT_TRUE(text.assign("abcde"));
    EXPECT_FALSE(text.assign("vwxyz!"));
    EXPECT_STREQ(text.c_str(), "vwxyz");
    EXPECT_TRUE(text.assign("a"));
    EXPECT_STREQ(text.c_str(), "a");
    EXPECT_EQ(text.length(), 1U);
    EXPECT_TRUE(text.assign({}));
    EXPECT_STREQ(text.c_str(), "");
}

TEST(String, assigned_part_of_itself_moves_to_the_front) {
    String<64> text("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
    const std::string expected(text.view().substr(3));
    EXPECT_TRUE(text.assign(text.view().substr(3)));
    EXPECT_EQ(text.view(), expected);
    const String<64>& same = text;
    text = same;
    EXPECT_EQ(text.view(), expected);
}

TEST(String, keeps_a_nul_in_the_middle) {
    const String<5> text("a\0b"sv);
    EXPECT_EQ(text.length(), 3U);
    EXPECT_EQ(text.view(), "a\0b"sv);
    EXPECT_STREQ(text.c_str(), "a");
}

TEST(String, copy_has_its_own_storage) {
    String<5> original("abc");
    const String<5> copy(original);
    String<5> assigned;
    assigned = original;
    original.assign("xyz");
    EXPECT_EQ(copy.view(), "abc");
    EXPECT_EQ(assigned.view(), "abc");
    EXPECT_NE(copy.c_str(), original.c_str());
}

TEST(String, can_be_used_through_its_base) {
    String<3> small;
    String_base& text = small;
    EXPECT_FALSE(text.assign("abcd"));
    EXPECT_EQ(text.view(), "abc");
    EXPECT_EQ(text.capacity(), 3U);
}

} // namespace
