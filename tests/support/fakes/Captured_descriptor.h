#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

/// Collects what the process writes to a descriptor (for example 1 or 2) while it exists.
class Captured_descriptor {
  public:
    explicit Captured_descriptor(int fd);
    ~Captured_descriptor();
    Captured_descriptor(const Captured_descriptor&) = delete;
    Captured_descriptor& operator=(const Captured_descriptor&) = delete;

    /// Everything so far.
    std::string text() const;

  private:
    int fd_;
    int original_;
    std::FILE* file_;
};
