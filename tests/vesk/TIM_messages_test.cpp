#include <glue/vesk/TIM_messages.h>

#include <support/builders/Frame_builder.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Enabled_category.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace TIM_messages;

constexpr unsigned level = 77;

/// The text that `print` prints for a frame.
std::string printed(std::string frame) {
    const Enabled_category on(level);
    const Captured_debug debug;
    TIM_Vesk_message(reinterpret_cast<unsigned char*>(frame.data()), static_cast<unsigned>(frame.size())).print(level);
    return debug.text_without_times();
}

std::string body(unsigned heart, unsigned state_and_prod, unsigned flags, float curvature) {
    const char bytes[] = {1, static_cast<char>(heart), static_cast<char>(state_and_prod), static_cast<char>(flags)};
    return std::string(bytes, sizeof bytes) + le(curvature);
}

} // namespace

TEST(TIM_messages, status_prints_its_fields) {
    EXPECT_EQ(printed(build_frame("GS", body(0xAB, 0x51, 0, 0.25F))),
              "<time> GS: HEART AB, STATE AUTOMATION_ACTIVE, PROD 1, CURV 0.250000\n");
    EXPECT_EQ(printed(build_frame("GS", body(7, 0xE0, 0xFF, -2))),
              "<time> GS: HEART 7, STATE ERROR, PROD 0, CURV -2.000000\n");
}

TEST(TIM_messages, command_prints_its_fields) {
    EXPECT_EQ(printed(build_frame("GC", body(1, 0x30, 0x40 | 0x20 | 0x04 | 0x01, 1.5F))),
              "<time> GC: RDY 1, RQ 1:0:0:1:0:1:1.500000 HEART 1 STATE AUTOMATION_ENABLED PROD 0\n");
    EXPECT_EQ(printed(build_frame("GC", body(0, 0x21, 0x1A, 0))),
              "<time> GC: RDY 0, RQ 0:1:1:0:1:0:0.000000 HEART 0 STATE AUTOMATION_READY_TO_ENABLED PROD 1\n");
}

TEST(TIM_messages, each_flag_of_a_command_is_printed_at_its_position) {
    const char* const flags[] = {
        "RDY 0, RQ 0:0:0:0:0:1:", "RDY 0, RQ 0:0:0:0:1:0:", "RDY 0, RQ 0:0:0:1:0:0:", "RDY 0, RQ 0:0:1:0:0:0:",
        "RDY 0, RQ 0:1:0:0:0:0:", "RDY 0, RQ 1:0:0:0:0:0:", "RDY 1, RQ 0:0:0:0:0:0:", "RDY 0, RQ 0:0:0:0:0:0:"};
    for (unsigned bit = 0; bit < 8; ++bit)
        EXPECT_EQ(printed(build_frame("GC", body(0, 0, 1U << bit, 0))),
                  std::string("<time> GC: ") + flags[bit] + "0.000000 HEART 0 STATE AUTOMATION_UNAVAILABLE PROD 0\n");
}

TEST(TIM_messages, wrong_length_is_reported_and_the_fields_are_not_printed) {
    EXPECT_EQ(printed(build_frame("GS", std::string(7, '\0'))), "GS wrong message len 8 vs 14\n");
    EXPECT_EQ(printed(build_frame("GC", std::string(9, '\0'))), "GC wrong message len 10 vs 14\n");
}

TEST(TIM_messages, other_identifiers_are_printed_with_any_length) {
    EXPECT_EQ(printed(build_frame("XX", body(0x10, 0xF1, 0, 3))),
              "<time> ??: HEART 10, STATE NOT_AVAILABLE, PROD 1, CURV 3.000000\n");
    EXPECT_EQ(printed(build_frame("XX", "")),
              "<time> ??: HEART A, STATE AUTOMATION_UNAVAILABLE, PROD 0, CURV 0.000000\n")
        << "the line feed is at the offset of the heartbeat";
}

TEST(TIM_messages, nothing_is_printed_while_the_category_is_off) {
    std::string frame = build_frame("GS", body(1, 0, 0, 0));
    const Captured_debug debug;
    TIM_Vesk_message(reinterpret_cast<unsigned char*>(frame.data()), static_cast<unsigned>(frame.size())).print(level);
    EXPECT_EQ(debug.text(), "");
}

TEST(TIM_messages, states_have_names_with_gaps) {
    const char* const names[16] = {"AUTOMATION_UNAVAILABLE",
                                   "AUTOMATION_NOT_READY",
                                   "AUTOMATION_READY_TO_ENABLED",
                                   "AUTOMATION_ENABLED",
                                   "UNKNOWN",
                                   "AUTOMATION_ACTIVE",
                                   "UNKNOWN",
                                   "UNKNOWN",
                                   "UNKNOWN",
                                   "UNKNOWN",
                                   "UNKNOWN",
                                   "UNKNOWN",
                                   "UNKNOWN",
                                   "FAULT",
                                   "ERROR",
                                   "NOT_AVAILABLE"};
    for (unsigned state = 0; state < 16; ++state)
        EXPECT_STREQ(state_text(state), names[state]) << state;
}

TEST(TIM_messages, setup_marks_the_body) {
    unsigned char frame[14] = {};
    Msg_GS message(frame, sizeof frame);
    EXPECT_TRUE(message.setup(reinterpret_cast<const unsigned char*>("GS"), 14));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(frame), 6), "GS009\x01");
    Vesk_message& base = message;
    frame[5] = 0;
    EXPECT_TRUE(base.setup(reinterpret_cast<const unsigned char*>("GC"), 14));
    EXPECT_EQ(frame[5], 1) << "also through the base";
    Msg_GS too_short(frame, 5);
    EXPECT_FALSE(too_short.setup(reinterpret_cast<const unsigned char*>("GS"), 14));
}

TEST(TIM_messages, frames_are_built_as_they_are_read) {
    unsigned char frame[20];
    Msg_GC command(frame, sizeof frame);
    ASSERT_TRUE(command.init());
    EXPECT_EQ(command.get_size(), 14U);
    command.set_heart(0x5A);
    command.set_state(automation_fault);
    command.set_prod(true);
    command.set_ready(true);
    command.set_request(0, true);
    command.set_request(5, true);
    command.set_request(5, false);
    command.set_request(3, true);
    command.set_curv(-0.125F);
    command.set_checksum(true);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(frame), 14),
              unterminated_frame("GC", body(0x5A, 0xD1, 0x49, -0.125F)));
    EXPECT_EQ(command.get_state(), 13U);
    EXPECT_TRUE(command.get_ready());
    EXPECT_TRUE(command.get_request(3));
    EXPECT_FALSE(command.get_request(5));
    EXPECT_FALSE(command.get_request(6));
    EXPECT_FALSE(command.set_request(6, false));
    EXPECT_TRUE(command.get_ready()) << "the ready flag is no request";
}

TEST(TIM_messages, new_frame_is_empty_with_any_previous_content) {
    unsigned char frame[14];
    std::memset(frame, 0xFF, sizeof frame);
    ASSERT_TRUE(Msg_GS(frame, sizeof frame).init());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(frame), 14), std::string("GS009\1\0\0\0\0\0\0\0\0", 14));
}

TEST(TIM_messages, buffer_that_is_too_small_gets_no_frame) {
    unsigned char frame[13] = {};
    EXPECT_FALSE(Msg_GS(frame, sizeof frame).init());
    EXPECT_FALSE(Msg_GC(frame, 4).set_ready(true));
}
