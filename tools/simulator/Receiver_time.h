#pragma once

#include <cstdint>

namespace simulator {

/// A moment in the receiver's time, which runs as GPS time does: no leap seconds, weeks from 6 January 1980 on.
class Receiver_time {
  public:
    struct Date {
        int year;
        int month; ///< 1 to 12
        int day;   ///< 1 to 31
    };

    static constexpr std::int64_t ms_per_day = 86400000;
    static constexpr std::int64_t ms_per_week = 7 * ms_per_day;
    /// The receiver's time minus UTC.
    static constexpr std::int64_t leap_ms = 18000;
    /// The second constellation keeps Moscow's time, this far ahead of UTC.
    static constexpr std::int64_t moscow_ms = 3 * 3600 * 1000;

    static constexpr int days_in_four_years = 1461;

    explicit constexpr Receiver_time(std::int64_t ms) : ms_(ms) {}
    /// Midnight at the beginning of a date, and `ms` later.
    static Receiver_time at(Date date, std::int64_t ms);

    Receiver_time operator+(std::int64_t ms) const { return Receiver_time(ms_ + ms); }
    /// Seconds from `earlier` to this.
    double seconds_since(Receiver_time earlier) const { return static_cast<double>(ms_ - earlier.ms_) / 1000; }
    /// Milliseconds since 6 January 1980.
    std::int64_t ms() const { return ms_; }

    // ---- In the receiver's own scale ----

    Date date() const;
    std::uint32_t ms_of_day() const { return static_cast<std::uint32_t>(ms_ % ms_per_day); }
    std::uint16_t week() const { return static_cast<std::uint16_t>(ms_ / ms_per_week); }
    std::uint32_t ms_of_week() const { return static_cast<std::uint32_t>(ms_ % ms_per_week); }

    /// UTC
    std::uint32_t utc_ms_of_day() const { return static_cast<std::uint32_t>((ms_ - leap_ms) % ms_per_day); }

    // ---- In the scale of the second constellation ----

    /// The day in the four years that begin with a leap year, 1 to 1461.
    int moscow_day() const;
    std::uint32_t moscow_ms_of_day() const;

  private:
    std::int64_t ms_;
};

} // namespace simulator
