// Naming, reading, locking. Writing, copying and tracing: Data_stream_writing_test.cpp.

#include <glue/data_stream/Data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;

constexpr unsigned capacity = Data_stream::rx_capacity;

struct Data_stream_test : testing::Test {
    Scripted_stream stream;

    std::string peek(unsigned len, unsigned offset) {
        std::string bytes(len, '?');
        const bool whole = stream.Data_stream::get_data(reinterpret_cast<unsigned char*>(bytes.data()), len, offset);
        return whole ? bytes : "failed";
    }
};

// ---- Construction ----

TEST_F(Data_stream_test, starts_empty_untraced_unlocked_and_named_after_its_address) {
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_EQ(stream.head(), 0U);
    EXPECT_EQ(stream.tail(), 0U);
    EXPECT_FALSE(stream.debug_writes);
    EXPECT_EQ(stream.rx_count, 0U);
    EXPECT_EQ(stream.tx_count, 0U);
    EXPECT_EQ(stream.get_description(), plain_description(stream));
}

TEST_F(Data_stream_test, operations_without_a_medium_do_nothing_and_return_zero) {
    EXPECT_EQ(stream.set_port_logging(Data_stream::log_all), 0);
    EXPECT_EQ(stream.set_read_timeout(5), 0);
    EXPECT_EQ(stream.set_default_read_timeout(), 0);
    EXPECT_EQ(stream.set_write_timeout(5), 0);
    EXPECT_EQ(stream.set_default_write_timeout(), 0);
    stream.receive("abc");
    stream.flush();
    EXPECT_EQ(stream.buffered(), "abc");
}

TEST_F(Data_stream_test, logging_is_off_only_for_zero) {
    EXPECT_EQ(Data_stream::log_none, 0);
    EXPECT_EQ(Data_stream::log_reads, 1);
    EXPECT_EQ(Data_stream::log_writes, 2);
    EXPECT_EQ(Data_stream::log_all, 3);
}

TEST_F(Data_stream_test, description_is_cut_to_31_characters_and_copied_literally) {
    EXPECT_TRUE(stream.set_description("%s%n 0123456789012345678901234567890123456789"));
    EXPECT_STREQ(stream.get_description(), "%s%n 01234567890123456789012345");
}

// ---- Counting ----

TEST_F(Data_stream_test, full_ring_reports_all_4200_bytes) {
    stream.receive(std::string(5000, 'x'));
    EXPECT_EQ(stream.bytes_avail(), 4200U);
    EXPECT_TRUE(stream.full());
}

TEST_F(Data_stream_test, bytes_avail_fetches_only_missing_bytes) {
    stream.receive("abc");
    stream.will_arrive("defgh");
    EXPECT_TRUE(stream.bytes_avail(3U));
    EXPECT_TRUE(stream.fetches.empty());
    EXPECT_TRUE(stream.bytes_avail(7U));
    EXPECT_THAT(stream.fetches, ElementsAre(4));
    EXPECT_EQ(stream.buffered(), "abcdefg");
}

TEST_F(Data_stream_test, bytes_avail_returns_the_result_of_the_fetch) {
    stream.on_fetch = [](int) { return 42; };
    EXPECT_EQ(stream.bytes_avail(1U), 42);
    stream.on_fetch = [](int) { return 0; };
    EXPECT_EQ(stream.bytes_avail(1U), 0);
}

TEST_F(Data_stream_test, huge_count_reaches_the_fetch_as_a_negative_number) {
    EXPECT_FALSE(stream.bytes_avail(0xFFFFFFFFU));
    EXPECT_THAT(stream.fetches, ElementsAre(-1));
}

TEST_F(Data_stream_test, unlocked_fetch_is_the_transport_s) {
    stream.will_arrive("ab");
    EXPECT_TRUE(stream._get_data(2));
    EXPECT_FALSE(stream._get_data(1));
    EXPECT_EQ(stream.buffered(), "ab");
}

// ---- Peeking ----

TEST_F(Data_stream_test, peek_copies_without_consuming) {
    stream.receive("abcdef");
    EXPECT_EQ(peek(3, 2), "cde");
    EXPECT_EQ(stream.buffered(), "abcdef");
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, peek_fetches_missing_bytes) {
    stream.receive("abc");
    stream.will_arrive("defg");
    EXPECT_EQ(peek(4, 2), "cdef");
    EXPECT_THAT(stream.fetches, ElementsAre(3));
}

TEST_F(Data_stream_test, peek_fails_when_the_fetch_fails) {
    stream.receive("abc");
    EXPECT_EQ(peek(4, 0), "failed");
    EXPECT_EQ(stream.buffered(), "abc");
}

