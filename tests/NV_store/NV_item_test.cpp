#include <glue/NV_store/NV_item.h>

#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recorded_fields.h>
#include <support/fakes/Recording_waiter.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

#include <QMetaMethod>

#include <cstring>

namespace {

using namespace NV_store;
using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;

/// A node with only the properties of all nodes.
struct Bare_item : NV_item {
    using NV_item::deserialise;
    using NV_item::NV_item;
    using NV_item::serialise;

    int get_type() const override { return 42; }
    bool serialise(NV_iterator*) override { return true; }
    bool deserialise(NV_iterator*) override { return true; }
    Serial_ret serialise(Send_buffer&, unsigned short&) override { return {}; }
    Serial_ret deserialise(Receive_buffer&, unsigned short&) override { return {}; }
    void _print(Debug::Dumper& dumper, const char* name) const override { dumper.print_field(name, "bare"); }
};

TEST(NV_item, virtual_operations_have_their_slots) {
    constexpr std::size_t first = 12; // after those of QObject
    using Item = NV_item;
    const std::size_t found[] = {
        vtable_slot(&Item::get_type),
        vtable_slot(&Item::get_module_id),
        vtable_slot<bool (Item::*)(NV_iterator*)>(&Item::serialise),
        vtable_slot<bool (Item::*)(NV_iterator*)>(&Item::deserialise),
        vtable_slot(&Item::build_path),
        vtable_slot(&Item::__follow_path),
        vtable_slot(&Item::set_default),
        vtable_slot(&Item::get_dimension),
        vtable_slot(&Item::_set_root),
        vtable_slot(&Item::get_name),
        vtable_slot<Data_item* (Item::*)(const char*)>(&Item::find_data_item),
        vtable_slot<Data_item* (Item::*)(unsigned short)>(&Item::find_data_item),
        vtable_slot<Data_item::Serial_ret (Item::*)(Send_buffer&, unsigned short&)>(&Item::serialise),
        vtable_slot<Data_item::Serial_ret (Item::*)(Receive_buffer&, unsigned short&)>(&Item::deserialise),
        vtable_slot(&Item::serialise_structure),
        vtable_slot(&Item::set_minmax),
        vtable_slot(&Item::_to_string),
        vtable_slot(&Item::_from_string),
        vtable_slot(&Item::_search),
        vtable_slot<void (Item::*)(NV_root*)>(&Item::signal_all),
        vtable_slot(&Item::get_next_in_tree),
        vtable_slot(&Item::_print),
        vtable_slot(&Item::print),
    };
    std::size_t expected = first;
    for (const std::size_t slot : found)
        EXPECT_EQ(slot, expected++);
}

TEST(NV_item, has_two_signals_in_their_order) {
    const QMetaObject& meta = NV_item::staticMetaObject;
    EXPECT_STREQ(meta.className(), "NV_store::NV_item");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 2);
    EXPECT_STREQ(meta.method(meta.methodOffset()).methodSignature(), "value_changed()");
    EXPECT_STREQ(meta.method(meta.methodOffset() + 1).methodSignature(), "value_changed(NV_store::NV_item*)");
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Signal);
}

TEST(NV_item, starts_pristine_and_clean) {
    Settings_tree tree;
    const Bare_item item(&tree, 9, "item");
    EXPECT_EQ(item.get_flags(), 4);
    EXPECT_EQ(item.get_flags(), NV_item::pristine);
    EXPECT_STREQ(item.get_name(), "item");
    EXPECT_EQ(item.get_id(), 9);
    EXPECT_EQ(item.get_parent(), &tree);
    EXPECT_EQ(tree.get_my_index(&item), 3) << "the last of the parent's children";
    EXPECT_EQ(static_cast<const QObject&>(item).parent(), nullptr);
    tree.remove_child(const_cast<Bare_item*>(&item));
}

TEST(NV_item, flags_have_their_values) {
    EXPECT_EQ(NV_item::dirty_write, 1);
    EXPECT_EQ(NV_item::dirty_change, 2);
    EXPECT_EQ(NV_item::pristine, 4);
}

