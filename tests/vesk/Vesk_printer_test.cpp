#include <glue/vesk/Vesk_printer.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/fakes/Captured_descriptor.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace GNSS_messages;

static_assert(sizeof(Vesk_printer) == sizeof(bool), "the printer has no state except its form");

namespace {

constexpr char untouched = '#';

constexpr std::size_t guard_size = 16;

/// The result of a print, and the buffer after it.
struct Printed {
    int result = -1;
    std::string buffer; ///< all of it, as many bytes as were given to the printer

    std::string text() const { return buffer.c_str(); }
    bool buffer_is_untouched() const { return buffer == std::string(buffer.size(), untouched); }
};

/// Prints into `size` bytes, with guard bytes after them.
template <typename Message>
Printed print(Message message, bool verbose, unsigned size = 1000) {
    std::string bytes(size + guard_size, untouched);
    const int result = Vesk_printer(verbose).snprint(message, bytes.data(), static_cast<int>(size));
    EXPECT_EQ(bytes.substr(size), std::string(guard_size, untouched)) << "written past the buffer";
    return {result, bytes.substr(0, size)};
}

/// The frame prints as `line` in one form: by its identifier, as its own class, and cut in every smaller buffer.
template <typename Message>
void expect_form(Frame& frame, bool verbose, const std::string& line) {
    const Printed dispatched = print(frame.as<Vesk_message>(), verbose);
    EXPECT_EQ(dispatched.text(), line);
    EXPECT_EQ(dispatched.result, static_cast<int>(line.size()));

    const Printed direct = print(frame.as<Message>(), verbose);
    EXPECT_EQ(direct.text(), line);
    EXPECT_EQ(direct.result, static_cast<int>(line.size()));

    for (unsigned size = 1; size <= line.size() + 1; ++size) {
        const Printed cut = print(frame.as<Vesk_message>(), verbose, size);
        EXPECT_EQ(cut.text(), line.substr(0, size - 1));
        EXPECT_EQ(cut.result, static_cast<int>(size) - 1);
    }
}

template <typename Message>
void expect_forms(const std::string& identifier, const std::string& body, const std::string& labelled,
                  const std::string& comma) {
    Frame frame(build_frame(identifier, body));
    expect_form<Message>(frame, true, labelled);
    expect_form<Message>(frame, false, comma);
}

/// A byte of a body.
std::string byte(int value) {
    return std::string(1, static_cast<char>(value));
}

// ---- Fixed layouts ----

TEST(Vesk_printer, prints_PG) {
    expect_forms<Msg_PG>("PG", le(0.5) + le(-1.25) + le(-12.3456) + le(0.125F) + byte(200),
                         "    PG lat=28.6478897565 lon=-71.6197243914 hgt=-12.346m sigma=0.12 type=200",
                         "    PG,28.6478897565,-71.6197243914,-12.346,0.12,200");
}

TEST(Vesk_printer, prints_RT) {
    expect_forms<Msg_RT>("~~", le(std::uint32_t(4294967295)), "RT ms=4294967295", "RT,4294967295");
}

TEST(Vesk_printer, prints_RD_day_first) {
    expect_forms<Msg_RD>("RD", le(std::uint16_t(2024)) + byte(3) + byte(7) + byte(255), "RD date=07/03/2024 base=255",
                         "RD,07/03/2024,255");
    expect_forms<Msg_RD>("RD", le(std::uint16_t(5)) + byte(12) + byte(31) + byte(0), "RD date=31/12/05 base=0",
                         "RD,31/12/05,0");
}

TEST(Vesk_printer, prints_GT) {
    expect_forms<Msg_GT>("GT", le(std::uint32_t(604799999)) + le(std::uint16_t(65535)),
                         "    GT ms=604799999 week=65535", "    GT,604799999,65535");
}

TEST(Vesk_printer, prints_NT) {
    expect_forms<Msg_NT>("NT", le(std::uint32_t(86399999)) + le(std::uint16_t(1461)), "    NT ms=86399999 day=1461",
                         "    NT,86399999,1461");
}

TEST(Vesk_printer, prints_ST) {
    expect_forms<Msg_ST>("ST", le(std::uint32_t(1234)) + byte(129), "ST ms=1234 type=129", "ST,1234,129");
}

TEST(Vesk_printer, prints_milliseconds_as_signed_numbers_except_in_RT) {
    const std::string all_ones = le(std::uint32_t(0xFFFFFFFF));
    expect_forms<Msg_GT>("GT", all_ones + le(std::uint16_t(1)), "    GT ms=-1 week=1", "    GT,-1,1");
    expect_forms<Msg_NT>("NT", all_ones + le(std::uint16_t(1)), "    NT ms=-1 day=1", "    NT,-1,1");
    expect_forms<Msg_ST>("ST", all_ones + byte(1), "ST ms=-1 type=1", "ST,-1,1");
    expect_forms<Msg_ST>("ST", le(std::uint32_t(0x80000000)) + byte(1), "ST ms=-2147483648 type=1", "ST,-2147483648,1");
}

TEST(Vesk_printer, prints_SG) {
    expect_forms<Msg_SG>("SG", le(1.5F) + le(2.25F) + le(-3.75F) + le(1e6F) + byte(4),
                         "    SG hpos=1.50 vpos=2.25 hvel=-3.75 vvel=1000000.00 type=4",
                         "    SG,1.50,2.25,-3.75,1000000.00,4");
}

TEST(Vesk_printer, prints_PS) {
    expect_forms<Msg_PS>("PS", "\x01\x02\x03\x04\x05\x06\x07\xF8",
                         "    PS type=1 locked={2,3} avail={4,5} used={6,7} fix=248", "    PS,1,{2,3},{4,5},{6,7},248");
}

std::string pv_body() {
    return le(-2700000.125) + le(-4300000.5) + le(3850000.0625) + le(0.5F) + le(1.25F) + le(-2.5F) + le(0.0625F) +
           le(0.75F) + byte(9);
}

TEST(Vesk_printer, prints_PV) {
    expect_forms<Msg_PV>("PV", pv_body(),
                         "    PV pos={-2700000.125,-4300000.500,3850000.062} psigma=0.500 vel={1.250,-2.500,0.062} "
                         "vsigma=0.750 type=9",
                         "    PV,{-2700000.125,-4300000.500,3850000.062},0.500,{1.250,-2.500,0.062},0.750,9");
}

TEST(Vesk_printer, prints_DP_with_computed_gdop_and_pdop) {
    expect_forms<Msg_DP>("DP", le(2.0F) + le(3.0F) + le(6.0F) + byte(1),
                         "    DP hdop=2.00 vdop=3.00 tdop=6.00 gdop=7.00 pdop=3.61 type=1",
                         "    DP,2.00,3.00,6.00,7.00,3.61,1");
}

TEST(Vesk_printer, prints_EE) {
    expect_forms<Msg_EE>("||", "", "EE", "EE");
}

TEST(Vesk_printer, prints_GA) {
    expect_forms<Msg_GA>("GA",
                         byte(31) + le(std::int16_t(-2)) + le(std::int32_t(-405504)) + byte(0xAB) + byte(0x0C) +
                             byte(0xFF) + le(1e-12F) + le(-2e-5F) + le(5153.5F) + le(0.015625F) + le(-1.5F) + le(2.5F) +
                             le(-0.5F) + le(0.03125F) + le(-8e-9F),
                         "GA sv=31 week=-2 ms=-405504 healthA=ab healthS=c config=ff af1=1.000e-12 af0=-2.000e-05 "
                         "rootA=5.154e+03 ecc=1.562e-02 m0=-1.500e+00 omega0=2.500e+00 argPer=-5.000e-01 "
                         "deli=3.125e-02 omegaDot=-8.000e-09",
                         "GA,31,-2,-405504,ab,c,ff,1.000e-12,-2.000e-05,5.154e+03,1.562e-02,-1.500e+00,2.500e+00,"
                         "-5.000e-01,3.125e-02,-8.000e-09");
}

TEST(Vesk_printer, prints_NA_without_an_equals_sign_after_ecc) {
    expect_forms<Msg_NA>("NA",
                         byte(24) + byte(-7) + le(std::int16_t(-300)) + le(12345.5F) + byte(0x1F) + le(-4e-5F) +
                             le(2.5e-8) + le(0.0009765625F) + le(-1.5F) + le(0.25F) + le(-2655.5F) + le(0.0078125F) +
                             le(-0.125F),
                         "NA sv=24 freq=-7 day=-300 time=12345.500 health=1f tauN=-4.000e-05 tauSys=2.500e-08 "
                         "ecc9.766e-04 lambda=-1.500e+00 argPer=2.500e-01 delT=-2.656e+03 delTdt=7.812e-03 "
                         "deli=-1.250e-01",
                         "NA,24,-7,-300,12345.500,1f,-4.000e-05,2.500e-08,9.766e-04,-1.500e+00,2.500e-01,-2.656e+03,"
                         "7.812e-03,-1.250e-01");
}

TEST(Vesk_printer, prints_nan_and_infinity) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    expect_forms<Msg_SG>("SG", le(nan) + le(infinity) + le(-infinity) + le(-0.0F) + byte(0),
                         "    SG hpos=nan vpos=inf hvel=-inf vvel=-0.00 type=0", "    SG,nan,inf,-inf,-0.00,0");
}

