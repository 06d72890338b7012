#include <glue/data_stream/Event_receiver_data_stream.h>
#include <glue/data_stream/Event_sender_data_stream.h>
#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_waits.h>
#include <support/fakes/Scripted_event_sender.h>
#include <support/fakes/Scripted_stream.h>
#include <support/fakes/Stopped_clock.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds time_of(const std::function<void()>& operation) {
    const auto start = Clock::now();
    operation();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

class Event_receiver : public testing::Test {
  protected:
    module_man modules;
    Scripted_event_sender source{&modules};
    Event_receiver_data_stream receiver{source, modules};
};

TEST_F(Event_receiver, writes_go_to_the_source) {
    EXPECT_EQ(receiver.__write(bytes_of("abc"), 3), 3);
    source.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_EQ(receiver.__write(bytes_of("d"), 1), -1);
    EXPECT_EQ(source.written, "abc");
}

TEST_F(Event_receiver, writes_are_traced_by_the_source) {
    Captured_debug debug;
    source.debug_writes = true;
    EXPECT_EQ(receiver.__write(bytes_of("abc"), 3), 3);
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[abc] (3)\n");
}

TEST_F(Event_receiver, reads_buffered_bytes_without_waiting) {
    source.push("abcdef");
    receiver.set_read_timeout(0);
    EXPECT_TRUE(receiver.bytes_avail(4));
    EXPECT_EQ(buffered(receiver), "abcd");
    EXPECT_EQ(source.bytes_avail(), 2U);
    EXPECT_TRUE(receiver.bytes_avail(4)); // buffered here already: the source keeps the rest
    EXPECT_EQ(source.bytes_avail(), 2U);
}

TEST_F(Event_receiver, reads_the_buffered_bytes_and_fails_when_more_are_requested) {
    source.push("abc");
    receiver.set_read_timeout(1);
    EXPECT_EQ(receiver._get_data(5), 0);
    EXPECT_EQ(buffered(receiver), "abc");
    EXPECT_EQ(source.bytes_avail(), 0U);
}

TEST_F(Event_receiver, waits_for_bytes_that_are_received_later) {
    std::thread device([this] {
        for (const char* piece : {"$G", "PG", "GA"})
            source.push(piece);
    });
    EXPECT_TRUE(receiver.bytes_avail(6));
    device.join();
    EXPECT_EQ(buffered(receiver), "$GPGGA");
}

TEST_F(Event_receiver, read_time_out_ends_the_wait) {
    receiver.set_read_timeout(40);
    EXPECT_GE(time_of([this] { EXPECT_EQ(receiver._get_data(1), 0); }).count(), 38);
}

TEST_F(Event_receiver, write_time_out_does_not_affect_reading) {
    receiver.set_read_timeout(40);
    receiver.set_write_timeout(0);
    EXPECT_GE(time_of([this] { EXPECT_EQ(receiver._get_data(1), 0); }).count(), 38);
    receiver.set_read_timeout(0);
    receiver.set_default_write_timeout();
    EXPECT_LT(time_of([this] { EXPECT_EQ(receiver._get_data(1), 0); }).count(), 9000);
}

TEST_F(Event_receiver, waits_for_the_rest_of_the_time_out_after_an_event) {
    receiver.set_read_timeout(60);
    source.on_fetch = [this, sent = false]() mutable {
        if (!std::exchange(sent, true))
            source.send_rx_event(false);
    };
    EXPECT_GE(time_of([this] { EXPECT_EQ(receiver._get_data(1), 0); }).count(), 58);
}

TEST_F(Event_receiver, negative_time_out_does_not_wait) {
    for (const int ms : {0, -1, std::numeric_limits<int>::min()}) {
        receiver.set_read_timeout(ms);
        EXPECT_EQ(receiver._get_data(1), 0) << ms;
    }
}

// The deadline is taken from a clock that is 9900 ms slow: of the ten seconds 100 ms remain to wait.
TEST_F(Event_receiver, read_time_out_is_ten_seconds_at_first_and_as_default) {
    for (const bool set_and_reset : {false, true}) {
        if (set_and_reset) {
            EXPECT_EQ(receiver.set_read_timeout(1), 1);
            EXPECT_EQ(receiver.set_default_read_timeout(), 1);
        }
        Stopped_clock clock;
        clock.advance(-9900);
        const auto waited = time_of([this] { EXPECT_EQ(receiver._get_data(1), 0); });
        EXPECT_GE(waited.count(), 98);
        EXPECT_LT(waited.count(), 9000);
    }
}

TEST_F(Event_receiver, time_out_setters_return_true) {
    EXPECT_EQ(receiver.set_read_timeout(0), 1);
    EXPECT_EQ(receiver.set_default_read_timeout(), 1);
    EXPECT_EQ(receiver.set_write_timeout(0), 1);
    EXPECT_EQ(receiver.set_default_write_timeout(), 1);
}

TEST_F(Event_receiver, is_the_source_s_waiter_only_while_it_reads) {
    waiter_descriptor* during = nullptr;
    source.on_fetch = [&] { during = source.get_rx_waiter(); };
    receiver.set_read_timeout(0);
    EXPECT_EQ(source.get_rx_waiter(), nullptr);
    receiver._get_data(1);
    EXPECT_NE(during, nullptr);
    EXPECT_EQ(source.get_rx_waiter(), nullptr);
}