TEST(NV_item, copy_has_everything_except_list_position_and_slots) {
    module_man modules;
    Settings_tree tree(&modules);
    tree.speed.set_data_number(1234);
    tree.speed.set(77);
    Recorded_signals emitted;
    emitted.watch(tree.speed);
    const Int_setting copy(tree.speed);
    EXPECT_EQ(copy.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    EXPECT_STREQ(copy.get_name(), "speed");
    EXPECT_EQ(copy.get_parent(), &tree);
    EXPECT_EQ(copy.get_id(), 1);
    EXPECT_EQ(copy.data_number(), 1234);
    EXPECT_EQ(copy.get(), 77);
    EXPECT_EQ(tree.get_my_index(&copy), -1) << "not among the parent's children";
    EXPECT_EQ(tree.get_next_child(&copy), nullptr);
    const_cast<Int_setting&>(copy).signal_all(&tree);
    EXPECT_TRUE(emitted.names().empty());
}

TEST(NV_item, assignment_copies_everything_except_the_list_position) {
    Settings_tree tree;
    Bare_item from(nullptr, 9, "from");
    from.set_data_number(1234);
    from.notify_updated(true, notify_none);
    Bare_item to(&tree, 10, "to");
    static_cast<NV_item&>(to) = from;
    EXPECT_EQ(to.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    EXPECT_STREQ(to.get_name(), "from");
    EXPECT_EQ(to.get_parent(), nullptr);
    EXPECT_EQ(to.get_id(), 9);
    EXPECT_EQ(to.data_number(), 1234);
    EXPECT_EQ(tree.get_my_index(&to), 3) << "its position is unchanged";
    tree.remove_child(&to);
}

TEST(NV_item, copy_leaves_the_data_number_and_ignores_self_assignment) {
    Bare_item from(nullptr, 9, "from");
    Bare_item to(nullptr, 10, "to");
    const unsigned short number = to.data_number();
    to.copy(from);
    EXPECT_EQ(to.get_id(), 9);
    EXPECT_EQ(to.data_number(), number);
    Recording_waiter waiter;
    to.register_waiter(waiter, 1, false);
    to.copy(to);
    EXPECT_STREQ(to.get_name(), "from");
    EXPECT_TRUE(to.unregister_waiter(waiter, 1));
}

TEST(NV_item, copies_share_their_registrations_and_the_last_one_frees_them) {
    module_man modules;
    Settings_tree tree(&modules);
    Recording_waiter waiter;
    tree.speed.register_waiter(waiter, 1, false);
    {
        Int_setting copy(tree.speed);
        copy.register_waiter(waiter, 2, false);
    }
    tree.speed.set(6);
    EXPECT_EQ(waiter.events().size(), 2U) << "the original has the copy's registration, too";
    auto original = std::make_unique<Int_setting>(nullptr, 9, 0, "original");
    original->register_waiter(waiter, 1, false);
    Int_setting copy(*original);
    original.reset();
    EXPECT_TRUE(copy.unregister_waiter(waiter, 1));
}

TEST(NV_item, base_class_has_no_values_or_children) {
    Captured_debug debug;
    Bare_item item(nullptr, 9, "item");
    EXPECT_FALSE(item.set_default(true));
    EXPECT_EQ(debug.text(), "Default not implemented\n");
    EXPECT_EQ(item.get_dimension(), 0);
    char text[] = "untouched";
    EXPECT_EQ(item._to_string(text, sizeof text), 0);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(item._from_string(text), text);
    item._set_root(nullptr);
    EXPECT_EQ(item._get_root(), nullptr);
    Recorded_fields fields;
    item.print(fields);
    EXPECT_EQ(fields.text(), "item=bare;");
}

TEST(NV_item, name_may_be_left_out) {
    const Bare_item item(nullptr, 9, nullptr);
    EXPECT_STREQ(item.get_name(), "");
}

TEST(NV_item, is_found_by_its_data_number_only) {
    Captured_debug debug;
    Bare_item item(nullptr, 9, "item");
    item.set_data_number(4711);
    Data_item* const data_item = &item;
    EXPECT_EQ(data_item->find_data_item(static_cast<unsigned short>(4711)), data_item);
    EXPECT_EQ(data_item->find_data_item(static_cast<unsigned short>(9)), nullptr);
    EXPECT_EQ(data_item->find_data_item(""), data_item);
    EXPECT_EQ(debug.text(), "");
    EXPECT_EQ(data_item->find_data_item("item"), nullptr);
    EXPECT_EQ(debug.text(), "Base find item, why? item,4711,item\n");
}

TEST(NV_item, search_finds_it_by_its_whole_name_only) {
    Bare_item item(nullptr, 9, "item");
    EXPECT_EQ(item._search("item", '/'), &item);
    EXPECT_EQ(item._search("ite", '/'), nullptr);
    EXPECT_EQ(item._search("items", '/'), nullptr);
    EXPECT_EQ(item._search("item,", '/'), nullptr);
}

TEST(NV_item, widens_a_range_to_its_data_number) {
    Bare_item item(nullptr, 9, "item");
    item.set_data_number(50);
    for (const auto& [lo, hi, wide_lo, wide_hi] :
         {std::tuple(60, 70, 50, 70), std::tuple(30, 40, 30, 50), std::tuple(50, 50, 50, 50),
          std::tuple(0, 65535, 0, 65535), std::tuple(65535, 0, 50, 50)}) {
        auto low = static_cast<unsigned short>(lo);
        auto high = static_cast<unsigned short>(hi);
        item.set_minmax(low, high);
        EXPECT_EQ(low, wide_lo);
        EXPECT_EQ(high, wide_hi);
    }
}

TEST(NV_item, path_name_is_the_name_cut_without_a_nul) {
    Settings_tree tree;
    char text[8];
    std::memset(text, 'x', sizeof text);
    EXPECT_TRUE(tree.speed.get_path_name(text, 6));
    EXPECT_STREQ(text, "speed");
    EXPECT_EQ(text[6], 'x');
    std::memset(text, 'x', sizeof text);
    EXPECT_TRUE(tree.speed.get_path_name(text, 5));
    EXPECT_EQ(std::string(text, sizeof text), "speedxxx") << "no NUL, on purpose";
    EXPECT_TRUE(tree.get_path_name(text, 3)) << "without a parent it is also the name";
    EXPECT_EQ(std::string(text, 4), "sete");
    EXPECT_TRUE(tree.speed.get_path_name(text, 0));
    EXPECT_TRUE(tree.speed.get_path_name(text, -1));
    EXPECT_EQ(std::string(text, sizeof text), "setedxxx") << "nothing is written";
}

TEST(NV_item, path_name_is_the_position_in_a_parent_without_names) {
    Settings_array array(1, "array");
    std::vector<std::unique_ptr<Int_setting>> children;
    for (unsigned short id = 0; id < 12; ++id)
        children.push_back(std::make_unique<Int_setting>(&array, id, 0, "child"));
    char text[8] = "xxxxxxx";
    EXPECT_TRUE(children[2]->get_path_name(text, sizeof text));
    EXPECT_STREQ(text, "2");
    EXPECT_TRUE(children[11]->get_path_name(text, 2));
    EXPECT_STREQ(text, "1") << "cut";
    array.remove_child(children[0].get());
    std::strcpy(text, "before");
    EXPECT_TRUE(children[0]->get_path_name(text, sizeof text));
    EXPECT_STREQ(text, "before") << "it is no longer a child";
}

TEST(NV_item, moves_from_one_parent_to_another) {
    Settings_tree tree;
    tree.lamp._set_parent(nullptr);
    EXPECT_EQ(tree.lamp.get_parent(), nullptr);
    EXPECT_EQ(tree.get_my_index(&tree.lamp), -1);
    tree.lamp._set_parent(nullptr);
    Settings_list list(&tree, &tree, 9, "list");
    tree.lamp._set_parent(&list);
    EXPECT_EQ(list.get_my_index(&tree.lamp), 0);
    EXPECT_EQ(tree.lamp.get_parent(), &list);
    tree.lamp._set_parent(&tree);
    EXPECT_EQ(list.get_first_child(), nullptr);
    EXPECT_EQ(tree.get_my_index(&tree.lamp), 3);
}

TEST(NV_item, finds_its_root) {
    Settings_tree tree;
    EXPECT_EQ(tree._get_root(), &tree);
    EXPECT_EQ(tree.speed._get_root(), &tree);
    EXPECT_EQ(static_cast<NV_item&>(tree.guidance)._get_root(), &tree) << "a container returns its own root";
    EXPECT_EQ(tree.guidance.width._get_root(), &tree);
    NV_struct loose(&tree, nullptr, 9, "loose");
    const Bare_item below(&loose, 1, "below");
    EXPECT_EQ(static_cast<NV_item&>(loose)._get_root(), nullptr) << "not its parent's";
    EXPECT_EQ(below._get_root(), nullptr);
    tree.remove_child(&loose);
}

TEST(NV_item, lock_is_that_of_the_root) {
    Settings_tree tree;
    for (NV_item* item : std::initializer_list<NV_item*>{&tree, &tree.speed, &tree.guidance, &tree.guidance.width}) {
        item->lock();
        EXPECT_EQ(tree.mutex().owner_thread(), QThread::currentThreadId());
        EXPECT_EQ(tree.mutex().owner_kernel_id(), MutexImp::kernel_thread_id());
        item->unlock();
        EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
        EXPECT_EQ(tree.mutex().owner_kernel_id(), 0);
    }
}

TEST(NV_item, lock_does_nothing_without_a_root) {
    NV_struct loose(9, "loose");
    const Bare_item below(&loose, 1, "below");
    const Bare_item free_standing(nullptr, 1, "free");
    for (const NV_item* item : std::initializer_list<const NV_item*>{&loose, &below, &free_standing}) {
        item->lock();
        item->lock();
        item->unlock();
        item->unlock();
    }
}

TEST(NV_item, module_id_comes_from_the_root) {
    module_man modules;
    Settings_tree tree(&modules);
    EXPECT_EQ(tree.guidance.width.get_module_id(reg_item), 3);
    EXPECT_EQ(Bare_item(nullptr, 1, "free").get_module_id(reg_item), 0);
}

std::string walk(NV_item& start, NV_item* stop) {
    std::string names;
    for (NV_item* item = start.get_next_in_tree(stop); item; item = item->get_next_in_tree(stop))
        names += std::string(item->get_name()) + " ";
    return names;
}

TEST(NV_item, walk_visits_every_node_of_a_subtree_once_parents_first) {
    Settings_tree tree;
    NV_struct empty(&tree, &tree, 9, "empty");
    const Bare_item last(&tree, 10, "last");
    EXPECT_EQ(walk(tree, &tree), "speed guidance width beeper mode lamp empty last ");
    EXPECT_EQ(walk(tree.guidance, &tree.guidance), "width beeper mode ");
    EXPECT_EQ(walk(tree.guidance, nullptr), "width beeper mode lamp empty last ")
        << "up to the end of the tree without a stop";
    EXPECT_EQ(walk(empty, &empty), "");
    EXPECT_EQ(walk(tree.speed, &tree.speed), "");
    EXPECT_EQ(Bare_item(nullptr, 1, "free").get_next_in_tree(nullptr), nullptr);
}

// ---- Which items are saved ----

TEST(NV_item, is_included_as_the_mode_requires) {
    Settings_bytes it(NV_iterator::closed);
    struct State {
        bool changed;
        bool written;
        unsigned flags;
    };
    for (const State& state : {State{false, false, NV_item::pristine}, State{true, false, NV_item::dirty_change},
                               State{true, true, NV_item::dirty_change | NV_item::dirty_write},
                               State{false, true, NV_item::pristine | NV_item::dirty_write}}) {
        Bare_item item(nullptr, 1, "item");
        item.notify_updated(state.changed, state.written, true, notify_none, nullptr);
        ASSERT_EQ(item.get_flags(), state.flags);
        const bool included[] = {
            false, false, true, !(state.flags & 4U), (state.flags & 1U) != 0, (state.flags & 2U) != 0, false};
        for (int mode = 0; mode <= 6; ++mode) {
            it.set_mode(static_cast<NV_iterator::modes_t>(mode));
            const bool known = mode >= 2 && mode <= 5;
            bool ok = !known;
            EXPECT_EQ(item.include_in_serialise(&it, ok, false), included[mode]) << mode << " " << state.flags;
            EXPECT_EQ(ok, known) << mode;
        }
    }
    bool ok = true;
    EXPECT_FALSE(Bare_item(nullptr, 1, "item").include_in_serialise(nullptr, ok, false));
    EXPECT_TRUE(ok) << "left unchanged without an iterator";
}

struct Only_named : NV_iterator::NV_selector {
    explicit Only_named(std::string name) : name_(std::move(name)) {}
    bool include_in_serialise(const NV_item& item, const NV_iterator*, bool& ok, bool ignore_selector) const override {
        ++calls;
        EXPECT_FALSE(ignore_selector);
        ok = !fails;
        return item.get_name() == name_;
    }
    std::string name_;
    bool fails = false;
    mutable int calls = 0;
};

TEST(NV_item, selector_decides_unless_it_is_to_be_ignored) {
    Settings_bytes it(NV_iterator::writing_all);
    Only_named selector("one");
    it.set_selector(&selector);
    bool ok = false;
    EXPECT_TRUE(Bare_item(nullptr, 1, "one").include_in_serialise(&it, ok, false));
    EXPECT_TRUE(ok);
    EXPECT_FALSE(Bare_item(nullptr, 1, "other").include_in_serialise(&it, ok, false));
    EXPECT_EQ(selector.calls, 2);
    EXPECT_TRUE(Bare_item(nullptr, 1, "other").include_in_serialise(&it, ok, true));
    EXPECT_EQ(selector.calls, 2);
    selector.fails = true;
    EXPECT_FALSE(Bare_item(nullptr, 1, "other").include_in_serialise(&it, ok, false));
    EXPECT_FALSE(ok);
}

TEST(NV_item, default_selector_leaves_it_to_the_items) {
    Settings_bytes it(NV_iterator::writing_set);
    const NV_default_selector selector;
    it.set_selector(&selector);
    Bare_item item(nullptr, 1, "item");
    bool ok = false;
    EXPECT_FALSE(item.include_in_serialise(&it, ok, false));
    EXPECT_TRUE(ok);
    item.notify_updated(true, notify_none);
    EXPECT_TRUE(item.include_in_serialise(&it, ok, false));
    it.set_mode(NV_iterator::reading);
    EXPECT_FALSE(item.include_in_serialise(&it, ok, false));
    EXPECT_FALSE(ok);
}

} // namespace
