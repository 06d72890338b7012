// The operations of the file store. After a power failure: pcf_power_cut_test.cpp; threads: pcf_threads_test.cpp.

#include <platform/pcf.h>

#include <support/builders/Random.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Allocation_counter.h>
#include <support/faults/Limited_file_size.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/files/Mounted_store.h>
#include <support/files/descriptors.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StrEq;
namespace fs = std::filesystem;

int write_text(const std::string& text) {
    return pcfWrite(text.data(), static_cast<int>(text.size()), -1);
}

/// The unread rest of the file that is open for reading.
std::string read_rest() {
    std::string text;
    char piece[7];
    PcfResult result = pcf_ok;
    for (int count = 0; (count = pcfRead(piece, sizeof piece, result, 0)) > 0;)
        text.append(piece, static_cast<std::size_t>(count));
    EXPECT_EQ(result, pcf_ok);
    return text;
}

std::vector<std::string> names() {
    std::vector<std::string> result;
    char name[pcf_longest_name + 1];
    for (int i = 0; i < pcfGetNumFiles(); ++i) {
        EXPECT_TRUE(pcfGetFileName(i, name));
        result.emplace_back(name);
    }
    return result;
}

struct pcf : testing::Test {
    Mounted_store store{100};
};

// ---- Mounting ----

TEST(pcf_mounting, nothing_works_without_a_store) {
    PcfInfo info{};
    char name[pcf_longest_name + 1];
    PcfResult result = pcf_ok;
    EXPECT_FALSE(pcfIsMounted(nullptr));
    EXPECT_FALSE(pcfInfo(info));
    EXPECT_EQ(pcfGetNumFiles(), 0);
    EXPECT_FALSE(pcfGetFileName(0, name));
    EXPECT_FALSE(pcfExists("a"));
    EXPECT_FALSE(pcfRemove("a"));
    EXPECT_EQ(pcfOpenRead("a", 0, nullptr), pcf_missing);
    EXPECT_EQ(pcfRead(name, 1, result, 0), 0);
    EXPECT_EQ(result, pcf_wrong_state);
    EXPECT_EQ(pcfCloseRead(0), pcf_wrong_state);
    EXPECT_FALSE(pcfOpenWrite("a", nullptr));
    EXPECT_FALSE(pcfCreateWrite("a", nullptr));
    EXPECT_EQ(write_text("a"), 0);
    EXPECT_FALSE(pcfCloseWrite(-1));
    pcfUnmount();
}

TEST_F(pcf, is_mounted_until_it_is_unmounted) {
    EXPECT_TRUE(pcfIsMounted(nullptr));
    EXPECT_EQ(pcfDirectory(), store.folder.path());
    EXPECT_FALSE(pcfMount("/tmp", 5)); // one at a time
    EXPECT_EQ(pcfDirectory(), store.folder.path());
    pcfUnmount();
    EXPECT_FALSE(pcfIsMounted(nullptr));
    EXPECT_TRUE(store.mount());
}

TEST(pcf_mounting, of_other_than_a_directory_fails_and_reports_why) {
    const Temporary_folder folder;
    const Captured_debug debug;
    EXPECT_FALSE(pcfMount(folder.path("missing").c_str(), 100));
    EXPECT_FALSE(pcfMount(folder.make_file("file", "").c_str(), 100));
    EXPECT_FALSE(pcfIsMounted(nullptr));
    EXPECT_EQ(debug.text(), "File store: cannot mount \"" + folder.path("missing") + "\": No such file or directory\n" +
                                "File store: cannot mount \"" + folder.path("file") + "\": Not a directory\n");
}

