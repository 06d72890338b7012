#include <glue/vesk/Vesk_parser.h>

#include <glue/vesk/Vesk_message.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Packets.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string nul(1, '\0');

struct Vesk_parser_test : testing::Test {
    Scripted_stream stream;
    Vesk_parser parser{&stream, false};
    const std::string pg = unterminated_frame("PG", "position") + "\n";
    const std::string rd = unterminated_frame("RD", "date") + "\n";

    std::vector<Packet> parse(const std::string& bytes, int size = Vesk_parser::largest_packet) {
        stream.receive(bytes);
        return packets_of(parser, size);
    }
};

// ---- Without a stream, and after init ----

TEST(Vesk_parser_alone, finds_nothing) {
    Vesk_parser parser;
    unsigned char buffer[10];
    int len = 42;
    EXPECT_EQ(parser.get_packet(buffer, 10, len), 0);
    EXPECT_EQ(len, 42);
    EXPECT_EQ(parser.get_packet(buffer, 10), 0);
    EXPECT_FALSE(parser.is_newline(0));
    parser.init();
}

TEST(Vesk_parser_alone, discards_buffered_bytes_only_on_request) {
    Scripted_stream stream;
    stream.receive("old");
    Vesk_parser(&stream, false);
    EXPECT_EQ(stream.buffered(), "old");
    Vesk_parser(&stream, true);
    EXPECT_EQ(stream.buffered(), "");
    Vesk_parser(nullptr, true);
}

TEST_F(Vesk_parser_test, init_drops_buffered_bytes_and_is_synchronised_again) {
    EXPECT_THAT(parse("!rubbish without end"), IsEmpty());
    parser.init();
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_THAT(parse(pg), ElementsAre(frame(pg)));
}

TEST_F(Vesk_parser_test, init_forgets_the_frame_whose_line_end_may_still_arrive) {
    EXPECT_THAT(parse(pg), ElementsAre(frame(pg)));
    parser.init();
    EXPECT_THAT(parse("\n" + rd), ElementsAre(noise("\n"), frame(rd)));
}

TEST_F(Vesk_parser_test, init_changes_the_stream) {
    Scripted_stream other;
    other.receive("old");
    parser.init(&other);
    EXPECT_EQ(other.buffered(), "");
    other.receive(pg);
    EXPECT_THAT(packets_of(parser), ElementsAre(frame(pg)));
}

// ---- Frames ----

TEST_F(Vesk_parser_test, frame_is_delivered_with_its_terminator) {
    EXPECT_THAT(parse(pg + rd), ElementsAre(frame(pg), frame(rd)));
    EXPECT_EQ(stream.buffered(), "");
}

TEST_F(Vesk_parser_test, frame_may_end_with_cr) {
    const std::string frame_bytes = unterminated_frame("PG", "position") + "\r";
    EXPECT_THAT(parse(frame_bytes + rd), ElementsAre(frame(frame_bytes), frame(rd)));
}

TEST_F(Vesk_parser_test, frame_waits_until_it_is_whole) {
    for (std::size_t i = 0; i + 1 < pg.size(); ++i)
        EXPECT_THAT(parse(pg.substr(i, 1)), IsEmpty()) << i;
    EXPECT_EQ(stream.bytes_avail(), pg.size() - 1);
    EXPECT_THAT(parse("\n"), ElementsAre(frame(pg)));
}

TEST_F(Vesk_parser_test, separators_between_frames_are_dropped) {
    const std::string separators = "\r\n" + nul + "\n" + nul + nul + "\r";
    EXPECT_THAT(parse(pg + separators + rd), ElementsAre(frame(pg), frame(rd)));
}

TEST_F(Vesk_parser_test, separators_are_dropped_also_when_they_arrive_late) {
    EXPECT_THAT(parse(pg), ElementsAre(frame(pg)));
    for (const char c : {'\r', '\n', '\0', '\n'})
        EXPECT_THAT(parse(std::string(1, c)), IsEmpty());
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_THAT(parse(rd), ElementsAre(frame(rd)));
}

TEST_F(Vesk_parser_test, an_empty_ring_does_not_read_as_nuls_after_a_frame) {
    EXPECT_THAT(parse(pg), ElementsAre(frame(pg))); // and does not loop for ever
    EXPECT_EQ(stream.bytes_avail(), 0U);
}

TEST_F(Vesk_parser_test, nuls_before_a_frame_are_skipped) {
    EXPECT_THAT(parse(nul + nul + nul + pg), ElementsAre(frame(pg)));
    EXPECT_EQ(parser.get_byte_counts().separators, 3U);
}