// On purpose: the previous waiter is not registered again.
TEST_F(Event_receiver, reading_replaces_another_waiter) {
    Recording_waiter other(modules);
    receiver.set_read_timeout(0);
    for (const int n : {-1, 0, 1}) {
        source.reg_rx_waiter(other, false);
        receiver._get_data(n);
        EXPECT_EQ(source.get_rx_waiter(), nullptr) << n;
    }
}

TEST_F(Event_receiver, is_not_registered_as_quiet) {
    unsigned waiting = 0;
    source.on_fetch = [&] {
        source.send_rx_event(false);
        waiting = source.get_rx_waiter()->waiting();
        source.on_fetch = {};
    };
    receiver.set_read_timeout(0);
    receiver._get_data(1);
    EXPECT_EQ(waiting, 1U);
}

TEST_F(Event_receiver, waiter_has_a_module_id_of_its_own) {
    std::int16_t id = 0;
    source.on_fetch = [&] { id = source.get_rx_waiter()->module_id(); };
    receiver.set_read_timeout(0);
    receiver._get_data(1);
    EXPECT_EQ(id, 2); // the source is module 1
}

TEST_F(Event_receiver, fetch_of_nothing_succeeds_and_of_less_fails) {
    source.push("abc");
    EXPECT_EQ(receiver._get_data(0), 1);
    EXPECT_EQ(receiver._get_data(-1), 0);
    EXPECT_EQ(receiver._get_data(std::numeric_limits<int>::min()), 0);
    EXPECT_EQ(receiver.bytes_avail(), 0U);
    EXPECT_EQ(source.bytes_avail(), 3U);
}

TEST_F(Event_receiver, bytes_beyond_the_ring_are_lost_silently) {
    receiver.set_read_timeout(0);
    source.push(std::string(4199, 'x'));
    EXPECT_EQ(receiver._get_data(4199), 1);
    source.push("abc");
    EXPECT_EQ(receiver._get_data(3), 1);
    EXPECT_EQ(receiver.bytes_avail(), 4200U);
    EXPECT_EQ(source.bytes_avail(), 0U);
    EXPECT_EQ(receiver[4199], 'a');
}

// AddressSanitizer reports a leak otherwise.
TEST_F(Event_receiver, payload_of_every_event_is_released) {
    source.on_fetch = [this, left = 3]() mutable {
        if (left-- == 0)
            return;
        waiter_event event;
        event.payload = std::malloc(16);
        source.get_rx_waiter()->send_event(event, false, false);
    };
    receiver.set_read_timeout(20);
    EXPECT_EQ(receiver._get_data(1), 0);
}

TEST_F(Event_receiver, peek_index_and_drop_wait_too) {
    std::thread device([this] {
        for (int i = 0; i < 9; ++i)
            source.push(std::string(1, static_cast<char>('1' + i)));
    });
    unsigned char bytes[3];
    EXPECT_TRUE(receiver.get_data(bytes, 3, 0));
    EXPECT_EQ(std::string(bytes, bytes + 3), "123");
    EXPECT_EQ(receiver[4], '5');
    receiver.drop(8);
    EXPECT_EQ(receiver[0], '9');
    device.join();
}

TEST_F(Event_receiver, has_the_plain_description) {
    EXPECT_EQ(receiver.get_description(), plain_description(receiver));
}

TEST_F(Event_receiver, keeps_every_byte_in_order) {
    Random random;
    const std::string sent = random.bytes(20000);
    std::thread device([&] {
        for (std::size_t at = 0; at < sent.size();) {
            const std::size_t free_space = 4200 - source.bytes_avail();
            const std::size_t count = std::min({free_space, sent.size() - at, std::size_t{random.between(1, 600)}});
            if (count == 0)
                std::this_thread::yield();
            else
                source.push(sent.substr(at, count));
            at += count;
        }
    });
    std::string received;
    while (received.size() < sent.size()) {
        const auto left = static_cast<unsigned>(sent.size() - received.size());
        const auto count = std::min(left, 1 + static_cast<unsigned>(received.size() % 77));
        if (!receiver.bytes_avail(count))
            break;
        received += take_buffered(receiver);
    }
    device.join();
    EXPECT_TRUE(received == sent);
}

TEST(Event_receiver_of_a_pair, reads_the_end_of_a_virtual_pair) {
    module_man modules;
    Virtual_pair_data_stream pair(&modules);
    Event_receiver_data_stream receiver(pair.part_b(), modules);
    std::thread device([&] { pair.part_a().__write(bytes_of(std::string(300, 'x')), 300); });
    EXPECT_TRUE(receiver.bytes_avail(300));
    device.join();
    EXPECT_EQ(receiver[299], 'x');
}

TEST(Event_receiver_of_a_pair, lets_the_end_wait_for_its_own_time_out_first) {
    Stopped_clock clock;
    Replaced_waits waits;
    module_man modules;
    Virtual_pair_data_stream pair(&modules);
    Event_receiver_data_stream receiver(pair.part_b(), modules);
    receiver.set_read_timeout(0);
    EXPECT_EQ(receiver._get_data(1), 0);
    EXPECT_EQ(waits.limits, std::vector<int>{100000});
}

} // namespace
