// Writing and reading. Damaged files are in File_checksummed_damage_test.cpp.

#include <glue/data_stream/File_checksummed_data_stream.h>

#include <support/builders/Checksummed_content.h>
#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/builders/cut_description.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Limited_file_size.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace {

using Stream = File_checksummed_data_stream;

struct File_checksummed_test : testing::Test {
    /// Writes a file of these pieces. \return its content
    std::string write(const std::vector<std::string>& pieces) {
        Stream writer;
        EXPECT_TRUE(writer.open_write(path.c_str()));
        for (const std::string& piece : pieces)
            EXPECT_EQ(write_text(writer, piece), static_cast<int>(piece.size()));
        EXPECT_TRUE(writer.close_write());
        return folder.content_of("f");
    }
    /// Opens a new file with this content for reading.
    void open_read(const std::string& content) {
        folder.make_file("f", checksummed(content));
        ASSERT_TRUE(stream.open_read(path.c_str()));
    }

    Temporary_folder folder;
    const std::string path = folder.path("f");
    Stream stream;
    Captured_debug debug;
};

using File_checksummed_naming = File_checksummed_test;
using File_checksummed_writing = File_checksummed_test;
using File_checksummed_reading = File_checksummed_test;

TEST(File_checksummed_slots, are_those_of_the_plain_file) {
    static_assert(std::is_base_of_v<File_data_stream, Stream>);
    EXPECT_EQ(vtable_slot<int (Stream::*)(int)>(&Stream::get_data), 12U);
    EXPECT_EQ(vtable_slot(&Stream::_write), 13U);
    EXPECT_EQ(vtable_slot(&Stream::get_length), 14U);
    EXPECT_EQ(vtable_slot<bool (Stream::*)(const char*)>(&Stream::open_read), not_virtual);
    EXPECT_EQ(vtable_slot<bool (Stream::*)(int)>(&Stream::open_read), not_virtual);
    EXPECT_EQ(vtable_slot(&Stream::open_write), not_virtual);
    EXPECT_EQ(vtable_slot(&Stream::close_read), not_virtual);
    EXPECT_EQ(vtable_slot(&Stream::close_write), not_virtual);
}

// ---- Naming ----

TEST_F(File_checksummed_naming, has_the_path_and_the_direction_while_a_file_is_open) {
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    void* const self = &stream;
    const std::string closed = cut_description("CRCFILE(%p)", self);
    EXPECT_EQ(stream.get_description(), closed);
    ASSERT_TRUE(stream.open_write("f"));
    EXPECT_EQ(stream.get_description(), cut_description("CRCFILE(%p, f, w)", self));
    write_text(stream, "abcde");
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(stream.get_description(), closed);
    ASSERT_TRUE(stream.open_read("f"));
    EXPECT_EQ(stream.get_description(), cut_description("CRCFILE(%p, f, r)", self));
    EXPECT_TRUE(stream.close_read());
    EXPECT_EQ(stream.get_description(), closed);
    stream.set_description("something else");
    EXPECT_FALSE(stream.close_read());
    EXPECT_EQ(stream.get_description(), closed);
    ASSERT_TRUE(stream.open_write("a_name_that_is_long"));
    EXPECT_EQ(stream.get_description(), cut_description("CRCFILE(%p, a_name_that_is_long, w)", self));
    ASSERT_EQ(chdir("/"), 0);
}

// ---- Writing ----

TEST_F(File_checksummed_writing, appends_a_trailer_of_15_bytes) {
    EXPECT_STREQ(Stream::crc32_head, "\nCRC32=");
    EXPECT_EQ(write({"abcde"}), "abcde\nCRC32=0E894A8D");
    EXPECT_EQ(write({}), "\nCRC32=5CA1AB1E"); // the seed
    EXPECT_EQ(debug.text(), "");
}

TEST_F(File_checksummed_writing, writes_the_same_file_however_the_content_is_cut) {
    Random random;
    for (int round = 0; round < 50; ++round) {
        const std::string content = random.bytes(random.between(0, 3000));
        std::vector<std::string> pieces;
        for (std::size_t position = 0; position < content.size(); position += pieces.back().size())
            pieces.push_back(content.substr(position, random.between(1, 500)));
        ASSERT_EQ(write(pieces), checksummed(content));
    }
}

TEST_F(File_checksummed_writing, removes_the_old_content_and_starts_a_new_checksum) {
    ASSERT_TRUE(stream.open_write(path.c_str()));
    write_text(stream, "a longer content");
    EXPECT_TRUE(stream.close_write());
    ASSERT_TRUE(stream.open_write(path.c_str()));
    EXPECT_EQ(folder.content_of("f"), "");
    EXPECT_TRUE(stream.printf("%s", "short"));
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(folder.content_of("f"), checksummed("short"));
}

