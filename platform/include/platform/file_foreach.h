#pragma once

#include <functional>
#include <string>

/// Calls `visit` with the path of each entry of a directory, "." and ".." left out: the directory as it was given, "/"
/// unless it ends in one, the entry's name. The entry may be removed meanwhile.
/// \param recursive  visit what is in directories below it, too, instead of those directories; links are not followed
/// \return false when the directory cannot be read; `errno` says why
bool file_foreach(const std::string& directory, bool recursive, const std::function<void(const std::string&)>& visit);
