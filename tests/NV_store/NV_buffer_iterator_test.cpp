#include <glue/NV_store/NV_buffer_iterator.h>

#include <support/settings/Settings_tree.h>

#include <cstring>
#include <gtest/gtest.h>

namespace {

using NV_store::NV_buffer_iterator;
using NV_store::NV_iterator;

unsigned char eight_bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};

TEST(NV_buffer_iterator, accepts_bytes_that_fit_and_refuses_one_more) {
    unsigned char buffer[8] = {};
    NV_buffer_iterator it(buffer, sizeof buffer, 0);
    EXPECT_TRUE(it.push_bytes(eight_bytes, 8));
    EXPECT_FALSE(it.push_bytes(eight_bytes, 1));
    EXPECT_EQ(it.length(), 8);
    EXPECT_EQ(std::memcmp(buffer, eight_bytes, 8), 0);
    unsigned used = 0;
    unsigned total = 0;
    it.get_free_space(used, total);
    EXPECT_EQ(used, 8U);
    EXPECT_EQ(total, 8U);
}

TEST(NV_buffer_iterator, peeks_without_and_pops_with_consuming) {
    NV_buffer_iterator it(eight_bytes, 8, 5);
    unsigned char bytes[8] = {};
    EXPECT_TRUE(it.peek_bytes(bytes, 5));
    EXPECT_EQ(bytes[4], 5);
    EXPECT_TRUE(it.pop_bytes(bytes, 3));
    EXPECT_TRUE(it.pop_bytes(bytes, 2));
    EXPECT_EQ(bytes[0], 4);
    EXPECT_FALSE(it.pop_bytes(bytes, 1));
    EXPECT_FALSE(it.peek_bytes(bytes, 1));
    it.reset_reading();
    EXPECT_TRUE(it.pop_bytes(bytes, 5));
    it.reset_writing();
    EXPECT_FALSE(it.pop_bytes(bytes, 1));
    EXPECT_EQ(it.length(), 0);
}

TEST(NV_buffer_iterator, reading_and_writing_are_reset_separately) {
    unsigned char buffer[8];
    NV_buffer_iterator it(buffer, sizeof buffer, 0);
    unsigned char bytes[8] = {};
    EXPECT_TRUE(it.push_bytes(eight_bytes, 4));
    EXPECT_TRUE(it.pop_bytes(bytes, 3));
    it.reset_writing();
    EXPECT_FALSE(it.peek_bytes(bytes, 0)); // the position is beyond the data
    EXPECT_TRUE(it.push_bytes(eight_bytes, 5));
    EXPECT_TRUE(it.pop_bytes(bytes, 2));
    EXPECT_EQ(bytes[0], 4);
    EXPECT_EQ(bytes[1], 5);
    it.reset_reading();
    EXPECT_TRUE(it.pop_bytes(bytes, 5));
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(it.length(), 5);
}

TEST(NV_buffer_iterator, another_buffer_is_used_with_its_own_lengths) {
    NV_buffer_iterator it(eight_bytes, 8, 8);
    unsigned char bytes[8] = {};
    EXPECT_TRUE(it.pop_bytes(bytes, 6));
    unsigned char other[4] = {'a', 'b', 'c', 'd'};
    it.set_buffer(other, 3, 2);
    EXPECT_TRUE(it.pop_bytes(bytes, 2));
    EXPECT_EQ(bytes[0], 'a');
    EXPECT_TRUE(it.push_bytes(eight_bytes, 1));
    EXPECT_FALSE(it.push_bytes(eight_bytes, 1));
    EXPECT_EQ(other[2], 1);
    EXPECT_EQ(other[3], 'd');
}

TEST(NV_buffer_iterator, refuses_negative_counts) {
    unsigned char buffer[8] = {};
    NV_buffer_iterator it(buffer, sizeof buffer, 4);
    unsigned char byte = 0;
    EXPECT_FALSE(it.push_bytes(&byte, -1));
    EXPECT_FALSE(it.pop_bytes(&byte, -1));
    EXPECT_FALSE(it.peek_bytes(&byte, -1));
    EXPECT_EQ(it.length(), 4);
}

TEST(NV_buffer_iterator, has_nothing_without_a_buffer) {
    NV_buffer_iterator it;
    unsigned char byte = 0;
    EXPECT_FALSE(it.push_bytes(&byte, 1));
    EXPECT_FALSE(it.pop_bytes(&byte, 1));
    EXPECT_TRUE(it.is_readable());
    it.set_buffer(eight_bytes, 8, 8);
    EXPECT_TRUE(it.pop_bytes(&byte, 1));
}

TEST(NV_buffer_iterator, tree_is_loaded_as_saved) {
    unsigned char buffer[256];
    NV_buffer_iterator it(buffer, sizeof buffer, 0);
    Settings_tree saved;
    saved.speed.set(-7);
    saved.guidance.width.set(9.5F);
    saved.guidance.mode.set(Settings_tree::Mode::off);
    it.set_mode(NV_iterator::writing_all);
    ASSERT_TRUE(saved.serialise(&it));
    EXPECT_EQ(saved.get_flags(), 0);

    Settings_tree loaded;
    it.set_mode(NV_iterator::reading);
    const NV_store::NV_load_result result = load_all(loaded, it);
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(result.loaded, 1U);
    EXPECT_EQ(loaded.speed.get(), -7);
    EXPECT_EQ(loaded.guidance.width.get(), 9.5F);
    EXPECT_TRUE(loaded.guidance.beeper.get());
    EXPECT_EQ(loaded.guidance.mode.value(), Settings_tree::Mode::off);
    EXPECT_EQ(loaded.lamp.get(), 200);
}

} // namespace
