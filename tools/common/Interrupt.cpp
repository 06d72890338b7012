#include "Interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The handlers run in any thread.
std::atomic<bool> requested{false};
std::atomic<unsigned> switches{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<unsigned>::is_always_lock_free,
              "a signal handler cannot wait for a lock");
int ends[2] = {-1, -1}; // of a pipe: reading, writing

void make_readable() {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(ends[1], "!", 1); // a full pipe is readable already
    errno = error;
}

extern "C" void note_signal(int) {
    requested = true;
    make_readable();
}

extern "C" void note_switch(int) {
    ++switches;
    make_readable();
}

/// Gives a descriptor a number above the standard ones. Where one of those is closed its number is free, and bytes
/// written to standard output would go into the pipe.
void raise_above_standard(int& fd) {
    constexpr int first_own_descriptor = 3;
    if (fd < 0 || fd >= first_own_descriptor)
        return;
    const int raised = fcntl(fd, F_DUPFD_CLOEXEC, first_own_descriptor);
    close(fd);
    fd = raised;
}

void handle(int signal, void (*handler)(int), int flags = 0) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags; // without SA_RESTART a write that blocks returns, too
    sigaction(signal, &action, nullptr);
}

} // namespace

Interrupt::Interrupt(bool with_switch) {
    requested = false;
    switches = 0;
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        ends[0] = ends[1] = -1;
    for (int& end : ends)
        raise_above_standard(end);
    handle(SIGINT, note_signal);
    handle(SIGTERM, note_signal);
    if (with_switch)
        handle(SIGUSR1, note_switch, SA_RESTART);
}

Interrupt::~Interrupt() {
    handle(SIGINT, SIG_DFL);
    handle(SIGTERM, SIG_DFL);
    handle(SIGUSR1, SIG_DFL);
    close(ends[0]);
    close(ends[1]);
}

int Interrupt::descriptor() const {
    return ends[0];
}

bool Interrupt::is_requested() const {
    return requested;
}

unsigned Interrupt::take_switches() {
    char bytes[64];
    while (read(ends[0], bytes, sizeof bytes) > 0) {
    }
    if (requested)
        make_readable(); // the bytes just read may have been the interrupt's
    return switches.exchange(0);
}
