#pragma once

#include <support/builders/Frame_builder.h>

#include <string>

/// A megabyte of frames that print as four times their size: what comes in one read is more than goes in one write.
/// \param entries  of each list; decides where in the printing an output is full
inline std::string much_to_print(unsigned entries = 100) {
    const std::string list = build_frame("SI", std::string(entries, '\xFF'));
    std::string bytes;
    while (bytes.size() < 1000000)
        bytes += list;
    return bytes;
}
