#include <glue/data_stream/Posix_serial_port.h>

#include "data_stream/core/stream_specification.h"

#include <iterator>
#include <linux/serial.h>
#include <mutex>
#include <sys/ioctl.h>
#include <tuple>

// The C library's headers do not define this modem output.
#ifndef TIOCM_OUT1
#define TIOCM_OUT1 0x2000
#endif

namespace {

// ---- Baud rates ----

struct Rate {
    long baud;
    speed_t speed;
};

constexpr Rate rates[] = {
    {300, B300},     {600, B600},     {1200, B1200},   {2400, B2400},     {4800, B4800},     {9600, B9600},
    {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400}, {460800, B460800},
};

const Rate& rate_for(long baud) {
    for (const Rate& rate : rates)
        if (rate.baud >= baud)
            return rate;
    return *(std::end(rates) - 1);
}

// ---- Settings in a termios record ----

void put_flags(tcflag_t& flags, tcflag_t which, bool on) {
    flags = on ? flags | which : flags & ~which;
}

void put_baud_rate(termios& settings, long baud) {
    const speed_t speed = rate_for(baud).speed;
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
}

tcflag_t character_size(Posix_serial_port::bits_t bits) {
    switch (bits) {
    case Posix_serial_port::bits_5:
        return CS5;
    case Posix_serial_port::bits_6:
        return CS6;
    case Posix_serial_port::bits_7:
        return CS7;
    default:
        return CS8;
    }
}

Posix_serial_port::bits_t bits_of(const termios& settings) {
    switch (settings.c_cflag & CSIZE) {
    case CS5:
        return Posix_serial_port::bits_5;
    case CS6:
        return Posix_serial_port::bits_6;
    case CS7:
        return Posix_serial_port::bits_7;
    default:
        return Posix_serial_port::bits_8;
    }
}

Posix_serial_port::parity_t parity_of(const termios& settings) {
    if ((settings.c_cflag & PARENB) == 0)
        return Posix_serial_port::parity_none;
    return (settings.c_cflag & PARODD) != 0 ? Posix_serial_port::parity_odd : Posix_serial_port::parity_even;
}

void put_format(termios& settings, const Posix_serial_port::Format& format) {
    tcflag_t& flags = settings.c_cflag;
    flags = (flags & ~tcflag_t{CSIZE}) | character_size(format.bits);
    put_flags(flags, PARENB, format.parity != Posix_serial_port::parity_none);
    if (format.parity == Posix_serial_port::parity_odd || format.parity == Posix_serial_port::parity_even)
        put_flags(flags, PARODD, format.parity == Posix_serial_port::parity_odd);
    put_flags(flags, CSTOPB, format.stop_bits == Posix_serial_port::stop_bits_2);
}

void put_handshake(termios& settings, Posix_serial_port::handshake_t handshake) {
    put_flags(settings.c_iflag, IXON | IXOFF, handshake == Posix_serial_port::handshake_xon_xoff);
    put_flags(settings.c_cflag, CRTSCTS, handshake == Posix_serial_port::handshake_rts_cts);
}

Posix_serial_port::handshake_t handshake_of(const termios& settings) {
    if ((settings.c_cflag & CRTSCTS) != 0)
        return Posix_serial_port::handshake_rts_cts;
    return (settings.c_iflag & (IXON | IXOFF)) != 0 ? Posix_serial_port::handshake_xon_xoff
                                                    : Posix_serial_port::handshake_none;
}

} // namespace

// ---- Comparing ----

bool Posix_serial_port::Format::operator==(const Format& other) const {
    return std::tie(bits, stop_bits, parity) == std::tie(other.bits, other.stop_bits, other.parity);
}

bool Posix_serial_port::Status::operator==(const Status& other) const {
    return std::tie(handshake, dtr, rts, cts, dsr) ==
           std::tie(other.handshake, other.dtr, other.rts, other.cts, other.dsr);
}

bool Posix_serial_port::State::operator==(const State& other) const {
    return std::tie(baud, format, status) == std::tie(other.baud, other.format, other.status);
}

bool Posix_serial_port::Counters::operator==(const Counters& other) const {
    const auto all = [](const Counters& c) {
        return std::tie(c.cts, c.dsr, c.ring, c.carrier, c.received, c.sent, c.framing_errors, c.overruns,
                        c.parity_errors, c.breaks, c.buffer_overruns);
    };
    return all(*this) == all(other);
}

// ---- Start and end ----

bool Posix_serial_port::init() {
    const std::lock_guard guard(line_lock);
    if (make_raw())
        return true;
    forget_settings();
    return false;
}

bool Posix_serial_port::make_raw() {
    const int fd = get_fd();
    termios settings{};
    if (fd < 0 || tcgetattr(fd, &settings) != 0)
        return false;
    saved_ = std::make_shared<termios>(settings);
    cfmakeraw(&settings);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    put_flags(settings.c_cflag, HUPCL, false);
    put_flags(settings.c_cflag, CREAD | CLOCAL, true);
    current_ = std::make_shared<termios>(settings);
    return tcsetattr(fd, TCSANOW, &settings) == 0;
}

void Posix_serial_port::deinit() {
    const std::lock_guard guard(line_lock);
    forget_settings();
}

void Posix_serial_port::forget_settings() {
    current_.reset();
    saved_.reset();
}

bool Posix_serial_port::restore() {
    const std::lock_guard guard(line_lock);
    return ready() && tcsetattr(get_fd(), TCSANOW, saved_.get()) == 0;
}

bool Posix_serial_port::ready() const {
    return current_ && get_fd() >= 0;
}

// ---- Settings ----

