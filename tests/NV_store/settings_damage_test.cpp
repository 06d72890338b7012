// Loading damaged settings: it never reads beyond their end, and every value afterwards is the stored one or the
// default.

#include <glue/NV_store/NV_file_iterator.h>

#include <support/builders/mended_checksums.h>
#include <support/fakes/Captured_debug.h>
#include <support/files/Temporary_folder.h>
#include <support/settings/Nested_settings.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using NV_store::NV_iterator;
using NV_store::NV_load_result;
using testing::HasSubstr;
using Values = std::vector<std::string>;

/// The record of the tree with every value set, its layout, and the two sets of values.
struct Stored_settings {
    /// The offsets of a container's opening header, content and checksum, and its leaves.
    struct Container {
        std::size_t begin, within, checksum, end;
        std::size_t first_leaf, end_leaf;
        std::string name;
    };

    Stored_settings() {
        Nested_settings tree;
        defaults = tree.values();
        tree.set_all();
        values = tree.values();
        bytes = tree.record();
    }

    std::string bytes;
    Values values;
    Values defaults;
    // As in the format: headers of 4 bytes, checksums of 4 bytes, and the values.
    Container settings{0, 4, 127, 131, 0, 10, "0:settings"};
    Container outer{12, 16, 77, 81, 1, 6, "1:outer"};
    Container inner{24, 28, 57, 61, 2, 5, "1:inner"};
    Container entries{81, 85, 101, 105, 6, 8, "13:entries"};

    const Container& innermost(std::size_t at) const {
        for (const Container* container : {&inner, &outer, &entries})
            if (at >= container->within && at < container->end)
                return *container;
        return settings;
    }
};

TEST(Settings_damage, undamaged_record_has_the_expected_layout) {
    const Stored_settings stored;
    ASSERT_EQ(stored.bytes.size(), stored.settings.end);
    for (const auto* container : {&stored.settings, &stored.outer, &stored.inner, &stored.entries}) {
        EXPECT_EQ(stored.bytes[container->begin + 2], 1);
        EXPECT_EQ(stored.bytes[container->checksum - 2], 2);
        EXPECT_EQ(stored.bytes[container->begin], stored.bytes[container->checksum - 4]);
    }
    EXPECT_EQ(mended_checksums(stored.bytes), stored.bytes); // the checksums of the library are those of the format
    Nested_settings tree;
    const NV_load_result result = tree.load(stored.bytes);
    EXPECT_TRUE(result.intact);
    EXPECT_EQ(tree.values(), stored.values);
    for (std::size_t i = 0; i < stored.values.size(); ++i)
        EXPECT_NE(stored.values[i], stored.defaults[i]) << i;
}

/// Every leaf has its stored or its default value. Two exceptions: a pointer may lead to another node of the tree, and
/// an enumeration, which reads numbers of any width, may have read one of the width in its damaged type byte.
void expect_stored_or_default(const Values& values, const Stored_settings& stored, std::size_t damaged) {
    constexpr std::size_t enumeration_leaf = 4;
    constexpr std::size_t its_type_byte = 48;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i != Nested_settings::pointer_leaf && !(i == enumeration_leaf && damaged == its_type_byte)) {
            EXPECT_TRUE(values[i] == stored.values[i] || values[i] == stored.defaults[i]) << "leaf " << i;
        }
    }
}

TEST(Settings_damage, every_flipped_bit_is_noticed_and_affects_only_its_container_and_later_records) {
    const Captured_debug debug;
    const Stored_settings stored;
    for (std::size_t bit = 0; bit < stored.bytes.size() * 8; ++bit) {
        SCOPED_TRACE("bit " + std::to_string(bit));
        std::string damaged = stored.bytes;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
        Nested_settings tree;
        const NV_load_result result = tree.load(damaged);
        EXPECT_FALSE(result.intact);
        EXPECT_EQ(result.loaded, 0U);
        const Values values = tree.values();
        expect_stored_or_default(values, stored, bit / 8);
        const auto& container = stored.innermost(bit / 8);
        if (&container == &stored.settings)
            continue;
        for (std::size_t leaf = 0; leaf < container.first_leaf; ++leaf)
            EXPECT_EQ(values[leaf], stored.values[leaf]) << "leaf " << leaf;
        for (std::size_t leaf = container.end_leaf; leaf < values.size(); ++leaf)
            EXPECT_EQ(values[leaf], stored.defaults[leaf]) << "leaf " << leaf;
    }
}

