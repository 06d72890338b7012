#include "model_input.h"
#include "simulated_epochs.h"

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/builders/Receiver_traffic.h>

#include <algorithm>
#include <map>

namespace {

using live_view::Link_model;
using live_view::Link_state;

using testing::ElementsAre;

const std::string time_frame = build_frame("~~", le(std::uint32_t{1234}));

std::string list_frame(const char* identifier, const std::string& entries) {
    return build_frame(identifier, entries);
}

std::map<int, std::uint64_t> counts_of(const Link_model& model) {
    std::map<int, std::uint64_t> counts;
    for (const Link_model::Message& message : model.messages())
        counts[message.identifier] = message.count;
    return counts;
}

/// Counts the packets that the model is fed with.
struct Tally {
    void count(int kind, unsigned char* packet, unsigned len) {
        const Vesk_message message(packet, len);
        if (kind == Vesk_parser::frame && !message.check_checksum())
            ++checksum_failures;
        else if (kind == Vesk_parser::frame || kind == Vesk_parser::reply) {
            ++messages[message.get_msg_id()];
            ++(kind == Vesk_parser::frame ? frames : replies);
        }
    }

    std::map<int, std::uint64_t> messages;
    std::uint64_t frames = 0;
    std::uint64_t replies = 0;
    std::uint64_t checksum_failures = 0;
};

} // namespace

TEST(Link_model, is_empty_at_first) {
    const Fed_model fed;
    EXPECT_EQ(fed.model.condition().state(fed.now), Link_state::waiting);
    EXPECT_EQ(fed.model.arrived(), 0U);
    EXPECT_TRUE(fed.model.messages().empty());
    EXPECT_TRUE(fed.model.recent().empty());
    EXPECT_TRUE(fed.model.satellites().empty());
    EXPECT_FALSE(fed.model.position());
    EXPECT_FALSE(fed.model.dilution());
    EXPECT_FALSE(fed.model.solution());
    EXPECT_FALSE(fed.model.automation());
}

TEST(Link_model, counts_messages_in_the_order_of_their_arrival) {
    Fed_model fed;
    fed.feed(time_frame + build_frame("||", "") + time_frame + reply_text("RE", "{done}"));
    ASSERT_EQ(fed.model.messages().size(), 3U);
    EXPECT_EQ(fed.model.messages()[0].identifier, Vesk_message::msg_id('~', '~'));
    EXPECT_EQ(fed.model.messages()[0].count, 2U);
    EXPECT_EQ(fed.model.messages()[1].identifier, Vesk_message::msg_id('|', '|'));
    EXPECT_EQ(fed.model.messages()[2].identifier, Vesk_message::msg_id('R', 'E'));
    EXPECT_EQ(fed.model.good_frames(), 3U);
}

/// A frame with a damaged length can hide some thousand bytes of good frames. So the traffic goes on until enough of
/// everything was received.
TEST(Link_model, agrees_with_the_received_traffic) {
    constexpr std::uint64_t enough_frames = 100;
    constexpr std::uint64_t enough_of_the_rest = 10;
    constexpr std::size_t most_bytes = 1000000;
    Random random;
    Receiver_traffic traffic(random);
    Fed_model fed;
    Tally tally;
    fed.on_packet = [&](int kind, unsigned char* packet, unsigned len) { tally.count(kind, packet, len); };
    std::size_t sent = 0;
    while (tally.frames < enough_frames || std::min(tally.replies, tally.checksum_failures) < enough_of_the_rest) {
        const std::string bytes = traffic.element();
        fed.feed(bytes);
        sent += bytes.size();
        ASSERT_LT(sent, most_bytes);
    }
    EXPECT_EQ(fed.model.arrived(), sent);
    EXPECT_EQ(fed.model.account().total() + fed.buffered(), sent);
    EXPECT_EQ(fed.model.good_frames(), tally.frames);
    EXPECT_EQ(fed.model.checksum_failures(), tally.checksum_failures);
    EXPECT_EQ(counts_of(fed.model), tally.messages);
}

