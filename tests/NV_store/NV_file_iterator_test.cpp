#include <glue/NV_store/NV_file_iterator.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Simulated_F2FS.h>
#include <support/faults/Watched_file_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/settings/Iterator_bytes.h>
#include <support/settings/Settings_tree.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using NV_store::NV_file_iterator;
using NV_store::NV_iterator;
using testing::ElementsAre;

constexpr auto beyond_modes = static_cast<NV_iterator::modes_t>(6);

struct NV_file_iterator_test : testing::Test, Iterator_bytes {
    Temporary_folder folder;
    std::string path = folder.path("settings");
    NV_file_iterator file{path.c_str()};

    NV_iterator& iterator() override { return file; }
};

TEST_F(NV_file_iterator_test, begins_closed_without_a_file_and_with_nothing_used) {
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_FALSE(file.is_readable());
    EXPECT_EQ(used(), 0U);
    EXPECT_EQ(total(), 16384U);
    EXPECT_FALSE(folder.has("settings"));
}

TEST_F(NV_file_iterator_test, keeps_its_own_copy_of_the_path) {
    std::string given = path;
    NV_file_iterator copying(given.c_str());
    given.assign(given.size(), 'x');
    copying.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(folder.has("settings"));
}

TEST_F(NV_file_iterator_test, writing_truncates_and_appending_continues) {
    folder.make_file("settings", "what was there before");
    for (const auto mode : {NV_iterator::writing_all, NV_iterator::writing_set}) {
        file.set_mode(mode);
        EXPECT_EQ(file.get_mode(), mode);
        EXPECT_TRUE(file.is_readable());
        EXPECT_EQ(used(), 0U);
        EXPECT_TRUE(push("abc"));
        EXPECT_EQ(used(), 3U);
    }
    for (const auto mode : {NV_iterator::appending_written, NV_iterator::appending_changed}) {
        file.set_mode(mode);
        EXPECT_EQ(file.get_mode(), mode);
        EXPECT_TRUE(push("de"));
    }
    file.set_mode(NV_iterator::closed);
    EXPECT_EQ(used(), 7U);
    EXPECT_EQ(folder.content_of("settings"), "abcdede");
}

TEST_F(NV_file_iterator_test, failed_opening_leaves_the_used_bytes_unchanged) {
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("abc"));
    const Watched_file_calls watched(folder.path(), [](const File_call& call) -> Watched_file_calls::Answer {
        if (call.what != "open")
            return std::nullopt;
        errno = EACCES;
        return -1;
    });
    file.set_mode(NV_iterator::writing_all);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(used(), 3U);
}

TEST_F(NV_file_iterator_test, appending_creates_a_missing_file) {
    file.set_mode(NV_iterator::appending_written);
    EXPECT_TRUE(push("a"));
    EXPECT_EQ(folder.content_of("settings"), "a");
}

TEST_F(NV_file_iterator_test, new_file_gets_every_permission_the_mask_leaves) {
    const mode_t mask = umask(027);
    file.set_mode(NV_iterator::writing_all);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0750U);
}

TEST_F(NV_file_iterator_test, peeks_without_and_pops_with_consuming) {
    folder.make_file("settings", "abcdef");
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(peek(4), "abcd");
    EXPECT_EQ(pop(2), "ab");
    EXPECT_EQ(peek(4), "cdef");
    EXPECT_EQ(peek(0), "");
    EXPECT_EQ(pop(0), "");
}

TEST_F(NV_file_iterator_test, short_peek_fails_and_leaves_the_position) {
    folder.make_file("settings", "abc");
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(pop(1), "a");
    EXPECT_EQ(peek(3), "failed");
    EXPECT_EQ(pop(2), "bc");
}

TEST_F(NV_file_iterator_test, short_pop_fails_and_consumes_the_rest) {
    folder.make_file("settings", "abc");
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(pop(4), "failed");
    EXPECT_EQ(pop(1), "failed");
}

TEST_F(NV_file_iterator_test, every_mode_has_its_own_direction) {
    folder.make_file("settings", "abc");
    EXPECT_FALSE(push("x"));
    EXPECT_EQ(pop(1), "failed");
    EXPECT_EQ(peek(1), "failed");
    file.set_mode(NV_iterator::reading);
    EXPECT_FALSE(push("x"));
    for (const auto mode : {NV_iterator::appending_written, NV_iterator::appending_changed, NV_iterator::writing_all,
                            NV_iterator::writing_set}) {
        file.set_mode(mode);
        EXPECT_EQ(pop(1), "failed");
        EXPECT_EQ(peek(1), "failed");
    }
    EXPECT_EQ(used(), 0U);
}

