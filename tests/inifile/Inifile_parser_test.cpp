#include <glue/data_stream/Posix_data_stream.h>
#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <support/builders/Random.h>
#include <support/checks/waiting.h>
#include <support/fakes/Scripted_stream.h>

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct Line {
    int kind;
    std::string text;

    bool operator==(const Line& other) const { return kind == other.kind && text == other.text; }
};

void PrintTo(const Line& line, std::ostream* out) {
    *out << line.kind << testing::PrintToString(line.text);
}

struct Inifile_parser_test : testing::Test {
    /// All lines that the parser returns. The buffer has exactly `size` bytes, so that sanitizers find an overrun.
    std::vector<Line> lines(bool take_partial = false, int size = 4200) {
        std::vector<Line> found;
        std::vector<unsigned char> buffer(static_cast<std::size_t>(size));
        int len = 0;
        while (const int kind = parser.get_packet(buffer.data(), size, len, take_partial)) {
            EXPECT_EQ(buffer.at(static_cast<std::size_t>(len)), '\0');
            found.push_back({kind, std::string(buffer.begin(), buffer.begin() + len)});
        }
        return found;
    }
    std::vector<Line> lines_of(const std::string& text, bool take_partial = false, int size = 4200) {
        stream.receive(text);
        return lines(take_partial, size);
    }

    Scripted_stream stream;
    Inifile_parser parser{&stream};
};

using Lines = std::vector<Line>;

} // namespace

TEST_F(Inifile_parser_test, each_line_end_ends_one_line) {
    for (const char* end : {"\r", "\n", "\r\n", "\n\r"})
        EXPECT_EQ(lines_of(std::string("one") + end + "two" + end), (Lines{{1, "one"}, {1, "two"}}))
            << testing::PrintToString(end);
}

TEST_F(Inifile_parser_test, two_line_ends_have_an_empty_line_between_them) {
    EXPECT_EQ(lines_of("a\n\nb\n"), (Lines{{1, "a"}, {1, ""}, {1, "b"}}));
    EXPECT_EQ(lines_of("a\r\rb\r"), (Lines{{1, "a"}, {1, ""}, {1, "b"}}));
    EXPECT_EQ(lines_of("a\r\n\r\nb\r\n"), (Lines{{1, "a"}, {1, ""}, {1, "b"}}));
    EXPECT_EQ(lines_of("\n"), (Lines{{1, ""}}));
}

TEST_F(Inifile_parser_test, line_without_an_end_waits) {
    EXPECT_EQ(lines_of("par"), Lines{});
    EXPECT_EQ(lines_of("tial"), Lines{});
    EXPECT_EQ(stream.buffered(), "partial");
    EXPECT_EQ(lines_of("\nnext"), (Lines{{1, "partial"}}));
}

TEST_F(Inifile_parser_test, line_without_an_end_is_returned_on_request) {
    EXPECT_EQ(lines_of("a=1\nlast", true), (Lines{{1, "a=1"}, {2, "last"}}));
    EXPECT_EQ(lines(true), Lines{}) << "an empty one is no line";
}

TEST_F(Inifile_parser_test, line_that_ends_with_the_data_is_2) {
    stream.will_arrive("a=1");
    EXPECT_EQ(lines(true), (Lines{{2, "a=1"}}));
}

TEST_F(Inifile_parser_test, line_end_that_arrives_in_two_halves_is_one) {
    for (const char* end : {"\r\n", "\n\r"}) {
        const char other = end[1];
        EXPECT_EQ(lines_of(std::string("a") + end[0]), (Lines{{1, "a"}})) << testing::PrintToString(end);
        EXPECT_EQ(lines_of(std::string(1, other)), Lines{}) << testing::PrintToString(end);
        EXPECT_EQ(lines_of(std::string("b") + end), (Lines{{1, "b"}})) << testing::PrintToString(end);
        EXPECT_EQ(lines_of(std::string("c") + end[0]), (Lines{{1, "c"}})) << testing::PrintToString(end);
        EXPECT_EQ(lines_of(other + std::string("d") + end), (Lines{{1, "d"}})) << testing::PrintToString(end);
    }
}

TEST_F(Inifile_parser_test, second_half_of_a_line_end_is_skipped_once) {
    EXPECT_EQ(lines_of("a\r"), (Lines{{1, "a"}}));
    EXPECT_EQ(lines_of("\n\nb\n"), (Lines{{1, ""}, {1, "b"}}));
    EXPECT_EQ(lines_of("\n"), (Lines{{1, ""}})) << "LF after LF is an empty line";
    EXPECT_EQ(lines_of("c\r"), (Lines{{1, "c"}}));
    EXPECT_EQ(lines_of("d\n"), (Lines{{1, "d"}}));
    EXPECT_EQ(lines_of("\n"), (Lines{{1, ""}})) << "the LF that CR waited for was not the next byte";
}

