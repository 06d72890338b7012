#include <monitor/Preferences.h>

#include <support/builders/settings_records.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/files/Temporary_folder.h>

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>

namespace {

using namespace settings_records;
using Content = Preferences::Content;
using Format = Preferences::Format;

constexpr int root_id = 0x4D52;

/// A variable of the environment, for the time that it lives.
class Variable {
  public:
    Variable(const char* name, const char* value) : name_(name) {
        if (const char* const before = std::getenv(name))
            before_ = before;
        set(value);
    }
    ~Variable() { set(before_ ? before_->c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    void set(const char* value) { value ? setenv(name_, value, 1) : unsetenv(name_); }

    const char* name_;
    std::optional<std::string> before_;
};

struct Preferences_file : testing::Test {
    Temporary_folder folder;
    std::string path = folder.path("preferences");
    std::string reason;

    std::string content() const { return folder.content_of("preferences"); }
    Content content_of(const std::string& bytes) {
        folder.make_file("preferences", bytes);
        return Preferences(path).load();
    }
};

TEST_F(Preferences_file, missing_one_means_defaults_and_is_not_created_without_need) {
    Preferences preferences(path);
    EXPECT_EQ(preferences.load(), Content::none);
    EXPECT_EQ(preferences.format(), Format::labelled);
    EXPECT_EQ(preferences.stream(), "");
    EXPECT_TRUE(preferences.save(reason));
    EXPECT_FALSE(folder.has("preferences"));
}

TEST_F(Preferences_file, keeps_what_was_set) {
    Preferences first(path);
    first.set_format(Format::comma);
    first.set_stream("tcpc:port=4001");
    ASSERT_TRUE(first.save(reason)) << reason;
    EXPECT_EQ(content(), container(0, root_id, value(4, 1, "\x01") + value(0x43, 2, "\x0Etcpc:port=4001")));

    Preferences second(path);
    EXPECT_EQ(second.load(), Content::intact);
    EXPECT_EQ(second.format(), Format::comma);
    EXPECT_EQ(second.stream(), "tcpc:port=4001");
}

TEST_F(Preferences_file, begins_with_RM) {
    Preferences preferences(path);
    preferences.set_stream("x");
    EXPECT_TRUE(preferences.save(reason)) << reason;
    EXPECT_EQ(content().substr(0, 2), "RM");
}

TEST_F(Preferences_file, is_written_only_when_something_has_changed) {
    Preferences first(path);
    first.set_stream("x");
    ASSERT_TRUE(first.save(reason)) << reason;
    struct stat before {};
    stat(path.c_str(), &before);
    Preferences second(path);
    second.load();
    second.set_stream("x");
    second.set_format(Format::labelled);
    EXPECT_TRUE(second.save(reason));
    struct stat after {};
    stat(path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino); // a save makes a new file
    second.set_stream("y");
    EXPECT_TRUE(second.save(reason));
    EXPECT_THAT(content(), testing::HasSubstr("\x01y"));
}

TEST_F(Preferences_file, missing_folders_are_made) {
    path = folder.path("a/b/preferences");
    Preferences preferences(path);
    preferences.set_stream("x");
    EXPECT_TRUE(preferences.save(reason)) << reason;
    EXPECT_TRUE(folder.has("a/b/preferences"));
}

TEST_F(Preferences_file, stream_that_is_too_long_counts_as_none) {
    Preferences preferences(path);
    preferences.set_stream("x");
    preferences.set_stream(std::string(256, 'x'));
    EXPECT_EQ(preferences.stream(), "");
    preferences.set_stream(std::string(255, 'x'));
    EXPECT_EQ(preferences.stream().size(), 255U);
}

TEST_F(Preferences_file, unknown_format_counts_as_labelled) {
    folder.make_file("preferences", container(0, root_id, value(4, 1, "\x07")));
    Preferences preferences(path);
    EXPECT_EQ(preferences.load(), Content::intact);
    EXPECT_EQ(preferences.format(), Format::labelled);
}

TEST_F(Preferences_file, settings_of_a_later_version_are_skipped) {
    folder.make_file("preferences", container(0, root_id, value(4, 1, "\x01") + container(1, 9, value(9, 1, "abcd"))));
    Preferences preferences(path);
    EXPECT_EQ(preferences.load(), Content::intact);
    EXPECT_EQ(preferences.format(), Format::comma);
}

TEST_F(Preferences_file, every_damage_means_defaults) {
    const std::string intact = container(0, root_id, value(4, 1, "\x01") + value(0x43, 2, "\x01x"));
    for (std::size_t length = 0; length < intact.size(); ++length) {
        folder.make_file("preferences", intact.substr(0, length));
        Preferences preferences(path);
        EXPECT_EQ(preferences.load(), length >= 4 || length == 0 ? Content::damaged : Content::foreign) << length;
        EXPECT_EQ(preferences.stream(), "");
    }
    for (std::size_t bit = 0; bit < intact.size() * 8; ++bit) {
        std::string damaged = intact;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
        folder.make_file("preferences", damaged);
        Preferences preferences(path);
        const Content content = preferences.load();
        EXPECT_TRUE(content == Content::damaged || content == Content::foreign) << "bit " << bit;
        EXPECT_EQ(preferences.format(), Format::labelled) << "bit " << bit;
        EXPECT_EQ(preferences.stream(), "") << "bit " << bit;
    }
}

TEST_F(Preferences_file, damaged_one_is_replaced) {
    for (const std::string& damaged : {std::string(), header(0, opening, root_id)}) {
        folder.make_file("preferences", damaged);
        Preferences preferences(path);
        EXPECT_EQ(preferences.load(), Content::damaged);
        EXPECT_TRUE(preferences.save(reason));
        EXPECT_EQ(Preferences(path).load(), Content::intact);
    }
}

TEST_F(Preferences_file, foreign_one_is_left_unchanged) {
    for (const std::string& foreign : {std::string("Host example\n"), container(0, 0, ""), std::string("RM")}) {
        folder.make_file("preferences", foreign);
        Preferences preferences(path);
        EXPECT_EQ(preferences.load(), Content::foreign);
        preferences.set_stream("x");
        EXPECT_TRUE(preferences.save(reason));
        EXPECT_EQ(content(), foreign);
    }
}

TEST_F(Preferences_file, only_a_regular_file_is_opened) {
    EXPECT_EQ(Preferences(folder.make_fifo("fifo")).load(), Content::foreign);
    EXPECT_EQ(Preferences(folder.path()).load(), Content::foreign);
    EXPECT_EQ(Preferences("/dev/null").load(), Content::foreign);
}

TEST_F(Preferences_file, failing_save_returns_the_reason) {
    Preferences in_file(folder.make_file("file", "") + "/preferences");
    in_file.set_stream("x");
    EXPECT_FALSE(in_file.save(reason));
    EXPECT_EQ(reason, "cannot make " + folder.path("file") + ": Not a directory");
    Preferences in_system("/proc/preferences");
    in_system.set_stream("x");
    EXPECT_FALSE(in_system.save(reason));
    EXPECT_THAT(reason, testing::StartsWith("Settings not saved in /proc/preferences: "));
}

TEST_F(Preferences_file, library_prints_nothing) {
    const Captured_descriptor error_output(2);
    content_of(header(0, opening, root_id));
    Preferences in_system("/proc/preferences");
    in_system.set_stream("x");
    EXPECT_FALSE(in_system.save(reason));
    EXPECT_EQ(error_output.text(), "");
}

TEST_F(Preferences_file, without_a_name_nothing_is_kept) {
    Preferences preferences("");
    EXPECT_EQ(preferences.load(), Content::none);
    preferences.set_stream("x");
    EXPECT_TRUE(preferences.save(reason));
}

TEST(Preferences_path, is_the_variable_even_when_that_is_empty) {
    const Variable own("GLUE_MONITOR_PREFERENCES", "/some/where");
    EXPECT_EQ(Preferences::default_path(), "/some/where");
    const Variable none("GLUE_MONITOR_PREFERENCES", "");
    EXPECT_EQ(Preferences::default_path(), "");
}

TEST(Preferences_path, is_among_the_users_configuration) {
    const Variable own("GLUE_MONITOR_PREFERENCES", nullptr);
    const Variable home("HOME", "/home/user");
    {
        const Variable xdg("XDG_CONFIG_HOME", "/configuration");
        EXPECT_EQ(Preferences::default_path(), "/configuration/glue/receiver_monitor.settings");
    }
    for (const char* unusable : {static_cast<const char*>(nullptr), "", "relative"}) {
        const Variable xdg("XDG_CONFIG_HOME", unusable);
        EXPECT_EQ(Preferences::default_path(), "/home/user/.config/glue/receiver_monitor.settings");
    }
    const Variable xdg("XDG_CONFIG_HOME", nullptr);
    const Variable homeless("HOME", nullptr);
    EXPECT_EQ(Preferences::default_path(), "");
}

} // namespace
