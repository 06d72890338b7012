#include <glue/data_stream/Event_sender_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recorded_platform_calls.h>
#include <support/fakes/Recording_waiter.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

using Codes = std::vector<int>;

/// The smallest sender; counts how often its lock is acquired.
class Sender : public Event_sender_data_stream {
  public:
    using Event_sender_data_stream::Event_sender_data_stream;

    void lock() override {
        EXPECT_FALSE(locked) << "the lock is acquired twice";
        locked = true;
        ++locks;
    }
    void unlock() override { locked = false; }
    using Data_stream::get_data;
    int get_data(int) override { return 0; }
    int _write(const unsigned char*, unsigned int len) override { return static_cast<int>(len); }

    bool locked = false;
    int locks = 0;
};

/// A sender with the lock operations of the base.
class Lockless_sender : public Event_sender_data_stream {
  public:
    using Data_stream::get_data;
    using Event_sender_data_stream::Event_sender_data_stream;
    int get_data(int) override { return 0; }
    int _write(const unsigned char*, unsigned int) override { return 0; }
};

class Event_sender : public testing::Test {
  protected:
    module_man modules;
    Recording_waiter rx{modules}; // module 1
    Recording_waiter tx{modules}; // module 2
    Sender sender{&modules};      // module 3
};

TEST_F(Event_sender, virtual_operations_keep_their_slots) {
    using Class = Event_sender_data_stream;
    EXPECT_EQ(vtable_slot(&Class::init), 2U);
    EXPECT_EQ(vtable_slot(&Class::lock), 3U);
    EXPECT_EQ(vtable_slot(&Class::unlock), 4U);
    EXPECT_EQ(vtable_slot(&Class::send_rx_event), 5U);
    EXPECT_EQ(vtable_slot(&Class::pause), 6U);
    EXPECT_EQ(vtable_slot(&Class::resume), 7U);
    EXPECT_EQ(vtable_slot(&Class::has_ended), 8U);
    EXPECT_EQ(vtable_slot(&Class::traces_itself), 9U);
    EXPECT_EQ(vtable_slot(&Class::send_tx_event), not_virtual);
    EXPECT_EQ(vtable_slot(&Class::reg_rx_waiter), not_virtual);
}

TEST_F(Event_sender, plain_one_never_ends_and_neither_pauses_nor_traces) {
    EXPECT_FALSE(sender.pause());
    sender.resume();
    EXPECT_FALSE(sender.has_ended());
    EXPECT_FALSE(sender.traces_itself());
}

TEST_F(Event_sender, shares_one_data_stream_with_other_virtual_bases) {
    class Other : public virtual Data_stream {};
    class Combined : public Sender, public Other {
      public:
        Combined() : Sender(nullptr) {}
        using Sender::_write;
        using Sender::get_data;
    } combined;
    EXPECT_EQ(static_cast<Data_stream*>(static_cast<Sender*>(&combined)),
              static_cast<Data_stream*>(static_cast<Other*>(&combined)));
}

TEST_F(Event_sender, has_the_plain_description) {
    EXPECT_EQ(sender.get_description(), plain_description(sender));
}

TEST_F(Event_sender, has_no_waiters_at_first) {
    EXPECT_EQ(sender.get_rx_waiter(), nullptr);
    EXPECT_EQ(sender.get_tx_waiter(), nullptr);
    sender.send_rx_event(true); // notifies nobody
    sender.send_tx_event(true);
}

TEST_F(Event_sender, event_carries_module_id_code_and_nothing_else) {
    sender.reg_rx_waiter(rx, false);
    sender.send_rx_event(false);
    ASSERT_EQ(rx.events().size(), 1U);
    const waiter_event& event = rx.events()[0];
    EXPECT_EQ(event.source, 3);
    EXPECT_EQ(event.words[0], 0U);
    EXPECT_EQ(event.words[1], 0U);
    EXPECT_EQ(event.code, 0);
    EXPECT_EQ(event.target, 0U);
    EXPECT_EQ(event.payload, nullptr);
}

TEST_F(Event_sender, source_of_events_is_module_0_until_init) {
    Sender nameless(nullptr);
    nameless.reg_rx_waiter(rx, false);
    nameless.reg_tx_waiter(tx, false);
    nameless.send_rx_event(false);
    nameless.send_tx_event(false);
    nameless.init(modules);
    nameless.send_rx_event(false);
    nameless.send_tx_event(false);
    EXPECT_EQ(rx.sources(), (std::vector<std::int16_t>{0, 4}));
    EXPECT_EQ(tx.sources(), (std::vector<std::int16_t>{0, 4}));
}

