// Properties of the parser over long streams: cut anywhere, damaged anywhere, hostile.

#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Packets.h>
#include <support/builders/Random.h>
#include <support/builders/Receiver_traffic.h>
#include <support/fakes/Scripted_stream.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <vector>

namespace {

constexpr unsigned longest_claim = 4101; // a frame of length FFF with its terminator

/// The packets of a stream that is received in pieces; the last piece size repeats.
struct Parsing {
    std::vector<Packet> packets;
    std::string left; ///< still in the stream at the end
    Vesk_parser::Byte_counts counts;
};

Parsing parse_in_pieces(const std::string& bytes, const std::vector<std::size_t>& pieces) {
    Parsing result;
    Scripted_stream stream;
    Vesk_parser parser(&stream, false);
    std::vector<unsigned char> buffer(Vesk_parser::largest_packet);
    std::size_t done = 0;
    for (std::size_t i = 0; done < bytes.size(); ++i) {
        const std::size_t wanted = pieces[std::min(i, pieces.size() - 1)];
        const std::size_t free_space = Data_stream::rx_capacity - stream.bytes_avail();
        const std::size_t count = std::min({wanted, free_space, bytes.size() - done});
        stream.receive(std::string_view(bytes).substr(done, count));
        done += count;
        int len = 0;
        while (const int kind = parser.get_packet(buffer.data(), static_cast<int>(buffer.size()), len)) {
            // Adjacent pieces of noise are joined: a line end that is received after the other bytes of its run is a
            // piece of its own.
            if (kind == Vesk_parser::noise && !result.packets.empty() && result.packets.back().kind == kind)
                result.packets.back().bytes.append(buffer.begin(), buffer.begin() + len);
            else
                result.packets.push_back({kind, std::string(buffer.begin(), buffer.begin() + len)});
        }
    }
    result.left = stream.buffered();
    result.counts = parser.get_byte_counts();
    return result;
}

Parsing parse_whole(const std::string& bytes) {
    return parse_in_pieces(bytes, {Data_stream::rx_capacity});
}

/// Good frames: those whose checksum is right.
std::vector<std::string> good_frames(const Parsing& parsing) {
    std::vector<std::string> frames;
    for (const Packet& packet : parsing.packets) {
        std::string copy = packet.bytes;
        const Vesk_message message(reinterpret_cast<unsigned char*>(copy.data()), static_cast<unsigned>(copy.size()));
        if (packet.kind == Vesk_parser::frame && message.check_checksum())
            frames.push_back(packet.bytes);
    }
    return frames;
}

/// Replaces the two bytes that are acknowledgements when no other byte is buffered.
void remove_acknowledgements(std::string& bytes) {
    std::replace(bytes.begin(), bytes.end(), '\x06', '\x05');
    std::replace(bytes.begin(), bytes.end(), '\x15', '\x14');
}

TEST(Vesk_parser_streams, give_the_same_packets_when_they_are_cut_anywhere) {
    // On purpose a 0x06 or 0x15 is an acknowledgement when it is the only buffered byte and noise otherwise, which
    // depends on the cut. So the bytes here contain neither. See the next test.
    Random random;
    Receiver_traffic traffic(random);
    for (int round = 0; round < 60; ++round) {
        std::string bytes;
        while (bytes.size() < 3000)
            bytes += traffic.element();
        bytes += unterminated_frame("RD", "date") + "\n"; // the rest of a line end alone would wait for more bytes
        remove_acknowledgements(bytes);

        const Parsing whole = parse_whole(bytes);
        std::vector<std::size_t> at_random(300);
        std::generate(at_random.begin(), at_random.end(), [&] { return random.between(1, 50); });
        for (const std::vector<std::size_t>& pieces : {std::vector<std::size_t>{1}, {2}, {3}, {7}, {97}, at_random}) {
            const Parsing cut = parse_in_pieces(bytes, pieces);
            const auto [in_whole, in_cut] =
                std::mismatch(whole.packets.begin(), whole.packets.end(), cut.packets.begin(), cut.packets.end());
            ASSERT_TRUE(in_whole == whole.packets.end() && in_cut == cut.packets.end())
                << "pieces of " << pieces[0] << ": packet " << in_whole - whole.packets.begin() << " is "
                << (in_cut == cut.packets.end() ? "missing" : testing::PrintToString(*in_cut)) << ", of the whole "
                << (in_whole == whole.packets.end() ? "missing" : testing::PrintToString(*in_whole));
            ASSERT_EQ(cut.left, whole.left);
            ASSERT_EQ(cut.counts.separators, whole.counts.separators);
            ASSERT_EQ(cut.counts.noise, whole.counts.noise);
        }
    }
}

TEST(Vesk_parser_streams, acknowledgement_is_recognised_only_when_it_arrives_alone) {
    const std::string bytes = "\x06" + unterminated_frame("PG", "position") + "\n";
    EXPECT_EQ(parse_in_pieces(bytes, {1, 100}).packets,
              (std::vector<Packet>{{Vesk_parser::acknowledgement, "\x06"}, {Vesk_parser::frame, bytes.substr(1)}}));
    EXPECT_EQ(parse_whole(bytes).packets, (std::vector<Packet>{{Vesk_parser::noise, bytes}}));
}

TEST(Vesk_parser_streams, every_byte_is_accounted_for) {
    Random random;
    Receiver_traffic traffic(random);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes;
        while (bytes.size() < 500)
            bytes += traffic.element();
        const Parsing parsing = parse_in_pieces(bytes, {random.between(1, 60)});
        ASSERT_EQ(parsing.counts.total() + parsing.left.size(), bytes.size());

        std::size_t reported[5] = {};
        for (const Packet& packet : parsing.packets)
            reported[packet.kind] += packet.bytes.size();
        ASSERT_EQ(parsing.counts.frames, reported[Vesk_parser::frame]);
        ASSERT_EQ(parsing.counts.acknowledgements, reported[Vesk_parser::acknowledgement]);
        ASSERT_GE(parsing.counts.noise, reported[Vesk_parser::noise]);
    }
}

