#include "Geodesy.h"

#include <cmath>

namespace simulator {

namespace {

// WGS-84: equatorial radius in metres, flattening, and the square of the eccentricity that follows from it.
constexpr double radius = 6378137.0;
constexpr double flattening = 1 / 298.257223563;
constexpr double eccentricity2 = flattening * (2 - flattening);

/// The radius of curvature across the meridian.
double cross_radius(double sin_latitude) {
    return radius / std::sqrt(1 - eccentricity2 * sin_latitude * sin_latitude);
}

} // namespace

double length(Vector v) {
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

Vector to_earth_fixed(Geodetic place) {
    const double sin_latitude = std::sin(place.latitude);
    const double cos_latitude = std::cos(place.latitude);
    const double n = cross_radius(sin_latitude);
    return {(n + place.height) * cos_latitude * std::cos(place.longitude),
            (n + place.height) * cos_latitude * std::sin(place.longitude),
            (n * (1 - eccentricity2) + place.height) * sin_latitude};
}

Geodetic to_geodetic(Vector p) {
    // Each iteration adds two to three digits; the first guess is within a metre near the ground.
    constexpr int rounds = 6;
    const double from_axis = std::hypot(p.x, p.y);
    Geodetic place = {std::atan2(p.z, from_axis * (1 - eccentricity2)), std::atan2(p.y, p.x), 0};
    for (int i = 0; i < rounds; ++i) {
        const double n = cross_radius(std::sin(place.latitude));
        place.latitude = std::atan2(p.z + eccentricity2 * n * std::sin(place.latitude), from_axis);
    }
    const double sin_latitude = std::sin(place.latitude);
    place.height = from_axis * std::cos(place.latitude) + p.z * sin_latitude -
                   radius * std::sqrt(1 - eccentricity2 * sin_latitude * sin_latitude);
    return place;
}

Local_frame::Local_frame(Geodetic origin)
    : origin_(to_earth_fixed(origin)),
      sin_latitude_(std::sin(origin.latitude)),
      cos_latitude_(std::cos(origin.latitude)),
      sin_longitude_(std::sin(origin.longitude)),
      cos_longitude_(std::cos(origin.longitude)) {}

Vector Local_frame::direction(Vector v) const {
    const double outwards = cos_latitude_ * v.z - sin_latitude_ * v.y; // from the Earth's axis
    return {cos_longitude_ * outwards - sin_longitude_ * v.x, sin_longitude_ * outwards + cos_longitude_ * v.x,
            sin_latitude_ * v.z + cos_latitude_ * v.y};
}

Vector Local_frame::local(Vector earth_fixed) const {
    const Vector v = earth_fixed - origin_;
    const double outwards = cos_longitude_ * v.x + sin_longitude_ * v.y;
    return {cos_longitude_ * v.y - sin_longitude_ * v.x, cos_latitude_ * v.z - sin_latitude_ * outwards,
            sin_latitude_ * v.z + cos_latitude_ * outwards};
}

} // namespace simulator
