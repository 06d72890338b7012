#include <glue/data_stream/File_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/builders/cut_description.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Allocation_counter.h>
#include <support/faults/Limited_file_size.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using testing::ExitedWithCode;
namespace fs = std::filesystem;

struct File_data_stream_test : testing::Test {
    /// Opens a new file with this content for reading.
    void open_read(const std::string& content) {
        ASSERT_TRUE(stream.open_read(folder.make_file("f", content).c_str()));
    }

    Temporary_folder folder;
    File_data_stream stream;
};

using File_data_stream_opening = File_data_stream_test;
using File_data_stream_reading = File_data_stream_test;
using File_data_stream_writing = File_data_stream_test;
using File_data_stream_closing = File_data_stream_test;
using File_data_stream_length = File_data_stream_test;
using File_data_stream_death_test = File_data_stream_test;

TEST(File_data_stream_slots, length_is_the_added_one) {
    EXPECT_EQ(vtable_slot(&File_data_stream::get_length), 14U);
    EXPECT_EQ(vtable_slot<int (File_data_stream::*)(int)>(&File_data_stream::get_data), 12U);
    EXPECT_EQ(vtable_slot(&File_data_stream::_write), 13U);
    EXPECT_EQ(vtable_slot<bool (File_data_stream::*)(const char*)>(&File_data_stream::open_read), not_virtual);
    EXPECT_EQ(vtable_slot<bool (File_data_stream::*)(int)>(&File_data_stream::open_read), not_virtual);
    EXPECT_EQ(vtable_slot(&File_data_stream::open_write), not_virtual);
    EXPECT_EQ(vtable_slot(&File_data_stream::close_read), not_virtual);
    EXPECT_EQ(vtable_slot(&File_data_stream::close_write), not_virtual);
}

// ---- Naming and opening ----

