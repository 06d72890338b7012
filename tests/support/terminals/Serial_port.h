#pragma once

#include <glue/data_stream/Posix_serial_port.h>

#include <support/fakes/Simulated_line.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

/// A serial port without a stream: a descriptor, and a record of the devices that it was asked to open.
struct Serial_port : Posix_serial_port {
    explicit Serial_port(const std::string& path) : fd(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
    ~Serial_port() { ::close(fd); }

    int get_fd() const override { return fd; }
    bool open_default(const char* device) override {
        opened.emplace_back(device);
        return opens && init();
    }

    int fd;
    bool opens = true;
    std::vector<std::string> opened;
};

/// A port on a line that records every call.
struct Posix_serial_port_test : testing::Test {
    Simulated_line line;
    Serial_port port{line.path()};

    /// A port that is ready, with nothing recorded yet.
    void start() {
        ASSERT_TRUE(port.init());
        line.take_calls();
    }
};

/// A character format.
inline Posix_serial_port::Format format_of(Posix_serial_port::bits_t bits, Posix_serial_port::stop_bits_t stop_bits,
                                           Posix_serial_port::parity_t parity) {
    Posix_serial_port::Format format;
    format.bits = bits;
    format.stop_bits = stop_bits;
    format.parity = parity;
    return format;
}

/// A state with 7 bits, 2 stop bits and odd parity.
inline Posix_serial_port::State state_of(long baud, Posix_serial_port::handshake_t handshake, std::int16_t dtr,
                                         std::int16_t rts) {
    Posix_serial_port::State state;
    state.baud = baud;
    state.format = format_of(Posix_serial_port::bits_7, Posix_serial_port::stop_bits_2, Posix_serial_port::parity_odd);
    state.status.handshake = handshake;
    state.status.dtr = dtr;
    state.status.rts = rts;
    return state;
}
