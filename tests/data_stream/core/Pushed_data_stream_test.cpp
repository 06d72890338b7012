#include <glue/data_stream/Pushed_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>

#include <mutex>

namespace {

/// The smallest stream of its kind: a test pushes bytes into its ring.
class Pushed : public Pushed_data_stream {
  public:
    Pushed() : Pushed_data_stream(nullptr, mutex) {}

    void push(const std::string& bytes) {
        const std::lock_guard guard(*this);
        rx_buffer.append(bytes_of(bytes), static_cast<unsigned>(bytes.size()));
        send_rx_event(rx_buffer.full());
    }
    using Data_stream::get_data;
    int get_data(int n) override { return fetch_nothing(n); }
    int _write(const unsigned char*, unsigned int) override { return 0; }

    Mutex mutex;
};

struct Pushed_data_stream_test : testing::Test {
    bool is_locked() const { return stream.mutex.owner_thread() != nullptr; }

    Pushed stream;
};

TEST_F(Pushed_data_stream_test, lock_is_the_one_of_the_ring) {
    stream.lock();
    EXPECT_TRUE(is_locked());
    stream.unlock();
    EXPECT_FALSE(is_locked());
    EXPECT_DEATH(
        {
            const std::lock_guard guard(stream);
            stream.bytes_avail();
        },
        "takes again what it holds");
}

TEST_F(Pushed_data_stream_test, registration_acquires_the_lock) {
    Recording_waiter waiter;
    EXPECT_DEATH(
        {
            const std::lock_guard guard(stream);
            stream.reg_rx_waiter(waiter, false);
        },
        "takes again what it holds");
    stream.reg_rx_waiter(waiter, false);
    EXPECT_FALSE(is_locked());
    stream.push("abc");
    EXPECT_EQ(waiter.codes(), std::vector<int>{Pushed::rx_event});
    stream.dereg_rx_waiter();
}

TEST_F(Pushed_data_stream_test, only_a_fetch_of_nothing_succeeds) {
    stream.push("abc");
    EXPECT_TRUE(stream.bytes_avail(3U));
    EXPECT_FALSE(stream.bytes_avail(4U));
    for (const int n : {-1, 1})
        EXPECT_EQ(stream.get_data(n), 0) << n;
    EXPECT_EQ(stream.get_data(0), 1);
    EXPECT_EQ(take_buffered(stream), "abc");
}

} // namespace
