// The clocks of the simulated receiver.

#include "simulated_epochs.h"

#include <ctime>

namespace {

using namespace GNSS_messages;
using simulator::Receiver_time;

constexpr std::uint32_t ms_per_day = 86400000;
constexpr std::uint32_t ms_per_week = 7 * ms_per_day;
constexpr std::time_t first_week = 315964800; // 6 January 1980

std::tm calendar(std::int64_t ms_since_first_week) {
    const std::time_t seconds = first_week + static_cast<std::time_t>(ms_since_first_week / 1000);
    std::tm date = {};
    gmtime_r(&seconds, &date);
    return date;
}

std::int64_t ms_of(const Msg_GT& gt) {
    return std::int64_t{gt.get_week()} * ms_per_week + gt.get_ms();
}

/// Compares all clocks of an epoch with one moment.
void expect_clocks(Simulated_epoch& epoch, std::int64_t ms) {
    const std::tm date = calendar(ms);
    EXPECT_EQ(ms_of(epoch.get<Msg_GT>()), ms);
    EXPECT_LT(epoch.get<Msg_GT>().get_ms(), ms_per_week);
    EXPECT_EQ(epoch.get<Msg_RT>().get_ms(), static_cast<std::uint32_t>(ms % ms_per_day));
    EXPECT_EQ(epoch.get<Msg_ST>().get_ms(), static_cast<std::uint32_t>(ms % ms_per_day));
    EXPECT_EQ(epoch.get<Msg_RD>().get_year(), date.tm_year + 1900);
    EXPECT_EQ(epoch.get<Msg_RD>().get_month(), date.tm_mon + 1);
    EXPECT_EQ(epoch.get<Msg_RD>().get_day(), date.tm_mday);
    EXPECT_EQ(epoch.get<Msg_RD>().get_base(), 0);

    // Three hours ahead of UTC, which lacks the 18 leap seconds; the four years began in 2024.
    const std::int64_t moscow_ms = ms - 18000 + 3 * 3600000;
    const std::tm moscow = calendar(moscow_ms);
    const int days_of_years_before = moscow.tm_year == 124 ? 0 : 366 + 365 * (moscow.tm_year - 125);
    EXPECT_EQ(epoch.get<Msg_NT>().get_ms(), static_cast<std::uint32_t>(moscow_ms % ms_per_day));
    EXPECT_EQ(epoch.get<Msg_NT>().get_day(), days_of_years_before + moscow.tm_yday + 1);
}

void expect_clocks_to_advance_by(std::int64_t interval_ms, int epochs) {
    Received_epochs receiver(epochs_every(interval_ms));
    Simulated_epoch first = receiver.next();
    const std::int64_t start = ms_of(first.get<Msg_GT>());
    expect_clocks(first, start);
    for (int i = 1; i < epochs && !testing::Test::HasFailure(); ++i) {
        Simulated_epoch epoch = receiver.next();
        expect_clocks(epoch, start + i * interval_ms);
    }
}

} // namespace

TEST(Simulator_time, begins_on_a_fixed_date) {
    Simulated_epoch epoch = Received_epochs().next();
    EXPECT_EQ(epoch.get<Msg_RD>().get_year(), 2025);
    EXPECT_EQ(epoch.get<Msg_RD>().get_month(), 5);
    EXPECT_EQ(epoch.get<Msg_RD>().get_day(), 12);
    EXPECT_EQ(epoch.get<Msg_RT>().get_ms(), 6U * 3600 * 1000);
    EXPECT_EQ(epoch.get<Msg_GT>().get_week(), 2366);
}

TEST(Simulator_time, clocks_advance_by_100_ms_an_epoch) {
    expect_clocks_to_advance_by(100, 300);
}

TEST(Simulator_time, clocks_roll_over_days_weeks_and_the_turn_of_the_year) {
    expect_clocks_to_advance_by(3599999, 24 * 250);
}

TEST(Simulator_time, dates_are_those_of_the_calendar) {
    for (std::int64_t day = 0; day < 100 * 365; ++day) {
        const Receiver_time::Date date = Receiver_time(day * ms_per_day).date();
        const std::tm expected = calendar(day * ms_per_day);
        ASSERT_EQ(date.year, expected.tm_year + 1900);
        ASSERT_EQ(date.month, expected.tm_mon + 1);
        ASSERT_EQ(date.day, expected.tm_mday);
        ASSERT_EQ(Receiver_time::at(date, 5).ms(), day * ms_per_day + 5);
    }
}
