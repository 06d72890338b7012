#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <support/builders/AIM_adapter.h>
#include <support/builders/Random.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Enabled_category.h>
#include <support/fakes/Recorded_platform_calls.h>
#include <support/faults/Allocation_counter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using Codes = std::vector<int>;

constexpr unsigned capacity = Data_stream::rx_capacity;
constexpr unsigned longest_read = AIM_data_stream_adapter::longest_read;

TEST_F(AIM_adapter, virtual_operations_keep_their_order) {
    using Class = AIM_data_stream_adapter;
    const std::size_t order[] = {vtable_slot(static_cast<void (Class::*)(module_man&)>(&Class::init)),
                                 vtable_slot(&Class::lock),
                                 vtable_slot(&Class::unlock),
                                 vtable_slot(static_cast<int (Class::*)(int)>(&Class::get_data)),
                                 vtable_slot(&Class::drop),
                                 vtable_slot(&Class::drop_all),
                                 vtable_slot(&Class::handle_event),
                                 vtable_slot(static_cast<void (Class::*)(Timeout&)>(&Class::handle_timeout)),
                                 vtable_slot(&Class::_write)};
    EXPECT_TRUE(std::is_sorted(std::begin(order), std::end(order)));
    EXPECT_EQ(order[0], 2U);
    EXPECT_NE(order[8], not_virtual);
}

// ---- Construction ----

TEST_F(AIM_adapter, is_named_as_a_plain_stream) {
    EXPECT_EQ(adapter.get_description(), plain_description(adapter));
}

TEST_F(AIM_adapter, becomes_the_waiter_of_the_raw_stream_and_gives_it_a_module_id) {
    EXPECT_NE(raw.get_rx_waiter(), nullptr);
    EXPECT_EQ(raw.get_tx_waiter(), raw.get_rx_waiter());
    EXPECT_EQ(raw.inits, 1);
}

TEST_F(AIM_adapter, drops_bytes_that_the_raw_stream_had_before) {
    auto stale = std::make_unique<Scripted_event_sender>();
    stale->receive(aim_frame("stale"));
    Scripted_event_sender& source = *stale;
    AIM_data_stream_adapter late(modules, std::move(stale), '1');
    EXPECT_EQ(source.bytes_avail(), 0U);
    EXPECT_EQ(late.bytes_avail(1U), 0);
}

TEST_F(AIM_adapter, loops_are_numbered_in_the_order_of_construction) {
    const auto number_of_loop = [this] {
        std::string name;
        auto source = std::make_unique<Scripted_event_sender>();
        source->on_fetch = [&name] {
            char text[16] = "";
            pthread_getname_np(pthread_self(), text, sizeof text);
            name = text;
        };
        Scripted_event_sender& announcing = *source;
        {
            const AIM_data_stream_adapter named(modules, std::move(source), '1');
            announcing.push(">"); // too little for a frame: the loop fetches
            EXPECT_TRUE(eventually([&] {
                const std::lock_guard guard(announcing);
                return !name.empty();
            }));
        }
        EXPECT_EQ(name.substr(0, 8), "vro.ADSA");
        return std::stoi(name.substr(8));
    };
    const int first = number_of_loop();
    EXPECT_GE(first, 1); // the fixture's adapter has a lower number
    EXPECT_EQ(number_of_loop(), first + 1);
}

TEST_F(AIM_adapter, loop_gets_the_arguments_that_platforms_expect) {
    Recorded_platform_calls calls;
    { const AIM_data_stream_adapter another(modules, std::make_unique<Scripted_event_sender>(), '1'); }
    ASSERT_EQ(calls.loops.size(), 1U);
    const auto& loop = calls.loops[0];
    EXPECT_EQ(loop.name, "ADSA");
    EXPECT_FALSE(loop.has_selector);
    EXPECT_EQ(loop.priority, 44);
    EXPECT_EQ(loop.stack_size, 25600);
    EXPECT_TRUE(loop.option_a);
    EXPECT_FALSE(loop.option_b);
    ASSERT_FALSE(calls.loop_ends.empty());
    EXPECT_TRUE(calls.loop_ends[0].wait);
    EXPECT_EQ(calls.loop_ends[0].units, 1000);
}

