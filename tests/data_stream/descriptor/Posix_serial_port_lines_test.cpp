// Handshake, modem lines, the state as a whole, counters. Start, baud rate and format: Posix_serial_port_test.cpp.

#include <glue/data_stream/Posix_serial_port.h>

#include <support/terminals/Serial_port.h>

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;
using Port = Posix_serial_port;

using Posix_serial_port_handshake = Posix_serial_port_test;
using Posix_serial_port_modem_lines = Posix_serial_port_test;
using Posix_serial_port_state = Posix_serial_port_test;
using Posix_serial_port_counters = Posix_serial_port_test;

// ---- Handshake ----

TEST_F(Posix_serial_port_handshake, with_rts_and_cts_is_set_and_raises_rts) {
    start();
    ASSERT_TRUE(port.set_handshake(Port::handshake_xon_xoff));
    line.take_calls();
    EXPECT_TRUE(port.set_handshake(Port::handshake_rts_cts));
    EXPECT_EQ(line.settings().c_cflag & CRTSCTS, tcflag_t{CRTSCTS});
    EXPECT_EQ(line.settings().c_iflag & (IXON | IXOFF), 0U);
    EXPECT_EQ(line.modem_lines(), TIOCM_RTS);
    EXPECT_EQ(line.take_calls(), (Calls{"tcsetattr", "TIOCMGET", "TIOCMSET"}));
}

TEST_F(Posix_serial_port_handshake, with_characters_is_set_and_leaves_rts_unchanged) {
    start();
    ASSERT_TRUE(port.set_handshake(Port::handshake_rts_cts));
    line.take_calls();
    EXPECT_TRUE(port.set_handshake(Port::handshake_xon_xoff));
    EXPECT_EQ(line.settings().c_cflag & CRTSCTS, 0U);
    EXPECT_EQ(line.settings().c_iflag & (IXON | IXOFF), tcflag_t{IXON | IXOFF});
    EXPECT_EQ(line.modem_lines(), TIOCM_RTS);
    EXPECT_EQ(line.take_calls(), Calls{"tcsetattr"});
}

TEST_F(Posix_serial_port_handshake, of_no_or_an_unknown_kind_clears_both_kinds) {
    start();
    for (const int handshake : {0, 3, -1})
        for (const Port::handshake_t before : {Port::handshake_rts_cts, Port::handshake_xon_xoff}) {
            ASSERT_TRUE(port.set_handshake(before));
            line.take_calls();
            EXPECT_TRUE(port.set_handshake(static_cast<Port::handshake_t>(handshake)));
            EXPECT_EQ(line.settings().c_cflag & CRTSCTS, 0U);
            EXPECT_EQ(line.settings().c_iflag & (IXON | IXOFF), 0U);
            EXPECT_EQ(line.take_calls(), Calls{"tcsetattr"});
        }
}

TEST_F(Posix_serial_port_handshake, raising_rts_writes_only_a_change_and_keeps_the_other_lines) {
    start();
    line.set_modem_lines(TIOCM_DTR | TIOCM_OUT1);
    EXPECT_TRUE(port.switch_rts(Port::handshake_rts_cts));
    EXPECT_EQ(line.modem_lines(), TIOCM_DTR | TIOCM_OUT1 | TIOCM_RTS);
    EXPECT_EQ(line.take_calls(), (Calls{"TIOCMGET", "TIOCMSET"}));
    EXPECT_TRUE(port.switch_rts(Port::handshake_rts_cts));
    EXPECT_EQ(line.take_calls(), Calls{"TIOCMGET"});
}

TEST_F(Posix_serial_port_handshake, of_other_kinds_does_nothing_to_rts) {
    start();
    for (const int handshake : {0, 2, 3}) {
        EXPECT_TRUE(port.switch_rts(static_cast<Port::handshake_t>(handshake)));
        EXPECT_EQ(line.take_calls(), Calls{});
    }
}

// ---- Modem lines ----

