#pragma once

#include <glue/vesk/GNSS_block_messages.h>
#include <glue/vesk/GNSS_message.h>

#include <cstdint>

/// The binary messages of the receiver: position, velocity, time, satellites, almanacs.
///
/// Each class is a typed view of a frame in a buffer that the caller owns. The caller chooses the class by the frame's
/// identifier. A class adds no data to `Vesk_message`, only the offsets of its fields. Reading:
///
///     if (frame.validate(Msg_PG::id)) {
///         const Msg_PG position(frame.get_ptr(), frame.get_size());
///         steer_by(position.get_lat(), position.get_lon());
///     }
///
/// A view checks neither identifier nor length nor checksum. A field beyond the end of the frame reads as 0. All
/// numbers are little-endian; offsets count from the identifier's first byte. The receiver defines units that are not
/// given here.
///
/// The setters, `id`, `body_length` and `init` are additions, for programs that simulate a receiver. Writing:
///
///     unsigned char buffer[64];
///     Msg_PG position(buffer, sizeof buffer);
///     position.init();                     // identifier and length of a PG frame, all other bytes 0
///     position.set_lat(0.5);
///     position.set_checksum(true);         // complete, except the line end that follows it on the wire
///
/// A setter returns false, with nothing written, when its field is beyond the end of the frame. Not synchronised: one
/// thread at a time, or many that only read.
namespace GNSS_messages {

// ---- Position, velocity and their quality ----

/// Geodetic position.
class GLUE_EXPORT Msg_PG : public GNSS_message {
    static constexpr Field<double> lat{5}, lon{13}, hgt{21};
    static constexpr Field<float> sigma{29};
    static constexpr Field<std::uint8_t> type{33};

  public:
    static constexpr int id = msg_id('P', 'G');
    static constexpr unsigned body_length = body_up_to(type);

    using GNSS_message::GNSS_message;
    ~Msg_PG() override;
    bool init() { return init_frame(id, body_length); }

    /// Radians.
    double get_lat() const { return get(lat); }
    bool set_lat(double value) { return set(lat, value); }
    /// Radians.
    double get_lon() const { return get(lon); }
    bool set_lon(double value) { return set(lon, value); }
    /// Metres.
    double get_hgt() const { return get(hgt); }
    bool set_hgt(double value) { return set(hgt, value); }
    float get_sigma() const { return get(sigma); }
    bool set_sigma(float value) { return set(sigma, value); }
    std::uint8_t get_type() const { return get(type); }
    bool set_type(std::uint8_t value) { return set(type, value); }

    /// Latitude times 180 divided by pi.
    double get_lat_deg() const;
    /// Longitude times 180 divided by pi.
    double get_lon_deg() const;
};

/// Cartesian position and velocity.
class GLUE_EXPORT Msg_PV : public GNSS_message {
    static constexpr Field<double> x{5}, y{13}, z{21};
    static constexpr Field<float> psigma{29}, vx{33}, vy{37}, vz{41}, vsigma{45};
    static constexpr Field<std::uint8_t> type{49};

  public:
    static constexpr int id = msg_id('P', 'V');
    static constexpr unsigned body_length = body_up_to(type);

    using GNSS_message::GNSS_message;
    ~Msg_PV() override;
    bool init() { return init_frame(id, body_length); }

    /// Position.
    double get_x() const { return get(x); }
    bool set_x(double value) { return set(x, value); }
    double get_y() const { return get(y); }
    bool set_y(double value) { return set(y, value); }
    double get_z() const { return get(z); }
    bool set_z(double value) { return set(z, value); }
    float get_psigma() const { return get(psigma); }
    bool set_psigma(float value) { return set(psigma, value); }
    /// Velocity.
    float get_vx() const { return get(vx); }
    bool set_vx(float value) { return set(vx, value); }
    float get_vy() const { return get(vy); }
    bool set_vy(float value) { return set(vy, value); }
    float get_vz() const { return get(vz); }
    bool set_vz(float value) { return set(vz, value); }
    float get_vsigma() const { return get(vsigma); }
    bool set_vsigma(float value) { return set(vsigma, value); }
    std::uint8_t get_type() const { return get(type); }
    bool set_type(std::uint8_t value) { return set(type, value); }
};

/// Sigmas of position and velocity, horizontal and vertical.
class GLUE_EXPORT Msg_SG : public GNSS_message {
    static constexpr Field<float> hpos{5}, vpos{9}, hvel{13}, vvel{17};
    static constexpr Field<std::uint8_t> type{21};

  public:
    static constexpr int id = msg_id('S', 'G');
    static constexpr unsigned body_length = body_up_to(type);