TEST_F(Event_sender, another_init_assigns_another_module_id) {
    sender.reg_rx_waiter(rx, false);
    sender.init(modules);
    sender.send_rx_event(false);
    EXPECT_EQ(rx.sources(), std::vector<std::int16_t>{4});
}

TEST_F(Event_sender, rx_events_are_0_and_1) {
    sender.reg_rx_waiter(rx, false);
    sender.reg_tx_waiter(tx, false);
    sender.send_rx_event(false);
    sender.send_rx_event(true);
    EXPECT_EQ(rx.codes(), (Codes{0, 1}));
    EXPECT_EQ(tx.codes(), Codes{});
}

TEST_F(Event_sender, tx_events_are_2_and_3) {
    sender.reg_rx_waiter(rx, false);
    sender.reg_tx_waiter(tx, false);
    sender.send_tx_event(false);
    sender.send_tx_event(true);
    EXPECT_EQ(tx.codes(), (Codes{2, 3}));
    EXPECT_EQ(rx.codes(), Codes{});
}

TEST_F(Event_sender, quiet_rx_waiter_gets_only_full_events) {
    sender.reg_rx_waiter(rx, true);
    sender.send_rx_event(false);
    sender.send_rx_event(true);
    EXPECT_EQ(rx.codes(), Codes{1});
}

TEST_F(Event_sender, quiet_tx_waiter_gets_only_flagged_events) {
    sender.reg_tx_waiter(tx, true);
    sender.send_tx_event(false);
    sender.send_tx_event(true);
    EXPECT_EQ(tx.codes(), Codes{3});
}

TEST_F(Event_sender, quiet_is_set_separately_for_each_side) {
    sender.reg_rx_waiter(rx, true);
    sender.reg_tx_waiter(tx, false);
    sender.reg_rx_waiter(rx, true);
    sender.send_rx_event(false);
    sender.send_tx_event(false);
    EXPECT_EQ(rx.codes(), Codes{});
    EXPECT_EQ(tx.codes(), Codes{2});
}

TEST_F(Event_sender, registration_replaces_waiter_and_quiet) {
    sender.reg_rx_waiter(rx, true);
    sender.reg_rx_waiter(tx, false);
    sender.send_rx_event(false);
    EXPECT_EQ(sender.get_rx_waiter(), tx.waiter());
    EXPECT_EQ(rx.codes(), Codes{});
    EXPECT_EQ(tx.codes(), Codes{0});
}

TEST_F(Event_sender, deregistered_waiters_get_nothing) {
    sender.reg_rx_waiter(rx, false);
    sender.reg_tx_waiter(tx, false);
    EXPECT_EQ(sender.get_rx_waiter(), rx.waiter());
    EXPECT_EQ(sender.get_tx_waiter(), tx.waiter());
    sender.dereg_rx_waiter();
    EXPECT_EQ(sender.get_rx_waiter(), nullptr);
    EXPECT_EQ(sender.get_tx_waiter(), tx.waiter());
    sender.dereg_tx_waiter();
    EXPECT_EQ(sender.get_tx_waiter(), nullptr);
    sender.send_rx_event(true);
    sender.send_tx_event(true);
    EXPECT_EQ(rx.codes(), Codes{});
    EXPECT_EQ(tx.codes(), Codes{});
}

TEST_F(Event_sender, registration_runs_under_the_lock_and_sending_does_not_acquire_it) {
    const auto takes_the_lock_once = [this](auto operation) {
        const int before = sender.locks;
        operation();
        return sender.locks == before + 1 && !sender.locked;
    };
    EXPECT_TRUE(takes_the_lock_once([this] { sender.reg_rx_waiter(rx, false); }));
    EXPECT_TRUE(takes_the_lock_once([this] { sender.reg_tx_waiter(tx, false); }));
    const int before_sending = sender.locks;
    sender.send_rx_event(true);
    sender.send_tx_event(true);
    EXPECT_EQ(sender.locks, before_sending);
    EXPECT_TRUE(takes_the_lock_once([this] { sender.dereg_rx_waiter(); }));
    EXPECT_TRUE(takes_the_lock_once([this] { sender.dereg_tx_waiter(); }));
    EXPECT_TRUE(takes_the_lock_once([this] { sender.init(modules); }));
}

