#include <glue/NV_store/NV_safe_file_iterator.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Watched_file_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/settings/Iterator_bytes.h>
#include <support/settings/Random_settings.h>
#include <support/settings/Settings_tree.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using NV_store::NV_iterator;
using NV_store::NV_safe_file_iterator;
using testing::ElementsAre;
using testing::HasSubstr;
using Answer = Watched_file_calls::Answer;

constexpr auto all = NV_iterator::writing_all;

struct NV_safe_file_iterator_test : testing::Test, Iterator_bytes {
    Temporary_folder folder;
    std::string path = folder.path("settings");
    NV_safe_file_iterator file{path.c_str()};
    Settings_tree tree;

    int speed_in_file(const std::string& name = "settings") {
        Settings_tree loaded;
        NV_safe_file_iterator reader(folder.path(name).c_str());
        reader.set_mode(NV_iterator::reading);
        const auto result = load_all(loaded, reader);
        EXPECT_TRUE(result.intact) << name;
        return loaded.speed.get();
    }
    NV_iterator& iterator() override { return file; }
    /// Changes a setting, and expects that a save fails and leaves nothing.
    void expect_refusal(NV_iterator::modes_t mode = all) {
        tree.speed.set(tree.speed.get() + 1);
        const unsigned char flags = tree.speed.get_flags();
        const int descriptors = open_descriptors();
        EXPECT_FALSE(file.save(tree, mode));
        EXPECT_EQ(tree.speed.get_flags(), flags);
        EXPECT_EQ(tree.get_flags(), flags);
        EXPECT_EQ(file.get_mode(), NV_iterator::closed);
        EXPECT_EQ(open_descriptors(), descriptors);
    }
    mode_t permissions(const std::string& name) {
        struct stat status {};
        EXPECT_EQ(stat(folder.path(name).c_str(), &status), 0) << name;
        return status.st_mode & 07777U;
    }
};

TEST_F(NV_safe_file_iterator_test, saves_and_loads) {
    tree.speed.set(77);
    tree.guidance.width.set(3.5F);
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(tree.get_flags() & 3, 0);
    EXPECT_EQ(tree.guidance.width.get_flags() & 3, 0);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(speed_in_file(), 77);
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
    tree.speed.set(78);
    EXPECT_TRUE(file.save(tree, NV_iterator::writing_set));
    EXPECT_EQ(speed_in_file(), 78);
}

