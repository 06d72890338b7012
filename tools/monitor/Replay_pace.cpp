#include "Replay_pace.h"

Atime Replay_pace::due(std::int64_t ms_of_day) {
    const std::int64_t step = (ms_of_day - last_ms_ + ms_per_day) % ms_per_day;
    last_ms_ = ms_of_day;
    if (!begun_ || speed_ == 0 || step > longest_step_ms) {
        begun_ = true;
        elapsed_ms_ = 0;
        begin_ = Atime::now();
        return begin_;
    }
    elapsed_ms_ += step;
    return begin_ + static_cast<std::int64_t>(static_cast<double>(elapsed_ms_) / speed_);
}
