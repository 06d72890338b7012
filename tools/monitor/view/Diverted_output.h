#pragma once

#include <string>

namespace live_view {

/// While it lives, what the process and its children say on standard output and standard error goes to memory instead
/// of onto the screen that somebody draws; at its end, and when the process dies of a signal, the last of it is told on
/// standard error. A standard error that is no terminal is left alone.
class Diverted_output {
  public:
    Diverted_output();
    ~Diverted_output();
    Diverted_output(const Diverted_output&) = delete;
    Diverted_output& operator=(const Diverted_output&) = delete;

    /// The last line that was said since the question before; "" when none was.
    std::string last_new_line();

  private:
    void divert(int fd, int& original);
    static void restore(int fd, int& original);
    std::string said_from(long long offset) const;
    long long size() const;

    int file_ = -1;
    int output_ = -1; // the original ones
    int errors_ = -1;
    long long looked_at_ = 0;
};

} // namespace live_view
