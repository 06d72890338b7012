#include <glue/NV_store/NV_container.h>

#include <support/builders/Random.h>
#include <support/builders/Record_builder.h>
#include <support/fakes/Captured_debug.h>
#include <support/settings/Settings_bytes.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

#include <memory>

namespace {

using namespace NV_store;

class Loading : public testing::Test {
  protected:
    bool load(const std::string& stored) {
        Settings_bytes it(stored);
        const bool loaded = tree.deserialise(&it);
        left = it.left();
        return loaded;
    }
    /// Whether a tree loads this unknown record between two known ones.
    bool loads_around(const std::string& record) {
        tree.set_default(true);
        return load(Record_builder().open(0, 0).integer(1, 71).raw(record).value(4, 3, from_hex("48")).close()) &&
               left == 0 && tree.speed.get() == 71 && tree.lamp.get() == 72;
    }

    Settings_tree tree;
    Captured_debug debug;
    int left = 0;
};

constexpr int unknown_id = 99;

TEST_F(Loading, children_are_loaded_in_any_order) {
    EXPECT_TRUE(load(Record_builder()
                         .open(0, 0)
                         .value(4, 3, from_hex("07"))
                         .open(1, 2)
                         .value(6, 3, from_hex("00 00 00 00"))
                         .value(2, 2, from_hex("00"))
                         .value(10, 1, from_hex("00 00 80 3f"))
                         .close()
                         .integer(1, 8)
                         .close()
                         .raw("after ")));
    EXPECT_EQ(left, 6) << "bytes after the record are not consumed";
    EXPECT_EQ(tree.speed.get(), 8);
    EXPECT_EQ(tree.guidance.width.get(), 1);
    EXPECT_FALSE(tree.guidance.beeper.get());
    EXPECT_EQ(tree.guidance.mode.value(), Settings_tree::Mode::open_loop);
    EXPECT_EQ(tree.lamp.get(), 7);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Loading, clears_pristine_and_notifies_nobody) {
    Recorded_signals recorded;
    for (NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
        recorded.watch(*item);
    EXPECT_TRUE(load(Record_builder().open(0, 0).integer(1, 8).close()));
    EXPECT_EQ(tree.speed.get_flags(), 0);
    EXPECT_EQ(tree.get_flags(), 0);
    EXPECT_EQ(tree.lamp.get_flags(), NV_item::pristine);
    EXPECT_EQ(tree.guidance.get_flags(), NV_item::pristine);
    EXPECT_TRUE(recorded.names().empty());
}

TEST_F(Loading, keeps_the_dirty_flags) {
    tree.speed.set(9);
    EXPECT_TRUE(load(Record_builder().open(0, 0).integer(1, 8).close()));
    EXPECT_EQ(tree.speed.get_flags(), NV_item::dirty_write | NV_item::dirty_change);
}

TEST_F(Loading, children_without_a_record_keep_their_values) {
    tree.lamp.set(9);
    tree.guidance.width.set(3);
    EXPECT_TRUE(load(Record_builder().open(0, 0).open(1, 2).close().close()));
    EXPECT_EQ(tree.lamp.get(), 9);
    EXPECT_EQ(tree.guidance.width.get(), 3);
    EXPECT_EQ(tree.speed.get(), 5);
}

TEST_F(Loading, last_of_several_values_stays) {
    EXPECT_TRUE(load(Record_builder().open(0, 0).integer(1, 8).integer(1, 9).close()));
    EXPECT_EQ(tree.speed.get(), 9);
}

TEST_F(Loading, children_with_the_same_id_are_loaded_in_turn) {
    Settings_list list(9, "list");
    Int_setting a(&list, 1, 0, "a");
    Int_setting other(&list, 0, 0, "other");
    Int_setting b(&list, 1, 0, "b");
    Int_setting c(&list, 1, 0, "c");
    Settings_bytes it(Record_builder().open(13, 9).integer(1, 1).integer(1, 2).integer(1, 3).integer(0, 4).close());
    EXPECT_TRUE(list.deserialise(&it));
    EXPECT_EQ(a.get(), 1);
    EXPECT_EQ(b.get(), 2);
    EXPECT_EQ(c.get(), 3);
    EXPECT_EQ(other.get(), 4);
    // A record for only one of them fails: each of them reads one.
    Settings_bytes one(Record_builder().open(13, 9).integer(1, 5).close());
    EXPECT_FALSE(list.deserialise(&one));
    EXPECT_EQ(a.get(), 5);
    EXPECT_EQ(b.get(), 2);
    EXPECT_EQ(debug.text(), "Number fail b 9 != 1 || 13 != 9 424\nNV child was bad for 13:list->b\n");
}

TEST_F(Loading, many_children_with_the_same_id_keep_their_order) {
    Settings_list list(9, "list");
    std::vector<std::unique_ptr<Int_setting>> children;
    Record_builder stored;
    stored.open(13, 9);
    for (int i = 0; i < 200; ++i)
        children.push_back(std::make_unique<Int_setting>(&list, static_cast<unsigned short>(2 - i % 2), 0, "child"));
    for (int i = 0; i < 200; i += 2)
        stored.integer(2, i);
    Settings_bytes it(stored.close());
    EXPECT_TRUE(list.deserialise(&it));
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(children[static_cast<std::size_t>(i)]->get(), i % 2 == 0 ? i : 0);
}

// ---- Not a record of this container ----

TEST_F(Loading, no_record) {
    for (const char* bytes : {"", "00", "00 00 01"}) {
        EXPECT_FALSE(load(from_hex(bytes)));
        EXPECT_EQ(tree.get_flags(), NV_item::pristine);
    }
    const std::string line = "No NV settings for 0:settings\n";
    EXPECT_EQ(debug.text(), line + line + line);
}

TEST_F(Loading, header_of_another_container) {
    EXPECT_FALSE(load(Record_builder().header(0, 1, 7)));
    EXPECT_FALSE(load(Record_builder().header(1, 1, 0)));
    EXPECT_FALSE(load(Record_builder().header(0, 2, 0)));
    EXPECT_EQ(debug.text(), "Bad NV settings 7!=0 0!=0 1!=1 for 0:settings\n"
                            "Bad NV settings 0!=0 1!=0 1!=1 for 0:settings\n"
                            "Bad NV settings 0!=0 0!=0 2!=1 for 0:settings\n");
}

TEST_F(Loading, record_that_is_cut_off_keeps_the_values_before_the_cut) {
    EXPECT_FALSE(load(Record_builder().open(0, 0).integer(1, 8)));
    EXPECT_EQ(debug.text(), "NV bad for 0:settings\n");
    EXPECT_EQ(tree.speed.get(), 8);
    EXPECT_EQ(tree.speed.get_flags(), 0);
    EXPECT_EQ(tree.get_flags(), NV_item::pristine) << "the container itself was not loaded";
}

TEST_F(Loading, bad_child) {
    EXPECT_FALSE(load(Record_builder().open(0, 0).header(1, 1, 2)));
    EXPECT_FALSE(load(Record_builder().open(0, 0).value(8, 1, low_bytes(7, 2)).close()));
    EXPECT_FALSE(load(Record_builder().open(0, 0).header(9, 12, 1).raw("xxxx").close()));
    EXPECT_EQ(debug.text(), "NV bad for 1:guidance\n"
                            "NV child was bad for 0:settings->guidance\n"
                            "Number fail speed 1 != 1 || 8 != 9 424\n"
                            "NV child was bad for 0:settings->speed\n"
                            "Number fail 444\n"
                            "NV child was bad for 0:settings->speed\n");
    EXPECT_EQ(tree.speed.get(), 5);
}

TEST_F(Loading, no_byte_may_be_missing) {
    Settings_bytes saved(NV_iterator::writing_all);
    ASSERT_TRUE(tree.serialise(&saved));
    for (std::size_t size = 0; size < saved.bytes().size(); ++size)
        EXPECT_FALSE(load(saved.bytes().substr(0, size))) << size;
    EXPECT_TRUE(load(saved.bytes()));
}

// ---- Damage ----

TEST_F(Loading, only_a_damaged_container_is_set_to_its_defaults) {
    tree.lamp.set(1);
    tree.guidance.width.set(99);
    Recorded_signals recorded;
    for (NV_item* item : std::initializer_list<NV_item*>{&tree.guidance.width, &tree.guidance.beeper, &tree.speed})
        recorded.watch(*item);
    const std::string inner = Record_builder().open(1, 2).value(2, 2, from_hex("00")).close();
    const std::string stored =
        Record_builder().open(0, 0).integer(1, 8).open(1, 2).value(2, 2, from_hex("00")).close(1).close();
    EXPECT_FALSE(load(stored));
    EXPECT_EQ(tree.guidance.width.get(), 12);
    EXPECT_TRUE(tree.guidance.beeper.get());
    EXPECT_EQ(tree.guidance.get_flags() & NV_item::pristine, 0);
    EXPECT_EQ(tree.speed.get(), 8) << "read before the damage";
    EXPECT_EQ(tree.lamp.get(), 1) << "not reached";
    EXPECT_EQ(recorded.names(), (std::vector<std::string>{"width", "width*", "beeper", "beeper*"}))
        << "values that are set to their defaults are notified";
    const std::uint32_t crc = crc32_by_definition(0, inner.substr(0, inner.size() - 4));
    EXPECT_EQ(debug.text(), "NV_store CRC32 Check " + std::to_string(crc) + "!=" + std::to_string(crc + 1) +
                                " for 1:guidance\n"
                                "NV child was bad for 0:settings->guidance\n");
}

TEST_F(Loading, damage_of_the_root_s_own_record_sets_everything_to_its_default) {
    EXPECT_FALSE(load(Record_builder()
                          .open(0, 0)
                          .integer(1, 8)
                          .open(1, 2)
                          .value(2, 2, from_hex("00"))
                          .close()
                          .value(4, 3, from_hex("07"))
                          .close(1)));
    EXPECT_EQ(tree.speed.get(), 5);
    EXPECT_TRUE(tree.guidance.beeper.get());
    EXPECT_EQ(tree.lamp.get(), 200);
}

TEST_F(Loading, checksum_that_is_cut_off_is_wrong) {
    const std::string stored = Record_builder().open(0, 0).integer(1, 8).close();
    for (std::size_t missing = 1; missing <= 4; ++missing) {
        EXPECT_FALSE(load(stored.substr(0, stored.size() - missing)));
        EXPECT_EQ(tree.speed.get(), 5) << missing;
    }
    EXPECT_NE(debug.text().find("!=0 for 0:settings\n"), std::string::npos);
}

TEST_F(Loading, every_child_is_set_to_its_default_even_when_one_fails) {
    NV_struct container(1, "container");
    Counted_setting a(&container, 1, 0, "a");
    Counted_setting b(&container, 2, 0, "b");
    a.refuses_default = true;
    Settings_bytes it(Record_builder().open(1, 1).integer(1, 8).integer(2, 9).close(7));
    EXPECT_FALSE(container.deserialise(&it));
    EXPECT_EQ(a.get(), 0);
    EXPECT_EQ(b.get(), 0);
}

TEST_F(Loading, one_changed_bit_never_passes) {
    tree.speed.set(8);
    tree.guidance.mode.set(Settings_tree::Mode::off);
    Settings_bytes saved(NV_iterator::writing_all);
    ASSERT_TRUE(tree.serialise(&saved));
    const std::string whole = saved.bytes();
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        std::string damaged = whole;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
        EXPECT_FALSE(load(damaged)) << bit;
    }
    EXPECT_TRUE(load(whole));
}

TEST_F(Loading, random_bytes_do_no_harm) {
    Random random;
    Settings_bytes saved(NV_iterator::writing_all);
    ASSERT_TRUE(tree.serialise(&saved));
    for (int i = 0; i < 3000; ++i) {
        std::string stored = saved.bytes();
        for (unsigned changes = random.between(1, 6); changes > 0; --changes)
            stored[random.between(4, static_cast<unsigned>(stored.size()) - 1)] = static_cast<char>(random.byte());
        load(stored);
        load(from_hex("00 00 01 00 ") + random.bytes(60));
    }
    EXPECT_TRUE(load(saved.bytes()));
}

// ---- Records without a node ----

TEST_F(Loading, unknown_numbers_are_skipped) {
    const std::pair<int, int> sizes[] = {{2, 1}, {3, 1}, {4, 1},  {5, 2},  {6, 4},  {7, 1},
                                         {8, 2}, {9, 4}, {10, 4}, {11, 8}, {15, 8}, {16, 8}};
    for (const auto& [type, size] : sizes)
        EXPECT_TRUE(loads_around(Record_builder().value(type, unknown_id, low_bytes(0x0202020202020202, size))))
            << type;
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Loading, unknown_arrays_are_skipped) {
    const std::pair<int, int> sizes[] = {{2, 1}, {3, 1}, {4, 1}, {5, 2},  {6, 4},
                                         {7, 1}, {8, 2}, {9, 4}, {10, 4}, {11, 8}};
    for (const auto& [type, size] : sizes) {
        for (const int count : {0, 1, 255}) {
            const std::string values(static_cast<std::size_t>(count * size), '\2');
            EXPECT_TRUE(loads_around(Record_builder().value(
                0x40 | type, unknown_id, low_bytes(255U & static_cast<unsigned>(count), 1) + values)))
                << type;
        }
        const std::string matrix(static_cast<std::size_t>(3 * 5 * size), '\2');
        EXPECT_TRUE(loads_around(Record_builder().value(0x80 | type, unknown_id, from_hex("03 05") + matrix))) << type;
    }
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Loading, unknown_containers_are_skipped_with_their_content) {
    for (const int type : {0, 1, 13}) {
        EXPECT_TRUE(loads_around(Record_builder().open(type, unknown_id).close()));
        EXPECT_TRUE(loads_around(Record_builder()
                                     .open(type, unknown_id)
                                     .integer(1, 13)
                                     .open(13, unknown_id)
                                     .value(0x44, 2, from_hex("02 01 02"))
                                     .close()
                                     .open(0, 0)
                                     .close()
                                     .close()));
    }
    EXPECT_TRUE(loads_around(Record_builder().open(1, unknown_id).open(1, 1).close(5).close(9)))
        << "their checksums are not compared";
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Loading, damage_within_an_unknown_container_is_found_by_the_known_one_around_it) {
    std::string stored = Record_builder().open(0, 0).open(1, unknown_id).integer(1, 13).close().close();
    stored[12] = static_cast<char>(stored[12] ^ 1); // in the number's value
    EXPECT_FALSE(load(stored));
    EXPECT_EQ(debug.text().find("NV_store CRC32 Check "), 0U);
}

TEST_F(Loading, unknown_records_that_cannot_be_skipped_end_it) {
    const std::string some(16, '\0');
    int count = 0;
    for (int type_byte = 0; type_byte < 256; ++type_byte) {
        const int dimension = type_byte >> 6;
        const int type = type_byte & 63;
        const bool number = type >= 2 && type <= 11;
        const bool container = type == 0 || type == 1 || type == 13;
        if (dimension == 0 ? number || container || type == 15 || type == 16 : dimension < 3 && number)
            continue;
        EXPECT_FALSE(loads_around(Record_builder().value(type_byte, unknown_id, some))) << type_byte;
        ++count;
    }
    EXPECT_EQ(count, 256 - 15 - 2 * 10);
    EXPECT_FALSE(loads_around(Record_builder().value(17, unknown_id, low_bytes(1, 4)))) << "a number of unknown size";
    EXPECT_FALSE(loads_around(Record_builder().path(unknown_id, {1, 0}))) << "a pointer";
    const std::string line = "NV unknown child was bad for 0:settings\n";
    EXPECT_EQ(debug.text().substr(0, 2 * line.size()), line + line);
}

TEST_F(Loading, unknown_records_of_the_wrong_kind_end_it) {
    for (const int kind : {0, 1, 3, 12, 255})
        EXPECT_FALSE(loads_around(Record_builder().header(9, kind, unknown_id).raw(low_bytes(1, 4)))) << kind;
    for (const int kind : {1, 12})
        EXPECT_FALSE(loads_around(Record_builder().header(0x49, kind, unknown_id).raw(low_bytes(0, 1)))) << kind;
    for (const int kind : {0, 3, 9, 12})
        EXPECT_FALSE(loads_around(Record_builder().header(1, kind, unknown_id).header(1, 2, unknown_id).raw("crc!")))
            << kind;
}

TEST_F(Loading, unknown_container_must_be_closed_by_its_own_header) {
    EXPECT_TRUE(loads_around(Record_builder().header(1, 1, unknown_id).header(1, 2, unknown_id).raw("crc!")));
    EXPECT_FALSE(loads_around(Record_builder().header(1, 1, unknown_id).header(1, 2, unknown_id + 1).raw("crc!")));
    EXPECT_FALSE(loads_around(Record_builder().header(1, 1, unknown_id).header(13, 2, unknown_id).raw("crc!")));
    EXPECT_FALSE(loads_around(Record_builder().header(1, 1, unknown_id).value(17, 1, "xxxx").header(1, 2, unknown_id)));
}

TEST_F(Loading, unknown_record_that_is_cut_off_ends_it) {
    const std::string whole = Record_builder()
                                  .open(0, 0)
                                  .open(1, unknown_id)
                                  .value(0x89, 1, from_hex("01 02") + low_bytes(7, 8))
                                  .value(16, 2, low_bytes(7, 8))
                                  .close();
    for (std::size_t size = 4; size < whole.size(); ++size) {
        EXPECT_FALSE(load(whole.substr(0, size))) << size;
        EXPECT_LT(left, 8) << size;
    }
}

TEST_F(Loading, skips_the_next_record_on_request) {
    Settings_bytes it(Record_builder().integer(1, 5).open(1, 2).integer(1, 6).close().raw("x"));
    EXPECT_TRUE(NV_item::deserialise_unknown_handoff(&it));
    EXPECT_TRUE(NV_container::deserialise_unknown(&it));
    EXPECT_EQ(it.left(), 1);
    EXPECT_FALSE(NV_item::deserialise_unknown_handoff(&it));
    EXPECT_FALSE(NV_container::deserialise_unknown(&it));
    EXPECT_EQ(it.left(), 1);
    Settings_bytes number(Record_builder().integer(1, 5));
    EXPECT_FALSE(NV_container::deserialise_unknown(&number)) << "not a container";
}

TEST_F(Loading, any_number_of_unknown_levels_is_no_danger) {
    constexpr int levels = 100000;
    std::string opening;
    std::string closing;
    for (int i = 0; i < levels; ++i) {
        opening += from_hex("63 00 01 01");
        closing += from_hex("63 00 02 01 00 00 00 00");
    }
    EXPECT_TRUE(loads_around(opening + closing));
    EXPECT_FALSE(load(Record_builder().open(0, 0).raw(opening)));
}

} // namespace