TEST(pcf_mounting, includes_existing_files_and_ignores_foreign_entries) {
    const Temporary_folder folder;
    folder.make_file("b", "12345");
    folder.make_file("a", "123");
    folder.make_file(".hidden", "12");
    folder.make_file(std::string(40, 'n'), "12");
    fs::create_directory(folder.path("folder"));
    fs::create_symlink(folder.path("a"), folder.path("link"));
    folder.make_fifo("fifo");
    ASSERT_TRUE(pcfMount(folder.path().c_str(), 100));
    const Captured_debug debug;
    EXPECT_THAT(names(), ElementsAre("a", "b"));
    PcfInfo info{};
    ASSERT_TRUE(pcfInfo(info));
    EXPECT_EQ(info.total, 100U);
    EXPECT_EQ(info.free, 92U);
    for (const char* foreign : {"folder", "link", "fifo", ".hidden"}) {
        EXPECT_FALSE(pcfExists(foreign)) << foreign;
        EXPECT_FALSE(pcfRemove(foreign)) << foreign;
        EXPECT_FALSE(pcfCreateWrite(foreign, nullptr)) << foreign;
    }
    EXPECT_THAT(names(), ElementsAre("a", "b"));
    pcfUnmount();
    EXPECT_TRUE(folder.has("link") && folder.has("fifo") && folder.has("folder") && folder.has(".hidden"));
}

TEST(pcf_mounting, of_more_bytes_than_the_limit_has_no_free_space) {
    const Temporary_folder folder;
    folder.make_file("a", "12345");
    ASSERT_TRUE(pcfMount(folder.path().c_str(), 4));
    PcfInfo info{};
    ASSERT_TRUE(pcfInfo(info));
    EXPECT_EQ(info.total, 4U);
    EXPECT_EQ(info.free, 0U);
    ASSERT_TRUE(pcfOpenWrite("a", nullptr));
    EXPECT_EQ(write_text("6"), 0);
    pcfUnmount();
    EXPECT_EQ(folder.content_of("a"), "12345");
}

TEST_F(pcf, is_for_one_process_at_a_time) {
    const auto mounts_in_another_process = [this] {
        const pid_t child = fork();
        if (child == 0)
            _exit(store.mount() ? 1 : 0);
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) && WEXITSTATUS(status) == 1;
    };
    pcfUnmount();
    EXPECT_TRUE(mounts_in_another_process()); // and its death does not matter
    const int other = open(store.folder.path().c_str(), O_RDONLY);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0); // as the mount of another process does
    const Captured_debug debug;
    EXPECT_FALSE(store.mount());
    EXPECT_THAT(debug.text(), HasSubstr("Resource temporarily unavailable"));
    close(other);
    EXPECT_TRUE(store.mount());
}

TEST_F(pcf, unmounting_closes_open_files_and_keeps_the_written_bytes) {
    store.make_file("a", "old");
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    ASSERT_TRUE(pcfCreateWrite("b", nullptr));
    EXPECT_EQ(write_text("new"), 3);
    const int before = open_descriptors();
    pcfUnmount();
    EXPECT_EQ(open_descriptors(), before - 3); // both files and the directory
    ASSERT_TRUE(store.mount());
    EXPECT_EQ(write_text("more"), 0);
    EXPECT_EQ(pcfCloseRead(0), pcf_wrong_state);
    EXPECT_EQ(store.content_of("b"), "new");
    EXPECT_EQ(store.free(), 94U);
}

// ---- Names ----

TEST_F(pcf, accepts_names_of_1_to_39_characters) {
    const std::string longest(39, 'n');
    store.make_file(longest, "x");
    store.make_file("y", "");
    EXPECT_THAT(names(), ElementsAre(longest, "y"));
    for (const std::string& name : {std::string(), std::string(40, 'n'), std::string("a/b"), std::string("../a"),
                                    std::string("."), std::string(".."), std::string(".a")}) {
        EXPECT_FALSE(pcfCreateWrite(name.c_str(), nullptr)) << name;
        EXPECT_FALSE(pcfExists(name.c_str())) << name;
    }
    EXPECT_EQ(pcfGetNumFiles(), 2);
}

TEST_F(pcf, returns_no_name_after_the_last_file) {
    store.make_file("a", "");
    char name[pcf_longest_name + 1] = "unchanged";
    EXPECT_FALSE(pcfGetFileName(1, name));
    EXPECT_FALSE(pcfGetFileName(-1, name));
    EXPECT_STREQ(name, "unchanged");
}

// ---- Writing ----

