// Bytes through every kind of stream, both ways at once: with the kind's natural peer and with socat, with every other
// kind, and while the system interrupts calls and moves fewer bytes than requested.

#include <support/builders/Random.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Signal_storm.h>
#include <support/streams/Channels.h>
#include <support/streams/Transfer.h>

#include <relay/Relay_direction.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace {

constexpr std::size_t mebibyte = 1 << 20;

// Bytes that are sent each way.
constexpr std::size_t through_a_kind = 8 * mebibyte;
constexpr std::size_t through_two_kinds = mebibyte / 4; // there are many pairs
constexpr std::size_t in_a_storm = 2 * mebibyte;

/// Sends both ways at the same time; through a channel that echoes, in one transfer.
void expect_carries(Stream_end& one, Stream_end& other, std::size_t amount) {
    Random random;
    Transfer there(one, other, amount, random);
    if (&one != &other) {
        Transfer back(other, one, amount, random);
        EXPECT_TRUE(back.arrived()) << "from the far end";
    }
    EXPECT_TRUE(there.arrived()) << "from the near end";
}

struct Channel_test : testing::TestWithParam<Channel_kind> {
    Channel_test() { std::signal(SIGPIPE, SIG_IGN); }
};

constexpr auto name_of_kind = [](const auto& test) { return std::string(test.param.name); };

// ---- Each kind ----

using Every_channel = Channel_test;

TEST_P(Every_channel, carries_8_mebibytes_each_way_at_once) {
    const Channel channel = GetParam().make();
    expect_carries(*channel.near_end, channel.other_end(), through_a_kind);
}

INSTANTIATE_TEST_SUITE_P(Channels, Every_channel, testing::ValuesIn(channel_kinds()), name_of_kind);

// ---- Every kind connected with every kind ----

/// Forwards the bytes that each of two ends receives to the other, in threads: as the relay does when both streams
/// receive by themselves, otherwise with the ends' own reading and writing.
class Connection {
  public:
    Connection(Stream_end& one, Stream_end& other) : one_(one), other_(other) {
        if (one.receiving_stream() && other.receiving_stream()) {
            threads_[0] = std::thread([this] { relay(); });
        } else {
            threads_[0] = std::thread([this] { forward(one_, other_); });
            threads_[1] = std::thread([this] { forward(other_, one_); });
        }
    }
    ~Connection() {
        over_ = true;
        for (std::thread& thread : threads_)
            if (thread.joinable())
                thread.join();
    }

  private:
    void relay() {
        const auto there = std::make_unique<Relay_direction>(*one_.receiving_stream(), *other_.receiving_stream());
        const auto back = std::make_unique<Relay_direction>(*other_.receiving_stream(), *one_.receiving_stream());
        while (!over_) {
            const bool moved_there = there->move();
            const bool moved_back = back->move();
            if (!moved_there && !moved_back)
                Atime::delay(1);
        }
    }

    void forward(Stream_end& from, Stream_end& to) {
        std::array<unsigned char, 4096> piece;
        const std::size_t longest = std::min<std::size_t>(piece.size(), to.manners().longest_piece);
        while (!over_) {
            const std::size_t count = from.read(piece.data(), longest);
            if (count == 0)
                from.wait_for_bytes();
            for (std::size_t written = 0; written < count && !over_;) {
                const std::size_t accepted = to.write(piece.data() + written, count - written);
                written += accepted;
                if (accepted == 0)
                    to.wait_for_free_space();
            }
        }
    }

    Stream_end& one_;
    Stream_end& other_;
    std::atomic<bool> over_{false};
    std::thread threads_[2];
};

using Two_kinds = std::tuple<Channel_kind, Channel_kind>;

/// Two channels whose near ends are connected: the bytes that one far end writes are read from the other.
struct Connected_channels : testing::TestWithParam<Two_kinds> {
    Connected_channels() { std::signal(SIGPIPE, SIG_IGN); }
};

TEST_P(Connected_channels, carry_bytes_each_way_at_once) {
    const Channel one = std::get<0>(GetParam()).make();
    const Channel other = std::get<1>(GetParam()).make();
    const Connection connection(*one.near_end, *other.near_end);
    expect_carries(*one.far_end, *other.far_end, through_two_kinds);
}

std::vector<Two_kinds> pairs_of_kinds() {
    const auto kinds = channel_kinds([](const Channel_kind& kind) { return kind.role == Channel_kind::joined; });
    std::vector<Two_kinds> pairs;
    for (auto one = kinds.begin(); one != kinds.end(); ++one)
        for (auto other = one; other != kinds.end(); ++other)
            pairs.emplace_back(*one, *other);
    return pairs;
}

INSTANTIATE_TEST_SUITE_P(Channels, Connected_channels, testing::ValuesIn(pairs_of_kinds()), [](const auto& test) {
    return std::string(std::get<0>(test.param).name) + "__" + std::get<1>(test.param).name;
});

// ---- In a storm ----

/// Makes calls move a random number of bytes, from 1 to all that were requested.
class Short_calls {
  public:
    Short_calls() {
        calls_.size_to_read = calls_.size_to_write = [this](std::size_t size) { return cut(size); };
    }
    unsigned count() const { return count_; }

  private:
    std::size_t cut(std::size_t size) {
        constexpr std::size_t size_of_counter = 8; // of an event descriptor, which is written and read whole
        thread_local std::mt19937 random(static_cast<unsigned>(gettid()));
        const std::size_t rest = size <= size_of_counter ? size : 1 + random() % size;
        if (rest < size)
            ++count_;
        return rest;
    }

    std::atomic<unsigned> count_{0};
    Replaced_calls calls_;
};

using Stormy_channel = Channel_test;

TEST_P(Stormy_channel, loses_nothing_when_calls_are_interrupted_and_move_less_than_requested) {
    const Captured_descriptor reports(STDERR_FILENO); // of interrupted waits
    const Short_calls short_calls;
    const Channel channel = GetParam().make();
    const Signal_storm storm;
    expect_carries(*channel.near_end, channel.other_end(), in_a_storm);
    EXPECT_EQ(reports.text().find("CLIENT TOO SLOW"), std::string::npos) << "the test did not read for half a second";
    EXPECT_GT(storm.count(), 20U);
    // Bytes that never leave the process make no call.
    EXPECT_TRUE(short_calls.count() > 0 || GetParam().name == std::string("virtual_pair"));
}

INSTANTIATE_TEST_SUITE_P(Channels, Stormy_channel, testing::ValuesIn(channel_kinds([](const Channel_kind& kind) {
                             return kind.stability == Channel_kind::stable;
                         })),
                         name_of_kind);

} // namespace
