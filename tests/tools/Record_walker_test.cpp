#include "Recorded_walk.h"

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/builders/mended_checksums.h>
#include <support/builders/settings_records.h>
#include <support/settings/Nested_settings.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace settings_records;
using testing::ElementsAre;
using testing::HasSubstr;

void expect_fault(const std::string& file, std::size_t offset, const std::string& text) {
    const Recorded_walk walk(file);
    EXPECT_FALSE(walk.whole);
    EXPECT_EQ(walk.fault_offset, offset) << walk.fault_text;
    EXPECT_THAT(walk.fault_text, HasSubstr(text));
}

// ---- Records ----

TEST(Record_walker, delivers_records_in_the_order_of_the_file) {
    const std::string file = container(0, 7, value(9, 1, le(std::int32_t{-5})) + container(1, 2, value(4, 3, "A")));
    const Recorded_walk walk(file);
    EXPECT_TRUE(walk.whole);
    EXPECT_THAT(walk.events,
                ElementsAre("0 7: {", "4 1: int32 -5", "12 2: {", "16 3: uint8 65", "12 2: } good", "0 7: } good"));
    EXPECT_EQ(walk.ends[0].checksum_offset, 25U);
    EXPECT_EQ(walk.ends[1].checksum_offset, 33U);
}

