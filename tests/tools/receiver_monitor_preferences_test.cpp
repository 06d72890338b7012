// The preferences that the program keeps between runs.

#include <monitor/Preferences.h>

#include <support/builders/Frame_builder.h>
#include <support/files/Temporary_folder.h>
#include <support/processes/Program.h>
#include <support/terminals/Pty_pair.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;
using testing::HasSubstr;
using testing::StartsWith;

const std::string labelled_line = "RT ms=1234\n";
const std::string comma_line = "RT,1234\n";

struct Monitor_preferences : testing::Test {
    Monitor_preferences() : stream("exec:cat " + folder.make_file("frames", frame)) {}

    Program program(const Arguments& arguments) const {
        Program program(RECEIVER_MONITOR, arguments);
        return program.environment("GLUE_MONITOR_PREFERENCES", path);
    }
    Program_result run(const Arguments& arguments) const { return program(arguments).run(); }
    /// Runs with a terminal as standard input.
    Program_result run_at_terminal(Arguments arguments) const {
        const Pty_pair terminal;
        arguments.insert(arguments.begin(), {"-c", "exec \"$0\" \"$@\" <" + terminal.path(), RECEIVER_MONITOR});
        Program shell("sh", arguments);
        return shell.environment("GLUE_MONITOR_PREFERENCES", path).run();
    }
    /// The kept preferences: format and stream.
    std::pair<Preferences::Format, std::string> kept() const {
        Preferences preferences(path);
        EXPECT_EQ(preferences.load(), Preferences::Content::intact);
        return {preferences.format(), preferences.stream()};
    }

    const std::string frame = build_frame("~~", le(std::uint32_t{1234}));
    Temporary_folder folder;
    std::string path = folder.path("preferences");
    std::string stream;
};

constexpr auto comma = Preferences::Format::comma;
constexpr auto labelled = Preferences::Format::labelled;

} // namespace

TEST_F(Monitor_preferences, format_is_remembered) {
    EXPECT_EQ(run({stream}).output, labelled_line);
    EXPECT_EQ(run({stream, "--format", "comma"}).output, comma_line);
    EXPECT_EQ(run({stream}).output, comma_line);
    EXPECT_EQ(run({stream, "--format", "labelled"}).output, labelled_line);
    EXPECT_EQ(run({stream}).output, labelled_line);
}

TEST_F(Monitor_preferences, last_stream_is_read_again_at_a_terminal) {
    EXPECT_EQ(run({stream}).status, 0);
    EXPECT_EQ(kept(), std::pair(labelled, stream));
    const Program_result result = run_at_terminal({});
    EXPECT_EQ(result.output, labelled_line);
    EXPECT_THAT(result.errors, StartsWith("receiver_monitor: reading " + stream + ", the last stream\n"));
    EXPECT_EQ(result.status, 0);
}

TEST_F(Monitor_preferences, standard_input_is_read_at_a_terminal_on_request_and_without_a_last_stream) {
    for (const Arguments& arguments : {Arguments{"--duration", "0.1"}, Arguments{"-", "--duration", "0.1"}}) {
        const Program_result result = run_at_terminal(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.errors, StartsWith("bytes: 0 "));
        EXPECT_EQ(run({stream}).status, 0);
    }
    EXPECT_EQ(kept().second, stream);
}

TEST_F(Monitor_preferences, device_at_a_terminal_is_read_and_not_remembered) {
    run({stream});
    const Program_result result = run_at_terminal({"--device", folder.path("frames"), "--format", "comma"});
    EXPECT_EQ(result.output, comma_line);
    EXPECT_EQ(kept(), std::pair(comma, stream));
}

TEST_F(Monitor_preferences, pipe_neither_uses_nor_keeps_any) {
    run({stream, "--format", "comma"});
    const std::string before = folder.content_of("preferences");
    for (const Arguments& arguments : {Arguments{}, Arguments{"-"}, Arguments{"--format", "labelled"},
                                       Arguments{"--device", folder.path("frames")}}) {
        const Program_result result = program(arguments).input(frame).run();
        EXPECT_EQ(result.output, labelled_line);
        EXPECT_EQ(folder.content_of("preferences"), before);
    }
}

