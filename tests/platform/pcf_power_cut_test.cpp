// The file store after the process has died or the power has failed during a change.

#include <platform/pcf.h>

#include <support/checks/waiting.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/files/Mounted_store.h>

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::AnyOf;
using testing::ElementsAre;

int write_text(const std::string& text) {
    return pcfWrite(text.data(), static_cast<int>(text.size()), -1);
}

/// Calls `before` ahead of every call by which the store changes the medium.
struct Watched_changes {
    explicit Watched_changes(const std::function<void(const std::string& call)>& before) {
        calls.openat = [before](const char* name, int flags) {
            if ((flags & O_CREAT) != 0)
                before(std::string("make ") + name);
            return std::nullopt;
        };
        calls.unlinkat = [before](const char* name) {
            before(std::string("remove ") + name);
            return std::nullopt;
        };
        calls.fsync = [before](int fd) {
            before("sync " + name_of(fd));
            return std::nullopt;
        };
        transfers.write = [before](int fd) {
            before("write " + name_of(fd));
            return std::nullopt;
        };
    }

    Replaced_file_calls calls;
    Replaced_calls transfers;
};

/// Appends to one file, removes one, creates one. \return whether all of that succeeded
bool change_everything() {
    return pcfOpenWrite("grows", nullptr) && write_text("+more") == 5 && write_text("+most") == 5 &&
           pcfCloseWrite(-1) && pcfRemove("goes") && pcfCreateWrite("comes", nullptr) && write_text("new") == 3 &&
           pcfCloseWrite(-1);
}

struct Filled_store : Mounted_store {
    Filled_store() {
        make_file("stays", "whole");
        make_file("grows", "begin");
        make_file("goes", "old");
    }
};

TEST(pcf_cut_off, content_reaches_the_medium_before_closing_returns_and_the_name_of_a_new_file_too) {
    const Filled_store store;
    std::vector<std::string> seen;
    const std::string folder = store.folder.path().substr(store.folder.path().rfind('/') + 1);
    {
        const Watched_changes watched([&seen](const std::string& call) { seen.push_back(call); });
        EXPECT_TRUE(change_everything());
    }
    EXPECT_THAT(seen, ElementsAre("write grows", "write grows", "sync grows", "remove goes", "sync " + folder,
                                  "make comes", "write comes", "sync comes", "sync " + folder));
}

TEST(pcf_cut_off, before_any_change_leaves_every_other_file_whole) {
    for (int survived = 0;; ++survived) {
        const Filled_store cut;
        pcfUnmount();
        const pid_t child = fork();
        if (child == 0) {
            int left = survived;
            cut.mount();
            const Watched_changes watched([&left](const std::string&) {
                if (left-- == 0)
                    _exit(1);
            });
            _exit(change_everything() ? 0 : 2);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        ASSERT_NE(WEXITSTATUS(status), 2);

        ASSERT_TRUE(cut.mount());
        EXPECT_EQ(cut.content_of("stays"), "whole");
        EXPECT_THAT(cut.content_of("grows"), AnyOf("begin", "begin+more", "begin+more+most"));
        if (pcfExists("goes")) {
            EXPECT_EQ(cut.content_of("goes"), "old");
        }
        if (pcfExists("comes")) {
            EXPECT_THAT(cut.content_of("comes"), AnyOf("", "new"));
        }
        EXPECT_TRUE(pcfOpenWrite("grows", nullptr)); // the file can be continued
        EXPECT_EQ(write_text("!"), 1);
        if (WEXITSTATUS(status) == 0) {
            EXPECT_EQ(survived, 9); // the number of changes
            break;
        }
    }
}

TEST(pcf_cut_off, killed_writer_leaves_the_first_part_of_its_bytes_and_every_other_file_whole) {
    const Filled_store store;
    pcfUnmount();
    const pid_t child = fork();
    if (child == 0) {
        store.mount();
        if (!pcfOpenWrite("grows", nullptr))
            _exit(1);
        for (char c = 'a';; c = c == 'z' ? 'a' : static_cast<char>(c + 1))
            if (pcfWrite(&c, 1, -1) == 0)
                pause();
    }
    EXPECT_TRUE(eventually([&store] { return store.content_of("grows").size() > 100; }));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);

    ASSERT_TRUE(store.mount());
    const std::string content = store.content_of("grows");
    std::string expected = "begin";
    while (expected.size() < content.size())
        expected += static_cast<char>('a' + (expected.size() - 5) % 26);
    EXPECT_EQ(content, expected);
    EXPECT_EQ(store.content_of("stays"), "whole");
    EXPECT_EQ(store.content_of("goes"), "old");
    EXPECT_EQ(store.free(), 16384 - content.size() - 8);
}

} // namespace
