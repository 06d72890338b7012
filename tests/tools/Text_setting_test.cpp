#include <monitor/Text_setting.h>

#include <glue/NV_store/NV_root.h>

#include <support/builders/Random.h>
#include <support/builders/settings_records.h>
#include <support/fakes/Captured_debug.h>

#include <gtest/gtest.h>

namespace {

using namespace settings_records;
using NV_store::NV_iterator;

constexpr int array_of_char = 1 << 6 | 3;

struct Text_settings : testing::Test {
    struct Tree : NV_store::NV_root {
        Tree() : NV_root(nullptr, 0, "settings") { _set_root(this); }
        Text_setting text{this, 5, "text"};
    };

    static bool load(Tree& tree, const std::string& record) {
        Settings_bytes it(container(0, 0, record));
        return tree.deserialise(&it);
    }

    Tree tree;
};

TEST_F(Text_settings, record_is_an_array_of_characters) {
    tree.text.set("tcp:1");
    EXPECT_EQ(saved(tree, NV_iterator::writing_all), container(0, 0, value(array_of_char, 5, "\x05tcp:1")));
}

TEST_F(Text_settings, every_text_up_to_the_longest_is_loaded_as_saved) {
    Random random;
    for (std::size_t size = 0; size <= Text_setting::longest; ++size) {
        const std::string text = random.bytes(size);
        ASSERT_TRUE(tree.text.set(text));
        Tree loaded;
        Settings_bytes it(saved(tree, NV_iterator::writing_all));
        ASSERT_TRUE(loaded.deserialise(&it));
        EXPECT_EQ(loaded.text.text(), text);
    }
}

TEST_F(Text_settings, longer_text_is_refused) {
    tree.text.set("before");
    EXPECT_FALSE(tree.text.set(std::string(Text_setting::longest + 1, 'x')));
    EXPECT_EQ(tree.text.text(), "before");
}

TEST_F(Text_settings, change_is_notified_and_marks_the_tree_until_it_is_saved) {
    int changes = 0;
    QObject::connect(&tree.text, qOverload<>(&NV_store::NV_item::value_changed), [&] { ++changes; });
    tree.text.set("");
    EXPECT_EQ(changes, 0);
    tree.text.set("new");
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(tree.get_flags() & NV_store::NV_item::dirty_change);
    saved(tree, NV_iterator::appending_changed);
    EXPECT_EQ(tree.text.get_flags(), 0);
    EXPECT_EQ(saved(tree, NV_iterator::appending_changed), "");
}

TEST_F(Text_settings, default_is_no_text) {
    tree.text.set("new");
    EXPECT_TRUE(tree.set_default(true));
    EXPECT_EQ(tree.text.text(), "");
}

TEST_F(Text_settings, save_that_does_not_fit_leaves_it_marked) {
    tree.text.set("eight by");
    const int whole = 4 + 1 + 8;
    for (int capacity = 0; capacity < whole; ++capacity) {
        Settings_bytes it(NV_iterator::writing_all, capacity);
        EXPECT_FALSE(tree.text.serialise(&it)) << capacity;
        EXPECT_TRUE(tree.text.get_flags() & NV_store::NV_item::dirty_change);
    }
    Settings_bytes it(NV_iterator::writing_all, whole);
    EXPECT_TRUE(tree.text.serialise(&it));
}

TEST_F(Text_settings, damaged_record_is_refused_and_changes_nothing) {
    const Captured_debug quiet;
    tree.text.set("before");
    const std::string records[] = {value(array_of_char, 5, "\x05tcp"),
                                   value(array_of_char, 5, ""),
                                   value(1 << 6 | 4, 5, "\x01x"),
                                   value(3, 5, "x"),
                                   header(array_of_char, path, 5) + "\x01x",
                                   header(array_of_char, opening, 5)};
    for (const std::string& record : records) {
        Settings_bytes it(record);
        EXPECT_FALSE(tree.text.deserialise(&it));
        EXPECT_EQ(tree.text.text(), "before");
    }
}

TEST_F(Text_settings, tree_that_does_not_know_it_skips_it) {
    tree.text.set("text");
    NV_store::NV_root other(nullptr, 0, "other");
    Settings_bytes it(saved(tree, NV_iterator::writing_all));
    EXPECT_TRUE(other.deserialise(&it));
    EXPECT_EQ(it.left(), 0);
}

TEST_F(Text_settings, peer_receives_the_size_and_the_characters) {
    tree.text.set("abc");
    unsigned char storage[4];
    CDS::Remote::Send_buffer sent(storage, sizeof storage);
    unsigned short counter = 0;
    EXPECT_FALSE(tree.text.serialise(sent, counter).fail());
    EXPECT_EQ(std::string(storage, storage + sent.size()), "\x03"
                                                           "abc");
    Tree received;
    CDS::Remote::Receive_buffer arrived(storage, sent.size());
    counter = 0;
    EXPECT_FALSE(received.text.deserialise(arrived, counter).fail());
    EXPECT_EQ(received.text.text(), "abc");

    for (int size = 0; size < 4; ++size) {
        CDS::Remote::Send_buffer small(storage, size);
        CDS::Remote::Receive_buffer torn(storage, size);
        counter = 0;
        EXPECT_TRUE(received.text.deserialise(torn, counter).fail()) << size;
        counter = 0;
        EXPECT_TRUE(tree.text.serialise(small, counter).fail()) << size;
    }
    EXPECT_EQ(received.text.text(), "abc");
}

} // namespace
