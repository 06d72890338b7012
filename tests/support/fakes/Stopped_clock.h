#pragma once

/// Takes over `Atime::now()` while it lives: time stands still, at the moment of construction, until the test moves it.
/// Waits that count real time go on doing so. One at a time.
class Stopped_clock {
  public:
    Stopped_clock();
    ~Stopped_clock();
    Stopped_clock(const Stopped_clock&) = delete;
    Stopped_clock& operator=(const Stopped_clock&) = delete;

    /// Moves time by `ms`, also backwards.
    void advance(int ms);
};
