// The monitor without its command line. Its account of the bytes: Monitor_account_test.cpp.

#include "monitored_link.h"
#include "much_to_print.h"

#include <support/builders/Frame_builder.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/descriptors.h>
#include <support/processes/processes.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::int64_t short_while_ms = 50;

std::string time_frame(std::uint32_t ms) {
    return build_frame("~~", le(ms));
}

std::string wrong_checksum(std::string frame) {
    frame[frame.size() - 2] = static_cast<char>(frame[frame.size() - 2] ^ 1);
    return frame;
}

Monitor::Options options_with(bool labelled, bool quiet = false) {
    Monitor::Options options;
    options.labelled = labelled;
    options.quiet = quiet;
    return options;
}

Monitor::Options count_of(std::uint64_t count) {
    Monitor::Options options;
    options.count = count;
    return options;
}

Monitor::Options duration_of(std::int64_t ms) {
    Monitor::Options options;
    options.duration_ms = ms;
    return options;
}

std::string hex_of(char byte) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    return digits;
}

/// A pipe that a thread fills with frames without end.
class Endless_sender {
  public:
    Endless_sender() : thread_([this] { send(); }) {}
    ~Endless_sender() {
        stop_ = true;
        pipe_.drain();
        thread_.join();
    }

    int reading() const { return pipe_.reading(); }

  private:
    void send() {
        make_non_blocking(pipe_.writing());
        const std::string frames = time_frame(1) + time_frame(2);
        while (!stop_) {
            constexpr int limit_ms = 100; // to notice the end
            pollfd end{pipe_.writing(), POLLOUT, 0};
            if (poll(&end, 1, limit_ms) > 0) [[maybe_unused]]
                const ssize_t written = write(pipe_.writing(), frames.data(), frames.size());
        }
    }

