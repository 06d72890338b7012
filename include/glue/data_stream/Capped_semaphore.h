#pragma once

#include <glue/export.h>

#include <QSemaphore>

#include <atomic>

/// A counting semaphore. A thread with nothing to do acquires a permit; a thread that changed something releases one.
///
/// Permits are kept until they are acquired, so a thread may acquire permits of earlier changes: it checks its
/// condition after each. A capped semaphore keeps one permit at most. All operations may be called from any thread.
class GLUE_EXPORT Capped_semaphore {
  public:
    /// Permits kept without a cap; additional ones are not counted. A stream that runs for years without a waiting
    /// thread must not overflow the count.
    static constexpr int most_permits = 1 << 16;

    /// No permits, no cap.
    Capped_semaphore() = default;

    /// Adds one permit. With the cap set, removes one if there are several now.
    void release();

    /// Acquires one permit, waiting without limit.
    void acquire();

    /// Acquires one permit, waiting up to `ms` milliseconds; 0 does not wait, a negative limit is none.
    /// \return whether a permit was acquired
    bool acquire(int ms);

    /// Permits that can be acquired now.
    int available() const { return permits_.available(); }

    /// Sets or clears the cap; it applies to later releases.
    void set_capped(bool on) { capped_ = on; }
    bool is_capped() const { return capped_; }

  private:
    QSemaphore permits_;
    std::atomic<bool> capped_{false};
};
