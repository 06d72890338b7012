#include <glue/data_stream/Line_data_stream_adapter.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Enabled_category.h>
#include <support/fakes/Scripted_stream.h>
#include <support/fakes/Stopped_clock.h>
#include <support/faults/Allocation_counter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace {

constexpr unsigned capacity = Data_stream::rx_capacity;
constexpr int timeout_ms = 500;

class Line_adapter : public testing::Test {
  protected:
    /// The bytes that are released now.
    std::string released() { return take_buffered(adapter); }
    /// Causes a release now, so that the time-out begins now.
    void release_something() {
        inner.receive("\rstart\r");
        EXPECT_EQ(released(), "\rstart\r");
    }

    Stopped_clock clock;
    Scripted_stream inner;
    Line_data_stream_adapter adapter{timeout_ms, &inner};
};

TEST_F(Line_adapter, is_named_as_a_plain_stream) {
    EXPECT_EQ(adapter.get_description(), plain_description(adapter));
}

TEST_F(Line_adapter, line_is_released_when_its_end_has_arrived) {
    inner.receive("abc");
    EXPECT_EQ(adapter.bytes_avail(), 0U);
    EXPECT_EQ(inner.bytes_avail(), 0U); // staged
    inner.receive("d\r\n");
    EXPECT_EQ(released(), "abcd\r\n");
}

TEST_F(Line_adapter, each_kind_of_line_end_completes_a_line) {
    for (const char* end : {"\r", "\n", "\r\n", "\n\r", "\r\r\n\n"}) {
        inner.receive(std::string("abc") + end);
        EXPECT_EQ(released(), std::string("abc") + end);
    }
}

TEST_F(Line_adapter, last_byte_of_a_line_end_stays_staged_when_the_next_line_has_begun) {
    inner.receive("abc\r\nd");
    EXPECT_EQ(released(), "abc\r");
    EXPECT_EQ(released(), "");
    inner.receive("\r");
    EXPECT_EQ(released(), "\nd\r");
}

TEST_F(Line_adapter, line_end_of_one_byte_begins_the_next_line) {
    inner.receive("abc\rdef\rghi\r");
    EXPECT_EQ(adapter.bytes_avail(), 3U);
    EXPECT_EQ(adapter[0], 'a');
    EXPECT_EQ(adapter.bytes_avail(), 7U); // "abc" alone is not a complete line, so the next one is released, too
    EXPECT_EQ(adapter.bytes_avail(), 7U); // with CR and "def" the ring holds a complete line
    adapter.drop(7);
    EXPECT_EQ(released(), "\rghi\r");
}

TEST_F(Line_adapter, line_ends_alone_are_no_line) {
    inner.receive("\r\n\r\n");
    EXPECT_EQ(released(), "");
    inner.receive("a\n");
    EXPECT_EQ(released(), "\r\n\r\na\n");
}

TEST_F(Line_adapter, no_line_is_released_while_a_complete_one_is_unread) {
    inner.receive("abc\r\n");
    EXPECT_EQ(adapter.bytes_avail(), 5U);
    inner.receive("def\r\n");
    EXPECT_EQ(adapter.bytes_avail(), 5U);
    EXPECT_EQ(inner.bytes_avail(), 5U); // not even staged
    adapter.drop(5);                    // refills
    EXPECT_EQ(inner.bytes_avail(), 0U);
    EXPECT_EQ(released(), "def\r\n");
}

TEST_F(Line_adapter, incomplete_line_is_released_after_the_time_out_since_construction) {
    inner.receive("abc");
    clock.advance(timeout_ms);
    EXPECT_EQ(released(), "");
    clock.advance(1);
    EXPECT_EQ(released(), "abc");
}

TEST_F(Line_adapter, incomplete_line_is_released_after_the_time_out_since_the_last_release) {
    clock.advance(timeout_ms);
    release_something();
    inner.receive("abc");
    clock.advance(timeout_ms);
    EXPECT_EQ(released(), "");
    clock.advance(1);
    EXPECT_EQ(released(), "abc");
    inner.receive("de"); // the time-out begins with that release
    clock.advance(timeout_ms);
    EXPECT_EQ(released(), "");
    clock.advance(1);
    EXPECT_EQ(released(), "de");
}

