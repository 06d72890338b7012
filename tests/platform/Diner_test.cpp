#include <platform/Diner.h>
#include <platform/Timeout.h>
#include <platform/module_man.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr auto limit = std::chrono::seconds(20);
constexpr int patience = 20000;

/// A loop that records what it handles.
class Loop : public Diner {
  public:
    explicit Loop(module_man& modules, const char* name = "TEST", int index = 0) {
        init(modules, nullptr, Descriptor(name, index), 44, 25600, true, false);
    }
    ~Loop() override { terminate(true, patience); }

    void send(int code, void* payload = nullptr) {
        waiter_event event;
        event.source = 77;
        event.code = code;
        event.payload = payload;
        waiter.send_event(event, false, false);
    }
    std::vector<int> codes() const {
        const std::lock_guard guard(mutex);
        return handled;
    }
    bool handles(const std::vector<int>& expected) const {
        return eventually([&] { return codes() == expected; });
    }
    void record(int what) {
        const std::lock_guard guard(mutex);
        handled.push_back(what);
    }

    using Diner::next_timeout;
    using Diner::waiter;

    std::function<void(waiter_event&)> on_event;
    std::function<void(Timeout&)> on_timeout;
    std::function<void()> on_start;
    std::function<void()> on_stop;

  protected:
    void handle_event(waiter_event& event) override {
        record(event.code);
        if (on_event)
            on_event(event);
    }
    using Diner::handle_timeout;
    void handle_timeout(Timeout& timeout) override {
        if (on_timeout)
            on_timeout(timeout);
    }
    void diner_start() override {
        if (on_start)
            on_start();
    }
    void diner_stop() override {
        if (on_stop)
            on_stop();
    }

  private:
    mutable std::mutex mutex;
    std::vector<int> handled;
};

class Diner_test : public testing::Test {
  protected:
    module_man modules;
};

TEST_F(Diner_test, descriptor_cuts_the_name_to_its_field) {
    const Diner::Descriptor descriptor("a name of twenty characters", 7);
    EXPECT_STREQ(descriptor.name, "a name of twenty ch");
    EXPECT_EQ(sizeof descriptor.name, 20U);
    EXPECT_EQ(descriptor.index, 7);
}

TEST_F(Diner_test, thread_is_named_after_the_descriptor) {
    std::promise<std::string> name;
    Loop loop(modules, "ADSA", 12);
    loop.on_start = [&name] {
        char text[16] = "";
        pthread_getname_np(pthread_self(), text, sizeof text);
        name.set_value(text);
    };
    ASSERT_TRUE(loop.start());
    EXPECT_EQ(name.get_future().get(), "vro.ADSA12");
}

TEST_F(Diner_test, waiter_gets_a_module_id) {
    std::int16_t before = 0;
    modules.init_module(&before, false);
    const Loop loop(modules);
    EXPECT_EQ(loop.waiter.module_id(), before + 1);
}

TEST_F(Diner_test, events_are_handled_in_the_order_of_arrival) {
    Loop loop(modules);
    loop.send(1); // before it starts
    loop.send(2);
    EXPECT_TRUE(loop.codes().empty());
    ASSERT_TRUE(loop.start());
    loop.send(3);
    EXPECT_TRUE(loop.handles({1, 2, 3}));
}

TEST_F(Diner_test, event_is_delivered_whole_and_its_payload_is_freed) {
    std::promise<waiter_event> seen;
    Loop loop(modules);
    loop.on_event = [&seen](waiter_event& event) { seen.set_value(event); };
    ASSERT_TRUE(loop.start());
    loop.send(5, std::malloc(100)); // the sanitizer's leak check reports it if it is not freed
    const waiter_event event = seen.get_future().get();
    EXPECT_EQ(event.source, 77);
    EXPECT_EQ(event.code, 5);
    EXPECT_NE(event.payload, nullptr);
}

TEST_F(Diner_test, handler_may_keep_the_payload) {
    std::promise<void*> kept;
    Loop loop(modules);
    loop.on_event = [&kept](waiter_event& event) { kept.set_value(std::exchange(event.payload, nullptr)); };
    ASSERT_TRUE(loop.start());
    void* const payload = std::malloc(1);
    loop.send(5, payload);
    void* const received = kept.get_future().get();
    EXPECT_EQ(received, payload);
    std::free(received);
}

TEST_F(Diner_test, events_with_the_code_of_its_own_wake_event_are_handled) {
    Loop loop(modules);
    ASSERT_TRUE(loop.start());
    loop.send(-1);
    EXPECT_TRUE(loop.handles({-1}));
}

