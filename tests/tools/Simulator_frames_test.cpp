// The simulated receiver's bytes: which frames, in which order, complete, repeatable.

#include "simulated_epochs.h"

#include <support/builders/Frame_builder.h>

#include <map>
#include <set>

namespace {

using simulator::Simulated_receiver;
using simulator::Sky;
using Options = Simulated_receiver::Options;

const std::vector<std::string> order = {"~~", "GT", "NT", "RD", "PG", "SG", "PV", "DP", "PS", "ST",
                                        "SI", "NN", "EL", "AZ", "SS", "TC", "EC", "E1", "E2", "||"};

Options with_seed(std::uint32_t seed) {
    Options options;
    options.seed = seed;
    return options;
}

bool is_almanac(const Simulated_frame& frame) {
    return frame.id() == "GA" || frame.id() == "NA";
}

} // namespace

TEST(Simulator_frames, same_seed_gives_same_bytes) {
    Options options = with_seed(7);
    options.noise = 0.3;
    options.corrupt = 0.3;
    Received_epochs one(options);
    Received_epochs another(options);
    EXPECT_TRUE(one.next_bytes(200) == another.next_bytes(200));
}

TEST(Simulator_frames, other_seed_gives_other_bytes) {
    EXPECT_FALSE(Received_epochs(with_seed(1)).next_bytes() == Received_epochs(with_seed(2)).next_bytes());
}

TEST(Simulator_frames, every_epoch_holds_every_message_once_in_order) {
    Received_epochs receiver;
    for (int i = 0; i < 300; ++i) {
        std::vector<std::string> ids;
        Simulated_epoch epoch = receiver.next();
        for (const Simulated_frame& frame : epoch.frames())
            if (!is_almanac(frame))
                ids.push_back(frame.id());
        ASSERT_EQ(ids, order) << "epoch " << i;
    }
}

TEST(Simulator_frames, every_frame_has_its_checksum) {
    Received_epochs receiver;
    for (const Simulated_frame& frame : frames_of(receiver.next_bytes(300))) {
        const std::string_view bytes = frame.bytes;
        ASSERT_EQ(static_cast<unsigned char>(bytes.back()), frame_checksum(bytes.substr(0, bytes.size() - 1)))
            << frame.id();
    }
}

TEST(Simulator_frames, bodies_have_the_lengths_of_their_messages) {
    Simulated_epoch epoch = Received_epochs().next();
    const std::size_t n = epoch.satellites();
    const std::map<std::string, std::size_t> lengths = {
        {"~~", 5},         {"GT", 7},     {"NT", 7},     {"RD", 6},     {"PG", 30},    {"SG", 18},
        {"PV", 46},        {"DP", 14},    {"PS", 9},     {"ST", 6},     {"GA", 47},    {"NA", 46},
        {"||", 1},         {"SI", n + 1}, {"NN", n + 1}, {"EL", n + 1}, {"AZ", n + 1}, {"SS", n + 2},
        {"TC", 2 * n + 1}, {"EC", n + 1}, {"E1", n + 1}, {"E2", n + 1}};
    for (const Simulated_frame& frame : epoch.frames())
        EXPECT_EQ(frame.bytes.size() - 5, lengths.at(frame.id())) << frame.id();
}

TEST(Simulator_frames, almanacs_of_all_satellites_are_sent_within_108_epochs) {
    static_assert(Simulated_receiver::epochs_per_almanac * Sky::satellites == 108);
    Received_epochs receiver;
    for (int round = 0; round < 3; ++round) {
        std::multiset<int> first;
        std::multiset<int> second;
        for (int i = 0; i < 108; ++i) {
            Simulated_epoch epoch = receiver.next();
            if (epoch.has("GA"))
                first.insert(epoch.get<GNSS_messages::Msg_GA>().get_sv());
            if (epoch.has("NA"))
                second.insert(epoch.get<GNSS_messages::Msg_NA>().get_sv());
        }
        std::multiset<int> first_expected;
        std::multiset<int> second_expected;
        for (int sv = 1; sv <= 30; ++sv)
            first_expected.insert(sv);
        for (int sv = 1; sv <= 24; ++sv)
            second_expected.insert(sv);
        EXPECT_EQ(first, first_expected) << "round " << round;
        EXPECT_EQ(second, second_expected) << "round " << round;
    }
}

TEST(Simulator_frames, almanacs_are_sent_one_at_a_time_before_the_end_of_the_epoch) {
    Received_epochs receiver;
    for (int i = 0; i < 108; ++i) {
        Simulated_epoch epoch = receiver.next();
        const std::vector<Simulated_frame>& frames = epoch.frames();
        ASSERT_EQ(std::count_if(frames.begin(), frames.end(), is_almanac), i % 2 == 0 ? 1 : 0);
        EXPECT_EQ(is_almanac(frames[frames.size() - 2]), i % 2 == 0);
    }
}

TEST(Simulator_frames, crlf_changes_the_line_ends_and_nothing_else) {
    Options options;
    options.crlf = true;
    const std::vector<Simulated_frame> with_crlf = frames_of(Received_epochs(options).next_bytes(50), "\r\n");
    const std::vector<Simulated_frame> with_lf = frames_of(Received_epochs().next_bytes(50));
    ASSERT_EQ(with_crlf.size(), with_lf.size());
    for (std::size_t i = 0; i < with_lf.size(); ++i)
        EXPECT_EQ(with_crlf[i].bytes, with_lf[i].bytes);
}

TEST(Simulator_frames, bytes_of_an_epoch_never_exceed_the_reserved_capacity) {
    Options options = epochs_every(60000);
    options.noise = 1;
    options.crlf = true;
    Simulated_receiver receiver(options);
    for (int i = 0; i < 1440; ++i)
        ASSERT_EQ(receiver.next_epoch().capacity(), simulator::Frame_line::capacity);
}
