#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_waits.h>
#include <support/fakes/Scripted_stream.h>
#include <support/fakes/Stopped_clock.h>
#include <support/streams/Open_pair.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <thread>

namespace {

using Codes = std::vector<int>;
using Part = Virtual_pair_data_stream_part;

/// Fetches and consumes everything that the other end has written, without waiting.
std::string read_all(Part& part) {
    part.set_read_timeout(0);
    part._get_data(1000000);
    part.set_default_read_timeout();
    return take_buffered(part);
}

class Virtual_pair : public testing::Test {
  protected:
    Virtual_pair() {
        a.reg_rx_waiter(a_rx, false);
        a.reg_tx_waiter(a_tx, false);
        b.reg_rx_waiter(b_rx, false);
        b.reg_tx_waiter(b_tx, false);
    }

    module_man modules;
    Virtual_pair_data_stream pair{&modules}; // modules 1 and 2
    Part& a = pair.part_a();
    Part& b = pair.part_b();
    Recording_waiter a_rx, a_tx, b_rx, b_tx;
};

// ---- The ends ----

TEST_F(Virtual_pair, ends_are_connected_crosswise) {
    EXPECT_EQ(write_bytes(a, "to b"), 4);
    EXPECT_EQ(write_bytes(b, "to a!"), 5);
    EXPECT_TRUE(b.bytes_avail(4));
    EXPECT_TRUE(a.bytes_avail(5));
    EXPECT_EQ(take_buffered(b), "to b");
    EXPECT_EQ(take_buffered(a), "to a!");
}

TEST_F(Virtual_pair, ends_have_the_plain_description) {
    EXPECT_EQ(a.get_description(), plain_description(a));
}

TEST(Virtual_pair_without_modules, works_with_events_from_module_0) {
    Virtual_pair_data_stream pair(nullptr);
    Recording_waiter waiter;
    pair.part_b().reg_rx_waiter(waiter, false);
    EXPECT_EQ(write_bytes(pair.part_a(), "abc"), 3);
    EXPECT_EQ(waiter.sources(), std::vector<std::int16_t>{0});
    EXPECT_EQ(read_all(pair.part_b()), "abc");
}

// ---- Writing ----

TEST_F(Virtual_pair, write_without_a_reader_fills_the_transfer_ring) {
    a.set_write_timeout(20);
    const std::string bytes = numbered(200);
    EXPECT_EQ(write_bytes(a, bytes), 128);
    EXPECT_EQ(write_bytes(a, "more"), 0);
    EXPECT_EQ(read_all(b), bytes.substr(0, 128));
}

TEST_F(Virtual_pair, write_that_fits_does_not_wait) {
    Replaced_waits waits;
    EXPECT_EQ(write_bytes(a, numbered(128)), 128);
    EXPECT_TRUE(waits.limits.empty());
}

TEST_F(Virtual_pair, write_continues_when_the_reader_has_freed_space) {
    Replaced_waits waits;
    std::string received;
    waits.meanwhile = [&] {
        b.set_read_timeout(0);
        b._get_data(50);
        received += take_buffered(b);
    };
    EXPECT_EQ(write_bytes(a, numbered(300)), 300);
    EXPECT_EQ(waits.limits.size(), 4U); // 128 at once, then 50 at a time
    EXPECT_EQ(received + read_all(b), numbered(300));
}

TEST_F(Virtual_pair, write_crosses_the_end_of_the_transfer_ring_s_storage) {
    Replaced_waits waits;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(write_bytes(a, numbered(100)), 100);
        EXPECT_EQ(b._get_data(100), 1);
        EXPECT_EQ(take_buffered(b), numbered(100));
    }
}

TEST_F(Virtual_pair, write_whose_wait_fails_notifies_nobody) {
    Replaced_waits waits;
    EXPECT_EQ(write_bytes(a, numbered(200)), 128);
    EXPECT_EQ(waits.limits.size(), 1U);
    EXPECT_EQ(b_rx.codes(), Codes{});
}

TEST_F(Virtual_pair, write_whose_deadline_has_passed_notifies_of_the_accepted_bytes) {
    a.set_write_timeout(0);
    EXPECT_EQ(write_bytes(a, numbered(200)), 128);
    EXPECT_EQ(b_rx.codes(), Codes{1});
    EXPECT_EQ(write_bytes(a, "x"), 0); // nothing accepted: nobody notified
    EXPECT_EQ(b_rx.codes(), Codes{1});
}

