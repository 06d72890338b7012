// Opening by a specification string: device, baud rate and line driver. The settings: Posix_serial_port_test.cpp.

#include <glue/data_stream/Posix_serial_port.h>

#include <support/terminals/Serial_port.h>

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;

struct Posix_serial_port_text : testing::Test {
    Simulated_line line;
    Serial_port port{line.path()};

    bool open(const std::string& spec) {
        port.opened.clear();
        line.take_calls();
        return port.open_from_args(spec.c_str());
    }

    /// The baud rate after opening by a specification string.
    long baud_of(const std::string& spec) {
        EXPECT_TRUE(open(spec)) << spec;
        return port.get_baudRate();
    }
};

const Calls opening{"tcgetattr", "tcsetattr", "tcsetattr"};
const Calls opening_with_driver{"tcgetattr", "tcsetattr", "tcsetattr", "TIOCMGET", "TIOCMSET"};

TEST_F(Posix_serial_port_text, device_alone_opens_at_9600_and_leaves_the_driver_unchanged) {
    EXPECT_TRUE(open("/dev/ttyS9"));
    EXPECT_EQ(port.opened, Calls{"/dev/ttyS9"});
    EXPECT_EQ(port.get_baudRate(), 9600);
    EXPECT_EQ(line.take_calls(), opening);
}

TEST_F(Posix_serial_port_text, baud_rate_follows_the_device) {
    EXPECT_EQ(baud_of("d:115200"), 115200);
    EXPECT_EQ(port.opened, Calls{"d"});
    EXPECT_EQ(baud_of("d:100000"), 115200);
    EXPECT_EQ(baud_of("d:1000000"), 460800);
    EXPECT_EQ(baud_of("d:300"), 300);
}

TEST_F(Posix_serial_port_text, baud_rate_is_read_up_to_the_first_other_character) {
    EXPECT_EQ(baud_of("d:19200baud"), 19200);
    EXPECT_EQ(baud_of("d: +4800"), 4800);
    EXPECT_EQ(baud_of("d:0x9600"), 300);
    EXPECT_EQ(baud_of("d:fast"), 300);
    EXPECT_EQ(baud_of("d:-115200"), 300);
    EXPECT_EQ(baud_of("d:99999999999999999999999"), 460800);
    EXPECT_EQ(baud_of("d:-99999999999999999999999"), 300);
    EXPECT_EQ(baud_of("d:9600.5"), 9600);
}

TEST_F(Posix_serial_port_text, empty_fields_count) {
    EXPECT_EQ(baud_of("d:"), 300);
    EXPECT_EQ(baud_of("d::"), 300);
    EXPECT_EQ(baud_of("d::rs485"), 300);
    EXPECT_EQ(line.modem_lines(), TIOCM_OUT1);
    EXPECT_EQ(baud_of(":2400"), 2400);
    EXPECT_EQ(port.opened, Calls{""});
    EXPECT_EQ(baud_of(""), 9600);
    EXPECT_EQ(port.opened, Calls{""});
}

TEST_F(Posix_serial_port_text, rs485_raises_out1_and_keeps_the_other_lines) {
    line.set_modem_lines(TIOCM_DTR | TIOCM_RTS);
    EXPECT_TRUE(open("d:9600:rs485"));
    EXPECT_EQ(line.modem_lines(), TIOCM_DTR | TIOCM_RTS | 0x2000);
    EXPECT_EQ(line.take_calls(), opening_with_driver);
}

TEST_F(Posix_serial_port_text, rs232_clears_out1_and_keeps_the_other_lines) {
    line.set_modem_lines(TIOCM_DTR | TIOCM_OUT1 | TIOCM_RTS);
    EXPECT_TRUE(open("d:9600:rs232"));
    EXPECT_EQ(line.modem_lines(), TIOCM_DTR | TIOCM_RTS);
    EXPECT_EQ(line.take_calls(), opening_with_driver);
}

