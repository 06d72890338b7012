#include <glue/NV_store/NV_pointer.h>
#include <glue/NV_store/NV_root.h>

#include <support/builders/Random.h>
#include <support/builders/Record_builder.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recorded_fields.h>
#include <support/fakes/Recording_waiter.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

#include <memory>

namespace {

using namespace NV_store;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

struct Tree_with_pointers : Settings_tree {
    using Settings_tree::Settings_tree;
    NV_pointer first{this, this, 11, "first"};
    NV_pointer second{this, this, 12, "second"};
    NV_pointer third{this, this, 13, "third"};
};

class Pointers : public testing::Test {
  protected:
    /// The names of the pointers that are notified of a change of an item.
    std::vector<std::string> notified_for(NV_item* item) {
        std::vector<std::string> names;
        QObject context;
        for (NV_pointer* pointer : {&tree.first, &tree.second, &tree.third})
            QObject::connect(pointer, qOverload<>(&NV_item::value_changed), &context,
                             [&names, pointer] { names.emplace_back(pointer->get_name()); });
        EXPECT_TRUE(tree.notify_pointers(item, true, true, false, notify_waiters, &tree));
        return names;
    }
    std::string saved(NV_item& item) {
        Settings_bytes it(NV_iterator::writing_all);
        EXPECT_TRUE(item.serialise(&it));
        return it.bytes();
    }

