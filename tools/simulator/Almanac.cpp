#include "Almanac.h"

#include <cmath>

namespace simulator {

namespace {

/// A satellite in its orbit: the shape of the ellipse and how far along it is.
struct Orbit {
    double semi_major_axis;
    double ecc;
    double arg_per;
    double inclination;
    double mean_anomaly;
    double node; ///< the ascending node's longitude now
};

/// Solves Kepler's equation by Newton's method; the orbits are nearly circular, so a few steps are enough.
double eccentric_anomaly(double mean_anomaly, double ecc) {
    constexpr int steps = 4;
    double anomaly = mean_anomaly;
    for (int i = 0; i < steps; ++i)
        anomaly -= (anomaly - ecc * std::sin(anomaly) - mean_anomaly) / (1 - ecc * std::cos(anomaly));
    return anomaly;
}

double mean_anomaly(double true_anomaly, double ecc) {
    const double anomaly = 2 * std::atan2(std::sqrt(1 - ecc) * std::sin(true_anomaly / 2),
                                          std::sqrt(1 + ecc) * std::cos(true_anomaly / 2));
    return anomaly - ecc * std::sin(anomaly);
}

Vector position_in(const Orbit& orbit) {
    const double anomaly = eccentric_anomaly(orbit.mean_anomaly, orbit.ecc);
    // Along the line to perigee, and across it in the plane of the orbit.
    const double along = orbit.semi_major_axis * (std::cos(anomaly) - orbit.ecc);
    const double across = orbit.semi_major_axis * std::sqrt(1 - orbit.ecc * orbit.ecc) * std::sin(anomaly);
    // Along the line to the ascending node, and across it.
    const double x = along * std::cos(orbit.arg_per) - across * std::sin(orbit.arg_per);
    const double y = along * std::sin(orbit.arg_per) + across * std::cos(orbit.arg_per);
    const double level_y = y * std::cos(orbit.inclination);
    return {x * std::cos(orbit.node) - level_y * std::sin(orbit.node),
            x * std::sin(orbit.node) + level_y * std::cos(orbit.node), y * std::sin(orbit.inclination)};
}

} // namespace

Vector position_of(const Keplerian_almanac& almanac, Receiver_time time) {
    const Receiver_time reference(almanac.week * Receiver_time::ms_per_week + almanac.ms);
    const double seconds = time.seconds_since(reference);
    const double a = double{almanac.root_a} * almanac.root_a;
    const double node = almanac.omega0 + (almanac.omega_dot - earth_rate) * seconds - earth_rate * almanac.ms / 1000;
    return position_in({a, almanac.ecc, almanac.arg_per, Keplerian_almanac::mean_inclination + almanac.deli,
                        almanac.m0 + std::sqrt(earth_pull / (a * a * a)) * seconds, node});
}

Vector position_of(const Nodal_almanac& almanac, Receiver_time time) {
    constexpr int days_in_four_years = Receiver_time::days_in_four_years;
    // The passage may be up to two years before or after: days are counted modulo four years.
    const int half = days_in_four_years / 2;
    const int days = (time.moscow_day() - almanac.day + half + days_in_four_years) % days_in_four_years - half;
    const double seconds = days * 86400.0 + time.moscow_ms_of_day() / 1000.0 - almanac.time;
    const double rate = 2 * pi / (Nodal_almanac::mean_period + almanac.del_t);
    const double at_node = mean_anomaly(-almanac.arg_per, almanac.ecc);
    return position_in({std::cbrt(earth_pull / (rate * rate)), almanac.ecc, almanac.arg_per,
                        Nodal_almanac::mean_inclination + almanac.deli, at_node + rate * seconds,
                        almanac.lambda - earth_rate * seconds});
}

} // namespace simulator
