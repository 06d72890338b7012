// Every system call of a save fails once, in every way that it can.

#include <glue/NV_store/NV_safe_file_iterator.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Simulated_F2FS.h>
#include <support/faults/Watched_file_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/settings/Nested_settings.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

using NV_store::NV_file_iterator;
using NV_store::NV_iterator;
using NV_store::NV_safe_file_iterator;
using testing::ElementsAre;
using Answer = Watched_file_calls::Answer;
using Flags = std::vector<unsigned char>;

constexpr int short_transfer = 0; // instead of an error: half of the bytes are transferred

Flags flags_of(Nested_settings& tree) {
    Flags flags;
    for (NV_store::NV_item* node = &tree; node; node = node->get_next_in_tree(&tree))
        flags.push_back(node->get_flags());
    return flags;
}

/// Hides what is printed on standard output.
class Quiet_output {
  public:
    Quiet_output() = default;
    ~Quiet_output() { std::fflush(stdout); }

  private:
    struct Flushed {
        Flushed() { std::fflush(stdout); }
    } flushed_;
    Captured_descriptor messages_{STDOUT_FILENO};
};

/// Skips flushes: they cost time and change nothing here.
Answer without_flushing(const File_call& call) {
    return call.what == "sync" ? Answer(0) : std::nullopt;
}

/// Lets one call fail, counted from 0, and records it.
class One_fault {
  public:
    One_fault(unsigned which, int error) : left_(which), error_(error) {}

    Answer operator()(const File_call& next) {
        if (left_ == 0 && !happened)
            return fail(next);
        --left_;
        return without_flushing(next);
    }

    bool happened = false;
    File_call call;
    bool of_leftover = false; ///< only a later saver reads the unfinished file

  private:
    Answer fail(const File_call& failing) {
        happened = true;
        call = failing;
        of_leftover = failing.fd >= 0 && (fcntl(failing.fd, F_GETFL) & O_ACCMODE) == O_RDONLY;
        if (error_ == short_transfer) {
            if (failing.what != "write")
                return std::nullopt;
            return ::write(failing.fd, failing.bytes.data(), failing.bytes.size() / 2 + failing.bytes.size() % 2);
        }
        if (failing.what == "close")
            ::close(failing.fd); // as the system does, whatever the result
        errno = error_;
        return -1;
    }

    unsigned left_;
    int error_;
};

// ---- The safe iterator ----

struct Situation {
    const char* name;
    NV_iterator::modes_t mode;
    bool has_previous;
    bool has_leftover;
};

struct Safe_save_with_a_fault : testing::TestWithParam<std::tuple<Situation, int>> {
    Temporary_folder folder;
    NV_safe_file_iterator file{folder.path("settings").c_str()};
    Captured_debug debug;
    const Situation situation = std::get<0>(GetParam());
    const int error = std::get<1>(GetParam());

    std::string content() { return folder.has("settings") ? folder.content_of("settings") : "none"; }

    /// Whether the save succeeds although the call failed.
    bool is_overcome(const One_fault& fault) const {
        const File_call& call = fault.call;
        if (call.what == "lock" && !fault.of_leftover)
            return true; // the new file then counts as a leftover, and another one is made
        if (call.what == "close" || call.what == "owner")
            return true; // ignored
        if (call.what == "stat" && call.name == "settings.saving")
            return true; // tried again with another file
        if (error == short_transfer)
            return true;
        return error == EINTR &&
               (call.what == "write" || call.what == "read" || call.what == "sync" || call.what == "lock");
    }
    bool is_flush_of_folder(const File_call& call) const {
        return call.what == "sync" && call.name == std::filesystem::path(folder.path()).filename();
    }
};

const Situation situations[] = {{"first", NV_iterator::writing_all, false, false},
                                {"full", NV_iterator::writing_all, true, false},
                                {"what_was_set", NV_iterator::writing_set, true, false},
                                {"full_after_a_killed_one", NV_iterator::writing_all, true, true},
                                {"appending", NV_iterator::appending_written, true, false},
                                {"first_appending", NV_iterator::appending_changed, false, true}};
