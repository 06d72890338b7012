#pragma once

#include "Epoch.h"
#include "Frame_line.h"

namespace simulator {

/// Writes an epoch as the receiver's messages, in this order:
///
///     ~~  receiver time      milliseconds of the day
///     GT  first time scale   milliseconds of the week, week since 6 January 1980
///     NT  second time scale  milliseconds of the day, day of the four years (1 to 1461)
///     RD  date               of the receiver time; base 0
///     PG  position           radians, metres; sigma of all three axes together
///     SG  sigmas             metres, metres a second: a range's own, times the dilution of precision
///     PV  position, velocity the same place, Earth-fixed
///     DP  dilution           of the satellites in use
///     PS  solution           satellites locked (listed), available (healthy) and used, of each constellation; fix in
///                            per cent: 100
///     ST  solution time      milliseconds of the day
///     SI  satellites listed  all above the horizon: 1 to 30 of the first constellation, 65 to 88 of the second
///     NN  own numbers        within the constellation, as in the almanacs
///     EL  elevations         degrees
///     AZ  azimuths           in steps of two degrees
///     SS  signal strengths   dB-Hz; the byte after the entries is 0
///     TC  tracking times     seconds since the satellite rose or the receiver was switched on, at most 65535
///     EC  use in solution    0 used, 1 below the elevation mask, 2 unhealthy
///     E1  first frequency    0 good, 1 weak signal
///     E2  second frequency   the same
///     GA or NA               an almanac, when one is due
///     GS  automation         if enabled: state, curvature of the path, a heartbeat
///     ES  display            if enabled: control mode, implement (whole numbers), curvature in 1 / metres, speed in
///                            metres a second (floats)
///     ||  end of the epoch
///     $GPGGA                 if enabled: the same position as a sentence, in UTC
///
/// Solution types are 4 throughout: differential, ambiguities fixed.
class Epoch_writer {
  public:
    explicit Epoch_writer(Frame_line& line) : line_(line) {}

    void write(const Epoch& epoch);

  private:
    void write_time(const Epoch& epoch);
    void write_solution(const Epoch& epoch);
    void write_satellites(const Epoch& epoch);
    void write_almanac(const Epoch& epoch);
    void write_automation(const Epoch& epoch);
    void write_display(const Epoch& epoch);
    void write_sentence(const Epoch& epoch);

    template <typename Message, typename Fill>
    void write_message(Fill fill);
    template <typename List, typename Entry_of>
    void write_list(const std::vector<Sighting>& sightings, Entry_of entry_of);

    Frame_line& line_;
};

} // namespace simulator
