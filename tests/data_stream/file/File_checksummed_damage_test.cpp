// Opening checksummed files that are damaged, cut or cannot be read.

#include <glue/data_stream/File_checksummed_data_stream.h>

#include <support/builders/Checksummed_content.h>
#include <support/builders/Stream_bytes.h>
#include <support/builders/cut_description.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::KilledBySignal;

const std::string verified = "verified";
const std::string too_short = "Empty or truncated checksummed file [";
const std::string unreadable = "Failure while reading CRC32 in checksummed file [";
const std::string mismatch = "Error CRC32 mismatch on checksummed file [";
const std::string aborts = "abort";
const char* const assertion_message = "^glue/data_stream/File_checksummed_data_stream.cpp:[0-9]+: "
                                      "bool File_checksummed_data_stream::open_read\\(const char\\*\\): "
                                      "Assertion `false' failed\\.\n(qemu: .*\n)?$"; // the emulator adds a line

struct File_checksummed_damage : testing::Test {
    /// Opens a file of these bytes. Expects this outcome and a stream that can be used again.
    void expect(const std::string& outcome, const std::string& bytes) {
        const std::string path = folder.make_file("f", bytes);
        if (outcome == aborts) {
            EXPECT_EXIT(static_cast<void>(stream.open_read(path.c_str())), KilledBySignal(SIGABRT), assertion_message);
            return;
        }
        const Captured_debug debug;
        ASSERT_EQ(stream.open_read(path.c_str()), outcome == verified);
        ASSERT_EQ(debug.text(), outcome == verified ? "" : outcome + path + "]\n");
        if (outcome != verified)
            expect_closed();
    }
    void expect_closed() {
        EXPECT_FALSE(stream.close_read());
        EXPECT_EQ(stream.get_description(), cut_description("CRCFILE(%p)", static_cast<void*>(&stream)));
    }

    Temporary_folder folder;
    File_checksummed_data_stream stream;
};

/// The outcome for a file, with at least five bytes of content and no "=" in it, after one bit of byte `at` has
/// changed.
std::string outcome_of_flip(const std::string& before, const std::string& after, std::size_t at) {
    const std::size_t content = before.size() - 15;
    if (at < content)
        return mismatch;
    if (at == content)
        return aborts; // the line feed
    if (at < content + 7)
        return unreadable; // "CRC32="
    const char digit = after[at];
    const bool is_first = at == content + 7;
    if (digit == '=')
        return aborts; // the last "=" has no line feed six bytes before it
    if (std::tolower(digit) == std::tolower(before[at]))
        return verified;
    if (is_first && digit == ' ')
        return verified; // instead of a 0
    return is_first && std::isxdigit(static_cast<unsigned char>(digit)) == 0 ? unreadable : mismatch;
}

TEST_F(File_checksummed_damage, every_changed_bit_is_found_except_another_spelling_of_the_same_digits) {
    int verified_ones = 0;
    int aborted_ones = 0;
    for (const std::string& content :
         {std::string("abcde"), std::string("\0\n\0\xFF binary", 11), numbered(60) + "."}) {
        const std::string whole = checksummed(content);
        expect(verified, whole);
        for (std::size_t at = 0; at < whole.size(); ++at)
            for (int bit = 0; bit < 8; ++bit) {
                std::string damaged = whole;
                damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
                SCOPED_TRACE(std::to_string(at) + ", bit " + std::to_string(bit) + " of " + whole);
                const std::string outcome = outcome_of_flip(whole, damaged, at);
                expect(outcome, damaged);
                verified_ones += outcome == verified;
                aborted_ones += outcome == aborts;
            }
    }
    EXPECT_GT(verified_ones, 3); // "abcde\nCRC32=0E894A8D" alone has a 0 and four letters
    EXPECT_GT(aborted_ones, 3 * 8);
}

TEST_F(File_checksummed_damage, every_cut_is_found) {
    for (const std::string& content :
         {std::string("abcde"), std::string("abcdef"), std::string(9, '\0'), numbered(40)}) {
        const std::string whole = checksummed(content);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE(std::to_string(length) + " bytes of " + whole);
            const bool has_digits = length > content.size() + 7;
            expect(length < 15 ? too_short : has_digits ? mismatch : unreadable, whole.substr(0, length));
        }
    }
}

TEST_F(File_checksummed_damage, every_cut_at_the_beginning_is_found) {
    const std::string whole = checksummed("abcdefghij");
    for (std::size_t cut = 1; cut < whole.size(); ++cut)
        expect(whole.size() - cut < 15   ? too_short
               : whole.size() - cut < 20 ? unreadable
                                         : mismatch,
               whole.substr(cut));
}

TEST_F(File_checksummed_damage, a_file_with_fewer_than_five_bytes_of_content_is_rejected_even_if_it_is_right) {
    for (const char* content : {"", "a", "ab", "abc", "abcd"})
        expect(unreadable, checksummed(content));
    expect(verified, checksummed("abcde"));
}

TEST_F(File_checksummed_damage, digits_may_be_lower_case) {
    expect(verified, "abcde\nCRC32=0e894a8d");
    EXPECT_EQ(stream.get_data(100), 0);
    EXPECT_EQ(buffered(stream), "abcde");
}