    using GNSS_message::GNSS_message;
    ~Msg_SG() override;
    bool init() { return init_frame(id, body_length); }

    float get_hpos() const { return get(hpos); }
    bool set_hpos(float value) { return set(hpos, value); }
    float get_vpos() const { return get(vpos); }
    bool set_vpos(float value) { return set(vpos, value); }
    float get_hvel() const { return get(hvel); }
    bool set_hvel(float value) { return set(hvel, value); }
    float get_vvel() const { return get(vvel); }
    bool set_vvel(float value) { return set(vvel, value); }
    std::uint8_t get_type() const { return get(type); }
    bool set_type(std::uint8_t value) { return set(type, value); }
};

/// Dilution of precision.
class GLUE_EXPORT Msg_DP : public GNSS_message {
    static constexpr Field<float> hdop{5}, vdop{9}, tdop{13};
    static constexpr Field<std::uint8_t> type{17};

  public:
    static constexpr int id = msg_id('D', 'P');
    static constexpr unsigned body_length = body_up_to(type);

    using GNSS_message::GNSS_message;
    ~Msg_DP() override;
    bool init() { return init_frame(id, body_length); }

    float get_hdop() const { return get(hdop); }
    bool set_hdop(float value) { return set(hdop, value); }
    float get_vdop() const { return get(vdop); }
    bool set_vdop(float value) { return set(vdop, value); }
    float get_tdop() const { return get(tdop); }
    bool set_tdop(float value) { return set(tdop, value); }
    std::uint8_t get_type() const { return get(type); }
    bool set_type(std::uint8_t value) { return set(type, value); }

    /// sqrt(HDOP² + VDOP² + TDOP²). The frame does not hold it: computed in double, rounded to float.
    float get_gdop() const;
    /// sqrt(HDOP² + VDOP²), computed in the same way.
    float get_pdop() const;
};

/// Numbers of satellites, in pairs, and the fix. An `i` is 0 or 1: the first or the second number of a pair.
class GLUE_EXPORT Msg_PS : public GNSS_message {
    static constexpr Field<std::uint8_t> type{5}, locked{6}, avail{8}, used{10}, fix{12};

  public:
    static constexpr int id = msg_id('P', 'S');
    static constexpr unsigned body_length = body_up_to(fix);

    using GNSS_message::GNSS_message;
    ~Msg_PS() override;
    bool init() { return init_frame(id, body_length); }

    std::uint8_t get_type() const { return get(type); }
    bool set_type(std::uint8_t value) { return set(type, value); }
    std::uint8_t get_locked(unsigned i) const { return get_of_pair(locked, i); }
    bool set_locked(unsigned i, std::uint8_t value) { return set_of_pair(locked, i, value); }
    std::uint8_t get_avail(unsigned i) const { return get_of_pair(avail, i); }
    bool set_avail(unsigned i, std::uint8_t value) { return set_of_pair(avail, i, value); }
    std::uint8_t get_used(unsigned i) const { return get_of_pair(used, i); }
    bool set_used(unsigned i, std::uint8_t value) { return set_of_pair(used, i, value); }
    std::uint8_t get_fix() const { return get(fix); }
    bool set_fix(std::uint8_t value) { return set(fix, value); }
};

// ---- Time ----

class GLUE_EXPORT Msg_RT : public GNSS_message {
    static constexpr Field<std::uint32_t> ms{5};

  public:
    static constexpr int id = msg_id('~', '~');
    static constexpr unsigned body_length = body_up_to(ms);

    using GNSS_message::GNSS_message;
    ~Msg_RT() override;
    bool init() { return init_frame(id, body_length); }

    /// Milliseconds.
    std::uint32_t get_ms() const { return get(ms); }
    bool set_ms(std::uint32_t value) { return set(ms, value); }
};

/// Date.
class GLUE_EXPORT Msg_RD : public GNSS_message {
    static constexpr Field<std::uint16_t> year{5};
    static constexpr Field<std::uint8_t> month{7}, day{8}, base{9};

  public:
    static constexpr int id = msg_id('R', 'D');
    static constexpr unsigned body_length = body_up_to(base);

    using GNSS_message::GNSS_message;
    ~Msg_RD() override;
    bool init() { return init_frame(id, body_length); }

    std::uint16_t get_year() const { return get(year); }
    bool set_year(std::uint16_t value) { return set(year, value); }
    std::uint8_t get_month() const { return get(month); }
    bool set_month(std::uint8_t value) { return set(month, value); }
    std::uint8_t get_day() const { return get(day); }
    bool set_day(std::uint8_t value) { return set(day, value); }
    std::uint8_t get_base() const { return get(base); }
    bool set_base(std::uint8_t value) { return set(base, value); }
};

/// Time counted in weeks.
class GLUE_EXPORT Msg_GT : public GNSS_message {
    static constexpr Field<std::uint32_t> ms{5};
    static constexpr Field<std::uint16_t> week{9};