TEST_F(NV_safe_file_iterator_test, saves_in_modes_for_writing_only) {
    for (const auto mode : {NV_iterator::closed, NV_iterator::reading, static_cast<NV_iterator::modes_t>(6)})
        expect_refusal(mode);
    EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(NV_safe_file_iterator_test, appends_what_changed_to_a_copy) {
    EXPECT_TRUE(file.save(tree, all));
    const std::string full = folder.content_of("settings");
    for (const auto mode : {NV_iterator::appending_written, NV_iterator::appending_changed}) {
        tree.speed.set(tree.speed.get() + 1);
        EXPECT_TRUE(file.save(tree, mode));
        EXPECT_EQ(speed_in_file(), tree.speed.get());
    }
    const std::string content = folder.content_of("settings");
    EXPECT_EQ(content.substr(0, full.size()), full);
    EXPECT_EQ(content.size(), full.size() + 2 * 20); // twice a container with one number of 4 bytes
}

TEST_F(NV_safe_file_iterator_test, appending_copies_a_large_file_whole) {
    const std::string large = repeated("0123456789", 100000);
    folder.make_file("settings", large);
    file.set_mode(NV_iterator::appending_written);
    EXPECT_TRUE(push("+"));
    EXPECT_TRUE(file.commit());
    EXPECT_TRUE(folder.content_of("settings") == large + "+");
}

TEST_F(NV_safe_file_iterator_test, appending_creates_a_missing_file) {
    tree.speed.set(6);
    EXPECT_TRUE(file.save(tree, NV_iterator::appending_written));
    EXPECT_EQ(speed_in_file(), 6);
}

TEST_F(NV_safe_file_iterator_test, saves_a_part_of_a_tree) {
    tree.speed.set(1);
    tree.guidance.width.set(2.0F);
    EXPECT_TRUE(file.save(tree.guidance, all));
    EXPECT_EQ(tree.guidance.width.get_flags() & 3, 0);
    EXPECT_EQ(tree.speed.get_flags() & 3, 3);
    Settings_tree loaded;
    file.set_mode(NV_iterator::reading);
    EXPECT_TRUE(loaded.guidance.deserialise(&file));
    EXPECT_EQ(loaded.guidance.width.get(), 2.0F);
    EXPECT_TRUE(file.save(tree.speed, all)); // a single number, too
}

// ---- Lists whose children share ids ----

/// A list of three numbers, two of them with one id, and a number beside it.
struct Tracks : NV_store::NV_root {
    Tracks() : NV_root(nullptr, 0, "tracks") { _set_root(this); }

    NV_store::NV_number<int, 9> active{this, 1, 0, "active"};
    Positional_list widths{this, nullptr, 2, "widths"};
    NV_store::NV_number<int, 9> first{&widths, 5, 0, "first"};
    NV_store::NV_number<int, 9> second{&widths, 5, 0, "second"};
    NV_store::NV_number<int, 9> spare{&widths, 6, 0, "spare"};
};

struct Shared_ids_test : NV_safe_file_iterator_test {
    Tracks tracks;

    /// The four values of a tree that loads the file.
    std::vector<int> loaded() {
        Tracks fresh;
        NV_safe_file_iterator reader(path.c_str());
        reader.set_mode(NV_iterator::reading);
        EXPECT_TRUE(load_all(fresh, reader).intact);
        return {fresh.active.get(), fresh.first.get(), fresh.second.get(), fresh.spare.get()};
    }
};

TEST_F(Shared_ids_test, incremental_save_of_one_child_loads_as_saved) {
    for (const auto mode : {NV_iterator::appending_written, NV_iterator::appending_changed}) {
        tracks.first.set(11);
        tracks.second.set(12);
        ASSERT_TRUE(file.save(tracks, all));
        tracks.second.set(22);
        ASSERT_TRUE(file.save(tracks, mode));
        EXPECT_THAT(loaded(), ElementsAre(0, 11, 22, 0)) << mode;
        EXPECT_EQ(tracks.second.get_flags() & 3, 0);
    }
}

TEST_F(Shared_ids_test, save_of_what_was_set_has_the_children_that_were_not) {
    tracks.second.set(12);
    ASSERT_TRUE(file.save(tracks, NV_iterator::writing_set));
    EXPECT_THAT(loaded(), ElementsAre(0, 0, 12, 0));
}

TEST_F(Shared_ids_test, list_without_changes_is_not_appended) {
    ASSERT_TRUE(file.save(tracks, all));
    const std::size_t before = folder.content_of("settings").size();
    tracks.active.set(3);
    ASSERT_TRUE(file.save(tracks, NV_iterator::appending_changed));
    EXPECT_EQ(folder.content_of("settings").size() - before, 20U); // the root's headers and checksum, a number
    EXPECT_THAT(loaded(), ElementsAre(3, 0, 0, 0));
}

TEST_F(Shared_ids_test, selector_decides_about_all_but_the_content_of_the_list) {
    struct Without_two : NV_store::NV_default_selector {
        bool include_in_serialise(const NV_store::NV_item& item, const NV_iterator* it, bool& ok,
                                  bool ignore_selector) const override {
            const std::string name = item.get_name();
            const bool included = NV_default_selector::include_in_serialise(item, it, ok, ignore_selector);
            return included && name != "active" && name != "first";
        }
    } selector;
    tracks.active.set(3);
    tracks.first.set(11);
    tracks.second.set(12);
    file.set_selector(&selector);
    ASSERT_TRUE(file.save(tracks, all));
    EXPECT_EQ(file.get_selector(), &selector);
    EXPECT_THAT(loaded(), ElementsAre(0, 11, 12, 0));
}

TEST_F(Shared_ids_test, random_lists_load_as_saved_by_incremental_saves) {
    Random random;
    for (int round = 0; round < 40; ++round) {
        const Settings_shape shape = Settings_shape::random(random, true);
        Random_settings saved(shape);
        ASSERT_TRUE(file.save(saved, random.one_in(2) ? NV_iterator::writing_all : NV_iterator::writing_set));
        for (unsigned more = random.between(1, 6); more > 0; --more) {
            saved.change(random, 5);
            const bool changed = random.one_in(2);
            ASSERT_TRUE(file.save(saved, changed ? NV_iterator::appending_changed : NV_iterator::appending_written));
        }
        Random_settings twin(shape);
        file.set_mode(NV_iterator::reading);
        const bool is_empty = folder.content_of("settings").empty(); // nothing was set
        ASSERT_EQ(load_all(twin, file).intact, !is_empty);
        file.set_mode(NV_iterator::closed);
        ASSERT_EQ(twin.values(), saved.values());
    }
}

// ---- The steps ----

TEST_F(NV_safe_file_iterator_test, content_is_flushed_before_it_is_renamed_and_the_folder_afterwards) {
    folder.make_file("settings", "old");
    std::vector<std::string> calls;
    const std::string folder_name = std::filesystem::path(folder.path()).filename();
    {
        const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
            if (call.what == "write" || call.what == "sync" || call.what == "rename" || call.what == "unlink")
                calls.push_back(call.what + " " + (call.name == folder_name ? "folder" : call.name));
            return std::nullopt;
        });
        file.set_mode(all);
        EXPECT_TRUE(push("a"));
        EXPECT_TRUE(push("b"));
        EXPECT_TRUE(file.commit());
    }
    EXPECT_THAT(calls, ElementsAre("write settings.saving", "write settings.saving", "sync settings.saving",
                                   "rename settings.saving", "sync folder"));
    EXPECT_EQ(folder.content_of("settings"), "ab");
}