TEST_F(NV_file_iterator_test, other_modes_are_stored_without_a_file) {
    file.set_mode(NV_iterator::writing_all);
    file.set_mode(beyond_modes);
    EXPECT_EQ(file.get_mode(), beyond_modes);
    EXPECT_FALSE(file.is_readable());
    EXPECT_FALSE(push("x"));
    file.set_mode(NV_iterator::reading);
    EXPECT_TRUE(file.is_readable());
}

TEST_F(NV_file_iterator_test, missing_and_unwritable_files_leave_it_closed) {
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    NV_file_iterator nowhere(folder.path("missing/settings").c_str());
    for (const auto mode : {NV_iterator::writing_all, NV_iterator::appending_changed}) {
        nowhere.set_mode(mode);
        EXPECT_EQ(nowhere.get_mode(), NV_iterator::closed);
        EXPECT_FALSE(nowhere.is_readable());
    }
}

TEST_F(NV_file_iterator_test, file_that_cannot_be_closed_leaves_it_closed_and_the_new_mode_not_entered) {
    folder.make_file("settings", "abc");
    file.set_mode(NV_iterator::reading);
    {
        const Watched_file_calls watched(folder.path(), [](const File_call& call) -> Watched_file_calls::Answer {
            if (call.what != "close")
                return std::nullopt;
            ::close(call.fd);
            errno = EIO;
            return -1;
        });
        file.set_mode(NV_iterator::writing_all);
    }
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_FALSE(file.is_readable());
    EXPECT_EQ(folder.content_of("settings"), "abc");
}

TEST_F(NV_file_iterator_test, destruction_closes_the_file) {
    const int before = open_descriptors();
    {
        NV_file_iterator dying(path.c_str());
        dying.set_mode(NV_iterator::writing_all);
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(NV_file_iterator_test, destruction_does_not_close_a_descriptor_that_is_no_longer_valid) {
    std::vector<std::string> calls;
    {
        NV_file_iterator dying(path.c_str());
        const int fd = next_descriptor();
        dying.set_mode(NV_iterator::writing_all);
        ::close(fd);
        const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Watched_file_calls::Answer {
            calls.push_back(call.what);
            return std::nullopt;
        });
    }
    EXPECT_THAT(calls, ElementsAre());
}

TEST_F(NV_file_iterator_test, descriptor_is_not_inherited_and_not_a_standard_one) {
    const int standard_input = dup(0);
    ::close(0);
    EXPECT_EQ(next_descriptor(), 0);
    file.set_mode(NV_iterator::writing_all);
    EXPECT_EQ(next_descriptor(), 0); // still free
    dup2(standard_input, 0);
    ::close(standard_input);
    ASSERT_TRUE(file.is_readable());
    for (int fd = 3; fd < 64; ++fd) {
        if (is_open(fd) && name_of(fd) == "settings") {
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        }
    }
}

// ---- Whole transfers ----

TEST_F(NV_file_iterator_test, transfers_refuse_null_buffers_and_negative_counts) {
    unsigned char byte = 0;
    EXPECT_EQ(NV_file_iterator::blocking_write(1, nullptr, 1), -1);
    EXPECT_EQ(NV_file_iterator::blocking_write(1, &byte, -1), -1);
    EXPECT_EQ(NV_file_iterator::blocking_read(0, nullptr, 1), -1);
    EXPECT_EQ(NV_file_iterator::blocking_read(0, &byte, -1), -1);
    file.set_mode(NV_iterator::writing_all);
    EXPECT_FALSE(file.push_bytes(&byte, -1));
    EXPECT_FALSE(file.push_bytes(nullptr, 1));
    file.set_mode(NV_iterator::reading);
    EXPECT_FALSE(file.pop_bytes(&byte, -1));
    EXPECT_FALSE(file.peek_bytes(&byte, -1));
}

TEST_F(NV_file_iterator_test, transfers_continue_after_interruptions_and_short_results) {
    for (const int reason : {EAGAIN, EINTR, 0}) {
        unsigned calls = 0;
        const auto answer = [&](const File_call& call) -> Watched_file_calls::Answer {
            if ((call.what != "write" && call.what != "read") || ++calls % 2 == 0)
                return std::nullopt;
            if (reason == 0) // one byte at a time
                return call.what == "write" ? ::write(call.fd, call.bytes.data(), 1) : Watched_file_calls::Answer();
            errno = reason;
            return -1;
        };
        const Watched_file_calls watched(folder.path(), answer);
        file.set_mode(NV_iterator::writing_all);
        EXPECT_TRUE(push("abcdef"));
        file.set_mode(NV_iterator::reading);
        EXPECT_EQ(pop(6), "abcdef");
        EXPECT_GE(calls, 3U);
    }
}

TEST_F(NV_file_iterator_test, write_of_zero_bytes_ends_the_transfer) {
    file.set_mode(NV_iterator::writing_all);
    unsigned calls = 0;
    const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Watched_file_calls::Answer {
        if (call.what != "write")
            return std::nullopt;
        return ++calls == 1 ? ::write(call.fd, call.bytes.data(), 2) : 0;
    });
    EXPECT_FALSE(push("abcdef"));
    EXPECT_EQ(calls, 2U);
    EXPECT_EQ(used(), 6U); // on purpose: also what was not written
}

