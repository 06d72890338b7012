// The order of the virtual operations, which is part of the binary interface.

#include <glue/data_stream/Data_stream.h>

#include <support/checks/Vtable_slot.h>

#include <gtest/gtest.h>

namespace {

TEST(Data_stream_slots, are_in_their_order) {
    EXPECT_EQ(vtable_slot(&Data_stream::drop), 2U);
    EXPECT_EQ(vtable_slot(&Data_stream::drop_all), 3U);
    EXPECT_EQ(vtable_slot<unsigned (Data_stream::*)()>(&Data_stream::bytes_avail), 4U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_port_logging), 5U);
    EXPECT_EQ(vtable_slot(&Data_stream::flush), 6U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_read_timeout), 7U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_default_read_timeout), 8U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_write_timeout), 9U);
    EXPECT_EQ(vtable_slot(&Data_stream::set_default_write_timeout), 10U);
    EXPECT_EQ(vtable_slot<bool (Data_stream::*)(unsigned char*, unsigned, unsigned)>(&Data_stream::get_data), 11U);
    EXPECT_EQ(vtable_slot<int (Data_stream::*)(int)>(&Data_stream::get_data), 12U);
    EXPECT_EQ(vtable_slot(&Data_stream::_write), 13U);
}

TEST(Data_stream_slots, other_operations_have_none) {
    EXPECT_EQ(vtable_slot(&Data_stream::_get_data), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::operator[]), not_virtual);
    EXPECT_EQ(vtable_slot<int (Data_stream::*)(unsigned)>(&Data_stream::bytes_avail), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::string_avail), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::dprint), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::set_description), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::__write), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::write_direct), not_virtual);
    EXPECT_EQ(vtable_slot<bool (Data_stream::*)(const Binary_message&, bool)>(&Data_stream::write), not_virtual);
    EXPECT_EQ(vtable_slot<int (Data_stream::*)(Data_stream&)>(&Data_stream::write), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::vprintf), not_virtual);
    EXPECT_EQ(vtable_slot(&Data_stream::printf), not_virtual);
}

} // namespace
