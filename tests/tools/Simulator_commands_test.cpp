#include <simulator/Command_interpreter.h>

#include <gtest/gtest.h>
#include <string>

namespace {

using simulator::Command_interpreter;

struct Simulator_commands : testing::Test {
    std::string reply_to(const std::string& line) { return commands.reply_to(line); }

    Command_interpreter commands{Command_interpreter::Settings{10, true}};
};

} // namespace

TEST_F(Simulator_commands, version_is_answered) {
    EXPECT_EQ(reply_to("version"), "RE015{receiver_simulator}\r\n");
}

TEST_F(Simulator_commands, request_identifier_is_returned) {
    EXPECT_EQ(reply_to("%7%version"), "RE018%7%{receiver_simulator}\r\n");
    EXPECT_EQ(reply_to("%%rate"), "RE007%%{10}\r\n");
    EXPECT_EQ(reply_to("%a b% nonsense"), "ER017%a b%{1,wrong command}\r\n");
}

TEST_F(Simulator_commands, identifier_that_does_not_end_is_no_command) {
    EXPECT_EQ(reply_to("%7version"), "ER012{1,wrong command}\r\n");
}

TEST_F(Simulator_commands, unknown_command_is_refused) {
    for (const char* line : {"nonsense", "Version", "version,", "versions", ",", "%1", "rate 5"})
        EXPECT_EQ(reply_to(line), "ER012{1,wrong command}\r\n") << line;
    EXPECT_EQ(reply_to("%1%"), "ER015%1%{1,wrong command}\r\n");
}

TEST_F(Simulator_commands, rate_is_answered_and_changed) {
    EXPECT_EQ(reply_to("rate"), "RE005{10}\r\n");
    EXPECT_EQ(reply_to("rate,2.5"), "RE001\r\n");
    EXPECT_EQ(commands.settings().rate, 2.5);
    EXPECT_EQ(reply_to("rate"), "RE006{2.5}\r\n");
    EXPECT_EQ(reply_to("rate,0"), "RE001\r\n");
    EXPECT_EQ(commands.settings().rate, 0);
}

TEST_F(Simulator_commands, invalid_rate_changes_nothing) {
    EXPECT_EQ(reply_to("rate,"), "ER011{4,value missed}\r\n");
    for (const char* line : {"rate,-1", "rate,fast", "rate,5x", "rate,inf", "rate,nan"})
        EXPECT_EQ(reply_to(line), "ER017{5,value out of range}\r\n") << line;
    EXPECT_EQ(commands.settings().rate, 10);
}

TEST_F(Simulator_commands, messages_are_switched) {
    EXPECT_EQ(reply_to("messages,off"), "RE001\r\n");
    EXPECT_FALSE(commands.settings().messages);
    EXPECT_EQ(reply_to("messages"), "ER019{2,1st parameter missed}\r\n");
    EXPECT_EQ(reply_to("messages,perhaps"), "ER018{3,wrong 1st parameter}\r\n");
    EXPECT_FALSE(commands.settings().messages);
    EXPECT_EQ(reply_to("messages,on"), "RE001\r\n");
    EXPECT_TRUE(commands.settings().messages);
}

TEST_F(Simulator_commands, surrounding_blanks_do_not_matter_and_blank_lines_have_no_reply) {
    EXPECT_EQ(reply_to(" \t%7% rate \t"), "RE008%7%{10}\r\n");
    EXPECT_EQ(reply_to(""), "");
    EXPECT_EQ(reply_to("  \t"), "");
}

TEST_F(Simulator_commands, longest_line_is_a_command_and_a_longer_one_is_none) {
    const std::string identifier = "%" + std::string(Command_interpreter::longest_line - 6, 'x') + "%";
    EXPECT_EQ(reply_to(identifier + "rate"), "RE100" + identifier + "{10}\r\n");
    EXPECT_EQ(reply_to(identifier + "rates"), "ER012{1,wrong command}\r\n");
}
