#include <monitor/view/Rate_meter.h>

#include <support/builders/Random.h>

namespace {

using live_view::Rate_meter;

const Atime begin = Atime() + 5000;

} // namespace

TEST(Rate_meter, is_empty_before_a_complete_second) {
    Rate_meter meter(begin);
    meter.add(5, begin + 100);
    EXPECT_EQ(meter.per_second(begin + 999), std::nullopt);
    EXPECT_EQ(meter.per_second(begin + 1999), std::nullopt); // the first second may be incomplete
    EXPECT_EQ(meter.per_second(begin + 2000), 0.0);
}

TEST(Rate_meter, counts_complete_seconds_only) {
    Rate_meter meter(begin);
    for (int ms = 0; ms < 2500; ms += 100)
        meter.add(3, begin + ms);
    EXPECT_EQ(meter.per_second(begin + 2500), 30.0);
}

TEST(Rate_meter, is_the_mean_of_ten_seconds) {
    Rate_meter meter(begin);
    meter.add(1, begin + 1500);
    EXPECT_EQ(meter.per_second(begin + 2000), 1.0);
    EXPECT_EQ(meter.per_second(begin + 6000), 0.2);
    EXPECT_EQ(meter.per_second(begin + 11999), 0.1);
    EXPECT_EQ(meter.per_second(begin + 12000), 0.0);
}

TEST(Rate_meter, agrees_with_counting_everything) {
    Random random;
    for (int round = 0; round < 20; ++round) {
        Rate_meter meter(begin);
        std::vector<std::pair<std::int64_t, std::uint64_t>> events;
        std::int64_t ms = 0;
        for (int i = 0; i < 200; ++i) {
            ms += random.between(0, random.one_in(20) ? 15000 : 400);
            const std::uint64_t count = random.between(1, 5);
            meter.add(count, begin + ms);
            events.push_back({(begin + ms).units() / 1000, count});
            const std::int64_t end = (begin + ms).units() / 1000;
            const std::int64_t first = std::max(end - 10, begin.units() / 1000 + 1);
            std::uint64_t sum = 0;
            for (const auto& [second, of_it] : events)
                sum += second >= first && second < end ? of_it : 0;
            const auto rate = meter.per_second(begin + ms);
            ASSERT_EQ(rate.has_value(), first < end);
            if (rate) {
                ASSERT_EQ(*rate, static_cast<double>(sum) / static_cast<double>(end - first));
            }
        }
    }
}
