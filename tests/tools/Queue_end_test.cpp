#include <relay/Queue_end.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Recording_waiter.h>

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr unsigned capacity = Data_stream::rx_capacity;

struct Queue_end_test : testing::Test {
    Queue_end::Pair pair = Queue_end::make_pair(Queue_end::what_fits, Queue_end::whole_frames);
    Queue_end& loose = *pair.first;
    Queue_end& strict = *pair.second;
};

TEST_F(Queue_end_test, bytes_written_to_one_end_are_received_by_the_other) {
    EXPECT_EQ(write_bytes(loose, "there"), 5);
    EXPECT_EQ(write_bytes(strict, "back"), 4);
    EXPECT_EQ(take_buffered(strict), "there");
    EXPECT_EQ(take_buffered(loose), "back");
}

TEST_F(Queue_end_test, accepts_what_fits) {
    EXPECT_EQ(write_bytes(loose, numbered(capacity + 1)), static_cast<int>(capacity));
    EXPECT_EQ(write_bytes(loose, "x"), 0);
    EXPECT_EQ(take_buffered(strict), numbered(capacity));
}

TEST_F(Queue_end_test, accepts_a_frame_and_its_line_feed) {
    EXPECT_EQ(write_bytes(strict, numbered(capacity - 1)), static_cast<int>(capacity - 1));
    EXPECT_EQ(write_bytes(strict, "\n"), 1);
    EXPECT_EQ(write_bytes(strict, "\n"), 0); // full
    EXPECT_EQ(take_buffered(loose), numbered(capacity - 1) + "\n");
}

TEST_F(Queue_end_test, refuses_frame_and_line_feed_when_they_do_not_fit_together) {
    EXPECT_EQ(write_bytes(strict, numbered(capacity)), 0);
    EXPECT_EQ(write_bytes(strict, "\n"), 0);
    EXPECT_EQ(loose.bytes_avail(), 0U);
    EXPECT_EQ(write_bytes(strict, numbered(100)), 100);
    EXPECT_EQ(write_bytes(strict, "\n"), 1);
    EXPECT_EQ(write_bytes(strict, numbered(capacity - 101)), 0);
    EXPECT_EQ(write_bytes(strict, numbered(capacity - 102)), static_cast<int>(capacity - 102));
}

TEST_F(Queue_end_test, nothing_can_be_fetched) {
    EXPECT_TRUE(loose.bytes_avail(0U));
    EXPECT_FALSE(loose.bytes_avail(1U));
}

TEST_F(Queue_end_test, notifies_the_waiter_of_the_other_end) {
    Recording_waiter waiter;
    strict.reg_rx_waiter(waiter, false);
    write_bytes(loose, "abc");
    write_bytes(loose, numbered(capacity));
    write_bytes(loose, "lost");
    EXPECT_EQ(waiter.codes(), (std::vector<int>{Queue_end::rx_event, Queue_end::rx_full_event}));
    strict.dereg_rx_waiter();
}

} // namespace
