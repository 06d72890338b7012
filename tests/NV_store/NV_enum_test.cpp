#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_root.h>

#include <support/builders/Number_forms.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Recorded_fields.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/acquired_locks.h>

#include <gtest/gtest.h>

namespace {

using namespace NV_store;
using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;
using number_forms::header;
using number_forms::stored;

constexpr unsigned char single_value = 9; // a kind in headers

enum class Steering : unsigned { open_loop, closed_loop, off = 300, any = 0xFFFFFFFF };
enum class Direction { backward = -1, none = 0, forward = 1 };

struct NV_enum_in_a_tree : testing::Test {
    NV_enum_in_a_tree() {
        root._set_root(&root);
        QObject::connect(&mode, qOverload<>(&NV_item::value_changed), [this] { ++signals_seen; });
    }

    NV_root root{nullptr, 0, "root"};
    NV_enum<Steering> mode{&root, 5, Steering::closed_loop, "mode"};
    NV_enum_base& base{mode};
    int signals_seen = 0;
};

TEST_F(NV_enum_in_a_tree, begins_with_its_default) {
    EXPECT_EQ(mode.value(), Steering::closed_loop);
    EXPECT_EQ(base.get(), 1);
    EXPECT_EQ(mode.get_flags(), NV_item::pristine);
    EXPECT_EQ(mode.get_type(), 6);
    EXPECT_EQ(root.get_my_index(&mode), 0);
}

TEST_F(NV_enum_in_a_tree, notifies_of_another_value_only) {
    EXPECT_FALSE(mode.set(Steering::closed_loop));
    EXPECT_FALSE(mode._set(Steering::closed_loop, notify_all));
    base.set(1);
    EXPECT_EQ(signals_seen, 0);
    EXPECT_EQ(mode.get_flags(), NV_item::pristine);

    EXPECT_TRUE(mode.set(Steering::off));
    EXPECT_EQ(mode.value(), Steering::off);
    EXPECT_EQ(signals_seen, 1);
    EXPECT_EQ(mode.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    EXPECT_EQ(root.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
    base.set(0);
    EXPECT_EQ(mode.value(), Steering::open_loop);
    EXPECT_EQ(signals_seen, 2);
    EXPECT_TRUE(mode._set(Steering::off, notify_none));
    EXPECT_EQ(signals_seen, 2);
}

TEST_F(NV_enum_in_a_tree, is_set_to_its_default) {
    mode.set(Steering::off);
    EXPECT_TRUE(mode.set_default(false));
    EXPECT_EQ(mode.value(), Steering::closed_loop);
    EXPECT_EQ(signals_seen, 2);
}

TEST_F(NV_enum_in_a_tree, is_read_and_set_as_a_number_under_the_lock) {
    QObject::connect(&mode, qOverload<>(&NV_item::value_changed),
                     [this] { EXPECT_EQ(root.mutex().owner_thread(), QThread::currentThreadId()); });
    base.set(4294967295);
    EXPECT_EQ(mode.value(), Steering::any);
    EXPECT_EQ(base.get(), 4294967295);
    EXPECT_EQ(signals_seen, 1);
    EXPECT_EQ(root.mutex().owner_thread(), nullptr);
}

using NV_enum_DeathTest = NV_enum_in_a_tree;

TEST_F(NV_enum_DeathTest, acquires_the_lock_also_as_a_number) {
    const std::vector<std::function<void()>> operations = {
        [&] { mode.value(); },
        [&] { mode.set(Steering::off); },
        [&] { base.get(); },
        [&] { base.set(0); },
    };
    expect_each_acquires_the_lock(root, operations);
}

// ---- Records ----

TEST_F(NV_enum_in_a_tree, is_stored_in_the_fewest_bytes) {
    const struct {
        unsigned value;
        unsigned char type;
        std::string bytes;
    } cases[] = {{0, 4, std::string("\0", 1)},           {255, 4, "\xFF"},
                 {256, 5, std::string("\0\1", 2)},       {65535, 5, "\xFF\xFF"},
                 {65536, 6, std::string("\0\0\1\0", 4)}, {4294967295, 6, "\xFF\xFF\xFF\xFF"}};
    for (const auto& one : cases) {
        Settings_bytes it(NV_iterator::writing_all);
        mode.set(static_cast<Steering>(one.value));
        EXPECT_TRUE(mode.serialise(&it));
        EXPECT_EQ(it.bytes(), header(one.type, single_value, 5) + one.bytes) << one.value;
        EXPECT_EQ(mode.get_flags(), 0);

        for (int capacity = 0; capacity < it.length(); ++capacity) {
            Settings_bytes small(NV_iterator::writing_all, capacity);
            mode.notify_updated(true, notify_none); // dirty again
            EXPECT_FALSE(mode.serialise(&small)) << capacity;
            EXPECT_EQ(mode.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
        }

        it.set_mode(NV_iterator::reading);
        mode._set(Steering::closed_loop, notify_none);
        EXPECT_TRUE(mode.deserialise(&it));
        EXPECT_EQ(static_cast<unsigned>(mode.value()), one.value);
    }
}

TEST_F(NV_enum_in_a_tree, is_included_as_the_mode_requires) {
    Settings_bytes it(NV_iterator::writing_set);
    EXPECT_TRUE(mode.serialise(&it));
    it.set_mode(NV_iterator::reading);
    EXPECT_FALSE(mode.serialise(&it));
    EXPECT_EQ(it.length(), 0);
}

TEST_F(NV_enum_in_a_tree, is_loaded_from_a_record_of_any_width) {
    const struct {
        unsigned char type;
        std::string bytes;
        unsigned expected;
    } cases[] = {
        {4, "\xFE", 0xFE},
        {5, "\x02\x01", 0x0102},
        {6, "\x04\x03\x02\x01", 0x01020304},
        {15, "\x08\x07\x06\x05\x04\x03\x02\x01", 0x05060708}, // truncated to the lower four bytes
    };
    for (const auto& one : cases) {
        NV_enum<Steering> loaded(nullptr, 5, Steering::closed_loop, "loaded");
        const std::string record = header(one.type, single_value, 5) + one.bytes;
        for (std::size_t length = 0; length < record.size(); ++length) {
            Settings_bytes cut(record.substr(0, length));
            EXPECT_FALSE(loaded.deserialise(&cut));
            EXPECT_EQ(loaded.value(), Steering::closed_loop);
            EXPECT_EQ(loaded.get_flags(), NV_item::pristine);
        }
        Settings_bytes it(record + "rest");
        EXPECT_TRUE(loaded.deserialise(&it));
        EXPECT_EQ(static_cast<unsigned>(loaded.value()), one.expected);
        EXPECT_EQ(loaded.get_flags(), 0);
        EXPECT_EQ(it.left(), 4);
    }
    EXPECT_EQ(signals_seen, 0);
}

TEST_F(NV_enum_in_a_tree, is_left_unchanged_by_any_other_record) {
    const std::string eight_bytes(8, '\1');
    for (int type = 0; type <= 255; ++type) {
        if (type == 4 || type == 5 || type == 6 || type == 15)
            continue;
        Settings_bytes it(header(static_cast<unsigned char>(type), single_value, 5) + eight_bytes);
        EXPECT_FALSE(mode.deserialise(&it)) << type;
    }
    Settings_bytes other_kind(header(4, 12, 5) + eight_bytes);
    EXPECT_FALSE(mode.deserialise(&other_kind));
    Settings_bytes other_id(header(4, single_value, 6) + eight_bytes);
    EXPECT_FALSE(mode.deserialise(&other_id));
    EXPECT_EQ(mode.value(), Steering::closed_loop);
    EXPECT_EQ(mode.get_flags(), NV_item::pristine);
}

TEST(NV_enum, with_a_sign_is_loaded_as_saved) {
    NV_enum<Direction> direction(nullptr, 1, Direction::none, "direction");
    NV_enum_base& base = direction;
    base.set(-1);
    EXPECT_EQ(direction.value(), Direction::backward);
    EXPECT_EQ(base.get(), -1);

    Settings_bytes it(NV_iterator::writing_all);
    EXPECT_TRUE(direction.serialise(&it));
    EXPECT_EQ(it.bytes(), header(6, single_value, 1) + "\xFF\xFF\xFF\xFF");
    char text[16];
    EXPECT_EQ(direction._to_string(text, sizeof text), 10);
    EXPECT_STREQ(text, "4294967295");

    direction.set(Direction::forward);
    it.set_mode(NV_iterator::reading);
    EXPECT_TRUE(direction.deserialise(&it));
    EXPECT_EQ(direction.value(), Direction::backward);
    direction.set(Direction::forward);
    EXPECT_EQ(direction._from_string(text), text + 10);
    EXPECT_EQ(direction.value(), Direction::backward);
}

// ---- Values for a peer, and text ----

TEST_F(NV_enum_in_a_tree, is_sent_as_four_bytes) {
    unsigned char bytes[4];
    unsigned short counter = 0;
    Send_buffer small(bytes, 3);
    EXPECT_EQ(mode.serialise(small, counter).failed_item(), &mode);
    EXPECT_EQ(small.size(), 0);
    Send_buffer buffer(bytes, 4);
    mode.set(Steering::off);
    EXPECT_FALSE(mode.serialise(buffer, counter).fail());
    EXPECT_EQ(std::string(bytes, bytes + 4), stored(300));
    counter = 1;
    EXPECT_FALSE(mode.serialise(small, counter).fail());
    EXPECT_EQ(counter, 0);
}

TEST_F(NV_enum_in_a_tree, notifies_of_a_received_value) {
    const unsigned char bytes[] = {0x2C, 1, 0, 0};
    unsigned short counter = 1;
    Receive_buffer buffer(bytes, 4);
    EXPECT_FALSE(mode.deserialise(buffer, counter).fail());
    EXPECT_EQ(buffer.left(), 4);
    EXPECT_FALSE(mode.deserialise(buffer, counter).fail());
    EXPECT_EQ(mode.value(), Steering::off);
    EXPECT_EQ(signals_seen, 1);
    Receive_buffer small(bytes, 3);
    EXPECT_EQ(mode.deserialise(small, counter).failed_item(), &mode);
    EXPECT_EQ(mode.value(), Steering::off);
}

TEST_F(NV_enum_in_a_tree, is_a_number_as_text) {
    char text[4] = "";
    mode.set(Steering::off);
    EXPECT_EQ(mode._to_string(text, 3), 0);
    EXPECT_EQ(mode._to_string(text, 4), 3);
    EXPECT_STREQ(text, "300");
    const char* const next = " 0}";
    EXPECT_EQ(mode._from_string(next), next + 2);
    EXPECT_EQ(mode.value(), Steering::open_loop);
    EXPECT_EQ(signals_seen, 2);
    EXPECT_EQ(mode._from_string("off"), nullptr);
    EXPECT_EQ(mode._from_string("-1"), nullptr);
    EXPECT_EQ(mode._from_string("4294967296"), nullptr);
    EXPECT_EQ(mode.value(), Steering::open_loop);

    Recorded_fields fields;
    mode.print(fields);
    EXPECT_EQ(fields.text(), "mode=0;");
}

// ---- Binary interface ----

struct Slots : NV_enum<Steering> {
    static std::size_t getter() { return vtable_slot(&Slots::get_value); }
    static std::size_t setter() { return vtable_slot(&Slots::set_value); }
};

TEST(NV_enum_base, adds_getter_and_setter_after_the_slots_of_an_item) {
    EXPECT_EQ(Slots::getter(), vtable_slot(&NV_item::print) + 1);
    EXPECT_EQ(Slots::setter(), vtable_slot(&NV_item::print) + 2);
}

} // namespace
