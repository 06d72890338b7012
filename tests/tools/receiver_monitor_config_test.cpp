// Options from a file, as a user writes them.

#include "running_monitor.h"

#include <support/builders/Frame_builder.h>
#include <support/terminals/Pty_pair.h>

#include <algorithm>
#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

const std::string frame = build_frame("~~", le(std::uint32_t{1234}));

struct receiver_monitor_config : testing::Test {
    Program_result run(const std::string& config, Arguments arguments = {}) {
        arguments.insert(arguments.end(), {"--config", folder.make_file("monitor.ini", config)});
        return monitor_with(arguments).input(frame + frame).run();
    }
    /// One line on standard error that begins with the program, the file and the number; status 1.
    void expect_refusal(const std::string& config, int line, const std::string& about) {
        const Program_result result = run(config);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
        EXPECT_THAT(result.errors, testing::StartsWith("receiver_monitor: " + folder.path("monitor.ini") + ":" +
                                                       std::to_string(line) + ": "));
        EXPECT_THAT(result.errors, HasSubstr(about));
    }

    Temporary_folder folder;
};

} // namespace

TEST_F(receiver_monitor_config, gives_the_options) {
    EXPECT_EQ(run("[receiver_monitor]\nformat=comma\ncount=1\n").output, "RT,1234\n");
    EXPECT_EQ(run("quiet=true\n").output, "");
}

TEST_F(receiver_monitor_config, command_line_wins) {
    EXPECT_EQ(run("format=comma\ncount=1\n", {"--format", "labelled"}).output, "RT ms=1234\n");
}

TEST_F(receiver_monitor_config, names_the_source) {
    const std::string record = folder.make_file("record", frame);
    for (const char* key : {"device", "replay"})
        EXPECT_EQ(run(std::string(key) + "=" + record + "\n").output, "RT ms=1234\n");
    EXPECT_EQ(run("SPEC=exec:cat " + record + "\n").output, "RT ms=1234\n");
}

TEST_F(receiver_monitor_config, source_of_the_command_line_replaces_every_other) {
    const std::string record = folder.make_file("record", frame);
    for (const char* other : {"SPEC=exec:false", "device=/does/not/exist", "replay=/does/not/exist"})
        EXPECT_EQ(run(std::string(other) + "\n", {"--replay", record}).output, "RT ms=1234\n") << other;
}

TEST_F(receiver_monitor_config, every_option_may_be_in_it) {
    const Program_result result = run("log=" + folder.path() +
                                      "\nhistory=5\nlog-later=true\nduration=20\ntrace=false\n"
                                      "replay=" +
                                      folder.make_file("record", frame) + "\nspeed=2\n");
    EXPECT_EQ(result.output, "RT ms=1234\n") << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("log: 0 bytes in 0 files, 0 dropped\n"));
}

TEST_F(receiver_monitor_config, no_option_of_the_help_is_missing) {
    const std::string help = monitor_with({"--help"}).run().output;
    int found = 0;
    for (std::size_t at = 0; (at = help.find("\n  -", at)) != std::string::npos; ++found) {
        at = help.find("--", at) + 2;
        const std::string name = help.substr(at, help.find_first_of(" =\n", at) - at);
        const std::string errors = run(name + "=\n").errors;
        const bool is_refused = errors.find("there is no option") != std::string::npos;
        EXPECT_EQ(is_refused, name == "help" || name == "config") << name << ": " << errors;
    }
    EXPECT_GE(found, 20) << help;
}

TEST_F(receiver_monitor_config, each_kind_of_option_takes_effect) {
    const std::string source = "SPEC=exec:cat " + folder.make_file("record", frame) + "\n";
    const std::string kept = folder.path("kept.settings");
    EXPECT_EQ(run(source + "format=comma\npreferences=" + kept + "\n").output, "RT,1234\n");
    EXPECT_EQ(run(source, {"--preferences", kept}).output, "RT,1234\n") << "kept";
    EXPECT_EQ(run(source + "no-preferences=true\n").output, "RT ms=1234\n");
    const Pty_pair line;
    EXPECT_THAT(run("SPEC=" + line.path() + "\nsend=VER\ntrace=true\nduration=0.1\n").errors,
                HasSubstr("[WR](5): VER\\r\\n\n"));
    EXPECT_THAT(run(source + "view=true\n").errors, testing::StartsWith("receiver_monitor: --view: "));
}

TEST_F(receiver_monitor_config, error_in_it_is_one_line_with_its_number) {
    expect_refusal("# comment\nfromat=comma\n", 2, "\"fromat\"");
    expect_refusal("format=xml\n", 1, "xml");
    expect_refusal("\n\ncount=0\n", 3, "0 is not a number from 1");
    expect_refusal("log-rotate=never\n", 1, "never");
    expect_refusal("config=another.ini\n", 1, "\"config\"");
    expect_refusal("quiet\n", 1, "neither");
}

TEST_F(receiver_monitor_config, contradicting_options_are_one_line_and_status_1) {
    for (const char* config : {"speed=2\n", "history=5\n", "send=VER\n", "device=/dev/null\nreplay=/dev/null\n"}) {
        const Program_result result = run(config);
        EXPECT_EQ(result.status, 1) << config;
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    }
}

TEST_F(receiver_monitor_config, missing_file_is_one_line_and_status_1) {
    const Program_result result = monitor_with({"--config", "/does/not/exist"}).input(frame).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_monitor: cannot open /does/not/exist: No such file or directory\n");
}