TEST_F(Virtual_pair, write_sends_code_1_when_it_leaves_the_transfer_ring_full_else_0) {
    write_bytes(a, numbered(127));
    write_bytes(a, "x");
    EXPECT_EQ(b_rx.codes(), (Codes{0, 1}));
    EXPECT_EQ(b_rx.sources(), (std::vector<std::int16_t>{2, 2}));
    EXPECT_EQ(a_rx.codes(), Codes{});
    write_bytes(b, "y");
    EXPECT_EQ(a_rx.codes(), Codes{0});
    EXPECT_EQ(a_rx.sources(), std::vector<std::int16_t>{1});
}

TEST_F(Virtual_pair, large_write_notifies_once_at_its_end) {
    Replaced_waits waits;
    waits.meanwhile = [&] {
        EXPECT_EQ(b_rx.codes(), Codes{});
        b.set_read_timeout(0);
        b._get_data(128);
    };
    EXPECT_EQ(write_bytes(a, numbered(300)), 300);
    EXPECT_EQ(b_rx.codes(), Codes{0});
}

TEST_F(Virtual_pair, empty_write_notifies_nobody) {
    EXPECT_EQ(a._write(bytes_of(""), 0), 0);
    EXPECT_EQ(b_rx.codes(), Codes{});
}

// ---- Reading ----

TEST_F(Virtual_pair, fetch_moves_no_more_than_requested) {
    write_bytes(a, "abcdef");
    EXPECT_TRUE(b.bytes_avail(4));
    EXPECT_EQ(take_buffered(b), "abcd");
    EXPECT_EQ(read_all(b), "ef");
}

TEST_F(Virtual_pair, fetch_of_300_continues_while_the_other_end_writes) {
    Replaced_waits waits;
    const std::string bytes = numbered(350);
    std::size_t at = 0;
    waits.meanwhile = [&] {
        write_bytes(a, bytes.substr(at, 70));
        at += 70;
    };
    EXPECT_EQ(b._get_data(300), 1);
    EXPECT_EQ(at, 350U);
    EXPECT_EQ(take_buffered(b), bytes.substr(0, 300));
    EXPECT_EQ(read_all(b), bytes.substr(300));
}

TEST_F(Virtual_pair, failed_fetch_leaves_the_received_bytes_in_the_ring) {
    Replaced_waits waits;
    write_bytes(a, "abc");
    EXPECT_FALSE(b.bytes_avail(5));
    EXPECT_EQ(take_buffered(b), "abc");
}

TEST_F(Virtual_pair, fetch_whose_wait_fails_notifies_nobody) {
    Replaced_waits waits;
    write_bytes(a, "abc");
    EXPECT_EQ(b._get_data(5), 0);
    EXPECT_EQ(waits.limits.size(), 2U); // the unused permit of the write, then none
    EXPECT_EQ(a_tx.codes(), Codes{});
}

TEST_F(Virtual_pair, fetch_whose_deadline_has_passed_notifies_of_free_space) {
    b.set_read_timeout(0);
    EXPECT_EQ(b._get_data(1), 0);
    EXPECT_EQ(a_tx.codes(), Codes{3});
}

TEST_F(Virtual_pair, fetch_sends_code_3_when_it_leaves_the_transfer_ring_empty_else_2) {
    write_bytes(a, "abcdef");
    EXPECT_EQ(b._get_data(4), 1);
    EXPECT_EQ(b._get_data(2), 1);
    EXPECT_EQ(a_tx.codes(), (Codes{2, 3}));
    EXPECT_EQ(a_tx.sources(), (std::vector<std::int16_t>{1, 1}));
    EXPECT_EQ(b_tx.codes(), Codes{});
}

TEST_F(Virtual_pair, quiet_tx_waiter_is_notified_only_of_an_empty_transfer_ring) {
    a.reg_tx_waiter(a_tx, true);
    write_bytes(a, "abcdef");
    EXPECT_EQ(b._get_data(4), 1);
    EXPECT_EQ(b._get_data(2), 1);
    EXPECT_EQ(a_tx.codes(), Codes{3});
}

TEST_F(Virtual_pair, fetch_of_nothing_succeeds_and_of_less_fails) {
    write_bytes(a, "abc");
    EXPECT_EQ(b._get_data(0), 1);
    EXPECT_EQ(b._get_data(-1), 0);
    EXPECT_EQ(b._get_data(std::numeric_limits<int>::min()), 0);
    EXPECT_EQ(b.bytes_avail(), 0U);
    EXPECT_EQ(a_tx.codes(), (Codes{2, 2, 2}));
}

TEST_F(Virtual_pair, bytes_beyond_the_receive_ring_are_lost_silently) {
    Replaced_waits waits;
    const std::string bytes = numbered(5000);
    std::size_t at = 0;
    waits.meanwhile = [&] {
        write_bytes(a, bytes.substr(at, 100));
        at += 100;
    };
    EXPECT_EQ(b._get_data(5000), 1);
    EXPECT_EQ(take_buffered(b), bytes.substr(0, 4200));
}

