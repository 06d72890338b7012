#include <settings/Record_walker.h>
#include <settings/Settings_comparison.h>

#include <support/builders/settings_records.h>
#include <support/files/Text_file.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace settings_records;

/// The report on two files, called A and B.
std::string differences(const std::string& a, const std::string& b) {
    Settings_comparison comparison("A", "B");
    std::vector<unsigned char> bytes_a(a.begin(), a.end());
    std::vector<unsigned char> bytes_b(b.begin(), b.end());
    Record_walker(bytes_a).walk(comparison.first());
    Record_walker(bytes_b).walk(comparison.second());
    Text_file out;
    const std::size_t count = comparison.print(out.get());
    const std::string text = out.text();
    EXPECT_EQ(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), count);
    return text;
}

std::string byte(unsigned id, const std::string& bytes) {
    return value(4, id, bytes);
}

TEST(Settings_comparison, equal_settings_have_no_differences) {
    const std::string file = container(0, 1, byte(1, "a") + pointer(2, {1, 1}));
    EXPECT_EQ(differences(file, file), "");
    EXPECT_EQ(differences("", ""), "");
}

TEST(Settings_comparison, order_does_not_matter) {
    EXPECT_EQ(differences(container(0, 1, byte(1, "a") + byte(2, "b")), container(0, 1, byte(2, "b") + byte(1, "a"))),
              "");
}

TEST(Settings_comparison, reports_values_types_and_settings_in_one_file_only) {
    const std::string a = container(0, 9, container(1, 2, byte(1, "a") + byte(2, "a")) + byte(3, "a"));
    const std::string b = container(0, 9, container(1, 2, byte(1, "b") + value(5, 2, "ab")) + byte(4, "a"));
    EXPECT_EQ(differences(a, b), "9/2/1: other value: uint8 97 in A, uint8 98 in B\n"
                                 "9/2/2: other type: uint8 97 in A, uint16 25185 in B\n"
                                 "9/3: only in A: uint8 97\n"
                                 "9/4: only in B: uint8 97\n");
}

TEST(Settings_comparison, array_of_another_size_is_another_type) {
    EXPECT_EQ(differences(value(0x44, 1,
                                "\x01"
                                "a"),
                          value(0x44, 1,
                                "\x02"
                                "ab")),
              "1: other type: array of 1 uint8 [97] in A, array of 2 uint8 [97, 98] in B\n");
}

TEST(Settings_comparison, reports_the_targets_of_pointers) {
    EXPECT_EQ(differences(container(0, 0, pointer(1, {2, 0})), container(0, 0, pointer(1, {}))),
              "0/1: other value: pointer to 0/2 in A, pointer to nothing in B\n");
}

TEST(Settings_comparison, last_value_counts) {
    const std::string full = container(0, 0, byte(1, "a") + container(1, 2, byte(1, "c")));
    const std::string incremental = container(0, 0, container(1, 2, byte(1, "d")));
    EXPECT_EQ(differences(full + incremental, container(0, 0, byte(1, "a") + container(1, 2, byte(1, "d")))), "");
    EXPECT_EQ(differences(full, full + incremental), "0/2/1: other value: uint8 99 in A, uint8 100 in B\n");
}

TEST(Settings_comparison, settings_of_a_list_with_the_same_id_are_distinguished_by_their_order) {
    EXPECT_EQ(differences(container(13, 5, byte(1, "a") + byte(2, "x") + byte(1, "b")),
                          container(13, 5, byte(1, "a") + byte(2, "x") + byte(1, "c") + byte(1, "d"))),
              "5/1[2]: other value: uint8 98 in A, uint8 99 in B\n"
              "5/1[3]: only in B: uint8 100\n");
}

TEST(Settings_comparison, in_a_struct_the_last_of_those_with_the_same_id_counts) {
    EXPECT_EQ(differences(container(1, 5, byte(1, "a") + byte(1, "b")), container(1, 5, byte(1, "b"))), "");
}

TEST(Settings_comparison, containers_differ_only_by_their_content) {
    EXPECT_EQ(differences(container(0, 0, container(1, 1, "")), container(0, 0, "")), "");
    EXPECT_EQ(differences(container(0, 0, container(1, 1, "")), container(0, 0, container(13, 1, ""))),
              "0/1: other type: struct in A, list in B\n");
    EXPECT_EQ(differences(container(0, 0, container(1, 1, "")), container(0, 0, byte(1, "a"))),
              "0/1: other type: struct in A, uint8 97 in B\n");
}

TEST(Settings_comparison, deep_settings_are_identified_by_the_end_of_their_path) {
    std::string file = byte(7, "a");
    for (unsigned level = 0; level < 40; ++level)
        file = container(1, level, file);
    const std::string text = differences(file, "");
    EXPECT_EQ(text.substr(0, 7), ".../30/");
    EXPECT_THAT(text, testing::EndsWith("/1/0/7: only in A: uint8 97\n"));
    EXPECT_EQ(differences(nested(100000), ""), "");
}

} // namespace
