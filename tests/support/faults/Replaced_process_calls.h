#pragma once

#include <functional>
#include <sys/types.h>
#include <wordexp.h>

/// While it lives, replaces calls of the program to the C library that start and end child processes.
/// Calls that are not set go to the C library. One at a time; set it up before other threads make such calls.
class Replaced_process_calls {
  public:
    Replaced_process_calls();
    ~Replaced_process_calls();
    Replaced_process_calls(const Replaced_process_calls&) = delete;
    Replaced_process_calls& operator=(const Replaced_process_calls&) = delete;

    std::function<pid_t()> fork;
    std::function<pid_t(pid_t pid, int options)> waitpid;
    std::function<int(pid_t pid, int signal)> kill;
    std::function<int(const char* text)> wordexp;
    std::function<void()> wordfree;
};

/// The C library's own function, also while it is replaced.
pid_t original_waitpid(pid_t pid, int* status, int options);
