#include <monitor/view/Position_scatter.h>

#include <simulator/Geodesy.h>

#include <cmath>

namespace {

using live_view::Position_scatter;

const Atime begin = Atime() + 1000;
constexpr double degree = 3.14159265358979323846 / 180;

} // namespace

TEST(Position_scatter, is_nothing_without_positions) {
    const Position_scatter scatter;
    EXPECT_EQ(scatter.spread().positions, 0U);
    EXPECT_TRUE(scatter.offsets().empty());
}

TEST(Position_scatter, of_one_position_is_none) {
    Position_scatter scatter;
    scatter.add(52 * degree, 10 * degree, 80, begin);
    EXPECT_EQ(scatter.spread().positions, 1U);
    EXPECT_EQ(scatter.spread().reach, 0);
    EXPECT_EQ(scatter.spread().sigma.up, 0);
}

TEST(Position_scatter, is_in_metres_north_east_and_up) {
    // Places around a point on the ellipsoid, from the simulator's geodesy.
    const simulator::Geodetic site{-35 * degree, 149 * degree, 600};
    const simulator::Local_frame frame(site);
    Position_scatter scatter;
    const double metres[][3] = {{3, 0, 0.5}, {-3, 0, -0.5}, {0, 4, 0.5}, {0, -4, -0.5}};
    for (const auto& [east, north, up] : metres) {
        const simulator::Geodetic place = simulator::to_geodetic(frame.position({east, north, up}));
        scatter.add(place.latitude, place.longitude, place.height, begin);
    }
    const Position_scatter::Spread spread = scatter.spread();
    EXPECT_EQ(spread.positions, 4U);
    EXPECT_NEAR(spread.sigma.east, 3 / std::sqrt(2.0), 1e-3);
    EXPECT_NEAR(spread.sigma.north, 4 / std::sqrt(2.0), 1e-3);
    EXPECT_NEAR(spread.sigma.up, 0.5, 1e-3);
    EXPECT_NEAR(spread.reach, 4, 1e-3);
    EXPECT_NEAR(scatter.offsets()[0].east, 3, 1e-3);
    EXPECT_NEAR(scatter.offsets()[3].north, -4, 1e-3);
}

TEST(Position_scatter, crosses_the_date_line) {
    Position_scatter scatter;
    scatter.add(0, 179.9999 * degree, 0, begin);
    scatter.add(0, -179.9999 * degree, 0, begin);
    EXPECT_NEAR(scatter.spread().reach, 0.0001 * degree * 6378137.0, 1e-3);
}

TEST(Position_scatter, keeps_a_minute) {
    Position_scatter scatter;
    scatter.add(0, 0, 0, begin);
    scatter.add(0, 0, 10, begin + Position_scatter::window_ms);
    EXPECT_EQ(scatter.spread().positions, 2U);
    scatter.add(0, 0, 10, begin + Position_scatter::window_ms + 1);
    EXPECT_EQ(scatter.spread().positions, 2U);
    EXPECT_EQ(scatter.spread().sigma.up, 0);
}

TEST(Position_scatter, keeps_a_limited_number) {
    Position_scatter scatter;
    for (std::size_t i = 0; i < 3 * Position_scatter::most; ++i)
        scatter.add(0, 0, static_cast<double>(i), begin);
    EXPECT_EQ(scatter.spread().positions, Position_scatter::most);
    EXPECT_EQ(scatter.offsets().back().up, (Position_scatter::most - 1) / 2.0);
}

TEST(Position_scatter, ignores_values_that_are_no_place) {
    Position_scatter scatter;
    const double nan = std::nan("");
    scatter.add(nan, 0, 0, begin);
    scatter.add(0, nan, 0, begin);
    scatter.add(0, 0, nan, begin);
    scatter.add(1.6, 0, 0, begin);
    scatter.add(0, 7, 0, begin);
    scatter.add(0, 0, INFINITY, begin);
    EXPECT_EQ(scatter.spread().positions, 0U);
}