TEST_F(Data_stream_test, peek_copies_the_buffered_bytes_when_a_fetch_reports_more_than_it_delivers) {
    stream.receive("abc");
    stream.on_fetch = [](int) { return 1; };
    unsigned char bytes[5] = {'?', '?', '?', '?', '?'};
    EXPECT_FALSE(stream.Data_stream::get_data(bytes, 5, 0));
    EXPECT_EQ(std::string(bytes, bytes + 5), "abc??");
}

TEST_F(Data_stream_test, peek_beyond_the_buffered_bytes_never_fetches) {
    stream.receive("abc");
    stream.will_arrive("defghijklm");
    EXPECT_EQ(peek(0, 4), "");
    EXPECT_EQ(peek(0, 5000), "");
    EXPECT_EQ(peek(5, 4), "failed");
    EXPECT_EQ(peek(5, 0xFFFFFFF0U), "failed");
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, peek_at_the_end_of_the_buffered_bytes_fetches) {
    stream.receive("abc");
    stream.will_arrive("de");
    EXPECT_EQ(peek(2, 3), "de");
    EXPECT_THAT(stream.fetches, ElementsAre(2));
}

TEST_F(Data_stream_test, peek_crosses_the_end_of_the_storage) {
    stream.move_head_to(capacity - 2);
    stream.receive("abcdef");
    EXPECT_EQ(peek(6, 0), "abcdef");
    EXPECT_EQ(peek(3, 1), "bcd");
    EXPECT_EQ(peek(3, 3), "def");
}

TEST_F(Data_stream_test, peek_of_a_full_ring_copies_every_byte_in_order) {
    Random random;
    const std::string bytes = random.bytes(capacity);
    stream.move_head_to(1234);
    stream.receive(bytes);
    EXPECT_EQ(peek(capacity, 0), bytes);
    EXPECT_EQ(peek(100, capacity - 100), bytes.substr(capacity - 100));
}

// ---- Indexing ----

TEST_F(Data_stream_test, index_counts_from_the_oldest_byte) {
    stream.move_head_to(capacity - 1);
    stream.receive("ab\xFF");
    EXPECT_EQ(stream[0], 'a');
    EXPECT_EQ(stream[1], 'b');
    EXPECT_EQ(stream[2], 0xFF);
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, index_fetches_missing_bytes) {
    stream.receive("a");
    stream.will_arrive("bcd");
    EXPECT_EQ(stream[3], 'd');
    EXPECT_THAT(stream.fetches, ElementsAre(3));
}

TEST_F(Data_stream_test, index_is_zero_when_the_fetch_fails) {
    stream.receive("a");
    EXPECT_EQ(stream[1], 0);
}

TEST_F(Data_stream_test, index_returns_the_first_byte_of_the_storage_when_a_fetch_delivers_too_little) {
    stream.receive("Zabc");
    stream.drop(2);
    stream.on_fetch = [](int) { return 1; };
    EXPECT_EQ(stream[2], 'Z'); // not 'b', which is the oldest
}

// ---- Consuming ----

TEST_F(Data_stream_test, drop_consumes_from_the_front) {
    stream.receive("abcdef");
    stream.drop(2);
    EXPECT_EQ(stream.buffered(), "cdef");
    stream.drop(0);
    EXPECT_EQ(stream.buffered(), "cdef");
    stream.drop(4);
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, drop_of_more_than_buffered_keeps_everything_when_nothing_can_be_fetched) {
    stream.receive("abcd");
    stream.drop(10);
    EXPECT_EQ(stream.buffered(), "abcd");
    EXPECT_THAT(stream.fetches, ElementsAre(6));
}

TEST_F(Data_stream_test, drop_fetches_missing_bytes_and_drops_them_too) {
    stream.receive("abcd");
    stream.will_arrive("efgh");
    stream.drop(6);
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_EQ(stream.arriving, "gh");
}

TEST_F(Data_stream_test, drop_consumes_the_buffered_bytes_when_a_fetch_reports_more_than_it_delivers) {
    stream.receive("abcd");
    stream.on_fetch = [](int) { return 1; };
    stream.drop(10);
    EXPECT_EQ(stream.buffered(), "");
}

TEST_F(Data_stream_test, drop_keeps_the_bytes_that_a_fetch_delivers_beyond_the_need) {
    stream.on_fetch = [this](int) {
        stream.receive("abcdef");
        return 1;
    };
    stream.drop(2);
    EXPECT_EQ(stream.buffered(), "cdef");
}