TEST(Link_model, a_wrong_checksum_is_counted_and_nothing_else) {
    std::string bad = time_frame;
    bad[6] = '\x7F';
    Fed_model fed;
    fed.feed(bad);
    EXPECT_EQ(fed.model.checksum_failures(), 1U);
    EXPECT_EQ(fed.model.good_frames(), 0U);
    EXPECT_TRUE(fed.model.messages().empty());
    EXPECT_TRUE(fed.model.recent().empty());
    EXPECT_EQ(fed.model.condition().state(fed.now), Link_state::looking);
}

TEST(Link_model, measures_rates) {
    Fed_model fed;
    for (int i = 0; i < 120; ++i) {
        fed.feed(time_frame + (i % 10 == 0 ? build_frame("||", "") : ""));
        fed.now = fed.now + 100;
    }
    EXPECT_EQ(fed.model.frame_rate().per_second(fed.now), 11.0);
    EXPECT_EQ(fed.model.byte_rate().per_second(fed.now), 10 * 11.0 + 7);
    EXPECT_EQ(fed.model.messages()[0].rate.per_second(fed.now), 10.0);
    EXPECT_EQ(fed.model.messages()[1].rate.per_second(fed.now), 1.0);
}

TEST(Link_model, keeps_a_limited_number_of_different_messages) {
    Fed_model fed;
    for (int i = 0; i < 200; ++i) {
        const char identifier[] = {static_cast<char>('A' + i / 20), static_cast<char>('a' + i % 20), '\0'};
        fed.feed(build_frame(identifier, "x"));
    }
    EXPECT_EQ(fed.model.messages().size(), Link_model::most_messages);
    EXPECT_EQ(fed.model.other_messages(), 200U - Link_model::most_messages);
    EXPECT_EQ(fed.model.recent().size(), Link_model::most_recent);
}

TEST(Link_model, has_the_last_position_dilution_and_solution) {
    Received_epochs receiver;
    Fed_model fed;
    std::string bytes;
    for (int i = 0; i < 5; ++i)
        fed.feed(bytes = receiver.next_bytes());
    Simulated_epoch last(bytes);
    const auto pg = last.get<GNSS_messages::Msg_PG>();
    ASSERT_TRUE(fed.model.position());
    EXPECT_EQ(fed.model.position()->latitude, pg.get_lat_deg());
    EXPECT_EQ(fed.model.position()->longitude, pg.get_lon_deg());
    EXPECT_EQ(fed.model.position()->height, pg.get_hgt());
    EXPECT_EQ(fed.model.position()->sigma, pg.get_sigma());
    EXPECT_EQ(fed.model.position()->type, pg.get_type());
    EXPECT_EQ(fed.model.scatter().spread().positions, 5U);
    const auto dp = last.get<GNSS_messages::Msg_DP>();
    ASSERT_TRUE(fed.model.dilution());
    EXPECT_EQ(fed.model.dilution()->horizontal, dp.get_hdop());
    EXPECT_EQ(fed.model.dilution()->vertical, dp.get_vdop());
    EXPECT_EQ(fed.model.dilution()->time, dp.get_tdop());
    EXPECT_EQ(fed.model.dilution()->position, dp.get_pdop());
    EXPECT_EQ(fed.model.dilution()->geometric, dp.get_gdop());
    const auto ps = last.get<GNSS_messages::Msg_PS>();
    ASSERT_TRUE(fed.model.solution());
    EXPECT_EQ(fed.model.solution()->used, ps.get_used(0) + ps.get_used(1));
    EXPECT_EQ(fed.model.solution()->available, ps.get_avail(0) + ps.get_avail(1));
    EXPECT_EQ(fed.model.solution()->locked, ps.get_locked(0) + ps.get_locked(1));
}

