// The automation's status, the display's numbers and the position sentences, and that they change nothing else.

#include "simulated_epochs.h"

#include <glue/vesk/MC_UI_messages.h>
#include <glue/vesk/NMEA_messages.h>
#include <glue/vesk/TIM_messages.h>

#include <simulator/Automation.h>
#include <simulator/Field_track.h>

#include <cmath>
#include <gmock/gmock.h>
#include <set>

namespace {

using namespace TIM_messages;
using MC_UI_messages::Msg_ES;
using simulator::Automation;
using simulator::Simulated_receiver;
using Options = Simulated_receiver::Options;

/// A command with the ready flag and these requests on.
struct Command {
    explicit Command(bool ready, std::initializer_list<unsigned> requests = {}, bool prod = false) {
        message.init();
        message.set_ready(ready);
        for (const unsigned n : requests)
            message.set_request(n, true);
        message.set_prod(prod);
        message.set_curv(0.25F);
    }
    unsigned char buffer[Msg_GC::frame_size];
    Msg_GC message{buffer, sizeof buffer};
};

Automation_state state_after(const Command& command) {
    Automation automation;
    automation.obey(command.message);
    return automation.state();
}

/// The bytes after the "||" of an epoch.
std::string sentence_of(std::string& bytes) {
    const std::size_t dollar = bytes.find("\n$") + 1;
    const std::string sentence = bytes.substr(dollar);
    bytes.resize(dollar);
    return sentence;
}

} // namespace

// ---- The automation by itself ----

TEST(Simulator_automation, is_not_ready_until_it_is_commanded) {
    EXPECT_EQ(Automation().state(), automation_not_ready);
}

TEST(Simulator_automation, state_follows_the_last_command) {
    EXPECT_EQ(state_after(Command(false)), automation_not_ready);
    EXPECT_EQ(state_after(Command(true)), automation_ready_to_enabled);
    EXPECT_EQ(state_after(Command(true, {0})), automation_enabled);
    EXPECT_EQ(state_after(Command(true, {0, 1})), automation_active);
    EXPECT_EQ(state_after(Command(true, {1})), automation_ready_to_enabled) << "steering needs the enable request";
    EXPECT_EQ(state_after(Command(false, {0, 1})), automation_not_ready);
    EXPECT_EQ(state_after(Command(true, {2, 3, 4, 5})), automation_ready_to_enabled);
    Automation automation;
    automation.obey(Command(true, {0, 1}).message);
    automation.obey(Command(true, {0}).message);
    EXPECT_EQ(automation.state(), automation_enabled);
}

TEST(Simulator_automation, status_has_state_product_flag_and_the_right_curvature) {
    unsigned char buffer[Msg_GS::frame_size];
    Msg_GS status(buffer, sizeof buffer);
    status.init();
    Automation automation;
    automation.report(status, 0.125);
    EXPECT_EQ(status.get_state(), automation_not_ready);
    EXPECT_FALSE(status.get_prod());
    EXPECT_EQ(status.get_curv(), 0.125F) << "the path's";
    automation.obey(Command(true, {0, 1}, true).message);
    automation.report(status, 0.125);
    EXPECT_EQ(status.get_state(), automation_active);
    EXPECT_TRUE(status.get_prod());
    EXPECT_EQ(status.get_curv(), 0.25F) << "the command's";
}

TEST(Simulator_automation, heartbeat_counts_up_and_wraps) {
    unsigned char buffer[Msg_GS::frame_size];
    Msg_GS status(buffer, sizeof buffer);
    status.init();
    Automation automation;
    for (unsigned i = 0; i < 600; ++i) {
        automation.report(status, 0);
        ASSERT_EQ(status.get_heart(), i % 256);
    }
}

// ---- In the epochs ----

TEST(Simulator_automation, every_epoch_has_a_status_if_enabled) {
    Options options;
    options.automation = true;
    Simulated_receiver receiver(options);
    for (unsigned i = 0; i < 20; ++i) {
        if (i == 10)
            receiver.automation().obey(Command(true, {0, 1}).message);
        const auto& bytes = receiver.next_epoch();
        Simulated_epoch epoch(std::string(bytes.begin(), bytes.end()));
        const auto status = epoch.get<Msg_GS>();
        EXPECT_EQ(status.get_heart(), i);
        EXPECT_EQ(status.get_state(), i < 10 ? automation_not_ready : automation_active);
        EXPECT_EQ(epoch.frames()[epoch.frames().size() - 2].id(), "GS");
    }
}

TEST(Simulator_automation, curvature_is_the_paths) {
    Options options = epochs_every(1000);
    options.automation = true;
    Received_epochs receiver(options);
    std::set<float> curvatures;
    for (int i = 0; i < 1000; ++i)
        curvatures.insert(receiver.next().get<Msg_GS>().get_curv());
    const auto turn = static_cast<float>(1 / simulator::Field_track::turn_radius);
    EXPECT_THAT(curvatures, testing::ElementsAre(-turn, 0.0F, turn));
}