TEST_F(pcf, creates_a_file_once_and_appends_to_it_afterwards) {
    EXPECT_FALSE(pcfOpenWrite("a", nullptr)); // it does not exist yet
    store.make_file("a", "abc");
    EXPECT_FALSE(pcfCreateWrite("a", nullptr));
    ASSERT_TRUE(pcfOpenWrite("a", nullptr));
    EXPECT_EQ(write_text("de"), 2);
    EXPECT_EQ(write_text("f"), 1);
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_EQ(store.content_of("a"), "abcdef");
}

TEST_F(pcf, is_busy_for_a_second_writer) {
    store.make_file("a", "");
    ASSERT_TRUE(pcfCreateWrite("b", nullptr));
    EXPECT_FALSE(pcfOpenWrite("a", nullptr));
    EXPECT_FALSE(pcfOpenWrite("b", nullptr));
    EXPECT_FALSE(pcfCreateWrite("c", nullptr));
    EXPECT_FALSE(pcfExists("c"));
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_FALSE(pcfCloseWrite(-1));
    EXPECT_TRUE(pcfOpenWrite("a", nullptr));
}

TEST_F(pcf, writes_what_fits_and_nothing_more) {
    ASSERT_TRUE(pcfCreateWrite("a", nullptr));
    EXPECT_EQ(write_text(std::string(97, 'a')), 97);
    EXPECT_EQ(store.free(), 3U);
    EXPECT_EQ(write_text("12345"), 3);
    EXPECT_EQ(store.free(), 0U);
    EXPECT_EQ(write_text("6"), 0);
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_EQ(store.content_of("a"), std::string(97, 'a') + "123");
    EXPECT_TRUE(pcfRemove("a"));
    EXPECT_EQ(store.free(), 100U);
}

TEST_F(pcf, writes_nothing_for_a_size_below_1) {
    ASSERT_TRUE(pcfCreateWrite("a", nullptr));
    EXPECT_EQ(pcfWrite("abc", 0, -1), 0);
    EXPECT_EQ(pcfWrite("abc", -1, -1), 0);
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_EQ(store.content_of("a"), "");
}

TEST_F(pcf, writes_what_fits_on_a_full_disk_and_counts_that) {
    store.make_file("a", "abc");
    ASSERT_TRUE(pcfOpenWrite("a", nullptr));
    const Captured_debug debug;
    {
        const Limited_file_size limit(7);
        EXPECT_EQ(write_text("defghijk"), 4);
    }
    EXPECT_EQ(store.free(), 93U);
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_EQ(store.content_of("a"), "abcdefg");
    EXPECT_EQ(debug.text(), "File store: cannot write \"a\": File too large\n");
}

TEST_F(pcf, signal_shortens_neither_writing_nor_reading) {
    int interruptions = 0;
    Replaced_calls calls;
    const auto interrupted_twice = [&interruptions](int) -> std::optional<ssize_t> {
        if (++interruptions % 3 == 0)
            return std::nullopt;
        errno = EINTR;
        return -1;
    };
    ASSERT_TRUE(pcfCreateWrite("a", nullptr));
    calls.write = interrupted_twice;
    EXPECT_EQ(write_text("abc"), 3);
    calls.write = nullptr;
    EXPECT_TRUE(pcfCloseWrite(-1));
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    calls.read = interrupted_twice;
    char bytes[3];
    PcfResult result = pcf_failed;
    EXPECT_EQ(pcfRead(bytes, 3, result, 0), 3);
    EXPECT_EQ(result, pcf_ok);
}

TEST_F(pcf, closing_reports_when_the_medium_may_have_lost_the_bytes) {
    const Captured_debug debug;
    Replaced_file_calls calls;
    for (const char* failing : {"a", "folder"}) {
        ASSERT_TRUE(pcfCreateWrite("a", nullptr));
        calls.fsync = [&](int fd) {
            errno = EIO;
            return (name_of(fd) == "a") == (failing == std::string("a")) ? std::optional(-1) : std::nullopt;
        };
        EXPECT_FALSE(pcfCloseWrite(-1)) << failing;
        calls.fsync = nullptr;
        EXPECT_FALSE(pcfCloseWrite(-1)) << "it is closed nevertheless";
        EXPECT_TRUE(pcfRemove("a"));
    }
    const std::string line = "File store: may have failed to keep \"a\": Input/output error\n";
    EXPECT_EQ(debug.text(), line + line);
}