TEST_F(Inifile_parser_test, second_half_of_a_line_end_is_no_partial_line) {
    EXPECT_EQ(lines_of("a\r", true), (Lines{{1, "a"}}));
    EXPECT_EQ(lines_of("\n", true), Lines{});
    EXPECT_EQ(stream.buffered(), "");
}

TEST_F(Inifile_parser_test, init_resets_the_first_half_of_a_line_end) {
    EXPECT_EQ(lines_of("a\r"), (Lines{{1, "a"}}));
    parser.init();
    EXPECT_EQ(lines_of("\n"), (Lines{{1, ""}}));
}

TEST_F(Inifile_parser_test, complete_line_is_returned_without_a_fetch) {
    for (const char* end : {"\r", "\n", "\r\n", "\n\r"}) {
        stream.receive(std::string("a") + end);
        unsigned fetches = 0;
        stream.on_fetch = [&](int) { return ++fetches, 0; };
        unsigned char buffer[100];
        int len = 0;
        EXPECT_EQ(parser.get_packet(buffer, sizeof buffer, len, false), 1) << testing::PrintToString(end);
        EXPECT_EQ(fetches, 0U) << testing::PrintToString(end);
        stream.on_fetch = nullptr;
        lines_of("b\n");
    }
}

TEST_F(Inifile_parser_test, line_over_a_pipe_is_returned_while_the_writer_is_silent) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Posix_data_stream pipe_stream(ends[0], ends[1]);
    Inifile_parser pipe_parser(&pipe_stream);
    pipe_stream.set_read_timeout(20000);
    const Stopwatch watch;
    unsigned char buffer[100];
    int len = 0;
    for (const char* piece : {"a=1\n", "b=2\r", "\nc=3\r\n"}) {
        ASSERT_EQ(write(ends[1], piece, std::strlen(piece)), static_cast<ssize_t>(std::strlen(piece)));
        ASSERT_EQ(pipe_parser.get_packet(buffer, sizeof buffer, len, false), 1);
        EXPECT_EQ(len, 3);
    }
    EXPECT_LT(watch.elapsed(), std::chrono::seconds(20)) << "nothing has waited out the time limit";
}

TEST_F(Inifile_parser_test, fetches_a_line) {
    stream.will_arrive("a=1\r\nb=2\n");
    EXPECT_EQ(lines(), (Lines{{1, "a=1"}, {1, "b=2"}}));
}

TEST_F(Inifile_parser_test, fetch_that_reports_success_and_adds_nothing_ends_the_search) {
    stream.on_fetch = [](int) { return 1; };
    EXPECT_EQ(lines(), Lines{});
    EXPECT_FALSE(parser.is_newline(0));
}

TEST_F(Inifile_parser_test, line_longer_than_the_buffer_is_cut) {
    stream.receive("0123456789\n");
    EXPECT_EQ(lines(false, 7), (Lines{{2, "0123"}, {2, "4567"}, {1, "89"}}));
    stream.receive("01234567\n");
    EXPECT_EQ(lines(false, 7), (Lines{{2, "0123"}, {1, "4567"}})) << "a line end directly after the cut is found";
}

TEST_F(Inifile_parser_test, line_longer_than_4197_bytes_is_cut) {
    const std::string rest(3, 'y');
    EXPECT_EQ(lines_of(std::string(4197, 'x') + rest), (Lines{{2, std::string(4197, 'x')}}));
    EXPECT_EQ(lines_of("\n"), (Lines{{1, rest}}));
    EXPECT_EQ(lines_of(std::string(4197, 'x') + "\n"), (Lines{{1, std::string(4197, 'x')}}));
}

TEST_F(Inifile_parser_test, line_longer_than_4197_bytes_is_cut_whatever_the_buffer_holds) {
    stream.receive(std::string(4197, 'x') + "yyy");
    EXPECT_EQ(lines(false, 10000), (Lines{{2, std::string(4197, 'x')}}));
    EXPECT_EQ(stream.buffered(), "yyy");
}

TEST_F(Inifile_parser_test, any_bytes_with_every_line_end_give_the_lines_of_a_model) {
    Random random;
    for (int round = 0; round < 500; ++round) {
        const int size = static_cast<int>(random.between(4, 60));
        const auto longest = static_cast<std::size_t>(size - 3);
        std::string text;
        while (text.size() < 1000) {
            std::string line(random.between(0, 80), '\0'); // any bytes except line ends, also NULs
            for (char& c : line)
                c = "\0\xFF\x80=# []a"[random.between(0, 8)];
            const char* const ends[] = {"\r\n", "\n\r", "\n", "\r"};
            text += line + ends[random.between(0, 3)];
        }
        Lines expected;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find_first_of("\r\n", at), at + longest);
            const bool ends_here = text[end] == '\r' || text[end] == '\n';
            expected.push_back({ends_here ? 1 : 2, text.substr(at, end - at)});
            const char other = text[end] == '\r' ? '\n' : '\r';
            at = end + (ends_here ? 1 : 0) + (ends_here && end + 1 < text.size() && text[end + 1] == other ? 1 : 0);
        }
        parser.init(); // no line end of the round before is completed
        ASSERT_EQ(lines_of(text, false, size), expected);
    }
}

