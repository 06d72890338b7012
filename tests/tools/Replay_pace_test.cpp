#include <monitor/Replay_pace.h>

#include <support/fakes/Stopped_clock.h>

#include <gtest/gtest.h>

namespace {

/// Milliseconds from now until an epoch is due.
std::int64_t wait_for(Replay_pace& pace, std::int64_t ms_of_day) {
    const Atime due = pace.due(ms_of_day);
    return due - Atime::now();
}

} // namespace

TEST(Replay_pace, first_epoch_is_due_at_once) {
    const Stopped_clock clock;
    for (const std::int64_t first : {0, 1000, 86399999}) {
        Replay_pace pace(1);
        EXPECT_EQ(wait_for(pace, first), 0);
    }
}

TEST(Replay_pace, epochs_are_due_at_their_recorded_distances) {
    const Stopped_clock clock;
    Replay_pace pace(1);
    pace.due(5000);
    EXPECT_EQ(wait_for(pace, 5100), 100);
    EXPECT_EQ(wait_for(pace, 5250), 250);
    EXPECT_EQ(wait_for(pace, 5250), 250) << "for the same epoch again";
}

TEST(Replay_pace, speed_divides_the_waits) {
    const Stopped_clock clock;
    Replay_pace fast(10);
    fast.due(0);
    EXPECT_EQ(wait_for(fast, 1000), 100);
    Replay_pace slow(0.5);
    slow.due(0);
    EXPECT_EQ(wait_for(slow, 1000), 2000);
}

TEST(Replay_pace, rounding_does_not_add_up) {
    const Stopped_clock clock;
    Replay_pace pace(3);
    std::int64_t last = 0;
    for (std::int64_t ms = 0; ms <= 100000; ms += 100)
        last = wait_for(pace, ms);
    EXPECT_EQ(last, 33333);
}

TEST(Replay_pace, late_replay_catches_up) {
    Stopped_clock clock;
    Replay_pace pace(1);
    pace.due(0);
    clock.advance(250);
    EXPECT_EQ(wait_for(pace, 100), -150);
    EXPECT_EQ(wait_for(pace, 300), 50);
}

TEST(Replay_pace, day_begins_again_at_midnight) {
    const Stopped_clock clock;
    Replay_pace pace(1);
    pace.due(86399900);
    EXPECT_EQ(wait_for(pace, 0), 100);
    EXPECT_EQ(wait_for(pace, 100), 200);
}

TEST(Replay_pace, waits_for_a_gap_of_an_hour_but_not_for_a_longer_one) {
    const Stopped_clock clock;
    Replay_pace pace(1);
    pace.due(0);
    EXPECT_EQ(wait_for(pace, 3600000), 3600000);
    EXPECT_EQ(wait_for(pace, 3600000 + 3600001), 0);
    EXPECT_EQ(wait_for(pace, 3600000 + 3600101), 100) << "counted from that epoch";
}

TEST(Replay_pace, step_back_starts_the_count_again) {
    const Stopped_clock clock;
    Replay_pace pace(1);
    pace.due(50000);
    EXPECT_EQ(wait_for(pace, 49999), 0);
    EXPECT_EQ(wait_for(pace, 50099), 100);
}

TEST(Replay_pace, without_a_speed_there_is_no_wait) {
    const Stopped_clock clock;
    Replay_pace pace(0);
    for (const std::int64_t ms : {0, 1000, 50000, 100})
        EXPECT_EQ(wait_for(pace, ms), 0);
}
