// The simulated machine's place and motion, as PG and PV report them.

#include "simulated_epochs.h"

#include <cmath>

namespace {

using GNSS_messages::Msg_PG;
using GNSS_messages::Msg_PV;
using simulator::Field_track;
using simulator::Machine;
using simulator::Simulated_receiver;
using simulator::Vector;

constexpr double pi = 3.14159265358979323846;

/// The Earth-fixed place of a position message, computed from the ellipsoid's axes.
Vector earth_fixed(const Msg_PG& m) {
    constexpr double a = 6378137.0;
    constexpr double b = 6356752.314245179;
    const double n = a * a / std::hypot(a * std::cos(m.get_lat()), b * std::sin(m.get_lat()));
    const double across = (n + m.get_hgt()) * std::cos(m.get_lat());
    return {across * std::cos(m.get_lon()), across * std::sin(m.get_lon()),
            (n * b * b / (a * a) + m.get_hgt()) * std::sin(m.get_lat())};
}

Vector position(const Msg_PV& m) {
    return {m.get_x(), m.get_y(), m.get_z()};
}

Vector velocity(const Msg_PV& m) {
    return {m.get_vx(), m.get_vy(), m.get_vz()};
}

double size(Vector v) {
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

/// East and north of the reference point; accurate enough for a field.
struct Plane_point {
    double east;
    double north;
};

Plane_point in_field(const Msg_PG& m) {
    const simulator::Geodetic reference = Simulated_receiver::reference_point;
    const double latitude = (m.get_lat() + reference.latitude) / 2;
    constexpr double a = 6378137.0, e2 = 0.00669437999014;
    const double w2 = 1 - e2 * std::sin(latitude) * std::sin(latitude);
    const double meridian = a * (1 - e2) / std::pow(w2, 1.5);
    const double across = a / std::sqrt(w2);
    return {(m.get_lon() - reference.longitude) * across * std::cos(latitude),
            (m.get_lat() - reference.latitude) * meridian};
}

/// Calls `see` with PG and PV of each epoch.
template <typename See>
void drive(int epochs, See see) {
    Received_epochs receiver;
    for (int i = 0; i < epochs; ++i) {
        Simulated_epoch epoch = receiver.next();
        see(epoch.get<Msg_PG>(), epoch.get<Msg_PV>());
    }
}

constexpr int once_around = 7800; // epochs

} // namespace

TEST(Simulator_motion, geodetic_and_earth_fixed_positions_are_the_same_place) {
    drive(once_around,
          [](const Msg_PG& pg, const Msg_PV& pv) { ASSERT_LT(size(earth_fixed(pg) - position(pv)), 0.001); });
}

TEST(Simulator_motion, velocity_is_the_change_of_position) {
    // At the ends of the turns the curvature jumps: the velocity is off by up to speed squared over radius, for a part
    // of one epoch.
    constexpr double seconds = 0.1;
    constexpr double bend = Machine::speed * Machine::speed / Field_track::turn_radius * seconds / 2;
    int close = 0;
    Vector last_position;
    Vector last_velocity;
    int epoch = 0;
    drive(once_around, [&](const Msg_PG&, const Msg_PV& pv) {
        if (epoch++ > 0) {
            const Vector moved = position(pv) - last_position;
            const Vector expected = {(velocity(pv).x + last_velocity.x) / 2 * seconds,
                                     (velocity(pv).y + last_velocity.y) / 2 * seconds,
                                     (velocity(pv).z + last_velocity.z) / 2 * seconds};
            const double off = size(moved - expected) / seconds;
            ASSERT_LT(off, bend) << "epoch " << epoch;
            close += off < 0.001 ? 1 : 0;
        }
        last_position = position(pv);
        last_velocity = velocity(pv);
    });
    EXPECT_GT(close, once_around * 8 / 10) << "on the rows velocity and positions agree to a millimetre a second";
}

TEST(Simulator_motion, machine_drives_3_metres_a_second) {
    drive(once_around, [](const Msg_PG&, const Msg_PV& pv) { ASSERT_NEAR(size(velocity(pv)), 3, 0.01); });
}

TEST(Simulator_motion, machine_stays_within_its_field) {
    const double half_diagonal = std::hypot(Field_track::row_length / 2 + Field_track::turn_radius,
                                            (Field_track::rows - 1) * Field_track::row_spacing / 2);
    double farthest = 0;
    drive(once_around, [&](const Msg_PG& pg, const Msg_PV&) {
        const Plane_point place = in_field(pg);
        farthest = std::max(farthest, std::hypot(place.east, place.north));
        ASSERT_NEAR(pg.get_hgt(), Simulated_receiver::reference_point.height, 2.5);
    });
    EXPECT_LT(farthest, half_diagonal);
    EXPECT_GT(farthest, Field_track::row_length / 2);
}

TEST(Simulator_motion, machine_drives_rows_in_both_directions_and_turns_between) {
    // Headings within a degree of the rows' direction or its opposite count as rows.
    int there = 0, back = 0, elsewhere = 0;
    constexpr double row_heading = 35; // from east to north
    Plane_point last = {};
    bool first = true;
    drive(once_around, [&](const Msg_PG& pg, const Msg_PV&) {
        const Plane_point place = in_field(pg);
        if (!first) {
            const double heading = std::atan2(place.north - last.north, place.east - last.east) * 180 / pi;
            const double off_row = std::fabs(std::remainder(heading - row_heading, 360));
            if (off_row < 1)
                ++there;
            else if (off_row > 179)
                ++back;
            else
                ++elsewhere;
        }
        first = false;
        last = place;
    });
    // Ten rows of 200 metres at 0.3 metres an epoch, half of them each way.
    EXPECT_NEAR(there, 3333, 200);
    EXPECT_NEAR(back, 3333, 200);
    EXPECT_GT(elsewhere, 500);
}

TEST(Simulator_motion, all_messages_have_the_same_solution_type) {
    Simulated_epoch epoch = Received_epochs().next();
    EXPECT_EQ(epoch.get<Msg_PG>().get_type(), 4);
    EXPECT_EQ(epoch.get<Msg_PV>().get_type(), 4);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_SG>().get_type(), 4);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_DP>().get_type(), 4);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_PS>().get_type(), 4);
    EXPECT_EQ(epoch.get<GNSS_messages::Msg_ST>().get_type(), 4);
}

