#include <glue/vesk/NMEA_messages.h>

#include "detail/hex_digits.h"

#include <platform/Debug.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>

namespace NMEA_messages {

namespace {

using glue_detail::hex_value;

constexpr int shortest_head = 5; // "$" and the four characters that follow
constexpr int checksum_digits = 2;

/// The index of the last "*"; -1 when there is none.
int last_star(const char* s, unsigned len) {
    for (unsigned i = len; i-- > 0;)
        if (s[i] == '*')
            return static_cast<int>(i);
    return -1;
}

/// Turns "ddmm.mmmm" into degrees.
double degrees(double field, char hemisphere, char negative) {
    double whole = 0;
    const double fraction = std::modf(field * 0.01, &whole);
    const double value = whole + fraction * 1.6666666666666667;
    return hemisphere == negative || hemisphere == negative + ('a' - 'A') ? -value : value;
}

/// Rounded towards zero and limited to the range of an int.
int whole_number(double field) {
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp(field, static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

/// An angle in whole degrees, whole minutes and units of 1e-7 minutes, which are less than a millimetre on the ground.
struct Minutes {
    explicit Minutes(double value) {
        constexpr long long per_degree = 60LL * 10000000;
        const long long all = std::llround(std::fabs(value) * static_cast<double>(per_degree));
        degrees = static_cast<int>(all / per_degree);
        minutes = static_cast<int>(all % per_degree / 10000000);
        fraction = static_cast<int>(all % 10000000);
    }
    int degrees;
    int minutes;
    int fraction;
};

/// Writes a number with this many decimals, with a decimal point in every locale.
void print_decimal(char (&text)[48], double value, int decimals) {
    const double step = std::pow(10, decimals);
    const long long scaled = std::llround(std::fabs(value) * step);
    const auto unit = static_cast<long long>(step);
    std::snprintf(text, sizeof text, "%s%lld.%0*lld", value < 0 && scaled != 0 ? "-" : "", scaled / unit, decimals,
                  scaled % unit);
}

} // namespace

int NMEA0183_message::get_delimiter_pos(const char* s, unsigned len) {
    if (len < static_cast<unsigned>(shortest_head) || s[0] != '$')
        return 0;
    const int star = last_star(s, len);
    return star >= shortest_head && len - static_cast<unsigned>(star) > checksum_digits ? star : 0;
}

unsigned NMEA0183_message::calculate_checksum(const char* s, unsigned n) {
    unsigned checksum = 0;
    for (unsigned i = 0; i < n; ++i)
        checksum ^= static_cast<unsigned char>(s[i]);
    return checksum;
}

bool NMEA0183_message::check_checksum() const {
    const int star = get_delimiter_pos(text_, length_);
    if (star == 0)
        return false;
    const int digits = hex_value(reinterpret_cast<const unsigned char*>(text_) + star + 1, checksum_digits);
    if (digits < 0)
        return false;
    const auto received = static_cast<unsigned>(digits);
    const unsigned computed = calculate_checksum(text_ + 1, static_cast<unsigned>(star) - 1);
    if (received == computed)
        return true;
    Debug::Print::dprint("Checksum failure for '%.*s': %.2x vs %.2x\n", static_cast<int>(length_), text_, computed,
                         received);
    return false;
}

unsigned NMEA0183_message::trim() {
    const int star = get_delimiter_pos(text_, length_);
    if (star > 0)
        text_[star] = '\0';
    length_ = static_cast<unsigned>(star);
    return length_;
}

unsigned NMEA0183_message::complete(char* text, unsigned len, unsigned capacity) {
    constexpr unsigned tail = 5; // "*hh" CR LF
    if (len == 0 || text[0] != '$' || capacity <= tail || len >= capacity - tail)
        return 0;
    const unsigned checksum = calculate_checksum(text + 1, len - 1);
    std::snprintf(text + len, capacity - len, "*%02X\r\n", checksum);
    return len + tail;
}

double Msg_NMEA_GGA::get_latitude() const {
    return degrees(get_double(2), get_char(3), 'S');
}

double Msg_NMEA_GGA::get_longitude() const {
    return degrees(get_double(4), get_char(5), 'W');
}

bool Msg_NMEA_GGA::is_GGA() const {
    constexpr unsigned talker = 3; // "$" and two letters
    constexpr std::string_view name = "GGA,";
    return length_ >= talker + name.size() && text_[0] == '$' && std::equal(name.begin(), name.end(), text_ + talker);
}

int Msg_NMEA_GGA::get_fix() const {
    return whole_number(get_double(6));
}

int Msg_NMEA_GGA::get_satellites() const {
    return whole_number(get_double(7));
}

double Msg_NMEA_GGA::get_hdop() const {
    return get_double(8);
}

double Msg_NMEA_GGA::get_altitude() const {
    return get_double(9);
}

unsigned compose(const GGA& fix, char* text, unsigned capacity) {
    const Minutes latitude(fix.latitude);
    const Minutes longitude(fix.longitude);
    char hdop[48];
    char altitude[48];
    char geoid_height[48];
    print_decimal(hdop, fix.hdop, 1);
    print_decimal(altitude, fix.altitude, 3);
    print_decimal(geoid_height, fix.geoid_height, 3);
    const unsigned seconds = fix.ms_of_day / 1000;
    const int length = std::snprintf(
        text, capacity, "$GPGGA,%02u%02u%02u.%02u,%02d%02d.%07d,%c,%03d%02d.%07d,%c,%d,%02d,%s,%s,M,%s,M,,",
        seconds / 3600, seconds / 60 % 60, seconds % 60, fix.ms_of_day % 1000 / 10, latitude.degrees, latitude.minutes,
        latitude.fraction, fix.latitude < 0 ? 'S' : 'N', longitude.degrees, longitude.minutes, longitude.fraction,
        fix.longitude < 0 ? 'W' : 'E', fix.fix, fix.satellites, hdop, altitude, geoid_height);
    if (length < 0 || static_cast<unsigned>(length) >= capacity)
        return 0;
    return NMEA0183_message::complete(text, static_cast<unsigned>(length), capacity);
}

} // namespace NMEA_messages
