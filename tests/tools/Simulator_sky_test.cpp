// The satellites over the simulated receiver: their places, their motion, and the values that follow from them.

#include "simulated_epochs.h"

#include <cmath>
#include <map>
#include <set>

namespace {

using namespace GNSS_messages;
using simulator::Simulated_receiver;
using simulator::Vector;

constexpr double pi = 3.14159265358979323846;
constexpr double degree = pi / 180;
constexpr int minutes_of_a_day = 1440;
constexpr int second_constellation = 64; // numbers are above this

/// One satellite of the lists.
struct Listed {
    int own_number;
    int elevation; // degrees
    int azimuth;   // degrees
    int strength;
    int tracked;
    int use;
    int first_weak;
    int second_weak;
};

/// The epoch's satellites by number.
std::map<int, Listed> listed(Simulated_epoch& epoch) {
    const auto si = epoch.list<Msg_SI>(), nn = epoch.list<Msg_NN>(), el = epoch.list<Msg_EL>(),
               az = epoch.list<Msg_AZ>(), ss = epoch.list<Msg_SS>(), tc = epoch.list<Msg_TC>(),
               ec = epoch.list<Msg_EC>(), e1 = epoch.list<Msg_E1>(), e2 = epoch.list<Msg_E2>();
    std::map<int, Listed> satellites;
    for (std::size_t i = 0; i < si.size(); ++i)
        satellites[si[i]] = {nn[i], el[i], az[i] * Msg_AZ::unit, ss[i], tc[i], ec[i], e1[i], e2[i]};
    EXPECT_EQ(satellites.size(), si.size()) << "a satellite is listed twice";
    return satellites;
}

/// Calls `see` with the satellites of every minute of a day.
template <typename See>
void watch_a_day(See see) {
    Received_epochs receiver(epochs_every(60000));
    for (int i = 0; i < minutes_of_a_day; ++i) {
        Simulated_epoch epoch = receiver.next();
        see(i, listed(epoch), epoch);
    }
}

struct Dops {
    double h, v, t;
};

/// Dilutions of precision from rounded directions, by Cramer's rule: a 4 by 4 matrix has few enough minors.
double minor_of(const double (&m)[4][4], int row, int column) {
    double s[3][3];
    for (int i = 0, r = 0; i < 4; ++i)
        if (i != row) {
            for (int j = 0, c = 0; j < 4; ++j)
                if (j != column)
                    s[r][c++] = m[i][j];
            ++r;
        }
    return s[0][0] * (s[1][1] * s[2][2] - s[1][2] * s[2][1]) - s[0][1] * (s[1][0] * s[2][2] - s[1][2] * s[2][0]) +
           s[0][2] * (s[1][0] * s[2][1] - s[1][1] * s[2][0]);
}

Dops dops_of(const std::map<int, Listed>& satellites) {
    double m[4][4] = {};
    for (const auto& [number, satellite] : satellites) {
        if (satellite.use != 0)
            continue;
        const double el = satellite.elevation * degree, az = satellite.azimuth * degree;
        const double row[4] = {std::cos(el) * std::sin(az), std::cos(el) * std::cos(az), std::sin(el), 1};
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                m[i][j] += row[i] * row[j];
    }
    double determinant = 0;
    for (int j = 0; j < 4; ++j)
        determinant += (j % 2 == 0 ? 1 : -1) * m[0][j] * minor_of(m, 0, j);
    const auto cofactor = [&](int i) { return minor_of(m, i, i) / determinant; };
    return {std::sqrt(cofactor(0) + cofactor(1)), std::sqrt(cofactor(2)), std::sqrt(cofactor(3))};
}

// The satellites' places from their almanacs, by textbook formulas.

Vector rotated_x(Vector v, double angle) {
    return {v.x, v.y * std::cos(angle) - v.z * std::sin(angle), v.y * std::sin(angle) + v.z * std::cos(angle)};
}

Vector rotated_z(Vector v, double angle) {
    return {v.x * std::cos(angle) - v.y * std::sin(angle), v.x * std::sin(angle) + v.y * std::cos(angle), v.z};
}

constexpr double earth_rate = 7.2921151467e-5;
constexpr double earth_pull = 3.986005e14;

/// An Earth-fixed place from Kepler's elements; solves Kepler's equation by many iterations.
Vector place(double a, double ecc, double arg_per, double inclination, double mean_anomaly, double node) {
    double anomaly = mean_anomaly;
    for (int i = 0; i < 30; ++i)
        anomaly = mean_anomaly + ecc * std::sin(anomaly);
    const double true_anomaly =
        2 * std::atan2(std::sqrt(1 + ecc) * std::sin(anomaly / 2), std::sqrt(1 - ecc) * std::cos(anomaly / 2));
    const double radius = a * (1 - ecc * std::cos(anomaly));
    return rotated_z(rotated_x(rotated_z({radius, 0, 0}, arg_per + true_anomaly), inclination), node);
}

Vector place(const Msg_GA& ga, const Msg_GT& now) {
    const double t = (now.get_week() - ga.get_week()) * 604800.0 +
                     (static_cast<double>(now.get_ms()) - static_cast<double>(ga.get_ms())) / 1000;
    const double a = double{ga.get_root_a()} * ga.get_root_a();
    const double node = ga.get_omega0() + ga.get_omega_dot() * t - earth_rate * (ga.get_ms() / 1000.0 + t);
    return place(a, ga.get_ecc(), ga.get_arg_per(), 54 * degree + ga.get_deli(),
                 ga.get_m0() + std::sqrt(earth_pull / a / a / a) * t, node);
}

Vector place(const Msg_NA& na, const Msg_NT& now) {
    const double t = (now.get_day() - na.get_day()) * 86400.0 + now.get_ms() / 1000.0 - na.get_time();
    const double rate = 2 * pi / (43200.0 + na.get_del_t());
    const double ecc = na.get_ecc();
    // At the node the true anomaly is minus the argument of perigee.
    const double anomaly = 2 * std::atan(std::sqrt((1 - ecc) / (1 + ecc)) * std::tan(-na.get_arg_per() / 2));
    return place(std::pow(earth_pull / (rate * rate), 1.0 / 3), ecc, na.get_arg_per(), 63 * degree + na.get_deli(),
                 anomaly - ecc * std::sin(anomaly) + rate * t, na.get_lambda() - earth_rate * t);
}

/// Elevation and azimuth in degrees, seen from the machine.
struct Direction {
    double elevation;
    double azimuth;
};

Direction direction(Vector satellite, Simulated_epoch& epoch) {
    const auto pg = epoch.get<Msg_PG>();
    const auto pv = epoch.get<Msg_PV>();
    const Vector line = {satellite.x - pv.get_x(), satellite.y - pv.get_y(), satellite.z - pv.get_z()};
    // Turned so that x is up, y east, z north.
    const Vector turned = rotated_z(line, -pg.get_lon());
    const double up = turned.x * std::cos(pg.get_lat()) + turned.z * std::sin(pg.get_lat());
    const double north = turned.z * std::cos(pg.get_lat()) - turned.x * std::sin(pg.get_lat());
    return {std::asin(up / std::sqrt(line.x * line.x + line.y * line.y + line.z * line.z)) / degree,
            std::atan2(turned.y, north) / degree};
}

/// Every almanac that a receiver sends, by the satellite's number in the lists.
class Almanac_book {
  public:
    explicit Almanac_book(Received_epochs& receiver) {
        for (int i = 0; i < 108; ++i) {
            Simulated_epoch epoch = receiver.next();
            for (Simulated_frame& frame : epoch.frames())
                if (frame.id() == "GA")
                    frames_[frame.as<Msg_GA>().get_sv()] = frame;
                else if (frame.id() == "NA")
                    frames_[frame.as<Msg_NA>().get_sv() + second_constellation] = frame;
        }
    }