TEST_F(Data_stream_test, drop_on_a_full_ring_makes_it_not_full) {
    stream.move_head_to(4000);
    stream.receive(std::string(capacity, 'x'));
    ASSERT_TRUE(stream.full());
    stream.drop(0);
    EXPECT_TRUE(stream.full());
    stream.drop(500);
    EXPECT_FALSE(stream.full());
    EXPECT_EQ(stream.head(), 300U);
    EXPECT_EQ(stream.tail(), 4000U);
    EXPECT_EQ(stream.bytes_avail(), capacity - 500);
}

TEST_F(Data_stream_test, drop_of_the_capacity_empties_a_full_ring) {
    stream.receive(std::string(capacity, 'x'));
    stream.drop(capacity);
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, drop_beyond_the_capacity_fetches_even_with_a_full_ring) {
    stream.receive(std::string(capacity, 'x'));
    stream.drop(capacity + 1);
    EXPECT_EQ(stream.bytes_avail(), capacity);
    EXPECT_THAT(stream.fetches, ElementsAre(1));
    stream.on_fetch = [](int) { return 1; };
    stream.drop(capacity + 1);
    EXPECT_EQ(stream.bytes_avail(), 0U);
}

TEST_F(Data_stream_test, drop_that_fills_the_ring_while_fetching_drops_from_the_full_ring) {
    stream.receive("ab");
    stream.on_fetch = [this](int) {
        stream.receive(std::string(capacity, 'x'));
        return 1;
    };
    stream.drop(10);
    EXPECT_EQ(stream.bytes_avail(), capacity - 10);
}

TEST_F(Data_stream_test, drop_all_empties_without_fetching) {
    stream.receive("abc");
    stream.drop_all();
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_EQ(stream.head(), 3U);
    stream.receive(std::string(capacity, 'x'));
    stream.drop_all();
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_EQ(stream.head(), 3U);
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, reading_agrees_with_a_queue_over_random_operations) {
    Random random;
    std::deque<char> model;
    for (int step = 0; step < 20000; ++step) {
        const unsigned n = random.between(0, random.one_in(10) ? 5000 : 60);
        switch (random.between(0, 3)) {
        case 0: {
            const std::string bytes = random.bytes(n);
            stream.receive(bytes);
            const std::size_t taken = std::min<std::size_t>(n, capacity - model.size());
            model.insert(model.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(taken));
            break;
        }
        case 1:
            stream.drop(n);
            if (n <= model.size())
                model.erase(model.begin(), model.begin() + n);
            break;
        case 2: {
            const unsigned offset = random.between(0, 100);
            const std::string seen = peek(n, offset);
            const bool there = n == 0 || (n <= model.size() && offset <= model.size() - n);
            ASSERT_EQ(seen == "failed", !there);
            ASSERT_TRUE(!there || n == 0 || std::equal(seen.begin(), seen.end(), model.begin() + offset));
            break;
        }
        default:
            ASSERT_EQ(stream[n], n < model.size() ? static_cast<unsigned char>(model[n]) : 0);
        }
        ASSERT_EQ(stream.bytes_avail(), model.size());
    }
}

// ---- Lines ----

TEST_F(Data_stream_test, line_is_the_printable_run_after_leading_control_characters) {
    stream.receive("\r\nABC\r");
    EXPECT_EQ(stream.string_avail(), 3U);
    EXPECT_EQ(stream.buffered(), "ABC\r");
}

TEST_F(Data_stream_test, line_without_an_end_is_not_complete) {
    stream.receive("ABC");
    EXPECT_EQ(stream.string_avail(), 0U);
    EXPECT_EQ(stream.buffered(), "ABC");
    stream.receive("\n");
    EXPECT_EQ(stream.string_avail(), 3U);
}

TEST_F(Data_stream_test, no_line_in_an_empty_ring_nor_in_control_characters_alone) {
    EXPECT_EQ(stream.string_avail(), 0U);
    stream.receive(std::string("\0\x1F\x7F\x80\xFF", 5));
    EXPECT_EQ(stream.string_avail(), 0U);
    EXPECT_EQ(stream.buffered(), "");
}

TEST_F(Data_stream_test, line_reaches_from_blank_to_tilde) {
    stream.receive(std::string(" ~\0", 3));
    EXPECT_EQ(stream.string_avail(), 2U);
    stream.drop_all();
    stream.receive("a\x7F");
    EXPECT_EQ(stream.string_avail(), 1U);
    stream.drop_all();
    stream.receive("a\x80");
    EXPECT_EQ(stream.string_avail(), 1U);
}

