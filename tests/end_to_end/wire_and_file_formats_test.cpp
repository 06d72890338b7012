// The page on wire and file formats: the library reads and writes what its examples and tables show.

#include "documented_settings.h"

#include <glue/data_stream/AIM_data_stream_adapter.h>
#include <glue/data_stream/AIM_message.h>
#include <glue/data_stream/File_checksummed_data_stream.h>
#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <monitor/Preferences.h>

#include <support/builders/Packets.h>
#include <support/builders/Record_builder.h>
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
#include <vector>

namespace {

using NV_store::NV_iterator;

/// The fenced blocks of the page, by the text after the opening fence.
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

/// The bytes of a block of hexadecimal digits. Its offsets must be right and begin with `begin`.
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

/// The bytes of a frame, for a view that may change them.
struct Frame {
    explicit Frame(std::string content) : bytes(std::move(content)) {}
    unsigned char* data() { return reinterpret_cast<unsigned char*>(bytes.data()); }
    unsigned size() const { return static_cast<unsigned>(bytes.size()); }
    std::string bytes;
};

/// The packets that a parser finds in received bytes.
std::vector<Packet> parsed(const std::string& bytes) {
    Scripted_stream stream;
    stream.receive(bytes);
    Vesk_parser parser(&stream, false);
    parser.set_keep_on_error(true); // every byte of noise is in a packet
    std::vector<Packet> packets = packets_of(parser);
    EXPECT_EQ(parser.get_byte_counts().total(), bytes.size());
    return packets;
}

int first_packet(const std::string& bytes) {
    const std::vector<Packet> packets = parsed(bytes);
    return packets.empty() ? Vesk_parser::nothing : packets[0].kind;
}

/// A row of the table of records: the container that encloses the record, the record, the documented result.
struct Record_row {
    std::string container;
    std::string record;
    std::string result;
};

std::vector<Record_row> rows_of_records() {
    std::ifstream page(FORMATS_PAGE);
    std::vector<Record_row> rows;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| 0", 0) != 0 || line.find('`') == std::string::npos)
            continue;
        std::istringstream cells(line.substr(2));
        Record_row row;
        std::string record;
        std::string meaning;
        std::getline(cells, row.container, '|');
        std::getline(cells, record, '|');
        std::getline(cells, meaning, '|');
        std::getline(cells, row.result, '|');
        const auto begin = record.find('`') + 1;
        row.record = from_hex(record.substr(begin, record.rfind('`') - begin) + ' ');
        rows.push_back(row);
    }
    return rows;
}

/// A save of the documented tree with this record alone.
std::string save_with(const Record_row& row) {
    Record_builder save;
    save.open(0, 0);
    if (row.container == "0 ")
        return save.raw(row.record).close();
    return save.open(1, 2).raw(row.record).close().close();
}