TEST_F(Line_adapter, time_out_without_staged_bytes_does_not_restart) {
    clock.advance(timeout_ms + 1);
    EXPECT_EQ(released(), "");
    inner.receive("abc");
    EXPECT_EQ(released(), "abc");
}

TEST_F(Line_adapter, negative_time_out_releases_everything_at_once) {
    for (const int ms : {-1, std::numeric_limits<int>::min()}) {
        Line_data_stream_adapter impatient(ms, &inner);
        inner.receive("abc");
        EXPECT_EQ(take_buffered(impatient), "abc") << ms;
    }
}

TEST_F(Line_adapter, clock_that_goes_back_delays_incomplete_lines) {
    inner.receive("abc");
    clock.advance(-10000);
    EXPECT_EQ(released(), "");
}

TEST_F(Line_adapter, full_staging_ring_waits_for_the_time_out_even_with_lines_in_it) {
    Random random;
    std::string bytes = "line\r\n" + random.bytes(capacity - 6);
    inner.receive(bytes);
    EXPECT_EQ(adapter.bytes_avail(), 0U);
    inner.receive("more");
    EXPECT_EQ(adapter.bytes_avail(), 0U);
    EXPECT_EQ(inner.buffered(), "more"); // does not fit
    clock.advance(timeout_ms + 1);
    EXPECT_EQ(adapter.bytes_avail(), capacity);
    std::string taken(capacity, '\0');
    ASSERT_TRUE(adapter.get_data(reinterpret_cast<unsigned char*>(taken.data()), capacity, 0));
    EXPECT_EQ(taken, bytes);
    adapter.drop_all();
    clock.advance(timeout_ms + 1);
    EXPECT_EQ(released(), "more");
}

TEST_F(Line_adapter, staging_ring_with_one_free_byte_yields_its_line) {
    inner.receive(std::string(capacity - 2, 'a') + "\n");
    EXPECT_EQ(adapter.bytes_avail(), capacity - 1);
}

TEST_F(Line_adapter, bytes_that_do_not_fit_when_released_are_lost) {
    inner.receive(std::string(capacity - 2, 'a'));
    clock.advance(timeout_ms + 1);
    EXPECT_EQ(adapter.bytes_avail(), capacity - 2);
    inner.receive("123\n");
    EXPECT_EQ(adapter.bytes_avail(), capacity);
    EXPECT_EQ(adapter[capacity - 1], '2');
    inner.receive("xyz\n"); // a full ring yields no line, so this one is released and lost, too
    EXPECT_EQ(adapter.bytes_avail(), capacity);
    EXPECT_EQ(inner.bytes_avail(), 0U);
    adapter.drop_all();
    EXPECT_EQ(released(), "");
}

TEST_F(Line_adapter, peeking_and_index_refill) {
    inner.receive("abc\n");
    unsigned char bytes[4];
    EXPECT_TRUE(adapter.get_data(bytes, 4, 0));
    EXPECT_EQ(std::string(bytes, bytes + 4), "abc\n");
    adapter.drop(4);
    inner.receive("x\n");
    EXPECT_EQ(adapter[0], 'x');
}

TEST_F(Line_adapter, fetch_counts_all_bytes_in_the_ring) {
    inner.receive("abc\n");
    EXPECT_EQ(adapter._get_data(4), 1);
    EXPECT_EQ(adapter._get_data(5), 0);
    EXPECT_EQ(adapter._get_data(0), 1);
    EXPECT_EQ(adapter._get_data(-1), 0);
    adapter.drop_all();
    inner.receive(std::string(capacity, 'x'));
    clock.advance(timeout_ms + 1);
    EXPECT_EQ(adapter._get_data(static_cast<int>(capacity)), 1);
    EXPECT_EQ(adapter._get_data(static_cast<int>(capacity) + 1), 0);
}

