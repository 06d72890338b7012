#pragma once

#include <glue/export.h>

#include <QSemaphore>

#include <atomic>

/// Counts permits to look again: who finds nothing to do waits for one, who changed something releases one.
///
/// Permits are kept until somebody takes them, so a waiter that finds its permits old looks again as often. A capped
/// semaphore keeps one at most. All operations may be called from any thread.
class GLUE_EXPORT Capped_semaphore {
  public:
    /// Permits kept without a cap; further ones are as good as these, and are not counted. A stream that lives for
    /// years with nobody waiting must not overflow the count.
    static constexpr int most_permits = 1 << 16;

    /// No permits, no cap.
    Capped_semaphore() = default;

    /// Adds one permit. With the cap set, one of several is taken back.
    void release();

    /// Takes one permit, waiting for one without limit.
    void acquire();

    /// Takes one permit, waiting for one up to `ms` milliseconds; 0 does not wait, a negative limit is none.
    /// \return whether a permit was taken
    bool acquire(int ms);

    /// Permits that nobody has taken.
    int available() const { return permits_.available(); }

    /// Sets or lifts the cap for the releases to come.
    void set_capped(bool on) { capped_ = on; }
    bool is_capped() const { return capped_; }

  private:
    QSemaphore permits_;
    std::atomic<bool> capped_{false};
};
