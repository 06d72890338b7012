#include <glue/NV_store/NV_item.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recording_waiter.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

namespace {

using namespace NV_store;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned char dirty = NV_item::dirty_write | NV_item::dirty_change;

struct Recording_hook : Data_item::Change_hook {
    explicit Recording_hook(std::function<void()> also = nullptr) : also_(std::move(also)) {}
    void changed(bool changed) override {
        calls.push_back(changed);
        if (also_)
            also_();
    }
    std::vector<bool> calls;
    std::function<void()> also_;
};

/// A tree with a waiter for each of three nodes on one branch: 1 width, 2 guidance, 3 the root.
class Notification : public testing::Test {
  protected:
    Notification() {
        width.register_waiter(waiter, 1, true);
        tree.guidance.register_waiter(waiter, 2, true);
        tree.register_waiter(waiter, 3, true);
        for (NV_item* item : std::initializer_list<NV_item*>{&width, &tree.guidance, &tree, &tree.speed})
            emitted.watch(*item);
    }
    std::vector<int> notified() {
        std::vector<int> numbers;
        for (const waiter_event& event : waiter.events())
            numbers.push_back(static_cast<int>(event.target));
        return numbers;
    }

    module_man modules;
    Settings_tree tree{&modules};
    NV_item& width = tree.guidance.width;
    Recording_waiter waiter;
    Recorded_signals emitted;
};

TEST_F(Notification, without_change_or_force_nothing_happens) {
    Recording_hook hook;
    width.set_change_hook(&hook);
    EXPECT_TRUE(width.notify_updated(false, true, false, notify_all, &tree));
    EXPECT_TRUE(width.notify_updated(false, notify_all));
    EXPECT_EQ(width.get_flags(), NV_item::pristine);
    EXPECT_THAT(notified(), IsEmpty());
    EXPECT_THAT(emitted.names(), IsEmpty());
    EXPECT_THAT(hook.calls, IsEmpty());
}

TEST_F(Notification, change_climbs_to_the_root) {
    EXPECT_TRUE(width.notify_updated(true, true, false, notify_all, &tree));
    EXPECT_THAT(notified(), ElementsAre(1, 2, 3)) << "each level its own waiters, also those for changes only";
    EXPECT_THAT(emitted.names(), ElementsAre("settings", "settings*", "guidance", "guidance*", "width", "width*"))
        << "a node emits after its parents";
    for (const NV_item* item : std::initializer_list<NV_item*>{&width, &tree.guidance, &tree})
        EXPECT_EQ(item->get_flags(), dirty);
    EXPECT_EQ(tree.speed.get_flags(), NV_item::pristine);
}

TEST_F(Notification, parents_only) {
    EXPECT_TRUE(width.notify_updated(true, true, false, notify_parents, &tree));
    EXPECT_THAT(notified(), IsEmpty()) << "parents get the same mode";
    EXPECT_THAT(emitted.names(), ElementsAre("settings", "settings*", "guidance", "guidance*", "width", "width*"));
    EXPECT_EQ(tree.get_flags(), dirty);
}

TEST_F(Notification, own_waiters_only) {
    EXPECT_TRUE(width.notify_updated(true, true, false, notify_waiters, &tree));
    EXPECT_THAT(notified(), ElementsAre(1));
    EXPECT_THAT(emitted.names(), ElementsAre("width", "width*"));
    EXPECT_EQ(tree.guidance.get_flags(), NV_item::pristine);
}

TEST_F(Notification, slots_only) {
    EXPECT_TRUE(width.notify_updated(true, true, false, notify_none, &tree));
    EXPECT_THAT(notified(), IsEmpty());
    EXPECT_THAT(emitted.names(), ElementsAre("width", "width*"));
    EXPECT_EQ(width.get_flags(), dirty);
}

TEST_F(Notification, flags_record_changes_and_writes) {
    width.notify_updated(true, false, false, notify_none, &tree);
    EXPECT_EQ(width.get_flags(), NV_item::dirty_change);
    width.notify_updated(false, true, true, notify_none, &tree);
    EXPECT_EQ(width.get_flags(), dirty);
    tree.speed.notify_updated(false, true, true, notify_none, &tree);
    EXPECT_EQ(tree.speed.get_flags(), NV_item::dirty_write | NV_item::pristine)
        << "written, not changed: still pristine";
    tree.lamp.notify_updated(false, false, true, notify_none, &tree);
    EXPECT_EQ(tree.lamp.get_flags(), NV_item::pristine);
}

TEST_F(Notification, short_form_notifies_of_a_written_value_with_the_tree_s_root) {
    EXPECT_TRUE(width.notify_updated(true, notify_all));
    EXPECT_EQ(width.get_flags(), dirty);
    EXPECT_THAT(notified(), ElementsAre(1, 2, 3));
}

TEST_F(Notification, waiters_need_the_root_but_slots_do_not) {
    EXPECT_TRUE(width.notify_updated(true, true, false, notify_all, nullptr));
    EXPECT_THAT(notified(), IsEmpty());
    EXPECT_EQ(emitted.names().size(), 6U);
}

TEST_F(Notification, hook_is_called_for_changes_between_waiters_and_parents) {
    std::vector<int> notified_before;
    Recording_hook hook([&] { notified_before = notified(); });
    width.set_change_hook(&hook);
    width.notify_updated(false, false, true, notify_all, &tree);
    EXPECT_THAT(hook.calls, IsEmpty()) << "forced, but not changed";
    waiter.clear();
    width.notify_updated(true, notify_all);
    EXPECT_THAT(hook.calls, ElementsAre(true));
    EXPECT_THAT(notified_before, ElementsAre(1));
    width.notify_updated(true, false, false, notify_none, nullptr);
    EXPECT_EQ(hook.calls.size(), 2U) << "in every notification mode";
}

TEST_F(Notification, does_not_climb_beyond_a_root) {
    NV_struct above(99, "above");
    tree._set_parent(&above);
    tree.notify_updated(true, notify_all);
    EXPECT_EQ(above.get_flags(), NV_item::pristine);
    tree._set_parent(nullptr);
}

TEST_F(Notification, signal_all_sets_no_flag_and_notifies_children_first) {
    tree.speed.register_waiter(waiter, 4, true);
    tree.lamp.register_waiter(waiter, 5, true);
    emitted.watch(tree.lamp);
    tree.signal_all();
    EXPECT_THAT(notified(), ElementsAre(4, 1, 2, 5, 3));
    EXPECT_THAT(emitted.names(), ElementsAre("speed", "speed*", "width", "width*", "guidance", "guidance*", "lamp",
                                             "lamp*", "settings", "settings*"));
    for (NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
        EXPECT_EQ(item->get_flags(), NV_item::pristine);
    emitted.clear();
    waiter.clear();
    tree.guidance.signal_all(&tree);
    EXPECT_THAT(notified(), ElementsAre(1, 2));
    tree.speed.signal_all(&tree);
    EXPECT_THAT(notified(), ElementsAre(1, 2, 4));
}

TEST_F(Notification, slots_of_one_signal_are_not_called_for_the_other) {
    int with_item = 0;
    QObject::connect(&tree.speed, qOverload<NV_item*>(&NV_item::value_changed),
                     [&](NV_item* item) { with_item += item == &tree.speed; });
    tree.speed.set(6);
    EXPECT_EQ(with_item, 1);
    EXPECT_EQ(emitted.names().size(), 4U) << "speed's and the root's";
}

// ---- Registering ----

TEST_F(Notification, registrations_of_every_kind_are_added_and_removed) {
    Access_base access(&tree.speed);
    Virt_access virt_access(&tree.speed);
    Recording_waiter own;
    EXPECT_TRUE(tree.speed.register_waiter(own, 7, false));
    EXPECT_TRUE(tree.speed.autoreg_waiter(own, false));
    EXPECT_TRUE(tree.speed.register_access_waiter(own, &access, false));
    EXPECT_TRUE(tree.speed.register_virt_access_waiter(own, &virt_access, false));
    tree.speed.set(6);
    EXPECT_THAT(own.sources(), ElementsAre(2, 3, 4, 5));
    const auto address = [](const void* of) { return reinterpret_cast<std::uintptr_t>(of); };
    EXPECT_EQ(own.events()[0].target, 7U);
    EXPECT_EQ(own.events()[1].target, address(static_cast<NV_item*>(&tree.speed)));
    EXPECT_EQ(own.events()[2].target, address(&access));
    EXPECT_EQ(own.events()[3].target, address(&virt_access));

    EXPECT_FALSE(tree.speed.unregister_waiter(own, 8));
    EXPECT_FALSE(tree.speed.unregister_waiter(waiter, 7));
    EXPECT_TRUE(tree.speed.unregister_waiter(own, 7));
    EXPECT_FALSE(tree.speed.unregister_waiter(own, 7));
    EXPECT_TRUE(tree.speed.autounreg_waiter(own));
    EXPECT_FALSE(tree.speed.autounreg_waiter(own));
    EXPECT_TRUE(tree.speed.unregister_access_waiter(own, &access));
    EXPECT_FALSE(tree.speed.unregister_access_waiter(own, &access));
    EXPECT_TRUE(tree.speed.unregister_virt_access_waiter(own, &virt_access));
    EXPECT_FALSE(tree.speed.unregister_virt_access_waiter(own, &virt_access));
    own.clear();
    tree.speed.set(7);
    EXPECT_THAT(own.sources(), IsEmpty());
}

TEST_F(Notification, registering_locks_the_tree) {
    tree.lock();
    EXPECT_EXIT(width.register_waiter(waiter, 1, true), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(width.autounreg_waiter(waiter), testing::KilledBySignal(SIGABRT), "");
    tree.unlock();
}

TEST_F(Notification, item_recognises_its_own_events) {
    Recording_waiter own;
    tree.speed.autoreg_waiter(own, true);
    tree.speed.register_waiter(own, 7, true);
    tree.lamp.autoreg_waiter(own, true);
    tree.speed.set(6);
    tree.lamp.set(1);
    ASSERT_EQ(own.events().size(), 3U);
    EXPECT_TRUE(tree.speed.is_event(own.events()[0]));
    EXPECT_FALSE(tree.lamp.is_event(own.events()[0]));
    EXPECT_FALSE(tree.speed.is_event(own.events()[1])) << "of another kind";
    EXPECT_TRUE(tree.lamp.is_event(own.events()[2]));
    Settings_tree elsewhere(&modules);
    EXPECT_FALSE(elsewhere.speed.is_event(own.events()[0]));
}

TEST_F(Notification, item_without_a_root_recognises_no_event) {
    Captured_debug debug;
    EXPECT_FALSE(Int_setting(nullptr, 1, 0, "free").is_event(waiter_event()));
    EXPECT_EQ(debug.text(), "NULL ROOT\r\n");
}

// ---- Within a notification ----

TEST_F(Notification, slot_may_set_the_node_again) {
    on_change(tree.speed, [&] {
        if (tree.speed._get() < 10)
            tree.speed._set(tree.speed._get() + 1, notify_all);
    });
    tree.speed.set(8);
    EXPECT_EQ(tree.speed.get(), 10);
    EXPECT_EQ(emitted.names().size(), 3U * 4U) << "8, 9 and 10, by speed and by the root";
}

TEST_F(Notification, slot_may_set_other_nodes_and_save_the_tree) {
    Settings_bytes saved(NV_iterator::writing_all);
    on_change(tree.speed, [&] {
        tree.lamp._set(1, notify_all);
        EXPECT_TRUE(tree.serialise(&saved));
    });
    tree.speed.set(8);
    EXPECT_EQ(tree.speed.get_flags(), 0) << "the change was saved during the notification";
    EXPECT_EQ(tree.get_flags(), 0);
    Settings_tree loaded;
    Settings_bytes it(saved.bytes());
    EXPECT_TRUE(loaded.deserialise(&it));
    EXPECT_EQ(loaded.speed.get(), 8);
    EXPECT_EQ(loaded.lamp.get(), 1);
}

TEST_F(Notification, slot_may_load_the_tree) {
    Settings_bytes it(NV_iterator::writing_all);
    ASSERT_TRUE(tree.serialise(&it));
    Settings_bytes stored(it.bytes());
    on_change(tree.speed, [&] { EXPECT_TRUE(tree.deserialise(&stored)); });
    tree.speed.set(8);
    EXPECT_EQ(tree.speed.get(), 5);
}

TEST_F(Notification, slot_runs_in_the_thread_that_sets_under_its_lock) {
    Qt::HANDLE holder = nullptr;
    on_change(tree.speed, [&] { holder = tree.mutex().owner_thread(); });
    Qt::HANDLE setter = nullptr;
    std::thread([&] {
        setter = QThread::currentThreadId();
        tree.speed.set(8);
    }).join();
    EXPECT_EQ(holder, setter);
    EXPECT_NE(holder, QThread::currentThreadId());
}

TEST_F(Notification, slot_that_acquires_the_lock_again_aborts) {
    on_change(tree.speed, [&] { tree.lamp.get(); });
    EXPECT_EXIT(tree.speed.set(8), testing::KilledBySignal(SIGABRT), "");
    on_change(tree.guidance, [&] { tree.guidance.register_waiter(waiter, 9, true); });
    EXPECT_EXIT(tree.guidance.beeper.set(false), testing::KilledBySignal(SIGABRT), "");
}

} // namespace
