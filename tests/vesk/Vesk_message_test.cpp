#include <glue/vesk/Vesk_message.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/fakes/Scripted_stream.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

/// A message over a copy of some bytes. The memory has exactly their size, so that sanitizers detect an access past it.
struct Message {
    explicit Message(const std::string& content)
        : bytes(content.begin(), content.end()), view(bytes.data(), static_cast<unsigned>(bytes.size())) {}

    std::string content() const { return {bytes.begin(), bytes.begin() + view.get_size()}; }

    std::vector<unsigned char> bytes;
    Vesk_message view;
};

bool checks(const std::string& frame) {
    return Message(frame).view.check_checksum();
}

// ---- Length ----

TEST(Vesk_message_test, length_digits_are_read_in_either_case) {
    EXPECT_EQ(Message("PG0A1").view.get_msg_len(), 161U);
    EXPECT_EQ(Message("PG0a1").view.get_msg_len(), 161U);
    EXPECT_EQ(Message("PGFFF").view.get_msg_len(), 4095U);
    EXPECT_EQ(Message("PGabc").view.get_msg_len(), 0xABCU);
    EXPECT_EQ(Message("PG000").view.get_msg_len(), 0U);
}

TEST(Vesk_message_test, length_with_a_character_that_is_not_a_digit_is_zero) {
    for (const std::string digits :
         {"0G1", "G01", "01G", " 12", "+12", "-12", "1 2", "12 ", "0x1", "/00", ":00", "@00", "`00", "g00"})
        EXPECT_EQ(Message("PG" + digits).view.get_msg_len(), 0U) << digits;
}

TEST(Vesk_message_test, length_of_less_than_a_header_is_zero) {
    EXPECT_EQ(Message("PG12").view.get_msg_len(), 0U);
    EXPECT_EQ(Message("").view.get_msg_len(), 0U);
}

TEST(Vesk_message_test, length_is_written_as_three_upper_case_digits) {
    Message message("PG...rest");
    EXPECT_TRUE(message.view.set_msg_len(0xABC));
    EXPECT_EQ(message.content(), "PGABCrest");
    EXPECT_TRUE(message.view.set_msg_len(4095));
    EXPECT_EQ(message.content(), "PGFFFrest");
    EXPECT_TRUE(message.view.set_msg_len(7));
    EXPECT_EQ(message.content(), "PG007rest");
}

TEST(Vesk_message_test, length_of_4096_is_refused) {
    Message message("PG...");
    EXPECT_FALSE(message.view.set_msg_len(4096));
    EXPECT_FALSE(message.view.set_msg_len(0xFFFFFFFFU));
    EXPECT_EQ(message.content(), "PG...");
}

TEST(Vesk_message_test, length_needs_a_whole_header) {
    Message message("PG..");
    EXPECT_FALSE(message.view.set_msg_len(1));
    EXPECT_EQ(message.content(), "PG..");
}

TEST(Vesk_message_test, size_and_capacity_differ) {
    unsigned char buffer[20] = {};
    EXPECT_EQ(Vesk_message(buffer, 20).get_size(), 20U);
    EXPECT_EQ(Vesk_message(buffer, 20, 7).get_size(), 7U);
    EXPECT_EQ(Vesk_message(buffer, 20, 7).get_capacity(), 20U);
    EXPECT_EQ(Vesk_message(buffer, 20, 21).get_size(), 20U);
}

// ---- Setting up ----

TEST(Vesk_message_test, setup_writes_identifier_and_length_and_keeps_the_size) {
    Message message(std::string(20, '.'));
    EXPECT_TRUE(message.view.setup(bytes_of("GSxx"), 14));
    EXPECT_EQ(message.content(), "GS009" + std::string(15, '.'));
}

TEST(Vesk_message_test, setup_with_an_invalid_size_writes_the_identifier_and_fails) {
    for (const int size : {4, 0, -1, 4101}) {
        Message message(".......");
        EXPECT_FALSE(message.view.setup(bytes_of("GS"), size)) << size;
        EXPECT_EQ(message.content(), "GS.....") << size;
    }
    Message message(".......");
    EXPECT_TRUE(message.view.setup(bytes_of("GS"), 5));
    EXPECT_TRUE(message.view.setup(bytes_of("GS"), 4100));
    EXPECT_EQ(message.content(), "GSFFF..");
}