TEST_F(Virtual_pair, flush_drops_the_bytes_that_were_not_fetched) {
    write_bytes(a, "abcdef");
    write_bytes(b, "other direction");
    EXPECT_EQ(b._get_data(2), 1);
    b.flush();
    EXPECT_EQ(b.bytes_avail(), 2U);
    EXPECT_EQ(read_all(b), "ab");
    EXPECT_EQ(read_all(a), "other direction");
}

TEST_F(Virtual_pair, flush_of_a_full_transfer_ring_frees_space) {
    write_bytes(a, numbered(128));
    b.flush();
    EXPECT_EQ(write_bytes(a, numbered(128)), 128);
    EXPECT_EQ(read_all(b), numbered(128));
}

TEST_F(Virtual_pair, fetch_that_finds_nothing_wakes_a_waiting_writer) {
    Replaced_waits waits;
    b.set_read_timeout(0);
    waits.meanwhile = [&] {
        b.flush(); // frees space and wakes nobody
        b._get_data(1);
    };
    EXPECT_EQ(write_bytes(a, numbered(200)), 200);
    EXPECT_EQ(read_all(b), numbered(200).substr(128));
}

TEST_F(Virtual_pair, flush_wakes_no_writer) {
    Replaced_waits waits;
    waits.meanwhile = [&] { b.flush(); };
    EXPECT_EQ(write_bytes(a, numbered(200)), 128);
}

// ---- Time-outs ----

/// The time limits of the first wait of a read and of a write, on a pair that `prepare` has changed before.
std::vector<int> waits_after(const std::function<void(Part&)>& prepare) {
    Stopped_clock clock;
    Replaced_waits waits;
    Open_pair pair;
    prepare(pair.a);
    pair.a._get_data(1);
    write_bytes(pair.a, numbered(129));
    return waits.limits;
}

TEST(Virtual_pair_time_outs, are_100_seconds_at_first) {
    EXPECT_EQ(waits_after([](Part&) {}), (std::vector<int>{100000, 100000}));
}

TEST(Virtual_pair_time_outs, are_set_separately_for_reading_and_writing) {
    const auto set_both = [](Part& end) {
        EXPECT_EQ(end.set_read_timeout(50), 1);
        EXPECT_EQ(end.set_write_timeout(70), 1);
    };
    EXPECT_EQ(waits_after(set_both), (std::vector<int>{50, 70}));
}

TEST(Virtual_pair_time_outs, default_is_100_seconds_again) {
    const auto set_and_reset = [](Part& end) {
        end.set_read_timeout(50);
        end.set_write_timeout(70);
        EXPECT_EQ(end.set_default_read_timeout(), 1);
        EXPECT_EQ(end.set_default_write_timeout(), 1);
    };
    EXPECT_EQ(waits_after(set_and_reset), (std::vector<int>{100000, 100000}));
}

TEST_F(Virtual_pair, waits_last_multiples_of_10_ms) {
    Stopped_clock clock;
    Replaced_waits waits;
    write_bytes(a, numbered(128));
    for (const int ms : {1, 9, 10, 19, 20, 12345}) {
        a.set_write_timeout(ms);
        EXPECT_EQ(write_bytes(a, "x"), 0);
        a.set_read_timeout(ms);
        EXPECT_EQ(a._get_data(1), 0);
    }
    EXPECT_EQ(waits.limits, (std::vector<int>{0, 0, 0, 0, 10, 10, 10, 10, 20, 20, 12340, 12340}));
}

TEST_F(Virtual_pair, deadline_has_passed_at_its_own_moment) {
    for (const int ms : {0, -1, std::numeric_limits<int>::min()}) {
        Replaced_waits waits;
        a.set_write_timeout(ms);
        EXPECT_EQ(write_bytes(a, numbered(200)), 128) << ms;
        b.set_read_timeout(ms);
        b.flush();
        EXPECT_EQ(b._get_data(1), 0) << ms;
        EXPECT_TRUE(waits.limits.empty()) << ms;
    }
}

TEST_F(Virtual_pair, read_waits_for_the_rest_of_its_time_out) {
    Stopped_clock clock;
    Replaced_waits waits;
    waits.meanwhile = [&] {
        clock.advance(33333);
        if (waits.limits.size() <= 3)
            write_bytes(a, "x");
    };
    EXPECT_EQ(b._get_data(9), 0);
    EXPECT_EQ(waits.limits, (std::vector<int>{100000, 66660, 33330, 0}));
    EXPECT_EQ(a_tx.codes(), Codes{}); // one millisecond was left: a wait that failed
}

