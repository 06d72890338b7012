#pragma once

/// Replaces `Atime::now()` while it exists: it returns the time of construction until the test moves it. Waits that
/// measure real time are not affected. One at a time.
class Stopped_clock {
  public:
    Stopped_clock();
    ~Stopped_clock();
    Stopped_clock(const Stopped_clock&) = delete;
    Stopped_clock& operator=(const Stopped_clock&) = delete;

    /// Moves the time by `ms`, also backwards.
    void advance(int ms);
};
