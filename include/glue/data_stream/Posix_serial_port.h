#pragma once

#include <glue/export.h>

#include <platform/Mutex.h>

#include <cstdint>
#include <memory>
#include <termios.h>

/// The settings of a serial line: raw mode, baud rate, character format, handshake, modem lines, and the selection of
/// the line driver, RS-485 or RS-232. Mixed into a stream, which owns the descriptor and moves the bytes:
/// Posix_serial_data_stream and Posix_threaded_serial_data_stream.
///
///     if (stream.open_from_args("/dev/ttyS1:115200:rs485")) {
///         Posix_serial_port::Format format;
///         format.parity = Posix_serial_port::parity_even;
///         stream.set_format(format);
///     }
///
/// **Failures.** Every operation on settings returns false and does nothing before `init` and while there is no
/// descriptor. When the system refuses a change, the result is false and the port keeps its settings.
/// Some lines (a pseudo terminal, some USB gadgets) have no modem lines: on purpose, the operations that switch modem
/// lines succeed on them.
///
/// **Threads.** A lock guards the settings: any thread may call all operations. A stream whose descriptor may be closed
/// in another thread closes it under that lock (`line_lock`).
class GLUE_EXPORT Posix_serial_port {
  public:
    enum bits_t : int { bits_5 = 5, bits_6 = 6, bits_7 = 7, bits_8 = 8 };
    enum stop_bits_t : int { stop_bits_1 = 1, stop_bits_2 = 2 };
    enum parity_t : int { parity_none = 0, parity_odd = 1, parity_even = 2 };
    enum handshake_t : int { handshake_none = 0, handshake_rts_cts = 1, handshake_xon_xoff = 2 };

    /// The format of a character on the line.
    struct GLUE_EXPORT Format {
        bits_t bits = bits_8;
        stop_bits_t stop_bits = stop_bits_1;
        parity_t parity = parity_none;

        bool operator==(const Format& other) const;
        bool operator!=(const Format& other) const { return !(*this == other); }
    };

    /// The handshake, and which of the modem lines are on (not 0).
    struct GLUE_EXPORT Status {
        handshake_t handshake = handshake_none;
        std::int16_t dtr = 0; ///< this side is ready: an output
        std::int16_t rts = 0; ///< request to send: an output
        std::int16_t cts = 0; ///< the other side permits sending: an input, only read
        std::int16_t dsr = 0; ///< the other side is ready: an input, only read

        bool operator==(const Status& other) const;
        bool operator!=(const Status& other) const { return !(*this == other); }
    };

    /// Everything that `set_state` sets.
    struct GLUE_EXPORT State {
        long baud = 0; ///< bits per second
        Format format;
        Status status;

        bool operator==(const State& other) const;
        bool operator!=(const State& other) const { return !(*this == other); }
    };

    /// What the system has counted on the line since it started; the numbers wrap.
    struct GLUE_EXPORT Counters {
        // changes of the incoming modem lines
        std::int32_t cts = 0;
        std::int32_t dsr = 0;
        std::int32_t ring = 0;
        std::int32_t carrier = 0;
        // characters
        std::int32_t received = 0;
        std::int32_t sent = 0;
        // errors
        std::int32_t framing_errors = 0;
        std::int32_t overruns = 0; ///< characters that the hardware lost
        std::int32_t parity_errors = 0;
        std::int32_t breaks = 0;
        std::int32_t buffer_overruns = 0; ///< characters that did not fit the system's buffer

        bool operator==(const Counters& other) const;
        bool operator!=(const Counters& other) const { return !(*this == other); }
    };

    Posix_serial_port(const Posix_serial_port&) = delete;
    Posix_serial_port& operator=(const Posix_serial_port&) = delete;

    // ---- What the stream supplies. The order of the virtual operations is part of the binary interface ----

