#include "Sky.h"

#include <algorithm>
#include <cmath>

namespace simulator {

namespace {

/// An angle between -pi and pi.
double wrapped(double angle) {
    return std::remainder(angle, 2 * pi);
}

/// A satellite's place in its constellation: the plane, and the angle along it.
struct Place {
    double node;
    double along;
};

Place place_of(int index, int planes, int per_plane) {
    const int plane = index / per_plane;
    const int slot = index % per_plane;
    // Each plane is a part of a slot ahead of the previous one, so that satellites spread over the sky.
    return {2 * pi * plane / planes, 2 * pi * (slot + static_cast<double>(plane) / planes) / per_plane};
}

} // namespace

Sky::Sky(const Local_frame& site, Receiver_time start, Seeded_random& random)
    : site_(site), up_since_(second_number_offset + second_count + 1, not_up) {
    sightings_.reserve(satellites);
    make_first(start, random);
    make_second(start, random);
}

void Sky::make_first(Receiver_time start, Seeded_random& random) {
    constexpr std::int32_t reference_step_ms = 4096000; // almanacs are made for whole steps of the week
    constexpr double inclination = radians(55);
    const double turn = random.between(0, 2 * pi);
    for (int i = 0; i < first_count; ++i) {
        const Place place = place_of(i, first_planes, first_per_plane);
        const double arg_per = random.between(-pi, pi);
        Keplerian_almanac almanac = {};
        almanac.sv = static_cast<std::uint8_t>(i + 1);
        almanac.week = static_cast<std::int16_t>(start.week());
        almanac.ms = static_cast<std::int32_t>(start.ms_of_week()) / reference_step_ms * reference_step_ms;
        almanac.health = almanac.sv == unhealthy_sv ? 0x3F : 0;
        almanac.af1 = static_cast<float>(random.between(-5e-12, 5e-12));
        almanac.af0 = static_cast<float>(random.between(-5e-4, 5e-4));
        almanac.root_a = static_cast<float>(5153.6 + random.between(-0.1, 0.1));
        almanac.ecc = static_cast<float>(random.between(0.001, 0.015));
        almanac.m0 = static_cast<float>(wrapped(place.along + random.between(-0.1, 0.1) - arg_per));
        almanac.omega0 = static_cast<float>(wrapped(place.node + turn));
        almanac.arg_per = static_cast<float>(arg_per);
        almanac.deli =
            static_cast<float>(inclination - Keplerian_almanac::mean_inclination + random.between(-0.01, 0.01));
        almanac.omega_dot = static_cast<float>(random.between(-8.2e-9, -7.8e-9));
        first_.push_back(almanac);
    }
}

void Sky::make_second(Receiver_time start, Seeded_random& random) {
    constexpr double period = 40544; // 11 h 15 min 44 s
    constexpr double inclination = radians(64.8);
    constexpr int frequencies = 14; // -7 to 6; satellites opposite each other in a plane share one
    const double turn = random.between(0, 2 * pi);
    const double tau_sys = random.between(-1e-7, 1e-7);
    for (int i = 0; i < second_count; ++i) {
        const Place place = place_of(i, second_planes, second_per_plane);
        const int pair = i / second_per_plane * (second_per_plane / 2) + i % (second_per_plane / 2);
        Nodal_almanac almanac = {};
        almanac.sv = static_cast<std::uint8_t>(i + 1);
        almanac.freq = static_cast<std::int8_t>(pair % frequencies - frequencies / 2);
        almanac.day = static_cast<std::int16_t>(start.moscow_day());
        almanac.time = static_cast<float>((1 - place.along / (2 * pi)) * period);
        almanac.tau_n = static_cast<float>(random.between(-1e-4, 1e-4));
        almanac.tau_sys = tau_sys;
        almanac.ecc = static_cast<float>(random.between(0.0001, 0.002));
        almanac.lambda = static_cast<float>(wrapped(place.node + turn - earth_rate * almanac.time));
        almanac.arg_per = static_cast<float>(random.between(-pi, pi));
        almanac.del_t = static_cast<float>(period - Nodal_almanac::mean_period + random.between(-1, 1));
        almanac.deli =
            static_cast<float>(inclination - Nodal_almanac::mean_inclination + random.between(-0.005, 0.005));
        second_.push_back(almanac);
    }
}

const std::vector<Sighting>& Sky::observe(Receiver_time time, Seeded_random& random) {
    sightings_.clear();
    for (const Keplerian_almanac& almanac : first_) {
        Sighting sighting = {};
        sighting.number = almanac.sv;
        sighting.constellation = Sighting::Constellation::first;
        look_for(almanac, sighting, time, random);
    }
    for (const Nodal_almanac& almanac : second_) {
        Sighting sighting = {};
        sighting.number = static_cast<std::uint8_t>(second_number_offset + almanac.sv);
        sighting.constellation = Sighting::Constellation::second;
        look_for(almanac, sighting, time, random);
    }
    return sightings_;
}

/// Completes a sighting and adds it, if the satellite is up.
template <typename Almanac>
void Sky::look_for(const Almanac& almanac, Sighting sighting, Receiver_time time, Seeded_random& random) {
    constexpr double horizon_strength = 34;
    constexpr double zenith_gain = 16;
    const Vector line = site_.local(position_of(almanac, time));
    std::int64_t& up_since = up_since_[sighting.number];
    if (line.z <= 0) {
        up_since = not_up;
        return;
    }
    if (up_since == not_up)
        up_since = time.ms();

    sighting.own_number = almanac.sv;
    sighting.elevation = std::atan2(line.z, std::hypot(line.x, line.y));
    sighting.azimuth = std::atan2(line.x, line.y);
    if (sighting.azimuth < 0)
        sighting.azimuth += 2 * pi;
    sighting.strength = horizon_strength + zenith_gain * std::sin(sighting.elevation) + random.between(-1, 1);
    sighting.tracked_seconds = time.seconds_since(Receiver_time(up_since));
    if (almanac.health != 0)
        sighting.use = Sighting::Use::unhealthy;
    else if (sighting.elevation < mask)
        sighting.use = Sighting::Use::below_mask;
    sightings_.push_back(sighting);
}

} // namespace simulator
