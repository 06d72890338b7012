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

TEST(module_man, assigns_different_ids_to_different_threads) {
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

// ---- Several consecutive ids ----

TEST(module_man, assigns_several_consecutive_ids) {
    module_man modules;
    std::int16_t id = 0;
    std::uint16_t ids[] = {0, 0, 0, 0, 0, 99};
    modules.init_module(&id, false);
    EXPECT_EQ(modules.init_module_array(ids, 5, true), 0);
    EXPECT_EQ(std::vector<int>(ids, ids + 6), (std::vector<int>{2, 3, 4, 5, 6, 99}));
    modules.init_module(&id, false);
    EXPECT_EQ(id, 7);
}

TEST(module_man, starts_again_at_one_when_several_do_not_fit_up_to_the_largest_id) {
    module_man modules;
    std::vector<std::uint16_t> ids(32767);
    EXPECT_EQ(modules.init_module_array(ids.data(), 32764, false), 0);
    EXPECT_EQ(modules.init_module_array(ids.data(), 3, false), 0);
    EXPECT_EQ(ids[0], 32765);
    EXPECT_EQ(ids[2], 32767);
    EXPECT_EQ(modules.init_module_array(ids.data(), 32765, false), 0);
    EXPECT_EQ(modules.init_module_array(ids.data(), 3, false), 0); // only two are left
    EXPECT_EQ(ids[0], 1);
    EXPECT_EQ(ids[2], 3);
    EXPECT_EQ(modules.init_module_array(ids.data(), 32767, false), 0);
    EXPECT_EQ(ids.front(), 1);
    EXPECT_EQ(ids.back(), 32767);
}

TEST(module_man, refuses_an_invalid_count) {
    module_man modules;
    std::int16_t id = 0;
    modules.init_module(&id, false);
    std::uint16_t ids[] = {99};
    for (const int count : {0, -1, -32767, 32768, 65536}) {
        EXPECT_NE(modules.init_module_array(ids, count, true), 0) << count;
        EXPECT_EQ(ids[0], 99) << count;
    }
    modules.init_module(&id, false);
    EXPECT_EQ(id, 2);
}

TEST(module_man, gives_every_thread_its_own_ids_in_a_row) {
    constexpr unsigned threads = 4;
    constexpr int each = 500;
    module_man modules;
    std::vector<std::vector<std::uint16_t>> firsts(threads);
    std::vector<std::thread> running;
    for (auto& own : firsts)
        running.emplace_back([&modules, &own] {
            std::uint16_t ids[5];
            for (int i = 0; i < each; ++i) {
                modules.init_module_array(ids, 5, true);
                for (unsigned n = 1; n < 5; ++n)
                    EXPECT_EQ(ids[n], ids[0] + n);
                own.push_back(ids[0]);
            }
        });
    for (std::thread& thread : running)
        thread.join();
    std::set<int> all;
    for (const auto& own : firsts)
        all.insert(own.begin(), own.end());
    EXPECT_EQ(all.size(), threads * each);
    EXPECT_EQ(*all.rbegin(), static_cast<int>(threads) * each * 5 - 4);
}

} // namespace