TEST_F(Diner_test, starts_once) {
    Loop loop(modules);
    EXPECT_TRUE(loop.start());
    EXPECT_FALSE(loop.start());
    loop.terminate(true, patience);
    EXPECT_FALSE(loop.start());
}

TEST_F(Diner_test, does_not_start_after_it_was_terminated_or_before_init) {
    class Bare : public Diner {
        void handle_event(waiter_event&) override {}
        using Diner::handle_timeout;
        void handle_timeout(Timeout&) override {}
    } bare;
    EXPECT_FALSE(bare.start());
    Loop loop(modules);
    loop.terminate(true, patience);
    EXPECT_FALSE(loop.start());
}

TEST_F(Diner_test, start_and_stop_enclose_the_handlers) {
    Loop loop(modules);
    loop.on_start = [&loop] { loop.record(100); };
    loop.on_stop = [&loop] { loop.record(200); };
    loop.send(1);
    ASSERT_TRUE(loop.start());
    EXPECT_TRUE(loop.handles({100, 1}));
    loop.terminate(true, patience);
    EXPECT_EQ(loop.codes(), (std::vector<int>{100, 1, 200}));
}

TEST_F(Diner_test, no_handler_runs_after_terminate) {
    Loop loop(modules);
    ASSERT_TRUE(loop.start());
    loop.terminate(true, patience);
    loop.send(1);
    EXPECT_GE(loop.waiter.waiting(), 1U); // stays in the queue
    EXPECT_TRUE(loop.codes().empty());
}

TEST_F(Diner_test, terminate_waits_for_the_handler_in_progress_and_no_other_follows) {
    std::promise<void> inside;
    std::atomic<bool> go{false};
    bool returns = false;
    Loop loop(modules);
    loop.on_event = [&](waiter_event&) {
        inside.set_value();
        while (!go)
            std::this_thread::yield();
        returns = true;
    };
    ASSERT_TRUE(loop.start());
    loop.send(1);
    inside.get_future().get();
    loop.send(2);
    loop.terminate(false, 0); // does not wait
    EXPECT_FALSE(returns);
    go = true;
    loop.terminate(true, patience);
    EXPECT_TRUE(returns);
    EXPECT_EQ(loop.codes(), std::vector<int>{1});
}

TEST_F(Diner_test, handler_that_does_not_return_is_reported_and_waited_for) {
    Captured_debug debug;
    std::promise<void> inside;
    std::atomic<bool> go{false};
    Loop loop(modules, "SLOW", 3);
    loop.on_event = [&](waiter_event&) {
        inside.set_value();
        while (!go)
            std::this_thread::yield();
    };
    ASSERT_TRUE(loop.start());
    loop.send(1);
    inside.get_future().get();
    std::thread releaser([&] {
        EXPECT_TRUE(eventually([&debug] { return !debug.text().empty(); }));
        go = true;
    });
    loop.terminate(true, 10);
    EXPECT_TRUE(go);
    EXPECT_EQ(debug.text(), "Diner vro.SLOW3: a handler has not returned for 10 ms since the loop is to end\n");
    releaser.join();
}

TEST_F(Diner_test, handler_may_terminate_its_own_loop) {
    Loop loop(modules);
    loop.on_event = [&loop](waiter_event&) { loop.terminate(true, patience); };
    ASSERT_TRUE(loop.start());
    loop.send(1);
    loop.send(2);
    EXPECT_TRUE(eventually([&loop] { return loop.is_locked(); }));
    EXPECT_EQ(loop.codes(), std::vector<int>{1});
}

TEST_F(Diner_test, is_locked_in_its_own_thread_and_while_it_does_not_run) {
    std::promise<bool> locked;
    Loop loop(modules);
    EXPECT_TRUE(loop.is_locked());
    loop.on_event = [&](waiter_event&) { locked.set_value(loop.is_locked()); };
    ASSERT_TRUE(loop.start());
    EXPECT_FALSE(loop.is_locked());
    loop.send(1);
    EXPECT_TRUE(locked.get_future().get());
    loop.terminate(true, patience);
    EXPECT_TRUE(loop.is_locked());
}

TEST_F(Diner_test, timeouts_expire_in_the_order_of_time) {
    Loop loop(modules);
    Timeout first(loop), second(loop), third(loop);
    loop.on_timeout = [&](Timeout& due) {
        EXPECT_FALSE(due.pending());
        loop.record(&due == &first ? 1 : &due == &second ? 2 : 3);
    };
    third.set(600); // longer intervals than setting them takes on a busy machine
    first.set(200);
    second.set(400);
    EXPECT_TRUE(second.pending());
    ASSERT_TRUE(loop.start());
    EXPECT_TRUE(loop.handles({1, 2, 3}));
    EXPECT_FALSE(loop.next_timeout());
}

