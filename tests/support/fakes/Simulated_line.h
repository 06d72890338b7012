#pragma once

#include <support/terminals/Pty_pair.h>

#include <linux/serial.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <termios.h>
#include <vector>

// The C library's headers leave this modem output out.
#ifndef TIOCM_OUT1
#define TIOCM_OUT1 0x2000
#endif

/// A serial line with the parts that a pseudo terminal lacks: every character format, modem lines, counters, and
/// faults. The code under test opens it by its path. A pseudo terminal transfers the bytes; settings and modem lines
/// are simulated, and each call that reads or changes them is recorded. One at a time.
///
///     Simulated_line line;
///     stream.open_from_args((line.path() + ":9600:rs485").c_str());
///     EXPECT_TRUE(line.modem_lines() & TIOCM_OUT1);
///     EXPECT_EQ(line.take_calls(), ...);
///
/// The recorded calls are "tcgetattr", "tcsetattr" (at once; "tcsetattr later" with another action), "TIOCMGET",
/// "TIOCMSET" and "TIOCGICOUNT".
class Simulated_line {
  public:
    /// Begins with all settings that raw mode clears, 1200 baud, and all modem lines off.
    Simulated_line();
    ~Simulated_line();
    Simulated_line(const Simulated_line&) = delete;
    Simulated_line& operator=(const Simulated_line&) = delete;

    const std::string& path() const { return terminal_.path(); }
    /// The pseudo terminal that transfers the bytes.
    Pty_pair& terminal() { return terminal_; }

    termios settings() const;
    void set_settings(const termios& settings);
    int modem_lines() const;
    void set_modem_lines(int lines);
    void set_counters(const serial_icounter_struct& counters);

    /// These calls fail with EIO from now on; an empty set: none.
    void fail(std::set<std::string> calls);
    /// The calls since the last `take_calls`.
    std::vector<std::string> take_calls();

    // ---- For the replaced calls ----

    bool is_device_of(int fd) const;
    int get(termios* settings);
    int set(int action, const termios* settings);
    /// \return whether the request is simulated; then `result` is its result
    bool control(unsigned long request, void* argument, int& result);

  private:
    int record(const char* call);

    Pty_pair terminal_;
    dev_t device_ = 0;
    mutable std::mutex mutex_;
    termios settings_{};
    int modem_lines_ = 0;
    serial_icounter_struct counters_{};
    std::set<std::string> failing_;
    std::vector<std::string> calls_;
};
