// Connects two streams: to share a serial receiver over TCP, to watch the traffic between two devices.

#include "common/Interrupt.h"
#include "common/command_line.h"
#include "relay/Relay.h"

#include <cinttypes>
#include <csignal>
#include <cstdio>

namespace {

struct Command_line {
    Relay::Options relay;
    double stats = 0;
};

void describe(CLI::App& app, Command_line& line) {
    constexpr double longest_interval = 1e6; // seconds
    app.add_option("FIRST", line.relay.specifications[0], "One stream, as a specification string")
        ->type_name("")
        ->required();
    app.add_option("SECOND", line.relay.specifications[1], "The other one")->type_name("")->required();
    app.add_flag("--one-way", line.relay.one_way, "Only from the first to the second");
    app.add_flag("--log", line.relay.log, "Show the traffic of both on standard error");
    app.add_flag("--reconnect", line.relay.reconnect,
                 "Start a child process again when it ends, instead of ending; other streams return by themselves");
    app.add_option("--stats", line.stats, "Print at this interval how much was moved; 0: only at the end")
        ->check(command_line::number_between(0, longest_interval))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.footer(
        "Bytes pass unchanged; none is lost when one side is slower. Ends at an interrupt, or when a child process\n"
        "that is one of the sides has ended. Exit status: 0; 1 for a wrong option or a stream that cannot be made.");
}

void print_moved(const Relay& relay, const Relay::Options& options) {
    const Relay::Moved moved = relay.moved();
    std::fprintf(stderr, "%s -> %s: %" PRIu64 " bytes\n", options.specifications[0].c_str(),
                 options.specifications[1].c_str(), moved.forward);
    if (!options.one_way)
        std::fprintf(stderr, "%s <- %s: %" PRIu64 " bytes\n", options.specifications[0].c_str(),
                     options.specifications[1].c_str(), moved.backward);
}

int relay(const Command_line& line) {
    constexpr int poll_interval_ms = 100; // for the interrupt
    const Interrupt interrupt;
    Relay relay(line.relay);
    if (!relay.open())
        return command_line::failed;

    const auto interval = static_cast<std::int64_t>(line.stats * 1000);
    Atime next_stats = Atime::now() + interval;
    while (!interrupt.is_requested() && relay.work(poll_interval_ms)) {
        if (interval > 0 && Atime::now() >= next_stats) {
            print_moved(relay, line.relay);
            next_stats = next_stats + interval;
        }
    }
    print_moved(relay, line.relay);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // writes report a peer that is gone
    Command_line line;
    CLI::App app("Connects two streams, byte for byte.", "stream_relay");
    describe(app, line);
    if (const auto status = command_line::parse(app, argc, argv))
        return *status;
    return relay(line);
}
