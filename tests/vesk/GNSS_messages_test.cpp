#include <glue/vesk/GNSS_messages.h>

#include <support/Frame_builder.h>

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace GNSS_messages;

namespace {

// A field is looked at in a frame whose other bytes all hold this: no byte of its neighbours may come in.
constexpr char filler = '\xA5';
constexpr unsigned longer_than_any_fixed_frame = 64;

/// Values that tell every byte, the sign and the ends of the range.
template <typename T>
std::vector<T> telling_values() {
    using limits = std::numeric_limits<T>;
    if constexpr (std::is_floating_point_v<T>)
        return {T(0.1), T(-123456.789), limits::max(), limits::lowest(), limits::denorm_min(), limits::infinity()};
    else
        return {static_cast<T>(0x8182838485868788), static_cast<T>(0x0102030405060708), limits::min(), limits::max()};
}

/// A field of `Message`: where it is, what reads it and what writes it.
template <typename T, typename Get, typename Set>
void expect_field_by(unsigned offset, Get get, Set set) {
    for (const T value : telling_values<T>()) {
        const std::string background(longer_than_any_fixed_frame, filler);
        const std::string with_value = std::string(background).replace(offset, sizeof(T), le(value));
        for (unsigned size = 0; size <= longer_than_any_fixed_frame; ++size) {
            const bool whole = size >= offset + sizeof(T);

            Frame received(with_value.substr(0, size));
            EXPECT_EQ(get(received), whole ? value : T(0)) << "offset " << offset << ", size " << size;

            Frame made(background.substr(0, size));
            EXPECT_EQ(set(made, value), whole) << "offset " << offset << ", size " << size;
            EXPECT_EQ(made.bytes(), (whole ? with_value : background).substr(0, size));
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

// Layouts

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

// Signedness of the narrow fields, in plain numbers

TEST(GNSS_messages, almanac_fields_are_signed_where_the_wire_is) {
    Frame ga("GA02F" + std::string("\x05\xFF\xFF\xFE\xFF\xFF\xFF\xFF", 8) + std::string(39, '\0'));
    EXPECT_EQ(ga.as<Msg_GA>().get_week(), -1);
    EXPECT_EQ(ga.as<Msg_GA>().get_ms(), -2);
    EXPECT_EQ(ga.as<Msg_GA>().get_health_a(), 255);
    Frame na("NA02E" + std::string("\x05\xF9\x00\x80", 4) + std::string(42, '\0'));
    EXPECT_EQ(na.as<Msg_NA>().get_freq(), -7);
    EXPECT_EQ(na.as<Msg_NA>().get_day(), -32768);
}

// What is computed

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

// Identifiers, sizes and new frames

/// What every class of the family holds to.
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

TEST(GNSS_messages, fixed_messages_know_identifier_and_length) {
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

// Lists

template <typename Message, typename Entry>
void expect_list(const std::string& identifier, unsigned behind) {
    expect_thin_view<Message>();
    static_assert(std::is_same_v<decltype(std::declval<Message>().get_entry(0)), Entry>);
    SCOPED_TRACE(identifier);
    EXPECT_EQ(Message::id, static_cast<unsigned char>(identifier[0]) + 256 * static_cast<unsigned char>(identifier[1]));

    const auto entries_for = [&](const char* digits) {
        return Frame(identifier + digits + std::string(20, filler)).as<Message>().get_num_entries();
    };
    EXPECT_EQ(entries_for("000"), 0U);
    EXPECT_EQ(entries_for("001"), 0U);
    EXPECT_EQ(entries_for("002"), 2 - behind);
    EXPECT_EQ(entries_for("004"), 4 - behind);
    EXPECT_EQ(entries_for("FFF"), 4095 - behind); // however few bytes there are
    EXPECT_EQ(entries_for("0x4"), 0U);
    EXPECT_EQ(Frame(identifier + "00").as<Message>().get_num_entries(), 0U);

    Frame frame(std::string(100, filler));
    auto message = frame.as<Message>();
    ASSERT_TRUE(message.init(3));
    EXPECT_EQ(message.get_size(), 5 + 3 * sizeof(Entry) + behind);
    std::string body;
    for (unsigned i = 0; i < 3; ++i) {
        const auto value = static_cast<Entry>(0xF1E2 - i);
        EXPECT_TRUE(message.set_entry(i, value));
        EXPECT_EQ(message.get_entry(i), value);
        body += le(value);
    }
    body.append(behind - 1, '\0');
    message.set_checksum(true);
    EXPECT_EQ(frame.bytes().substr(0, message.get_size()), build_frame(identifier, body, Checksum::binary, ""));
}

TEST(GNSS_messages, lists_know_identifier_entries_and_length) {
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

TEST(GNSS_messages, list_entries_lie_side_by_side_from_offset_5) {
    Frame frame(build_frame("EL", "\x01\x7F\x80\xFF"));
    const auto message = frame.as<Msg_EL>();
    ASSERT_EQ(message.get_num_entries(), 4U);
    EXPECT_EQ(message.get_entry(0), 1);
    EXPECT_EQ(message.get_entry(1), 127);
    EXPECT_EQ(message.get_entry(2), -128);
    EXPECT_EQ(message.get_entry(3), -1);
}

TEST(GNSS_messages, there_is_no_entry_behind_the_last) {
    Frame frame(build_frame("SI", "\x01\x02"));
    auto message = frame.as<Msg_SI>();
    const std::string before = frame.bytes();
    EXPECT_EQ(message.get_entry(2), 0); // the checksum lies there
    EXPECT_EQ(message.get_entry(0xFFFFFFFF), 0);
    EXPECT_FALSE(message.set_entry(2, 9));
    EXPECT_EQ(frame.bytes(), before);
}

TEST(GNSS_messages, a_list_has_room_for_a_full_body_and_not_more) {
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

TEST(GNSS_messages, TC_tells_one_two_byte_entry_per_body_byte_less_one) {
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

TEST(GNSS_messages, SS_has_a_byte_that_is_no_entry) {
    Frame frame(build_frame("SS", "\x0A\x0B\x63"));
    const auto message = frame.as<Msg_SS>();
    ASSERT_EQ(message.get_num_entries(), 2U);
    EXPECT_EQ(message.get_entry(1), 11);
    EXPECT_EQ(message.get_entry(2), 0);
}

// Position blocks

Msg_PA::block_t numbered_block(int first) {
    Msg_PA::block_t block;
    for (double& value : block.position)
        value = -first++;
    for (float& value : block.values)
        value = static_cast<float>(first++) + 0.5F;
    block.type = static_cast<std::uint8_t>(first++ + 200);
    for (float& value : block.extra)
        value = -static_cast<float>(first++);
    return block;
}

/// The bytes of `numbered_block`, put together without it.
std::string numbered_block_bytes(int first) {
    const auto nth = [first](int n) { return static_cast<float>(first + n); };
    return le<double>(-first) + le<double>(-first - 1) + le<double>(-first - 2) + le(nth(3) + 0.5F) +
           le(nth(4) + 0.5F) + le(nth(5) + 0.5F) + le(nth(6) + 0.5F) + le(nth(7) + 0.5F) +
           static_cast<char>(first + 8 + 200) + le(-nth(9)) + le(-nth(10));
}

void expect_equal(const Msg_PA::block_t& block, const Msg_PA::block_t& expected) {
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(block.position[i], expected.position[i]) << i;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(block.values[i], expected.values[i]) << i;
    EXPECT_EQ(block.type, expected.type);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(block.extra[i], expected.extra[i]) << i;
}

std::string pa_frame(int count) {
    return build_frame("PA", static_cast<char>(count) + numbered_block_bytes(1) + numbered_block_bytes(20));
}

TEST(Msg_PA, blocks_take_53_bytes_from_offsets_6_and_59) {
    ASSERT_EQ(numbered_block_bytes(1).size(), 53U);
    Frame frame(pa_frame(2));
    Msg_PA::block_t block;
    ASSERT_TRUE(frame.as<Msg_PA>().get_main(block));
    expect_equal(block, numbered_block(1));
    ASSERT_TRUE(frame.as<Msg_PA>().get_fallback(block));
    expect_equal(block, numbered_block(20));
}

TEST(Msg_PA, one_block_is_the_main_one) {
    Frame frame(pa_frame(1));
    Msg_PA::block_t block = numbered_block(50);
    EXPECT_FALSE(frame.as<Msg_PA>().get_fallback(block));
    expect_equal(block, numbered_block(50));
    ASSERT_TRUE(frame.as<Msg_PA>().get_main(block));
    expect_equal(block, numbered_block(1));
}

TEST(Msg_PA, without_blocks_nothing_is_read_or_written) {
    Frame frame(pa_frame(0));
    Msg_PA::block_t block = numbered_block(50);
    auto message = frame.as<Msg_PA>();
    EXPECT_FALSE(message.get_main(block));
    EXPECT_FALSE(message.get_fallback(block));
    expect_equal(block, numbered_block(50));
    EXPECT_FALSE(message.set_main(block));
    EXPECT_FALSE(message.set_fallback(block));
    EXPECT_EQ(frame.bytes(), pa_frame(0));
}

TEST(Msg_PA, setting_blocks_writes_their_bytes_and_nothing_else) {
    Frame frame("PA06C" + std::string("\0", 1) + std::string(120, filler));
    auto message = frame.as<Msg_PA>();
    ASSERT_TRUE(message.set_num_blocks(2));
    EXPECT_EQ(message.get_num_blocks(), 2);
    EXPECT_TRUE(message.set_fallback(numbered_block(20)));
    EXPECT_EQ(frame.bytes(), "PA06C\2" + std::string(53, filler) + numbered_block_bytes(20) + std::string(14, filler));
    EXPECT_TRUE(message.set_main(numbered_block(1)));
    EXPECT_EQ(frame.bytes(), "PA06C\2" + numbered_block_bytes(1) + numbered_block_bytes(20) + std::string(14, filler));
}

TEST(Msg_PA, setting_a_block_that_does_not_fit_says_so) {
    Frame frame("PA06C\1" + std::string(52, filler));
    EXPECT_FALSE(frame.as<Msg_PA>().set_main(numbered_block(1)));
    EXPECT_EQ(frame.bytes(), "PA06C\1" + numbered_block_bytes(1).substr(0, 49) + std::string(3, filler));
}

TEST(Msg_PA, cut_frames_read_zeros) {
    for (std::size_t size = 0; size <= 120; ++size) {
        Frame frame(pa_frame(2).substr(0, size));
        Msg_PA::block_t block = numbered_block(50);
        EXPECT_EQ(frame.as<Msg_PA>().get_fallback(block), size > 5);
        if (size <= 5)
            continue;
        EXPECT_EQ(block.position[0], size >= 67 ? -20.0 : 0.0);
        EXPECT_EQ(block.extra[1], size >= 112 ? -30.0F : 0.0F);
    }
}

TEST(Msg_PA, block_offsets) {
    Frame two(pa_frame(2)), one(pa_frame(1)), none(pa_frame(0));
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 1), 6);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 2), 59);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 3), -1);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 0), -1);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), -1), -1);
    EXPECT_EQ(get_PA_block_offset(one.as<Msg_PA>(), 1), 6);
    EXPECT_EQ(get_PA_block_offset(one.as<Msg_PA>(), 2), -1);
    EXPECT_EQ(get_PA_block_offset(none.as<Msg_PA>(), 1), -1);
}

