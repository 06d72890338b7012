// The page on wire and file formats: what its examples say is what the library reads and writes.

#include "documented_settings.h"

#include <glue/data_stream/AIM_data_stream_adapter.h>
#include <glue/data_stream/AIM_message.h>
#include <glue/data_stream/File_checksummed_data_stream.h>
#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <monitor/Preferences.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Scripted_stream.h>
#include <support/files/Temporary_folder.h>
#include <support/processes/Program.h>
#include <support/settings/Settings_bytes.h>

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

namespace {

using NV_store::NV_iterator;

/// The fenced blocks of the page by what stands behind the fence, as they are.
std::map<std::string, std::string> blocks_of_page() {
    std::ifstream page(FORMATS_PAGE);
    std::map<std::string, std::string> blocks;
    std::string name;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```", 0) == 0)
            name = line.substr(3);
        else if (!name.empty())
            blocks[name] += line + "\n";
    }
    return blocks;
}

std::string block(const std::string& name) {
    const auto blocks = blocks_of_page();
    const auto found = blocks.find(name);
    EXPECT_TRUE(found != blocks.end()) << name;
    return found == blocks.end() ? "" : found->second;
}

/// The bytes of a block of hexadecimal digits, whose offsets must be right, `begin` being the first.
std::string documented_bytes(const std::string& name, std::size_t begin = 0) {
    std::istringstream lines(block("hex " + name));
    std::string bytes;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find(';')));
        std::string word;
        words >> word;
        EXPECT_EQ(std::stoul(word, nullptr, 16), begin + bytes.size()) << line;
        while (words >> word)
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}

std::string full_save() {
    return documented_bytes("full save");
}

std::string incremental_save() {
    return documented_bytes("incremental save", full_save().size());
}

std::string saved(NV_store::NV_item& tree, NV_iterator::modes_t mode) {
    Settings_bytes it(mode);
    EXPECT_TRUE(tree.serialise(&it));
    return it.bytes();
}

NV_store::NV_load_result load(NV_store::NV_item& tree, const std::string& bytes) {
    Settings_bytes it(bytes);
    return load_all(tree, it);
}

using Mode = Documented_settings::Guidance::Mode;

void expect_documented_values(const Documented_settings& tree, float swath_width) {
    EXPECT_EQ(tree.starts.get(), 300U);
    EXPECT_EQ(tree.guidance.swath_width.get(), swath_width);
    EXPECT_TRUE(tree.guidance.beeper.get());
    EXPECT_EQ(tree.guidance.mode.value(), Mode::closed_loop);
    EXPECT_EQ(tree.offsets.left.get(), -5);
    EXPECT_EQ(tree.offsets.right.get(), 6);
}

/// A view of a frame, and the frame itself, which may be changed.
struct Frame {
    explicit Frame(std::string content) : bytes(std::move(content)) {}
    unsigned char* data() { return reinterpret_cast<unsigned char*>(bytes.data()); }
    unsigned size() const { return static_cast<unsigned>(bytes.size()); }
    std::string bytes;
};

/// What a parser makes of a line.
Vesk_parser::Packet_kind first_packet(const std::string& line) {
    Scripted_stream stream;
    stream.receive(line);
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    int len = 0;
    return static_cast<Vesk_parser::Packet_kind>(parser.get_packet(packet, sizeof packet, len));
}

} // namespace

// ---- Settings records ----

TEST(Formats_page, tree_is_the_one_of_these_tests) {
    std::ifstream header(DOCUMENTED_SETTINGS);
    const std::string text{std::istreambuf_iterator<char>(header), {}};
    EXPECT_THAT(text, testing::EndsWith(".\n" + block("cpp")));
}

TEST(Formats_page, full_save_loads_and_is_saved_again_to_the_same_bytes) {
    Documented_settings tree;
    const NV_store::NV_load_result result = load(tree, full_save());
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(result.loaded, 1U);
    expect_documented_values(tree, 9.5F);
    EXPECT_EQ(tree.shown.get(), &tree.guidance.swath_width);
    EXPECT_EQ(saved(tree, NV_iterator::writing_all), full_save());
}

TEST(Formats_page, incremental_save_loads_behind_it_and_is_what_a_change_leads_to) {
    Documented_settings tree;
    const NV_store::NV_load_result result = load(tree, full_save() + incremental_save());
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(result.loaded, 2U);
    expect_documented_values(tree, 10);

    Documented_settings changed;
    load(changed, full_save());
    changed.guidance.swath_width.set(10);
    EXPECT_EQ(saved(changed, NV_iterator::appending_changed), incremental_save());
}

TEST(Formats_page, tool_shows_the_saves_as_the_page_does) {
    const Temporary_folder folder;
    const Program_result result =
        Program(SETTINGS_TOOL, {folder.make_file("settings", full_save() + incremental_save())}).run();
    EXPECT_EQ(result.output, block("settings_tool"));
    EXPECT_EQ(result.status, 0);
}

TEST(Formats_page, preferences_are_the_monitors) {
    const Temporary_folder folder;
    Preferences loaded(folder.make_file("documented", documented_bytes("preferences")));
    EXPECT_EQ(loaded.load(), Preferences::Content::intact);
    EXPECT_EQ(loaded.format(), Preferences::Format::comma);
    EXPECT_EQ(loaded.stream(), "tcp:1");

    Preferences kept(folder.path("kept"));
    kept.set_format(Preferences::Format::comma);
    kept.set_stream("tcp:1");
    std::string reason;
    ASSERT_TRUE(kept.save(reason)) << reason;
    EXPECT_EQ(folder.content_of("kept"), documented_bytes("preferences"));
}

// ---- Values for a peer ----

TEST(Formats_page, values_for_a_peer_are_taken_and_sent) {
    const std::string bytes = documented_bytes("values for a peer");
    Documented_settings tree;
    CDS::Remote::Receive_buffer arrived(reinterpret_cast<const unsigned char*>(bytes.data()),
                                        static_cast<int>(bytes.size()));
    unsigned short counter = 0;
    EXPECT_FALSE(tree.deserialise(arrived, counter).fail());
    EXPECT_EQ(arrived.left(), 0);
    expect_documented_values(tree, 9.5F);

    unsigned char room[100];
    CDS::Remote::Send_buffer sent(room, sizeof room);
    counter = 0;
    EXPECT_FALSE(tree.serialise(sent, counter).fail());
    EXPECT_EQ(std::string(room, room + sent.size()), bytes);
}

TEST(Formats_page, structure_description_is_what_the_tree_tells) {
    Documented_settings tree;
    unsigned short number = 100;
    for (NV_store::NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
        item->set_data_number(number++);
    unsigned char room[300];
    CDS::Remote::Send_buffer sent(room, sizeof room);
    EXPECT_TRUE(tree.serialise_structure(sent, 255));
    EXPECT_EQ(std::string(room, room + sent.size()) + "\n", block("text structure description"));
}

// ---- Checksummed files ----

TEST(Formats_page, checksummed_file_verifies_and_is_written_so) {
    const std::string content = "wheelbase 2890\n";
    const Temporary_folder folder;
    File_checksummed_data_stream reader;
    ASSERT_TRUE(reader.open_read(folder.make_file("documented", documented_bytes("checksummed file")).c_str()));
    reader.get_data(100);
    EXPECT_EQ(take_buffered(reader), content);

    File_checksummed_data_stream writer;
    ASSERT_TRUE(writer.open_write(folder.path("written").c_str()));
    writer.printf("%s", content.c_str());
    writer.close_write();
    EXPECT_EQ(folder.content_of("written"), documented_bytes("checksummed file"));
}

// ---- Frames ----

TEST(Formats_page, binary_frame_is_the_time_of_the_receiver) {
    const std::string bytes = documented_bytes("binary frame");
    EXPECT_EQ(first_packet(bytes), Vesk_parser::frame);
    Frame frame(bytes);
    Vesk_message message(frame.data(), frame.size());
    EXPECT_TRUE(message.validate(Vesk_message::msg_id('~', '~')));
    EXPECT_EQ(message.get_msg_len(), 5U);
    EXPECT_EQ(message.get_uint32_le(5), 1234U);

    frame.bytes[9] = '\0';
    EXPECT_TRUE(message.set_checksum(true));
    EXPECT_EQ(frame.bytes, bytes);
}

TEST(Formats_page, text_frame_has_its_checksum_in_digits) {
    const std::string bytes = documented_bytes("text frame");
    EXPECT_EQ(first_packet(bytes), Vesk_parser::frame);
    Frame frame(bytes);
    Vesk_message message(frame.data(), frame.size());
    EXPECT_TRUE(message.validate(Vesk_message::msg_id('X', 'Y')));
    EXPECT_EQ(bytes.substr(5, message.get_msg_len() - 2), "rows@");

    frame.bytes.replace(10, 2, "..");
    EXPECT_TRUE(message.set_checksum(false));
    EXPECT_EQ(frame.bytes, bytes);
}

TEST(Formats_page, reply_is_one) {
    const std::string bytes = documented_bytes("reply");
    EXPECT_EQ(first_packet(bytes), Vesk_parser::reply);
    Frame frame(bytes + '\0');
    Vesk_response response(frame.data(), frame.size());
    EXPECT_TRUE(response.get_response_status());
    EXPECT_STREQ(response.get_response_string(), "done\r\n");
}

TEST(Formats_page, single_bytes_accept_and_refuse) {
    EXPECT_EQ(first_packet("\x06"), Vesk_parser::acknowledgement);
    EXPECT_EQ(first_packet("\x15"), Vesk_parser::acknowledgement);
}

TEST(Formats_page, AIM_frame_is_read_and_built) {
    const std::string bytes = documented_bytes("AIM frame");
    EXPECT_EQ(first_packet(bytes), Vesk_parser::frame);
    Frame frame(bytes);
    Vesk_message message(frame.data(), frame.size());
    ASSERT_TRUE(message.validate(AIM_message::identifier));
    const AIM_message received(message);
    EXPECT_EQ(received.get_chan(), '1');
    EXPECT_EQ(std::string(received.get_data(), received.get_data() + received.get_len()), "abc");

    Frame built(std::string(AIM_message::calc_buffer_size(3), '.'));
    AIM_message(built.data(), built.size()).set('1', bytes_of("abc"), 3);
    EXPECT_EQ(built.bytes + "\n", bytes);
}

TEST(Formats_page, largest_AIM_payload_is_the_one_that_a_receiver_takes) {
    std::ifstream page(FORMATS_PAGE);
    const std::string text{std::istreambuf_iterator<char>(page), {}};
    EXPECT_THAT(text,
                testing::HasSubstr("at most " + std::to_string(AIM_data_stream_adapter::longest_read) + " bytes"));
    EXPECT_THAT(text, testing::HasSubstr("more than " + std::to_string(AIM_message::length_limit - 4) + " the length"));
}