TEST(Settings_damage, damaged_value_or_checksum_sets_the_container_to_its_defaults) {
    const Stored_settings stored;
    const std::vector<std::size_t> places = {8,  122, 130,  // of the root: a value, another, its checksum
                                             20, 72,  80,   // of a container
                                             32, 40,  60,   // of a container within that
                                             90, 96,  104}; // of the list
    for (const std::size_t place : places) {
        SCOPED_TRACE("byte " + std::to_string(place));
        std::string damaged = stored.bytes;
        damaged[place] = static_cast<char>(damaged[place] ^ 0x40);
        const Captured_debug debug;
        Nested_settings tree;
        EXPECT_FALSE(tree.load(damaged).intact);
        const auto& container = stored.innermost(place);
        const Values values = tree.values();
        for (std::size_t leaf = container.first_leaf; leaf < container.end_leaf; ++leaf)
            EXPECT_EQ(values[leaf], stored.defaults[leaf]) << "leaf " << leaf;
        EXPECT_THAT(debug.text(), HasSubstr("NV_store CRC32 Check "));
        EXPECT_THAT(debug.text(), HasSubstr(" for " + container.name + "\n"));
    }
}

/// Whether loading the first `length` bytes ends within the checksum of a container, which then counts as wrong.
bool cuts_checksum(const Stored_settings::Container& container, std::size_t length) {
    return length >= container.checksum && length < container.end;
}

TEST(Settings_damage, file_cut_anywhere_keeps_the_values_before_the_cut) {
    const Stored_settings stored;
    const Temporary_folder folder;
    const Captured_debug debug;
    // Where the records of the leaves end; the pointer's: header, count, four ids.
    const std::size_t ends[] = {12, 24, 33, 45, 53, 73, 91, 97, 118, 123};
    for (std::size_t length = 0; length < stored.bytes.size(); ++length) {
        SCOPED_TRACE("length " + std::to_string(length));
        Nested_settings from_memory;
        EXPECT_FALSE(from_memory.load(stored.bytes.substr(0, length)).intact);
        Nested_settings from_file;
        folder.make_file("settings", stored.bytes.substr(0, length));
        NV_store::NV_file_iterator file(folder.path("settings").c_str());
        file.set_mode(NV_iterator::reading);
        EXPECT_FALSE(load_all(from_file, file).intact);
        const Values values = from_memory.values();
        EXPECT_EQ(from_file.values(), values);
        for (std::size_t leaf = 0; leaf < values.size(); ++leaf) {
            bool kept =
                leaf == Nested_settings::pointer_leaf ? values[leaf] == stored.values[leaf] : ends[leaf] <= length;
            for (const auto* container : {&stored.settings, &stored.outer, &stored.inner, &stored.entries})
                if (leaf >= container->first_leaf && leaf < container->end_leaf && cuts_checksum(*container, length))
                    kept = false;
            EXPECT_EQ(values[leaf], kept ? stored.values[leaf] : stored.defaults[leaf]) << "leaf " << leaf;
        }
    }
}

TEST(Settings_damage, tail_of_any_bytes_loses_no_values) {
    const Stored_settings stored;
    Random random;
    const Captured_debug debug;
    for (std::size_t length = 1; length < 300; ++length) {
        for (const std::string& tail : {std::string(length, '\0'), std::string(length, '\xFF'), random.bytes(length)}) {
            Nested_settings tree;
            const NV_load_result result = tree.load(stored.bytes + tail);
            EXPECT_EQ(result.loaded, 1U);
            EXPECT_FALSE(result.intact); // noticed, also when it is too short for a header
            EXPECT_EQ(tree.values(), stored.values);
        }
    }
}

TEST(Settings_damage, record_overwritten_with_any_bytes_is_noticed) {
    const Stored_settings stored;
    Random random;
    const Captured_debug debug;
    for (std::size_t kept = 0; kept < stored.bytes.size(); ++kept) {
        const std::size_t lost = stored.bytes.size() - kept;
        for (const std::string& filling : {std::string(lost, '\0'), std::string(lost, '\xFF'), random.bytes(lost)}) {
            const std::string damaged = stored.bytes.substr(0, kept) + filling;
            if (damaged == stored.bytes)
                continue;
            Nested_settings tree;
            EXPECT_FALSE(tree.load(damaged).intact) << kept;
        }
    }
}

// ---- Hostile content with a correct checksum ----