TEST_F(Monitor_preferences, pipe_uses_a_file_that_is_named) {
    const std::string named = folder.path("named");
    EXPECT_EQ(program({"--preferences", named, "--format", "comma"}).input(frame).run().output, comma_line);
    EXPECT_EQ(program({"--preferences", named}).input(frame).run().output, comma_line);
    EXPECT_FALSE(folder.has("preferences"));
}

TEST_F(Monitor_preferences, can_be_disabled) {
    run({stream, "--format", "comma"});
    const std::string before = folder.content_of("preferences");
    EXPECT_EQ(run({stream, "--no-preferences"}).output, labelled_line);
    EXPECT_EQ(run({"exec:echo", "--no-preferences"}).status, 2);
    EXPECT_EQ(folder.content_of("preferences"), before);
    EXPECT_EQ(run_at_terminal({"--no-preferences", "--duration", "0.1"}).status, 2);
}

TEST_F(Monitor_preferences, are_in_the_users_home_by_default) {
    Program program(RECEIVER_MONITOR, {stream});
    program.without_environment("GLUE_MONITOR_PREFERENCES").without_environment("XDG_CONFIG_HOME");
    EXPECT_EQ(program.environment("HOME", folder.path("home")).run().status, 0);
    EXPECT_TRUE(folder.has("home/.config/glue/receiver_monitor.settings"));
    EXPECT_EQ(program.environment("XDG_CONFIG_HOME", folder.path("xdg")).run().status, 0);
    EXPECT_TRUE(folder.has("xdg/glue/receiver_monitor.settings"));
}

TEST_F(Monitor_preferences, stream_that_cannot_be_opened_is_not_remembered) {
    run({stream});
    EXPECT_EQ(run({"/does/not/exist", "--format", "comma"}).status, 1);
    EXPECT_EQ(kept(), std::pair(labelled, stream));
}

TEST_F(Monitor_preferences, too_long_stream_is_not_remembered) {
    run({stream});
    EXPECT_EQ(run({stream + std::string(300, ' ')}).status, 0);
    EXPECT_EQ(kept().second, "");
}

TEST_F(Monitor_preferences, damaged_file_means_defaults_and_one_line) {
    run({stream, "--format", "comma"});
    std::string damaged = folder.content_of("preferences");
    damaged[9] = static_cast<char>(damaged[9] ^ 0x10);
    folder.make_file("preferences", damaged);
    const Program_result result = run({stream});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, labelled_line);
    EXPECT_THAT(result.errors,
                StartsWith("receiver_monitor: preferences in " + path + " are damaged: using the defaults\n~~ "));
    EXPECT_EQ(kept(), std::pair(labelled, stream));
}

TEST_F(Monitor_preferences, another_file_is_left_unchanged) {
    folder.make_file("preferences", "Host example\n");
    const Program_result result = run({stream, "--format", "comma"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, comma_line);
    EXPECT_THAT(result.errors,
                StartsWith("receiver_monitor: " + path + " is no file of preferences: left unchanged\n~~ "));
    EXPECT_EQ(folder.content_of("preferences"), "Host example\n");
}

TEST_F(Monitor_preferences, file_that_cannot_be_written_does_not_end_the_run) {
    path = folder.path("frames") + "/preferences"; // in a file instead of a folder
    const Program_result result = run({stream});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, labelled_line);
    EXPECT_THAT(result.errors, StartsWith("receiver_monitor: preferences not kept: cannot make " +
                                          folder.path("frames") + ": Not a directory\n~~ "));
}

TEST_F(Monitor_preferences, contradiction_is_refused) {
    const Program_result result = run({stream, "--preferences", path, "--no-preferences"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("preferences"));
}

TEST_F(Monitor_preferences, are_in_the_help) {
    const std::string help = run({"--help"}).output;
    for (const char* text : {"--preferences", "--no-preferences", "GLUE_MONITOR_PREFERENCES", "XDG_CONFIG_HOME"})
        EXPECT_THAT(help, HasSubstr(text));
}
