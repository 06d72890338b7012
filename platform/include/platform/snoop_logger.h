#pragma once

#include <platform/String_builder.h>

/// Receives a copy of every piece of logged port traffic: a text of `length` characters. The application sets it before
/// it switches logging on; null, the initial value, for none. Called by the thread that moves the bytes.
extern void (*snoop_logger)(const char* text, unsigned int length);

/// Characters of a piece of logged port traffic.
constexpr unsigned port_log_piece_size = 4001;

/// Appends readable bytes and a line feed to `text`, which has the head already, and writes it to the debug printer and
/// to `snoop_logger`. What does not fit follows in more pieces without a head, each as long as `text` can hold. Only
/// the last piece ends in a line feed. Writes nothing for an empty range.
/// \param to_printer  whether the debug printer gets the pieces, too
void log_in_pieces(String_builder<port_log_piece_size>& text, bool to_printer, const unsigned char* begin,
                   const unsigned char* end);