TEST_F(Posix_serial_port_modem_lines, each_is_switched_alone_and_written_only_when_it_changes) {
    start();
    struct {
        bool (Port::*set)(bool);
        int bit;
    } const outputs[] = {{&Port::set_dtr_state, TIOCM_DTR}, {&Port::set_rts_state, TIOCM_RTS}};
    for (const auto& output : outputs)
        for (const int others : {0, TIOCM_OUT1 | TIOCM_CTS | TIOCM_DTR | TIOCM_RTS}) {
            const int off = others & ~output.bit;
            const int on = others | output.bit;
            line.set_modem_lines(off);
            EXPECT_TRUE((port.*output.set)(true));
            EXPECT_EQ(line.modem_lines(), on);
            EXPECT_EQ(line.take_calls(), (Calls{"TIOCMGET", "TIOCMSET"}));
            EXPECT_TRUE((port.*output.set)(true));
            EXPECT_EQ(line.take_calls(), Calls{"TIOCMGET"});
            EXPECT_TRUE((port.*output.set)(false));
            EXPECT_EQ(line.modem_lines(), off);
            EXPECT_EQ(line.take_calls(), (Calls{"TIOCMGET", "TIOCMSET"}));
            EXPECT_TRUE((port.*output.set)(false));
            EXPECT_EQ(line.take_calls(), Calls{"TIOCMGET"});
        }
}

TEST_F(Posix_serial_port_modem_lines, switching_them_succeeds_on_a_line_without_any) {
    start();
    line.fail({"TIOCMGET"});
    EXPECT_TRUE(port.set_dtr_state(true));
    EXPECT_TRUE(port.set_rts_state(true));
    EXPECT_TRUE(port.switch_rts(Port::handshake_rts_cts));
    EXPECT_EQ(line.take_calls(), Calls(3, "TIOCMGET")) << "unknown lines are not written";
    EXPECT_TRUE(port.set_handshake(Port::handshake_rts_cts));
    EXPECT_TRUE(port.set_state(state_of(300, Port::handshake_none, 1, 1)));
}

TEST_F(Posix_serial_port_modem_lines, switching_succeeds_when_they_cannot_be_written) {
    start();
    line.fail({"TIOCMSET"});
    EXPECT_TRUE(port.set_dtr_state(true));
    EXPECT_TRUE(port.set_rts_state(true));
    EXPECT_TRUE(port.set_state(state_of(300, Port::handshake_none, 1, 1)));
    EXPECT_EQ(line.modem_lines(), 0);
}

TEST_F(Posix_serial_port_modem_lines, are_returned_with_the_handshake) {
    start();
    struct {
        int bit;
        std::int16_t Port::Status::*state;
    } const lines[] = {{TIOCM_DTR, &Port::Status::dtr},
                       {TIOCM_RTS, &Port::Status::rts},
                       {TIOCM_CTS, &Port::Status::cts},
                       {TIOCM_DSR, &Port::Status::dsr}};
    for (const Port::handshake_t handshake : {Port::handshake_none, Port::handshake_rts_cts, Port::handshake_xon_xoff})
        for (const auto& one : lines) {
            ASSERT_TRUE(port.set_handshake(handshake));
            line.set_modem_lines(one.bit | TIOCM_OUT1 | TIOCM_CD | TIOCM_RI);
            Port::Status expected;
            expected.handshake = handshake;
            expected.*one.state = 1;
            Port::Status status;
            status.dtr = status.rts = status.cts = status.dsr = 7;
            EXPECT_TRUE(port.get_status(status));
            EXPECT_EQ(status, expected);
        }
}

TEST_F(Posix_serial_port_modem_lines, that_cannot_be_read_are_returned_as_off_with_a_failure) {
    start();
    ASSERT_TRUE(port.set_handshake(Port::handshake_xon_xoff));
    line.fail({"TIOCMGET"});
    Port::Status status;
    status.dtr = status.rts = status.cts = status.dsr = 7;
    EXPECT_FALSE(port.get_status(status));
    Port::Status expected;
    expected.handshake = Port::handshake_xon_xoff;
    EXPECT_EQ(status, expected);
}

// ---- State ----

