#include <glue/NV_store/NV_root.h>

#include <support/builders/Record_builder.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recording_waiter.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

namespace {

using namespace NV_store;

std::vector<int> ids_of(const NV_root& root) {
    std::vector<int> ids;
    for (int kind = -1; kind <= 6; ++kind)
        ids.push_back(root.get_module_id(static_cast<Reg_type>(kind)));
    return ids;
}

TEST(NV_root, is_the_top_of_its_tree) {
    const NV_root root(nullptr, 77, "root");
    EXPECT_EQ(root.get_type(), 0);
    EXPECT_EQ(root.get_root(), &root);
    EXPECT_EQ(root._get_root(), &root);
    EXPECT_EQ(root.get_parent(), nullptr);
    EXPECT_EQ(root.get_id(), 77);
    EXPECT_STREQ(root.get_name(), "root");
    EXPECT_EQ(root.mutex().owner_thread(), nullptr);
    EXPECT_EQ(root.mutex().owner_kernel_id(), 0);
}

TEST(NV_root, has_a_module_id_for_each_kind_from_0_to_4) {
    module_man modules;
    std::int16_t before = 0;
    modules.init_module(&before, true);
    NV_root root(&modules, 0, "root");
    EXPECT_EQ(ids_of(root), (std::vector<int>{0, 2, 3, 4, 5, 6, 0, 0}));
    const NV_root next(&modules, 0, "next");
    EXPECT_EQ(ids_of(next), (std::vector<int>{0, 7, 8, 9, 10, 11, 0, 0}));
    root.init(nullptr);
    EXPECT_EQ(ids_of(root), std::vector<int>(8, 0));
    root.init(&modules);
    EXPECT_EQ(root.get_module_id(reg_number), 13);
}

TEST(NV_root, has_no_module_ids_without_a_module_manager) {
    EXPECT_EQ(ids_of(NV_root(nullptr, 0, "root")), std::vector<int>(8, 0));
}

TEST(NV_root, sends_no_events_without_a_module_manager) {
    Settings_tree tree;
    Recording_waiter waiter;
    tree.speed.register_waiter(waiter, 1, false);
    EXPECT_TRUE(tree.speed.set(6));
    tree.signal_all();
    EXPECT_TRUE(waiter.events().empty());
    EXPECT_EQ(tree.get_flags(), NV_item::dirty_write | NV_item::dirty_change) << "parents are marked nevertheless";
}

// ---- Loading a whole file ----

class Loading_all : public testing::Test {
  protected:
    NV_load_result load(const std::string& stored, unsigned limit = 0xFFFFFFFF) {
        Settings_bytes it(stored);
        const NV_load_result result = load_all(tree, it, limit);
        left = it.left();
        return result;
    }
    static std::string change(int speed) { return Record_builder().open(0, 0).integer(1, speed).close(); }

    Settings_tree tree;
    Captured_debug debug;
    int left = 0;
};

TEST_F(Loading_all, last_of_10000_appended_changes_wins) {
    Settings_bytes it(NV_iterator::writing_all, 1 << 20);
    ASSERT_TRUE(tree.serialise(&it));
    it.set_mode(NV_iterator::appending_changed);
    for (int i = 1; i <= 10000; ++i) {
        tree.speed.set(1000 + i);
        if (i == 5000)
            tree.guidance.beeper.set(false);
        ASSERT_TRUE(tree.serialise(&it));
    }
    EXPECT_TRUE(tree.serialise(&it)) << "nothing has changed since";
    Settings_tree loaded;
    Settings_bytes stored(it.bytes());
    const NV_load_result result = load_all(loaded, stored);
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(result.loaded, 10001U);
    EXPECT_EQ(loaded.speed.get(), 11000);
    EXPECT_FALSE(loaded.guidance.beeper.get());
    EXPECT_EQ(loaded.lamp.get(), 200);
    EXPECT_EQ(debug.text(), "") << "the end of the file is not reported";
}

TEST_F(Loading_all, written_settings_are_appended_too) {
    Settings_bytes it(NV_iterator::appending_written, 1 << 12);
    for (int i = 1; i <= 10; ++i) {
        tree.lamp.set(static_cast<unsigned char>(i));
        ASSERT_TRUE(tree.serialise(&it));
    }
    const NV_load_result result = load(it.bytes());
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(result.loaded, 10U);
    EXPECT_EQ(tree.lamp.get(), 10);
}

TEST_F(Loading_all, empty_file_is_not_intact) {
    const NV_load_result result = load("");
    EXPECT_FALSE(result.intact);
    EXPECT_EQ(result.loaded, 0U);
    EXPECT_EQ(debug.text(), "No NV settings for 0:settings\n");
}

TEST_F(Loading_all, stops_at_damage) {
    std::string stored = change(6) + change(7) + change(8) + change(9);
    stored[2 * change(6).size() + 9] = static_cast<char>(stored[2 * change(6).size() + 9] ^ 1);
    const NV_load_result result = load(stored);
    EXPECT_FALSE(result.intact);
    EXPECT_EQ(result.loaded, 2U);
    EXPECT_EQ(left, static_cast<int>(change(9).size()));
    EXPECT_EQ(tree.speed.get(), 5) << "the damaged container is set to its defaults";
    EXPECT_TRUE(load(stored, result.loaded).intact);
    EXPECT_EQ(tree.speed.get(), 7) << "the value before the damage";
}

TEST_F(Loading_all, detects_a_cut_at_any_byte) {
    const std::string stored = change(6) + change(7);
    for (std::size_t size = change(6).size() + 1; size < stored.size(); ++size) {
        const NV_load_result result = load(stored.substr(0, size));
        EXPECT_FALSE(result.intact) << size;
        EXPECT_EQ(result.loaded, 1U);
        EXPECT_TRUE(load(stored.substr(0, size), result.loaded).intact);
        EXPECT_EQ(tree.speed.get(), 6) << size;
    }
}

TEST_F(Loading_all, limit_leaves_the_rest_unread) {
    const std::string stored = change(6) + change(7) + change(8);
    for (const auto& [limit, loaded] : {std::pair(0U, 1U), std::pair(1U, 1U), std::pair(2U, 2U), std::pair(9U, 3U)}) {
        const NV_load_result result = load(stored, limit);
        EXPECT_TRUE(result.intact);
        EXPECT_EQ(result.loaded, loaded);
        EXPECT_EQ(tree.speed.get(), 5 + static_cast<int>(loaded));
    }
}

TEST_F(Loading_all, notifies_only_when_the_application_calls_signal_all) {
    Recorded_signals recorded;
    recorded.watch(tree.speed);
    load(change(6));
    EXPECT_TRUE(recorded.names().empty());
    tree.signal_all();
    EXPECT_EQ(recorded.names().size(), 2U);
    EXPECT_EQ(tree.speed.get_flags(), 0) << "sets no flag";
}

} // namespace
