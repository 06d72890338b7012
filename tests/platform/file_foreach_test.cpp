#include <platform/file_foreach.h>

#include <support/files/Temporary_folder.h>

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Paths = std::multiset<std::string>;

struct file_foreach_test : testing::Test {
    std::string make_folder(const std::string& name) const {
        EXPECT_EQ(mkdir(folder.path(name).c_str(), 0777), 0);
        return folder.path(name);
    }
    static Paths visited(const std::string& directory, bool recursive = false) {
        Paths paths;
        EXPECT_TRUE(file_foreach(directory, recursive, [&](const std::string& path) { paths.insert(path); }));
        return paths;
    }
    Temporary_folder folder;
};

TEST_F(file_foreach_test, visits_each_entry_once_with_its_path) {
    const Paths expected = {folder.make_file("a.log", "1"), folder.make_file(".hidden", ""),
                            folder.make_file("with blank", ""), folder.make_fifo("fifo"), make_folder("below")};
    EXPECT_EQ(visited(folder.path()), expected);
}

TEST_F(file_foreach_test, of_an_empty_folder_visits_nothing) {
    EXPECT_EQ(visited(folder.path()), Paths{});
    EXPECT_EQ(visited(folder.path(), true), Paths{});
}

TEST_F(file_foreach_test, slash_at_the_end_is_not_doubled) {
    const std::string path = folder.make_file("file", "");
    EXPECT_EQ(visited(folder.path() + "/"), Paths{path});
}

TEST_F(file_foreach_test, visits_the_entries_of_subfolders_on_request) {
    make_folder("below");
    make_folder("below/deeper");
    make_folder("empty");
    const Paths expected = {folder.make_file("top", ""), folder.make_file("below/file", ""),
                            folder.make_file("below/deeper/file", "")};
    EXPECT_EQ(visited(folder.path(), true), expected) << "folders themselves are not visited";
}

TEST_F(file_foreach_test, does_not_follow_links) {
    make_folder("below");
    const std::string file = folder.make_file("below/file", "");
    const std::string link = folder.path("link");
    ASSERT_EQ(symlink(folder.path().c_str(), link.c_str()), 0) << "if it were followed, the visit would not end";
    EXPECT_EQ(visited(folder.path(), true), (Paths{file, link}));
}

TEST_F(file_foreach_test, reports_why_a_folder_cannot_be_read) {
    bool called = false;
    const auto visit = [&](const std::string&) { called = true; };
    errno = 0;
    EXPECT_FALSE(file_foreach(folder.path("none"), false, visit));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(file_foreach(folder.make_file("file", ""), true, visit));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(file_foreach("", false, visit));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(called);
}

TEST_F(file_foreach_test, entries_may_be_removed_meanwhile) {
    for (int i = 0; i < 300; ++i)
        folder.make_file("file" + std::to_string(i), "");
    unsigned removed = 0;
    EXPECT_TRUE(file_foreach(folder.path(), false, [&](const std::string& path) {
        EXPECT_EQ(std::remove(path.c_str()), 0);
        ++removed;
    }));
    EXPECT_EQ(removed, 300U);
    EXPECT_EQ(visited(folder.path()), Paths{});
}

TEST_F(file_foreach_test, exception_of_a_visitor_is_passed_on_and_leaks_no_descriptor) {
    folder.make_file("file", "");
    const int next_before = dup(0);
    close(next_before);
    EXPECT_THROW(file_foreach(folder.path(), false, [](const std::string&) { throw std::runtime_error("enough"); }),
                 std::runtime_error);
    const int next = dup(0);
    EXPECT_EQ(next, next_before);
    close(next);
}

} // namespace
