#include <glue/NV_store/NV_pcfile_iterator.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Replaced_store_calls.h>
#include <support/files/Mounted_store.h>
#include <support/settings/Iterator_bytes.h>
#include <support/settings/Settings_tree.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using NV_store::NV_iterator;
using NV_store::NV_pcfile_iterator;
using testing::ElementsAre;
using testing::HasSubstr;

struct NV_pcfile_iterator_test : testing::Test, Iterator_bytes {
    Mounted_store store;
    NV_pcfile_iterator file{"setup"};

    NV_iterator& iterator() override { return file; }
};

TEST_F(NV_pcfile_iterator_test, begins_closed_with_nothing_used) {
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_FALSE(file.is_readable());
    EXPECT_FALSE(push("x"));
    EXPECT_EQ(used(), 0U);
    EXPECT_EQ(total(), 16384U);
    EXPECT_FALSE(pcfExists("setup"));
}

TEST_F(NV_pcfile_iterator_test, writing_removes_the_old_file_and_appending_continues_it) {
    store.make_file("setup", "before");
    for (const auto mode : {NV_iterator::writing_all, NV_iterator::writing_set}) {
        file.set_mode(mode);
        EXPECT_EQ(file.get_mode(), mode);
        EXPECT_EQ(used(), 0U);
        EXPECT_TRUE(push("abc"));
    }
    for (const auto mode : {NV_iterator::appending_written, NV_iterator::appending_changed}) {
        file.set_mode(mode);
        EXPECT_EQ(file.get_mode(), mode);
        EXPECT_TRUE(push("de"));
    }
    file.set_mode(NV_iterator::closed);
    EXPECT_EQ(used(), 7U);
    EXPECT_EQ(store.content_of("setup"), "abcdede");
}

TEST_F(NV_pcfile_iterator_test, reads_from_the_beginning_each_time_it_is_opened) {
    store.make_file("setup", "abcdef");
    file.set_mode(NV_iterator::reading);
    EXPECT_TRUE(file.is_readable());
    EXPECT_EQ(pop(2), "ab");
    EXPECT_EQ(pop(5), "failed"); // the rest is fetched and stays buffered
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(pop(6), "abcdef");
    EXPECT_FALSE(file.is_readable());
    EXPECT_EQ(used(), 8U);
}

TEST_F(NV_pcfile_iterator_test, bytes_fetched_from_one_file_are_not_read_from_the_next) {
    store.make_file("setup", "abcdef");
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(pop(2), "ab");
    EXPECT_EQ(pop(5), "failed");
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("xyz"));
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(pop(3), "xyz");
}

TEST_F(NV_pcfile_iterator_test, name_is_copied_and_cut_to_31_characters) {
    std::string name = "a name of thirty-nine characters, yes 9";
    NV_pcfile_iterator cutting(name.c_str());
    const std::string kept = name.substr(0, 31);
    name.assign(name.size(), 'x');
    cutting.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(pcfExists(kept.c_str()));
}

TEST_F(NV_pcfile_iterator_test, missing_file_and_unmounted_store_leave_it_closed) {
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    pcfUnmount();
    const Captured_debug debug;
    for (const auto mode : {NV_iterator::reading, NV_iterator::writing_all, NV_iterator::appending_written}) {
        file.set_mode(mode);
        EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    }
}

TEST_F(NV_pcfile_iterator_test, busy_store_is_tried_five_times) {
    store.make_file("setup", "abc");
    const Replaced_delays delays;
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) -> std::optional<int> {
        if (call == "OpenRead setup 0")
            return 1;
        if (call == "OpenWrite setup")
            return 0;
        return std::nullopt;
    };
    const Captured_debug debug;
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(calls.calls_of("OpenRead").size(), 5U);
    file.set_mode(NV_iterator::appending_written);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(calls.calls_of("OpenWrite").size(), 5U);
}

