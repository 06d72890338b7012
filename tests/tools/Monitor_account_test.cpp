// The account of bytes: the number of received bytes is the number of sent ones, and the sum of all kinds.

#include "monitored_link.h"

#include <support/builders/Frame_builder.h>
#include <support/builders/Receiver_traffic.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/files/descriptors.h>

#include <algorithm>
#include <numeric>
#include <thread>

namespace {

const std::string frame = build_frame("||", "");              // 7 bytes with its line end
const std::string time_frame = build_frame("~~", "\1\2\3\4"); // 11 bytes

Monitor::Options quiet() {
    Monitor::Options options;
    options.quiet = true;
    return options;
}

void expect_account(std::string_view bytes, const Account& expected) {
    const Account account = monitored(bytes, quiet()).account();
    EXPECT_EQ(account.arrived, bytes.size());
    EXPECT_EQ(account.arrived, account.sum());
    EXPECT_EQ(account.frames, expected.frames);
    EXPECT_EQ(account.replies, expected.replies);
    EXPECT_EQ(account.acknowledgements, expected.acknowledgements);
    EXPECT_EQ(account.noise, expected.noise);
    EXPECT_EQ(account.separators, expected.separators);
}

/// Frames, replies and acknowledgements that the summary lists.
std::uint64_t messages(const Monitored& link) {
    const Counts counts = link.counts();
    return std::accumulate(counts.begin(), counts.end(), link.account().acknowledgements,
                           [](std::uint64_t sum, const auto& count) { return sum + count.second; });
}

std::uint64_t lines(const std::string& text) {
    return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string random_traffic(Receiver_traffic& traffic, std::size_t size) {
    std::string bytes;
    while (bytes.size() < size)
        bytes += traffic.element();
    return bytes;
}

} // namespace

//                                                            frames, replies, acknowledgements, noise, separators

TEST(Monitor_account, of_a_silent_link_is_all_zeros) {
    expect_account("", {});
}

TEST(Monitor_account, frames_count_with_their_line_ends) {
    expect_account(frame + time_frame, {0, 18, 0, 0, 0, 0});
}

TEST(Monitor_account, bytes_between_frames_are_separators) {
    expect_account(frame + "\r\n" + std::string(3, '\0') + frame, {0, 14, 0, 0, 0, 5});
}

TEST(Monitor_account, replies_count_with_their_line_ends_and_without_appended_NULs) {
    expect_account("RE004done\r\n", {0, 0, 11, 0, 0, 0});
}

TEST(Monitor_account, acknowledgements_are_one_byte_each) {
    expect_account("\x06", {0, 0, 0, 1, 0, 0});
    expect_account(frame + "\x15", {0, 7, 0, 1, 0, 0});
}

TEST(Monitor_account, all_other_bytes_are_noise) {
    expect_account("noise\n" + frame + "noise\n", {0, 7, 0, 0, 12, 0});
}

TEST(Monitor_account, half_a_frame_at_the_end_is_noise) {
    expect_account(frame + time_frame.substr(0, 10), {0, 7, 0, 0, 10, 0});
    expect_account(frame.substr(0, 4), {0, 0, 0, 0, 4, 0});
    expect_account("noise without an end", {0, 0, 0, 0, 20, 0});
}

TEST(Monitor_account, frames_after_a_length_beyond_the_end_are_found) {
    const std::string claim = "PGFFEclaims much\n";
    const Monitored link = monitored(frame + claim + time_frame + "\n" + frame + "RE004done\n");
    EXPECT_EQ(link.output, "EE\nRT ms=67305985\nEE\nRE004done\n");
    EXPECT_EQ(link.account().noise, claim.size());
    EXPECT_EQ(link.account().separators, 1U);
    EXPECT_EQ(link.account().arrived, link.account().sum());
}

TEST(Monitor_account, frames_after_several_such_lengths_are_found) {
    const std::string claims = "PGFFEclaims much\nPVFFFclaims more\nREF00\n";
    const Monitored link = monitored(claims + frame + claims + time_frame + claims);
    EXPECT_EQ(link.output, "EE\nRT ms=67305985\n");
    EXPECT_EQ(link.account().noise, 3 * claims.size());
}

TEST(Monitor_account, the_last_byte_of_a_rest_is_no_acknowledgement) {
    for (const std::string rest : {"x\x06", "xyz\x06", "PG010\x06", "PG010bcdefg\x06", "RE00\x15"})
        expect_account(frame + rest, {0, 7, 0, 0, rest.size(), 0});
}

TEST(Monitor_account, an_acknowledgement_after_a_frame_at_the_end_is_one) {
    expect_account("PGFFE\n" + frame + "\x06", {0, 7, 0, 1, 6, 0});
}

TEST(Monitor_account, count_that_ends_the_run_excludes_buffered_bytes) {
    Monitor::Options options = quiet();
    options.count = 2;
    const Account account = monitored(frame + time_frame + frame + "noise", options).account();
    EXPECT_EQ(account.frames, 18U);
    EXPECT_EQ(account.arrived, 18U);
    EXPECT_EQ(account.sum(), 18U);
}

TEST(Monitor_account, count_that_ends_the_run_in_the_rest_excludes_buffered_bytes) {
    Monitor::Options options = quiet();
    options.count = 1;
    const Account account = monitored("PGFFE\n" + frame + frame, options).account();
    EXPECT_EQ(account.frames, 7U);
    EXPECT_EQ(account.noise, 6U);
    EXPECT_EQ(account.arrived, 13U);
}

TEST(Monitor_account, duration_that_ends_the_run_excludes_buffered_bytes) {
    Pipe pipe;
    write_all(pipe.writing(), frame + time_frame.substr(0, 10));
    Monitor::Options options = quiet();
    options.duration_ms = 20;
    const Account account = monitored_descriptor(pipe.reading(), options).account();
    EXPECT_EQ(account.arrived, 7U);
    EXPECT_EQ(account.sum(), 7U);
}

TEST(Monitor_account, adds_up_for_thousands_of_corrupted_streams) {
    const Captured_descriptor errors(STDERR_FILENO); // unknown identifiers
    Random random;
    Receiver_traffic traffic(random);
    for (int round = 0; round < 3000; ++round) {
        const std::string bytes = random_traffic(traffic, random.between(1, 700));
        const Monitored link = monitored(bytes);
        const Account account = link.account();
        ASSERT_EQ(account.arrived, bytes.size());
        ASSERT_EQ(account.sum(), bytes.size());
        ASSERT_EQ(messages(link), lines(link.output)) << "one line each";
    }
}

TEST(Monitor_account, adds_up_for_streams_that_arrive_in_pieces) {
    const Captured_descriptor errors(STDERR_FILENO);
    Random random;
    Receiver_traffic traffic(random);
    for (int round = 0; round < 100; ++round) {
        const std::string bytes = random_traffic(traffic, 5000);
        Pipe pipe;
        std::thread sender([&] {
            for (std::size_t done = 0; done < bytes.size();) {
                const std::string piece = bytes.substr(done, random.between(1, 100));
                write_all(pipe.writing(), piece);
                done += piece.size();
            }
            pipe.close_writing();
        });
        const Account account = monitored_descriptor(pipe.reading(), quiet()).account();
        sender.join();
        ASSERT_EQ(account.arrived, bytes.size());
        ASSERT_EQ(account.sum(), bytes.size());
    }
}

TEST(Monitor_account, adds_up_at_every_count) {
    Random random;
    Receiver_traffic traffic(random);
    const std::string bytes = random_traffic(traffic, 6000);
    const Monitored whole = monitored(bytes, quiet());
    ASSERT_GT(whole.good_frames, 30U);
    for (std::uint64_t count = 1; count <= whole.good_frames; ++count) {
        Monitor::Options options = quiet();
        options.count = count;
        const Monitored link = monitored(bytes, options);
        ASSERT_EQ(link.good_frames, count);
        ASSERT_EQ(link.account().arrived, link.account().sum());
        ASSERT_LE(link.account().arrived, bytes.size());
    }
}
