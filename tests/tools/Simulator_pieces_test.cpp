// Single parts of the simulator: rare cases and failures.

#include "simulated_epochs.h"

#include <simulator/Output.h>
#include <simulator/Pace.h>
#include <support/fakes/Scripted_stream.h>

#include <cerrno>
#include <cmath>
#include <random>

namespace {

using namespace simulator;

constexpr double far_too_small_to_matter = 1e-6; // metres

Sighting sighting(double elevation_degrees, double azimuth_degrees) {
    Sighting result = {};
    result.elevation = radians(elevation_degrees);
    result.azimuth = radians(azimuth_degrees);
    return result;
}

const std::vector<unsigned char> hundred_bytes(100, 'x');

} // namespace

TEST(Simulator_geodesy, places_survive_conversion_to_earth_fixed_and_back) {
    for (int latitude = -90; latitude <= 90; latitude += 3)
        for (int longitude = -179; longitude <= 180; longitude += 7)
            for (const double height : {-100.0, 0.0, 78.0, 9000.0}) {
                const Geodetic place = {radians(latitude), radians(longitude), height};
                const Geodetic back = to_geodetic(to_earth_fixed(place));
                ASSERT_NEAR((back.latitude - place.latitude) * 6.4e6, 0, far_too_small_to_matter);
                ASSERT_NEAR((back.longitude - place.longitude) * 6.4e6 * std::cos(place.latitude), 0,
                            far_too_small_to_matter);
                ASSERT_NEAR(back.height, height, far_too_small_to_matter);
            }
}

TEST(Simulator_geodesy, ellipsoid_has_its_known_axes) {
    EXPECT_NEAR(to_earth_fixed({0, 0, 0}).x, 6378137.0, far_too_small_to_matter);
    EXPECT_NEAR(to_earth_fixed({0, radians(90), 10}).y, 6378147.0, far_too_small_to_matter);
    EXPECT_NEAR(to_earth_fixed({radians(90), 0, 0}).z, 6356752.314245, far_too_small_to_matter);
}

TEST(Simulator_geodesy, local_frame_points_east_north_and_up) {
    const Local_frame frame({0, radians(90), 0}); // on the equator, where y points up and x to the west
    const Vector place = frame.position({1, 2, 3});
    EXPECT_NEAR(place.x, -1, far_too_small_to_matter);
    EXPECT_NEAR(place.z, 2, far_too_small_to_matter);
    EXPECT_NEAR(place.y, 6378137.0 + 3, far_too_small_to_matter);
}

TEST(Simulator_geodesy, local_frame_reverses_its_rotation) {
    const Local_frame frame({radians(-33), radians(151), 40});
    const Vector back = frame.local(frame.position({120, -70, 5}));
    EXPECT_NEAR(back.x, 120, far_too_small_to_matter);
    EXPECT_NEAR(back.y, -70, far_too_small_to_matter);
    EXPECT_NEAR(back.z, 5, far_too_small_to_matter);
}

TEST(Simulator_field_track, path_is_closed_and_never_jumps) {
    const Field_track track;
    constexpr double step = 0.1;
    for (double distance = -20; distance < 2 * track.length(); distance += step) {
        const Field_track::Pose here = track.at(distance);
        const Field_track::Pose next = track.at(distance + step);
        const double moved = std::hypot(next.x - here.x, next.y - here.y);
        ASSERT_LE(moved, step + 1e-9);
        ASSERT_GE(moved, 0.999 * step);
        ASSERT_LE(std::fabs(std::remainder(next.direction - here.direction, 2 * pi)),
                  step / Field_track::turn_radius + 1e-9);
    }
}

TEST(Simulator_random, sequence_is_that_of_the_standard_generator) {
    // The standard fixes this sequence, so a seed means the same everywhere; the mapping to numbers is the simulator's
    // own.
    Seeded_random random(5, Seeded_random::Purpose::sky);
    std::seed_seq sequence{5U, 2U};
    std::mt19937 engine(sequence);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(random.below(1000), static_cast<std::uint32_t>(engine() * std::uint64_t{1000} / 4294967296U));
        ASSERT_EQ(random.between(-2, 6), -2 + 8 * (static_cast<double>(engine()) / 4294967296.0));
        ASSERT_EQ(random.chance(0.25), engine() < 1U << 30);
    }
}

TEST(Simulator_random, chance_of_0_never_and_of_1_always_happens) {
    Seeded_random random(1, Seeded_random::Purpose::disturbance);
    for (int i = 0; i < 10000; ++i) {
        ASSERT_FALSE(random.chance(0));
        ASSERT_TRUE(random.chance(1));
    }
}

TEST(Simulator_dilution, four_satellites_of_a_regular_sky_give_the_known_values) {
    // One overhead, three a third of a turn apart on the horizon.
    const Dilution dilution = dilution_of({sighting(90, 0), sighting(0, 0), sighting(0, 120), sighting(0, 240)});
    EXPECT_NEAR(dilution.horizontal, std::sqrt(4.0 / 3), 1e-12);
    EXPECT_NEAR(dilution.vertical, std::sqrt(4.0 / 3), 1e-12);
    EXPECT_NEAR(dilution.time, std::sqrt(1.0 / 3), 1e-12);
}

