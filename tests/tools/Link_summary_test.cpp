#include <monitor/Link_summary.h>

#include <glue/vesk/Vesk_message.h>

#include <support/files/Text_file.h>

#include <gtest/gtest.h>

namespace {

std::string printed(const Link_summary& summary, std::uint64_t arrived, const Vesk_parser::Byte_counts& bytes,
                    double seconds) {
    Text_file file;
    summary.print(file.get(), arrived, bytes, seconds);
    return file.text();
}

Vesk_parser::Byte_counts counts(std::uint64_t frames, std::uint64_t replies, std::uint64_t acknowledgements,
                                std::uint64_t noise, std::uint64_t separators) {
    Vesk_parser::Byte_counts bytes;
    bytes.frames = frames;
    bytes.replies = replies;
    bytes.acknowledgements = acknowledgements;
    bytes.noise = noise;
    bytes.separators = separators;
    return bytes;
}

constexpr int id(const char* text) {
    return Vesk_message::msg_id(text[0], text[1]);
}

} // namespace

TEST(Link_summary, of_nothing_is_an_account_of_nothing) {
    EXPECT_EQ(printed(Link_summary(), 0, {}, 0),
              "bytes: 0 = frames 0 + replies 0 + acknowledgements 0 + noise 0 + separators 0\n"
              "checksum failures: 0\n");
}

TEST(Link_summary, accounts_for_the_bytes_in_one_line) {
    EXPECT_EQ(printed(Link_summary(), 15, counts(1, 2, 3, 4, 5), 0),
              "bytes: 15 = frames 1 + replies 2 + acknowledgements 3 + noise 4 + separators 5\n"
              "checksum failures: 0\n");
}

TEST(Link_summary, counts_each_identifier_in_the_order_of_its_first_arrival) {
    Link_summary summary;
    for (const char* text : {"||", "~~", "PG", "~~", "~~", "||"})
        summary.count_frame(id(text));
    summary.count_reply(id("ER"));
    EXPECT_EQ(printed(summary, 0, {}, 2),
              "||          2        1.0/s\n"
              "~~          3        1.5/s\n"
              "PG          1        0.5/s\n"
              "ER          1        0.5/s\n"
              "bytes: 0 = frames 0 + replies 0 + acknowledgements 0 + noise 0 + separators 0\n"
              "checksum failures: 0\n");
}

TEST(Link_summary, has_no_rates_when_no_time_has_passed) {
    Link_summary summary;
    summary.count_frame(id("PG"));
    EXPECT_EQ(printed(summary, 0, {}, 0).substr(0, 14), "PG          1\n");
}

TEST(Link_summary, identifiers_that_differ_in_one_character_are_two) {
    Link_summary summary;
    summary.count_frame(id("E1"));
    summary.count_frame(id("E2"));
    summary.count_frame(id("1E"));
    EXPECT_EQ(printed(summary, 0, {}, 0).substr(0, 42), "E1          1\nE2          1\n1E          1\n");
}

TEST(Link_summary, replies_and_failures_are_no_good_frames) {
    Link_summary summary;
    summary.count_reply(id("RE"));
    summary.count_checksum_failure();
    summary.count_checksum_failure();
    EXPECT_EQ(summary.good_frames(), 0U);
    EXPECT_EQ(summary.checksum_failures(), 2U);
    summary.count_frame(id("PG"));
    EXPECT_EQ(summary.good_frames(), 1U);
    EXPECT_NE(printed(summary, 0, {}, 0).find("\nchecksum failures: 2\n"), std::string::npos);
}

TEST(Link_summary, days_of_traffic_fit) {
    const std::uint64_t much = 12345678901234567890U;
    EXPECT_NE(printed(Link_summary(), much, counts(much, much, much, much, much), 0)
                  .find("bytes: 12345678901234567890 = frames 12345678901234567890 + replies 12345678901234567890 + "
                        "acknowledgements 12345678901234567890 + noise 12345678901234567890 + separators "
                        "12345678901234567890\n"),
              std::string::npos);
}
