// The example for messages that consist of blocks.

#include <support/builders/Frame_builder.h>
#include <support/processes/Program.h>

#include <gtest/gtest.h>
#include <string>

namespace {

std::string blocks(int count) {
    return std::string(1, static_cast<char>(count));
}

/// One solution of a PA message, 53 bytes.
std::string solution(double first, int type) {
    std::string bytes = le(first) + le(first + 1) + le(first + 2);
    for (int i = 0; i < 5; ++i)
        bytes += le(0.5F);
    return bytes + static_cast<char>(type) + le(0.25F) + le(0.125F);
}

/// A block of a chain: kind, length, content.
std::string chained(int kind, const std::string& content) {
    return std::string{static_cast<char>(kind), static_cast<char>(content.size())} + content;
}

std::string numbers(std::uint32_t number) {
    std::string bytes = le(number);
    for (std::uint16_t value = 1; value <= 4; ++value)
        bytes += le(value);
    return bytes;
}

std::string texts(std::uint16_t code, const std::string& a, const std::string& b) {
    return le(code) + le(std::uint32_t{7}) + static_cast<char>(a.size()) + a + static_cast<char>(b.size()) + b;
}

TEST(Show_blocks, shows_every_block_of_the_messages_on_its_command_line) {
    const std::string traffic = build_frame("P1", blocks(1) + solution(10, 4)) +
                                build_frame("P1", blocks(2) + solution(20, 4) + solution(30, 1)) +
                                build_frame("XX", blocks(1) + solution(40, 4)) + "ER021%%4,wrong parameter\n" +
                                build_frame("Q1", blocks(2) + chained(3, numbers(300)) + chained(1, numbers(100))) +
                                build_frame("Q2", blocks(1) + chained(2, texts(9, "left", "right")));
    const auto result = Program(SHOW_BLOCKS, {"P1=PA", "Q1=S1", "Q2=S2"}).input(traffic).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "PA\n"
                             "  main: 10 11 12, type 4\n"
                             "PA\n"
                             "  main: 20 21 22, type 4\n"
                             "  fallback: 30 31 32, type 1\n"
                             "S1\n"
                             "  hp: 100, 1 2 3 4\n"
                             "  vbs: 300, 1 2 3 4\n"
                             "S2\n"
                             "  ts: code 9, 7, \"left\", \"right\"\n");
}

TEST(Show_blocks, skips_messages_that_claim_too_much_or_are_damaged) {
    std::string damaged = build_frame("P1", blocks(1) + solution(10, 4));
    damaged[20] ^= 1;
    const std::string traffic = damaged + build_frame("P1", blocks(3) + solution(10, 4)) +
                                build_frame("Q1", blocks(4)) + build_frame("Q2", blocks(0));
    const auto result = Program(SHOW_BLOCKS, {"P1=PA", "Q1=S1", "Q2=S2"}).input(traffic).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "PA\n  claims 3 blocks\nS1\n  claims 4 blocks\nS2\n");
}

TEST(Show_blocks, refuses_other_arguments) {
    for (const char* const argument : {"P1", "P1=", "P1=XX", "P=PA", "P1=PAX"}) {
        const auto result = Program(SHOW_BLOCKS, {argument}).run();
        EXPECT_EQ(result.status, 1) << argument;
        EXPECT_EQ(result.errors, "usage: show_blocks IDENTIFIER=PA|S1|S2 ...\n");
    }
}

} // namespace
