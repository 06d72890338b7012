#include "Receiver_time.h"

namespace simulator {

namespace {

using Date = Receiver_time::Date;

/// Days from 1 March of the year 0 to a date; years begin in March, so that a leap day is the last of its year.
constexpr std::int64_t day_number(Date date) {
    const std::int64_t year = date.month > 2 ? date.year : date.year - 1;
    const int month = (date.month + 9) % 12;
    return 365 * year + year / 4 - year / 100 + year / 400 + (month * 306 + 5) / 10 + date.day - 1;
}

constexpr Date date_of(std::int64_t day_number) {
    std::int64_t year = (10000 * day_number + 14780) / 3652425;
    std::int64_t day = day_number - (365 * year + year / 4 - year / 100 + year / 400);
    if (day < 0) {
        --year;
        day = day_number - (365 * year + year / 4 - year / 100 + year / 400);
    }
    const int month = static_cast<int>((100 * day + 52) / 3060);
    return {static_cast<int>(year + (month + 2) / 12), (month + 2) % 12 + 1,
            static_cast<int>(day) - (month * 306 + 5) / 10 + 1};
}

constexpr std::int64_t first_day = day_number({1980, 1, 6});

} // namespace

Receiver_time Receiver_time::at(Date date, std::int64_t ms) {
    return Receiver_time((day_number(date) - first_day) * ms_per_day + ms);
}

Date Receiver_time::date() const {
    return date_of(first_day + ms_ / ms_per_day);
}

int Receiver_time::moscow_day() const {
    // 1980 began such four years; their pattern breaks in 2100 only.
    constexpr std::int64_t before_first_day = first_day - day_number({1980, 1, 1});
    const std::int64_t days = (ms_ - leap_ms + moscow_ms) / ms_per_day + before_first_day;
    return static_cast<int>(days % days_in_four_years) + 1;
}

std::uint32_t Receiver_time::moscow_ms_of_day() const {
    return static_cast<std::uint32_t>((ms_ - leap_ms + moscow_ms) % ms_per_day);
}

} // namespace simulator
