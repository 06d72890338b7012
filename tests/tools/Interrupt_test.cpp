#include <common/Interrupt.h>

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

bool is_readable(const Interrupt& interrupt) {
    pollfd look{interrupt.descriptor(), POLLIN, 0};
    return poll(&look, 1, 0) > 0;
}

} // namespace

TEST(Interrupt, is_readable_from_a_signal_on) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const Interrupt interrupt;
        EXPECT_FALSE(is_readable(interrupt));
        EXPECT_FALSE(interrupt.has_come());
        raise(signal);
        EXPECT_TRUE(is_readable(interrupt));
        EXPECT_TRUE(interrupt.has_come());
    }
}

TEST(Interrupt, switches_are_counted_until_they_are_taken) {
    Interrupt interrupt(true);
    raise(SIGUSR1);
    raise(SIGUSR1);
    EXPECT_TRUE(is_readable(interrupt));
    EXPECT_FALSE(interrupt.has_come());
    EXPECT_EQ(interrupt.take_switches(), 2U);
    EXPECT_FALSE(is_readable(interrupt));
    EXPECT_EQ(interrupt.take_switches(), 0U);
}

TEST(Interrupt, taking_switches_does_not_take_the_interrupt) {
    Interrupt interrupt(true);
    raise(SIGINT);
    raise(SIGUSR1);
    EXPECT_EQ(interrupt.take_switches(), 1U);
    EXPECT_TRUE(is_readable(interrupt));
    EXPECT_TRUE(interrupt.has_come());
}

TEST(Interrupt, many_signals_do_not_fill_it_up) {
    Interrupt interrupt(true);
    for (int i = 0; i < 100000; ++i)
        raise(SIGUSR1);
    EXPECT_EQ(interrupt.take_switches(), 100000U);
    EXPECT_FALSE(is_readable(interrupt));
}
