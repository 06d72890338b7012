// NMEA sentences that a receiver sends between its frames.

#include "monitored_link.h"

#include <glue/vesk/NMEA_messages.h>

#include <support/builders/Frame_builder.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/files/descriptors.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;

const std::string frame = build_frame("~~", le(std::uint32_t{1}));
const std::string position = "$GPGGA,123519,4807.038,S,01131.000,W,1,08,0.9,545.4,M,46.9,M,,*48\r\n";
const std::string track = "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48\r\n";
const std::string position_line = "    GGA lat=-48.1173000000 lon=-11.5166666667 alt=545.400m fix=1 sats=8 hdop=0.9\n";

Monitor::Options options_with(bool labelled, bool quiet = false) {
    Monitor::Options options;
    options.labelled = labelled;
    options.quiet = quiet;
    return options;
}

std::string rest_of_summary(const Monitored& link) {
    return Summary(link.summary).rest;
}

} // namespace

TEST(Monitor_sentences, position_is_a_line) {
    EXPECT_EQ(monitored(frame + position + frame).output, "RT ms=1\n" + position_line + "RT ms=1\n");
    EXPECT_EQ(monitored(position, options_with(false)).output,
              "    GGA,-48.1173000000,-11.5166666667,545.400,1,8,0.9\n");
}

TEST(Monitor_sentences, other_sentences_are_counted_and_not_shown) {
    const Monitored link = monitored(frame + track + position + frame + track);
    EXPECT_EQ(link.output, "RT ms=1\n" + position_line + "RT ms=1\n");
    EXPECT_EQ(rest_of_summary(link), "NMEA sentences: 3 good, 0 bad checksums: GPVTG 2, GPGGA 1\n"
                                     "  147 bytes without their line ends, all of them noise in the account above\n");
}

TEST(Monitor_sentences, sentence_with_a_frame_in_it_is_none) {
    bool split_by_frame = false; // only where the parser cuts noise that is too long
    for (std::size_t noise = 0; noise <= 5000; ++noise) {
        const std::string half = std::string(noise, 'x') + position.substr(0, 20);
        const Monitored link = monitored(half + frame + position.substr(20) + frame);
        if (link.good_frames == 1)
            continue;
        split_by_frame = true;
        EXPECT_EQ(link.output, "RT ms=1\nRT ms=1\n") << noise;
    }
    EXPECT_TRUE(split_by_frame);
}

TEST(Monitor_sentences, bad_checksums_are_counted_and_not_printed) {
    const Captured_descriptor errors(STDERR_FILENO);
    std::string bad = position;
    bad[10] = '9';
    const Monitored link = monitored(frame + bad + "$GPGGA,no,checksum\r\n" + position);
    EXPECT_EQ(link.output, "RT ms=1\n" + position_line);
    EXPECT_THAT(link.summary, HasSubstr("NMEA sentences: 1 good, 2 bad checksums: GPGGA 1\n"));
    EXPECT_EQ(errors.text(), "");
    EXPECT_THAT(monitored(bad).summary, HasSubstr("NMEA sentences: 0 good, 1 bad checksum\n"));
}

TEST(Monitor_sentences, are_noise_in_the_account) {
    const Account account = monitored(frame + position + track + frame).account();
    EXPECT_EQ(account.noise, position.size() + track.size());
    EXPECT_EQ(account.arrived, account.sum());
}

TEST(Monitor_sentences, last_one_without_a_line_end_is_counted) {
    const std::string whole = position.substr(0, position.size() - 2);
    for (const std::string& before : {std::string(), frame, track, std::string(4170, '!') + "\n"}) {
        const Monitored link = monitored(before + whole);
        EXPECT_THAT(link.output, testing::EndsWith(position_line));
        EXPECT_THAT(link.summary, HasSubstr("GPGGA 1\n"));
        EXPECT_EQ(link.account().noise + link.account().frames + link.account().separators,
                  before.size() + whole.size());
        EXPECT_EQ(link.account().arrived, link.account().sum());
    }
}

TEST(Monitor_sentences, last_one_that_is_cut_is_bad) {
    for (std::size_t size = sizeof "$GPGGA"; size < position.size() - 2; ++size) {
        const Monitored link = monitored(frame + position.substr(0, size));
        EXPECT_EQ(rest_of_summary(link),
                  "NMEA sentences: 0 good, 1 bad checksum\n  " + std::to_string(size) +
                      " bytes without their line ends, all of them noise in the account above\n");
        EXPECT_EQ(link.account().arrived, link.account().sum());
    }
}

TEST(Monitor_sentences, last_one_after_a_damaged_length_is_counted) {
    const std::string claims_too_much = "PGFFF";
    const Monitored link = monitored(frame + claims_too_much + position.substr(0, position.size() - 2));
    EXPECT_EQ(link.output, "RT ms=1\n" + position_line);
    EXPECT_EQ(link.account().arrived, link.account().sum());
}

TEST(Monitor_sentences, are_not_mentioned_when_there_were_none) {
    EXPECT_EQ(rest_of_summary(monitored(frame + "noise, $ 5\n")), "");
}

TEST(Monitor_sentences, are_counted_when_quiet) {
    const Monitored link = monitored(position, options_with(true, true));
    EXPECT_EQ(link.output, "");
    EXPECT_THAT(link.summary, HasSubstr("GPGGA 1\n"));
}

TEST(Monitor_sentences, are_found_after_rubbish) {
    EXPECT_EQ(monitored(frame + "\x01\x02!!" + position).output, "RT ms=1\n" + position_line);
    EXPECT_EQ(monitored(std::string(4170, '!') + position + frame).output, position_line + "RT ms=1\n")
        << "the parser cuts noise where it is longer than 4190 bytes";
}

TEST(Monitor_sentences, are_found_however_they_arrive) {
    for (const std::size_t size : {1U, 2U, 7U, 60U}) {
        Pipe pipe;
        const std::string bytes = frame + position + frame + track + position;
        std::thread sender([&] {
            for (std::size_t done = 0; done < bytes.size(); done += size) {
                write_all(pipe.writing(), bytes.substr(done, size));
                while (bytes_ready(pipe.reading()) > 0)
                    std::this_thread::yield();
            }
            pipe.close_writing();
        });
        const Monitored link = monitored_descriptor(pipe.reading());
        sender.join();
        EXPECT_THAT(link.summary, HasSubstr("NMEA sentences: 3 good, 0 bad checksums: GPGGA 2, GPVTG 1\n")) << size;
    }
}
