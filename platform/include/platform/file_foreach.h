#pragma once

#include <functional>
#include <string>

/// Calls `visit` with the path of each entry of a directory, except "." and "..". The path is the directory as given,
/// "/" unless it ends in one, and the entry's name. `visit` may remove the entry.
/// \param recursive  visit the entries of subdirectories instead of the subdirectories; links are not followed
/// \return false when the directory cannot be read; `errno` has the reason
bool file_foreach(const std::string& directory, bool recursive, const std::function<void(const std::string&)>& visit);
