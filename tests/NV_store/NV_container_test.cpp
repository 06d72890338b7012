#include <glue/NV_store/NV_container.h>

#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recorded_fields.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

namespace {

using namespace NV_store;

TEST(NV_container, virtual_operations_have_their_slots) {
    constexpr std::size_t slots_of_an_item = 12 + 23;
    EXPECT_EQ(vtable_slot(&NV_container::operator[]), slots_of_an_item);
    EXPECT_EQ(vtable_slot(&NV_container::get_minmax), slots_of_an_item + 1);
    EXPECT_EQ(vtable_slot(&NV_container::children_named), slots_of_an_item + 2);
}

// ---- Children ----

TEST(NV_container, keeps_its_children_in_order) {
    Settings_family<> family(3);
    EXPECT_EQ(family.container.get_first_child(), &family[0]);
    EXPECT_EQ(family.container.get_next_child(&family[0]), &family[1]);
    EXPECT_EQ(family.container.get_next_child(&family[1]), &family[2]);
    EXPECT_EQ(family.container.get_next_child(&family[2]), nullptr);
    EXPECT_EQ(family.container.get_next_child(nullptr), nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(family.container[i], &family[i]);
        EXPECT_EQ(family.container.get_my_index(&family[i]), i);
    }
    EXPECT_EQ(family.container.get_my_index(nullptr), -1);
    const Int_setting stranger(nullptr, 1, 0, "stranger");
    EXPECT_EQ(family.container.get_my_index(&stranger), -1);
    EXPECT_EQ(family.container.get_next_child(&stranger), nullptr);
}

TEST(NV_container, appends_at_the_end_and_removes_anywhere) {
    Settings_family<> family(3);
    EXPECT_TRUE(family.container.remove_child(&family[1]));
    EXPECT_FALSE(family.container.remove_child(&family[1]));
    EXPECT_FALSE(family.container.remove_child(nullptr));
    EXPECT_EQ(family.container.get_next_child(&family[0]), &family[2]);
    EXPECT_TRUE(family.container.add_child(&family[1]));
    EXPECT_EQ(family.container.get_my_index(&family[1]), 2);
    EXPECT_EQ(family[1].get_parent(), &family.container);
}

TEST(NV_container, adding_a_null_child_changes_nothing) {
    Settings_family<> family(1);
    EXPECT_TRUE(family.container.add_child(nullptr));
    EXPECT_EQ(family.container.get_next_child(&family[0]), nullptr);
}

TEST(NV_container, child_of_another_container_is_refused) {
    Settings_family<> family(1);
    Settings_family<Settings_list> other(0);
    EXPECT_FALSE(other.container.add_child(&family[0]));
    EXPECT_EQ(other.container.get_first_child(), nullptr);
}

TEST(NV_container, removed_child_outlives_its_container) {
    Int_setting item(nullptr, 1, 0, "item");
    {
        NV_struct container(9, "container");
        item._set_parent(&container);
        item._set_parent(nullptr);
    }
    NV_struct other(9, "other");
    EXPECT_TRUE(other.add_child(&item));
}

TEST(NV_container, id_of_another_child_ends_the_process) {
    Settings_tree tree;
    const auto status = testing::ExitedWithCode(137); // -119
    EXPECT_EXIT(Int_setting(&tree, 3, 0, "lantern"), status, "Duplicate NV_store ID lantern:3 lamp:3 in settings\n");
    Int_setting free_standing(nullptr, 1, 0, "velocity");
    EXPECT_EXIT(tree.add_child(&free_standing), status, "Duplicate NV_store ID velocity:1 speed:1 in settings\n");
    EXPECT_EXIT(free_standing._set_parent(&tree), status, "Duplicate NV_store ID velocity:1 speed:1 in settings\n");
    EXPECT_EXIT(tree.add_child(&tree.lamp), status, "Duplicate NV_store ID lamp:3 lamp:3 in settings\n");
}

TEST(NV_container, list_accepts_children_with_the_same_id) {
    Settings_list list(9, "list");
    const Int_setting first(&list, 1, 0, "first");
    const Int_setting second(&list, 1, 0, "second");
    EXPECT_EQ(list.get_my_index(&second), 1);
}

TEST(NV_container, access_to_a_missing_child_ends_the_process) {
    Settings_family<> family(2);
    const char* const last_words = "glue/NV_store/NV_container.*virtual NV_store::NV_item\\* "
                                   "NV_store::NV_container::operator\\[\\]\\(int\\).*ret != NULL";
    EXPECT_EXIT(family.container[2], testing::KilledBySignal(SIGABRT), last_words);
    EXPECT_EXIT(family.container[-1], testing::KilledBySignal(SIGABRT), last_words);
    EXPECT_EXIT(NV_struct(1, "empty")[0], testing::KilledBySignal(SIGABRT), last_words);
}

TEST(NV_container, root_reaches_every_container_below) {
    Settings_tree tree;
    NV_struct outer(&tree, nullptr, 8, "outer");
    const NV_struct inner(&outer, nullptr, 1, "inner");
    EXPECT_EQ(inner.get_root(), nullptr);
    tree._set_root(&tree);
    EXPECT_EQ(outer.get_root(), &tree);
    EXPECT_EQ(inner.get_root(), &tree);
    outer._set_root(nullptr);
    EXPECT_EQ(inner.get_root(), nullptr);
    EXPECT_EQ(tree.get_root(), &tree);
    tree.remove_child(&outer);
}

TEST(NV_container, types_have_their_codes) {
    EXPECT_EQ(NV_struct(1, "struct").get_type(), 1);
    EXPECT_EQ(Settings_tree().get_type(), 0);
    EXPECT_EQ(NV_struct(1, "struct").get_dimension(), 0);
}

// ---- Data numbers ----

/// Numbers the nodes of a tree from `first` on, in the order of a walk.
void number(NV_item& tree, unsigned short first) {
    for (NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
        item->set_data_number(first++);
}

TEST(NV_container, finds_by_number_within_the_last_range) {
    Settings_tree tree; // speed 101, guidance 102, width 103, beeper 104, mode 105, lamp 106
    number(tree, 100);
    const auto find = [&](int n) { return tree.find_data_item(static_cast<unsigned short>(n)); };
    unsigned short lo = 0;
    unsigned short hi = 0;
    tree.get_minmax(lo, hi);
    EXPECT_EQ(lo, 0xFFFF);
    EXPECT_EQ(hi, 0xFFFF);
    EXPECT_EQ(find(100), &tree);
    EXPECT_EQ(find(101), nullptr) << "no range yet";

    lo = 200;
    hi = 0;
    tree.set_minmax(lo, hi);
    EXPECT_EQ(lo, 100);
    EXPECT_EQ(hi, 106);
    tree.get_minmax(lo, hi);
    EXPECT_EQ(lo, 100);
    EXPECT_EQ(hi, 106);
    tree.guidance.get_minmax(lo, hi);
    EXPECT_EQ(lo, 102);
    EXPECT_EQ(hi, 105);
    EXPECT_EQ(find(101), &tree.speed);
    EXPECT_EQ(find(102), &tree.guidance);
    EXPECT_EQ(find(105), &tree.guidance.mode);
    EXPECT_EQ(find(106), &tree.lamp);
    EXPECT_EQ(find(99), nullptr);
    EXPECT_EQ(find(107), nullptr);

    tree.lamp.set_data_number(300);
    EXPECT_EQ(find(300), nullptr) << "outside the range";
    tree.guidance.mode.set_data_number(106);
    EXPECT_EQ(find(106), nullptr) << "outside guidance's range";
}

TEST(NV_container, range_includes_its_own_number_and_replaces_the_previous_one) {
    Settings_tree tree;
    number(tree, 100);
    tree.set_data_number(50);
    unsigned short lo = 0xFFFF;
    unsigned short hi = 0;
    tree.set_minmax(lo, hi);
    EXPECT_EQ(lo, 50);
    number(tree, 60);
    lo = 0;
    hi = 0xFFFF;
    tree.set_minmax(lo, hi);
    EXPECT_EQ(lo, 0);
    EXPECT_EQ(hi, 0xFFFF) << "a wider range is left unchanged";
    tree.get_minmax(lo, hi);
    EXPECT_EQ(lo, 60);
    EXPECT_EQ(hi, 66);
}

TEST(NV_container, numbers_are_found_up_to_the_largest) {
    Settings_tree tree;
    number(tree, 0xFFF9);
    tree.lamp.set_data_number(0xFFFF);
    EXPECT_EQ(tree.find_data_item(static_cast<unsigned short>(0xFFFF)), &tree.lamp) << "the first range";
    number(tree, 0);
    unsigned short lo = 0xFFFF;
    unsigned short hi = 0;
    tree.set_minmax(lo, hi);
    EXPECT_EQ(tree.find_data_item(static_cast<unsigned short>(0)), &tree);
    EXPECT_EQ(tree.find_data_item(static_cast<unsigned short>(6)), &tree.lamp);
}

// ---- Names ----

TEST(NV_container, finds_by_dotted_name) {
    Captured_debug debug;
    Settings_tree tree;
    Data_item& as_data_item = tree;
    EXPECT_EQ(as_data_item.find_data_item(""), &tree);
    EXPECT_EQ(tree.find_data_item("speed"), &tree.speed);
    EXPECT_EQ(tree.find_data_item("guidance"), &tree.guidance);
    EXPECT_EQ(tree.find_data_item("guidance."), &tree.guidance);
    EXPECT_EQ(tree.find_data_item("guidance.beeper"), &tree.guidance.beeper);
    for (const char* path : {"spee", "speeds", "guidance.spee", ".speed", ".", "guidance..beeper", "beeper"})
        EXPECT_EQ(tree.find_data_item(path), nullptr) << path;
    EXPECT_EQ(debug.text(), "");
    EXPECT_EQ(tree.find_data_item("lamp.x"), nullptr);
    EXPECT_EQ(debug.text(), "Base find item, why? lamp," + std::to_string(tree.lamp.data_number()) + ",x\n");
}

TEST(NV_container, first_of_several_names_wins) {
    Settings_list list(9, "list");
    const Int_setting abc(&list, 1, 0, "abc");
    const Int_setting first(&list, 1, 0, "ab");
    const Int_setting second(&list, 1, 0, "ab");
    EXPECT_EQ(list.find_data_item("ab"), &first);
    EXPECT_EQ(list._search("ab", '/'), &first);
}

TEST(NV_container, searches_by_names_with_any_separator) {
    Settings_tree tree;
    EXPECT_EQ(tree._search("speed", '/'), &tree.speed);
    EXPECT_EQ(tree._search("guidance/width", '/'), &tree.guidance.width);
    EXPECT_EQ(tree._search("guidance.width", '.'), &tree.guidance.width);
    EXPECT_EQ(tree._search("guidance,width", ','), &tree.guidance.width);
    for (const char* spec : {"", "spee", "speeds", "guidance/", "/guidance", "guidance/width/", "guidance.width"})
        EXPECT_EQ(tree._search(spec, '/'), nullptr) << spec;
}

TEST(NV_container, search_stops_at_a_comma_where_there_is_no_separator) {
    Settings_tree tree;
    EXPECT_EQ(tree._search("speed,anything", '/'), &tree.speed);
    EXPECT_EQ(tree._search("guidance/width,12", '/'), &tree.guidance.width);
    EXPECT_EQ(tree._search("speed,a/b", '/'), nullptr) << "there is a separator: the component includes the comma";
    EXPECT_EQ(tree._search("speed", '\0'), &tree.speed) << "the NUL is not a separator";
}

TEST(NV_container, search_cuts_a_component_at_255_characters) {
    const std::string name(255, 'n');
    const std::string longer = name + "m";
    Settings_tree tree;
    NV_struct cut(&tree, &tree, 8, name.c_str());
    Int_setting uncut(&tree, 9, 0, longer.c_str());
    const Int_setting below(&cut, 1, 0, "below");
    EXPECT_EQ(tree._search((longer + "/below").c_str(), '/'), &below);
    EXPECT_EQ(tree._search((longer + ",x").c_str(), '/'), &cut);
    EXPECT_EQ(tree._search(longer.c_str(), '/'), &uncut) << "only a component that other text follows";
    tree.remove_child(&cut);
    tree.remove_child(&uncut);
}

TEST(NV_container, search_by_position) {
    Settings_family<Settings_array> family(5);
    EXPECT_EQ(family.container._search("0", '/'), &family[0]);
    EXPECT_EQ(family.container._search("4,x", '/'), &family[4]);
    EXPECT_EQ(family.container._search(" 03xyz", '/'), &family[3]) << "the number at the beginning";
    for (const char* spec : {"5", "7", "a", "", "-1", "2147483648", "4294967296", "18446744073709551616"})
        EXPECT_EQ(family.container._search(spec, '/'), nullptr) << spec;
}

/// settings(0) / rows(8, by position) / 0 to 2, each by position / two numbers
class Nested_arrays : public testing::Test {
  protected:
    Nested_arrays() { tree._set_root(&tree); }
    ~Nested_arrays() override { tree.remove_child(&rows); }

    struct Row : Settings_array {
        using Settings_array::Settings_array;
        Int_setting left{this, 0, 0, "left"};
        Counted_setting right{this, 1, 0, "right"};
    };
    Settings_tree tree;
    Settings_array rows{&tree, nullptr, 8, "rows"};
    Row first{&rows, nullptr, 0, "first"};
    Row second{&rows, nullptr, 1, "second"};
    Row third{&rows, nullptr, 2, "third"};
};

TEST_F(Nested_arrays, search_acquires_the_lock_once) {
    EXPECT_EQ(tree._search("rows/2/1", '/'), &third.right);
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
    EXPECT_EQ(tree._search("rows/2", '/'), &third);
    EXPECT_EQ(tree._search("rows/2/2", '/'), nullptr);
    EXPECT_EQ(tree._search("rows/3/0", '/'), nullptr);
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
}

TEST_F(Nested_arrays, search_holds_the_lock_below_a_position_only) {
    struct Watching : NV_struct {
        using NV_struct::NV_struct;
        NV_item* _search(const char* spec, char separator) override {
            held = get_root()->mutex().owner_thread() == QThread::currentThreadId();
            return NV_struct::_search(spec, separator);
        }
        bool held = false;
    };
    Watching by_position(&rows, &tree, 3, "fourth");
    Watching by_name(&tree, &tree, 9, "named");
    tree._search("rows/3/x", '/');
    EXPECT_TRUE(by_position.held);
    tree._search("named/x", '/');
    EXPECT_FALSE(by_name.held);
    rows.remove_child(&by_position);
    tree.remove_child(&by_name);
}

TEST_F(Nested_arrays, search_works_with_the_lock_held) {
    const NV_lock held(tree);
    EXPECT_EQ(tree._search("rows/2/1", '/'), &third.right);
    EXPECT_EQ(tree.mutex().owner_thread(), QThread::currentThreadId()) << "and leaves it locked";
}

TEST_F(Nested_arrays, print_by_position_and_by_name) {
    Recorded_fields fields;
    second.right.set(7);
    tree.print(fields);
    EXPECT_EQ(fields.text(), "settings{speed=5;guidance{width=12;beeper=1;mode=1;}lamp=200;"
                             "rows{0{0=0;1=0;}1{0=0;1=7;}2{0=0;1=0;}}}");
}

// ---- Defaults ----

TEST(NV_container, default_of_all_stops_at_the_first_failure) {
    NV_struct container(1, "container");
    Counted_setting a(&container, 1, 0, "a");
    NV_struct inner(&container, nullptr, 2, "inner");
    Counted_setting b(&inner, 1, 0, "b");
    Counted_setting c(&container, 3, 0, "c");
    for (Counted_setting* each : {&a, &b, &c})
        each->set(9);
    EXPECT_TRUE(container.set_default(false));
    EXPECT_EQ(a.get() + b.get() + c.get(), 27) << "nothing without `all`";
    EXPECT_TRUE(container.set_default(true));
    EXPECT_EQ(a.get() + b.get() + c.get(), 0);
    b.refuses_default = true;
    c.set(9);
    EXPECT_FALSE(container.set_default(true));
    EXPECT_EQ(a.defaults, 2);
    EXPECT_EQ(b.defaults, 2);
    EXPECT_EQ(c.defaults, 1);
    EXPECT_EQ(c.get(), 9);
}

} // namespace