const char* name_of(int error) {
    return error == short_transfer ? "short" : error == EIO ? "EIO" : error == ENOSPC ? "ENOSPC" : "EINTR";
}

INSTANTIATE_TEST_SUITE_P(of, Safe_save_with_a_fault,
                         testing::Combine(testing::ValuesIn(situations),
                                          testing::Values(EIO, ENOSPC, EINTR, short_transfer)),
                         [](const auto& parameters) {
                             return std::string(std::get<0>(parameters.param).name) + "_" +
                                    name_of(std::get<1>(parameters.param));
                         });

TEST_P(Safe_save_with_a_fault, is_saved_or_leaves_the_old_file_and_every_flag) {
    const int descriptors = open_descriptors();
    unsigned which = 0;
    for (bool happened = true; happened; ++which) {
        for (const std::string& name : folder.names())
            std::filesystem::remove(folder.path(name));
        Nested_settings tree;
        if (situation.has_previous) {
            const Watched_file_calls quick(folder.path(), without_flushing);
            ASSERT_TRUE(file.save(tree, NV_iterator::writing_all));
        }
        if (situation.has_leftover)
            folder.make_file("settings.saving", "leftover");
        tree.set_all();
        const Flags flags = flags_of(tree);
        const std::string old = content();

        One_fault fault(which, error);
        bool saved = false;
        {
            const Quiet_output quiet;
            const Watched_file_calls watched(folder.path(), std::ref(fault));
            saved = file.save(tree, situation.mode);
        }
        happened = fault.happened;
        SCOPED_TRACE("call " + std::to_string(which) + ": " + fault.call.what + " " + fault.call.name);
        EXPECT_EQ(saved, !happened || is_overcome(fault));
        EXPECT_EQ(file.get_mode(), NV_iterator::closed);
        EXPECT_EQ(open_descriptors(), descriptors);
        if (saved || is_flush_of_folder(fault.call)) {
            Nested_settings loaded;
            EXPECT_TRUE(loaded.load(content()).intact);
            EXPECT_EQ(loaded.values(), tree.values());
        } else {
            EXPECT_EQ(content(), old);
        }
        for (const unsigned char flag : saved ? flags_of(tree) : Flags())
            EXPECT_EQ(flag & 3, 0);
        if (!saved) {
            EXPECT_EQ(flags_of(tree), flags);
        }
        if (!situation.has_leftover) {
            EXPECT_FALSE(folder.has("settings.saving"));
        }

        tree.last.set(1);
        const Watched_file_calls quick(folder.path(), without_flushing);
        EXPECT_TRUE(file.save(tree, situation.mode));
        EXPECT_THAT(folder.names(), ElementsAre("settings"));
        Nested_settings loaded;
        EXPECT_TRUE(loaded.load(content()).intact);
        EXPECT_EQ(loaded.values(), tree.values());
        if (HasFailure())
            break;
    }
    EXPECT_GT(which, 30U); // calls there are
}

TEST(Safe_save_with_two_faults, leftover_that_could_not_be_removed_is_removed_by_the_next_save) {
    const Temporary_folder folder;
    NV_safe_file_iterator file(folder.path("settings").c_str());
    Nested_settings tree;
    const Captured_debug debug;
    {
        const Watched_file_calls watched(folder.path(), [](const File_call& call) -> Answer {
            if (call.what != "sync" && call.what != "unlink")
                return std::nullopt;
            errno = EIO;
            return -1;
        });
        EXPECT_FALSE(file.save(tree, NV_iterator::writing_all));
    }
    EXPECT_TRUE(folder.has("settings.saving"));
    EXPECT_TRUE(file.save(tree, NV_iterator::writing_all));
    EXPECT_FALSE(folder.has("settings.saving"));
}

// ---- The plain iterator ----

struct Plain_save_with_a_fault : testing::TestWithParam<int> {
    Temporary_folder folder;
    const int error = GetParam();

