// Shows what a receiver says: a line for each message, and at the end what came and where every byte went.

#include "common/command_line.h"
#include "monitor/Interrupt.h"
#include "monitor/Monitor.h"
#include "monitor/Receiver_input.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <optional>
#include <stdio_ext.h>
#include <string>

namespace {

using command_line::complain;
using command_line::number_between;

constexpr int good_frames_came = 0;
constexpr int no_good_frame_came = 2;

struct Command_line {
    std::optional<std::string> device;
    std::string format = "labelled";
    double duration = 0;
    Monitor::Options monitor;
};

void describe(CLI::App& app, Command_line& line) {
    constexpr double longest_duration = 1e9; // seconds
    constexpr double most_frames = 1e15;
    app.add_option("--device", line.device, "Device or file to read; without it, standard input")->type_name("PATH");
    app.add_option("--format", line.format, "Form of the lines: labelled for people, comma for files")
        ->check(CLI::IsMember({"labelled", "comma"}))
        ->type_name("labelled|comma")
        ->capture_default_str();
    app.add_option("--duration", line.duration, "End after so many seconds; 0: never")
        ->check(number_between(0, longest_duration))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.add_option("--count", line.monitor.count, "End after so many good frames; without it, never")
        ->check(number_between(1, most_frames))
        ->type_name("FRAMES");
    app.add_flag("--quiet", line.monitor.quiet, "Print the summary alone");
    app.footer(
        "The summary goes to standard error. Exit status: 0 when at least one good frame came, 2 when none did,\n"
        "1 for a wrong option, an input that cannot be opened or read, or an output that fails.");
}

/// What an output that failed has not taken is not offered to it again when the program exits: a reader that is stuck
/// would hold that up.
void give_up_failed_output() {
    if (std::ferror(stdout))
        __fpurge(stdout);
}

int monitor(const CLI::App& app, const Command_line& line) {
    Receiver_input input;
    if (line.device && !input.open_device(*line.device))
        return command_line::failed;

    const Interrupt interrupt;
    Monitor monitor(line.monitor, input, interrupt, stdout);
    const Monitor::End end = monitor.run();
    const int error = errno;
    give_up_failed_output();
    if (end == Monitor::End::output_failed)
        return complain(app, std::string("cannot write to standard output: ") + std::strerror(error));
    if (input.error() != 0) {
        complain(app, "cannot read " + line.device.value_or("standard input") + ": " + std::strerror(input.error()));
        if (input.arrived() == 0)
            return command_line::failed;
    }
    monitor.print_summary(stderr);
    return monitor.good_frames() > 0 ? good_frames_came : no_good_frame_came;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is told as any other failing output
    Command_line line;
    CLI::App app("Shows what a receiver says, as it comes: a line for each message.", "receiver_monitor");
    describe(app, line);
    if (const auto status = command_line::parse(app, argc, argv))
        return *status;
    line.monitor.labelled = line.format == "labelled";
    line.monitor.duration_ms = static_cast<std::int64_t>(std::ceil(line.duration * 1000));
    return monitor(app, line);
}
