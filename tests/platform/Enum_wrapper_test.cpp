#include <platform/Enum_wrapper.h>

#include <gtest/gtest.h>
#include <limits>

namespace {

TEST(Enum_wrapper, returns_the_name_of_each_number) {
    const Enum_wrapper_ names({{-1, "Rear"}, {0, "Towed"}, {1, "Front"}});
    EXPECT_STREQ(names.id_to_str(-1), "Rear");
    EXPECT_STREQ(names.id_to_str(0), "Towed");
    EXPECT_STREQ(names.id_to_str(1), "Front");
}

TEST(Enum_wrapper, number_without_a_name_is_unknown) {
    const Enum_wrapper_ names({{0, "zero"}, {3, "three"}, {15, "fifteen"}});
    for (const int id : {-1, 1, 2, 4, 14, 16, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_STREQ(names.id_to_str(id), "UNKNOWN") << id;
}

TEST(Enum_wrapper, without_names_returns_unknown) {
    EXPECT_STREQ(Enum_wrapper_({}).id_to_str(0), "UNKNOWN");
}

TEST(Enum_wrapper, first_of_two_names_is_returned) {
    EXPECT_STREQ(Enum_wrapper_({{7, "first"}, {7, "second"}}).id_to_str(7), "first");
}

TEST(Enum_wrapper, does_not_copy_names) {
    char name[] = "before";
    const Enum_wrapper_ names({{1, name}});
    EXPECT_EQ(names.id_to_str(1), name);
}

TEST(Enum_wrapper, order_of_the_table_does_not_matter) {
    const Enum_wrapper_ names({{15, "last"}, {-4, "first"}, {2, "middle"}});
    EXPECT_STREQ(names.id_to_str(15), "last");
    EXPECT_STREQ(names.id_to_str(-4), "first");
    EXPECT_STREQ(names.id_to_str(2), "middle");
}

} // namespace
