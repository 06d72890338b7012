#include <glue/NV_store/NV_stream_iterator.h>

#include <support/fakes/Scripted_stream.h>
#include <support/settings/Iterator_bytes.h>
#include <support/settings/Settings_tree.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using NV_store::NV_iterator;
using NV_store::NV_stream_iterator;
using testing::ElementsAre;

struct NV_stream_iterator_test : testing::Test, Iterator_bytes {
    Scripted_stream stream;
    NV_stream_iterator it{stream};

    NV_iterator& iterator() override { return it; }
};

TEST_F(NV_stream_iterator_test, begins_closed_and_moves_nothing) {
    stream.receive("abc");
    EXPECT_EQ(it.get_mode(), NV_iterator::closed);
    EXPECT_FALSE(it.is_readable());
    EXPECT_FALSE(push("x"));
    EXPECT_EQ(pop(1), "failed");
    EXPECT_EQ(peek(1), "failed");
    EXPECT_EQ(stream.written, "");
    EXPECT_EQ(stream.buffered(), "abc");
}

TEST_F(NV_stream_iterator_test, writes_in_the_four_modes_for_it) {
    for (const auto mode : {NV_iterator::writing_all, NV_iterator::writing_set, NV_iterator::appending_written,
                            NV_iterator::appending_changed}) {
        it.set_mode(mode);
        EXPECT_TRUE(push("ab"));
        EXPECT_FALSE(it.is_readable());
        EXPECT_EQ(pop(0), "failed");
        EXPECT_EQ(peek(0), "failed");
    }
    EXPECT_THAT(stream.writes, ElementsAre("ab", "ab", "ab", "ab"));
}

TEST_F(NV_stream_iterator_test, result_of_a_write_is_ignored) {
    it.set_mode(NV_iterator::writing_all);
    stream.on_write = [](const unsigned char*, unsigned) { return -1; };
    EXPECT_TRUE(push("ab"));
    stream.on_write = [](const unsigned char*, unsigned) { return 1; };
    EXPECT_TRUE(push("ab"));
    unsigned char byte = 0;
    EXPECT_FALSE(it.push_bytes(&byte, -1));
}

TEST_F(NV_stream_iterator_test, pops_available_bytes_and_peeks_without_consuming) {
    it.set_mode(NV_iterator::reading);
    stream.receive("abcdef");
    EXPECT_EQ(peek(3), "abc");
    EXPECT_EQ(pop(2), "ab");
    EXPECT_EQ(peek(4), "cdef");
    EXPECT_EQ(stream.buffered(), "cdef");
    EXPECT_FALSE(push("x"));
    unsigned char byte = 0;
    EXPECT_FALSE(it.pop_bytes(&byte, -1));
    EXPECT_FALSE(it.peek_bytes(&byte, -1));
}

TEST_F(NV_stream_iterator_test, too_few_bytes_are_left_unread) {
    it.set_mode(NV_iterator::reading);
    stream.receive("abc");
    EXPECT_EQ(pop(4), "failed");
    EXPECT_EQ(peek(4), "failed");
    EXPECT_EQ(pop(3), "abc");
}

TEST_F(NV_stream_iterator_test, fetches_missing_bytes) {
    it.set_mode(NV_iterator::reading);
    stream.receive("ab");
    stream.will_arrive("cdef");
    EXPECT_EQ(peek(3), "abc");
    EXPECT_EQ(pop(6), "abcdef");
    EXPECT_FALSE(it.is_readable());
    stream.will_arrive("g");
    EXPECT_TRUE(it.is_readable());
    EXPECT_EQ(stream.buffered(), "g");
}

TEST_F(NV_stream_iterator_test, fetch_of_fewer_bytes_than_promised_consumes_nothing) {
    it.set_mode(NV_iterator::reading);
    stream.receive("ab");
    stream.on_fetch = [](int) { return 1; };
    EXPECT_EQ(pop(3), "failed");
    EXPECT_EQ(stream.buffered(), "ab");
}

TEST_F(NV_stream_iterator_test, has_no_size) {
    it.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(push("abc"));
    unsigned used = 1;
    unsigned total = 1;
    it.get_free_space(used, total);
    EXPECT_EQ(used, 0U);
    EXPECT_EQ(total, 0U);
}

TEST_F(NV_stream_iterator_test, any_mode_is_stored_and_leaves_the_stream_unchanged) {
    stream.receive("ab");
    it.set_mode(static_cast<NV_iterator::modes_t>(6));
    EXPECT_EQ(it.get_mode(), 6);
    it.set_mode(NV_iterator::closed);
    EXPECT_EQ(stream.buffered(), "ab");
}

TEST_F(NV_stream_iterator_test, tree_is_loaded_at_the_other_end) {
    Settings_tree saved;
    saved.speed.set(-7);
    saved.guidance.beeper.set(false);
    it.set_mode(NV_iterator::writing_all);
    EXPECT_TRUE(saved.serialise(&it));
    stream.will_arrive(stream.written);
    Settings_tree loaded;
    it.set_mode(NV_iterator::reading);
    EXPECT_TRUE(loaded.deserialise(&it));
    EXPECT_EQ(loaded.speed.get(), -7);
    EXPECT_FALSE(loaded.guidance.beeper.get());
    EXPECT_FALSE(it.is_readable());
}

} // namespace