TEST(Msg_PA_death, more_than_two_blocks_end_the_process) {
    const char* const last_words = "glue/vesk/GNSS_messages.*Assertion `num_blocks <= 2' failed";
    for (const int count : {3, 255}) {
        Frame frame(pa_frame(count));
        auto message = frame.as<Msg_PA>();
        Msg_PA::block_t block = {};
        EXPECT_DEATH(message.get_main(block), last_words);
        EXPECT_DEATH(message.set_fallback(block), last_words);
        EXPECT_DEATH(get_PA_block_offset(message, 9), last_words);
    }
}

// Chains of blocks

std::string chain_block(int kind, const std::string& content) {
    return static_cast<char>(kind) + (static_cast<char>(content.size()) + content);
}

std::string s1_content(unsigned first) {
    const auto nth = [first](unsigned n) { return static_cast<std::uint16_t>(first + n); };
    return le(std::uint32_t(0x80000000) + first) + le(nth(1)) + le(nth(2)) + le(nth(3)) + le(nth(4));
}

void expect_s1(const Msg_S1::block_t& block, unsigned first) {
    EXPECT_EQ(block.number, 0x80000000 + first);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(block.values[i], first + 1 + i) << i;
}

Frame s1_frame(int count, const std::string& chain) {
    return Frame(build_frame("S1", static_cast<char>(count) + chain));
}