TEST_F(pcf, file_that_cannot_be_opened_does_not_exist_afterwards) {
    const Captured_debug debug;
    Replaced_file_calls calls;
    calls.openat = [](const char*, int) {
        errno = ENOSPC;
        return -1;
    };
    EXPECT_FALSE(pcfCreateWrite("a", nullptr));
    EXPECT_FALSE(pcfExists("a"));
    EXPECT_EQ(debug.text(), "File store: cannot open \"a\": No space left on device\n");
    calls.openat = nullptr;
    EXPECT_TRUE(pcfCreateWrite("a", nullptr));
}

// ---- Reading ----

TEST_F(pcf, reads_from_any_offset_to_the_end) {
    store.make_file("a", "abcdefghijklmnop");
    for (const auto& [offset, rest] : std::vector<std::pair<unsigned long, std::string>>{
             {0, "abcdefghijklmnop"}, {10, "klmnop"}, {16, ""}, {17, ""}, {1000000, ""}}) {
        ASSERT_EQ(pcfOpenRead("a", offset, nullptr), pcf_ok);
        EXPECT_EQ(read_rest(), rest) << offset;
        EXPECT_EQ(pcfCloseRead(0), pcf_ok);
    }
    // Above the largest position of a file where an unsigned long has 64 bits, past the end of the file elsewhere.
    const auto furthest = std::numeric_limits<unsigned long>::max();
    EXPECT_EQ(pcfOpenRead("a", furthest, nullptr), sizeof furthest == 8 ? pcf_failed : pcf_ok);
    EXPECT_EQ(pcfCloseRead(0), sizeof furthest == 8 ? pcf_wrong_state : pcf_ok);
    EXPECT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok); // the failure left nothing open
}

TEST_F(pcf, is_busy_for_a_second_reader) {
    store.make_file("a", "abc");
    store.make_file("b", "def");
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    EXPECT_EQ(pcfOpenRead("a", 0, nullptr), pcf_busy);
    EXPECT_EQ(pcfOpenRead("b", 0, nullptr), pcf_busy);
    EXPECT_EQ(pcfOpenRead("c", 0, nullptr), pcf_missing);
    EXPECT_EQ(read_rest(), "abc");
    EXPECT_EQ(pcfCloseRead(0), pcf_ok);
    EXPECT_EQ(pcfCloseRead(0), pcf_wrong_state);
    EXPECT_EQ(pcfOpenRead("b", 0, nullptr), pcf_ok);
}

TEST_F(pcf, reads_what_is_being_written) {
    ASSERT_TRUE(pcfCreateWrite("a", nullptr));
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    EXPECT_EQ(read_rest(), "");
    EXPECT_EQ(write_text("abc"), 3);
    EXPECT_EQ(read_rest(), "abc");
}

TEST_F(pcf, reports_a_read_that_fails) {
    store.make_file("a", "abc");
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    const Captured_debug debug;
    Replaced_calls calls;
    calls.read = [](int) -> std::optional<ssize_t> {
        errno = EIO;
        return -1;
    };
    char byte = 0;
    PcfResult result = pcf_ok;
    EXPECT_EQ(pcfRead(&byte, 1, result, 0), 0);
    EXPECT_EQ(result, pcf_failed);
    EXPECT_EQ(debug.text(), "File store: cannot read \"a\": Input/output error\n");
}

TEST_F(pcf, file_that_another_program_removed_cannot_be_read_but_can_be_removed) {
    store.make_file("a", "abc");
    fs::remove(store.folder.path("a"));
    const Captured_debug debug;
    EXPECT_EQ(pcfOpenRead("a", 0, nullptr), pcf_failed);
    EXPECT_EQ(debug.text(), "File store: cannot open \"a\": No such file or directory\n");
    EXPECT_TRUE(pcfRemove("a"));
    EXPECT_EQ(store.free(), 100U);
}

// ---- Removing ----

TEST_F(pcf, removes_no_file_that_is_open) {
    store.make_file("a", "abc");
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    EXPECT_FALSE(pcfRemove("a"));
    EXPECT_EQ(pcfCloseRead(0), pcf_ok);
    ASSERT_TRUE(pcfOpenWrite("a", nullptr));
    EXPECT_FALSE(pcfRemove("a"));
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_TRUE(pcfRemove("a"));
    EXPECT_FALSE(pcfRemove("a"));
    EXPECT_FALSE(store.folder.has("a"));
}

