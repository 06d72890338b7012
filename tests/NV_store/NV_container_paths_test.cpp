#include <glue/NV_store/NV_container.h>

#include <support/settings/Settings_tree.h>

namespace {

using namespace NV_store;

TEST(NV_container, path_leads_from_the_target_up_and_back_again) {
    Settings_tree tree;
    NV_path path;
    EXPECT_EQ(tree.build_path(&path, &tree.guidance.beeper), 0);
    ASSERT_EQ(path.fill(), 3);
    EXPECT_EQ(tree.follow_path(path), &tree.guidance.beeper);
    EXPECT_EQ(path.fill(), 3) << "follow_path consumes a copy";
    unsigned short id = 9;
    for (const int expected : {0, 2, 2}) {
        EXPECT_TRUE(path.pop(id));
        EXPECT_EQ(id, expected) << "root, guidance, beeper";
    }
}

TEST(NV_container, path_may_lead_to_the_container_itself) {
    Settings_tree tree;
    NV_path path;
    EXPECT_EQ(tree.guidance.build_path(&path, &tree.guidance), 0);
    EXPECT_EQ(path.fill(), 1);
    EXPECT_EQ(tree.guidance.follow_path(path), &tree.guidance);
    EXPECT_EQ(tree.speed.follow_path(path), nullptr) << "another id";
    EXPECT_EQ(tree.follow_path(path), nullptr);
    EXPECT_EQ(tree.follow_path(NV_path()), nullptr);
    EXPECT_EQ(tree.speed.follow_path(NV_path()), nullptr);
}

TEST(NV_container, path_to_a_node_that_is_not_below_does_not_exist) {
    Settings_tree tree;
    NV_path path;
    EXPECT_EQ(tree.guidance.build_path(&path, &tree.speed), -1);
    EXPECT_EQ(tree.speed.build_path(&path, &tree.lamp), -1);
    EXPECT_EQ(tree.build_path(&path, nullptr), -1);
    EXPECT_EQ(path.fill(), 0);
}

TEST(NV_container, path_that_cannot_hold_every_level_fails) {
    Settings_tree tree;
    for (int capacity = 0; capacity <= 3; ++capacity) {
        NV_path path(capacity);
        EXPECT_EQ(tree.build_path(&path, &tree.guidance.beeper), capacity == 3 ? 0 : -1) << capacity;
        NV_path to_item(capacity);
        EXPECT_EQ(tree.speed.build_path(&to_item, &tree.speed), capacity > 0 ? 0 : -1);
    }
}

TEST(NV_container, following_leaves_a_path_that_leads_nowhere_unchanged) {
    Settings_tree tree;
    NV_path path;
    for (const int id : {99, 2, 0})
        path.push(static_cast<unsigned short>(id));
    NV_path same(path);
    EXPECT_EQ(tree.__follow_path(&path), nullptr);
    unsigned short left = 0;
    unsigned short right = 1;
    while (same.pop(right)) {
        EXPECT_TRUE(path.pop(left));
        EXPECT_EQ(left, right);
    }
    EXPECT_EQ(path.fill(), 0);
}

TEST(NV_container, following_removes_the_ids_that_led_to_the_node) {
    Settings_tree tree;
    NV_path path;
    tree.build_path(&path, &tree.guidance.beeper);
    EXPECT_EQ(tree.__follow_path(&path), &tree.guidance.beeper);
    EXPECT_EQ(path.fill(), 0);
    path.push(static_cast<unsigned short>(7)); // a path that continues below a number
    path.push(&tree.speed);
    path.push(&tree);
    EXPECT_EQ(tree.__follow_path(&path), &tree.speed) << "a leaf ends the path";
    EXPECT_EQ(path.fill(), 1);
}

} // namespace
