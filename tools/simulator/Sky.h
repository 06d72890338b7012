#pragma once

#include "Almanac.h"
#include "Geodesy.h"
#include "Receiver_time.h"
#include "Seeded_random.h"

#include <cstdint>
#include <vector>

namespace simulator {

/// One satellite above the horizon, as the receiver observes it at one moment.
struct Sighting {
    enum class Constellation : std::uint8_t { first = 0, second = 1 };
    /// Whether the solution uses the satellite, and why not.
    enum class Use : std::uint8_t { used = 0, below_mask = 1, unhealthy = 2 };

    std::uint8_t number;     ///< unique among the satellites of both constellations
    std::uint8_t own_number; ///< within its constellation, as in its almanac
    Constellation constellation;
    Use use;
    double elevation;       ///< radians
    double azimuth;         ///< radians from north to east, 0 to 2 pi
    double strength;        ///< of the first frequency's signal, dB-Hz
    double tracked_seconds; ///< since it rose or the receiver was switched on
};

/// Two constellations of satellites over one place.
///
/// The seed turns the constellations and decides the small differences between orbits, the clocks and the flicker of
/// signal strengths.
class Sky {
  public:
    // The first constellation: six planes, almanacs in GA, numbers 1 to 30.
    static constexpr int first_planes = 6;
    static constexpr int first_per_plane = 5;
    static constexpr int first_count = first_planes * first_per_plane;
    // The second constellation: three planes, almanacs in NA, numbers 65 to 88.
    static constexpr int second_planes = 3;
    static constexpr int second_per_plane = 8;
    static constexpr int second_count = second_planes * second_per_plane;
    static constexpr int second_number_offset = 64;

    static constexpr int satellites = first_count + second_count;
    /// This satellite of the first constellation is unhealthy.
    static constexpr int unhealthy_sv = 13;
    /// The solution uses satellites from this elevation on.
    static constexpr double mask = radians(10);

    Sky(const Local_frame& site, Receiver_time start, Seeded_random& random);

    /// All satellites above the horizon, by number. Times must not go back.
    /// \return valid until the next call
    const std::vector<Sighting>& observe(Receiver_time time, Seeded_random& random);

    const std::vector<Keplerian_almanac>& first_almanacs() const { return first_; }
    const std::vector<Nodal_almanac>& second_almanacs() const { return second_; }

  private:
    void make_first(Receiver_time start, Seeded_random& random);
    void make_second(Receiver_time start, Seeded_random& random);
    template <typename Almanac>
    void look_for(const Almanac& almanac, Sighting sighting, Receiver_time time, Seeded_random& random);

    static constexpr std::int64_t not_up = -1;

    Local_frame site_;
    std::vector<Keplerian_almanac> first_;
    std::vector<Nodal_almanac> second_;
    std::vector<Sighting> sightings_;
    std::vector<std::int64_t> up_since_; ///< by number: milliseconds of the receiver's time, or `not_up`
};

} // namespace simulator
