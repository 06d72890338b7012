// What a child inherits, and what happens to one that cannot start.

#include <glue/data_stream/Process_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Limited_descriptors.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Child_program.h>

#include <platform/Debug.h>
#include <platform/module_man.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned category = 111;

std::string output_of_program(const Child_program& program, const char* const* envp = nullptr) {
    Process_data_stream stream(nullptr, program, envp);
    return output_of(stream);
}

// ---- Environment and program ----

TEST(Process_data_stream_child, has_the_environment_that_it_is_given) {
    const char* const environment[] = {"FIRST=1", "SECOND=two words", nullptr};
    EXPECT_EQ(output_of_program(Child_program({"env"}), environment), "FIRST=1\nSECOND=two words\n");
    const char* const empty[] = {nullptr};
    EXPECT_EQ(output_of_program(Child_program({"env"}), empty), "");
}

TEST(Process_data_stream_child, has_the_environment_of_a_created_stream) {
    module_man modules;
    const char* const environment[] = {"FIRST=1", nullptr};
    const std::unique_ptr<Process_data_stream> stream(Process_data_stream::create(modules, "exec:env", environment));
    ASSERT_TRUE(stream);
    EXPECT_EQ(output_of(*stream), "FIRST=1\n");
}

TEST(Process_data_stream_child, has_the_environment_of_its_parent_when_it_is_given_none) {
    setenv("GLUE_TEST_INHERITED", "yes", 1);
    EXPECT_EQ(output_of_program(shell("echo $GLUE_TEST_INHERITED")), "yes\n");
    unsetenv("GLUE_TEST_INHERITED");
}

TEST(Process_data_stream_child, gets_its_arguments_unchanged) {
    EXPECT_EQ(output_of_program(Child_program({"printf", "%s:", "two  words", "", "'$HOME'"})), "two  words::'$HOME':");
}

TEST(Process_data_stream_child, is_found_by_its_path_or_on_the_parents_path) {
    const Temporary_folder folder;
    const std::string path = folder.make_file("a_program_of_this_test", "#!/bin/sh\necho found\n");
    chmod(path.c_str(), 0755);
    EXPECT_EQ(output_of_program(Child_program({path})), "found\n");
    EXPECT_EQ(output_of_program(Child_program({"a_program_of_this_test"})), "");
    const std::string before = std::getenv("PATH");
    setenv("PATH", (folder.path() + ":" + before).c_str(), 1);
    const char* const elsewhere[] = {"PATH=/nowhere", nullptr};
    EXPECT_EQ(output_of_program(Child_program({"a_program_of_this_test"}), elsewhere), "found\n");
    setenv("PATH", before.c_str(), 1);
}

// ---- Descriptors ----

const char* const only_its_own = "0\n1\n2\n3\n"; // 3 is the folder that is listed

TEST(Process_data_stream_child, inherits_no_descriptor_except_the_standard_ones) {
    EXPECT_EQ(output_of_program(Child_program({"ls", "/proc/self/fd"})), only_its_own);
}

TEST(Process_data_stream_child, inherits_none_of_a_thousand_descriptors) {
    const Many_descriptors many(1000);
    EXPECT_EQ(output_of_program(Child_program({"ls", "/proc/self/fd"})), only_its_own);
}

TEST(Process_data_stream_child, inherits_nothing_of_another_stream) {
    Process_data_stream other(nullptr, echo(), nullptr);
    EXPECT_EQ(output_of_program(Child_program({"ls", "/proc/self/fd"})), only_its_own);
}

TEST(Process_data_stream_child, that_continues_does_not_keep_the_input_of_another_open) {
    Process_data_stream first(nullptr, echo(), nullptr);
    Process_data_stream second(nullptr, echo(), nullptr);
    EXPECT_EQ(first.join(-1), 0); // it gets end of input
    EXPECT_TRUE(second.is_running());
}

std::string descriptors_of_a_program_started_by_others() {
    std::FILE* const program = popen("exec ls -l /proc/self/fd | wc -l", "r");
    char line[16] = "";
    if (!program || !std::fgets(line, sizeof line, program))
        ADD_FAILURE() << "ls does not run";
    if (program)
        pclose(program);
    return line;
}