TEST_F(NV_safe_file_iterator_test, old_file_stays_until_the_commit) {
    folder.make_file("settings", "old");
    file.set_mode(all);
    EXPECT_TRUE(file.is_readable());
    EXPECT_TRUE(push("new"));
    EXPECT_EQ(folder.content_of("settings"), "old");
    file.drop();
    EXPECT_EQ(folder.content_of("settings"), "old");
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
    EXPECT_FALSE(file.commit()); // no file is open
    EXPECT_FALSE(push("x"));
    file.set_mode(all);
    EXPECT_TRUE(push("newer"));
    file.set_mode(NV_iterator::reading); // commits
    EXPECT_EQ(file.get_mode(), NV_iterator::reading);
    EXPECT_EQ(folder.content_of("settings"), "newer");
    EXPECT_FALSE(push("x"));
}

TEST_F(NV_safe_file_iterator_test, file_being_read_is_closed_before_it_is_written) {
    folder.make_file("settings", "old");
    const int descriptors = open_descriptors();
    file.set_mode(NV_iterator::reading);
    file.set_mode(all);
    EXPECT_TRUE(push("new"));
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(folder.content_of("settings"), "new");
}

TEST_F(NV_safe_file_iterator_test, used_bytes_are_those_since_the_file_was_last_written_from_the_start) {
    const auto expect_used = [this](unsigned expected) {
        unsigned used = 0;
        unsigned total = 0;
        file.get_free_space(used, total);
        EXPECT_EQ(used, expected);
        EXPECT_EQ(total, NV_safe_file_iterator::nominal_size);
    };
    for (int round = 0; round < 2; ++round) {
        file.set_mode(all);
        EXPECT_TRUE(push("abc"));
        expect_used(3);
    }
    file.set_mode(NV_iterator::appending_changed);
    EXPECT_TRUE(push("de"));
    expect_used(5);
}

