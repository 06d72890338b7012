#pragma once

#include <csignal>

/// While it lives, sets the disposition of a signal; then restores the earlier one. Programs that are started meanwhile
/// inherit that a signal is ignored.
///
///     const Signal_disposition no_pipe_signal(SIGPIPE, SIG_IGN);
class Signal_disposition {
  public:
    Signal_disposition(int number, void (*handler)(int)) : number_(number), before_(std::signal(number, handler)) {}
    ~Signal_disposition() { std::signal(number_, before_); }
    Signal_disposition(const Signal_disposition&) = delete;
    Signal_disposition& operator=(const Signal_disposition&) = delete;

  private:
    int number_;
    void (*before_)(int);
};
