#include "detail/Pipe_signal_guard.h"

#include <cerrno>
#include <ctime>

namespace glue_detail {

namespace {

bool pipe_signal_is_pending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

} // namespace

Pipe_signal_guard::Pipe_signal_guard() : was_pending_(pipe_signal_is_pending()) {
    sigemptyset(&pipe_signal_);
    sigaddset(&pipe_signal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal_, &mask_before_);
}

Pipe_signal_guard::~Pipe_signal_guard() {
    const int error = errno;
    if (!was_pending_ && pipe_signal_is_pending()) {
        constexpr timespec at_once{0, 0};
        while (sigtimedwait(&pipe_signal_, nullptr, &at_once) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
    errno = error;
}

} // namespace glue_detail
