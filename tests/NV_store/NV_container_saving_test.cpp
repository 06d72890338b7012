#include <glue/NV_store/NV_container.h>

#include <support/builders/Record_builder.h>
#include <support/fakes/Captured_debug.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

#include <chrono>
#include <memory>
#include <support/processes/processor_time.h>

namespace {

using namespace NV_store;

std::string saved(NV_item& tree, NV_iterator::modes_t mode) {
    Settings_bytes it(mode, 1 << 20);
    EXPECT_TRUE(tree.serialise(&it));
    return it.bytes();
}

void make_clean(NV_item& tree) {
    saved(tree, NV_iterator::writing_all);
}

TEST(NV_container, is_saved_byte_by_byte) {
    Settings_tree tree;
    tree.speed.set(-2);
    tree.guidance.mode.set(Settings_tree::Mode::off);
    EXPECT_EQ(saved(tree, NV_iterator::writing_all), from_hex("00 00 01 00 "             // settings (0) opens
                                                              "01 00 09 09 fe ff ff ff " // speed (1): int, -2
                                                              "02 00 01 01 "             // guidance (2) opens
                                                              "01 00 09 0a 00 00 40 41 " // width (1): float, 12
                                                              "02 00 09 02 01 "          // beeper (2): bool, true
                                                              "03 00 09 05 2c 01 "       // mode (3): two bytes, 300
                                                              "02 00 02 01 "             // guidance closes
                                                              "4e 50 02 4e "             // its checksum
                                                              "03 00 09 04 c8 "          // lamp (3): one byte, 200
                                                              "00 00 02 00 "             // settings closes
                                                              "d5 e8 00 91"));           // its checksum
}

TEST(NV_container, checksum_covers_the_headers_and_everything_between_them) {
    Settings_tree tree;
    const Record_builder expected = Record_builder()
                                        .open(0, 0)
                                        .integer(1, 5)
                                        .open(1, 2)
                                        .value(10, 1, from_hex("00 00 40 41"))
                                        .value(2, 2, from_hex("01"))
                                        .value(4, 3, from_hex("01"))
                                        .close()
                                        .value(4, 3, from_hex("c8"))
                                        .close();
    EXPECT_EQ(saved(tree, NV_iterator::writing_all), expected.bytes());
}

TEST(NV_container, empty_one_is_saved_with_its_type) {
    NV_struct empty(0x1234, "empty");
    EXPECT_EQ(saved(empty, NV_iterator::writing_all), Record_builder().open(1, 0x1234).close().bytes());
    Settings_list list(0xFFFF, "list");
    EXPECT_EQ(saved(list, NV_iterator::writing_all), Record_builder().open(13, 0xFFFF).close().bytes());
}

// ---- Which nodes are saved in which mode ----

TEST(NV_container, save_of_set_items_leaves_out_pristine_ones) {
    Settings_tree tree;
    EXPECT_EQ(saved(tree, NV_iterator::writing_set), "") << "a container that is not included writes nothing";
    tree.guidance.beeper.set(false);
    const Record_builder expected = Record_builder().open(0, 0).open(1, 2).value(2, 2, from_hex("00")).close().close();
    EXPECT_EQ(saved(tree, NV_iterator::writing_set), expected.bytes());
    EXPECT_EQ(saved(tree, NV_iterator::writing_set), expected.bytes()) << "saving does not set pristine again";
}

TEST(NV_container, written_and_changed_items_are_appended) {
    Settings_tree tree;
    make_clean(tree);
    tree.speed.notify_updated(true, false, false, notify_all, &tree); // changed only
    EXPECT_EQ(saved(tree, NV_iterator::appending_written), "");
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed), Record_builder().open(0, 0).integer(1, 5).close().bytes());
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed), "") << "saving clears the flag";

    tree.lamp.notify_updated(false, true, true, notify_all, &tree); // written only
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed), "");
    EXPECT_EQ(saved(tree, NV_iterator::appending_written),
              Record_builder().open(0, 0).value(4, 3, from_hex("c8")).close().bytes());
    EXPECT_EQ(saved(tree, NV_iterator::appending_written), "");
}

TEST(NV_container, container_that_takes_part_alone_is_saved_empty) {
    Settings_tree tree;
    make_clean(tree);
    tree.guidance.notify_updated(true, notify_all);
    EXPECT_EQ(saved(tree, NV_iterator::appending_written),
              Record_builder().open(0, 0).open(1, 2).close().close().bytes());
}

