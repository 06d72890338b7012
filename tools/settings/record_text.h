#pragma once

#include "Record_visitor.h"

#include <string>

/// What several reports on a settings file say in the same words.

/// "type 9 (int32)", "type 5 (uint16), array", "unknown type 12".
std::string type_text(const Record& record);

/// "0/2/1"; of a long path the last ids, behind the number of those that are left out.
std::string path_text(const Id_path& path);

/// "to 0/2/1", or "to nothing".
std::string target_text(const Id_path& target);

/// "good", or what is wrong.
std::string checksum_text(const Container_end& end);

/// Eight hexadecimal digits.
std::string hexadecimal(std::uint32_t number);
