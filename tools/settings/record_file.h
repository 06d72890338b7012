#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The size limit for settings files; a unit's has some thousand bytes.
constexpr std::size_t largest_record_file = 16 * 1024 * 1024;

/// Reads a whole file.
/// \param reason  set when nothing is returned: the file cannot be read, or is too large
std::optional<std::vector<unsigned char>> read_record_file(const std::string& path, std::string& reason);