TEST(Vesk_printer, prints_the_fields_with_any_length_and_checksum) {
    Frame frame("RT\x7F\x7F\x7F" + le(std::uint32_t(77)));
    EXPECT_EQ(print(frame.as<Msg_RT>(), true).text(), "RT ms=77");
}

TEST(Vesk_printer, prints_missing_fields_as_0) {
    Frame frame("PS009\x01\x02");
    EXPECT_EQ(print(frame.as<Vesk_message>(), false).text(), "    PS,1,{2,0},{0,0},{0,0},0");
}

TEST(Vesk_printer, long_line_in_16_bytes_ends_after_15_characters) {
    Frame frame(build_frame("PV", pv_body()));
    const Printed printed = print(frame.as<Vesk_message>(), true, 16);
    EXPECT_EQ(printed.text(), "    PV pos={-27");
    EXPECT_EQ(printed.result, 15);
}

// ---- Lists ----

TEST(Vesk_printer, prints_lists_of_unsigned_bytes) {
    expect_forms<Msg_SI>("SI", "\x01\x7F\xFF", "SI 1 127 255", "SI,1,127,255");
    expect_forms<Msg_NN>("NN", "\x02\x80", "NN 2 128", "NN,2,128");
    expect_forms<Msg_EC>("EC", "\x03", "EC 3", "EC,3");
    expect_forms<Msg_E1>("E1", "\x04\xFE", "E1 4 254", "E1,4,254");
    expect_forms<Msg_E2>("E2", std::string("\0\0", 2), "E2 0 0", "E2,0,0");
}

