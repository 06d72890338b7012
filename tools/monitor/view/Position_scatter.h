#pragma once

#include <platform/Atime.h>

#include <cstddef>
#include <deque>
#include <vector>

namespace live_view {

/// The positions of the last minute and their distances from the mean.
class Position_scatter {
  public:
    static constexpr std::int64_t window_ms = 60000;
    static constexpr std::size_t most = 600; // of a fast receiver only the latest ones are kept

    /// Metres.
    struct Offset {
        double east;
        double north;
        double up;
    };
    struct Spread {
        std::size_t positions; ///< 0: the other values have no meaning
        Offset sigma;          ///< root mean square of the offsets from the mean position
        double reach;          ///< the largest horizontal distance from the mean position, metres
    };

    /// Radians and metres. Values that are no place are ignored. Times must not go back.
    void add(double latitude, double longitude, double height, Atime now);
    void clear() { places_.clear(); }

    Spread spread() const;
    /// Offsets from the mean position, oldest first.
    std::vector<Offset> offsets() const;

  private:
    struct Place {
        double latitude;
        double longitude;
        double height;
        Atime time;
    };

    std::deque<Place> places_;
};

} // namespace live_view
