#pragma once

#include <platform/Debug.h>
#include <platform/String_builder.h>
#include <platform/snoop_logger.h>

/// The debug category of the traffic of ports.
constexpr unsigned port_logging_category = 136;

/// Writes a time-stamped, readable copy of the bytes that pass through a port to the debug printer and to the
/// application's `snoop_logger`:
///
///     12:00:00.000 DSPosTSer(0x..., /dev/ttyS1)[RD](5/1205): GT00B
///
/// Long traffic is written in pieces of up to 4001 characters: only the first has the head, only the last a line feed.
/// Nothing is written for an empty range. Allocates nothing, and costs next to nothing while both the printer's
/// category and the logger are off.
/// \param enabled  the printer's token for `port_logging_category`, fetched for each call
/// \param name     the stream's description
/// \param dir      the direction: "RD", "WR", or the transport's own word
/// \param counter  when not null, is increased by the number of bytes and printed after it
template <typename Enable_token>
void do_port_logging(Enable_token enabled, const char* name, const char* dir, const unsigned char* begin,
                     const unsigned char* end, unsigned int* counter) {
    if (!enabled && !snoop_logger)
        return;

    String_builder<4001> text;
    const auto output = [&] {
        if (enabled)
            Debug::Print::printd(text.text(), static_cast<int>(text.length()));
        if (snoop_logger)
            snoop_logger(text.text(), text.length());
        text.clear();
    };

    const auto count = static_cast<unsigned int>(end - begin);
    text.append_ts();
    if (counter) {
        *counter += count;
        text.append_format("%s[%s](%d/%u): ", name, dir, static_cast<int>(count), *counter);
    } else {
        text.append_format("%s[%s](%d): ", name, dir, static_cast<int>(count));
    }
    if (count == 0)
        return;

    for (const unsigned char* next = begin;;) {
        next += text.append_ascii_esc(next, static_cast<unsigned int>(end - next));
        if (next == end)
            break;
        output();
    }
    if (text.room() == 0)
        output();
    text.append("\n");
    output();
}
