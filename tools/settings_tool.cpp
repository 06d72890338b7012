// Shows, checks, compares and measures settings files of any tree of settings.

#include "common/command_line.h"
#include "settings/Record_walker.h"
#include "settings/Settings_check.h"
#include "settings/Settings_comparison.h"
#include "settings/Settings_listing.h"
#include "settings/Settings_statistics.h"
#include "settings/record_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using command_line::complain;

constexpr int good = 0;
constexpr int not_good = 1; // damaged, or different
constexpr int trouble = 2;

using Bytes = std::vector<unsigned char>;

/// A file to examine.
struct Input {
    std::string path;
    Bytes bytes;
};

int show(Input& file) {
    Settings_listing listing(stdout);
    Record_walker(file.bytes).walk(listing);
    return listing.is_good() ? good : not_good;
}

Settings_check checked(Input& file) {
    Settings_check check;
    Record_walker(file.bytes).walk(check);
    return check;
}

int verify(Input& file) {
    const Settings_check check = checked(file);
    if (const auto& fault = check.first_fault()) {
        std::printf("%s: offset %zu: %s\n", file.path.c_str(), fault->offset, fault->what.c_str());
        return not_good;
    }
    std::printf("%s: good, %u save%s\n", file.path.c_str(), check.saves(), check.saves() == 1 ? "" : "s");
    if (check.unprotected() > 0)
        std::printf("%s: %u of them without a checksum\n", file.path.c_str(), check.unprotected());
    return good;
}

/// Whether a file is good; reports on standard error when it is not.
bool expect_good(const CLI::App& app, Input& file) {
    const Settings_check check = checked(file);
    if (const auto& fault = check.first_fault())
        complain(app, file.path + " is damaged at offset " + std::to_string(fault->offset) + ": " + fault->what);
    return !check.first_fault();
}

int diff(const CLI::App& app, Input& first, Input& second) {
    Settings_comparison comparison(first.path, second.path);
    Record_walker(first.bytes).walk(comparison.first());
    Record_walker(second.bytes).walk(comparison.second());
    const bool are_equal = comparison.print(stdout) == 0;
    const bool first_is_good = expect_good(app, first);
    const bool second_is_good = expect_good(app, second);
    return are_equal && first_is_good && second_is_good ? good : not_good;
}

int stats(const CLI::App& app, Input& file) {
    Settings_statistics statistics;
    Record_walker(file.bytes).walk(statistics);
    statistics.print(stdout);
    return expect_good(app, file) ? good : not_good;
}

struct Command_line {
    std::string file;
    std::string second;
    CLI::App* show = nullptr;
    CLI::App* verify = nullptr;
    CLI::App* diff = nullptr;
    CLI::App* stats = nullptr;
};

CLI::App* add_command(CLI::App& app, const char* name, const char* text, std::string& file) {
    CLI::App* const command = app.add_subcommand(name, text);
    command->add_option("FILE", file, "A settings file")->type_name("")->required();
    return command;
}

void describe(CLI::App& app, Command_line& line) {
    app.require_subcommand(0, 1);
    app.add_option("FILE", line.file, "A settings file to show, as \"show FILE\" does")->type_name("");
    line.show = add_command(app, "show", "Print every record: id, type, value; every checksum: good or bad", line.file);
    line.verify = add_command(app, "verify", "Report whether a file is good, or where its first fault is", line.file);
    line.diff = add_command(app, "diff", "Print the settings in which two files differ", line.file);
    line.diff->add_option("SECOND", line.second, "Another one")->type_name("")->required();
    line.stats = add_command(app, "stats", "Count records, levels, bytes by type, incremental saves", line.file);
    app.footer(
        "Settings are identified by ids, from the outermost container inwards: 0/2/1. In a file with several saves "
        "the\n"
        "last value of a setting counts. A file does not show that a whole save is missing at its end.\n"
        "Exit status: 0 when the file is good (diff: and both have the same settings), 1 when it is damaged (diff: or\n"
        "they differ), 2 for a wrong option, a file that cannot be read, or an output that fails.");
}

int run(const CLI::App& app, const Command_line& line, Input& file, Input& second) {
    if (line.verify->parsed())
        return verify(file);
    if (line.diff->parsed())
        return diff(app, file, second);
    if (line.stats->parsed())
        return stats(app, file);
    return show(file);
}

/// Reads a file. \return whether it could be read
bool read(const CLI::App& app, Input& file) {
    std::string reason;
    auto bytes = read_record_file(file.path, reason);
    if (!bytes) {
        complain(app, "cannot read " + file.path + ": " + reason);
        return false;
    }
    file.bytes = std::move(*bytes);
    return true;
}

int read_and_run(const CLI::App& app, const Command_line& line) {
    Input file{line.file, {}};
    Input second{line.second, {}};
    if (!read(app, file) || (line.diff->parsed() && !read(app, second)))
        return trouble;
    const int status = run(app, line, file, second);
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return status;
    complain(app, std::string("cannot write to standard output: ") + std::strerror(errno));
    return trouble;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is reported like any other failed output
    Command_line line;
    CLI::App app("Shows, checks, compares and measures settings files of any program.", "settings_tool");
    describe(app, line);
    if (const auto status = command_line::parse(app, argc, argv))
        return *status == 0 ? good : trouble;
    const bool has_both = !app.get_subcommands().empty() && app.count("FILE") > 0;
    if (has_both || line.file.empty()) {
        complain(app, has_both ? "a FILE before a command" : "no FILE given; see --help");
        return trouble;
    }
    return read_and_run(app, line);
}
