#pragma once

struct termios;

/// Gives a terminal back when the process dies of a signal.
namespace live_view::rescue {

/// Notes how `fd`, which curses has taken over, is given back, and catches the signals that mean the end: crashes,
/// aborts, hang-ups, quits, alarms and whatever else nobody has asked for. Each then ends the process as it would have.
/// \param settings  the terminal's from before
void prepare(int fd, const termios& settings);

/// Catches those signals no longer that nobody else has come to catch meanwhile.
void forget();

/// What else is told then, behind the terminal's restoring: the last of what file `from` holds goes to `to`. Negative
/// descriptors: nothing.
void tell(int from, int to);
constexpr int longest_telling = 4096; // bytes

/// Whether the process may use a terminal, as far as job control goes. Safe in a signal's handler.
bool is_in_foreground(int fd);

/// What the terminal's description says for a capability of this name; null when it has none.
const char* capability(const char* name);

} // namespace live_view::rescue
