#include <glue/data_stream/Data_stream.h>

#include <support/Captured_debug.h>
#include <support/Captured_descriptor.h>
#include <support/Random.h>
#include <support/Scripted_stream.h>
#include <support/Stream_bytes.h>
#include <support/Vtable_slot.h>

#include <platform/Binary_message.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned capacity = Data_stream::rx_capacity;

struct Data_stream_test : testing::Test {
    Scripted_stream stream;

    std::string peek(unsigned len, unsigned offset) {
        std::string bytes(len, '?');
        const bool whole = stream.Data_stream::get_data(reinterpret_cast<unsigned char*>(bytes.data()), len, offset);
        return whole ? bytes : "failed";
    }
    int write(const std::string& bytes) { return stream.__write(bytes_of(bytes), static_cast<unsigned>(bytes.size())); }
};

// Construction

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

TEST_F(Data_stream_test, description_is_cut_to_31_characters_and_taken_literally) {
    EXPECT_TRUE(stream.set_description("%s%n 0123456789012345678901234567890123456789"));
    EXPECT_STREQ(stream.get_description(), "%s%n 01234567890123456789012345");
}

TEST(Data_stream_slots, stand_in_their_order) {
    EXPECT_EQ(vtable_slot(&Data_stream::drop), 2U);
    EXPECT_EQ(vtable_slot(&Data_stream::drop_all), 3U);
    EXPECT_EQ(vtable_slot<unsigned (Data_stream::*)()>(&Data_stream::bytes_avail), 4U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_port_logging), 5U);
    EXPECT_EQ(vtable_slot(&Data_stream::flush), 6U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_read_timeout), 7U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_default_read_timeout), 8U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_write_timeout), 9U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_default_write_timeout), 10U);
    EXPECT_EQ(vtable_slot<bool (Data_stream::*)(unsigned char*, unsigned, unsigned)>(&Data_stream::get_data), 11U);
    EXPECT_EQ(vtable_slot<int (Data_stream::*)(int)>(&Data_stream::get_data), 12U);
    EXPECT_EQ(vtable_slot(&Data_stream::_write), 13U);
}

TEST(Data_stream_slots, other_operations_have_none) {
    EXPECT_EQ(vtable_slot(&Data_stream::_get_data), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::operator[]), not_virtual);
    EXPECT_EQ(vtable_slot<int (Data_stream::*)(unsigned)>(&Data_stream::bytes_avail), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::string_avail), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::dprint), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::set_description), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::__write), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::write_direct), not_virtual);
    EXPECT_EQ(vtable_slot<bool (Data_stream::*)(const Binary_message&, bool)>(&Data_stream::write), not_virtual);
    EXPECT_EQ(vtable_slot<int (Data_stream::*)(Data_stream&)>(&Data_stream::write), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::vprintf), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::printf), not_virtual);
}

// Counting

TEST_F(Data_stream_test, full_ring_reports_all_4200_bytes) {
    stream.receive(std::string(5000, 'x'));
    EXPECT_EQ(stream.bytes_avail(), 4200U);
    EXPECT_TRUE(stream.full());
}

TEST_F(Data_stream_test, bytes_avail_fetches_only_what_is_missing) {
    stream.receive("abc");
    stream.will_arrive("defgh");
    EXPECT_TRUE(stream.bytes_avail(3U));
    EXPECT_TRUE(stream.fetches.empty());
    EXPECT_TRUE(stream.bytes_avail(7U));
    EXPECT_THAT(stream.fetches, ElementsAre(4));
    EXPECT_EQ(stream.buffered(), "abcdefg");
}

TEST_F(Data_stream_test, bytes_avail_returns_what_the_fetch_returned) {
    stream.on_fetch = [](int) { return 42; };
    EXPECT_EQ(stream.bytes_avail(1U), 42);
    stream.on_fetch = [](int) { return 0; };
    EXPECT_EQ(stream.bytes_avail(1U), 0);
}