/// Records as bytes; the checksums are added later.
std::string header(unsigned type_byte, unsigned kind, unsigned id) {
    return {static_cast<char>(id), static_cast<char>(id >> 8), static_cast<char>(kind), static_cast<char>(type_byte)};
}
std::string container(unsigned type, unsigned id, const std::string& content) {
    return header(type, 1, id) + content + header(type, 2, id) + "....";
}
std::string root(const std::string& content) {
    return mended_checksums(container(0, 0, content));
}
constexpr unsigned array_of = 0x40;
constexpr unsigned matrix_of = 0x80;
const std::string first_is_7 = header(9, 9, 1) + std::string("\7\0\0\0", 4);

/// Loads a root with the content between two settings, and checks those settings.
struct Hostile_content : testing::Test {
    Captured_debug debug;
    Nested_settings tree;
    std::string last_is_8 = header(4, 9, 7) + "\10";

    bool load(const std::string& content) { return tree.load(root(first_is_7 + content + last_is_8)).intact; }
    void expect_passed_over(const std::string& content) {
        EXPECT_TRUE(load(content)) << debug.text();
        EXPECT_EQ(tree.first.get(), 7);
        EXPECT_EQ(tree.last.get(), 8);
    }
    void expect_refused(const std::string& content, const std::string& message) {
        EXPECT_FALSE(load(content));
        EXPECT_EQ(tree.first.get(), 7);
        EXPECT_EQ(tree.last.get(), 9);
        EXPECT_THAT(debug.text(), HasSubstr(message));
    }
};

TEST_F(Hostile_content, unknown_numbers_arrays_and_containers_are_skipped) {
    std::string content;
    const unsigned sizes[][2] = {{2, 1}, {3, 1}, {4, 1}, {5, 2}, {6, 4}, {7, 1}, {8, 2}, {9, 4}, {10, 4}, {11, 8}};
    unsigned id = 100;
    for (const auto& [type, size] : sizes) {
        content += header(type, 9, id++) + std::string(size, '\xFF');
        content += header(array_of | type, 9, id++) + "\3" + std::string(3 * size, '\xFF');
        content += header(array_of | type, 9, id++) + std::string(1, '\0');
        content += header(matrix_of | type, 9, id++) + "\2\3" + std::string(6 * size, '\xFF');
    }
    for (const unsigned type : {15U, 16U})
        content += header(type, 9, id++) + std::string(8, '\xFF');
    for (const unsigned type : {0U, 1U, 13U})
        content += container(type, id++, container(1, 1, content.substr(0, 5)));
    expect_passed_over(content);
}

TEST_F(Hostile_content, records_in_another_order_load_completely) {
    const std::string inner = container(1, 3, header(15, 9, 2) + std::string(8, '\1') + header(2, 9, 1) + "\1");
    EXPECT_TRUE(tree.load(root(last_is_8 + container(1, 2, inner) + first_is_7)).intact);
    EXPECT_EQ(tree.last.get(), 8);
    EXPECT_EQ(tree.first.get(), 7);
    EXPECT_TRUE(tree.outer.inner.flag.get());
    EXPECT_EQ(tree.outer.inner.wide.get(), 0x0101010101010101ULL);
    EXPECT_EQ(tree.outer.gain.get(), 1.5F); // not stored: unchanged
}

TEST_F(Hostile_content, largest_array_is_skipped_and_refused_when_bytes_are_missing) {
    const std::string counts = "\xFF\xFF";
    const std::string values(255 * 255 * 8, '\0');
    expect_passed_over(header(matrix_of | 11, 9, 100) + counts + values);
    Nested_settings other;
    EXPECT_FALSE(other.load(root(first_is_7 + header(matrix_of | 11, 9, 100) + counts)).intact);
    EXPECT_EQ(other.first.get(), 7);
    EXPECT_THAT(debug.text(), HasSubstr("NV unknown child was bad for 0:settings\n"));
}

TEST_F(Hostile_content, types_without_a_length_are_refused) {
    for (const unsigned type_byte :
         {12U, 14U, 17U, 18U, 63U, array_of | 1U, array_of | 15U, matrix_of | 17U, 0xC0U, 0xC9U})
        expect_refused(header(type_byte, 9, 100) + std::string(20, '\0'), "NV unknown child was bad for 0:settings\n");
}

