// Prints a line for each message of a receiver, and at the end a summary that accounts for every byte.

#include "common/Interrupt.h"
#include "common/command_line.h"
#include "common/config_file.h"
#include "common/standard_descriptors.h"
#include "common/streams.h"
#include "monitor/Monitor.h"
#include "monitor/Preferences.h"
#include "monitor/Receiver_input.h"
#include "monitor/Recorded_input.h"
#include "monitor/Replay_input.h"
#include "monitor/Stream_input.h"
#include "monitor/Traffic_recorder.h"
#include "monitor/view/Live_view.h"

#include <glue/logging/logging_source.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

using command_line::complain;
using command_line::number_between;

constexpr int good_frames_received = 0;
constexpr int no_good_frame_received = 2;

constexpr const char* standard_input = "-";
constexpr const char* labelled = "labelled";
constexpr const char* comma = "comma";
constexpr const char* all = "all";
constexpr const char* last = "last";

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
    std::optional<std::string> log;
    std::optional<double> history;
    bool log_later = false;
    std::optional<double> log_rotate;
    std::optional<std::uint64_t> log_rotate_size;
    std::optional<std::string> log_keep;
    std::optional<std::string> config;
    std::optional<std::string> replay;
    std::optional<double> speed;
};

/// The options that name the source of the bytes: at most one of them is given.
constexpr const char* sources[] = {"SPEC", "device", "replay"};

bool is_given(const CLI::App& app, const std::string& source) {
    return app.count(source == "SPEC" ? source : "--" + source) > 0;
}

/// A long directory is refused, because the log would cut it short and write to another one.
std::string too_long(const std::string& directory) {
    if (directory.size() <= logging_source_longest_field)
        return {};
    return "longer than " + std::to_string(logging_source_longest_field) + " characters: " + directory;
}

void describe_log(CLI::App& app, Command_line& line) {
    constexpr double longest_history = 86400; // seconds
    constexpr double longest_rotation = 31536000;
    constexpr double smallest_file = 4096; // bytes
    constexpr double largest_file = 1e15;
    app.add_option("--log", line.log,
                   "Record the raw traffic in files of this directory, which is made if it is missing; SIGUSR1\n"
                   "switches the record off and on")
        ->check(CLI::Validator(too_long, ""))
        ->type_name("DIR");
    app.add_option("--history", line.history,
                   "With --log: a record that is switched on later begins this long before that")
        ->check(number_between(0, longest_history))
        ->type_name("SECONDS");
    app.add_flag("--log-later", line.log_later, "With --log: the record is off until it is switched on");
    app.add_option("--log-rotate", line.log_rotate,
                   "With --log: begin another file with the first bytes after this time")
        ->check(number_between(1, longest_rotation))
        ->type_name("SECONDS");
    app.add_option("--log-rotate-size", line.log_rotate_size,
                   "With --log: begin another file before one becomes larger than this")
        ->check(number_between(smallest_file, largest_file))
        ->type_name("BYTES");
    app.add_option(
           "--log-keep", line.log_keep,
           "With either: keep all files (the default), or, when another one begins, only the last one before it;\n"
           "files of earlier runs in the directory are deleted, too")
        ->check(CLI::IsMember({all, last}))
        ->type_name("all|last");
}

void describe_replay(CLI::App& app, Command_line& line) {
    constexpr double fastest = 1e6;
    app.add_option("--replay", line.replay, "Replay a record of raw traffic, instead of SPEC")->type_name("FILE");
    app.add_option("--speed", line.speed,
                   "With --replay: how many times as fast as it was recorded; 0 (the default): as fast as possible")
        ->check(number_between(0, fastest))
        ->type_name("X");
}

