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

/// Destroys a stream while its thread is sending an event: the destructor has to wait for the thread, and the event has
/// to arrive.
/// \param send_bytes  makes the stream receive some bytes, once
template <typename Stream, typename Cause>
void expect_event_on_its_way_to_arrive(std::unique_ptr<Stream> stream, Cause send_bytes) {
    Recording_waiter waiter;
    Held_announcement announcement(*stream);
    stream->reg_rx_waiter(waiter, false);
    send_bytes();
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