TEST(Vesk_message_test, setup_stays_inside_a_short_message) {
    for (unsigned size = 0; size < 5; ++size) {
        Message message(std::string(size, '.'));
        EXPECT_FALSE(message.view.setup(bytes_of("GS"), 14));
    }
}

TEST(Vesk_message_test, reducing_sets_size_and_length) {
    Message message("PG00Aabcdefghij\n");
    EXPECT_TRUE(message.view.reduce_size_to(3));
    EXPECT_EQ(message.content(), "PG003abc");
    EXPECT_FALSE(message.view.reduce_size_to(4));
    EXPECT_TRUE(message.view.reduce_size_to(3));
    EXPECT_EQ(message.content(), "PG003abc");
    EXPECT_TRUE(message.view.reduce_size_to(0));
    EXPECT_EQ(message.content(), "PG000");
}

TEST(Vesk_message_test, reducing_to_an_impossible_length_changes_nothing) {
    Message message(std::string(5000, 'x'));
    EXPECT_FALSE(message.view.reduce_size_to(4096));
    EXPECT_FALSE(message.view.reduce_size_to(0xFFFFFFFFU));
    EXPECT_EQ(message.view.get_size(), 5000U);
    EXPECT_TRUE(message.view.reduce_size_to(4095));
    EXPECT_EQ(message.view.get_size(), 4100U);
}

// ---- Checksum ----

TEST(Vesk_message_test, checksum_of_nothing_is_zero) {
    EXPECT_EQ(Message("abc").view.compute_8bit_checksum(0), 0U);
    EXPECT_EQ(Message("abc").view.compute_8bit_checksum(-1), 0U);
}

TEST(Vesk_message_test, checksum_of_one_byte_is_that_byte_rotated_by_two) {
    EXPECT_EQ(Message("\x01").view.compute_8bit_checksum(1), 0x04U);
    EXPECT_EQ(Message("\x80").view.compute_8bit_checksum(1), 0x02U);
    EXPECT_EQ(Message("\xC5").view.compute_8bit_checksum(1), 0x17U);
}

TEST(Vesk_message_test, checksum_agrees_with_its_definition_for_every_length) {
    Random random;
    const std::string bytes = random.bytes(300);
    const Message message(bytes);
    for (unsigned n = 0; n <= bytes.size(); ++n)
        ASSERT_EQ(message.view.compute_8bit_checksum(static_cast<int>(n)), frame_checksum(bytes.substr(0, n)));
}

TEST(Vesk_message_test, checksum_never_reads_past_the_message) {
    const Message message("PG001");
    EXPECT_EQ(message.view.compute_8bit_checksum(1000), frame_checksum("PG001"));
}

TEST(Vesk_message_test, binary_frame_has_a_right_checksum) {
    EXPECT_TRUE(checks(unterminated_frame("PG", "hello") + "\n"));
}

TEST(Vesk_message_test, any_changed_byte_of_a_binary_frame_is_detected) {
    const std::string frame = unterminated_frame("PG", std::string("\x00\x01\xFEhello", 8)) + "\r";
    for (std::size_t i = 0; i + 1 < frame.size(); ++i)
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = frame;
            damaged[i] = static_cast<char>(damaged[i] ^ 1 << bit);
            ASSERT_FALSE(checks(damaged)) << "byte " << i << " bit " << bit;
        }
}

TEST(Vesk_message_test, frame_needs_its_terminator) {
    const std::string frame = unterminated_frame("PG", "hello");
    EXPECT_TRUE(checks(frame + "\n"));
    EXPECT_TRUE(checks(frame + "\r"));
    EXPECT_TRUE(checks(frame + "\r\n"));
    EXPECT_FALSE(checks(frame + "x"));
    EXPECT_FALSE(checks(frame + std::string(1, '\0')));
    EXPECT_FALSE(checks(frame));
}

