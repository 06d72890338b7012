// Writing, copying and tracing. Naming, reading, locking: Data_stream_test.cpp.

#include <glue/data_stream/Data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Scripted_stream.h>

#include <platform/Binary_message.h>
#include <platform/Debug.h>

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr unsigned capacity = Data_stream::rx_capacity;

struct Data_stream_writing : testing::Test {
    Scripted_stream stream;
};

// ---- Writing ----

TEST_F(Data_stream_writing, write_returns_the_transport_s_result) {
    EXPECT_EQ(write_bytes(stream, "hello"), 5);
    EXPECT_EQ(stream.written, "hello");
    stream.on_write = [](const unsigned char*, unsigned) { return 2; };
    EXPECT_EQ(write_bytes(stream, "hello"), 2);
    stream.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_EQ(write_bytes(stream, "hello"), -1);
    EXPECT_EQ(stream.write_direct(bytes_of("hello"), 5), -1);
}

TEST_F(Data_stream_writing, empty_write_does_not_reach_the_transport) {
    int calls = 0;
    stream.on_write = [&](const unsigned char*, unsigned) { return ++calls; };
    EXPECT_EQ(write_bytes(stream, ""), 0);
    EXPECT_EQ(stream.write_direct(bytes_of(""), 0), 0);
    EXPECT_EQ(calls, 0);
}

TEST_F(Data_stream_writing, write_from_within_the_same_write_sends_nothing) {
    int inner = 99;
    int inner_direct = 99;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        inner = stream.__write(bytes_of("inner"), 5);
        inner_direct = stream.write_direct(bytes_of("inner"), 5);
        return static_cast<int>(len);
    };
    EXPECT_EQ(write_bytes(stream, "outer"), 5);
    EXPECT_EQ(inner, 0);
    EXPECT_EQ(inner_direct, 5);
    EXPECT_EQ(stream.written, "outer");
    stream.on_write = nullptr;
    EXPECT_EQ(write_bytes(stream, "again"), 5);
}

TEST_F(Data_stream_writing, write_guard_is_released_when_the_transport_throws) {
    stream.on_write = [](const unsigned char*, unsigned) -> int { throw std::runtime_error("line cut"); };
    EXPECT_THROW(write_bytes(stream, "a"), std::runtime_error);
    EXPECT_THROW(stream.write_direct(bytes_of("b"), 1), std::runtime_error);
    stream.on_write = nullptr;
    EXPECT_EQ(write_bytes(stream, "c"), 1);
}

TEST_F(Data_stream_writing, each_thread_has_its_own_write_guard) {
    int from_other_thread = 0;
    bool nested = false;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        if (!nested) {
            nested = true;
            std::thread([&] { from_other_thread = stream.__write(bytes_of("other"), 5); }).join();
        }
        return static_cast<int>(len);
    };
    EXPECT_EQ(write_bytes(stream, "mine"), 4);
    EXPECT_EQ(from_other_thread, 5);
}

