#include <glue/vesk/NMEA_messages.h>

#include <support/builders/Random.h>
#include <support/fakes/Captured_debug.h>

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

using namespace NMEA_messages;

/// The checksum as two digits, independent of the code under test.
std::string checksum_of(const std::string& body) {
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    const char digits[] = "0123456789ABCDEF";
    return {digits[sum / 16], digits[sum % 16]};
}

std::string sentence(const std::string& body) {
    return "$" + body + "*" + checksum_of(body);
}

bool checks(std::string text) {
    return NMEA0183_message(text.data(), static_cast<unsigned>(text.size())).check_checksum();
}

int delimiter_of(const std::string& text) {
    return NMEA0183_message::get_delimiter_pos(text.data(), static_cast<unsigned>(text.size()));
}

struct Position {
    double latitude;
    double longitude;
};

Position position_of(const std::string& fields) {
    std::string text = "$GPGGA,123519," + fields + ",1,08,0.9,545.4,M,46.9,M,,*47";
    const Msg_NMEA_GGA gga(text.data(), static_cast<unsigned>(text.size()));
    return {gga.get_latitude(), gga.get_longitude()};
}

} // namespace

TEST(NMEA0183_message, delimiter_is_the_last_star_with_two_characters_after_it) {
    EXPECT_EQ(delimiter_of("$GPGG*47"), 5);
    EXPECT_EQ(delimiter_of("$GPGG*47\r\n"), 5);
    EXPECT_EQ(delimiter_of("$GPGG*A*47"), 7);
    EXPECT_EQ(delimiter_of("$GPGG*4"), 0);
    EXPECT_EQ(delimiter_of("$GPGG*"), 0);
    EXPECT_EQ(delimiter_of("$GPGG"), 0);
    EXPECT_EQ(delimiter_of("$GPG*47"), 0) << "index 4 is too early";
    EXPECT_EQ(delimiter_of("GPGGA*47"), 0);
    EXPECT_EQ(delimiter_of("$GP*"), 0);
    EXPECT_EQ(delimiter_of(""), 0);
}

TEST(NMEA0183_message, checksum_is_the_exclusive_or_of_all_characters) {
    EXPECT_EQ(NMEA0183_message::calculate_checksum("", 0), 0U);
    EXPECT_EQ(NMEA0183_message::calculate_checksum("A", 1), 0x41U);
    EXPECT_EQ(NMEA0183_message::calculate_checksum("AB", 2), 0x03U);
    EXPECT_EQ(NMEA0183_message::calculate_checksum("\xFF", 1), 0xFFU) << "bytes have no sign";
}

TEST(NMEA0183_message, right_checksum_checks_in_either_case) {
    EXPECT_TRUE(checks("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47"));
    const std::string body = "GPRMC,O"; // a checksum with letters
    std::string text = sentence(body);
    EXPECT_TRUE(checks(text));
    for (char& c : text)
        if (&c > &text[text.size() - 3])
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(checks(text)) << text;
}

TEST(NMEA0183_message, wrong_checksum_is_reported) {
    const Captured_debug debug;
    EXPECT_FALSE(checks("$GPXXX,1*00"));
    EXPECT_EQ(debug.text(), "Checksum failure for '$GPXXX,1*00': 52 vs 00\n");
}

TEST(NMEA0183_message, missing_checksum_gives_false_without_a_message) {
    const Captured_debug debug;
    for (const char* text : {"$GPGGA,1", "$GPGGA,1*", "$GPGGA,1*4", "$GPGGA,1*G7", "$GPGGA,1*4 ", "GPGGA,1*47", ""})
        EXPECT_FALSE(checks(text)) << text;
    EXPECT_EQ(debug.text(), "");
}