/// A stream of good frames of which one, the victim, is damaged. The frames after it have more bytes than the longest
/// length can claim.
struct Damage_test : testing::Test {
    static constexpr std::size_t before = 3;
    static constexpr std::size_t after = 160;
    static constexpr unsigned frame_size = 32;

    /// Each body begins with `first`. Bodies hold no line ends.
    void build(const std::string& first) {
        frames.clear();
        for (std::size_t i = 0; i < before + 1 + after; ++i) {
            std::string frame;
            do {
                std::string body = first;
                while (body.size() < frame_size - 7)
                    body += static_cast<char>(random.byte());
                frame = unterminated_frame("PG", body);
            } while (frame.find_first_of("\r\n") != std::string::npos);
            frames.push_back(frame + "\n");
        }
    }
    std::string bytes_with_victim(const std::string& victim) const {
        const std::string none;
        const auto middle = frames.begin() + before;
        return std::accumulate(frames.begin(), middle, none) + victim + std::accumulate(middle + 1, frames.end(), none);
    }
    /// The number of frames after the victim that are lost; all frames before it must be delivered.
    std::size_t lost_after(const std::string& victim) const {
        const std::vector<std::string> good = good_frames(parse_in_pieces(bytes_with_victim(victim), {500}));
        for (std::size_t i = 0; i < before; ++i)
            EXPECT_EQ(good.at(i), frames[i]);
        std::size_t recovered = 0;
        while (recovered < std::min(after, good.size() - before) &&
               good[good.size() - 1 - recovered] == frames[frames.size() - 1 - recovered])
            ++recovered;
        return after - recovered;
    }
    template <typename Check>
    void for_every_damage(Check check) const {
        const std::string& whole = frames[before];
        for (std::size_t offset = 0; offset < whole.size(); ++offset) {
            for (int value = 0; value < 256; ++value) {
                std::string changed = whole;
                changed[offset] = static_cast<char>(value);
                check(offset, changed);
            }
            check(offset, std::string(whole).erase(offset, 1));
            check(offset, std::string(whole).insert(offset, 1, whole[offset]));
        }
    }

    Random random;
    std::vector<std::string> frames;
};

TEST_F(Damage_test, outside_the_length_costs_the_frame_and_at_most_the_next) {
    build("\xF0"); // not a hexadecimal digit: a header read one byte late is bad
    for_every_damage([this](std::size_t offset, const std::string& victim) {
        const bool in_length = offset >= 2 && offset <= 4;
        ASSERT_TRUE(in_length || lost_after(victim) <= 1) << "at " << offset << testing::PrintToString(victim);
    });
}

TEST_F(Damage_test, of_any_kind_costs_no_more_frames_than_the_longest_claim_covers) {
    build("");
    std::size_t worst = 0;
    for_every_damage([&](std::size_t, const std::string& victim) { worst = std::max(worst, lost_after(victim)); });
    EXPECT_LE(worst, longest_claim / frame_size + 1);
    std::cout << "most frames lost after a damaged byte: " << worst << std::endl;
}

TEST(Vesk_parser_streams, hostile_lengths_do_not_stop_the_parser) {
    const std::string good = unterminated_frame("RD", "date") + "\n";
    for (const std::string digits :
         {"000", "FFF", "fff", "FfF", "-01", "+01", " 01", "1 1", "0x1", "1e1", "...", "@@@", "\xFF\xFF\xFF"}) {
        std::string bytes = "PG" + digits + "abc\n";
        while (bytes.size() < longest_claim + 300)
            bytes += good;
        const Parsing parsing = parse_in_pieces(bytes, {64});
        ASSERT_FALSE(parsing.packets.empty()) << digits;
        EXPECT_EQ(parsing.packets.back(), (Packet{Vesk_parser::frame, good})) << digits;
        EXPECT_EQ(parsing.left, "") << digits;
    }
}

TEST(Vesk_parser_streams, random_bytes_do_not_stop_the_parser) {
    Random random;
    for (int round = 0; round < 200; ++round) {
        const std::string bytes = random.bytes(9000);
        const Parsing parsing = parse_in_pieces(bytes, {random.between(1, 2000)});
        ASSERT_EQ(parsing.counts.total() + parsing.left.size(), bytes.size());
        ASSERT_LT(parsing.left.size(), Data_stream::rx_capacity);
    }
}

TEST(Vesk_parser_streams, buffers_of_every_size_are_not_exceeded) {
    Random random;
    Receiver_traffic traffic(random);
    for (int round = 0; round < 500; ++round) {
        Scripted_stream stream;
        Vesk_parser parser(&stream, false);
        parser.set_terminated(!random.one_in(4));
        parser.set_keep_on_error(random.one_in(4));
        std::string bytes;
        while (bytes.size() < 1000)
            bytes += traffic.element();
        stream.receive(bytes);
        for (int call = 0; call < 300; ++call) {
            const unsigned size = random.between(0, 80);
            std::vector<unsigned char> buffer(size);
            int len = 0;
            if (parser.get_packet(buffer.data(), static_cast<int>(size), len) == Vesk_parser::nothing)
                break;
            ASSERT_LE(len, static_cast<int>(size));
        }
    }
}

} // namespace
