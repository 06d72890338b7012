#pragma once

#include "Record_visitor.h"

#include <string>

// Texts that several reports on a settings file share.

/// "type 9 (int32)", "type 5 (uint16), array", "unknown type 12".
std::string type_text(const Record& record);

/// "0/2/1"; of a long path the number of ids that are left out, then the last ones.
std::string path_text(const Id_path& path);

/// "to 0/2/1", or "to nothing".
std::string target_text(const Id_path& target);

/// "checksum ... good", or both the stored and the computed checksum.
std::string checksum_text(const Container_end& end);

/// Eight hexadecimal digits.
std::string hexadecimal(std::uint32_t number);
