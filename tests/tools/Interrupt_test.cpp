#include <common/Interrupt.h>

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

bool is_readable(const Interrupt& interrupt) {
    pollfd watched{interrupt.descriptor(), POLLIN, 0};
    return poll(&watched, 1, 0) > 0;
}

} // namespace

TEST(Interrupt, signal_makes_it_readable) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const Interrupt interrupt;
        EXPECT_FALSE(is_readable(interrupt));
        EXPECT_FALSE(interrupt.is_requested());
        raise(signal);
        EXPECT_TRUE(is_readable(interrupt));
        EXPECT_TRUE(interrupt.is_requested());
    }
}

TEST(Interrupt, counts_switches_until_they_are_taken) {
    Interrupt interrupt(true);
    raise(SIGUSR1);
    raise(SIGUSR1);
    EXPECT_TRUE(is_readable(interrupt));
    EXPECT_FALSE(interrupt.is_requested());
    EXPECT_EQ(interrupt.take_switches(), 2U);
    EXPECT_FALSE(is_readable(interrupt));
    EXPECT_EQ(interrupt.take_switches(), 0U);
}

TEST(Interrupt, taking_switches_keeps_the_interrupt) {
    Interrupt interrupt(true);
    raise(SIGINT);
    raise(SIGUSR1);
    EXPECT_EQ(interrupt.take_switches(), 1U);
    EXPECT_TRUE(is_readable(interrupt));
    EXPECT_TRUE(interrupt.is_requested());
}

TEST(Interrupt, counts_more_signals_than_its_pipe_holds) {
    Interrupt interrupt(true);
    for (int i = 0; i < 100000; ++i)
        raise(SIGUSR1);
    EXPECT_EQ(interrupt.take_switches(), 100000U);
    EXPECT_FALSE(is_readable(interrupt));
}