TEST(Vesk_printer, prints_EL_signed) {
    expect_forms<Msg_EL>("EL", "\x5A\x80\xFF", "EL 90 -128 -1", "EL,90,-128,-1");
}

TEST(Vesk_printer, prints_AZ_doubled) {
    expect_forms<Msg_AZ>("AZ", "\x64\xB3\xFF", "AZ 200 358 510", "AZ,200,358,510");
}

TEST(Vesk_printer, prints_SS_without_the_byte_before_the_checksum) {
    expect_forms<Msg_SS>("SS", "\x0A\xFA\x63", "SS 10 250", "SS,10,250");
}

TEST(Vesk_printer, prints_TC_unsigned_and_past_the_body) {
    // Four entries: the two of the body, then checksum and line end, then nothing.
    Frame frame("TC005" + le(std::uint16_t(65534)) + le(std::uint16_t(3)) + "\x01\n");
    expect_form<Msg_TC>(frame, true, "TC 65534 3 2561 0");
    expect_form<Msg_TC>(frame, false, "TC,65534,3,2561,0");
}

TEST(Vesk_printer, a_list_without_entries_is_its_identifier) {
    expect_forms<Msg_SI>("SI", "", "SI", "SI");
    expect_forms<Msg_NN>("NN", "", "NN", "NN");
    expect_forms<Msg_EC>("EC", "", "EC", "EC");
    expect_forms<Msg_E1>("E1", "", "E1", "E1");
    expect_forms<Msg_E2>("E2", "", "E2", "E2");
    expect_forms<Msg_EL>("EL", "", "EL", "EL");
    expect_forms<Msg_AZ>("AZ", "", "AZ", "AZ");
    expect_forms<Msg_TC>("TC", "", "TC", "TC");
    expect_forms<Msg_SS>("SS", "\x63", "SS", "SS");
}

TEST(Vesk_printer, a_list_of_length_4_has_three_entries_and_SS_two) {
    expect_forms<Msg_SI>("SI", "\x01\x02\x03", "SI 1 2 3", "SI,1,2,3");
    expect_forms<Msg_SS>("SS", "\x01\x02\x03", "SS 1 2", "SS,1,2");
}

TEST(Vesk_printer, prints_as_many_entries_as_the_length_field_gives) {
    Frame frame("SIFFF\x09");
    std::string line = "SI,9";
    for (int i = 1; i < 4094; ++i)
        line += ",0";
    EXPECT_EQ(print(frame.as<Vesk_message>(), false, 10000).text(), line);
}

/// The text that `act` writes to standard output. `act` must not report failures: they would be written there, too.
template <typename Act>
std::string standard_output_of(Act act) {
    const Captured_descriptor output(STDOUT_FILENO);
    act();
    return output.text();
}