TEST_F(Line_adapter, string_avail_finds_one_line_after_the_other) {
    inner.receive("first\r\nsecond\r\n");
    EXPECT_EQ(adapter.string_avail(), 5U);
    adapter.drop(5);
    EXPECT_EQ(adapter.string_avail(), 6U);
}

TEST_F(Line_adapter, drop_of_more_than_buffered_refills_once_and_drops_nothing) {
    inner.receive("abc\n");
    adapter.drop(10);
    EXPECT_EQ(released(), "abc\n");
}

TEST_F(Line_adapter, drop_all_keeps_staged_bytes) {
    inner.receive("abc\rdef\n");
    EXPECT_EQ(adapter.bytes_avail(), 3U);
    adapter.drop_all();
    EXPECT_EQ(released(), "\rdef\n");
}

TEST_F(Line_adapter, does_not_make_the_inner_stream_fetch) {
    inner.will_arrive("abc\n");
    EXPECT_EQ(adapter.bytes_avail(), 0U);
    EXPECT_EQ(adapter.bytes_avail(1U), 0);
    EXPECT_TRUE(inner.fetches.empty());
}

TEST_F(Line_adapter, reading_needs_no_heap) {
    adapter.drop_all(); // the debug printer is constructed at its first use
    inner.receive("abc\n");
    unsigned char bytes[4];
    const Allocation_counter allocations;
    EXPECT_EQ(adapter.bytes_avail(), 4U);
    EXPECT_TRUE(adapter.get_data(bytes, 4, 0));
    adapter.drop(4);
    adapter.drop_all();
    EXPECT_EQ(allocations.count(), 0U);
}

TEST_F(Line_adapter, writes_reach_the_inner_stream_unchanged) {
    EXPECT_EQ(write_bytes(adapter, "ab\r\n"), 4);
    EXPECT_EQ(inner.written, "ab\r\n");
    for (const int result : {-1, 0, 2}) {
        inner.on_write = [result](const unsigned char*, unsigned) { return result; };
        EXPECT_EQ(adapter._write(bytes_of("abc"), 3), result);
    }
}

TEST_F(Line_adapter, writes_are_traced_by_the_inner_stream_when_that_traces) {
    Captured_debug debug;
    inner.debug_writes = true;
    EXPECT_EQ(adapter._write(bytes_of("ab"), 2), 2);
    EXPECT_EQ(debug.text_without_times(), "<time> WR(2)[ab] (2)\n");
}

TEST_F(Line_adapter, destructor_leaves_the_inner_stream_unchanged) {
    {
        Line_data_stream_adapter another(timeout_ms, &inner);
        inner.receive("abc");
    }
    EXPECT_EQ(inner.buffered(), "abc");
}

TEST_F(Line_adapter, refills_under_the_lock_of_a_derived_class) {
    class Locked : public Line_data_stream_adapter {
      public:
        explicit Locked(Data_stream* inner_stream) : Line_data_stream_adapter(timeout_ms, inner_stream) {
            buffer_lock = &mutex;
        }
        Mutex mutex;
    };
    /// An inner stream that records whether the lock is held when its bytes are counted.
    class Watching : public Scripted_stream {
      public:
        unsigned int bytes_avail() override {
            counted_unlocked |= watched && watched->owner_thread() == nullptr;
            ++counts;
            return Data_stream::bytes_avail();
        }
        const Mutex* watched = nullptr;
        bool counted_unlocked = false;
        int counts = 0;
    } watching;
    Locked locked(&watching);
    watching.watched = &locked.mutex;

    const std::function<void()> operations[] = {
        [&] { locked.bytes_avail(); },
        [&] {
            unsigned char byte;
            locked.get_data(&byte, 1, 0);
        },
        [&] { locked.drop(1); },
        [&] { locked.drop_all(); },
        [&] { EXPECT_EQ(locked[9], 0); }, // fetches with the lock held
    };
    for (const auto& operation : operations) {
        watching.counts = 0;
        operation();
        EXPECT_GT(watching.counts, 0);
        EXPECT_FALSE(watching.counted_unlocked);
        EXPECT_EQ(locked.mutex.owner_thread(), nullptr);
    }
}