TEST(Simulator_automation, every_epoch_has_numbers_for_the_display_if_enabled) {
    Options options;
    options.automation = options.display = true;
    Simulated_receiver receiver(options);
    for (const bool active : {false, true}) {
        if (active)
            receiver.automation().obey(Command(true, {0, 1}).message);
        const auto& bytes = receiver.next_epoch();
        Simulated_epoch epoch(std::string(bytes.begin(), bytes.end()));
        const auto items = epoch.get<Msg_ES>();
        ASSERT_EQ(items.get_num_items(), 4U);
        EXPECT_EQ(items.get_int_item(0), active ? MC_UI_messages::control_closed_loop : MC_UI_messages::control_none);
        EXPECT_EQ(items.get_int_item(1), MC_UI_messages::implement_rear);
        EXPECT_EQ(items.get_item(2), epoch.get<Msg_GS>().get_curv() * (active ? 0.0F : 1.0F));
        EXPECT_NEAR(items.get_item(3), 3, 0.2) << "the machine's speed, a little changed by hills";
    }
}

TEST(Simulator_automation, every_epoch_has_its_position_as_a_sentence_if_enabled) {
    Options options;
    options.nmea = true;
    Received_epochs receiver(options);
    for (int i = 0; i < 100; ++i) {
        std::string bytes = receiver.next_bytes();
        std::string sentence = sentence_of(bytes);
        EXPECT_EQ(sentence.substr(sentence.size() - 2), "\r\n");
        Simulated_epoch epoch(bytes);
        const NMEA_messages::Msg_NMEA_GGA gga(sentence.data(), static_cast<unsigned>(sentence.size()));
        ASSERT_TRUE(gga.check_checksum());
        const auto position = epoch.get<GNSS_messages::Msg_PG>();
        EXPECT_NEAR(gga.get_latitude(), position.get_lat_deg(), 1e-8);
        EXPECT_NEAR(gga.get_longitude(), position.get_lon_deg(), 1e-8);
        EXPECT_NEAR(gga.get_altitude(), position.get_hgt() - 45.5, 0.0006);
        EXPECT_EQ(gga.get_fix(), 4);
        const auto solution = epoch.get<GNSS_messages::Msg_PS>();
        EXPECT_EQ(gga.get_satellites(), solution.get_used(0) + solution.get_used(1));
        EXPECT_NEAR(gga.get_hdop(), epoch.get<GNSS_messages::Msg_DP>().get_hdop(), 0.051);
        // UTC is 18 seconds less than the receiver's time, which begins at six o'clock.
        const unsigned utc_ms = epoch.get<GNSS_messages::Msg_RT>().get_ms() - 18000;
        char time[16];
        std::snprintf(time, sizeof time, "%02u%02u%02u.%02u", utc_ms / 3600000, utc_ms / 60000 % 60, utc_ms / 1000 % 60,
                      utc_ms % 1000 / 10);
        EXPECT_EQ(sentence.substr(7, 9), time);
    }
}

TEST(Simulator_automation, optional_messages_change_no_other_byte) {
    Options all;
    all.automation = all.display = all.nmea = true;
    Received_epochs with(all);
    Received_epochs without;
    for (int i = 0; i < 300; ++i) {
        std::string bytes = with.next_bytes();
        sentence_of(bytes);
        std::string rest;
        for (const Simulated_frame& frame : frames_of(bytes))
            if (frame.id() != "GS" && frame.id() != "ES")
                rest += frame.bytes + "\n";
        ASSERT_TRUE(rest == without.next_bytes()) << i;
    }
}

TEST(Simulator_automation, disturbed_sentences_are_cut_at_the_right_place) {
    Options options;
    options.nmea = true;
    options.corrupt = 1;
    Received_epochs receiver(options);
    int bad = 0;
    for (int i = 0; i < 100; ++i) {
        const std::string bytes = receiver.next_bytes();
        EXPECT_EQ(bytes.substr(bytes.size() - 2), "\r\n") << "the line end is never disturbed";
        const std::size_t begin = bytes.rfind('\n', bytes.size() - 3) + 1;
        std::string sentence = bytes.substr(begin);
        const auto size = static_cast<unsigned>(sentence.size());
        const int star = NMEA_messages::NMEA0183_message::get_delimiter_pos(sentence.data(), size);
        bad += star == 0 || !NMEA_messages::NMEA0183_message(sentence.data(), size).check_checksum();
    }
    EXPECT_EQ(bad, 100);
}

TEST(Simulator_automation, bytes_of_an_epoch_never_exceed_the_reserved_capacity) {
    Options options = epochs_every(60000);
    options.automation = options.display = options.nmea = options.crlf = true;
    options.noise = 1;
    Simulated_receiver receiver(options);
    for (int i = 0; i < 1440; ++i)
        ASSERT_EQ(receiver.next_epoch().capacity(), simulator::Frame_line::capacity);
}
