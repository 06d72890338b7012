// The parser over streams that fetch, that report a fetch without having fetched, and that are filled while it peeks.

#include <glue/vesk/Vesk_parser.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Packets.h>
#include <support/fakes/Scripted_stream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Vesk_parser_fetching : testing::Test {
    Scripted_stream stream;
    Vesk_parser parser{&stream, false};
    const std::string pg = build_frame("PG", "position");
    const std::string rd = build_frame("RD", "date");
};

TEST_F(Vesk_parser_fetching, frame_is_fetched_from_a_stream_that_fetches) {
    stream.will_arrive(pg + rd);
    EXPECT_THAT(packets_of(parser), ElementsAre(frame(pg), frame(rd)));
}

TEST_F(Vesk_parser_fetching, frame_is_delivered_before_bytes_after_it_are_fetched) {
    stream.will_arrive(pg);
    stream.on_fetch = [this](int n) {
        EXPECT_LE(stream.bytes_avail() + static_cast<unsigned>(n), pg.size());
        const std::string bytes = stream.arriving.substr(0, static_cast<std::size_t>(n));
        stream.arriving.erase(0, bytes.size());
        stream.receive(bytes);
        return static_cast<int>(bytes.size());
    };
    unsigned char buffer[100];
    int len = 0;
    EXPECT_EQ(parser.get_packet(buffer, sizeof buffer, len), Vesk_parser::frame);
}

TEST_F(Vesk_parser_fetching, separators_are_dropped_also_when_they_are_fetched) {
    stream.will_arrive(unterminated_frame("PG", "position") + "\r\n" + rd);
    EXPECT_THAT(packets_of(parser), ElementsAre(frame(unterminated_frame("PG", "position") + "\r"), frame(rd)));
}

TEST_F(Vesk_parser_fetching, separators_are_dropped_when_nothing_else_can_be_fetched) {
    stream.will_arrive(unterminated_frame("PG", "position") + "\r\n");
    EXPECT_EQ(packets_of(parser).size(), 1U);
    EXPECT_EQ(stream.buffered() + stream.arriving, "");
}

TEST_F(Vesk_parser_fetching, noise_is_fetched_to_its_line_end) {
    stream.will_arrive("!abc\r\n" + pg);
    EXPECT_THAT(packets_of(parser), ElementsAre(noise("!abc\r\n"), frame(pg)));
}

// A fetch may report success with fewer bytes than requested. The missing bytes then read as the first byte of the
// stream's storage, which is an old one.

struct Vesk_parser_over_wrong_fetches : Vesk_parser_fetching {
    Vesk_parser_over_wrong_fetches() {
        stream.on_fetch = [](int) { return 1; };
    }

    /// The packets in `bytes` when the storage begins with `stale`.
    std::vector<Packet> parse(char stale, const std::string& bytes) {
        stream.receive(std::string(1, stale));
        stream.drop(1);
        stream.receive(bytes);
        return packets_of(parser);
    }
};

TEST_F(Vesk_parser_over_wrong_fetches, partial_header_waits) {
    EXPECT_THAT(parse('P', ""), IsEmpty());
    EXPECT_THAT(parse('P', "PG00"), IsEmpty());
    EXPECT_EQ(stream.buffered(), "PG00");
}

TEST_F(Vesk_parser_over_wrong_fetches, partial_frame_waits) {
    for (const char stale : {'\n', 'x'}) {
        for (std::size_t size = 5; size < pg.size(); ++size) {
            EXPECT_THAT(parse(stale, pg.substr(0, size)), IsEmpty()) << size;
            EXPECT_EQ(stream.buffered(), pg.substr(0, size));
            stream.receive(pg.substr(size));
            EXPECT_THAT(packets_of(parser), ElementsAre(frame(pg))) << size;
            stream.move_head_to(0);
        }
    }
}

TEST_F(Vesk_parser_over_wrong_fetches, partial_unterminated_frame_waits) {
    parser.set_terminated(false);
    EXPECT_THAT(parse('x', "PG003ab"), IsEmpty());
    EXPECT_EQ(stream.buffered(), "PG003ab");
}

TEST_F(Vesk_parser_over_wrong_fetches, a_reply_waits_for_its_lf) {
    for (const char stale : {'\n', 'x'}) {
        EXPECT_THAT(parse(stale, "RE005hello\r"), IsEmpty());
        EXPECT_EQ(stream.buffered(), "RE005hello\r");
        stream.move_head_to(0);
    }
}

