#include <platform/Dumper.h>

#include <support/fakes/Captured_debug.h>

#include <gtest/gtest.h>

namespace {

TEST(Print_dumper, prints_one_line_per_field_indented_by_two_blanks_per_group) {
    const Captured_debug printed;
    Debug::Print_dumper dumper;
    dumper.print_field("speed", "5");
    dumper.begin_group("guidance");
    dumper.print_field("width", "12");
    dumper.begin_group("inner");
    dumper.print_field("beeper", "1");
    dumper.end_group();
    dumper.end_group();
    dumper.print_field("lamp", "200");
    EXPECT_EQ(printed.text(), "speed: 5\n"
                              "guidance:\n"
                              "  width: 12\n"
                              "  inner:\n"
                              "    beeper: 1\n"
                              "lamp: 200\n");
}

TEST(Print_dumper, stays_at_the_margin_when_more_groups_end_than_began) {
    const Captured_debug printed;
    Debug::Print_dumper dumper;
    dumper.end_group();
    dumper.begin_group("group");
    dumper.print_field("field", "100%s");
    EXPECT_EQ(printed.text(), "group:\n  field: 100%s\n");
}

} // namespace