TEST_F(NV_pcfile_iterator_test, failed_opening_leaves_the_used_bytes_unchanged) {
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("abc"));
    const Replaced_delays delays;
    const Captured_debug debug;
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) {
        return call == "CreateWrite setup" ? std::optional(0) : std::nullopt;
    };
    file.set_mode(NV_iterator::writing_all);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(calls.calls_of("CreateWrite").size(), 5U);
    EXPECT_EQ(used(), 3U);
}

TEST_F(NV_pcfile_iterator_test, file_that_cannot_be_closed_leaves_it_closed_and_the_new_mode_not_entered) {
    store.make_file("setup", "abc");
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) -> std::optional<int> {
        if (call == "CloseRead 0") {
            pcfUnmount();
            return 2;
        }
        return std::nullopt;
    };
    file.set_mode(NV_iterator::reading);
    file.set_mode(NV_iterator::writing_all);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_TRUE(calls.calls_of("CreateWrite").empty());
    EXPECT_TRUE(store.mount());
    calls.answer = [](const std::string& call) -> std::optional<int> {
        if (call == "CloseWrite -1") {
            pcfUnmount();
            return 0;
        }
        return std::nullopt;
    };
    const Captured_debug debug;
    file.set_mode(NV_iterator::appending_changed);
    EXPECT_EQ(file.get_mode(), NV_iterator::appending_changed);
    file.set_mode(NV_iterator::reading);
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
    EXPECT_EQ(debug.text(), "PCF failed to close\n");
}

TEST_F(NV_pcfile_iterator_test, file_that_cannot_be_removed_is_appended_to) {
    store.make_file("setup", "abc");
    ASSERT_EQ(pcfOpenRead("setup", 0, nullptr), 0); // open files stay
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("de"));
    file.set_mode(NV_iterator::closed);
    pcfCloseRead(0);
    EXPECT_EQ(store.content_of("setup"), "abcde");
}

TEST_F(NV_pcfile_iterator_test, other_modes_are_stored_without_a_file) {
    file.set_mode(static_cast<NV_iterator::modes_t>(6));
    EXPECT_EQ(file.get_mode(), 6);
    EXPECT_FALSE(push("x"));
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("x"));
}

TEST_F(NV_pcfile_iterator_test, destruction_closes_the_file) {
    store.make_file("setup", "abc");
    for (const auto mode : {NV_iterator::reading, NV_iterator::appending_written}) {
        NV_pcfile_iterator dying("setup");
        dying.set_mode(mode);
        EXPECT_EQ(dying.get_mode(), mode);
    }
    EXPECT_EQ(pcfOpenRead("setup", 0, nullptr), 0); // reader and writer are free
    pcfCloseRead(0);
    EXPECT_TRUE(pcfOpenWrite("setup", nullptr));
    EXPECT_TRUE(pcfCloseWrite(-1));
}

TEST_F(NV_pcfile_iterator_test, tree_is_loaded_as_saved) {
    Settings_tree saved;
    saved.speed.set(-7);
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
    EXPECT_EQ(loaded.lamp.get(), 3);
}

TEST(NV_pcfile_iterator_in_a_small_store, save_that_does_not_fit_reports_success_and_closes_the_file) {
    const Mounted_store store(30);
    Settings_tree tree;
    tree.speed.set(1);
    NV_pcfile_iterator file("setup");
    const Captured_debug debug;
    file.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(tree.serialise(&file)); // on purpose
    EXPECT_EQ(tree.get_flags(), 0);
    EXPECT_THAT(debug.text(), HasSubstr("PCF full\n"));
    EXPECT_TRUE(pcfOpenWrite("setup", nullptr)); // closed
    EXPECT_TRUE(pcfCloseWrite(-1));
    file.set_mode(NV_iterator::reading); // the failure of closing it again is reported
    EXPECT_EQ(file.get_mode(), NV_iterator::closed);
}

} // namespace
