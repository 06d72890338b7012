#pragma once

#include <platform/Atime.h>

#include <cstddef>
#include <deque>
#include <vector>

namespace live_view {

/// The positions of the last minute, and how far they lie from one another.
class Position_scatter {
  public:
    static constexpr std::int64_t window_ms = 60000;
    static constexpr std::size_t most = 600; // of a faster receiver only the last so many are kept

    /// Metres.
    struct Offset {
        double east;
        double north;
        double up;
    };
    struct Spread {
        std::size_t positions; ///< 0: the rest says nothing
        Offset sigma;          ///< root mean square of the offsets from the mean position
        double reach;          ///< the largest horizontal distance from the mean position, metres
    };

    /// Radians and metres. What is no place is left out. To be called with times that do not go back.
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
