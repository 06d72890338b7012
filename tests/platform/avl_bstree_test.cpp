#include <platform/avl_bstree.h>

#include <support/builders/Random.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace {

struct Node : __bsnode {
    explicit Node(int key_) : key(key_) {}
    int key;
};

int compare(const __bsnode* a, const __bsnode* b) {
    return static_cast<const Node*>(a)->key - static_cast<const Node*>(b)->key;
}

using Tree = c_bstree<avl_bstree, Node>;

std::vector<const Node*> content(const Tree& tree) {
    std::vector<const Node*> nodes;
    for (const Node* node = tree.first(); node; node = tree.next(node))
        nodes.push_back(node);
    return nodes;
}

TEST(avl_bstree, starts_empty) {
    const Tree tree(compare);
    const Node node(1);
    EXPECT_TRUE(tree.empty());
    EXPECT_EQ(tree.first(), nullptr);
    EXPECT_EQ(tree.find(&node), nullptr);
    EXPECT_FALSE(node.is_in_tree());
}

TEST(avl_bstree, orders_its_nodes) {
    Tree tree(compare);
    Node nodes[] = {Node(3), Node(1), Node(2)};
    for (Node& node : nodes)
        EXPECT_TRUE(tree.insert(&node));
    EXPECT_EQ(content(tree), (std::vector<const Node*>{&nodes[1], &nodes[2], &nodes[0]}));
    EXPECT_EQ(tree.previous(&nodes[0]), &nodes[2]);
    EXPECT_EQ(tree.previous(&nodes[1]), nullptr);
    EXPECT_EQ(tree.next(&nodes[0]), nullptr);
}

TEST(avl_bstree, keeps_equal_nodes_adjacent_in_the_order_of_insertion) {
    Tree tree(compare);
    Node nodes[] = {Node(2), Node(1), Node(2), Node(3), Node(2)};
    for (Node& node : nodes)
        tree.insert(&node);
    EXPECT_EQ(content(tree), (std::vector<const Node*>{&nodes[1], &nodes[0], &nodes[2], &nodes[4], &nodes[3]}));
    const Node key(2);
    EXPECT_EQ(tree.find(&key), &nodes[0]);
    EXPECT_TRUE(tree.remove(&nodes[0]));
    EXPECT_EQ(tree.find(&key), &nodes[2]);
}

TEST(avl_bstree, accepts_a_node_once) {
    Tree tree(compare);
    Tree other(compare);
    Node node(1);
    EXPECT_FALSE(tree.insert(nullptr));
    EXPECT_TRUE(tree.insert(&node));
    EXPECT_TRUE(node.is_in_tree());
    EXPECT_FALSE(tree.insert(&node));
    EXPECT_FALSE(other.insert(&node));
    EXPECT_TRUE(other.empty());
    EXPECT_EQ(content(tree).size(), 1U);
}

TEST(avl_bstree, removes_exactly_the_given_node) {
    Tree tree(compare);
    Node nodes[] = {Node(1), Node(1), Node(1)};
    for (Node& node : nodes)
        tree.insert(&node);
    Node stranger(1);
    EXPECT_FALSE(tree.remove(nullptr));
    EXPECT_FALSE(tree.remove(&stranger));
    nodes[1].key = 7; // its key has changed meanwhile
    EXPECT_TRUE(tree.remove(&nodes[1]));
    EXPECT_FALSE(nodes[1].is_in_tree());
    EXPECT_FALSE(tree.remove(&nodes[1]));
    EXPECT_EQ(content(tree), (std::vector<const Node*>{&nodes[0], &nodes[2]}));
    EXPECT_TRUE(tree.insert(&nodes[1]));
    EXPECT_EQ(tree.next(&nodes[2]), &nodes[1]);
}

TEST(avl_bstree, returns_no_neighbours_of_a_node_that_is_in_no_tree) {
    Tree tree(compare);
    Node node(1);
    const Node stranger(1);
    tree.insert(&node);
    EXPECT_EQ(tree.next(&stranger), nullptr);
    EXPECT_EQ(tree.previous(&stranger), nullptr);
    EXPECT_EQ(tree.next(nullptr), nullptr);
    EXPECT_EQ(tree.previous(nullptr), nullptr);
}

TEST(avl_bstree, releases_its_nodes_when_it_is_destroyed) {
    Node node(1);
    {
        Tree tree(compare);
        tree.insert(&node);
    }
    EXPECT_FALSE(node.is_in_tree());
    Tree tree(compare);
    EXPECT_TRUE(tree.insert(&node));
}

TEST(avl_bstree, does_not_hold_the_copy_of_a_node) {
    Tree tree(compare);
    Node node(1);
    tree.insert(&node);
    const Node copy(node);
    EXPECT_FALSE(copy.is_in_tree());
    node = Node(5);
    EXPECT_TRUE(node.is_in_tree());
    EXPECT_EQ(content(tree), std::vector<const Node*>{&node});
}

TEST(avl_bstree, behaves_like_a_multimap_of_pointers) {
    constexpr unsigned count = 40;
    constexpr unsigned keys = 10;
    Random random;
    std::vector<Node> nodes(count, Node(0));
    Tree tree(compare);
    std::multimap<int, const Node*> model;
    for (int i = 0; i < 20000; ++i) {
        Node& node = nodes[random.between(0, count - 1)];
        const bool is_there = node.is_in_tree();
        if (random.one_in(2)) {
            if (!is_there) {
                node.key = static_cast<int>(random.between(0, keys));
                model.emplace(node.key, &node);
            }
            ASSERT_EQ(tree.insert(&node), !is_there);
        } else {
            const auto entry_of_node =
                std::find_if(model.begin(), model.end(), [&node](const auto& entry) { return entry.second == &node; });
            ASSERT_EQ(entry_of_node != model.end(), is_there);
            ASSERT_EQ(tree.remove(&node), is_there);
            if (is_there)
                model.erase(entry_of_node);
        }
        std::vector<const Node*> expected;
        for (const auto& entry : model)
            expected.push_back(entry.second);
        ASSERT_EQ(content(tree), expected);
        ASSERT_EQ(tree.empty(), expected.empty());

        const Node key(static_cast<int>(random.between(0, keys)));
        const auto found = model.lower_bound(key.key);
        const bool is_found = found != model.end() && found->first == key.key;
        ASSERT_EQ(tree.find(&key), is_found ? found->second : nullptr);
        if (is_found) {
            ASSERT_EQ(tree.previous(found->second), found == model.begin() ? nullptr : std::prev(found)->second);
        }
    }
}

} // namespace
