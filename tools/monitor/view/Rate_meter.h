#pragma once

#include <platform/Atime.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace live_view {

/// Events a second over the last ten complete seconds, or fewer at the start.
class Rate_meter {
  public:
    static constexpr std::int64_t window = 10; // seconds

    /// Counts from `start` on. The second that contains `start` is not complete and never used.
    explicit Rate_meter(Atime start) : start_(second_of(start)) {}

    /// Times must not go back.
    void add(std::uint64_t count, Atime now) {
        Second& second = seconds_[index_of(second_of(now))];
        if (second.number != second_of(now))
            second = {second_of(now), 0};
        second.count += count;
    }

    /// Empty before the first complete second.
    std::optional<double> per_second(Atime now) const {
        const std::int64_t end = second_of(now); // this second is not complete
        const std::int64_t begin = std::max(end - window, start_ + 1);
        if (begin >= end)
            return std::nullopt;
        std::uint64_t sum = 0;
        for (const Second& second : seconds_)
            if (second.number >= begin && second.number < end)
                sum += second.count;
        return static_cast<double>(sum) / static_cast<double>(end - begin);
    }

  private:
    struct Second {
        std::int64_t number = -1;
        std::uint64_t count = 0;
    };

    static std::int64_t second_of(Atime time) { return time.units() / 1000; }
    static std::size_t index_of(std::int64_t second) { return static_cast<std::size_t>(second % (window + 1)); }

    std::int64_t start_;
    std::array<Second, window + 1> seconds_; // the window and the current second
};

} // namespace live_view
