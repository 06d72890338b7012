#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// What is read of a settings file at most; a unit's has some thousand bytes.
constexpr std::size_t largest_record_file = 16 * 1024 * 1024;

/// Reads a whole file.
/// \param reason  why nothing is returned, when nothing is: the file cannot be read, or is too large
std::optional<std::vector<unsigned char>> read_record_file(const std::string& path, std::string& reason);