/// The number that a row says is loaded, in the documented tree.
unsigned loaded_number(const Record_row& row, const Documented_settings& tree) {
    return row.container == "0 " ? tree.starts.get() : static_cast<unsigned>(tree.guidance.mode.value());
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

TEST(Formats_page, incremental_save_loads_after_the_full_one_and_is_saved_after_a_change) {
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

TEST(Formats_page, records_are_loaded_skipped_or_damaged_as_the_table_shows) {
    std::map<std::string, int> results;
    for (const Record_row& row : rows_of_records()) {
        SCOPED_TRACE(testing::PrintToString(row.record) + row.result);
        Documented_settings tree;
        const unsigned before = loaded_number(row, tree);
        const NV_store::NV_load_result result = load(tree, save_with(row));
        EXPECT_EQ(result.intact, row.result != " damaged ");
        if (row.result.rfind(" loaded: ", 0) == 0) {
            EXPECT_EQ(loaded_number(row, tree), std::stoul(row.result.substr(9)));
        } else {
            EXPECT_EQ(loaded_number(row, tree), before);
        }
        ++results[row.result.substr(0, row.result.find(':'))];
    }
    EXPECT_EQ(results, (std::map<std::string, int>{{" damaged ", 11}, {" loaded", 4}, {" skipped ", 2}}));
}

TEST(Formats_page, list_without_all_of_its_children_changes_the_wrong_one) {
    Documented_settings tree;
    tree.offsets.left.set(11);
    tree.offsets.right.set(12);
    const std::string list = Record_builder().open(13, 3).value(8, 1, low_bytes(7, 2)).close();
    EXPECT_FALSE(load(tree, Record_builder().open(0, 0).raw(list).close()).intact);
    EXPECT_EQ(tree.offsets.left.get(), 7);
    EXPECT_EQ(tree.offsets.right.get(), 12);
}

TEST(Formats_page, root_with_another_id_or_type_is_damaged) {
    for (const int type : {0, 1})
        for (const int id : {0, 1}) {
            Documented_settings tree;
            const std::string save = Record_builder().open(type, id).value(6, 1, low_bytes(7, 4)).close();
            EXPECT_EQ(load(tree, save).intact, type == 0 && id == 0);
            EXPECT_EQ(tree.starts.get(), type == 0 && id == 0 ? 7U : 0U);
        }
}

TEST(Formats_page, later_record_of_a_setting_stays) {
    Documented_settings tree;
    const auto save = Record_builder().open(0, 0).value(6, 1, low_bytes(7, 4)).value(6, 1, low_bytes(8, 4)).close();
    EXPECT_TRUE(load(tree, save).intact);
    EXPECT_EQ(tree.starts.get(), 8U);
}

TEST(Formats_page, negative_enumerator_is_stored_in_four_bytes) {
    enum class Side : int { left = -1, right = 1 };
    struct Tree : NV_store::NV_root {
        Tree() : NV_root(nullptr, 0, "tree") { _set_root(this); }
        NV_store::NV_enum<Side> side{this, 3, Side::left, "side"};
    } tree;
    EXPECT_THAT(saved(tree, NV_iterator::writing_all), testing::HasSubstr(from_hex("03 00 09 06 FF FF FF FF ")));
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

TEST(Formats_page, values_for_a_peer_are_received_and_sent) {
    const std::string bytes = documented_bytes("values for a peer");
    Documented_settings tree;
    CDS::Remote::Receive_buffer received(reinterpret_cast<const unsigned char*>(bytes.data()),
                                         static_cast<int>(bytes.size()));
    unsigned short counter = 0;
    EXPECT_FALSE(tree.deserialise(received, counter).fail());
    EXPECT_EQ(received.left(), 0);
    expect_documented_values(tree, 9.5F);

    unsigned char space[100];
    CDS::Remote::Send_buffer sent(space, sizeof space);
    counter = 0;
    EXPECT_FALSE(tree.serialise(sent, counter).fail());
    EXPECT_EQ(std::string(space, space + sent.size()), bytes);
}

TEST(Formats_page, values_from_the_nth_node_on_are_sent_and_containers_and_pointers_count) {
    const std::string bytes = documented_bytes("values for a peer");
    Documented_settings tree;
    load(tree, full_save());
    const std::size_t first_byte[] = {0, 0, 4, 4, 8, 9, 13, 13, 15, 17, 17}; // by node, the root being the first
    for (unsigned short node = 0; node < 11; ++node) {
        unsigned char space[100];
        CDS::Remote::Send_buffer sent(space, sizeof space);
        unsigned short counter = node;
        EXPECT_FALSE(tree.serialise(sent, counter).fail());
        EXPECT_EQ(std::string(space, space + sent.size()), bytes.substr(first_byte[node])) << node;
    }
}

TEST(Formats_page, type_byte_of_an_array_is_64_more_and_of_a_matrix_128_more) {
    EXPECT_EQ(Data_item::get_type_byte(DTS::Defs::single, 10), 10);
    EXPECT_EQ(Data_item::get_type_byte(DTS::Defs::array, 10), 64 + 10);
    EXPECT_EQ(Data_item::get_type_byte(DTS::Defs::matrix, 10), 128 + 10);
}

TEST(Formats_page, structure_description_is_the_one_of_the_tree) {
    Documented_settings tree;
    unsigned short number = 100;
    for (NV_store::NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
        item->set_data_number(number++);
    unsigned char space[300];
    CDS::Remote::Send_buffer sent(space, sizeof space);
    EXPECT_TRUE(tree.serialise_structure(sent, 255));
    EXPECT_EQ(std::string(space, space + sent.size()) + "\n", block("text structure description"));
}

// ---- Checksummed files ----

TEST(Formats_page, checksummed_file_is_verified_and_written) {
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

TEST(Formats_page, checksum_digits_of_a_file_are_read_in_lower_case) {
    std::string bytes = documented_bytes("checksummed file");
    bytes[bytes.size() - 8] = 'c';
    bytes[bytes.size() - 7] = 'b';
    const Temporary_folder folder;
    File_checksummed_data_stream reader;
    EXPECT_TRUE(reader.open_read(folder.make_file("lower", bytes).c_str()));
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

TEST(Formats_page, digits_of_a_text_frame_are_read_in_lower_case) {
    const std::string bytes = documented_bytes("text frame in lower case");
    EXPECT_EQ(first_packet(bytes), Vesk_parser::frame);
    Frame frame(bytes);
    const Vesk_message message(frame.data(), frame.size());
    EXPECT_TRUE(message.validate(Vesk_message::msg_id('X', 'Y')));
    EXPECT_EQ(bytes.substr(5, message.get_msg_len() - 2), "columns@");
}

TEST(Formats_page, AIM_checksum_is_read_in_lower_case) {
    Frame frame(documented_bytes("AIM frame"));
    frame.bytes[9] = 'd';
    EXPECT_TRUE(Vesk_message(frame.data(), frame.size()).validate(AIM_message::identifier));
}

TEST(Formats_page, reply_is_delivered_as_a_reply_whether_its_length_counts_the_CR_or_not) {
    const std::string bytes = documented_bytes("reply");
    EXPECT_EQ(first_packet(bytes), Vesk_parser::reply);
    std::string counted = bytes;
    counted[4] = '5';
    EXPECT_EQ(first_packet(counted), Vesk_parser::reply);
    Frame frame(bytes + '\0');
    Vesk_response response(frame.data(), frame.size());
    EXPECT_TRUE(response.get_response_status());
    EXPECT_STREQ(response.get_response_string(), "done\r\n");
}

TEST(Formats_page, single_bytes_accept_and_refuse) {
    EXPECT_EQ(documented_bytes("acknowledgement"), std::string(1, Vesk_parser::accepted_byte));
    EXPECT_EQ(first_packet(documented_bytes("acknowledgement")), Vesk_parser::acknowledgement);
    EXPECT_EQ(first_packet("\x15"), Vesk_parser::acknowledgement);
}

TEST(Formats_page, acknowledgement_with_bytes_after_it_is_noise) {
    const std::string bytes = documented_bytes("no acknowledgement");
    EXPECT_EQ(bytes, documented_bytes("acknowledgement") + documented_bytes("binary frame"));
    EXPECT_EQ(parsed(bytes), std::vector<Packet>{noise(bytes)});
}

TEST(Formats_page, identifier_below_0x30_makes_noise_of_a_frame_that_is_right_otherwise) {
    const std::string bytes = documented_bytes("noise instead of a frame");
    Frame frame(bytes);
    EXPECT_TRUE(Vesk_message(frame.data(), frame.size()).check_checksum());
    EXPECT_EQ(parsed(bytes), std::vector<Packet>{noise(bytes)});
    frame.bytes[0] = '0';
    EXPECT_EQ(first_packet(frame.bytes), Vesk_parser::frame);
    frame.bytes[0] = '/';
    EXPECT_EQ(first_packet(frame.bytes), Vesk_parser::noise);
}

TEST(Formats_page, noise_reaches_to_the_end_of_its_line) {
    const std::string bytes = documented_bytes("noise up to the line end");
    const std::string good = documented_bytes("binary frame");
    EXPECT_EQ(bytes, "hello " + good + good);
    EXPECT_EQ(parsed(bytes), (std::vector<Packet>{noise("hello " + good), frame(good)}));
}

TEST(Formats_page, noise_without_a_line_end_has_4190_bytes) {
    const std::string good = documented_bytes("binary frame");
    Scripted_stream stream;
    Vesk_parser parser(&stream, false);
    stream.receive(std::string(4190, '!'));
    EXPECT_EQ(packets_of(parser), std::vector<Packet>{noise(std::string(4190, '!'))});
    stream.receive(good);
    EXPECT_EQ(packets_of(parser), std::vector<Packet>{frame(good)});
}

TEST(Formats_page, wrong_length_makes_one_byte_noise_and_then_the_line) {
    const std::string bytes = documented_bytes("wrong length");
    const std::string good = documented_bytes("binary frame");
    EXPECT_EQ(bytes.substr(good.size()), good);
    EXPECT_EQ(parsed(bytes), (std::vector<Packet>{noise(bytes.substr(1, good.size() - 1)), frame(good)}));
}

TEST(Formats_page, frame_with_a_wrong_checksum_is_consumed_whole) {
    const std::string good = documented_bytes("binary frame");
    std::string damaged = good;
    damaged[5] = '!';
    EXPECT_EQ(parsed(damaged + good), (std::vector<Packet>{frame(damaged), frame(good)}));
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

TEST(Formats_page, largest_AIM_payload_is_the_largest_that_a_receiver_accepts) {
    std::ifstream page(FORMATS_PAGE);
    const std::string text{std::istreambuf_iterator<char>(page), {}};
    EXPECT_THAT(text,
                testing::HasSubstr("at most " + std::to_string(AIM_data_stream_adapter::longest_read) + " bytes"));
    EXPECT_THAT(text,
                testing::HasSubstr("more than " + std::to_string(AIM_message::length_limit - 4) + " bytes the length"));
}
