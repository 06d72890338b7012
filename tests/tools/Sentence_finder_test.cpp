#include <monitor/Sentence_finder.h>

#include <glue/vesk/NMEA_messages.h>

#include <support/builders/Random.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

const std::string position = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47";

struct Sentence_finder_test : testing::Test {
    void take(const std::string& noise) { finder.take(noise); }

    std::vector<std::string> found;
    Sentence_finder finder{[this](std::string& sentence) { found.push_back(sentence); }};
};

} // namespace

TEST_F(Sentence_finder_test, finds_lines_whatever_their_ends) {
    take(position + "\r\n" + position + "\n" + position + "\r");
    EXPECT_THAT(found, ElementsAre(position, position, position));
}

TEST_F(Sentence_finder_test, waits_for_the_end_of_the_line) {
    take(position);
    EXPECT_THAT(found, ElementsAre());
    take("\r");
    EXPECT_THAT(found, ElementsAre(position));
    take("\n");
    EXPECT_EQ(found.size(), 1U);
}

TEST_F(Sentence_finder_test, finds_sentences_in_pieces_of_any_size) {
    const std::string line = position + "\r\n";
    for (std::size_t cut = 1; cut < line.size(); ++cut) {
        found.clear();
        take(line.substr(0, cut));
        take(line.substr(cut));
        EXPECT_THAT(found, ElementsAre(position)) << cut;
    }
    found.clear();
    for (const char byte : line)
        take({byte});
    EXPECT_THAT(found, ElementsAre(position));
}

TEST_F(Sentence_finder_test, sentence_begins_at_the_last_dollar_of_a_line) {
    take("\x93rubbish" + position + "\r\n$GPGG" + position + "\r\n");
    EXPECT_THAT(found, ElementsAre(position, position));
}

TEST_F(Sentence_finder_test, other_lines_are_none) {
    for (const char* line :
         {"", "noise", "$", "$,", "$GP,1", "$gpgga,1", "$GPGGA", "$GP GA,1", "$GPGGAGGAG,1", "GPGGA,1"})
        take(std::string(line) + "\n");
    EXPECT_THAT(found, ElementsAre());
    take("$ABC,\n$PQRS8901,\n");
    EXPECT_THAT(found, ElementsAre("$ABC,", "$PQRS8901,"));
}

TEST_F(Sentence_finder_test, interrupted_line_is_none) {
    take(position.substr(0, 30));
    finder.interrupt();
    take(position.substr(30) + "\r\n");
    EXPECT_THAT(found, ElementsAre());
    take(position + "\r\n");
    EXPECT_THAT(found, ElementsAre(position));
}

TEST_F(Sentence_finder_test, line_that_is_too_long_is_none_and_affects_no_other) {
    const std::string head = "$GPGGA,";
    const std::string longest = head + std::string(Sentence_finder::longest_sentence - head.size(), '1');
    take(longest + "\n" + longest + "1\n" + head + std::string(100000, '1') + "\n" + position + "\n");
    EXPECT_THAT(found, ElementsAre(longest, position));
}

TEST_F(Sentence_finder_test, end_of_input_ends_the_last_sentence) {
    take(position + "\r\n" + position);
    finder.finish();
    EXPECT_THAT(found, ElementsAre(position, position));
    finder.finish();
    take("$GPG");
    finder.finish();
    EXPECT_EQ(found.size(), 2U) << "nothing is found twice, and half a name is no sentence";
}

TEST_F(Sentence_finder_test, survives_random_noise) {
    Random random;
    for (int i = 0; i < 2000; ++i)
        take(random.bytes(random.between(0, 100)));
    finder.interrupt();
    found.clear();
    take("\n" + position + "\n");
    EXPECT_THAT(found, ElementsAre(position));
}

TEST(Sentences, have_a_kind) {
    EXPECT_EQ(kind_of_sentence(position), "GPGGA");
    EXPECT_EQ(kind_of_sentence("$GPGGA"), "");
    EXPECT_EQ(kind_of_sentence(""), "");
}

TEST(Sentences, checksum_is_good_bad_or_missing) {
    EXPECT_TRUE(has_good_checksum(position));
    EXPECT_TRUE(has_good_checksum("$GPAAA,JKLMNO*7b"));
    EXPECT_TRUE(has_good_checksum("$GPAAA,JKLMNO*7B"));
    EXPECT_FALSE(has_good_checksum("$GPAAA,JKLMNO*7c"));
    EXPECT_TRUE(has_good_checksum("$GPAAA,JKLMNOr*09"));
    EXPECT_FALSE(has_good_checksum("$GPAAA,JKLMNOr*9 ")) << "one digit is no checksum";
    EXPECT_FALSE(has_good_checksum("$GPAAA,JKLMNOr*9"));
    for (const char* sentence :
         {"$GPAAA,JKLMNO", "$GPAAA,JKLMNO*", "$GPAAA,JKLMNO*7", "$GPAAA,JKLMNO*7x", "$GPAAA,JKLMNO* b"})
        EXPECT_FALSE(has_good_checksum(sentence)) << sentence;
}

TEST(Sentences, checksum_is_the_librarys) {
    Random random;
    for (int i = 0; i < 1000; ++i) {
        std::string text = "$GP" + std::to_string(random.between(0, 1000000)) + ",";
        const unsigned length = static_cast<unsigned>(text.size());
        text.resize(100);
        text.resize(NMEA_messages::NMEA0183_message::complete(text.data(), length, 100) - 2);
        EXPECT_TRUE(has_good_checksum(text)) << text;
        text[random.between(1, length - 1)] ^= 1;
        EXPECT_FALSE(has_good_checksum(text)) << text;
    }
}