TEST_F(Diner_test, timeouts_of_the_same_moment_expire_in_the_order_of_setting) {
    Loop loop(modules);
    Timeout one(loop), two(loop), three(loop);
    loop.on_timeout = [&](Timeout& due) { loop.record(&due == &one ? 1 : &due == &two ? 2 : 3); };
    two.set(-5000);
    one.set(-5000);
    three.set(-4000);
    ASSERT_TRUE(loop.start());
    EXPECT_TRUE(loop.handles({2, 1, 3}));
}

TEST_F(Diner_test, timeout_does_not_expire_before_its_time) {
    std::promise<Atime> expired;
    Loop loop(modules);
    Timeout timeout(loop);
    loop.on_timeout = [&](Timeout&) { expired.set_value(Atime::now()); };
    ASSERT_TRUE(loop.start());
    const Atime start = Atime::now();
    timeout.set(40); // while the loop waits without a time limit
    EXPECT_GE(expired.get_future().get() - start, 40);
}

TEST_F(Diner_test, earlier_timeout_wakes_a_loop_that_waits_for_a_later_one) {
    Loop loop(modules);
    Timeout late(loop), early(loop);
    loop.on_timeout = [&](Timeout& due) { loop.record(&due == &early); };
    late.set(3600 * 1000);
    ASSERT_TRUE(loop.start());
    early.set(1);
    EXPECT_TRUE(loop.handles({1}));
    EXPECT_TRUE(late.pending());
    EXPECT_TRUE(loop.next_timeout());
}

TEST_F(Diner_test, timeout_set_again_expires_at_its_new_time_only) {
    Loop loop(modules);
    Timeout moved(loop), last(loop);
    loop.on_timeout = [&](Timeout& due) { loop.record(&due == &last ? 2 : 1); };
    moved.set(5);
    moved.set(20);
    last.set(40);
    ASSERT_TRUE(loop.start());
    EXPECT_TRUE(loop.handles({1, 2}));
}

TEST_F(Diner_test, cancelled_and_destroyed_timeouts_do_not_expire) {
    Loop loop(modules);
    Timeout cancelled(loop), last(loop);
    loop.on_timeout = [&](Timeout& due) { loop.record(&due == &last ? 2 : 1); };
    {
        Timeout destroyed(loop);
        destroyed.set(5);
        cancelled.set(5);
        last.set(10);
        cancelled.cancel();
        cancelled.cancel();
    }
    ASSERT_TRUE(loop.start());
    EXPECT_TRUE(loop.handles({2}));
}

TEST_F(Diner_test, events_are_handled_beside_a_timeout_that_is_always_due) {
    Loop loop(modules);
    Timeout restless(loop);
    loop.on_timeout = [](Timeout& due) { due.set(0); };
    restless.set(0);
    ASSERT_TRUE(loop.start());
    loop.send(1);
    loop.send(2);
    EXPECT_TRUE(loop.handles({1, 2}));
    loop.terminate(true, patience); // before the timeout is destroyed
}

TEST_F(Diner_test, timeouts_are_handled_beside_events_that_never_stop) {
    std::promise<void> expired;
    Loop loop(modules);
    Timeout timeout(loop);
    loop.on_event = [&loop](waiter_event&) { loop.send(1); };
    loop.on_timeout = [&expired](Timeout&) { expired.set_value(); };
    loop.send(1);
    timeout.set(1);
    ASSERT_TRUE(loop.start());
    EXPECT_EQ(expired.get_future().wait_for(limit), std::future_status::ready);
}

TEST_F(Diner_test, idle_loop_uses_no_processor_time) {
    Loop loop(modules);
    Timeout far(loop);
    far.set(3600 * 1000);
    ASSERT_TRUE(loop.start());
    EXPECT_TRUE(process_rests());
}

// The senders use the waiter until after the loop has ended; ThreadSanitizer reports races.
TEST_F(Diner_test, ends_promptly_at_any_time_while_many_events_arrive) {
    for (int i = 0; i < 300; ++i) {
        std::atomic<bool> over{false};
        std::atomic<int> handlers_after{0};
        Loop loop(modules);
        Timeout timeout(loop);
        loop.on_event = [&](waiter_event&) { handlers_after += over; };
        loop.on_timeout = [&](Timeout& due) {
            handlers_after += over;
            due.set(0);
        };
        std::thread sender([&] {
            for (int event = 0; event < 50; ++event) {
                loop.send(event);
                timeout.set(event % 2);
            }
        });
        ASSERT_TRUE(loop.start());
        if (i % 3 == 0)
            std::this_thread::yield();
        loop.terminate(true, patience);
        over = true;
        sender.join();
        ASSERT_EQ(handlers_after, 0);
    }
}

} // namespace