TEST(NMEA0183_message, every_single_error_is_detected) {
    const Captured_debug debug;
    const std::string good = sentence("GPVTG,054.7,T,034.4,M,005.5,N,010.2,K");
    for (std::size_t place = 1; place < good.size(); ++place)
        for (int bit = 0; bit < 8; ++bit) {
            std::string bad = good;
            bad[place] = static_cast<char>(bad[place] ^ 1 << bit);
            const bool only_case =
                place + 2 >= good.size() && bit == 5 && std::isalpha(static_cast<unsigned char>(good[place]));
            EXPECT_EQ(checks(bad), only_case) << place << " " << bit;
        }
}

TEST(NMEA0183_message, trim_cuts_at_the_star) {
    std::string text = "$GPGGA,1*47\r\n";
    NMEA0183_message message(text.data(), static_cast<unsigned>(text.size()));
    EXPECT_EQ(message.trim(), 8U);
    EXPECT_EQ(message.get_length(), 8U);
    EXPECT_STREQ(message.get_text(), "$GPGGA,1");
}

TEST(NMEA0183_message, trim_without_a_star_leaves_the_text_unchanged) {
    std::string text = "$GPGGA,1";
    NMEA0183_message message(text.data(), static_cast<unsigned>(text.size()));
    EXPECT_EQ(message.trim(), 0U);
    EXPECT_EQ(message.get_length(), 0U);
    EXPECT_EQ(text, "$GPGGA,1");
}

TEST(NMEA0183_message, complete_appends_a_valid_checksum) {
    char text[16] = "$GPGGA,1";
    EXPECT_EQ(NMEA0183_message::complete(text, 8, sizeof text), 13U);
    EXPECT_EQ(std::string(text), sentence("GPGGA,1") + "\r\n");
    char tight[14] = "$GPGGA,1";
    EXPECT_EQ(NMEA0183_message::complete(tight, 8, sizeof tight), 13U);
    char too_tight[13] = "$GPGGA,1";
    EXPECT_EQ(NMEA0183_message::complete(too_tight, 8, sizeof too_tight), 0U);
    EXPECT_STREQ(too_tight, "$GPGGA,1");
    EXPECT_EQ(NMEA0183_message::complete(text, 0, sizeof text), 0U);
}

TEST(Msg_NMEA_GGA, position_is_in_degrees) {
    const Position munich = position_of("4807.038,N,01131.000,E");
    EXPECT_NEAR(munich.latitude, 48.1173, 1e-9);
    EXPECT_NEAR(munich.longitude, 11.516666666667, 1e-9);
    EXPECT_NEAR(position_of("4807.038,S,01131.000,W").latitude, -48.1173, 1e-9);
    EXPECT_NEAR(position_of("4807.038,S,01131.000,W").longitude, -11.516666666667, 1e-9);
    EXPECT_NEAR(position_of("4807.038,s,01131.000,w").latitude, -48.1173, 1e-9);
    EXPECT_NEAR(position_of("4807.038,s,01131.000,w").longitude, -11.516666666667, 1e-9);
}

TEST(Msg_NMEA_GGA, minutes_become_degrees_to_the_last_digit) {
    EXPECT_DOUBLE_EQ(position_of("0059.9999999,N,00030.000,E").latitude, 59.9999999 / 60);
    EXPECT_DOUBLE_EQ(position_of("0059.9999999,N,00030.000,E").longitude, 0.5);
}

TEST(Msg_NMEA_GGA, equator_poles_and_date_line) {
    EXPECT_EQ(position_of("0000.000,N,00000.000,E").latitude, 0);
    EXPECT_EQ(position_of("0000.000,S,00000.000,W").longitude, 0);
    EXPECT_EQ(position_of("9000.000,N,18000.000,E").latitude, 90);
    EXPECT_EQ(position_of("9000.000,S,18000.000,W").latitude, -90);
    EXPECT_EQ(position_of("9000.000,S,18000.000,W").longitude, -180);
    EXPECT_NEAR(position_of("8959.9999,N,17959.9999,E").latitude, 89.99999833333, 1e-9);
    EXPECT_NEAR(position_of("8959.9999,N,17959.9999,E").longitude, 179.99999833333, 1e-9);
}

