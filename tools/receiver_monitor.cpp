// Shows what a receiver says: a line for each message, and at the end what came and where every byte went.

#include "common/Interrupt.h"
#include "common/command_line.h"
#include "common/streams.h"
#include "monitor/Monitor.h"
#include "monitor/Preferences.h"
#include "monitor/Receiver_input.h"
#include "monitor/Stream_input.h"
#include "monitor/view/Live_view.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

using command_line::complain;
using command_line::number_between;

constexpr int good_frames_came = 0;
constexpr int no_good_frame_came = 2;

constexpr const char* standard_input = "-";
constexpr const char* labelled = "labelled";
constexpr const char* comma = "comma";

struct Command_line {
    std::string specification = standard_input;
    std::optional<std::string> device;
    std::optional<std::string> to_send;
    bool trace = false;
    std::string format = labelled;
    std::optional<std::string> preferences;
    bool no_preferences = false;
    double duration = 0;
    bool view = false;
    Monitor::Options monitor;
};

void describe(CLI::App& app, Command_line& line) {
    constexpr double longest_duration = 1e9; // seconds
    constexpr double most_frames = 1e15;
    app.add_option("SPEC", line.specification,
                   "Stream to read, as a specification text; -: standard input. Without it, at a terminal the last "
                   "one that was read, else standard input")
        ->type_name("");
    app.add_option("--device", line.device, "Device or file to read, instead of SPEC")
        ->type_name("PATH")
        ->excludes("SPEC");
    app.add_option("--send", line.to_send, "A command line to send first, to the stream of SPEC")->type_name("TEXT");
    app.add_flag("--trace", line.trace, "Show the traffic of the stream of SPEC on standard error");
    app.add_option("--format", line.format, "Form of the lines: labelled for people, comma for files")
        ->check(CLI::IsMember({labelled, comma}))
        ->type_name("labelled|comma")
        ->capture_default_str();
    const auto preferences =
        app.add_option("--preferences", line.preferences, "File to keep the format and the last stream in")
            ->type_name("FILE");
    app.add_flag("--no-preferences", line.no_preferences, "Neither use nor keep them")->excludes(preferences);
    app.add_option("--duration", line.duration, "End after so many seconds; 0: never")
        ->check(number_between(0, longest_duration))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.add_option("--count", line.monitor.count, "End after so many good frames; without it, never")
        ->check(number_between(1, most_frames))
        ->type_name("FRAMES");
    app.add_flag("--quiet", line.monitor.quiet, "Print the summary alone");
    app.add_flag("--view", line.view,
                 "Show the link live on the terminal instead of printing lines; h there tells more");
    app.footer(
        "Preferences are for people: without --preferences they are used when a SPEC is given or standard input is a\n"
        "terminal, and not in a pipe. They are in $GLUE_MONITOR_PREFERENCES (empty: nowhere) or, when that is not set, "
        "in\n"
        "$XDG_CONFIG_HOME/glue/receiver_monitor.settings or ~/.config/glue/receiver_monitor.settings. settings_tool "
        "shows\n"
        "them.\n"
        "The summary goes to standard error. Exit status: 0 when at least one good frame came, 2 when none did,\n"
        "1 for a wrong option, an input that cannot be opened or read, or an output that fails.");
}

/// Sends the command line that was asked for; whether all of it went.
bool send(Data_stream& stream, const std::string& command) {
    const std::string text = command + "\r\n";
    const auto size = static_cast<unsigned>(text.size());
    return stream.__write(reinterpret_cast<const unsigned char*>(text.data()), size) == static_cast<int>(size);
}

/// Opens what the command line names; null, after a line on standard error, when that fails.
std::unique_ptr<Link_input> open_input(const CLI::App& app, const Command_line& line) {
    if (line.device || line.specification == standard_input) {
        auto input = std::make_unique<Receiver_input>();
        if (line.to_send || line.trace) {
            complain(app, "--send and --trace need a stream that can do that: give a SPEC");
            return nullptr;
        }
        if (line.device && !input->open_device(*line.device))
            return nullptr;
        return input;
    }
    auto stream = streams::open(line.specification);
    if (!stream)
        return nullptr;
    if (line.trace)
        streams::trace(*stream);
    if (line.to_send && !send(*stream, *line.to_send)) {
        complain(app, "cannot send to " + line.specification);
        return nullptr;
    }
    return std::make_unique<Stream_input>(std::move(stream));
}