TEST_F(Posix_serial_port_state, sets_the_line_in_one_change_and_the_modem_lines_in_another) {
    start();
    EXPECT_TRUE(port.set_state(state_of(100000, Port::handshake_xon_xoff, 1, -5)));
    EXPECT_EQ(line.take_calls(), (Calls{"tcsetattr", "TIOCMGET", "TIOCMSET"}));
    const termios now = line.settings();
    EXPECT_EQ(cfgetispeed(&now), speed_t{B115200});
    EXPECT_EQ(cfgetospeed(&now), speed_t{B115200});
    EXPECT_EQ(now.c_cflag & (CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS), tcflag_t{CS7 | PARENB | PARODD | CSTOPB});
    EXPECT_EQ(now.c_iflag & (IXON | IXOFF), tcflag_t{IXON | IXOFF});
    EXPECT_EQ(line.modem_lines(), TIOCM_DTR | TIOCM_RTS);
}

TEST_F(Posix_serial_port_state, switches_dtr_and_rts_by_the_line_states_and_writes_only_a_change) {
    start();
    constexpr std::int16_t states[] = {0, 1};
    for (const std::int16_t dtr : states)
        for (const std::int16_t rts : states)
            for (const int before : {0, TIOCM_DTR, TIOCM_RTS, TIOCM_DTR | TIOCM_RTS}) {
                line.set_modem_lines(before | TIOCM_OUT1 | TIOCM_CTS);
                const int after = (dtr != 0 ? TIOCM_DTR : 0) | (rts != 0 ? TIOCM_RTS : 0);
                EXPECT_TRUE(port.set_state(state_of(300, Port::handshake_none, dtr, rts)));
                EXPECT_EQ(line.modem_lines(), after | TIOCM_OUT1 | TIOCM_CTS);
                EXPECT_EQ(line.take_calls(), before == after ? (Calls{"tcsetattr", "TIOCMGET"})
                                                             : (Calls{"tcsetattr", "TIOCMGET", "TIOCMSET"}));
            }
}

TEST_F(Posix_serial_port_state, with_rts_and_cts_raises_rts_and_leaves_dtr_unchanged) {
    start();
    for (const int dtr : {0, TIOCM_DTR}) {
        line.set_modem_lines(dtr);
        EXPECT_TRUE(port.set_state(state_of(300, Port::handshake_rts_cts, 1, 0)));
        EXPECT_EQ(line.modem_lines(), dtr | TIOCM_RTS);
        EXPECT_EQ(line.take_calls(), (Calls{"tcsetattr", "TIOCMGET", "TIOCMSET"}));
    }
}

// ---- Counters ----

TEST_F(Posix_serial_port_counters, are_those_of_the_system) {
    start();
    serial_icounter_struct counted{};
    counted.cts = 1;
    counted.dsr = 2;
    counted.rng = 3;
    counted.dcd = 4;
    counted.rx = 5;
    counted.tx = 6;
    counted.frame = 7;
    counted.overrun = 8;
    counted.parity = 9;
    counted.brk = 10;
    counted.buf_overrun = -11; // it wraps
    line.set_counters(counted);
    Port::Counters counters;
    EXPECT_TRUE(port.get_counters(counters));
    EXPECT_EQ(counters.cts, 1);
    EXPECT_EQ(counters.dsr, 2);
    EXPECT_EQ(counters.ring, 3);
    EXPECT_EQ(counters.carrier, 4);
    EXPECT_EQ(counters.received, 5);
    EXPECT_EQ(counters.sent, 6);
    EXPECT_EQ(counters.framing_errors, 7);
    EXPECT_EQ(counters.overruns, 8);
    EXPECT_EQ(counters.parity_errors, 9);
    EXPECT_EQ(counters.breaks, 10);
    EXPECT_EQ(counters.buffer_overruns, -11);
}

TEST_F(Posix_serial_port_counters, are_left_unchanged_where_the_system_has_none) {
    start();
    line.fail({"TIOCGICOUNT"});
    Port::Counters counters;
    counters.sent = 77;
    EXPECT_FALSE(port.get_counters(counters));
    EXPECT_EQ(counters.sent, 77);
}

} // namespace
