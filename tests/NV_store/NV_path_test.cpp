#include <glue/NV_store/NV_path.h>

#include <support/builders/Record_builder.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>

#include <deque>
#include <support/builders/Random.h>

namespace {

using NV_store::NV_iterator;
using NV_store::NV_path;

std::string stored(const NV_path& path) {
    Settings_bytes it(NV_iterator::writing_all);
    EXPECT_TRUE(path.serialise(&it));
    return it.bytes();
}

NV_path path_of(std::initializer_list<int> ids) {
    NV_path path;
    for (const int id : ids)
        EXPECT_TRUE(path.push(static_cast<unsigned short>(id)));
    return path;
}

TEST(NV_path, begins_empty) {
    NV_path path;
    unsigned short id = 77;
    EXPECT_EQ(path.fill(), 0);
    EXPECT_FALSE(path.last(id));
    EXPECT_FALSE(path.pop(id));
    EXPECT_EQ(id, 77);
}

TEST(NV_path, pops_the_most_recent_id_first) {
    NV_path path = path_of({1, 65535, 3});
    unsigned short id = 0;
    EXPECT_EQ(path.fill(), 3);
    EXPECT_TRUE(path.last(id));
    EXPECT_EQ(id, 3);
    EXPECT_EQ(path.fill(), 3) << "`last` removes nothing";
    EXPECT_TRUE(path.pop(id));
    EXPECT_TRUE(path.pop(id));
    EXPECT_EQ(id, 65535);
    EXPECT_TRUE(path.pop(id));
    EXPECT_EQ(id, 1);
    EXPECT_EQ(path.fill(), 0);
}

TEST(NV_path, holds_ten_ids_and_refuses_the_eleventh) {
    NV_path path = path_of({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_EQ(path.fill(), 10);
    EXPECT_FALSE(path.push(static_cast<unsigned short>(10)));
    unsigned short id = 0;
    EXPECT_TRUE(path.pop(id));
    EXPECT_EQ(id, 9) << "the refused id was not pushed";
    EXPECT_EQ(path.fill(), 9);
    EXPECT_TRUE(path.push(static_cast<unsigned short>(11)));
    EXPECT_EQ(path.fill(), 10);
    EXPECT_TRUE(path.last(id));
    EXPECT_EQ(id, 11);
}

TEST(NV_path, capacity_stays_within_0_and_10) {
    for (const auto& [requested, capacity] : {std::pair(-1, 0), std::pair(0, 0), std::pair(1, 1), std::pair(11, 10)}) {
        NV_path path(requested);
        int pushed = 0;
        while (path.push(static_cast<unsigned short>(pushed)))
            ++pushed;
        EXPECT_EQ(pushed, capacity);
        EXPECT_EQ(path.fill(), capacity);
        unsigned short id = 0;
        EXPECT_EQ(path.pop(id), capacity > 0);
    }
}

TEST(NV_path, pushes_the_id_of_an_item) {
    const Int_setting item(nullptr, 4711, 0, "item");
    NV_path path;
    EXPECT_TRUE(path.push(&item));
    unsigned short id = 0;
    EXPECT_TRUE(path.last(id));
    EXPECT_EQ(id, 4711);
}

TEST(NV_path, copy_is_independent) {
    NV_path path = path_of({1, 2});
    NV_path copy(path);
    NV_path assigned(3);
    assigned = path;
    path.push(static_cast<unsigned short>(3));
    path.clear();
    EXPECT_EQ(path.fill(), 0);
    EXPECT_EQ(stored(copy), from_hex("02 01 00 02 00"));
    EXPECT_EQ(stored(assigned), from_hex("02 01 00 02 00"));
}

TEST(NV_path, behaves_like_a_bounded_stack) {
    Random random;
    NV_path path(7);
    std::deque<unsigned short> model;
    for (int step = 0; step < 20000; ++step) {
        unsigned short id = 0;
        if (random.between(0, 1) == 1) {
            const auto pushed = static_cast<unsigned short>(random.between(0, 65535));
            ASSERT_EQ(path.push(pushed), model.size() < 7);
            if (model.size() < 7)
                model.push_back(pushed);
        } else {
            ASSERT_EQ(path.pop(id), !model.empty());
            if (!model.empty()) {
                ASSERT_EQ(id, model.back());
                model.pop_back();
            }
        }
        ASSERT_EQ(path.fill(), static_cast<int>(model.size()));
    }
}

TEST(NV_path, is_stored_as_a_count_and_the_ids_oldest_first) {
    EXPECT_EQ(stored(NV_path()), from_hex("00"));
    EXPECT_EQ(stored(path_of({0x0102, 0xFFFE, 3})), from_hex("03 02 01 fe ff 03 00"));
}

TEST(NV_path, appends_the_ids_that_it_reads) {
    Settings_bytes it(from_hex("02 01 00 02 00 55"));
    NV_path path = path_of({9});
    EXPECT_TRUE(path.deserialise(&it));
    EXPECT_EQ(stored(path), from_hex("03 09 00 01 00 02 00"));
    EXPECT_EQ(it.left(), 1);
}

// On purpose: callers rely on it.
TEST(NV_path, storing_and_reading_return_true_even_when_they_fail) {
    Settings_bytes small(NV_iterator::writing_all, 2);
    const NV_path path = path_of({1});
    EXPECT_TRUE(path.serialise(&small));
    EXPECT_FALSE(path.write(&small));

    Settings_bytes cut(from_hex("02 01 00 02"));
    NV_path read;
    EXPECT_TRUE(read.deserialise(&cut));
    EXPECT_EQ(stored(read), from_hex("01 01 00")) << "the complete ids are kept";
    EXPECT_TRUE(read.deserialise(&cut)) << "one byte is left";
    EXPECT_EQ(read.fill(), 1);
    Settings_bytes nothing("");
    EXPECT_TRUE(read.deserialise(&nothing));
    EXPECT_FALSE(read.read(&nothing));
}

TEST(NV_path, consumes_a_path_that_is_longer_than_its_capacity) {
    std::string longer = low_bytes(255, 1);
    for (unsigned i = 0; i < 255; ++i)
        longer += low_bytes(i, 2);
    Settings_bytes it(longer + "x");
    NV_path path;
    EXPECT_TRUE(path.read(&it));
    EXPECT_EQ(path.fill(), 10);
    unsigned short id = 0;
    EXPECT_TRUE(path.last(id));
    EXPECT_EQ(id, 9);
    EXPECT_EQ(it.left(), 1);
}

} // namespace