TEST_F(Vesk_parser_test, nuls_wait_until_five_bytes_are_there) {
    EXPECT_THAT(parse(std::string(4, '\0')), IsEmpty());
    EXPECT_EQ(stream.bytes_avail(), 4U);
    EXPECT_THAT(parse(nul), IsEmpty());
    EXPECT_EQ(stream.bytes_avail(), 4U);
}

TEST_F(Vesk_parser_test, frame_without_body_is_a_frame) {
    EXPECT_THAT(parse("PG000\n" + rd), ElementsAre(frame("PG000\n"), frame(rd)));
}

TEST_F(Vesk_parser_test, longest_frame_is_taken_whole) {
    const std::string longest = unterminated_frame("PG", std::string(4094, 'x')) + "\n";
    ASSERT_EQ(longest.size(), 4101U);
    EXPECT_THAT(parse(longest), ElementsAre(frame(longest)));
}

TEST_F(Vesk_parser_test, length_digits_are_read_in_either_case) {
    EXPECT_THAT(parse("PG00a0123456789\n"), ElementsAre(frame("PG00a0123456789\n")));
}

TEST_F(Vesk_parser_test, identifier_reaches_from_zero_to_tilde) {
    for (const std::string id : {"00", "~~", "||", "0~"})
        EXPECT_THAT(parse(id + "001x\n"), ElementsAre(frame(id + "001x\n"))) << id;
    for (const std::string id : {"/A", "A/",
                                 "\x7F"
                                 "A",
                                 "A\x7F", " A", "A\xFF"})
        EXPECT_THAT(parse(id + "001x\n"), ElementsAre(noise(id + "001x\n"))) << id;
}

TEST_F(Vesk_parser_test, nul_as_second_identifier_byte_is_noise) {
    EXPECT_THAT(parse("P" + nul + "001x\n"), ElementsAre(noise("P" + nul + "001x\n")));
}

TEST_F(Vesk_parser_test, checksum_is_not_checked_by_the_parser) {
    EXPECT_THAT(parse("PG004abcX\n"), ElementsAre(frame("PG004abcX\n")));
}

// ---- Packets that exceed the buffer ----

TEST_F(Vesk_parser_test, frame_is_cut_to_the_buffer_and_its_rest_stays) {
    stream.receive("PG00A0123456789\n");
    unsigned char buffer[10];
    int len = 0;
    EXPECT_EQ(parser.get_packet(buffer, 10, len), Vesk_parser::frame);
    EXPECT_EQ(std::string(buffer, buffer + len), "PG00A01234");
    EXPECT_EQ(stream.buffered(), "56789\n");
}

TEST_F(Vesk_parser_test, reply_is_cut_to_the_buffer_and_its_rest_stays) {
    stream.receive("RE00A0123456789\n");
    unsigned char buffer[10];
    int len = 0;
    EXPECT_EQ(parser.get_packet(buffer, 10, len), Vesk_parser::reply);
    EXPECT_EQ(std::string(buffer, buffer + len), "RE00A01234");
    EXPECT_EQ(stream.buffered(), "56789\n");
}

TEST_F(Vesk_parser_test, noise_is_cut_to_the_buffer_and_its_rest_stays) {
    EXPECT_THAT(parse("!abcdefghijk\n", 5),
                ElementsAre(noise("!abcd"), noise("fghij"))); // "e" is the first byte of a bad header
    EXPECT_EQ(stream.buffered(), "k\n");
    EXPECT_EQ(parser.get_byte_counts().noise, 11U);
}

TEST_F(Vesk_parser_test, buffer_of_no_bytes_loses_nothing) {
    for (const std::string& bytes : {pg, std::string("RE000\n"), std::string("!noise\n"), std::string("\x06")}) {
        unsigned char none = 0;
        int len = 42;
        stream.receive(bytes);
        EXPECT_NE(parser.get_packet(&none, 0, len), Vesk_parser::nothing);
        EXPECT_EQ(len, 0);
        EXPECT_NE(parser.get_packet(&none, -1, len), Vesk_parser::nothing);
        EXPECT_EQ(stream.buffered(), bytes);
        parser.init();
    }
}

// ---- Frames without terminators ----

TEST_F(Vesk_parser_test, unterminated_frame_gets_an_lf_if_it_fits) {
    parser.set_terminated(false);
    const std::string ten = unterminated_frame("PG", "abcd");
    ASSERT_EQ(ten.size(), 10U);
    EXPECT_THAT(parse(ten, 11), ElementsAre(frame(ten + "\n")));
    EXPECT_THAT(parse(ten, 10), ElementsAre(frame(ten)));
}