    Pipe pipe_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace

// ---- Lines ----

TEST(Monitor, prints_a_frame_labelled_or_with_commas) {
    EXPECT_EQ(monitored(time_frame(1234), options_with(true)).output, "RT ms=1234\n");
    EXPECT_EQ(monitored(time_frame(1234), options_with(false)).output, "RT,1234\n");
}

TEST(Monitor, prints_frames_in_the_order_of_their_arrival) {
    EXPECT_EQ(monitored(time_frame(1) + build_frame("||", "") + time_frame(2)).output, "RT ms=1\nEE\nRT ms=2\n");
}

TEST(Monitor, prints_a_text_frame_checksum_included) {
    const std::string text_frame = build_frame("NP", "text@", Checksum::text, "");
    EXPECT_EQ(monitored(text_frame + "\n").output, text_frame + "\n");
}

TEST(Monitor, prints_replies_without_their_line_end) {
    EXPECT_EQ(monitored("RE004done\r\nER005%3%no\n").output, "RE004done\nER005%3%no\n");
}

TEST(Monitor, prints_acknowledgements_and_refusals) {
    EXPECT_EQ(monitored("\x06").output, "acknowledged\n");
    EXPECT_EQ(monitored("\x15").output, "refused\n");
    EXPECT_EQ(monitored(time_frame(1) + "\x06").output, "RT ms=1\nacknowledged\n");
}

TEST(Monitor, prints_no_line_for_noise) {
    EXPECT_EQ(monitored("noise\n" + time_frame(1) + "more noise\n").output, "RT ms=1\n");
}

TEST(Monitor, counts_a_frame_whose_checksum_fails_and_prints_none_of_it) {
    const Monitored link = monitored(time_frame(1) + wrong_checksum(time_frame(2)) + time_frame(3));
    EXPECT_EQ(link.output, "RT ms=1\nRT ms=3\n");
    EXPECT_EQ(link.checksum_failures(), 1U);
    EXPECT_EQ(link.good_frames, 2U);
    EXPECT_EQ(link.account().frames, 33U) << "its bytes still count as a frame's";
}

TEST(Monitor, prints_an_unknown_frame_as_bytes) {
    const Captured_descriptor errors(STDERR_FILENO);
    const std::string frame = build_frame("XY", "a");
    EXPECT_EQ(monitored(frame).output, "XY ???:  58 59 30 30 32 61 " + hex_of(frame[6]) + " 0a\n");
    EXPECT_EQ(errors.text(), "UNKNOWN XY\n");
}

TEST(Monitor, prints_one_line_for_a_message_whatever_is_in_it) {
    EXPECT_EQ(monitored("RE007one\ttwo\r\nRE00Ebell\a \xff, CR\rCR\n").output, "RE007one.two\nRE00Ebell. ., CR.CR\n");
    const std::string text_frame = build_frame("DL", "red \x1b[31m\r\nor not@", Checksum::text, "");
    const std::string checksum = text_frame.substr(text_frame.size() - 2);
    EXPECT_EQ(monitored(text_frame + "\n").output, "DL014red .[31m..or not@" + checksum + "\n");
}

TEST(Monitor, leaves_the_report_of_a_short_list_to_the_printer) {
    const Captured_descriptor standard_output(STDOUT_FILENO);
    const Monitored link = monitored(build_frame("SS", ""));
    EXPECT_EQ(standard_output.text(), "SS message too short\n");
    EXPECT_EQ(link.output, "") << "without an empty line";
    EXPECT_EQ(link.good_frames, 1U);
}

TEST(Monitor, prints_the_longest_list_whole) {
    const std::string body(4094, '\x80');
    std::string line = "EL";
    for (std::size_t i = 0; i < body.size(); ++i)
        line += " -128";
    EXPECT_TRUE(monitored(build_frame("EL", body)).output == line + "\n");
}

TEST(Monitor, prints_nothing_when_quiet_but_counts) {
    const Captured_descriptor errors(STDERR_FILENO);
    const std::string bytes = time_frame(1) + build_frame("XY", "a") + "RE004done\n" + time_frame(2) + "\x06";
    const Monitored quiet = monitored(bytes, options_with(true, true));
    EXPECT_EQ(quiet.output, "");
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(quiet.counts(), monitored(bytes).counts());
    EXPECT_EQ(quiet.counts(), (Counts{{"~~", 2}, {"XY", 1}, {"RE", 1}}));
}

TEST(Monitor, prints_a_frame_as_soon_as_it_is_complete) {
    Pipe pipe;
    const Standard_input standard(pipe.reading());
    Pipe printed;
    std::FILE* const output = fdopen(printed.take_writing(), "w");
    const std::string frame = time_frame(7);
    write_all(pipe.writing(), frame + frame.substr(0, 5));
    std::thread user([&] {
        EXPECT_EQ(read_exactly(printed.reading(), 8), "RT ms=7\n");
        write_all(pipe.writing(), frame.substr(5));
        EXPECT_EQ(read_exactly(printed.reading(), 8), "RT ms=7\n");
        pipe.close_writing();
    });
    Receiver_input input;
    const Interrupt interrupt;
    EXPECT_EQ(Monitor({}, input, interrupt, output).run(), Monitor::End::input);
    user.join();
    std::fclose(output);
}

// ---- Ends ----

TEST(Monitor_ends, with_the_input) {
    const Monitored nothing = monitored("");
    EXPECT_EQ(nothing.end, Monitor::End::input);
    EXPECT_EQ(nothing.good_frames, 0U);
    EXPECT_EQ(monitored(time_frame(1)).end, Monitor::End::input);
}

TEST(Monitor_ends, after_so_many_good_frames) {
    const std::string bytes =
        time_frame(1) + "noise\n" + wrong_checksum(time_frame(2)) + "RE004done\n" + time_frame(3) + time_frame(4);
    const Monitored link = monitored(bytes, count_of(2));
    EXPECT_EQ(link.end, Monitor::End::count);
    EXPECT_EQ(link.output, "RT ms=1\nRE004done\nRT ms=3\n");
    EXPECT_EQ(link.good_frames, 2U);
}

TEST(Monitor_ends, with_the_input_when_it_has_fewer_frames_than_wanted) {
    EXPECT_EQ(monitored(time_frame(1), count_of(2)).end, Monitor::End::input);
}

TEST(Monitor_ends, after_the_duration_on_a_silent_link) {
    const Pipe silent;
    const Stopwatch stopwatch;
    EXPECT_EQ(monitored_descriptor(silent.reading(), duration_of(short_while_ms)).end, Monitor::End::duration);
    EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(short_while_ms));
}