TEST_F(File_checksummed_damage, a_file_without_a_trailer_that_has_an_equals_sign_near_its_end_ends_the_process) {
    expect(aborts, "# a plain text\nwidth_of_tool=12\n");
    expect(aborts, std::string(12, '.') + '=' + std::string(7, '.'));
    expect(aborts, std::string(7, '.') + '=' + std::string(12, '.')); // the first index that counts
    expect(unreadable, std::string(6, '.') + '=' + std::string(13, '.'));
    expect(aborts, std::string(7, '.') + '=' + std::string(7, '.')); // all of a file of 15 bytes is read
    expect(unreadable, std::string(6, '.') + '=' + std::string(8, '.'));
    expect(unreadable, "# a plain text\nspeed=12\n"); // a line feed is six bytes before it
    expect(unreadable, "# a plain text without that sign\n");
    expect(unreadable, "width_of_tool=12, and much more after it\n");
}

TEST_F(File_checksummed_damage, the_last_equals_sign_is_found_after_zero_bytes) {
    const std::string zeros(3, '\0');
    expect(aborts, "ab" + zeros + "nothing of" + zeros + "=." + zeros);
    expect(verified, checksummed("=" + zeros + "=."));
}

TEST_F(File_checksummed_damage, a_trailer_in_the_middle_is_content) {
    const std::string twice = checksummed(checksummed("abcde"));
    expect(verified, twice);
    expect(mismatch, checksummed("abcde") + "A"); // nine digits
    expect(unreadable, checksummed("abcde") + std::string(20, ' '));
}

TEST_F(File_checksummed_damage, a_missing_file_is_reported) {
    const Captured_debug debug;
    const std::string missing = folder.path("missing");
    EXPECT_FALSE(stream.open_read(missing.c_str()));
    EXPECT_EQ(debug.text(), "Error opening file [" + missing + "]\n");
    expect_closed();
}

// ---- Faults ----

struct File_checksummed_faults : File_checksummed_damage {
    const std::string path = folder.make_file("f", checksummed("abcde"));
    Captured_debug debug;
    Replaced_file_calls calls;

    /// The next opening fails with this text. The one after it, with nothing replaced, succeeds.
    void expect_failure(const std::string& text) {
        const int before = open_descriptors();
        EXPECT_FALSE(stream.open_read(path.c_str()));
        EXPECT_EQ(debug.text(), text);
        EXPECT_EQ(open_descriptors(), before);
        expect_closed();
        calls.fstat = nullptr;
        calls.fseek = nullptr;
        calls.ftell = nullptr;
        calls.fread = nullptr;
        calls.ferror = nullptr;
        EXPECT_TRUE(stream.open_read(path.c_str()));
    }
};

TEST_F(File_checksummed_faults, of_getting_the_size_are_not_reported) {
    calls.fstat = [](int) { return -1; };
    expect_failure("");
}

TEST_F(File_checksummed_faults, of_seeking_are_reported_with_their_reason) {
    calls.fseek = [](int) {
        errno = EIO;
        return -1;
    };
    expect_failure("CRC32 seek failed in checksummed file [" + path + "]: Input/output error\n");
}

TEST_F(File_checksummed_faults, of_getting_the_position_are_reported_with_their_reason) {
    calls.ftell = [] {
        errno = EOVERFLOW;
        return -1;
    };
    expect_failure("CRC32 seek failed in checksummed file [" + path + "]: Value too large for defined data type\n");
}

TEST_F(File_checksummed_faults, of_reading_the_trailer_are_reported_with_their_reason) {
    calls.fread = [](std::size_t size, std::size_t count) {
        EXPECT_EQ(size, 20U);
        EXPECT_EQ(count, 1U);
        errno = EIO;
        return 0;
    };
    expect_failure("Short read while seeking CRC32 in checksummed file [" + path + "]: Input/output error\n");
}

TEST_F(File_checksummed_faults, of_reading_the_content_are_reported_with_their_reason) {
    calls.fread = [](std::size_t size, std::size_t) {
        errno = EIO;
        return size == 1 ? std::optional(0) : std::nullopt;
    };
    calls.ferror = [] { return 1; };
    expect_failure("CRC32 calc read failed file [" + path + "]: Input/output error\n");
}

TEST_F(File_checksummed_faults, a_file_that_has_become_shorter_is_read_again_until_it_has_its_size_back) {
    const std::string whole = checksummed(numbered(20000)); // more than the C library's buffer holds
    folder.make_file("f", whole);
    int blocks = 0;
    calls.fread = [&](std::size_t, std::size_t) {
        if (++blocks == 2)
            folder.make_file("f", whole.substr(0, 300));
        return std::nullopt;
    };
    const Replaced_delays delays([&](std::size_t count) {
        if (count == 3)
            folder.make_file("f", whole);
    });
    EXPECT_TRUE(stream.open_read(path.c_str()));
    EXPECT_EQ(delays.count, 3);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(File_checksummed_faults, a_file_too_large_for_its_positions_is_rejected) {
    std::filesystem::resize_file(path, std::uintmax_t{1} << 31); // uses no space on the disk
    EXPECT_FALSE(stream.open_read(path.c_str()));
    EXPECT_EQ(debug.text(),
              "CRC32 seek failed in checksummed file [" + path + "]: Value too large for defined data type\n");
    expect_closed();
}

} // namespace
