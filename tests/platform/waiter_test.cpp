#include <platform/module_man.h>
#include <platform/waiter.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <vector>

namespace {

constexpr unsigned capacity = waiter_descriptor::capacity;

waiter_event event_of(int code, std::int16_t source = 1, std::uintptr_t target = 0) {
    waiter_event event;
    event.code = code;
    event.source = source;
    event.target = target;
    return event;
}

struct Waiter : testing::Test {
    Captured_debug debug;
    waiter_descriptor waiter;

    bool send(waiter_event event, bool merge = false) { return waiter.send_event(event, false, merge); }
    /// Events with the codes 0 to capacity - 1.
    void fill() {
        for (unsigned i = 0; i < capacity; ++i)
            ASSERT_TRUE(send(event_of(static_cast<int>(i))));
    }
    /// The code of the oldest event; -1 when there is none.
    int next_code() {
        waiter_event event;
        return waiter.get_event(event, Atime()) == 0 ? event.code : -1;
    }
};

TEST_F(Waiter, holds_1024_events) {
    EXPECT_EQ(capacity, 1024U);
    fill();
    EXPECT_EQ(waiter.waiting(), 1024U);
    EXPECT_EQ(waiter.dropped(), 0U);
    for (int code = 0; code < 1024; ++code)
        ASSERT_EQ(next_code(), code);
    EXPECT_EQ(next_code(), -1);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Waiter, delivers_events_whole) {
    waiter_event sent;
    sent.source = -3;
    sent.words[0] = 0xFFFFFFFFU;
    sent.words[1] = 7;
    sent.code = -5;
    sent.target = std::numeric_limits<std::uintptr_t>::max();
    send(sent);
    waiter_event received;
    EXPECT_EQ(waiter.get_event(received), 0);
    EXPECT_EQ(received.source, sent.source);
    EXPECT_EQ(received.words[0], sent.words[0]);
    EXPECT_EQ(received.words[1], sent.words[1]);
    EXPECT_EQ(received.code, sent.code);
    EXPECT_EQ(received.target, sent.target);
    EXPECT_EQ(received.payload, nullptr);
}

TEST_F(Waiter, keeps_the_order_of_arrival_also_of_urgent_events) {
    waiter_event first = event_of(1);
    waiter_event second = event_of(2);
    waiter_event third = event_of(3);
    waiter.send_event(first, false, false);
    waiter.send_event(second, true, true);
    waiter.send_event(third, false, true);
    EXPECT_EQ(next_code(), 1);
    EXPECT_EQ(next_code(), 2);
    EXPECT_EQ(next_code(), 3);
}

TEST_F(Waiter, does_not_merge_equal_events_while_there_is_free_space) {
    EXPECT_TRUE(send(event_of(1), true));
    EXPECT_TRUE(send(event_of(1), true));
    EXPECT_EQ(waiter.waiting(), 2U);
}

TEST_F(Waiter, when_full_discards_a_mergeable_event_that_equals_a_waiting_one) {
    fill();
    EXPECT_TRUE(send(event_of(500), true));
    EXPECT_EQ(waiter.waiting(), capacity);
    EXPECT_EQ(waiter.dropped(), 0U);
    for (unsigned i = 0; i < capacity; ++i)
        ASSERT_EQ(next_code(), static_cast<int>(i));
}

TEST_F(Waiter, when_full_compares_source_code_and_target_only) {
    fill();
    waiter_event other_words = event_of(500);
    other_words.words[1] = 9;
    EXPECT_TRUE(send(other_words, true)); // words do not matter
    EXPECT_EQ(waiter.dropped(), 0U);
    EXPECT_TRUE(send(event_of(500, 2), true));
    EXPECT_TRUE(send(event_of(500, 1, 3), true));
    EXPECT_TRUE(send(event_of(5000), true));
    EXPECT_EQ(waiter.dropped(), 3U);
    EXPECT_EQ(waiter.waiting(), capacity);
}

TEST_F(Waiter, when_full_drops_the_oldest_for_an_event_that_must_not_merge) {
    fill();
    EXPECT_TRUE(send(event_of(500), false));
    EXPECT_EQ(waiter.dropped(), 1U);
    EXPECT_EQ(waiter.waiting(), capacity);
    for (unsigned i = 1; i < capacity; ++i)
        ASSERT_EQ(next_code(), static_cast<int>(i));
    EXPECT_EQ(next_code(), 500);
}

TEST_F(Waiter, counts_every_dropped_event_and_reports_the_first_only) {
    fill();
    for (int i = 0; i < 10; ++i)
        send(event_of(-7));
    EXPECT_EQ(waiter.dropped(), 10U);
    char expected[128];
    snprintf(expected, sizeof expected, "waiter %p (module 0): 1024 events wait, the oldest is dropped\n",
             static_cast<void*>(&waiter));
    EXPECT_EQ(debug.text(), expected);
}

// ---- Payloads: AddressSanitizer reports a leak or a second free ----

TEST_F(Waiter, payload_moves_from_sender_to_queue_to_receiver) {
    waiter_event sent = event_of(1);
    void* const payload = sent.payload = std::malloc(16);
    EXPECT_TRUE(waiter.send_event(sent, false, false));
    EXPECT_EQ(sent.payload, nullptr);
    waiter_event received;
    EXPECT_EQ(waiter.get_event(received), 0);
    EXPECT_EQ(received.payload, payload);
    std::free(received.payload);
}

TEST_F(Waiter, release_frees_a_payload_once) {
    waiter_event event = event_of(1);
    release_payload(event); // none yet
    event.payload = std::malloc(16);
    release_payload(event);
    EXPECT_EQ(event.payload, nullptr);
    release_payload(event);
}

TEST_F(Waiter, payload_of_a_merged_event_is_freed) {
    fill();
    waiter_event merged = event_of(500);
    merged.payload = std::malloc(16);
    EXPECT_TRUE(waiter.send_event(merged, false, true));
    EXPECT_EQ(merged.payload, nullptr);
    EXPECT_EQ(waiter.dropped(), 0U);
}

TEST_F(Waiter, payloads_of_dropped_and_of_waiting_events_are_freed) {
    for (unsigned i = 0; i < capacity + 5; ++i) {
        waiter_event event = event_of(1);
        event.payload = std::malloc(16);
        waiter.send_event(event, false, false);
    }
    EXPECT_EQ(waiter.dropped(), 5U);
}

// ---- Waiting ----

TEST_F(Waiter, returns_at_the_deadline_and_leaves_the_event_unchanged) {
    waiter_event event = event_of(77);
    for (const int units : {30, 2, 1, 1, 1}) {
        const Atime deadline = Atime::now() + units;
        EXPECT_EQ(waiter.get_event(event, deadline), 1);
        EXPECT_GE(Atime::now(), deadline);
    }
    EXPECT_EQ(event.code, 77);
}

TEST_F(Waiter, returns_a_waiting_event_even_after_the_deadline) {
    send(event_of(4));
    waiter_event event;
    EXPECT_EQ(waiter.get_event(event, Atime() + -1000), 0);
    EXPECT_EQ(event.code, 4);
    EXPECT_EQ(waiter.get_event(event, Atime() + -1000), 1);
}

TEST_F(Waiter, is_woken_by_an_event_long_before_the_deadline) {
    for (const Atime deadline : {Atime::now() + 3600000, Atime() + std::numeric_limits<std::int64_t>::max()}) {
        std::thread sender([this] { send(event_of(9)); });
        waiter_event event;
        EXPECT_EQ(waiter.get_event(event, deadline), 0);
        EXPECT_EQ(event.code, 9);
        sender.join();
    }
}

TEST_F(Waiter, waits_without_a_time_limit) {
    waiter_descriptor answer;
    std::thread receiver([&] {
        waiter_event event;
        EXPECT_EQ(waiter.get_event(event), 0);
        answer.send_event(event, false, false);
    });
    send(event_of(9));
    waiter_event event;
    EXPECT_EQ(answer.get_event(event, Atime::now() + 20000), 0);
    EXPECT_EQ(event.code, 9);
    receiver.join();
}

TEST_F(Waiter, serves_several_senders_without_loss_and_in_the_order_of_each) {
    constexpr int senders = 4;
    constexpr int each = 200; // all of them fit into the queue
    std::vector<std::thread> running;
    for (int s = 0; s < senders; ++s)
        running.emplace_back([this, s] {
            for (int i = 0; i < each; ++i)
                send(event_of(i, static_cast<std::int16_t>(s)));
        });
    std::vector<int> next(senders, 0);
    for (int i = 0; i < senders * each; ++i) {
        waiter_event event;
        ASSERT_EQ(waiter.get_event(event), 0);
        ASSERT_EQ(event.code, next[static_cast<std::size_t>(event.source)]++);
    }
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(waiter.waiting(), 0U);
    EXPECT_EQ(waiter.dropped(), 0U);
}

// ---- Module ids ----

TEST(Waiter_module, has_its_own_id_when_initialised) {
    module_man modules;
    waiter_descriptor first(modules);
    waiter_descriptor second;
    EXPECT_EQ(second.module_id(), 0);
    second.init(modules);
    EXPECT_EQ(first.module_id(), 1);
    EXPECT_EQ(second.module_id(), 2);
}

} // namespace