TEST_F(Vesk_parser_over_wrong_fetches, noise_waits_for_its_line_end) {
    for (const char stale : {'\n', 'x'}) {
        EXPECT_THAT(parse(stale, "!rubbish"), IsEmpty());
        EXPECT_EQ(stream.buffered(), "!rubbish");
        parser.init();
        stream.move_head_to(0);
    }
}

TEST_F(Vesk_parser_over_wrong_fetches, noise_ends_with_the_last_received_line_end) {
    EXPECT_THAT(parse('\n', "!rubbish\r"), ElementsAre(noise("!rubbish\r")));
    EXPECT_EQ(parser.get_byte_counts().total(), 9U);
}

TEST_F(Vesk_parser_over_wrong_fetches, no_newline_is_found_past_the_received_bytes) {
    EXPECT_THAT(parse('\n', "ab"), IsEmpty());
    EXPECT_FALSE(parser.is_newline(2));
    EXPECT_FALSE(parser.is_newline(5000));
}

// A stream that another thread fills may receive bytes between any two peeks.

/// Receives `late` when its bytes are counted for the `moment`th time.
struct Stream_filled_between_peeks : Scripted_stream {
    using Scripted_stream::bytes_avail;
    unsigned bytes_avail() override {
        if (moment > 0 && --moment == 0)
            receive(late);
        return Scripted_stream::bytes_avail();
    }
    std::string late;
    int moment = 0;
};

void expect_packets_whenever_bytes_arrive(const std::string& early, const std::string& late,
                                          Vesk_parser::Parse_mode mode, const std::vector<Packet>& packets) {
    for (int moment = 1; moment < 20; ++moment) {
        Stream_filled_between_peeks stream;
        Vesk_parser parser(&stream, false);
        parser.set_parse_mode(mode);
        stream.receive(early);
        stream.late = late;
        stream.moment = moment;
        std::vector<Packet> found = packets_of(parser);
        while (stream.moment > 0)
            stream.bytes_avail();
        for (const Packet& packet : packets_of(parser))
            found.push_back(packet);
        EXPECT_EQ(found, packets) << "received at peek " << moment;
    }
}

TEST(Vesk_parser_filled_between_peeks, line_end_after_a_frame_is_dropped) {
    const std::string first = build_frame(">>", "1abc", Checksum::text, "\r");
    const std::string second = build_frame(">>", "1def", Checksum::text, "\r");
    for (const auto mode : {Vesk_parser::parse_messages, Vesk_parser::parse_echoed_lines})
        expect_packets_whenever_bytes_arrive(first, "\n" + second + "\n", mode, {frame(first), frame(second)});
}

TEST(Vesk_parser_filled_between_peeks, line_ends_alone_are_dropped) {
    const std::string first = build_frame(">>", "1abc", Checksum::text, "\r");
    for (const auto mode : {Vesk_parser::parse_messages, Vesk_parser::parse_echoed_lines})
        expect_packets_whenever_bytes_arrive(first, "\n\r\n", mode, {frame(first)});
}

TEST(Vesk_parser_filled_between_peeks, acknowledgement_ends_the_line_end_of_the_frame_before_it) {
    const std::string first = build_frame("PG", "position");
    int recognised = 0;
    for (int moment = 1; moment < 20; ++moment) {
        Stream_filled_between_peeks stream;
        Vesk_parser parser(&stream, false);
        stream.receive(first);
        stream.late = "\x06";
        stream.moment = moment;
        if (packets_of(parser).size() < 2)
            continue; // received too early to be alone, or not yet
        ++recognised;
        stream.receive("\n" + first);
        EXPECT_THAT(packets_of(parser), ElementsAre(noise("\n"), frame(first))) << moment;
    }
    EXPECT_GT(recognised, 0);
}

TEST(Vesk_parser_filled_between_peeks, packets_are_delivered_whole) {
    const std::string pg = build_frame("PG", "position");
    for (std::size_t cut = 0; cut < pg.size(); ++cut)
        expect_packets_whenever_bytes_arrive(pg.substr(0, cut), pg.substr(cut) + pg, Vesk_parser::parse_messages,
                                             {frame(pg), frame(pg)});
    const std::string text = "RE005hello\r\n";
    for (std::size_t cut = 0; cut < text.size(); ++cut)
        expect_packets_whenever_bytes_arrive(text.substr(0, cut), text.substr(cut) + pg, Vesk_parser::parse_messages,
                                             {reply(text + std::string(2, '\0')), frame(pg)});
}

} // namespace
