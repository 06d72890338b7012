// The program as a user runs it.

#include <support/builders/settings_records.h>
#include <support/files/Temporary_folder.h>
#include <support/processes/Program.h>
#include <support/settings/Nested_settings.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace settings_records;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

Program_result run_tool(Arguments arguments) {
    return Program(SETTINGS_TOOL, std::move(arguments)).run();
}

struct Settings_tool : testing::Test {
    Settings_tool() { tree.set_all(); }

    std::string file(const std::string& content, const std::string& name = "settings") const {
        return folder.make_file(name, content);
    }

    Temporary_folder folder;
    Nested_settings tree;
};

/// For many variations: Settings_reports_test.cpp tries those of a larger file.
const std::string small_file = container(0, 1, value(2, 1, "\x01"));

/// Nothing on standard output, a line on standard error, status 2.
void expect_trouble(const Arguments& arguments, const std::string& about) {
    const Program_result result = run_tool(arguments);
    EXPECT_EQ(result.status, 2) << about;
    EXPECT_EQ(result.output, "") << about;
    EXPECT_THAT(result.errors, StartsWith("settings_tool: "));
    EXPECT_THAT(result.errors, HasSubstr(about));
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
}

} // namespace

TEST_F(Settings_tool, shows_a_file_that_the_library_wrote) {
    const Program_result result = run_tool({"show", file(tree.record())});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, StartsWith("save 1, at offset 0\n"
                                          "  id 0  container, type 0 (root)\n"
                                          "    id 1  value, type 9 (int32): -1000000\n"));
    EXPECT_THAT(result.output, HasSubstr("    id 6  pointer, type 14 (pointer): to 0/2/3/2\n"));
}

TEST_F(Settings_tool, file_alone_is_shown) {
    const std::string path = file(tree.record());
    EXPECT_EQ(run_tool({path}).output, run_tool({"show", path}).output);
    EXPECT_EQ(run_tool({path}).status, 0);
}

TEST_F(Settings_tool, damaged_file_is_shown_up_to_its_fault) {
    const Program_result result = run_tool({file(tree.record().substr(0, 30))});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("int32"));
    EXPECT_THAT(result.output, HasSubstr("stopped at offset 30: "));
    EXPECT_EQ(run_tool({file("")}).output, "stopped at offset 0: the file is empty\n");
    EXPECT_EQ(run_tool({file("")}).status, 1);
}

TEST_F(Settings_tool, verify_reports_a_good_file) {
    const std::string path = file(tree.record());
    const Program_result result = run_tool({"verify", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, path + ": good, 1 save\n");
    const std::string bare = file(value(4, 1, "a"));
    EXPECT_EQ(run_tool({"verify", bare}).output, bare + ": good, 1 save\n" + bare + ": 1 of them without a checksum\n");
}

TEST_F(Settings_tool, verify_finds_every_cut) {
    for (std::size_t length = 0; length < small_file.size(); ++length) {
        const std::string path = file(small_file.substr(0, length));
        const Program_result result = run_tool({"verify", path});
        ASSERT_EQ(result.status, 1) << length;
        EXPECT_THAT(result.output, StartsWith(path + ": offset "));
    }
}

TEST_F(Settings_tool, verify_finds_every_flipped_bit) {
    for (std::size_t bit = 0; bit < small_file.size() * 8; ++bit) {
        std::string damaged = small_file;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
        const Program_result result = run_tool({"verify", file(damaged)});
        ASSERT_EQ(result.status, 1) << "bit " << bit << ": " << result.output;
    }
}

TEST_F(Settings_tool, every_command_survives_100000_levels) {
    const std::string path = file(nested(100000));
    for (const char* command : {"show", "verify", "stats"})
        EXPECT_EQ(run_tool({command, path}).status, 1) << command; // the checksums are wrong
    EXPECT_EQ(run_tool({"diff", path, path}).status, 1);
    EXPECT_THAT(run_tool({"stats", path}).output, HasSubstr("depth           100000\n"));
}

TEST_F(Settings_tool, diff_of_equal_settings_is_nothing_and_status_0) {
    const std::string full = tree.record();
    tree.last.set(1);
    const std::string incremental = saved(tree, NV_store::NV_iterator::appending_changed);
    const std::string one = file(full + incremental, "one");
    const std::string other = file(tree.record(), "other");
    const Program_result result = run_tool({"diff", one, other});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output + result.errors, "");
}

TEST_F(Settings_tool, diff_prints_differences_and_status_1) {
    const std::string one = file(tree.record(), "one");
    tree.last.set(1);
    const std::string other = file(tree.record(), "other");
    const Program_result result = run_tool({"diff", one, other});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "0/7: other value: uint8 255 in " + one + ", uint8 1 in " + other + "\n");
}

TEST_F(Settings_tool, diff_with_a_damaged_file_is_never_equal) {
    std::string damaged = tree.record();
    damaged.back() ^= 1; // a checksum: the values are the same
    const std::string one = file(tree.record(), "one");
    const std::string other = file(damaged, "other");
    for (const Arguments& files : {Arguments{"diff", one, other}, Arguments{"diff", other, one}}) {
        const Program_result result = run_tool(files);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, StartsWith("settings_tool: " + other + " is damaged at offset 127: checksum "));
    }
}

TEST_F(Settings_tool, stats_count) {
    const Program_result result = run_tool({"stats", file(tree.record())});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith("bytes              131\nrecords             14\ndepth                3\n"));
    EXPECT_THAT(run_tool({"stats", file("x")}).errors, HasSubstr("damaged at offset 0"));
    EXPECT_EQ(run_tool({"stats", file("x")}).status, 1);
}

TEST_F(Settings_tool, wrong_usage_is_one_line_and_status_2) {
    const std::string path = file(tree.record());
    expect_trouble({}, "no FILE");
    expect_trouble({"show"}, "FILE");
    expect_trouble({"diff", path}, "SECOND");
    expect_trouble({"verify", path, path}, "");
    expect_trouble({path, "verify", path}, "before a command");
    expect_trouble({"--depth", "3"}, "--depth");
    expect_trouble({path, path}, "");
}

TEST_F(Settings_tool, file_that_cannot_be_read_is_one_line_and_status_2) {
    const std::string missing = folder.path("missing");
    for (const char* command : {"show", "verify", "stats"})
        expect_trouble({command, missing}, "cannot read " + missing + ": No such file or directory");
    expect_trouble({"diff", file(""), missing}, "cannot read " + missing);
    expect_trouble({folder.path()}, "Is a directory");
    expect_trouble({"/dev/zero"}, "larger than any settings file");
}

TEST_F(Settings_tool, output_that_fails_is_one_line_and_status_2) {
    const std::string path = file(tree.record());
    for (const char* command : {"show", "verify", "stats"}) {
        const Program_result result = Program(SETTINGS_TOOL, {command, path}).output_to("/dev/full").run();
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.errors, "settings_tool: cannot write to standard output: No space left on device\n");
    }
    const std::string deep = file(nested(10000));
    EXPECT_EQ(Program(SETTINGS_TOOL, {deep}).reader_leaves_after(100).run().status, 2);
}

TEST_F(Settings_tool, help_lists_the_commands_and_the_exit_status) {
    const Program_result result = run_tool({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* text : {"show", "verify", "diff", "stats", "Exit status"})
        EXPECT_THAT(result.output, HasSubstr(text));
    EXPECT_EQ(run_tool({"diff", "--help"}).status, 0);
}
