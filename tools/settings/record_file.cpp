#include "record_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

std::optional<std::vector<unsigned char>> read_record_file(const std::string& path, std::string& reason) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file) {
        reason = std::strerror(errno);
        return std::nullopt;
    }
    std::vector<unsigned char> bytes;
    unsigned char piece[65536];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file.get())) {
        bytes.insert(bytes.end(), piece, piece + count);
        if (bytes.size() > largest_record_file) {
            reason = "it is larger than any settings file";
            return std::nullopt;
        }
    }
    if (std::ferror(file.get())) {
        reason = std::strerror(errno);
        return std::nullopt;
    }
    return bytes;
}
