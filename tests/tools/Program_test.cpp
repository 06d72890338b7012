// Tests of the class with which other tests run programs.

#include <support/processes/Program.h>

#include <gtest/gtest.h>

namespace {

Program shell(const std::string& script) {
    return Program("sh", {"-c", script});
}

} // namespace

TEST(Program, collects_both_outputs_and_the_exit_status) {
    const Program_result result = shell("echo out; echo err >&2; exit 7").run();
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errors, "err\n");
    EXPECT_EQ(result.status, 7);
    EXPECT_TRUE(result.in_time);
}

TEST(Program, passes_the_input_and_its_end) {
    const std::string much(1000000, 'x');
    EXPECT_EQ(Program("cat").input(much).run().output, much);
    EXPECT_EQ(Program("cat").run().output, "");
}

TEST(Program, survives_a_program_that_does_not_read_its_input) {
    EXPECT_EQ(shell("exit 3").input(std::string(1000000, 'x')).run().status, 3);
    EXPECT_EQ(shell("exec <&-; echo done").input(std::string(1000000, 'x')).run().output, "done\n");
}

TEST(Program, reports_the_signal_that_ended_it) {
    EXPECT_EQ(shell("kill -9 $$").run().status, -9);
}

TEST(Program, kills_a_program_and_its_children_at_the_time_limit) {
    const Program_result result = shell("sleep 100 & echo begun; sleep 100").time_limit(std::chrono::seconds(1)).run();
    EXPECT_FALSE(result.in_time);
    EXPECT_EQ(result.output, "begun\n");
    EXPECT_EQ(result.status, -9);
}

TEST(Program, kills_a_program_that_has_closed_its_outputs) {
    const Program_result result = shell("exec >&- 2>&-; sleep 100").time_limit(std::chrono::milliseconds(200)).run();
    EXPECT_FALSE(result.in_time);
}

TEST(Program, reader_that_leaves_ends_a_writer_with_a_signal) {
    const Program_result result = Program("yes").reader_leaves_after(10).run();
    EXPECT_EQ(result.output, "y\ny\ny\ny\ny\n");
    EXPECT_EQ(result.status, -13);
}

TEST(Program, reports_a_program_that_does_not_exist) {
#ifdef GLUE_RUNS_IN_EMULATOR
    GTEST_SKIP() << "qemu forks for posix_spawn, which then does not report the failure of the child";
#endif
    EXPECT_EQ(Program("/does/not/exist").run().status, Program::did_not_start);
}

TEST(Program, output_can_be_missing_or_redirected) {
    EXPECT_NE(shell("echo lost").without_output().run().status, 0);
    const Program_result result = shell("echo lost").output_to("/dev/full").run();
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(result.output, "");
}

TEST(Program, environment_is_the_test_s_own_except_the_given_variables) {
    setenv("GLUE_TEST_VARIABLE", "before", 1);
    Program program = shell("echo $GLUE_TEST_VARIABLE${GLUE_TEST_VARIABLE-none}");
    EXPECT_EQ(program.run().output, "beforebefore\n");
    EXPECT_EQ(program.environment("GLUE_TEST_VARIABLE", "x").run().output, "xx\n");
    EXPECT_EQ(program.without_environment("GLUE_TEST_VARIABLE").run().output, "none\n");
    unsetenv("GLUE_TEST_VARIABLE");
}

TEST(Program, preferences_of_the_user_are_not_used) {
    EXPECT_EQ(shell("echo ${GLUE_MONITOR_PREFERENCES-mine}").run().output, "\n");
}