// ---- Writing ----

TEST_F(AIM_adapter, write_of_three_bytes_sends_a_frame_of_eleven_and_a_line_feed) {
    EXPECT_EQ(write_bytes(adapter, "abc"), 3);
    ASSERT_EQ(raw.writes.size(), 2U);
    EXPECT_EQ(raw.writes[0].size(), 11U);
    EXPECT_EQ(raw.written.substr(0, 9), ">>0061abc");
    EXPECT_EQ(raw.written, aim_frame("abc"));
    EXPECT_EQ(raw.writes[1], "\n");
}

TEST_F(AIM_adapter, each_write_sends_one_frame_on_its_channel) {
    for (const int channel : {0x00, 0x0A, 0x41, 0x80, 0xFF}) {
        auto source = std::make_unique<Scripted_event_sender>();
        Scripted_event_sender& sent = *source;
        AIM_data_stream_adapter writer(modules, std::move(source), static_cast<char>(channel));
        write_bytes(writer, "ab");
        write_bytes(writer, "c");
        EXPECT_EQ(sent.written,
                  aim_frame("ab", static_cast<char>(channel)) + aim_frame("c", static_cast<char>(channel)));
    }
}

TEST_F(AIM_adapter, write_of_no_bytes_sends_a_frame_only_in_the_transport_form) {
    EXPECT_EQ(adapter.__write(nullptr, 0), 0);
    EXPECT_EQ(raw.written, "");
    EXPECT_EQ(adapter._write(nullptr, 0), 0);
    EXPECT_EQ(raw.written, aim_frame(""));
}

TEST_F(AIM_adapter, write_that_the_raw_stream_does_not_accept_whole_returns_0) {
    raw.on_write = [](const unsigned char*, unsigned len) { return static_cast<int>(len) - 1; };
    EXPECT_EQ(write_bytes(adapter, "abc"), 0);
    raw.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_EQ(write_bytes(adapter, "abc"), 0);
    raw.on_write = [](const unsigned char* data, unsigned len) { return data[0] == '\n' ? 0 : static_cast<int>(len); };
    EXPECT_EQ(write_bytes(adapter, "abc"), 0);
}

TEST_F(AIM_adapter, write_acquires_no_lock_of_the_adapter) {
    const std::lock_guard guard(adapter);
    EXPECT_EQ(write_bytes(adapter, "abc"), 3);
}

TEST_F(AIM_adapter, payload_of_any_size_is_one_frame) {
    Random random;
    for (const unsigned size : {1U, longest_read - 1, longest_read, longest_read + 1, 4089U}) {
        raw.writes.clear();
        const std::string payload = random.bytes(size);
        EXPECT_EQ(write_bytes(adapter, payload), static_cast<int>(size));
        ASSERT_EQ(raw.writes.size(), 2U);
        EXPECT_EQ(raw.writes[0] + raw.writes[1], aim_frame(payload));
    }
}

TEST_F(AIM_adapter, length_digits_of_a_payload_above_4089_bytes_are_nuls) {
    Random random;
    for (const unsigned size : {4090U, 4200U, 1000000U}) {
        raw.written.clear();
        const std::string payload = random.bytes(size);
        EXPECT_EQ(write_bytes(adapter, payload), static_cast<int>(size));
        std::string expected = std::string(">>\0\0\0"
                                           "1",
                                           6) +
                               payload;
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", frame_checksum(expected));
        EXPECT_EQ(raw.written, expected + digits + "\n");
    }
}

TEST_F(AIM_adapter, size_that_exceeds_an_int_is_refused) {
    for (const unsigned size : {0x7FFFFFF8U, 0xFFFFFFF8U, 0xFFFFFFFFU})
        EXPECT_EQ(adapter._write(bytes_of("abc"), size), 0);
    EXPECT_EQ(raw.written, "");
}

// ---- Reading ----