    std::map<int, Direction> directions(Simulated_epoch& epoch) {
        std::map<int, Direction> all;
        for (auto& [number, frame] : frames_)
            all[number] = direction(number > second_constellation ? place(frame.as<Msg_NA>(), epoch.get<Msg_NT>())
                                                                  : place(frame.as<Msg_GA>(), epoch.get<Msg_GT>()),
                                    epoch);
        return all;
    }

  private:
    std::map<int, Simulated_frame> frames_;
};

} // namespace

TEST(Simulator_sky, almanacs_give_the_satellites_places) {
    Received_epochs receiver(epochs_every(600000));
    Almanac_book book(receiver);
    for (int i = 0; i < 2 * 7 * 144; ++i) {
        Simulated_epoch epoch = receiver.next();
        const std::map<int, Listed> satellites = listed(epoch);
        for (const auto& [number, computed] : book.directions(epoch)) {
            const auto found = satellites.find(number);
            if (found == satellites.end()) {
                ASSERT_LT(computed.elevation, 0.01) << "satellite " << number << " is up, but not listed";
                continue;
            }
            ASSERT_NEAR(computed.elevation, found->second.elevation, 0.51) << "satellite " << number;
            ASSERT_LE(std::fabs(std::remainder(computed.azimuth - found->second.azimuth, 360)), 1.1)
                << "satellite " << number;
        }
    }
}

