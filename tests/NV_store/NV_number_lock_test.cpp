#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <support/settings/acquired_locks.h>

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using namespace NV_store;

struct NV_number_lock : testing::Test {
    NV_number_lock() { root._set_root(&root); }

    NV_root root{nullptr, 0, "root"};
    NV_number<int, 9> number{&root, 1, 5, "number"};
    NV_number<int, 9> other{&root, 2, 6, "other"};
};
using NV_number_lock_DeathTest = NV_number_lock;

TEST_F(NV_number_lock_DeathTest, is_acquired_by_operations_without_an_underscore) {
    int low = 0;
    int high = 0;
    const std::vector<std::function<void()>> operations = {
        [&] { number.get(); },
        [&] { number.get_range(low, high); },
        [&] { number.set(6); },
        [&] { number = 6; },
        [&] { number = other; },
        [&] { number.set(other); },
        [&] { number += 1; },
        [&] { number -= 1; },
        [&] { number++; },
        [&] { (void)(number - other); },
        [&] { (void)(number == 5); },
        [&] { (void)(number == other); },
    };
    expect_each_acquires_the_lock(root, operations);
}

TEST_F(NV_number_lock_DeathTest, of_another_tree_is_acquired_to_read_its_number) {
    NV_root elsewhere(nullptr, 0, "elsewhere");
    const NV_number<int, 9> there(&elsewhere, 1, 7, "there");
    EXPECT_DEATH(
        {
            elsewhere.lock();
            number.set(there);
        },
        "");
}

TEST_F(NV_number_lock, is_left_to_the_caller_by_all_others) {
    const NV_lock held(root);
    char text[8];
    EXPECT_EQ(number._get(), 5);
    EXPECT_TRUE(number._set(6));
    EXPECT_TRUE(number._set(7, notify_all));
    EXPECT_TRUE(number._set(other, notify_all));
    EXPECT_TRUE(number.set_default(true));
    EXPECT_TRUE(number == "5");
    EXPECT_EQ(number._to_string(text, sizeof text), 1);
    EXPECT_NE(number._from_string("8"), nullptr);
    EXPECT_EQ(number.get_default(), 5);
}

TEST_F(NV_number_lock, is_held_during_notifications) {
    int notifications = 0;
    QObject::connect(&number, qOverload<>(&NV_item::value_changed), [&] {
        EXPECT_EQ(root.mutex().owner_thread(), QThread::currentThreadId());
        EXPECT_EQ(number._get(), ++notifications);
    });
    number.set(1);
    number = 2;
    number += 1;
    number++;
    EXPECT_EQ(notifications, 4);
}

TEST_F(NV_number_lock, makes_counting_by_several_threads_exact) {
    constexpr int threads = 3;
    constexpr int each = 2000;
    std::vector<std::thread> running;
    number.set(0);
    for (int i = 0; i < threads; ++i)
        running.emplace_back([this] {
            for (int n = 0; n < each; ++n) {
                number++;
                number += 2;
                number -= 1;
                other.set(number);
            }
        });
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(number.get(), threads * each * 2);
}

TEST_F(NV_number_lock, is_held_from_reading_another_number_of_the_tree_to_setting_this_one) {
    constexpr int rounds = 300000;
    std::atomic<bool> done{false};
    number.set(other);
    std::thread copying([this, &done] {
        for (int i = 0; i < rounds; ++i)
            number.set(other);
        done = true;
    });
    int undone = 0;
    for (int i = 0; !done; ++i) {
        const NV_lock held(root);
        undone += number._get() != other._get();
        number._set(i);
        other._set(i);
    }
    copying.join();
    EXPECT_EQ(undone, 0); // a copy never undoes what both were set to meanwhile
}

} // namespace
