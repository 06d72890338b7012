#include <common/config_file.h>

#include <support/files/Temporary_folder.h>

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using Error = std::optional<std::string>;

struct config_file_test : testing::Test {
    config_file_test() {
        app.add_option("SPEC", specification);
        app.add_option("--name", name)->check(CLI::IsMember({"one", "two", "three"}));
        app.add_option("--count", count);
        app.add_option("--ratio", ratio);
        app.add_flag("--quiet", quiet);
        app.add_option("--config", config);
    }
    Error read(const std::string& content, const std::vector<std::string>& arguments = {},
               const std::set<std::string>& superseded = {}) {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return config_file::read(app, folder.make_file("options.ini", content), superseded);
    }
    /// The error message for a line.
    Error at_line(int number, const std::string& text) {
        return folder.path("options.ini") + ":" + std::to_string(number) + ": " + text;
    }

    Temporary_folder folder;
    CLI::App app{"", "program"};
    std::string specification;
    std::string name;
    std::optional<int> count;
    double ratio = 1;
    bool quiet = false;
    std::string config;
};

} // namespace

TEST_F(config_file_test, options_get_their_values) {
    EXPECT_EQ(read("# all of them\nSPEC=tcp:1\n\n[program]\nname = two\ncount=5\r\nratio=0.5\nquiet=true"),
              std::nullopt);
    EXPECT_EQ(specification, "tcp:1");
    EXPECT_EQ(name, "two");
    EXPECT_EQ(count, 5);
    EXPECT_EQ(ratio, 0.5);
    EXPECT_TRUE(quiet);
}

TEST_F(config_file_test, missing_options_keep_their_values) {
    EXPECT_EQ(read("quiet=false\n"), std::nullopt);
    EXPECT_EQ(count, std::nullopt);
    EXPECT_EQ(ratio, 1);
    EXPECT_FALSE(quiet);
    EXPECT_EQ(read(""), std::nullopt);
}

TEST_F(config_file_test, command_line_wins) {
    EXPECT_EQ(read("name=two\ncount=5\nquiet=false\nratio=3\n", {"--name", "one", "--count", "7", "--quiet"}),
              std::nullopt);
    EXPECT_EQ(name, "one");
    EXPECT_EQ(count, 7);
    EXPECT_TRUE(quiet);
    EXPECT_EQ(ratio, 3) << "which the command line does not set";
}

TEST_F(config_file_test, superseded_keys_are_ignored) {
    EXPECT_EQ(read("SPEC=tcp:1\nname=two\n", {}, {"SPEC"}), std::nullopt);
    EXPECT_EQ(specification, "");
    EXPECT_EQ(name, "two");
}

TEST_F(config_file_test, other_sections_are_ignored) {
    EXPECT_EQ(read("[other]\nname=nonsense\nwhatever=1\nname=twice\n[program]\nname=two\n[another]\ncount=x"),
              std::nullopt);
    EXPECT_EQ(name, "two");
    EXPECT_EQ(count, std::nullopt);
}

TEST_F(config_file_test, unknown_key_is_reported_with_its_line) {
    EXPECT_EQ(read("name=two\n\n# comment\nnmae=two\n"), at_line(4, "there is no option \"nmae\""));
    for (const char* key : {"--name", "nam", "Name", " name", "config", "help", "spec", ""})
        EXPECT_EQ(read(std::string(key) + "=two\n"), at_line(1, "there is no option \"" + std::string(key) + "\""));
}

TEST_F(config_file_test, bad_value_is_reported_with_its_line) {
    EXPECT_EQ(read("\nname=four\n"), at_line(2, "--name: four not in {one,two,three}"));
    EXPECT_NE(read("count=many\n")->find(":1: "), std::string::npos);
    EXPECT_NE(read("\r\n\r\nname=\n")->find(":3: "), std::string::npos);
}

TEST_F(config_file_test, flags_are_true_or_false) {
    for (const char* value : {"yes", "", "2.5", "TRUE", "\"true\""})
        EXPECT_EQ(read("quiet=" + std::string(value) + "\n"), at_line(1, "\"quiet\" is true or false")) << value;
    EXPECT_EQ(read("quiet=1\n"), std::nullopt);
    EXPECT_TRUE(quiet);
}

TEST_F(config_file_test, key_is_set_only_once) {
    EXPECT_EQ(read("name=two\n[program]\nname=one\n"), at_line(3, "\"name\" for the second time"));
}

TEST_F(config_file_test, invalid_line_is_reported_with_its_number) {
    EXPECT_EQ(read("name=two\nquiet\n"), at_line(2, "neither a key with its value nor a section"));
    EXPECT_EQ(read("[program\n"), at_line(1, "neither a key with its value nor a section"));
    EXPECT_EQ(read(std::string("name=t\0o\n", 9)), at_line(1, "not a text"));
}

TEST_F(config_file_test, line_of_256_characters_is_read_and_a_longer_one_is_an_error) {
    EXPECT_EQ(read("SPEC=" + std::string(251, 'x') + "\n"), std::nullopt);
    EXPECT_EQ(specification, std::string(251, 'x'));
    EXPECT_EQ(read("#" + std::string(255, 'x') + "\n" + "#" + std::string(256, 'x') + "\n"),
              at_line(2, "longer than 256 characters"));
}

TEST_F(config_file_test, lines_are_counted_with_any_line_end) {
    for (const char* end : {"\n", "\r", "\r\n"})
        EXPECT_EQ(read(std::string(end) + end + "name=one" + end + end + "nmae=one" + end),
                  at_line(5, "there is no option \"nmae\""));
}

TEST_F(config_file_test, missing_file_is_reported) {
    EXPECT_EQ(config_file::read(app, "/does/not/exist"), "cannot open /does/not/exist: No such file or directory");
    EXPECT_EQ(config_file::read(app, folder.path()), "cannot read " + folder.path());
}
