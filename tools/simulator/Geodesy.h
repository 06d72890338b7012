#pragma once

namespace simulator {

constexpr double pi = 3.14159265358979323846;

constexpr double radians(double degrees) {
    return degrees * pi / 180;
}
constexpr double degrees(double radians) {
    return radians * 180 / pi;
}

struct Vector {
    double x = 0;
    double y = 0;
    double z = 0;
};

inline Vector operator+(Vector a, Vector b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vector operator-(Vector a, Vector b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
double length(Vector v);

/// A place on the WGS-84 ellipsoid: radians, and metres above it.
struct Geodetic {
    double latitude = 0;
    double longitude = 0;
    double height = 0;
};

/// Earth-centred, Earth-fixed metres of a place, and back. Both agree to far below a millimetre near the ground.
Vector to_earth_fixed(Geodetic place);
Geodetic to_geodetic(Vector earth_fixed);

/// A level frame at a place: x to the east, y to the north, z up, in metres.
class Local_frame {
  public:
    explicit Local_frame(Geodetic origin);

    /// The Earth-fixed position of a local one.
    Vector position(Vector local) const { return origin_ + direction(local); }
    /// The same for differences and velocities.
    Vector direction(Vector local) const;
    /// The local position of an Earth-fixed one.
    Vector local(Vector earth_fixed) const;

  private:
    Vector origin_;
    double sin_latitude_;
    double cos_latitude_;
    double sin_longitude_;
    double cos_longitude_;
};

} // namespace simulator
