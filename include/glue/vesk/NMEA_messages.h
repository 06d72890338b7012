#pragma once

#include <glue/export.h>

#include <platform/Ascii_message.h>

/// NMEA 0183 sentences: "$", fields between commas, "*", a checksum of two hexadecimal digits.
///
///     $GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47
///
/// Views of a text that somebody else owns. Not synchronised.
namespace NMEA_messages {

/// A sentence.
class GLUE_EXPORT NMEA0183_message : public Ascii_message {
  public:
    NMEA0183_message(char* text, unsigned len) : Ascii_message(text, len) {}

    /// Where the "*" in front of the checksum is: at index 5 at least, two characters or more behind it.
    /// \return 0 when there is none, or `s` is no sentence
    static int get_delimiter_pos(const char* s, unsigned len);
    /// All `n` characters XORed; 0 for none.
    static unsigned calculate_checksum(const char* s, unsigned n);

    /// Whether there is a checksum and it is right. A wrong one is told of through the debug printer.
    bool check_checksum() const;

    /// Cuts the sentence in front of the "*", where a NUL goes.
    /// \return the new length; 0, with nothing written, when there is no "*"
    unsigned trim();

    /// Completes a sentence that begins with "$" by "*", its checksum and CR LF: an addition for those who send.
    /// \param text  `len` characters, with room for `capacity`
    /// \return the new length, not counting the NUL behind it; 0, with nothing written, when there is no room
    static unsigned complete(char* text, unsigned len, unsigned capacity);
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

    /// Whether the sentence is a GGA, whoever talks.
    bool is_GGA() const;
    /// 0: no fix.
    int get_fix() const;
    int get_satellites() const;
    double get_hdop() const;
    /// Metres above mean sea level.
    double get_altitude() const;
};

/// What a GGA sentence tells: an addition for those who send.
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
/// \return its length, not counting the NUL behind it; 0 when `capacity` has no room for it
GLUE_EXPORT unsigned compose(const GGA& fix, char* text, unsigned capacity);

} // namespace NMEA_messages
