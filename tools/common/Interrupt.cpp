#include "Interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::atomic<bool> came{false}; // the handler runs in any thread
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler cannot wait for a lock");
int ends[2] = {-1, -1}; // to read, to write

extern "C" void note_signal(int) {
    const int error = errno;
    came = true;
    [[maybe_unused]] const ssize_t written = write(ends[1], "!", 1); // a full pipe is readable all the more
    errno = error;
}

/// Moves a descriptor out of the standard ones' range: where one of those is closed its number is free, and what is
/// meant for it would go through the pipe.
void raise_above_standard(int& fd) {
    constexpr int first_own_descriptor = 3;
    if (fd < 0 || fd >= first_own_descriptor)
        return;
    const int raised = fcntl(fd, F_DUPFD_CLOEXEC, first_own_descriptor);
    close(fd);
    fd = raised;
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler; // without SA_RESTART: a blocked write to a stuck reader ends too
    sigaction(signal, &action, nullptr);
}

} // namespace

Interrupt::Interrupt() {
    came = false;
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        ends[0] = ends[1] = -1;
    for (int& end : ends)
        raise_above_standard(end);
    handle(SIGINT, note_signal);
    handle(SIGTERM, note_signal);
}

Interrupt::~Interrupt() {
    handle(SIGINT, SIG_DFL);
    handle(SIGTERM, SIG_DFL);
    close(ends[0]);
    close(ends[1]);
}

int Interrupt::descriptor() const {
    return ends[0];
}

bool Interrupt::has_come() const {
    return came;
}