TEST_F(NV_file_iterator_test, error_is_reported_on_standard_output) {
    folder.make_file("settings", "abc");
    const auto answer = [](const File_call& call) -> Watched_file_calls::Answer {
        if (call.what != "write" && call.what != "read")
            return std::nullopt;
        errno = call.what == "write" ? ENOSPC : EIO;
        return -1;
    };
    std::fflush(stdout);
    const Captured_descriptor output(STDOUT_FILENO);
    {
        const Watched_file_calls watched(folder.path(), answer);
        file.set_mode(NV_iterator::reading);
        EXPECT_EQ(pop(1), "failed");
        EXPECT_EQ(peek(1), "failed");
        file.set_mode(NV_iterator::writing_all);
        EXPECT_FALSE(push("a"));
    }
    std::fflush(stdout);
    EXPECT_EQ(output.text(), "Error in NV_file_iterator: Input/output error\n"
                             "Error in NV_file_iterator: Input/output error\n"
                             "Error in NV_file_iterator: No space left on device\n");
}

TEST_F(NV_file_iterator_test, peek_fails_when_the_position_cannot_be_restored) {
    folder.make_file("settings", "abc");
    file.set_mode(NV_iterator::reading);
    for (const int failing : {1, 2}) {
        int calls = 0;
        const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Watched_file_calls::Answer {
            if (call.what != "seek" || ++calls != failing)
                return std::nullopt;
            errno = EINVAL;
            return -1;
        });
        EXPECT_EQ(peek(1), "failed");
    }
}

// ---- Atomic files ----

struct Atomic_file_test : NV_file_iterator_test {
    std::vector<std::string> calls;
    Simulated_F2FS f2fs{folder.path(), calls};

    void make_old_file() {
        folder.make_file("settings", "old");
        calls.clear();
    }
};

TEST_F(Atomic_file_test, atomic_writing_starts_before_truncating_and_commits_when_closed) {
    make_old_file();
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("new!"));
    EXPECT_EQ(f2fs.committed("settings"), "old");
    file.set_mode(NV_iterator::closed);
    EXPECT_EQ(f2fs.committed("settings"), "new!");
    EXPECT_THAT(calls,
                ElementsAre("open settings create", "ioctl 0xf501", "truncate 0", "write", "ioctl 0xf502", "close"));
}

TEST_F(Atomic_file_test, appending_does_not_truncate) {
    make_old_file();
    file.set_mode(NV_iterator::appending_changed);
    EXPECT_TRUE(push("+"));
    file.set_mode(NV_iterator::closed);
    EXPECT_EQ(f2fs.committed("settings"), "old+");
    EXPECT_THAT(calls, ElementsAre("open settings create append", "ioctl 0xf501", "write", "ioctl 0xf502", "close"));
}

TEST_F(Atomic_file_test, reading_requests_no_atomic_write) {
    make_old_file();
    file.set_mode(NV_iterator::reading);
    file.set_mode(NV_iterator::closed);
    EXPECT_THAT(calls, ElementsAre("open settings", "close"));
}

TEST_F(Atomic_file_test, destruction_commits) {
    make_old_file();
    {
        NV_file_iterator dying(path.c_str());
        dying.set_mode(NV_iterator::writing_all);
        unsigned char byte = 'n';
        EXPECT_TRUE(dying.push_bytes(&byte, 1));
    }
    EXPECT_EQ(f2fs.committed("settings"), "n");
}

