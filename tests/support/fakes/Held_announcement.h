#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <support/checks/waiting.h>

#include <atomic>
#include <gtest/gtest.h>

/// Blocks the thread that announces received bytes, before it notifies the waiter, until `release`. Construct it before
/// bytes can arrive, and destroy it after the stream.
class Held_announcement {
  public:
    explicit Held_announcement(Event_sender_data_stream& stream) {
        stream.set_rx_callback([this] {
            inside_ = true;
            eventually([this] { return released_.load(); });
        });
    }
    Held_announcement(const Held_announcement&) = delete;
    Held_announcement& operator=(const Held_announcement&) = delete;

    void wait_until_inside() const {
        EXPECT_TRUE(eventually([this] { return inside_.load(); }));
    }
    void release() { released_ = true; }

  private:
    std::atomic<bool> inside_{false};
    std::atomic<bool> released_{false};
};
