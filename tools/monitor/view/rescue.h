#pragma once

struct termios;

/// Restores the terminal when a signal ends the process.
namespace live_view::rescue {

/// Catches the signals that end a process: crashes, aborts, hang-ups, quits, alarms and the like. Signals that are
/// ignored stay ignored. After the terminal is restored, the signal ends the process as it would have.
/// \param fd        the terminal that curses draws on
/// \param settings  its settings before curses changed them
void arm(int fd, const termios& settings);

/// Restores the signals' actions from before `arm`. A handler that another part of the program installed since then
/// stays.
void disarm();

/// Sets which output is saved at that moment, after the terminal is restored: the last bytes of file `output_fd` are
/// copied to `stderr_fd`. Negative descriptors: none.
void set_output(int output_fd, int stderr_fd);
constexpr int longest_output = 4096; // bytes

/// Whether job control allows the process to use the terminal. Safe in a signal handler.
bool is_in_foreground(int fd);

/// The terminal description's text for a capability; null when it has none.
const char* capability(const char* name);

} // namespace live_view::rescue
