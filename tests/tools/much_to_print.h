#pragma once

#include <support/builders/Frame_builder.h>

#include <string>

/// A megabyte of frames whose lines are four times as long: one read yields more output than one write accepts.
/// \param entries  of each list; decides at which byte of the output a pipe is full
inline std::string much_to_print(unsigned entries = 100) {
    const std::string list = build_frame("SI", std::string(entries, '\xFF'));
    std::string bytes;
    while (bytes.size() < 1000000)
        bytes += list;
    return bytes;
}