TEST_F(Atomic_file_test, without_a_commit_the_old_file_stays) {
    make_old_file();
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("new!"));
    f2fs.kill_process();
    EXPECT_EQ(folder.content_of("settings"), "old");
}

TEST_F(Atomic_file_test, failing_commit_is_not_reported) {
    make_old_file();
    f2fs.commit_fails = true;
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("new!"));
    file.set_mode(NV_iterator::reading); // entered: only closing could keep it from that
    EXPECT_EQ(file.get_mode(), NV_iterator::reading);
    EXPECT_EQ(pop(3), "old");
}

TEST_F(Atomic_file_test, file_system_that_refuses_gets_the_fallback) {
    make_old_file();
    f2fs.start_fails = true;
    file.set_mode(NV_iterator::writing_all);
    EXPECT_EQ(folder.content_of("settings"), "");
    file.set_mode(NV_iterator::closed);
    EXPECT_THAT(calls,
                ElementsAre("open settings create", "ioctl 0xf501", "close", "open settings create truncate", "close"));
}

TEST_F(Atomic_file_test, file_that_cannot_be_truncated_gets_the_fallback) {
    make_old_file();
    f2fs.truncate_fails = true;
    file.set_mode(NV_iterator::writing_all);
    EXPECT_EQ(folder.content_of("settings"), "");
    EXPECT_THAT(calls, ElementsAre("open settings create", "ioctl 0xf501", "truncate 0", "close",
                                   "open settings create truncate"));
}

TEST_F(Atomic_file_test, operations_can_be_used_alone) {
    make_old_file();
    auto opened = NV_file_iterator::open_atomic_fallback(path.c_str(), O_RDWR, O_RDONLY, 0);
    EXPECT_TRUE(opened.second);
    EXPECT_EQ(NV_file_iterator::close_atomic(opened), 0);
    opened = NV_file_iterator::open_atomic_fallback(path.c_str(), O_APPEND, O_RDONLY, 0);
    EXPECT_TRUE(opened.second);
    EXPECT_EQ(NV_file_iterator::close_atomic(opened), 0);
    opened = NV_file_iterator::open_atomic_fallback(path.c_str(), O_RDONLY, O_RDONLY, 0);
    EXPECT_FALSE(opened.second);
    EXPECT_EQ(NV_file_iterator::close_atomic(opened), 0);
    EXPECT_EQ(NV_file_iterator::close_atomic(opened), -1); // not open
    opened = NV_file_iterator::open_atomic_fallback(folder.path("missing").c_str(), O_WRONLY, O_RDONLY, 0);
    EXPECT_LT(opened.first, 0);
    EXPECT_FALSE(opened.second);
    calls.clear();
    EXPECT_EQ(NV_file_iterator::close_atomic(opened), -1);
    EXPECT_EQ(NV_file_iterator::close_atomic({-1, true}), -1);
    EXPECT_THAT(calls, ElementsAre());
}

TEST_F(Atomic_file_test, both_openings_get_the_permissions) {
    const mode_t mask = umask(0);
    f2fs.start_fails = true;
    auto opened = NV_file_iterator::open_atomic_fallback(path.c_str(), O_WRONLY | O_CREAT, O_WRONLY, 0640);
    NV_file_iterator::close_atomic(opened);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

// ---- Trees ----

TEST_F(NV_file_iterator_test, tree_is_loaded_as_saved) {
    Settings_tree saved;
    saved.speed.set(-7);
    saved.guidance.width.set(9.5F);
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(saved.serialise(&file));
    saved.lamp.set(3);
    file.set_mode(NV_iterator::appending_written);
    EXPECT_TRUE(saved.serialise(&file));
    Settings_tree loaded;
    file.set_mode(NV_iterator::reading);
    const NV_store::NV_load_result result = load_all(loaded, file);
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(result.loaded, 2U);
    EXPECT_EQ(loaded.speed.get(), -7);
    EXPECT_EQ(loaded.guidance.width.get(), 9.5F);
    EXPECT_EQ(loaded.lamp.get(), 3);
}

TEST_F(NV_file_iterator_test, empty_and_missing_files_are_reported_as_no_settings) {
    Settings_tree tree;
    for (const bool exists : {false, true}) {
        if (exists)
            folder.make_file("settings", "");
        const Captured_debug debug;
        file.set_mode(NV_iterator::reading);
        EXPECT_FALSE(tree.deserialise(&file));
        EXPECT_EQ(debug.text(), "No NV settings for 0:settings\n");
    }
}

} // namespace