TEST(Simulator_dilution, satellites_not_in_use_do_not_count) {
    std::vector<Sighting> sky = {sighting(90, 0), sighting(0, 0), sighting(0, 120), sighting(0, 240), sighting(40, 70)};
    sky.back().use = Sighting::Use::unhealthy;
    EXPECT_NEAR(dilution_of(sky).horizontal, std::sqrt(4.0 / 3), 1e-12);
    sky.back().use = Sighting::Use::used;
    EXPECT_LT(dilution_of(sky).horizontal, std::sqrt(4.0 / 3) - 0.01);
}

TEST(Simulator_dilution, too_few_satellites_give_no_solution) {
    EXPECT_EQ(dilution_of({}).horizontal, Dilution::none);
    const Dilution three = dilution_of({sighting(90, 0), sighting(30, 0), sighting(10, 120)});
    EXPECT_EQ(three.horizontal, Dilution::none);
    EXPECT_EQ(three.vertical, Dilution::none);
    EXPECT_EQ(three.time, Dilution::none);
}

TEST(Simulator_dilution, satellites_in_one_circle_give_no_solution) {
    EXPECT_EQ(dilution_of({sighting(0, 0), sighting(0, 90), sighting(0, 180), sighting(0, 270)}).vertical,
              Dilution::none);
}

TEST(Simulator_epoch_writer, values_at_the_ends_of_entries_fit) {
    std::vector<Sighting> sky(1, sighting(90, 359.5));
    sky[0].tracked_seconds = 1e9;
    Frame_line line(Disturbance(1, 0, 0), false);
    Epoch_writer(line).write({Receiver_time(0), {}, sky, dilution_of(sky)});
    Simulated_epoch epoch(std::string(line.bytes().begin(), line.bytes().end()));
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_EL>().get_entry(0), 90);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_AZ>().get_entry(0), 0) << "360 degrees are 0";
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_TC>().get_entry(0), 65535);
}

TEST(Simulator_epoch_writer, empty_sky_gives_empty_lists) {
    const std::vector<Sighting> sky;
    Frame_line line(Disturbance(1, 0, 0), false);
    Epoch_writer(line).write({Receiver_time(0), {}, sky, dilution_of(sky)});
    Simulated_epoch epoch(std::string(line.bytes().begin(), line.bytes().end()));
    EXPECT_EQ(epoch.frames().size(), 20U);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_SI>().get_msg_len(), 1U);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_SS>().get_msg_len(), 2U);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_DP>().get_hdop(), 99);
}

TEST(Simulator_output, an_epoch_is_sent_in_one_write) {
    Scripted_stream stream;
    EXPECT_EQ(send_all(stream, hundred_bytes), Sent::all);
    ASSERT_EQ(stream.writes.size(), 1U);
    EXPECT_EQ(stream.written, std::string(100, 'x'));
}

TEST(Simulator_output, short_writes_are_continued) {
    std::vector<unsigned char> counting(100);
    for (unsigned i = 0; i < 100; ++i)
        counting[i] = static_cast<unsigned char>(i);
    Scripted_stream stream;
    stream.on_write = [](const unsigned char*, unsigned len) { return static_cast<int>(std::min(len, 7U)); };
    EXPECT_EQ(send_all(stream, counting), Sent::all);
    EXPECT_EQ(stream.writes.size(), 15U);
    EXPECT_EQ(stream.written, std::string(counting.begin(), counting.end()));
}

TEST(Simulator_output, interrupted_write_is_tried_again) {
    Scripted_stream stream;
    int interruptions = 3;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        errno = EINTR;
        return interruptions-- > 0 ? -1 : static_cast<int>(len);
    };
    EXPECT_EQ(send_all(stream, hundred_bytes), Sent::all);
    EXPECT_EQ(stream.written.size(), 100U);
}

TEST(Simulator_output, closed_reader_differs_from_a_failure) {
    Scripted_stream stream;
    int error = EPIPE;
    stream.on_write = [&](const unsigned char*, unsigned) {
        errno = error;
        return -1;
    };
    EXPECT_EQ(send_all(stream, hundred_bytes), Sent::reader_gone);
    error = ENOSPC;
    EXPECT_EQ(send_all(stream, hundred_bytes), Sent::failed);
    EXPECT_EQ(errno, ENOSPC);
    error = EAGAIN;
    EXPECT_EQ(send_all(stream, hundred_bytes), Sent::failed) << "there is no descriptor to wait for";
}

TEST(Simulator_output, write_that_accepts_nothing_is_a_failure) {
    Scripted_stream stream;
    stream.on_write = [](const unsigned char*, unsigned) { return 0; };
    EXPECT_EQ(send_all(stream, hundred_bytes), Sent::failed);
}

TEST(Simulator_pace, first_beat_is_due_at_once_and_the_others_count_from_it) {
    const auto start = std::chrono::steady_clock::now();
    Pace pace(200);
    for (int i = 0; i < 11; ++i)
        pace.wait();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    Pace slow(1e-300);
    slow.wait(); // would never return if it had to wait
}

TEST(Simulator_pace, late_beats_are_due_at_once) {
    Pace pace(20);
    pace.wait();
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(150)) {
    }
    // 150 ms late: beats 1 to 3 are due already, beat 10 is not.
    for (int i = 0; i < 10; ++i)
        pace.wait();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
}
