#include <glue/vesk/NMEA_messages.h>

#include <support/fakes/Captured_debug.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Sentences of every common kind as receivers, gyros and sounders send them, from every talker.

namespace {

using namespace NMEA_messages;

constexpr const char* talkers[] = {"GP", "GL", "GA", "GB", "GN"};

/// What follows the talker, with fields filled and empty.
constexpr const char* bodies[] = {
    // Position and fix
    "GGA,123519.00,4807.0380000,N,01131.0000000,E,1,08,0.9,545.4,M,46.9,M,,",
    "GGA,001043.00,4404.1403600,S,12118.8596100,W,4,12,0.98,1113.0,M,-21.3,M,1.2,0031",
    "GGA,235959.99,0000.0000,N,00000.0000,E,5,24,0.6,-12.5,M,,M,,",
    "GGA,,,,,,0,00,99.99,,,,,,",
    "GNS,014035.00,4332.69262,S,17235.48549,E,RR,13,0.9,25.63,11.24,,",
    "GNS,122310.2,3722.425671,N,12258.856215,W,DAAA,14,0.9,1005.543,6.5,5.2,23",
    "GLL,4916.45,N,12311.12,W,225444,A,",
    "GLL,,,,,235947.000,V,N",
    "GLL,3723.71722,N,00559.52930,W,092204.999,A,D",
    "RMC,225446,A,4916.45,N,12311.12,W,000.5,054.7,191194,020.3,E",
    "RMC,081836,A,3751.65,S,14507.36,E,000.0,360.0,130998,011.3,E,A",
    "RMC,,V,,,,,,,,,,N",
    // Satellites
    "GSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1",
    "GSA,M,1,,,,,,,,,,,,,99.9,99.9,99.9",
    "GSV,3,1,11,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00",
    "GSV,3,3,11,22,42,067,42,24,14,311,43,27,05,244,00,,,,",
    "GSV,1,1,00",
    "GRS,220320.0,0,-0.8,-0.2,-0.1,-0.2,0.8,0.6,,,,,,",
    "GST,172814.0,0.006,0.023,0.020,273.6,0.023,0.020,0.031",
    "GST,,,,,,,,",
    "GBS,015509.00,-0.031,-0.186,0.219,19,0.000,-0.354,6.972",
    "ALM,1,1,15,1159,00,441d,4e,16be,fd5e,a10c9f,4a2da4,686e81,58cbe1,0a4,001",
    // Course, speed, heading
    "VTG,054.7,T,034.4,M,005.5,N,010.2,K",
    "VTG,,T,,M,0.02,N,0.03,K,A",
    "VBW,12.3,-0.1,A,12.5,0.0,A,,V,,V",
    "HDT,274.07,T",
    "HDT,,T",
    "HDG,101.1,,,7.1,W",
    "HDM,235.0,M",
    "ROT,35.6,A",
    "ROT,-720.0,V",
    // Time and the rest
    "ZDA,201530.00,04,07,2002,00,00",
    "ZDA,,,,,,",
    "ZTG,145832.12,042359.17,WPT1",
    "DTM,W84,,0.0,N,0.0,E,0.0,W84",
    "DPT,76.1,0.0,100",
    "DBT,0017.6,f,0005.4,M,,F",
    "MWV,214.8,R,0.1,K,A",
    "XTE,A,A,0.67,L,N",
    "APB,A,A,0.10,R,N,V,V,011,M,DEST,011,M,011,M",
    "BOD,097.0,T,103.2,M,POINTB,POINTA",
    "RMB,A,0.66,L,003,004,4917.24,N,12309.57,W,001.3,052.5,000.5,V",
    "WPL,4917.16,N,12310.64,W,003",
    "TXT,01,01,02,ANTSTATUS=OK",
};

/// Sentences of makers, which have no talker.
constexpr const char* makers_bodies[] = {
    "PASHR,130533.620,0.311,T,-80.467,-1.395,,0.066,0.067,0.215,2,3",
    "PTNL,GGK,172814.00,071296,3723.46587704,N,12202.26957864,W,3,06,1.7,EHT-6.777,M",
    "PGRME,15.0,M,22.0,M,26.0,M",
    "PMTK001,604,3",
};

/// The XOR of all characters, independent of the code under test.
unsigned checksum_of(std::string_view body) {
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    return sum;
}

std::string with_checksum(const std::string& body, unsigned checksum, const char* format = "%02X") {
    char digits[8];
    std::snprintf(digits, sizeof digits, format, checksum);
    return "$" + body + "*" + digits;
}

/// All bodies of all talkers.
std::vector<std::string> all_bodies() {
    std::vector<std::string> all;
    for (const char* talker : talkers)
        for (const char* body : bodies)
            all.push_back(talker + std::string(body));
    all.insert(all.end(), std::begin(makers_bodies), std::end(makers_bodies));
    return all;
}

NMEA0183_message message_of(std::string& text) {
    return {text.data(), static_cast<unsigned>(text.size())};
}

bool checks(std::string text) {
    return message_of(text).check_checksum();
}

int delimiter_of(const std::string& text) {
    return NMEA0183_message::get_delimiter_pos(text.data(), static_cast<unsigned>(text.size()));
}

TEST(NMEA_sentences, are_at_least_200_with_different_checksums) {
    const std::vector<std::string> all = all_bodies();
    EXPECT_GE(std::set<std::string>(all.begin(), all.end()).size(), 200U);
    std::set<unsigned> checksums;
    for (const std::string& body : all)
        checksums.insert(checksum_of(body));
    EXPECT_GT(checksums.size(), 60U);
}

TEST(NMEA_sentences, with_checksums_from_other_sources_are_accepted) {
    for (const char* text : {"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47",
                             "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A",
                             "$GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1*39",
                             "$GPGLL,4916.45,N,12311.12,W,225444,A,*1D", "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48"})
        EXPECT_TRUE(checks(text)) << text;
}

TEST(NMEA_sentences, with_the_right_checksum_are_accepted_with_any_line_end_and_in_either_case) {
    const Captured_debug debug;
    for (const std::string& body : all_bodies()) {
        const unsigned checksum = checksum_of(body);
        for (const char* end : {"", "\r\n", "\n", "\r"})
            EXPECT_TRUE(checks(with_checksum(body, checksum) + end)) << body;
        EXPECT_TRUE(checks(with_checksum(body, checksum, "%02x"))) << body;
        EXPECT_EQ(NMEA0183_message::calculate_checksum(body.data(), static_cast<unsigned>(body.size())), checksum);
    }
    EXPECT_EQ(debug.text(), "");
}

TEST(NMEA_sentences, with_any_other_checksum_fail_and_are_reported) {
    for (const std::string& body : all_bodies()) {
        const unsigned right = checksum_of(body);
        for (const unsigned wrong : {right ^ 0x01U, right ^ 0x10U, right ^ 0x80U, right ^ 0xFFU}) {
            const Captured_debug debug;
            const std::string text = with_checksum(body, wrong);
            EXPECT_FALSE(checks(text)) << text;
            char numbers[16];
            std::snprintf(numbers, sizeof numbers, "%.2x vs %.2x\n", right, wrong);
            EXPECT_EQ(debug.text(), "Checksum failure for '" + text + "': " + numbers);
        }
    }
}

TEST(NMEA_sentences, cut_anywhere_before_their_last_digit_fail_without_a_message) {
    const Captured_debug debug;
    for (const std::string& body : all_bodies()) {
        const std::string whole = with_checksum(body, checksum_of(body));
        for (std::size_t length = 0; length < whole.size(); ++length)
            EXPECT_FALSE(checks(whole.substr(0, length))) << whole.substr(0, length);
    }
    EXPECT_EQ(debug.text(), "");
}

TEST(NMEA_sentences, without_a_character_or_their_beginning_fail) {
    const Captured_debug debug;
    for (const std::string& body : all_bodies()) {
        const std::string sum = with_checksum(body, checksum_of(body)).substr(body.size() + 1);
        for (std::size_t i = 0; i < body.size(); ++i)
            EXPECT_FALSE(checks("$" + body.substr(0, i) + body.substr(i + 1) + sum)) << body << " without " << i;
        EXPECT_FALSE(checks("!" + body + sum)) << "another beginning";
        EXPECT_FALSE(checks(body + sum)) << "none";
    }
}

TEST(NMEA_sentences, are_trimmed_to_their_fields) {
    for (const std::string& body : all_bodies()) {
        std::string text = with_checksum(body, checksum_of(body)) + "\r\n";
        NMEA0183_message message = message_of(text);
        EXPECT_EQ(message.trim(), body.size() + 1);
        EXPECT_EQ(message.get_text(), "$" + body);
        EXPECT_EQ(message.trim(), 0U) << "there is no longer a star";
    }
}

TEST(NMEA_sentences, are_completed_to_their_received_form) {
    for (const std::string& body : all_bodies()) {
        char text[160] = {};
        ("$" + body).copy(text, sizeof text);
        const unsigned length = NMEA0183_message::complete(text, static_cast<unsigned>(body.size()) + 1, sizeof text);
        EXPECT_EQ(std::string(text, length), with_checksum(body, checksum_of(body)) + "\r\n");
    }
}

/// A field of a body as text, found by counting commas.
std::string field_of(const std::string& body, unsigned index) {
    std::size_t begin = 0;
    for (; index > 0; --index) {
        begin = body.find(',', begin);
        if (begin == std::string::npos)
            return "";
        ++begin;
    }
    return body.substr(begin, body.find(',', begin) - begin);
}

/// Degrees from the digits of "ddmm.mmmm", read as text.
double degrees_of(const std::string& field, const std::string& hemisphere) {
    if (field.empty())
        return 0;
    const std::size_t minutes = field.find('.') - 2;
    const double degrees = std::stod("0" + field.substr(0, minutes)) + std::stod(field.substr(minutes)) / 60;
    return hemisphere == "S" || hemisphere == "W" ? -degrees : degrees;
}

TEST(NMEA_sentences, are_GGA_only_if_they_hold_a_position_and_return_their_fields) {
    unsigned positions = 0;
    for (const std::string& body : all_bodies()) {
        std::string text = with_checksum(body, checksum_of(body)) + "\r\n";
        const Msg_NMEA_GGA gga(text.data(), static_cast<unsigned>(text.size()));
        EXPECT_EQ(gga.is_GGA(), body.substr(2, 4) == "GGA,") << body;
        if (!gga.is_GGA())
            continue;
        ++positions;
        EXPECT_NEAR(gga.get_latitude(), degrees_of(field_of(body, 2), field_of(body, 3)), 1e-9) << body;
        EXPECT_NEAR(gga.get_longitude(), degrees_of(field_of(body, 4), field_of(body, 5)), 1e-9) << body;
        EXPECT_EQ(gga.get_fix(), std::stoi(field_of(body, 6)));
        EXPECT_EQ(gga.get_satellites(), std::stoi(field_of(body, 7)));
        EXPECT_EQ(gga.get_hdop(), std::stod(field_of(body, 8)));
        const std::string altitude = field_of(body, 9);
        EXPECT_EQ(gga.get_altitude(), altitude.empty() ? 0 : std::stod(altitude));
    }
    EXPECT_EQ(positions, 4 * std::size(talkers));
}

TEST(NMEA_sentences, that_are_too_long_are_handled_like_others) {
    const Captured_debug debug;
    for (const std::size_t length : {83U, 255U, 1024U, 70000U}) {
        std::string body = "GPTXT,01,01,02,";
        while (body.size() < length)
            body += static_cast<char>('A' + body.size() % 26);
        EXPECT_TRUE(checks(with_checksum(body, checksum_of(body)) + "\r\n")) << length;
        EXPECT_FALSE(checks(with_checksum(body, checksum_of(body) ^ 1U))) << length;
        std::string text = with_checksum(body, checksum_of(body));
        EXPECT_EQ(delimiter_of(text), static_cast<int>(body.size() + 1));
        EXPECT_EQ(message_of(text).trim(), body.size() + 1);
    }
}

TEST(NMEA_sentences, end_their_fields_at_the_last_star) {
    const std::string body = "GPTXT,01,01,02,5*3=15*";
    const std::string text = with_checksum(body, checksum_of(body));
    EXPECT_EQ(delimiter_of(text), static_cast<int>(body.size() + 1));
    EXPECT_TRUE(checks(text));
    EXPECT_EQ(delimiter_of("$GPTXT,1*5A,2*7"), 0) << "the one before does not stand for it";
}

TEST(NMEA_sentences, with_blanks_or_signs_for_digits_have_no_checksum) {
    const Captured_debug debug;
    for (const char* digits : {" 7", "7 ", "-7", "+7", "0x", "x7", "G0", "0G", "g0", "\xFF\xFF", "**", ",,"})
        EXPECT_FALSE(checks("$GPHDT,274.07,T*" + std::string(digits))) << digits;
    EXPECT_EQ(debug.text(), "");
}

} // namespace