  public:
    static constexpr int id = msg_id('G', 'T');
    static constexpr unsigned body_length = body_up_to(week);

    using GNSS_message::GNSS_message;
    ~Msg_GT() override;
    bool init() { return init_frame(id, body_length); }

    /// Milliseconds.
    std::uint32_t get_ms() const { return get(ms); }
    bool set_ms(std::uint32_t value) { return set(ms, value); }
    std::uint16_t get_week() const { return get(week); }
    bool set_week(std::uint16_t value) { return set(week, value); }
};

/// Time counted in days.
class GLUE_EXPORT Msg_NT : public GNSS_message {
    static constexpr Field<std::uint32_t> ms{5};
    static constexpr Field<std::uint16_t> day{9};

  public:
    static constexpr int id = msg_id('N', 'T');
    static constexpr unsigned body_length = body_up_to(day);

    using GNSS_message::GNSS_message;
    ~Msg_NT() override;
    bool init() { return init_frame(id, body_length); }

    /// Milliseconds.
    std::uint32_t get_ms() const { return get(ms); }
    bool set_ms(std::uint32_t value) { return set(ms, value); }
    std::uint16_t get_day() const { return get(day); }
    bool set_day(std::uint16_t value) { return set(day, value); }
};

class GLUE_EXPORT Msg_ST : public GNSS_message {
    static constexpr Field<std::uint32_t> ms{5};
    static constexpr Field<std::uint8_t> type{9};

  public:
    static constexpr int id = msg_id('S', 'T');
    static constexpr unsigned body_length = body_up_to(type);

    using GNSS_message::GNSS_message;
    ~Msg_ST() override;
    bool init() { return init_frame(id, body_length); }

    /// Milliseconds.
    std::uint32_t get_ms() const { return get(ms); }
    bool set_ms(std::uint32_t value) { return set(ms, value); }
    std::uint8_t get_type() const { return get(type); }
    bool set_type(std::uint8_t value) { return set(type, value); }
};

/// No fields.
class GLUE_EXPORT Msg_EE : public GNSS_message {
  public:
    static constexpr int id = msg_id('|', '|');
    static constexpr unsigned body_length = checksum_size;

    using GNSS_message::GNSS_message;
    ~Msg_EE() override;
    bool init() { return init_frame(id, body_length); }
};

// ---- Almanacs ----

/// Almanac of one satellite.
class GLUE_EXPORT Msg_GA : public GNSS_message {
    static constexpr Field<std::uint8_t> sv{5};
    static constexpr Field<std::int16_t> week{6};
    static constexpr Field<std::int32_t> ms{8};
    static constexpr Field<std::uint8_t> health_a{12}, health_s{13}, config{14};
    static constexpr Field<float> af1{15}, af0{19}, root_a{23}, ecc{27}, m0{31}, omega0{35}, arg_per{39}, deli{43},
        omega_dot{47};

  public:
    static constexpr int id = msg_id('G', 'A');
    static constexpr unsigned body_length = body_up_to(omega_dot);

    using GNSS_message::GNSS_message;
    ~Msg_GA() override;
    bool init() { return init_frame(id, body_length); }

    /// Satellite number.
    std::uint8_t get_sv() const { return get(sv); }
    bool set_sv(std::uint8_t value) { return set(sv, value); }
    std::int16_t get_week() const { return get(week); }
    bool set_week(std::int16_t value) { return set(week, value); }
    /// Milliseconds.
    std::int32_t get_ms() const { return get(ms); }
    bool set_ms(std::int32_t value) { return set(ms, value); }
    std::uint8_t get_health_a() const { return get(health_a); }
    bool set_health_a(std::uint8_t value) { return set(health_a, value); }
    std::uint8_t get_health_s() const { return get(health_s); }
    bool set_health_s(std::uint8_t value) { return set(health_s, value); }
    std::uint8_t get_config() const { return get(config); }
    bool set_config(std::uint8_t value) { return set(config, value); }
    float get_af1() const { return get(af1); }
    bool set_af1(float value) { return set(af1, value); }
    float get_af0() const { return get(af0); }
    bool set_af0(float value) { return set(af0, value); }
    float get_root_a() const { return get(root_a); }
    bool set_root_a(float value) { return set(root_a, value); }
    float get_ecc() const { return get(ecc); }
    bool set_ecc(float value) { return set(ecc, value); }
    float get_m0() const { return get(m0); }
    bool set_m0(float value) { return set(m0, value); }
    float get_omega0() const { return get(omega0); }
    bool set_omega0(float value) { return set(omega0, value); }
    float get_arg_per() const { return get(arg_per); }
    bool set_arg_per(float value) { return set(arg_per, value); }
    float get_deli() const { return get(deli); }
    bool set_deli(float value) { return set(deli, value); }
    float get_omega_dot() const { return get(omega_dot); }
    bool set_omega_dot(float value) { return set(omega_dot, value); }
};

/// Almanac of one satellite.
class GLUE_EXPORT Msg_NA : public GNSS_message {
    static constexpr Field<std::uint8_t> sv{5};
    static constexpr Field<std::int8_t> freq{6};
    static constexpr Field<std::int16_t> day{7};
    static constexpr Field<float> time{9};
    static constexpr Field<std::uint8_t> health{13};
    static constexpr Field<float> tau_n{14};
    static constexpr Field<double> tau_sys{18};
    static constexpr Field<float> ecc{26}, lambda{30}, arg_per{34}, del_t{38}, del_t_dt{42}, deli{46};

