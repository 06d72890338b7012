// The lines for messages that the library's printer does not know.

#include <monitor/Message_lines.h>

#include <glue/vesk/MC_UI_messages.h>
#include <glue/vesk/TIM_messages.h>

#include <support/builders/Frame_builder.h>
#include <support/fakes/Captured_descriptor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <unistd.h>

namespace {

using TIM_messages::Msg_GC;
using TIM_messages::Msg_GS;

std::string frame_line(bool labelled, std::string bytes) {
    char line[400];
    const Vesk_message frame(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
    Message_lines(labelled).print_frame(frame, line, sizeof line);
    return line;
}

std::string reply_line(bool labelled, const std::string& bytes) {
    char line[400];
    const unsigned length = Message_lines(labelled).print_reply(reinterpret_cast<const unsigned char*>(bytes.data()),
                                                                static_cast<unsigned>(bytes.size()), line, sizeof line);
    return {line, length};
}

/// A status or command: heartbeat 7, this byte of state and product flag, these flags, curvature 0.0125.
std::string TIM_frame(const std::string& id, char state_and_prod, char flags) {
    return build_frame(id, std::string("\1\7", 2) + state_and_prod + flags + le(0.0125F));
}

/// A frame of items, each given as its four bytes.
std::string item_frame(const std::vector<std::string>& items) {
    std::string body = std::string(5, '\0') + static_cast<char>(items.size());
    for (const std::string& item : items)
        body += item;
    return build_frame("ES", body);
}

} // namespace

// ---- Status and command ----

TEST(Message_lines, status) {
    const std::string active = TIM_frame("GS", '\x51', '\0');
    EXPECT_EQ(frame_line(true, active), "GS heart=7 state=AUTOMATION_ACTIVE prod=1 curv=0.012500");
    EXPECT_EQ(frame_line(false, active), "GS,7,5,1,0.012500");
}

TEST(Message_lines, state_without_a_name_is_unknown_and_a_number_for_files) {
    const std::string frame = TIM_frame("GS", '\x40', '\0');
    EXPECT_EQ(frame_line(true, frame), "GS heart=7 state=UNKNOWN prod=0 curv=0.012500");
    EXPECT_EQ(frame_line(false, frame), "GS,7,4,0,0.012500");
}

TEST(Message_lines, command) {
    const std::string frame = TIM_frame("GC", '\x20', '\x63');
    EXPECT_EQ(frame_line(true, frame), "GC heart=7 ready=1 requests={1,0,0,0,1,1} "
                                       "state=AUTOMATION_READY_TO_ENABLED prod=0 curv=0.012500");
    EXPECT_EQ(frame_line(false, frame), "GC,7,1,{1,0,0,0,1,1},2,0,0.012500");
}

TEST(Message_lines, status_or_command_of_another_length_is_shown_as_bytes) {
    for (const char* id : {"GS", "GC"}) {
        for (const std::size_t size : {0U, 7U, 9U}) {
            const Captured_descriptor errors(STDERR_FILENO);
            EXPECT_THAT(frame_line(true, build_frame(id, std::string(size, 'x'))),
                        testing::StartsWith(std::string(id) + " ???: "));
            EXPECT_EQ(errors.text(), std::string("UNKNOWN ") + id + "\n");
        }
    }
}

// ---- Items ----

TEST(Message_lines, items) {
    const std::string frame = item_frame({le(std::int32_t{1}), le(0.25F), le(std::int32_t{-1}), le(0.0F)});
    EXPECT_EQ(frame_line(true, frame), "ES items=4 1 0.25 -1 0");
    EXPECT_EQ(frame_line(false, frame), "ES,4,1,0.25,-1,0");
}

TEST(Message_lines, no_items) {
    EXPECT_EQ(frame_line(true, item_frame({})), "ES items=0");
    EXPECT_EQ(frame_line(false, item_frame({})), "ES,0");
}

TEST(Message_lines, ten_items) {
    EXPECT_EQ(frame_line(false, item_frame(std::vector<std::string>(10, le(-1.5e30F)))),
              "ES,10,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30,-1.5e+30");
}

TEST(Message_lines, items_that_are_no_normal_floats_are_integers) {
    const float infinite = std::numeric_limits<float>::infinity();
    EXPECT_EQ(frame_line(true, item_frame({le(std::numeric_limits<float>::denorm_min()), le(infinite)})),
              "ES items=2 1 2139095040");
}

TEST(Message_lines, item_frame_of_another_length_is_shown_as_bytes) {
    const Captured_descriptor errors(STDERR_FILENO);
    const std::string eleven = std::string(5, '\0') + '\x0B' + std::string(44, 'x');
    for (const std::string& body : {std::string(3, 'x'), std::string(5, '\0') + "\1abc", eleven})
        EXPECT_THAT(frame_line(true, build_frame("ES", body)), testing::StartsWith("ES ???: "));
}

// ---- Messages of the library's printer ----

TEST(Message_lines, other_frames_are_left_to_the_printer) {
    EXPECT_EQ(frame_line(true, build_frame("~~", le(std::uint32_t{5}))), "RT ms=5");
    EXPECT_EQ(frame_line(false, build_frame("~~", le(std::uint32_t{5}))), "RT,5");
}

TEST(Message_lines, line_is_empty_when_the_printer_writes_none) {
    const Captured_descriptor output(STDOUT_FILENO);
    EXPECT_EQ(frame_line(true, build_frame("SS", "")), "");
}

TEST(Message_lines, lines_are_cut_to_the_given_size) {
    char line[8];
    for (std::string bytes : {TIM_frame("GS", 0, 0), TIM_frame("GC", 0, 0), item_frame({le(1.0F), le(2.0F)})}) {
        const Vesk_message frame(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
        Message_lines(true).print_frame(frame, line, sizeof line);
        EXPECT_EQ(std::string(line).size(), 7U);
    }
}

// ---- Replies ----

TEST(Message_lines, error_reply_shows_code_and_phrase) {
    const std::string reply = "ER01A{5,value out of range}\r\n";
    EXPECT_EQ(reply_line(true, reply), "ER01A{5,value out of range} error=5 text=value out of range");
    EXPECT_EQ(reply_line(false, reply), "ER01A{5,value out of range},5,value out of range");
}

TEST(Message_lines, error_reply_is_decoded_with_its_request_identifier_and_without_braces) {
    EXPECT_EQ(reply_line(true, "ER015%7%{1,wrong command}\r\n"),
              "ER015%7%{1,wrong command} error=1 text=wrong command");
    EXPECT_EQ(reply_line(true, "ER00Ffile not found \r\n"), "ER00Ffile not found  error=37 text=file not found");
    EXPECT_EQ(reply_line(true, std::string("ER00Edup loop\t \r\n\0\0", 18)), "ER00Edup loop\t  error=24 text=dup loop");
}

TEST(Message_lines, unknown_error_reply_is_printed_alone) {
    EXPECT_EQ(reply_line(true, "ER005%3%no\n"), "ER005%3%no");
    EXPECT_EQ(reply_line(true, "ER001\r\n"), "ER001");
    EXPECT_EQ(reply_line(true, "ER000\n"), "ER000");
    EXPECT_EQ(reply_line(true, "ER02A{40,device busy,invalid file length}\r\n"),
              "ER02A{40,device busy,invalid file length}")
        << "two phrases";
}

TEST(Message_lines, other_replies_are_printed_alone) {
    EXPECT_EQ(reply_line(true, "RE00Fwrong command\r\n"), "RE00Fwrong command");
    EXPECT_EQ(reply_line(false, "RE000\n"), "RE000");
}

TEST(Message_lines, reply_is_cut_to_the_given_size) {
    char line[4];
    const std::string reply = "RE004done\n";
    EXPECT_EQ(Message_lines(true).print_reply(reinterpret_cast<const unsigned char*>(reply.data()), 10, line, 4), 4U);
}