TEST_F(File_checksummed_writing, returns_false_where_no_file_can_be_created) {
    const std::string missing = folder.path("missing/f");
    EXPECT_FALSE(stream.open_write(missing.c_str()));
    EXPECT_EQ(debug.text(), "Error opening file [" + missing + "]\n");
    EXPECT_EQ(write_text(stream, "abc"), -1);
    EXPECT_FALSE(stream.close_write());
}

TEST_F(File_checksummed_writing, that_cannot_begin_leaves_the_description_unchanged_unless_it_has_closed_a_file) {
    const std::string missing = folder.path("missing/f");
    open_read("abcde");
    const std::string reading = stream.get_description();
    EXPECT_FALSE(stream.open_write(missing.c_str()));
    EXPECT_EQ(stream.get_description(), reading);
    EXPECT_TRUE(stream.close_read());
    ASSERT_TRUE(stream.open_write(path.c_str()));
    EXPECT_FALSE(stream.open_write(missing.c_str()));
    EXPECT_EQ(stream.get_description(), cut_description("CRCFILE(%p)", static_cast<void*>(&stream)));
}

TEST_F(File_checksummed_writing, without_a_file_is_an_error_and_not_included_in_the_checksum) {
    ASSERT_TRUE(stream.open_write(path.c_str()));
    write_text(stream, "abcde");
    EXPECT_TRUE(stream.close_write());
    EXPECT_FALSE(stream.close_write());
    EXPECT_EQ(debug.text(), "CRCFILE not open for write!\n");
    EXPECT_EQ(write_text(stream, "more"), -1);
    EXPECT_EQ(folder.content_of("f"), checksummed("abcde"));
}

TEST_F(File_checksummed_writing, includes_only_accepted_bytes_in_the_checksum) {
    ASSERT_TRUE(stream.open_write(path.c_str()));
    write_text(stream, "abc");
    Replaced_file_calls calls;
    calls.fwrite = [](std::size_t size, std::size_t) { return size == 1 ? std::optional(2) : std::nullopt; };
    EXPECT_EQ(write_text(stream, "defgh"), 2); // "de", which the replaced call does not write
    calls.fwrite = nullptr;
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(folder.content_of("f"), "abc" + checksummed("abcde").substr(5));
}

TEST_F(File_checksummed_writing, destroyed_without_closing_leaves_no_trailer) {
    {
        Stream destroyed;
        ASSERT_TRUE(destroyed.open_write(path.c_str()));
        write_text(destroyed, "abcdefghijklmnopqrst");
    }
    EXPECT_EQ(folder.content_of("f"), "abcdefghijklmnopqrst");
    EXPECT_FALSE(stream.open_read(path.c_str()));
}

TEST_F(File_checksummed_writing, opened_again_closes_the_previous_file_without_a_trailer) {
    ASSERT_TRUE(stream.open_write(path.c_str()));
    write_text(stream, "abc");
    const int before = open_descriptors();
    ASSERT_TRUE(stream.open_write(folder.path("g").c_str()));
    EXPECT_EQ(open_descriptors(), before);
    write_text(stream, "defgh");
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(folder.content_of("f"), "abc");
    EXPECT_EQ(folder.content_of("g"), checksummed("defgh"));
}

TEST_F(File_checksummed_writing, syncs_the_trailer_before_it_is_closed) {
    std::vector<std::string> contents_at_sync;
    Replaced_file_calls calls;
    calls.fsync = [&](int) {
        contents_at_sync.push_back(folder.content_of("f"));
        return std::nullopt;
    };
    const std::string content = write({"abcde"});
    EXPECT_EQ(contents_at_sync, std::vector<std::string>{content});
}

TEST_F(File_checksummed_writing, a_failed_trailer_is_reported_and_the_file_closed) {
    ASSERT_TRUE(stream.open_write(path.c_str()));
    write_text(stream, "abcde");
    Replaced_file_calls calls;
    calls.fwrite = [](std::size_t size, std::size_t count) {
        EXPECT_EQ(size, 15U);
        EXPECT_EQ(count, 1U);
        return 0;
    };
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(debug.text(), "CRCFILE failed to write CRC32!\n");
    EXPECT_EQ(folder.content_of("f"), "abcde");
    EXPECT_FALSE(stream.close_write());
}

TEST_F(File_checksummed_writing, after_a_failed_write_adds_no_trailer) {
    const std::string much = numbered(20000);
    {
        ASSERT_TRUE(stream.open_write(path.c_str()));
        const Limited_file_size limit(5000);
        EXPECT_LT(write_text(stream, much), 20000);
    }
    EXPECT_TRUE(stream.close_write()); // although there is free space again
    EXPECT_EQ(folder.content_of("f").find("CRC32"), std::string::npos);
    EXPECT_EQ(debug.text(), "");
    EXPECT_FALSE(stream.open_read(path.c_str()));
}

