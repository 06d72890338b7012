// The content after a power cut at every step of a save.

#include <glue/NV_store/NV_safe_file_iterator.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Simulated_medium.h>
#include <support/files/Temporary_folder.h>
#include <support/settings/Nested_settings.h>

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

using NV_store::NV_file_iterator;
using NV_store::NV_iterator;
using NV_store::NV_safe_file_iterator;
using Content = Simulated_medium::Content;
using Values = std::vector<std::string>;

/// A file of a tree's defaults, and the tree with every value set, not saved yet.
struct Power_cut : testing::Test {
    Power_cut() {
        old_values = tree.values();
        folder.make_file("settings", tree.record());
        tree.set_all();
        new_values = tree.values();
    }

    Temporary_folder folder;
    Captured_debug debug;
    Random random;
    Nested_settings tree;
    Values old_values;
    Values new_values;

    /// The values that a content loads; nothing when it is damaged or missing.
    static std::optional<Values> loaded_from(const Content& content) {
        Nested_settings loaded;
        if (!content || !loaded.load(*content).intact)
            return std::nullopt;
        return loaded.values();
    }

    enum Outcome { is_old, is_new, is_damaged };
    Outcome outcome(const Content& content) const {
        const std::optional<Values> values = loaded_from(content);
        if (!values)
            return is_damaged;
        EXPECT_TRUE(*values == old_values || *values == new_values); // never a mixture
        return *values == new_values ? is_new : is_old;
    }

    /// How often each outcome followed from cuts after `from` to `to` steps.
    struct Outcomes {
        unsigned counts[3] = {};
    };
    Outcomes outcomes(const Simulated_medium& medium, std::size_t from, std::size_t to) {
        Outcomes found;
        for (std::size_t cut = from; cut <= to; ++cut)
            for (const Content& content : medium.after_cut(cut, "settings", random))
                ++found.counts[outcome(content)];
        return found;
    }
};

struct Power_cut_in_a_safe_save : Power_cut, testing::WithParamInterface<NV_iterator::modes_t> {};

INSTANTIATE_TEST_SUITE_P(of, Power_cut_in_a_safe_save,
                         testing::Values(NV_iterator::writing_all, NV_iterator::writing_set,
                                         NV_iterator::appending_written, NV_iterator::appending_changed),
                         [](const auto& mode) { return "mode_" + std::to_string(mode.param); });

TEST_P(Power_cut_in_a_safe_save, leaves_the_old_settings_or_the_new_ones_whole) {
    Simulated_medium medium(folder.path());
    NV_safe_file_iterator file(folder.path("settings").c_str());
    ASSERT_TRUE(file.save(tree, GetParam()));
    const std::size_t renamed = medium.find("rename");
    ASSERT_EQ(medium.step(medium.steps() - 1), "sync of the folder");
    ASSERT_EQ(renamed + 2, medium.steps());

    const Outcomes before = outcomes(medium, 0, renamed);
    EXPECT_GT(before.counts[is_old], 25U);
    EXPECT_EQ(before.counts[is_new] + before.counts[is_damaged], 0U);
    const Outcomes between = outcomes(medium, renamed + 1, renamed + 1);
    EXPECT_EQ(between.counts[is_old], 2U); // with no rename, with the first one only, with both
    EXPECT_EQ(between.counts[is_new], 1U);
    EXPECT_EQ(between.counts[is_damaged], 0U);
    const Outcomes after = outcomes(medium, medium.steps(), medium.steps());
    EXPECT_EQ(after.counts[is_new], 1U);
    EXPECT_EQ(after.counts[is_old] + after.counts[is_damaged], 0U);
}

TEST_F(Power_cut, in_the_first_safe_save_leaves_nothing_or_the_new_settings) {
    std::filesystem::remove(folder.path("settings"));
    Simulated_medium medium(folder.path());
    NV_safe_file_iterator file(folder.path("settings").c_str());
    ASSERT_TRUE(file.save(tree, NV_iterator::writing_all));
    for (std::size_t cut = 0; cut <= medium.steps(); ++cut) {
        for (const Content& content : medium.after_cut(cut, "settings", random)) {
            if (content || cut == medium.steps()) {
                EXPECT_EQ(outcome(content), is_new) << "after " << cut << " steps";
            }
        }
    }
}

TEST_F(Power_cut, in_a_safe_save_after_a_cut_one_cleans_up_and_is_as_safe) {
    folder.make_file("settings.saving", "leftover");
    Simulated_medium medium(folder.path());
    NV_safe_file_iterator file(folder.path("settings").c_str());
    ASSERT_TRUE(file.save(tree, NV_iterator::writing_all));
    EXPECT_EQ(outcomes(medium, 0, medium.steps()).counts[is_damaged], 0U);
    for (const Content& content : medium.after_cut(medium.steps(), "settings.saving", random))
        EXPECT_FALSE(content);
}

void save_plainly(const Temporary_folder& folder, Nested_settings& tree, NV_iterator::modes_t mode) {
    NV_file_iterator file(folder.path("settings").c_str());
    file.set_mode(mode);
    EXPECT_TRUE(tree.serialise(&file));
    file.set_mode(NV_iterator::closed);
}

TEST_F(Power_cut, in_an_atomic_save_leaves_the_old_settings_until_the_commit) {
    Simulated_medium medium(folder.path(), true);
    save_plainly(folder, tree, NV_iterator::writing_all);
    const std::size_t committed = medium.find("commit");
    ASSERT_EQ(medium.find("begin atomic"), 0U);
    ASSERT_EQ(committed + 1, medium.steps());
    const Outcomes before = outcomes(medium, 0, committed);
    EXPECT_EQ(before.counts[is_old], committed + 1);
    EXPECT_EQ(before.counts[is_new] + before.counts[is_damaged], 0U);
    const Outcomes after = outcomes(medium, medium.steps(), medium.steps());
    EXPECT_EQ(after.counts[is_new], 1U);
    EXPECT_EQ(after.counts[is_old] + after.counts[is_damaged], 0U);
}

TEST_F(Power_cut, in_a_plain_save_leaves_any_content_and_loading_notices_damage) {
    Simulated_medium medium(folder.path());
    save_plainly(folder, tree, NV_iterator::writing_all);
    const Outcomes found = outcomes(medium, 0, medium.steps());
    EXPECT_GT(found.counts[is_old], 0U);
    EXPECT_GT(found.counts[is_new], 0U);
    EXPECT_GT(found.counts[is_damaged], 100U); // the reason for the safe iterator
    const Outcomes after_closing = outcomes(medium, medium.steps(), medium.steps());
    EXPECT_GT(after_closing.counts[is_damaged], 0U);
}

TEST_F(Power_cut, in_a_plain_appending_save_leaves_old_settings_that_an_incomplete_record_may_reset) {
    Simulated_medium medium(folder.path());
    save_plainly(folder, tree, NV_iterator::appending_changed);
    unsigned damaged = 0;
    for (std::size_t cut = 0; cut <= medium.steps(); ++cut) {
        for (const Content& content : medium.after_cut(cut, "settings", random)) {
            Nested_settings loaded;
            ASSERT_TRUE(content);
            EXPECT_GE(loaded.load(*content).loaded, 1U); // the full save before it
            damaged += outcome(content) == is_damaged;
        }
    }
    EXPECT_GT(damaged, 100U);
}

} // namespace