TEST(Link_model, has_the_satellites_of_the_last_epoch) {
    Received_epochs receiver;
    Fed_model fed;
    const std::string bytes = receiver.next_bytes();
    fed.feed(bytes);
    Simulated_epoch epoch(bytes);
    const auto numbers = epoch.list<GNSS_messages::Msg_SI>();
    const auto elevations = epoch.list<GNSS_messages::Msg_EL>();
    const auto azimuths = epoch.list<GNSS_messages::Msg_AZ>();
    const auto strengths = epoch.list<GNSS_messages::Msg_SS>();
    const auto uses = epoch.list<GNSS_messages::Msg_EC>();
    ASSERT_EQ(fed.model.satellites().size(), numbers.size());
    ASSERT_GT(numbers.size(), 10U);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const live_view::Satellite& satellite = fed.model.satellites()[i];
        EXPECT_EQ(satellite.number, numbers[i]);
        EXPECT_EQ(satellite.elevation, elevations[i]);
        EXPECT_EQ(satellite.azimuth, 2 * azimuths[i]);
        EXPECT_EQ(satellite.strength, strengths[i]);
        EXPECT_EQ(satellite.use, uses[i]);
    }
}

TEST(Link_model, lists_of_different_epochs_or_lengths_make_no_satellites) {
    Fed_model fed;
    const std::string before = time_frame + list_frame("SI", "\x01\x02") + list_frame("EL", "\x0A\x14") +
                               list_frame("AZ", "\x0A\x14") + list_frame("SS", "\x28\x29\x01");
    fed.feed(before);
    ASSERT_EQ(fed.model.satellites().size(), 2U);
    fed.feed(list_frame("SI", "\x01\x02\x03")); // another satellite has risen
    ASSERT_EQ(fed.model.satellites().size(), 2U);
    fed.feed(time_frame + list_frame("EL", "\x0A\x14") + list_frame("AZ", "\x0A\x14"));
    fed.feed(time_frame + list_frame("SI", "\x07\x08"));
    EXPECT_EQ(fed.model.satellites()[0].number, 1);
    fed.feed(list_frame("EL", "\x0A\x14") + list_frame("AZ", "\x0A\x14"));
    EXPECT_EQ(fed.model.satellites()[0].number, 7);
    EXPECT_EQ(fed.model.satellites()[0].strength, std::nullopt);
}

TEST(Link_model, a_satellite_keeps_its_signal_until_a_new_one_is_received) {
    Fed_model fed;
    const std::string sky =
        time_frame + list_frame("SI", "\x01\x02") + list_frame("EL", "\x0A\x14") + list_frame("AZ", "\x0A\x14");
    fed.feed(sky + list_frame("SS", "\x28\x29\x01") + list_frame("EC", std::string("\0\1", 2)));
    fed.feed(sky);
    EXPECT_EQ(fed.model.satellites()[0].strength, 0x28);
    EXPECT_EQ(fed.model.satellites()[1].strength, 0x29);
    EXPECT_EQ(fed.model.satellites()[1].use, 1);
}

TEST(Link_model, has_the_automations_state) {
    Fed_model fed;
    fed.feed(automation_status(TIM_messages::automation_active, 77, true, 0.25F));
    ASSERT_TRUE(fed.model.automation());
    EXPECT_EQ(fed.model.automation()->state, TIM_messages::automation_active);
    EXPECT_EQ(fed.model.automation()->heartbeat, 77U);
    EXPECT_TRUE(fed.model.automation()->product);
    EXPECT_EQ(fed.model.automation()->curvature, 0.25F);
}

TEST(Link_model, remembers_packets_in_both_forms) {
    Fed_model fed;
    fed.feed(time_frame + reply_text("RE", "{ok}"));
    fed.feed("\x06");
    fed.feed("\x15");
    std::vector<std::string> labelled;
    std::vector<std::string> comma;
    for (const Link_model::Text& text : fed.model.recent()) {
        labelled.push_back(text.labelled);
        comma.push_back(text.comma);
    }
    EXPECT_THAT(labelled, ElementsAre("RT ms=1234", "RE005{ok}", "acknowledged", "refused"));
    EXPECT_THAT(comma, ElementsAre("RT,1234", "RE005{ok}", "acknowledged", "refused"));
}

