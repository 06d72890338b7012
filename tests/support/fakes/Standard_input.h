#pragma once

#include <string_view>

/// What the process finds on its standard input while this lives.
class Standard_input {
  public:
    /// The descriptor, which stays the caller's.
    explicit Standard_input(int fd);
    /// These bytes, then the end.
    explicit Standard_input(std::string_view bytes);
    /// Puts the original standard input back.
    ~Standard_input();
    Standard_input(const Standard_input&) = delete;
    Standard_input& operator=(const Standard_input&) = delete;

  private:
    int original_;
};
