// What the thread reads, and which events it sends when.

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Replaced_delays.h>
#include <support/streams/Receiving_stream.h>

#include <algorithm>
#include <vector>

namespace {

using std::chrono::milliseconds;
using Codes = std::vector<int>;

constexpr unsigned ring_size = Data_stream::rx_capacity;
constexpr unsigned chunk_size = 256;

using Posix_threaded_data_stream_receiving = Receiving_stream;

// ---- Bytes and their events ----

TEST_F(Posix_threaded_data_stream_receiving, nothing_can_be_fetched) {
    stream.start();
    EXPECT_EQ(stream.get_data(0), 1);
    EXPECT_EQ(stream.get_data(1), 0);
    EXPECT_EQ(stream.get_data(-1), 0);
    EXPECT_FALSE(stream.bytes_avail(1U));
}

TEST_F(Posix_threaded_data_stream_receiving, received_bytes_are_reported_by_one_event) {
    stream.start();
    arrive("abc");
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(take_buffered(stream), "abc");
    stream.stop();
    EXPECT_EQ(waiter.codes(), Codes{0});
}

TEST_F(Posix_threaded_data_stream_receiving, bytes_are_received_in_chunks_of_256_with_one_event_each) {
    const std::string bytes = numbered(2 * chunk_size + 1);
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(waiter.wait_for(3));
    stream.stop();
    EXPECT_EQ(waiter.codes(), (Codes{0, 0, 0}));
    EXPECT_EQ(take_buffered(stream), bytes);
}

TEST_F(Posix_threaded_data_stream_receiving, the_callback_runs_under_the_lock_of_the_ring) {
    struct Watched_stream : Threaded_stream {
        using Threaded_stream::Threaded_stream;
        ~Watched_stream() override { stop(); }
        void lock() override {
            Threaded_stream::lock();
            is_locked = true;
        }
        void unlock() override {
            is_locked = false;
            Threaded_stream::unlock();
        }
        bool is_locked = false; // used only by the thread that holds the lock
    };
    Watched_stream watched(dup(stream.get_read_fd()));
    std::atomic<bool> called{false};
    std::atomic<bool> was_locked{false};
    watched.set_rx_callback([&] {
        was_locked = watched.is_locked;
        called = true;
    });
    arrive("a");
    watched.start();
    ASSERT_TRUE(eventually([&] { return called.load(); }));
    EXPECT_TRUE(was_locked);
}

TEST_F(Posix_threaded_data_stream_receiving, filling_the_ring_to_the_last_byte_sends_plain_events) {
    const std::string bytes = numbered(ring_size);
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(receives(ring_size));
    stream.stop();
    EXPECT_EQ(waiter.codes(), Codes(ring_size / chunk_size + 1, 0));
    EXPECT_EQ(take_buffered(stream), bytes);
}

// ---- A reader that is too slow ----

const std::string too_slow = "CLIENT TOO SLOW!!!!!!!!!!!!!!!!!!!!\n\n";

/// A ring without the last 100 bytes of free space for a chunk; delays do not sleep.
struct Posix_threaded_data_stream_overrun : Posix_threaded_data_stream_receiving {
    static constexpr unsigned missing = 100;
    const std::string bytes = numbered(ring_size + missing);
    Replaced_delays delays;

    ~Posix_threaded_data_stream_overrun() override { stream.stop(); }

