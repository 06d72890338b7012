#pragma once

#include <string>

namespace live_view {

/// While it exists, whatever the process and its children write to standard output and standard error goes to memory
/// instead of onto the screen. The destructor, or a signal that ends the process, copies the last of it to standard
/// error. A standard error that is no terminal is left unchanged.
class Diverted_output {
  public:
    Diverted_output();
    ~Diverted_output();
    Diverted_output(const Diverted_output&) = delete;
    Diverted_output& operator=(const Diverted_output&) = delete;

    /// The last line written since the previous call; "" when there is none.
    std::string last_new_line();

  private:
    void divert(int fd, int& original);
    static void restore(int fd, int& original);
    std::string text_from(long long offset) const;
    long long size() const;

    int file_ = -1;
    int original_output_ = -1;
    int original_errors_ = -1;
    long long read_to_ = 0;
};

} // namespace live_view