  public:
    static constexpr int id = msg_id('N', 'A');
    static constexpr unsigned body_length = body_up_to(deli);

    using GNSS_message::GNSS_message;
    ~Msg_NA() override;
    bool init() { return init_frame(id, body_length); }

    /// Satellite number.
    std::uint8_t get_sv() const { return get(sv); }
    bool set_sv(std::uint8_t value) { return set(sv, value); }
    std::int8_t get_freq() const { return get(freq); }
    bool set_freq(std::int8_t value) { return set(freq, value); }
    std::int16_t get_day() const { return get(day); }
    bool set_day(std::int16_t value) { return set(day, value); }
    float get_time() const { return get(time); }
    bool set_time(float value) { return set(time, value); }
    std::uint8_t get_health() const { return get(health); }
    bool set_health(std::uint8_t value) { return set(health, value); }
    float get_tau_n() const { return get(tau_n); }
    bool set_tau_n(float value) { return set(tau_n, value); }
    double get_tau_sys() const { return get(tau_sys); }
    bool set_tau_sys(double value) { return set(tau_sys, value); }
    float get_ecc() const { return get(ecc); }
    bool set_ecc(float value) { return set(ecc, value); }
    float get_lambda() const { return get(lambda); }
    bool set_lambda(float value) { return set(lambda, value); }
    float get_arg_per() const { return get(arg_per); }
    bool set_arg_per(float value) { return set(arg_per, value); }
    float get_del_t() const { return get(del_t); }
    bool set_del_t(float value) { return set(del_t, value); }
    float get_del_t_dt() const { return get(del_t_dt); }
    bool set_del_t_dt(float value) { return set(del_t_dt, value); }
    float get_deli() const { return get(deli); }
    bool set_deli(float value) { return set(deli, value); }
};

// ---- Lists with one entry for each satellite ----

class GLUE_EXPORT Msg_SI : public GNSS_list<std::uint8_t, 'S', 'I'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_SI() override;
};

class GLUE_EXPORT Msg_NN : public GNSS_list<std::uint8_t, 'N', 'N'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_NN() override;
};

class GLUE_EXPORT Msg_EC : public GNSS_list<std::uint8_t, 'E', 'C'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_EC() override;
};

class GLUE_EXPORT Msg_E1 : public GNSS_list<std::uint8_t, 'E', '1'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_E1() override;
};

class GLUE_EXPORT Msg_E2 : public GNSS_list<std::uint8_t, 'E', '2'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_E2() override;
};

/// Elevations.
class GLUE_EXPORT Msg_EL : public GNSS_list<std::int8_t, 'E', 'L'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_EL() override;
};

/// Azimuths.
class GLUE_EXPORT Msg_AZ : public GNSS_list<std::uint8_t, 'A', 'Z'> {
  public:
    /// The azimuth is an entry times this.
    static constexpr int unit = 2;

    using GNSS_list::GNSS_list;
    ~Msg_AZ() override;
};

/// One more byte lies between the last entry and the checksum.
class GLUE_EXPORT Msg_SS : public GNSS_list<std::uint8_t, 'S', 'S', 2> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_SS() override;
};

/// On purpose: the number of two-byte entries is the number of body bytes minus 1, so that reading goes past the body
/// when L is 3 or more. Entries past the end of the buffer read as 0. A frame made by `init` with a `count` of n has 2n
/// + 1 body bytes and so 2n entries, of which the first n are its own.
class GLUE_EXPORT Msg_TC : public GNSS_list<std::uint16_t, 'T', 'C'> {
  public:
    using GNSS_list::GNSS_list;
    ~Msg_TC() override;
};

} // namespace GNSS_messages