    Codes codes_after_the_plain_ones() {
        stream.stop();
        Codes codes = waiter.codes();
        codes.erase(codes.begin(), std::find_if(codes.begin(), codes.end(), [](int code) { return code != 0; }));
        return codes;
    }
};

TEST_F(Posix_threaded_data_stream_overrun, full_events_report_what_fits_and_the_rest_waits_for_free_space) {
    std::string consumed;
    delays.meanwhile = [&](std::size_t) {
        if (delays.count == 3) {
            consumed.resize(missing);
            stream.get_data(reinterpret_cast<unsigned char*>(consumed.data()), missing, 0);
            stream.drop(missing);
        }
    };
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(eventually([&] { return waiter.codes().size() == ring_size / chunk_size + 2; }));
    EXPECT_EQ(codes_after_the_plain_ones(), (Codes{1, 1}));
    EXPECT_EQ(consumed + take_buffered(stream), bytes);
    EXPECT_EQ(delays.count, 3);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Posix_threaded_data_stream_overrun, after_500_attempts_the_rest_of_the_chunk_is_lost) {
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(is_reported(too_slow));
    EXPECT_EQ(codes_after_the_plain_ones(), (Codes{1, 1}));
    EXPECT_EQ(delays.count, 500);
    EXPECT_EQ(delays.milliseconds, 500);
    EXPECT_EQ(take_buffered(stream), bytes.substr(0, ring_size));
}

TEST_F(Posix_threaded_data_stream_overrun, any_free_space_restarts_the_count_of_attempts) {
    delays.meanwhile = [&](std::size_t) {
        if (delays.count % 400 == 0)
            stream.drop(1);
    };
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(eventually([&] { return delays.count >= 400 * int{missing}; }));
    stream.stop();
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(take_buffered(stream), bytes.substr(missing));
}

TEST_F(Posix_threaded_data_stream_overrun, an_unread_stream_receives_again_once_it_is_read) {
    arrive(bytes);
    stream.start();
    ASSERT_TRUE(is_reported(too_slow));
    stream.drop_all();
    arrive("abc");
    ASSERT_TRUE(receives(3));
    EXPECT_EQ(take_buffered(stream), "abc");
    EXPECT_EQ(errors.text(), too_slow);
}

TEST_F(Posix_threaded_data_stream_receiving, waits_about_half_a_second_for_a_slow_reader) {
    arrive(numbered(ring_size + 1));
    const Stopwatch watch;
    stream.start();
    ASSERT_TRUE(is_reported(too_slow));
    EXPECT_GE(watch.elapsed(), milliseconds(490));
}

TEST_F(Posix_threaded_data_stream_receiving, stopping_neither_waits_for_a_slow_reader_nor_reports_it) {
    arrive(numbered(ring_size + 1));
    const Stopwatch watch;
    stream.start();
    ASSERT_TRUE(receives(ring_size));
    stream.stop();
    const bool gave_up_before = watch.elapsed() >= milliseconds(490); // possible on a loaded machine
    EXPECT_TRUE(gave_up_before || errors.text().empty()) << errors.text();
}

// ---- Events delayed until the input is quiet ----

TEST_F(Posix_threaded_data_stream_receiving, an_event_timeout_delays_the_event_until_the_input_is_quiet) {
    constexpr milliseconds quiet(300);
    std::atomic<int> calls{0};
    stream.set_rx_callback([&] { ++calls; });
    stream.set_rx_event_timeout(quiet.count());
    stream.start();
    const Stopwatch whole;
    Stopwatch since_last;
    for (unsigned i = 1; i <= 20; ++i) {
        since_last = Stopwatch();
        arrive("a");
        ASSERT_TRUE(receives(i));
    }
    const bool was_steady = whole.elapsed() < quiet; // a loaded machine may have made pauses of its own
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_TRUE(eventually([&] { return since_last.elapsed() >= quiet; }));
    stream.stop();
    if (was_steady) {
        EXPECT_EQ(waiter.codes(), Codes{0});
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(Posix_threaded_data_stream_receiving, a_delayed_event_is_not_sent_before_the_quiet_time_is_over) {
    std::atomic<long long> notified_after_us{-1};
    Stopwatch since_arrival;
    stream.set_rx_callback([&] {
        notified_after_us = std::chrono::duration_cast<std::chrono::microseconds>(since_arrival.elapsed()).count();
    });
    stream.set_rx_event_timeout(50);
    stream.start();
    since_arrival = Stopwatch();
    arrive("a");
    ASSERT_TRUE(waiter.wait_for(1));
    stream.stop();
    EXPECT_GE(notified_after_us, 50000);
}

TEST_F(Posix_threaded_data_stream_receiving, a_delayed_event_is_sent_under_the_lock_of_the_ring) {
    stream.set_rx_event_timeout(1);
    stream.send_rx_event(false);
    stream.lock(); // a waiter that deregistered under it is no longer notified
    stream.start();
    EXPECT_FALSE(eventually([&] { return !waiter.codes().empty(); }, milliseconds(50)));
    stream.unlock();
    EXPECT_TRUE(waiter.wait_for(1));
}

TEST_F(Posix_threaded_data_stream_receiving, a_thread_that_delays_an_event_rests) {
    stream.set_rx_event_timeout(1000000);
    stream.start();
    arrive("a");
    ASSERT_TRUE(receives(1));
    EXPECT_TRUE(process_rests());
    EXPECT_TRUE(waiter.codes().empty());
}

TEST_F(Posix_threaded_data_stream_receiving, wakes_do_not_postpone_a_delayed_event) {
    stream.set_rx_event_timeout(50);
    stream.start();
    arrive("a");
    EXPECT_TRUE(eventually([&] {
        stream.wake();
        return !waiter.codes().empty();
    }));
}

TEST_F(Posix_threaded_data_stream_receiving, a_full_event_is_sent_at_once_and_leaves_the_other_pending) {
    stream.set_rx_event_timeout(50);
    stream.send_rx_event(false);
    stream.send_rx_event(true);
    EXPECT_EQ(waiter.codes(), Codes{1});
    stream.start();
    ASSERT_TRUE(waiter.wait_for(2));
    stream.stop();
    EXPECT_EQ(waiter.codes(), (Codes{1, 0}));
}

TEST_F(Posix_threaded_data_stream_receiving, an_event_of_another_thread_is_delayed_and_sent_by_the_reader_thread) {
    stream.set_rx_event_timeout(1);
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.flushes == 1; }));
    stream.send_rx_event(false);
    EXPECT_TRUE(waiter.wait_for(1));
}

TEST_F(Posix_threaded_data_stream_receiving, switching_the_timeout_off_sends_the_pending_event) {
    stream.set_rx_event_timeout(1000000);
    stream.start();
    arrive("a");
    ASSERT_TRUE(receives(1));
    stream.set_rx_event_timeout(0);
    stream.wake();
    EXPECT_TRUE(waiter.wait_for(1));
}

TEST_F(Posix_threaded_data_stream_receiving, a_quiet_waiter_is_notified_only_of_a_full_ring) {
    const Replaced_delays no_delays;
    stream.reg_rx_waiter(waiter, true);
    arrive(numbered(ring_size + 1));
    stream.start();
    ASSERT_TRUE(is_reported(too_slow));
    stream.stop();
    EXPECT_EQ(waiter.codes(), (Codes{1, 1})); // the ring is full; a byte was lost
}

} // namespace
