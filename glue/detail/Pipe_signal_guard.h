#pragma once

#include <csignal>

namespace glue_detail {

/// While it lives, a write of this thread to a pipe without a reader only fails with EPIPE: the SIGPIPE that would end
/// the process is blocked and removed. A SIGPIPE that was pending before and `errno` are left unchanged.
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
