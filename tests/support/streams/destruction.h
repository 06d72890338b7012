#pragma once

#include <support/checks/waiting.h>
#include <support/fakes/Held_announcement.h>
#include <support/fakes/Recording_waiter.h>

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

/// Destroys a stream while its thread is on the way to the waiter with an event: the destructor has to wait for it, and
/// the event has to arrive all the same.
/// \param make_bytes_come  makes the stream receive something, once
template <typename Stream, typename Cause>
void expect_event_on_its_way_to_arrive(std::unique_ptr<Stream> stream, Cause make_bytes_come) {
    Recording_waiter waiter;
    Held_announcement announcement(*stream);
    stream->reg_rx_waiter(waiter, false);
    make_bytes_come();
    announcement.wait_until_inside();

    std::atomic<bool> destroyed{false};
    std::thread destroys([&] {
        stream.reset();
        destroyed = true;
    });
    EXPECT_FALSE(eventually([&] { return destroyed.load(); }, std::chrono::milliseconds(50)));
    EXPECT_TRUE(waiter.codes().empty());
    announcement.release();
    destroys.join();
    EXPECT_EQ(waiter.codes(), std::vector<int>{0});
}
