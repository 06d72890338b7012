// The program as a user runs it.

#include "much_to_print.h"
#include "running_monitor.h"
#include "summary_text.h"

#include <support/builders/Frame_builder.h>
#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/processes/processes.h>
#include <support/terminals/Pty_pair.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <termios.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string frame = build_frame("~~", le(std::uint32_t{1234}));
const std::string line = "RT ms=1234\n";
const std::string summary_of_nothing =
    "bytes: 0 = frames 0 + replies 0 + acknowledgements 0 + noise 0 + separators 0\nchecksum failures: 0\n";

/// The monitor, started by a shell that changes its descriptors first.
Program monitor_after(const std::string& redirections, Arguments arguments = {}) {
    arguments.insert(arguments.begin(), {"-c", "exec \"$0\" \"$@\" " + redirections, RECEIVER_MONITOR});
    return Program("sh", std::move(arguments));
}

/// One line on standard error, and status 1.
void expect_failure(const Program_result& result, const std::string& message) {
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, message + "\n");
}

void expect_refusal(const Arguments& arguments, const std::string& about) {
    const Program_result result = monitor_with(arguments).input(frame).run();
    EXPECT_EQ(result.status, 1) << about;
    EXPECT_EQ(result.output, "") << about;
    EXPECT_THAT(result.errors, StartsWith("receiver_monitor: "));
    EXPECT_THAT(result.errors, HasSubstr(about));
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    EXPECT_EQ(result.errors.back(), '\n');
}

} // namespace

// ---- Output ----

TEST(receiver_monitor, prints_lines_on_standard_output_and_the_summary_on_standard_error) {
    const Program_result result = monitor_with({}).input(frame + "RE004done\r\n").run();
    EXPECT_EQ(result.output, line + "RE004done\n");
    const Summary summary(result.errors);
    EXPECT_EQ(summary.counts, (Counts{{"~~", 1}, {"RE", 1}}));
    EXPECT_EQ(summary.account.arrived, 22U);
    EXPECT_EQ(summary.account.frames, 11U);
    EXPECT_EQ(summary.account.replies, 11U);
    EXPECT_EQ(summary.checksum_failures, 0U);
}

TEST(receiver_monitor, has_two_formats_and_the_labelled_one_by_default) {
    EXPECT_EQ(monitor_with({}).input(frame).run().output, line);
    EXPECT_EQ(monitor_with({"--format", "labelled"}).input(frame).run().output, line);
    EXPECT_EQ(monitor_with({"--format=comma"}).input(frame).run().output, "RT,1234\n");
}

TEST(receiver_monitor, quiet_prints_only_the_summary) {
    const std::string bytes = frame + "RE004done\n" + build_frame("XY", "unknown") + "\x06";
    const Program_result result = monitor_with({"--quiet"}).input(bytes).run();
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(Summary(result.errors).counts, (Counts{{"~~", 1}, {"RE", 1}, {"XY", 1}}));
    EXPECT_EQ(Summary(result.errors).account.arrived, bytes.size());
}

TEST(receiver_monitor, prints_unknown_frames_as_bytes_and_reports_them) {
    const Program_result result = monitor_with({}).input(build_frame("XY", "a")).run();
    EXPECT_THAT(result.output, StartsWith("XY ???:  58 59 30 30 32 61 "));
    EXPECT_THAT(result.errors, StartsWith("UNKNOWN XY\nXY          1"));
    EXPECT_EQ(result.status, 0);
}

TEST(receiver_monitor, reports_a_short_list_in_one_line) {
    const Program_result result = monitor_with({}).input(build_frame("SS", "") + frame).run();
    EXPECT_EQ(result.output, "SS message too short\n" + line);
}

TEST(receiver_monitor, reads_a_file) {
    const Temporary_folder folder;
    const Program_result result = monitor_with({"--device", folder.make_file("frames", frame + frame)}).run();
    EXPECT_EQ(result.output, line + line);
    EXPECT_EQ(result.status, 0);
}