/// Applies a change to the line, and keeps it when the line accepted it. Called with `line_lock` held.
template <typename Change>
bool Posix_serial_port::update(Change change) {
    if (!ready())
        return false;
    termios wanted = *current_;
    change(wanted);
    if (tcsetattr(get_fd(), TCSANOW, &wanted) != 0)
        return false;
    *current_ = wanted;
    return true;
}

/// Switches the `affected` modem outputs: on those that are in `on`, off the others. Writes nothing when they are
/// already in that state. Called with `line_lock` held. \return on purpose, true for a line that has no modem outputs
bool Posix_serial_port::switch_lines(int affected, int on) {
    if (!ready())
        return false;
    int before = 0;
    if (ioctl(get_fd(), TIOCMGET, &before) != 0)
        return true;
    const int after = (before & ~affected) | on;
    if (after != before)
        ioctl(get_fd(), TIOCMSET, &after);
    return true;
}

bool Posix_serial_port::set_baud_rate(long baud) {
    const std::lock_guard guard(line_lock);
    return update([&](termios& settings) { put_baud_rate(settings, baud); });
}

bool Posix_serial_port::set_format(const Format& format) {
    const std::lock_guard guard(line_lock);
    return update([&](termios& settings) { put_format(settings, format); });
}

bool Posix_serial_port::set_handshake(handshake_t handshake) {
    {
        const std::lock_guard guard(line_lock);
        if (!update([&](termios& settings) { put_handshake(settings, handshake); }))
            return false;
    }
    return switch_rts(handshake);
}

bool Posix_serial_port::set_state(const State& state) {
    const handshake_t handshake = state.status.handshake;
    {
        const std::lock_guard guard(line_lock);
        const bool updated = update([&](termios& settings) {
            put_baud_rate(settings, state.baud);
            put_format(settings, state.format);
            put_handshake(settings, handshake);
        });
        if (!updated)
            return false;
        if (handshake != handshake_rts_cts)
            return switch_lines(TIOCM_DTR | TIOCM_RTS,
                                (state.status.dtr != 0 ? TIOCM_DTR : 0) | (state.status.rts != 0 ? TIOCM_RTS : 0));
    }
    return switch_rts(handshake);
}

bool Posix_serial_port::set_dtr_state(bool on) {
    const std::lock_guard guard(line_lock);
    return switch_lines(TIOCM_DTR, on ? TIOCM_DTR : 0);
}

bool Posix_serial_port::set_rts_state(bool on) {
    const std::lock_guard guard(line_lock);
    return switch_lines(TIOCM_RTS, on ? TIOCM_RTS : 0);
}

bool Posix_serial_port::switch_rts(handshake_t handshake) {
    const std::lock_guard guard(line_lock);
    return handshake == handshake_rts_cts ? switch_lines(TIOCM_RTS, TIOCM_RTS) : ready();
}

// ---- Current settings ----

long Posix_serial_port::get_baudRate() const {
    const std::lock_guard guard(line_lock);
    if (!ready())
        return 0;
    const speed_t speed = cfgetospeed(current_.get());
    for (const Rate& rate : rates)
        if (rate.speed == speed)
            return rate.baud;
    return 0;
}

bool Posix_serial_port::get_format(Format& format) const {
    const std::lock_guard guard(line_lock);
    if (!ready())
        return false;
    format.bits = bits_of(*current_);
    format.stop_bits = (current_->c_cflag & CSTOPB) != 0 ? stop_bits_2 : stop_bits_1;
    format.parity = parity_of(*current_);
    return true;
}

bool Posix_serial_port::get_status(Status& status) {
    const std::lock_guard guard(line_lock);
    if (!ready())
        return false;
    int lines = 0;
    const bool known = ioctl(get_fd(), TIOCMGET, &lines) == 0;
    const auto state_of = [&](int line) { return static_cast<std::int16_t>(known && (lines & line) != 0); };
    status.handshake = handshake_of(*current_);
    status.dtr = state_of(TIOCM_DTR);
    status.rts = state_of(TIOCM_RTS);
    status.cts = state_of(TIOCM_CTS);
    status.dsr = state_of(TIOCM_DSR);
    return known;
}

bool Posix_serial_port::get_counters(Counters& counters) {
    const std::lock_guard guard(line_lock);
    serial_icounter_struct counted{};
    if (!ready() || ioctl(get_fd(), TIOCGICOUNT, &counted) != 0)
        return false;
    counters.cts = counted.cts;
    counters.dsr = counted.dsr;
    counters.ring = counted.rng;
    counters.carrier = counted.dcd;
    counters.received = counted.rx;
    counters.sent = counted.tx;
    counters.framing_errors = counted.frame;
    counters.overruns = counted.overrun;
    counters.parity_errors = counted.parity;
    counters.breaks = counted.brk;
    counters.buffer_overruns = counted.buf_overrun;
    return true;
}

bool Posix_serial_port::baud_rate_supported(long rate) {
    return rate_for(rate).baud == rate;
}

// ---- Opening by a specification string ----

bool Posix_serial_port::open_from_args(const char* spec) {
    const glue_detail::Serial_line_text line(spec);
    if (!open_default(line.device()))
        return false;
    set_baud_rate(line.baud);
    if (line.mode == "rs485")
        return select_driver(true);
    if (line.mode == "rs232")
        return select_driver(false);
    return true;
}

/// The modem output OUT1 selects the line driver. It is written even when it is in that state already.
bool Posix_serial_port::select_driver(bool rs485) {
    const std::lock_guard guard(line_lock);
    int lines = 0;
    if (ioctl(get_fd(), TIOCMGET, &lines) != 0)
        return false;
    lines = rs485 ? lines | TIOCM_OUT1 : lines & ~TIOCM_OUT1;
    return ioctl(get_fd(), TIOCMSET, &lines) == 0;
}