TEST_F(Inifile_parser_test, buffer_of_three_bytes_or_fewer_holds_nothing) {
    stream.receive("a\n");
    unsigned char buffer[3];
    int len = 77;
    for (const int size : {3, 2, 1, 0, -1})
        EXPECT_EQ(parser.get_packet(buffer, size, len, true), 0);
    EXPECT_EQ(stream.buffered(), "a\n");
    EXPECT_EQ(len, 77);
}

TEST_F(Inifile_parser_test, smaller_buffer_than_in_the_last_call_is_not_overrun) {
    stream.receive(std::string(100, 'x'));
    EXPECT_EQ(lines(false, 200), Lines{});
    EXPECT_EQ(lines(false, 13), Lines(9, Line{2, std::string(10, 'x')}))
        << "the line end of the last ten may still arrive";
}

TEST_F(Inifile_parser_test, bytes_that_another_consumer_took_do_not_matter) {
    EXPECT_EQ(lines_of("half a line"), Lines{});
    stream.drop_all();
    EXPECT_EQ(lines(true), Lines{}) << "nothing is buffered";
    EXPECT_EQ(lines_of("a\nb\n"), (Lines{{1, "a"}, {1, "b"}})) << "the new bytes have not been scanned";
    EXPECT_EQ(lines_of("half a line"), Lines{});
    stream.drop(5);
    EXPECT_EQ(lines(true), (Lines{{2, "a line"}}));
}

TEST_F(Inifile_parser_test, is_newline_looks_at_an_offset) {
    stream.receive("ab\r\n");
    EXPECT_FALSE(parser.is_newline(0));
    EXPECT_TRUE(parser.is_newline(2));
    EXPECT_TRUE(parser.is_newline(3));
    EXPECT_FALSE(parser.is_newline(4));
    EXPECT_FALSE(parser.is_newline(-1));
}

TEST_F(Inifile_parser_test, init_discards_the_buffered_bytes) {
    stream.receive("old");
    lines();
    parser.init();
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_EQ(lines_of("new\n"), (Lines{{1, "new"}}));
    Scripted_stream other;
    other.receive("old");
    parser.init(&other);
    EXPECT_EQ(other.buffered(), "");
}

TEST_F(Inifile_parser_test, init_resets_the_scan_position) {
    EXPECT_EQ(lines_of("half a line"), Lines{});
    parser.init();
    EXPECT_EQ(lines_of("a\nsecond line\n"), (Lines{{1, "a"}, {1, "second line"}}));
    EXPECT_EQ(lines_of("half a line"), Lines{});
    Scripted_stream other;
    parser.init(&other);
    other.receive("b\nsecond line\n");
    EXPECT_EQ(lines(), (Lines{{1, "b"}, {1, "second line"}}));
    EXPECT_EQ(stream.buffered(), "half a line") << "the previous stream is left unchanged";
}

TEST_F(Inifile_parser_test, records_are_parsed_and_not_emptied) {
    stream.receive("[s]\nspeed = 42\nnothing\n");
    Inifile_record record;
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_EQ(record.type, Inifile_record::type_section);
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_EQ(record.as_ulong(), 42U);
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_EQ(record.type, Inifile_record::type_ulong) << "on purpose";
    EXPECT_FALSE(parser.get_packet(record, true));
}

TEST_F(Inifile_parser_test, record_holds_256_bytes_of_a_line) {
    stream.receive("k=" + std::string(254, 'x') + "\nk=" + std::string(255, 'y') + "\n");
    Inifile_record record;
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_EQ(record.length, 254U);
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_EQ(record.length, 254U);
    record.init();
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_STREQ(record.text, "y") << "the rest is the next line";
    EXPECT_EQ(record.type, Inifile_record::type_none);
}

TEST_F(Inifile_parser_test, record_ends_at_a_nul) {
    stream.receive(std::string("k=1\0002\n", 7));
    Inifile_record record;
    ASSERT_TRUE(parser.get_packet(record, false));
    EXPECT_EQ(record.line_length, 3U);
    EXPECT_EQ(record.as_ulong(), 1U);
}

TEST_F(Inifile_parser_test, any_text_in_any_pieces_gives_the_lines_of_a_model) {
    Random random;
    for (int round = 0; round < 300; ++round) {
        parser.init(); // no line end of the round before is completed
        std::string text;
        Lines expected;
        while (text.size() < 600) {
            const std::string line(random.between(0, 30 - 1), static_cast<char>('a' + random.between(0, 26 - 1)));
            const char* const ends[] = {"\r\n", "\n", "\n\r", "\r"}; // one kind a text: others would pair up
            text += line + ends[round % 4];
            expected.push_back({1, line});
        }
        Lines found;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t count = random.between(1, 40); // may cut a pair in two
            for (const Line& line : lines_of(text.substr(at, count)))
                found.push_back(line);
            at += count;
        }
        ASSERT_EQ(found, expected);
    }
}
