// Start, baud rate and format. Handshake, modem lines and counters: Posix_serial_port_lines_test.cpp. Opening by a
// specification string: Posix_serial_port_text_test.cpp.

#include <glue/data_stream/Posix_serial_port.h>

#include <support/checks/Vtable_slot.h>
#include <support/terminals/Serial_port.h>

#include <gtest/gtest.h>
#include <limits>

namespace {

using Calls = std::vector<std::string>;
using Port = Posix_serial_port;

using Posix_serial_port_start = Posix_serial_port_test;
using Posix_serial_port_baud_rate = Posix_serial_port_test;
using Posix_serial_port_format = Posix_serial_port_test;

bool same_settings(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_lflag == b.c_lflag && a.c_cflag == b.c_cflag &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc)) && cfgetispeed(&a) == cfgetispeed(&b) &&
           cfgetospeed(&a) == cfgetospeed(&b);
}

/// Every operation on settings fails.
void expect_everything_fails(Serial_port& port) {
    EXPECT_FALSE(port.restore());
    EXPECT_FALSE(port.set_baud_rate(9600));
    EXPECT_FALSE(port.set_format({}));
    EXPECT_FALSE(port.set_handshake(Port::handshake_none));
    EXPECT_FALSE(port.set_handshake(Port::handshake_rts_cts));
    EXPECT_FALSE(port.set_state({}));
    EXPECT_FALSE(port.set_dtr_state(true));
    EXPECT_FALSE(port.set_rts_state(true));
    EXPECT_FALSE(port.switch_rts(Port::handshake_none));
    EXPECT_FALSE(port.switch_rts(Port::handshake_rts_cts));
    EXPECT_EQ(port.get_baudRate(), 0);
    Port::Format format;
    EXPECT_FALSE(port.get_format(format));
    Port::Status status;
    EXPECT_FALSE(port.get_status(status));
    Port::Counters counters;
    EXPECT_FALSE(port.get_counters(counters));
}

// ---- The interface ----

TEST(Posix_serial_port_interface, streams_supply_the_descriptor_first_and_opening_second) {
    EXPECT_EQ(vtable_slot(&Port::get_fd), 0U);
    EXPECT_EQ(vtable_slot(&Port::open_default), 1U);
    EXPECT_EQ(vtable_slot(&Port::init), not_virtual);
    EXPECT_EQ(vtable_slot(&Port::open_from_args), not_virtual);
}

TEST(Posix_serial_port_values, start_as_8_bits_1_stop_bit_without_parity_and_handshake) {
    const Port::State state;
    EXPECT_EQ(state.format.bits, 8);
    EXPECT_EQ(state.format.stop_bits, 1);
    EXPECT_EQ(state.format.parity, 0);
    EXPECT_EQ(state.status.handshake, 0);
    EXPECT_EQ(state.status.dtr, 0);
    EXPECT_EQ(state.status.rts, 0);
}

TEST(Posix_serial_port_values, have_the_numbers_of_the_settings) {
    EXPECT_EQ(Port::bits_5, 5);
    EXPECT_EQ(Port::bits_6, 6);
    EXPECT_EQ(Port::bits_7, 7);
    EXPECT_EQ(Port::stop_bits_2, 2);
    EXPECT_EQ(Port::parity_odd, 1);
    EXPECT_EQ(Port::parity_even, 2);
    EXPECT_EQ(Port::handshake_rts_cts, 1);
    EXPECT_EQ(Port::handshake_xon_xoff, 2);
}

/// Expects it to equal a copy, and to differ from it after each of the changes.
template <typename Value, typename... Change>
void expect_compares(const Value& value, Change... changes) {
    const Value copy = value;
    EXPECT_TRUE(copy == value);
    EXPECT_FALSE(copy != value);
    const auto expect_differs = [&](auto change) {
        Value changed = value;
        change(changed);
        EXPECT_FALSE(changed == value);
        EXPECT_TRUE(changed != value);
    };
    (expect_differs(changes), ...);
}

