#pragma once

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <support/builders/Random.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// A list of settings, whose entries are addressed by position and may share their ids.
class Positional_list : public NV_store::NV_container {
  public:
    using NV_container::NV_container;
    int get_type() const override { return DTS::Defs::type_list; }
    bool children_named() const override { return false; }
};

/// The bits of a value.
template <typename T>
std::string bits_of(T value) {
    std::string bits(sizeof value, '\0');
    std::memcpy(bits.data(), &value, sizeof value);
    return bits;
}

/// A critical value or any value.
template <typename T>
T random_value(Random& random) {
    using Limits = std::numeric_limits<T>;
    if constexpr (std::is_floating_point_v<T>) {
        const T odd[] = {Limits::quiet_NaN(),
                         Limits::infinity(),
                         -Limits::infinity(),
                         Limits::denorm_min(),
                         -Limits::denorm_min(),
                         T(-0.0),
                         T(0),
                         Limits::max(),
                         Limits::lowest(),
                         Limits::min(),
                         Limits::epsilon(),
                         T(0.1)};
        if (random.one_in(2))
            return odd[random.between(0, std::size(odd) - 1)];
    } else {
        const T odd[] = {Limits::min(), Limits::max(), T(0), T(1)};
        if (random.one_in(2))
            return odd[random.between(0, std::size(odd) - 1)];
    }
    if constexpr (std::is_same_v<T, bool>)
        return random.one_in(2);
    const std::string bytes = random.bytes(sizeof(T));
    T value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

/// A random settings tree: nested structures and lists, numbers of all 22 kinds, enumerations of 4 bytes, pointers to
/// nodes that a path can reach.
///
///     const Settings_shape shape = Settings_shape::random(random);
///     Random_settings saved(shape);
///     Random_settings loaded(shape);                  // a twin: the same nodes with the same defaults
///     saved.change(random, 2);                        // about every second value
///     ... EXPECT_EQ(loaded.values(), saved.values())
struct Settings_shape {
    /// The description of a node; containers have children.
    struct Node {
        enum Kind { structure, list, leaf } kind = leaf;
        unsigned leaf_type = 0; ///< 0 to 21: a number; 22: an enumeration; 23: a pointer
        unsigned short id = 0;
        std::string name;
        std::vector<Node> children;
    };
    static constexpr unsigned leaf_types = 24;

    Node root;

    /// \param repeated_ids  lists have several entries of one shape under one id
    static Settings_shape random(Random& random, bool repeated_ids = false) {
        Settings_shape shape;
        shape.root = container(random, Node::structure, 0, repeated_ids);
        shape.root.name = "settings";
        return shape;
    }

  private:
    static constexpr unsigned deepest = 6;

    static Node container(Random& random, Node::Kind kind, unsigned depth, bool repeated_ids) {
        Node node;
        node.kind = kind;
        const bool shares_ids = kind == Node::list && repeated_ids;
        unsigned id = random.between(0, 50000);
        for (unsigned count = random.between(depth == 0 ? 1 : 0, 7); count > 0; --count) {
            if (!node.children.empty() && shares_ids && !random.one_in(4)) {
                node.children.push_back(node.children.back());
                continue;
            }
            Node child;
            if (depth < deepest && random.one_in(3))
                child = container(random, random.one_in(3) ? Node::list : Node::structure, depth + 1, repeated_ids);
            else
                child.leaf_type = random.between(0, leaf_types - 1);
            id += random.between(1, 700);
            child.id = static_cast<unsigned short>(id);
            child.name = "n" + random.bytes(random.between(0, 40));
            child.name.erase(std::remove(child.name.begin(), child.name.end(), '\0'), child.name.end());
            node.children.push_back(std::move(child));
        }
        return node;
    }
};

class Random_settings : public NV_store::NV_root {
  public:
    explicit Random_settings(Settings_shape shape)
        : NV_root(nullptr, shape.root.id, "settings"), shape_(std::move(shape)) {
        for (const Settings_shape::Node& child : shape_.root.children)
            make(this, child);
        _set_root(this);
    }
    ~Random_settings() override {
        leaves_.clear();
        nodes_.clear();
    }
    Random_settings(const Random_settings&) = delete;
    Random_settings& operator=(const Random_settings&) = delete;

    /// Sets about one value in `n`. \return how many
    unsigned change(Random& random, unsigned n) {
        unsigned changed = 0;
        for (const Leaf& leaf : leaves_) {
            if (random.one_in(n)) {
                leaf.change(random);
                ++changed;
            }
        }
        return changed;
    }

    /// Every value to the bit; of a pointer the position of its target in the tree.
    std::vector<std::string> values() const {
        std::vector<std::string> values;
        for (const Leaf& leaf : leaves_)
            values.push_back(leaf.value());
        return values;
    }
    /// The flags of every node.
    std::vector<unsigned char> flags() const {
        std::vector<unsigned char> flags{get_flags()};
        for (const auto& item : nodes_)
            flags.push_back(item->get_flags());
        return flags;
    }

  private:
    struct Leaf {
        std::function<void(Random&)> change;
        std::function<std::string()> value;
    };

    template <typename Node, typename... Arguments>
    Node* add(Arguments&&... arguments) {
        auto item = std::make_unique<Node>(std::forward<Arguments>(arguments)...);
        Node* const added = item.get();
        nodes_.push_back(std::move(item));
        return added;
    }

    template <typename T, int Type>
    static void make_number(Random_settings& tree, NV_container* parent, const Settings_shape::Node& shape) {
        auto* const number = tree.add<NV_store::NV_number<T, Type>>(parent, shape.id, T(1), shape.name.c_str());
        tree.leaves_.push_back({[number](Random& random) {
                                    const T value = random_value<T>(random);
                                    if (!(value == number->_get())) // 0.0 equals -0.0
                                        number->set(value);
                                },
                                [number] { return bits_of(number->_get()); }});
    }

    void make_enumeration(NV_container* parent, const Settings_shape::Node& shape) {
        enum class Any : unsigned {};
        auto* const enumeration = add<NV_store::NV_enum<Any>>(parent, shape.id, Any{7}, shape.name.c_str());
        leaves_.push_back({[enumeration](Random& random) { enumeration->set(Any{random_value<unsigned>(random)}); },
                           [enumeration] { return bits_of(enumeration->value()); }});
    }

    void make_pointer(NV_container* parent, const Settings_shape::Node& shape) {
        auto* const pointer = add<NV_store::NV_pointer>(parent, this, shape.id, shape.name.c_str());
        leaves_.push_back({[this, pointer](Random& random) {
                               NV_item* const target = random.one_in(4) ? nullptr : any_target(random);
                               if (target != pointer->get())
                                   pointer->set(target, NV_store::notify_all);
                           },
                           [this, pointer] { return position_of(pointer->get()); }});
    }

    void make(NV_container* parent, const Settings_shape::Node& shape) {
        using Maker = void (*)(Random_settings&, NV_container*, const Settings_shape::Node&);
        static constexpr Maker numbers[] = {make_number<bool, 2>,
                                            make_number<bool, 17>,
                                            make_number<char, 3>,
                                            make_number<char, 17>,
                                            make_number<unsigned char, 4>,
                                            make_number<unsigned char, 17>,
                                            make_number<unsigned short, 5>,
                                            make_number<unsigned short, 17>,
                                            make_number<unsigned int, 6>,
                                            make_number<unsigned int, 17>,
                                            make_number<signed char, 7>,
                                            make_number<signed char, 17>,
                                            make_number<short, 8>,
                                            make_number<short, 17>,
                                            make_number<int, 9>,
                                            make_number<int, 17>,
                                            make_number<float, 10>,
                                            make_number<double, 11>,
                                            make_number<unsigned long long, 15>,
                                            make_number<unsigned long long, 17>,
                                            make_number<long long, 16>,
                                            make_number<long long, 17>};
        static_assert(std::size(numbers) + 2 == Settings_shape::leaf_types);
        if (shape.kind == Settings_shape::Node::leaf) {
            if (shape.leaf_type < std::size(numbers))
                numbers[shape.leaf_type](*this, parent, shape);
            else if (shape.leaf_type == std::size(numbers))
                make_enumeration(parent, shape);
            else
                make_pointer(parent, shape);
            return;
        }
        NV_container* container = nullptr;
        if (shape.kind == Settings_shape::Node::list)
            container = add<Positional_list>(parent, nullptr, shape.id, shape.name.c_str());
        else
            container = add<NV_store::NV_struct>(parent, nullptr, shape.id, shape.name.c_str());
        for (const Settings_shape::Node& child : shape.children)
            make(container, child);
    }

    /// A node with a unique path: not one of several with the same id.
    NV_item* any_target(Random& random) {
        NV_item* const target = nodes_[random.between(0, static_cast<unsigned>(nodes_.size() - 1))].get();
        NV_store::NV_path path;
        return build_path(&path, target) == 0 && follow_path(path) == target ? target : nullptr;
    }
    std::string position_of(const NV_item* item) const {
        for (std::size_t i = 0; i < nodes_.size(); ++i)
            if (nodes_[i].get() == item)
                return std::to_string(i);
        return item ? "elsewhere" : "none";
    }

    Settings_shape shape_; ///< keeps the names
    std::vector<std::unique_ptr<NV_item>> nodes_;
    std::vector<Leaf> leaves_;
};
