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
bool set_policy(int new_policy) {
    const sched_param parameters{};
    return pthread_setschedparam(pthread_self(), new_policy, &parameters) == 0;
}

/// Runs in its own thread, so that a failure does not change the thread of the other tests.
template <typename Function>
void in_a_thread(Function function) {
    std::thread(function).join();
}

TEST(Scoped_priority_change, makes_a_background_thread_while_it_exists) {
    in_a_thread([] {
        ASSERT_EQ(policy(), SCHED_OTHER);
        {
            const Scoped_priority_change in_background;
            EXPECT_EQ(policy(), SCHED_BATCH);
        }
        EXPECT_EQ(policy(), SCHED_OTHER);
    });
}

TEST(Scoped_priority_change, inner_one_leaves_the_outer_one_unchanged) {
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
        const Scoped_priority_change in_background;
        in_a_thread([elsewhere] {
            set_policy(elsewhere); // a new thread inherits the policy of its creator
            const Scoped_priority_change own;
            EXPECT_EQ(policy(), SCHED_BATCH);
        });
        EXPECT_EQ(policy(), SCHED_BATCH);
    });
    EXPECT_EQ(policy(), SCHED_OTHER);
}

TEST(Scoped_priority_change, thread_with_its_own_policy_keeps_it) {
    in_a_thread([] {
        if (!set_policy(SCHED_IDLE))
            GTEST_SKIP() << "the system does not let a thread become idle";
        {
            const Scoped_priority_change in_background;
            EXPECT_EQ(policy(), SCHED_IDLE);
        }
        EXPECT_EQ(policy(), SCHED_IDLE);
        {
            const Scoped_priority_change in_background;
            set_policy(SCHED_BATCH);
        }
        EXPECT_EQ(policy(), SCHED_BATCH) << "also one that it sets meanwhile";
    });
}

} // namespace