TEST(Posix_serial_port_values, are_equal_when_all_fields_are) {
    expect_compares(
        Port::Format(), [](Port::Format& f) { f.bits = Port::bits_7; },
        [](Port::Format& f) { f.stop_bits = Port::stop_bits_2; }, [](Port::Format& f) { f.parity = Port::parity_odd; });
    expect_compares(
        Port::Status(), [](Port::Status& s) { s.handshake = Port::handshake_xon_xoff; },
        [](Port::Status& s) { s.dtr = 1; }, [](Port::Status& s) { s.rts = 1; }, [](Port::Status& s) { s.cts = 1; },
        [](Port::Status& s) { s.dsr = 1; });
    expect_compares(
        Port::State(), [](Port::State& s) { s.baud = 300; }, [](Port::State& s) { s.format.bits = Port::bits_5; },
        [](Port::State& s) { s.status.rts = 1; });
    expect_compares(
        Port::Counters(), [](Port::Counters& c) { c.cts = 1; }, [](Port::Counters& c) { c.dsr = 1; },
        [](Port::Counters& c) { c.ring = 1; }, [](Port::Counters& c) { c.carrier = 1; },
        [](Port::Counters& c) { c.received = 1; }, [](Port::Counters& c) { c.sent = 1; },
        [](Port::Counters& c) { c.framing_errors = 1; }, [](Port::Counters& c) { c.overruns = 1; },
        [](Port::Counters& c) { c.parity_errors = 1; }, [](Port::Counters& c) { c.breaks = 1; },
        [](Port::Counters& c) { c.buffer_overruns = 1; });
}

// ---- Start and end ----

TEST_F(Posix_serial_port_start, makes_the_line_raw_at_once) {
    termios expected = line.settings();
    cfmakeraw(&expected);
    expected.c_cflag &= ~tcflag_t{HUPCL};
    expected.c_cflag |= CREAD | CLOCAL;
    expected.c_cc[VMIN] = 1;
    expected.c_cc[VTIME] = 0;
    ASSERT_TRUE(port.init());
    EXPECT_TRUE(same_settings(line.settings(), expected));
    EXPECT_EQ(line.take_calls(), (Calls{"tcgetattr", "tcsetattr"}));
}

TEST_F(Posix_serial_port_start, clears_and_sets_the_flags_of_raw_mode) {
    ASSERT_TRUE(port.init());
    const termios now = line.settings();
    EXPECT_EQ(now.c_lflag & (ECHO | ICANON | ISIG | IEXTEN), 0U);
    EXPECT_EQ(now.c_iflag & (BRKINT | ISTRIP | ICRNL | IXON), 0U);
    EXPECT_EQ(now.c_oflag & OPOST, 0U);
    EXPECT_EQ(now.c_cflag & (CSIZE | PARENB | HUPCL | CREAD | CLOCAL), tcflag_t{CS8 | CREAD | CLOCAL});
    EXPECT_EQ(now.c_cc[VMIN], 1);
    EXPECT_EQ(now.c_cc[VTIME], 0);
    EXPECT_EQ(cfgetospeed(&now), speed_t{B1200});
}

TEST_F(Posix_serial_port_start, no_setting_works_before) {
    expect_everything_fails(port);
    EXPECT_EQ(line.take_calls(), Calls{});
}

TEST_F(Posix_serial_port_start, no_setting_works_after_the_end_and_the_line_is_left_unchanged) {
    start();
    const termios before = line.settings();
    port.deinit();
    expect_everything_fails(port);
    EXPECT_EQ(line.take_calls(), Calls{});
    EXPECT_TRUE(same_settings(line.settings(), before));
}

TEST_F(Posix_serial_port_start, no_setting_works_without_a_descriptor) {
    start();
    const int fd = std::exchange(port.fd, -1);
    expect_everything_fails(port);
    EXPECT_EQ(line.take_calls(), Calls{});
    port.fd = fd;
    EXPECT_TRUE(port.set_baud_rate(300)) << "the settings were kept";
}

TEST_F(Posix_serial_port_start, without_a_descriptor_fails_and_forgets_earlier_settings) {
    start();
    const int fd = std::exchange(port.fd, -1);
    EXPECT_FALSE(port.init());
    port.fd = fd;
    expect_everything_fails(port);
}

TEST_F(Posix_serial_port_start, fails_on_a_line_whose_settings_cannot_be_read_and_forgets_earlier_ones) {
    start();
    line.fail({"tcgetattr"});
    EXPECT_FALSE(port.init());
    EXPECT_EQ(line.take_calls(), Calls{"tcgetattr"});
    expect_everything_fails(port);
}

TEST_F(Posix_serial_port_start, fails_on_a_line_that_refuses_raw_mode_and_leaves_no_settings) {
    line.fail({"tcsetattr"});
    EXPECT_FALSE(port.init());
    line.fail({});
    line.take_calls();
    expect_everything_fails(port);
    EXPECT_EQ(line.take_calls(), Calls{});
}

TEST_F(Posix_serial_port_start, settings_found_are_restored) {
    const termios found = line.settings();
    start();
    ASSERT_TRUE(port.set_baud_rate(57600));
    ASSERT_FALSE(same_settings(line.settings(), found));
    line.take_calls();
    EXPECT_TRUE(port.restore());
    EXPECT_EQ(line.take_calls(), Calls{"tcsetattr"});
    EXPECT_TRUE(same_settings(line.settings(), found));
}