TEST_F(Data_stream_test, counting_a_huge_number_reaches_the_fetch_as_a_negative_one) {
    EXPECT_FALSE(stream.bytes_avail(0xFFFFFFFFU));
    EXPECT_THAT(stream.fetches, ElementsAre(-1));
}

TEST_F(Data_stream_test, unlocked_fetch_is_the_transport_s) {
    stream.will_arrive("ab");
    EXPECT_TRUE(stream._get_data(2));
    EXPECT_FALSE(stream._get_data(1));
    EXPECT_EQ(stream.buffered(), "ab");
}

// Peeking

TEST_F(Data_stream_test, peek_copies_without_consuming) {
    stream.receive("abcdef");
    EXPECT_EQ(peek(3, 2), "cde");
    EXPECT_EQ(stream.buffered(), "abcdef");
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, peek_fetches_what_is_missing) {
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

TEST_F(Data_stream_test, peek_copies_what_there_is_when_a_fetch_claims_more_than_it_brought) {
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

TEST_F(Data_stream_test, peek_of_a_full_ring_sees_every_byte_in_order) {
    Random random;
    const std::string bytes = random.bytes(capacity);
    stream.move_head_to(1234);
    stream.receive(bytes);
    EXPECT_EQ(peek(capacity, 0), bytes);
    EXPECT_EQ(peek(100, capacity - 100), bytes.substr(capacity - 100));
}

// Indexing

TEST_F(Data_stream_test, index_counts_from_the_oldest_byte) {
    stream.move_head_to(capacity - 1);
    stream.receive("ab\xFF");
    EXPECT_EQ(stream[0], 'a');
    EXPECT_EQ(stream[1], 'b');
    EXPECT_EQ(stream[2], 0xFF);
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Data_stream_test, index_fetches_what_is_missing) {
    stream.receive("a");
    stream.will_arrive("bcd");
    EXPECT_EQ(stream[3], 'd');
    EXPECT_THAT(stream.fetches, ElementsAre(3));
}

TEST_F(Data_stream_test, index_is_zero_when_the_fetch_fails) {
    stream.receive("a");
    EXPECT_EQ(stream[1], 0);
}

TEST_F(Data_stream_test, index_gives_the_first_byte_of_the_storage_when_a_fetch_brought_too_little) {
    stream.receive("Zabc");
    stream.drop(2);
    stream.on_fetch = [](int) { return 1; };
    EXPECT_EQ(stream[2], 'Z'); // not 'b', which is the oldest
}

// Consuming

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

TEST_F(Data_stream_test, drop_fetches_what_is_missing_and_drops_it_too) {
    stream.receive("abcd");
    stream.will_arrive("efgh");
    stream.drop(6);
    EXPECT_EQ(stream.buffered(), "");
    EXPECT_EQ(stream.arriving, "gh");
}

TEST_F(Data_stream_test, drop_takes_what_is_there_when_a_fetch_claims_more_than_it_brought) {
    stream.receive("abcd");
    stream.on_fetch = [](int) { return 1; };
    stream.drop(10);
    EXPECT_EQ(stream.buffered(), "");
}

TEST_F(Data_stream_test, drop_keeps_what_a_fetch_brought_beyond_the_need) {
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

TEST_F(Data_stream_test, drop_beyond_the_capacity_asks_a_fetch_even_of_a_full_ring) {
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

// Lines

TEST_F(Data_stream_test, line_is_the_printable_run_behind_leading_control_characters) {
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

// Locking

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
            const std::lock_guard<Mutex> guard(stream.lock);
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

// Writing

TEST_F(Data_stream_test, write_returns_what_the_transport_took) {
    EXPECT_EQ(write("hello"), 5);
    EXPECT_EQ(stream.written, "hello");
    stream.on_write = [](const unsigned char*, unsigned) { return 2; };
    EXPECT_EQ(write("hello"), 2);
    stream.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_EQ(write("hello"), -1);
    EXPECT_EQ(stream.write_direct(bytes_of("hello"), 5), -1);
}

TEST_F(Data_stream_test, empty_write_does_not_reach_the_transport) {
    EXPECT_EQ(write(""), 0);
    EXPECT_EQ(stream.write_direct(bytes_of(""), 0), 0);
    EXPECT_TRUE(stream.writes.empty());
}

TEST_F(Data_stream_test, write_from_within_the_same_write_sends_nothing) {
    int inner = 99;
    int inner_direct = 99;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        inner = stream.__write(bytes_of("inner"), 5);
        inner_direct = stream.write_direct(bytes_of("inner"), 5);
        return static_cast<int>(len);
    };
    EXPECT_EQ(write("outer"), 5);
    EXPECT_EQ(inner, 0);
    EXPECT_EQ(inner_direct, 5);
    EXPECT_EQ(stream.written, "outer");
    stream.on_write = nullptr;
    EXPECT_EQ(write("again"), 5);
}

TEST_F(Data_stream_test, write_guard_is_released_when_the_transport_throws) {
    stream.on_write = [](const unsigned char*, unsigned) -> int { throw std::runtime_error("line cut"); };
    EXPECT_THROW(write("a"), std::runtime_error);
    EXPECT_THROW(stream.write_direct(bytes_of("b"), 1), std::runtime_error);
    stream.on_write = nullptr;
    EXPECT_EQ(write("c"), 1);
}

TEST_F(Data_stream_test, write_guard_is_each_thread_s_own) {
    int from_other_thread = 0;
    bool nested = false;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        if (!nested) {
            nested = true;
            std::thread([&] { from_other_thread = stream.__write(bytes_of("other"), 5); }).join();
        }
        return static_cast<int>(len);
    };
    EXPECT_EQ(write("mine"), 4);
    EXPECT_EQ(from_other_thread, 5);
}

TEST_F(Data_stream_test, write_within_the_write_of_another_stream_goes_through) {
    Scripted_stream other;
    stream.on_write = [&](const unsigned char* data, unsigned len) { return other.__write(data, len); };
    EXPECT_EQ(write("through"), 7);
    EXPECT_EQ(other.written, "through");
}

TEST(Data_stream_at_exit, static_stream_may_still_write_and_trace) {
    // The stream is destroyed after the thread-local storage of the main thread.
    EXPECT_EXIT(
        {
            struct Farewell : Scripted_stream {
                ~Farewell() override {
                    debug_writes = true;
                    __write(bytes_of("farewell"), 8);
                }
            };
            static Farewell farewell;
            farewell.__write(bytes_of("hello"), 5);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "WR\\(8\\)\\[farewell\\] \\(8\\)");
}

// Writing messages

TEST_F(Data_stream_test, message_is_written_with_or_without_a_newline) {
    unsigned char bytes[] = {'P', 'G', 0, 1};
    const Binary_message message(bytes, sizeof bytes);
    EXPECT_TRUE(stream.write(message, false));
    EXPECT_TRUE(stream.write(message, true));
    EXPECT_THAT(stream.writes, ElementsAre(std::string("PG\0\1", 4), std::string("PG\0\1", 4), "\n"));
}

TEST_F(Data_stream_test, newline_follows_even_a_message_that_was_cut_short) {
    unsigned char bytes[] = {'a', 'b', 'c'};
    stream.on_write = [](const unsigned char*, unsigned len) { return len == 3 ? 2 : 1; };
    EXPECT_FALSE(stream.write(Binary_message(bytes, 3), true));
    EXPECT_EQ(stream.written, "ab\n");
}

TEST_F(Data_stream_test, message_counts_as_failed_when_its_newline_is_not_written) {
    unsigned char bytes[] = {'a', 'b', 'c'};
    stream.on_write = [](const unsigned char*, unsigned len) { return len == 3 ? 3 : 0; };
    EXPECT_FALSE(stream.write(Binary_message(bytes, 3), true));
}

// Formatted writing

TEST_F(Data_stream_test, printf_writes_the_text_without_its_nul) {
    EXPECT_TRUE(stream.printf("%s=%d", "rate", 10));
    EXPECT_EQ(stream.written, "rate=10");
}

TEST_F(Data_stream_test, printf_of_255_characters_is_whole) {
    EXPECT_TRUE(stream.printf("%s", std::string(255, 'x').c_str()));
    EXPECT_EQ(stream.written, std::string(255, 'x'));
}

TEST_F(Data_stream_test, printf_of_256_characters_or_more_writes_255_and_a_nul) {
    for (const std::size_t length : {256U, 300U, 10000U}) {
        stream.written.clear();
        EXPECT_TRUE(stream.printf("%s", std::string(length, 'x').c_str()));
        EXPECT_EQ(stream.written, std::string(255, 'x') + '\0');
    }
}

TEST_F(Data_stream_test, printf_is_true_for_any_result_but_zero) {
    stream.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_TRUE(stream.printf("x"));
    stream.on_write = [](const unsigned char*, unsigned) { return 0; };
    EXPECT_FALSE(stream.printf("x"));
    EXPECT_FALSE(stream.printf("%s", ""));
}

TEST_F(Data_stream_test, printf_of_what_cannot_be_formatted_writes_nothing) {
    const wchar_t no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_FALSE(stream.printf("%ls", no_character));
    EXPECT_TRUE(stream.writes.empty());
}

// Copying a stream into another

struct Copy_test : testing::Test {
    Scripted_stream source;
    Scripted_stream destination;
    std::vector<int> results; ///< what the destination takes, call by call; everything when it runs out

    void SetUp() override {
        destination.on_write = [this](const unsigned char*, unsigned len) {
            if (results.empty())
                return static_cast<int>(len);
            const int result = results.front();
            results.erase(results.begin());
            return result;
        };
    }
    std::string fill(unsigned head, unsigned count) {
        Random random;
        std::string bytes = random.bytes(count);
        source.move_head_to(head);
        source.receive(bytes);
        return bytes;
    }
};

TEST_F(Copy_test, of_an_empty_source_writes_nothing) {
    source.move_head_to(17);
    EXPECT_EQ(destination.write(source), 0);
    EXPECT_TRUE(destination.writes.empty());
}

TEST_F(Copy_test, of_contiguous_bytes_is_one_write) {
    const std::string bytes = fill(100, 50);
    EXPECT_EQ(destination.write(source), 50);
    EXPECT_THAT(destination.writes, ElementsAre(bytes));
    EXPECT_EQ(source.bytes_avail(), 0U);
    EXPECT_EQ(source.head(), 150U);
}

TEST_F(Copy_test, keeps_what_a_short_write_left) {
    const std::string bytes = fill(100, 50);
    results = {20};
    EXPECT_EQ(destination.write(source), 20);
    EXPECT_EQ(source.buffered(), bytes.substr(20));
}

TEST_F(Copy_test, consumes_nothing_when_the_first_write_fails) {
    for (const int failure : {0, -1}) {
        const std::string bytes = fill(4000, 500);
        results = {failure};
        EXPECT_EQ(destination.write(source), failure);
        EXPECT_EQ(source.buffered(), bytes);
    }
}

TEST_F(Copy_test, of_a_full_ring_that_starts_at_zero_is_one_write) {
    const std::string bytes = fill(0, capacity);
    EXPECT_EQ(destination.write(source), static_cast<int>(capacity));
    EXPECT_THAT(destination.writes, ElementsAre(bytes));
    EXPECT_EQ(source.head(), 0U);
    EXPECT_EQ(source.tail(), 0U);
}

TEST_F(Copy_test, of_a_full_ring_that_starts_at_zero_may_be_short) {
    const std::string bytes = fill(0, capacity);
    results = {1000};
    EXPECT_EQ(destination.write(source), 1000);
    EXPECT_EQ(source.head(), 1000U);
    EXPECT_EQ(source.tail(), 0U);
    EXPECT_EQ(source.buffered(), bytes.substr(1000));
}

TEST_F(Copy_test, of_wrapped_bytes_is_two_writes) {
    const std::string bytes = fill(4190, 30);
    EXPECT_EQ(destination.write(source), 30);
    EXPECT_THAT(destination.writes, ElementsAre(bytes.substr(0, 10), bytes.substr(10)));
    EXPECT_EQ(source.bytes_avail(), 0U);
    EXPECT_EQ(source.head(), 20U);
}

TEST_F(Copy_test, of_wrapped_bytes_stops_at_a_short_first_piece) {
    const std::string bytes = fill(4190, 30);
    results = {4};
    EXPECT_EQ(destination.write(source), 4);
    EXPECT_EQ(source.buffered(), bytes.substr(4));
}

TEST_F(Copy_test, of_wrapped_bytes_keeps_what_the_second_piece_left) {
    for (const int second : {7, 0, -1}) {
        const std::string bytes = fill(4190, 30);
        results = {10, second};
        const int taken = 10 + std::max(second, 0);
        EXPECT_EQ(destination.write(source), taken);
        EXPECT_EQ(source.buffered(), bytes.substr(static_cast<std::size_t>(taken)));
    }
}

TEST_F(Copy_test, of_a_full_ring_that_starts_elsewhere_is_two_writes) {
    const std::string bytes = fill(4000, capacity);
    EXPECT_EQ(destination.write(source), static_cast<int>(capacity));
    EXPECT_THAT(destination.writes, ElementsAre(bytes.substr(0, 200), bytes.substr(200)));
    EXPECT_EQ(source.bytes_avail(), 0U);
    EXPECT_EQ(source.head(), 4000U);
}

TEST_F(Copy_test, of_a_full_ring_that_starts_elsewhere_leaves_the_tail_at_the_old_head) {
    for (const std::vector<int>& taken : {std::vector<int>{50}, {200, 0}, {200, -1}, {200, 300}}) {
        const std::string bytes = fill(4000, capacity);
        results = taken;
        const int total = taken[0] + (taken.size() > 1 ? std::max(taken[1], 0) : 0);
        EXPECT_EQ(destination.write(source), total);
        EXPECT_EQ(source.tail(), 4000U);
        EXPECT_EQ(source.buffered(), bytes.substr(static_cast<std::size_t>(total)));
    }
}

TEST_F(Copy_test, of_bytes_that_end_with_the_storage_traces_an_empty_second_piece) {
    const std::string bytes = fill(4100, 100);
    const Captured_debug debug;
    destination.debug_writes = true;
    EXPECT_EQ(destination.write(source), 100);
    EXPECT_THAT(destination.writes, ElementsAre(bytes));
    EXPECT_THAT(debug.text(), HasSubstr("WR(0)[] (0)\n"));
    EXPECT_EQ(source.head(), 0U);
}

TEST_F(Copy_test, holds_the_source_s_lock_only) {
    source.use_lock();
    destination.use_lock();
    source.receive("abc");
    bool as_told = false;
    destination.on_write = [&](const unsigned char*, unsigned len) {
        as_told = source.lock.owner_thread() == QThread::currentThreadId() && !destination.lock.owner_thread();
        return static_cast<int>(len);
    };
    EXPECT_EQ(destination.write(source), 3);
    EXPECT_TRUE(as_told);
}

TEST_F(Copy_test, loses_and_reorders_nothing_over_random_shapes) {
    Random random;
    std::string sent;
    destination.on_write = [&](const unsigned char*, unsigned len) {
        return static_cast<int>(random.one_in(3) ? random.between(0, len) : len);
    };
    for (int step = 0; step < 5000; ++step) {
        const std::string bytes = random.bytes(random.between(0, capacity - source.bytes_avail()));
        source.receive(bytes);
        sent += bytes;
        destination.write(source);
    }
    EXPECT_TRUE(destination.written + source.buffered() == sent);
}

// Tracing

TEST_F(Data_stream_test, traced_write_shows_bytes_and_result) {
    const Captured_debug debug;
    stream.debug_writes = true;
    EXPECT_EQ(write("a\r\n"), 3);
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[a\\r\\n] (3)\n");
}

TEST_F(Data_stream_test, untraced_write_prints_nothing) {
    const Captured_debug debug;
    write("abc");
    stream.debug_writes = true;
    stream.write_direct(bytes_of("abc"), 3);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Data_stream_test, traced_short_write_is_reported) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.on_write = [](const unsigned char*, unsigned) { return 1; };
    write("abc");
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[abc] (1)\n!SHORT WRITE!: wrote 1 of 3\n");
}

TEST_F(Data_stream_test, traced_failing_write_reports_the_system_error) {
    const Captured_debug debug;
    const Captured_descriptor error_output(2);
    stream.debug_writes = true;
    stream.on_write = [](const unsigned char*, unsigned) {
        errno = ENOSPC;
        return -1;
    };
    EXPECT_EQ(write("abc"), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(error_output.text(), "error is: No space left on device\n");
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[abc] (-1)\n");
}

TEST_F(Data_stream_test, traced_nested_write_shows_that_nothing_was_sent) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        stream.__write(bytes_of("in"), 2);
        stream.__write(bytes_of(""), 0);
        return static_cast<int>(len);
    };
    write("out");
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[out<time> WR(2)[in] (0)\n!SHORT WRITE!: wrote 0 of 2\n"
                                          "<time> WR(0)[] (0)\n] (3)\n");
}

TEST_F(Data_stream_test, traced_printf_shows_the_text_first) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.printf("fix %d\n", 3);
    EXPECT_EQ(debug.text_without_times(), "fix 3\n<time> WR(6)[fix 3\\n] (6)\n");
}

TEST_F(Data_stream_test, tracing_back_into_the_same_stream_ends) {
    stream.debug_writes = true;
    Debug::Print::set_sink(
        [this](std::string_view text) { stream.__write(bytes_of(text.data()), static_cast<unsigned>(text.size())); });
    EXPECT_EQ(write("abc"), 3);
    Debug::Print::set_sink({});
    EXPECT_THAT(stream.written, HasSubstr("abc"));
    EXPECT_THAT(stream.written, HasSubstr("] (3)\n"));
}

struct Dprint_test : Data_stream_test {
    std::string trace(unsigned len, unsigned offset) {
        const Captured_debug debug;
        stream.dprint("tag", len, offset);
        return debug.text_without_times();
    }
    void SetUp() override { stream.receive("abcdef"); }
};

TEST_F(Dprint_test, shows_the_bytes_asked_for_and_keeps_them) {
    EXPECT_EQ(trace(3, 1), "<time> tag[bcd]\n");
    EXPECT_EQ(stream.buffered(), "abcdef");
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Dprint_test, shows_all_from_the_offset_for_a_length_of_zero_or_too_many) {
    EXPECT_EQ(trace(0, 2), "<time> tag[cdef]\n");
    EXPECT_EQ(trace(5, 2), "<time> tag[cdef]\n");
    EXPECT_EQ(trace(4, 2), "<time> tag[cdef]\n");
}

TEST_F(Dprint_test, shows_nothing_beyond_the_end) {
    EXPECT_EQ(trace(0, 6), "<time> tag[]\n");
    EXPECT_EQ(trace(3, 100), "<time> tag[]\n");
}

TEST_F(Dprint_test, survives_a_sum_that_wraps) {
    EXPECT_EQ(trace(0xFFFFFFFFU, 2), "<time> tag[cdef]\n");
    EXPECT_EQ(trace(2, 0xFFFFFFFFU), "<time> tag[]\n");
    EXPECT_EQ(trace(0xFFFFFFFFU, 0xFFFFFFFFU), "<time> tag[]\n");
}

TEST_F(Dprint_test, may_be_called_while_the_printer_reads_the_stream) {
    stream.use_lock();
    unsigned seen = 0;
    Debug::Print::set_sink([&](std::string_view) { seen = stream.bytes_avail(); });
    stream.dprint("tag", 0, 0);
    Debug::Print::set_sink({});
    EXPECT_EQ(seen, 6U); // the lock was free again
}

} // namespace