    /// \return whether all calls that report a result succeeded
    bool save(Nested_settings& tree, NV_iterator::modes_t mode) {
        NV_file_iterator file(folder.path("settings").c_str());
        file.set_mode(mode);
        const bool opened = file.get_mode() == mode;
        const bool written = opened && tree.serialise(&file);
        file.set_mode(NV_iterator::closed);
        return written;
    }
};

INSTANTIATE_TEST_SUITE_P(of, Plain_save_with_a_fault, testing::Values(EIO, ENOSPC, EINTR, short_transfer),
                         [](const auto& error) { return name_of(error.param); });

TEST_P(Plain_save_with_a_fault, is_saved_or_leaves_the_flags_of_unwritten_nodes) {
    const Captured_debug debug;
    const int descriptors = open_descriptors();
    for (const auto mode : {NV_iterator::writing_all, NV_iterator::appending_written}) {
        unsigned which = 0;
        for (bool happened = true; happened; ++which) {
            Nested_settings tree;
            const std::string old = tree.record();
            folder.make_file("settings", old);
            tree.set_all();
            const Flags flags = flags_of(tree);

            One_fault fault(which, error);
            bool saved = false;
            {
                const Quiet_output quiet;
                const Watched_file_calls watched(folder.path(), std::ref(fault));
                saved = save(tree, mode);
            }
            happened = fault.happened;
            SCOPED_TRACE("call " + std::to_string(which) + ": " + fault.call.what);
            EXPECT_EQ(open_descriptors(), descriptors);
            Nested_settings loaded;
            const bool intact = loaded.load(folder.content_of("settings")).intact && loaded.values() == tree.values();
            const bool write_lost = happened && fault.call.what == "write" && error != EINTR && error != short_transfer;
            const bool not_opened = happened && fault.call.what == "open" && error != short_transfer && which > 0;
            EXPECT_EQ(intact, !write_lost && !not_opened);
            if (not_opened) {
                EXPECT_EQ(folder.content_of("settings"), old);
                EXPECT_EQ(flags_of(tree), flags);
            }
            if (!saved) {
                EXPECT_NE(tree.get_flags() & 3, 0); // so that it is saved again
            } else if (write_lost) {
                // On purpose: a failure of a container's opening header or checksum is not reported.
                EXPECT_EQ(tree.get_flags() & 3, 0);
            }
            if (HasFailure())
                break;
        }
        EXPECT_GT(which, 25U);
    }
}

TEST_P(Plain_save_with_a_fault, on_f2fs_commits_the_whole_save_or_nothing) {
    const Captured_debug debug;
    for (unsigned which = 0;; ++which) {
        Nested_settings tree;
        const std::string old = tree.record();
        tree.set_all();
        const std::string whole = [] {
            Nested_settings twin;
            twin.set_all();
            return twin.record();
        }();
        folder.make_file("settings", old);
        One_fault fault(which, error);
        {
            std::vector<std::string> calls;
            const Quiet_output quiet;
            Simulated_F2FS f2fs(folder.path(), calls, std::ref(fault));
            save(tree, NV_iterator::writing_all);
        }
        if (!fault.happened)
            break;
        SCOPED_TRACE("call " + std::to_string(which) + ": " + fault.call.what);
        const std::string content = folder.content_of("settings");
        const bool overcome = error == short_transfer || fault.call.what == "open" || fault.call.what == "close" ||
                              fault.call.what == "truncate" || (fault.call.what == "ioctl" && which < 3) ||
                              (error == EINTR && fault.call.what == "write");
        if (overcome) {
            EXPECT_EQ(content, whole);
        } else if (fault.call.what == "ioctl") {
            EXPECT_EQ(content, old); // the commit
        } else {
            Nested_settings loaded;
            EXPECT_FALSE(loaded.load(content).intact); // a part, or a file in which bytes are missing
            EXPECT_LT(content.size(), whole.size());
        }
    }
}

} // namespace