template <typename Message>
void expect_too_short(const std::string& header) {
    Frame frame(header + "\n");
    Printed dispatched, direct;
    const std::string output = standard_output_of([&] {
        dispatched = print(frame.as<Vesk_message>(), true, 50);
        direct = print(frame.as<Message>(), false, 50);
    });
    const std::string line = header.substr(0, 2) + " message too short\n";
    EXPECT_EQ(output, line + line);
    EXPECT_TRUE(dispatched.buffer_is_untouched());
    EXPECT_TRUE(direct.buffer_is_untouched());
    EXPECT_EQ(dispatched.result, 0);
    EXPECT_EQ(direct.result, 0);
}

TEST(Vesk_printer, reports_on_standard_output_that_a_list_is_too_short) {
    expect_too_short<Msg_SI>("SI000");
    expect_too_short<Msg_NN>("NN000");
    expect_too_short<Msg_EC>("EC000");
    expect_too_short<Msg_E1>("E1000");
    expect_too_short<Msg_E2>("E2000");
    expect_too_short<Msg_EL>("EL000");
    expect_too_short<Msg_AZ>("AZ000");
    expect_too_short<Msg_TC>("TC000");
    expect_too_short<Msg_SS>("SS000");
    expect_too_short<Msg_SS>("SS001");
    expect_too_short<Msg_SI>("SI0x4"); // a bad length field is a length of 0
}

// ---- Texts ----

TEST(Vesk_printer, prints_texts_unchanged) {
    for (const char* identifier : {"RE", "ER", "DL", "NP"}) {
        const std::string bytes = build_frame(identifier, "%s%n,hello@", Checksum::text, "\r\n");
        Frame frame(bytes);
        for (const bool verbose : {true, false}) {
            const Printed whole = print(frame.as<Vesk_message>(), verbose);
            EXPECT_EQ(whole.text(), bytes);
            EXPECT_EQ(whole.result, static_cast<int>(bytes.size()));
        }
    }
}

TEST(Vesk_printer, returns_the_full_length_of_a_cut_text) {
    Frame frame("RE00Csome text@00\n");
    for (unsigned size = 1; size <= 18; ++size) {
        const Printed cut = print(frame.as<Vesk_message>(), true, size);
        EXPECT_EQ(cut.text(), frame.bytes().substr(0, size - 1));
        EXPECT_EQ(cut.result, 18);
    }
}

TEST(Vesk_printer, a_text_ends_at_its_first_NUL) {
    Frame frame(std::string("RE004ab\0cd\n", 11));
    EXPECT_EQ(print(frame.as<Vesk_message>(), true).text(), "RE004ab");
    EXPECT_EQ(print(frame.as<Vesk_message>(), true).result, 7);
}

// ---- Unknown identifiers ----

TEST(Vesk_printer, dumps_an_unknown_frame_and_reports_it) {
    Frame frame("XY002\x0A\xFF");
    const Captured_descriptor errors(STDERR_FILENO);
    const Printed printed = print(frame.as<Vesk_message>(), true);
    EXPECT_EQ(printed.text(), "XY ???:  58 59 30 30 32 0a ff\n");
    EXPECT_EQ(printed.result, 0);
    EXPECT_EQ(errors.text(), "UNKNOWN XY\n");
}

TEST(Vesk_printer, cuts_the_dump_anywhere) {
    Frame frame("XY002\x0A\xFF");
    const std::string dump = "XY ???:  58 59 30 30 32 0a ff\n";
    const Captured_descriptor errors(STDERR_FILENO);
    for (unsigned size = 1; size <= dump.size() + 1; ++size) {
        const Printed cut = print(frame.as<Vesk_message>(), false, size);
        EXPECT_EQ(cut.text(), dump.substr(0, size - 1));
        EXPECT_EQ(cut.result, 0);
    }
}

TEST(Vesk_printer, dumps_block_messages_and_printed_names_as_unknown) {
    const Captured_descriptor errors(STDERR_FILENO);
    for (const char* identifier : {"PA", "S1", "S2", "RT", "EE", "pg", "GP"}) {
        Frame frame(build_frame(identifier, "", Checksum::binary, ""));
        const Printed printed = print(frame.as<Vesk_message>(), true);
        EXPECT_EQ(printed.text().substr(0, 8), identifier + std::string(" ???: "));
        EXPECT_EQ(printed.result, 0);
    }
    EXPECT_EQ(errors.text(), "UNKNOWN PA\nUNKNOWN S1\nUNKNOWN S2\nUNKNOWN RT\nUNKNOWN EE\nUNKNOWN pg\nUNKNOWN GP\n");
}

