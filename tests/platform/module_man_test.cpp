#include <platform/module_man.h>

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(module_man, counts_from_one) {
    module_man modules;
    std::int16_t id = 0;
    EXPECT_EQ(modules.init_module(&id, false), 0);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(modules.init_module(&id, true), 0);
    EXPECT_EQ(id, 2);
}

TEST(module_man, starts_again_at_one_after_the_largest_id) {
    module_man modules;
    std::int16_t id = 0;
    for (int expected = 1; expected <= 32767; ++expected) {
        ASSERT_EQ(modules.init_module(&id, false), 0);
        ASSERT_EQ(id, expected);
    }
    EXPECT_EQ(modules.init_module(&id, false), 0);
    EXPECT_EQ(id, 1);
}

TEST(module_man, gives_every_thread_its_own_ids) {
    constexpr unsigned threads = 4;
    constexpr unsigned each = 1000;
    module_man modules;
    std::vector<std::vector<std::int16_t>> ids(threads, std::vector<std::int16_t>(each));
    std::vector<std::thread> running;
    for (auto& own : ids)
        running.emplace_back([&modules, &own] {
            for (std::int16_t& id : own)
                modules.init_module(&id, false);
        });
    for (std::thread& thread : running)
        thread.join();
    std::set<std::int16_t> all;
    for (const auto& own : ids)
        all.insert(own.begin(), own.end());
    EXPECT_EQ(all.size(), threads * each);
    EXPECT_EQ(*all.begin(), 1);
    EXPECT_EQ(*all.rbegin(), static_cast<int>(threads * each));
}

} // namespace