TEST_F(Hostile_content, unknown_containers_a_hundred_thousand_levels_deep_do_no_harm) {
    std::string opening;
    for (unsigned level = 0; level < 100000; ++level)
        opening += header(1, 1, 100);
    expect_refused(opening, "NV unknown child was bad for 0:settings\n");
    std::string content = opening;
    for (unsigned level = 0; level < 100000; ++level)
        content += header(1, 2, 100) + "....";
    Nested_settings other;
    std::string whole = container(0, 0, first_is_7 + content);
    EXPECT_FALSE(other.load(whole).intact); // only because of the checksum, which is not corrected here
    EXPECT_THAT(debug.text(), HasSubstr("NV_store CRC32 Check "));
}

TEST_F(Hostile_content, unknown_container_closed_by_another_ones_header_is_refused) {
    expect_refused(header(1, 1, 100) + header(1, 2, 101) + "....", "NV unknown child was bad for 0:settings\n");
    expect_refused(header(1, 1, 100) + header(13, 2, 100) + "....", "NV unknown child was bad for 0:settings\n");
}

TEST_F(Hostile_content, repeated_record_is_loaded_each_time) {
    std::string content;
    for (int times = 0; times < 1000; ++times)
        content += container(1, 2, container(1, 3, header(2, 9, 1) + "\1"));
    expect_passed_over(content);
    EXPECT_TRUE(tree.outer.inner.flag.get());
}

TEST_F(Hostile_content, known_ids_with_other_types_are_refused) {
    expect_refused(header(9, 9, 2) + std::string(4, '\0'), "NV child was bad for 0:settings->outer\n");
    expect_refused(container(1, 7, ""), "NV child was bad for 0:settings->last\n");
    expect_refused(container(1, 5, ""), "NV child was bad for 0:settings->entries\n"); // a structure for a list
    expect_refused(header(9, 12, 7) + std::string(4, '\0'), "NV child was bad for 0:settings->last\n");
    expect_refused(header(9, 9, 6) + std::string(4, '\0'), "NV child was bad for 0:settings->chosen\n");
}

TEST_F(Hostile_content, path_of_255_ids_leads_nowhere_and_loading_goes_on) {
    expect_passed_over(header(14, 12, 6) + "\xFF" + std::string(2 * 255, '\0'));
    EXPECT_EQ(tree.chosen.get(), nullptr);
}

TEST_F(Hostile_content, path_longer_than_the_file_is_refused) {
    Nested_settings other;
    EXPECT_FALSE(other.load(root(first_is_7 + header(14, 12, 6) + "\xFF")).intact);
    EXPECT_EQ(other.chosen.get(), nullptr);
    EXPECT_EQ(other.first.get(), 7);
}

TEST_F(Hostile_content, pointer_at_itself_and_at_the_root_is_loaded) {
    expect_passed_over(header(14, 12, 6) + "\2" + std::string("\6\0\0\0", 4));
    EXPECT_EQ(tree.chosen.get(), &tree.chosen);
    expect_passed_over(header(14, 12, 6) + "\1" + std::string(2, '\0'));
    EXPECT_EQ(tree.chosen.get(), &tree);
}

TEST_F(Hostile_content, bool_is_true_for_every_byte_except_0) {
    expect_passed_over(container(1, 2, container(1, 3, header(2, 9, 1) + "\xFF")));
    EXPECT_EQ(bits_of(tree.outer.inner.flag.get()), std::string(1, '\1'));
}

TEST(Settings_damage, any_bytes_with_correct_checksums_do_no_harm) {
    const Stored_settings stored;
    Random random;
    const Captured_debug debug;
    unsigned intact = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string damaged = stored.bytes;
        for (unsigned changes = random.between(1, 4); changes > 0; --changes) {
            const auto at = static_cast<std::size_t>(random.between(0, static_cast<unsigned>(damaged.size()) - 1));
            if (random.one_in(4))
                damaged.erase(at, random.between(1, 20));
            else if (random.one_in(3))
                damaged.insert(at, damaged.substr(random.between(0, static_cast<unsigned>(damaged.size()) - 1), 20));
            else
                damaged[at] = static_cast<char>(random.byte());
            if (damaged.empty())
                damaged = stored.bytes;
        }
        Nested_settings tree;
        intact += tree.load(mended_checksums(damaged)).intact;
        tree.values(); // reads the pointer's target
        tree.signal_all();
    }
    EXPECT_GT(intact, 100U); // otherwise the checksums were not corrected
    EXPECT_LT(intact, 20000U);
}

} // namespace
