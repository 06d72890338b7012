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

    String_builder<port_log_piece_size> text;
    const auto count = static_cast<unsigned int>(end - begin);
    text.append_ts();
    if (counter) {
        *counter += count;
        text.append_format("%s[%s](%d/%u): ", name, dir, static_cast<int>(count), *counter);
    } else {
        text.append_format("%s[%s](%d): ", name, dir, static_cast<int>(count));
    }
    log_in_pieces(text, static_cast<bool>(enabled), begin, end);
}
