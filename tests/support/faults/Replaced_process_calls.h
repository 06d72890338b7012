#pragma once

#include <functional>
#include <sys/types.h>
#include <wordexp.h>

/// Replaces calls that the program makes to the C library to start and end child processes, for as long as it lives.
/// What is not set goes to the C library. One at a time; set it up before other threads make such calls.
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

/// What the C library does, whatever is replaced.
pid_t original_waitpid(pid_t pid, int* status, int options);
