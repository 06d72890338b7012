#include <platform/sl_list.h>

#include <support/builders/Random.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <vector>

namespace {

struct Node : __slnode {};

std::vector<const __slnode*> content(const sl_list& list) {
    std::vector<const __slnode*> nodes;
    for (const __slnode* node = list.first(); node; node = list.next(node))
        nodes.push_back(node);
    return nodes;
}

TEST(sl_list, starts_empty) {
    const sl_list list;
    const Node node;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.first(), nullptr);
    EXPECT_EQ(list.next(nullptr), nullptr);
    EXPECT_EQ(list.next(&node), nullptr);
    EXPECT_FALSE(node.is_in_list());
}

TEST(sl_list, keeps_the_order_of_insertion) {
    sl_list list;
    Node nodes[3];
    for (Node& node : nodes)
        EXPECT_TRUE(list.push_back(&node));
    EXPECT_FALSE(list.empty());
    EXPECT_EQ(content(list), (std::vector<const __slnode*>{&nodes[0], &nodes[1], &nodes[2]}));
    EXPECT_EQ(list.next(&nodes[2]), nullptr);
}

TEST(sl_list, accepts_a_node_once) {
    sl_list list;
    sl_list other;
    Node node;
    EXPECT_FALSE(list.push_back(nullptr));
    EXPECT_TRUE(list.push_back(&node));
    EXPECT_TRUE(node.is_in_list());
    EXPECT_FALSE(list.push_back(&node));
    EXPECT_FALSE(other.push_back(&node));
    EXPECT_TRUE(other.empty());
    EXPECT_EQ(content(list).size(), 1U);
    list.remove(&node);
}

TEST(sl_list, removes_only_its_own_nodes) {
    sl_list list;
    sl_list other;
    Node node;
    Node stranger;
    list.push_back(&node);
    EXPECT_FALSE(list.remove(nullptr));
    EXPECT_FALSE(list.remove(&stranger));
    EXPECT_FALSE(other.remove(&node));
    EXPECT_EQ(other.next(&node), nullptr);
    EXPECT_TRUE(list.remove(&node));
    EXPECT_FALSE(node.is_in_list());
    EXPECT_FALSE(list.remove(&node));
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(other.push_back(&node));
    other.remove(&node);
}

TEST(sl_list, appends_correctly_after_the_last_node_was_removed) {
    sl_list list;
    Node nodes[3];
    list.push_back(&nodes[0]);
    list.push_back(&nodes[1]);
    list.remove(&nodes[1]);
    list.push_back(&nodes[2]);
    EXPECT_EQ(content(list), (std::vector<const __slnode*>{&nodes[0], &nodes[2]}));
}

TEST(sl_list, does_not_hold_the_copy_of_a_node) {
    sl_list list;
    Node node;
    Node assigned;
    list.push_back(&node);
    list.push_back(&assigned);
    const Node copy(node);
    EXPECT_FALSE(copy.is_in_list());
    assigned = copy;
    EXPECT_TRUE(assigned.is_in_list());
    EXPECT_EQ(content(list), (std::vector<const __slnode*>{&node, &assigned}));
}

TEST(sl_list, may_be_destroyed_after_its_nodes) {
    sl_list list;
    {
        Node node;
        list.push_back(&node);
    }
}

TEST(sl_list, behaves_like_a_list_of_pointers) {
    constexpr unsigned count = 12;
    Random random;
    Node nodes[count];
    sl_list list;
    std::list<const __slnode*> model;
    for (int i = 0; i < 20000; ++i) {
        Node& node = nodes[random.between(0, count - 1)];
        const auto entry = std::find(model.begin(), model.end(), &node);
        const bool is_there = entry != model.end();
        ASSERT_EQ(node.is_in_list(), is_there);
        if (random.one_in(2)) {
            ASSERT_EQ(list.push_back(&node), !is_there);
            if (!is_there)
                model.push_back(&node);
        } else {
            ASSERT_EQ(list.remove(&node), is_there);
            if (is_there)
                model.erase(entry);
        }
        ASSERT_EQ(list.empty(), model.empty());
        ASSERT_EQ(content(list), std::vector<const __slnode*>(model.begin(), model.end()));
    }
}

} // namespace