TEST(Msg_S1, each_kind_is_found_wherever_it_stands) {
    Frame frame = s1_frame(3, chain_block(3, s1_content(0xFF00) + "more") + chain_block(1, s1_content(10)) +
                                  chain_block(2, s1_content(20)));
    const auto message = frame.as<Msg_S1>();
    Msg_S1::block_t block;
    ASSERT_TRUE(message.get_hp(block));
    expect_s1(block, 10);
    ASSERT_TRUE(message.get_ts(block));
    expect_s1(block, 20);
    ASSERT_TRUE(message.get_vbs(block));
    expect_s1(block, 0xFF00);
    EXPECT_EQ(get_S1S2_block_offset(message, 3), 6);
    EXPECT_EQ(get_S1S2_block_offset(message, 1), 6 + 2 + 16);
    EXPECT_EQ(get_S1S2_block_offset(message, 2), 6 + 2 + 16 + 2 + 12);
    EXPECT_EQ(get_S1S2_block_offset(message, 4), -1);
}

TEST(Msg_S1, a_kind_that_is_missing_is_not_found_behind_the_last_block) {
    Frame frame =
        s1_frame(2, chain_block(2, s1_content(20)) + chain_block(3, s1_content(30)) + chain_block(1, s1_content(10)));
    Msg_S1::block_t block = {7, {8, 9, 10, 11}};
    EXPECT_FALSE(frame.as<Msg_S1>().get_hp(block));
    EXPECT_EQ(block.number, 7U);
    EXPECT_EQ(block.values[3], 11);
}