TEST_F(AIM_adapter, reader_is_notified_of_a_payload_and_can_read_it) {
    raw.push(aim_frame("abc"));
    ASSERT_TRUE(rx.wait_for(1));
    EXPECT_EQ(rx.codes()[0], 0);
    EXPECT_EQ(take_buffered(adapter), "abc");
}

TEST_F(AIM_adapter, frames_of_every_channel_reach_the_same_ring) {
    std::string sent, expected;
    for (int channel = 0; channel < 256; ++channel) {
        const std::string payload = std::to_string(channel) + " ";
        sent += aim_frame(payload, static_cast<char>(channel));
        expected += payload;
    }
    EXPECT_EQ(raw.push(sent), sent.size());
    EXPECT_EQ(receive(static_cast<unsigned>(expected.size())), expected);
}

TEST_F(AIM_adapter, length_digits_may_be_in_lower_case) {
    std::string lower = ">>0ab1" + std::string(0xAB - 3, 'x');
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", frame_checksum(lower));
    raw.push(lower + digits + "\n");
    EXPECT_EQ(receive(0xAB - 3), std::string(0xAB - 3, 'x'));
}

TEST_F(AIM_adapter, frame_that_arrives_byte_by_byte_is_delivered_when_it_is_whole) {
    const std::string bytes = aim_frame("abc");
    for (const char byte : bytes.substr(0, bytes.size() - 1)) {
        raw.push(std::string(1, byte));
        EXPECT_EQ(read_now(), "");
    }
    raw.push("\n");
    EXPECT_EQ(receive(3), "abc");
}

TEST_F(AIM_adapter, next_frame_waits_in_the_raw_stream_until_the_ring_is_empty) {
    raw.push(aim_frame("abc") + aim_frame("def"));
    ASSERT_TRUE(rx.wait_for(1));
    EXPECT_EQ(adapter.bytes_avail(), 3U);
    EXPECT_EQ(adapter.bytes_avail(10U), 0); // no frame is taken while the ring holds bytes
    EXPECT_EQ(raw.buffered(), aim_frame("def"));
    adapter.drop(3);
    EXPECT_EQ(adapter.bytes_avail(), 3U);
    EXPECT_EQ(raw.buffered(), "");
    EXPECT_EQ(take_buffered(adapter), "def");
}

TEST_F(AIM_adapter, frame_without_payload_is_skipped) {
    raw.push(aim_frame("") + aim_frame("abc"));
    EXPECT_EQ(receive(3), "abc");
}

TEST_F(AIM_adapter, reader_need_not_wait_for_the_event) {
    raw.receive(aim_frame("abc")); // without an event
    EXPECT_EQ(adapter[1], 'b');
    EXPECT_EQ(take_buffered(adapter), "abc");
}

TEST_F(AIM_adapter, fetch_counts_all_bytes_in_the_ring) {
    raw.receive(aim_frame("abc"));
    const std::lock_guard guard(adapter);
    EXPECT_EQ(adapter._get_data(3), 1);
    EXPECT_EQ(adapter._get_data(4), 0);
    EXPECT_EQ(adapter._get_data(0), 1);
    EXPECT_EQ(adapter._get_data(-1), 0);
    put(std::string(capacity - 3, 'x'));
    EXPECT_EQ(adapter._get_data(static_cast<int>(capacity)), 1);
    EXPECT_EQ(adapter._get_data(static_cast<int>(capacity) + 1), 0);
}

TEST_F(AIM_adapter, payload_that_does_not_fit_into_the_ring_is_lost) {
    raw.on_fetch = [this, once = true]() mutable { // while a frame is taken
        if (!std::exchange(once, false))
            return;
        put(std::string(capacity - 3, '.'));
        raw.receive_locked(aim_frame("abcde"));
    };
    raw.send_rx_event(false);
    ASSERT_TRUE(rx.wait_for(1));
    EXPECT_EQ(rx.codes()[0], 1); // full
    EXPECT_EQ(take_buffered(adapter), std::string(capacity - 3, '.') + "abc");
}

// ---- Events ----

