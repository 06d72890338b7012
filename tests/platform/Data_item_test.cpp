#include <platform/Data_item.h>

#include <gtest/gtest.h>
#include <string>

namespace {

using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;

/// An item that sends one byte.
struct Item : Data_item {
    Data_item* find_data_item(const char*) override { return nullptr; }
    Data_item* find_data_item(unsigned short number) override { return number == data_number() ? this : nullptr; }
    Serial_ret serialise(Send_buffer& buffer, unsigned short& counter) override {
        return serial_action_started(counter) ? serial_check(buffer.append_UINT8(7) == 1) : serial_ok();
    }
    Serial_ret deserialise(Receive_buffer&, unsigned short&) override { return serial_ok(); }
    bool serialise_structure(Send_buffer& buffer, int) override { return append_description(buffer, "item", 9); }
    int _to_string(char*, int) const override { return 0; }

    static bool started(unsigned short& counter) { return serial_action_started(counter); }
};

TEST(Data_item, type_byte_is_the_code_of_a_single_value) {
    for (int type = 0; type < 64; ++type)
        EXPECT_EQ(Data_item::get_type_byte(0, type), type);
}

TEST(Data_item, type_byte_has_the_dimension_in_the_two_top_bits) {
    EXPECT_EQ(Data_item::get_type_byte(1, 9), 0x49);
    EXPECT_EQ(Data_item::get_type_byte(2, 9), 0x89);
    EXPECT_EQ(Data_item::get_type_byte(3, 63), 0xFF);
    for (int byte = 0; byte < 256; ++byte) {
        int dimension = -1;
        int type = -1;
        Data_item::decode_type_byte(static_cast<unsigned char>(byte), dimension, type);
        EXPECT_EQ(dimension, byte / 64);
        EXPECT_EQ(type, byte % 64);
        EXPECT_EQ(Data_item::get_type_byte(dimension, type), byte);
    }
}

TEST(Data_item, types_have_the_codes_that_are_stored) {
    using DTS::Defs;
    EXPECT_EQ(Defs::type_root, 0);
    EXPECT_EQ(Defs::type_struct, 1);
    EXPECT_EQ(Defs::type_bool, 2);
    EXPECT_EQ(Defs::type_char, 3);
    EXPECT_EQ(Defs::type_uint8, 4);
    EXPECT_EQ(Defs::type_uint16, 5);
    EXPECT_EQ(Defs::type_uint32, 6);
    EXPECT_EQ(Defs::type_int8, 7);
    EXPECT_EQ(Defs::type_int16, 8);
    EXPECT_EQ(Defs::type_int32, 9);
    EXPECT_EQ(Defs::type_float, 10);
    EXPECT_EQ(Defs::type_double, 11);
    EXPECT_EQ(Defs::type_list, 13);
    EXPECT_EQ(Defs::type_pointer, 14);
    EXPECT_EQ(Defs::type_uint64, 15);
    EXPECT_EQ(Defs::type_int64, 16);
    EXPECT_EQ(Defs::type_special_number, 17);
    EXPECT_EQ(Defs::single, 0);
    EXPECT_EQ(Defs::array, 1);
    EXPECT_EQ(Defs::matrix, 2);
}

TEST(Data_item, numbers_count_up_to_65534) {
    const Item first;
    unsigned expected = first.data_number();
    for (int i = 0; i < 0x10000; ++i) {
        expected = expected == 65534 ? 0 : expected + 1;
        ASSERT_EQ(Item().data_number(), expected);
    }
}

TEST(Data_item, copy_has_the_number_and_the_hook_but_is_in_no_list) {
    struct : Data_item::Change_hook {
        void changed(bool) override {}
    } hook;
    sl_list list;
    Item item;
    item.set_data_number(1234);
    item.set_change_hook(&hook);
    list.push_back(&item);
    const Item copy(item);
    EXPECT_EQ(copy.data_number(), 1234);
    EXPECT_EQ(copy.change_hook(), &hook);
    EXPECT_FALSE(copy.is_in_list());
    EXPECT_EQ(Item().change_hook(), nullptr);
}

// ---- Continuing where sending stopped ----

TEST(Data_item, counter_skips_items_and_then_counts_those_reached) {
    unsigned short counter = 2;
    EXPECT_FALSE(Item::started(counter));
    EXPECT_FALSE(Item::started(counter));
    EXPECT_EQ(counter, 0);
    EXPECT_TRUE(Item::started(counter));
    EXPECT_TRUE(Item::started(counter));
    EXPECT_EQ(counter, static_cast<unsigned short>(-2));
}

TEST(Data_item, counter_skips_32767_items_at_most) {
    unsigned short counter = 32767;
    for (int i = 0; i < 32767; ++i)
        ASSERT_FALSE(Item::started(counter)) << i;
    EXPECT_TRUE(Item::started(counter));
    counter = 32768;
    EXPECT_TRUE(Item::started(counter));
}

TEST(Data_item, counter_skips_nothing_after_any_number_of_items) {
    unsigned short counter = 0;
    for (int i = 0; i < 70000; ++i)
        ASSERT_TRUE(Item::started(counter)) << i;
    EXPECT_EQ(counter, 0x8000);
}

TEST(Data_item, result_has_the_failed_item_and_the_nearest_that_follows) {
    unsigned char byte = 0;
    Send_buffer full_buffer(&byte, 0);
    Send_buffer buffer(&byte, 1);
    unsigned short counter = 0;
    Item item;
    Item nearest_item;
    Item farther_item;
    EXPECT_FALSE(item.serialise(buffer, counter).fail());
    counter = 0;
    EXPECT_EQ(item.serialise(buffer, counter).failed_item(), &item);

    counter = 0;
    Data_item::Serial_ret result = item.serialise(full_buffer, counter);
    EXPECT_TRUE(result.fail());
    EXPECT_EQ(result.next_item(), nullptr);
    result.sync_next(nullptr);
    result.sync_next(&nearest_item);
    result.sync_next(&farther_item);
    EXPECT_EQ(result.next_item(), &nearest_item);

    const Data_item::Serial_ret success;
    EXPECT_FALSE(success.fail());
    EXPECT_EQ(success.failed_item(), nullptr);
    EXPECT_EQ(success.next_item(), nullptr);
}

TEST(Data_item, description_is_name_type_and_number) {
    unsigned char bytes[16];
    Item item;
    item.set_data_number(321);
    Send_buffer buffer(bytes, 10);
    EXPECT_TRUE(item.serialise_structure(buffer, 0));
    EXPECT_EQ(std::string(bytes, bytes + buffer.size()), "item:9:321");
    Send_buffer small(bytes, 9);
    EXPECT_FALSE(item.serialise_structure(small, 0));
    EXPECT_EQ(small.size(), 0);
}

} // namespace
