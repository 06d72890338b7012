#include <glue/data_stream/Loopback_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>

#include <deque>

namespace {

/// Consumes the oldest `count` bytes.
std::string consume(Data_stream& stream, unsigned count) {
    std::string bytes(count, '\0');
    EXPECT_TRUE(stream.get_data(reinterpret_cast<unsigned char*>(bytes.data()), count, 0));
    stream.drop(count);
    return bytes;
}

TEST(Loopback_data_stream, returns_the_written_bytes) {
    Loopback_data_stream loop;
    EXPECT_EQ(write_bytes(loop, "hello"), 5);
    EXPECT_EQ(write_bytes(loop, std::string("\0\xFF", 2)), 2);
    EXPECT_EQ(loop.bytes_avail(), 7U);
    EXPECT_EQ(consume(loop, 7), std::string("hello\0\xFF", 7));
    EXPECT_EQ(loop.bytes_avail(), 0U);
}

TEST(Loopback_data_stream, has_the_plain_description) {
    Loopback_data_stream loop;
    EXPECT_EQ(loop.get_description(), plain_description(loop));
}

TEST(Loopback_data_stream, only_a_fetch_of_nothing_succeeds) {
    Loopback_data_stream loop;
    EXPECT_EQ(loop._get_data(0), 1);
    EXPECT_EQ(loop._get_data(1), 0);
    EXPECT_EQ(loop._get_data(-1), 0);
    write_bytes(loop, "ab");
    EXPECT_FALSE(loop.bytes_avail(3));
    unsigned char byte[3];
    EXPECT_FALSE(loop.get_data(byte, 3, 0));
    EXPECT_EQ(loop[2], 0);
    loop.drop(3);
    EXPECT_EQ(loop.bytes_avail(), 2U);
}

TEST(Loopback_data_stream, full_stream_stores_no_more) {
    Loopback_data_stream loop;
    const std::string bytes(4200, 'x');
    EXPECT_EQ(write_bytes(loop, bytes), 4200);
    EXPECT_EQ(write_bytes(loop, "y"), 0);
    EXPECT_EQ(loop.bytes_avail(), 4200U);
    EXPECT_EQ(consume(loop, 4200), bytes);
}

TEST(Loopback_data_stream, write_that_does_not_fit_stores_a_part) {
    Loopback_data_stream loop;
    EXPECT_EQ(write_bytes(loop, std::string(4198, 'x')), 4198);
    EXPECT_EQ(write_bytes(loop, "abc"), 2);
    EXPECT_EQ(loop[4198], 'a');
    EXPECT_EQ(loop[4199], 'b');
    EXPECT_EQ(loop.bytes_avail(), 4200U);
    loop.drop(1);
    EXPECT_EQ(write_bytes(loop, "def"), 1);
}

TEST(Loopback_data_stream, write_acquires_the_lock_of_a_derived_class) {
    class Locked : public Loopback_data_stream {
      public:
        Locked() { buffer_lock = &mutex; }
        Mutex mutex;
    } loop;
    EXPECT_EQ(write_bytes(loop, "abc"), 3);
    EXPECT_EQ(consume(loop, 3), "abc");
    EXPECT_EQ(loop.mutex.owner_thread(), nullptr);
    EXPECT_DEATH(
        {
            const std::lock_guard held(loop.mutex);
            write_bytes(loop, "abc");
        },
        "takes again what it holds");
}

TEST(Loopback_data_stream, behaves_as_a_bounded_queue) {
    Random random;
    Loopback_data_stream loop;
    std::deque<char> model;
    for (int step = 0; step < 3000; ++step) {
        if (random.one_in(2)) {
            const std::string bytes = random.bytes(random.between(0, 2000));
            const std::size_t fits = std::min(bytes.size(), 4200 - model.size());
            ASSERT_EQ(write_bytes(loop, bytes), static_cast<int>(fits));
            model.insert(model.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(fits));
        } else {
            const auto count = random.between(0, static_cast<unsigned>(model.size()));
            const auto end = model.begin() + static_cast<std::ptrdiff_t>(count);
            ASSERT_EQ(consume(loop, count), std::string(model.begin(), end));
            model.erase(model.begin(), end);
        }
        ASSERT_EQ(loop.bytes_avail(), model.size());
    }
}

} // namespace
