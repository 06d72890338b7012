#pragma once

#include <cstdint>

/// A point in time on the monotonic clock, in units of one millisecond: setting the wall clock does not move it.
class Atime {
  public:
    /// Time zero, which is before every `now()`.
    constexpr Atime() = default;

    static Atime now();
    /// Sleeps for `units`; not at all for 0 or less. A signal does not shorten it.
    static void delay(int units);
    /// Milliseconds that have passed since `start`; 0 when `start` is in the future.
    static unsigned long get_elapsed_ms_since(Atime start);

    /// Units since time zero.
    constexpr std::int64_t units() const { return units_; }

    constexpr Atime operator+(std::int64_t units) const { return Atime(units_ + units); }
    /// Units from `earlier` to this time; negative when `earlier` is the later one.
    constexpr std::int64_t operator-(Atime earlier) const { return units_ - earlier.units_; }

    constexpr bool operator==(Atime other) const { return units_ == other.units_; }
    constexpr bool operator!=(Atime other) const { return units_ != other.units_; }
    constexpr bool operator<(Atime other) const { return units_ < other.units_; }
    constexpr bool operator<=(Atime other) const { return units_ <= other.units_; }
    constexpr bool operator>(Atime other) const { return units_ > other.units_; }
    constexpr bool operator>=(Atime other) const { return units_ >= other.units_; }

  private:
    constexpr explicit Atime(std::int64_t units) : units_(units) {}

    std::int64_t units_ = 0;
};
