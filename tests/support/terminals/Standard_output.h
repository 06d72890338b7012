#pragma once

#include <cstdio>
#include <unistd.h>

/// Makes a descriptor the process's standard output while it exists.
class Standard_output {
  public:
    explicit Standard_output(int fd) : original_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        dup2(fd, STDOUT_FILENO);
    }
    ~Standard_output() {
        std::fflush(stdout);
        dup2(original_, STDOUT_FILENO);
        close(original_);
    }
    Standard_output(const Standard_output&) = delete;
    Standard_output& operator=(const Standard_output&) = delete;

  private:
    int original_;
};