TEST_F(NV_safe_file_iterator_test, destruction_drops_an_uncommitted_save) {
    folder.make_file("settings", "old");
    const int descriptors = open_descriptors();
    {
        NV_safe_file_iterator dying(path.c_str());
        dying.set_mode(all);
        unsigned char byte = 'n';
        EXPECT_TRUE(dying.push_bytes(&byte, 1));
    }
    EXPECT_EQ(folder.content_of("settings"), "old");
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(NV_safe_file_iterator_test, failed_push_of_the_last_checksum_fails_the_save) {
    folder.make_file("settings", "old");
    tree.speed.set(1);
    const std::vector<unsigned char> before = {tree.get_flags(), tree.speed.get_flags(), tree.guidance.get_flags()};
    unsigned writes = 0;
    {
        Settings_tree counted;
        NV_safe_file_iterator other(folder.path("other").c_str());
        const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
            writes += call.what == "write";
            return std::nullopt;
        });
        ASSERT_TRUE(other.save(counted, all));
    }
    const Captured_debug debug;
    unsigned written = 0;
    const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
        if (call.what != "write" || ++written != writes)
            return std::nullopt;
        errno = ENOSPC;
        return -1;
    });
    file.set_mode(all);
    EXPECT_TRUE(tree.serialise(&file)); // a container ignores the result of its last push
    EXPECT_EQ(tree.get_flags() & 3, 0);
    EXPECT_FALSE(push("more"));
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(folder.content_of("settings"), "old");

    Settings_tree again;
    again.speed.set(1);
    written = 0;
    EXPECT_FALSE(file.save(again, all));
    EXPECT_THAT((std::vector<unsigned char>{again.get_flags(), again.speed.get_flags(), again.guidance.get_flags()}),
                testing::Eq(before));
}

TEST_F(NV_safe_file_iterator_test, setting_a_mode_after_a_failed_push_does_not_enter_it) {
    folder.make_file("settings", "old");
    const Captured_debug debug;
    file.set_mode(all);
    EXPECT_FALSE(file.push_bytes(nullptr, 1));
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(folder.content_of("settings"), "old");
    EXPECT_THAT(debug.text(), HasSubstr("Settings not saved in " + path + ": not everything was written"));
}

TEST_F(NV_safe_file_iterator_test, node_that_fails_by_itself_keeps_the_old_file) {
    struct Failing : NV_store::NV_number<int, 9> {
        using NV_number::NV_number;
        bool serialise(NV_iterator*) override { return false; }
        using NV_number::serialise;
    } failing(&tree, 9, 1, "failing");
    folder.make_file("settings", "old");
    const Captured_debug debug;
    expect_refusal();
    EXPECT_EQ(folder.content_of("settings"), "old");
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
}

TEST_F(NV_safe_file_iterator_test, a_failed_flush_of_the_folder_counts_unless_folders_cannot_be_flushed) {
    const std::string folder_name = std::filesystem::path(folder.path()).filename();
    int reason = EIO;
    const Captured_debug debug;
    const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
        if (call.what != "sync" || call.name != folder_name)
            return std::nullopt;
        errno = reason;
        return -1;
    });
    expect_refusal();
    EXPECT_EQ(speed_in_file(), tree.speed.get()); // complete and in place nevertheless
    reason = EINVAL;
    EXPECT_TRUE(file.save(tree, all));
}

