#pragma once

#include "Automation.h"
#include "Dilution.h"
#include "Machine.h"
#include "Receiver_time.h"
#include "Sky.h"

#include <vector>

namespace simulator {

/// The receiver's data of one moment.
struct Epoch {
    Receiver_time time;
    Machine::State motion;
    const std::vector<Sighting>& sightings;
    Dilution dilution;

    // At most one of the two; null: no almanac is due.
    const Keplerian_almanac* first_almanac = nullptr;
    const Nodal_almanac* second_almanac = nullptr;

    // Optional messages
    Automation* automation = nullptr; ///< null: no status message
    bool display = false;             ///< the display's numbers
    bool sentence = false;            ///< the position as an NMEA sentence
};

} // namespace simulator
