#pragma once

#include <support/builders/crc32_by_definition.h>

#include <cstdio>
#include <string>

/// The bytes of a checksummed file with this content.
inline std::string checksummed(const std::string& content) {
    char trailer[16];
    std::snprintf(trailer, sizeof trailer, "\nCRC32=%08X", crc32_by_definition(0x5CA1AB1E, content));
    return content + trailer;
}
