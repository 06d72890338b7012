#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <set>
#include <string>

/// Options in an ini file: keys are the long names of options without their dashes, or the names of positional ones
/// ("SPEC"); flags are "true" or "false".
///
///     # a unit on the bench
///     [receiver_monitor]
///     format=comma
///     log=/data/logs
///     quiet=true
///
/// The keys before the first section, and those in the section of the program's name, are its options. Other sections
/// belong to other programs.
namespace config_file {

/// Sets the options that `path` names, except those that the command line has set. Values are checked as on the command
/// line.
/// \param superseded  keys that are ignored, because the command line has set something that replaces them
/// \return an error message, with the file and the number of the line; nothing on success
std::optional<std::string> read(CLI::App& app, const std::string& path, const std::set<std::string>& superseded = {});

} // namespace config_file
