//                  arm                     fatal signal
//      disarmed ---------> armed -----------------------------+
//         ^                  |                                |
//         +----- disarm -----+                                v
//                                    1. restore the terminal: screen, cursor, settings
//                                    2. copy the last output to standard error
//                                    3. restore the signal's earlier action, raise it again
//
// The handler calls only functions that are safe in a signal handler, and waits at most a second for each write.

#include "rescue.h"

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#define NCURSES_NOMACROS
#include <curses.h>
#include <poll.h>
#include <sys/stat.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

namespace live_view::rescue {

namespace {

struct Fatal_signal {
    int number;
    struct sigaction earlier_action;
};
Fatal_signal fatal_signals[] = {{SIGHUP, {}},  {SIGQUIT, {}}, {SIGILL, {}},  {SIGTRAP, {}},   {SIGABRT, {}},
                                {SIGBUS, {}},  {SIGFPE, {}},  {SIGSEGV, {}}, {SIGSYS, {}},    {SIGXCPU, {}},
                                {SIGXFSZ, {}}, {SIGUSR1, {}}, {SIGUSR2, {}}, {SIGPIPE, {}},   {SIGALRM, {}},
                                {SIGPROF, {}}, {SIGPOLL, {}}, {SIGPWR, {}},  {SIGVTALRM, {}}, {SIGSTKFLT, {}}};

// What the handler reads. `arm` sets the terminal's part before it installs the handler.
int terminal_fd = -1;
termios earlier_settings{};
char restore_text[256];
std::size_t restore_length = 0;
volatile int output_fd = -1;
volatile int stderr_fd = -1;

alignas(16) char handler_stack[65536]; // the thread's own stack may have overflowed

// ---- In the handler ----

void write_within_limit(int fd, const char* bytes, std::size_t count) {
    constexpr int limit_ms = 1000;
    pollfd descriptor{fd, POLLOUT, 0};
    if (poll(&descriptor, 1, limit_ms) == 1) [[maybe_unused]]
        const ssize_t written = write(fd, bytes, count);
}

void restore_terminal() {
    if (!is_in_foreground(terminal_fd))
        return;
    write_within_limit(terminal_fd, restore_text, restore_length);
    tcsetattr(terminal_fd, TCSANOW, &earlier_settings);
}

void copy_last_output() {
    struct stat file {};
    if (output_fd < 0 || stderr_fd < 0 || fstat(output_fd, &file) != 0)
        return;
    off_t offset = file.st_size > longest_output ? file.st_size - longest_output : 0;
    char piece[512];
    for (;;) {
        const ssize_t count = pread(output_fd, piece, sizeof piece, offset);
        if (count <= 0)
            return;
        write_within_limit(stderr_fd, piece, static_cast<std::size_t>(count));
        offset += count;
    }
}

/// Takes effect when the handler returns: the signal is blocked until then.
void raise_with_earlier_action(int number) {
    for (const Fatal_signal& signal : fatal_signals)
        if (signal.number == number)
            sigaction(number, &signal.earlier_action, nullptr);
    raise(number);
}

extern "C" void handle_fatal_signal(int number) {
    restore_terminal();
    copy_last_output();
    raise_with_earlier_action(number);
}

// ---- Outside the handler ----

/// Appends a capability's text without the pauses in it, which are written "$<milliseconds>".
void append_capability(const char* name) {
    const char* text = capability(name);
    while (text && *text != '\0' && restore_length < sizeof restore_text) {
        const char* const end_of_pause = text[0] == '$' && text[1] == '<' ? std::strchr(text, '>') : nullptr;
        if (end_of_pause)
            text = end_of_pause + 1;
        else
            restore_text[restore_length++] = *text++;
    }
}

/// Plain attributes, default colours, a visible cursor, the ordinary screen.
void build_restore_text() {
    restore_length = 0;
    for (const char* name : {"sgr0", "op", "cnorm", "rmcup"})
        append_capability(name);
}

void install_handler(Fatal_signal& signal) {
    struct sigaction action {};
    action.sa_handler = handle_fatal_signal;
    action.sa_flags = SA_ONSTACK;
    sigaction(signal.number, nullptr, &signal.earlier_action);
    if (signal.earlier_action.sa_handler != SIG_IGN)
        sigaction(signal.number, &action, nullptr);
}

void remove_handler(const Fatal_signal& signal) {
    struct sigaction current {};
    sigaction(signal.number, nullptr, &current);
    if (current.sa_handler == handle_fatal_signal)
        sigaction(signal.number, &signal.earlier_action, nullptr);
}

} // namespace

void arm(int fd, const termios& settings) {
    terminal_fd = fd;
    earlier_settings = settings;
    build_restore_text();
    const stack_t stack{handler_stack, 0, sizeof handler_stack};
    sigaltstack(&stack, nullptr);
    for (Fatal_signal& signal : fatal_signals)
        install_handler(signal);
}

void disarm() {
    for (const Fatal_signal& signal : fatal_signals)
        remove_handler(signal);
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
}

void set_output(int file, int target) {
    stderr_fd = target;
    output_fd = file;
}

bool is_in_foreground(int fd) {
    const pid_t group = tcgetpgrp(fd);
    return group < 0 || group == getpgrp(); // negative: the session has no such terminal, so there is no job control
}

const char* capability(const char* name) {
    const char* const text = tigetstr(name);
    return reinterpret_cast<std::intptr_t>(text) == -1 ? nullptr : text;
}

} // namespace live_view::rescue