    module_man modules;
    Tree_with_pointers tree{&modules};
};

TEST_F(Pointers, begin_without_a_target) {
    const NV_pointer free_standing;
    for (const NV_pointer* pointer : {&free_standing, static_cast<const NV_pointer*>(&tree.first)}) {
        EXPECT_EQ(pointer->get_type(), 14);
        EXPECT_EQ(pointer->get(), nullptr);
        EXPECT_EQ(pointer->__get(), nullptr);
        EXPECT_EQ(pointer->get_flags(), NV_item::pristine);
    }
    EXPECT_FALSE(free_standing.is_in_tree());
    EXPECT_TRUE(tree.first.is_in_tree()) << "a pointer with a root is in its registry";
}

TEST_F(Pointers, setting_notifies_of_a_change_only) {
    Recorded_signals emitted;
    emitted.watch(tree.first);
    Recording_waiter waiter;
    tree.register_waiter(waiter, 1, false);
    tree.first.set(&tree.speed, notify_all);
    EXPECT_EQ(tree.first.get(), &tree.speed);
    EXPECT_EQ(tree.first.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    EXPECT_EQ(waiter.events().size(), 1U);
    tree.first.set(&tree.speed, notify_all);
    EXPECT_EQ(waiter.events().size(), 1U);
    EXPECT_EQ(emitted.names().size(), 2U);
    tree.first._set(tree.lamp, notify_none);
    EXPECT_EQ(tree.first.__get(), &tree.lamp);
    EXPECT_EQ(waiter.events().size(), 1U);
    EXPECT_EQ(emitted.names().size(), 4U) << "slots are called at every change";
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
}

TEST_F(Pointers, default_is_no_target) {
    tree.first.set(&tree.speed, notify_all);
    Recorded_signals emitted;
    emitted.watch(tree.first);
    EXPECT_TRUE(tree.first.set_default(false));
    EXPECT_EQ(tree.first.get(), nullptr);
    EXPECT_EQ(emitted.names().size(), 2U);
}

TEST_F(Pointers, get_and_set_acquire_the_lock) {
    tree.lock();
    EXPECT_EXIT(tree.first.get(), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(tree.first.set(nullptr, notify_none), testing::KilledBySignal(SIGABRT), "");
    tree.first._set(tree.first.__get(), notify_none);
    tree.unlock();
}

TEST_F(Pointers, print_the_name_of_the_target) {
    Recorded_fields fields;
    tree.first.set(&tree.guidance.width, notify_all);
    tree.first.print(fields);
    tree.second.print(fields);
    EXPECT_EQ(fields.text(), "first=width;second=none;");
}

// ---- The registry ----

TEST_F(Pointers, compare_by_the_ids_of_their_targets) {
    const Int_setting low(nullptr, 1, 0, "low");
    const Int_setting high(nullptr, 65535, 0, "high");
    const Int_setting also_low(nullptr, 1, 0, "also low");
    NV_pointer a;
    NV_pointer b;
    const auto compare = [&](const NV_item* left, const NV_item* right) {
        a._set(const_cast<NV_item*>(left), notify_none);
        b._set(const_cast<NV_item*>(right), notify_none);
        return NV_root::pointer_compare(&a, &b);
    };
    EXPECT_EQ(compare(nullptr, nullptr), 0);
    EXPECT_LT(compare(nullptr, &low), 0);
    EXPECT_GT(compare(&low, nullptr), 0);
    EXPECT_EQ(compare(&low, &high), 1 - 65535);
    EXPECT_EQ(compare(&high, &low), 65535 - 1);
    EXPECT_EQ(compare(&low, &also_low), 0);
    const Int_setting zero(nullptr, 0, 0, "zero");
    EXPECT_LT(compare(nullptr, &zero), 0);
}

TEST_F(Pointers, only_pointers_to_the_item_are_notified) {
    tree.first.set(&tree.speed, notify_all);
    tree.second.set(&tree.lamp, notify_all);
    tree.third.set(&tree.speed, notify_all);
    EXPECT_THAT(notified_for(&tree.speed), UnorderedElementsAre("first", "third"));
    EXPECT_THAT(notified_for(&tree.lamp), ElementsAre("second"));
    EXPECT_THAT(notified_for(&tree.guidance), IsEmpty());
    EXPECT_THAT(notified_for(nullptr), IsEmpty());
}

TEST_F(Pointers, pointers_to_an_item_with_the_same_id_are_notified_on_purpose) {
    tree.first.set(&tree.speed, notify_all);           // id 1
    tree.second.set(&tree.guidance.width, notify_all); // id 1, in another container
    EXPECT_THAT(notified_for(&tree.speed), UnorderedElementsAre("first", "second"));
}

TEST_F(Pointers, pointers_without_a_target_are_not_notified) {
    tree.second.set(&tree.lamp, notify_all);
    EXPECT_THAT(notified_for(nullptr), UnorderedElementsAre("first", "third"));
}

TEST_F(Pointers, another_target_moves_a_pointer_in_the_registry) {
    tree.first.set(&tree.speed, notify_all);
    EXPECT_THAT(notified_for(&tree.speed), ElementsAre("first"));
    tree.first.set(&tree.lamp, notify_all);
    EXPECT_THAT(notified_for(&tree.speed), IsEmpty());
    EXPECT_THAT(notified_for(&tree.lamp), ElementsAre("first"));
    tree.first.set_default(true);
    EXPECT_THAT(notified_for(&tree.lamp), IsEmpty());
}

TEST_F(Pointers, notification_has_the_same_arguments) {
    tree.first.set(&tree.speed, notify_all);
    Recording_waiter waiter;
    tree.first.register_waiter(waiter, 7, true);
    saved(tree);
    EXPECT_TRUE(tree.notify_pointers(&tree.speed, false, true, false, notify_all, &tree)) << "no change, no force";
    EXPECT_EQ(tree.first.get_flags(), 0);
    tree.notify_pointers(&tree.speed, false, true, true, notify_waiters, &tree);
    EXPECT_EQ(tree.first.get_flags(), NV_item::dirty_write);
    EXPECT_EQ(waiter.events().size(), 1U);
    EXPECT_EQ(tree.get_flags(), 0);
    tree.notify_pointers(&tree.speed, true, false, false, notify_parents, nullptr);
    EXPECT_EQ(tree.get_flags(), NV_item::dirty_change);
    EXPECT_EQ(waiter.events().size(), 1U);
    EXPECT_TRUE(tree.notify_pointers(&tree.lamp, true, true, true, notify_all, &tree)) << "no pointer has this target";
}

TEST_F(Pointers, listeners_may_change_targets) {
    for (NV_pointer* pointer : {&tree.first, &tree.second, &tree.third}) {
        pointer->set(&tree.speed, notify_all);
        on_change(*pointer, [pointer, this] { pointer->_set(&tree.lamp, notify_waiters); });
    }
    notified_for(&tree.speed);
    for (const NV_pointer* pointer : {&tree.first, &tree.second, &tree.third})
        EXPECT_EQ(pointer->__get(), &tree.lamp) << pointer->get_name();
}

TEST_F(Pointers, leave_and_join_the_registry) {
    tree.first.set(&tree.speed, notify_all);
    EXPECT_FALSE(tree.add_pointer(&tree.first)) << "it is already in the registry";
    EXPECT_TRUE(tree.remove_pointer(&tree.first));
    EXPECT_FALSE(tree.remove_pointer(&tree.first));
    EXPECT_THAT(notified_for(&tree.speed), IsEmpty());
    EXPECT_TRUE(tree.add_pointer(&tree.first));
    EXPECT_THAT(notified_for(&tree.speed), ElementsAre("first"));
    EXPECT_FALSE(tree.remove_pointer(nullptr));
}

TEST_F(Pointers, leave_the_registry_when_destroyed) {
    {
        NV_pointer passing(&tree, &tree, 20, "passing");
        passing.set(&tree.speed, notify_all);
        tree.remove_child(&passing);
    }
    tree.first.set(&tree.speed, notify_all);
    EXPECT_THAT(notified_for(&tree.speed), ElementsAre("first"));
}

TEST_F(Pointers, outlive_their_root) {
    auto root = std::make_unique<NV_root>(nullptr, 0, "root");
    auto pointer = std::make_unique<NV_pointer>(nullptr, root.get(), 1, "pointer");
    EXPECT_TRUE(pointer->is_in_tree());
    root.reset();
    EXPECT_FALSE(pointer->is_in_tree());
}

TEST_F(Pointers, outlive_their_target_unless_they_are_used) {
    {
        Int_setting passing(&tree, 30, 0, "passing");
        tree.first.set(&passing, notify_all);
        tree.remove_child(&passing);
    }
    tree.first.set_default(true); // removed by its position in the registry, not by its target
    EXPECT_THAT(notified_for(nullptr), UnorderedElementsAre("first", "second", "third"));
}

TEST_F(Pointers, copies_join_the_registry) {
    tree.first.set(&tree.speed, notify_all);
    int notified = 0;
    {
        NV_pointer copy(tree.first);
        EXPECT_EQ(copy.__get(), &tree.speed);
        EXPECT_TRUE(copy.is_in_tree());
        on_change(copy, [&] { ++notified; });
        EXPECT_THAT(notified_for(&tree.speed), ElementsAre("first"));
        EXPECT_EQ(notified, 1);
    }
    EXPECT_THAT(notified_for(&tree.speed), ElementsAre("first"));
}

TEST_F(Pointers, free_standing_ones_are_in_no_registry) {
    NV_pointer pointer;
    pointer.set(&tree.speed, notify_all);
    EXPECT_EQ(pointer.get(), &tree.speed);
    EXPECT_FALSE(pointer.is_in_tree());
    EXPECT_THAT(notified_for(&tree.speed), IsEmpty());
}

TEST_F(Pointers, are_notified_as_in_a_simple_model) {
    Random random;
    std::vector<std::unique_ptr<Int_setting>> items;
    for (unsigned short id = 0; id < 8; ++id)
        items.push_back(std::make_unique<Int_setting>(nullptr, static_cast<unsigned short>(id / 2), 0, "item"));
    std::vector<std::unique_ptr<NV_pointer>> pointers;
    std::vector<int> notified(40);
    for (std::size_t i = 0; i < notified.size(); ++i) {
        pointers.push_back(std::make_unique<NV_pointer>(nullptr, &tree, 1, "pointer"));
        on_change(*pointers.back(), [&notified, i] { ++notified[i]; });
    }
    for (int step = 0; step < 1000; ++step) {
        NV_pointer& moved = *pointers[random.between(0, 39)];
        moved._set(random.one_in(5) ? nullptr : items[random.between(0, 7)].get(), notify_none);
        NV_item* const changed = items[random.between(0, 7)].get();
        std::fill(notified.begin(), notified.end(), 0);
        tree.notify_pointers(changed, true, true, false, notify_none, nullptr);
        for (std::size_t i = 0; i < notified.size(); ++i) {
            const NV_item* const target = pointers[i]->__get();
            ASSERT_EQ(notified[i], target && target->get_id() == changed->get_id());
        }
    }
}

// ---- Saving and loading ----

TEST_F(Pointers, record_is_the_path_to_the_target) {
    tree.first.set(&tree.guidance.beeper, notify_all);
    EXPECT_EQ(saved(tree.first), from_hex("0b 00 0c 0e " // first (11), a path, of a pointer
                                          "03 "          // three ids
                                          "02 00 "       // beeper
                                          "02 00 "       // guidance
                                          "00 00"));     // settings
    EXPECT_EQ(tree.first.get_flags(), 0);
    EXPECT_EQ(saved(tree.second), Record_builder().path(12, {}).bytes()) << "no target: an empty path";
}

TEST_F(Pointers, are_loaded_with_their_tree) {
    tree.first.set(&tree.guidance.beeper, notify_all);
    tree.second.set(&tree, notify_all);
    tree.third.set(&tree.third, notify_all);
    Tree_with_pointers other;
    Settings_bytes it(saved(tree));
    Recorded_signals emitted;
    emitted.watch(other.first);
    EXPECT_TRUE(other.deserialise(&it));
    EXPECT_EQ(other.first.get(), &other.guidance.beeper);
    EXPECT_EQ(other.second.get(), &other);
    EXPECT_EQ(other.third.get(), &other.third);
    EXPECT_EQ(other.first.get_flags(), 0);
    EXPECT_TRUE(emitted.names().empty());
}

TEST_F(Pointers, loading_moves_them_in_the_registry) {
    tree.first.set(&tree.speed, notify_all);
    tree.second.set(&tree.guidance, notify_all);
    tree.third.set(&tree.lamp, notify_all);
    Settings_bytes it(Record_builder().path(11, {3, 0}));
    EXPECT_TRUE(tree.first.deserialise(&it));
    EXPECT_THAT(notified_for(&tree.speed), IsEmpty());
    EXPECT_THAT(notified_for(&tree.lamp), UnorderedElementsAre("first", "third"));
}

TEST_F(Pointers, loading_twice_drops_the_first_path) {
    for (int i = 0; i < 12; ++i) {
        Settings_bytes it(Record_builder().path(11, {1, 2, 0}));
        EXPECT_TRUE(tree.first.deserialise(&it));
        ASSERT_EQ(tree.first.get(), &tree.guidance.width);
    }
}

TEST_F(Pointers, path_that_leads_nowhere_leaves_no_target_and_loading_goes_on) {
    Captured_debug debug;
    tree.first.set(&tree.lamp, notify_all);
    Settings_bytes it(Record_builder().open(0, 0).path(11, {99, 2, 0}).integer(1, 77).close());
    EXPECT_TRUE(tree.deserialise(&it));
    EXPECT_EQ(tree.first.get(), nullptr);
    EXPECT_EQ(tree.first.get_flags() & NV_item::pristine, 0);
    EXPECT_EQ(tree.speed.get(), 77);
    EXPECT_EQ(debug.text(), "Path of first leads nowhere\n");
    Settings_bytes empty(Record_builder().path(11, {}));
    tree.first.set(&tree.lamp, notify_all);
    EXPECT_TRUE(tree.first.deserialise(&empty));
    EXPECT_EQ(tree.first.get(), nullptr);
    EXPECT_EQ(debug.text(), "Path of first leads nowhere\n") << "an empty path is not reported";
}

TEST_F(Pointers, path_of_eleven_levels_cannot_be_stored) {
    std::vector<std::unique_ptr<NV_struct>> levels;
    NV_container* parent = &tree;
    for (unsigned short level = 2; level <= 11; ++level) {
        levels.push_back(std::make_unique<NV_struct>(parent, &tree, static_cast<unsigned short>(100 + level), "level"));
        parent = levels.back().get();
    }
    Captured_debug debug;
    tree.first.set(levels[8].get(), notify_all); // the tenth, with the root
    Settings_bytes tenth(saved(tree.first));
    EXPECT_EQ(tenth.left(), 4 + 1 + 20);
    EXPECT_TRUE(tree.first.deserialise(&tenth));
    EXPECT_EQ(tree.first.get(), levels[8].get());
    tree.first.set(levels[9].get(), notify_all);
    EXPECT_EQ(saved(tree.first), Record_builder().path(11, {}).bytes());
    EXPECT_EQ(debug.text(), "No path to level for first\n");
    tree.remove_child(levels[0].get());
}

TEST_F(Pointers, target_outside_the_tree_cannot_be_stored) {
    Captured_debug debug;
    const Settings_tree elsewhere;
    tree.first.set(const_cast<Settings_tree*>(&elsewhere), notify_all);
    EXPECT_EQ(saved(tree.first), Record_builder().path(11, {}).bytes());
    EXPECT_EQ(debug.text(), "No path to settings for first\n");
}

TEST_F(Pointers, free_standing_one_is_saved_empty_and_loads_no_target) {
    Captured_debug debug;
    NV_pointer pointer;
    pointer.set(&tree.speed, notify_all);
    EXPECT_EQ(saved(pointer), Record_builder().path(0, {}).bytes());
    Settings_bytes it(Record_builder().path(0, {1, 0}));
    EXPECT_TRUE(pointer.deserialise(&it));
    EXPECT_EQ(pointer.get(), nullptr);
}

TEST_F(Pointers, are_included_as_the_mode_requires) {
    saved(tree);
    Settings_bytes it(NV_iterator::appending_changed);
    EXPECT_TRUE(tree.first.serialise(&it));
    EXPECT_EQ(it.bytes(), "");
    it.set_mode(NV_iterator::reading);
    EXPECT_FALSE(tree.first.serialise(&it));
}

TEST_F(Pointers, stay_dirty_when_the_iterator_is_full) {
    tree.first.set(&tree.guidance.beeper, notify_all);
    for (int capacity = 0; capacity < 11; ++capacity) {
        Settings_bytes it(NV_iterator::writing_all, capacity);
        EXPECT_FALSE(tree.first.serialise(&it)) << capacity;
        EXPECT_EQ(tree.first.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    }
}

TEST_F(Pointers, record_of_another_kind_id_or_type_or_cut_off_changes_nothing) {
    tree.first.set(&tree.lamp, notify_all);
    const std::string whole = Record_builder().path(11, {1, 0});
    for (const std::string& stored : {std::string(Record_builder().path(12, {1, 0})),
                                      std::string(Record_builder().header(14, 9, 11).raw(low_bytes(0, 1))),
                                      std::string(Record_builder().header(9, 12, 11).raw(low_bytes(0, 1)))}) {
        Settings_bytes it(stored);
        EXPECT_FALSE(tree.first.deserialise(&it));
    }
    for (std::size_t size = 0; size < whole.size(); ++size) {
        Settings_bytes it(whole.substr(0, size));
        EXPECT_FALSE(tree.first.deserialise(&it)) << size;
    }
    EXPECT_EQ(tree.first.get(), &tree.lamp);
}

TEST_F(Pointers, record_can_be_skipped_on_request) {
    Settings_bytes it(Record_builder().path(11, {1, 2, 0}).raw("x"));
    EXPECT_TRUE(NV_pointer::deserialise_unknown(&it));
    EXPECT_EQ(it.left(), 1);
    EXPECT_FALSE(NV_pointer::deserialise_unknown(&it));
    Settings_bytes number(Record_builder().integer(1, 2));
    EXPECT_FALSE(NV_pointer::deserialise_unknown(&number));
    Settings_bytes cut(Record_builder().path(11, {1, 2, 0}).bytes().substr(0, 8));
    EXPECT_FALSE(NV_pointer::deserialise_unknown(&cut));
}

TEST_F(Pointers, of_an_unknown_id_end_the_load) {
    Captured_debug debug;
    Settings_bytes it(Record_builder().open(0, 0).path(99, {1, 0}).close());
    EXPECT_FALSE(tree.deserialise(&it));
    EXPECT_EQ(debug.text(), "NV unknown child was bad for 0:settings\n");
}

TEST_F(Pointers, damaged_tree_has_pointers_without_a_target) {
    Captured_debug debug;
    tree.first.set(&tree.lamp, notify_all);
    Settings_bytes it(Record_builder().open(0, 0).path(11, {1, 0}).close(1));
    EXPECT_FALSE(tree.deserialise(&it));
    EXPECT_EQ(tree.first.get(), nullptr);
}

TEST_F(Pointers, are_counted_but_not_sent_to_a_peer) {
    unsigned char bytes[8] = {};
    CDS::Remote::Send_buffer sent(bytes, sizeof bytes);
    unsigned short counter = 5;
    EXPECT_FALSE(tree.first.serialise(sent, counter).fail());
    EXPECT_EQ(counter, 4);
    EXPECT_EQ(sent.size(), 0);
    CDS::Remote::Receive_buffer received(bytes, sizeof bytes);
    EXPECT_FALSE(tree.first.deserialise(received, counter).fail());
    EXPECT_EQ(counter, 3);
    EXPECT_EQ(received.left(), 8);
}

} // namespace