TEST(Simulator_motion, sigmas_follow_the_dilution_of_precision) {
    Received_epochs receiver(epochs_every(60000));
    for (int i = 0; i < 1440; ++i) {
        Simulated_epoch epoch = receiver.next();
        const auto sg = epoch.get<GNSS_messages::Msg_SG>();
        const auto dp = epoch.get<GNSS_messages::Msg_DP>();
        ASSERT_NEAR(sg.get_hpos() / dp.get_hdop(), 0.008, 1e-6);
        ASSERT_NEAR(sg.get_vpos() / dp.get_vdop(), 0.008, 1e-6);
        ASSERT_NEAR(sg.get_hvel() / dp.get_hdop(), 0.015, 1e-6);
        ASSERT_NEAR(sg.get_vvel() / dp.get_vdop(), 0.015, 1e-6);
        ASSERT_NEAR(epoch.get<Msg_PG>().get_sigma(), std::hypot(sg.get_hpos(), sg.get_vpos()), 1e-6);
        ASSERT_NEAR(epoch.get<Msg_PV>().get_psigma(), std::hypot(sg.get_hpos(), sg.get_vpos()), 1e-6);
        ASSERT_NEAR(epoch.get<Msg_PV>().get_vsigma(), std::hypot(sg.get_hvel(), sg.get_vvel()), 1e-6);
        ASSERT_LT(sg.get_hpos(), 0.05);
    }
}
