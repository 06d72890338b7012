#include <platform/Scoped_priority_change.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <thread>

namespace {

int policy() {
    int present = -1;
    sched_param parameters{};
    EXPECT_EQ(pthread_getschedparam(pthread_self(), &present, &parameters), 0);
    return present;
}

/// Sets the calling thread's policy to one without a priority.
bool set_policy(int wanted) {
    const sched_param parameters{};
    return pthread_setschedparam(pthread_self(), wanted, &parameters) == 0;
}

/// Runs in a thread of its own, so that a failure leaves the other tests' thread as it is.
template <typename Function>
void in_a_thread(Function function) {
    std::thread(function).join();
}

TEST(Scoped_priority_change, steps_back_while_it_lives) {
    in_a_thread([] {
        ASSERT_EQ(policy(), SCHED_OTHER);
        {
            const Scoped_priority_change behind_others;
            EXPECT_EQ(policy(), SCHED_BATCH);
        }
        EXPECT_EQ(policy(), SCHED_OTHER);
    });
}

TEST(Scoped_priority_change, inner_one_leaves_the_outer_one_alone) {
    in_a_thread([] {
        {
            const Scoped_priority_change outer;
            {
                const Scoped_priority_change inner;
                EXPECT_EQ(policy(), SCHED_BATCH);
            }
            EXPECT_EQ(policy(), SCHED_BATCH);
        }
        EXPECT_EQ(policy(), SCHED_OTHER);
    });
}

TEST(Scoped_priority_change, concerns_the_calling_thread_only) {
    in_a_thread([] {
        const int elsewhere = policy();
        const Scoped_priority_change behind_others;
        in_a_thread([elsewhere] {
            set_policy(elsewhere); // new threads inherit: from here on this one is on its own
            const Scoped_priority_change own;
            EXPECT_EQ(policy(), SCHED_BATCH);
        });
        EXPECT_EQ(policy(), SCHED_BATCH);
    });
    EXPECT_EQ(policy(), SCHED_OTHER);
}

TEST(Scoped_priority_change, thread_with_a_policy_of_its_own_keeps_it) {
    in_a_thread([] {
        if (!set_policy(SCHED_IDLE))
            GTEST_SKIP() << "the system does not let a thread become idle";
        {
            const Scoped_priority_change behind_others;
            EXPECT_EQ(policy(), SCHED_IDLE);
        }
        EXPECT_EQ(policy(), SCHED_IDLE);
        {
            const Scoped_priority_change behind_others;
            set_policy(SCHED_BATCH);
        }
        EXPECT_EQ(policy(), SCHED_BATCH) << "also one that it takes meanwhile";
    });
}

} // namespace
