#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

/// What the command lines of all programs have in common.
namespace command_line {

/// The exit status for an option that is wrong, a device that cannot be opened, an output that fails.
constexpr int failed = 1;

/// Takes finite numbers from `low` to `high`; not what merely compares as if it were one.
CLI::Validator number_between(double low, double high);

/// Says one line on standard error, whatever is in the text: "program: text".
/// \return `failed`
int complain(const CLI::App& app, std::string text);

/// Reads the command line into what `app` describes, and serves --help.
/// \return nothing when the program is to go on; else the status to exit with
std::optional<int> parse(CLI::App& app, int argc, char** argv);

} // namespace command_line
