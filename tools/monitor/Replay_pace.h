#pragma once

#include <platform/Atime.h>

#include <cstdint>

/// When a record's epochs are due that is played back at so many times the pace at which it came.
///
/// The pace counts from the first epoch on, so that rounding adds up to nothing. The receiver's time goes round at
/// midnight. A step back, or one forward of more than an hour, is another beginning: it is not waited for.
class Replay_pace {
  public:
    static constexpr std::int64_t longest_step_ms = 3600000;
    static constexpr std::int64_t ms_per_day = 86400000;

    /// \param speed  how many times as fast; 0: nothing is waited for
    explicit Replay_pace(double speed) : speed_(speed) {}

    /// When the next epoch is due, which is of this time of the receiver's day.
    Atime due(std::int64_t ms_of_day);

  private:
    double speed_;
    bool begun_ = false;
    std::int64_t last_ms_ = 0;
    std::int64_t elapsed_ms_ = 0; ///< receiver's time since the beginning
    Atime begin_;
};
