#pragma once

#include "Sky.h"

#include <vector>

namespace simulator {

/// The factors from the error of a range to the errors of the solution; the satellites' places in the sky decide them.
struct Dilution {
    double horizontal;
    double vertical;
    double time;

    /// All three factors when the satellites give no solution.
    static constexpr double none = 99;
};

/// From the geometry matrix of the satellites in use: their directions, and one clock for both constellations.
Dilution dilution_of(const std::vector<Sighting>& sightings);

} // namespace simulator