TEST_F(Line_adapter, traces_staging_and_forwarding) {
    const Enabled_category traces(105);
    Captured_debug debug;
    inner.receive("ab\tc");
    adapter.bytes_avail();
    EXPECT_EQ(debug.text_without_times(), "<time> Line adaptor: raw has 4\n"
                                          "<time> Line adaptor: staging : ab\\tc\n");
    clock.advance(timeout_ms + 1);
    adapter.bytes_avail();
    EXPECT_EQ(debug.text_without_times(), "<time> Line adaptor: raw has 4\n"
                                          "<time> Line adaptor: staging : ab\\tc\n"
                                          "<time> Line adaptor: staging : ab\\tc\n"
                                          "<time> Line adaptor: Fwding incomplete line.\n");
}

TEST_F(Line_adapter, traces_drop_all) {
    const Enabled_category traces(105);
    Captured_debug debug;
    adapter.drop_all();
    EXPECT_EQ(debug.text_without_times(), "<time> Line adaptor: drop_all.\n");
}

TEST_F(Line_adapter, traces_forwarding_even_without_staged_bytes) {
    const Enabled_category traces(105);
    Captured_debug debug;
    clock.advance(timeout_ms + 1);
    adapter.bytes_avail();
    EXPECT_EQ(debug.text_without_times(), "<time> Line adaptor: Fwding incomplete line.\n");
}

TEST_F(Line_adapter, prints_nothing_without_the_category) {
    Captured_debug debug;
    inner.receive("abc\nd");
    clock.advance(timeout_ms + 1);
    adapter.bytes_avail();
    adapter.drop_all();
    EXPECT_EQ(debug.text(), "");
}

/// The same rules on strings.
struct Line_model {
    static unsigned end_of_line(const std::string& bytes) {
        if (bytes.size() == capacity)
            return 0;
        const auto content = bytes.find_first_not_of("\r\n");
        const auto end = content == std::string::npos ? content : bytes.find_first_of("\r\n", content);
        if (end == std::string::npos)
            return 0;
        const auto next = bytes.find_first_not_of("\r\n", end);
        return static_cast<unsigned>(next == std::string::npos ? bytes.size() : next - 1);
    }

    void refill() {
        if (end_of_line(ring) != 0)
            return;
        const auto moved = std::min(inner.size(), capacity - staging.size());
        staging += inner.substr(0, moved);
        inner.erase(0, moved);
        std::size_t count = end_of_line(staging);
        if (count == 0 && now - last_release > timeout_ms)
            count = staging.size();
        if (count == 0)
            return;
        last_release = now;
        ring += staging.substr(0, std::min(count, capacity - ring.size()));
        staging.erase(0, count);
    }

    std::string inner, staging, ring;
    int now = 0, last_release = 0;
};

TEST_F(Line_adapter, adapter_and_model_agree_on_random_text) {
    Random random;
    Line_model model;
    for (int step = 0; step < 20000; ++step) {
        std::string piece;
        const unsigned free_space = capacity - inner.bytes_avail();
        const unsigned longest = random.one_in(50) ? 3000 : 12;
        for (unsigned count = random.between(0, std::min(free_space, longest)); count != 0; --count)
            piece += random.one_in(longest == 12 ? 4 : 2000) ? "\r\n"[random.between(0, 1)] : 'x';
        inner.receive(piece);
        model.inner += piece;
        if (random.one_in(5)) {
            const int ms = static_cast<int>(random.between(0, 300));
            clock.advance(ms);
            model.now += ms;
        }
        model.refill();
        ASSERT_EQ(adapter.bytes_avail(), model.ring.size()) << "step " << step;
        if (random.one_in(3)) {
            const auto count = random.between(0, static_cast<unsigned>(model.ring.size()));
            std::string bytes(count, '\0');
            model.refill(); // the peek refills
            ASSERT_TRUE(adapter.get_data(reinterpret_cast<unsigned char*>(bytes.data()), count, 0));
            ASSERT_EQ(bytes, model.ring.substr(0, count));
            adapter.drop(count);
            model.ring.erase(0, count);
            model.refill();
        }
    }
}

} // namespace