TEST_F(File_checksummed_writing, to_a_disk_that_is_full_at_the_end_returns_true_and_does_not_verify) {
    for (rlim_t free_space = 0; free_space < 115; free_space += 5) {
        {
            const Limited_file_size limit(free_space);
            ASSERT_TRUE(stream.open_write(path.c_str()));
            EXPECT_EQ(write_text(stream, std::string(100, 'x')), 100);
            EXPECT_TRUE(stream.close_write());
        }
        EXPECT_FALSE(stream.open_read(path.c_str())) << free_space;
    }
    ASSERT_TRUE(stream.open_write("/dev/full"));
    EXPECT_EQ(write_text(stream, "abcde"), 5);
    EXPECT_TRUE(stream.close_write());
}

// ---- Reading ----

TEST_F(File_checksummed_reading, delivers_the_content_and_never_the_trailer) {
    write({"abcde"});
    ASSERT_TRUE(stream.open_read(path.c_str()));
    EXPECT_EQ(stream.get_data(100), 0);
    EXPECT_EQ(buffered(stream), "abcde");
    EXPECT_EQ(stream.get_data(1), 0);
    EXPECT_EQ(buffered(stream), "abcde");
    EXPECT_TRUE(stream.close_read());
    EXPECT_FALSE(stream.close_read());
    EXPECT_EQ(debug.text(), "");
}

TEST_F(File_checksummed_reading, beyond_the_end_delivers_the_rest_and_returns_0) {
    open_read("abcdefg");
    EXPECT_EQ(stream.get_data(5), 1);
    EXPECT_EQ(stream.get_data(5), 0);
    EXPECT_EQ(take_buffered(stream), "abcdefg");
    EXPECT_EQ(stream.get_data(5), 0);
    EXPECT_EQ(buffered(stream), "");
}

TEST_F(File_checksummed_reading, up_to_the_last_byte_succeeds_and_only_the_next_read_ends) {
    open_read("abcdefg");
    EXPECT_EQ(stream.get_data(7), 1);
    EXPECT_EQ(stream.get_data(0), 1);
    EXPECT_EQ(stream.get_data(1), 0);
    EXPECT_EQ(buffered(stream), "abcdefg");
}

TEST_F(File_checksummed_reading, far_beyond_the_end_does_not_overflow) {
    open_read("abcdefg");
    EXPECT_EQ(stream.get_data(1), 1);
    EXPECT_EQ(stream.get_data(0x7FFFFFFF), 0);
    EXPECT_EQ(buffered(stream), "abcdefg");
    EXPECT_EQ(stream.get_data(-1), 0);
}

TEST_F(File_checksummed_reading, without_a_file_delivers_nothing) {
    EXPECT_EQ(stream.get_data(1), 0);
    EXPECT_EQ(stream.get_data(0), 0);
}

TEST_F(File_checksummed_reading, a_position_that_is_unknown_or_beyond_the_content_delivers_nothing) {
    open_read("abcdefg");
    Replaced_file_calls calls;
    for (const int position : {-1, 8}) {
        calls.ftell = [position] { return position; };
        EXPECT_EQ(stream.get_data(1), 0);
    }
    calls.ftell = nullptr;
    EXPECT_EQ(buffered(stream), "");
    EXPECT_EQ(stream.get_data(7), 1);
}

TEST_F(File_checksummed_reading, length_is_that_of_the_whole_file) {
    open_read("abcdefg");
    EXPECT_EQ(stream.get_length(), 7 + 15);
}

TEST_F(File_checksummed_reading, delivers_any_content_in_any_pieces) {
    Random random;
    for (int round = 0; round < 50; ++round) {
        const std::string content = random.bytes(random.between(5, 4000));
        open_read(content);
        std::string received;
        for (bool more = true; more;) {
            const int count = static_cast<int>(random.between(0, 700));
            more = stream.get_data(count) != 0;
            received += take_buffered(stream);
        }
        ASSERT_EQ(received, content);
    }
}

TEST_F(File_checksummed_reading, verifies_in_blocks_of_at_most_255_bytes) {
    const std::string content = numbered(600);
    folder.make_file("f", checksummed(content));
    std::vector<std::size_t> sizes;
    Replaced_file_calls calls;
    calls.fread = [&sizes](std::size_t size, std::size_t count) {
        sizes.push_back(size * count);
        return std::nullopt;
    };
    EXPECT_TRUE(stream.open_read(path.c_str()));
    EXPECT_EQ(sizes, (std::vector<std::size_t>{20, 255, 255, 90}));
}

TEST_F(File_checksummed_reading, of_a_descriptor_is_not_supported) {
    open_read("abcde");
    EXPECT_FALSE(stream.open_read(0));
    EXPECT_EQ(stream.get_data(5), 1); // nothing has happened
    EXPECT_EQ(buffered(stream), "abcde");
}

TEST_F(File_checksummed_reading, opened_again_closes_the_previous_file) {
    open_read("abcde");
    const int before = open_descriptors();
    open_read("fghij");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(stream.get_data(5), 1);
    EXPECT_EQ(buffered(stream), "fghij");
}

} // namespace
