// A receiver on standard output: for trying out, showing and testing whatever reads one.

#include "common/command_line.h"
#include "simulator/Output.h"
#include "simulator/Pace.h"
#include "simulator/Simulated_receiver.h"

#include <glue/data_stream/Posix_data_stream.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

using command_line::number_between;
using simulator::Sent;
using simulator::Simulated_receiver;

constexpr const char* program = "receiver_simulator";
constexpr const char* description =
    "A satellite-navigation receiver on standard output. A machine drives row after row over a field; its receiver\n"
    "sends time, position, velocity, satellites and almanacs as binary frames. Options decide every byte, so that\n"
    "two runs with the same ones are the same; --rate decides only how fast they come.";

struct Command_line {
    Simulated_receiver::Options receiver;
    double rate = 10;
    std::optional<std::uint64_t> epochs;
};

void describe(CLI::App& app, Command_line& line) {
    constexpr double longest_interval_ms = 3600000;
    constexpr double most_epochs = 1e15;
    const double any = std::numeric_limits<double>::infinity();
    app.add_option("--rate", line.rate, "Epochs a second; 0: as fast as the reader takes them")
        ->check(number_between(0, any))
        ->type_name("HZ")
        ->capture_default_str();
    app.add_option("--epochs", line.epochs, "End after so many epochs; without it, never")
        ->check(number_between(0, most_epochs))
        ->type_name("N");
    app.add_option("--interval", line.receiver.interval_ms, "Milliseconds of simulated time from epoch to epoch")
        ->check(number_between(1, longest_interval_ms))
        ->type_name("MS")
        ->capture_default_str();
    app.add_option("--seed", line.receiver.seed, "What chance depends on")
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
}

int simulate(const CLI::App& app, const Command_line& line) {
    Posix_data_stream output(-1, STDOUT_FILENO);
    Simulated_receiver receiver(line.receiver);
    simulator::Pace pace(line.rate);
    for (std::uint64_t epoch = 0; !line.epochs || epoch < *line.epochs; ++epoch) {
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

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is the ordinary end
    Command_line line;
    CLI::App app(description, program);
    describe(app, line);
    if (const auto status = command_line::parse(app, argc, argv))
        return *status;
    return simulate(app, line);
}