TEST(Simulator_sky, dilution_of_precision_follows_from_elevations_and_azimuths) {
    watch_a_day([](int minute, const std::map<int, Listed>& satellites, Simulated_epoch& epoch) {
        const Dops expected = dops_of(satellites);
        const auto dp = epoch.get<Msg_DP>();
        // The tolerance allows for rounding to one and two degrees.
        ASSERT_NEAR(dp.get_hdop() / expected.h, 1, 0.03) << "minute " << minute;
        ASSERT_NEAR(dp.get_vdop() / expected.v, 1, 0.05) << "minute " << minute;
        ASSERT_NEAR(dp.get_tdop() / expected.t, 1, 0.06) << "minute " << minute;
        ASSERT_LT(dp.get_hdop(), 3);
    });
}

TEST(Simulator_sky, satellites_move_by_at_most_one_step_an_epoch) {
    Received_epochs receiver;
    std::map<int, Listed> last;
    for (int i = 0; i < 3000; ++i) {
        Simulated_epoch epoch = receiver.next();
        const std::map<int, Listed> now = listed(epoch);
        for (const auto& [number, satellite] : now) {
            const auto before = last.find(number);
            if (before == last.end())
                continue;
            ASSERT_LE(std::abs(satellite.elevation - before->second.elevation), 1) << "satellite " << number;
            if (satellite.elevation < 80) {
                ASSERT_LE(std::fabs(std::remainder(satellite.azimuth - before->second.azimuth, 360)), 2)
                    << "satellite " << number;
            }
        }
        last = now;
    }
}

TEST(Simulator_sky, satellites_rise_and_set_at_the_horizon) {
    int rises = 0, sets = 0;
    std::map<int, Listed> last;
    watch_a_day([&](int minute, const std::map<int, Listed>& now, Simulated_epoch&) {
        if (minute > 0 && minute < 6 * 60) {
            for (const auto& [number, satellite] : now)
                if (last.count(number) == 0) {
                    ++rises;
                    ASSERT_LE(satellite.elevation, 1) << "satellite " << number << " rose high above the horizon";
                }
            for (const auto& [number, satellite] : last)
                if (now.count(number) == 0) {
                    ++sets;
                    ASSERT_LE(satellite.elevation, 1) << "satellite " << number << " set high above the horizon";
                }
        }
        last = now;
    });
    EXPECT_GT(rises, 20) << "in six hours";
    EXPECT_GT(sets, 20) << "in six hours";
}