TEST(Vesk_printer, a_NUL_in_an_unknown_identifier_ends_the_head_of_the_dump) {
    Frame frame(std::string("X\0", 2));
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_EQ(print(frame.as<Vesk_message>(), true).text(), "X 58 00\n");
    EXPECT_EQ(errors.text(), std::string("UNKNOWN X\0\n", 11));
}

TEST(Vesk_printer, dumps_frames_shorter_than_an_identifier) {
    Frame one("P"), none("");
    const Captured_descriptor errors(STDERR_FILENO);
    EXPECT_EQ(print(one.as<Vesk_message>(), true).text(), "P 50\n");
    EXPECT_EQ(print(none.as<Vesk_message>(), true).text(), "\n");
}

// ---- Buffers ----

TEST(Vesk_printer, with_a_size_of_0_nothing_is_written_and_only_texts_return_their_length) {
    const Captured_descriptor errors(STDERR_FILENO);
    for (const char* identifier : {"PV", "SI", "RE", "XY"}) {
        Frame frame(build_frame(identifier, "abcde"));
        const int expected = identifier == std::string("RE") ? static_cast<int>(frame.bytes().size()) : 0;
        for (const int size : {0, -1, std::numeric_limits<int>::min()}) {
            char byte = untouched;
            EXPECT_EQ(Vesk_printer(true).snprint(frame.as<Vesk_message>(), &byte, size), expected) << identifier;
            EXPECT_EQ(byte, untouched);
            EXPECT_EQ(Vesk_printer(true).snprint(frame.as<Vesk_message>(), nullptr, size), expected) << identifier;
        }
    }
}

TEST(Vesk_printer, prints_frames_cut_anywhere) {
    for (const char* identifier : {"PG", "~~", "RD", "GT", "NT", "SG", "PS", "PV", "DP", "ST", "||", "SI", "NN",
                                   "SS", "TC", "GA", "NA", "EL", "AZ", "EC", "E1", "E2", "RE", "ER", "DL", "NP"}) {
        const std::string whole = build_frame(identifier, std::string(50, 'z'));
        for (std::size_t size = 5; size < whole.size(); ++size) {
            Frame frame(whole.substr(0, size));
            const Printed printed = print(frame.as<Vesk_message>(), size % 2 == 0);
            EXPECT_EQ(printed.result, static_cast<int>(printed.text().size())) << identifier << ' ' << size;
            EXPECT_NE(printed.result, 0) << identifier << ' ' << size;
        }
    }
}

TEST(Vesk_printer, reports_a_list_without_a_whole_header_as_too_short) {
    Frame frame("AZ00");
    Printed printed;
    EXPECT_EQ(standard_output_of([&] { printed = print(frame.as<Vesk_message>(), true); }), "AZ message too short\n");
    EXPECT_TRUE(printed.buffer_is_untouched());
}

std::string random_frame(Random& random) {
    static const std::string identifiers = "PG~~RDGTNTSGPSPVDPST||SINNSSTCGANAELAZECE1E2REERDLNPXY";
    std::string frame = identifiers.substr(2 * random.between(0, static_cast<unsigned>(identifiers.size()) / 2 - 1), 2);
    char length[8];
    std::snprintf(length, sizeof length, "%03X", random.one_in(10) ? random.between(0, 4095) : random.between(0, 60));
    frame += random.one_in(20) ? random.bytes(3) : length;
    frame += random.bytes(random.between(0, 70));
    if (random.one_in(20))
        frame.resize(random.between(0, 7));
    return frame;
}

TEST(Vesk_printer, random_frames_print_the_same_in_buffers_of_every_size) {
    constexpr unsigned longest_line = 30000;
    Random random;
    const Captured_descriptor errors(STDERR_FILENO);
    for (int step = 0; step < 3000; ++step) {
        Frame frame(random_frame(random));
        const bool verbose = random.one_in(2);
        const unsigned size = random.between(1, 400);
        Printed whole, cut;
        standard_output_of([&] {
            whole = print(frame.as<Vesk_message>(), verbose, longest_line);
            cut = print(frame.as<Vesk_message>(), verbose, size);
        });
        if (whole.buffer_is_untouched())
            ASSERT_TRUE(cut.buffer_is_untouched()) << testing::PrintToString(frame.bytes());
        else
            ASSERT_EQ(cut.text(), whole.text().substr(0, size - 1)) << testing::PrintToString(frame.bytes());
    }
}

} // namespace
