#include <platform/Ascii_message.h>

#include <gtest/gtest.h>
#include <string_view>

namespace {

std::string_view text_of(const Ascii_message& message) {
    return {message.get_text(), message.get_length()};
}

TEST(Ascii_message, refers_to_a_text_of_somebody_else) {
    char text[] = "PASHR";
    const Ascii_message message(text, 3);
    EXPECT_EQ(message.get_text(), text);
    EXPECT_EQ(text_of(message), "PAS");
}

TEST(Ascii_message, of_a_message_is_the_whole_frame_or_the_body_behind_its_header) {
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

} // namespace