TEST_F(NV_safe_file_iterator_test, changes_made_while_the_medium_is_flushed_stay_marked) {
    tree.speed.set(1);
    bool fails = false;
    const auto change_meanwhile = [&](const File_call& call) -> Answer {
        if (call.what != "sync" || call.name != "settings.saving")
            return std::nullopt;
        std::thread([this] { tree.lamp.set(static_cast<unsigned char>(tree.lamp.get() + 1)); }).join(); // not locked
        errno = EIO;
        return fails ? Answer(-1) : std::nullopt;
    };
    const Captured_debug debug;
    const Watched_file_calls watched(folder.path(), change_meanwhile);
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(tree.lamp.get_flags() & 3, 3);
    EXPECT_EQ(tree.speed.get_flags() & 3, 0);
    tree.speed.set(2);
    fails = true;
    EXPECT_FALSE(file.save(tree, all));
    EXPECT_EQ(tree.lamp.get_flags() & 3, 3);
    EXPECT_EQ(tree.speed.get_flags() & 3, 3);
}

TEST_F(NV_safe_file_iterator_test, holds_the_lock_while_it_reads_the_tree_unless_the_caller_does) {
    struct Looking : NV_store::NV_number<int, 9> {
        using NV_number::NV_number;
        using NV_number::serialise;
        bool serialise(NV_iterator* it) override {
            locked = _get_root()->mutex().owner_thread() == QThread::currentThreadId();
            return NV_number::serialise(it);
        }
        bool locked = false;
    } looking(&tree, 9, 1, "looking");
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_TRUE(looking.locked);
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
    const NV_store::NV_lock held(tree);
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(tree.mutex().owner_thread(), QThread::currentThreadId());
}

// ---- The previous file ----

TEST_F(NV_safe_file_iterator_test, permissions_are_kept_and_a_new_file_gets_the_usual_ones) {
    const mode_t mask = umask(022);
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(permissions("settings"), 0644U);
    for (const mode_t kept : {0600U, 0664U, 0666U, 0750U}) {
        ASSERT_EQ(chmod(path.c_str(), kept), 0);
        EXPECT_TRUE(file.save(tree, all));
        EXPECT_EQ(permissions("settings"), kept);
    }
    umask(mask);
}

TEST_F(NV_safe_file_iterator_test, unfinished_file_of_a_private_file_is_private) {
    folder.make_file("settings", "secret");
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    file.set_mode(NV_iterator::appending_written);
    EXPECT_EQ(permissions("settings.saving"), 0600U);
}

TEST_F(NV_safe_file_iterator_test, owner_is_kept_if_permitted_and_saving_continues_otherwise) {
    folder.make_file("settings", "");
    unsigned calls = 0;
    const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
        if (call.what != "owner")
            return std::nullopt;
        ++calls;
        errno = EPERM;
        return -1;
    });
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(calls, 1U);
}

TEST_F(NV_safe_file_iterator_test, symbolic_links_stay_and_lead_to_the_new_content) {
    std::filesystem::create_directory(folder.path("real"));
    std::filesystem::create_symlink("real/target", folder.path("relative"));
    std::filesystem::create_symlink(folder.path("relative"), path); // a link to a link
    tree.speed.set(8);
    EXPECT_TRUE(file.save(tree, all)); // the target does not exist yet
    EXPECT_EQ(speed_in_file("real/target"), 8);
    tree.speed.set(9);
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(speed_in_file("real/target"), 9);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("relative")));
    EXPECT_THAT(folder.names(), ElementsAre("real", "relative", "settings"));
}

TEST_F(NV_safe_file_iterator_test, links_in_a_circle_are_refused) {
    std::filesystem::create_symlink("other", path);
    std::filesystem::create_symlink("settings", folder.path("other"));
    const Captured_debug debug;
    expect_refusal();
    EXPECT_THAT(debug.text(), HasSubstr("too many links"));
}

TEST_F(NV_safe_file_iterator_test, path_without_a_folder_is_in_the_working_folder) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    NV_safe_file_iterator here("here");
    EXPECT_TRUE(here.save(tree, all));
    std::filesystem::current_path(before);
    EXPECT_EQ(speed_in_file("here"), 5);
}

