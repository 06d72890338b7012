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
    struct sigaction action_before;
};
Fatal_signal fatal_signals[] = {{SIGHUP, {}},  {SIGQUIT, {}}, {SIGILL, {}},  {SIGTRAP, {}},   {SIGABRT, {}},
                                {SIGBUS, {}},  {SIGFPE, {}},  {SIGSEGV, {}}, {SIGSYS, {}},    {SIGXCPU, {}},
                                {SIGXFSZ, {}}, {SIGUSR1, {}}, {SIGUSR2, {}}, {SIGPIPE, {}},   {SIGALRM, {}},
                                {SIGPROF, {}}, {SIGPOLL, {}}, {SIGPWR, {}},  {SIGVTALRM, {}}, {SIGSTKFLT, {}}};

// What the handler needs. All of it is set before a handler stands, and never moves.
int terminal = -1;
termios settings_before{};
char give_back[256];
std::size_t give_back_length = 0;
volatile int told_from = -1;
volatile int told_to = -1;
alignas(16) char handler_stack[65536]; // the ordinary one may be what has overflown

/// Adds what the terminal's description says for a capability, without the pauses that it asks for.
void add(const char* name) {
    const char* text = rescue::capability(name);
    while (text && *text != '\0' && give_back_length < sizeof give_back) {
        const char* const end_of_pause = text[0] == '$' && text[1] == '<' ? std::strchr(text, '>') : nullptr;
        if (end_of_pause)
            text = end_of_pause + 1;
        else
            give_back[give_back_length++] = *text++;
    }
}

/// Never waits long: the terminal may be held, and the process is to end.
void write_within_limit(int fd, const char* bytes, std::size_t count) {
    constexpr int limit_ms = 1000;
    pollfd look{fd, POLLOUT, 0};
    if (poll(&look, 1, limit_ms) == 1) [[maybe_unused]]
        const ssize_t written = write(fd, bytes, count);
}

void tell_the_rest() {
    char piece[512];
    struct stat file {};
    if (fstat(told_from, &file) != 0)
        return;
    off_t offset = file.st_size > longest_telling ? file.st_size - longest_telling : 0;
    for (;;) {
        const ssize_t count = pread(told_from, piece, sizeof piece, offset);
        if (count <= 0)
            return;
        write_within_limit(told_to, piece, static_cast<std::size_t>(count));
        offset += count;
    }
}

/// Calls nothing but what a handler may. The signal comes again when the handler returns, and does then what it would
/// have done.
extern "C" void give_terminal_back(int number) {
    if (is_in_foreground(terminal)) {
        write_within_limit(terminal, give_back, give_back_length);
        tcsetattr(terminal, TCSANOW, &settings_before);
    }
    if (told_from >= 0 && told_to >= 0)
        tell_the_rest();
    for (const Fatal_signal& signal : fatal_signals)
        if (signal.number == number)
            sigaction(number, &signal.action_before, nullptr);
    raise(number);
}

} // namespace

void prepare(int fd, const termios& settings) {
    terminal = fd;
    settings_before = settings;
    give_back_length = 0;
    for (const char* capability : {"sgr0", "op", "cnorm", "rmcup"})
        add(capability);

    const stack_t stack{handler_stack, 0, sizeof handler_stack};
    sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_handler = give_terminal_back;
    action.sa_flags = SA_ONSTACK;
    for (Fatal_signal& signal : fatal_signals) {
        sigaction(signal.number, nullptr, &signal.action_before);
        if (signal.action_before.sa_handler != SIG_IGN)
            sigaction(signal.number, &action, nullptr);
    }
}

void forget() {
    for (const Fatal_signal& signal : fatal_signals) {
        struct sigaction now {};
        sigaction(signal.number, nullptr, &now);
        if (now.sa_handler == give_terminal_back)
            sigaction(signal.number, &signal.action_before, nullptr);
    }
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
}

void tell(int from, int to) {
    told_to = to;
    told_from = from;
}

bool is_in_foreground(int fd) {
    const pid_t group = tcgetpgrp(fd);
    return group < 0 || group == getpgrp(); // less than 0: no terminal of this session, or none any more
}

const char* capability(const char* name) {
    const char* const text = tigetstr(name);
    return reinterpret_cast<std::intptr_t>(text) == -1 ? nullptr : text;
}

} // namespace live_view::rescue
