#pragma once

#include <glue/vesk/GNSS_messages.h>

#include <optional>
#include <vector>

namespace live_view {

/// A satellite as the receiver sees it.
struct Satellite {
    int number;
    int elevation;               ///< degrees
    int azimuth;                 ///< degrees
    std::optional<int> strength; ///< dB-Hz
    std::optional<int> use;      ///< 0: the solution uses it
};

/// Combines satellites from the receiver's lists, one list for each property.
///
/// An entry belongs to the satellite at the same index of the list of numbers, so only lists of one epoch and of the
/// same length are combined. Until a new set is complete the previous one stays.
class Sky_lists {
  public:
    void epoch_begins();
    void numbers(const GNSS_messages::Msg_SI& list) { take(numbers_, list); }
    void elevations(const GNSS_messages::Msg_EL& list) { take(elevations_, list); }
    /// Entries are steps of two degrees.
    void azimuths(const GNSS_messages::Msg_AZ& list) { take(azimuths_, list, GNSS_messages::Msg_AZ::unit); }
    void strengths(const GNSS_messages::Msg_SS& list) { take(strengths_, list); }
    void uses(const GNSS_messages::Msg_EC& list) { take(uses_, list); }

    const std::vector<Satellite>& satellites() const { return satellites_; }

  private:
    using List = std::optional<std::vector<int>>;

    template <typename Message>
    void take(List& list, const Message& message, int unit = 1) {
        std::vector<int> entries(message.get_num_entries());
        for (unsigned i = 0; i < entries.size(); ++i)
            entries[i] = message.get_entry(i) * unit;
        list = std::move(entries);
        combine();
    }
    void combine();

    List numbers_, elevations_, azimuths_, strengths_, uses_;
    std::vector<Satellite> satellites_;
};

} // namespace live_view