TEST(Msg_S1, the_first_block_of_a_kind_counts) {
    Frame frame = s1_frame(2, chain_block(2, s1_content(20)) + chain_block(2, s1_content(30)));
    Msg_S1::block_t block;
    ASSERT_TRUE(frame.as<Msg_S1>().get_ts(block));
    expect_s1(block, 20);
}

TEST(Msg_S1, without_blocks_there_is_none) {
    Frame frame = s1_frame(0, chain_block(1, s1_content(10)));
    Msg_S1::block_t block;
    EXPECT_FALSE(frame.as<Msg_S1>().get_hp(block));
}

TEST(Msg_S1, empty_blocks_are_stepped_over) {
    Frame frame = s1_frame(3, chain_block(9, "") + chain_block(0, "") + chain_block(3, s1_content(30)));
    Msg_S1::block_t block;
    ASSERT_TRUE(frame.as<Msg_S1>().get_vbs(block));
    expect_s1(block, 30);
}

TEST(Msg_S1, a_chain_that_leaves_the_frame_ends_there) {
    Frame frame("S1020\3\x09\xFF");
    Msg_S1::block_t block;
    EXPECT_FALSE(frame.as<Msg_S1>().get_hp(block));
    EXPECT_FALSE(frame.as<Msg_S1>().get_vbs(block));
}

TEST(Msg_S1, cut_frames_read_zeros) {
    const std::string whole = "S1010\1" + chain_block(1, s1_content(10));
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        Frame frame(whole.substr(0, size));
        Msg_S1::block_t block = {};
        EXPECT_EQ(frame.as<Msg_S1>().get_hp(block), size > 6);
        EXPECT_EQ(block.number, size >= 12 ? 0x8000000AU : 0U);
        EXPECT_EQ(block.values[0], size >= 14 ? 11U : 0U);
        EXPECT_EQ(block.values[3], size >= 20 ? 14U : 0U);
    }
}

std::string counted(const std::string& text) {
    return static_cast<char>(text.size()) + text;
}

std::string s2_content(const std::string& a, const std::string& b) {
    return le(std::uint16_t(0xFEDC)) + le(std::uint32_t(0x89ABCDEF)) + counted(a) + counted(b);
}

Msg_S2::block_t s2_block_of(const std::string& bytes) {
    Frame frame(bytes);
    Msg_S2::block_t block;
    std::memset(&block, filler, sizeof block);
    EXPECT_TRUE(frame.as<Msg_S2>().get_hp(block));
    return block;
}

std::string s2_frame(const std::string& a, const std::string& b) {
    return build_frame("S2", '\1' + chain_block(1, s2_content(a, b)));
}

TEST(Msg_S2, reads_numbers_and_texts) {
    const Msg_S2::block_t block = s2_block_of(s2_frame("alpha", "be"));
    EXPECT_EQ(block.code, 0xFEDC);
    EXPECT_EQ(block.number, 0x89ABCDEF);
    EXPECT_EQ(block.length_a, 5);
    EXPECT_STREQ(block.text_a, "alpha");
    EXPECT_EQ(block.length_b, 2);
    EXPECT_STREQ(block.text_b, "be");
}