TEST(Msg_NMEA_GGA, empty_fields_are_zero) {
    EXPECT_EQ(position_of(",,,").latitude, 0);
    EXPECT_EQ(position_of(",S,,W").longitude, 0);
    std::string text = "$GPGGA";
    const Msg_NMEA_GGA nothing(text.data(), 6);
    EXPECT_EQ(nothing.get_latitude(), 0);
    EXPECT_EQ(nothing.get_fix(), 0);
    EXPECT_FALSE(nothing.is_GGA());
}

TEST(Msg_NMEA_GGA, other_fields_are_read) {
    std::string text = "$GNGGA,123519,4807.038,N,01131.000,E,4,08,0.9,545.4,M,46.9,M,,*5C";
    const Msg_NMEA_GGA gga(text.data(), static_cast<unsigned>(text.size()));
    EXPECT_TRUE(gga.is_GGA());
    EXPECT_EQ(gga.get_fix(), 4);
    EXPECT_EQ(gga.get_satellites(), 8);
    EXPECT_EQ(gga.get_hdop(), 0.9);
    EXPECT_EQ(gga.get_altitude(), 545.4);
    std::string other = "$GPGSA,A,3*00";
    EXPECT_FALSE(Msg_NMEA_GGA(other.data(), static_cast<unsigned>(other.size())).is_GGA());
}

TEST(Msg_NMEA_GGA, counts_are_limited_to_the_range_of_an_int) {
    std::string text = "$GNGGA,123519,4807.038,N,01131.000,E,1e300,-1e300,0.9,545.4,M,46.9,M,,*5C";
    const Msg_NMEA_GGA gga(text.data(), static_cast<unsigned>(text.size()));
    EXPECT_EQ(gga.get_fix(), std::numeric_limits<int>::max());
    EXPECT_EQ(gga.get_satellites(), std::numeric_limits<int>::min());
}

TEST(compose_GGA, is_read_back_with_the_same_values) {
    Random random;
    for (int i = 0; i < 1000; ++i) {
        const GGA fix = {static_cast<unsigned>(random.between(0, 86400000 - 1)),
                         static_cast<double>(random.between(0, 1800000001 - 1)) / 1e7 - 90,
                         static_cast<double>(random.between(0, 3600000001U - 1)) / 1e7 - 180,
                         4,
                         static_cast<int>(random.between(0, 60 - 1)),
                         0.7,
                         static_cast<double>(random.between(0, 20000 - 1)) / 10 - 500,
                         -46.9};
        char text[120];
        const unsigned length = compose(fix, text, sizeof text);
        ASSERT_GT(length, 0U);
        EXPECT_EQ(std::string(text + length - 2), "\r\n");
        const Msg_NMEA_GGA read(text, length - 2);
        EXPECT_TRUE(read.check_checksum()) << text;
        EXPECT_NEAR(read.get_latitude(), fix.latitude, 2e-9) << text;
        EXPECT_NEAR(read.get_longitude(), fix.longitude, 2e-9) << text;
        EXPECT_NEAR(read.get_altitude(), fix.altitude, 1e-3);
        EXPECT_EQ(read.get_satellites(), fix.satellites);
    }
}

TEST(compose_GGA, has_the_form_of_other_senders) {
    char text[120];
    const GGA fix = {45319990, -48.1173, -11.516666666667, 1, 8, 0.94, 545.4, -46.9};
    ASSERT_GT(compose(fix, text, sizeof text), 0U);
    EXPECT_EQ(std::string(text),
              sentence("GPGGA,123519.99,4807.0380000,S,01131.0000000,W,1,08,0.9,545.400,M,-46.900,M,,") + "\r\n");
    EXPECT_EQ(compose(fix, text, 20), 0U);
}
