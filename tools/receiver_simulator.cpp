// Simulates a receiver on standard output or on any other stream, to try out, show and test programs that read one.

#include "common/Interrupt.h"
#include "common/command_line.h"
#include "common/streams.h"
#include "simulator/Command_interpreter.h"
#include "simulator/Output.h"
#include "simulator/Pace.h"
#include "simulator/Receiver_port.h"
#include "simulator/Simulated_receiver.h"

#include <glue/data_stream/Posix_data_stream.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

using command_line::number_between;
using simulator::Receiver_port;
using simulator::Sent;
using simulator::Simulated_receiver;

constexpr int linger_ms = 500;

constexpr const char* program = "receiver_simulator";
constexpr const char* description =
    "A satellite-navigation receiver on standard output, or on any stream. A machine drives row after row over a "
    "field; its receiver\n"
    "sends time, position, velocity, satellites and almanacs as binary frames. Options decide every byte, so that\n"
    "two runs with the same options send the same bytes; --rate only decides how fast.";

struct Command_line {
    Simulated_receiver::Options receiver;
    double rate = 10;
    std::optional<std::uint64_t> epochs;
    std::optional<std::string> stream;

    /// Whether all wanted epochs were sent.
    bool is_end(std::uint64_t epoch) const { return epochs && epoch >= *epochs; }
};

void describe(CLI::App& app, Command_line& line) {
    constexpr double longest_interval_ms = 3600000;
    constexpr double most_epochs = 1e15;
    const double any = std::numeric_limits<double>::infinity();
    app.add_option("--rate", line.rate, "Epochs a second; 0: as fast as the reader takes them")
        ->check(number_between(0, any))
        ->type_name("HZ")
        ->capture_default_str();
    app.add_option("--epochs", line.epochs, "End after this many epochs; without it, never")
        ->check(number_between(0, most_epochs))
        ->type_name("N");
    app.add_option("--interval", line.receiver.interval_ms, "Milliseconds of simulated time from epoch to epoch")
        ->check(number_between(1, longest_interval_ms))
        ->type_name("MS")
        ->capture_default_str();
    app.add_option("--seed", line.receiver.seed, "Seed of all random numbers")
        ->check(number_between(0, 4294967295.0))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--noise", line.receiver.noise, "Fraction of frames, 0 to 1, followed by 1 to 40 random bytes")
        ->check(number_between(0, 1))
        ->type_name("F")
        ->capture_default_str();
    app.add_option("--corrupt", line.receiver.corrupt, "Fraction of frames, 0 to 1, with one byte changed")
        ->check(number_between(0, 1))
        ->type_name("F")
        ->capture_default_str();
    app.add_flag("--crlf", line.receiver.crlf, "Frames end CR LF instead of LF");
    app.add_flag("--automation", line.receiver.automation, "Each epoch has a status of the automation (GS)");
    app.add_flag("--display", line.receiver.display, "Each epoch has numbers for the display (ES)");
    app.add_flag("--nmea", line.receiver.nmea, "Each epoch is followed by its position as an NMEA sentence (GGA)");
    app.add_option(
           "--stream", line.stream,
           "Serve the stream of this specification string instead of standard output, and answer these command\n"
           "lines: version; rate; rate,HZ; messages,on; messages,off. Command frames (GC) control the\n"
           "automation")
        ->type_name("SPEC");
}

int simulate_on_standard_output(const CLI::App& app, const Command_line& line) {
    Posix_data_stream output(-1, STDOUT_FILENO);
    Simulated_receiver receiver(line.receiver);
    simulator::Pace pace(line.rate);
    for (std::uint64_t epoch = 0; !line.is_end(epoch); ++epoch) {
        pace.wait();
        switch (simulator::send_all(output, receiver.next_epoch(), STDOUT_FILENO)) {
        case Sent::all:
            break;
        case Sent::reader_gone:
            return 0;
        case Sent::failed:
            return command_line::complain(app, std::string("cannot write to standard output: ") + std::strerror(errno));
        }
    }
    return 0;
}

/// Converts a time to the platform's clock, rounded up to its unit.
Atime on_platform_clock(simulator::Pace::Clock::time_point moment) {
    const auto ahead = moment - simulator::Pace::Clock::now();
    return Atime::now() + std::chrono::ceil<std::chrono::milliseconds>(ahead).count();
}

/// Sends epoch after epoch and answers commands in between, until either ends.
void send_epochs(const Command_line& line, Simulated_receiver& receiver, const simulator::Command_interpreter& commands,
                 Receiver_port& port) {
    double rate = line.rate;
    simulator::Pace pace(rate);
    Atime due = on_platform_clock(pace.next());
    for (std::uint64_t epoch = 0; !line.is_end(epoch);) {
        const Receiver_port::Served served = port.serve_until(due);
        if (served == Receiver_port::Served::ended)
            return;
        const auto& settings = commands.settings();
        if (settings.rate != rate) {
            rate = settings.rate;
            pace = simulator::Pace(rate);
            due = on_platform_clock(pace.next());
        }
        if (served == Receiver_port::Served::answered)
            continue;
        const std::vector<unsigned char>& bytes = receiver.next_epoch();
        if (settings.messages && !port.send(bytes))
            return;
        due = on_platform_clock(pace.next());
        ++epoch;
    }
}

int simulate_on_stream(const Command_line& line) {
    const Interrupt interrupt;
    auto stream = streams::open(*line.stream);
    if (!stream)
        return command_line::failed;

    simulator::Command_interpreter commands({line.rate, true});
    Simulated_receiver receiver(line.receiver);
    Receiver_port port(std::move(stream), commands, receiver.automation(), interrupt);
    send_epochs(line, receiver, commands, port);
    // Meanwhile the stream transmits the bytes that it has buffered.
    const Atime end = Atime::now() + linger_ms;
    while (port.serve_until(end) == Receiver_port::Served::answered) {
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that closes its end is the usual end
    Command_line line;
    CLI::App app(description, program);
    describe(app, line);
    if (const auto status = command_line::parse(app, argc, argv))
        return *status;
    return line.stream ? simulate_on_stream(line) : simulate_on_standard_output(app, line);
}
