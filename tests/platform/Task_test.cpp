#include <platform/Task.h>

#include <atomic>
#include <gtest/gtest.h>
#include <pthread.h>

namespace {

void* store_own_name(void* name) {
    pthread_getname_np(pthread_self(), static_cast<char*>(name), 16);
    return nullptr;
}

std::string name_of_thread(const std::string& task_name) {
    char seen[16] = "";
    Task task(task_name, 5120, 0, 0);
    EXPECT_TRUE(task.vro_start(44, store_own_name, seen, false));
    task.join();
    return seen;
}

TEST(Task_test, thread_has_the_name_after_a_prefix) {
    EXPECT_EQ(name_of_thread("TCP"), "vro.TCP");
    EXPECT_EQ(name_of_thread("a name that is too long"), "vro.a name that");
}

TEST(Task_test, starts_once) {
    std::atomic<int> runs{0};
    Task task("TCP");
    const auto count = [](void* counter) -> void* {
        ++*static_cast<std::atomic<int>*>(counter);
        return nullptr;
    };
    EXPECT_TRUE(task.vro_start(0, count, &runs, false));
    EXPECT_FALSE(task.vro_start(0, count, &runs, false));
    task.join();
    EXPECT_EQ(runs, 1);
}

TEST(Task_test, destruction_waits_for_the_end_of_the_entry) {
    std::atomic<bool> go{false};
    bool ended = false;
    struct Shared {
        std::atomic<bool>& go;
        bool& ended;
    } shared{go, ended};
    {
        Task task("TCP");
        task.vro_start(
            0,
            [](void* argument) -> void* {
                const auto* given = static_cast<Shared*>(argument);
                while (!given->go)
                    sched_yield();
                given->ended = true;
                return nullptr;
            },
            &shared, false);
        go = true;
    }
    EXPECT_TRUE(ended);
}

TEST(Task_test, without_a_thread_is_destroyed_at_once) {
    const Task task("TCP");
}

} // namespace
