#pragma once

#include <platform/Debug.h>

#include <mutex>
#include <string>

/// Collects the output of the debug printer while it exists; nothing goes to standard error.
class Captured_debug {
  public:
    Captured_debug();
    ~Captured_debug();
    Captured_debug(const Captured_debug&) = delete;
    Captured_debug& operator=(const Captured_debug&) = delete;

    /// Everything so far, as printed, without an unfinished line.
    std::string text() const;
    /// The same with every time stamp replaced by "<time> ".
    std::string text_without_times() const;

  private:
    mutable std::mutex mutex_;
    std::string text_;
};