TEST_F(Posix_serial_port_text, driver_is_written_even_when_it_is_selected_already) {
    EXPECT_TRUE(open("d:9600:rs232"));
    EXPECT_EQ(line.take_calls(), opening_with_driver);
    line.set_modem_lines(TIOCM_OUT1);
    EXPECT_TRUE(open("d:9600:rs485"));
    EXPECT_EQ(line.take_calls(), opening_with_driver);
}

TEST_F(Posix_serial_port_text, first_five_characters_select_the_mode) {
    EXPECT_TRUE(open("d:9600:rs485xyz"));
    EXPECT_EQ(line.modem_lines(), TIOCM_OUT1);
    EXPECT_TRUE(open("d:9600:rs232, half"));
    EXPECT_EQ(line.modem_lines(), 0);
    for (const char* const other : {"", "rs48", "RS485", "Rs232", " rs485", "rs422", "xrs485"})
        for (const int before : {0, TIOCM_OUT1}) {
            line.set_modem_lines(before);
            EXPECT_TRUE(open(std::string("d:9600:") + other));
            EXPECT_EQ(line.modem_lines(), before) << other;
            EXPECT_EQ(line.take_calls(), opening) << other;
        }
}

TEST_F(Posix_serial_port_text, later_fields_are_ignored) {
    EXPECT_EQ(baud_of("d:2400:rs485:rs232:115200"), 2400);
    EXPECT_EQ(line.modem_lines(), TIOCM_OUT1);
    EXPECT_EQ(baud_of("d:4800::rs485"), 4800);
    EXPECT_EQ(line.take_calls(), opening);
    EXPECT_EQ(baud_of("d:4800:rs232:4:5:6:7:8:9:10:11:12"), 4800);
    EXPECT_EQ(line.modem_lines(), 0);
}

TEST_F(Posix_serial_port_text, only_the_first_255_characters_are_used) {
    const std::string device(250, 'x');
    EXPECT_EQ(baud_of(device + ":4801"), 9600); // 255 characters
    EXPECT_EQ(port.opened, Calls{device});
    EXPECT_EQ(baud_of(device + ":480100"), 9600) << "the last two digits are cut";
    EXPECT_EQ(baud_of(std::string(300, 'y')), 9600);
    EXPECT_EQ(port.opened, Calls{std::string(255, 'y')});
    EXPECT_EQ(baud_of(std::string(255, 'z') + ":300:rs485"), 9600);
    EXPECT_EQ(port.opened, Calls{std::string(255, 'z')});
}

TEST_F(Posix_serial_port_text, device_that_does_not_open_is_a_failure) {
    port.opens = false;
    EXPECT_FALSE(open("d:9600:rs485"));
    EXPECT_EQ(line.take_calls(), Calls{});
}

TEST_F(Posix_serial_port_text, refused_baud_rate_is_no_failure) {
    struct Slow_port : Serial_port {
        using Serial_port::Serial_port;
        bool open_default(const char* device) override {
            const bool result = Serial_port::open_default(device);
            owner->fail({"tcsetattr"});
            return result;
        }
        Simulated_line* owner = nullptr;
    } slow(line.path());
    slow.owner = &line;
    EXPECT_TRUE(slow.open_from_args("d:9600:rs485"));
    EXPECT_EQ(slow.get_baudRate(), 1200);
    EXPECT_EQ(line.modem_lines(), TIOCM_OUT1);
}

TEST_F(Posix_serial_port_text, driver_that_cannot_be_selected_is_a_failure_and_the_line_stays_open) {
    for (const char* const spec : {"d:19200:rs485", "d:19200:rs232"})
        for (const char* const call : {"TIOCMGET", "TIOCMSET"}) {
            line.fail({call});
            EXPECT_FALSE(open(spec));
            EXPECT_EQ(port.get_baudRate(), 19200);
            EXPECT_EQ(line.modem_lines(), 0);
        }
}

} // namespace