TEST_F(pcf, failed_removal_leaves_the_file_and_an_unsafe_one_is_reported) {
    store.make_file("a", "abc");
    const Captured_debug debug;
    Replaced_file_calls calls;
    calls.unlinkat = [](const char*) {
        errno = EROFS;
        return -1;
    };
    EXPECT_FALSE(pcfRemove("a"));
    EXPECT_TRUE(pcfExists("a"));
    calls.unlinkat = nullptr;
    calls.fsync = [](int) {
        errno = EIO;
        return -1;
    };
    EXPECT_FALSE(pcfRemove("a"));
    EXPECT_FALSE(pcfExists("a"));
    EXPECT_EQ(debug.text(), "File store: cannot remove \"a\": Read-only file system\n"
                            "File store: may have failed to remove \"a\": Input/output error\n");
}

// ---- All operations ----

TEST_F(pcf, never_uses_the_number_of_a_standard_stream) {
    store.make_file("a", "abc");
    pcfUnmount();
    const int standard_input = dup(0);
    close(0);
    EXPECT_TRUE(store.mount());
    EXPECT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    EXPECT_TRUE(pcfOpenWrite("a", nullptr));
    EXPECT_FALSE(is_open(0));
    dup2(standard_input, 0);
    close(standard_input);
}

TEST_F(pcf, allocates_nothing_while_reading_and_writing) {
    ASSERT_TRUE(pcfCreateWrite("a", nullptr));
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), pcf_ok);
    char bytes[10] = {};
    PcfResult result = pcf_ok;
    const Allocation_counter allocations;
    EXPECT_EQ(pcfWrite(bytes, 10, -1), 10);
    EXPECT_EQ(pcfRead(bytes, 10, result, 0), 10);
    EXPECT_TRUE(pcfCloseWrite(-1));
    EXPECT_EQ(pcfCloseRead(0), pcf_ok);
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(pcf_model, behaves_like_a_map_of_texts) {
    constexpr std::size_t total = 300;
    const Mounted_store store(total);
    std::map<std::string, std::string> model;
    Random random;
    const auto used = [&model] {
        std::size_t sum = 0;
        for (const auto& [name, content] : model)
            sum += content.size();
        return sum;
    };
    for (int step = 0; step < 700; ++step) {
        const std::string name(1, static_cast<char>('a' + random.between(0, 5)));
        const bool there = model.count(name) != 0;
        ASSERT_EQ(pcfExists(name.c_str()) != 0, there);
        switch (random.between(0, 3)) {
        case 0:
            ASSERT_EQ(pcfRemove(name.c_str()) != 0, there);
            model.erase(name);
            break;
        case 1: {
            ASSERT_EQ(pcfCreateWrite(name.c_str(), nullptr) != 0, !there);
            if (there) {
                ASSERT_TRUE(pcfOpenWrite(name.c_str(), nullptr));
            }
            const std::string bytes = random.bytes(random.between(0, 80));
            const std::size_t fits = std::min(bytes.size(), total - used());
            ASSERT_EQ(write_text(bytes), static_cast<int>(fits));
            model[name] += bytes.substr(0, fits);
            ASSERT_TRUE(pcfCloseWrite(-1));
            break;
        }
        case 2: {
            const std::size_t offset = random.between(0, 50);
            ASSERT_EQ(pcfOpenRead(name.c_str(), offset, nullptr), there ? pcf_ok : pcf_missing);
            if (there) {
                ASSERT_EQ(read_rest(), offset <= model[name].size() ? model[name].substr(offset) : "");
                ASSERT_EQ(pcfCloseRead(0), pcf_ok);
            }
            break;
        }
        default:
            if (random.one_in(10)) {
                pcfUnmount();
                ASSERT_TRUE(store.mount());
            }
        }
        ASSERT_EQ(store.free(), total - used());
        std::vector<std::string> expected;
        for (const auto& [file, content] : model)
            expected.push_back(file);
        ASSERT_EQ(names(), expected);
    }
}

} // namespace