TEST(Msg_S2, texts_keep_31_characters) {
    const std::string forty = "abcdefghijklmnopqrstuvwxyz0123456789ABCD";
    const Msg_S2::block_t block = s2_block_of(s2_frame(forty, forty.substr(8)));
    EXPECT_EQ(block.length_a, 40);
    EXPECT_STREQ(block.text_a, "abcdefghijklmnopqrstuvwxyz01234");
    EXPECT_EQ(block.length_b, 32); // found at block offset 49
    EXPECT_STREQ(block.text_b, "ijklmnopqrstuvwxyz0123456789ABC");

    const Msg_S2::block_t fitting = s2_block_of(s2_frame(forty.substr(0, 31), ""));
    EXPECT_EQ(fitting.length_a, 31);
    EXPECT_STREQ(fitting.text_a, "abcdefghijklmnopqrstuvwxyz01234");
    EXPECT_EQ(fitting.length_b, 0);
    EXPECT_STREQ(fitting.text_b, "");
}

TEST(Msg_S2, texts_keep_NULs_and_are_0_behind_their_end) {
    const Msg_S2::block_t block = s2_block_of(s2_frame(std::string("a\0c", 3), ""));
    EXPECT_EQ(block.length_a, 3);
    EXPECT_EQ(std::string(block.text_a, 32), std::string("a\0c", 3) + std::string(29, '\0'));
}

TEST(Msg_S2, the_longest_first_text_is_stepped_over) {
    const std::string longest(255, 'x');
    Frame frame("S2200\1\1\xFF" + s2_content(longest, "tail") + "\n"); // the block's own length cannot say as much
    Msg_S2::block_t block;
    ASSERT_TRUE(frame.as<Msg_S2>().get_hp(block));
    EXPECT_EQ(block.length_a, 255);
    EXPECT_STREQ(block.text_a, std::string(31, 'x').c_str());
    EXPECT_EQ(block.length_b, 4);
    EXPECT_STREQ(block.text_b, "tail");
}

TEST(Msg_S2, cut_frames_read_zeros) {
    const std::string whole = "S2020\1" + chain_block(1, s2_content("alpha", "be"));
    for (std::size_t size = 7; size <= whole.size(); ++size) {
        const Msg_S2::block_t block = s2_block_of(whole.substr(0, size));
        EXPECT_EQ(block.code, size >= 10 ? 0xFEDC : 0);
        EXPECT_EQ(block.number, size >= 14 ? 0x89ABCDEF : 0U);
        EXPECT_EQ(block.length_a, size >= 15 ? 5 : 0);
        EXPECT_EQ(std::string(block.text_a), size > 15 ? std::string("alpha").substr(0, size - 15) : "");
        EXPECT_EQ(block.length_b, size >= 21 ? 2 : 0);
        EXPECT_EQ(std::string(block.text_b), size > 21 ? std::string("be").substr(0, size - 21) : "");
    }
    Frame headless(whole.substr(0, 6));
    Msg_S2::block_t block;
    EXPECT_FALSE(headless.as<Msg_S2>().get_hp(block));
}

TEST(Msg_S2, each_kind_has_its_own_reader) {
    Frame frame(build_frame("S2", '\3' + chain_block(1, s2_content("hp", "")) + chain_block(2, s2_content("ts", "")) +
                                      chain_block(3, s2_content("vbs", ""))));
    const auto message = frame.as<Msg_S2>();
    Msg_S2::block_t block;
    ASSERT_TRUE(message.get_hp(block));
    EXPECT_STREQ(block.text_a, "hp");
    ASSERT_TRUE(message.get_ts(block));
    EXPECT_STREQ(block.text_a, "ts");
    ASSERT_TRUE(message.get_vbs(block));
    EXPECT_STREQ(block.text_a, "vbs");
    EXPECT_EQ(get_S1S2_block_offset(message, 2), 6 + 2 + 10);
}

TEST(Msg_S1_death, more_than_three_blocks_end_the_process) {
    const char* const last_words = "glue/vesk/GNSS_messages.*Assertion `num_blocks <= 3' failed";
    for (const int count : {4, 255}) {
        Frame frame = s1_frame(count, chain_block(1, s1_content(10)));
        const auto first = frame.as<Msg_S1>();
        Msg_S1::block_t block;
        EXPECT_DEATH(first.get_hp(block), last_words);
        EXPECT_DEATH(first.get_ts(block), last_words);
        EXPECT_DEATH(get_S1S2_block_offset(first, 1), last_words);
        Msg_S2::block_t block_with_texts;
        EXPECT_DEATH(frame.as<Msg_S2>().get_vbs(block_with_texts), last_words);
    }
}

TEST(GNSS_messages, block_messages_add_no_data) {
    expect_thin_view<Msg_PA>();
    expect_thin_view<Msg_S1>();
    expect_thin_view<Msg_S2>();
}

} // namespace