/// Whether the link is what somebody types.
bool reads_keyboard(const Command_line& line) {
    return !line.device &&
           (line.specification == "cons:" || (line.specification == standard_input && isatty(STDIN_FILENO)));
}

/// The live view if one is asked for. It is there before the input: what a child says would land on the screen.
std::unique_ptr<Live_view> open_view(const Command_line& line) {
    if (!line.view)
        return nullptr;
    Live_view::Options options;
    options.source = line.device.value_or(line.specification);
    options.labelled = line.monitor.labelled;
    return std::make_unique<Live_view>(options);
}

/// Whether a stream is named that can be read again.
bool names_stream(const CLI::App& app, const Command_line& line) {
    return app.count("SPEC") > 0 && line.specification != standard_input;
}

/// Where the preferences for this command line are; "" when there are to be none.
std::string preferences_path(const CLI::App& app, const Command_line& line) {
    if (line.no_preferences)
        return "";
    if (line.preferences)
        return *line.preferences;
    return names_stream(app, line) || isatty(STDIN_FILENO) ? Preferences::default_path() : "";
}

void load(Preferences& preferences, const CLI::App& app) {
    switch (preferences.load()) {
    case Preferences::Content::damaged:
        complain(app, "preferences in " + preferences.path() + " are damaged: using the defaults");
        break;
    case Preferences::Content::foreign:
        complain(app, preferences.path() + " is no file of preferences: leaving it alone");
        break;
    case Preferences::Content::none:
    case Preferences::Content::intact:
        break;
    }
}

/// Puts preferences where the command line says nothing.
void fill_in(Command_line& line, const CLI::App& app, const Preferences& preferences) {
    if (app.count("--format") == 0)
        line.format = preferences.format() == Preferences::Format::comma ? comma : labelled;
    if (app.count("SPEC") == 0 && !line.device && isatty(STDIN_FILENO) && !preferences.stream().empty()) {
        line.specification = preferences.stream();
        complain(app, "reading " + line.specification + ", the last stream");
    }
}

/// Keeps what the command line says, for the next time. A failure harms nothing else.
void remember(Preferences& preferences, const CLI::App& app, const Command_line& line) {
    if (app.count("--format") > 0)
        preferences.set_format(line.format == comma ? Preferences::Format::comma : Preferences::Format::labelled);
    if (names_stream(app, line))
        preferences.set_stream(line.specification);
    std::string reason;
    if (!preferences.save(reason))
        complain(app, "preferences not kept: " + reason);
}

int monitor(const CLI::App& app, Command_line& line) {
    Preferences preferences(preferences_path(app, line));
    load(preferences, app);
    fill_in(line, app, preferences);
    line.monitor.labelled = line.format == labelled;
    if (line.view && reads_keyboard(line))
        return complain(app, "--view needs the keyboard for its keys: give a SPEC or a device");
    auto view = open_view(line);
    if (view && !view->problem().empty())
        return complain(app, "--view: " + view->problem());
    const auto input = open_input(app, line);
    if (!input)
        return command_line::failed;
    remember(preferences, app, line);

    const Interrupt interrupt;
    Monitor monitor(line.monitor, *input, interrupt, stdout);
    monitor.set_watcher(view.get());
    const Monitor::End end = monitor.run();
    view.reset();
    if (end == Monitor::End::output_failed)
        return complain(app, std::string("cannot write to standard output: ") + std::strerror(errno));
    if (input->error() != 0) {
        complain(app, "cannot read " + line.device.value_or("standard input") + ": " + std::strerror(input->error()));
        if (input->arrived() == 0)
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
    line.monitor.quiet |= line.view;
    line.monitor.duration_ms = static_cast<std::int64_t>(std::ceil(line.duration * 1000));
    return monitor(app, line);
}
