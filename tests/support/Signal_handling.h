#pragma once

#include <csignal>

/// Handles a signal in this way while it lives, and as before afterwards.
class Signal_handling {
  public:
    Signal_handling(int number, void (*handler)(int)) : number_(number), before_(std::signal(number, handler)) {}
    ~Signal_handling() { std::signal(number_, before_); }
    Signal_handling(const Signal_handling&) = delete;
    Signal_handling& operator=(const Signal_handling&) = delete;

  private:
    int number_;
    void (*before_)(int);
};