TEST(Process_data_stream_child, shares_the_pipes_of_its_stream_with_no_other_program) {
    const std::string before = descriptors_of_a_program_started_by_others();
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_EQ(descriptors_of_a_program_started_by_others(), before);
}

/// Exits with 0 when a process without standard streams can write to and read from a child, and their numbers stay
/// unused.
[[noreturn]] void talk_without_standard_streams() {
    for (int fd : {0, 1, 2})
        close(fd);
    bool good = true;
    {
        Process_data_stream stream(nullptr, echo(), nullptr);
        good =
            write_bytes(stream, "abc\n") == 4 && line_of(stream) == "abc" && !is_open(0) && !is_open(1) && !is_open(2);
    }
    _exit(good ? 0 : 1);
}

TEST(Process_data_stream_child, serves_a_parent_without_standard_streams) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(talk_without_standard_streams(), testing::ExitedWithCode(0), "");
}

TEST(Process_data_stream_child, has_the_standard_error_of_its_parent) {
    const Captured_descriptor errors(2);
    EXPECT_EQ(output_of_program(shell("echo complaint >&2")), "");
    EXPECT_EQ(errors.text(), "complaint\n");
}

// ---- Signals ----

TEST(Process_data_stream_child, ignores_the_signals_that_its_parent_ignores) {
    const Child_program program({"sh", "-c", "kill -PIPE $$; echo alive"});
    {
        const Signal_disposition ignored(SIGPIPE, SIG_IGN);
        EXPECT_EQ(output_of_program(program), "alive\n");
    }
    const Signal_disposition as_usual(SIGPIPE, SIG_DFL);
    EXPECT_EQ(output_of_program(program), "");
}

// ---- A child that cannot become the program ----

struct Process_data_stream_failed_child : testing::Test {
    ~Process_data_stream_failed_child() override { Debug::Print::enable(category, false); }
    Captured_descriptor errors{2};
};

TEST_F(Process_data_stream_failed_child, reports_the_reason_and_the_arguments_when_its_category_is_on) {
    Debug::Print::enable(category, true);
    EXPECT_EQ(output_of_program(Child_program({"/nowhere", "-a", "two words"})), "");
    EXPECT_EQ(errors.text(), "popen2 (Process_data_stream): No such file or directory\n"
                             "arg[0]: '/nowhere'\n"
                             "arg[1]: '-a'\n"
                             "arg[2]: 'two words'\n");
}

TEST_F(Process_data_stream_failed_child, reports_that_a_program_must_not_be_run) {
    const Temporary_folder folder;
    const std::string path = folder.make_file("no_program", "text");
    Debug::Print::enable(category, true);
    EXPECT_EQ(output_of_program(Child_program({path})), "");
    EXPECT_EQ(errors.text(), "popen2 (Process_data_stream): Permission denied\narg[0]: '" + path + "'\n");
}

TEST_F(Process_data_stream_failed_child, reports_nothing_when_its_category_is_off) {
    EXPECT_EQ(output_of_program(Child_program({"/nowhere", "-a"})), "");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Process_data_stream_failed_child, writes_nothing_that_its_parent_has_buffered) {
    const Temporary_folder folder;
    std::FILE* const file = std::fopen(folder.path("file").c_str(), "w");
    ASSERT_TRUE(file);
    std::fputs("once\n", file);
    EXPECT_EQ(output_of_program(Child_program({"/nowhere"})), "");
    std::fclose(file);
    EXPECT_EQ(folder.content_of("file"), "once\n");
}

TEST_F(Process_data_stream_failed_child, ends_when_it_cannot_list_its_descriptors) {
    Process_data_stream stream(nullptr, nullptr, nullptr);
    {
        const Limited_descriptors limit(4); // enough for the two pipes
        ASSERT_TRUE(stream.run(shell("echo started"), nullptr));
        EXPECT_TRUE(eventually([&] { return stream.is_finished(); }));
    }
    EXPECT_EQ(output_of(stream), "");
    EXPECT_EQ(errors.text(), "Too many open files\n");
}

} // namespace
