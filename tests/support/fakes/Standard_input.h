#pragma once

#include <string_view>

/// Replaces the standard input of the process while it exists.
class Standard_input {
  public:
    /// Reads from a descriptor, which the caller still owns.
    explicit Standard_input(int fd);
    /// Contains these bytes, then the end of file.
    explicit Standard_input(std::string_view bytes);
    /// Restores the original standard input.
    ~Standard_input();
    Standard_input(const Standard_input&) = delete;
    Standard_input& operator=(const Standard_input&) = delete;

  private:
    int original_;
};