TEST(Vesk_message_test, frame_without_terminator_is_right_only_when_its_checksum_byte_is_CR_or_LF) {
    int seen = 0;
    for (int c = 0; c < 256; ++c) {
        const std::string frame = unterminated_frame("PG", std::string(1, static_cast<char>(c)));
        const bool by_chance = frame.back() == '\n' || frame.back() == '\r';
        EXPECT_EQ(checks(frame), by_chance) << c;
        seen += by_chance;
    }
    EXPECT_EQ(seen, 2);
}

TEST(Vesk_message_test, checksum_of_a_frame_longer_than_the_message_is_wrong) {
    const std::string frame = unterminated_frame("PG", "hello") + "\n";
    for (std::size_t size = 0; size < frame.size(); ++size)
        EXPECT_FALSE(checks(frame.substr(0, size)) && size + 1 < frame.size()) << size;
    EXPECT_FALSE(checks("PGFFFabc\n"));
}

TEST(Vesk_message_test, text_frame_is_recognised_by_its_prompt) {
    EXPECT_TRUE(checks(unterminated_frame(">>", "1status", Checksum::text) + "\n"));
    for (const std::string other : {"ZZ", ">Z", "Z>"})
        EXPECT_FALSE(checks(unterminated_frame(other, "1status", Checksum::text) + "\n")) << other;
}

TEST(Vesk_message_test, text_frame_is_recognised_by_an_at_sign_whatever_its_identifier) {
    EXPECT_TRUE(checks(unterminated_frame("ZZ", "status@", Checksum::text) + "\n"));
    EXPECT_TRUE(checks(unterminated_frame("ZZ", "status@", Checksum::text) + "\r"));
}

TEST(Vesk_message_test, text_checksum_is_read_in_either_case) {
    Random random;
    int letters = 0;
    for (int i = 0; i < 50; ++i) {
        std::string frame = unterminated_frame(">>", random.bytes(6), Checksum::text) + "\n";
        for (std::size_t digit : {frame.size() - 3, frame.size() - 2}) {
            letters += frame[digit] >= 'A';
            frame[digit] = static_cast<char>(std::tolower(frame[digit]));
        }
        EXPECT_TRUE(checks(frame));
    }
    EXPECT_GT(letters, 0);
}

TEST(Vesk_message_test, wrong_or_unreadable_text_checksum_is_detected) {
    const std::string frame = unterminated_frame(">>", "1status", Checksum::text) + "\n";
    for (const std::size_t place : {frame.size() - 3, frame.size() - 2})
        for (int c = 0; c < 256; ++c) {
            std::string damaged = frame;
            damaged[place] = static_cast<char>(c);
            const bool same_value = c == static_cast<unsigned char>(frame[place]) || std::toupper(c) == frame[place];
            // One value of the first digit makes the second one a right binary checksum, by chance.
            const bool binary_by_chance =
                frame_checksum(damaged.substr(0, 13)) == static_cast<unsigned char>(damaged[13]);
            ASSERT_EQ(checks(damaged), same_value || binary_by_chance) << place << " " << c;
        }
}

TEST(Vesk_message_test, checksum_of_a_text_frame_that_ends_with_cr_lf_is_wrong_on_purpose) {
    EXPECT_FALSE(checks(unterminated_frame(">>", "1status", Checksum::text) + "\r\n"));
}

TEST(Vesk_message_test, validation_compares_16_bits_of_the_identifier) {
    const Message message(unterminated_frame("PG", "hello") + "\n");
    EXPECT_TRUE(message.view.validate('P' | 'G' << 8));
    EXPECT_TRUE(message.view.validate('P' | 'G' << 8 | 0x70000));
    EXPECT_FALSE(message.view.validate('G' | 'P' << 8));
    EXPECT_EQ(message.view.get_msg_id(), Vesk_message::msg_id('P', 'G'));
    EXPECT_FALSE(Message("PG005hellX\n").view.validate('P' | 'G' << 8));
    EXPECT_FALSE(Message("").view.validate(0));
}

TEST(Vesk_message_test, setting_the_binary_checksum_makes_the_frame_valid) {
    Message message("PG006hello?\n");
    EXPECT_TRUE(message.view.set_checksum(true));
    EXPECT_EQ(message.content(), unterminated_frame("PG", "hello") + "\n");
    EXPECT_TRUE(message.view.check_checksum());
}

