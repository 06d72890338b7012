#pragma once

#include <platform/Debug.h>
#include <platform/String_builder.h>
#include <platform/snoop_logger.h>

/// The debug category that shows the traffic of ports.
constexpr unsigned port_logging_category = 136;

/// Writes a time-stamped, readable copy of the bytes that pass through a port to the debug printer and to the
/// application's `snoop_logger`:
///
///     12:00:00.000 DSPosTSer(0x..., /dev/ttyS1)[RD](5/1205): GT00B
///
/// Long traffic comes in pieces of up to 4001 characters, of which only the first has the head and only the last a line
/// feed. Nothing at all is written for an empty range. Allocates nothing, and costs next to nothing while neither the
/// printer's category nor the logger is on.
/// \param enabled  the printer's token for `port_logging_category`, asked for at each call
/// \param name     the stream's description
/// \param dir      the direction: "RD", "WR", or the transport's own word
/// \param counter  when not null, grows by the number of bytes and is shown behind it
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
