#include "Simulated_receiver.h"

namespace simulator {

const Geodetic Simulated_receiver::reference_point = {radians(52.25), radians(10.5), 78};

Simulated_receiver::Simulated_receiver(const Options& options)
    : options_(options),
      world_random_(options.seed, Seeded_random::Purpose::world),
      sky_random_(options.seed, Seeded_random::Purpose::sky),
      start_(Receiver_time::at(start_date, start_ms)),
      field_(reference_point),
      machine_(field_, world_random_),
      sky_(field_, start_, sky_random_),
      line_(Disturbance(options.seed, options.noise, options.corrupt), options.crlf),
      writer_(line_) {}

const std::vector<unsigned char>& Simulated_receiver::next_epoch() {
    const Receiver_time now = start_ + epoch_number_ * options_.interval_ms;
    const std::vector<Sighting>& sightings = sky_.observe(now, sky_random_);
    Epoch epoch = {now, machine_.at(now.seconds_since(start_)), sightings, dilution_of(sightings)};
    choose_almanac(epoch);
    epoch.automation = options_.automation ? &automation_ : nullptr;
    epoch.display = options_.display;
    epoch.sentence = options_.nmea;
    line_.clear();
    writer_.write(epoch);
    ++epoch_number_;
    return line_.bytes();
}

/// The almanacs repeat forever: all of the first constellation, then all of the second.
void Simulated_receiver::choose_almanac(Epoch& epoch) const {
    if (epoch_number_ % epochs_per_almanac != 0)
        return;
    const auto index = static_cast<std::size_t>(epoch_number_ / epochs_per_almanac % Sky::satellites);
    if (index < Sky::first_count)
        epoch.first_almanac = &sky_.first_almanacs()[index];
    else
        epoch.second_almanac = &sky_.second_almanacs()[index - Sky::first_count];
}

} // namespace simulator