TEST(Link_model, remembers_the_frames_that_only_the_monitor_prints) {
    Fed_model fed;
    testing::internal::CaptureStderr();
    fed.feed(automation_status(TIM_messages::automation_active, 77, true, 0.25F));
    fed.feed(build_frame("ES", std::string(5, '\0') + '\1' + le(2.5F)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(fed.model.recent().size(), 2U);
    EXPECT_EQ(fed.model.recent()[0].labelled, "GS heart=77 state=AUTOMATION_ACTIVE prod=1 curv=0.250000");
    EXPECT_EQ(fed.model.recent()[0].comma, "GS,77,5,1,0.250000");
    EXPECT_EQ(fed.model.recent()[1].labelled, "ES items=1 2.5");
    EXPECT_EQ(fed.model.recent()[1].comma, "ES,1,2.5");
}

TEST(Link_model, reports_an_unknown_frame_once) {
    Fed_model fed;
    testing::internal::CaptureStderr();
    fed.feed(build_frame("XY", "x"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "UNKNOWN XY\n");
    ASSERT_EQ(fed.model.recent().size(), 1U);
    EXPECT_THAT(fed.model.recent()[0].labelled, testing::StartsWith("XY ???:  58 59 30 30 32 78"));
    EXPECT_EQ(fed.model.recent()[0].comma, fed.model.recent()[0].labelled);
}

TEST(Link_model, counts_and_remembers_sentences) {
    Fed_model fed;
    fed.feed("$GPGGA,1*2D\r\n");
    fed.model.take_sentence("$GPGGA,1*2D", fed.now);
    fed.model.take_sentence("$GNRMC,1*3A", fed.now);
    fed.model.take_sentence("$", fed.now); // no sentence; has no effect
    ASSERT_EQ(fed.model.messages().size(), 1U);
    EXPECT_EQ(fed.model.messages()[0].identifier, Vesk_message::msg_id('$', 'G'));
    EXPECT_EQ(fed.model.messages()[0].count, 2U);
    EXPECT_EQ(fed.model.good_frames(), 0U);
    EXPECT_EQ(fed.model.recent()[0].labelled, "$GPGGA,1*2D");
    EXPECT_EQ(fed.model.recent()[1].comma, "$GNRMC,1*3A");
    EXPECT_EQ(fed.model.condition().state(fed.now), Link_state::sentences);
}

TEST(Link_model, decodes_errors) {
    Fed_model fed;
    fed.feed(reply_text("RE", "{ok}") + reply_text("ER", "%1%{1,wrong command}") + reply_text("ER", "{99,nonsense}"));
    ASSERT_EQ(fed.model.replies().size(), 3U);
    EXPECT_EQ(fed.model.replies()[0].error, std::nullopt);
    EXPECT_EQ(fed.model.replies()[1].text, "ER015%1%{1,wrong command}");
    EXPECT_EQ(fed.model.replies()[1].error, 1);
    EXPECT_EQ(fed.model.replies()[2].error, -1);
    EXPECT_EQ(fed.model.condition().state(fed.now), Link_state::good);
}

TEST(Link_model, clearing_resets_counts_and_keeps_the_receivers_values) {
    Received_epochs receiver;
    Fed_model fed;
    fed.feed(receiver.next_bytes() + "noise\n" + reply_text("RE", "{ok}"));
    fed.now = fed.now + 500;
    fed.model.clear(fed.now);
    EXPECT_EQ(fed.model.arrived(), 0U);
    EXPECT_EQ(fed.model.account().total(), 0U);
    EXPECT_EQ(fed.model.good_frames(), 0U);
    EXPECT_TRUE(fed.model.messages().empty());
    EXPECT_TRUE(fed.model.recent().empty());
    EXPECT_TRUE(fed.model.replies().empty());
    EXPECT_EQ(fed.model.scatter().spread().positions, 0U);
    EXPECT_TRUE(fed.model.position());
    EXPECT_FALSE(fed.model.satellites().empty());
    EXPECT_EQ(fed.model.condition().state(fed.now), Link_state::good);
    fed.feed(time_frame);
    EXPECT_EQ(fed.model.arrived(), time_frame.size());
    EXPECT_EQ(fed.model.account().frames, time_frame.size());
    EXPECT_EQ(fed.model.messages()[0].count, 1U);
}

TEST(Link_model, a_copy_does_not_change) {
    Fed_model fed;
    fed.feed(time_frame);
    const Link_model snapshot = fed.model;
    fed.feed(time_frame);
    EXPECT_EQ(snapshot.good_frames(), 1U);
    EXPECT_EQ(fed.model.good_frames(), 2U);
}