TEST_F(Data_stream_writing, write_within_the_write_of_another_stream_is_sent) {
    Scripted_stream other;
    stream.on_write = [&](const unsigned char* data, unsigned len) { return other.__write(data, len); };
    EXPECT_EQ(write_bytes(stream, "through"), 7);
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

// ---- Writing messages ----

TEST_F(Data_stream_writing, message_is_written_with_or_without_a_newline) {
    unsigned char bytes[] = {'P', 'G', 0, 1};
    const Binary_message message(bytes, sizeof bytes);
    EXPECT_TRUE(stream.write(message, false));
    EXPECT_TRUE(stream.write(message, true));
    EXPECT_THAT(stream.writes, ElementsAre(std::string("PG\0\1", 4), std::string("PG\0\1", 4), "\n"));
}

TEST_F(Data_stream_writing, newline_follows_even_a_short_write_of_the_message) {
    unsigned char bytes[] = {'a', 'b', 'c'};
    stream.on_write = [](const unsigned char*, unsigned len) { return len == 3 ? 2 : 1; };
    EXPECT_FALSE(stream.write(Binary_message(bytes, 3), true));
    EXPECT_EQ(stream.written, "ab\n");
}

TEST_F(Data_stream_writing, message_counts_as_failed_when_its_newline_is_not_written) {
    unsigned char bytes[] = {'a', 'b', 'c'};
    stream.on_write = [](const unsigned char*, unsigned len) { return len == 3 ? 3 : 0; };
    EXPECT_FALSE(stream.write(Binary_message(bytes, 3), true));
}

// ---- Formatted writing ----

TEST_F(Data_stream_writing, printf_writes_the_text_without_its_nul) {
    EXPECT_TRUE(stream.printf("%s=%d", "rate", 10));
    EXPECT_EQ(stream.written, "rate=10");
}

TEST_F(Data_stream_writing, printf_of_255_characters_is_whole) {
    EXPECT_TRUE(stream.printf("%s", std::string(255, 'x').c_str()));
    EXPECT_EQ(stream.written, std::string(255, 'x'));
}

TEST_F(Data_stream_writing, printf_of_256_characters_or_more_writes_255_and_a_nul) {
    for (const std::size_t length : {256U, 300U, 10000U}) {
        stream.written.clear();
        EXPECT_TRUE(stream.printf("%s", std::string(length, 'x').c_str()));
        EXPECT_EQ(stream.written, std::string(255, 'x') + '\0');
    }
}

TEST_F(Data_stream_writing, printf_is_true_for_any_result_except_zero) {
    stream.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_TRUE(stream.printf("x"));
    stream.on_write = [](const unsigned char*, unsigned) { return 0; };
    EXPECT_FALSE(stream.printf("x"));
    EXPECT_FALSE(stream.printf("%s", ""));
}

TEST_F(Data_stream_writing, printf_of_a_text_that_cannot_be_formatted_writes_nothing) {
    const wchar_t no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_FALSE(stream.printf("%ls", no_character));
    EXPECT_TRUE(stream.writes.empty());
}

// ---- Copying a stream to another ----

struct Copy_test : testing::Test {
    Scripted_stream source;
    Scripted_stream destination;
    std::vector<int> results; ///< the bytes that the destination accepts, call by call; after the last one, all bytes

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

TEST_F(Copy_test, keeps_the_rest_of_a_short_write) {
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

TEST_F(Copy_test, of_wrapped_bytes_keeps_the_rest_of_a_short_second_piece) {
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

TEST_F(Copy_test, of_bytes_that_end_before_the_storage_does_traces_one_piece) {
    fill(4100, 3);
    const Captured_debug debug;
    destination.debug_writes = true;
    EXPECT_EQ(destination.write(source), 3);
    EXPECT_THAT(debug.text(), Not(HasSubstr("WR(0)")));
}

TEST_F(Copy_test, holds_only_the_source_s_lock) {
    source.use_lock();
    destination.use_lock();
    source.receive("abc");
    bool locked_as_documented = false;
    destination.on_write = [&](const unsigned char*, unsigned len) {
        locked_as_documented =
            source.lock.owner_thread() == QThread::currentThreadId() && !destination.lock.owner_thread();
        return static_cast<int>(len);
    };
    EXPECT_EQ(destination.write(source), 3);
    EXPECT_TRUE(locked_as_documented);
}

TEST_F(Copy_test, keeps_every_byte_in_order_for_random_rings) {
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

// ---- Tracing ----

TEST_F(Data_stream_writing, traced_write_shows_bytes_and_result) {
    const Captured_debug debug;
    stream.debug_writes = true;
    EXPECT_EQ(write_bytes(stream, "a\r\n"), 3);
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[a\\r\\n] (3)\n");
}

TEST_F(Data_stream_writing, untraced_write_prints_nothing) {
    const Captured_debug debug;
    write_bytes(stream, "abc");
    stream.debug_writes = true;
    stream.write_direct(bytes_of("abc"), 3);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Data_stream_writing, traced_short_write_is_reported) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.on_write = [](const unsigned char*, unsigned) { return 1; };
    write_bytes(stream, "abc");
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[abc] (1)\n!SHORT WRITE!: wrote 1 of 3\n");
}

TEST_F(Data_stream_writing, traced_result_below_minus_one_counts_as_short) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.on_write = [](const unsigned char*, unsigned) { return -2; };
    EXPECT_EQ(write_bytes(stream, "abc"), -2);
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[abc] (-2)\n!SHORT WRITE!: wrote -2 of 3\n");
}

TEST_F(Data_stream_writing, traced_failing_write_keeps_its_error_without_a_standard_error) {
    const auto fail = [this] {
        Debug::Print::set_sink([](std::string_view) {});
        stream.debug_writes = true;
        stream.on_write = [](const unsigned char*, unsigned) { return errno = ENOSPC, -1; };
        close(2);
        write_bytes(stream, "abc");
        _exit(errno == ENOSPC ? 0 : 1);
    };
    EXPECT_EXIT(fail(), testing::ExitedWithCode(0), "");
}

TEST_F(Data_stream_writing, traced_failing_write_reports_the_system_error) {
    const Captured_debug debug;
    const Captured_descriptor error_output(2);
    stream.debug_writes = true;
    stream.on_write = [](const unsigned char*, unsigned) {
        errno = ENOSPC;
        return -1;
    };
    EXPECT_EQ(write_bytes(stream, "abc"), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(error_output.text(), "error is: No space left on device\n");
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[abc] (-1)\n");
}

TEST_F(Data_stream_writing, traced_nested_write_shows_that_nothing_was_sent) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.on_write = [&](const unsigned char*, unsigned len) {
        stream.__write(bytes_of("in"), 2);
        stream.__write(bytes_of(""), 0);
        return static_cast<int>(len);
    };
    write_bytes(stream, "out");
    EXPECT_EQ(debug.text_without_times(), "<time> WR(3)[out<time> WR(2)[in] (0)\n!SHORT WRITE!: wrote 0 of 2\n"
                                          "<time> WR(0)[] (0)\n] (3)\n");
}

TEST_F(Data_stream_writing, traced_printf_shows_the_text_first) {
    const Captured_debug debug;
    stream.debug_writes = true;
    stream.printf("fix %d\n", 3);
    EXPECT_EQ(debug.text_without_times(), "fix 3\n<time> WR(6)[fix 3\\n] (6)\n");
}

TEST_F(Data_stream_writing, tracing_back_into_the_same_stream_ends) {
    stream.debug_writes = true;
    Debug::Print::set_sink(
        [this](std::string_view text) { stream.__write(bytes_of(text.data()), static_cast<unsigned>(text.size())); });
    EXPECT_EQ(write_bytes(stream, "abc"), 3);
    Debug::Print::set_sink({});
    EXPECT_THAT(stream.written, HasSubstr("abc"));
    EXPECT_THAT(stream.written, HasSubstr("] (3)\n"));
}

struct Dprint_test : Data_stream_writing {
    std::string trace(unsigned len, unsigned offset) {
        const Captured_debug debug;
        stream.dprint("tag", len, offset);
        return debug.text_without_times();
    }
    void SetUp() override { stream.receive("abcdef"); }
};

TEST_F(Dprint_test, shows_the_requested_bytes_and_keeps_them) {
    EXPECT_EQ(trace(3, 1), "<time> tag[bcd]\n");
    EXPECT_EQ(stream.buffered(), "abcdef");
    EXPECT_TRUE(stream.fetches.empty());
}

TEST_F(Dprint_test, shows_all_from_the_offset_for_a_length_of_zero_or_too_large_a_one) {
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
    EXPECT_EQ(seen, 6U); // the lock had been released
}

} // namespace
