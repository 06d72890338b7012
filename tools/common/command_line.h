#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

/// The parts that the command lines of all programs share.
namespace command_line {

/// The exit status for a wrong option, a device that cannot be opened, an output that fails.
constexpr int failed = 1;

/// Accepts finite numbers from `low` to `high`, and nothing else.
CLI::Validator number_between(double low, double high);

/// Prints one line on standard error, "program: text"; control characters in the text become blanks.
/// \return `failed`
int complain(const CLI::App& app, std::string text);

/// Reads the command line into the variables that `app` names, and serves --help.
/// \return nothing when the program continues; else the status to exit with
std::optional<int> parse(CLI::App& app, int argc, char** argv);

} // namespace command_line