TEST(Record_walker, knows_every_type_of_number) {
    const Recorded_walk walk(value(2, 1, "\x01") + value(3, 1, "A") + value(4, 1, "\xFF") + value(5, 1, "\xFF\xFE") +
                             value(6, 1, "\xFF\xFF\xFF\xFE") + value(7, 1, "\xFF") + value(8, 1, "\xFE\xFF") +
                             value(9, 1, "\xFE\xFF\xFF\xFF") + value(10, 1, le(0.1F)) + value(11, 1, le(-0.0)) +
                             value(15, 1, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF") +
                             value(16, 1, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"));
    EXPECT_TRUE(walk.whole);
    EXPECT_THAT(walk.events, ElementsAre("0 1: bool true", "5 1: char 65 'A'", "10 1: uint8 255", "15 1: uint16 65279",
                                         "21 1: uint32 4278190079", "29 1: int8 -1", "34 1: int16 -2", "40 1: int32 -2",
                                         "48 1: float 0.1", "56 1: double -0", "68 1: uint64 18446744073709551615",
                                         "80 1: int64 -1"));
}

TEST(Record_walker, knows_arrays_matrices_and_texts) {
    const unsigned array = 1 << 6;
    const unsigned matrix = 2 << 6;
    const Recorded_walk walk(value(array | 5, 1, "\x02" + le(std::uint16_t{300}) + le(std::uint16_t{4})) +
                             value(matrix | 4, 1, std::string("\x02\x03") + "\x01\x02\x03\x04\x05\x06") +
                             value(array | 3, 1,
                                   "\x05"
                                   "a\"b\\\x1F") +
                             value(array | 4, 1, std::string(1, '\0')));
    EXPECT_TRUE(walk.whole);
    EXPECT_THAT(walk.events,
                ElementsAre("0 1: array of 2 uint16 [300, 4]", "9 1: matrix of 2 x 3 uint8 [[1, 2, 3], [4, 5, 6]]",
                            R"(21 1: array of 5 char "a\"b\\\x1F")", "31 1: array of 0 uint8 []"));
}

TEST(Record_walker, reverses_the_path_of_a_pointer) {
    const Recorded_walk walk(pointer(6, {2, 3, 0}) + pointer(7, {}));
    EXPECT_THAT(walk.events, ElementsAre("0 6: to 0/3/2", "11 7: to nothing"));
}

TEST(Record_walker, agrees_with_what_the_library_writes) {
    Nested_settings tree;
    tree.set_all();
    const Recorded_walk walk(tree.record());
    EXPECT_TRUE(walk.whole);
    EXPECT_THAT(walk.events,
                ElementsAre("0 0: {", "4 1: int32 -1000000", "12 2: {", "16 1: float -0", "24 3: {", "28 1: bool true",
                            "33 2: uint64 18364758544493064720", "45 3: uint32 16909060", "24 3: } good",
                            "61 4: double inf", "12 2: } good", "81 5: {", "85 7: int16 -32768", "91 8: int16 513",
                            "81 5: } good", "105 6: to 0/2/3/2", "118 7: uint8 255", "0 0: } good"));
}

TEST(Record_walker, delivers_incremental_saves_as_separate_records) {
    Nested_settings tree;
    std::string file = tree.record();
    tree.last.set(1);
    file += saved(tree, NV_store::NV_iterator::appending_changed);
    const Recorded_walk walk(file);
    EXPECT_TRUE(walk.whole);
    EXPECT_EQ(walk.events[walk.events.size() - 3].substr(0, 3), std::to_string(tree.record().size()));
    EXPECT_THAT(walk.events.back(), HasSubstr("} good"));
}

// ---- Faults ----

TEST(Record_walker, empty_file_is_a_fault) {
    expect_fault("", 0, "empty");
}

TEST(Record_walker, few_bytes_after_the_last_record_are_a_fault) {
    expect_fault(container(0, 1, "") + "ab", 12, "2 bytes after the last record, too few for another one");
}

TEST(Record_walker, bytes_that_are_not_a_record_are_a_fault) {
    expect_fault("hello world", 0, "kind 108 is neither");
    expect_fault(header(9, opening, 1), 0, "a container of type 9 (int32)");
    expect_fault(header(1 | 1 << 6, opening, 1), 0, "type 1 (struct), array");
    expect_fault(header(1, closing, 1), 0, "never began");
    expect_fault(value(1, 1, ""), 0, "a value of type 1 (struct)");
    expect_fault(value(12, 1, ""), 0, "unknown type 12");
    expect_fault(value(63, 1, ""), 0, "unknown type 63");
    expect_fault(value(15 | 1 << 6, 1, "\x01"), 0, "type 15 (uint64), array");
    expect_fault(value(9 | 3 << 6, 1, "\x01"), 0, "unknown dimension 3");
    expect_fault(header(9, path, 1), 0, "a pointer of type 9 (int32)");
    expect_fault(header(14 | 2 << 6, path, 1), 0, "type 14 (pointer), matrix");
}

TEST(Record_walker, special_number_ends_the_walk) {
    expect_fault(container(0, 1, value(17, 3, "\x01")), 4, "only the program that wrote it knows how long it is");
}

TEST(Record_walker, end_of_another_container_is_a_fault) {
    expect_fault(header(1, opening, 1) + header(1, closing, 2), 4, "has id 1 and type 1 (struct)");
    expect_fault(header(1, opening, 1) + header(13, closing, 1), 4, "type 13 (list)");
    expect_fault(header(1, opening, 1) + header(1 | 1 << 6, closing, 1), 4, "array");
}

TEST(Record_walker, end_within_a_container_names_the_container) {
    const std::string file = container(0, 1, container(1, 2, value(9, 3, "abcd")));
    for (std::size_t length = 1; length < file.size(); ++length) {
        const Recorded_walk walk(file.substr(0, length));
        ASSERT_FALSE(walk.whole) << length;
        if (length >= 8 && length < 24) {
            EXPECT_EQ(walk.fault_offset, length);
            EXPECT_THAT(walk.fault_text, HasSubstr("within the container 2 that began at offset 4")) << length;
        }
    }
}

TEST(Record_walker, wrong_checksum_does_not_stop_the_walk) {
    std::string file = container(0, 1, container(1, 2, value(9, 3, "abcd")) + value(4, 4, "x"));
    file[12] ^= 1;
    const Recorded_walk walk(file);
    EXPECT_TRUE(walk.whole);
    ASSERT_EQ(walk.ends.size(), 2U);
    EXPECT_FALSE(walk.ends[0].is_good());
    EXPECT_FALSE(walk.ends[1].is_good());
    EXPECT_EQ(mended_checksums(file).size(), file.size());
    EXPECT_TRUE(Recorded_walk(mended_checksums(file)).ends[0].is_good());
}

// ---- Hostile files ----

TEST(Record_walker, reads_any_number_of_levels) {
    const Recorded_walk walk(nested(100000));
    EXPECT_TRUE(walk.whole);
    EXPECT_EQ(walk.deepest, 100000U);
    EXPECT_EQ(walk.ends.size(), 100000U);
    expect_fault(nested(100000).substr(0, 400000), 400000, "ends within");
}

TEST(Record_walker, each_nested_container_has_its_own_checksum) {
    std::string file;
    for (unsigned level = 0; level < 50; ++level)
        file = container(1, level, value(4, 1, "x") + file);
    for (const Container_end& end : Recorded_walk(file).ends)
        EXPECT_TRUE(end.is_good());
}

TEST(Record_walker, accepts_any_bytes) {
    Random random;
    for (unsigned i = 0; i < 5000; ++i) {
        const std::string bytes = random.bytes(random.between(0, 60));
        const Recorded_walk walk(bytes);
        EXPECT_EQ(walk.whole, walk.fault_text.empty());
        EXPECT_LE(walk.whole ? 0 : walk.fault_offset, bytes.size());
    }
}

TEST(Record_walker, accepts_damaged_settings_with_good_checksums) {
    Random random;
    Nested_settings tree;
    tree.set_all();
    const std::string intact = tree.record();
    for (unsigned i = 0; i < 5000; ++i) {
        std::string damaged = intact;
        damaged[random.between(0, static_cast<unsigned>(damaged.size() - 1))] = static_cast<char>(random.byte());
        const Recorded_walk walk(mended_checksums(damaged));
        EXPECT_EQ(walk.whole, walk.fault_text.empty());
        for (const Container_end& end : walk.ends)
            EXPECT_TRUE(end.is_good());
    }
}

} // namespace
