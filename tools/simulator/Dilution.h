#pragma once

#include "Sky.h"

#include <vector>

namespace simulator {

/// How the satellites' places in the sky blow up a range's error into one of the solution.
struct Dilution {
    double horizontal;
    double vertical;
    double time;

    /// What all three are when the satellites give no solution.
    static constexpr double none = 99;
};

/// From the geometry matrix of the satellites in use: their directions, and one clock for both constellations.
Dilution dilution_of(const std::vector<Sighting>& sightings);

} // namespace simulator