TEST(NV_container, branch_under_a_container_that_takes_no_part_is_left_out) {
    Settings_tree tree;
    make_clean(tree);
    tree.guidance.beeper._set(false, notify_waiters); // does not notify the parents
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed), "");
    EXPECT_NE(tree.guidance.beeper.get_flags(), 0) << "it waits for its parents";
    tree.guidance.width.set(1);
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed), Record_builder()
                                                               .open(0, 0)
                                                               .open(1, 2)
                                                               .value(10, 1, from_hex("00 00 80 3f"))
                                                               .value(2, 2, from_hex("00"))
                                                               .close()
                                                               .close()
                                                               .bytes());
}

TEST(NV_container, saving_clears_both_dirty_flags_and_no_other) {
    Settings_tree tree;
    tree.speed.set(6);
    tree.guidance.notify_updated(false, true, true, notify_none, nullptr);
    make_clean(tree);
    for (NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
        EXPECT_EQ(item->get_flags(), item == &tree || item == &tree.speed ? 0 : NV_item::pristine);
}

TEST(NV_container, nothing_is_saved_in_a_mode_that_does_not_write) {
    Settings_tree tree;
    for (const auto mode : {NV_iterator::closed, NV_iterator::reading, static_cast<NV_iterator::modes_t>(6)}) {
        Settings_bytes it(mode);
        EXPECT_FALSE(tree.serialise(&it));
        EXPECT_EQ(it.bytes(), "");
    }
    EXPECT_FALSE(tree.serialise(nullptr));
}

struct Without : NV_iterator::NV_selector {
    explicit Without(const NV_item& left_out) : left_out_(left_out) {}
    bool include_in_serialise(const NV_item& item, const NV_iterator* it, bool& ok, bool) const override {
        const bool included = item.include_in_serialise(it, ok, true);
        return included && &item != &left_out_;
    }
    const NV_item& left_out_;
};

TEST(NV_container, selector_leaves_a_branch_out) {
    Settings_tree tree;
    const Without selector(tree.guidance);
    Settings_bytes it(NV_iterator::writing_all);
    it.set_selector(&selector);
    tree.guidance.width.set(1);
    EXPECT_TRUE(tree.serialise(&it));
    EXPECT_EQ(it.bytes(), Record_builder().open(0, 0).integer(1, 5).value(4, 3, from_hex("c8")).close().bytes());
    EXPECT_NE(tree.guidance.get_flags() & NV_item::dirty_change, 0);
}

// ---- Failures ----

TEST(NV_container, full_iterator_is_reported_and_leaves_it_dirty) {
    Settings_tree tree;
    tree.guidance.beeper.set(false);
    tree.speed.set(6);
    Captured_debug debug;
    Settings_bytes it(NV_iterator::writing_all, 4 + 8 + 4 + 8 + 4); // up to the header of beeper
    EXPECT_FALSE(tree.serialise(&it));
    EXPECT_EQ(debug.text(), "Serialise failed for 1:guidance\nSerialise failed for 0:settings\n");
    EXPECT_EQ(tree.speed.get_flags(), 0) << "this one was written";
    for (const NV_item* item : std::initializer_list<const NV_item*>{&tree.guidance.beeper, &tree.guidance, &tree})
        EXPECT_EQ(item->get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed),
              Record_builder().open(0, 0).open(1, 2).value(2, 2, from_hex("00")).close().close().bytes());
}

TEST(NV_container, closing_header_that_does_not_fit_is_reported) {
    NV_struct container(1, "container");
    const Int_setting item(&container, 1, 0, "item");
    Captured_debug debug;
    Settings_bytes it(NV_iterator::writing_all, 4 + 8 + 3);
    EXPECT_FALSE(container.serialise(&it));
    EXPECT_EQ(debug.text(), "Serialise failed2 for 1:container\n");
    Settings_bytes nothing(NV_iterator::writing_all, 0);
    EXPECT_FALSE(NV_struct(2, "empty").serialise(&nothing));
    EXPECT_EQ(debug.text(), "Serialise failed2 for 1:container\nSerialise failed2 for 1:empty\n");
}