TEST_F(AIM_adapter, events_come_from_module_0_until_init) {
    raw.push(aim_frame("abc"));
    ASSERT_TRUE(rx.wait_for(1));
    EXPECT_EQ(rx.sources()[0], 0);
    adapter.init(modules);
    rx.clear();
    raw.push(aim_frame("d"));
    ASSERT_TRUE(rx.wait_for(1));
    EXPECT_GT(rx.sources()[0], 0);
}

TEST_F(AIM_adapter, each_event_of_the_raw_stream_notifies_the_reader_while_bytes_are_buffered) {
    raw.push(aim_frame("abc"));
    ASSERT_TRUE(rx.wait_for(1));
    raw.push("");
    EXPECT_TRUE(rx.wait_for(2));
    {
        const std::lock_guard guard(adapter);
        put(std::string(capacity, 'x'));
    }
    raw.push("");
    ASSERT_TRUE(rx.wait_for(3));
    EXPECT_EQ(rx.codes(), (Codes{0, 0, 1}));
}

TEST_F(AIM_adapter, no_event_without_bytes_to_read) {
    raw.push("!!!\n" + aim_frame("") + ">>01");
    EXPECT_TRUE(eventually([this] { return raw.buffered() == ">>01"; }));
    raw.push("5"); // an incomplete frame
    adapter.terminate(true, 20000);
    EXPECT_TRUE(rx.codes().empty());
}

TEST_F(AIM_adapter, tx_event_of_the_raw_stream_makes_the_adapter_take_frames_and_is_not_forwarded) {
    Recording_waiter tx;
    adapter.reg_tx_waiter(tx, false);
    raw.receive(aim_frame("abc"));
    {
        const std::lock_guard guard(raw);
        raw.send_tx_event(false);
    }
    ASSERT_TRUE(rx.wait_for(1));
    adapter.terminate(true, 20000);
    EXPECT_TRUE(tx.codes().empty());
    adapter.dereg_tx_waiter();
}

TEST_F(AIM_adapter, events_are_sent_without_the_lock) {
    std::atomic<bool> locked{true};
    adapter.set_rx_callback([&] {
        const std::lock_guard guard(adapter); // would abort
        locked = false;
    });
    raw.push(aim_frame("abc"));
    ASSERT_TRUE(rx.wait_for(1));
    EXPECT_FALSE(locked);
    adapter.drop(1);
}

// ---- Dropping ----

TEST_F(AIM_adapter, drop_that_leaves_bytes_notifies_again) {
    raw.push(aim_frame("abc") + aim_frame("def"));
    ASSERT_TRUE(rx.wait_for(1));
    rx.clear();
    adapter.drop(1);
    EXPECT_EQ(rx.codes(), Codes{0});
    adapter.drop(2);
    EXPECT_EQ(rx.codes(), (Codes{0, 0})); // the second frame
    adapter.drop(3);
    EXPECT_EQ(rx.codes(), (Codes{0, 0})); // nothing is left
    EXPECT_EQ(adapter.bytes_avail(), 0U);
}

TEST_F(AIM_adapter, drop_of_0_bytes_from_a_full_ring_sends_the_full_event) {
    {
        const std::lock_guard guard(adapter);
        put(std::string(capacity, 'x'));
    }
    adapter.drop(0);
    adapter.drop(1);
    EXPECT_EQ(rx.codes(), (Codes{1, 0}));
}

TEST_F(AIM_adapter, drop_of_more_than_buffered) {
    raw.receive(aim_frame("abcd"));
    EXPECT_EQ(adapter[0], 'a');
    adapter.drop(10); // six bytes are missing: the four in the ring are not enough
    EXPECT_EQ(adapter.bytes_avail(), 4U);
    adapter.drop(8); // four bytes are missing: the four in the ring are enough
    EXPECT_EQ(adapter.bytes_avail(), 0U);
}