TEST_F(Data_stream_test, line_search_gives_up_on_a_full_ring) {
    stream.receive(std::string(capacity - 2, 'x') + "\n");
    EXPECT_EQ(stream.string_avail(), capacity - 2);
    stream.receive("y");
    EXPECT_EQ(stream.string_avail(), 0xFFFFFFFFU);
}

TEST_F(Data_stream_test, line_search_never_fetches) {
    stream.will_arrive("ABC\r");
    stream.receive("x");
    EXPECT_EQ(stream.string_avail(), 0U);
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, line_search_counts_and_drops_by_the_virtual_operations) {
    struct Overriding : Scripted_stream {
        using Data_stream::bytes_avail;
        unsigned int bytes_avail() override { return reported; }
        void drop(unsigned int n) override {
            drops.push_back(n);
            Scripted_stream::drop(n);
        }
        unsigned int reported = 4;
        std::vector<unsigned int> drops;
    } overriding;
    overriding.receive("\r\nAB\r");
    EXPECT_EQ(overriding.string_avail(), 0U); // of the four bytes that it reports
    EXPECT_THAT(overriding.drops, ElementsAre(1U, 1U));
    overriding.reported = capacity;
    EXPECT_EQ(overriding.string_avail(), Data_stream::full_ring);
}

// ---- Locking ----

TEST_F(Data_stream_test, reading_operations_hold_the_lock_also_while_fetching) {
    stream.use_lock();
    bool held = true;
    stream.on_fetch = [&](int) {
        held = held && stream.lock.owner_thread() == QThread::currentThreadId();
        return 0;
    };
    unsigned char byte = 0;
    stream.bytes_avail(1U);
    stream.Data_stream::get_data(&byte, 1, 0);
    EXPECT_EQ(stream[0], 0);
    stream.drop(1);
    EXPECT_EQ(stream.fetches.size(), 4U);
    EXPECT_TRUE(held);
    EXPECT_EQ(stream.lock.owner_thread(), nullptr);
}

TEST_F(Data_stream_test, every_reading_operation_acquires_the_lock) {
    const std::vector<std::function<void(Data_stream&)>> operations = {
        [](Data_stream& s) { s.bytes_avail(); },
        [](Data_stream& s) { s.bytes_avail(1U); },
        [](Data_stream& s) { s.get_data(nullptr, 0, 0); },
        [](Data_stream& s) { s[0]; },
        [](Data_stream& s) { s.string_avail(); },
        [](Data_stream& s) { s.drop(0); },
        [](Data_stream& s) { s.drop_all(); },
        [](Data_stream& s) { s.dprint("t", 0, 0); },
        [](Data_stream& s) { Scripted_stream().write(s); },
    };
    stream.use_lock();
    stream.receive("a");
    for (const auto& operation : operations)
        EXPECT_DEATH(
            {
                stream.lock.lock();
                operation(stream);
            },
            "takes again what it holds");
}

TEST_F(Data_stream_test, every_operation_works_with_a_lock_that_is_not_recursive) {
    stream.use_lock();
    stream.receive("\rABC\r");
    EXPECT_EQ(stream.bytes_avail(), 5U);
    EXPECT_EQ(stream.string_avail(), 3U);
    const Captured_debug debug;
    stream.dprint("t", 0, 0);
    Scripted_stream destination;
    EXPECT_EQ(destination.write(stream), 4);
    stream.drop_all();
    EXPECT_EQ(stream.lock.owner_thread(), nullptr);
}

TEST_F(Data_stream_test, a_fetch_that_throws_leaves_the_ring_unlocked) {
    stream.use_lock();
    stream.on_fetch = [](int) -> int { throw std::runtime_error("line cut"); };
    EXPECT_THROW(stream.drop(1), std::runtime_error);
    EXPECT_EQ(stream.lock.owner_thread(), nullptr);
}

TEST_F(Data_stream_test, another_thread_may_fill_a_locked_ring_while_this_one_reads) {
    stream.use_lock();
    stream.on_fetch = [](int) { return 0; };
    constexpr unsigned total = 100000;
    std::thread producer([this] {
        for (unsigned sent = 0; sent < total;) {
            const std::lock_guard guard(stream.lock);
            if (stream.full())
                continue;
            const char byte = static_cast<char>(sent);
            stream.receive(std::string_view(&byte, 1));
            ++sent;
        }
    });
    unsigned wrong = 0;
    for (unsigned received = 0; received < total;) {
        if (stream.bytes_avail() == 0)
            continue;
        wrong += stream[0] != static_cast<unsigned char>(received);
        stream.drop(1);
        ++received;
    }
    producer.join();
    EXPECT_EQ(wrong, 0U);
}

} // namespace
