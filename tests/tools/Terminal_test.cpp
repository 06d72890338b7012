#include <monitor/view/Terminal.h>

#include <support/faults/in_c_library.h>
#include <support/files/descriptors.h>
#include <support/terminals/Pty_pair.h>
#include <support/terminals/Standard_output.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

std::atomic<bool> fdopen_fails{false};

} // namespace

extern "C" std::FILE* fdopen(int fd, const char* mode) noexcept {
    static const auto original = in_c_library(fdopen);
    if (!fdopen_fails)
        return original(fd, mode);
    errno = ENOMEM;
    return nullptr;
}

TEST(Terminal, closes_its_descriptor_when_there_is_no_memory_for_a_file) {
    const Pty_pair terminal;
    const Standard_output standard(terminal.slave());
    const int before = open_descriptors();
    fdopen_fails = true;
    const live_view::Terminal view;
    fdopen_fails = false;
    EXPECT_EQ(view.problem(), "cannot use the terminal: Cannot allocate memory");
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Terminal, leaves_nothing_open_when_the_terminal_type_is_unknown) {
    const Pty_pair terminal;
    const Standard_output standard(terminal.slave());
    setenv("TERM", "no-such-terminal", 1);
    const int before = open_descriptors();
    const live_view::Terminal view;
    EXPECT_THAT(view.problem(), testing::StartsWith("cannot address the cursor"));
    EXPECT_EQ(open_descriptors(), before);
}
