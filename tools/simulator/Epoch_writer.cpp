#include "Epoch_writer.h"

#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/MC_UI_messages.h>
#include <glue/vesk/NMEA_messages.h>

#include <algorithm>
#include <cmath>

namespace simulator {

namespace {

using namespace GNSS_messages;

constexpr std::uint8_t fixed_solution = 4;
constexpr std::uint8_t date_of_receiver_time = 0;
constexpr std::uint8_t fix_complete = 100;

// The standard deviations of one range and one range rate.
constexpr double range_sigma = 0.008; // metres
constexpr double rate_sigma = 0.015;  // metres a second

/// Metres from the ellipsoid up to mean sea level at the field.
constexpr double geoid_height = 45.5;

constexpr double longest_tracking = 65535; // seconds, the largest value of an entry

// Signals, dB-Hz.
constexpr double weak_below = 38;
constexpr double second_frequency_loss = 4;

/// Enough bytes for any of the frames.
constexpr unsigned frame_capacity = 256;
static_assert(frame_capacity >= Msg_TC::header_size + 2 * Sky::satellites + 1);

template <typename Number>
Number rounded(double value) {
    return static_cast<Number>(std::lround(value));
}

std::uint8_t weak(double strength) {
    return strength < weak_below ? 1 : 0;
}

/// Satellites of one constellation that fulfil a condition.
template <typename Condition>
std::uint8_t count(const std::vector<Sighting>& sightings, unsigned constellation, Condition condition) {
    return static_cast<std::uint8_t>(std::count_if(sightings.begin(), sightings.end(), [=](const Sighting& s) {
        return static_cast<unsigned>(s.constellation) == constellation && condition(s);
    }));
}

} // namespace

/// One frame of fixed layout: `fill` sets its fields.
template <typename Message, typename Fill>
void Epoch_writer::write_message(Fill fill) {
    unsigned char frame[frame_capacity];
    Message message(frame, sizeof frame);
    message.init();
    fill(message);
    message.set_checksum(true);
    line_.append(message.get_ptr(), message.get_size());
}

/// One list: `entry_of` makes an entry out of a sighting.
template <typename List, typename Entry_of>
void Epoch_writer::write_list(const std::vector<Sighting>& sightings, Entry_of entry_of) {
    unsigned char frame[frame_capacity];
    List list(frame, sizeof frame);
    list.init(static_cast<unsigned>(sightings.size()));
    unsigned i = 0;
    for (const Sighting& sighting : sightings)
        list.set_entry(i++, entry_of(sighting));
    list.set_checksum(true);
    line_.append(list.get_ptr(), list.get_size());
}

void Epoch_writer::write(const Epoch& epoch) {
    write_time(epoch);
    write_solution(epoch);
    write_satellites(epoch);
    write_almanac(epoch);
    if (epoch.automation)
        write_automation(epoch);
    if (epoch.display)
        write_display(epoch);
    write_message<Msg_EE>([](Msg_EE&) {});
    if (epoch.sentence)
        write_sentence(epoch);
}

void Epoch_writer::write_time(const Epoch& epoch) {
    const Receiver_time& time = epoch.time;
    write_message<Msg_RT>([&](Msg_RT& m) { m.set_ms(time.ms_of_day()); });
    write_message<Msg_GT>([&](Msg_GT& m) {
        m.set_ms(time.ms_of_week());
        m.set_week(time.week());
    });
    write_message<Msg_NT>([&](Msg_NT& m) {
        m.set_ms(time.moscow_ms_of_day());
        m.set_day(static_cast<std::uint16_t>(time.moscow_day()));
    });
    write_message<Msg_RD>([&](Msg_RD& m) {
        const Receiver_time::Date date = time.date();
        m.set_year(static_cast<std::uint16_t>(date.year));
        m.set_month(static_cast<std::uint8_t>(date.month));
        m.set_day(static_cast<std::uint8_t>(date.day));
        m.set_base(date_of_receiver_time);
    });
}

void Epoch_writer::write_solution(const Epoch& epoch) {
    const Dilution& dilution = epoch.dilution;
    const Vector& position = epoch.motion.position;
    const Vector& velocity = epoch.motion.velocity;
    const double dilution_of_position = std::hypot(dilution.horizontal, dilution.vertical);

    write_message<Msg_PG>([&](Msg_PG& m) {
        const Geodetic place = to_geodetic(position);
        m.set_lat(place.latitude);
        m.set_lon(place.longitude);
        m.set_hgt(place.height);
        m.set_sigma(static_cast<float>(range_sigma * dilution_of_position));
        m.set_type(fixed_solution);
    });
    write_message<Msg_SG>([&](Msg_SG& m) {
        m.set_hpos(static_cast<float>(range_sigma * dilution.horizontal));
        m.set_vpos(static_cast<float>(range_sigma * dilution.vertical));
        m.set_hvel(static_cast<float>(rate_sigma * dilution.horizontal));
        m.set_vvel(static_cast<float>(rate_sigma * dilution.vertical));
        m.set_type(fixed_solution);
    });
    write_message<Msg_PV>([&](Msg_PV& m) {
        m.set_x(position.x);
        m.set_y(position.y);
        m.set_z(position.z);
        m.set_psigma(static_cast<float>(range_sigma * dilution_of_position));
        m.set_vx(static_cast<float>(velocity.x));
        m.set_vy(static_cast<float>(velocity.y));
        m.set_vz(static_cast<float>(velocity.z));
        m.set_vsigma(static_cast<float>(rate_sigma * dilution_of_position));
        m.set_type(fixed_solution);
    });
    write_message<Msg_DP>([&](Msg_DP& m) {
        m.set_hdop(static_cast<float>(dilution.horizontal));
        m.set_vdop(static_cast<float>(dilution.vertical));
        m.set_tdop(static_cast<float>(dilution.time));
        m.set_type(fixed_solution);
    });
    write_message<Msg_PS>([&](Msg_PS& m) {
        m.set_type(fixed_solution);
        for (unsigned i = 0; i < 2; ++i) {
            m.set_locked(i, count(epoch.sightings, i, [](const Sighting&) { return true; }));
            m.set_avail(i,
                        count(epoch.sightings, i, [](const Sighting& s) { return s.use != Sighting::Use::unhealthy; }));
            m.set_used(i, count(epoch.sightings, i, [](const Sighting& s) { return s.use == Sighting::Use::used; }));
        }
        m.set_fix(fix_complete);
    });
    write_message<Msg_ST>([&](Msg_ST& m) {
        m.set_ms(epoch.time.ms_of_day());
        m.set_type(fixed_solution);
    });
}

void Epoch_writer::write_satellites(const Epoch& epoch) {
    constexpr int azimuth_steps = 360 / Msg_AZ::unit;
    const std::vector<Sighting>& sightings = epoch.sightings;
    write_list<Msg_SI>(sightings, [](const Sighting& s) { return s.number; });
    write_list<Msg_NN>(sightings, [](const Sighting& s) { return s.own_number; });
    write_list<Msg_EL>(sightings, [](const Sighting& s) { return rounded<std::int8_t>(degrees(s.elevation)); });
    write_list<Msg_AZ>(sightings, [](const Sighting& s) {
        return static_cast<std::uint8_t>(rounded<int>(degrees(s.azimuth) / Msg_AZ::unit) % azimuth_steps);
    });
    write_list<Msg_SS>(sightings, [](const Sighting& s) { return rounded<std::uint8_t>(s.strength); });
    write_list<Msg_TC>(sightings, [](const Sighting& s) {
        return static_cast<std::uint16_t>(std::min(s.tracked_seconds, longest_tracking));
    });
    write_list<Msg_EC>(sightings, [](const Sighting& s) { return static_cast<std::uint8_t>(s.use); });
    write_list<Msg_E1>(sightings, [](const Sighting& s) { return weak(s.strength); });
    write_list<Msg_E2>(sightings, [](const Sighting& s) { return weak(s.strength - second_frequency_loss); });
}

void Epoch_writer::write_almanac(const Epoch& epoch) {
    if (const Keplerian_almanac* const almanac = epoch.first_almanac) {
        write_message<Msg_GA>([&](Msg_GA& m) {
            m.set_sv(almanac->sv);
            m.set_week(almanac->week);
            m.set_ms(almanac->ms);
            m.set_health_a(almanac->health);
            m.set_health_s(almanac->health);
            m.set_af1(almanac->af1);
            m.set_af0(almanac->af0);
            m.set_root_a(almanac->root_a);
            m.set_ecc(almanac->ecc);
            m.set_m0(almanac->m0);
            m.set_omega0(almanac->omega0);
            m.set_arg_per(almanac->arg_per);
            m.set_deli(almanac->deli);
            m.set_omega_dot(almanac->omega_dot);
        });
    }
    if (const Nodal_almanac* const almanac = epoch.second_almanac) {
        write_message<Msg_NA>([&](Msg_NA& m) {
            m.set_sv(almanac->sv);
            m.set_freq(almanac->freq);
            m.set_day(almanac->day);
            m.set_time(almanac->time);
            m.set_health(almanac->health);
            m.set_tau_n(almanac->tau_n);
            m.set_tau_sys(almanac->tau_sys);
            m.set_ecc(almanac->ecc);
            m.set_lambda(almanac->lambda);
            m.set_arg_per(almanac->arg_per);
            m.set_del_t(almanac->del_t);
            m.set_del_t_dt(almanac->del_t_dt);
            m.set_deli(almanac->deli);
        });
    }
}

void Epoch_writer::write_automation(const Epoch& epoch) {
    write_message<TIM_messages::Msg_GS>(
        [&](TIM_messages::Msg_GS& m) { epoch.automation->report(m, epoch.motion.curvature); });
}

void Epoch_writer::write_display(const Epoch& epoch) {
    using namespace MC_UI_messages;
    constexpr unsigned items = 4;
    const bool steers = epoch.automation && epoch.automation->is_active();
    unsigned char frame[frame_capacity] = {};
    Msg_ES message(frame, sizeof frame);
    message.set_num_items(items, Msg_ES::item_size);
    message.set_item(0, static_cast<int>(steers ? control_closed_loop : control_none));
    message.set_item(1, static_cast<int>(implement_rear));
    message.set_item(2, static_cast<float>(epoch.motion.curvature));
    message.set_item(3, static_cast<float>(length(epoch.motion.velocity)));
    message.set_checksum(true);
    line_.append(message.get_ptr(), message.get_size());
}

void Epoch_writer::write_sentence(const Epoch& epoch) {
    const Geodetic place = to_geodetic(epoch.motion.position);
    NMEA_messages::GGA fix = {};
    fix.ms_of_day = epoch.time.utc_ms_of_day();
    fix.latitude = degrees(place.latitude);
    fix.longitude = degrees(place.longitude);
    fix.fix = fixed_solution;
    fix.satellites = static_cast<int>(std::count_if(epoch.sightings.begin(), epoch.sightings.end(),
                                                    [](const Sighting& s) { return s.use == Sighting::Use::used; }));
    fix.hdop = epoch.dilution.horizontal;
    fix.altitude = place.height - geoid_height;
    fix.geoid_height = geoid_height;
    char text[frame_capacity];
    const unsigned size = NMEA_messages::compose(fix, text, sizeof text);
    line_.append_sentence(reinterpret_cast<unsigned char*>(text), size);
}

} // namespace simulator