void describe(CLI::App& app, Command_line& line) {
    constexpr double longest_duration = 1e9; // seconds
    constexpr double most_frames = 1e15;
    app.add_option("SPEC", line.specification,
                   "Stream to read, as a specification string; -: standard input. Without it: at a terminal the stream "
                   "of the previous run, else standard input")
        ->type_name("");
    app.add_option("--device", line.device, "Device or file to read, instead of SPEC")
        ->type_name("PATH")
        ->excludes("SPEC");
    app.add_option("--send", line.to_send, "Command line to send to the stream of SPEC first")->type_name("TEXT");
    app.add_flag("--trace", line.trace, "Show the traffic of the stream of SPEC on standard error");
    app.add_option("--format", line.format, "Form of the lines: labelled for people, comma for files")
        ->check(CLI::IsMember({labelled, comma}))
        ->type_name("labelled|comma")
        ->capture_default_str();
    const auto preferences =
        app.add_option("--preferences", line.preferences, "File in which the format and the last stream are kept")
            ->type_name("FILE");
    app.add_flag("--no-preferences", line.no_preferences, "Neither use nor keep preferences")->excludes(preferences);
    app.add_option("--duration", line.duration, "End after this time; 0: never")
        ->check(number_between(0, longest_duration))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.add_option("--count", line.monitor.count, "End after this many good frames; without it, never")
        ->check(number_between(1, most_frames))
        ->type_name("FRAMES");
    app.add_flag("--quiet", line.monitor.quiet, "Print only the summary");
    describe_log(app, line);
    describe_replay(app, line);
    app.add_option("--config", line.config,
                   "Read options from this ini file: keys are their names without dashes, or SPEC; the command line\n"
                   "wins")
        ->type_name("FILE");
    app.add_flag("--view", line.view, "Show the link live on the terminal instead of printing lines; press h for help");
    app.footer(
        "Preferences are for people: without --preferences they are used when a SPEC is given or standard input is a\n"
        "terminal, and not in a pipe. They are in $GLUE_MONITOR_PREFERENCES (empty: nowhere) or, when that is not set, "
        "in\n"
        "$XDG_CONFIG_HOME/glue/receiver_monitor.settings or ~/.config/glue/receiver_monitor.settings. settings_tool "
        "shows\n"
        "them.\n"
        "The summary goes to standard error. Exit status: 0 after at least one good frame, 2 after none,\n"
        "1 for a wrong option, an input that cannot be opened or read, or an output that fails.");
}

/// Sends a command line. \return whether all of it was sent
bool send(Data_stream& stream, const std::string& command) {
    const std::string text = command + "\r\n";
    const auto size = static_cast<unsigned>(text.size());
    return stream.__write(reinterpret_cast<const unsigned char*>(text.data()), size) == static_cast<int>(size);
}

/// Opens the source that the command line names. \return null, after a line on standard error, when that fails
std::unique_ptr<Link_input> open_input(const CLI::App& app, const Command_line& line) {
    if (line.replay) {
        auto input = std::make_unique<Replay_input>(line.speed.value_or(0));
        if (!input->open(*line.replay))
            return nullptr;
        return input;
    }
    if (line.device || line.specification == standard_input) {
        auto input = std::make_unique<Receiver_input>();
        if (line.device && !input->open_device(*line.device))
            return nullptr;
        return input;
    }
    auto stream = streams::open(line.specification);
    if (!stream)
        return nullptr;
    auto input = std::make_unique<Stream_input>(std::move(stream), line.trace);
    if (line.to_send && !send(*input, *line.to_send)) {
        complain(app, "cannot send to " + line.specification);
        return nullptr;
    }
    return input;
}

/// Whether the link is the keyboard.
bool reads_keyboard(const Command_line& line) {
    return !line.device && !line.replay &&
           (line.specification == "cons:" || (line.specification == standard_input && isatty(STDIN_FILENO)));
}

/// The live view, if the command line has one. It is made before the input, whose child processes may write to the
/// screen.
std::unique_ptr<Live_view> open_view(const Command_line& line, std::optional<Traffic_recorder>& recorder) {
    if (!line.view)
        return nullptr;
    Live_view::Options options;
    options.source = line.replay.value_or(line.device.value_or(line.specification));
    if (recorder)
        options.switch_log = [&recorder] { recorder->toggle(); };
    options.labelled = line.monitor.labelled;
    return std::make_unique<Live_view>(options);
}

/// Whether the command line names a stream that a later run can read again.
bool names_stream(const CLI::App& app, const Command_line& line) {
    return app.count("SPEC") > 0 && line.specification != standard_input;
}

/// The path of the preferences for this command line; "" for none.
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
        complain(app, preferences.path() + " is no file of preferences: left unchanged");
        break;
    case Preferences::Content::none:
    case Preferences::Content::intact:
        break;
    }
}

/// Applies preferences to options that the command line does not have.
void fill_in(Command_line& line, const CLI::App& app, const Preferences& preferences) {
    if (app.count("--format") == 0)
        line.format = preferences.format() == Preferences::Format::comma ? comma : labelled;
    if (app.count("SPEC") == 0 && !line.device && !line.replay && isatty(STDIN_FILENO) &&
        !preferences.stream().empty()) {
        line.specification = preferences.stream();
        complain(app, "reading " + line.specification + ", the last stream");
    }
}

/// Saves the command line's choices for the next run. A failure is reported and does not end the run.
void remember(Preferences& preferences, const CLI::App& app, const Command_line& line) {
    if (app.count("--format") > 0)
        preferences.set_format(line.format == comma ? Preferences::Format::comma : Preferences::Format::labelled);
    if (names_stream(app, line))
        preferences.set_stream(line.specification);
    std::string reason;
    if (!preferences.save(reason))
        complain(app, "preferences not kept: " + reason);
}

