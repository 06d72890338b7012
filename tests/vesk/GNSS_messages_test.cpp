#include <glue/vesk/GNSS_messages.h>

#include <support/builders/Frame_builder.h>

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace GNSS_messages;

namespace {

// All other bytes of a frame have this value when a field is read or written: no byte of a neighbour may be used.
constexpr char filler = '\xA5';
constexpr unsigned longer_than_any_fixed_frame = 64;

/// Values that show every byte, the sign and the ends of the range.
template <typename T>
std::vector<T> distinctive_values() {
    using limits = std::numeric_limits<T>;
    if constexpr (std::is_floating_point_v<T>)
        return {T(0.1), T(-123456.789), limits::max(), limits::lowest(), limits::denorm_min(), limits::infinity()};
    else
        return {static_cast<T>(0x8182838485868788), static_cast<T>(0x0102030405060708), limits::min(), limits::max()};
}

/// Checks a field: its offset, the operation that reads it and the one that writes it.
template <typename T, typename Get, typename Set>
void expect_field_by(unsigned offset, Get get, Set set) {
    for (const T value : distinctive_values<T>()) {
        const std::string background(longer_than_any_fixed_frame, filler);
        const std::string with_value = std::string(background).replace(offset, sizeof(T), le(value));
        for (unsigned size = 0; size <= longer_than_any_fixed_frame; ++size) {
            const bool whole = size >= offset + sizeof(T);

            Frame received(with_value.substr(0, size));
            EXPECT_EQ(get(received), whole ? value : T(0)) << "offset " << offset << ", size " << size;

            Frame written(background.substr(0, size));
            EXPECT_EQ(set(written, value), whole) << "offset " << offset << ", size " << size;
            EXPECT_EQ(written.bytes(), (whole ? with_value : background).substr(0, size));
        }
    }
}

template <typename Message, typename T>
void expect_field(unsigned offset, T (Message::*get)() const, bool (Message::*set)(T)) {
    expect_field_by<T>(
        offset, [&](Frame& frame) { return (frame.as<Message>().*get)(); },
        [&](Frame& frame, T value) {
            Message message = frame.as<Message>();
            return (message.*set)(value);
        });
}

/// The same for field `i` of a pair or entry `i` of a list.
template <typename Message, typename T>
void expect_field(unsigned offset, T (Message::*get)(unsigned) const, bool (Message::*set)(unsigned, T), unsigned i) {
    expect_field_by<T>(
        offset, [&](Frame& frame) { return (frame.as<Message>().*get)(i); },
        [&](Frame& frame, T value) {
            Message message = frame.as<Message>();
            return (message.*set)(i, value);
        });
}

// ---- Layouts ----

TEST(GNSS_messages, PG_layout) {
    expect_field(5, &Msg_PG::get_lat, &Msg_PG::set_lat);
    expect_field(13, &Msg_PG::get_lon, &Msg_PG::set_lon);
    expect_field(21, &Msg_PG::get_hgt, &Msg_PG::set_hgt);
    expect_field(29, &Msg_PG::get_sigma, &Msg_PG::set_sigma);
    expect_field(33, &Msg_PG::get_type, &Msg_PG::set_type);
}

TEST(GNSS_messages, RT_layout) {
    expect_field(5, &Msg_RT::get_ms, &Msg_RT::set_ms);
}

TEST(GNSS_messages, RD_layout) {
    expect_field(5, &Msg_RD::get_year, &Msg_RD::set_year);
    expect_field(7, &Msg_RD::get_month, &Msg_RD::set_month);
    expect_field(8, &Msg_RD::get_day, &Msg_RD::set_day);
    expect_field(9, &Msg_RD::get_base, &Msg_RD::set_base);
}

TEST(GNSS_messages, GT_layout) {
    expect_field(5, &Msg_GT::get_ms, &Msg_GT::set_ms);
    expect_field(9, &Msg_GT::get_week, &Msg_GT::set_week);
}

TEST(GNSS_messages, NT_layout) {
    expect_field(5, &Msg_NT::get_ms, &Msg_NT::set_ms);
    expect_field(9, &Msg_NT::get_day, &Msg_NT::set_day);
}

TEST(GNSS_messages, SG_layout) {
    expect_field(5, &Msg_SG::get_hpos, &Msg_SG::set_hpos);
    expect_field(9, &Msg_SG::get_vpos, &Msg_SG::set_vpos);
    expect_field(13, &Msg_SG::get_hvel, &Msg_SG::set_hvel);
    expect_field(17, &Msg_SG::get_vvel, &Msg_SG::set_vvel);
    expect_field(21, &Msg_SG::get_type, &Msg_SG::set_type);
}

TEST(GNSS_messages, PS_layout) {
    expect_field(5, &Msg_PS::get_type, &Msg_PS::set_type);
    expect_field(6, &Msg_PS::get_locked, &Msg_PS::set_locked, 0);
    expect_field(7, &Msg_PS::get_locked, &Msg_PS::set_locked, 1);
    expect_field(8, &Msg_PS::get_avail, &Msg_PS::set_avail, 0);
    expect_field(9, &Msg_PS::get_avail, &Msg_PS::set_avail, 1);
    expect_field(10, &Msg_PS::get_used, &Msg_PS::set_used, 0);
    expect_field(11, &Msg_PS::get_used, &Msg_PS::set_used, 1);
    expect_field(12, &Msg_PS::get_fix, &Msg_PS::set_fix);
}

TEST(GNSS_messages, a_pair_has_no_third_field) {
    Frame frame("PS009" + std::string(9, filler));
    auto message = frame.as<Msg_PS>();
    EXPECT_EQ(message.get_locked(2), 0);
    EXPECT_EQ(message.get_used(0xFFFFFFFF), 0);
    EXPECT_FALSE(message.set_avail(2, 1));
    EXPECT_EQ(frame.bytes(), "PS009" + std::string(9, filler));
}

TEST(GNSS_messages, PV_layout) {
    expect_field(5, &Msg_PV::get_x, &Msg_PV::set_x);
    expect_field(13, &Msg_PV::get_y, &Msg_PV::set_y);
    expect_field(21, &Msg_PV::get_z, &Msg_PV::set_z);
    expect_field(29, &Msg_PV::get_psigma, &Msg_PV::set_psigma);
    expect_field(33, &Msg_PV::get_vx, &Msg_PV::set_vx);
    expect_field(37, &Msg_PV::get_vy, &Msg_PV::set_vy);
    expect_field(41, &Msg_PV::get_vz, &Msg_PV::set_vz);
    expect_field(45, &Msg_PV::get_vsigma, &Msg_PV::set_vsigma);
    expect_field(49, &Msg_PV::get_type, &Msg_PV::set_type);
}

TEST(GNSS_messages, DP_layout) {
    expect_field(5, &Msg_DP::get_hdop, &Msg_DP::set_hdop);
    expect_field(9, &Msg_DP::get_vdop, &Msg_DP::set_vdop);
    expect_field(13, &Msg_DP::get_tdop, &Msg_DP::set_tdop);
    expect_field(17, &Msg_DP::get_type, &Msg_DP::set_type);
}

TEST(GNSS_messages, ST_layout) {
    expect_field(5, &Msg_ST::get_ms, &Msg_ST::set_ms);
    expect_field(9, &Msg_ST::get_type, &Msg_ST::set_type);
}

TEST(GNSS_messages, GA_layout) {
    expect_field(5, &Msg_GA::get_sv, &Msg_GA::set_sv);
    expect_field(6, &Msg_GA::get_week, &Msg_GA::set_week);
    expect_field(8, &Msg_GA::get_ms, &Msg_GA::set_ms);
    expect_field(12, &Msg_GA::get_health_a, &Msg_GA::set_health_a);
    expect_field(13, &Msg_GA::get_health_s, &Msg_GA::set_health_s);
    expect_field(14, &Msg_GA::get_config, &Msg_GA::set_config);
    expect_field(15, &Msg_GA::get_af1, &Msg_GA::set_af1);
    expect_field(19, &Msg_GA::get_af0, &Msg_GA::set_af0);
    expect_field(23, &Msg_GA::get_root_a, &Msg_GA::set_root_a);
    expect_field(27, &Msg_GA::get_ecc, &Msg_GA::set_ecc);
    expect_field(31, &Msg_GA::get_m0, &Msg_GA::set_m0);
    expect_field(35, &Msg_GA::get_omega0, &Msg_GA::set_omega0);
    expect_field(39, &Msg_GA::get_arg_per, &Msg_GA::set_arg_per);
    expect_field(43, &Msg_GA::get_deli, &Msg_GA::set_deli);
    expect_field(47, &Msg_GA::get_omega_dot, &Msg_GA::set_omega_dot);
}

TEST(GNSS_messages, NA_layout) {
    expect_field(5, &Msg_NA::get_sv, &Msg_NA::set_sv);
    expect_field(6, &Msg_NA::get_freq, &Msg_NA::set_freq);
    expect_field(7, &Msg_NA::get_day, &Msg_NA::set_day);
    expect_field(9, &Msg_NA::get_time, &Msg_NA::set_time);
    expect_field(13, &Msg_NA::get_health, &Msg_NA::set_health);
    expect_field(14, &Msg_NA::get_tau_n, &Msg_NA::set_tau_n);
    expect_field(18, &Msg_NA::get_tau_sys, &Msg_NA::set_tau_sys);
    expect_field(26, &Msg_NA::get_ecc, &Msg_NA::set_ecc);
    expect_field(30, &Msg_NA::get_lambda, &Msg_NA::set_lambda);
    expect_field(34, &Msg_NA::get_arg_per, &Msg_NA::set_arg_per);
    expect_field(38, &Msg_NA::get_del_t, &Msg_NA::set_del_t);
    expect_field(42, &Msg_NA::get_del_t_dt, &Msg_NA::set_del_t_dt);
    expect_field(46, &Msg_NA::get_deli, &Msg_NA::set_deli);
}

// ---- Signedness of the narrow fields, in plain numbers ----

TEST(GNSS_messages, almanac_fields_are_signed_where_the_wire_is) {
    Frame ga("GA02F" + std::string("\x05\xFF\xFF\xFE\xFF\xFF\xFF\xFF", 8) + std::string(39, '\0'));
    EXPECT_EQ(ga.as<Msg_GA>().get_week(), -1);
    EXPECT_EQ(ga.as<Msg_GA>().get_ms(), -2);
    EXPECT_EQ(ga.as<Msg_GA>().get_health_a(), 255);
    Frame na("NA02E" + std::string("\x05\xF9\x00\x80", 4) + std::string(42, '\0'));
    EXPECT_EQ(na.as<Msg_NA>().get_freq(), -7);
    EXPECT_EQ(na.as<Msg_NA>().get_day(), -32768);
}

// ---- Computed values ----

TEST(GNSS_messages, PG_gives_degrees) {
    Frame frame(build_frame("PG", le(0.5) + le(-3.141592653589793) + le(0.0) + le(0.0F) + '\0'));
    EXPECT_EQ(frame.as<Msg_PG>().get_lat_deg(), 28.64788975654116);
    EXPECT_EQ(frame.as<Msg_PG>().get_lon_deg(), -180.0);
}

TEST(GNSS_messages, DP_computes_gdop_and_pdop) {
    Frame frame(build_frame("DP", le(2.0F) + le(3.0F) + le(6.0F) + '\1'));
    EXPECT_EQ(frame.as<Msg_DP>().get_gdop(), 7.0F);
    EXPECT_EQ(frame.as<Msg_DP>().get_pdop(), 3.6055512F);
}

TEST(GNSS_messages, DP_computes_in_double) {
    Frame frame(build_frame("DP", le(3e30F) + le(4e30F) + le(0.0F) + '\1')); // the squares overflow a float
    EXPECT_EQ(frame.as<Msg_DP>().get_pdop(), 5e30F);
    EXPECT_EQ(frame.as<Msg_DP>().get_gdop(), 5e30F);
}

// ---- Identifiers, sizes and new frames ----

/// The rules for every class of the family.
template <typename Message>
void expect_thin_view() {
    static_assert(std::is_base_of_v<Vesk_message, Message>);
    static_assert(sizeof(Message) == sizeof(Vesk_message), "a message adds no data");
}

template <typename Message>
void expect_fixed_message(const std::string& identifier, unsigned L) {
    expect_thin_view<Message>();
    SCOPED_TRACE(identifier);
    EXPECT_EQ(Message::body_length, L);
    EXPECT_EQ(Message::id, static_cast<unsigned char>(identifier[0]) + 256 * static_cast<unsigned char>(identifier[1]));

    Frame frame(std::string(100, filler));
    auto message = frame.as<Message>();
    ASSERT_TRUE(message.init());
    EXPECT_EQ(message.get_size(), 5 + L);
    EXPECT_TRUE(message.set_checksum(true));
    const std::string whole = build_frame(identifier, std::string(L - 1, '\0'), Checksum::binary, "");
    EXPECT_EQ(frame.bytes(), whole + std::string(100 - whole.size(), filler));

    Frame too_small(std::string(4 + L, filler));
    EXPECT_FALSE(too_small.as<Message>().init());
    EXPECT_EQ(too_small.bytes(), std::string(4 + L, filler));
}

TEST(GNSS_messages, fixed_messages_have_their_identifier_and_length) {
    expect_fixed_message<Msg_PG>("PG", 30);
    expect_fixed_message<Msg_RT>("~~", 5);
    expect_fixed_message<Msg_RD>("RD", 6);
    expect_fixed_message<Msg_GT>("GT", 7);
    expect_fixed_message<Msg_NT>("NT", 7);
    expect_fixed_message<Msg_SG>("SG", 18);
    expect_fixed_message<Msg_PS>("PS", 9);
    expect_fixed_message<Msg_PV>("PV", 46);
    expect_fixed_message<Msg_DP>("DP", 14);
    expect_fixed_message<Msg_ST>("ST", 6);
    expect_fixed_message<Msg_EE>("||", 1);
    expect_fixed_message<Msg_GA>("GA", 47);
    expect_fixed_message<Msg_NA>("NA", 46);
}

TEST(GNSS_messages, a_received_frame_validates_and_reads) {
    Frame frame(build_frame("GT", le(std::uint32_t(302400000)) + le(std::uint16_t(2345)), Checksum::binary, "\r"));
    const auto message = frame.as<Msg_GT>();
    EXPECT_TRUE(message.validate(Msg_GT::id));
    EXPECT_FALSE(message.validate(Msg_NT::id));
    EXPECT_EQ(message.get_ms(), 302400000U);
    EXPECT_EQ(message.get_week(), 2345);
}

// ---- Lists ----

template <typename Message, typename Entry>
void expect_list(const std::string& identifier, unsigned bytes_after_entries) {
    expect_thin_view<Message>();
    static_assert(std::is_same_v<decltype(std::declval<Message>().get_entry(0)), Entry>);
    SCOPED_TRACE(identifier);
    EXPECT_EQ(Message::id, static_cast<unsigned char>(identifier[0]) + 256 * static_cast<unsigned char>(identifier[1]));

    const auto entries_for = [&](const char* digits) {
        return Frame(identifier + digits + std::string(20, filler)).as<Message>().get_num_entries();
    };
    EXPECT_EQ(entries_for("000"), 0U);
    EXPECT_EQ(entries_for("001"), 0U);
    EXPECT_EQ(entries_for("002"), 2 - bytes_after_entries);
    EXPECT_EQ(entries_for("004"), 4 - bytes_after_entries);
    EXPECT_EQ(entries_for("FFF"), 4095 - bytes_after_entries); // though the frame has fewer bytes
    EXPECT_EQ(entries_for("0x4"), 0U);
    EXPECT_EQ(Frame(identifier + "00").as<Message>().get_num_entries(), 0U);

    Frame frame(std::string(100, filler));
    auto message = frame.as<Message>();
    ASSERT_TRUE(message.init(3));
    EXPECT_EQ(message.get_size(), 5 + 3 * sizeof(Entry) + bytes_after_entries);
    std::string body;
    for (unsigned i = 0; i < 3; ++i) {
        const auto value = static_cast<Entry>(0xF1E2 - i);
        EXPECT_TRUE(message.set_entry(i, value));
        EXPECT_EQ(message.get_entry(i), value);
        body += le(value);
    }
    body.append(bytes_after_entries - 1, '\0');
    message.set_checksum(true);
    EXPECT_EQ(frame.bytes().substr(0, message.get_size()), build_frame(identifier, body, Checksum::binary, ""));
}

TEST(GNSS_messages, lists_have_their_identifier_entries_and_length) {
    expect_list<Msg_SI, std::uint8_t>("SI", 1);
    expect_list<Msg_NN, std::uint8_t>("NN", 1);
    expect_list<Msg_EC, std::uint8_t>("EC", 1);
    expect_list<Msg_E1, std::uint8_t>("E1", 1);
    expect_list<Msg_E2, std::uint8_t>("E2", 1);
    expect_list<Msg_EL, std::int8_t>("EL", 1);
    expect_list<Msg_AZ, std::uint8_t>("AZ", 1);
    expect_list<Msg_SS, std::uint8_t>("SS", 2);
    expect_list<Msg_TC, std::uint16_t>("TC", 1);
}

TEST(GNSS_messages, list_entries_are_adjacent_from_offset_5) {
    Frame frame(build_frame("EL", "\x01\x7F\x80\xFF"));
    const auto message = frame.as<Msg_EL>();
    ASSERT_EQ(message.get_num_entries(), 4U);
    EXPECT_EQ(message.get_entry(0), 1);
    EXPECT_EQ(message.get_entry(1), 127);
    EXPECT_EQ(message.get_entry(2), -128);
    EXPECT_EQ(message.get_entry(3), -1);
}

TEST(GNSS_messages, there_is_no_entry_after_the_last) {
    Frame frame(build_frame("SI", "\x01\x02"));
    auto message = frame.as<Msg_SI>();
    const std::string before = frame.bytes();
    EXPECT_EQ(message.get_entry(2), 0); // the checksum is there
    EXPECT_EQ(message.get_entry(0xFFFFFFFF), 0);
    EXPECT_FALSE(message.set_entry(2, 9));
    EXPECT_EQ(frame.bytes(), before);
}

TEST(GNSS_messages, a_list_holds_a_full_body_and_not_more) {
    Frame frame(std::string(5000, filler));
    auto message = frame.as<Msg_SI>();
    EXPECT_FALSE(message.init(4095));
    EXPECT_FALSE(message.init(0xFFFFFFFF));
    EXPECT_EQ(frame.bytes(), std::string(5000, filler));
    EXPECT_TRUE(message.init(4094));
    EXPECT_EQ(frame.bytes().substr(0, 5), "SIFFF");
    EXPECT_EQ(message.get_num_entries(), 4094U);
    auto two_byte = frame.as<Msg_TC>();
    EXPECT_FALSE(two_byte.init(0x80000000)); // twice that is 0
    EXPECT_FALSE(two_byte.init(2048));
    EXPECT_TRUE(two_byte.init(2047));
}

TEST(GNSS_messages, TC_has_one_two_byte_entry_per_body_byte_less_one) {
    Frame frame("TC005" + le(std::uint16_t(0xFFFE)) + le(std::uint16_t(0x1234)) + "\x55" + "\n");
    const auto message = frame.as<Msg_TC>();
    ASSERT_EQ(message.get_num_entries(), 4U);
    EXPECT_EQ(message.get_entry(0), 0xFFFE);
    EXPECT_EQ(message.get_entry(1), 0x1234);
    EXPECT_EQ(message.get_entry(2), 0x0A55); // checksum and line end: past the body, within the buffer
    EXPECT_EQ(message.get_entry(3), 0);      // past the buffer
}

TEST(GNSS_messages, TC_entries_half_in_the_buffer_read_as_0) {
    Frame frame("TC003\x01\x02\x03");
    EXPECT_EQ(frame.as<Msg_TC>().get_entry(0), 0x0201);
    EXPECT_EQ(frame.as<Msg_TC>().get_entry(1), 0);
    EXPECT_FALSE(frame.as<Msg_TC>().set_entry(1, 0xFFFF));
}

TEST(GNSS_messages, SS_has_one_byte_that_is_not_an_entry) {
    Frame frame(build_frame("SS", "\x0A\x0B\x63"));
    const auto message = frame.as<Msg_SS>();
    ASSERT_EQ(message.get_num_entries(), 2U);
    EXPECT_EQ(message.get_entry(1), 11);
    EXPECT_EQ(message.get_entry(2), 0);
}

TEST(GNSS_messages, block_messages_add_no_data) {
    expect_thin_view<Msg_PA>();
    expect_thin_view<Msg_S1>();
    expect_thin_view<Msg_S2>();
}

} // namespace
