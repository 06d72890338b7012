#include "Position_scatter.h"

#include <algorithm>
#include <cmath>

namespace live_view {

namespace {

// The ellipsoid of the receiver's positions
constexpr double equatorial_radius = 6378137.0; // metres
constexpr double eccentricity_squared = 0.00669437999014;

constexpr double quarter_turn = 1.57079632679489661923;
constexpr double full_turn = 4 * quarter_turn;

/// Metres per radian at a latitude.
struct Scale {
    explicit Scale(double latitude) {
        const double s = std::sin(latitude);
        const double w = 1 - eccentricity_squared * s * s;
        north = equatorial_radius * (1 - eccentricity_squared) / (w * std::sqrt(w));
        east = equatorial_radius / std::sqrt(w) * std::cos(latitude);
    }
    double north;
    double east;
};

} // namespace

void Position_scatter::add(double latitude, double longitude, double height, Atime now) {
    while (!places_.empty() && (now - places_.front().time > window_ms || places_.size() >= most))
        places_.pop_front();
    if (std::abs(latitude) <= quarter_turn && std::abs(longitude) <= full_turn && std::isfinite(height))
        places_.push_back({latitude, longitude, height, now});
}

/// Averages the small differences from the first place, because large numbers would lose digits.
std::vector<Position_scatter::Offset> Position_scatter::offsets() const {
    std::vector<Offset> offsets;
    if (places_.empty())
        return offsets;
    const Place& first = places_.front();
    const Scale scale(first.latitude);
    Offset mean{0, 0, 0};
    for (const Place& place : places_) {
        offsets.push_back({std::remainder(place.longitude - first.longitude, full_turn) * scale.east,
                           (place.latitude - first.latitude) * scale.north, place.height - first.height});
        mean.east += offsets.back().east;
        mean.north += offsets.back().north;
        mean.up += offsets.back().up;
    }
    const auto count = static_cast<double>(offsets.size());
    for (Offset& offset : offsets) {
        offset.east -= mean.east / count;
        offset.north -= mean.north / count;
        offset.up -= mean.up / count;
    }
    return offsets;
}

Position_scatter::Spread Position_scatter::spread() const {
    Spread spread{places_.size(), {0, 0, 0}, 0};
    if (places_.empty())
        return spread;
    for (const Offset& offset : offsets()) {
        spread.sigma.east += offset.east * offset.east;
        spread.sigma.north += offset.north * offset.north;
        spread.sigma.up += offset.up * offset.up;
        spread.reach = std::max(spread.reach, std::hypot(offset.east, offset.north));
    }
    const auto count = static_cast<double>(spread.positions);
    spread.sigma = {std::sqrt(spread.sigma.east / count), std::sqrt(spread.sigma.north / count),
                    std::sqrt(spread.sigma.up / count)};
    return spread;
}

} // namespace live_view
