#include <platform/stzncpy.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

/// The bytes of the destination after copying into the first `size` of them; unchanged ones are '#'.
std::string copied(const char* source, std::size_t size) {
    char destination[8];
    std::memset(destination, '#', sizeof destination);
    EXPECT_EQ(stzncpy(destination, source, size), destination);
    return std::string(destination, sizeof destination);
}

TEST(stzncpy, copies_a_short_text_with_its_nul_and_nothing_more) {
    EXPECT_EQ(copied("abc", 8), std::string("abc\0####", 8));
}

TEST(stzncpy, keeps_a_text_that_just_fits) {
    EXPECT_EQ(copied("abc", 4), std::string("abc\0####", 8));
}

TEST(stzncpy, cuts_a_longer_text_and_terminates_it) {
    EXPECT_EQ(copied("abcdef", 4), std::string("abc\0####", 8));
    EXPECT_EQ(copied("abcdef", 1), std::string("\0#######", 8));
}

TEST(stzncpy, changes_nothing_for_a_size_of_0) {
    EXPECT_EQ(copied("abc", 0), "########");
}

TEST(stzncpy, copies_an_empty_text) {
    EXPECT_EQ(copied("", 8), std::string("\0#######", 8));
}

TEST(stzncpy, reads_only_the_characters_that_it_copies) {
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(copied(unterminated, 4), std::string("abc\0####", 8));
}

TEST(stzncpy, moves_a_text_within_itself) {
    char text[] = "GNSS receiver";
    stzncpy(text, text + 5, sizeof text);
    EXPECT_STREQ(text, "receiver");
}

} // namespace