TEST(Monitor_ends, after_the_duration_on_a_busy_link) {
    const Endless_sender sender;
    const Monitored link = monitored_descriptor(sender.reading(), duration_of(short_while_ms));
    EXPECT_EQ(link.end, Monitor::End::duration);
    EXPECT_GE(link.good_frames, 1U);
    EXPECT_THAT(link.summary, StartsWith("~~ "));
    EXPECT_THAT(link.summary, HasSubstr("/s\nbytes: ")) << "time has passed, so there is a rate";
}

TEST(Monitor_ends, at_an_interrupt) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Pipe pipe;
        write_all(pipe.writing(), time_frame(1));
        const Standard_input standard(pipe.reading());
        Receiver_input input;
        const Interrupt interrupt;
        Text_file output;
        Monitor monitor({}, input, interrupt, output.get());
        EXPECT_FALSE(interrupt.is_requested());
        raise(signal);
        EXPECT_TRUE(interrupt.is_requested());
        EXPECT_EQ(monitor.run(), Monitor::End::interrupt);
    }
}

TEST(Monitor_ends, at_an_interrupt_while_it_runs) {
    const Endless_sender sender;
    const Standard_input standard(sender.reading());
    Receiver_input input;
    const Interrupt interrupt;
    Pipe printed;
    std::FILE* const output = fdopen(printed.take_writing(), "w");
    std::thread user([&] {
        read_exactly(printed.reading(), 8);
        kill(getpid(), SIGINT);
        char rest[4096];
        while (read(printed.reading(), rest, sizeof rest) > 0) {
        }
    });
    EXPECT_EQ(Monitor({}, input, interrupt, output).run(), Monitor::End::interrupt);
    std::fclose(output);
    user.join();
}

TEST(Monitor_ends, when_its_output_fails) {
    const Endless_sender sender;
    const Standard_input standard(sender.reading());
    Receiver_input input;
    const Interrupt interrupt;
    std::FILE* const full = std::fopen("/dev/full", "w");
    EXPECT_EQ(Monitor({}, input, interrupt, full).run(), Monitor::End::output_failed);
    EXPECT_EQ(errno, ENOSPC);
    std::fclose(full);
}

TEST(Monitor_ends, never_for_an_output_that_fails_when_quiet) {
    const Standard_input standard(time_frame(1));
    Receiver_input input;
    const Interrupt interrupt;
    std::FILE* const full = std::fopen("/dev/full", "w");
    Monitor monitor(options_with(true, true), input, interrupt, full);
    EXPECT_EQ(monitor.run(), Monitor::End::input);
    EXPECT_EQ(monitor.good_frames(), 1U);
    std::fclose(full);
}

TEST(Monitor_ends, at_an_interrupt_while_its_output_blocks) {
    for (const unsigned entries : {50U, 100U, 200U, 250U}) {
        const Standard_input standard(much_to_print(entries));
        Receiver_input input;
        const Interrupt interrupt;
        const Signal_disposition no_pipe_signal(SIGPIPE, SIG_IGN);
        Pipe stuck;
        std::FILE* const output = fdopen(stuck.take_writing(), "w");
        std::atomic<bool> ended{false};
        std::thread user([&, process = getpid(), monitoring = pthread_self()] {
            EXPECT_TRUE(eventually([&] { return bytes_ready(stuck.reading()) > 50000 && sleeps(process); }));
            pthread_kill(monitoring, SIGINT);
            EXPECT_TRUE(eventually([&] { return ended.load(); }));
            stuck.close_reading();
        });
        EXPECT_EQ(Monitor({}, input, interrupt, output).run(), Monitor::End::interrupt);
        ended = true;
        user.join();
        std::fclose(output);
    }
}