TEST(Vesk_message_test, setting_the_text_checksum_writes_upper_case_digits) {
    Random random;
    for (int i = 0; i < 100; ++i) {
        const std::string expected = unterminated_frame(">>", random.bytes(5), Checksum::text) + "\n";
        Message message(expected);
        message.view.set_uint8(10, '?');
        message.view.set_uint8(11, '?');
        EXPECT_TRUE(message.view.set_checksum(false));
        EXPECT_EQ(message.content(), expected);
    }
}

TEST(Vesk_message_test, setting_a_checksum_outside_the_message_writes_nothing) {
    Message message("PG006hello");
    EXPECT_FALSE(message.view.set_checksum(true));
    EXPECT_FALSE(message.view.set_checksum(false));
    EXPECT_EQ(message.content(), "PG006hello");
    EXPECT_FALSE(Message("PG0").view.set_checksum(true));
}

TEST(Vesk_message_test, checksum_of_an_empty_body_overwrites_the_length_digits) {
    Message binary("PG000\n");
    EXPECT_TRUE(binary.view.set_checksum(true));
    EXPECT_EQ(static_cast<unsigned char>(binary.bytes[4]), frame_checksum("PG00"));
    Message text("PG000\n");
    EXPECT_TRUE(text.view.set_checksum(false));
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", frame_checksum("PG0"));
    EXPECT_EQ(text.content(), std::string("PG0") + digits + "\n");
}

// ---- Replies ----

struct Response {
    explicit Response(const std::string& content)
        : bytes(content.begin(), content.end()), view(bytes.data(), static_cast<unsigned>(bytes.size())) {}

    std::vector<unsigned char> bytes;
    Vesk_response view;
};

TEST(Vesk_response_test, status_is_good_for_re_alone) {
    EXPECT_TRUE(Response("RE001\n").view.get_response_status());
    EXPECT_FALSE(Response("ER001\n").view.get_response_status());
    EXPECT_FALSE(Response("R").view.get_response_status());
    EXPECT_FALSE(Response("").view.get_response_status());
}

TEST(Vesk_response_test, text_starts_after_the_header) {
    const Response response(std::string("RE006hello\n\0\0", 13));
    EXPECT_STREQ(response.view.get_response_string(), "hello\n");
    EXPECT_TRUE(response.view.check_response_string("hell"));
    EXPECT_TRUE(response.view.check_response_string(""));
    EXPECT_FALSE(response.view.check_response_string("help"));
    EXPECT_FALSE(response.view.check_response_string("hello\nand more"));
}

TEST(Vesk_response_test, text_without_a_nul_ends_with_the_message) {
    const Response response("RE005hello");
    EXPECT_STREQ(response.view.get_response_string(), "hello");
    EXPECT_FALSE(response.view.check_response_string("hello and more"));
}

TEST(Vesk_response_test, text_reaches_at_most_three_bytes_past_the_body) {
    const Response response("RE002abcdefghij");
    EXPECT_STREQ(response.view.get_response_string(), "abcde");
}

TEST(Vesk_response_test, text_is_empty_without_a_length) {
    EXPECT_STREQ(Response("RE000hello\n").view.get_response_string(), "");
    EXPECT_STREQ(Response("RE0x1hello\n").view.get_response_string(), "");
    EXPECT_STREQ(Response("RE005").view.get_response_string(), "");
}

TEST(Vesk_response_test, request_identifier_is_between_two_percent_signs) {
    const Response response("RE010%ab12%rest\r\n");
    const char* begin = nullptr;
    const char* end = nullptr;
    EXPECT_TRUE(response.view.get_identifier(begin, end));
    EXPECT_EQ(std::string(begin, end), "%ab12%");
    EXPECT_EQ(begin, reinterpret_cast<const char*>(response.bytes.data()) + 5);
}

TEST(Vesk_response_test, request_identifier_may_be_empty) {
    const Response response("RE004%%ok\n");
    const char* begin = nullptr;
    const char* end = nullptr;
    EXPECT_TRUE(response.view.get_identifier(begin, end));
    EXPECT_EQ(std::string(begin, end), "%%");
}

