#pragma once

#include <platform/Debug.h>

#include <mutex>
#include <string>

/// Collects what the debug printer prints while it lives; standard error gets nothing of it.
class Captured_debug {
  public:
    Captured_debug();
    ~Captured_debug();
    Captured_debug(const Captured_debug&) = delete;
    Captured_debug& operator=(const Captured_debug&) = delete;

    /// Everything so far, as printed. A line that has no line feed yet is not there.
    std::string text() const;
    /// The same with every time stamp replaced by "<time> ".
    std::string text_without_times() const;

  private:
    mutable std::mutex mutex_;
    std::string text_;
};