TEST_F(NV_safe_file_iterator_test, file_that_may_not_be_written_is_not_replaced) {
    folder.make_file("settings", "old");
    const Captured_debug debug;
    const Watched_file_calls watched(folder.path(), [](const File_call& call) -> Answer {
        if (call.what != "access")
            return std::nullopt;
        errno = EACCES; // as for a file without permission to write; root has every permission
        return -1;
    });
    expect_refusal();
    EXPECT_EQ(folder.content_of("settings"), "old");
    EXPECT_THAT(debug.text(), HasSubstr("the old file may not be written: Permission denied"));
}

TEST_F(NV_safe_file_iterator_test, only_regular_files_are_replaced) {
    const Captured_debug debug;
    std::filesystem::create_directory(path);
    expect_refusal();
    EXPECT_TRUE(std::filesystem::is_directory(path));
    std::filesystem::remove(path);
    folder.make_fifo("settings");
    expect_refusal();
    EXPECT_TRUE(std::filesystem::is_fifo(path));
}

TEST_F(NV_safe_file_iterator_test, read_only_folder_refuses_every_save) {
    folder.make_file("settings", "old");
    const Captured_debug debug;
    if (geteuid() != 0) {
        ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
        expect_refusal();
        ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    }
    const Watched_file_calls watched(folder.path(), [](const File_call& call) -> Answer {
        if (call.what != "open" || (call.number & O_CREAT) == 0)
            return std::nullopt;
        errno = EROFS;
        return -1;
    });
    expect_refusal();
    expect_refusal(NV_iterator::appending_changed);
    EXPECT_EQ(folder.content_of("settings"), "old");
    EXPECT_THAT(debug.text(), HasSubstr("cannot make a new file: Read-only file system"));
}

TEST_F(NV_safe_file_iterator_test, missing_folder_and_a_name_too_long_are_refused) {
    const Captured_debug debug;
    NV_safe_file_iterator nowhere(folder.path("missing/settings").c_str());
    EXPECT_FALSE(nowhere.save(tree, all));
    NV_safe_file_iterator longest(folder.path(std::string(248, 'n')).c_str());
    EXPECT_TRUE(longest.save(tree, all));
    NV_safe_file_iterator too_long(folder.path(std::string(249, 'n')).c_str());
    EXPECT_FALSE(too_long.save(tree, all));
    NV_safe_file_iterator no_name((folder.path() + "/").c_str());
    EXPECT_FALSE(no_name.save(tree, all));
}

// ---- Leftovers and other savers ----

TEST_F(NV_safe_file_iterator_test, leftover_of_a_killed_process_is_replaced) {
    folder.make_file("settings", "old");
    folder.make_file("settings.saving", repeated("leftover", 5000));
    ASSERT_EQ(chmod(folder.path("settings.saving").c_str(), 0400), 0);
    tree.speed.set(3);
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_EQ(speed_in_file(), 3);
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
}

TEST_F(NV_safe_file_iterator_test, link_instead_of_a_leftover_is_refused_and_not_followed) {
    const std::string other = folder.make_file("other", "precious");
    std::filesystem::create_symlink(other, folder.path("settings.saving"));
    const Captured_debug debug;
    expect_refusal();
    EXPECT_THAT(debug.text(), HasSubstr("cannot look at a leftover: Too many levels of symbolic links"));
    EXPECT_EQ(folder.content_of("other"), "precious");
    EXPECT_THAT(folder.names(), ElementsAre("other", "settings.saving"));
}

TEST_F(NV_safe_file_iterator_test, pipe_instead_of_a_leftover_is_removed_without_waiting_for_a_writer) {
    folder.make_fifo("settings.saving");
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
}

