#include <glue/vesk/MC_UI_messages.h>

#include <support/builders/Frame_builder.h>

#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using namespace MC_UI_messages;

template <typename Enum>
std::string name(int value) {
    return to_str(static_cast<Enum>(value));
}

} // namespace

TEST(MC_UI_messages, control_modes_have_names) {
    const char* const names[] = {"None",         "Closed Loop",  "Open Loop",        "SASA Loop",
                                 "Override 2WS", "Override 4WS", "Override Disabled"};
    for (int mode = 0; mode < 7; ++mode)
        EXPECT_EQ(name<control_mode_t>(mode), names[mode]);
    EXPECT_EQ(name<control_mode_t>(7), "Unknown control_mode_t");
    EXPECT_EQ(name<control_mode_t>(-1), "Unknown control_mode_t");
}

TEST(MC_UI_messages, implements_have_names_from_minus_one_on) {
    EXPECT_EQ(name<mc_implement_t>(-1), "Rear");
    EXPECT_EQ(name<mc_implement_t>(0), "Towed");
    EXPECT_EQ(name<mc_implement_t>(1), "Front");
    EXPECT_EQ(name<mc_implement_t>(2), "Unknown mc_implement_t");
    EXPECT_EQ(name<mc_implement_t>(-2), "Unknown mc_implement_t");
}

TEST(MC_UI_messages, calibration_modes_have_names) {
    const char* const names[] = {"None", "Stop", "Compass", "Max"};
    for (int mode = 0; mode < 4; ++mode)
        EXPECT_EQ(name<calibration_mode_t>(mode), names[mode]);
    EXPECT_EQ(name<calibration_mode_t>(4), "Unknown calibration_mode_t");
}

TEST(MC_UI_messages, modem_powers_have_names) {
    const char* const names[] = {"Both Off", "Int On/Ext Off", "Int On/Ext 100", "Int Off/Ext 500"};
    for (int power = 0; power < 4; ++power)
        EXPECT_EQ(name<modem_power_t>(power), names[power]);
    EXPECT_EQ(name<modem_power_t>(4), "Unknown modem_power_t");
}

TEST(MC_UI_messages, modes_hold_any_received_number) {
    for (const int number : {std::numeric_limits<int>::min(), -1000, 1000, std::numeric_limits<int>::max()}) {
        EXPECT_EQ(name<control_mode_t>(number), "Unknown control_mode_t");
        EXPECT_EQ(name<mc_implement_t>(number), "Unknown mc_implement_t");
        EXPECT_EQ(name<calibration_mode_t>(number), "Unknown calibration_mode_t");
        EXPECT_EQ(name<modem_power_t>(number), "Unknown modem_power_t");
    }
    static_assert(std::is_same_v<std::underlying_type_t<control_mode_t>, int>);
    static_assert(std::is_same_v<std::underlying_type_t<mc_implement_t>, int>);
    static_assert(std::is_same_v<std::underlying_type_t<calibration_mode_t>, int>);
    static_assert(std::is_same_v<std::underlying_type_t<modem_power_t>, int>);
}

TEST(Msg_ES, ten_items_make_a_frame_of_52_bytes) {
    unsigned char frame[52] = {};
    Msg_ES message(frame, sizeof frame, 0);
    EXPECT_TRUE(message.set_num_items(10, 4));
    EXPECT_EQ(message.get_size(), 52U);
    EXPECT_EQ(message.get_num_items(), 10U);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(frame), 5), "ES02F");
    EXPECT_EQ(frame[10], 10);
}

TEST(Msg_ES, eleven_items_are_refused) {
    unsigned char frame[100] = {};
    Msg_ES message(frame, sizeof frame);
    ASSERT_TRUE(message.set_num_items(3, 4));
    EXPECT_FALSE(message.set_num_items(11, 4));
    EXPECT_EQ(message.get_num_items(), 0U);
    EXPECT_EQ(message.get_size(), 24U) << "the frame stays as it was";
}

TEST(Msg_ES, size_follows_count_and_item_size_up_to_the_capacity) {
    unsigned char frame[32] = {};
    Msg_ES message(frame, sizeof frame, 12);
    EXPECT_TRUE(message.set_num_items(0, 4));
    EXPECT_EQ(message.get_size(), 12U);
    EXPECT_TRUE(message.set_num_items(5, 4));
    EXPECT_EQ(message.get_size(), 32U);
    EXPECT_FALSE(message.set_num_items(6, 4)) << "exceeds the capacity";
    EXPECT_EQ(message.get_num_items(), 5U) << "and nothing changed";
    EXPECT_FALSE(message.set_num_items(1, -4));
    EXPECT_FALSE(message.set_num_items(10, std::numeric_limits<int>::max()));
    EXPECT_EQ(message.get_size(), 32U) << "which 32 bits would take for a frame of 2 bytes";
}

TEST(Msg_ES, items_are_floats_or_integers) {
    unsigned char frame[64] = {};
    Msg_ES message(frame, sizeof frame);
    ASSERT_TRUE(message.set_num_items(3, 4));
    EXPECT_TRUE(message.set_item(0, 1.5F));
    EXPECT_TRUE(message.set_item(2, -2));
    EXPECT_EQ(message.get_item(0), 1.5F);
    EXPECT_EQ(message.get_int_item(2), -2);
    EXPECT_FALSE(message.set_item(3, 1.0F));
    EXPECT_FALSE(message.set_item(3, 1));
    EXPECT_EQ(message.get_item(3), 0.0F);
    EXPECT_EQ(message.get_int_item(3), 0);
    message.set_checksum(true);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(frame), message.get_size()),
              unterminated_frame("ES", std::string(5, '\0') + '\3' + le(1.5F) + le(0) + le(-2)));
}

TEST(Msg_ES, items_beyond_their_number_are_not_accessible_even_in_a_larger_frame) {
    unsigned char frame[64] = {};
    Msg_ES message(frame, sizeof frame);
    frame[10] = 2;
    frame[19] = 0x7F;
    EXPECT_FALSE(message.set_item(2, 1));
    EXPECT_FALSE(message.set_item(2, 1.0F));
    EXPECT_EQ(frame[19], 0x7F);
    EXPECT_EQ(message.get_item(2), 0.0F);
    EXPECT_EQ(message.get_int_item(2), 0);
    EXPECT_TRUE(message.set_item(1, 1));
    EXPECT_EQ(message.get_int_item(1), 1);
    EXPECT_FALSE(message.set_item(0xFFFFFFFFU, 1));
    EXPECT_FALSE(message.set_item(0x40000001U, 1)) << "whose offset wraps";
}

TEST(Msg_ES, item_beyond_the_end_of_the_frame_is_not_accessible) {
    unsigned char frame[14] = {};
    Msg_ES message(frame, sizeof frame);
    frame[10] = 10;
    EXPECT_EQ(message.get_num_items(), 10U);
    EXPECT_FALSE(message.set_item(0, 1));
    EXPECT_EQ(message.get_item(0), 0.0F);
    EXPECT_EQ(message.get_item(9), 0.0F);
}
