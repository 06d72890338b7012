#include <glue/vesk/Vesk_error_decoder.h>

#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <support/fakes/Scripted_stream.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

const char* const phrases[] = {
    "wrong command",
    "1st parameter missed",
    "wrong 1st parameter",
    "value missed",
    "value out of range",
    "2nd parameter missed",
    "wrong 2nd parameter",
    "wrong file name",
    "file open error",
    "file system not mounted",
    "file read error",
    "file already exists",
    "data transfer open",
    "can't create file",
    "terminated by user",
    "wrong receiver id",
    "wrong option name",
    "bad option date",
    "bad option value",
    "access denied",
    "option disabled",
    "operation in progress",
    "no file system device",
    "dup loop",
    "not supported",
    "can't remove file",
    "device is not accessible",
    "broken file",
    "wrong hardware version",
    "incompatible file version",
    "file write error",
    "data transfer error",
    "can't lock",
    "no valid mass storage found",
    "can't create work directory",
    "file system not supported",
    "file not found",
    "can't copy onto itself",
    "device is write protected",
    "device busy,invalid file length",
    "data transfer delay",
};

int extract(const std::string& text) {
    return Vesk_error_decoder::extract(text.c_str());
}

} // namespace

TEST(Vesk_error_decoder, every_code_has_its_phrase_after_a_comma) {
    static_assert(std::size(phrases) == 41);
    for (int code = 1; code <= 41; ++code) {
        const std::string text = std::string(",") + phrases[code - 1];
        EXPECT_EQ(errcode2str(code), text);
        EXPECT_EQ(Vesk::errcode2str(static_cast<Vesk::vesk_ret_t>(code)), text);
    }
}

TEST(Vesk_error_decoder, other_codes_have_none) {
    for (const int code : {0, -1, 42, 43, 1000000, -2147483647}) {
        EXPECT_EQ(errcode2str(code), nullptr) << code;
        EXPECT_EQ(Vesk::errcode2str(static_cast<Vesk::vesk_ret_t>(code)), nullptr) << code;
    }
    EXPECT_EQ(Vesk::err_unassigned, 42);
    EXPECT_EQ(Vesk::err_data_transfer_delay, 41);
}

TEST(Vesk_error_decoder, every_phrase_has_its_code) {
    for (int code = 1; code <= 41; ++code)
        EXPECT_EQ(Vesk_error_decoder::get(phrases[code - 1]), code) << phrases[code - 1];
}

TEST(Vesk_error_decoder, other_texts_have_no_code) {
    for (const char* text : {"", ",file not found", "file not foun", "file not found ", "File not found", "zzz", "a"})
        EXPECT_EQ(Vesk_error_decoder::get(text), -1) << text;
    EXPECT_EQ(Vesk_error_decoder::get(nullptr), -1);
}

TEST(Vesk_error_decoder, another_init_changes_nothing) {
    for (int i = 0; i < 3; ++i)
        Vesk_error_decoder::init();
    EXPECT_EQ(Vesk_error_decoder::get("wrong command"), 1);
    EXPECT_EQ(Vesk_error_decoder::get("data transfer delay"), 41);
}

TEST(Vesk_error_decoder, extracts_the_last_field) {
    EXPECT_EQ(extract("{37,file not found}"), 37);
    EXPECT_EQ(extract("{37,file not found}\r\n"), 37);
    EXPECT_EQ(extract("%7%{1,wrong command}"), 1);
    EXPECT_EQ(extract("access denied"), 20) << "a text without a comma is one field";
    EXPECT_EQ(extract(",,,access denied"), 20);
    EXPECT_EQ(extract("{20,access denied},file not found"), 37);
}

TEST(Vesk_error_decoder, extracts_nothing_when_the_last_field_is_not_a_phrase) {
    for (const char* text : {"", ",", "{37,file not found},", "ab", ",ab", "file not found,x", "file not found,zzz"})
        EXPECT_EQ(extract(text), -1) << text;
    EXPECT_EQ(Vesk_error_decoder::extract(nullptr), -1);
    EXPECT_EQ(extract("{37, file not found}"), -1) << "a blank belongs to the phrase";
    EXPECT_EQ(extract("{37,file not found \r\n"), -1) << "a blank before the line end, too";
    EXPECT_EQ(extract("{37,file not\nfound\n"), -1) << "a line end within the phrase, too";
}

TEST(Vesk_error_decoder, line_end_does_not_belong_to_the_phrase) {
    for (const char* line_end : {"\r\n", "\n", "\r", "\r\n\r\n"}) {
        EXPECT_EQ(extract(std::string("{37,file not found") + line_end), 37);
        EXPECT_EQ(extract(std::string("file not found") + line_end), 37);
        EXPECT_EQ(extract(std::string("{37,file not found},") + line_end), -1);
        EXPECT_EQ(extract(line_end), -1);
    }
}

TEST(Vesk_error_decoder, extracts_the_code_from_a_reply_as_the_parser_delivers_it) {
    Scripted_stream stream;
    stream.receive("ER012%7%,file not found\r\n");
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    int len = 0;
    ASSERT_EQ(parser.get_packet(packet, sizeof packet, len), Vesk_parser::reply);
    const Vesk_response response(packet, static_cast<unsigned>(len));
    EXPECT_STREQ(response.get_response_string(), "%7%,file not found\r\n");
    EXPECT_EQ(Vesk_error_decoder::extract(response.get_response_string()), 37);
}

TEST(Vesk_error_decoder, two_phrases_of_one_code_are_found_whole_only) {
    EXPECT_EQ(Vesk_error_decoder::get("device busy,invalid file length"), 40);
    EXPECT_EQ(extract("{40,device busy,invalid file length}"), -1);
    EXPECT_EQ(extract("{40,device busy}"), -1);
}

TEST(Vesk_error_decoder, field_is_cut_at_63_characters) {
    const std::string blanks(100, 'x');
    EXPECT_EQ(extract(blanks), -1);
    EXPECT_EQ(extract(blanks + ",dup loop}"), 24) << "a long field costs nothing but itself";
    const std::string long_field = "dup loop}" + std::string(1000, 'y');
    EXPECT_EQ(extract("," + long_field), 24);
}

TEST(Vesk_error_decoder, items_compare_by_their_texts) {
    const Vesk_error_decoder::Item a{"a", 9};
    const Vesk_error_decoder::Item b{"b", 1};
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(b > a);
    EXPECT_FALSE(a > a);
    EXPECT_FALSE(a < a);
    EXPECT_EQ(Vesk_error_decoder::Item().text, nullptr);
    EXPECT_EQ(Vesk_error_decoder::Item().code, -1);
}