TEST(Vesk_response_test, missing_percent_signs_leave_the_outputs_unchanged) {
    const char untouched[] = "untouched";
    const char* begin = untouched;
    const char* end = untouched;
    EXPECT_FALSE(Response("RE004rest\n").view.get_identifier(begin, end));
    EXPECT_EQ(begin, untouched);
    const Response one("RE004%rest\n");
    EXPECT_FALSE(one.view.get_identifier(begin, end));
    EXPECT_EQ(begin, reinterpret_cast<const char*>(one.bytes.data()) + 5);
    EXPECT_EQ(end, untouched);
}

TEST(Vesk_response_test, percent_signs_after_a_nul_are_ignored) {
    const char* begin = nullptr;
    const char* end = nullptr;
    EXPECT_FALSE(Response(std::string("RE004%a\0b%\n", 11)).view.get_identifier(begin, end));
}

std::string stripped(Response& response) {
    unsigned len = 0;
    const char* const text = response.view.strip_identifier(len);
    return text ? std::string(text, len) : "(null)";
}

TEST(Vesk_response_test, stripping_leaves_the_text_without_blanks_around_it) {
    Response response("RE010%id% \t value 1 \x01\r\n");
    EXPECT_EQ(stripped(response), "value 1");
}

TEST(Vesk_response_test, stripping_skips_white_space_before_the_text_and_also_control_characters_after_it) {
    Response blanks("RE010%id% \t\n\v\f\rvalue\x7F\x1F\v");
    EXPECT_EQ(stripped(blanks), "value");
    Response control("RE010%id%\x01value\xFF\n");
    EXPECT_EQ(stripped(control), "\x01value\xFF");
}

TEST(Vesk_response_test, stripping_moves_the_message_to_the_text) {
    Response response("RE010%id%  text\r\n");
    EXPECT_EQ(stripped(response), "text");
    EXPECT_EQ(response.view.get_ptr(), response.bytes.data() + 11);
    EXPECT_EQ(response.view.get_size(), 6U); // "text\r\n": `len` excludes the line end, the size does not
}

TEST(Vesk_response_test, stripping_ends_at_the_first_nul) {
    Response response(std::string("RE010%id%text\0more", 18));
    EXPECT_EQ(stripped(response), "text");
}

TEST(Vesk_response_test, stripping_nothing_changes_nothing) {
    for (const std::string content : {"RE010text\r\n", "RE010%text\r\n", "RE004%id%", "RE006%id% \r\n", ""}) {
        Response response(content);
        EXPECT_EQ(stripped(response), "(null)") << content;
        EXPECT_EQ(response.view.get_ptr(), response.bytes.data());
        EXPECT_EQ(response.view.get_size(), content.size());
    }
}

TEST(Vesk_response_test, no_content_makes_it_read_outside_the_message) {
    static const std::string special = "RE>>@%%0Ff \r\n";
    Random random;
    for (int round = 0; round < 20000; ++round) {
        std::string content = random.bytes(random.between(0, 24));
        for (char& c : content)
            if (!random.one_in(4))
                c = special[random.between(0, static_cast<unsigned>(special.size()) - 1)];
        Response response(content); // exactly its bytes: a sanitizer detects an access past them
        Vesk_response& view = response.view;
        const bool intact = view.check_checksum();
        EXPECT_TRUE(intact || !view.validate(Vesk_message::msg_id('R', 'E')));
        ASSERT_LE(std::strlen(view.get_response_string()), content.size());
        view.check_response_string("%%");
        view.compute_8bit_checksum(static_cast<int>(random.between(0, 5000)));
        const char* begin = nullptr;
        const char* end = nullptr;
        if (view.get_identifier(begin, end)) {
            ASSERT_LE(end, reinterpret_cast<const char*>(response.bytes.data()) + content.size());
        }
        unsigned len = 0;
        if (view.strip_identifier(len)) {
            ASSERT_LE(len, view.get_size());
        }
        view.set_checksum(random.one_in(2));
        view.set_msg_len(random.between(0, 5000));
        view.reduce_size_to(random.between(0, 30));
        view.setup(bytes_of("ER"), static_cast<int>(random.between(0, 5000)));
        EXPECT_TRUE(view.check_checksum() || !view.validate(Vesk_message::msg_id('E', 'R')));
        ASSERT_LE(view.get_size(), content.size());
    }
}

} // namespace