/// Reads options from the config file, if there is one. \return what is wrong with it
std::optional<std::string> read_config(CLI::App& app, const Command_line& line) {
    if (!line.config)
        return std::nullopt;
    const bool has_source =
        std::any_of(std::begin(sources), std::end(sources), [&](const char* s) { return is_given(app, s); });
    return config_file::read(app, *line.config,
                             has_source ? std::set<std::string>(std::begin(sources), std::end(sources))
                                        : std::set<std::string>());
}

/// What is wrong with a combination of options.
std::optional<std::string> contradiction(const CLI::App& app, const Command_line& line) {
    if (std::count_if(std::begin(sources), std::end(sources), [&](const char* s) { return is_given(app, s); }) > 1)
        return "SPEC, --device and --replay exclude each other";
    const bool is_stream = !line.replay && !line.device && line.specification != standard_input;
    if ((line.to_send || line.trace) && !is_stream)
        return "--send and --trace need a SPEC";
    if (line.speed && !line.replay)
        return "--speed needs --replay";
    const bool rotates = line.log_rotate || line.log_rotate_size;
    if (!line.log && (line.history || line.log_later || rotates))
        return "--history, --log-later, --log-rotate and --log-rotate-size need --log";
    if (line.log_keep && !rotates)
        return "--log-keep needs --log-rotate or --log-rotate-size";
    return std::nullopt;
}

/// Makes a directory with its parents, unless it exists. \return why it cannot be made
std::error_code make_directory(const std::string& path) {
    std::error_code error;
    std::error_code ignored; // why it cannot be inspected: `error` has the reason
    std::filesystem::create_directories(path, error);
    if (std::filesystem::is_directory(path, ignored))
        return {};
    return error ? error : std::make_error_code(std::errc::not_a_directory);
}

Traffic_recorder::Options log_options(const Command_line& line) {
    Traffic_recorder::Options options;
    options.directory = *line.log;
    options.history = line.history.value_or(0);
    options.later = line.log_later;
    options.rotate_seconds = line.log_rotate.value_or(0);
    options.rotate_bytes = line.log_rotate_size.value_or(0);
    options.keep_all = line.log_keep.value_or(all) == all;
    return options;
}

int monitor(const CLI::App& app, Command_line& line) {
    Preferences preferences(preferences_path(app, line));
    load(preferences, app);
    fill_in(line, app, preferences);
    line.monitor.labelled = line.format == labelled;
    if (line.view && reads_keyboard(line))
        return complain(app, "--view needs the keyboard for its keys: give a SPEC or a device");
    if (line.log)
        if (const auto error = make_directory(*line.log))
            return complain(app, "--log: cannot make " + *line.log + ": " + error.message());
    std::optional<Traffic_recorder> recorder;
    if (line.log)
        recorder.emplace(log_options(line));
    auto view = open_view(line, recorder);
    if (view && !view->problem().empty())
        return complain(app, "--view: " + view->problem());
    Interrupt interrupt(line.log.has_value());
    auto input = open_input(app, line);
    if (!input)
        return command_line::failed;
    remember(preferences, app, line);

    if (recorder) {
        if (!recorder->start())
            return command_line::failed;
        input = std::make_unique<Recorded_input>(std::move(input), *recorder, interrupt);
    }
    Monitor monitor(line.monitor, *input, interrupt, stdout);
    monitor.set_watcher(view.get());
    const Monitor::End end = monitor.run();
    view.reset();
    if (end == Monitor::End::output_failed)
        return complain(app, std::string("cannot write to standard output: ") + std::strerror(errno));
    if (input->error() != 0) {
        complain(app, "cannot read " + line.replay.value_or(line.device.value_or("standard input")) + ": " +
                          std::strerror(input->error()));
        if (input->arrived() == 0)
            return command_line::failed;
    }
    monitor.print_summary(stderr);
    if (recorder)
        recorder->print_summary(stderr);
    return monitor.good_frames() > 0 ? good_frames_received : no_good_frame_received;
}

} // namespace

int main(int argc, char** argv) {
    occupy_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is reported like every other failing output
    Command_line line;
    CLI::App app("Prints a line for each message of a receiver, as soon as it is received.", "receiver_monitor");
    describe(app, line);
    if (const auto status = command_line::parse(app, argc, argv))
        return *status;
    if (const auto wrong = read_config(app, line))
        return complain(app, *wrong);
    if (const auto wrong = contradiction(app, line))
        return complain(app, *wrong);
    line.monitor.quiet |= line.view;
    line.monitor.duration_ms = static_cast<std::int64_t>(std::ceil(line.duration * 1000));
    return monitor(app, line);
}
