#include <glue/data_stream/Restream_data_stream_adapter.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>
#include <support/faults/Allocation_counter.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

constexpr unsigned capacity = Data_stream::rx_capacity;

class Restream : public testing::Test {
  protected:
    Scripted_stream inner;
    Restream_data_stream_adapter adapter{&inner};
};

TEST_F(Restream, is_named_as_a_plain_stream) {
    EXPECT_EQ(adapter.get_description(), plain_description(adapter));
}

TEST_F(Restream, counting_moves_everything_from_the_inner_stream) {
    inner.receive("abc");
    EXPECT_EQ(adapter.bytes_avail(), 3U);
    EXPECT_EQ(inner.bytes_avail(), 0U);
    inner.receive("de");
    EXPECT_EQ(adapter.bytes_avail(), 5U);
    EXPECT_EQ(take_buffered(adapter), "abcde");
    EXPECT_EQ(adapter.bytes_avail(), 0U);
}

TEST_F(Restream, peeking_moves_first) {
    inner.receive("abc");
    unsigned char bytes[3];
    EXPECT_TRUE(adapter.get_data(bytes, 3, 0));
    EXPECT_EQ(std::string(bytes, bytes + 3), "abc");
    EXPECT_FALSE(adapter.get_data(bytes, 3, 1));
    EXPECT_EQ(adapter.bytes_avail(), 3U);
}

TEST_F(Restream, index_reads_bytes_of_the_inner_stream) {
    inner.receive("abc");
    EXPECT_EQ(adapter[2], 'c');
}

TEST_F(Restream, dropping_moves_before_and_after) {
    inner.receive("abc");
    adapter.drop(2);
    EXPECT_EQ(take_buffered(adapter), "c");
    inner.receive("def");
    adapter.drop(100); // a fetch always reports success, so all bytes are dropped
    EXPECT_EQ(adapter.bytes_avail(), 0U);
}

TEST_F(Restream, drop_all_also_drops_bytes_of_the_inner_stream) {
    adapter.bytes_avail();
    inner.receive("abc");
    adapter.drop_all();
    EXPECT_EQ(inner.bytes_avail(), 0U);
    EXPECT_EQ(adapter.bytes_avail(), 0U);
}

TEST_F(Restream, fetch_returns_1_for_every_count) {
    for (const int n : {100, 1, 0, -1})
        EXPECT_EQ(adapter.get_data(n), 1);
    EXPECT_EQ(adapter.bytes_avail(100U), 1);
    inner.receive("abc");
    EXPECT_EQ(adapter.get_data(100), 1);
    EXPECT_EQ(inner.bytes_avail(), 0U);
}

TEST_F(Restream, does_not_make_the_inner_stream_fetch) {
    inner.will_arrive("abc");
    EXPECT_EQ(adapter.bytes_avail(), 0U);
    EXPECT_EQ(adapter.bytes_avail(1U), 1);
    adapter.drop(1);
    EXPECT_TRUE(inner.fetches.empty());
}

TEST_F(Restream, full_ring_leaves_the_rest_in_the_inner_stream) {
    Random random;
    const std::string bytes = random.bytes(capacity + 3000);
    inner.receive(bytes.substr(0, 2000));
    EXPECT_EQ(adapter.bytes_avail(), 2000U);
    inner.receive(bytes.substr(2000, 4000));
    EXPECT_EQ(adapter.bytes_avail(), capacity);
    EXPECT_EQ(inner.bytes_avail(), 6000U - capacity);
    inner.receive(bytes.substr(6000));

    std::string taken;
    while (adapter.bytes_avail() != 0)
        taken += take_buffered(adapter);
    EXPECT_EQ(taken, bytes);
}

TEST_F(Restream, drop_all_of_a_full_ring_moves_the_rest) {
    inner.receive(std::string(capacity, 'a'));
    EXPECT_EQ(adapter.bytes_avail(), capacity);
    inner.receive("xyz");
    adapter.drop_all();
    EXPECT_EQ(inner.buffered(), ""); // has moved already
    EXPECT_EQ(take_buffered(adapter), "xyz");
}

TEST_F(Restream, drop_from_a_full_ring_moves_as_many_bytes_as_fit) {
    inner.receive(std::string(capacity, 'a'));
    EXPECT_EQ(adapter.bytes_avail(), capacity);
    inner.receive("xyz");
    adapter.drop(2);
    EXPECT_EQ(inner.buffered(), "z"); // has moved already
    EXPECT_EQ(adapter[capacity - 1], 'y');
}

TEST_F(Restream, nothing_is_lost_or_reordered_over_many_wraps) {
    Random random;
    std::string sent, taken;
    for (int i = 0; i < 500; ++i) {
        const std::string piece = random.bytes(random.between(0, capacity - inner.bytes_avail()));
        inner.receive(piece);
        sent += piece;
        const unsigned count = random.between(0, adapter.bytes_avail());
        std::string bytes(count, '\0');
        ASSERT_TRUE(adapter.get_data(reinterpret_cast<unsigned char*>(bytes.data()), count, 0));
        adapter.drop(count);
        taken += bytes;
    }
    while (adapter.bytes_avail() != 0)
        taken += take_buffered(adapter);
    EXPECT_EQ(taken, sent);
}

TEST_F(Restream, reading_needs_no_heap) {
    inner.receive("abc\n");
    unsigned char bytes[4];
    const Allocation_counter allocations;
    EXPECT_EQ(adapter.bytes_avail(), 4U);
    EXPECT_TRUE(adapter.get_data(bytes, 4, 0));
    adapter.drop(4);
    adapter.drop_all();
    EXPECT_EQ(allocations.count(), 0U);
}

TEST_F(Restream, writes_reach_the_inner_stream_unchanged) {
    const std::string bytes("a\0\r\n\xFF", 5);
    EXPECT_EQ(write_bytes(adapter, bytes), 5);
    EXPECT_EQ(inner.written, bytes);
}

TEST_F(Restream, writes_return_the_result_of_the_inner_stream) {
    for (const int result : {-1, 0, 2}) {
        inner.on_write = [result](const unsigned char*, unsigned) { return result; };
        EXPECT_EQ(adapter._write(bytes_of("abc"), 3), result);
    }
    EXPECT_EQ(inner.written, "ab");
}

TEST_F(Restream, writes_are_traced_by_the_inner_stream_when_that_traces) {
    Captured_debug debug;
    inner.debug_writes = true;
    EXPECT_EQ(adapter._write(bytes_of("ab"), 2), 2);
    EXPECT_EQ(debug.text_without_times(), "<time> WR(2)[ab] (2)\n");
}

TEST_F(Restream, destructor_leaves_the_inner_stream_unchanged) {
    {
        Restream_data_stream_adapter another(&inner);
        inner.receive("abc");
    }
    EXPECT_EQ(inner.buffered(), "abc");
}

TEST_F(Restream, works_over_another_restream_adapter) {
    Restream_data_stream_adapter second(&adapter);
    inner.receive("abc");
    EXPECT_EQ(take_buffered(second), "abc");
}

TEST_F(Restream, reads_under_the_lock_of_a_derived_class) {
    class Locked : public Restream_data_stream_adapter {
      public:
        explicit Locked(Data_stream* inner_stream) : Restream_data_stream_adapter(inner_stream) {
            buffer_lock = &mutex;
        }

      private:
        Mutex mutex;
    } locked(&inner);
    inner.receive("abc");
    EXPECT_EQ(locked[5], 'a'); // fetches with the lock held
    EXPECT_EQ(take_buffered(locked), "abc");
}

} // namespace