    /// The descriptor of the line; negative when there is none.
    virtual int get_fd() const = 0;
    /// Opens a device for both directions and prepares its line, as `init` does.
    /// \return whether it succeeded
    [[nodiscard]] virtual bool open_default(const char* device) = 0;

    // ---- Start and end ----

    /// Saves the line's settings for `restore`, then makes the line raw: every byte passes unchanged, reads wait for
    /// one byte, modem lines are ignored and stay on when the device is closed. Baud rate and handshake by RTS/CTS are
    /// left unchanged. Called again, it saves the settings that the line has then. \return false, with the port as
    /// before its first `init`, when there is no descriptor, it is no terminal, or the
    ///         line refuses
    bool init();
    /// Forgets the settings, the saved ones included; the line is left unchanged.
    void deinit();
    /// Applies the settings that `init` saved. The port keeps its own: the next change applies them to the line again.
    bool restore();

    // ---- Settings, each applied at once ----

    /// The lowest supported rate that is not below `baud`, or the highest one.
    bool set_baud_rate(long baud);
    /// Any other number of bits means 8, any other number of stop bits than 2 means 1. On purpose, an unknown parity
    /// switches parity on, odd or even as before.
    bool set_format(const Format& format);
    /// Raises RTS for `handshake_rts_cts`.
    bool set_handshake(handshake_t handshake);
    /// Baud rate, format and handshake in a single change of the line. Then DTR and RTS, also in a single change;
    /// for `handshake_rts_cts` raises RTS instead and leaves DTR unchanged.
    bool set_state(const State& state);
    bool set_dtr_state(bool on);
    bool set_rts_state(bool on);
    /// Raises RTS for `handshake_rts_cts`; does nothing for the others and returns true.
    bool switch_rts(handshake_t handshake);

    // ---- Current settings ----

    /// Bits per second; 0 before `init`, and when the line has a rate that is not supported here.
    long get_baudRate() const;
    bool get_format(Format& format) const;
    /// The handshake as set, and the current modem lines. \return false also when the line has no modem
    /// lines; then the handshake is valid, and the lines are 0
    bool get_status(Status& status);
    /// \return false also when the system has no counters for this line; `counters` is left unchanged then
    bool get_counters(Counters& counters);

    /// Whether a rate is exactly one of 300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400 and
    /// 460800 bits per second.
    static bool baud_rate_supported(long rate);

    // ---- Opening by a specification string ----

    /// Opens the line that the string specifies: a device, optionally ":" and the baud rate, optionally ":" and the
    /// mode of the line driver; a third ":" and the rest are ignored. Examples: "/dev/ttyS1", "/dev/ttyS1:115200",
    /// "/dev/ttyS1:38400:rs485".
    ///
    /// The default baud rate is 9600. A given one is read as a decimal number up to the first other character, so that
    /// an empty text is 0, and is set as by `set_baud_rate`. A mode that starts with "rs485" or "rs232"
    /// selects that driver through the modem output OUT1 (on for RS-485); any other leaves the driver unchanged. Only
    /// the first 255 characters of the string are used. \return false when the device cannot be opened, or the driver
    /// cannot be selected; in the second case, on purpose,
    ///         the device stays open
    [[nodiscard]] bool open_from_args(const char* spec);

  protected:
    Posix_serial_port() = default;
    /// Protected: objects are not deleted through this class.
    ~Posix_serial_port() = default;

    // ---- Additions, for streams whose descriptor is closed in another thread ----

    /// `deinit`, called with `line_lock` held.
    void forget_settings();

  private:
    template <typename Change>
    bool update(Change change);
    bool switch_lines(int affected, int on);
    bool ready() const;
    bool make_raw();
    bool select_driver(bool rs485);

    std::shared_ptr<termios> current_; ///< the port's settings
    std::shared_ptr<termios> saved_;   ///< those that `init` found

  protected:
    /// Addition: guards the settings, and the descriptor while settings are applied.
    mutable Mutex line_lock;
};