TEST_F(Vesk_parser_test, unterminated_replies_are_frames) {
    parser.set_terminated(false);
    EXPECT_THAT(parse("RE004text"), ElementsAre(frame("RE004text\n")));
}

// ---- Replies ----

TEST_F(Vesk_parser_test, reply_whose_length_counts_its_cr_is_delivered_whole_with_two_nuls) {
    EXPECT_THAT(parse("RE006hello\r\n"), ElementsAre(reply("RE006hello\r\n" + nul + nul)));
    EXPECT_THAT(parse("ER006hello\r\n"), ElementsAre(reply("ER006hello\r\n" + nul + nul)));
}

TEST_F(Vesk_parser_test, reply_whose_length_does_not_count_its_cr_is_delivered_whole) {
    EXPECT_THAT(parse("RE005hello\r\n" + pg), ElementsAre(reply("RE005hello\r\n" + nul + nul), frame(pg)));
}

TEST_F(Vesk_parser_test, reply_may_end_with_lf_alone) {
    EXPECT_THAT(parse("RE005hello\n"), ElementsAre(reply("RE005hello\n" + nul + nul)));
    EXPECT_THAT(parse("RE000\n"), ElementsAre(reply("RE000\n" + nul + nul)));
}

TEST_F(Vesk_parser_test, reply_waits_for_the_lf_after_its_cr) {
    EXPECT_THAT(parse("RE005hello\r"), IsEmpty());
    EXPECT_THAT(parse("\n"), ElementsAre(reply("RE005hello\r\n" + nul + nul)));
}

TEST_F(Vesk_parser_test, reply_may_have_one_more_byte_before_its_lf) {
    EXPECT_THAT(parse("RE005hello!"), IsEmpty());
    EXPECT_THAT(parse("\n"), ElementsAre(reply("RE005hello!\n" + nul + nul)));
}

TEST_F(Vesk_parser_test, reply_gets_as_many_nuls_as_fit) {
    const std::string text = "RE005hello\n";
    const int size = static_cast<int>(text.size());
    EXPECT_THAT(parse(text, size), ElementsAre(reply(text)));
    EXPECT_THAT(parse(text, size + 1), ElementsAre(reply(text + nul)));
    EXPECT_THAT(parse(text, size + 2), ElementsAre(reply(text + nul + nul)));
    EXPECT_THAT(parse(text, size + 3), ElementsAre(reply(text + nul + nul)));
}

TEST_F(Vesk_parser_test, reply_without_its_lf_loses_a_byte_at_a_time_and_the_line) {
    EXPECT_THAT(parse("RE002hello\r\n" + pg), ElementsAre(noise("002hello\r\n"), frame(pg)));
    EXPECT_EQ(parser.get_byte_counts().noise, 12U);
}

TEST_F(Vesk_parser_test, longest_reply_fits_the_largest_packet) {
    const std::string longest = "REFFF" + std::string(4095, 'x') + "\r\n";
    EXPECT_THAT(parse(longest), ElementsAre(reply(longest + nul + nul)));
}

// ---- Acknowledgements ----

TEST_F(Vesk_parser_test, lone_acknowledgement_and_refusal_are_delivered) {
    EXPECT_EQ(Vesk_parser::accepted_byte, 0x06);
    EXPECT_EQ(Vesk_parser::refused_byte, 0x15);
    EXPECT_THAT(parse("\x06"), ElementsAre(acknowledgement(0x06)));
    EXPECT_THAT(parse("\x15"), ElementsAre(acknowledgement(0x15)));
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_THAT(parse("\x07"), IsEmpty());
}

TEST_F(Vesk_parser_test, acknowledgement_with_bytes_after_it_starts_noise) {
    EXPECT_THAT(parse("\x06" + pg), ElementsAre(noise("\x06" + pg)));
    EXPECT_THAT(parse("\x06\x06"), IsEmpty());
    EXPECT_EQ(stream.bytes_avail(), 2U);
}

TEST_F(Vesk_parser_test, acknowledgement_is_recognised_after_the_rest_of_a_line_end) {
    EXPECT_THAT(parse(pg), ElementsAre(frame(pg)));
    EXPECT_THAT(parse("\n\x06"), ElementsAre(acknowledgement(0x06)));
}

TEST_F(Vesk_parser_test, acknowledgement_is_not_searched_in_noise) {
    EXPECT_THAT(parse("!!!!!"), IsEmpty());
    stream.drop(5);
    EXPECT_THAT(parse("\x06"), IsEmpty());
    EXPECT_THAT(parse("\n\x06"), ElementsAre(noise("\x06\n"), acknowledgement(0x06)));
}