TEST_F(File_data_stream_opening, names_the_path_or_the_descriptor_and_the_direction_in_31_characters) {
    ASSERT_EQ(chdir(folder.path().c_str()), 0); // a short path: an address of twelve digits leaves little space
    void* const self = &stream;
    EXPECT_EQ(stream.get_description(), cut_description("DSFile(%p)", self));
    folder.make_file("f", "");
    EXPECT_TRUE(stream.open_read("f"));
    EXPECT_EQ(stream.get_description(), cut_description("DSFile(%p,f, r)", self));
    EXPECT_TRUE(stream.open_write("f"));
    EXPECT_EQ(stream.get_description(), cut_description("DSFile(%p,f, w)", self));
    EXPECT_TRUE(stream.close_read());
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(stream.get_description(), cut_description("DSFile(%p,f, w)", self)); // closing leaves it unchanged
    const int fd = open("f", O_RDONLY);
    EXPECT_TRUE(stream.open_read(fd));
    EXPECT_EQ(stream.get_description(), cut_description("DSFile(%p,%d, r)", self, fd));
    EXPECT_TRUE(stream.open_write("a_name_that_is_long"));
    EXPECT_EQ(stream.get_description(), cut_description("DSFile(%p,a_name_that_is_long, w)", self));
    EXPECT_EQ(std::string(stream.get_description()).size(), 31U);
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(File_data_stream_opening, adopted_handles_are_read_written_and_closed) {
    const std::string in = folder.make_file("in", "abc");
    const int before = open_descriptors();
    {
        File_data_stream adopting(std::fopen(in.c_str(), "rb"), std::fopen(folder.path("out").c_str(), "wb"));
        EXPECT_EQ(adopting.get_description(), cut_description("DSFile(%p)", static_cast<void*>(&adopting)));
        EXPECT_EQ(adopting.get_data(3), 1);
        EXPECT_EQ(buffered(adopting), "abc");
        EXPECT_EQ(write_text(adopting, "def"), 3);
    }
    EXPECT_EQ(folder.content_of("out"), "def");
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(File_data_stream_opening, a_file_still_open_is_not_closed) {
    std::FILE* const first = std::fopen(folder.make_file("first", "1").c_str(), "rb");
    File_data_stream adopting(first, nullptr);
    ASSERT_TRUE(adopting.open_read(folder.make_file("second", "2").c_str()));
    EXPECT_TRUE(is_open(fileno(first)));
    EXPECT_EQ(adopting.get_data(1), 1);
    EXPECT_EQ(buffered(adopting), "2");
    std::fclose(first);
}

TEST_F(File_data_stream_opening, a_descriptor_is_read_from_its_position) {
    const int fd = open(folder.make_file("f", "abcdef").c_str(), O_RDONLY);
    ASSERT_EQ(lseek(fd, 2, SEEK_SET), 2);
    ASSERT_TRUE(stream.open_read(fd));
    EXPECT_EQ(stream.get_data(100), 0);
    EXPECT_EQ(buffered(stream), "cdef");
    EXPECT_TRUE(stream.close_read());
    EXPECT_FALSE(is_open(fd));
}

TEST_F(File_data_stream_death_test, a_file_that_cannot_be_opened_for_reading_ends_the_process) {
    EXPECT_EXIT(stream.open_read(folder.path("missing").c_str()), ExitedWithCode(-133 & 0xFF),
                "^Error opening file \\[.*/missing\\]\n$");
    EXPECT_EXIT(stream.open_read(-1), ExitedWithCode(-133 & 0xFF), "^Error opening fd \\[-1\\]\n$");
}

TEST_F(File_data_stream_death_test, a_file_that_cannot_be_opened_for_writing_ends_the_process) {
    EXPECT_EXIT(stream.open_write(folder.path("missing/f").c_str()), ExitedWithCode(-134 & 0xFF),
                "^Error opening file \\[.*/missing/f\\]\n$");
}

// ---- Whether a file exists ----

TEST_F(File_data_stream_opening, only_a_missing_file_does_not_exist) {
    const std::string file = folder.make_file("f", "");
    const int before = open_descriptors();
    EXPECT_TRUE(File_data_stream::exists(file.c_str()));
    EXPECT_TRUE(File_data_stream::exists(folder.path().c_str()));
    EXPECT_FALSE(File_data_stream::exists(folder.path("missing").c_str()));
    EXPECT_EQ(open_descriptors(), before);
    // These cannot be opened for another reason, also by root: a link to itself, and a path through a file.
    fs::create_symlink("circle", folder.path("circle"));
    EXPECT_TRUE(File_data_stream::exists(folder.path("circle").c_str()));
    EXPECT_TRUE(File_data_stream::exists(folder.path("f/below_a_file").c_str()));
}

TEST_F(File_data_stream_opening, a_file_without_permission_to_read_exists) {
    const std::string file = folder.make_file("f", "");
    fs::permissions(file, fs::perms::none);
    EXPECT_TRUE(File_data_stream::exists(file.c_str()));
}

// ---- Reading ----

TEST_F(File_data_stream_reading, delivers_the_requested_bytes_and_no_more) {
    open_read("abcdef");
    EXPECT_EQ(stream.get_data(2), 1);
    EXPECT_EQ(buffered(stream), "ab");
    EXPECT_EQ(stream.get_data(3), 1);
    EXPECT_EQ(buffered(stream), "abcde");
}

TEST_F(File_data_stream_reading, reports_the_end_only_when_it_reads_beyond_it) {
    open_read("abc");
    EXPECT_EQ(stream.get_data(3), 1);
    EXPECT_EQ(stream.get_data(1), 0);
    EXPECT_EQ(buffered(stream), "abc");
}

TEST_F(File_data_stream_reading, beyond_the_end_delivers_the_rest) {
    open_read("abc");
    EXPECT_EQ(stream.get_data(100), 0);
    EXPECT_EQ(buffered(stream), "abc");
}

TEST_F(File_data_stream_reading, of_nothing_succeeds_at_once) {
    EXPECT_EQ(stream.get_data(0), 1); // even with no file
    open_read("");
    EXPECT_EQ(stream.get_data(0), 1);
}

TEST_F(File_data_stream_reading, without_a_file_or_of_a_negative_count_delivers_nothing) {
    EXPECT_EQ(stream.get_data(1), 0);
    open_read("abc");
    EXPECT_EQ(stream.get_data(-1), 0);
    EXPECT_FALSE(stream.bytes_avail(0x80000001U)); // more than an int counts
    EXPECT_EQ(buffered(stream), "");
}

TEST_F(File_data_stream_reading, keeps_every_byte_as_it_is) {
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    open_read(all);
    EXPECT_EQ(stream.get_data(256), 1);
    EXPECT_EQ(buffered(stream), all);
}

TEST_F(File_data_stream_reading, drops_what_does_not_fit_the_ring) {
    const std::string content = numbered(4300);
    open_read(content);
    EXPECT_EQ(stream.get_data(4250), 1);
    EXPECT_EQ(take_buffered(stream), content.substr(0, 4200));
    EXPECT_EQ(stream.get_data(100), 0);
    EXPECT_EQ(buffered(stream), content.substr(4250));
}

TEST_F(File_data_stream_reading, serves_the_operations_of_every_stream) {
    open_read("first\nsecond\n");
    EXPECT_EQ(stream[0], 'f');
    EXPECT_TRUE(stream.bytes_avail(13U));
    EXPECT_EQ(stream.string_avail(), 5U);
    stream.drop(6);
    EXPECT_EQ(buffered(stream), "second\n");
    EXPECT_FALSE(stream.bytes_avail(8U));
}

TEST_F(File_data_stream_reading, a_read_error_counts_as_the_end) {
    ASSERT_TRUE(stream.open_read("/")); // opens, but reading a folder fails
    EXPECT_EQ(stream.get_data(1), 0);
}

TEST_F(File_data_stream_reading, and_writing_allocate_nothing_once_they_have_begun) {
    open_read(numbered(4000));
    ASSERT_TRUE(stream.open_write(folder.path("out").c_str()));
    EXPECT_EQ(stream.get_data(1), 1);
    EXPECT_EQ(write_text(stream, "a"), 1);
    const Allocation_counter allocations;
    EXPECT_EQ(stream.get_data(3999), 1);
    EXPECT_EQ(write_text(stream, "bcdef"), 5);
    EXPECT_EQ(allocations.count(), 0U);
}

// ---- Writing ----

TEST_F(File_data_stream_writing, creates_the_file_and_appends_to_it_the_next_time) {
    const std::string path = folder.path("f");
    ASSERT_TRUE(stream.open_write(path.c_str()));
    EXPECT_EQ(write_text(stream, "abc"), 3);
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(folder.content_of("f"), "abc");
    ASSERT_TRUE(stream.open_write(path.c_str()));
    EXPECT_TRUE(stream.printf("%d\n", 42));
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(folder.content_of("f"), "abc42\n");
}

TEST_F(File_data_stream_writing, stays_in_the_buffer_until_it_is_closed) {
    ASSERT_TRUE(stream.open_write(folder.path("f").c_str()));
    EXPECT_EQ(write_text(stream, "abc"), 3);
    EXPECT_EQ(folder.content_of("f"), "");
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(folder.content_of("f"), "abc");
}

TEST_F(File_data_stream_writing, without_a_file_is_an_error) {
    EXPECT_EQ(write_text(stream, "abc"), -1);
    open_read("");
    EXPECT_EQ(write_text(stream, "abc"), -1);
}

TEST_F(File_data_stream_writing, and_reading_work_at_the_same_time) {
    open_read("in");
    ASSERT_TRUE(stream.open_write(folder.path("f").c_str())); // the same file
    EXPECT_EQ(write_text(stream, "+out"), 4);
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(stream.get_data(6), 1);
    EXPECT_EQ(buffered(stream), "in+out");
}

TEST_F(File_data_stream_writing, to_a_full_disk_returns_the_accepted_bytes) {
    ASSERT_TRUE(stream.open_write(folder.path("f").c_str()));
    const Limited_file_size limit(5000);
    const std::string much = numbered(20000); // more than a buffer holds: most is written before the closing
    EXPECT_LT(write_text(stream, much), 20000);
    EXPECT_TRUE(stream.close_write()); // true on purpose
    EXPECT_EQ(folder.content_of("f"), much.substr(0, 5000));
}

// ---- Closing ----

TEST_F(File_data_stream_closing, closes_each_side_once) {
    EXPECT_FALSE(stream.close_read());
    EXPECT_FALSE(stream.close_write());
    open_read("");
    ASSERT_TRUE(stream.open_write(folder.path("out").c_str()));
    const int before = open_descriptors();
    EXPECT_TRUE(stream.close_read());
    EXPECT_EQ(open_descriptors(), before - 1);
    EXPECT_FALSE(stream.close_read());
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(open_descriptors(), before - 2);
    EXPECT_FALSE(stream.close_write());
}

TEST_F(File_data_stream_closing, syncs_the_written_bytes_after_flushing_them) {
    Replaced_file_calls calls;
    std::vector<std::string> contents_at_sync;
    calls.fsync = [&](int fd) {
        contents_at_sync.push_back(folder.content_of(name_of(fd)));
        return std::nullopt;
    };
    ASSERT_TRUE(stream.open_write(folder.path("f").c_str()));
    write_text(stream, "abc");
    EXPECT_TRUE(stream.close_write());
    {
        File_data_stream destroyed;
        ASSERT_TRUE(destroyed.open_write(folder.path("g").c_str()));
        write_text(destroyed, "def");
    }
    EXPECT_EQ(contents_at_sync, (std::vector<std::string>{"abc", "def"}));
}

TEST_F(File_data_stream_closing, is_true_even_when_nothing_reached_the_disk) {
    ASSERT_TRUE(stream.open_write("/dev/full"));
    EXPECT_EQ(write_text(stream, "abc"), 3);
    EXPECT_TRUE(stream.close_write());
}

TEST_F(File_data_stream_closing, destruction_closes_both_sides) {
    const std::string path = folder.make_file("f", "");
    const int before = open_descriptors();
    {
        File_data_stream destroyed;
        ASSERT_TRUE(destroyed.open_read(path.c_str()));
        ASSERT_TRUE(destroyed.open_write(path.c_str()));
        write_text(destroyed, "abc");
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(folder.content_of("f"), "abc");
}

// ---- Length ----

TEST_F(File_data_stream_length, is_the_size_and_leaves_the_position_unchanged) {
    EXPECT_EQ(stream.get_length(), -1);
    open_read("abcdef");
    EXPECT_EQ(stream.get_length(), 6);
    EXPECT_EQ(stream.get_data(2), 1);
    EXPECT_EQ(stream.get_length(), 6);
    EXPECT_EQ(stream.get_data(4), 1);
    EXPECT_EQ(buffered(stream), "abcdef");
    EXPECT_TRUE(stream.close_read());
    EXPECT_EQ(stream.get_length(), -1);
}

TEST_F(File_data_stream_length, is_unknown_for_a_pipe) {
    Pipe pipe;
    ASSERT_TRUE(stream.open_read(pipe.take_reading()));
    EXPECT_EQ(stream.get_length(), -1);
}

TEST_F(File_data_stream_length, is_unknown_when_a_step_fails_and_then_only_a_failed_return_may_move_the_position) {
    open_read("abcdef");
    EXPECT_EQ(stream.get_data(2), 1);
    Replaced_file_calls calls;
    calls.fseek = [](int) { return -1; };
    EXPECT_EQ(stream.get_length(), -1);
    calls.fseek = nullptr;
    calls.ftell = [] { return -1; };
    EXPECT_EQ(stream.get_length(), -1);
    calls.ftell = nullptr;
    EXPECT_EQ(stream.get_data(1), 1);
    EXPECT_EQ(buffered(stream), "abc");
    calls.fsetpos = [] { return -1; };
    EXPECT_EQ(stream.get_length(), -1);
}

TEST_F(File_data_stream_length, is_unknown_when_an_int_does_not_hold_it) {
    open_read("");
    constexpr std::uintmax_t largest = 0x7FFFFFFF;
    fs::resize_file(folder.path("f"), largest); // uses no space on the disk
    EXPECT_EQ(stream.get_length(), 0x7FFFFFFF);
    fs::resize_file(folder.path("f"), largest + 1);
    EXPECT_EQ(stream.get_length(), -1);
}

} // namespace
