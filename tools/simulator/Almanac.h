#pragma once

#include "Geodesy.h"
#include "Receiver_time.h"

#include <cstdint>

namespace simulator {

// The orbits of the two constellations, as the numbers of their almanac messages. A satellite's place that is computed
// from an almanac is therefore its place in the simulated sky. Angles in radians, times in seconds.

/// Almanac of the first constellation: Kepler's elements of an ellipse, as GA sends them.
struct Keplerian_almanac {
    std::uint8_t sv;     ///< number within the constellation
    std::int16_t week;   ///< the almanac's moment: week ...
    std::int32_t ms;     ///< ... and milliseconds of it
    std::uint8_t health; ///< 0: healthy
    float af1;           ///< the clock's drift
    float af0;           ///< the clock's offset
    float root_a;        ///< square root of the semi-major axis in metres
    float ecc;           ///< eccentricity
    float m0;            ///< mean anomaly at the almanac's moment
    float omega0;        ///< longitude of the ascending node at the beginning of the week
    float arg_per;       ///< argument of perigee
    float deli;          ///< inclination, beyond `mean_inclination`
    float omega_dot;     ///< drift of the ascending node

    static constexpr double mean_inclination = radians(54);
};

/// Almanac of the second constellation: where and when a satellite goes up through the equator's plane, as NA sends it.
struct Nodal_almanac {
    std::uint8_t sv;     ///< number within the constellation
    std::int8_t freq;    ///< frequency channel
    std::int16_t day;    ///< the almanac's moment: day of the four years ...
    float time;          ///< ... and time of the first passage through the node on it, both in the second scale
    std::uint8_t health; ///< 0: healthy
    float tau_n;         ///< the clock's offset
    double tau_sys;      ///< the constellation's clock against UTC
    float ecc;           ///< eccentricity
    float lambda;        ///< longitude of the node at that moment
    float arg_per;       ///< argument of perigee
    float del_t;         ///< time of revolution, beyond `mean_period`
    float del_t_dt;      ///< its change with each revolution: 0, the orbits are steady
    float deli;          ///< inclination, beyond `mean_inclination`

    static constexpr double mean_period = 43200;
    static constexpr double mean_inclination = radians(63);
};

/// The Earth's turn, radians a second.
constexpr double earth_rate = 7.2921151467e-5;
/// The Earth's pull, cubic metres a square second.
constexpr double earth_pull = 3.986005e14;

/// Where a satellite is, Earth-fixed.
Vector position_of(const Keplerian_almanac& almanac, Receiver_time time);
Vector position_of(const Nodal_almanac& almanac, Receiver_time time);

} // namespace simulator