TEST(Simulator_sky, every_satellite_is_up_at_some_time_of_the_day_and_down_at_another) {
    std::map<int, int> minutes_up;
    watch_a_day([&](int, const std::map<int, Listed>& now, Simulated_epoch&) {
        ASSERT_GE(now.size(), 10U);
        for (const auto& [number, satellite] : now)
            ++minutes_up[number];
    });
    EXPECT_EQ(minutes_up.size(), 54U);
    for (const auto& [number, minutes] : minutes_up)
        EXPECT_LT(minutes, minutes_of_a_day) << "satellite " << number;
}

TEST(Simulator_sky, numbers_are_unique_and_show_the_constellation) {
    watch_a_day([](int, const std::map<int, Listed>& now, Simulated_epoch& epoch) {
        const std::vector<int> order = epoch.list<Msg_SI>();
        ASSERT_TRUE(std::is_sorted(order.begin(), order.end()));
        for (const auto& [number, satellite] : now) {
            const bool second = number > second_constellation;
            ASSERT_EQ(satellite.own_number, second ? number - second_constellation : number);
            ASSERT_GE(satellite.own_number, 1);
            ASSERT_LE(satellite.own_number, second ? 24 : 30);
        }
    });
}

TEST(Simulator_sky, use_in_the_solution_follows_from_mask_and_health) {
    bool unhealthy_seen = false;
    watch_a_day([&](int, const std::map<int, Listed>& now, Simulated_epoch&) {
        for (const auto& [number, satellite] : now) {
            if (number == 13) {
                ASSERT_EQ(satellite.use, 2);
                unhealthy_seen = true;
            } else if (satellite.elevation != 10) { // a value that was rounded to the mask may have either
                ASSERT_EQ(satellite.use, satellite.elevation < 10 ? 1 : 0) << "satellite " << number;
            }
        }
    });
    EXPECT_TRUE(unhealthy_seen);
}

TEST(Simulator_sky, almanacs_mark_the_unhealthy_satellite) {
    Received_epochs receiver;
    for (int i = 0; i < 108; ++i) {
        Simulated_epoch epoch = receiver.next();
        if (epoch.has("GA")) {
            const auto ga = epoch.get<Msg_GA>();
            EXPECT_EQ(ga.get_health_a() != 0, ga.get_sv() == 13);
            EXPECT_EQ(ga.get_health_s(), ga.get_health_a());
        }
        if (epoch.has("NA")) {
            EXPECT_EQ(epoch.get<Msg_NA>().get_health(), 0);
        }
    }
}

TEST(Simulator_sky, almanacs_have_small_clock_errors_of_each_satellite_and_one_of_the_second_constellation) {
    Received_epochs receiver;
    std::set<float> offsets, drifts;
    std::set<double> system_offsets;
    for (int i = 0; i < 108; ++i) {
        Simulated_epoch epoch = receiver.next();
        if (epoch.has("GA")) {
            const auto ga = epoch.get<Msg_GA>();
            EXPECT_LT(std::fabs(ga.get_af0()), 1e-3F);
            EXPECT_LT(std::fabs(ga.get_af1()), 1e-11F);
            offsets.insert(ga.get_af0());
            drifts.insert(ga.get_af1());
        }
        if (epoch.has("NA")) {
            const auto na = epoch.get<Msg_NA>();
            EXPECT_LT(std::fabs(na.get_tau_n()), 1e-3F);
            EXPECT_NEAR(na.get_tau_sys(), 0, 1e-6);
            EXPECT_EQ(na.get_del_t_dt(), 0);
            offsets.insert(na.get_tau_n());
            system_offsets.insert(na.get_tau_sys());
        }
    }
    EXPECT_EQ(offsets.size(), 54U) << "every satellite has a clock of its own";
    EXPECT_EQ(drifts.size(), 30U);
    EXPECT_EQ(system_offsets.size(), 1U);
    EXPECT_NE(*system_offsets.begin(), 0);
}

