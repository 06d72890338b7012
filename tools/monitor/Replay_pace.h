#pragma once

#include <platform/Atime.h>

#include <cstdint>

/// Computes when the epochs of a record are due in a replay at a given speed.
///
/// All times count from the first epoch, so that rounding errors do not add up. The receiver's time of day begins again
/// at midnight. A step back, or a step forward of more than an hour, starts the count again: such an epoch is due at
/// once.
class Replay_pace {
  public:
    static constexpr std::int64_t longest_step_ms = 3600000;
    static constexpr std::int64_t ms_per_day = 86400000;

    /// \param speed  how many times as fast as recorded; 0: every epoch is due at once
    explicit Replay_pace(double speed) : speed_(speed) {}

    /// When the next epoch is due. \param ms_of_day  its time of the receiver's day
    Atime due(std::int64_t ms_of_day);

  private:
    double speed_;
    bool begun_ = false;
    std::int64_t last_ms_ = 0;
    std::int64_t elapsed_ms_ = 0; ///< receiver's time since the beginning
    Atime begin_;
};