TEST(receiver_monitor, reads_a_terminal_line_and_restores_its_settings) {
    const Pty_pair tty(Pty_pair::system_settings);
    termios before{};
    tcgetattr(tty.slave(), &before);
    const std::string frame_to_mangle = build_frame("~~", "\r\n\x03\x04"); // line ends, interrupt, end of file
    const Program_result result = monitor_with({"--device", tty.path(), "--count", "1"})
                                      .once_started([&](pid_t) {
                                          ASSERT_TRUE(eventually([&] {
                                              termios now{};
                                              return tcgetattr(tty.slave(), &now) == 0 && !(now.c_lflag & ICANON);
                                          }));
                                          tty.send("\n" + frame_to_mangle);
                                      })
                                      .run();
    EXPECT_EQ(result.output, "RT ms=67308045\n");
    termios after{};
    tcgetattr(tty.slave(), &after);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
}

// ---- Ends ----

TEST(receiver_monitor, ends_after_so_many_frames) {
    Running_monitor monitor({"--count", "2"});
    monitor.send(frame + "noise\n" + frame + frame);
    const Program_result& result = monitor.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Summary(result.errors).counts, (Counts{{"~~", 2}}));
}

TEST(receiver_monitor, ends_after_the_duration_without_any_bytes) {
    const Stopwatch stopwatch;
    Running_monitor silent({"--duration", "0.2"}); // without any bytes
    const Program_result& result = silent.end();
    EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(200));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, summary_of_nothing);
}

TEST(receiver_monitor, ends_after_the_duration_on_a_FIFO_that_nobody_opens) {
    const Temporary_folder folder;
    const Program_result result = monitor_with({"--duration", "0.1", "--device", folder.make_fifo("fifo")})
                                      .time_limit(std::chrono::seconds(20))
                                      .run();
    EXPECT_TRUE(result.in_time);
    EXPECT_EQ(result.status, 2);
}

TEST(receiver_monitor, duration_of_0_is_none) {
    Running_monitor monitor({"--duration", "0"});
    monitor.send(frame);
    monitor.expect_output(line);
    monitor.send(frame);
    monitor.expect_output(line + line);
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.end().status, 0);
}

TEST(receiver_monitor, an_interrupt_ends_it_with_its_summary) {
    for (const int number : {SIGINT, SIGTERM}) {
        Running_monitor monitor;
        monitor.send(frame + frame.substr(0, 6));
        monitor.expect_output(line);
        monitor.signal(number);
        const Program_result& result = monitor.end();
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Summary(result.errors).account.arrived, 11U);
    }
}

TEST(receiver_monitor, an_interrupt_ends_it_while_its_output_blocks) {
    for (const unsigned entries : {50U, 100U, 200U, 250U}) {
        const Temporary_folder folder;
        const std::string fifo = folder.make_fifo("stuck");
        const int stuck = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
        const auto interrupt_when_stuck = [&](pid_t pid) {
            EXPECT_TRUE(eventually([&] { return bytes_ready(stuck) > 50000 && sleeps(pid); }));
            send_signal(pid, SIGINT);
        };
        const Program_result result = monitor_with({"--device", folder.make_file("frames", much_to_print(entries))})
                                          .output_to(fifo)
                                          .time_limit(std::chrono::seconds(20))
                                          .once_started(interrupt_when_stuck)
                                          .run();
        close(stuck);
        EXPECT_TRUE(result.in_time);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Summary(result.errors).account.arrived, Summary(result.errors).account.sum());
    }
}

// ---- Exit status ----

TEST(receiver_monitor, status_is_0_after_a_good_frame) {
    EXPECT_EQ(monitor_with({}).input("noise\n" + frame).run().status, 0);
}

TEST(receiver_monitor, status_is_2_without_a_frame) {
    const Program_result nothing = monitor_with({}).run();
    EXPECT_EQ(nothing.status, 2);
    EXPECT_EQ(nothing.errors, summary_of_nothing);
    EXPECT_EQ(monitor_with({}).input("noise\n").run().status, 2);
    EXPECT_EQ(monitor_with({}).input("RE004done\n").run().status, 2);
}

TEST(receiver_monitor, status_is_2_after_a_bad_frame_only) {
    std::string bad = frame;
    bad[6] = '\x7f';
    const Program_result result = monitor_with({}).input(bad).run();
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("\nchecksum failures: 1\n"));
}

