// The timer of the stream's thread.

#include <support/checks/Vtable_slot.h>
#include <support/checks/waiting.h>
#include <support/files/descriptors.h>
#include <support/streams/Threaded_stream.h>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

struct Posix_threaded_data_stream_timer : testing::Test {
    Pipe pipe;
    Threaded_stream stream{pipe.take_reading(), -1};
};

TEST_F(Posix_threaded_data_stream_timer, wakes_the_thread_once_after_the_time) {
    stream.start();
    const Stopwatch time;
    stream.set_timer(50);
    ASSERT_TRUE(eventually([&] { return stream.timers == 1; }));
    EXPECT_GT(time.elapsed(), 48ms); // its clock counts whole milliseconds
    EXPECT_FALSE(eventually([&] { return stream.timers > 1; }, 100ms));
}

TEST_F(Posix_threaded_data_stream_timer, wakes_a_thread_that_waits_already) {
    stream.start();
    ASSERT_TRUE(eventually([&] { return stream.flushes == 1; }));
    ASSERT_TRUE(process_rests());
    stream.set_timer(0);
    EXPECT_TRUE(eventually([&] { return stream.timers == 1; }));
}

TEST_F(Posix_threaded_data_stream_timer, replaces_an_earlier_setting) {
    stream.start();
    stream.set_timer(600000);
    stream.set_timer(0);
    EXPECT_TRUE(eventually([&] { return stream.timers == 1; }));
}

TEST_F(Posix_threaded_data_stream_timer, is_kept_until_there_is_a_thread) {
    stream.set_timer(0);
    EXPECT_EQ(stream.timers, 0);
    stream.start();
    EXPECT_TRUE(eventually([&] { return stream.timers == 1; }));
}

TEST_F(Posix_threaded_data_stream_timer, can_be_set_again_in_its_handler) {
    stream.on_timer = [this] {
        if (stream.timers < 5)
            stream.set_timer(1);
    };
    stream.start();
    stream.set_timer(1);
    EXPECT_TRUE(eventually([&] { return stream.timers == 5; }));
    EXPECT_FALSE(eventually([&] { return stream.timers > 5; }, 50ms));
}

TEST_F(Posix_threaded_data_stream_timer, lets_the_thread_wait_and_does_not_delay_its_end) {
    stream.start();
    stream.set_timer(600000);
    EXPECT_TRUE(process_rests());
    const Stopwatch time;
    stream.stop();
    EXPECT_LT(time.elapsed(), 60s);
    EXPECT_EQ(stream.timers, 0);
}

TEST_F(Posix_threaded_data_stream_timer, bytes_arrive_while_it_is_set) {
    stream.start();
    stream.set_timer(600000);
    write_all(pipe.writing(), "abc");
    EXPECT_TRUE(eventually([&] { return stream.bytes_avail() == 3; }));
}

TEST(Posix_threaded_data_stream_timer_slot, directly_follows_the_other_virtual_operations) {
    struct Slots : Posix_threaded_data_stream {
        static std::size_t timer() { return vtable_slot(&Slots::handle_timer); }
    };
    EXPECT_GT(Slots::timer(), vtable_slot(&Posix_threaded_data_stream::handle_close));
    EXPECT_EQ(Slots::timer(), vtable_slot(&Posix_threaded_data_stream::send_rx_event) + 1);
}

} // namespace
