// The debug printer of a process that forks while other threads print.

#include <platform/Debug.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

/// Runs `task` in a child. \return false when the child hangs or fails
template <typename Task>
bool child_runs(Task task) {
    const pid_t child = fork();
    if (child == 0) {
        task();
        _exit(0);
    }
    int status = -1;
    const bool ended = eventually([&] { return waitpid(child, &status, WNOHANG) == child; });
    if (!ended) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    return ended && status == 0;
}

TEST(Debug_fork, child_prints_while_another_thread_of_the_parent_was_printing) {
    const Captured_descriptor errors(2);
    std::atomic<bool> stop{false};
    std::thread busy([&] {
        while (!stop)
            Debug::Print::dprint(".\n");
    });
    for (int i = 0; i < 30; ++i)
        EXPECT_TRUE(child_runs([] { Debug::Print::dprint("child\n"); })) << "the printer hangs in child " << i;
    stop = true;
    busy.join();
}

TEST(Debug_fork, unfinished_line_of_the_parent_stays_in_the_parent) {
    const Captured_descriptor errors(2);
    Debug::Print::dprint("begun ");
    EXPECT_TRUE(child_runs([] { Debug::Print::dprint("child\n"); }));
    Debug::Print::dprint("and ended\n");
    EXPECT_EQ(errors.text(), "child\nbegun and ended\n");
}

TEST(Debug_fork, sink_may_fork) {
    bool done = false;
    Debug::Print::set_sink([&](std::string_view) { done = child_runs([] {}); });
    Debug::Print::dprint("text\n");
    Debug::Print::set_sink({});
    EXPECT_TRUE(done);
}

} // namespace