// ---- Failures ----

TEST(receiver_monitor, device_that_cannot_be_opened_is_one_line_and_status_1) {
    expect_failure(monitor_with({"--device", "/does/not/exist"}).run(),
                   "Error opening '/does/not/exist': No such file or directory");
    expect_failure(monitor_with({"--device", ""}).input(frame).run(), "Error opening '': No such file or directory");
}

TEST(receiver_monitor, device_that_cannot_be_read_is_one_line_and_status_1) {
    expect_failure(monitor_with({"--device", "/"}).run(), "receiver_monitor: cannot read /: Is a directory");
}

TEST(receiver_monitor, closed_standard_input_is_one_line_and_status_1) {
    expect_failure(monitor_after("<&-").time_limit(std::chrono::seconds(20)).run(),
                   "receiver_monitor: cannot read standard input: Bad file descriptor");
}

TEST(receiver_monitor, closed_output_is_one_line_and_status_1) {
    const std::string message = "receiver_monitor: cannot write to standard output: Bad file descriptor";
    expect_failure(monitor_with({}).input(frame).without_output().run(), message);
    const Temporary_folder folder;
    expect_failure(monitor_after("<&- >&-", {"--device", folder.make_file("frames", frame)}).run(), message);
}

TEST(receiver_monitor, closed_standard_error_harms_nothing_else) {
    const Program_result result = monitor_after("2>&-").input(frame + build_frame("XY", "a") + frame).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith(line + "XY ???: "));
    EXPECT_EQ(monitor_after(">&- 2>&-").input(frame).run().status, 1);
}

TEST(receiver_monitor, full_disk_is_one_line_and_status_1) {
    const std::string message = "receiver_monitor: cannot write to standard output: No space left on device";
    expect_failure(monitor_with({}).input(frame).output_to("/dev/full").run(), message);
    expect_failure(monitor_with({}).input(much_to_print()).output_to("/dev/full").run(), message);
}

TEST(receiver_monitor, reader_that_closes_is_one_line_and_status_1) {
    const Program_result result = monitor_with({}).input(much_to_print()).reader_leaves_after(1000).run();
    expect_failure(result, "receiver_monitor: cannot write to standard output: Broken pipe");
}

TEST(receiver_monitor, wrong_options_are_refused) {
    expect_refusal({"--speed", "3"}, "--speed");
    expect_refusal({"tcp:0", "somewhere"}, "somewhere");
    expect_refusal({"tcp:0", "one\ntwo"}, "one two");
    expect_refusal({"tcp:0", "--device", "/dev/null"}, "--device");
    expect_refusal({"--send", "VER"}, "--send");
    expect_refusal({"--trace"}, "--trace");
    expect_refusal({"--device"}, "--device");
    expect_refusal({"--quiet=perhaps"}, "--quiet");
    expect_refusal({"--count", "1", "--count", "2"}, "--count");
}

TEST(receiver_monitor, wrong_formats_are_refused) {
    for (const char* format : {"xml", "Comma", "comma,labelled", ""})
        expect_refusal({"--format", format}, "--format");
}

TEST(receiver_monitor, wrong_durations_are_refused) {
    for (const char* duration : {"-1", "nan", "inf", "5s", "1e10", ""})
        expect_refusal({"--duration", duration}, "--duration");
}

TEST(receiver_monitor, wrong_counts_are_refused) {
    for (const char* count : {"0", "-1", "1.5", "many", "1000000000000001", "99999999999999999999999", ""})
        expect_refusal({"--count", count}, "--count");
}

// ---- Help ----

TEST(receiver_monitor, help_is_on_standard_output) {
    const Program_result result = monitor_with({"--help"}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* option : {"--device", "--format", "--duration", "--count", "--quiet", "--help"})
        EXPECT_THAT(result.output, HasSubstr(option));
}

TEST(receiver_monitor, help_that_cannot_be_written_is_a_failure) {
    expect_failure(monitor_with({"--help"}).output_to("/dev/full").run(),
                   "receiver_monitor: cannot write to standard output");
}
