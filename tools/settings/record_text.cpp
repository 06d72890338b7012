#include "record_text.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

std::string type_text(const Record& record) {
    static constexpr const char* dimensions[] = {"", ", array", ", matrix", ", unknown dimension 3"};
    const char* const name = type_name(record.type);
    const std::string code = std::to_string(record.type);
    return (name ? "type " + code + " (" + name + ")" : "unknown type " + code) + dimensions[record.dimension & 3];
}

std::string path_text(const Id_path& path) {
    constexpr std::size_t most_shown = 32;
    const std::size_t shown = std::min(path.size(), most_shown);
    const std::size_t left_out = path.size() - shown;
    std::string text = left_out > 0 ? "(" + std::to_string(left_out) + " levels)" : "";
    for (std::size_t i = left_out; i < path.size(); ++i)
        text += (i > 0 ? "/" : "") + std::to_string(path[i]);
    return text;
}

std::string target_text(const Id_path& target) {
    return target.empty() ? "to nothing" : "to " + path_text(target);
}

std::string checksum_text(const Container_end& end) {
    if (end.is_good())
        return "checksum " + hexadecimal(end.stored) + " good";
    return "checksum " + hexadecimal(end.stored) + " BAD: the content has " + hexadecimal(end.computed);
}

std::string hexadecimal(std::uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "%08" PRIX32, number);
    return text;
}