TEST(Simulator_sky, satellites_that_share_a_frequency_are_opposite_each_other) {
    Received_epochs receiver;
    std::map<std::pair<int, int>, std::vector<int>> by_plane_and_frequency;
    for (int i = 0; i < 108; ++i) {
        Simulated_epoch epoch = receiver.next();
        if (!epoch.has("NA"))
            continue;
        const auto na = epoch.get<Msg_NA>();
        EXPECT_GE(na.get_freq(), -7);
        EXPECT_LE(na.get_freq(), 6);
        by_plane_and_frequency[{(na.get_sv() - 1) / 8, na.get_freq()}].push_back(na.get_sv());
    }
    EXPECT_EQ(by_plane_and_frequency.size(), 12U);
    for (const auto& [key, svs] : by_plane_and_frequency) {
        ASSERT_EQ(svs.size(), 2U);
        EXPECT_EQ(svs[1] - svs[0], 4);
    }
}

TEST(Simulator_sky, counts_of_the_solution_are_those_of_the_lists) {
    watch_a_day([](int, const std::map<int, Listed>& now, Simulated_epoch& epoch) {
        int locked[2] = {}, available[2] = {}, used[2] = {};
        for (const auto& [number, satellite] : now) {
            const int constellation = number > second_constellation ? 1 : 0;
            ++locked[constellation];
            available[constellation] += satellite.use != 2 ? 1 : 0;
            used[constellation] += satellite.use == 0 ? 1 : 0;
        }
        const auto ps = epoch.get<Msg_PS>();
        for (unsigned i = 0; i < 2; ++i) {
            ASSERT_EQ(ps.get_locked(i), locked[i]);
            ASSERT_EQ(ps.get_avail(i), available[i]);
            ASSERT_EQ(ps.get_used(i), used[i]);
        }
        ASSERT_EQ(ps.get_fix(), 100);
    });
}

TEST(Simulator_sky, tracking_times_count_from_the_rise_or_the_start) {
    std::map<int, int> up_since;
    watch_a_day([&](int minute, const std::map<int, Listed>& now, Simulated_epoch&) {
        for (auto entry = up_since.begin(); entry != up_since.end();)
            entry = now.count(entry->first) ? std::next(entry) : up_since.erase(entry);
        for (const auto& [number, satellite] : now) {
            const int since = up_since.emplace(number, minute).first->second;
            ASSERT_EQ(satellite.tracked, std::min(60 * (minute - since), 65535)) << "satellite " << number;
        }
    });
}

TEST(Simulator_sky, signals_are_stronger_high_up_and_weak_ones_are_marked) {
    std::set<int> first_frequency, second_frequency;
    watch_a_day([&](int, const std::map<int, Listed>& now, Simulated_epoch& epoch) {
        for (const auto& [number, satellite] : now) {
            ASSERT_NEAR(satellite.strength, 34 + 16 * std::sin(satellite.elevation * degree), 1.7);
            if (satellite.strength != 38) { // a value that was rounded to the bound may have either
                ASSERT_EQ(satellite.first_weak, satellite.strength < 38 ? 1 : 0);
            }
            if (satellite.strength != 42) {
                ASSERT_EQ(satellite.second_weak, satellite.strength < 42 ? 1 : 0);
            }
            first_frequency.insert(satellite.first_weak);
            second_frequency.insert(satellite.second_weak);
        }
        const Msg_SS strengths = epoch.get<Msg_SS>();
        ASSERT_EQ(strengths.get_uint8(strengths.get_size() - 2), 0) << "the byte after the entries";
    });
    EXPECT_EQ(first_frequency.size(), 2U);
    EXPECT_EQ(second_frequency.size(), 2U);
}