TEST_F(Event_sender, own_lock_and_unlock_do_nothing) {
    Lockless_sender lockless(&modules);
    lockless.lock();
    lockless.lock(); // would hang or abort if there were a lock
    lockless.reg_rx_waiter(rx, false);
    EXPECT_EQ(lockless.get_rx_waiter(), rx.waiter());
    lockless.unlock();
    lockless.unlock();
}

TEST_F(Event_sender, callback_runs_for_every_rx_event_before_the_waiter_is_notified) {
    unsigned notified_before = 99;
    int calls = 0;
    sender.reg_rx_waiter(rx, false);
    sender.set_rx_callback([&] {
        notified_before = rx.waiter()->waiting();
        ++calls;
    });
    sender.send_rx_event(false);
    EXPECT_EQ(notified_before, 0U);
    EXPECT_EQ(rx.codes(), Codes{0});
    sender.send_rx_event(true);
    EXPECT_EQ(calls, 2);
}

TEST_F(Event_sender, callback_runs_for_a_quiet_waiter_and_for_none) {
    int calls = 0;
    sender.set_rx_callback([&calls] { ++calls; });
    sender.send_rx_event(false);
    EXPECT_EQ(calls, 1);
    sender.reg_rx_waiter(rx, true);
    sender.send_rx_event(false);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(rx.codes(), Codes{});
}

TEST_F(Event_sender, tx_events_run_no_callback) {
    int calls = 0;
    sender.set_rx_callback([&calls] { ++calls; });
    sender.reg_tx_waiter(tx, false);
    sender.send_tx_event(false);
    sender.send_tx_event(true);
    EXPECT_EQ(calls, 0);
}

TEST_F(Event_sender, replaced_callback_is_destroyed_and_no_longer_runs) {
    const auto alive = std::make_shared<int>(0);
    sender.set_rx_callback([alive] { ++*alive; });
    EXPECT_EQ(alive.use_count(), 2);
    sender.set_rx_callback({});
    EXPECT_EQ(alive.use_count(), 1);
    sender.send_rx_event(true);
    EXPECT_EQ(*alive, 0);
}

TEST_F(Event_sender, destruction_destroys_the_callback_and_notifies_nobody) {
    const auto alive = std::make_shared<int>(0);
    {
        Sender short_lived(&modules);
        short_lived.reg_rx_waiter(rx, false);
        short_lived.reg_tx_waiter(tx, false);
        short_lived.set_rx_callback([alive] { ++*alive; });
    }
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_EQ(*alive, 0);
    EXPECT_EQ(rx.codes(), Codes{});
    EXPECT_EQ(tx.codes(), Codes{});
}

TEST_F(Event_sender, passes_the_platform_s_own_arguments_unchanged) {
    using Send = Recorded_platform_calls::Send;
    constexpr Send rx_send{false, true};
    constexpr Send tx_send{true, false};
    sender.reg_rx_waiter(rx, false);
    sender.reg_tx_waiter(tx, false);
    Recorded_platform_calls calls;
    for (const bool flag : {false, true}) {
        sender.send_rx_event(flag);
        sender.send_tx_event(flag);
    }
    sender.init(modules);
    EXPECT_EQ(calls.sends, (std::vector<Send>{rx_send, tx_send, rx_send, tx_send}));
    EXPECT_EQ(calls.permanent_modules, std::vector<bool>{false});
}

TEST_F(Event_sender, rx_events_may_merge_in_a_full_queue) {
    sender.reg_rx_waiter(rx, false);
    for (unsigned i = 0; i <= waiter_descriptor::capacity; ++i)
        sender.send_rx_event(false);
    EXPECT_EQ(rx.waiter()->waiting(), waiter_descriptor::capacity);
    EXPECT_EQ(rx.waiter()->dropped(), 0U);
}

TEST_F(Event_sender, tx_events_never_merge) {
    Captured_debug quiet; // the queue reports its first loss
    sender.reg_tx_waiter(tx, false);
    for (unsigned i = 0; i <= waiter_descriptor::capacity; ++i)
        sender.send_tx_event(false);
    EXPECT_EQ(tx.waiter()->waiting(), waiter_descriptor::capacity);
    EXPECT_EQ(tx.waiter()->dropped(), 1U);
}

} // namespace