TEST_F(Virtual_pair, write_waits_for_the_rest_of_its_time_out) {
    Stopped_clock clock;
    Replaced_waits waits;
    b.set_read_timeout(0);
    waits.meanwhile = [&] {
        clock.advance(40000);
        b._get_data(10);
    };
    EXPECT_EQ(write_bytes(a, numbered(500)), 158);
    EXPECT_EQ(waits.limits, (std::vector<int>{100000, 60000, 20000}));
    EXPECT_EQ(b_rx.codes(), Codes{1}); // the deadline had passed: notified
}

TEST_F(Virtual_pair, event_reaches_a_waiter_in_another_thread) {
    std::thread writer([&] { write_bytes(a, "abc"); });
    EXPECT_TRUE(b_rx.wait_for(1));
    EXPECT_EQ(read_all(b), "abc");
    writer.join();
}

// Reads and writes that did not wait leave ten permits on either side.
TEST(Virtual_pair_permits, old_ones_are_acquired_first_and_make_no_new_ones) {
    Open_pair pair;
    for (int i = 0; i < 10; ++i) {
        write_bytes(pair.a, "x");
        EXPECT_EQ(pair.b._get_data(1), 1);
    }
    Replaced_waits waits;
    EXPECT_EQ(write_bytes(pair.a, numbered(129)), 128);
    EXPECT_EQ(waits.limits.size(), 11U);
    waits.limits.clear();
    EXPECT_EQ(pair.b._get_data(129), 0);
    EXPECT_EQ(waits.limits.size(), 12U); // one more from the write
}

TEST(Virtual_pair_permits, write_of_nothing_makes_one) {
    Open_pair pair;
    EXPECT_EQ(pair.a._write(bytes_of(""), 0), 0);
    Replaced_waits waits;
    EXPECT_EQ(pair.b._get_data(1), 0);
    EXPECT_EQ(waits.limits.size(), 2U); // that permit, then none
}

TEST(Virtual_pair_permits, fetch_of_a_whole_transfer_ring_is_one_step_and_makes_one) {
    Open_pair pair;
    write_bytes(pair.a, numbered(128));
    EXPECT_EQ(pair.b._get_data(128), 1);
    Replaced_waits waits;
    EXPECT_EQ(write_bytes(pair.a, numbered(129)), 128);
    EXPECT_EQ(waits.limits.size(), 2U); // that permit, then none
}

// ---- Locking ----

TEST(Virtual_pair_lock, lock_and_unlock_use_the_one_lock_of_both_ends) {
    Open_pair pair;
    for (Part* end : {&pair.a, &pair.b}) {
        end->lock();
        EXPECT_TRUE(pair.locked());
        end->unlock();
        EXPECT_FALSE(pair.locked());
    }
}

TEST(Virtual_pair_lock, is_held_while_events_are_sent) {
    Open_pair pair;
    bool held = false;
    pair.b.set_rx_callback([&] { held = pair.locked(); });
    write_bytes(pair.a, "x");
    EXPECT_TRUE(held);
    EXPECT_FALSE(pair.locked());
}

TEST(Virtual_pair_lock, is_free_during_every_wait_and_after_one_that_failed) {
    Open_pair pair;
    Replaced_waits waits;
    waits.meanwhile = [&] { EXPECT_FALSE(pair.locked()); };
    EXPECT_EQ(write_bytes(pair.a, numbered(200)), 128);
    EXPECT_FALSE(pair.locked());
    EXPECT_EQ(pair.a._get_data(1), 0);
    EXPECT_FALSE(pair.locked());
    EXPECT_EQ(waits.limits.size(), 2U);
}

TEST(Virtual_pair_lock, is_acquired_by_time_outs_flush_and_registration) {
    const std::vector<std::function<void(Part&)>> operations = {[](Part& end) { end.set_read_timeout(1); },
                                                                [](Part& end) { end.set_default_read_timeout(); },
                                                                [](Part& end) { end.set_write_timeout(1); },
                                                                [](Part& end) { end.set_default_write_timeout(); },
                                                                [](Part& end) { end.flush(); },
                                                                [](Part& end) { end.reg_rx_waiter(nullptr, false); },
                                                                [](Part& end) { end.dereg_tx_waiter(); }};
    for (const auto& operation : operations) {
        Open_pair pair;
        operation(pair.a);
        EXPECT_FALSE(pair.locked());
        EXPECT_DEATH(
            {
                pair.lock.lock();
                operation(pair.a);
            },
            "takes again what it holds");
    }
}

} // namespace