TEST(NV_container, checksum_that_does_not_fit_is_not_reported) {
    NV_struct container(1, "container");
    container.notify_updated(true, notify_none);
    Settings_bytes it(NV_iterator::writing_all, 4 + 4 + 3);
    EXPECT_TRUE(container.serialise(&it));
    EXPECT_EQ(container.get_flags(), 0);
    EXPECT_EQ(it.bytes().size(), 8U);
    Settings_bytes stored(it.bytes());
    Captured_debug debug;
    EXPECT_FALSE(container.deserialise(&stored)) << "loading notices the missing checksum";
}

TEST(NV_container, no_failure_leaves_a_checksum_registered) {
    Settings_tree tree;
    const std::string whole = saved(tree, NV_iterator::writing_all);
    Captured_debug debug;
    for (int capacity = 0; capacity < static_cast<int>(whole.size()); ++capacity) {
        Settings_bytes it(NV_iterator::writing_all, capacity);
        const bool closed = capacity >= static_cast<int>(whole.size()) - 4;
        EXPECT_EQ(tree.serialise(&it), closed) << capacity;
        EXPECT_EQ(it.bytes(), whole.substr(0, it.bytes().size()));
        it.reset_writing();
        it.push_uint8(
            0, NV_iterator::little_endian); // the sanitizer would notice a checksum that was destroyed while registered
    }
}

// ---- Amount of work ----

/// A list of `containers` containers with `children` numbers each.
struct Large_tree {
    Large_tree(int containers, int children) {
        for (int c = 0; c < containers; ++c) {
            lists.push_back(std::make_unique<Settings_list>(&root, &root, static_cast<unsigned short>(c), "list"));
            for (int i = 0; i < children; ++i) // the last id first: the order of the ids is not that of the list
                settings.push_back(std::make_unique<Counted_setting>(
                    lists.back().get(), static_cast<unsigned short>(children - i), i, "setting"));
        }
    }
    NV_root root{nullptr, 0, "root"};
    std::vector<std::unique_ptr<Settings_list>> lists;
    std::vector<std::unique_ptr<Counted_setting>> settings;
};

struct Counted_bytes : Settings_bytes {
    using Settings_bytes::Settings_bytes;
    bool push_bytes(unsigned char* bytes, int count) override {
        ++calls;
        return Settings_bytes::push_bytes(bytes, count);
    }
    bool pop_bytes(unsigned char* bytes, int count) override {
        ++calls;
        return Settings_bytes::pop_bytes(bytes, count);
    }
    int calls = 0;
};

TEST(NV_container, saving_and_loading_visit_every_setting_once) {
    for (const auto& [containers, children] : {std::pair(10, 100), std::pair(100, 100), std::pair(1, 10000)}) {
        Large_tree tree(containers, children);
        Counted_bytes it(NV_iterator::writing_all, 1 << 20);
        ASSERT_TRUE(tree.root.serialise(&it));
        const int settings = containers * children;
        const int calls = 2 * settings + 3 * (containers + 1); // header and value; two headers and a checksum
        EXPECT_EQ(it.calls, calls);
        Counted_bytes stored(it.bytes());
        ASSERT_TRUE(tree.root.deserialise(&stored));
        EXPECT_EQ(stored.calls, calls);
        for (const auto& setting : tree.settings) {
            ASSERT_EQ(setting->saves, 1);
            ASSERT_EQ(setting->loads, 1);
        }
    }
}

/// The shortest of several times for loading a list of `settings` settings, whose ids are in reversed order or not.
std::chrono::nanoseconds time_to_load(int settings, const std::string& stored) {
    Large_tree tree(1, settings);
    auto shortest = std::chrono::nanoseconds::max();
    for (int i = 0; i < 7; ++i) {
        Settings_bytes it(stored);
        const auto start = processor_time();
        EXPECT_TRUE(tree.root.deserialise(&it));
        shortest = std::min(shortest, processor_time() - start);
    }
    return shortest;
}

std::string stored_list(int settings, bool ascending) {
    Record_builder builder;
    builder.open(0, 0).open(13, 0);
    for (int i = 1; i <= settings; ++i)
        builder.integer(ascending ? i : settings + 1 - i, i);
    return builder.close().close();
}

TEST(NV_container, loading_time_is_proportional_to_the_number_of_settings) {
    for (const bool ascending : {true, false}) {
        const auto few = time_to_load(1000, stored_list(1000, ascending));
        const auto many = time_to_load(10000, stored_list(10000, ascending));
        EXPECT_LT(many, 40 * few) << "about ten times; comparing every child for each record takes a hundred times";
    }
}

} // namespace