TEST_F(Posix_serial_port_start, after_restoring_the_next_setting_makes_the_line_raw_again) {
    start();
    ASSERT_TRUE(port.restore());
    ASSERT_TRUE(port.set_baud_rate(57600));
    EXPECT_EQ(line.settings().c_lflag & ICANON, 0U);
    ASSERT_TRUE(port.restore()) << "the saved settings are kept";
    EXPECT_NE(line.settings().c_lflag & ICANON, 0U);
}

TEST_F(Posix_serial_port_start, restoring_fails_when_the_line_refuses) {
    start();
    line.fail({"tcsetattr"});
    EXPECT_FALSE(port.restore());
}

TEST_F(Posix_serial_port_start, a_second_time_saves_the_settings_of_that_moment) {
    start();
    ASSERT_TRUE(port.set_baud_rate(57600));
    ASSERT_TRUE(port.init());
    EXPECT_EQ(port.get_baudRate(), 57600);
    ASSERT_TRUE(port.set_baud_rate(300));
    ASSERT_TRUE(port.restore());
    const termios now = line.settings();
    EXPECT_EQ(cfgetospeed(&now), speed_t{B57600});
    EXPECT_EQ(now.c_lflag & ICANON, 0U);
}

TEST_F(Posix_serial_port_start, a_setting_that_the_line_refuses_has_no_effect) {
    start();
    const termios before = line.settings();
    line.fail({"tcsetattr"});
    EXPECT_FALSE(port.set_baud_rate(57600));
    EXPECT_FALSE(port.set_format(format_of(Port::bits_5, Port::stop_bits_2, Port::parity_odd)));
    EXPECT_FALSE(port.set_handshake(Port::handshake_rts_cts));
    EXPECT_FALSE(port.set_state(state_of(57600, Port::handshake_none, 1, 1)));
    EXPECT_FALSE(port.set_state(state_of(57600, Port::handshake_rts_cts, 1, 1)));
    EXPECT_EQ(line.take_calls(), Calls(5, "tcsetattr")) << "the modem lines are left unchanged";
    EXPECT_EQ(port.get_baudRate(), 1200);
    line.fail({});
    ASSERT_TRUE(port.set_baud_rate(1200));
    EXPECT_TRUE(same_settings(line.settings(), before));
}

// ---- Baud rate ----

struct Known_rate {
    long baud;
    speed_t speed;
};

constexpr Known_rate known_rates[] = {
    {300, B300},     {600, B600},     {1200, B1200},   {2400, B2400},     {4800, B4800},     {9600, B9600},
    {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400}, {460800, B460800},
};

TEST_F(Posix_serial_port_baud_rate, each_of_the_twelve_is_set_for_both_directions_at_once) {
    start();
    for (const Known_rate& rate : known_rates) {
        EXPECT_TRUE(port.set_baud_rate(rate.baud));
        const termios now = line.settings();
        EXPECT_EQ(cfgetispeed(&now), rate.speed) << rate.baud;
        EXPECT_EQ(cfgetospeed(&now), rate.speed) << rate.baud;
        EXPECT_EQ(port.get_baudRate(), rate.baud);
        EXPECT_EQ(line.take_calls(), Calls{"tcsetattr"});
    }
}

TEST_F(Posix_serial_port_baud_rate, of_the_input_is_set_where_it_followed_the_output) {
    termios settings = line.settings();
    cfsetispeed(&settings, B0); // which means: as the output
    line.set_settings(settings);
    start();
    EXPECT_TRUE(port.set_baud_rate(9600));
    const termios now = line.settings();
    EXPECT_EQ(cfgetispeed(&now), speed_t{B9600});
}

TEST_F(Posix_serial_port_baud_rate, between_two_is_the_higher_one) {
    start();
    long lower = 0;
    for (const Known_rate& rate : known_rates) {
        for (const long asked : {lower + 1, rate.baud - 1}) {
            EXPECT_TRUE(port.set_baud_rate(asked));
            EXPECT_EQ(port.get_baudRate(), rate.baud) << asked;
        }
        lower = rate.baud;
    }
}

TEST_F(Posix_serial_port_baud_rate, outside_the_table_is_the_lowest_or_the_highest) {
    start();
    for (const long asked : {0L, -1L, std::numeric_limits<long>::min()}) {
        EXPECT_TRUE(port.set_baud_rate(asked));
        EXPECT_EQ(port.get_baudRate(), 300) << asked;
    }
    for (const long asked : {460801L, 1000000L, std::numeric_limits<long>::max()}) {
        EXPECT_TRUE(port.set_baud_rate(asked));
        EXPECT_EQ(port.get_baudRate(), 460800) << asked;
    }
}

