// The reports on a settings file: the listing, the check, the statistics.

#include <settings/Record_walker.h>
#include <settings/Settings_check.h>
#include <settings/Settings_listing.h>
#include <settings/Settings_statistics.h>
#include <settings/record_text.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/builders/settings_records.h>
#include <support/files/Text_file.h>
#include <support/settings/Nested_settings.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace settings_records;
using testing::HasSubstr;

void walk(const std::string& file, Record_visitor& visitor) {
    std::vector<unsigned char> bytes(file.begin(), file.end());
    Record_walker(bytes).walk(visitor);
}

struct Listed {
    explicit Listed(const std::string& file) {
        Text_file out;
        Settings_listing listing(out.get());
        walk(file, listing);
        text = out.text();
        is_good = listing.is_good();
    }
    std::string text;
    bool is_good = false;
};

Settings_check checked(const std::string& file) {
    Settings_check check;
    walk(file, check);
    return check;
}

Settings_statistics counted(const std::string& file) {
    Settings_statistics statistics;
    walk(file, statistics);
    return statistics;
}

const std::string small_file =
    container(0, 0, value(9, 1, le(std::int32_t{5})) + container(1, 2, value(2, 1, "\x01")) + pointer(3, {1, 2, 0}));

// ---- The listing ----

TEST(Settings_listing, is_a_line_for_each_record) {
    const Listed listed(small_file);
    EXPECT_TRUE(listed.is_good);
    EXPECT_EQ(listed.text.substr(0, listed.text.rfind("  end of id 0")),
              "save 1, at offset 0\n"
              "  id 0  container, type 0 (root)\n"
              "    id 1  value, type 9 (int32): 5\n"
              "    id 2  container, type 1 (struct)\n"
              "      id 1  value, type 2 (bool): true\n"
              "    end of id 2, checksum " +
                  hexadecimal(crc32_by_definition(0, small_file.substr(12, 13))) +
                  " good\n"
                  "    id 3  pointer, type 14 (pointer): to 0/2/1\n");
}

TEST(Settings_listing, shows_several_saves) {
    const Listed listed(small_file + container(0, 0, ""));
    EXPECT_TRUE(listed.is_good);
    EXPECT_THAT(listed.text, HasSubstr("\nsave 2, at offset " + std::to_string(small_file.size()) +
                                       ", incremental: its values replace earlier ones\n  id 0  container"));
}

TEST(Settings_listing, marks_the_checksums_that_are_bad) {
    std::string file = small_file;
    file[8] ^= 1; // in the root, not in the container within
    const Listed listed(file);
    EXPECT_FALSE(listed.is_good);
    EXPECT_THAT(listed.text, testing::ContainsRegex("end of id 2, checksum [0-9A-F]{8} good\n"));
    EXPECT_THAT(listed.text, HasSubstr(" BAD: the content has " +
                                       hexadecimal(crc32_by_definition(0, file.substr(0, file.size() - 4)))));
}

TEST(Settings_listing, shows_all_records_before_the_fault) {
    const Listed listed(small_file.substr(0, 14));
    EXPECT_FALSE(listed.is_good);
    EXPECT_THAT(listed.text, HasSubstr("    id 1  value, type 9 (int32): 5\n"));
    EXPECT_THAT(listed.text, testing::EndsWith("stopped at offset 14: the file ends within a record, and within the "
                                               "container 0 that began at offset 0\n"));
}

TEST(Settings_listing, limits_the_indentation) {
    const Listed listed(nested(100000));
    EXPECT_LT(listed.text.size(), 30000000U);
    EXPECT_THAT(listed.text, HasSubstr("\n" + std::string(42, ' ') + "(level 99999) id 1  container"));
}

// ---- The check ----

TEST(Settings_check, good_file_has_no_fault) {
    EXPECT_FALSE(checked(small_file).first_fault());
    EXPECT_EQ(checked(small_file + container(0, 0, "")).saves(), 2U);
}

TEST(Settings_check, every_flipped_bit_is_found_and_located) {
    Nested_settings tree;
    tree.set_all();
    const std::string intact = tree.record();
    for (std::size_t bit = 0; bit < intact.size() * 8; ++bit) {
        std::string file = intact;
        file[bit / 8] = static_cast<char>(file[bit / 8] ^ 1 << bit % 8);
        const Settings_check check = checked(file);
        ASSERT_TRUE(check.first_fault()) << "bit " << bit;
        EXPECT_LE(check.first_fault()->offset, file.size());
    }
}

TEST(Settings_check, changed_value_is_found_at_the_innermost_checksum) {
    Nested_settings tree;
    std::string file = tree.record();
    file[34] ^= 1; // outer.inner.wide
    const Settings_check check = checked(file);
    ASSERT_TRUE(check.first_fault());
    EXPECT_EQ(check.first_fault()->offset, 54U);
    EXPECT_THAT(check.first_fault()->what, HasSubstr("of the container with id 3 that began at offset 24"));
}

TEST(Settings_check, every_cut_is_found_except_the_one_between_two_saves) {
    Nested_settings tree;
    std::string file = tree.record();
    const std::size_t first_save = file.size();
    tree.last.set(1);
    file += saved(tree, NV_store::NV_iterator::appending_changed);
    for (std::size_t length = 0; length < file.size(); ++length)
        EXPECT_EQ(checked(file.substr(0, length)).first_fault().has_value(), length != first_save) << length;
}

TEST(Settings_check, records_outside_of_containers_are_counted_as_unprotected) {
    EXPECT_EQ(checked(small_file).unprotected(), 0U);
    const Settings_check check = checked(value(4, 1, "a") + pointer(2, {}));
    EXPECT_FALSE(check.first_fault());
    EXPECT_EQ(check.unprotected(), 2U);
    EXPECT_EQ(check.saves(), 2U);
}

// ---- The statistics ----

TEST(Settings_statistics, count_records_levels_saves_and_bytes) {
    const std::string incremental = container(0, 0, value(9, 1, "abcd"));
    const Settings_statistics statistics = counted(small_file + incremental);
    EXPECT_EQ(statistics.records(), 7U);
    EXPECT_EQ(statistics.depth(), 2U);
    EXPECT_EQ(statistics.saves(), 2U);
    EXPECT_EQ(statistics.bytes(), small_file.size() + incremental.size());
    EXPECT_EQ(statistics.by_type().at(9).records, 2U);
    EXPECT_EQ(statistics.by_type().at(9).bytes, 16U);
    EXPECT_EQ(statistics.by_type().at(0).bytes, 24U);
    EXPECT_EQ(statistics.by_type().at(1).bytes, 12U);
    EXPECT_EQ(statistics.by_type().at(14).bytes, 11U);
}

TEST(Settings_statistics, account_for_every_byte_of_a_file) {
    Nested_settings tree;
    EXPECT_EQ(counted(tree.record()).bytes(), tree.record().size());
}

TEST(Settings_statistics, are_printed_as_a_table) {
    Text_file out;
    counted(small_file).print(out.get());
    EXPECT_EQ(out.text(), "bytes               48\n"
                          "records              5\n"
                          "depth                2\n"
                          "saves                1\n"
                          "incremental          0\n"
                          "\n"
                          "type           records      bytes\n"
                          "root                 1         12\n"
                          "struct               1         12\n"
                          "bool                 1          5\n"
                          "int32                1          8\n"
                          "pointer              1         11\n");
}

} // namespace