TEST_F(NV_safe_file_iterator_test, process_killed_anywhere_in_a_save_leaves_old_or_new_and_the_next_one_cleans_up) {
    EXPECT_TRUE(file.save(tree, all));
    unsigned survived = 0;
    for (int status = -1; status != 0; ++survived) {
        tree.speed.set(tree.speed.get() + 1);
        const int before = speed_in_file();
        const pid_t child = fork();
        if (child == 0) {
            unsigned left = survived;
            const Watched_file_calls watched(folder.path(), [&left](const File_call&) -> Answer {
                if (left-- == 0)
                    _exit(1);
                return std::nullopt;
            });
            _exit(file.save(tree, all) ? 0 : 2);
        }
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2);
        EXPECT_THAT(speed_in_file(), testing::AnyOf(before, tree.speed.get()));
        tree.speed.set(tree.speed.get() + 1);
        EXPECT_TRUE(file.save(tree, all));
        EXPECT_EQ(speed_in_file(), tree.speed.get());
        EXPECT_THAT(folder.names(), ElementsAre("settings"));
    }
    EXPECT_GT(survived, 20U);
}

TEST_F(NV_safe_file_iterator_test, second_saver_is_refused_until_the_first_is_done) {
    folder.make_file("settings", "old");
    NV_safe_file_iterator first(path.c_str());
    first.set_mode(all);
    unsigned char byte = '1';
    EXPECT_TRUE(first.push_bytes(&byte, 1));
    const Captured_debug debug;
    expect_refusal();
    EXPECT_THAT(debug.text(), HasSubstr("another save is in progress"));
    EXPECT_TRUE(first.commit());
    EXPECT_EQ(folder.content_of("settings"), "1");
    EXPECT_TRUE(file.save(tree, all));
}

TEST_F(NV_safe_file_iterator_test, unfinished_file_that_another_saver_removed_is_replaced_by_a_new_one) {
    folder.make_file("settings", "old");
    bool first = true;
    const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
        if (call.what == "lock" && std::exchange(first, false))
            ::unlink(folder.path("settings.saving").c_str()); // as another process would
        return std::nullopt;
    });
    EXPECT_TRUE(file.save(tree, all));
    EXPECT_FALSE(first);
    EXPECT_EQ(speed_in_file(), 5);
}

TEST_F(NV_safe_file_iterator_test, file_made_by_another_saver_meanwhile_is_appended_to) {
    bool first = true;
    const Watched_file_calls watched(folder.path(), [&](const File_call& call) -> Answer {
        if (call.what == "open" && call.name == "settings.saving" && std::exchange(first, false))
            folder.make_file("settings", "theirs+");
        return std::nullopt;
    });
    file.set_mode(NV_iterator::appending_written);
    EXPECT_TRUE(push("ours"));
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(folder.content_of("settings"), "theirs+ours");
}

TEST_F(NV_safe_file_iterator_test, savers_in_many_threads_leave_one_whole_save) {
    const Captured_debug debug;
    std::vector<std::thread> savers;
    std::atomic<int> saved{0};
    for (int saver = 1; saver <= 4; ++saver) {
        savers.emplace_back([&, saver] {
            Settings_tree own;
            NV_safe_file_iterator own_file(path.c_str());
            for (int round = 0; round < 50; ++round) {
                own.speed.set(1000 * saver + round);
                saved += own_file.save(own, all);
                Settings_tree seen;
                NV_store::NV_file_iterator reader(path.c_str());
                reader.set_mode(NV_iterator::reading);
                if (reader.get_mode() == NV_iterator::reading) {
                    EXPECT_TRUE(load_all(seen, reader).intact);
                }
            }
        });
    }
    for (std::thread& saver : savers)
        saver.join();
    EXPECT_GT(saved, 0);
    EXPECT_GE(speed_in_file(), 1000);
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
}

TEST_F(NV_safe_file_iterator_test, savers_in_many_processes_leave_one_whole_save) {
    std::vector<pid_t> children;
    for (int saver = 1; saver <= 3; ++saver) {
        const pid_t child = fork();
        if (child == 0) {
            const Captured_debug debug;
            int saved = 0;
            for (int round = 0; round < 50; ++round) {
                tree.speed.set(1000 * saver + round);
                saved += file.save(tree, all);
            }
            _exit(saved > 0 ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
    }
    EXPECT_GE(speed_in_file(), 1000);
    EXPECT_THAT(folder.names(), ElementsAre("settings"));
}

} // namespace