// ---- Noise ----

TEST_F(Vesk_parser_test, noise_reaches_to_the_end_of_its_run_of_line_ends) {
    EXPECT_THAT(parse("!abc\r\n\n\r" + pg), ElementsAre(noise("!abc\r\n\n\r"), frame(pg)));
}

TEST_F(Vesk_parser_test, noise_without_a_line_end_stays_until_one_arrives) {
    EXPECT_THAT(parse("!abcdefg"), IsEmpty());
    EXPECT_EQ(stream.buffered(), "!abcdefg");
    EXPECT_THAT(parse("\n"), ElementsAre(noise("!abcdefg\n")));
}

TEST_F(Vesk_parser_test, noise_without_a_line_end_is_cut_after_4190_bytes) {
    EXPECT_THAT(parse(std::string(4189, '!')), IsEmpty());
    EXPECT_THAT(parse("!"), ElementsAre(noise(std::string(4190, '!'))));
    EXPECT_EQ(stream.buffered(), "");
}

TEST_F(Vesk_parser_test, noise_that_is_cut_includes_the_line_ends_after_it_up_to_the_size_of_the_ring) {
    const std::string rubbish = std::string(4190, '!') + std::string(10, '\n');
    EXPECT_THAT(parse(rubbish), ElementsAre(noise(rubbish)));
}

TEST_F(Vesk_parser_test, noise_includes_only_received_bytes) {
    EXPECT_THAT(parse("!abc\r"), ElementsAre(noise("!abc\r")));
    EXPECT_EQ(parser.get_byte_counts().total(), 5U);
    EXPECT_THAT(parse("\n" + pg), ElementsAre(noise("\n"), frame(pg)));
}

TEST_F(Vesk_parser_test, bad_length_loses_one_byte_before_the_noise) {
    for (const std::string digits : {"0G0", "G00", "00G", " 01", "+01", "-01", "0 1"}) {
        EXPECT_THAT(parse("PG" + digits + "x\n" + rd), ElementsAre(noise("G" + digits + "x\n"), frame(rd))) << digits;
    }
    EXPECT_EQ(parser.get_byte_counts().noise, 7 * 7U);
}

TEST_F(Vesk_parser_test, bad_length_loses_nothing_when_errors_are_kept) {
    parser.set_keep_on_error(true);
    EXPECT_THAT(parse("PG0G0x\n" + rd), ElementsAre(noise("PG0G0x\n"), frame(rd)));
}

TEST_F(Vesk_parser_test, frame_without_its_terminator_loses_a_byte_at_a_time_and_the_line) {
    EXPECT_THAT(parse("PG002x yz\n" + rd), ElementsAre(noise("002x yz\n"), frame(rd)));
    EXPECT_EQ(parser.get_byte_counts().noise, 10U);
}

// ---- Checkers ----

struct Recording_checker : Vesk_parser::Checker {
    bool check(Data_stream& stream, unsigned short identifier, int length) override {
        calls.push_back({&stream, identifier, length});
        return accepts;
    }
    struct Call {
        Data_stream* stream;
        unsigned short identifier;
        int length;
    };
    std::vector<Call> calls;
    bool accepts = true;
};

TEST_F(Vesk_parser_test, checker_gets_identifier_and_length_before_the_frame_is_whole) {
    Recording_checker checker;
    parser.set_checker(&checker);
    EXPECT_THAT(parse("PG00A"), IsEmpty());
    ASSERT_EQ(checker.calls.size(), 1U);
    EXPECT_EQ(checker.calls[0].stream, &stream);
    EXPECT_EQ(checker.calls[0].identifier, 'P' | 'G' << 8);
    EXPECT_EQ(checker.calls[0].length, 15);
    EXPECT_THAT(parse("0123456789\n"), ElementsAre(frame("PG00A0123456789\n")));
}

TEST_F(Vesk_parser_test, refused_frame_is_reported_and_becomes_noise) {
    const Captured_debug debug;
    Recording_checker checker;
    checker.accepts = false;
    parser.set_checker(&checker);
    stream.set_description("the link");
    EXPECT_THAT(parse("PG003abc\n"), ElementsAre(noise("G003abc\n")));
    EXPECT_EQ(debug.text(), "Unexpected msg PG(8) in the link[9]\n");
}

