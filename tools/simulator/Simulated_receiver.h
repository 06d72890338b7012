#pragma once

#include "Epoch.h"
#include "Epoch_writer.h"
#include "Frame_line.h"
#include "Machine.h"
#include "Sky.h"

#include <cstdint>
#include <vector>

namespace simulator {

/// A receiver on a machine that works a field: epoch after epoch, as bytes on a line.
///
///     Simulated_receiver receiver(Simulated_receiver::Options{});
///     for (;;)
///         send_all(stream, receiver.next_epoch());
///
/// The options decide every byte; the wall clock decides none.
class Simulated_receiver {
  public:
    struct Options {
        std::uint32_t seed = 1;
        std::int64_t interval_ms = 100; ///< simulated time from one epoch to the next
        double noise = 0;               ///< fraction of frames that random bytes follow
        double corrupt = 0;             ///< fraction of frames with one byte changed
        bool crlf = false;              ///< frames end CR LF, not LF
        bool automation = false;        ///< each epoch has a status of the automation
        bool display = false;           ///< each epoch has the display's numbers
        bool nmea = false;              ///< each epoch is followed by its position as a sentence
    };

    /// The first epoch's time: a Monday morning.
    static constexpr Receiver_time::Date start_date = {2025, 5, 12};
    static constexpr std::int64_t start_ms = 6 * 3600 * 1000;
    /// The middle of the field.
    static const Geodetic reference_point;
    /// One almanac is sent with every so many epochs.
    static constexpr unsigned epochs_per_almanac = 2;

    explicit Simulated_receiver(const Options& options);
    Simulated_receiver(const Simulated_receiver&) = delete;
    Simulated_receiver& operator=(const Simulated_receiver&) = delete;

    /// The next epoch's bytes, valid until the next call.
    const std::vector<unsigned char>& next_epoch();

    /// For commands. It exists whether or not its status is sent.
    Automation& automation() { return automation_; }

  private:
    void choose_almanac(Epoch& epoch) const;

    Options options_;
    Seeded_random world_random_;
    Seeded_random sky_random_;
    Receiver_time start_;
    Local_frame field_;
    Machine machine_;
    Automation automation_;
    Sky sky_;
    Frame_line line_;
    Epoch_writer writer_;
    std::int64_t epoch_number_ = 0;
};

} // namespace simulator
