// The terminal of standard input:
//
//                   constructor                destructor, or exit
//   as it was found ------------> key by key -----------------------> as it was found
//
// `exit` restores it when consoles still exist. A second console finds the terminal key by key and restores that.

#include <glue/data_stream/Posix_console_data_stream.h>

#include "data_stream/core/stream_specification.h"

#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace {

void set_input_blocking(bool on) {
    const int flags = fcntl(STDIN_FILENO, F_GETFL);
    if (flags >= 0)
        fcntl(STDIN_FILENO, F_SETFL, on ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

/// What `exit` must restore when consoles still exist.
struct At_exit {
    std::mutex mutex;
    int consoles = 0;
    bool is_terminal = false;
    termios first_found{};
};

/// Never destroyed: consoles may be destroyed after every static object.
At_exit& at_exit() {
    static At_exit& state = *new At_exit;
    return state;
}

void restore_at_exit() {
    At_exit& state = at_exit();
    const std::lock_guard guard(state.mutex);
    if (state.consoles == 0)
        return;
    if (state.is_terminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &state.first_found);
    set_input_blocking(true);
}

void add_console(bool is_terminal, const termios& found) {
    static const int registered = std::atexit(restore_at_exit);
    static_cast<void>(registered);
    At_exit& state = at_exit();
    const std::lock_guard guard(state.mutex);
    if (state.consoles++ == 0) {
        state.is_terminal = is_terminal;
        state.first_found = found;
    }
}

void remove_console() {
    At_exit& state = at_exit();
    const std::lock_guard guard(state.mutex);
    --state.consoles;
}

/// Input key by key, without echo; a read never waits for a key.
termios key_by_key(termios attributes) {
    attributes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    attributes.c_cc[VMIN] = 0;
    return attributes;
}

} // namespace

Posix_console_data_stream* Posix_console_data_stream::create(const char* spec) {
    if (!glue_detail::is_console(spec))
        return nullptr;
    return new Posix_console_data_stream;
}

Posix_console_data_stream::Posix_console_data_stream()
    : Posix_threaded_data_stream("PCDS"), saved_attributes_(), is_terminal_(false) {
    buffer_lock = &console_lock_;
    is_terminal_ = tcgetattr(STDIN_FILENO, &saved_attributes_) == 0;
    add_console(is_terminal_, saved_attributes_);
    if (is_terminal_) {
        const termios attributes = key_by_key(saved_attributes_);
        tcsetattr(STDIN_FILENO, TCSANOW, &attributes);
    }
    set_input_blocking(false);
    read_fd = STDIN_FILENO;
    write_fd = STDOUT_FILENO;
    start();
}

Posix_console_data_stream::~Posix_console_data_stream() {
    stop(); // first: with the terminal's own settings a read might wait for a whole line
    if (is_terminal_)
        tcsetattr(STDIN_FILENO, TCSANOW, &saved_attributes_);
    set_input_blocking(true);
    remove_console();
}

int Posix_console_data_stream::get_data(int n) {
    return fetch_nothing(n);
}
