#pragma once

#include <csignal>

namespace glue_detail {

/// While it lives, a write of this thread to a pipe that nobody reads any more fails with EPIPE and does nothing else:
/// the SIGPIPE that would end the process is taken out again. A SIGPIPE that was waiting before is left alone, and so
/// is `errno`.
class Pipe_signal_guard {
  public:
    Pipe_signal_guard();
    ~Pipe_signal_guard();
    Pipe_signal_guard(const Pipe_signal_guard&) = delete;
    Pipe_signal_guard& operator=(const Pipe_signal_guard&) = delete;

  private:
    sigset_t pipe_signal_;
    sigset_t mask_before_;
    bool was_pending_;
};

} // namespace glue_detail