TEST_F(AIM_adapter, drop_traces_the_refill) {
    raw.receive(aim_frame("abc") + aim_frame("defg") + aim_frame("hi"));
    EXPECT_EQ(adapter[0], 'a');
    Captured_debug debug;
    const Enabled_category traces(105);
    adapter.drop(2);
    EXPECT_EQ(debug.text_without_times(), "<time> ADSA: Drop complete. Refilled to 1.  Raw stream has 24\n");
    adapter.drop(1);
    adapter.drop(4);
    adapter.drop(2);
    EXPECT_EQ(debug.text_without_times(), "<time> ADSA: Drop complete. Refilled to 1.  Raw stream has 24\n"
                                          "<time> ADSA reads  (4): defg\n"
                                          "<time> ADSA: Drop complete. Refilled to 4.  Raw stream has 11\n"
                                          "<time> ADSA reads  (2): hi\n"
                                          "<time> ADSA: Drop complete. Refilled to 2.  Raw stream has 0\n"
                                          "<time> ADSA: Drop complete. Refilled to 0.  Raw stream has 0\n");
}

TEST_F(AIM_adapter, drop_all_empties_both_sides) {
    raw.receive(aim_frame("abc") + "!!\n" + aim_frame("") + aim_frame("def") + build_frame("PG", "x") +
                aim_frame("ghi"));
    EXPECT_EQ(adapter[0], 'a');
    Captured_debug debug; // for the report of the PG frame
    adapter.drop_all();
    EXPECT_EQ(adapter.bytes_avail(), 0U);
    EXPECT_EQ(raw.bytes_avail(), 0U);
    EXPECT_EQ(read_now(), "");
    EXPECT_TRUE(rx.codes().empty());
}

TEST_F(AIM_adapter, drop_all_leaves_a_partial_frame) {
    raw.receive(aim_frame("abc") + aim_frame("def").substr(0, 8));
    adapter.drop_all();
    raw.push(aim_frame("def").substr(8));
    EXPECT_EQ(receive(3), "def");
}

TEST_F(AIM_adapter, drop_all_is_traced) {
    const Enabled_category traces(105);
    Captured_debug debug;
    raw.receive(aim_frame("abc"));
    adapter.drop_all();
    EXPECT_EQ(debug.text_without_times(), "<time> ADSA: drop_all.\n"
                                          "<time> ADSA reads  (3): abc\n");
}

TEST_F(AIM_adapter, reading_and_writing_need_no_heap) {
    raw.on_write = [](const unsigned char*, unsigned) { return 0; };
    write_bytes(adapter, "first"); // the first write of a thread to a stream allocates
    const std::string payload(longest_read, 'x');
    raw.receive(aim_frame("abc") + "!!!\n" + aim_frame("defg"));
    unsigned char bytes[4];
    const Allocation_counter allocations;
    EXPECT_EQ(adapter[0], 'a');
    adapter.drop(3);
    EXPECT_TRUE(adapter.get_data(bytes, 4, 0));
    adapter.drop_all();
    EXPECT_EQ(write_bytes(adapter, payload), 0);
    EXPECT_EQ(allocations.count(), 0U);
}

// ---- The end ----

TEST_F(AIM_adapter, has_ended_when_the_raw_stream_has_and_all_frames_are_read) {
    EXPECT_FALSE(adapter.has_ended());
    raw.push(aim_frame("abc"));
    EXPECT_EQ(receive(3), "abc");
    EXPECT_FALSE(adapter.has_ended());
    raw.ended = true;
    EXPECT_TRUE(adapter.has_ended());
}

TEST_F(AIM_adapter, has_not_ended_while_the_raw_stream_holds_a_frame) {
    const std::string reply = "RE006%1%ok\r\n"; // ends the reading of frames each time
    raw.receive(reply + aim_frame("abc") + "\n" + reply + aim_frame("def") + "\n>>00");
    raw.ended = true;
    EXPECT_FALSE(adapter.has_ended());
    EXPECT_EQ(receive(3), "abc");
    EXPECT_FALSE(adapter.has_ended());
    EXPECT_EQ(receive(3), "def");
    EXPECT_TRUE(adapter.has_ended()) << "half a frame will never be a whole one";
}

} // namespace
