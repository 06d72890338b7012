#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <set>
#include <string>

/// Options that stand in an ini file: keys are the long names of options without their dashes, "SPEC" and the like for
/// those without one; flags are "true" or "false".
///
///     # of a unit on the bench
///     [receiver_monitor]
///     format=comma
///     log=/data/logs
///     quiet=true
///
/// Keys in front of the first section, and those in the section of the program's name, are its options. Other sections
/// are for other programs.
namespace config_file {

/// Gives the options that `path` names their values, but for those that the command line has given already, after
/// checking them in the same way.
/// \param superseded  keys whose values count no more, because the command line has something in their place
/// \return what is wrong, with the file and the number of the line, when something is
std::optional<std::string> read(CLI::App& app, const std::string& path, const std::set<std::string>& superseded = {});

} // namespace config_file
