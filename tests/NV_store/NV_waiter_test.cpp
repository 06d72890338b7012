#include <glue/NV_store/NV_waiter.h>

#include <support/fakes/Recording_waiter.h>
#include <support/settings/Settings_tree.h>

namespace {

using namespace NV_store;

class NV_waiter : public testing::Test {
  protected:
    static std::uintptr_t address(const void* of) { return reinterpret_cast<std::uintptr_t>(of); }

    module_man modules; ///< the tree's ids are 1 to 5, for the kinds 0 to 4
    Settings_tree tree{&modules};
    Recording_waiter waiter;
    Recording_waiter other;
    Access_base access{&tree.speed};
    Virt_access virt_access{&tree.speed};
};

TEST_F(NV_waiter, kinds_and_notification_modes_have_their_numbers) {
    EXPECT_EQ(reg_number, 1);
    EXPECT_EQ(reg_item, 2);
    EXPECT_EQ(reg_access, 3);
    EXPECT_EQ(reg_virt_access, 4);
    EXPECT_EQ(notify_none, 0);
    EXPECT_EQ(notify_parents, 1);
    EXPECT_EQ(notify_waiters, 2);
    EXPECT_EQ(notify_all, 3);
}

TEST_F(NV_waiter, registration_has_its_kind_and_target) {
    const NV_waiter_reg number(waiter, 0xFFFFFFFFU, true);
    EXPECT_EQ(number.kind(), 1);
    EXPECT_EQ(number.target(), 0xFFFFFFFFU);
    const NV_waiter_reg item(waiter, static_cast<NV_item*>(&tree.speed), true);
    EXPECT_EQ(item.kind(), 2);
    EXPECT_EQ(item.target(), address(static_cast<NV_item*>(&tree.speed)));
    const NV_waiter_reg by_access(waiter, &access, true);
    EXPECT_EQ(by_access.kind(), 3);
    EXPECT_EQ(by_access.target(), address(&access));
    const NV_waiter_reg by_virt_access(waiter, &virt_access, true);
    EXPECT_EQ(by_virt_access.kind(), 4);
    EXPECT_EQ(by_virt_access.target(), address(&virt_access));
}

TEST_F(NV_waiter, registration_without_a_target_is_of_kind_0_and_targets_itself) {
    const NV_waiter_reg no_item(waiter, static_cast<NV_item*>(nullptr), true);
    const NV_waiter_reg no_access(waiter, static_cast<Access_base*>(nullptr), true);
    const NV_waiter_reg no_virt_access(waiter, static_cast<Virt_access*>(nullptr), true);
    for (const NV_waiter_reg* reg : {&no_item, &no_access, &no_virt_access}) {
        EXPECT_EQ(reg->kind(), 0);
        EXPECT_EQ(reg->target(), address(reg));
    }
    for (const int kind : {-1, 0, 5, 255, 256 + 1}) {
        const NV_waiter_reg reg(waiter, kind, 99, true);
        EXPECT_EQ(reg.kind(), 0) << kind;
        EXPECT_EQ(reg.target(), address(&reg));
    }
    const NV_waiter_reg copy(no_item);
    EXPECT_EQ(copy.target(), address(&copy)) << "its own address, not the original's";
}

TEST_F(NV_waiter, number_0_is_a_number_like_any_other) {
    const NV_waiter_reg reg(waiter, 0U, false);
    EXPECT_EQ(reg.kind(), 1);
    EXPECT_EQ(reg.target(), 0U);
}

TEST_F(NV_waiter, event_has_only_the_id_of_the_kind_and_the_target) {
    EXPECT_TRUE(NV_waiter_reg(waiter, 4711U, false).send_event(&tree, false));
    EXPECT_TRUE(NV_waiter_reg(waiter, static_cast<NV_item*>(&tree.lamp), false).send_event(&tree, false));
    EXPECT_TRUE(NV_waiter_reg(waiter, &access, false).send_event(&tree, false));
    EXPECT_TRUE(NV_waiter_reg(waiter, &virt_access, false).send_event(&tree, false));
    const NV_waiter_reg of_kind_0(waiter, 0, 0, false);
    EXPECT_TRUE(of_kind_0.send_event(&tree, false));
    EXPECT_EQ(waiter.sources(), (std::vector<std::int16_t>{2, 3, 4, 5, 1}));
    const std::vector<waiter_event>& events = waiter.events();
    EXPECT_EQ(events[0].target, 4711U);
    EXPECT_EQ(events[1].target, address(static_cast<NV_item*>(&tree.lamp)));
    EXPECT_EQ(events[2].target, address(&access));
    EXPECT_EQ(events[3].target, address(&virt_access));
    EXPECT_EQ(events[4].target, address(&of_kind_0));
    for (const waiter_event& event : events) {
        EXPECT_EQ(event.code, 0);
        EXPECT_EQ(event.words[0], 0U);
        EXPECT_EQ(event.words[1], 0U);
        EXPECT_EQ(event.payload, nullptr);
    }
}

TEST_F(NV_waiter, registration_for_changes_only_is_skipped_unless_forced) {
    const NV_waiter_reg reg(waiter, 1U, true);
    EXPECT_TRUE(reg.send_event(&tree, false));
    EXPECT_TRUE(reg.send_event(nullptr, false)) << "no event was due";
    EXPECT_TRUE(waiter.events().empty());
    EXPECT_TRUE(reg.send_event(&tree, true));
    EXPECT_EQ(waiter.events().size(), 1U);
}

TEST_F(NV_waiter, nothing_is_sent_without_a_root_an_id_or_a_waiter) {
    const NV_waiter_reg reg(waiter, 1U, false);
    EXPECT_FALSE(reg.send_event(nullptr, true));
    const Settings_tree without_modules;
    EXPECT_FALSE(reg.send_event(&without_modules, true));
    EXPECT_TRUE(waiter.events().empty());
    EXPECT_FALSE(NV_waiter_reg(nullptr, 1U, false).send_event(&tree, true));
}

TEST_F(NV_waiter, equal_events_merge_when_the_queue_is_full) {
    const NV_waiter_reg reg(waiter, 1U, false);
    for (unsigned i = 0; i < 2 * waiter_descriptor::capacity; ++i)
        ASSERT_TRUE(reg.send_event(&tree, true));
    EXPECT_EQ(waiter.waiter()->waiting(), waiter_descriptor::capacity);
    EXPECT_EQ(waiter.waiter()->dropped(), 0U);
}

TEST_F(NV_waiter, registrations_are_the_same_by_waiter_kind_and_target) {
    const NV_waiter_reg reg(waiter, 1U, true);
    EXPECT_TRUE(reg.is_same(NV_waiter_reg(waiter, 1U, false))) << "`on_change_only` does not matter";
    EXPECT_FALSE(reg.is_same(NV_waiter_reg(waiter, 2U, true)));
    EXPECT_FALSE(reg.is_same(NV_waiter_reg(other, 1U, true)));
    EXPECT_FALSE(reg.is_same(NV_waiter_reg(waiter, reg_item, 1, true)));
    EXPECT_TRUE(NV_waiter_reg(waiter, 0, 1, true).is_same(NV_waiter_reg(waiter, 0, 2, true))) << "kind 0: no targets";
}

TEST_F(NV_waiter, list_notifies_in_the_order_of_registration) {
    NV_waiter_list list;
    for (const unsigned number : {3U, 1U, 2U})
        EXPECT_TRUE(list.add(NV_waiter_reg(waiter, number, false)));
    EXPECT_TRUE(list.notify_updated(&tree, false));
    ASSERT_EQ(waiter.events().size(), 3U);
    EXPECT_EQ(waiter.events()[0].target, 3U);
    EXPECT_EQ(waiter.events()[1].target, 1U);
    EXPECT_EQ(waiter.events()[2].target, 2U);
}

TEST_F(NV_waiter, list_accepts_equal_registrations_and_removes_one_at_a_time) {
    NV_waiter_list list;
    const NV_waiter_reg reg(waiter, 1U, false);
    EXPECT_FALSE(list.exists(reg));
    EXPECT_FALSE(list.remove(reg)) << "there is no list yet";
    EXPECT_TRUE(list.add(reg));
    EXPECT_TRUE(list.add(reg));
    EXPECT_TRUE(list.remove(reg));
    EXPECT_TRUE(list.exists(reg));
    EXPECT_TRUE(list.remove(reg));
    EXPECT_FALSE(list.exists(reg));
    EXPECT_FALSE(list.remove(reg)) << "the list is empty";
}

TEST_F(NV_waiter, list_removes_the_first_equal_one) {
    NV_waiter_list list;
    list.add(NV_waiter_reg(other, 1U, false));
    list.add(NV_waiter_reg(waiter, 1U, false));
    list.add(NV_waiter_reg(waiter, 2U, false));
    list.add(NV_waiter_reg(waiter, 1U, true));
    EXPECT_TRUE(list.remove(NV_waiter_reg(waiter, 1U, false)));
    list.notify_updated(&tree, false);
    ASSERT_EQ(waiter.events().size(), 1U) << "the one for changes only is left, and skipped";
    EXPECT_EQ(waiter.events()[0].target, 2U);
    EXPECT_EQ(other.events().size(), 1U);
}

TEST_F(NV_waiter, list_removes_one_of_kind_0_whatever_its_target) {
    NV_waiter_list list;
    list.add(NV_waiter_reg(waiter, &access, false));
    list.add(NV_waiter_reg(waiter, static_cast<NV_item*>(nullptr), false));
    EXPECT_FALSE(list.remove(NV_waiter_reg(other, static_cast<NV_item*>(nullptr), false)));
    EXPECT_TRUE(list.remove(NV_waiter_reg(waiter, static_cast<Access_base*>(nullptr), false)));
    EXPECT_TRUE(list.exists(NV_waiter_reg(waiter, &access, false)));
}

TEST_F(NV_waiter, list_continues_after_a_waiter_that_cannot_be_notified) {
    NV_waiter_list list;
    list.add(NV_waiter_reg(nullptr, 1U, false));
    list.add(NV_waiter_reg(waiter, 1U, false));
    EXPECT_TRUE(list.notify_updated(&tree, true));
    EXPECT_EQ(waiter.events().size(), 1U);
    EXPECT_TRUE(list.notify_updated(nullptr, true)) << "no waiter can be notified";
    EXPECT_TRUE(NV_waiter_list().notify_updated(&tree, true));
}

TEST_F(NV_waiter, copied_list_shares_the_registrations) {
    NV_waiter_list list;
    const NV_waiter_reg first(waiter, 1U, false);
    const NV_waiter_reg second(waiter, 2U, false);
    list.add(first);
    NV_waiter_list copy(list);
    copy.add(second);
    EXPECT_TRUE(list.exists(second));
    EXPECT_TRUE(list.remove(first));
    EXPECT_FALSE(copy.exists(first));
}

TEST_F(NV_waiter, copies_of_an_empty_list_are_independent) {
    NV_waiter_list list;
    NV_waiter_list copy(list);
    copy.add(NV_waiter_reg(waiter, 1U, false));
    EXPECT_FALSE(list.exists(NV_waiter_reg(waiter, 1U, false)));
}

TEST_F(NV_waiter, accessor_registers_itself_with_its_item) {
    EXPECT_TRUE(virt_access.autoreg(waiter, true));
    tree.speed.set(99);
    ASSERT_EQ(waiter.events().size(), 1U);
    EXPECT_EQ(waiter.events()[0].source, 5);
    EXPECT_EQ(waiter.events()[0].target, address(&virt_access));
    EXPECT_TRUE(virt_access.autounreg(waiter));
    EXPECT_FALSE(virt_access.autounreg(waiter));
    tree.speed.set(100);
    EXPECT_EQ(waiter.events().size(), 1U);
}

TEST_F(NV_waiter, accessor_locks_the_tree_of_the_item_that_it_is_bound_to) {
    access.lock();
    EXPECT_EQ(tree.mutex().owner_thread(), QThread::currentThreadId());
    access.unlock();
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
    Settings_tree elsewhere;
    access.init(&elsewhere.lamp);
    EXPECT_EQ(access.get_item(), &elsewhere.lamp);
    access.lock();
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
    EXPECT_EQ(elsewhere.mutex().owner_thread(), QThread::currentThreadId());
    access.unlock();
}

TEST_F(NV_waiter, accessor_without_an_item_does_nothing) {
    Virt_access unbound;
    EXPECT_EQ(unbound.get_item(), nullptr);
    unbound.lock();
    unbound.unlock();
    EXPECT_FALSE(unbound.autoreg(waiter, true));
    EXPECT_FALSE(unbound.autounreg(waiter));
}

} // namespace
