#pragma once

#include <glue/export.h>

#include <platform/Ascii_message.h>

/// NMEA 0183 sentences: "$", fields between commas, "*", a checksum of two hexadecimal digits.
///
///     $GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47
///
/// Views of a text in a buffer that the caller owns. Not synchronised.
namespace NMEA_messages {

/// A sentence.
class GLUE_EXPORT NMEA0183_message : public Ascii_message {
  public:
    NMEA0183_message(char* text, unsigned len) : Ascii_message(text, len) {}

    /// The index of the "*" before the checksum: the last one, at 5 or above, with at least two characters after it.
    /// \return 0 when there is none or `s` is not a sentence
    static int get_delimiter_pos(const char* s, unsigned len);
    /// The XOR of all `n` characters; 0 for none.
    static unsigned calculate_checksum(const char* s, unsigned n);

    /// Whether the sentence has a checksum and it is right. A wrong one is reported through the debug printer.
    [[nodiscard]] bool check_checksum() const;

    /// Cuts the sentence before the "*", which becomes a NUL.
    /// \return the new length; 0, with nothing written, when there is no "*"
    unsigned trim();

    /// Appends "*", the checksum and CR LF to a sentence that begins with "$": an addition, for senders.
    /// \param text  `len` characters in a buffer of `capacity`
    /// \return the new length without the NUL at its end; 0, with nothing written, when it does not fit
    [[nodiscard]] static unsigned complete(char* text, unsigned len, unsigned capacity);
};

/// Position and fix: "GGA".
class GLUE_EXPORT Msg_NMEA_GGA : public NMEA0183_message {
  public:
    using NMEA0183_message::NMEA0183_message;

    /// Degrees, south negative; 0 for an empty field.
    double get_latitude() const;
    /// Degrees, west negative.
    double get_longitude() const;

    // ---- Additions ----

    /// Whether the sentence is a GGA of any talker.
    bool is_GGA() const;
    /// The quality of the fix; 0 means no fix.
    int get_fix() const;
    int get_satellites() const;
    double get_hdop() const;
    /// Metres above mean sea level.
    double get_altitude() const;
};

/// The contents of a GGA sentence: an addition, for senders.
struct GGA {
    unsigned ms_of_day;  ///< UTC
    double latitude;     ///< degrees
    double longitude;    ///< degrees
    int fix;             ///< 0 none, 1 autonomous, 2 differential, 4 ambiguities fixed
    int satellites;      ///< used
    double hdop;         ///< horizontal dilution of precision
    double altitude;     ///< metres above mean sea level
    double geoid_height; ///< metres of mean sea level above the ellipsoid
};

/// Writes the sentence with its checksum and CR LF.
/// \return its length without the NUL at its end; 0 when it exceeds `capacity`
[[nodiscard]] GLUE_EXPORT unsigned compose(const GGA& fix, char* text, unsigned capacity);

} // namespace NMEA_messages