TEST_F(Vesk_parser_test, refused_frame_keeps_its_first_byte_when_errors_are_kept) {
    const Captured_debug debug;
    Recording_checker checker;
    checker.accepts = false;
    parser.set_checker(&checker);
    parser.set_keep_on_error(true);
    EXPECT_THAT(parse("PG003abc\n"), ElementsAre(noise("PG003abc\n")));
}

TEST_F(Vesk_parser_test, without_a_checker_every_frame_is_taken) {
    Recording_checker checker;
    checker.accepts = false;
    parser.set_checker(&checker);
    parser.set_checker(nullptr);
    EXPECT_THAT(parse(pg), ElementsAre(frame(pg)));
    EXPECT_TRUE(Vesk_parser::Dummy_checker().check(stream, 0, 0));
}

// ---- Echoed lines ----

TEST_F(Vesk_parser_test, echoed_lines_need_a_prompt_in_their_first_two_bytes) {
    parser.set_parse_mode(Vesk_parser::parse_echoed_lines);
    EXPECT_THAT(parse(">>003abc\n"), ElementsAre(frame(">>003abc\n")));
    EXPECT_THAT(parse("P>003abc\n"), ElementsAre(frame("P>003abc\n")));
    EXPECT_THAT(parse(">P003abc\n"), ElementsAre(frame(">P003abc\n")));
    EXPECT_THAT(parse("PG003abc\n"), ElementsAre(noise("PG003abc\n")));
}

TEST_F(Vesk_parser_test, echoed_lines_are_refused_at_the_second_byte) {
    parser.set_parse_mode(Vesk_parser::parse_echoed_lines);
    EXPECT_THAT(parse("a"), IsEmpty());
    EXPECT_THAT(parse("\n"), ElementsAre(noise("a\n")));
}

TEST_F(Vesk_parser_test, echoed_line_waits_for_its_second_byte_before_it_is_refused) {
    parser.set_parse_mode(Vesk_parser::parse_echoed_lines);
    EXPECT_THAT(parse("P"), IsEmpty());
    EXPECT_THAT(parse(">003abc\n"), ElementsAre(frame("P>003abc\n")));
}

// ---- Line ends ----

TEST_F(Vesk_parser_test, newline_is_cr_or_lf_at_a_received_index) {
    stream.receive("a\r\n");
    EXPECT_FALSE(parser.is_newline(0));
    EXPECT_TRUE(parser.is_newline(1));
    EXPECT_TRUE(parser.is_newline(2));
    EXPECT_FALSE(parser.is_newline(3));
    EXPECT_FALSE(parser.is_newline(-1));
    stream.will_arrive("\n");
    EXPECT_TRUE(parser.is_newline(3));
}

// ---- The short forms ----

TEST_F(Vesk_parser_test, short_form_returns_the_length_of_frames_and_minus_that_of_noise) {
    const Captured_debug debug;
    unsigned char buffer[100];
    EXPECT_EQ(parser.get_packet(buffer, 100), 0);
    stream.receive(pg + "!noise\n" + "RE000\n");
    EXPECT_EQ(parser.get_packet(buffer, 100), static_cast<int>(pg.size()));
    EXPECT_EQ(parser.get_packet(buffer, 100), -7);
    EXPECT_EQ(parser.get_packet(buffer, 100), 0); // the reply
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_EQ(debug.text(), "");
    stream.receive("\x15");
    EXPECT_EQ(parser.get_packet(buffer, 100), 0);
    EXPECT_EQ(debug.text(), "DTP Response unhandled\n");
}

TEST_F(Vesk_parser_test, message_form_uses_the_bytes_that_the_message_has_in_use) {
    unsigned char buffer[100] = {};
    Vesk_message message(buffer, 100, 10);
    stream.receive("PG00A0123456789\n");
    int len = 0;
    EXPECT_EQ(parser.get_packet(message, len), Vesk_parser::frame);
    EXPECT_EQ(len, 10);
    EXPECT_EQ(message.get_size(), 10U);
    EXPECT_EQ(std::string(buffer, buffer + 10), "PG00A01234");
}

// ---- Byte counts ----

TEST_F(Vesk_parser_test, every_byte_is_accounted_for) {
    parse(nul + pg + "\r\n" + "RE000\r\n" + "!noise\n" + "PG0X0\n" + rd);
    parse("\x06");
    const Vesk_parser::Byte_counts counts = parser.get_byte_counts();
    EXPECT_EQ(counts.separators, 3U);
    EXPECT_EQ(counts.frames, pg.size() + rd.size());
    EXPECT_EQ(counts.replies, 7U);
    EXPECT_EQ(counts.noise, 7U + 6U);
    EXPECT_EQ(counts.acknowledgements, 1U);
}

} // namespace
