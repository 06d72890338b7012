#include <glue/NV_store/NV_root.h>

#include <support/fakes/Recording_waiter.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

#include <atomic>
#include <thread>

namespace {

using namespace NV_store;

constexpr int threads = 8;
constexpr int rounds = 300;

/// One of many threads that use a tree.
class Busy_user {
  public:
    Busy_user(Settings_tree& tree, NV_pointer& pointer) : tree_(tree), pointer_(pointer) {}

    void run(unsigned first_step) {
        for (unsigned step = first_step; step < first_step + rounds; ++step) {
            set_and_get(static_cast<int>(step));
            register_and_unregister(step);
            if (step % 8 == 0)
                save_and_load();
            if (step % 16 == 3)
                notify();
        }
    }

  private:
    void set_and_get(int step) {
        tree_.speed.set(step);
        tree_.lamp++;
        tree_.guidance.beeper.set(step % 2 == 0);
        tree_.guidance.mode.set(step % 3 == 0 ? Settings_tree::Mode::off : Settings_tree::Mode::open_loop);
        pointer_.set(step % 2 == 0 ? static_cast<NV_item*>(&tree_.speed) : &tree_.guidance, notify_all);
        EXPECT_NE(pointer_.get(), nullptr);
        const float width = tree_.guidance.width.get();
        EXPECT_GE(width, 12.0F);
    }
    void register_and_unregister(unsigned number) {
        Virt_access access(&tree_.guidance.width);
        EXPECT_TRUE(access.autoreg(own_, true));
        EXPECT_TRUE(tree_.register_waiter(own_, number, true));
        tree_.guidance.width += 1;
        EXPECT_TRUE(tree_.unregister_waiter(own_, number));
        EXPECT_TRUE(access.autounreg(own_));
        EXPECT_GE(own_.events().size(), 2U) << "at least its own change, by both registrations";
        own_.clear();
    }
    void save_and_load() {
        const NV_lock held(tree_);
        Settings_bytes saved(NV_iterator::writing_all);
        EXPECT_TRUE(tree_.serialise(&saved));
        EXPECT_EQ(tree_.get_flags(), 0);
        Settings_bytes stored(saved.bytes());
        EXPECT_TRUE(load_all(tree_, stored).intact);
    }
    void notify() {
        const NV_lock held(tree_);
        tree_.signal_all();
        tree_.notify_pointers(&tree_.speed, true, true, false, notify_all, &tree_);
    }

    Settings_tree& tree_;
    NV_pointer& pointer_;
    Recording_waiter own_;
};

TEST(NV_root, many_threads_share_a_tree) {
    module_man modules;
    Settings_tree tree(&modules);
    NV_pointer pointer(&tree, &tree, 9, "pointer");
    std::atomic<int> notified{0};
    std::atomic<int> overlapping{0};
    std::atomic<bool> within{false};
    on_change(tree.guidance.width, [&] {
        overlapping += within.exchange(true);
        ++notified;
        within = false;
    });
    Recording_waiter all;
    tree.register_waiter(all, 1, true);
    {
        std::vector<std::thread> running;
        for (unsigned i = 0; i < threads; ++i)
            running.emplace_back([&, i] { Busy_user(tree, pointer).run(i * 1000); });
        for (std::thread& thread : running)
            thread.join();
    }
    EXPECT_EQ(tree.guidance.width.get(), 12.0F + threads * rounds) << "no addition is lost";
    EXPECT_EQ(tree.lamp.get(), static_cast<unsigned char>(200 + threads * rounds));
    EXPECT_GE(notified, threads * rounds);
    EXPECT_EQ(overlapping, 0) << "notifications do not overlap";
    EXPECT_FALSE(all.events().empty());
    EXPECT_EQ(tree.mutex().owner_thread(), nullptr);
    tree.remove_child(&pointer);
}

TEST(NV_root, searching_by_position_waits_for_the_lock) {
    struct Row : Settings_array {
        using Settings_array::Settings_array;
        Int_setting value{this, 0, 0, "value"};
    };
    NV_root root(nullptr, 0, "root");
    Settings_array rows(&root, &root, 1, "rows");
    Row row(&rows, &root, 0, "row");
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&] {
            for (int step = 0; step < rounds; ++step) {
                EXPECT_EQ(root._search("rows/0/0", '/'), &row.value);
                row.value++;
            }
        });
    }
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(row.value.get(), threads * rounds);
}

} // namespace