TEST_F(Posix_serial_port_baud_rate, only_the_twelve_are_supported) {
    for (const Known_rate& rate : known_rates) {
        EXPECT_TRUE(Port::baud_rate_supported(rate.baud));
        EXPECT_FALSE(Port::baud_rate_supported(rate.baud - 1));
        EXPECT_FALSE(Port::baud_rate_supported(rate.baud + 1));
    }
    for (const long other : {0L, -300L, 100000L, 921600L, std::numeric_limits<long>::max()})
        EXPECT_FALSE(Port::baud_rate_supported(other)) << other;
}

TEST_F(Posix_serial_port_baud_rate, found_on_the_line_but_not_supported_is_0) {
    termios settings = line.settings();
    cfsetospeed(&settings, B921600);
    line.set_settings(settings);
    start();
    EXPECT_EQ(port.get_baudRate(), 0);
}

// ---- Format ----

TEST_F(Posix_serial_port_format, every_combination_is_set_at_once_and_read_back) {
    start();
    const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    const tcflag_t parities[] = {0, PARENB | PARODD, PARENB};
    for (int bits = 5; bits <= 8; ++bits)
        for (int stop_bits = 1; stop_bits <= 2; ++stop_bits)
            for (int parity = 0; parity <= 2; ++parity) {
                // parity_none leaves PARODD unchanged: start from even each time
                ASSERT_TRUE(port.set_format(format_of(Port::bits_8, Port::stop_bits_1, Port::parity_even)));
                line.take_calls();
                const Port::Format format =
                    format_of(static_cast<Port::bits_t>(bits), static_cast<Port::stop_bits_t>(stop_bits),
                              static_cast<Port::parity_t>(parity));
                EXPECT_TRUE(port.set_format(format));
                EXPECT_EQ(line.take_calls(), Calls{"tcsetattr"});
                const tcflag_t expected = sizes[bits - 5] | parities[parity] | (stop_bits == 2 ? tcflag_t{CSTOPB} : 0);
                EXPECT_EQ(line.settings().c_cflag & (CSIZE | PARENB | PARODD | CSTOPB), expected)
                    << bits << " bits, " << stop_bits << " stop bits, parity " << parity;
                Port::Format read;
                EXPECT_TRUE(port.get_format(read));
                EXPECT_EQ(read, format);
            }
}

TEST_F(Posix_serial_port_format, changes_nothing_else) {
    start();
    ASSERT_TRUE(port.set_handshake(Port::handshake_xon_xoff));
    termios expected = line.settings();
    expected.c_cflag = (expected.c_cflag & ~tcflag_t{CSIZE}) | CS6 | PARENB | CSTOPB;
    ASSERT_TRUE(port.set_format(format_of(Port::bits_6, Port::stop_bits_2, Port::parity_even)));
    EXPECT_TRUE(same_settings(line.settings(), expected));
}

TEST_F(Posix_serial_port_format, unknown_number_of_bits_is_8) {
    start();
    for (const int bits : {0, 4, 9, -1, 1000}) {
        ASSERT_TRUE(port.set_format(format_of(Port::bits_5, Port::stop_bits_1, Port::parity_none)));
        EXPECT_TRUE(port.set_format(format_of(static_cast<Port::bits_t>(bits), Port::stop_bits_1, Port::parity_none)));
        EXPECT_EQ(line.settings().c_cflag & CSIZE, tcflag_t{CS8}) << bits;
    }
}

TEST_F(Posix_serial_port_format, only_2_is_2_stop_bits) {
    start();
    for (const int stop_bits : {0, 3, -2}) {
        ASSERT_TRUE(port.set_format(format_of(Port::bits_8, Port::stop_bits_2, Port::parity_none)));
        EXPECT_TRUE(
            port.set_format(format_of(Port::bits_8, static_cast<Port::stop_bits_t>(stop_bits), Port::parity_none)));
        EXPECT_EQ(line.settings().c_cflag & CSTOPB, 0U) << stop_bits;
    }
}

TEST_F(Posix_serial_port_format, unknown_parity_switches_parity_on_as_it_was_before) {
    start();
    const auto unknown = static_cast<Port::parity_t>(3);
    for (const Port::parity_t before : {Port::parity_odd, Port::parity_even})
        for (const Port::parity_t between : {before, Port::parity_none}) { // none leaves odd or even as it was
            ASSERT_TRUE(port.set_format(format_of(Port::bits_8, Port::stop_bits_1, before)));
            ASSERT_TRUE(port.set_format(format_of(Port::bits_8, Port::stop_bits_1, between)));
            EXPECT_TRUE(port.set_format(format_of(Port::bits_8, Port::stop_bits_1, unknown)));
            Port::Format read;
            ASSERT_TRUE(port.get_format(read));
            EXPECT_EQ(read.parity, before);
        }
}

} // namespace
